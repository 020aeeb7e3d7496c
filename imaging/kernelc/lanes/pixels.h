// Reading and writing of neighbouring pixels: N at a time from memory of any layout, as lanes of
// red, green, blue and alpha.
#pragma once

#include "vectors.h"

namespace vorn::lanes {

using namespace vorn::kernelabi;
using Pixel = Vec4<Float>;

/// What is known of memory when a kernel is compiled. Packed: every source and the target hold
/// packed 8-bit pixels. Opaque: packed, and every pixel read at the own place has an alpha of 1, so
/// that the compiler drops all arithmetic on it; most video is like that.
enum class Memory { Packed, Opaque, Any };
constexpr bool isPacked(Memory memory) {
    return memory != Memory::Any;
}

constexpr float kByteScale = 1.0f / 255.0f;

VORN_INLINE constexpr int bytesPerPixel(int layout) {
    return layout == kPacked8 || layout == kPlanar ? 4 : layout == kHalf ? 8 : 16;
}

#if VORN_LANES == 16 && defined(__AVX512BW__)
using Texels = __m512i;
#elif VORN_LANES == 8 && defined(__AVX2__)
using Texels = __m256i;
#elif VORN_LANES == 4 && defined(__SSE4_1__)
using Texels = __m128i;
#else
struct Texels {
    uint32_t v[VORN_LANES];
};
#endif

/// One channel of packed pixels, 0 to 1. `byte` is its place in the pixel.
VORN_INLINE Float scaledChannelOf(Texels t, uint8_t byte) {
#if VORN_LANES == 16 && defined(__AVX512BW__)
    // The byte is converted where it lies, as byte * 256^place, and scaled by that much less: the
    // shuffles it would take to move it are what a light kernel has least room for.
    const __m512i mask = _mm512_set1_epi32(static_cast<int>(0xffu << (8 * byte)));
    const __m512 scale = _mm512_castsi512_ps(
        _mm512_set1_epi32(static_cast<int>(bitsAs<uint32_t>(kByteScale) - (8u << 23) * byte)));
    return Float(
        bitsAs<FloatBits>(_mm512_mul_ps(_mm512_cvtepu32_ps(_mm512_and_si512(t, mask)), scale)));
#elif VORN_LANES == 8 && defined(__AVX2__)
    const __m256i control = _mm256_set1_epi32(static_cast<int>(0xffffff00u | byte));
    const __m256i place = _mm256_add_epi32(
        control, _mm256_set_epi32(12, 8, 4, 0, 12, 8, 4, 0)); // the high bytes stay negative
    const Float value = bitsAs<FloatBits>(_mm256_cvtepi32_ps(_mm256_shuffle_epi8(t, place)));
    return value * Float(kByteScale);
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    const __m128i control = _mm_set1_epi32(static_cast<int>(0xffffff00u | byte));
    const __m128i place = _mm_add_epi32(control, _mm_set_epi32(12, 8, 4, 0));
    const Float value = bitsAs<FloatBits>(_mm_cvtepi32_ps(_mm_shuffle_epi8(t, place)));
    return value * Float(kByteScale);
#else
    float lane[N];
    for (int i = 0; i < N; ++i) lane[i] = static_cast<float>((t.v[i] >> (8 * byte)) & 255);
    Float value;
    std::memcpy(&value, lane, sizeof value);
    return value * Float(kByteScale);
#endif
}

template <Memory memory>
VORN_INLINE Pixel unpack(Texels t, ChannelOrder order) {
    return {scaledChannelOf(t, order.r), scaledChannelOf(t, order.g), scaledChannelOf(t, order.b),
            memory == Memory::Opaque ? Float(1.0f) : scaledChannelOf(t, order.a)};
}

/// Whether the alpha of every pixel is 255.
VORN_INLINE bool areOpaque(Texels t, ChannelOrder order) {
#if VORN_LANES == 16 && defined(__AVX512BW__)
    const __mmask64 places = 0x1111111111111111u << order.a;
    return _mm512_mask_cmpneq_epi8_mask(places, t, _mm512_set1_epi8(-1)) == 0;
#elif VORN_LANES == 8 && defined(__AVX2__)
    return _mm256_testc_si256(t, _mm256_set1_epi32(static_cast<int>(0xffu << (8 * order.a))));
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    return _mm_testc_si128(t, _mm_set1_epi32(static_cast<int>(0xffu << (8 * order.a))));
#else
    for (int i = 0; i < N; ++i)
        if (((t.v[i] >> (8 * order.a)) & 255) != 255) return false;
    return true;
#endif
}

/// Whether the compiler can see that a value is 1 in every lane.
VORN_INLINE bool isKnownToBeOne(Float f) {
#if VORN_LANES == 1
    return __builtin_constant_p(f.v) && f.v == 1.0f;
#else
    bool known = true;
    for (int i = 0; i < N; ++i) known = known && __builtin_constant_p(f.v[i]) && f.v[i] == 1.0f;
    return known;
#endif
}

/// Clamps to 0..1, scales and rounds to nearest (ties to even); not-a-number gives 0.
VORN_INLINE Texels pack(Pixel p, ChannelOrder order) {
#if VORN_LANES == 16 && defined(__AVX512BW__)
    const auto toBytes = [](Float f) {
        if (isKnownToBeOne(f)) return _mm512_set1_epi32(255);
        const __m512 limited = _mm512_min_ps(_mm512_set1_ps(1.0f), bitsAs<__m512>(f.v));
        return _mm512_cvtps_epi32(_mm512_mul_ps(limited, _mm512_set1_ps(255.0f)));
    };
    const __m512i rg = _mm512_packs_epi32(toBytes(p.x), toBytes(p.y));
    const __m512i ba = _mm512_packs_epi32(toBytes(p.z), toBytes(p.w));
    const uint32_t channels = (0u << (8 * order.r)) | (4u << (8 * order.g)) |
                              (8u << (8 * order.b)) | (12u << (8 * order.a));
    const __m512i place = _mm512_add_epi8(
        _mm512_set1_epi32(static_cast<int>(channels)),
        _mm512_broadcast_i32x4(_mm_set_epi32(0x03030303, 0x02020202, 0x01010101, 0)));
    return _mm512_shuffle_epi8(_mm512_packus_epi16(rg, ba), place);
#elif VORN_LANES == 8 && defined(__AVX2__)
    const auto toBytes = [](Float f) {
        if (isKnownToBeOne(f)) return _mm256_set1_epi32(255);
        // The second operand survives when it is not a number; the conversion then makes it the
        // smallest integer, which the packing below clamps to 0, as it does negative values.
        const __m256 limited = _mm256_min_ps(_mm256_set1_ps(1.0f), bitsAs<__m256>(f.v));
        return _mm256_cvtps_epi32(_mm256_mul_ps(limited, _mm256_set1_ps(255.0f)));
    };
    const __m256i rg = _mm256_packs_epi32(toBytes(p.x), toBytes(p.y));
    const __m256i ba = _mm256_packs_epi32(toBytes(p.z), toBytes(p.w));
    const __m256i planes = _mm256_packus_epi16(rg, ba); // r0..3 g0..3 b0..3 a0..3, twice
    // Byte k of a pixel comes from the channel that the order puts there.
    const uint32_t channels = (0u << (8 * order.r)) | (4u << (8 * order.g)) |
                              (8u << (8 * order.b)) | (12u << (8 * order.a));
    const __m256i place = _mm256_add_epi8(_mm256_set1_epi32(static_cast<int>(channels)),
                                          _mm256_set_epi32(0x03030303, 0x02020202, 0x01010101, 0,
                                                           0x03030303, 0x02020202, 0x01010101, 0));
    return _mm256_shuffle_epi8(planes, place);
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    const auto toBytes = [](Float f) {
        if (isKnownToBeOne(f)) return _mm_set1_epi32(255);
        const __m128 limited = _mm_min_ps(_mm_set1_ps(1.0f), bitsAs<__m128>(f.v));
        return _mm_cvtps_epi32(_mm_mul_ps(limited, _mm_set1_ps(255.0f)));
    };
    const __m128i rg = _mm_packs_epi32(toBytes(p.x), toBytes(p.y));
    const __m128i ba = _mm_packs_epi32(toBytes(p.z), toBytes(p.w));
    const __m128i planes = _mm_packus_epi16(rg, ba);
    const uint32_t channels = (0u << (8 * order.r)) | (4u << (8 * order.g)) |
                              (8u << (8 * order.b)) | (12u << (8 * order.a));
    const __m128i place = _mm_add_epi8(_mm_set1_epi32(static_cast<int>(channels)),
                                       _mm_set_epi32(0x03030303, 0x02020202, 0x01010101, 0));
    return _mm_shuffle_epi8(planes, place);
#else
    const auto toByte = [](float f) -> uint32_t {
        if (!(f > 0)) return 0;
        return static_cast<uint32_t>(std::nearbyint(std::fmin(f, 1.0f) * 255.0f));
    };
    float lanes[4][N];
    std::memcpy(lanes[0], &p.x, sizeof lanes[0]);
    std::memcpy(lanes[1], &p.y, sizeof lanes[1]);
    std::memcpy(lanes[2], &p.z, sizeof lanes[2]);
    std::memcpy(lanes[3], &p.w, sizeof lanes[3]);
    Texels t;
    for (int i = 0; i < N; ++i)
        t.v[i] = toByte(lanes[0][i]) << (8 * order.r) | toByte(lanes[1][i]) << (8 * order.g) |
                 toByte(lanes[2][i]) << (8 * order.b) | toByte(lanes[3][i]) << (8 * order.a);
    return t;
#endif
}

/// The same pixels with their channels in another order.
VORN_INLINE Texels reordered(Texels t, ChannelOrder from, ChannelOrder to) {
    const uint32_t bytes =
        static_cast<uint32_t>(from.r) << (8 * to.r) | static_cast<uint32_t>(from.g) << (8 * to.g) |
        static_cast<uint32_t>(from.b) << (8 * to.b) | static_cast<uint32_t>(from.a) << (8 * to.a);
#if VORN_LANES == 16 && defined(__AVX512BW__)
    return _mm512_shuffle_epi8(t, _mm512_add_epi8(_mm512_set1_epi32(static_cast<int>(bytes)),
                                                  _mm512_broadcast_i32x4(_mm_set_epi32(
                                                      0x0c0c0c0c, 0x08080808, 0x04040404, 0))));
#elif VORN_LANES == 8 && defined(__AVX2__)
    return _mm256_shuffle_epi8(
        t, _mm256_add_epi8(_mm256_set1_epi32(static_cast<int>(bytes)),
                           _mm256_set_epi32(0x0c0c0c0c, 0x08080808, 0x04040404, 0, 0x0c0c0c0c,
                                            0x08080808, 0x04040404, 0)));
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    return _mm_shuffle_epi8(t, _mm_add_epi8(_mm_set1_epi32(static_cast<int>(bytes)),
                                            _mm_set_epi32(0x0c0c0c0c, 0x08080808, 0x04040404, 0)));
#else
    for (int i = 0; i < N; ++i) {
        uint32_t texel = 0;
        for (int byte = 0; byte < 32; byte += 8)
            texel |= (t.v[i] >> (8 * ((bytes >> byte) & 3)) & 255) << byte;
        t.v[i] = texel;
    }
    return t;
#endif
}

VORN_INLINE Texels loadTexels(const uint8_t* from) {
    Texels t;
    std::memcpy(&t, from, sizeof t);
    return t;
}

/// The lanes from the last to the first.
VORN_INLINE Texels reversed(Texels t) {
#if VORN_LANES == 16
    return _mm512_permutexvar_epi32(
        _mm512_set_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15), t);
#elif VORN_LANES == 8
    return _mm256_permutevar8x32_epi32(t, _mm256_set_epi32(0, 1, 2, 3, 4, 5, 6, 7));
#else
    int32_t lanes[N], back[N];
    std::memcpy(lanes, &t, sizeof lanes);
    for (int i = 0; i < N; ++i) back[i] = lanes[N - 1 - i];
    std::memcpy(&t, back, sizeof t);
    return t;
#endif
}
VORN_INLINE Float reversed(Float f) {
    return Float(bitsAs<FloatBits>(reversed(bitsAs<Texels>(f.v))));
}

