// Rendering in place and to surfaces, and accumulators.
#include "bundle_copy.h"
#include "graph_support.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace graph_test;

TEST(Targets, MayBeTheMemoryThatTheImageReads) {
    const CIImage (*pictures[])(const CIImage&) = {
        [](const CIImage& i) -> const CIImage { return square(i); },
        [](const CIImage& i) -> const CIImage { return box(i, RegionOfInterest::grownBy(1)); },
        [](const CIImage& i) -> const CIImage {
            return warpKernel("shift").applyWithExtent(i.extent(), RegionOfInterest::whole(i), i,
                                                       {CIVector(-5, 3)});
        }};
    for (const auto& picture : pictures)
        for (const CGPoint offset : {CGPoint{0, 0}, {7, 3}})
            for (CIContext* context : everyContext()) {
                Bitmap bitmap = noise(7);
                const CGRect bounds{offset.x, offset.y, 70 - offset.x, 40 - offset.y};
                const CIImage image = picture(bitmap.image());
                const Bitmap expected = render(*context, image, bounds);
                // Into the same memory, with its lower left corner on that of the picture.
                uint8_t* top = bitmap.at(0, int(bounds.height) - 1);
                ASSERT_TRUE(context->render(image, top, bitmap.bytesPerRow(), bounds,
                                            CIFormat::RGBA8, CGColorSpace::None));
                EXPECT_TRUE(isClose(expected, [&](int x, int y) { return bitmap.pixel(x, y); }, {}))
                    << nameOf(*context);
                EXPECT_TRUE(bitmap.isGuardIntact());
            }
}

struct SurfaceCase {
    const char* name;
    uint32_t width, height;
    size_t bytesPerRow;
    CGRect bounds;
};

TEST(Targets, SurfacesAreFilledFromTheLowerLeftCorner) {
    const Bitmap bitmap = noise(8);
    const CIImage image = bitmap.image({kBounds.x, kBounds.y});
    for (const SurfaceCase& test : {SurfaceCase{"Fitting", 70, 40, 0, kBounds},
                                    {"Smaller", 20, 10, 0, kBounds},
                                    {"Larger", 90, 50, 0, kBounds},
                                    {"Padded", 70, 40, 500, kBounds},
                                    {"Part", 33, 9, 140, {0, 20, 10, 20}}})
        for (CIContext* context : everyContext()) {
            SCOPED_TRACE(std::string(test.name) + ", " + nameOf(*context));
            const IOSurfaceRef surface = Surface::create(
                {.width = test.width, .height = test.height, .bytesPerRow = test.bytesPerRow});
            ASSERT_NE(surface, nullptr);
            std::memset(surface->mutableBytes(), 0x5a, surface->bytesPerRow() * test.height);
            ASSERT_TRUE(
                context->renderToIOSurface(image, *surface, test.bounds, CGColorSpace::None));
            for (int y = 0; y < int(test.height); ++y)
                for (int x = 0; x < int(surface->bytesPerRow() / 4); ++x) {
                    const uint8_t* at = surface->bytes() +
                                        (test.height - 1 - uint32_t(y)) * surface->bytesPerRow() +
                                        uint32_t(x) * 4;
                    const bool inside =
                        x < test.bounds.width && y < test.bounds.height && x < int(test.width);
                    Pixel expected{0x5a / 255.0, 0x5a / 255.0, 0x5a / 255.0, 0x5a / 255.0};
                    if (inside)
                        expected = bitmap.pixel(x + int(test.bounds.x - kBounds.x),
                                                y + int(test.bounds.y - kBounds.y));
                    ASSERT_EQ((Pixel{at[2] / 255.0, at[1] / 255.0, at[0] / 255.0, at[3] / 255.0}),
                              expected)
                        << x << " " << y;
                }
            // And seen again as an image.
            const CGRect part{0, 0, std::min(test.bounds.width, double(test.width)),
                              std::min(test.bounds.height, double(test.height))};
            EXPECT_TRUE(isClose(render(*context, CIImage::imageWithIOSurface(surface), part),
                                [&](int x, int y) {
                                    return bitmap.pixel(x + int(test.bounds.x - kBounds.x),
                                                        y + int(test.bounds.y - kBounds.y));
                                },
                                {}));
        }
    CIContext& context = *cpuContexts()[0];
    const CVPixelBufferRef buffer = PixelBuffer::create(70, 40, CIFormat::RGBAh);
    ASSERT_TRUE(context.renderToCVPixelBuffer(image, *buffer, kBounds, CGColorSpace::None));
    EXPECT_TRUE(isClose(render(context, CIImage::imageWithCVPixelBuffer(buffer), {0, 0, 70, 40}),
                        bitmap, {}));
}

