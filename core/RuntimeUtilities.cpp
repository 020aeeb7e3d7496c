// Functions that filters share: the error picture, bitmap contexts, the clock, angles.
#include "imaging/Node.h"
#include "platform/Messages.h"
#include "vorneffects/VornEffects.h"

using namespace vorn;

CIImage VornEffectsCreateErrorImage(std::string_view resourceName, std::string_view label,
                                    std::string_view message) try {
    const auto path = Bundle::forClass(classFromString("VornEffectsCatalog"))
                          .pathForResource(resourceName, "png");
    if (!path) {
        report(Severity::Warning, "### FX: missing error image resource '%s'",
               std::string(resourceName).c_str());
        return {};
    }
    const std::optional<CGImage> picture = decodePNG(dataWithContentsOfFile(*path));
    if (!picture) return {};

    CVPixelBufferRef buffer;
    const CGContextRef context =
        VornEffectsCreateBitmapContext(picture->width, picture->height, &buffer, "FX Error Image");
    if (!context || !buffer) return {};
    context->setBlendMode(CGBlendMode::Copy);
    context->drawImage({0, 0, double(picture->width), double(picture->height)}, *picture);

    // The places suit the shipped picture; they hold whatever picture is used.
    context->setFillColor(0.15, 0.15, 0.15, 1);
    const std::string fontName = stringFromMacRoman(systemFontName());
    const std::string labelText = stringFromMacRoman(label);
    const std::string messageText = stringFromMacRoman(message);
    if (!labelText.empty()) context->drawText({175, 285}, labelText, fontName, 64);
    if (!messageText.empty()) context->drawText({96, 17}, messageText, fontName, 56);
    context->flush();
    buffer->unlock();
    return imaging::markAsErrorImage(CIImage::imageWithCVPixelBuffer(buffer), labelText,
                                     messageText);
} catch (...) {
    reportCaught("VornEffectsCreateErrorImage");
    return {};
}

CGContextRef VornEffectsCreateBitmapContext(uint32_t width, uint32_t height,
                                            CVPixelBufferRef* buffer, const char* label) try {
    if (!label) label = "";
    const auto printableWidth = static_cast<int>(width), printableHeight = static_cast<int>(height);
    int32_t status = kStatusSuccess;
    const CVPixelBufferRef pixels = PixelBuffer::create(width, height, kCIFormatARGB8, &status);
    if (!pixels) {
        report(Severity::Warning, "### FX: create bitmap context %d x %d failed '%s' (%08x)",
               printableWidth, printableHeight, label, static_cast<unsigned>(status));
        return nullptr;
    }
    if (buffer) *buffer = pixels;
    status = pixels->lock();
    void* const base = pixels->baseAddress();
    CGContextRef context = BitmapContext::create(base, width, height, pixels->bytesPerRow(),
                                                 pixels->format(), CGColorSpace::SRGB);
    if (!context) {
        report(Severity::Warning, "### FX: create bitmap context %d x %d failed '%s' (%08x) buf:%p",
               printableWidth, printableHeight, label, static_cast<unsigned>(status), base);
        pixels->unlock();
        if (buffer) buffer->reset();
        return nullptr;
    }
    // The context keeps its memory alive, also when the caller lets go of the buffer or never
    // asked for it.
    struct Drawing {
        CVPixelBufferRef pixels;
        CGContextRef context;
    };
    const auto drawing = std::make_shared<Drawing>(Drawing{pixels, std::move(context)});
    return CGContextRef(drawing, drawing->context.get());
} catch (...) {
    reportCaught("VornEffectsCreateBitmapContext");
    if (buffer) buffer->reset();
    return nullptr;
}

uint64_t VornEffectsGetUptimeInNanoseconds() {
    static const PlatformClock::Timebase timebase = PlatformClock::timebase();
    // The product comes first and may wrap around.
    return PlatformClock::ticks() * timebase.numerator / timebase.denominator;
}

double VornEffectsDeg2rad(double degrees) {
    return degrees * 3.141592653589793 / 180;
}

double VornEffectsMod2pi(double radians) {
    constexpr double kTwoPi = 6.283185307179586;
    return radians - kTwoPi * Number(radians / kTwoPi).intValue();
}
