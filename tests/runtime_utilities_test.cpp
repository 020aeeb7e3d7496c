#include "core/MachAbsoluteTime.h"
#include "imaging/Node.h"
#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <thread>

using namespace vorn;

namespace {

namespace fs = std::filesystem;

std::string printedBy(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

// ---- The error picture ------------------------------------------------------------------------

CIImage errorImage(std::string_view label, std::string_view message) {
    CIImage image;
    EXPECT_EQ(
        printedBy([&] { image = VornEffectsCreateErrorImage("FX_error_image", label, message); }),
        "");
    return image;
}

vorn::imaging::PixelSource pixelsOf(const CIImage& image) {
    vorn::imaging::PixelSource pixels = image.node()->pixels;
    if (pixels.device) pixels.bytes = pixels.device->hostBytes();
    return pixels;
}

/// The smallest box around the pixels that differ, y up from the bottom.
CGRect difference(const CIImage& one, const CIImage& other) {
    const auto a = pixelsOf(one), b = pixelsOf(other);
    CGRect box;
    for (uint32_t row = 0; row < a.height; ++row)
        for (uint32_t column = 0; column < a.width; ++column)
            if (std::memcmp(a.bytes + row * a.bytesPerRow + column * 4,
                            b.bytes + row * b.bytesPerRow + column * 4, 4) != 0)
                box = box.unionWith({double(column), double(a.height - 1 - row), 1, 1});
    return box;
}

TEST(ErrorImage, IsThePictureOfTheResource) {
    const CIImage image = errorImage("", {});
    ASSERT_TRUE(image);
    const auto path = Bundle::forClass(classFromString("VornEffectsCatalog"))
                          .pathForResource("FX_error_image", "png");
    ASSERT_TRUE(path);
    const auto picture = decodePNG(dataWithContentsOfFile(*path));
    ASSERT_TRUE(picture);
    const auto pixels = pixelsOf(image);
    ASSERT_EQ(pixels.format, CIFormat::ARGB8);
    ASSERT_EQ(image.extent(), (CGRect{0, 0, double(picture->width), double(picture->height)}));
    for (uint32_t row = 0; row < picture->height; ++row)
        for (uint32_t column = 0; column < picture->width; ++column) {
            const uint8_t* drawn = pixels.bytes + row * pixels.bytesPerRow + column * 4;
            const uint8_t* stored = &picture->pixels[(size_t{row} * picture->width + column) * 4];
            ASSERT_TRUE(drawn[0] == stored[3] && std::memcmp(drawn + 1, stored, 3) == 0)
                << column << ", " << row;
        }
}

TEST(ErrorImage, BearsTheLabelAndTheMessageAtTheirPlaces) {
    const CIImage bare = errorImage("", ""), labelled = errorImage("FX", ""),
                  withMessage = errorImage({}, "EH"), withBoth = errorImage("FX", "EH");
    ASSERT_TRUE(bare && labelled && withMessage && withBoth);
    // Capitals stand on the baseline and start within a tenth of an em of the place.
    const CGRect label = difference(bare, labelled), message = difference(bare, withMessage);
    EXPECT_EQ(label.y, 285);
    EXPECT_GE(label.x, 175);
    EXPECT_LE(label.x, 175 + 6.4);
    EXPECT_EQ(message.y, 17);
    EXPECT_GE(message.x, 96);
    EXPECT_LE(message.x, 96 + 5.6);
    // Their heights are as their sizes, 64 to 56.
    EXPECT_NEAR(label.height / message.height, 64.0 / 56.0, 0.05);
    EXPECT_EQ(difference(withMessage, withBoth), label);
    EXPECT_EQ(difference(labelled, withBoth), message);

    // The stem of the F is in the colour of the text.
    const auto pixels = pixelsOf(labelled);
    const auto row = static_cast<uint32_t>(pixels.height - 1 - 300);
    const auto column = static_cast<uint32_t>(label.x) + 3;
    const uint8_t* ink = pixels.bytes + row * pixels.bytesPerRow + column * 4;
    EXPECT_EQ((std::vector<uint8_t>(ink, ink + 4)), (std::vector<uint8_t>{255, 38, 38, 38}));
}

TEST(ErrorImage, ReadsTextAsMacRoman) {
    const CIImage drawn = errorImage("\xC3\xA9", ""), wide = errorImage("√©", "");
    ASSERT_TRUE(drawn && wide);
    EXPECT_EQ(drawn.node()->annotation->errorLabel, "√©");
    // An e with an accent is one letter; its two bytes are two.
    EXPECT_GT(difference(drawn, errorImage("", "")).width, 64);
}

TEST(ErrorImage, IsEmptyAndSaysSoWhenTheResourceIsMissing) {
    CIImage image;
    EXPECT_EQ(printedBy([&] { image = VornEffectsCreateErrorImage("No_such", "FX", "message"); }),
              "### FX: missing error image resource 'No_such'\n");
    EXPECT_FALSE(image);
    EXPECT_EQ(printedBy([&] { image = VornEffectsCreateErrorImage({}, {}, {}); }),
              "### FX: missing error image resource ''\n");
    EXPECT_FALSE(image);
}

TEST(ErrorImage, IsEmptyWithoutAWordWhenTheResourceIsNoPNG) {
    // Stands in for the catalogue, so that resources are looked for beside this program.
    static const ClassInfo besideThisProgram{"VornEffectsCatalog", &besideThisProgram};
    const Class catalog = classFromString("VornEffectsCatalog");
    const fs::path folder = Bundle::forClass(&besideThisProgram).folder();
    const bool madeFolder = fs::create_directory(folder);
    const fs::path file = folder / "runtime_utilities_test.png";
    std::ofstream(file) << "no picture";

    registerClass(&besideThisProgram);
    CIImage image;
    EXPECT_EQ(printedBy([&] {
                  image = VornEffectsCreateErrorImage("runtime_utilities_test", "FX", "message");
              }),
              "");
    EXPECT_FALSE(image);
    registerClass(catalog);
    fs::remove(file);
    if (madeFolder) fs::remove(folder);
}

// ---- Bitmap contexts --------------------------------------------------------------------------

TEST(CreateBitmapContext, DrawsOnALockedBuffer) {
    CVPixelBufferRef buffer;
    const CGContextRef context = VornEffectsCreateBitmapContext(5, 3, &buffer, nullptr);
    ASSERT_TRUE(context && buffer);
    EXPECT_EQ(context->width(), 5u);
    EXPECT_EQ(context->height(), 3u);
    EXPECT_EQ(buffer->format(), CIFormat::ARGB8);
    ASSERT_TRUE(buffer->isLocked());
    context->setFillColor(1, 0, 0, 1);
    context->fillRect({0, 0, 1, 1});
    context->flush();
    const auto* bottomLeft =
        static_cast<uint8_t*>(buffer->baseAddress()) + 2 * buffer->bytesPerRow();
    EXPECT_EQ((std::vector<uint8_t>(bottomLeft, bottomLeft + 4)),
              (std::vector<uint8_t>{255, 255, 0, 0}));
    EXPECT_EQ(buffer->unlock(), kStatusSuccess);
    EXPECT_FALSE(buffer->isLocked());
}

TEST(CreateBitmapContext, KeepsItsMemoryWhenNobodyElseDoes) {
    const CGContextRef context = VornEffectsCreateBitmapContext(64, 64, nullptr, "unowned");
    ASSERT_TRUE(context);
    context->fillRect({0, 0, 64, 64});
    context->flush();
}

TEST(CreateBitmapContext, LeavesTheOutPointerAloneWhenThereIsNoBuffer) {
    const CVPixelBufferRef before = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    const struct {
        uint32_t width, height;
        const char *label, *line;
    } cases[] = {
        {0, 7, "Titles", "### FX: create bitmap context 0 x 7 failed 'Titles' (ffffe5fb)\n"},
        {7, 0, nullptr, "### FX: create bitmap context 7 x 0 failed '' (ffffe5fb)\n"},
        {UINT32_MAX, 200000, "",
         "### FX: create bitmap context -1 x 200000 failed '' (ffffe5fb)\n"},
    };
    for (const auto& c : cases) {
        CVPixelBufferRef buffer = before;
        EXPECT_EQ(printedBy([&] {
                      EXPECT_FALSE(
                          VornEffectsCreateBitmapContext(c.width, c.height, &buffer, c.label));
                  }),
                  c.line);
        EXPECT_EQ(buffer, before);
    }
}

TEST(CreateBitmapContext, ClearsTheOutPointerWhenTheBufferCannotBeDrawnOn) {
    CVPixelBufferRef buffer = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    const std::string printed =
        printedBy([&] { EXPECT_FALSE(VornEffectsCreateBitmapContext(40000, 1, &buffer, "Wide")); });
    const std::string start =
        "### FX: create bitmap context 40000 x 1 failed 'Wide' (00000000) buf:0x";
    EXPECT_EQ(printed.substr(0, start.size()), start);
    EXPECT_EQ(printed.back(), '\n');
    EXPECT_EQ(buffer, nullptr);
}

// ---- Clock ------------------------------------------------------------------------------------

TEST(Uptime, IsThePlatformsClockInBothForms) {
    const uint64_t first = VornEffectsGetUptimeInNanoseconds(), second = MachAbsoluteTime(),
                   third = VornEffectsGetUptimeInNanoseconds();
    EXPECT_LE(first, second);
    EXPECT_LE(second, third);
    for (const uint64_t time : {uint64_t{0}, uint64_t{1'234'567'890'123}, UINT64_MAX}) {
        PlatformClock::drive(time);
        EXPECT_EQ(VornEffectsGetUptimeInNanoseconds(), time);
        EXPECT_EQ(MachAbsoluteTime(), time);
    }
    PlatformClock::release();
}

// ---- Angles -----------------------------------------------------------------------------------

TEST(Angles, DegreesToRadians) {
    EXPECT_EQ(VornEffectsDeg2rad(180), 3.141592653589793);
    EXPECT_EQ(VornEffectsDeg2rad(-90), -3.141592653589793 / 2);
    // Multiplied before divided: the other order differs in the last bit.
    EXPECT_EQ(VornEffectsDeg2rad(10), 31.41592653589793 / 180);
}

TEST(Angles, WholeTurnsGoTowardZero) {
    constexpr double twoPi = 6.283185307179586;
    const struct {
        double angle, remainder;
    } cases[] = {{0, 0},   {7, 7 - twoPi}, {-7, twoPi - 7}, {6, 6},
                 {-6, -6}, {twoPi, 0},     {-twoPi, 0},     {100, 100 - 15 * twoPi}};
    for (const auto& c : cases)
        EXPECT_NEAR(VornEffectsMod2pi(c.angle), c.remainder, 1e-12) << c.angle;
    EXPECT_NEAR(VornEffectsMod2pi(-7), -0.7168, 1e-4);
}

TEST(Angles, TurnsAreCountedIn32Bits) {
    constexpr double twoPi = 6.283185307179586, inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(VornEffectsMod2pi(1e12), 1e12 - twoPi * INT32_MAX);
    EXPECT_EQ(VornEffectsMod2pi(-1e12), -1e12 - twoPi * INT32_MIN);
    EXPECT_EQ(VornEffectsMod2pi(inf), inf);
    EXPECT_EQ(VornEffectsMod2pi(-inf), -inf);
    EXPECT_TRUE(std::isnan(VornEffectsMod2pi(std::nan(""))));
}

} // namespace
