// The graph and its planning: what is shared, computed once or computed beforehand, regions of
// interest, rendering in place and to surfaces, what is refused, and that a steady state takes no
// memory.
#include "allocation_count.h"
#include "bundle_copy.h"
#include "support.h"

#include "imaging/cpu/Plan.h"
#include "vorneffects/ImageDescription.h"

#include <thread>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr CGRect kBounds{-3, 5, 70, 40};

Bitmap noise(uint32_t seed = 1, CIFormat format = CIFormat::RGBA8) {
    Random random(seed);
    return randomBitmap(random, 70, 40, format);
}

CIImage square(const CIImage& image) {
    return pictureKernel("square").applyWithExtent(image.extent(), {image});
}

CIImage box(const CIImage& image, RegionOfInterest rule) {
    return pictureKernel("box").applyWithExtent(image.extent(), rule, {image, 1});
}

void expectLikeReference(const CIImage& image, Tolerance tolerance, CGRect bounds = kBounds) {
    const Bitmap expected = render(referenceContext(), image, bounds);
    for (const auto& context : cpuContexts())
        EXPECT_TRUE(isClose(render(*context, image, bounds), expected, tolerance))
            << nameOf(*context);
}

// ---- Planning -----------------------------------------------------------------------------------

/// The planned steps of an image, by kernel; '*' marks what is computed beforehand.
std::string stepsOf(const CIImage& image, CGRect rect = kBounds) {
    const std::vector<std::string> levels = supportedInstructionSets();
    vorn::imaging::cpu::Plan plan;
    EXPECT_TRUE(plan.build(image, vorn::imaging::cpu::IntRect::around(rect),
                           {&levels, CGColorSpace::None, CGColorSpace::None}));
    std::string text;
    for (const auto& step : plan.steps()) {
        if (!text.empty()) text += " ";
        text += step.isMemory ? "pixels" : step.node->function->declaration().name;
        if (step.materialised) text += "*";
    }
    return text;
}

TEST(Plans, ComputeBeforehandOnlyWhatIsReadElsewhere) {
    const Bitmap bitmap = noise();
    const CIImage source = bitmap.image({kBounds.x, kBounds.y});
    const CIImage lazy = square(source);
    EXPECT_EQ(stepsOf(source.imageByCroppingToRect({0, 0, 5, 5})), "pixels");
    EXPECT_EQ(stepsOf(square(square(lazy))), "pixels square square square");
    EXPECT_EQ(stepsOf(filtered("VEDummy", filtered("VEGobo", source, {}), {})),
              "pixels VE_Gobo_blackAndWhite VE_Dummy_dummy");
    EXPECT_EQ(stepsOf(box(source, RegionOfInterest::grownBy(1))), "pixels box");
    EXPECT_EQ(stepsOf(box(lazy, RegionOfInterest::grownBy(1))), "pixels square* box");
    EXPECT_EQ(stepsOf(square(lazy.imageByInsertingIntermediate())), "pixels square* square");
    EXPECT_EQ(stepsOf(source.imageByInsertingIntermediate()), "pixels");
    // One image that is read in two places is one step.
    EXPECT_EQ(stepsOf(pictureKernel("blend").applyWithExtent(kBounds, {lazy, lazy, 0.5})),
              "pixels square blend");
    EXPECT_EQ(stepsOf(lazy.imageByApplyingTransform({2, 0, 0, 2, 0, 0})
                          .imageByApplyingTransform({1, 0, 0, 1, 5, 0})),
              "pixels square* CI_affine");
}

TEST(Plans, TakeTheImageThatAnotherIsKnownToEqual) {
    const Bitmap bitmap = noise(), other = noise(2);
    const CIImage source = bitmap.image({kBounds.x, kBounds.y});
    const CIImage squared = square(source);
    const CIImage mixed = pictureKernel("blend").applyWithExtent(
        {0, 10, 30, 20}, {CISampler(squared), CISampler(other.image()), 0});
    const CIImage known = mixed.imageKnownToEqual(squared);
    EXPECT_EQ(stepsOf(mixed), "pixels square pixels blend");
    EXPECT_EQ(stepsOf(known), "pixels square");
    EXPECT_EQ(stepsOf(square(known.imageKnownToEqual(source))), "pixels square");
    EXPECT_EQ(stepsOf(source.imageKnownToEqual(squared)), "pixels");
    EXPECT_EQ(known.imageKnownToEqual({}), known);
    EXPECT_EQ(describeImage(known, kBounds)->function, "blend");
}

