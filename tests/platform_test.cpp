#include "bundle_copy.h"
#include "vorneffects/Platform.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <thread>

using namespace vorn;

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

Data dataOf(Bytes bytes) {
    return std::make_shared<Bytes>(std::move(bytes));
}

/// A folder that goes away with the test.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "vorneffects-platform-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        path_ = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }
    std::string write(const std::string& name, std::string_view contents) const {
        std::ofstream(path_ / name, std::ios::binary) << contents;
        return (path_ / name).string();
    }

private:
    fs::path path_;
};

// ---- Numbers ----------------------------------------------------------------------------------

TEST(Numbers, AreReadByTruncationSaturationAndLowBits) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    const struct {
        Number number;
        int32_t asInt;
        uint32_t asUnsigned;
        float asFloat;
    } cases[] = {
        {Number(), 0, 0, 0},
        {2.9, 2, 2, 2.9f},
        {-2.9, -2, 4294967294u, -2.9f},
        {-1, -1, 4294967295u, -1},
        {4294967295u, INT32_MAX, 4294967295u, 4294967296.0f},
        {4294967298.5, INT32_MAX, 2, 4294967296.0f},
        {-4294967297.0, INT32_MIN, 4294967295u, -4294967296.0f},
        {2147483647.5, INT32_MAX, 2147483647u, 2147483648.0f},
        {9223372036854774784.0, INT32_MAX, 0xFFFFFC00u, 9223372036854775808.0f},
        {9223372036854775808.0, INT32_MAX, 0, 9223372036854775808.0f},
        {18446744073709549568.0, INT32_MAX, 0, 18446744073709551616.0f},
        {1e300, INT32_MAX, 0, std::numeric_limits<float>::infinity()},
        {-inf, INT32_MIN, 0, -std::numeric_limits<float>::infinity()},
        {0.1, 0, 0, 0.1f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number.doubleValue());
        EXPECT_EQ(c.number.intValue(), c.asInt);
        EXPECT_EQ(c.number.unsignedIntValue(), c.asUnsigned);
        EXPECT_EQ(c.number.floatValue(), c.asFloat);
    }
    const Number notANumber = std::nan("");
    EXPECT_EQ(notANumber.intValue(), 0);
    EXPECT_EQ(notANumber.unsignedIntValue(), 0u);
    EXPECT_TRUE(std::isnan(notANumber.floatValue()));
}

// ---- Clock ------------------------------------------------------------------------------------

TEST(Clock, StandsStillWhileDrivenAndRunsAgainWhenReleased) {
    const uint64_t before = PlatformClock::ticks();
    PlatformClock::drive(5);
    EXPECT_TRUE(PlatformClock::isDriven());
    EXPECT_EQ(PlatformClock::ticks(), 5u);
    EXPECT_EQ(PlatformClock::ticks(), 5u);
    PlatformClock::drive(3);
    EXPECT_EQ(PlatformClock::ticks(), 3u) << "a host may go back in time";
    PlatformClock::release();
    EXPECT_FALSE(PlatformClock::isDriven());
    EXPECT_GE(PlatformClock::ticks(), before);
}

// ---- Classes, bundles, files ------------------------------------------------------------------

const ClassInfo firstClass{"PlatformTestClass", &firstClass};
const ClassInfo secondClass{"PlatformTestClass", &secondClass};

TEST(Classes, AreFoundByNameAndTheLastOneCounts) {
    EXPECT_EQ(classFromString("PlatformTestClass"), nullptr);
    registerClass(&firstClass);
    EXPECT_EQ(classFromString("PlatformTestClass"), &firstClass);
    registerClass(&secondClass);
    EXPECT_EQ(classFromString("PlatformTestClass"), &secondClass);
    registerClass(nullptr);
    EXPECT_EQ(classFromString("PlatformTest"), nullptr);
    EXPECT_EQ(classFromString({}), nullptr);
}

TEST(Bundles, LieBesideTheBinaryOfTheirClass) {
    EXPECT_EQ(fs::path(Bundle::forClass(&firstClass).folder()),
              fs::canonical("/proc/self/exe").parent_path() / "VornEffects");

    const ClassInfo inTheSystemLibrary{"System", dlsym(RTLD_DEFAULT, "gnu_get_libc_version")};
    const fs::path folder = Bundle::forClass(&inTheSystemLibrary).folder();
    EXPECT_EQ(folder.filename(), "VornEffects");
    EXPECT_TRUE(fs::exists(folder.parent_path() / "libc.so.6")) << folder;

    const int onTheStack = 0;
    const ClassInfo nowhere{"Nowhere", &onTheStack};
    EXPECT_EQ(Bundle::forClass(&nowhere).folder(), "");
    EXPECT_EQ(Bundle::forClass(nullptr).folder(), "");
}

TEST(Bundles, GiveRegularFilesOnly) {
    const TemporaryFolder folder;
    const std::string picture = folder.write("Picture.png", "x");
    fs::create_directory(folder.path() / "Folder.png");
    const Bundle bundle(folder.path().string());
    EXPECT_EQ(bundle.pathForResource("Picture", "png"), picture);
    EXPECT_EQ(bundle.pathForResource("Picture.png", ""), picture);
    EXPECT_EQ(bundle.pathForResource("Folder", "png"), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("Picture", "plist"), std::nullopt);
    EXPECT_EQ(bundle.pathForResource("", "png"), std::nullopt);
    EXPECT_EQ(bundle.pathForResource(std::string_view("Picture.png\0x", 13), ""), std::nullopt);
    EXPECT_EQ(Bundle("").pathForResource("etc/passwd", ""), std::nullopt);
}

