// vec2, vec3, vec4, small matrices and the built-in functions of the kernel language, once for lane
// values and for values that all pixels share: a result is shared when every operand is.
#pragma once

#include "math.h"

namespace vorn::lanes {

template <class T>
concept Scalar = std::is_same_v<T, Float> || std::is_same_v<T, float> || std::is_same_v<T, int>;

/// The type of an operation on both: lanes as soon as one of them has lanes.
template <class... T>
using Common = std::conditional_t<(std::is_same_v<T, Float> || ...), Float, float>;

template <class F>
struct Vec3;
template <class F>
struct Vec4;

// Swizzles are read-only: `const` results make an assignment to one an error.
#define VORN_SWIZZLE2(a, b)                                                                        \
    VORN_INLINE const Vec2<F> a##b() const {                                                       \
        return {a, b};                                                                             \
    }
#define VORN_SWIZZLE3(a, b, c)                                                                     \
    VORN_INLINE const Vec3<F> a##b##c() const {                                                    \
        return {a, b, c};                                                                          \
    }

template <class F>
struct Vec2 {
    F x, y;
    Vec2() = default;
    constexpr VORN_INLINE Vec2(F x_, F y_) : x(x_), y(y_) {}
    template <class G>
    requires(!std::is_same_v<F, G>) VORN_INLINE Vec2(const Vec2<G>& o) : x(o.x), y(o.y) {}
    // clang-format off
    VORN_SWIZZLE2(x, x) VORN_SWIZZLE2(x, y) VORN_SWIZZLE2(y, x) VORN_SWIZZLE2(y, y)
    // clang-format on
};

template <class F>
struct Vec3 {
    F x, y, z;
    Vec3() = default;
    constexpr VORN_INLINE Vec3(F x_, F y_, F z_) : x(x_), y(y_), z(z_) {}
    template <class G>
    requires(!std::is_same_v<F, G>) VORN_INLINE Vec3(const Vec3<G>& o) : x(o.x), y(o.y), z(o.z) {}
    // clang-format off
    VORN_SWIZZLE2(x, x) VORN_SWIZZLE2(x, y) VORN_SWIZZLE2(x, z) VORN_SWIZZLE2(y, x)
    VORN_SWIZZLE2(y, y) VORN_SWIZZLE2(y, z) VORN_SWIZZLE2(z, x) VORN_SWIZZLE2(z, y)
    VORN_SWIZZLE2(z, z) VORN_SWIZZLE3(x, x, x) VORN_SWIZZLE3(x, y, z) VORN_SWIZZLE3(x, z, y)
    VORN_SWIZZLE3(y, x, z) VORN_SWIZZLE3(y, y, y) VORN_SWIZZLE3(y, z, x) VORN_SWIZZLE3(z, x, y)
    VORN_SWIZZLE3(z, y, x) VORN_SWIZZLE3(z, z, z)
    // clang-format on
};

template <class F>
struct Vec4 {
    F x, y, z, w;
    Vec4() = default;
    constexpr VORN_INLINE Vec4(F x_, F y_, F z_, F w_) : x(x_), y(y_), z(z_), w(w_) {}
    template <class G>
    requires(!std::is_same_v<F, G>) VORN_INLINE Vec4(const Vec4<G>& o)
        : x(o.x), y(o.y), z(o.z), w(o.w) {}
    // clang-format off
    VORN_SWIZZLE2(x, x) VORN_SWIZZLE2(x, y) VORN_SWIZZLE2(x, z) VORN_SWIZZLE2(x, w)
    VORN_SWIZZLE2(y, x) VORN_SWIZZLE2(y, y) VORN_SWIZZLE2(y, z) VORN_SWIZZLE2(y, w)
    VORN_SWIZZLE2(z, x) VORN_SWIZZLE2(z, y) VORN_SWIZZLE2(z, z) VORN_SWIZZLE2(z, w)
    VORN_SWIZZLE2(w, x) VORN_SWIZZLE2(w, y) VORN_SWIZZLE2(w, z) VORN_SWIZZLE2(w, w)
    VORN_SWIZZLE3(x, x, x) VORN_SWIZZLE3(x, y, z) VORN_SWIZZLE3(x, z, y) VORN_SWIZZLE3(y, x, z)
    VORN_SWIZZLE3(y, y, y) VORN_SWIZZLE3(y, z, x) VORN_SWIZZLE3(z, x, y) VORN_SWIZZLE3(z, y, x)
    VORN_SWIZZLE3(z, z, z) VORN_SWIZZLE3(w, w, w) VORN_SWIZZLE3(x, y, w)
        // clang-format on
        VORN_INLINE const Vec4 xyzw() const {
        return *this;
    }
    VORN_INLINE const Vec4 zyxw() const { return {z, y, x, w}; }
    VORN_INLINE const Vec4 wwww() const { return {w, w, w, w}; }
};
#undef VORN_SWIZZLE2
#undef VORN_SWIZZLE3