TEST(Plans, NeedOnlyTheRegionThatIsAskedFor) {
    const Bitmap bitmap = noise();
    const CIImage source = bitmap.image({kBounds.x, kBounds.y});
    struct Case {
        RegionOfInterest rule;
        CGRect needed; // of the lazy source; an exact rule is grown by a pixel for linear reads
        bool isEndless = false;
    };
    const CGRect asked{10, 10, 8, 4};
    const auto sparse = RegionOfInterest::computed([](int, CGRect d) {
        return CGRect{d.x - 0.5, d.y, d.width, 1};
    });
    const Case cases[] = {
        {RegionOfInterest::grownBy(2).exact(), {7, 7, 14, 10}},
        {RegionOfInterest::whole(CGRect{0, 12, 3, 3}).exact(), {-1, 11, 5, 5}},
        {sparse.exact(), {8, 9, 11, 3}},
        {RegionOfInterest::whole(CGRect::infinite()).exact(), kBounds},
        {RegionOfInterest::identity().exact(), {9, 9, 10, 6}},
        {RegionOfInterest::whole(CGRect{std::nan(""), 0, 3, std::nan("")}).exact(), {}},
        // What a filter only states is for descriptions.
        {RegionOfInterest::grownBy(2), kBounds},
        {RegionOfInterest::whole(CGRect{0, 12, 3, 3}), kBounds},
        {sparse, kBounds},
        {RegionOfInterest::identity(), kBounds},
        // Of a picture without end it is believed, if it can hold.
        {RegionOfInterest::grownBy(2), {7, 7, 14, 10}, true},
        {RegionOfInterest::grownBy(-2), CGRect::infinite(), true},
        {RegionOfInterest::identity(), CGRect::infinite(), true},
    };
    for (const Case& test : cases) {
        const CIImage color = CIImage::imageWithColor(CIColor(0.5, 0.5, 0.5));
        const CIImage image =
            test.isEndless
                ? pictureKernel("box").applyWithExtent(kBounds, test.rule, {square(color), 1})
                : box(square(source), test.rule);
        const std::vector<std::string> levels = supportedInstructionSets();
        vorn::imaging::cpu::Plan plan;
        ASSERT_TRUE(plan.build(image, vorn::imaging::cpu::IntRect::around(asked),
                               {&levels, CGColorSpace::None, CGColorSpace::None}));
        ASSERT_EQ(plan.steps().size(), 3u);
        const auto& needed = plan.steps()[1].needed;
        EXPECT_EQ(needed, vorn::imaging::cpu::IntRect::around(test.needed))
            << needed.x0 << " " << needed.y0 << " " << needed.x1 << " " << needed.y1;
    }
}

// ---- Pictures of graphs -------------------------------------------------------------------------

TEST(Graphs, AnIdentityRuleThatDoesNotHoldLeavesNoSeams) {
    const Bitmap bitmap = noise(2);
    const CIImage image =
        box(square(bitmap.image({kBounds.x, kBounds.y})), RegionOfInterest::identity());
    const CIImage sound =
        box(square(bitmap.image({kBounds.x, kBounds.y})), RegionOfInterest::grownBy(1).exact());
    for (CIContext* context : everyContext()) {
        const Bitmap whole = render(*context, sound, kBounds);
        EXPECT_TRUE(isClose(render(*context, image, kBounds), whole, {})) << nameOf(*context);
        // A part of it as well: its neighbours are computed although nobody asked for them.
        const CGRect part{20, 20, 9, 3};
        const Bitmap cut = render(*context, image, part);
        EXPECT_TRUE(isClose(cut,
                            [&](int x, int y) {
                                return whole.pixel(x + int(part.x - kBounds.x),
                                                   y + int(part.y - kBounds.y));
                            },
                            {}))
            << nameOf(*context);
    }
}

TEST(Graphs, LongChainsAreComputed) {
    const Bitmap bitmap = noise(3);
    CIImage image = bitmap.image({kBounds.x, kBounds.y});
    for (int i = 0; i < 510; ++i)
        image = pictureKernel("scaleAndShift")
                    .applyWithExtent(kBounds, {image, CIVector(1, 1, 1, 1),
                                               CIVector(i % 2 ? 0.125 : -0.125, 0, 0, 0)});
    expectLikeReference(image, {1 / 255.0});
}