TEST(Files, AreReadWholeOrNotAtAll) {
    const TemporaryFolder folder;
    const Data three = dataWithContentsOfFile(folder.write("three", std::string_view("a\0b", 3)));
    ASSERT_TRUE(three);
    EXPECT_EQ(*three, (Bytes{'a', 0, 'b'}));
    const Data empty = dataWithContentsOfFile(folder.write("empty", ""));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
    EXPECT_FALSE(dataWithContentsOfFile((folder.path() / "missing").string()));
    EXPECT_FALSE(dataWithContentsOfFile(folder.path().string()));
    EXPECT_FALSE(dataWithContentsOfFile("/dev/zero"));
    EXPECT_FALSE(dataWithContentsOfFile(""));
}

// ---- Property lists ---------------------------------------------------------------------------

TEST(PropertyLists, XMLKeepsEveryKindOfValue) {
    const TemporaryFolder folder;
    const auto root =
        dictionaryWithContentsOfFile(folder.write("list.plist", R"(<?xml version="1.0"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <key>text</key><string>Füße &amp; more</string> <key>none</key><string></string>
  <key>yes</key><true/> <key>no</key><false/>
  <key>whole</key><integer>-12</integer> <key>real</key><real>2.5</real>
  <key>data</key><data>AQID</data>
  <key>list</key><array><string>a</string><dict><key>k</key><string>v</string></dict></array>
</dict></plist>)"));
    ASSERT_TRUE(root);
    EXPECT_EQ(*root->at("text").string(), "Füße & more");
    EXPECT_EQ(*root->at("none").string(), "");
    EXPECT_TRUE(std::get<bool>(root->at("yes").value));
    EXPECT_FALSE(std::get<bool>(root->at("no").value));
    EXPECT_EQ(std::get<int64_t>(root->at("whole").value), -12);
    EXPECT_EQ(std::get<double>(root->at("real").value), 2.5);
    EXPECT_EQ(*std::get<Data>(root->at("data").value), (Bytes{1, 2, 3}));
    const PropertyListArray* list = root->at("list").array();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 2u);
    EXPECT_EQ(*(*list)[0].string(), "a");
    EXPECT_EQ(*(*list)[1].dictionary()->at("k").string(), "v");
}

TEST(PropertyLists, BinaryOnesAreRead) {
    // { a = ("x", true); d = <0102>; n = -5; }
    constexpr uint8_t kBytes[] = {
        0x62, 0x70, 0x6C, 0x69, 0x73, 0x74, 0x30, 0x30, 0xD3, 0x01, 0x02, 0x03, 0x04, 0x07,
        0x08, 0x51, 0x61, 0x51, 0x64, 0x51, 0x6E, 0xA2, 0x05, 0x06, 0x51, 0x78, 0x09, 0x42,
        0x01, 0x02, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFB, 0x08, 0x0F, 0x11,
        0x13, 0x15, 0x18, 0x1A, 0x1B, 0x1E, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x27};
    const std::string_view all(reinterpret_cast<const char*>(kBytes), sizeof kBytes);
    const TemporaryFolder folder;
    const auto root = dictionaryWithContentsOfFile(folder.write("binary.plist", all));
    ASSERT_TRUE(root);
    EXPECT_EQ(std::get<int64_t>(root->at("n").value), -5);
    EXPECT_EQ(root->at("a").array()->size(), 2u);
    EXPECT_EQ(*std::get<Data>(root->at("d").value), (Bytes{1, 2}));
    for (size_t length = 0; length < all.size(); ++length)
        EXPECT_FALSE(dictionaryWithContentsOfFile(folder.write("cut", all.substr(0, length))))
            << length;
}

TEST(PropertyLists, AnythingElseGivesNothing) {
    const TemporaryFolder folder;
    const std::string cases[] = {"", "no property list", "<plist version=\"1.0\"><array/></plist>",
                                 "<plist version=\"1.0\"><dict><key>a</key></plist>",
                                 "<plist version=\"1.0\"><dict>"};
    for (const std::string& contents : cases)
        EXPECT_FALSE(dictionaryWithContentsOfFile(folder.write("bad", contents))) << contents;
    EXPECT_FALSE(dictionaryWithContentsOfFile((folder.path() / "missing").string()));
}

/// An XML list with arrays inside each other, ended properly or not.
std::string nestedXML(int levels, bool isEnded) {
    std::string text = "<plist version=\"1.0\"><dict><key>k</key>";
    for (int level = 0; level < levels; ++level) text += "<array>";
    if (!isEnded) return text;
    for (int level = 0; level < levels; ++level) text += "</array>";
    return text + "</dict></plist>";
}

/// The same as a binary list, its numbers two bytes each.
std::string nestedBinary(uint16_t levels) {
    const auto number = [](uint64_t value, int size) {
        std::string bytes;
        while (size-- > 0) bytes += static_cast<char>(value >> 8 * size);
        return bytes;
    };
    // Values: the dictionary, its key, the arrays, each of which holds the next value, true.
    std::vector<std::string> values = {"\xD1" + number(1, 2) + number(2, 2), "Qk"};
    for (int level = 0; level < levels; ++level)
        values.push_back("\xA1" + number(values.size() + 1, 2));
    values.push_back("\x09");
    std::string text = "bplist00", offsets;
    for (const std::string& value : values) {
        offsets += number(text.size(), 4);
        text += value;
    }
    return text + offsets + number(0x0402, 8) + number(values.size(), 8) + number(0, 8) +
           number(text.size(), 8);
}

