// Rotations and pushes: the pictures turn as two sides of a box or of a card, or one pushes the
// other out.
#include "filters/shared/Transition.h"

class VEXFRotateLeft : public CIFilter {
public:
    VEXFRotateLeft() {
        loadKernels<VEXFRotateLeft>(kernels, "VEXFRotateLeftFilterKernel", kFunctions);
    }

    static Attributes customAttributes() {
        return {scalar("inputMode", "mode", {.sliderMax = 10}),
                scalar("inputFadeStatus", "Time", {})};
    }

    static FilterGuide guide() {
        return {.title = "Rotate or push",
                .sentence = "Turns from one picture to another like a box or a card, or pushes one "
                            "out with the other; the mode says where the outgoing picture goes.",
                .tags = {"rotate", "cube", "flip", "card", "push"},
                .inputs = transitionGuides(),
                .modes = {"box to the left", "box to the right", "box down", "box up",
                          "card about its vertical middle", "card about its horizontal middle",
                          "push to the right", "push to the left", "push down", "push up"},
                .beginWith = {{"inputFadeStatus", 0.4}}};
    }

    CIImage outputImage() override {
        return movedBetween(kernelForMode(kernels, inputMode), inputImage, inputTargetImage,
                            inputFadeStatus);
    }

    CIImage inputImage, inputTargetImage;
    Number inputMode, inputFadeStatus;
    VORN_FILTER(VEXFRotateLeft, inputImage, inputTargetImage, inputMode, inputFadeStatus)

private:
    static constexpr std::string_view kFunctions[] = {
        "VEXFRotateLeft_rotateLeft",     "VEXFRotateLeft_rotateRight",
        "VEXFRotateLeft_rotateDown",     "VEXFRotateLeft_rotateUp",
        "VEXFRotateLeft_centerVertical", "VEXFRotateLeft_centerHorizontal",
        "VEXFRotateLeft_pushRight",      "VEXFRotateLeft_pushLeft",
        "VEXFRotateLeft_pushDown",       "VEXFRotateLeft_pushUp"};
    inline static CIKernel kernels[std::size(kFunctions)];
};
VORN_REGISTER(VEXFRotateLeft)
