// Numbers, the clock, classes, bundles, files, and Mac Roman.
#include "platform_support.h"

#include <dlfcn.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <string_view>

namespace {

using namespace vorn;
using namespace platform_test;

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

} // namespace
