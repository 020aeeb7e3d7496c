// Drawing on caller-supplied memory, with Cairo.
#include "CairoPixels.h"
#include "Guard.h"
#include "Messages.h"
#include "TextLine.h"

#include <algorithm>
#include <cmath>

namespace vorn {
namespace {

using namespace platform;

/// Straight colour components that Cairo turns into exactly the bytes nearest to the premultiplied
/// colour. Cairo by itself cuts off the lower half of 16-bit values.
struct FillColor {
    double red = 0, green = 0, blue = 0, alpha = 1;

    static FillColor from(double red, double green, double blue, double alpha) {
        const auto clamped = [](double value) { return value > 0 ? std::min(value, 1.0) : 0.0; };
        const auto byte = [](double value) { return std::floor(value * 255 + 0.5); };
        alpha = clamped(alpha);
        const double alphaByte = byte(alpha);
        if (alphaByte == 0) return {0, 0, 0, 0};
        const auto component = [&](double value) {
            return byte(clamped(value) * alpha) / alphaByte;
        };
        return {component(red), component(green), component(blue), alphaByte / 255};
    }
};

class CairoBitmapContext final : public BitmapContext {
public:
    CairoBitmapContext(uint8_t* bytes, uint32_t width, uint32_t height, size_t bytesPerRow,
                       CIFormat format, CairoSurface surface, bool drawsInPlace)
        : bytes_(bytes), width_(width), height_(height), bytesPerRow_(bytesPerRow), format_(format),
          surface_(std::move(surface)), drawsInPlace_(drawsInPlace) {}

    ~CairoBitmapContext() override {
        // The memory may be gone by now: nothing is written to it here.
        cairo_surface_finish(surface_.get());
    }

    uint32_t width() const override { return width_; }
    uint32_t height() const override { return height_; }

    void setBlendMode(CGBlendMode mode) override { blendMode_ = mode; }

    void setFillColor(double red, double green, double blue, double alpha) override {
        color_ = FillColor::from(red, green, blue, alpha);
    }

    void fillRect(CGRect rect) override {
        const CairoContext context = beginDrawing();
        cairo_set_source_rgba(context.get(), color_.red, color_.green, color_.blue, color_.alpha);
        fill(context.get(), rect);
    }

    void clearRect(CGRect rect) override {
        const CairoContext context = beginDrawing();
        cairo_set_operator(context.get(), CAIRO_OPERATOR_CLEAR);
        fill(context.get(), rect);
    }

    void drawImage(CGRect rect, const CGImage& image) override {
        const bool isComplete = image.width > 0 && image.height > 0 &&
                                image.width <= kLargestCairoSide &&
                                image.height <= kLargestCairoSide &&
                                image.pixels.size() / 4 / image.width >= image.height;
        if (!isComplete || !rect.isFinite() || visiblePart(rect).isEmpty()) return;
        const CairoSurface picture = makeCairoImage(image.width, image.height);
        if (!picture) return;
        uint8_t* const pixels = cairo_image_surface_get_data(picture.get());
        const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(picture.get()));
        for (uint32_t row = 0; row < image.height; ++row)
            copyToCairo(image.pixels.data() + size_t{row} * image.width * 4, pixels + row * stride,
                        image.width, CIFormat::RGBA8);
        cairo_surface_mark_dirty(picture.get());

        // From the bitmap's coordinates, y down, to the picture's.
        const double columns = image.width / rect.width, rows = image.height / rect.height;
        const cairo_matrix_t matrix{
            columns, 0, 0, rows, -rect.x * columns, (rect.maxY() - height_) * rows};
        const CairoPattern pattern(cairo_pattern_create_for_surface(picture.get()));
        cairo_pattern_set_extend(pattern.get(), CAIRO_EXTEND_PAD);
        cairo_pattern_set_matrix(pattern.get(), &matrix);
        // A picture squeezed to next to nothing has no such matrix.
        if (cairo_pattern_status(pattern.get()) != CAIRO_STATUS_SUCCESS) return;
        const CairoContext context = beginDrawing();
        cairo_set_source(context.get(), pattern.get());
        fill(context.get(), rect);
    }

