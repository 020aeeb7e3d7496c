// Property lists of both forms, and those that would do harm.
#include "platform_support.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vorn;
using namespace platform_test;

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

} // namespace