TEST(Accumulators, FeedbackIsThatOfAPlainLoop) {
    const Bitmap bitmap = noise(12, CIFormat::RGBAf);
    const CGRect extent{2, -4, 70, 40};
    const CIImage source = bitmap.image({extent.x, extent.y});
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBAf);
    ASSERT_NE(accumulator, nullptr);
    std::vector<Pixel> expected(70 * 40, Pixel{});
    for (int frame = 0; frame < 30; ++frame) {
        accumulator->setImage(
            pictureKernel("blend").applyWithExtent(extent, {source, accumulator->image(), 0.125}));
        bitmap.forEach([&](int x, int y) {
            Pixel& kept = expected[size_t(y) * 70 + size_t(x)];
            const Pixel p = bitmap.pixel(x, y);
            for (size_t c = 0; c < 4; ++c) kept[c] = kept[c] * 0.875 + p[c] * 0.125;
        });
    }
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, accumulator->image(), extent, CIFormat::RGBAf),
                            [&](int x, int y) { return expected[size_t(y) * 70 + size_t(x)]; },
                            {1e-6}))
            << nameOf(*context);
}

TEST(Accumulators, KeepWhatWasHandedOut) {
    const CGRect extent{0, 0, 9, 9};
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBA8);
    const auto shows = [&](const CIImage& image, const Pixel& color) {
        return isClose(render(*cpuContexts()[0], image, extent), [&](int, int) { return color; },
                       {});
    };
    const CIImage empty = accumulator->image();
    EXPECT_TRUE(empty == accumulator->image());
    EXPECT_TRUE(shows(empty, {}));
    accumulator->setImage(CIImage::imageWithColor(CIColor(1, 0, 0)));
    const CIImage red = accumulator->image();
    const CIImage lazy = square(red);
    EXPECT_FALSE(red == empty);
    accumulator->setImage(CIImage::imageWithColor(CIColor(0, 1, 0)));
    accumulator->setImage(CIImage::imageWithColor(CIColor(0, 0, 1)));
    EXPECT_TRUE(shows(accumulator->image(), {0, 0, 1, 1}));
    accumulator->clear();
    EXPECT_TRUE(shows(accumulator->image(), {}));
    EXPECT_TRUE(shows(red, {1, 0, 0, 1}));
    EXPECT_TRUE(shows(lazy, {1, 0, 0, 1}));
    EXPECT_TRUE(shows(empty, {}));
    // A frame that cannot be computed leaves what was there.
    accumulator->setImage(red);
    testing::internal::CaptureStdout();
    accumulator->setImage(CIImage());
    EXPECT_EQ(linesOf(testing::internal::GetCapturedStdout()).size(), 1u);
    EXPECT_TRUE(shows(accumulator->image(), {1, 0, 0, 1}));
}

TEST(Accumulators, AnImageThatIsStoredLooksAsItDidBefore) {
    const Bitmap bitmap = noise(14, CIFormat::RGBAh);
    const CGRect extent{2, -4, 70, 40}, wider{-3, -9, 80, 50}, part{10, 3, 21, 8};
    const CIImage source = bitmap.image({extent.x, extent.y});
    const auto picture = [&] {
        return pictureKernel("blend").applyWithExtent(
            wider, {source, CIImage::imageWithColor(CIColor(0.3, 0.9, 0.1)), 0.37});
    };
    const CIImage stored = picture(), other = picture();
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::ARGB8);
    CIContext linear({.device = DeviceKind::CPU, .workingSpace = CGColorSpace::LinearSRGB});
    CIContext plain({.device = DeviceKind::CPU});
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::RGBAh})
        for (const CGRect rect : {extent, part, wider})
            for (CIContext* context : {&plain, &linear}) {
                accumulator->setImage(stored);
                EXPECT_TRUE(isClose(render(*context, stored, rect, format),
                                    render(*context, other, rect, format), {}));
            }
}

TEST(Accumulators, AreRefusedWithoutAnEndOrASize) {
    for (const CGRect extent :
         {CGRect{}, CGRect::infinite(), CGRect{0, 0, -4, 4}, CGRect{0, 0, std::nan(""), 4},
          CGRect{std::nan(""), 0, 4, 4}, CGRect{0, 0, 1e9, 1e9}, CGRect{0, 0, 1e300, 1}})
        EXPECT_EQ(CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBA8), nullptr)
            << extent.width;
    const auto fractional =
        CIImageAccumulator::imageAccumulatorWithExtent({0.5, 0.5, 1, 1}, CIFormat::RGBAf);
    ASSERT_NE(fractional, nullptr);
    EXPECT_EQ(fractional->extent(), (CGRect{0.5, 0.5, 1, 1}));
    EXPECT_EQ(fractional->format(), CIFormat::RGBAf);
    fractional->setImage(CIImage::imageWithColor(CIColor(1, 1, 1)));
    EXPECT_TRUE(isClose(render(*cpuContexts()[0], fractional->image(), {0, 0, 2, 2}),
                        [](int, int) {
                            return Pixel{1, 1, 1, 1};
                        },
                        {}));
}

} // namespace
