// Edge detect 2: draws lines where neighbouring colours differ, on a captured copy of the frame.
#include "filters/temporal/FrameCapture.h"

class VEEdgeDetect2 : public CIFilter {
public:
    VEEdgeDetect2() {
        loadKernel<VEEdgeDetect2>(kernel, "VE_EdgeDetect2FilterKernel",
                                  "VE_EdgeDetect2_edgeDetect");
    }

    static Attributes customAttributes() {
        return {mixer(), scalar("inputWidth", "LineWidth", {.standard = 1}),
                scalar("inputReduce", "Reduce", {.standard = 0.5}),
                scalar("inputReduceBrightness", "reduce bright", {.standard = 0.5})};
    }

    static FilterGuide guide() {
        return {.title = "Edges",
                .sentence =
                    "Draws the picture as light lines on black, wherever its colours change.",
                .tags = {"outline", "lines", "contour", "sketch"},
                .inputs = {
                    {.key = "inputWidth", .purpose = "how thick the lines are"},
                    {.key = "inputReduce", .purpose = "how many of the weaker lines are left out"},
                    {.key = "inputReduceBrightness",
                     .purpose = "from white lines to lines in the picture's colours"},
                    {.key = "inputSmoothing",
                     .purpose = "how gently weaker lines fade in",
                     .from = 0,
                     .to = 1,
                     .start = 0.0}}};
    }

    CIImage outputImage() override {
        if (!inputImage) {
            clear();
            return {};
        }
        if (capture.takesNewSize(inputImage)) clear();
        const CIImage current = capture.capture(inputImage, CGColorSpace::SRGB);
        if (!current) return {};
        const CISampler source(current);
        const auto width = static_cast<float>((1.0 - inputWidth.floatValue()) * 0.01);
        return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                      {source, source, inputMixer, width, inputReduce,
                                       inputReduceBrightness,
                                       inputSmoothing.isSet() ? inputSmoothing : Number(0.0)});
    }

    void clear() override { capture.clear(); }

    CIImage inputImage;
    Number inputMixer, inputWidth, inputReduce, inputReduceBrightness;
    Number inputSmoothing; ///< not advertised; 0 when it is unset
    VORN_FILTER(VEEdgeDetect2, inputImage, inputMixer, inputWidth, inputReduce,
                inputReduceBrightness, inputSmoothing)

private:
    inline static CIKernel kernel;
    FrameCapture capture;
};
VORN_REGISTER(VEEdgeDetect2)
