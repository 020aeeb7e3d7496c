// Bilinear reads of packed and half-float pixels by 64 bits at a time: two packed pixels that lie
// side by side, or one whole half-float pixel.
//
// They are loaded one by one, which on the processors at hand is 1.1 to 1.3 times as fast as the
// instructions that gather them. The registers hold every second pair of lanes: the first one, in
// blocks of 128 bits, the lanes {0, 1}, {4, 5}, … and the other one {2, 3}, {6, 7}, …: the order
// that a shuffle of two registers undoes.
#pragma once

#include "pixels.h"

#if (VORN_LANES == 16 && defined(__AVX512BW__)) || (VORN_LANES == 8 && defined(__AVX2__))
#define VORN_HAS_PAIRS 1

namespace vorn::lanes {

#if VORN_LANES == 16
using FloatRegister = __m512;
#define VORN_WIDE(name) _mm512_##name
VORN_INLINE FloatRegister asFloats(Texels t) {
    return _mm512_castsi512_ps(t);
}
/// The 64 bits in every block of 128.
VORN_INLINE Texels inEveryBlock(int64_t low, int64_t high) {
    return _mm512_set_epi64(high, low, high, low, high, low, high, low);
}
#else
using FloatRegister = __m256;
#define VORN_WIDE(name) _mm256_##name
VORN_INLINE FloatRegister asFloats(Texels t) {
    return _mm256_castsi256_ps(t);
}
VORN_INLINE Texels inEveryBlock(int64_t low, int64_t high) {
    return _mm256_set_epi64x(high, low, high, low);
}
#endif

/// 64 bits for every lane.
struct Pairs {
    Texels first, other;
};

/// Lanes that read within N neighbouring pixels of one row, as those of pictures that are moved,
/// turned over or enlarged do: whole loads and a permutation take the place of single ones.
struct Nearby {
    int32_t first; ///< the column of the first pixel
    Texels places; ///< of each lane, from the first one on
};
VORN_INLINE bool areNearby(Int column, Int row, Nearby& nearby) {
    const int32_t one = column.v[0], other = column.v[N - 1];
    nearby.first = one < other ? one : other;
    const Int places = column - Int(nearby.first);
    nearby.places = bitsAs<Texels>(places);
    return allLanes(toUint(places) < Uint(N) && row == Int(row.v[0]));
}
VORN_INLINE Texels loadNearby(const uint8_t* first, Texels places) {
#if VORN_LANES == 16
    return _mm512_permutexvar_epi32(places, loadTexels(first));
#else
    return _mm256_permutevar8x32_epi32(loadTexels(first), places);
#endif
}

/// The 64 bits at each lane's byte offset.
VORN_INLINE Pairs gatherPairs(const uint8_t* base, Int offset) {
    int32_t at[N];
    std::memcpy(at, &offset, sizeof at);
    const auto two = [&](int i) {
        const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + at[i]));
        return _mm_castps_si128(
            _mm_loadh_pi(_mm_castsi128_ps(low), reinterpret_cast<const __m64*>(base + at[i + 1])));
    };
    const auto four = [&](int i) {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(two(i)), two(i + 4), 1);
    };
#if VORN_LANES == 16
    const auto eight = [&](int i) {
        return _mm512_inserti64x4(_mm512_castsi256_si512(four(i)), four(i + 8), 1);
    };
    return {eight(0), eight(2)};
#else
    return {four(0), four(2)};
#endif
}
/// The same 32 bits twice for every lane.
VORN_INLINE Pairs twice(Texels t) {
    return {VORN_WIDE(unpacklo_epi32)(t, t), VORN_WIDE(unpackhi_epi32)(t, t)};
}
/// The lower and the upper 32 bits of every lane.
VORN_INLINE FloatRegister lowerHalves(FloatRegister first, FloatRegister other) {
    return VORN_WIDE(shuffle_ps)(first, other, 0x88);
}
VORN_INLINE FloatRegister upperHalves(FloatRegister first, FloatRegister other) {
    return VORN_WIDE(shuffle_ps)(first, other, 0xdd);
}

/// The two pixels of every lane as texels.
VORN_INLINE void splitPairs(Pairs pairs, Texels& left, Texels& right) {
    const FloatRegister first = asFloats(pairs.first), other = asFloats(pairs.other);
    left = bitsAs<Texels>(lowerHalves(first, other));
    right = bitsAs<Texels>(upperHalves(first, other));
}