    double drawText(CGPoint position, std::string_view utf8, std::string_view fontName,
                    double size) override try {
        const TextLine line(utf8, fontName, size);
        // Far outside, Cairo's fixed-point coordinates would wrap around and come back.
        constexpr double kFarthest = 1 << 20;
        if (std::abs(position.x) <= kFarthest && std::abs(position.y) <= kFarthest) {
            const CairoContext context = beginDrawing();
            cairo_set_source_rgba(context.get(), color_.red, color_.green, color_.blue,
                                  color_.alpha);
            cairo_move_to(context.get(), position.x, height_ - position.y);
            line.addToPath(context.get());
            cairo_fill(context.get());
        }
        return line.width();
    } catch (...) {
        reportCaught("BitmapContext");
        return 0;
    }

    double textWidth(std::string_view utf8, std::string_view fontName, double size) override try {
        return TextLine(utf8, fontName, size).width();
    } catch (...) {
        reportCaught("BitmapContext");
        return 0;
    }

    void flush() override {
        if (!isDrawing_) return;
        isDrawing_ = false;
        cairo_surface_flush(surface_.get());
        if (drawsInPlace_) return;
        for (uint32_t row = 0; row < height_; ++row)
            copyFromCairo(surfaceRow(row), bytes_ + row * bytesPerRow_, width_, format_);
    }

private:
    /// A fresh context for one operation, so that an error in one never reaches the next. After a
    /// flush the memory counts, not what was drawn before: others may have written to it.
    CairoContext beginDrawing() {
        if (!isDrawing_) {
            isDrawing_ = true;
            if (!drawsInPlace_)
                for (uint32_t row = 0; row < height_; ++row)
                    copyToCairo(bytes_ + row * bytesPerRow_, surfaceRow(row), width_, format_);
            cairo_surface_mark_dirty(surface_.get());
        }
        CairoContext context(cairo_create(surface_.get()));
        cairo_set_operator(context.get(), blendMode_ == CGBlendMode::Copy ? CAIRO_OPERATOR_SOURCE
                                                                          : CAIRO_OPERATOR_OVER);
        return context;
    }

    CGRect visiblePart(CGRect rect) const {
        if (std::isnan(rect.x) || std::isnan(rect.y)) return {};
        return rect.intersection({0, 0, double(width_), double(height_)});
    }

    /// Fills what is visible of a rectangle: Cairo's coordinates are fixed-point numbers that
    /// huge ones do not fit in.
    void fill(cairo_t* context, CGRect rect) {
        const CGRect part = visiblePart(rect);
        if (part.isEmpty()) return;
        cairo_rectangle(context, part.x, height_ - part.maxY(), part.width, part.height);
        cairo_fill(context);
    }

    uint8_t* surfaceRow(uint32_t row) {
        return cairo_image_surface_get_data(surface_.get()) +
               row * static_cast<size_t>(cairo_image_surface_get_stride(surface_.get()));
    }

    uint8_t* bytes_;
    uint32_t width_, height_;
    size_t bytesPerRow_;
    CIFormat format_;
    CairoSurface surface_;
    bool drawsInPlace_;      ///< whether the surface's pixels are the caller's memory
    bool isDrawing_ = false; ///< whether something was drawn since the last flush
    CGBlendMode blendMode_ = CGBlendMode::Normal;
    FillColor color_;
};

} // namespace

// Components are used as they are given and stored, whatever space the bitmap is said to be in.
std::shared_ptr<BitmapContext> BitmapContext::create(void* bytes, uint32_t width, uint32_t height,
                                                     size_t bytesPerRow, CIFormat format,
                                                     CGColorSpace) {
    if (!bytes || width == 0 || height == 0 || width > kLargestCairoSide ||
        height > kLargestCairoSide || !isKnown(format) || bytesPerPixel(format) != 4 ||
        bytesPerRow < size_t{width} * 4 || !sizeOfRows(bytesPerRow, height))
        return nullptr;
    auto* const memory = static_cast<uint8_t*>(bytes);
    const bool drawsInPlace = format == kCairoFormat &&
                              reinterpret_cast<uintptr_t>(bytes) % 4 == 0 && bytesPerRow % 4 == 0 &&
                              bytesPerRow <= INT32_MAX;
    CairoSurface surface = drawsInPlace
                               ? CairoSurface(cairo_image_surface_create_for_data(
                                     memory, CAIRO_FORMAT_ARGB32, static_cast<int>(width),
                                     static_cast<int>(height), static_cast<int>(bytesPerRow)))
                               : makeCairoImage(width, height);
    if (!surface || cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
    return orNothing([&]() -> std::shared_ptr<BitmapContext> {
        return std::make_shared<CairoBitmapContext>(memory, width, height, bytesPerRow, format,
                                                    std::move(surface), drawsInPlace);
    });
}

} // namespace vorn