// ---- 16-bit floats -----------------------------------------------------------------------------

/// The half in the low 16 bits of each lane, as a float.
VORN_INLINE Float halfToFloat(Uint h) {
    // Shift exponent and mantissa into place; the multiplication rebiases the exponent and makes
    // subnormal halves normal. Infinities and NaN need their exponent filled up.
    const Uint magnitude = h & Uint(0x7fffu);
    const Float scaled = uintBitsToFloat(magnitude << 13) * uintBitsToFloat(Uint(0x77800000u));
    const Mask special = magnitude >= Uint(0x7c00u);
    const Uint bits = floatBitsToUint(scaled) | pick(special, Uint(0x7f800000u), Uint(0u));
    return uintBitsToFloat(bits | ((h & Uint(0x8000u)) << 16));
}

/// The nearest half (ties to even) in the low 16 bits of each lane; too large becomes infinity.
VORN_INLINE Uint floatToHalf(Float f) {
    const Uint bits = floatBitsToUint(f);
    const Uint magnitude = bits & Uint(0x7fffffffu);
    const Uint sign = (bits >> 16) & Uint(0x8000u);
    const Uint odd = (magnitude >> 13) & Uint(1u);
    const Uint normal = (magnitude - Uint(0x38000000u) + Uint(0xfffu) + odd) >> 13;
    // Below the smallest normal half, adding 0.5 rounds the bits into place.
    const Uint small =
        floatBitsToUint(uintBitsToFloat(magnitude) + Float(0.5f)) - Uint(0x3f000000u);
    Uint h = pick(magnitude < Uint(0x38800000u), small, normal);
    h = pick(magnitude >= Uint(0x47800000u), Uint(0x7c00u), h);
    h = pick(magnitude > Uint(0x7f800000u), Uint(0x7e00u), h);
    return h | sign;
}