/// Half-float pixels as lanes.
VORN_INLINE Pixel unpackHalves(Pairs pixels) {
    Texels redGreen, blueAlpha;
    splitPairs(pixels, redGreen, blueAlpha);
#if VORN_LANES == 16
    const auto low = [](Texels t) {
        return Float(bitsAs<FloatBits>(_mm512_cvtph_ps(_mm512_cvtepi32_epi16(t))));
    };
    const auto high = [](Texels t) {
        return Float(
            bitsAs<FloatBits>(_mm512_cvtph_ps(_mm512_cvtepi32_epi16(_mm512_srli_epi32(t, 16)))));
    };
    return {low(redGreen), high(redGreen), low(blueAlpha), high(blueAlpha)};
#else
    const auto both = [](Texels t, Float& low, Float& high) {
        const __m256i halves = _mm256_permute4x64_epi64(
            _mm256_packus_epi32(_mm256_and_si256(t, _mm256_set1_epi32(0xffff)),
                                _mm256_srli_epi32(t, 16)),
            0xd8);
        low = Float(bitsAs<FloatBits>(_mm256_cvtph_ps(_mm256_castsi256_si128(halves))));
        high = Float(bitsAs<FloatBits>(_mm256_cvtph_ps(_mm256_extracti128_si256(halves, 1))));
    };
    Pixel p;
    both(redGreen, p.x, p.y);
    both(blueAlpha, p.z, p.w);
    return p;
#endif
}

/// Texels of every lane side by side, as `gatherPairs` has them.
VORN_INLINE Pairs joinTexels(Texels left, Texels right) {
    return {VORN_WIDE(unpacklo_epi32)(left, right), VORN_WIDE(unpackhi_epi32)(left, right)};
}

/// Packed pixels of two rows, in each the left and the right one, blended by fractions: across in
/// 14-bit weights (which is 0.008 of a step of 8 bits), then upward in floats.
VORN_INLINE Pixel blendPacked(Pairs lower, Pairs upper, ChannelOrder order, Float fx, Float fy) {
    // Weights of the left and the right pixel as 16 bits side by side, as their bytes are below.
    const Int share = toInt(fx * Float(16384.0f) + Float(0.5f));
    const Pairs across = twice(bitsAs<Texels>(((share << 16) - share + Int(16384)).v));
    constexpr float scale = kByteScale / 16384.0f;
    const Float weight = fy * Float(scale);
    const Pairs above = twice(bitsAs<Texels>(weight.v));
    const Pairs below = twice(bitsAs<Texels>((Float(scale) - weight).v));
    // Two channels at a time: of every pair of pixels the bytes {left, right} of one channel and
    // then of the other, widened to 16 bits.
    const auto channels = [&](uint8_t one, uint8_t two, Float& a, Float& b) {
        const int64_t bytes = 0x8004800080048000ll + int64_t(one) * 0x00010001ll +
                              int64_t(two) * 0x0001000100000000ll;
        const Texels places = inEveryBlock(bytes, bytes + 0x0008000800080008ll);
        const auto blend = [&](Texels low, Texels high, Texels weights, Texels wl, Texels wh) {
            const auto row = [&](Texels t) {
                return VORN_WIDE(cvtepi32_ps)(
                    VORN_WIDE(madd_epi16)(VORN_WIDE(shuffle_epi8)(t, places), weights));
            };
            return VORN_WIDE(fmadd_ps)(row(high), asFloats(wh),
                                       VORN_WIDE(mul_ps)(row(low), asFloats(wl)));
        };
        const FloatRegister first =
            blend(lower.first, upper.first, across.first, below.first, above.first);
        const FloatRegister other =
            blend(lower.other, upper.other, across.other, below.other, above.other);
        a = Float(bitsAs<FloatBits>(lowerHalves(first, other)));
        b = Float(bitsAs<FloatBits>(upperHalves(first, other)));
    };
    Pixel p;
    channels(order.r, order.g, p.x, p.y);
    channels(order.b, order.a, p.z, p.w);
    return p;
}

