// Timecode: hours, minutes, seconds and frames in a box over the picture. They are drawn into one
// buffer, which all instances in a session share.
#include "core/FilterSupport.h"
#include "imaging/SharedDrawing.h"

#include <cstdio>
#include <mutex>

class VE_TimecodeBurnin : public CIFilter {
public:
    VE_TimecodeBurnin() {
        loadKernel<VE_TimecodeBurnin>(mixerKernel, "VE_TimecodeBurninFilterKernel",
                                      "VE_TimecodeBurnin_mixer");
    }

    static Attributes customAttributes() {
        constexpr ScalarRange range{.sliderMax = 255, .standard = 80};
        return {constant("input1", range), constant("input2", range), constant("input3", range),
                constant("input4", range), constant("input5", range)};
    }

    static FilterGuide guide() {
        return {.title = "Timecode",
                .sentence =
                    "Writes hours, minutes, seconds and frames into a box over the picture.",
                .tags = {"text", "clock", "time", "burn-in"},
                .inputs = {{.key = "input1", .label = "mixer", .purpose = "how visible it is"},
                           {.key = "input2", .label = "size", .purpose = "of the text"},
                           {.key = "input3",
                            .label = "x position",
                            .purpose = "from the left to the right of the first frame's size"},
                           {.key = "input4",
                            .label = "y position",
                            .purpose = "from the bottom to the top of the first frame's size"},
                           {.key = "input5", .label = "unused", .isDead = true},
                           {.key = "inputTimecode",
                            .purpose = "the time that is written, at 30 frames a second",
                            .from = 0,
                            .to = 86'400e9,
                            .start = 3'723.5e9,
                            .unit = "nanoseconds",
                            .feed = InputFeed::MediaTime}},
                .beginWith = {{"input1", 255}, {"input2", 60}, {"input3", 127}, {"input4", 20}}};
    }

    CIImage outputImage() override {
        const CISampler source(inputImage);
        const auto k = static_cast<float>(of255(input2) * 4.0 + 1.0);
        CIFilter& over = chained(composite, "CISourceOverCompositing");
        over.setValueForKey(drawnText(timecode(), k), "inputImage");
        over.setValueForKey(inputImage, "inputBackgroundImage");
        const CIImage burned = over.outputImage();
        const auto mix = static_cast<float>(of255(input1));
        const CIImage mixed =
            mixerKernel.applyWithExtent(source.extent(), {source, CISampler(burned), mix});
        return mix == 0   ? mixed.imageKnownToEqual(inputImage)
               : mix == 1 ? mixed.imageKnownToEqual(burned)
                          : mixed;
    }

    CIImage inputImage;
    Number input1, input2, input3, input4, input5;
    Number inputTimecode; ///< nanoseconds; not advertised
    VORN_FILTER(VE_TimecodeBurnin, inputImage, input1, input2, input3, input4, input5,
                inputTimecode)

private:
    static double of255(const Number& control) { return control.floatValue() * 0.003921568627; }
    /// Pixels: the whole part, and 0 for what is none.
    static double whole(double value) {
        return value > 0 ? std::trunc(std::min(value, 4294967295.0)) : 0;
    }

