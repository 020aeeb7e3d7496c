// ASCII art: redraws the image as a grid of characters, chosen by brightness from a ramp that is
// drawn once into a strip.
#include "core/FilterSupport.h"

#include <cstdlib>

class VE_ASCII_Art : public CIFilter {
public:
    VE_ASCII_Art() { loadKernels<VE_ASCII_Art>(kernels, "VE_ASCII_ArtFilterKernel", kFunctions); }

    static Attributes customAttributes() {
        // The default of the divisions is below their minimum; the key of the gap speaks of colour.
        return {mixer(),
                scalar("inputScale", "Divisions", {.min = 1, .sliderMin = 1, .sliderMax = 100}),
                scalar("inputColour", "Gap Width", {})};
    }

    static FilterGuide guide() {
        return {
            .title = "Characters",
            .sentence =
                "Redraws the picture as a grid of characters, fuller ones where it is brighter.",
            .tags = {"ascii", "text", "letters", "terminal"},
            .inputs = {{.key = "inputScale", .purpose = "characters across; 60 below 1"},
                       {.key = "inputColour",
                        .purpose = "space between characters, which turn from the picture's "
                                   "colours to grey; white ones at 1"},
                       {.key = "inputString",
                        .label = "characters",
                        .purpose = "the characters, from the emptiest to the fullest; taken once",
                        .start = kRamp,
                        .feed = InputFeed::Data}},
            .beginWith = {{"inputScale", 50}}};
    }

    CIImage outputImage() override {
        if (area(inputImage) > kArea4320x4320) return errorImage.imageFor("FX 175");
        if (!strip && !drawStrip()) return inputImage;
        const CISampler source(inputImage), characters(strip);
        const float gap = inputColour.floatValue();
        const float divisions = inputScale.floatValue();
        const auto quarter = static_cast<float>(source.extent().width) /
                             (divisions >= 1 ? divisions : kStandardColumns) / 2;
        return kernels[1.0f > gap ? 1 : 0]
            .applyWithExtent(source.extent(),
                             RegionOfInterest::wholeByIndex(source.extent(), characters.extent()),
                             {source, characters, inputMixer, divisions, gap, float{kCellWidth},
                              float{kCellHeight}, static_cast<float>(count)})
            .imageWithReduction(timesSmaller(quarter),
                                timesSmaller(quarter * kCellHeight / kCellWidth),
                                ReducedBits::Floats);
    }

    CIImage inputImage;
    Number inputScale, inputColour;
    std::optional<std::string> inputString; ///< the ramp, emptiest character first; not advertised
    Number inputMixer;
    VORN_FILTER(VE_ASCII_Art, inputImage, inputScale, inputColour, inputString, inputMixer)

private:
    static constexpr int kCellWidth = 24, kCellHeight = 30;
    static constexpr float kStandardColumns = 60; ///< where the divisions are below 1

    /// Draws every byte of the ramp, as Mac Roman, into a cell of its own. The strip stays for the
    /// life of the filter, whatever the ramp becomes. False when there is no drawing on a strip so
    /// long, or on none.
    bool drawStrip() {
        const std::string& ramp = inputString ? *inputString : kRamp;
        if (ramp.empty() || ramp.size() > kLongestRamp) return false;
        const auto width = static_cast<uint32_t>(kCellWidth * ramp.size());
        const size_t bytesPerRow = size_t{width} * 4;
        const std::shared_ptr<void> pixels(std::calloc(kCellHeight, bytesPerRow), &std::free);
        const CGContextRef context =
            pixels ? BitmapContext::create(pixels.get(), width, kCellHeight, bytesPerRow,
                                           kCIFormatARGB8, CGColorSpace::SRGB)
                   : nullptr;
        if (!context) return false;
        context->clearRect({0, 0, double(width), kCellHeight});
        context->setFillColor(1, 1, 1, 1);
        for (size_t i = 0; i < ramp.size(); ++i)
            context->drawText({double(kCellWidth * i), 3},
                              stringFromMacRoman(std::string_view(ramp).substr(i, 1)), "Monaco",
                              33);
        context->flush();
        count = ramp.size();
        strip = CIImage::imageWithBitmap(pixels.get(), width, kCellHeight, bytesPerRow,
                                         kCIFormatARGB8, CGColorSpace::SRGB, pixels);
        return static_cast<bool>(strip);
    }

    inline static const std::string kRamp = " .,:!-+=;iot76x0s&8%#@$";
    static constexpr size_t kLongestRamp = 32767 / kCellWidth; ///< what a drawing context holds
    static constexpr std::string_view kFunctions[] = {"VE_ASCII_Art_ascii_desatToWhite",
                                                      "VE_ASCII_Art_ascii_desatToGray"};
    inline static CIKernel kernels[std::size(kFunctions)];
    CIImage strip;
    size_t count = 0; ///< characters in the strip
    ErrorImage errorImage;
};
VORN_REGISTER(VE_ASCII_Art)