TEST(PropertyLists, AreNestedToALimit) {
    const TemporaryFolder folder;
    const auto isRead = [&](const std::string& contents) {
        return dictionaryWithContentsOfFile(folder.write("nested", contents)).has_value();
    };
    EXPECT_TRUE(isRead(nestedXML(100, true)));
    EXPECT_TRUE(isRead(nestedBinary(100)));
    for (const uint16_t levels : {200, 8000, 60000}) {
        EXPECT_FALSE(isRead(nestedXML(levels, true))) << levels;
        EXPECT_FALSE(isRead(nestedXML(levels, false))) << levels;
        EXPECT_FALSE(isRead(nestedBinary(levels))) << levels;
    }
}

/// A binary list of these values, whose numbers are four bytes each; the first one is the root.
std::string binaryList(const std::vector<std::string>& values) {
    const auto number = [](uint64_t value, int size) {
        std::string bytes;
        while (size-- > 0) bytes += static_cast<char>(value >> 8 * size);
        return bytes;
    };
    std::string text = "bplist00", offsets;
    for (const std::string& value : values) {
        offsets += number(text.size(), 4);
        text += value;
    }
    return text + offsets + number(0x0404, 8) + number(values.size(), 8) + number(0, 8) +
           number(text.size(), 8);
}