TEST(Graphs, ThatAreTooDeepAreRefusedAtTheirTop) {
    const CIImage color = CIImage::imageWithColor(CIColor(1, 0, 0));
    const auto pile = [&](const std::function<CIImage(const CIImage&)>& next) {
        testing::internal::CaptureStdout();
        CIImage image = color, top;
        int count = 0;
        while (image && count < 100000) top = image, image = next(image), ++count;
        EXPECT_LT(count, 1000);
        EXPECT_EQ(linesOf(testing::internal::GetCapturedStdout()).size(), 1u);
        expectLikeReference(top, {}, {0, 0, 9, 9});
    };
    const CGRect rect{0, 0, 9, 9};
    pile([&](const CIImage& i) { return pictureKernel("square").applyWithExtent(rect, {i}); });
    pile([&](const CIImage& i) { return i.imageByCroppingToRect(rect); });
    pile([&](const CIImage& i) { return i.imageByInsertingIntermediate(); });
    pile([&](const CIImage& i) { return i.imageByCompositingOverImage(color); });
    pile([&](const CIImage& i) {
        return warpKernel("shift").applyWithExtent(rect, RegionOfInterest::grownBy(0), i,
                                                   {CIVector(0, 0)});
    });
}

TEST(Graphs, ADiamondIsNoExponentialWork) {
    const Bitmap bitmap = noise(4);
    CIImage image = bitmap.image({kBounds.x, kBounds.y});
    for (int i = 0; i < 60; ++i)
        image = pictureKernel("blend").applyWithExtent(
            kBounds, {image, image.imageByCroppingToRect(kBounds.grownBy(10)), 0.5});
    expectLikeReference(image, {1 / 255.0});
}

TEST(Graphs, OneKernelTakesAtMostSixteenImages) {
    const CIImage c = CIImage::imageWithColor(CIColor(0.01, 0, 0));
    const CIImage image =
        pictureKernel("seventeen")
            .applyWithExtent(kBounds, {c, c, c, c, c, c, c, c, c, c, c, c, c, c, c, c, c});
    ASSERT_TRUE(image);
    Bitmap target(4, 4);
    for (CIContext* context : everyContext()) {
        EXPECT_FALSE(context->render(image, target.bytes(), target.bytesPerRow(), {0, 0, 4, 4},
                                     CIFormat::RGBA8));
        EXPECT_NE(context->lastError().find("more than 16 images"), std::string::npos);
    }
}

TEST(Graphs, ImagesAreImmutable) {
    const Bitmap bitmap = noise(5);
    const CIImage source = bitmap.image();
    const CIImage named = source.imageBySettingProperties({{"name", std::string("a")}});
    EXPECT_FALSE(named == source);
    EXPECT_TRUE(source.properties().empty());
    EXPECT_EQ(named.properties().size(), 1u);
    EXPECT_EQ(named.extent(), source.extent());
    expectLikeReference(named, {}, {0, 0, 70, 40});
}

TEST(Graphs, ThreadsMayRenderWithContextsOfTheirOwn) {
    const Bitmap bitmap = noise(6);
    const CIImage image = box(square(bitmap.image()), RegionOfInterest::grownBy(1));
    const CGRect bounds{0, 0, 70, 40};
    const Bitmap expected = render(*cpuContexts()[0], image, bounds);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            CIContext context({.threads = 2});
            for (int frame = 0; frame < 20; ++frame) {
                const CIImage own = box(square(bitmap.image()), RegionOfInterest::grownBy(1));
                EXPECT_TRUE(render(context, own, bounds) == expected);
                EXPECT_TRUE(render(context, image, bounds) == expected);
            }
        });
    for (std::thread& thread : threads) thread.join();
}

// ---- Targets ------------------------------------------------------------------------------------

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

// ---- What is refused ----------------------------------------------------------------------------

