// Decay: video feedback. The last result, fainter, moved and scaled, is blended with the frame; the
// blend is the result and, every so many frames, what the next trail is made of.
#include "filters/temporal/FrameCapture.h"

class VEDecay : public CIFilter {
public:
    VEDecay() {
        loadKernel<VEDecay>(multiplyKernel, "VE_DecayFilterKernel", "VE_Decay_multiply");
        loadKernel<VEDecay>(offsetKernel, "VE_DecayFilterKernel", "VE_Decay_offset");
    }

    static Attributes customAttributes() {
        // Scale and position are advertised on 0 to 255 and read as they are, with rest at 127/255.
        constexpr ScalarRange range{.sliderMax = 255, .standard = 80};
        return {scalar("inputAmount", "Amount",
                       {.min = 0.001, .sliderMin = 0.001, .sliderMax = 0.99, .standard = 0.001}),
                scalar("inputSkip", "Skip Frame", {.sliderMax = 255, .standard = 1}),
                scalar("inputScale", "Scale", range), scalar("inputXpos", "X Position", range),
                scalar("inputYpos", "Y Position", range)};
    }

    static FilterGuide guide() {
        return {
            .title = "Trails",
            .sentence = "Leaves trails behind what moves: earlier pictures fade, drift and grow "
                        "behind the frame.",
            .tags = {"feedback", "echo", "trail", "decay"},
            .inputs = {{.key = "inputAmount", .purpose = "how long a trail lasts"},
                       {.key = "inputSkip",
                        .purpose = "frames between two renewals of the trail, counted anew every "
                                   "60, and how trails are blended",
                        .from = 0,
                        .to = 255},
                       {.key = "inputScale",
                        .purpose = "growth of the trail from frame to frame, at rest at 0.498; it "
                                   "is read on 0 to 1",
                        .from = 0,
                        .to = 1,
                        .start = kRest},
                       {.key = "inputXpos",
                        .purpose =
                            "drift of the trail across, at rest at 0.498; it is read on 0 to 1",
                        .from = 0,
                        .to = 1,
                        .start = kRest},
                       {.key = "inputYpos",
                        .purpose =
                            "drift of the trail up or down, at rest at 0.498; it is read on 0 to 1",
                        .from = 0,
                        .to = 1,
                        .start = kRest}},
            .modeKey = "inputSkip",
            .modes = {{"lighter colours win", 1},
                      {"darker colours win", 61},
                      {"the frame divided by the trail", 121},
                      {"the trail as a hard light", 181},
                      {"the trail as a pin light", 241}},
            .keepsState = true,
            .framesRemembered = 1,
            .beginWith = {{"inputAmount", 0.6},
                          {"inputSkip", 0},
                          {"inputScale", 0.52},
                          {"inputXpos", kRest},
                          {"inputYpos", 0.54}}};
    }

    CIImage outputImage() override {
        ++counter;
        const CGRect extent = inputImage.extent();
        const float decay = std::pow(inputAmount.floatValue(), 0.1f);
        if (decay <= 0.01) {
            if (capture.hasSurface()) clear();
            return inputImage;
        }
        if (!inputImage) {
            clear();
            return {};
        }
        // The colour space is made before the size is compared, and a new size drops it again: the
        // first frame of a size is captured without one.
        colorSpace = CGColorSpace::SRGB;
        if (capture.takesNewSize(inputImage)) clear();
        const CIImage current = capture.capture(inputImage, colorSpace);
        if (!current) return inputImage;

        const int64_t skip = inputSkip.intValue();
        const CIImage previous = accumulator ? accumulator->image() : CIImage();
        const CIImage result =
            previous ? blended(previous, current, decay, skip, extent) : inputImage;
        if (!accumulator || accumulator->image().extent() != inputImage.extent())
            accumulator = CIImageAccumulator::imageAccumulatorWithExtent(extent, kCIFormatARGB8);
        if (!result) return inputImage;
        const auto period = static_cast<uint32_t>(skip == 0 ? 1 : skip % 60 == 0 ? 60 : skip % 60);
        if (accumulator && counter % period == 0) accumulator->setImage(result);
        return result;
    }

    void clear() override {
        capture.clear();
        colorSpace = CGColorSpace::None;
        accumulator.reset();
    }

    CIImage inputImage;
    Number inputAmount, inputXpos, inputYpos, inputScale, inputSkip;
    VORN_FILTER(VEDecay, inputImage, inputAmount, inputXpos, inputYpos, inputScale, inputSkip)

private:
    static constexpr double kRest = 0.4980392157;

    /// The trail behind the current frame. The number of skipped frames carries the blend as well:
    /// each band of 60 has its own, and the place in the band is the number of frames between two
    /// refreshes.
    CIImage blended(const CIImage& previous, const CIImage& current, float decay, int64_t skip,
                    CGRect extent) {
        const float x = drift(inputXpos, extent.width), y = drift(inputYpos, extent.height);
        const auto scale = static_cast<float>(inputScale.doubleValue() - kRest + 1.0);
        const CISampler trail(previous);
        const CIImage decayed =
            multiplyKernel
                .applyWithExtent(trail.extent(), RegionOfInterest::identity(), {trail, decay})
                .imageInBitsOfSources();
        CIImage moved = offsetKernel
                            .applyWithExtent(decayed.extent(), RegionOfInterest::identity(),
                                             {decayed, CIVector(x, y), scale})
                            .imageInBitsOfSources();
        // A picture of 8 bits shows nothing of a drift of less than a 1024th of a pixel.
        if (scale == 1 && std::hypot(x, y) < 1 / 1024.0f) moved = moved.imageKnownToEqual(decayed);

        const int64_t band = (skip - 1) / 60;
        const size_t index = band >= 1 && band <= 4 ? static_cast<size_t>(band) : 0;
        CIFilter& blend = chained(blends[index], kBlends[index]);
        blend.setValueForKey(current, "inputBackgroundImage");
        blend.setValueForKey(moved, "inputImage");
        return blend.outputImage();
    }
    /// Pixels a frame: the square of the distance from rest, in its direction, times the whole
    /// size.
    static float drift(const Number& control, double size) {
        const auto distance = static_cast<float>((control.doubleValue() - kRest) * 2.02);
        return distance * std::fabs(distance) * static_cast<float>(std::trunc(size));
    }

    static constexpr const char* kBlends[] = {"CIMaximumCompositing", "CIDarkenBlendMode",
                                              "CIDivideBlendMode", "CIHardLightBlendMode",
                                              "CIPinLightBlendMode"};
    inline static CIKernel multiplyKernel, offsetKernel;
    CIFilterRef blends[std::size(kBlends)];
    FrameCapture capture;
    CGColorSpace colorSpace = CGColorSpace::None;
    std::shared_ptr<CIImageAccumulator> accumulator;
    uint32_t counter = 0; ///< frames so far
};
VORN_REGISTER(VEDecay)
