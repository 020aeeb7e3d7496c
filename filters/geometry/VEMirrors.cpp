// Mirrors: flips the image, or repeats one half or one quarter of it mirrored. Frames that are too
// large for a kernel to read anywhere are put together of crops and transforms.
#include "core/FilterSupport.h"

class VEMirrors : public CIFilter {
public:
    VEMirrors() { loadKernels<VEMirrors>(kernels, "VE_MirrorsFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 12}), mixer()};
    }

    static FilterGuide guide() {
        return {.title = "Mirrors",
                .sentence = "Flips the picture, or fills it with one half or quarter of it and its "
                            "mirror images.",
                .tags = {"flip", "symmetry", "kaleidoscope"},
                .modes = {"left and right swapped", "upside down", "turned by half",
                          "left half to the right", "right half to the left", "lower half upwards",
                          "upper half downwards", "lower left quarter", "lower right quarter",
                          "upper right quarter", "upper left quarter"},
                .beginWith = {{"inputMode", 3}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const int mode = clampedMode(inputMode, kLastMode);
        // A frame of exactly the limit is refused here.
        if (areaInSinglePrecision(inputImage) >= kArea12000x12000)
            return errorImage.imageFor("FX 155");
        if (mode < 0) return inputImage;

        const auto width = static_cast<float>(source.extent().width);
        const auto height = static_cast<float>(source.extent().height);
        const float longest = std::max(width, height);
        const bool isComposite = longest >= 8192 || (longest >= 4096 && mode <= kLastFlip);
        const CIImage mirrored =
            isComposite ? composite(kLayouts[mode], width, height)
                        : kernels[mode]
                              .applyWithExtent(source.extent(), regionOfInterest(mode, source),
                                               {KernelArgument::orNothing(source), inputMixer})
                              .imageInBitsOfSources(); // of pixels that are moved as they are
        if (!mirrored) return {};
        const CIImage mixed = kernels[kMixer].applyWithExtent(
            source.extent(), RegionOfInterest::grownBy(1),
            {KernelArgument::orNothing(source), CISampler(mirrored), inputMixer});
        if (inputMixer.floatValue() == 0) return mixed.imageKnownToEqual(inputImage);
        return inputMixer.floatValue() == 1 ? mixed.imageKnownToEqual(mirrored) : mixed;
    }

    CIImage inputImage;
    Number inputMode, inputMixer;
    VORN_FILTER(VEMirrors, inputImage, inputMode, inputMixer)

private:
    /// What of the image is kept, as shares of its width and height, and how it is flipped.
    struct Layout {
        CGRect part;
        bool flipsX, flipsY;
    };
    static constexpr Layout kLayouts[] = {
        {{0, 0, 1, 1}, true, false},      {{0, 0, 1, 1}, false, true},
        {{0, 0, 1, 1}, true, true},       {{0, 0, 0.5, 1}, true, false},
        {{0.5, 0, 0.5, 1}, true, false},  {{0, 0, 1, 0.5}, false, true},
        {{0, 0.5, 1, 0.5}, false, true},  {{0, 0, 0.5, 0.5}, true, true},
        {{0.5, 0, 0.5, 0.5}, true, true}, {{0.5, 0.5, 0.5, 0.5}, true, true},
        {{0, 0.5, 0.5, 0.5}, true, true},
    };
    static constexpr int kLastFlip = 2, kLastMode = 10, kMixer = 11;

    /// Flips read the whole image. The part of a half or quarter is measured from (0, 0), wherever
    /// the image lies.
    static RegionOfInterest regionOfInterest(int mode, const CISampler& source) {
        if (mode <= kLastFlip) return RegionOfInterest::whole(source);
        return RegionOfInterest::whole(partOf(kLayouts[mode],
                                              static_cast<float>(source.extent().width),
                                              static_cast<float>(source.extent().height)));
    }
    static CGRect partOf(const Layout& layout, double width, double height) {
        return {layout.part.x * width, layout.part.y * height, layout.part.width * width,
                layout.part.height * height};
    }

    /// Crops and flips as if the image began at (0, 0).
    CIImage composite(const Layout& layout, double width, double height) {
        const CGAffineTransform horizontal{-1, 0, 0, 1, width, 0}, vertical{1, 0, 0, -1, 0, height};
        const bool isWhole = layout.part.width == 1 && layout.part.height == 1;
        if (isWhole && layout.flipsX && layout.flipsY)
            return flipped(inputImage, {-1, 0, 0, -1, width, height});
        if (isWhole) return flipped(inputImage, layout.flipsX ? horizontal : vertical);

        const CGRect extent = inputImage.extent();
        CIImage image = cropped(partOf(layout, extent.width, extent.height));
        if (layout.flipsY) image = flipped(image, vertical).imageByCompositingOverImage(image);
        if (layout.flipsX) image = flipped(image, horizontal).imageByCompositingOverImage(image);
        return image;
    }
    CIImage cropped(CGRect rect) {
        CIFilter& filter = chained(crop, "CICrop");
        filter.setValueForKey(inputImage, "inputImage");
        filter.setValueForKey(CIVector(rect.x, rect.y, rect.width, rect.height), "inputRectangle");
        return filter.outputImage();
    }
    CIImage flipped(const CIImage& image, CGAffineTransform flip) {
        CIFilter& filter = chained(transform, "CIAffineTransform");
        filter.setValueForKey(image, "inputImage");
        filter.setValueForKey(flip, "inputTransform");
        return filter.outputImage();
    }

    static constexpr std::string_view kFunctions[] = {"VE_Mirrors_backwards",
                                                      "VE_Mirrors_upsideDown",
                                                      "VE_Mirrors_backwardsUpsideDown",
                                                      "VE_Mirrors_mirrorLeftToRight",
                                                      "VE_Mirrors_mirrorRightToLeft",
                                                      "VE_Mirrors_mirrorDownToUp",
                                                      "VE_Mirrors_mirrorUpToDown",
                                                      "VE_Mirrors_bottomLeftQuadMirror",
                                                      "VE_Mirrors_bottomRightQuadMirror",
                                                      "VE_Mirrors_topRightQuadMirror",
                                                      "VE_Mirrors_topLeftQuadMirror",
                                                      "VE_Mirrors_mixer"};
    inline static CIKernel kernels[std::size(kFunctions)];
    CIFilterRef crop, transform;
    ErrorImage errorImage;
};
VORN_REGISTER(VEMirrors)
