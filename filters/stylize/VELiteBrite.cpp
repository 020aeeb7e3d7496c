// Lite brite: redraws the image as a wall of round lights.
#include "filters/stylize/Cells.h"

#include <atomic>
#include <memory>

class VELiteBrite : public CIFilter {
public:
    VELiteBrite() {
        loadKernel<VELiteBrite>(kernel, "VE_LiteBriteFilterKernel", "VE_LiteBrite_ledWall");
    }

    static Attributes customAttributes() {
        return {mixer(),
                scalar("inputDivisions", "divisions",
                       {.min = 1, .sliderMin = 1, .sliderMax = 100, .standard = 80}),
                scalar("inputSize", "size",
                       {.min = 20, .sliderMin = 20, .sliderMax = 100, .standard = 90})};
    }

    static FilterGuide guide() {
        return {.title = "Wall of lights",
                .sentence = "Redraws the picture as a wall of round, glowing lights.",
                .tags = {"led", "lights", "dots", "mosaic"},
                .inputs = {{.key = "inputDivisions", .purpose = "lights across"},
                           {.key = "inputSize",
                            .purpose = "how wide a light is; at 100 neighbours touch",
                            .unit = "percent"}},
                .beginWith = {{"inputDivisions", 40}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const CGRect extent = inputImage.extent();
        const auto aspect = static_cast<float>(extent.width / extent.height);
        const double width = aspect * extent.height;
        const float cellX = static_cast<float>(extent.width / inputDivisions.floatValue());
        const float cellY = static_cast<float>(width / inputDivisions.floatValue());
        const float lit = inputSize.floatValue() * (cellX * 0.5f) / 100;
        radius->store(lit, std::memory_order_relaxed);
        // Images keep to the newest radius of their filter, whose threads and lives are not theirs.
        const auto reads = RegionOfInterest::computed([newest = radius](int, CGRect rect) {
            return rect.grownBy(newest->load(std::memory_order_relaxed));
        });
        const CIImage lights =
            kernel
                .applyWithExtent(source.extent(), reads,
                                 {source, inputMixer, CIVector(cellX, cellY), lit})
                .imageWithReduction(reductionForCells(cellX), reductionForCells(cellY));
        return inputMixer.floatValue() == 0 ? lights.imageKnownToEqual(inputImage) : lights;
    }

    CIImage inputImage;
    Number inputMixer, inputDivisions, inputSize;
    VORN_FILTER(VELiteBrite, inputImage, inputMixer, inputDivisions, inputSize)

private:
    inline static CIKernel kernel;
    std::shared_ptr<std::atomic<float>> radius = std::make_shared<std::atomic<float>>(0.0f);
};
VORN_REGISTER(VELiteBrite)
