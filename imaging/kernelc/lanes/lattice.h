// Functions of the points of a lattice, as noise is made of. Neighbouring pixels lie between the
// same few points: their values are computed once, for as many points of a row as there are lanes,
// and looked up by the groups that follow.
#pragma once

#include "pairs.h"

#include <type_traits>

namespace vorn::lanes {

/// What the `lattice` calls of a group have computed, in their order.
struct Lattices {
    static constexpr uint32_t kCount = 64;
    static constexpr size_t kMostParts = 4, kMostWords = 8;
    struct Row {
        Float parts[kMostParts]; ///< of the points (column + lane, row)
        int32_t column, row;
        int site = -1;              ///< the call in the text; -1: nothing is known
        uint32_t words[kMostWords]; ///< its other arguments
    };
    Row rows[kCount];
    uint32_t next = 0; ///< call of this group
};

// What the text's function is compiled as: once, so that looked up and computed values are the
// same.
#ifdef VORN_HAS_PAIRS
#define VORN_LATTICE_FUNCTION __attribute__((noinline))
#else
#define VORN_LATTICE_FUNCTION __attribute__((always_inline))
#endif

#ifdef VORN_HAS_PAIRS
VORN_INLINE Float lookedUp(Float of, Texels places) {
#if VORN_LANES == 16
    return Float(bitsAs<FloatBits>(_mm512_permutexvar_ps(places, bitsAs<__m512>(of.v))));
#else
    return Float(bitsAs<FloatBits>(_mm256_permutevar8x32_ps(bitsAs<__m256>(of.v), places)));
#endif
}
template <class Value>
VORN_INLINE Value lookedUp(const Lattices::Row& row, Texels places) {
    constexpr size_t count = sizeof(Value) / sizeof(Float);
    Float parts[count];
    for (size_t i = 0; i < count; ++i) parts[i] = lookedUp(row.parts[i], places);
    Value value;
    std::memcpy(&value, parts, sizeof value);
    return value;
}

/// The values where a row does not have them: a new row if the lanes are near each other.
template <class Function, class Value>
__attribute__((noinline)) void computeLattice(Function function, Int x, Int y, Lattices::Row& row,
                                              int site, Value& value) {
    const int32_t one = x.v[0], other = x.v[N - 1], first = one < other ? one : other;
    const Int places = x - Int(first);
    if (!allLanes(toUint(places) < Uint(N) && y == Int(y.v[0]))) {
        value = function(x, y);
        return;
    }
    // Where the lanes run to the left, so will the groups that follow.
    row.column = one <= other ? first : one - (N - 1);
    row.row = y.v[0];
    int32_t columns[N];
    for (int i = 0; i < N; ++i) columns[i] = row.column + i;
    Int all;
    std::memcpy(&all, columns, sizeof all);
    const Value values = function(all, y);
    std::memcpy(row.parts, &values, sizeof values);
    row.site = site;
    value = lookedUp<Value>(row, bitsAs<Texels>((x - Int(row.column)).v));
}
#endif

template <class>
inline constexpr bool isOneValue = false;
template <class T>
requires std::is_arithmetic_v<T>
inline constexpr bool isOneValue<T> = true;
template <>
inline constexpr bool isOneValue<Vec2<float>> = true;
template <>
inline constexpr bool isOneValue<Vec3<float>> = true;
template <>
inline constexpr bool isOneValue<Vec4<float>> = true;

/// `function` at the points (x, y). `rest` is what else it depends on, the same for every pixel.
template <class Function, class... Rest>
VORN_INLINE auto latticeAt([[maybe_unused]] Lattices& lattices, [[maybe_unused]] int site,
                           Function function, Int x, Int y, [[maybe_unused]] Rest... rest) {
    using Value = std::remove_cvref_t<decltype(function(x, y))>;
    static_assert(sizeof(Value) <= Lattices::kMostParts * sizeof(Float));
    static_assert((sizeof(rest) + ... + 0) <= Lattices::kMostWords * sizeof(uint32_t),
                  "a function of a lattice takes eight numbers beside the coordinates at most");
    static_assert((isOneValue<Rest> && ...),
                  "what a lattice depends on is the same for every pixel");
#ifdef VORN_HAS_PAIRS
    Lattices::Row& row = lattices.rows[lattices.next++ % Lattices::kCount];
    bool isKnown = row.site == site;
    size_t at = 0;
    const auto compare = [&](const auto& argument) {
        uint32_t words[(sizeof argument + 3) / 4] = {};
        std::memcpy(words, &argument, sizeof argument);
        for (const uint32_t word : words) {
            isKnown &= row.words[at] == word;
            row.words[at++] = word;
        }
    };
    (compare(rest), ...);
    const Int places = x - Int(row.column);
    if (isKnown && allLanes(toUint(places) < Uint(N) && y == Int(row.row))) [[likely]]
        return lookedUp<Value>(row, bitsAs<Texels>(places.v));
    if (!isKnown) row.site = -1; // lanes far from each other leave what is known
    Value value;
    computeLattice(function, x, y, row, site, value);
    return value;
#else
    return function(x, y);
#endif
}

} // namespace vorn::lanes