std::string references(char mark, std::initializer_list<uint32_t> values) {
    std::string bytes(1, mark);
    for (const uint32_t value : values)
        for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string repeated(const std::string& text, int count) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

TEST(PropertyLists, ThatWouldHarmTheProcessAreRefused) {
    const std::string begin = "<plist version=\"1.0\"><dict><key>k</key>", end = "</dict></plist>";
    // Every array holds the next one twice: a million values of thirty.
    std::vector<std::string> doubling{references('\xD1', {1, 2}), "\x51k"};
    for (uint32_t i = 0; i < 20; ++i) doubling.push_back(references('\xA2', {i + 3, i + 3}));
    doubling.push_back("\x09");
    // An array that holds a text of 64 KiB two hundred times.
    std::vector<std::string> copies{references('\xD1', {1, 2}), "\x51k",
                                    references('\xAF', {}) + "\x10\xC8", ""};
    for (int i = 0; i < 200; ++i) copies[2] += references(0, {3}).substr(1);
    copies[3] = std::string("\x5F\x12\0\1\0\0", 6) + std::string(65536, 'x');

    const struct {
        const char* title;
        std::string contents;
    } cases[] = {
        {"levels with spaces", begin + repeated("<array >", 200) + repeated("</array>", 200) + end},
        {"levels with attributes",
         begin + repeated("<array a='>'>", 200) + repeated("</array>", 200) + end},
        {"ends in comments",
         begin + repeated("<array><!--</array>-->", 200) + repeated("</array>", 200) + end},
        {"ends in texts", begin + repeated("<array><string><![CDATA[</array>]]></string>", 200) +
                              repeated("</array>", 200) + end},
        {"many values", begin + "<array>" + repeated("<true/>", 100000) + "</array>" + end},
        {"many bytes", begin + "<string>" + std::string(5 << 20, 'x') + "</string>" + end},
        {"many entities", begin + "<string>" + repeated("&amp;", 100000) + "</string>" + end},
        {"a document type of its own",
         "<!DOCTYPE plist [<!ENTITY a 'b'>]>" + begin + "<string>&a;</string>" + end},
        {"a zero in a text", begin + std::string("<string>a\0b</string>", 20) + end},
        {"a zero in a key",
         "<plist version=\"1.0\"><dict>" + std::string("<key>a\0b</key>", 14) + "<true/>" + end},
        {"a zero in data", begin + std::string("<data>AQ\0D</data>", 17) + end},
        {"a zero as an entity", begin + "<string>a&#0;b</string>" + end},
        {"text between values", begin + "text<true/>" + end},
        {"another form", "{ k = v; }"},
        {"yet another form", "{ \"k\": \"v\" }"},
        {"a binary list of another version", "bplist15" + binaryList({"\xD0"}).substr(8)},
        {"a binary list that holds itself",
         binaryList({references('\xD1', {1, 2}), "\x51k", references('\xA1', {2})})},
        {"references that double", binaryList(doubling)},
        {"copies of a long text", binaryList(copies)},
        {"a reference outside", binaryList({references('\xD1', {1, 2}), "\x51k"})},
        {"an array longer than the file",
         binaryList({references('\xD1', {1, 2}), "\x51k", "\xAF\x12\x7F\xFF\xFF\xFF"})},
        {"a text longer than the file", binaryList({references('\xD1', {1, 2}), "\x51k",
                                                    "\x6F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})},
        {"a zero in a binary text",
         binaryList({references('\xD1', {1, 2}), "\x51k", std::string("\x62\0a\0\0", 5)})},
        {"a zero in a binary key",
         binaryList({references('\xD1', {1, 2}), std::string("\x62\0a\0\0", 5), "\x09"})},
    };
    const TemporaryFolder folder;
    for (const auto& c : cases)
        EXPECT_FALSE(dictionaryWithContentsOfFile(folder.write("bad", c.contents))) << c.title;

    // What these were made of is read where it does no harm.
    EXPECT_TRUE(dictionaryWithContentsOfFile(folder.write(
        "good", "<?xml version=\"1.0\"?> <!-- a --> " + begin +
                    "<array ><!-- b --><string ><![CDATA[</array>]]>&amp;<!-- c --></string >"
                    "<data/></array>" +
                    end + " <!-- d -->\n")));
    EXPECT_TRUE(dictionaryWithContentsOfFile(folder.write(
        "good", binaryList({references('\xD2', {1, 2, 3, 3}), "\x51k", std::string("\x61\0l", 3),
                            references('\xA2', {4, 4}), "\x51v"}))));
}

TEST(PropertyLists, DamagedOnesAreReadOrRefused) {
    const TemporaryFolder folder;
    const std::string intact[] = {
        nestedXML(2, true), nestedBinary(2),
        binaryList({references('\xD2', {1, 2, 3, 4}), "\x51k", std::string("\x62\0l\0m", 5),
                    std::string("\x23\x3F\xE8\0\0\0\0\0\0", 9), "\x13\xFF\0\0\0\0\0\0\0"})};
    for (const std::string& list : intact)
        for (size_t at = 0; at < list.size(); ++at)
            for (const int change : {1, 8, 0x10, 0x40, 0x80, 0xFF}) {
                std::string damaged = list;
                damaged[at] = static_cast<char>(damaged[at] ^ change);
                dictionaryWithContentsOfFile(folder.write("damaged", damaged));
            }
}

TEST(PropertyLists, NumbersAreTheSameUnderEveryLocale) {
    const TemporaryFolder folder;
    const std::string list =
                          folder.write("list.plist", "<plist version=\"1.0\"><dict><key>real</key>"
                                                     "<real>0.75</real></dict></plist>"),
                      source =
                          folder.write("comma", "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep "
                                                "\"\"\ngrouping -1\nEND LC_NUMERIC\n");
    const std::string command = "localedef --no-archive -c -i " + source + " " +
                                folder.path().string() + "/xx_XX > /dev/null 2>&1";
    static_cast<void>(std::system(command.c_str()));
    if (!fs::exists(folder.path() / "xx_XX")) GTEST_SKIP() << "localedef makes no locale here";
    EXPECT_EQ(
        BundleCopy::probeOriginal({"locale:" + folder.path().string() + ":xx_XX", "list:" + list}),
        (Lines{"half is 0,5", "real is 750 thousandths"}));
}

// ---- Pixel buffers and surfaces ---------------------------------------------------------------

TEST(PixelBuffers, AreZeroAndTheirRowsAligned) {
    int32_t status = -1;
    const CVPixelBufferRef buffer = PixelBuffer::create(33, 3, CIFormat::RGBAh, &status);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(status, kStatusSuccess);
    EXPECT_EQ(buffer->bytesPerRow(), 320u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer->bytes()) % 64, 0u);
    for (size_t i = 0; i < 3 * 320; ++i) EXPECT_EQ(buffer->bytes()[i], 0) << i;
}

TEST(PixelBuffers, OfImpossibleSizesFailWithAStatus) {
    const struct {
        uint32_t width, height;
    } cases[] = {{0, 1}, {1, 0}, {UINT32_MAX, UINT32_MAX}, {1, UINT32_MAX}, {131073, 1}};
    for (const auto& c : cases) {
        int32_t status = 0;
        EXPECT_FALSE(PixelBuffer::create(c.width, c.height, CIFormat::RGBAf, &status));
        EXPECT_EQ(status, kStatusInvalidSize) << c.width << " x " << c.height;
    }
}

TEST(Surfaces, AreMadeFromPropertiesThatMakeSense) {
    constexpr uint32_t bgra = 0x42475241, rgba = 0x52474241, argb = 32, half = 0x52476841,
                       single = 0x52476641;
    const struct {
        SurfaceProperties properties;
        std::optional<CIFormat> format;
        size_t bytesPerRow = 0;
    } cases[] = {
        {{.width = 3, .height = 2}, CIFormat::BGRA8, 64},
        {{.width = 3, .height = 2, .bytesPerRow = 12, .allocSize = 24, .pixelFormat = rgba},
         CIFormat::RGBA8,
         12},
        {{.width = 3, .height = 2, .bytesPerRow = 16, .allocSize = 4096, .pixelFormat = argb},
         CIFormat::ARGB8,
         16},
        {{.width = 9, .height = 2, .bytesPerElement = 8, .pixelFormat = half},
         CIFormat::RGBAh,
         128},
        {{.width = 4, .height = 2, .bytesPerElement = 16, .pixelFormat = single},
         CIFormat::RGBAf,
         64},
        {{.width = 0, .height = 2}, {}},
        {{.width = 3, .height = 0}, {}},
        {{.width = UINT32_MAX, .height = UINT32_MAX}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 8}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 13}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = SIZE_MAX / 4 * 4 - 64}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 12, .allocSize = 23}, {}},
        {{.width = 3, .height = 2, .allocSize = SIZE_MAX}, {}},
        {{.width = 3, .height = 2, .bytesPerElement = 8, .pixelFormat = bgra}, {}},
        {{.width = 3, .height = 2, .bytesPerElement = 0}, {}},
        {{.width = 3, .height = 2, .pixelFormat = 0}, {}},
    };
    for (const auto& c : cases) {
        const auto& p = c.properties;
        SCOPED_TRACE(testing::Message() << p.width << " x " << p.height << " stride "
                                        << p.bytesPerRow << " size " << p.allocSize);
        const IOSurfaceRef surface = Surface::create(p);
        ASSERT_EQ(surface != nullptr, c.format.has_value());
        if (!surface) continue;
        EXPECT_EQ(surface->format(), c.format);
        EXPECT_EQ(surface->bytesPerRow(), c.bytesPerRow);
        for (size_t i = 0; i < std::max(p.allocSize, c.bytesPerRow * p.height); ++i)
            ASSERT_EQ(surface->bytes()[i], 0) << i;
    }
}

