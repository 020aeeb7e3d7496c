// Lane types: the meaning of `float`, `int` and `uint` in a kernel on the CPU. A lane type holds
// one value for each of VORN_LANES neighbouring pixels. A comparison gives a Mask, which does not
// convert to bool, so a per-pixel value cannot steer an `if` or a loop. With VORN_LANES 1 the same
// code is the one-pixel-at-a-time reference.
#pragma once

#include "../abi.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__x86_64__) && VORN_LANES > 1
#include <immintrin.h>
#endif

#define VORN_INLINE inline __attribute__((always_inline))

namespace vorn::lanes {

constexpr int N = VORN_LANES;

#if VORN_LANES == 1
using FloatBits = float;
using IntBits = int32_t;
using UintBits = uint32_t;
#else
typedef float FloatBits __attribute__((vector_size(4 * VORN_LANES)));
typedef int32_t IntBits __attribute__((vector_size(4 * VORN_LANES)));
typedef uint32_t UintBits __attribute__((vector_size(4 * VORN_LANES)));
#endif

template <class To, class From>
VORN_INLINE To bitsAs(From from) {
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

template <class Bits, class Scalar>
VORN_INLINE Bits broadcast(Scalar value) {
#if VORN_LANES == 1
    return value;
#else
    return Bits{} + value;
#endif
}

struct Int;
struct Uint;

// One bit for each lane in a mask register, or a vector that is all ones or all zeros in each.
#if VORN_LANES == 16 && defined(__AVX512DQ__)
#define VORN_HAS_MASK_REGISTERS
using MaskBits = __mmask16;
#else
using MaskBits = IntBits;
#endif
struct Mask {
    MaskBits v;
};

struct Float {
    FloatBits v;
    Float() = default;
    VORN_INLINE Float(FloatBits bits) : v(bits) {}
#if VORN_LANES > 1
    // No `Bits{} + value` here: adding to zero would lose the sign of -0.
    VORN_INLINE Float(float value) : v(value - FloatBits{}) {}
#endif
    VORN_INLINE Float(int value) : Float(static_cast<float>(value)) {}
};

struct Int {
    IntBits v;
    Int() = default;
    VORN_INLINE Int(IntBits bits) : v(bits) {}
#if VORN_LANES > 1
    VORN_INLINE Int(int32_t value) : v(broadcast<IntBits>(value)) {}
#endif
};

struct Uint {
    UintBits v;
    Uint() = default;
    VORN_INLINE Uint(UintBits bits) : v(bits) {}
#if VORN_LANES > 1
    VORN_INLINE Uint(uint32_t value) : v(broadcast<UintBits>(value)) {}
#endif
    VORN_INLINE Uint(int32_t value) : Uint(static_cast<uint32_t>(value)) {}
};

#define VORN_OPERATOR(Type, op)                                                                    \
    VORN_INLINE Type operator op(Type a, Type b) {                                                 \
        return Type(a.v op b.v);                                                                   \
    }                                                                                              \
    VORN_INLINE Type& operator op##=(Type& a, Type b) {                                            \
        return a = a op b;                                                                         \
    }
VORN_OPERATOR(Float, +)
VORN_OPERATOR(Float, -)
VORN_OPERATOR(Float, *)
VORN_OPERATOR(Float, /)
VORN_OPERATOR(Int, +)
VORN_OPERATOR(Int, -)
VORN_OPERATOR(Int, *)
VORN_OPERATOR(Int, &)
VORN_OPERATOR(Int, |)
VORN_OPERATOR(Int, ^)
VORN_OPERATOR(Uint, +)
VORN_OPERATOR(Uint, -)
VORN_OPERATOR(Uint, *)
VORN_OPERATOR(Uint, &)
VORN_OPERATOR(Uint, |)
VORN_OPERATOR(Uint, ^)
#undef VORN_OPERATOR
VORN_INLINE Float operator-(Float a) {
    return Float(-a.v);
}
VORN_INLINE Int operator-(Int a) {
    return Int(-a.v);
}
VORN_INLINE Uint operator~(Uint a) {
    return Uint(~a.v);
}
VORN_INLINE Int operator~(Int a) {
    return Int(~a.v);
}
VORN_INLINE Int operator<<(Int a, int n) {
    return Int(a.v << n);
}
VORN_INLINE Int operator>>(Int a, int n) {
    return Int(a.v >> n);
}
VORN_INLINE Uint operator<<(Uint a, int n) {
    return Uint(a.v << n);
}
VORN_INLINE Uint operator>>(Uint a, int n) {
    return Uint(a.v >> n);
}
VORN_INLINE Uint& operator^=(Uint& a, int b) {
    return a = a ^ Uint(b);
}

#ifdef VORN_HAS_MASK_REGISTERS
#define VORN_COMPARE(op, name, predicate)                                                          \
    VORN_INLINE Mask operator op(Float a, Float b) {                                               \
        return {_mm512_cmp_ps_mask(bitsAs<__m512>(a.v), bitsAs<__m512>(b.v), predicate)};          \
    }                                                                                              \
    VORN_INLINE Mask operator op(Int a, Int b) {                                                   \
        return {_mm512_##name##_epi32_mask(bitsAs<__m512i>(a.v), bitsAs<__m512i>(b.v))};           \
    }                                                                                              \
    VORN_INLINE Mask operator op(Uint a, Uint b) {                                                 \
        return {_mm512_##name##_epu32_mask(bitsAs<__m512i>(a.v), bitsAs<__m512i>(b.v))};           \
    }
#else
#if VORN_LANES == 1
#define VORN_MASK(condition) -static_cast<int32_t>(condition)
#else
#define VORN_MASK(condition) (IntBits)(condition)
#endif
#define VORN_COMPARE_TYPE(Type, op)                                                                \
    VORN_INLINE Mask operator op(Type a, Type b) {                                                 \
        return {VORN_MASK(a.v op b.v)};                                                            \
    }
#define VORN_COMPARE(op, name, predicate)                                                          \
    VORN_COMPARE_TYPE(Float, op) VORN_COMPARE_TYPE(Int, op) VORN_COMPARE_TYPE(Uint, op)
#endif
VORN_COMPARE(<, cmplt, _CMP_LT_OQ)
VORN_COMPARE(>, cmpgt, _CMP_GT_OQ)
VORN_COMPARE(<=, cmple, _CMP_LE_OQ)
VORN_COMPARE(>=, cmpge, _CMP_GE_OQ)
VORN_COMPARE(==, cmpeq, _CMP_EQ_OQ)
VORN_COMPARE(!=, cmpneq, _CMP_NEQ_UQ)
#undef VORN_COMPARE
#undef VORN_COMPARE_TYPE
#undef VORN_MASK
VORN_INLINE Mask operator&&(Mask a, Mask b) {
    return {static_cast<MaskBits>(a.v & b.v)};
}
VORN_INLINE Mask operator||(Mask a, Mask b) {
    return {static_cast<MaskBits>(a.v | b.v)};
}
VORN_INLINE Mask operator!(Mask a) {
    return {static_cast<MaskBits>(~a.v)};
}

/// The lanes of a mask as bits, the first one lowest.
VORN_INLINE uint32_t bitsOf(Mask m) {
#ifdef VORN_HAS_MASK_REGISTERS
    return m.v;
#elif VORN_LANES == 8 && defined(__AVX__)
    return static_cast<uint32_t>(_mm256_movemask_ps(bitsAs<__m256>(m.v)));
#elif VORN_LANES == 4 && defined(__SSE__)
    return static_cast<uint32_t>(_mm_movemask_ps(bitsAs<__m128>(m.v)));
#elif VORN_LANES == 1
    return m.v != 0;
#else
    uint32_t bits = 0;
    for (int i = 0; i < N; ++i) bits |= static_cast<uint32_t>(m.v[i] != 0) << i;
    return bits;
#endif
}

/// True when every lane of a mask is set: a shortcut for the lane layer itself, never for kernels.
VORN_INLINE bool allLanes(Mask m) {
#ifdef VORN_HAS_MASK_REGISTERS
    return _mm512_kortestc(m.v, m.v);
#elif VORN_LANES == 8 && defined(__AVX__)
    return _mm256_movemask_ps(bitsAs<__m256>(m.v)) == 0xff;
#elif VORN_LANES == 4 && defined(__SSE__)
    return _mm_movemask_ps(bitsAs<__m128>(m.v)) == 0xf;
#elif VORN_LANES == 1
    return m.v != 0;
#else
    for (int i = 0; i < N; ++i)
        if (!m.v[i]) return false;
    return true;
#endif
}

template <class T>
VORN_INLINE T pick(Mask m, T a, T b) {
#ifdef VORN_HAS_MASK_REGISTERS
    return T(
        bitsAs<decltype(a.v)>(_mm512_mask_blend_ps(m.v, bitsAs<__m512>(b.v), bitsAs<__m512>(a.v))));
#elif VORN_LANES == 8 && defined(__AVX__)
    return T(bitsAs<decltype(a.v)>(
        _mm256_blendv_ps(bitsAs<__m256>(b.v), bitsAs<__m256>(a.v), bitsAs<__m256>(m.v))));
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    return T(bitsAs<decltype(a.v)>(
        _mm_blendv_ps(bitsAs<__m128>(b.v), bitsAs<__m128>(a.v), bitsAs<__m128>(m.v))));
#else
    return T(m.v ? a.v : b.v);
#endif
}

// ---- Single operations: each for a lane value and for a value that all pixels share -------------

// When either operand is not a number, the second one is the result (as on x86).
VORN_INLINE Float min1(Float a, Float b) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Float(bitsAs<FloatBits>(_mm512_min_ps(bitsAs<__m512>(a.v), bitsAs<__m512>(b.v))));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Float(bitsAs<FloatBits>(_mm256_min_ps(bitsAs<__m256>(a.v), bitsAs<__m256>(b.v))));
#elif VORN_LANES == 4 && defined(__SSE__)
    return Float(bitsAs<FloatBits>(_mm_min_ps(bitsAs<__m128>(a.v), bitsAs<__m128>(b.v))));
#else
    return Float(a.v < b.v ? a.v : b.v);
#endif
}
VORN_INLINE Float max1(Float a, Float b) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Float(bitsAs<FloatBits>(_mm512_max_ps(bitsAs<__m512>(a.v), bitsAs<__m512>(b.v))));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Float(bitsAs<FloatBits>(_mm256_max_ps(bitsAs<__m256>(a.v), bitsAs<__m256>(b.v))));
#elif VORN_LANES == 4 && defined(__SSE__)
    return Float(bitsAs<FloatBits>(_mm_max_ps(bitsAs<__m128>(a.v), bitsAs<__m128>(b.v))));
#else
    return Float(a.v > b.v ? a.v : b.v);
#endif
}
VORN_INLINE Float floor1(Float a) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Float(bitsAs<FloatBits>(
        _mm512_roundscale_ps(bitsAs<__m512>(a.v), _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC)));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Float(bitsAs<FloatBits>(_mm256_floor_ps(bitsAs<__m256>(a.v))));
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    return Float(bitsAs<FloatBits>(_mm_floor_ps(bitsAs<__m128>(a.v))));
#elif VORN_LANES == 1
    return Float(std::floor(a.v));
#else
    for (int i = 0; i < N; ++i) a.v[i] = std::floor(a.v[i]);
    return a;
#endif
}
/// To the nearest whole number, halves to the even one.
VORN_INLINE Float round1(Float a) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Float(bitsAs<FloatBits>(
        _mm512_roundscale_ps(bitsAs<__m512>(a.v), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Float(bitsAs<FloatBits>(
        _mm256_round_ps(bitsAs<__m256>(a.v), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)));
#elif VORN_LANES == 4 && defined(__SSE4_1__)
    return Float(bitsAs<FloatBits>(
        _mm_round_ps(bitsAs<__m128>(a.v), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC)));
#elif VORN_LANES == 1
    return Float(std::nearbyint(a.v));
#else
    for (int i = 0; i < N; ++i) a.v[i] = std::nearbyint(a.v[i]);
    return a;
#endif
}
VORN_INLINE Float sqrt1(Float a) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Float(bitsAs<FloatBits>(_mm512_sqrt_ps(bitsAs<__m512>(a.v))));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Float(bitsAs<FloatBits>(_mm256_sqrt_ps(bitsAs<__m256>(a.v))));
#elif VORN_LANES == 4 && defined(__SSE__)
    return Float(bitsAs<FloatBits>(_mm_sqrt_ps(bitsAs<__m128>(a.v))));
#elif VORN_LANES == 1
    return Float(std::sqrt(a.v));
#else
    for (int i = 0; i < N; ++i) a.v[i] = std::sqrt(a.v[i]);
    return a;
#endif
}
VORN_INLINE Float abs1(Float a) {
    return Float(bitsAs<FloatBits>(bitsAs<IntBits>(a.v) & 0x7fffffff));
}
VORN_INLINE Float withSignOf(Float magnitude, Float sign) {
    return Float(bitsAs<FloatBits>((bitsAs<IntBits>(magnitude.v) & 0x7fffffff) |
                                   (bitsAs<IntBits>(sign.v) & static_cast<int32_t>(0x80000000u))));
}

VORN_INLINE Float toFloat(Int a) {
#if VORN_LANES == 1
    return Float(static_cast<float>(a.v));
#else
    return Float(__builtin_convertvector(a.v, FloatBits));
#endif
}
/// Unsigned values up to 2^31 - 1 convert exactly as signed ones; kernels mask or shift first.
VORN_INLINE Float toFloat(Uint a) {
    return toFloat(Int(bitsAs<IntBits>((a >> 1).v))) * Float(2.0f) +
           toFloat(Int(bitsAs<IntBits>((a & Uint(1)).v)));
}
VORN_INLINE Float toFloat(Float a) {
    return a;
}
/// Toward zero; outside the 32-bit range, and for not-a-number, the smallest integer.
VORN_INLINE Int toInt(Float a) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Int(bitsAs<IntBits>(_mm512_cvttps_epi32(bitsAs<__m512>(a.v))));
#elif VORN_LANES == 8 && defined(__AVX__)
    return Int(bitsAs<IntBits>(_mm256_cvttps_epi32(bitsAs<__m256>(a.v))));
#elif VORN_LANES == 4 && defined(__SSE2__)
    return Int(bitsAs<IntBits>(_mm_cvttps_epi32(bitsAs<__m128>(a.v))));
#elif VORN_LANES == 1
    return Int(a.v > -2147483648.0f && a.v < 2147483648.0f ? static_cast<int32_t>(a.v)
                                                           : static_cast<int32_t>(0x80000000u));
#else
    Int r;
    for (int i = 0; i < N; ++i)
        r.v[i] = a.v[i] > -2147483648.0f && a.v[i] < 2147483648.0f
                     ? static_cast<int32_t>(a.v[i])
                     : static_cast<int32_t>(0x80000000u);
    return r;
#endif
}
VORN_INLINE Int toInt(Int a) {
    return a;
}
VORN_INLINE Int toInt(Uint a) {
    return Int(bitsAs<IntBits>(a.v));
}
VORN_INLINE Uint toUint(Float a) {
    return Uint(bitsAs<UintBits>(toInt(a).v));
}
VORN_INLINE Uint toUint(Int a) {
    return Uint(bitsAs<UintBits>(a.v));
}
VORN_INLINE Uint toUint(Uint a) {
    return a;
}
VORN_INLINE Uint floatBitsToUint(Float a) {
    return Uint(bitsAs<UintBits>(a.v));
}
VORN_INLINE Float uintBitsToFloat(Uint a) {
    return Float(bitsAs<FloatBits>(a.v));
}