    /// Seconds are counted in 32 bits, frames of 33333333 ns: the last 9 ns of a second are frame
    /// 30.
    std::string timecode() const {
        constexpr double kEnd = 0x1p63;
        const double value = inputTimecode.doubleValue();
        const int64_t time = value >= kEnd    ? INT64_MAX
                             : value >= -kEnd ? static_cast<int64_t>(value)
                             : value < 0      ? INT64_MIN
                                              : 0;
        const auto nanoseconds = static_cast<uint64_t>(time);
        const auto seconds = static_cast<int32_t>(nanoseconds / 1'000'000'000);
        const auto rest = static_cast<int32_t>(
            nanoseconds - static_cast<uint64_t>(int64_t{seconds}) * 1'000'000'000);
        const int32_t hours = seconds / 3600;
        char text[64];
        std::snprintf(text, sizeof text, "%02i:%02i:%02i:%02i", hours, seconds / 60 - 60 * hours,
                      seconds % 60, rest / 33'333'333);
        return text;
    }

    /// The buffer with the text, which starts in it where it would in the frame of its size.
    CIImage drawnText(const std::string& text, float k) const {
        uint8_t pixel[4];
        const CGContextRef ruler =
            BitmapContext::create(pixel, 1, 1, 4, kCIFormatARGB8, CGColorSpace::SRGB);
        const double size = k * 20.0, length = ruler ? ruler->textWidth(text, kFont, size) : 0;

        const auto buffer = imaging::SharedDrawing::ofClass(theClass());
        const std::unique_lock lock(buffer->mutex);
        if (!buffer->surface) {
            const CGRect extent = inputImage.extent();
            buffer->width = extent.width, buffer->height = extent.height;
            buffer->surface =
                Surface::create({.width = static_cast<uint32_t>(whole(extent.width)),
                                 .height = static_cast<uint32_t>(whole(extent.height)),
                                 .pixelFormat = 32}); // ARGB
        }
        const CGRect box{0, 0, whole(k * 150.0f), whole(k * 26.0f)};
        const auto x = static_cast<float>(of255(input3)) *
                       static_cast<float>(whole(buffer->width - box.width));
        const auto y = static_cast<float>(of255(input4)) *
                       static_cast<float>(whole(buffer->height - box.height));
        if (buffer->surface && buffer->surface->lock() == kStatusSuccess) {
            erase(*buffer);
            const bool isDrawn = draw(*buffer, {x, y, box.width, box.height}, text, k, length);
            buffer->surface->unlock();
            if (isDrawn) return imaging::SharedDrawing::imageOf(buffer);
        }
        // There is no drawing on a buffer like this one: that shows.
        return CIImage::imageWithColor(CIColor(1, 0, 1, 0.5))
            .imageByCroppingToRect({50, 50, std::trunc(length), std::trunc(size * kLineHeight)});
    }

    static void erase(imaging::SharedDrawing& buffer) {
        Surface& surface = *buffer.surface;
        auto* const bytes = static_cast<uint8_t*>(surface.baseAddress());
        const CGRect part = std::exchange(buffer.drawn, {});
        for (double y = part.y; y < part.maxY(); ++y)
            std::fill_n(bytes + rowAt(surface, y) + static_cast<size_t>(part.x) * 4,
                        static_cast<size_t>(part.width) * 4, uint8_t{0});
    }
    /// Where the row of pixels with its lower border at y begins.
    static size_t rowAt(const Surface& surface, double y) {
        return (surface.height() - 1 - static_cast<size_t>(y)) * surface.bytesPerRow();
    }

    /// Draws box and text on the part of the buffer that they take, which is transparent.
    static bool draw(imaging::SharedDrawing& buffer, CGRect box, const std::string& text, float k,
                     double length) {
        Surface& surface = *buffer.surface;
        CGRect part = box;
        part.width = std::max(part.width, k * 9.0 + length + k);
        part = part.grownBy(1).integral().intersection(
            {0, 0, double(surface.width()), double(surface.height())});
        if (part.isEmpty()) return true;
        auto* const bytes = static_cast<uint8_t*>(surface.baseAddress());
        const CGContextRef context = BitmapContext::create(
            bytes + rowAt(surface, part.maxY() - 1) + static_cast<size_t>(part.x) * 4,
            static_cast<uint32_t>(part.width), static_cast<uint32_t>(part.height),
            surface.bytesPerRow(), kCIFormatARGB8, CGColorSpace::SRGB);
        if (!context) return false;
        buffer.drawn = part;
        const double x = box.x - part.x, y = box.y - part.y;
        context->setBlendMode(CGBlendMode::Copy);
        context->setFillColor(0.25, 0.25, 0.25, 0.75);
        context->fillRect({x, y, box.width, box.height});
        context->setBlendMode(CGBlendMode::Normal);
        context->setFillColor(1, 1, 1, 1);
        context->drawText({x + k * 9.0, y + k * 5.0}, text, kFont, k * 20.0);
        context->flush();
        return true;
    }

    static constexpr const char* kFont = "Menlo";
    static constexpr double kLineHeight = 1.164; ///< of that font, in ems
    inline static CIColorKernel mixerKernel;
    CIFilterRef composite;
};
VORN_REGISTER(VE_TimecodeBurnin)