// ---- Interleaved floats ------------------------------------------------------------------------

#if VORN_LANES >= 8 && defined(__AVX2__) && defined(__F16C__)
/// Eight pixels as four registers: interleaved, two pixels in each as {0,4} {1,5} {2,6} {3,7}, or
/// one register a channel. The exchange is its own inverse.
struct Eight {
    __m256 a, b, c, d;

    VORN_INLINE Eight exchanged() const {
        const __m256 t0 = _mm256_unpacklo_ps(a, b), t1 = _mm256_unpackhi_ps(a, b);
        const __m256 t2 = _mm256_unpacklo_ps(c, d), t3 = _mm256_unpackhi_ps(c, d);
        return {_mm256_shuffle_ps(t0, t2, 0x44), _mm256_shuffle_ps(t0, t2, 0xee),
                _mm256_shuffle_ps(t1, t3, 0x44), _mm256_shuffle_ps(t1, t3, 0xee)};
    }
};

VORN_INLINE Eight loadEightFloats(const uint8_t* from) {
    const float* f = reinterpret_cast<const float*>(from);
    const auto two = [f](int i) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(f + 4 * i)),
                                    _mm_loadu_ps(f + 4 * i + 16), 1);
    };
    return Eight{two(0), two(1), two(2), two(3)}.exchanged();
}

