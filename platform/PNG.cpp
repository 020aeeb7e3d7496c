// PNG pictures, decoded with Cairo.
#include "CairoPixels.h"
#include "Guard.h"

#include <algorithm>

namespace vorn {
namespace {

using namespace platform;

struct Reader {
    const uint8_t* position;
    size_t remaining;
};

cairo_status_t readBytes(void* closure, unsigned char* destination, unsigned int length) {
    auto& reader = *static_cast<Reader*>(closure);
    if (length > reader.remaining) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(destination, reader.position, length);
    reader.position += length;
    reader.remaining -= length;
    return CAIRO_STATUS_SUCCESS;
}

uint32_t bigEndian32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

/// Whether the bytes begin as a PNG does, with a size that Cairo can hold and that is wanted: a few
/// bytes can claim any size, and the decoder would ask for the memory before it reads on.
bool isPNGOfPossibleSize(const std::vector<uint8_t>& bytes) {
    constexpr uint8_t kStart[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n',
                                  0,    0,   0,   13,  'I',  'H',  'D',  'R'};
    if (bytes.size() < 24 || !std::equal(std::begin(kStart), std::end(kStart), bytes.begin()))
        return false;
    const uint32_t width = bigEndian32(&bytes[16]), height = bigEndian32(&bytes[20]);
    return width <= kLargestCairoSide && height <= kLargestCairoSide &&
           uint64_t{width} * height <= pixelLimit();
}

/// The same picture as premultiplied ARGB: opaque PNGs come without alpha, and newer versions of
/// Cairo decode deep ones to floats.
CairoSurface withAlpha(CairoSurface image) {
    if (cairo_image_surface_get_format(image.get()) == CAIRO_FORMAT_ARGB32) return image;
    CairoSurface converted =
        makeCairoImage(static_cast<uint32_t>(cairo_image_surface_get_width(image.get())),
                       static_cast<uint32_t>(cairo_image_surface_get_height(image.get())));
    if (!converted) return nullptr;
    const CairoContext context(cairo_create(converted.get()));
    cairo_set_operator(context.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(context.get(), image.get(), 0, 0);
    cairo_paint(context.get());
    if (cairo_status(context.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
    return converted;
}

std::optional<CGImage> decode(const Data& data) {
    if (!data || !isPNGOfPossibleSize(*data)) return std::nullopt;
    Reader reader{data->data(), data->size()};
    CairoSurface decoded(cairo_image_surface_create_from_png_stream(readBytes, &reader));
    if (cairo_surface_status(decoded.get()) != CAIRO_STATUS_SUCCESS) return std::nullopt;
    decoded = withAlpha(std::move(decoded));
    if (!decoded) return std::nullopt;

    CGImage image;
    image.width = static_cast<uint32_t>(cairo_image_surface_get_width(decoded.get()));
    image.height = static_cast<uint32_t>(cairo_image_surface_get_height(decoded.get()));
    const size_t rowBytes = size_t{image.width} * 4;
    image.pixels.resize(rowBytes * image.height);
    cairo_surface_flush(decoded.get());
    const uint8_t* source = cairo_image_surface_get_data(decoded.get());
    const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(decoded.get()));
    for (uint32_t row = 0; row < image.height; ++row)
        copyFromCairo(source + row * stride, image.pixels.data() + row * rowBytes, image.width,
                      CIFormat::RGBA8);
    return image;
}

} // namespace

std::optional<CGImage> decodePNG(const Data& data) {
    return orNothing([&] { return decode(data); });
}

} // namespace vorn