// ---- Applying a function to each component -----------------------------------------------------

template <class F, class Op, class... T>
VORN_INLINE auto each(Op op, Vec2<F> a, const T&... o) {
    using R = decltype(op(a.x, o.x...));
    return Vec2<R>(op(a.x, o.x...), op(a.y, o.y...));
}
template <class F, class Op, class... T>
VORN_INLINE auto each(Op op, Vec3<F> a, const T&... o) {
    using R = decltype(op(a.x, o.x...));
    return Vec3<R>(op(a.x, o.x...), op(a.y, o.y...), op(a.z, o.z...));
}
template <class F, class Op, class... T>
VORN_INLINE auto each(Op op, Vec4<F> a, const T&... o) {
    using R = decltype(op(a.x, o.x...));
    return Vec4<R>(op(a.x, o.x...), op(a.y, o.y...), op(a.z, o.z...), op(a.w, o.w...));
}

/// A scalar as a vector whose components are all that scalar, shaped like another vector.
template <class F, Scalar S>
VORN_INLINE auto like(const Vec2<F>&, S s) {
    return Vec2<Common<S>>(s, s);
}
template <class F, Scalar S>
VORN_INLINE auto like(const Vec3<F>&, S s) {
    return Vec3<Common<S>>(s, s, s);
}
template <class F, Scalar S>
VORN_INLINE auto like(const Vec4<F>&, S s) {
    return Vec4<Common<S>>(s, s, s, s);
}
template <template <class> class V, class F, class G>
VORN_INLINE const V<G>& like(const V<F>&, const V<G>& v) {
    return v;
}

template <class T>
inline constexpr bool isVector = false;
template <class F>
inline constexpr bool isVector<Vec2<F>> = true;
template <class F>
inline constexpr bool isVector<Vec3<F>> = true;
template <class F>
inline constexpr bool isVector<Vec4<F>> = true;
template <class T>
concept Vector = isVector<T>;
template <class T>
concept Value = Scalar<T> || Vector<T>;

#define VORN_VECTOR_OPERATOR(op)                                                                   \
    template <Vector V, Value W>                                                                   \
    VORN_INLINE auto operator op(V a, W b) {                                                       \
        return each(                                                                               \
            [](auto p, auto q) {                                                                   \
                return static_cast<Common<decltype(p), decltype(q)>>(p)                            \
                    op static_cast<Common<decltype(p), decltype(q)>>(q);                           \
            },                                                                                     \
            a, like(a, b));                                                                        \
    }                                                                                              \
    template <Scalar S, Vector V>                                                                  \
    VORN_INLINE auto operator op(S a, V b) {                                                       \
        return like(b, a) op b;                                                                    \
    }                                                                                              \
    template <Vector V, Value W>                                                                   \
    VORN_INLINE V& operator op##=(V& a, W b) {                                                     \
        return a = a op b;                                                                         \
    }
VORN_VECTOR_OPERATOR(+)
VORN_VECTOR_OPERATOR(-)
VORN_VECTOR_OPERATOR(*)
VORN_VECTOR_OPERATOR(/)
#undef VORN_VECTOR_OPERATOR
template <Vector V>
VORN_INLINE V operator-(V a) {
    return each([](auto p) { return -p; }, a);
}

// ---- Built-in functions ------------------------------------------------------------------------

#define VORN_UNARY(name, expression)                                                               \
    template <Scalar S>                                                                            \
    VORN_INLINE auto name(S s) {                                                                   \
        const Common<S> a = s;                                                                     \
        return expression;                                                                         \
    }                                                                                              \
    template <Vector V>                                                                            \
    VORN_INLINE V name(V v) {                                                                      \
        return each([](auto c) { return name(c); }, v);                                            \
    }
VORN_UNARY(floor, floor1(a))
VORN_UNARY(ceil, -floor1(-a))
VORN_UNARY(roundEven, round1(a))
VORN_UNARY(trunc, withSignOf(floor1(abs1(a)), a))
VORN_UNARY(fract, a - floor1(a))
VORN_UNARY(abs, abs1(a))
VORN_UNARY(sqrt, sqrt1(a))
VORN_UNARY(inversesqrt, 1.0f / sqrt1(a))
VORN_UNARY(sign, pick(a == 0.0f, a, withSignOf(Common<S>(1.0f), a)))
VORN_UNARY(exp2, exp2_1(a))
VORN_UNARY(log2, log2_1(a))
VORN_UNARY(exp, exp2_1(a * 1.44269504f))
VORN_UNARY(log, log2_1(a) * 0.693147181f)
VORN_UNARY(sin, sin_1(a))
VORN_UNARY(cos, cos_1(a))
VORN_UNARY(tan, tan_1(a))
VORN_UNARY(asin, asin_1(a))
VORN_UNARY(acos, acos_1(a))
VORN_UNARY(atan, atan_1(a))
VORN_UNARY(radians, a * 0.0174532925f)
VORN_UNARY(degrees, a * 57.2957795f)
#undef VORN_UNARY

