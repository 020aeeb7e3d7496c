// Plans of graphs and their pictures: what is shared, computed once or computed beforehand.
#include "bundle_copy.h"
#include "graph_support.h"

#include "imaging/cpu/Plan.h"
#include "vorneffects/ImageDescription.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace graph_test;

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

} // namespace