#if VORN_LANES == 16
/// The bilinear blend of half-float pixels for lanes that are nearby: two rows from the first pixel
/// on, of which N + 1 are there. Four pixels are blended in a register, channels side by side, in
/// an order that leaves the lanes in theirs when the channels are taken apart.
VORN_INLINE Pixel blendNearbyHalves(const uint8_t* lower, const uint8_t* upper, Texels places,
                                    Float fx, Float fy) {
    const auto indices = [&](int a, int b) {
        return _mm512_maskz_permutexvar_epi32(0x5555,
                                              _mm512_set_epi32(0, b + 12, 0, b + 8, 0, b + 4, 0, b,
                                                               0, a + 12, 0, a + 8, 0, a + 4, 0, a),
                                              places);
    };
    const __m512i ab = indices(0, 1), cd = indices(2, 3);
    const auto pixels = [](const uint8_t* from, __m512i which, __m512& a, __m512& b) {
        const __m512i eight =
            _mm512_permutex2var_epi64(loadTexels(from), which, loadTexels(from + 64));
        a = _mm512_cvtph_ps(_mm512_castsi512_si256(eight));
        b = _mm512_cvtph_ps(_mm512_extracti64x4_epi64(eight, 1));
    };
    const auto blend = [](__m512 a, __m512 b, __m512 t) {
        return _mm512_fmadd_ps(_mm512_sub_ps(b, a), t, a);
    };
    const auto two = [&](__m512i which, int lane, __m512& a, __m512& b)
        __attribute__((always_inline)) {
        const __m512i fours =
            _mm512_add_epi32(_mm512_set_epi32(12, 12, 12, 12, 8, 8, 8, 8, 4, 4, 4, 4, 0, 0, 0, 0),
                             _mm512_set1_epi32(lane));
        const __m512i next = _mm512_add_epi32(fours, _mm512_set1_epi32(1));
        const __m512 x = bitsAs<__m512>(fx.v), y = bitsAs<__m512>(fy.v);
        const auto row = [&](const uint8_t* from, __m512& p, __m512& q)
            __attribute__((always_inline)) {
            __m512 left[2], right[2];
            pixels(from, which, left[0], left[1]);
            pixels(from + 8, which, right[0], right[1]);
            p = blend(left[0], right[0], _mm512_permutexvar_ps(fours, x));
            q = blend(left[1], right[1], _mm512_permutexvar_ps(next, x));
        };
        __m512 below[2], above[2];
        row(lower, below[0], below[1]);
        row(upper, above[0], above[1]);
        a = blend(below[0], above[0], _mm512_permutexvar_ps(fours, y));
        b = blend(below[1], above[1], _mm512_permutexvar_ps(next, y));
    };
    __m512 a, b, c, d;
    two(ab, 0, a, b);
    two(cd, 2, c, d);
    exchange(a, b, c, d);
    const auto channel = [](__m512 v) { return Float(bitsAs<FloatBits>(v)); };
    return {channel(a), channel(b), channel(c), channel(d)};
}
#endif

#undef VORN_WIDE

/// The same blends at one point for all lanes, with the same roundings: of packed pixels, whose
/// four bytes stand in the four lanes, …
VORN_INLINE __m128 blendOnePacked(__m128i p00, __m128i p10, __m128i p01, __m128i p11, float fx,
                                  float fy) {
    const __m128i right = _mm_set1_epi32(static_cast<int32_t>(fx * 16384.0f + 0.5f));
    const __m128i left = _mm_sub_epi32(_mm_set1_epi32(16384), right);
    constexpr float scale = kByteScale / 16384.0f;
    const float weight = fy * scale;
    const auto row = [&](__m128i a, __m128i b) {
        return _mm_cvtepi32_ps(_mm_add_epi32(_mm_mullo_epi32(a, left), _mm_mullo_epi32(b, right)));
    };
    return _mm_fmadd_ps(row(p01, p11), _mm_set1_ps(weight),
                        _mm_mul_ps(row(p00, p10), _mm_set1_ps(scale - weight)));
}
/// … and of floats.
VORN_INLINE __m128 blendOne(__m128 p00, __m128 p10, __m128 p01, __m128 p11, float fx, float fy) {
    const auto blend = [](__m128 a, __m128 b, float t) {
        return _mm_fmadd_ps(_mm_sub_ps(b, a), _mm_set1_ps(t), a);
    };
    return blend(blend(p00, p10, fx), blend(p01, p11, fx), fy);
}

} // namespace vorn::lanes
#endif
