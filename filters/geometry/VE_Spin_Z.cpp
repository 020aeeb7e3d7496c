// Spin: turns the picture about its middle, at a speed that one control sets. Large frames are
// turned at 4095 pixels on the longer side and scaled up again.
#include "filters/shared/Motion.h"

class VE_Spin_Z : public CIFilter {
public:
    VE_Spin_Z() { loadKernel<VE_Spin_Z>(kernel, "VE_Spin_ZFilterKernel", "VE_Spin_Z_spinZ"); }

    static Attributes customAttributes() { return {constant("inputSpin", {.standard = 0.5})}; }

    static FilterGuide guide() {
        return {.title = "Spin",
                .sentence = "Turns the picture about its middle, counter-clockwise above the "
                            "middle of the control and clockwise below.",
                .tags = {"rotate", "turn", "motion"},
                .inputs = {{.key = "inputSpin",
                            .label = "spin",
                            .purpose = "how fast and which way it turns, at rest at 127/255; at 0 "
                                       "the picture stands upright"}},
                .movesByItself = true,
                .keepsState = true,
                .canFlash = true,
                .beginWith = {{"inputSpin", 0.52}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const double elapsed = clock.seconds(); // counts on through frames that are refused
        const double spin = inputSpin.floatValue();
        float angle = 0;
        if (spin > 0) {
            advance(degrees, elapsed * (spin - kRest) * 5000);
            angle = static_cast<float>(VornEffectsDeg2rad(std::fmod(degrees, 360)));
        }
        // A frame of exactly the limit is refused here.
        if (areaInSinglePrecision(inputImage) >= kArea7500x7500)
            return errorImage.imageFor("FX 200");

        const auto width = static_cast<float>(source.extent().width);
        const auto height = static_cast<float>(source.extent().height);
        if (width < 4096 && height < 4096) {
            const CIImage turned =
                kernel.applyWithExtent(inputImage.extent(), RegionOfInterest::grownBy(1),
                                       {KernelArgument::orNothing(source), angle});
            return angle == 0 ? turned.imageKnownToEqual(inputImage) : turned;
        }
        const float factor = std::max(width / 4095, height / 4095);
        const CIImage smaller = scaled(inputImage, 1 / factor);
        const CIImage turned = kernel.applyWithExtent(
            smaller.extent(), RegionOfInterest::whole(smaller), {CISampler(smaller), angle});
        return turned ? scaled(turned.imageByInsertingIntermediate(), factor) : turned;
    }

    CIImage inputImage;
    Number inputSpin;
    VORN_FILTER(VE_Spin_Z, inputImage, inputSpin)

private:
    static constexpr double kRest = 0.4980392157; ///< 127 of 255

    CIImage scaled(const CIImage& image, float factor) {
        CIFilter& filter = chained(scale, "CILanczosScaleTransform");
        filter.setValueForKey(Number(factor), "inputScale");
        filter.setValueForKey(image, "inputImage");
        return filter.outputImage();
    }

    inline static CIKernel kernel;
    CIFilterRef scale;
    FrameClock clock;
    double degrees = 0;
    ErrorImage errorImage;
};
VORN_REGISTER(VE_Spin_Z)
