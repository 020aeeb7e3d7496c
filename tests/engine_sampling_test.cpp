// Where images are read and what is found there: bilinear and nearest reads against plain double
// precision, borders, crops, extents that are not whole numbers or have no end.
#include "support.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr Pixel kNothing{0, 0, 0, 0};

/// A bitmap at an origin, read at any whole coordinates: transparent outside.
Pixel pixelAt(const Bitmap& bitmap, CGPoint origin, double x, double y) {
    const double column = x - origin.x, row = y - origin.y;
    if (!(column >= 0 && row >= 0 && column < bitmap.width() && row < bitmap.height()))
        return kNothing;
    return bitmap.pixel(static_cast<int>(column), static_cast<int>(row));
}

Pixel linearAt(const Bitmap& bitmap, CGPoint origin, double x, double y) {
    const double x0 = std::floor(x - 0.5), y0 = std::floor(y - 0.5);
    const double fx = x - 0.5 - x0, fy = y - 0.5 - y0;
    Pixel result = kNothing;
    for (const int dy : {0, 1})
        for (const int dx : {0, 1}) {
            const Pixel p = pixelAt(bitmap, origin, x0 + dx, y0 + dy);
            const double weight = (dx ? fx : 1 - fx) * (dy ? fy : 1 - fy);
            for (size_t c = 0; c < 4; ++c) result[c] += weight * p[c];
        }
    return result;
}

CIImage readAt(const CISampler& sampler, CGRect extent, double x, double y) {
    return pictureKernel("readAt").applyWithExtent(extent, RegionOfInterest::whole(sampler),
                                                   {sampler, CIVector(x, y)});
}

TEST(Sampling, LinearReadsBlendFourPixelsAndTransparencyOutside) {
    for (uint32_t seed = 1; seed <= 10; ++seed) {
        Random random(seed);
        const CGPoint origin{double(random.whole(-20, 20)), double(random.whole(-20, 20))};
        const Bitmap source =
            randomBitmap(random, random.whole(1, 20), random.whole(1, 9), random.format());
        const CISampler sampler(source.image(origin));
        const CGRect bounds = sampler.extent().grownBy(3);
        // Offsets that single precision holds exactly.
        const double dx = random.whole(-12, 12) / 4.0, dy = random.whole(-12, 12) / 8.0;
        const CIImage image = readAt(sampler, bounds, dx, dy);
        const auto expected = [&](int x, int y) {
            return linearAt(source, origin, bounds.x + x + 0.5 + dx, bounds.y + y + 0.5 + dy);
        };
        for (CIContext* context : everyContext()) {
            SCOPED_TRACE(nameOf(*context) + ", seed " + std::to_string(seed));
            EXPECT_TRUE(
                isClose(render(*context, image, bounds, CIFormat::RGBAf), expected, {1e-6}));
            EXPECT_TRUE(isClose(render(*context, image, bounds), expected, {1 / 255.0}));
        }
    }
}

TEST(Sampling, NearestReadsArePixelsAndTheEdgeBelongsToTheRightAndUpperOne) {
    Random random(3);
    const CGPoint origin{-7, 4};
    const Bitmap source = randomBitmap(random, 19, 6, CIFormat::RGBAf);
    const CISampler sampler(source.image(origin), {.filter = SamplerFilter::Nearest});
    const CGRect bounds = sampler.extent().grownBy(2);
    for (const double d : {0.0, 0.49, 0.5, 0.51, -0.5, -1.25, 100.0}) {
        const CIImage image = readAt(sampler, bounds, d, -d);
        const auto expected = [&](int x, int y) {
            return pixelAt(source, origin, std::floor(bounds.x + x + 0.5 + d),
                           std::floor(bounds.y + y + 0.5 - d));
        };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, bounds, CIFormat::RGBAf), expected, {}))
                << nameOf(*context) << " " << d;
    }
}

TEST(Sampling, CoordinatesThatAreNowhereReadTransparency) {
    Random random(4);
    const Bitmap source = randomBitmap(random, 20, 5, CIFormat::RGBA8);
    for (const SamplerFilter filter : {SamplerFilter::Linear, SamplerFilter::Nearest}) {
        const CISampler sampler(source.image(), {.filter = filter});
        const CIImage image =
            pictureKernel("readNowhere")
                .applyWithExtent(sampler.extent(), RegionOfInterest::whole(sampler), {sampler});
        const CIImage offsets[] = {image, readAt(sampler, sampler.extent(), std::nan(""), 0),
                                   readAt(sampler, sampler.extent(), 0, kInfinity),
                                   readAt(sampler, sampler.extent(), -kInfinity, 1e38)};
        for (CIContext* context : everyContext())
            for (const CIImage& nowhere : offsets)
                EXPECT_TRUE(isClose(render(*context, nowhere, sampler.extent(), CIFormat::RGBAf),
                                    [](int, int) { return kNothing; }, {}))
                    << nameOf(*context);
    }
}