VORN_INLINE void storeEightFloats(uint8_t* to, Eight channels) {
    const Eight pixels = channels.exchanged();
    float* f = reinterpret_cast<float*>(to);
    const auto two = [f](int i, __m256 v) {
        _mm_storeu_ps(f + 4 * i, _mm256_castps256_ps128(v));
        _mm_storeu_ps(f + 4 * i + 16, _mm256_extractf128_ps(v, 1));
    };
    two(0, pixels.a), two(1, pixels.b), two(2, pixels.c), two(3, pixels.d);
}

#if VORN_LANES == 8
VORN_INLINE Eight loadEightHalves(const uint8_t* from) {
    const auto two = [from](int i) {
        return _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from) + i));
    };
    const __m256 p01 = two(0), p23 = two(1), p45 = two(2), p67 = two(3);
    return Eight{_mm256_permute2f128_ps(p01, p45, 0x20), _mm256_permute2f128_ps(p01, p45, 0x31),
                 _mm256_permute2f128_ps(p23, p67, 0x20), _mm256_permute2f128_ps(p23, p67, 0x31)}
        .exchanged();
}

VORN_INLINE void storeEightHalves(uint8_t* to, Eight channels) {
    const Eight p = channels.exchanged();
    const auto two = [to](int i, __m256 v) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to) + i,
                         _mm256_cvtps_ph(v, _MM_FROUND_TO_NEAREST_INT));
    };
    two(0, _mm256_permute2f128_ps(p.a, p.b, 0x20)), two(1, _mm256_permute2f128_ps(p.c, p.d, 0x20));
    two(2, _mm256_permute2f128_ps(p.a, p.b, 0x31)), two(3, _mm256_permute2f128_ps(p.c, p.d, 0x31));
}

