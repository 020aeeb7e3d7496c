// Text as it is drawn and measured.
#include "drawn_bitmap.h"

#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace vorn;
using namespace platform_test;

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
