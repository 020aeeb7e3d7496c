// A steady state takes no memory.
#include "allocation_count.h"
#include "graph_support.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace graph_test;

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