TEST(Refusals, OfRendersHaveAReasonAndTouchNothing) {
    const Bitmap bitmap = noise(9);
    const CIImage image = bitmap.image();
    struct Case {
        const char* reason;
        CIImage image;
        bool hasMemory;
        size_t bytesPerRow;
        CGRect bounds;
        CIFormat format = CIFormat::RGBA8;
    };
    const Case cases[] = {
        {"no image", {}, true, 40, {0, 0, 10, 1}},
        {"no memory", image, false, 40, {0, 0, 10, 1}},
        {"empty", image, true, 40, {}},
        {"empty", image, true, 40, {0, 0, -10, 1}},
        {"empty", image, true, 40, {0, 0, std::nan(""), 1}},
        {"", image, true, 40, {std::nan(""), 0, 10, 1}},
        {"infinite", image, true, 40, CGRect::infinite()},
        {"infinite", image, true, 40, {0, 0, kInfinity, 1}},
        {"far", image, true, 40, {1e9, 0, 10, 1}},
        {"far", image, true, 40, {0, -1e300, 10, 1}},
        {"short", image, true, 39, {0, 0, 10, 1}},
        {"short", image, true, 40, {0, 0, 10, 1}, CIFormat::RGBAh},
        {"short", image, true, 40, {0.5, 0, 10, 1}}, // eleven pixels wide
        {"short", image, true, 40, {0, 0, 1e6, 1e6}},
    };
    Bitmap target(10, 1);
    const Bitmap before = target;
    for (CIContext* context : everyContext()) {
        for (const Case& test : cases) {
            EXPECT_FALSE(context->render(test.image, test.hasMemory ? target.bytes() : nullptr,
                                         test.bytesPerRow, test.bounds, test.format))
                << test.reason;
            EXPECT_NE(context->lastError().find(test.reason), std::string::npos)
                << context->lastError();
            EXPECT_FALSE(context->lastError().empty());
        }
        EXPECT_TRUE(target == before);
        EXPECT_TRUE(context->render(image, target.bytes(), 40, {0, 0, 10, 1}, CIFormat::RGBA8));
        EXPECT_EQ(context->lastError(), "");
        target = before;
        const IOSurfaceRef surface = Surface::create({.width = 10, .height = 10});
        EXPECT_FALSE(context->renderToIOSurface(image, *surface, CGRect::infinite()));
        EXPECT_FALSE(context->renderToIOSurface(image, *surface, {}));
        EXPECT_FALSE(context->renderToIOSurface({}, *surface, {0, 0, 5, 5}));
    }
}

TEST(Refusals, MemoryThatRunsOutIsReportedAndTheNextFrameTriesAgain) {
    // A kernel that reads an endless lazy image anywhere needs more memory than there is.
    const CIImage color = CIImage::imageWithColor(CIColor(1, 1, 1));
    const CIImage endless = pictureKernel("readAt").applyWithExtent(
        kBounds, RegionOfInterest::whole(CGRect::infinite()), {square(color), CIVector(0, 0)});
    Bitmap target(70, 40);
    for (CIContext* context : everyContext()) {
        EXPECT_FALSE(context->render(endless, target.bytes(), target.bytesPerRow(), kBounds,
                                     CIFormat::RGBA8));
        EXPECT_NE(context->lastError().find("memory"), std::string::npos) << context->lastError();
        EXPECT_TRUE(
            context->render(color, target.bytes(), target.bytesPerRow(), kBounds, CIFormat::RGBA8));
    }
}

