#include "pixels.h"

#include <algorithm>
#include <limits>

namespace vorn::media {

namespace {

template <typename T>
constexpr std::uint32_t kOne = std::numeric_limits<T>::max();

template <typename In, typename Out, typename Pixel>
void mapPixels(const Frame& source, Frame& target, Pixel pixel) {
    for (int y = 0; y < source.height(); ++y) {
        const auto* in = reinterpret_cast<const In*>(source.row(y));
        auto* out = reinterpret_cast<Out*>(target.row(y));
        for (int x = 0; x < source.width(); ++x, in += 4, out += 4) pixel(in, out);
    }
}

template <typename T>
void premultiplyPixels(const Frame& source, Frame& target) {
    mapPixels<T, T>(source, target, [](const T* in, T* out) {
        const std::uint32_t alpha = in[3];
        for (int c = 0; c < 3; ++c) out[c] = T((in[c] * alpha + kOne<T> / 2) / kOne<T>);
        out[3] = T(alpha);
    });
}

template <typename T>
void unpremultiplyPixels(const Frame& source, Frame& target) {
    mapPixels<T, T>(source, target, [](const T* in, T* out) {
        const std::uint32_t alpha = in[3];
        for (int c = 0; c < 3; ++c)
            out[c] =
                alpha == 0 ? T(0) : T(std::min(kOne<T>, (in[c] * kOne<T> + alpha / 2) / alpha));
        out[3] = T(alpha);
    });
}

} // namespace

void premultiply(const Frame& source, Frame& target) {
    if (source.format() == PixelFormat::Rgba8)
        premultiplyPixels<std::uint8_t>(source, target);
    else
        premultiplyPixels<std::uint16_t>(source, target);
    target.alpha = Alpha::Premultiplied;
}

void unpremultiply(const Frame& source, Frame& target) {
    if (source.format() == PixelFormat::Rgba8)
        unpremultiplyPixels<std::uint8_t>(source, target);
    else
        unpremultiplyPixels<std::uint16_t>(source, target);
    target.alpha = Alpha::Straight;
}

namespace {

template <typename T>
void limitPixels(Frame& frame) {
    mapPixels<T, T>(frame, frame, [](const T* in, T* out) {
        for (int c = 0; c < 3; ++c) out[c] = std::min(in[c], in[3]);
    });
}

} // namespace

void limitToAlpha(Frame& frame) {
    (frame.format() == PixelFormat::Rgba8 ? limitPixels<std::uint8_t>
                                          : limitPixels<std::uint16_t>)(frame);
}

void changeDepth(const Frame& source, Frame& target) {
    using Byte = std::uint8_t;
    using Word = std::uint16_t;
    if (source.format() == PixelFormat::Rgba8)
        mapPixels<Byte, Word>(source, target, [](const Byte* in, Word* out) {
            for (int c = 0; c < 4; ++c) out[c] = Word(in[c] * 257);
        });
    else
        mapPixels<Word, Byte>(source, target, [](const Word* in, Byte* out) {
            for (int c = 0; c < 4; ++c) out[c] = Byte((in[c] * 255u + 32767u) / 65535u);
        });
    target.alpha = source.alpha;
}

} // namespace vorn::media