TEST(Locks, CountAndShareOnlyReading) {
    using enum PixelMemory::Access;
    const CVPixelBufferRef buffer = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_EQ(buffer->unlock(), kStatusLocked);

    EXPECT_EQ(buffer->lock(), kStatusSuccess);
    EXPECT_EQ(buffer->lock(), kStatusSuccess);
    EXPECT_EQ(buffer->unlock(ReadOnly), kStatusLocked);
    EXPECT_EQ(buffer->unlock(), kStatusSuccess);
    EXPECT_EQ(buffer->baseAddress(), buffer->bytes());
    EXPECT_EQ(buffer->unlock(), kStatusSuccess);
    EXPECT_FALSE(buffer->isLocked());
    EXPECT_EQ(buffer->baseAddress(), nullptr);

    EXPECT_EQ(buffer->lock(ReadOnly), kStatusSuccess);
    EXPECT_EQ(buffer->lock(ReadWrite), kStatusLocked);
    EXPECT_EQ(buffer->unlock(ReadWrite), kStatusLocked);
    EXPECT_EQ(buffer->unlock(ReadOnly), kStatusSuccess);
    EXPECT_EQ(buffer->lock(ReadWrite), kStatusSuccess);
}

TEST(Locks, CountOnSeveralThreads) {
    const CVPixelBufferRef buffer = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                buffer->lock(PixelMemory::Access::ReadOnly);
                EXPECT_EQ(buffer->unlock(PixelMemory::Access::ReadOnly), kStatusSuccess);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(buffer->isLocked());
}

// ---- Mac Roman --------------------------------------------------------------------------------

TEST(MacRoman, MapsTheUpperHalf) {
    const struct {
        int byte;
        const char* text;
    } cases[] = {{0x7F, "\x7F"}, {0x80, "Ä"}, {0x8E, "é"}, {0x9F, "ü"},      {0xA5, "•"},
                 {0xAA, "™"},    {0xBD, "Ω"}, {0xC9, "…"}, {0xCA, "\u00A0"}, {0xD5, "’"},
                 {0xDB, "€"},    {0xE1, "·"}, {0xEF, "Ô"}, {0xF0, "\uF8FF"}, {0xF5, "ı"},
                 {0xFA, "˙"},    {0xFF, "ˇ"}};
    for (const auto& c : cases)
        EXPECT_EQ(stringFromMacRoman(std::string(1, static_cast<char>(c.byte))), c.text) << c.byte;
    EXPECT_EQ(stringFromMacRoman("FX é"), "FX √©") << "the bytes of UTF-8 text, each by itself";

    std::set<std::string> all;
    for (int byte = 0; byte < 256; ++byte)
        all.insert(stringFromMacRoman(std::string(1, static_cast<char>(byte))));
    EXPECT_EQ(all.size(), 256u) << "every byte has a character of its own";
}

// ---- PNG --------------------------------------------------------------------------------------

// Rows: opaque red, half green; transparent, a fifth of (200, 100, 50).
const Bytes kPNGWithAlpha = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D,
                             0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02,
                             0x08, 0x06, 0x00, 0x00, 0x00, 0x72, 0xB6, 0x0D, 0x24, 0x00, 0x00, 0x00,
                             0x19, 0x49, 0x44, 0x41, 0x54, 0x78, 0xDA, 0x63, 0xF8, 0xCF, 0xC0, 0xF0,
                             0x1F, 0x08, 0x1B, 0x18, 0xB8, 0x44, 0xE4, 0x18, 0x4E, 0xA4, 0x18, 0x19,
                             0x03, 0x00, 0x36, 0x5A, 0x05, 0x4B, 0x93, 0x41, 0x7E, 0xDB, 0x00, 0x00,
                             0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};
// (1, 2, 3), (250, 251, 252).
const Bytes kOpaquePNG = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D,
                          0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01,
                          0x08, 0x02, 0x00, 0x00, 0x00, 0x7B, 0x40, 0xE8, 0xDD, 0x00, 0x00, 0x00,
                          0x0F, 0x49, 0x44, 0x41, 0x54, 0x78, 0xDA, 0x63, 0x60, 0x64, 0x62, 0xFE,
                          0xF5, 0xFB, 0x0F, 0x00, 0x06, 0x03, 0x02, 0xF8, 0xF7, 0xED, 0x11, 0xF1,
                          0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};

TEST(PNG, IsDecodedToPremultipliedRGBA) {
    const auto withAlpha = decodePNG(dataOf(kPNGWithAlpha));
    ASSERT_TRUE(withAlpha);
    EXPECT_EQ(withAlpha->width, 2u);
    EXPECT_EQ(withAlpha->height, 2u);
    EXPECT_EQ(withAlpha->pixels,
              (Bytes{255, 0, 0, 255, 0, 128, 0, 128, 0, 0, 0, 0, 40, 20, 10, 51}));
    const auto opaque = decodePNG(dataOf(kOpaquePNG));
    ASSERT_TRUE(opaque);
    EXPECT_EQ(opaque->pixels, (Bytes{1, 2, 3, 255, 250, 251, 252, 255}));
}

