// Powers, logarithms and the circular functions on lanes.
//
// exp2 and log2, and pow, exp and log with them, are our own polynomials (relative error below
// 3e-7 for exp2, 1.5e-7 absolute for log2 on [0.5, 2]): they inline into the kernel, which a
// library call with a vector argument does not, and that gain is measured on the whole gamma
// filter. The circular functions are SLEEF's. Coefficients: minimax fits of exp2 on [-0.5, 0.5] and
// of log2(1 + f) / f on [sqrt(1/2) - 1, sqrt(2) - 1].
#pragma once

#include "lanes.h"

namespace vorn::lanes {

/// 2^x; 0 below -126, about 3.4e38 above 127.99.
VORN_INLINE Float exp2_1(Float x) {
    x = min1(max1(x, Float(-127.0f)), Float(127.99999f));
    const Float whole = floor1(x + Float(0.5f));
    const Float f = x - whole;
    Float p = Float(0.000153458118f);
    p = p * f + Float(0.00133999312f);
    p = p * f + Float(0.00961848896f);
    p = p * f + Float(0.0555032878f);
    p = p * f + Float(0.240226469f);
    p = p * f + Float(0.693147206f);
    p = p * f + Float(1.0f);
    // Half of the exponent at a time, so that 2^128 does not overflow on the way.
    const Int e = toInt(whole);
    const Int half = e >> 1;
    const Float scaleA(bitsAs<FloatBits>(((half + Int(127)) << 23).v));
    const Float scaleB(bitsAs<FloatBits>(((e - half + Int(127)) << 23).v));
    return p * scaleA * scaleB;
}

/// log2 of a positive normal number; about -126.5 at and below zero.
VORN_INLINE Float log2_1(Float x) {
    x = max1(x, Float(1.17549435e-38f));
    const IntBits bits = bitsAs<IntBits>(x.v);
    // Exponent such that the rest lies in [sqrt(1/2), sqrt(2)).
    const Int e = Int(bits - 0x3f3504f3) >> 23;
    const Float m(bitsAs<FloatBits>((Int(bits) - (e << 23)).v));
    const Float f = m - Float(1.0f);
    Float p = Float(0.125836983f);
    p = p * f + Float(-0.207269729f);
    p = p * f + Float(0.215715611f);
    p = p * f + Float(-0.238944824f);
    p = p * f + Float(0.287916248f);
    p = p * f + Float(-0.360703683f);
    p = p * f + Float(0.480910643f);
    p = p * f + Float(-0.721347347f);
    p = p * f + Float(1.442695f);
    return p * f + toFloat(e);
}

/// x^y for x >= 0: 0^y is 0 for a positive y.
VORN_INLINE Float pow_1(Float x, Float y) {
    const Float p = exp2_1(log2_1(x) * y);
    return pick((x <= Float(0.0f)) && (y > Float(0.0f)), Float(0.0f), p);
}

VORN_INLINE float exp2_1(float x) { return std::exp2(x); }
VORN_INLINE float log2_1(float x) { return std::log2(x); }
VORN_INLINE float pow_1(float x, float y) { return std::pow(x, y); }

} // namespace vorn::lanes

#if VORN_LANES == 1
#define VORN_SLEEF(name, suffix) Sleef_##name##f1_##suffix##purec
#elif VORN_LANES == 4 && defined(__x86_64__)
#define VORN_SLEEF(name, suffix) Sleef_##name##f4_##suffix##sse4
#elif VORN_LANES == 4
#define VORN_SLEEF(name, suffix) Sleef_##name##f4_##suffix##advsimd
#elif VORN_LANES == 16
#define VORN_SLEEF(name, suffix) Sleef_##name##f16_##suffix##avx512f
#else
#define VORN_SLEEF(name, suffix) Sleef_##name##f8_##suffix##avx2
#endif
#define VORN_CIRCULAR(name, suffix)                                                                \
    extern "C" vorn::lanes::FloatBits VORN_SLEEF(name, suffix)(vorn::lanes::FloatBits);            \
    namespace vorn::lanes {                                                                        \
    VORN_INLINE Float name##_1(Float x) { return Float(VORN_SLEEF(name, suffix)(x.v)); }           \
    VORN_INLINE float name##_1(float x) { return std::name(x); }                                   \
    }
VORN_CIRCULAR(sin, u35)
VORN_CIRCULAR(cos, u35)
VORN_CIRCULAR(tan, u35)
VORN_CIRCULAR(asin, u35)
VORN_CIRCULAR(acos, u35)
VORN_CIRCULAR(atan, u35)
#undef VORN_CIRCULAR
extern "C" vorn::lanes::FloatBits VORN_SLEEF(atan2, u35)(vorn::lanes::FloatBits,
                                                         vorn::lanes::FloatBits);
namespace vorn::lanes {
VORN_INLINE Float atan2_1(Float y, Float x) { return Float(VORN_SLEEF(atan2, u35)(y.v, x.v)); }
VORN_INLINE float atan2_1(float y, float x) { return std::atan2(y, x); }
} // namespace vorn::lanes