// The same for values that all pixels share.
VORN_INLINE float min1(float a, float b) {
    return a < b ? a : b;
}
VORN_INLINE float max1(float a, float b) {
    return a > b ? a : b;
}
VORN_INLINE float floor1(float a) {
    return std::floor(a);
}
VORN_INLINE float round1(float a) {
    return std::nearbyint(a);
}
VORN_INLINE float sqrt1(float a) {
    return std::sqrt(a);
}
VORN_INLINE float abs1(float a) {
    return std::fabs(a);
}
VORN_INLINE float withSignOf(float magnitude, float sign) {
    return std::copysign(magnitude, sign);
}
VORN_INLINE float pick(bool m, float a, float b) {
    return m ? a : b;
}
VORN_INLINE float toFloat(float a) {
    return a;
}
VORN_INLINE float toFloat(int a) {
    return static_cast<float>(a);
}
VORN_INLINE int toInt(float a) {
    return a > -2147483648.0f && a < 2147483648.0f ? static_cast<int>(a)
                                                   : static_cast<int>(0x80000000u);
}
VORN_INLINE int toInt(int a) {
    return a;
}
VORN_INLINE uint32_t toUint(int a) {
    return static_cast<uint32_t>(a);
}
VORN_INLINE uint32_t toUint(float a) {
    return static_cast<uint32_t>(toInt(a));
}

} // namespace vorn::lanes