VORN_INLINE Pixel fromEights(Eight e) {
    return {Float(bitsAs<FloatBits>(e.a)), Float(bitsAs<FloatBits>(e.b)),
            Float(bitsAs<FloatBits>(e.c)), Float(bitsAs<FloatBits>(e.d))};
}
VORN_INLINE Eight toEight(Pixel p) {
    return {bitsAs<__m256>(p.x.v), bitsAs<__m256>(p.y.v), bitsAs<__m256>(p.z.v),
            bitsAs<__m256>(p.w.v)};
}
VORN_INLINE Pixel loadFloats(const uint8_t* from) {
    return fromEights(loadEightFloats(from));
}
VORN_INLINE Pixel loadHalves(const uint8_t* from) {
    return fromEights(loadEightHalves(from));
}
VORN_INLINE void storeFloats(uint8_t* to, Pixel p) {
    storeEightFloats(to, toEight(p));
}
VORN_INLINE void storeHalves(uint8_t* to, Pixel p) {
    storeEightHalves(to, toEight(p));
}
#else
VORN_INLINE Pixel fromEights(Eight low, Eight high) {
    const auto both = [](__m256 l, __m256 h) {
        return Float(bitsAs<FloatBits>(_mm512_insertf32x8(_mm512_castps256_ps512(l), h, 1)));
    };
    return {both(low.a, high.a), both(low.b, high.b), both(low.c, high.c), both(low.d, high.d)};
}
template <int half>
VORN_INLINE Eight toEight(Pixel p) {
    const auto part = [](Float f) { return _mm512_extractf32x8_ps(bitsAs<__m512>(f.v), half); };
    return {part(p.x), part(p.y), part(p.z), part(p.w)};
}
VORN_INLINE Pixel loadFloats(const uint8_t* from) {
    return fromEights(loadEightFloats(from), loadEightFloats(from + 8 * 16));
}
VORN_INLINE void storeFloats(uint8_t* to, Pixel p) {
    storeEightFloats(to, toEight<0>(p));
    storeEightFloats(to + 8 * 16, toEight<1>(p));
}

