// Sums of pixels in a line, by weights that are the same for every pixel. They are added up as they
// lie in memory, channels side by side, and taken apart once.
#pragma once

#include "pairs.h"

namespace vorn::lanes {

/// Weights of a Gaussian at whole distances: the one at 0, the one at 1, the quotient of those at 2
/// and 1, and the factor by which that quotient goes on falling.
struct Gaussian {
    float center, first, quotient, factor;
};

#ifdef VORN_HAS_PAIRS
constexpr int kMostReach = 16; ///< of lines that are added up here

/// N pixels, channels side by side, as four registers.
struct Quarters {
    FloatRegister parts[4];
};

#if VORN_LANES == 16
constexpr int kPixelsInRegister = 4;
#define VORN_WIDE(name) _mm512_##name
VORN_INLINE FloatRegister halvesAsFloats(const uint8_t* from) {
    return _mm512_cvtph_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
}
VORN_INLINE Texels bytesAsInts(const uint8_t* from) {
    return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
/// The registers as channels.
VORN_INLINE void takeApart(Quarters& q) {
    exchange(q.parts[0], q.parts[1], q.parts[2], q.parts[3]);
    const __m512i places = _mm512_set_epi32(15, 11, 7, 3, 14, 10, 6, 2, 13, 9, 5, 1, 12, 8, 4, 0);
    q.parts[0] = _mm512_permutexvar_ps(places, q.parts[0]);
    q.parts[1] = _mm512_permutexvar_ps(places, q.parts[1]);
    q.parts[2] = _mm512_permutexvar_ps(places, q.parts[2]);
    q.parts[3] = _mm512_permutexvar_ps(places, q.parts[3]);
}
#else
constexpr int kPixelsInRegister = 2;
#define VORN_WIDE(name) _mm256_##name
VORN_INLINE FloatRegister halvesAsFloats(const uint8_t* from) {
    return _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
}
VORN_INLINE Texels bytesAsInts(const uint8_t* from) {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
}
VORN_INLINE void takeApart(Quarters& q) {
    const Eight e = Eight{q.parts[0], q.parts[1], q.parts[2], q.parts[3]}.exchanged();
    const __m256i places = _mm256_set_epi32(7, 3, 6, 2, 5, 1, 4, 0);
    q.parts[0] = _mm256_permutevar8x32_ps(e.a, places);
    q.parts[1] = _mm256_permutevar8x32_ps(e.b, places);
    q.parts[2] = _mm256_permutevar8x32_ps(e.c, places);
    q.parts[3] = _mm256_permutevar8x32_ps(e.d, places);
}
#endif

/// The sum of the pixels `distance` bytes apart on either side of N pixels. Bytes are added up as
/// such: the result is 255 times as large.
template <int layout>
VORN_INLINE Quarters sumOfLine(const uint8_t* from, int64_t distance, int reach, Gaussian weights) {
    constexpr int64_t bytes = kPixelsInRegister * bytesPerPixel(layout);
    const auto read = [](const uint8_t* at) {
        if constexpr (layout == kPacked8)
            return VORN_WIDE(cvtepi32_ps)(bytesAsInts(at));
        else if constexpr (layout == kHalf)
            return halvesAsFloats(at);
        else
            return VORN_WIDE(loadu_ps)(reinterpret_cast<const float*>(at));
    };
    const auto readTwo = [&](const uint8_t* one, const uint8_t* other) {
        if constexpr (layout == kPacked8)
            return VORN_WIDE(cvtepi32_ps)(
                VORN_WIDE(add_epi32)(bytesAsInts(one), bytesAsInts(other)));
        else
            return VORN_WIDE(add_ps)(read(one), read(other));
    };
    // Registers by name: arrays that loops go through would stay in memory.
    const auto own = [&](int part) {
        return VORN_WIDE(mul_ps)(read(from + part * bytes), VORN_WIDE(set1_ps)(weights.center));
    };
    FloatRegister a = own(0), b = own(1), c = own(2), d = own(3);
    float weight = weights.first, fall = weights.quotient;
    for (int tap = 1; tap <= reach; ++tap) {
        const FloatRegister share = VORN_WIDE(set1_ps)(weight);
        const uint8_t *before = from - tap * distance, *after = from + tap * distance;
        const auto add = [&](int part, FloatRegister& sum) {
            sum = VORN_WIDE(fmadd_ps)(readTwo(before + part * bytes, after + part * bytes), share,
                                      sum);
        };
        add(0, a), add(1, b), add(2, c), add(3, d);
        weight *= fall;
        fall *= weights.factor;
    }
    Quarters sum{{a, b, c, d}};
    takeApart(sum);
    return sum;
}
#undef VORN_WIDE

/// The line through N pixels from (column, row) on, as it lies in memory if all of it is inside, or
/// as a copy with nothing outside. `distance` is that of its pixels in bytes.
template <int layout>
VORN_INLINE const uint8_t* lineAround(const SourceView& view, int column, int row, bool isAcross,
                                      int reach, uint8_t* copy, int64_t& distance) {
    constexpr int64_t pixel = bytesPerPixel(layout);
    const int aside = isAcross ? reach : 0, above = isAcross ? 0 : reach;
    distance = isAcross ? pixel : view.rowBytes;
    if (column >= aside && column + N + aside <= view.width && row >= above &&
        row + above < view.height) [[likely]]
        return view.bytes + row * view.rowBytes + column * pixel;
    const int width = N + 2 * aside, height = 1 + 2 * above, left = column - aside;
    const int first = left < 0 ? -left : 0;
    const int last = view.width - left < width ? view.width - left : width;
    for (int line = 0; line < height; ++line) {
        const int from = row - above + line;
        uint8_t* to = copy + line * width * pixel;
        std::memset(to, 0, static_cast<size_t>(width * pixel));
        if (from >= 0 && from < view.height && first < last)
            std::memcpy(to + first * pixel,
                        view.bytes + from * view.rowBytes + (left + first) * pixel,
                        static_cast<size_t>((last - first) * pixel));
    }
    distance = isAcross ? pixel : width * pixel;
    return copy + (above * width + aside) * pixel;
}

template <int layout>
VORN_INLINE Pixel gaussianOf(const SourceView& view, int column, int row, bool isAcross, int reach,
                             Gaussian weights) {
    uint8_t copy[N * (1 + 2 * kMostReach) * bytesPerPixel(layout)]; // the larger one is upright
    int64_t distance;
    const uint8_t* line = lineAround<layout>(view, column, row, isAcross, reach, copy, distance);
    const Quarters sum = sumOfLine<layout>(line, distance, reach, weights);
    const auto channel = [&](int place) {
        const Float value(bitsAs<FloatBits>(sum.parts[place]));
        return layout == kPacked8 ? value * Float(kByteScale) : value;
    };
    const ChannelOrder order = layout == kPacked8 ? view.order : ChannelOrder{0, 1, 2, 3};
    return {channel(order.r), channel(order.g), channel(order.b), channel(order.a)};
}
#endif

} // namespace vorn::lanes
