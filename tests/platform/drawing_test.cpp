// PNG, and drawing into bitmaps.
#include "drawn_bitmap.h"

#include <limits>

namespace {

using namespace vorn;
using namespace platform_test;

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

} // namespace