/// Sixteen pixels as four registers: interleaved, four pixels in each as {0,4,8,12}, {1,5,9,13}, …,
/// or one register a channel, either way round.
VORN_INLINE void exchange(__m512& a, __m512& b, __m512& c, __m512& d) {
    const __m512 t0 = _mm512_unpacklo_ps(a, b), t1 = _mm512_unpackhi_ps(a, b);
    const __m512 t2 = _mm512_unpacklo_ps(c, d), t3 = _mm512_unpackhi_ps(c, d);
    a = _mm512_shuffle_ps(t0, t2, 0x44), b = _mm512_shuffle_ps(t0, t2, 0xee);
    c = _mm512_shuffle_ps(t1, t3, 0x44), d = _mm512_shuffle_ps(t1, t3, 0xee);
}
VORN_INLINE Pixel loadHalves(const uint8_t* from) {
    const __m512i low = _mm512_loadu_si512(from), high = _mm512_loadu_si512(from + 64);
    const auto eight = [&](int i) {
        return _mm512_permutex2var_epi64(
            low, _mm512_set_epi64(i + 13, i + 9, i + 5, i + 1, i + 12, i + 8, i + 4, i), high);
    };
    const auto four = [](__m256i halves) { return _mm512_cvtph_ps(halves); };
    const __m512i ab = eight(0), cd = eight(2);
    __m512 a = four(_mm512_castsi512_si256(ab)), b = four(_mm512_extracti64x4_epi64(ab, 1));
    __m512 c = four(_mm512_castsi512_si256(cd)), d = four(_mm512_extracti64x4_epi64(cd, 1));
    exchange(a, b, c, d);
    const auto channel = [](__m512 v) { return Float(bitsAs<FloatBits>(v)); };
    return {channel(a), channel(b), channel(c), channel(d)};
}
VORN_INLINE void storeHalves(uint8_t* to, Pixel p) {
    __m512 a = bitsAs<__m512>(p.x.v), b = bitsAs<__m512>(p.y.v);
    __m512 c = bitsAs<__m512>(p.z.v), d = bitsAs<__m512>(p.w.v);
    exchange(a, b, c, d);
    const auto eight = [](__m512 one, __m512 other) {
        return _mm512_inserti64x4(
            _mm512_castsi256_si512(_mm512_cvtps_ph(one, _MM_FROUND_TO_NEAREST_INT)),
            _mm512_cvtps_ph(other, _MM_FROUND_TO_NEAREST_INT), 1);
    };
    const __m512i ab = eight(a, b), cd = eight(c, d);
    const auto inOrder = [&](int i) {
        return _mm512_permutex2var_epi64(
            ab, _mm512_set_epi64(i + 13, i + 9, i + 5, i + 1, i + 12, i + 8, i + 4, i), cd);
    };
    _mm512_storeu_si512(to, inOrder(0));
    _mm512_storeu_si512(to + 64, inOrder(2));
}
#endif

#else // any processor, with the compiler's own vectors

VORN_INLINE Pixel loadFloats(const uint8_t* from) {
    float in[4 * N], out[4][N];
    std::memcpy(in, from, sizeof in);
    for (int i = 0; i < N; ++i)
        for (int c = 0; c < 4; ++c) out[c][i] = in[4 * i + c];
    Pixel p;
    std::memcpy(&p, out, sizeof p);
    return p;
}

VORN_INLINE void storeFloats(uint8_t* to, Pixel p) {
    float in[4][N], out[4 * N];
    std::memcpy(in, &p, sizeof in);
    for (int i = 0; i < N; ++i)
        for (int c = 0; c < 4; ++c) out[4 * i + c] = in[c][i];
    std::memcpy(to, out, sizeof out);
}

VORN_INLINE Pixel loadHalves(const uint8_t* from) {
    uint16_t in[4 * N];
    uint32_t out[4][N];
    std::memcpy(in, from, sizeof in);
    for (int i = 0; i < N; ++i)
        for (int c = 0; c < 4; ++c) out[c][i] = in[4 * i + c];
    Uint channels[4];
    std::memcpy(channels, out, sizeof channels);
    return {halfToFloat(channels[0]), halfToFloat(channels[1]), halfToFloat(channels[2]),
            halfToFloat(channels[3])};
}

VORN_INLINE void storeHalves(uint8_t* to, Pixel p) {
    const Uint channels[4] = {floatToHalf(p.x), floatToHalf(p.y), floatToHalf(p.z),
                              floatToHalf(p.w)};
    uint32_t in[4][N];
    uint16_t out[4 * N];
    std::memcpy(in, channels, sizeof in);
    for (int i = 0; i < N; ++i)
        for (int c = 0; c < 4; ++c) out[4 * i + c] = static_cast<uint16_t>(in[c][i]);
    std::memcpy(to, out, sizeof out);
}
#endif

VORN_INLINE Float loadPlane(const uint8_t* from) {
    Float f;
    std::memcpy(&f, from, sizeof f);
    return f;
}

// ---- Groups ------------------------------------------------------------------------------------

#if VORN_LANES == 8 && defined(__AVX2__)
VORN_INLINE __m256i firstLanes(int count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_set_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}
#endif