TEST(Sampling, ATransformReadsThroughItsInverse) {
    Random random(8);
    const Bitmap source = randomBitmap(random, 17, 11, CIFormat::RGBAf);
    const CGPoint origin{3, -2};
    const CGAffineTransform transforms[] = {{1, 0, 0, 1, 2.5, -1.25},
                                            {2, 0, 0, 0.5, 0, 0},
                                            {0, 1, -1, 0, 4, 4},
                                            {-1, 0, 0, 1, 20, 0},
                                            {1, 0.5, -0.25, 1, 0, 0}};
    for (const CGAffineTransform& transform : transforms) {
        const CIImage image = source.image(origin).imageByApplyingTransform(transform);
        const CGRect bounds = image.extent().integral().grownBy(2);
        const CGAffineTransform inverse = transform.inverted();
        const CGRect extent = image.extent().integral();
        const auto expected = [&](int x, int y) {
            const CGPoint at{bounds.x + x + 0.5, bounds.y + y + 0.5};
            if (at.x < extent.x || at.y < extent.y || at.x > extent.maxX() || at.y > extent.maxY())
                return kNothing;
            const CGPoint from = inverse.apply(at);
            return linearAt(source, origin, from.x, from.y);
        };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, bounds, CIFormat::RGBAf), expected, {2e-5}))
                << nameOf(*context) << " " << transform.a << " " << transform.b;
    }
}

TEST(Transforms, ThatDoNothingOrHaveNoInverse) {
    const CIImage image =
        CIImage::imageWithColor(CIColor(1, 0, 0)).imageByCroppingToRect({0, 0, 4, 4});
    EXPECT_TRUE(image.imageByApplyingTransform({}) == image);
    EXPECT_FALSE(CIImage().imageByApplyingTransform({}));
    for (const CGAffineTransform& transform : {CGAffineTransform{0, 0, 0, 0, 0, 0},
                                               {1, 2, 2, 4, 0, 0},
                                               {1, 0, 0, 1, kInfinity, 0},
                                               {std::nan(""), 0, 0, 1, 0, 0},
                                               {1e-200, 0, 0, 1e-200, 0, 0}})
        EXPECT_FALSE(image.imageByApplyingTransform(transform));
    // Two transforms that undo each other are one that does nothing.
    const CIImage back = image.imageByApplyingTransform({2, 0, 0, 2, 3, 0})
                             .imageByApplyingTransform({0.5, 0, 0, 0.5, -1.5, 0});
    EXPECT_TRUE(back == image);
}

// ---- Extents and crops --------------------------------------------------------------------------

/// What is expected to be seen of a one-coloured picture, in whole pixels.
struct ExtentCase {
    const char* name;
    CIImage (*make)(const CIImage& image);
    CGRect visible;
};

CIImage red() {
    return CIImage::imageWithColor(CIColor(1, 0, 0));
}

const ExtentCase kExtentCases[] = {
    {"Endless", [](const CIImage& i) { return i; }, {-50, -50, 100, 100}},
    {"Cropped",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({-3, 2, 5, 4});
     },
     {-3, 2, 5, 4}},
    {"RoundedOutward",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({-2.5, 1.25, 3.25, 0.5});
     },
     {-3, 1, 4, 1}},
    {"CropOfACrop",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({0, 0, 10, 10}).imageByCroppingToRect({5, -5, 10, 10});
     },
     {5, 0, 5, 5}},
    {"CropsThatDoNotMeet",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({0, 0, 5, 5}).imageByCroppingToRect({5, 5, 5, 5});
     },
     {}},
    {"CropToNothing",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({3, 3, 0, 5});
     },
     {}},
    {"CropToANegativeSize",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({3, 3, -2, 5});
     },
     {}},
    {"CropToNoNumber",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({std::nan(""), 0, 5, 5});
     },
     {}},
    {"CropToASizeThatIsNoNumber",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({0, 0, std::nan(""), 5});
     },
     {}},
    {"HalfAPlane",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({10, -kInfinity, kInfinity, kInfinity});
     },
     {10, -50, 40, 100}},
    {"TransformedWithoutEnd",
     [](const CIImage& i) {
         return i.imageByApplyingTransform({0.5, 0.5, -0.5, 0.5, 3, 3});
     },
     {-50, -50, 100, 100}},
    {"KernelCropped",
     [](const CIImage& i) {
         return pictureKernel("blend")
             .applyWithExtent({0, 0, 20, 20}, {i, i, 0.5})
             .imageByCroppingToRect({-5, 5, 10, 5});
     },
     {0, 5, 5, 5}},
    {"KernelWithoutExtent",
     [](const CIImage& i) {
         return pictureKernel("blend").applyWithExtent({}, {i, i, 0.5});
     },
     {}},
    {"KernelWithAnExtentThatIsNoNumber",
     [](const CIImage& i) {
         return pictureKernel("blend").applyWithExtent({0, std::nan(""), 20, 20}, {i, i, 0.5});
     },
     {}},
    {"CompositeOfTwoPlaces",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({0, 0, 2, 9})
             .imageByCompositingOverImage(i.imageByCroppingToRect({2, 0, 3, 9}));
     },
     {0, 0, 5, 9}},
    {"CompositeWithNothing",
     [](const CIImage& i) {
         return i.imageByCroppingToRect({0, 0, 2, 9}).imageByCompositingOverImage(CIImage());
     },
     {0, 0, 2, 9}},
};