TEST(Refusals, OfArgumentsAreOneLineThatNamesThem) {
    const Bitmap bitmap = noise(10);
    const CIImage i = bitmap.image();
    const CISampler s(i);
    const CIKernel blend = pictureKernel("blend"), at = pictureKernel("readAt"),
                   box = pictureKernel("box"), one = pictureKernel("oneColor");
    const auto rule = RegionOfInterest::identity();
    struct Case {
        std::function<CIImage()> apply;
        const char* line;
    };
    const Case cases[] = {
        {[&] {
             return blend.applyWithExtent(kBounds, {i, i});
         },
         "takes 3 arguments, not 2"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, i, 1.0, 1.0});
         },
         "takes 3 arguments, not 4"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, 1.0, 1.0});
         },
         "argument 2 (under) should be an image"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, i, i});
         },
         "argument 3 (amount) should be a number"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, i, CIVector(1, 2)});
         },
         "argument 3 (amount) should be a number"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, CIImage(), 1.0});
         },
         "argument 2 (under) is missing"},
        {[&] {
             return blend.applyWithExtent(kBounds, {i, i, Number()});
         },
         "argument 3 (amount) is missing"},
        {[&] {
             return at.applyWithExtent(kBounds, rule, {s, CIVector(1, 2, 3)});
         },
         "argument 2 (offset) should be a vector of 2"},
        {[&] {
             return at.applyWithExtent(kBounds, rule, {s, 1.0});
         },
         "argument 2 (offset) should be a vector of 2"},
        {[&] {
             return at.applyWithExtent(kBounds, rule, {s, CIColor(1, 1, 1)});
         },
         "argument 2 (offset) should be a vector of 2"},
        {[&] {
             return at.applyWithExtent(kBounds, rule, {CISampler(), CIVector(1, 2)});
         },
         "argument 1 (source) is missing"},
        {[&] {
             return at.applyWithExtent(kBounds, {s, CIVector(1, 2)});
         },
         "needs a region of interest"},
        {[&] {
             return box.applyWithExtent(kBounds, rule, {s, CIVector(1, 2)});
         },
         "argument 2 (radius) should be a number"},
        {[&] { return one.applyWithExtent(kBounds, {CIVector()}); },
         "argument 1 (color) is missing"},
        {[&] { return one.applyWithExtent(kBounds, {CIColor()}); },
         "argument 1 (color) is missing"},
        {[&] { return pictureKernel("shift").applyWithExtent(kBounds, rule, {CIVector(1, 2)}); },
         "needs an image to warp"},
        {[&] { return warpKernel("shift").applyWithExtent(kBounds, rule, {}, {CIVector(1, 2)}); },
         "image to warp is missing"},
    };
    for (const Case& test : cases) {
        testing::internal::CaptureStdout();
        const CIImage image = test.apply();
        const Lines lines = linesOf(testing::internal::GetCapturedStdout());
        EXPECT_FALSE(image) << test.line;
        ASSERT_EQ(lines.size(), 1u) << test.line;
        EXPECT_NE(lines[0].find(test.line), std::string::npos) << lines[0];
    }
    // No kernel is no image, silently.
    testing::internal::CaptureStdout();
    EXPECT_FALSE(CIKernel().applyWithExtent(kBounds, rule, {s}));
    EXPECT_FALSE(CIKernel().applyWithExtent(kBounds, {i}));
    EXPECT_FALSE(CIColorKernel().applyWithExtent(kBounds, {i}));
    EXPECT_FALSE(CIWarpKernel().applyWithExtent(kBounds, rule, i, {}));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Arguments, ReachTheKernelAsTheyAre) {
    const auto shown = [](const CIImage& image) {
        return render(*cpuContexts()[0], image, {0, 0, 1, 1}, CIFormat::RGBAf).pixel(0, 0);
    };
    const CIKernel one = pictureKernel("oneColor");
    EXPECT_EQ(shown(one.applyWithExtent({0, 0, 1, 1}, {CIVector(-1, 2, 0.25, 1e10)})),
              (Pixel{-1, 2, 0.25, 1e10f}));
    EXPECT_EQ(shown(one.applyWithExtent({0, 0, 1, 1}, {CIColor(1, 0.5, 0, 0.5)})),
              (Pixel{0.5, 0.25, 0, 0.5}))
        << "kernels get colours premultiplied";
    // 1e300 and numbers that are none do no harm.
    EXPECT_EQ(shown(one.applyWithExtent({0, 0, 1, 1}, {CIVector(1e300, -kInfinity, 0, 0)})),
              (Pixel{kInfinity, -kInfinity, 0, 0}));
    const Bitmap bitmap = noise(11);
    const CIImage i = bitmap.image();
    for (const Number& radius : {Number(-5), Number(0.9), Number(std::nan(""))})
        expectLikeReference(pictureKernel("box").applyWithExtent(
                                kBounds, RegionOfInterest::grownBy(1), {i, radius}),
                            {1 / 255.0});
}

TEST(Contexts, ChooseTheLevelThatIsAskedFor) {
    const std::vector<std::string> levels = supportedInstructionSets();
    ASSERT_FALSE(levels.empty());
    EXPECT_EQ(CIContext().instructionSet(), levels.front());
    EXPECT_GE(CIContext().threads(), 1);
    for (const std::string& level : levels)
        EXPECT_EQ(CIContext({.instructionSet = level}).instructionSet(), level);
    EXPECT_EQ(CIContext({.instructionSet = "abacus"}).instructionSet(), levels.front());
    EXPECT_STREQ(CIContext({.device = DeviceKind::Reference, .threads = 8}).instructionSet(),
                 "reference");
    EXPECT_EQ(CIContext({.threads = 1}).threads(), 1);
    EXPECT_GE(CIContext({.threads = -5}).threads(), 1);
}

// ---- Accumulators -------------------------------------------------------------------------------

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

// ---- The steady state ---------------------------------------------------------------------------

/// Renders frames of a picture that is built anew each time, until ten in a row took no memory on
/// any thread; gives the number of frames before those, or -1 when it never came to that.
int framesBeforeTheSteadyState(CIContext& context, const std::function<CIImage()>& picture) {
    Bitmap target(256, 128);
    const auto taken = [&] { return heapAllocationsOfAllThreads() + context.pixelAllocations(); };
    int last = 0;
    for (int frame = 1; frame <= last + 10; ++frame) {
        const uint64_t before = taken();
        const CIImage image = picture();
        EXPECT_TRUE(context.render(image, target.bytes(), target.bytesPerRow(), {0, 0, 256, 128},
                                   CIFormat::RGBA8));
        if (taken() != before) last = frame;
        if (frame == 1000) return -1;
    }
    return last;
}