TEST(PNG, ThatIsDamagedGivesNothing) {
    EXPECT_FALSE(decodePNG(nullptr));
    EXPECT_FALSE(decodePNG(dataOf(Bytes(100, 7))));
    // The last twelve bytes end the file and carry nothing of the picture.
    for (size_t length = 0; length < kOpaquePNG.size() - 12; ++length)
        EXPECT_FALSE(decodePNG(dataOf(Bytes(kOpaquePNG.begin(), kOpaquePNG.begin() + length))))
            << length;
    Bytes huge = kOpaquePNG;
    huge[16] = huge[20] = 0x7F;
    EXPECT_FALSE(decodePNG(dataOf(huge)));
}

// ---- Bitmap drawing ---------------------------------------------------------------------------

constexpr CIFormat kDrawableFormats[] = {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::ARGB8};

/// A bitmap of 8-bit pixels with padded rows, whose bytes are read channel by channel.
struct Bitmap {
    Bitmap(uint32_t width, uint32_t height, CIFormat format, size_t padding = 8)
        : width(width), height(height), format(format), bytesPerRow(width * 4 + padding),
          bytes(bytesPerRow * height) {
        context = BitmapContext::create(bytes.data(), width, height, bytesPerRow, format,
                                        CGColorSpace::SRGB);
    }

    uint8_t* at(uint32_t column, uint32_t row) { return &bytes[row * bytesPerRow + column * 4]; }
    /// The pixel as red, green, blue, alpha; row 0 is the top one.
    Bytes pixel(uint32_t column, uint32_t row) {
        const uint8_t* p = at(column, row);
        switch (format) {
        case CIFormat::BGRA8:
            return {p[2], p[1], p[0], p[3]};
        case CIFormat::ARGB8:
            return {p[1], p[2], p[3], p[0]};
        default:
            return {p[0], p[1], p[2], p[3]};
        }
    }
    /// The smallest box around everything that is not transparent, y up from the bottom.
    CGRect ink() {
        CGRect box;
        for (uint32_t row = 0; row < height; ++row)
            for (uint32_t column = 0; column < width; ++column)
                if (pixel(column, row)[3] > 0)
                    box = box.unionWith({double(column), double(height - 1 - row), 1, 1});
        return box;
    }

    uint32_t width, height;
    CIFormat format;
    size_t bytesPerRow;
    Bytes bytes;
    CGContextRef context;
};

TEST(BitmapContexts, FillTheVeryBytesAndTheVeryPixels) {
    for (const CIFormat format : kDrawableFormats) {
        SCOPED_TRACE(formatName(format));
        for (const size_t padding : {8, 1}) {
            Bitmap bitmap(4, 3, format, padding);
            ASSERT_TRUE(bitmap.context);
            // A value that truncation would get wrong stands for each way to round: 0.998 is
            // 254.49 of 255.
            bitmap.context->setFillColor(0.15, 0.998, 0.00589, 1);
            bitmap.context->fillRect({1, 0, 2, 1});
            bitmap.context->flush();
            for (uint32_t row = 0; row < 3; ++row)
                for (uint32_t column = 0; column < 4; ++column)
                    EXPECT_EQ(bitmap.pixel(column, row), row == 2 && (column == 1 || column == 2)
                                                             ? (Bytes{38, 254, 2, 255})
                                                             : (Bytes{0, 0, 0, 0}))
                        << column << ", " << row;
            for (uint32_t row = 0; row < 3; ++row)
                for (size_t i = 16; i < bitmap.bytesPerRow; ++i)
                    EXPECT_EQ(bitmap.at(0, row)[i], 0) << "padding is left alone";
        }
    }
}

TEST(BitmapContexts, StoreEveryByteValueOfAFillColor) {
    Bitmap bitmap(1, 1, CIFormat::RGBA8);
    bitmap.context->setBlendMode(CGBlendMode::Copy);
    for (int value = 0; value < 256; ++value) {
        const double c = value / 255.0;
        bitmap.context->setFillColor(c, 1 - c, 1, 1);
        bitmap.context->fillRect({0, 0, 1, 1});
        bitmap.context->flush();
        const auto byte = static_cast<uint8_t>(value);
        EXPECT_EQ(bitmap.pixel(0, 0), (Bytes{byte, static_cast<uint8_t>(255 - value), 255, 255}));
        bitmap.context->setFillColor(1, 0.5, 0, c);
        bitmap.context->fillRect({0, 0, 1, 1});
        bitmap.context->flush();
        EXPECT_EQ(bitmap.pixel(0, 0),
                  (Bytes{byte, static_cast<uint8_t>((value + 1) / 2), 0, byte}));
    }
}

TEST(BitmapContexts, BlendOverOrReplace) {
    Bitmap bitmap(3, 1, CIFormat::ARGB8);
    bitmap.context->setFillColor(1, 0, 0, 1);
    bitmap.context->fillRect({0, 0, 3, 1});
    bitmap.context->setFillColor(0, 0, 1, 0.2);
    bitmap.context->fillRect({0, 0, 1, 1});
    bitmap.context->setBlendMode(CGBlendMode::Copy);
    bitmap.context->fillRect({1, 0, 1, 1});
    bitmap.context->clearRect({2, 0, 1, 1});
    bitmap.context->flush();
    EXPECT_EQ(bitmap.pixel(0, 0), (Bytes{204, 0, 51, 255}));
    EXPECT_EQ(bitmap.pixel(1, 0), (Bytes{0, 0, 51, 51}));
    EXPECT_EQ(bitmap.pixel(2, 0), (Bytes{0, 0, 0, 0}));
}