/// Packed pixels of which only `count` are there to be read; the others are 0. Where the processor
/// can, no memory is called to help: a call in the loop over the pixels would cost all of it
/// registers, and the compiler time.
VORN_INLINE Texels loadTexels(const uint8_t* from, int count) {
    if (count >= N) [[likely]]
        return loadTexels(from);
#if VORN_LANES == 16 && defined(__AVX512BW__)
    return _mm512_maskz_loadu_epi32(static_cast<__mmask16>((1u << count) - 1), from);
#elif VORN_LANES == 8 && defined(__AVX2__)
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(from), firstLanes(count));
#else
    uint32_t texels[N] = {};
    for (int i = 0; i < count; ++i) std::memcpy(&texels[i], from + 4 * i, 4);
    Texels t;
    std::memcpy(&t, texels, sizeof t);
    return t;
#endif
}
VORN_INLINE void storeTexels(uint8_t* to, Texels t, int count) {
    if (count >= N) [[likely]] {
        std::memcpy(to, &t, sizeof t);
        return;
    }
#if VORN_LANES == 16 && defined(__AVX512BW__)
    _mm512_mask_storeu_epi32(to, static_cast<__mmask16>((1u << count) - 1), t);
#elif VORN_LANES == 8 && defined(__AVX2__)
    _mm256_maskstore_epi32(reinterpret_cast<int*>(to), firstLanes(count), t);
#else
    uint32_t texels[N];
    std::memcpy(texels, &t, sizeof t);
    for (int i = 0; i < count; ++i) std::memcpy(to + 4 * i, &texels[i], 4);
#endif
}

/// N pixels from `from`, all of them there, of memory that is no scratch memory.
template <Memory memory>
VORN_INLINE Pixel loadGroup(const SourceView& view, const uint8_t* from) {
    if (isPacked(memory) || view.layout == kPacked8)
        return unpack<memory>(loadTexels(from), view.order);
    return view.layout == kHalf ? loadHalves(from) : loadFloats(from);
}

/// The planes of N pixels.
VORN_INLINE Pixel loadPlanes(const uint8_t* from, int64_t planeBytes) {
    return {loadPlane(from), loadPlane(from + planeBytes), loadPlane(from + 2 * planeBytes),
            loadPlane(from + 3 * planeBytes)};
}
VORN_INLINE void storePlanes(uint8_t* to, int64_t planeBytes, Pixel p) {
    std::memcpy(to, &p.x, sizeof p.x);
    std::memcpy(to + planeBytes, &p.y, sizeof p.y);
    std::memcpy(to + 2 * planeBytes, &p.z, sizeof p.z);
    std::memcpy(to + 3 * planeBytes, &p.w, sizeof p.w);
}

// ---- Rows of floats ----------------------------------------------------------------------------

// A kernel that takes memory of any layout computes rows of floats in planes: what it reads at the
// own place is brought into them before, and what it gives from them after, by functions that all
// kernels share. In the kernels themselves every read and every store would have to choose between
// four layouts.

constexpr int kRowPixels = 256; ///< of a row at a time: planes that stay in the nearest cache

/// Pixels from x on; there are whole groups of them.
struct FloatRow {
    const uint8_t* bytes;
    int64_t planeBytes;
    int x;
};
inline constexpr FloatRow kNoRow{};

/// Room for such a row, which packed memory does not need.
template <Memory memory>
struct RowRoom {
    static constexpr int64_t kPlaneBytes = kRowPixels * 4;
    alignas(64) uint8_t bytes[4 * kPlaneBytes];
};
template <>
struct RowRoom<Memory::Packed> {
    uint8_t* bytes = nullptr;
};

/// N pixels from `from` of any layout, of which only `count` are there to be read; the others are
/// 0. This and the next one are for functions that kernels share.
VORN_INLINE Pixel loadSome(const SourceView& view, const uint8_t* from, int count) {
    if (view.layout == kPlanar) {
        float planes[4][N] = {};
        for (int plane = 0; plane < 4; ++plane)
            std::memcpy(planes[plane], from + plane * view.planeBytes, size_t(count) * 4);
        Pixel p;
        std::memcpy(&p, planes, sizeof p);
        return p;
    }
    alignas(64) uint8_t partial[16 * N];
    if (count < N) {
        std::memset(partial, 0, sizeof partial);
        std::memcpy(partial, from, size_t(count) * size_t(bytesPerPixel(view.layout)));
        from = partial;
    }
    return loadGroup<Memory::Any>(view, from);
}

