// What is refused, with a line that says why.
#include "bundle_copy.h"
#include "graph_support.h"

#include <functional>
#include <string>
#include <vector>

namespace {

using namespace graph_test;

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

} // namespace