TEST(Extents, ShowWhatLiesInsideAndTransparencyAround) {
    const CGRect bounds{-50, -50, 100, 100};
    for (const ExtentCase& test : kExtentCases) {
        const CIImage image = test.make(red());
        ASSERT_TRUE(image) << test.name;
        const CGRect v = test.visible;
        const auto expected = [&](int x, int y) {
            const double px = bounds.x + x + 0.5, py = bounds.y + y + 0.5;
            return px > v.x && py > v.y && px < v.maxX() && py < v.maxY() ? Pixel{1, 0, 0, 1}
                                                                          : kNothing;
        };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, bounds), expected, {}))
                << test.name << ", " << nameOf(*context);
    }
}

TEST(Extents, OfCropsAndCompositesFollowTheirImages) {
    const CIImage image = red().imageByCroppingToRect({1, 2, 3.5, 4});
    EXPECT_EQ(image.extent(), (CGRect{1, 2, 3.5, 4}));
    EXPECT_EQ(image.imageByCroppingToRect(CGRect::infinite()).extent(), image.extent());
    EXPECT_EQ(image.imageByInsertingIntermediate().extent(), image.extent());
    EXPECT_EQ(
        image.imageByCompositingOverImage(red().imageByCroppingToRect({10, 10, 1, 1})).extent(),
        (CGRect{1, 2, 10, 9}));
    EXPECT_TRUE(red().extent().isInfinite());
    EXPECT_EQ(image.imageByCroppingToRect({100, 0, 1, 1}).extent(), CGRect());
    EXPECT_EQ(CIImage().extent(), CGRect());
}

/// The kernels of the framework see the exact extent, the pixels are whole.
TEST(Extents, KernelsAreToldTheExactOne) {
    const CIImage image = red().imageByCroppingToRect({1.25, -2.5, 3.5, 4});
    const CIImage told = pictureKernel("extentTold")
                             .applyWithExtent({0, 0, 1, 1}, RegionOfInterest::identity(), {image});
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, told, {0, 0, 1, 1}, CIFormat::RGBAf),
                            [](int, int) {
                                return Pixel{1.25, -2.5, 3.5, 4};
                            },
                            {}))
            << nameOf(*context);
}

TEST(Borders, ALinearReadOfACropBlendsWithTransparencyNotWithWhatWasCropped) {
    Random random(12);
    const Bitmap source = randomBitmap(random, 12, 12, CIFormat::RGBA8);
    const CGRect crop{3, 2, 5, 6};
    Bitmap cropped(12, 12, CIFormat::RGBA8);
    cropped.forEach([&](int x, int y) {
        if (x >= 3 && y >= 2 && x < 8 && y < 8) cropped.set(x, y, source.pixel(x, y));
    });
    const CIImage plain = source.image().imageByCroppingToRect(crop);
    // The same through a kernel, whose result has to be computed before it can be read elsewhere.
    const CIImage lazy = filtered("VESolarize", source.image(), {}).imageByCroppingToRect(crop);
    const CGRect bounds{0, 0, 12, 12};
    const auto expected = [&](int x, int y) { return linearAt(cropped, {}, x + 1.0, y + 0.75); };
    for (CIContext* context : everyContext())
        for (const CIImage& image : {plain, lazy})
            EXPECT_TRUE(
                isClose(render(*context, readAt(CISampler(image), bounds, 0.5, 0.25), bounds),
                        expected, {1 / 255.0}))
                << nameOf(*context);
}

TEST(Bitmaps, ThatMakeNoSenseGiveNoImage) {
    const uint8_t bytes[64] = {};
    EXPECT_TRUE(CIImage::imageWithBitmap(bytes, 4, 4, 16, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(nullptr, 4, 4, 16, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 0, 4, 16, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 4, 0, 16, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 4, 4, 15, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 4, 4, 16, CIFormat::RGBAh));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 0xffffffff, 1, 16, CIFormat::RGBA8));
    EXPECT_FALSE(CIImage::imageWithBitmap(bytes, 4, 4, 16, CIFormat::RGBA8, CGColorSpace::SRGB,
                                          nullptr, {kInfinity, 0}));
    EXPECT_FALSE(CIImage::imageWithColor(CIColor()));
}

} // namespace