TEST(SteadyState, TakesNoMemory) {
    if (!countsAllocations()) GTEST_SKIP() << "allocations are not counted under a sanitizer";
    const vorn::Session::Scope scope(cpuSession());
    Random random(1);
    const Bitmap bitmap = randomBitmap(random, 256, 128, CIFormat::RGBA8);
    const CIImage source = bitmap.image();
    filtered("VEDummy", source, {}); // registers
    const CIFilterRef solarize = CIFilter::filterWithName("VESolarize");
    const CIFilterRef gamma = CIFilter::filterWithName("VE_RGB_Gamma");
    const CIFilterRef gobo = CIFilter::filterWithName("VEGobo");
    const CIFilterRef blur = CIFilter::filterWithName("CIGaussianBlur");
    const CIFilterRef hue = CIFilter::filterWithName("CIHueAdjust");
    const CIFilterRef overlay = CIFilter::filterWithName("CISourceOverCompositing");
    for (const CIFilterRef& filter : {solarize, gamma, gobo, blur, hue}) filter->setDefaults();
    const auto of = [](const CIFilterRef& filter, const CIImage& image) {
        filter->setValueForKey(image, "inputImage");
        return filter->outputImage();
    };
    const CIKernel boxKernel = pictureKernel("box"), squareKernel = pictureKernel("square");
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(source.extent(), CIFormat::RGBA8);
    const std::pair<const char*, std::function<CIImage()>> pictures[] = {
        {"one filter",
         [&] {
             solarize->setValueForKey(0.5, "inputIntensity");
             return of(solarize, source);
         }},
        {"a chain of three", [&] { return of(gobo, of(gamma, of(solarize, source))); }},
        {"the framework's own filters",
         [&] {
             overlay->setValueForKey(of(hue, source), "inputBackgroundImage");
             return of(overlay, of(blur, source));
         }},
        {"a step computed beforehand",
         [&] {
             const CIImage lazy = squareKernel.applyWithExtent(source.extent(), {source});
             return boxKernel.applyWithExtent(source.extent(), RegionOfInterest::grownBy(1),
                                              {lazy, 1});
         }},
        {"a transform",
         [&] {
             return of(solarize, source).imageByApplyingTransform({0.5, 0, 0, 0.5, 3, 3});
         }},
        {"crops, a composite and an intermediate",
         [&] {
             return of(solarize, source)
                 .imageByCroppingToRect({10, 10, 99, 50})
                 .imageByInsertingIntermediate()
                 .imageByCompositingOverImage(source);
         }},
        {"an accumulator",
         [&] {
             accumulator->setImage(of(solarize, accumulator->image()));
             return accumulator->image();
         }},
    };
    for (const auto& [name, picture] : pictures)
        for (const auto& context : cpuContexts()) {
            SCOPED_TRACE(std::string(name) + ", " + nameOf(*context));
            const int frames = framesBeforeTheSteadyState(*context, picture);
            EXPECT_NE(frames, -1);
            // The first frames take memory: that of a context, twice that of an accumulator, the
            // graph of a frame while filters still hold on to the one before. A thread that joins
            // in later takes memory of its own then.
            if (context->threads() == 1 && std::string_view(name) != "an accumulator") {
                EXPECT_LE(frames, 2);
            }
        }
}

TEST(SteadyState, AnAccumulatorKeepsItsMemory) {
    if (!countsAllocations()) GTEST_SKIP() << "allocations are not counted under a sanitizer";
    const vorn::Session::Scope scope(cpuSession());
    const CGRect extent{0, 0, 64, 64};
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBAf);
    const CIKernel shiftKernel = pictureKernel("scaleAndShift");
    uint64_t before = 0;
    for (int frame = 0; frame < 1000; ++frame) {
        if (frame == 5) before = heapAllocationsOfAllThreads();
        accumulator->setImage(
            shiftKernel.applyWithExtent(extent, {accumulator->image(), CIVector(0.5, 0.5, 0.5, 0.5),
                                                 CIVector(0.5, 0, 0, 0.5)}));
    }
    EXPECT_EQ(heapAllocationsOfAllThreads(), before);
}

} // namespace