VORN_INLINE void storeSome(const TargetView& view, uint8_t* to, Pixel p, int count) {
    if (view.layout == kPlanar) {
        float planes[4][N];
        std::memcpy(planes, &p, sizeof p);
        for (int plane = 0; plane < 4; ++plane)
            std::memcpy(to + plane * view.planeBytes, planes[plane], size_t(count) * 4);
        return;
    }
    alignas(64) uint8_t partial[16 * N];
    uint8_t* out = count < N ? partial : to;
    if (view.layout == kPacked8) {
        const Texels t = pack(p, view.order);
        std::memcpy(out, &t, sizeof t);
    } else if (view.layout == kHalf) {
        storeHalves(out, p);
    } else {
        storeFloats(out, p);
    }
    if (count < N) std::memcpy(to, partial, size_t(count) * size_t(bytesPerPixel(view.layout)));
}

/// `count` pixels of a source from (x, y) on, which are there, as floats.
template <Memory memory>
__attribute__((noinline)) FloatRow rowOf(SourceView view, int x, int y, int count, uint8_t* room) {
    const int64_t row = view.y0 + view.height - 1 - y;
    const int bytes = bytesPerPixel(view.layout);
    const uint8_t* from =
        view.bytes + row * view.rowBytes + static_cast<int64_t>(x - view.x0) * bytes;
    if (view.layout == kPlanar && count % N == 0) return {from, view.planeBytes, x};
    const auto convert = [&](auto&& load) __attribute__((always_inline)) {
        int i = 0;
        for (; i + N <= count; i += N)
            storePlanes(room + 4 * i, RowRoom<memory>::kPlaneBytes, load(from + i * bytes));
        if (i < count)
            storePlanes(room + 4 * i, RowRoom<memory>::kPlaneBytes,
                        loadSome(view, from + i * bytes, count - i));
    };
    if (view.layout == kPacked8)
        convert([&](const uint8_t* at) { return unpack<memory>(loadTexels(at), view.order); });
    else if (view.layout == kHalf)
        convert([](const uint8_t* at) { return loadHalves(at); });
    else if (view.layout == kFloat)
        convert([](const uint8_t* at) { return loadFloats(at); });
    else
        convert([&](const uint8_t* at) { return loadPlanes(at, view.planeBytes); });
    return {room, RowRoom<memory>::kPlaneBytes, x};
}

/// Stores `count` pixels of a row of floats.
template <Memory memory>
__attribute__((noinline)) void storeRow(TargetView view, uint8_t* to, int count,
                                        const uint8_t* room) {
    const int layout = view.layout;
    if (layout == kPlanar) {
        for (int plane = 0; plane < 4; ++plane)
            std::memcpy(to + plane * view.planeBytes, room + plane * RowRoom<memory>::kPlaneBytes,
                        static_cast<size_t>(count) * 4);
        return;
    }
    const auto convert = [&](int bytes, auto&& store) __attribute__((always_inline)) {
        int i = 0;
        for (; i + N <= count; i += N)
            store(to + i * bytes, loadPlanes(room + 4 * i, RowRoom<memory>::kPlaneBytes));
        if (i < count)
            storeSome(view, to + i * bytes, loadPlanes(room + 4 * i, RowRoom<memory>::kPlaneBytes),
                      count - i);
    };
    if (layout == kPacked8)
        convert(4, [&](uint8_t* at, Pixel p) {
            const Texels t = pack(p, view.order);
            std::memcpy(at, &t, sizeof t);
        });
    else if (layout == kHalf)
        convert(8, [](uint8_t* at, Pixel p) { storeHalves(at, p); });
    else
        convert(16, [](uint8_t* at, Pixel p) { storeFloats(at, p); });
}

} // namespace vorn::lanes