TEST(BitmapContexts, KeepWhatTheMemoryHoldsAndWhatOthersWrite) {
    for (const CIFormat format : kDrawableFormats) {
        SCOPED_TRACE(formatName(format));
        Bitmap bitmap(3, 1, format);
        std::fill_n(bitmap.at(0, 0), 4, uint8_t{255});
        bitmap.context->setFillColor(0, 1, 0, 1);
        bitmap.context->fillRect({1, 0, 1, 1});
        bitmap.context->flush();
        std::fill_n(bitmap.at(2, 0), 4, uint8_t{255});
        bitmap.context->flush();
        bitmap.context->fillRect({1, 0, 1, 1});
        bitmap.context->flush();
        EXPECT_EQ(bitmap.pixel(0, 0), (Bytes{255, 255, 255, 255}));
        EXPECT_EQ(bitmap.pixel(1, 0), (Bytes{0, 255, 0, 255}));
        EXPECT_EQ(bitmap.pixel(2, 0), (Bytes{255, 255, 255, 255}));
    }
}

TEST(BitmapContexts, DrawPicturesUprightAndScaled) {
    const auto picture = decodePNG(dataOf(kPNGWithAlpha));
    ASSERT_TRUE(picture);
    Bitmap bitmap(8, 5, CIFormat::RGBA8);
    bitmap.context->setBlendMode(CGBlendMode::Copy);
    bitmap.context->drawImage({1, 2, 2, 2}, *picture);
    bitmap.context->drawImage({4, 0, 4, 4}, *picture);
    bitmap.context->flush();
    EXPECT_EQ(bitmap.ink(), (CGRect{1, 0, 7, 4}));
    EXPECT_EQ(bitmap.pixel(1, 1), (Bytes{255, 0, 0, 255}));
    EXPECT_EQ(bitmap.pixel(2, 1), (Bytes{0, 128, 0, 128}));
    EXPECT_EQ(bitmap.pixel(1, 2), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(bitmap.pixel(2, 2), (Bytes{40, 20, 10, 51}));
    EXPECT_EQ(bitmap.pixel(4, 1), (Bytes{255, 0, 0, 255})) << "edges do not fade when enlarged";
    EXPECT_EQ(bitmap.pixel(7, 1), (Bytes{0, 128, 0, 128}));
    EXPECT_EQ(bitmap.pixel(7, 4), (Bytes{40, 20, 10, 51}));
}

TEST(BitmapContexts, OutliveWhatMakesNoSense) {
    constexpr double inf = std::numeric_limits<double>::infinity(),
                     nan = std::numeric_limits<double>::quiet_NaN();
    Bitmap bitmap(4, 4, CIFormat::ARGB8);
    const CGImage truncated{2, 2, Bytes(15)};
    const auto picture = decodePNG(dataOf(kOpaquePNG));
    for (const CGRect rect : {CGRect{0, 0, nan, 1}, CGRect{nan, 0, 1, 1}, CGRect{0, 0, -1, 1},
                              CGRect{-1e300, 0, 1, 1}, CGRect{1e300, 1e300, 1e300, 1e300}}) {
        bitmap.context->fillRect(rect);
        bitmap.context->drawImage(rect, *picture);
    }
    bitmap.context->drawImage({0, 0, 4, 4}, truncated);
    bitmap.context->drawImage({0, 0, 4, 4}, CGImage{});
    bitmap.context->drawImage(CGRect::infinite(), *picture);
    bitmap.context->drawImage({0, 0, 1e-300, 1e-300}, *picture);
    for (const double size : {0.0, -1.0, nan, inf, 1e9})
        EXPECT_EQ(bitmap.context->drawText({0, 0}, "x", "Menlo", size), 0) << size;
    for (const double place : {nan, inf, -inf, 1e300})
        EXPECT_GT(bitmap.context->drawText({place, 0}, "x", "Menlo", 12), 0) << place;
    bitmap.context->flush();
    EXPECT_TRUE(bitmap.ink().isEmpty());

    for (const double far : {1e9, 1e18, 1e300})
        bitmap.context->drawImage({-far, -far, 2 * far, 2 * far}, *picture);
    bitmap.context->setFillColor(nan, 2, -inf, inf);
    bitmap.context->fillRect({-1e300, -inf, inf, inf});
    bitmap.context->flush();
    EXPECT_EQ(bitmap.pixel(3, 0), (Bytes{0, 255, 0, 255}));
}

TEST(BitmapContexts, AreRefusedWhereTheyCannotDraw) {
    uint8_t memory[64] = {};
    const struct {
        void* bytes;
        uint32_t width, height;
        size_t bytesPerRow;
        CIFormat format;
    } cases[] = {
        {nullptr, 2, 2, 8, CIFormat::RGBA8},      {memory, 0, 2, 8, CIFormat::RGBA8},
        {memory, 2, 0, 8, CIFormat::RGBA8},       {memory, 2, 2, 7, CIFormat::BGRA8},
        {memory, 2, 2, 32, CIFormat::RGBAf},      {memory, 2, 2, 16, CIFormat::RGBAh},
        {memory, 1, 32768, 4, CIFormat::BGRA8},   {memory, 32768, 1, 131072, CIFormat::BGRA8},
        {memory, 1u << 31, 1, 4, CIFormat::RGBA8}};
    for (const auto& c : cases)
        EXPECT_FALSE(BitmapContext::create(c.bytes, c.width, c.height, c.bytesPerRow, c.format,
                                           CGColorSpace::SRGB))
            << c.width << " x " << c.height;
}

// ---- Text -------------------------------------------------------------------------------------

TEST(Text, StandsOnItsBaselineAndIsAsWideAsItSays) {
    for (const CIFormat format : kDrawableFormats) {
        Bitmap bitmap(200, 100, format);
        bitmap.context->setFillColor(1, 1, 1, 1);
        const double advance = bitmap.context->drawText({20, 30}, "HEH", systemFontName(), 40);
        bitmap.context->flush();
        const CGRect ink = bitmap.ink();
        EXPECT_EQ(ink.y, 30) << "capitals stand on the baseline";
        // Capitals of text fonts reach up six to eight tenths of an em.
        EXPECT_GT(ink.height, 24);
        EXPECT_LT(ink.height, 33);
        EXPECT_GE(ink.x, 20);
        EXPECT_LT(ink.x, 26);
        EXPECT_LE(ink.maxX(), 20 + advance);
        EXPECT_GT(ink.maxX(), 20 + advance - 8);
        EXPECT_EQ(bitmap.context->textWidth("HEH", systemFontName(), 40), advance);
    }
}

TEST(Text, IsGreyAndTheSameEveryTime) {
    Bitmap first(120, 40, CIFormat::RGBA8), second(120, 40, CIFormat::RGBA8);
    for (Bitmap* bitmap : {&first, &second}) {
        bitmap->context->setFillColor(1, 1, 1, 1);
        bitmap->context->drawText({4.3, 9.6}, "Sway & Söße", "Sans", 19.5);
        bitmap->context->flush();
    }
    EXPECT_EQ(first.bytes, second.bytes);
    bool hasSoftEdges = false;
    for (uint32_t row = 0; row < 40; ++row)
        for (uint32_t column = 0; column < 120; ++column) {
            const Bytes pixel = first.pixel(column, row);
            EXPECT_EQ(pixel, Bytes(4, pixel[3])) << "white text has no coloured fringes";
            hasSoftEdges |= pixel[3] > 0 && pixel[3] < 255;
        }
    EXPECT_TRUE(hasSoftEdges);
}

TEST(Text, IsDrawnOnSeveralThreadsAtOnce) {
    std::vector<Bytes> drawn(4);
    std::vector<std::thread> threads;
    for (Bytes& bytes : drawn)
        threads.emplace_back([&bytes] {
            Bitmap bitmap(80, 30, CIFormat::ARGB8);
            for (const char* font : {"Menlo", "Sans"}) {
                bitmap.context->drawText({2, 8}, "Threads", font, 16);
                bitmap.context->flush();
            }
            bytes = bitmap.bytes;
        });
    for (std::thread& thread : threads) thread.join();
    for (const Bytes& bytes : drawn) EXPECT_EQ(bytes, drawn[0]);
    EXPECT_NE(drawn[0], Bytes(drawn[0].size()));
}

TEST(Text, TakesTheNearestFontThereIs) {
    Bitmap bitmap(1, 1, CIFormat::RGBA8);
    const auto width = [&](const char* text, const char* font) {
        return bitmap.context->textWidth(text, font, 30);
    };
    for (const char* font : {"Menlo", "Monaco", "Menlo-Regular", "Menlo-BoldItalic"})
        EXPECT_EQ(width("iiii", font), width("MMMM", font)) << font;
    for (const char* font : {"No Such Font", "", "Sans", "\xFF\xFE"})
        EXPECT_LT(width("iiii", font), width("MMMM", font)) << font;
    EXPECT_GT(width("nnnn", "Sans-Bold"), width("nnnn", "Sans"));
    EXPECT_EQ(width("nnnn", "Sans-Regular"), width("nnnn", "Sans"));
    EXPECT_FALSE(systemFontName().empty());
}

TEST(Text, WithoutAnyFontIsToldOfOnceAndTriedAgain) {
    const TemporaryFolder folder;
    const std::string none = folder.write(
        "none.conf", "<?xml version=\"1.0\"?><!DOCTYPE fontconfig SYSTEM \"fonts.dtd\">"
                     "<fontconfig><dir>/nonexistent</dir></fontconfig>");
    EXPECT_EQ(
        BundleCopy::probeOriginal(
            {"fonts:" + none, "text:A", "text:A", "fonts:/etc/fonts/fonts.conf", "text:A"}),
        (Lines{"ERROR: there are no fonts: no text is drawn", "no width", "no width", "a width"}));
}

TEST(Text, GrowsWithItsSizeAndTakesAnyBytes) {
    Bitmap bitmap(1, 1, CIFormat::RGBA8);
    const auto width = [&](std::string_view text, double size) {
        return bitmap.context->textWidth(text, "Sans", size);
    };
    // Widths are kept in 1024ths of a pixel, one rounding a letter.
    EXPECT_NEAR(width("Widths", 70), 10 * width("Widths", 7), 6 * 10 / 1024.0);
    EXPECT_EQ(width("", 20), 0);
    EXPECT_EQ(width("a\nb\tc", 20), width("a b c", 20)) << "one line";
    EXPECT_EQ(width("a\xFFz", 20), width("a\uFFFDz", 20));
}

} // namespace