#define VORN_BINARY(name, expression)                                                              \
    template <Scalar S, Scalar T>                                                                  \
    VORN_INLINE auto name(S s, T t) {                                                              \
        const Common<S, T> a = s, b = t;                                                           \
        return expression;                                                                         \
    }                                                                                              \
    template <Vector V, Value W>                                                                   \
    VORN_INLINE auto name(V v, W w) {                                                              \
        return each([](auto p, auto q) { return name(p, q); }, v, like(v, w));                     \
    }
VORN_BINARY(min, min1(a, b))
VORN_BINARY(max, max1(a, b))
VORN_BINARY(pow, pow_1(a, b))
VORN_BINARY(atan, atan2_1(a, b))
VORN_BINARY(mod, a - b * floor1(a / b))
#undef VORN_BINARY

template <Scalar S, Value V>
VORN_INLINE auto step(S edge, V v) {
    if constexpr (Scalar<V>) {
        const Common<S, V> e = edge, a = v;
        return pick(a < e, Common<S, V>(0.0f), Common<S, V>(1.0f));
    } else {
        return each([](auto e, auto a) { return step(e, a); }, like(v, edge), v);
    }
}
template <Vector E, Vector V>
VORN_INLINE auto step(E edge, V v) {
    return each([](auto e, auto a) { return step(e, a); }, edge, v);
}

template <Value V, Value A, Value B>
VORN_INLINE auto clamp(V v, A low, B high) {
    return min(max(v, low), high);
}

template <Value A, Value B, Value T>
VORN_INLINE auto mix(A a, B b, T t) {
    return a * (1.0f - t) + b * t; // exactly a at 0 and exactly b at 1
}

