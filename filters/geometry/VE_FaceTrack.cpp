// Face tracking: the part of the picture that a tracker outside of this library points at,
// enlarged. It is a zoom like any other: it looks at no clock and keeps nothing.
#include "core/FilterSupport.h"

class VE_FaceTrack : public CIFilter {
public:
    VE_FaceTrack() {
        loadKernel<VE_FaceTrack>(faceTrackKernel, "VE_FaceTrackFilterKernel",
                                 "VE_FaceTrack_zoomPanScan");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange half{.standard = 0.5};
        return {scalar("inputScale", "scale", half),
                scalar("inputPadding", "padding",
                       {.min = 1.2, .sliderMin = 1.2, .sliderMax = 1.5, .standard = 1.2}),
                scalar("inputSmoothing", "smoothing", half),
                scalar("inputResponsiveness", "responsiveness", half),
                scalar("inputPanStrength", "pan_strength", half),
                scalar("inputScaleComputed", "scale_computed",
                       {.min = 1, .sliderMin = 1, .sliderMax = 8, .standard = 1, .identity = 1}),
                withoutRange(scalar("inputPanXComputed", "pan_x_computed", {})),
                withoutRange(scalar("inputPanYComputed", "pan_y_computed", {})),
                scalar("inputTrackingConfidence", "tracking_confidence", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Follow a face",
            .sentence = "Zooms into the part of the picture that a tracker points at, and shows no "
                        "border.",
            .tags = {"zoom", "pan", "crop", "tracking", "camera"},
            .inputs = {{.key = "inputScale",
                        .purpose = "for the tracker: how large the face is to be",
                        .isDead = true},
                       {.key = "inputPadding",
                        .purpose = "for the tracker: the room around the face",
                        .isDead = true},
                       {.key = "inputSmoothing",
                        .purpose = "for the tracker: how calmly it follows",
                        .isDead = true},
                       {.key = "inputResponsiveness",
                        .purpose = "for the tracker: how soon it follows",
                        .isDead = true},
                       {.key = "inputPanStrength",
                        .label = "pan strength",
                        .purpose = "for the tracker: how far it follows",
                        .isDead = true},
                       {.key = "inputScaleComputed",
                        .label = "zoom",
                        .purpose = "how much the picture is enlarged; nothing is done below 0",
                        .feed = InputFeed::Tracking},
                       {.key = "inputPanXComputed",
                        .label = "pan across",
                        .purpose =
                            "where the middle of the view is, from the middle of the picture "
                            "to the right, in widths of the picture",
                        .from = -0.5,
                        .to = 0.5,
                        .feed = InputFeed::Tracking},
                       {.key = "inputPanYComputed",
                        .label = "pan up",
                        .purpose = "the same upward, in heights of the picture",
                        .from = -0.5,
                        .to = 0.5,
                        .feed = InputFeed::Tracking},
                       {.key = "inputTrackingConfidence",
                        .label = "tracking confidence",
                        .purpose = "how sure the tracker is",
                        .feed = InputFeed::Tracking,
                        .isDead = true}},
            .beginWith = {
                {"inputScaleComputed", 2}, {"inputPanXComputed", 0.1}, {"inputPanYComputed", 0.1}}};
    }

    /// Whether a tracker feeds the filter.
    bool hasExternalTrackingTransform() const {
        const float scale = inputScaleComputed.floatValue();
        return scale > 0 && std::isfinite(scale);
    }

    CIImage outputImage() override {
        const float scale = inputScaleComputed.floatValue(), panX = inputPanXComputed.floatValue(),
                    panY = inputPanYComputed.floatValue();
        if (!inputImage || !faceTrackKernel || !hasExternalTrackingTransform() ||
            !std::isfinite(panX) || !std::isfinite(panY))
            return inputImage;
        const CISampler source(inputImage);
        const float zoom = std::max(1.0f, scale);
        const CIImage zoomed = apply(faceTrackKernel, source.extent(), RegionOfInterest::identity(),
                                     {source, zoom, panX, panY});
        if (!zoomed) return inputImage;
        return zoom == 1 ? zoomed.imageKnownToEqual(inputImage) : zoomed;
    }

    CIImage inputImage;
    Number inputScale, inputPadding, inputSmoothing, inputResponsiveness, inputPanStrength;
    Number inputScaleComputed, inputPanXComputed, inputPanYComputed, inputTrackingConfidence;
    VORN_FILTER(VE_FaceTrack, inputImage, inputScale, inputPadding, inputSmoothing,
                inputResponsiveness, inputPanStrength, inputScaleComputed, inputPanXComputed,
                inputPanYComputed, inputTrackingConfidence)

private:
    /// Default, identity, label and type.
    static InputAttributes withoutRange(InputAttributes attributes) {
        attributes.entries.erase(attributes.entries.begin(), attributes.entries.begin() + 3);
        return attributes;
    }

    inline static CIKernel faceTrackKernel;
};
VORN_REGISTER(VE_FaceTrack)