template <Value A, Value B, Value V>
VORN_INLINE auto smoothstep(A low, B high, V v) {
    const auto t = clamp((v - low) * (1.0f / (high - low)), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

template <class F, class G>
VORN_INLINE auto dot(Vec2<F> a, Vec2<G> b) {
    return a.x * b.x + a.y * b.y;
}
template <class F, class G>
VORN_INLINE auto dot(Vec3<F> a, Vec3<G> b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <class F, class G>
VORN_INLINE auto dot(Vec4<F> a, Vec4<G> b) {
    return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}
template <Vector V>
VORN_INLINE auto length(V v) {
    return sqrt1(dot(v, v));
}
template <Scalar S>
VORN_INLINE auto length(S s) {
    return abs1(Common<S>(s));
}
template <Value V, Value W>
VORN_INLINE auto distance(V a, W b) {
    return length(a - b);
}
template <Vector V>
VORN_INLINE V normalize(V v) {
    return v * (1.0f / length(v));
}
template <Vector V, Vector W>
VORN_INLINE auto reflect(V incident, W normal) {
    return incident - normal * (2.0f * dot(normal, incident));
}
template <class F, class G>
VORN_INLINE auto cross(Vec3<F> a, Vec3<G> b) {
    return a.yzx() * b.zxy() - a.zxy() * b.yzx();
}

VORN_INLINE Float select(Mask m, Float a, Float b) {
    return pick(m, a, b);
}
VORN_INLINE Int select(Mask m, Int a, Int b) {
    return pick(m, a, b);
}
VORN_INLINE Uint select(Mask m, Uint a, Uint b) {
    return pick(m, a, b);
}
template <class F, class G>
VORN_INLINE Vec2<Float> select(Mask m, Vec2<F> a, Vec2<G> b) {
    return {pick(m, Float(a.x), Float(b.x)), pick(m, Float(a.y), Float(b.y))};
}
template <class F, class G>
VORN_INLINE Vec3<Float> select(Mask m, Vec3<F> a, Vec3<G> b) {
    return {pick(m, Float(a.x), Float(b.x)), pick(m, Float(a.y), Float(b.y)),
            pick(m, Float(a.z), Float(b.z))};
}
template <class F, class G>
VORN_INLINE Vec4<Float> select(Mask m, Vec4<F> a, Vec4<G> b) {
    return {pick(m, Float(a.x), Float(b.x)), pick(m, Float(a.y), Float(b.y)),
            pick(m, Float(a.z), Float(b.z)), pick(m, Float(a.w), Float(b.w))};
}
template <Value V>
VORN_INLINE V select(bool m, V a, V b) {
    return m ? a : b;
}

/// Whether a condition holds for every pixel of the group.
VORN_INLINE bool everywhere(Mask m) {
    return allLanes(m);
}
VORN_INLINE bool everywhere(bool m) {
    return m;
}

// ---- Constructors ------------------------------------------------------------------------------

template <Scalar A, Scalar B>
constexpr VORN_INLINE auto makeVec2(A a, B b) {
    using C = Common<A, B>;
    return Vec2<C>(C(a), C(b));
}
template <Scalar A>
constexpr VORN_INLINE auto makeVec2(A a) {
    return makeVec2(a, a);
}
template <Scalar A, Scalar B, Scalar C>
constexpr VORN_INLINE auto makeVec3(A a, B b, C c) {
    using D = Common<A, B, C>;
    return Vec3<D>(D(a), D(b), D(c));
}
template <Scalar A>
constexpr VORN_INLINE auto makeVec3(A a) {
    return makeVec3(a, a, a);
}
template <class F, Scalar S>
VORN_INLINE auto makeVec3(Vec2<F> v, S s) {
    return makeVec3(v.x, v.y, s);
}
template <Scalar S, class F>
VORN_INLINE auto makeVec3(S s, Vec2<F> v) {
    return makeVec3(s, v.x, v.y);
}
template <Scalar A, Scalar B, Scalar C, Scalar D>
constexpr VORN_INLINE auto makeVec4(A a, B b, C c, D d) {
    using E = Common<A, B, C, D>;
    return Vec4<E>(E(a), E(b), E(c), E(d));
}
template <Scalar A>
constexpr VORN_INLINE auto makeVec4(A a) {
    return makeVec4(a, a, a, a);
}
template <class F, Scalar S>
VORN_INLINE auto makeVec4(Vec3<F> v, S s) {
    return makeVec4(v.x, v.y, v.z, s);
}
template <class F, class G>
VORN_INLINE auto makeVec4(Vec2<F> a, Vec2<G> b) {
    return makeVec4(a.x, a.y, b.x, b.y);
}
template <class F, Scalar S, Scalar T>
VORN_INLINE auto makeVec4(Vec2<F> a, S s, T t) {
    return makeVec4(a.x, a.y, s, t);
}

// ---- Matrices, by columns ----------------------------------------------------------------------

template <class F>
struct Mat2 {
    Vec2<F> columns[2];
};
template <class F>
struct Mat3 {
    Vec3<F> columns[3];
};
template <Scalar A, Scalar B, Scalar C, Scalar D>
VORN_INLINE auto makeMat2(A a, B b, C c, D d) {
    using E = Common<A, B, C, D>;
    return Mat2<E>{{Vec2<E>(E(a), E(b)), Vec2<E>(E(c), E(d))}};
}
template <class F, class G, class H>
VORN_INLINE auto makeMat3(Vec3<F> a, Vec3<G> b, Vec3<H> c) {
    using E = Common<F, G, H>;
    return Mat3<E>{{Vec3<E>(a), Vec3<E>(b), Vec3<E>(c)}};
}
template <class F, class G>
VORN_INLINE auto operator*(const Mat2<F>& m, Vec2<G> v) {
    return m.columns[0] * v.x + m.columns[1] * v.y;
}
template <class F, class G>
VORN_INLINE auto operator*(const Mat3<F>& m, Vec3<G> v) {
    return m.columns[0] * v.x + m.columns[1] * v.y + m.columns[2] * v.z;
}

// ---- Premultiplied colour ----------------------------------------------------------------------

/// Straight colour to premultiplied.
template <class F>
VORN_INLINE Vec4<F> premultiply(Vec4<F> c) {
    return {c.x * c.w, c.y * c.w, c.z * c.w, c.w};
}
VORN_INLINE Vec4<float> unpremultiply(Vec4<float> c) {
    const float k = c.w > 0.0f ? 1.0f / c.w : 0.0f;
    return {c.x * k, c.y * k, c.z * k, c.w};
}
/// Premultiplied colour to straight; transparent black stays black. Opaque pixels, which are most,
/// skip the division.
VORN_INLINE Vec4<Float> unpremultiply(Vec4<Float> c) {
    if (allLanes(c.w == Float(1.0f))) return c;
    const Float k = pick(c.w > Float(0.0f), Float(1.0f) / c.w, Float(0.0f));
    return {c.x * k, c.y * k, c.z * k, c.w};
}

} // namespace vorn::lanes
