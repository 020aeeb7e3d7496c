// What a kernel's text finds around it on the CPU: where its pixels are, samplers, and the loop
// that calls it for every group of N neighbouring pixels.
#pragma once

#include "gaussian.h"
#include "lattice.h"

namespace vorn::lanes {

/// The pixels being computed: N neighbours from x on in row y, of which `count` are wanted.
struct Place {
    int x, y, count;
};

/// An image that a kernel reads. `row` has its pixels at the own place where memory is not packed
/// and the kernel reads no others.
template <Memory memory>
struct Sampler {
    const SourceView& view;
    const FloatRow& row;
};

/// The bytes of a packed source at the place that is written (the engine makes sure that they are
/// there), and its pixels.
VORN_INLINE const uint8_t* bytesHere(const SourceView& view, Place place) {
    const int64_t row = view.y0 + view.height - 1 - place.y;
    return view.bytes + row * view.rowBytes + static_cast<int64_t>(place.x - view.x0) * 4;
}
template <Memory memory>
VORN_INLINE Pixel loadHere(const SourceView& view, const FloatRow& row, Place place) {
    if constexpr (isPacked(memory))
        return unpack<memory>(loadTexels(bytesHere(view, place), place.count), view.order);
    else
        return loadPlanes(row.bytes + static_cast<int64_t>(place.x - row.x) * 4, row.planeBytes);
}

/// 32 bits at each lane's byte offset.
VORN_INLINE Uint gather32(const uint8_t* base, Int offset) {
#if VORN_LANES == 16 && defined(__AVX512F__)
    return Uint(bitsAs<UintBits>(_mm512_i32gather_epi32(bitsAs<__m512i>(offset.v), base, 1)));
#elif VORN_LANES == 8 && defined(__AVX2__)
    return Uint(bitsAs<UintBits>(
        _mm256_i32gather_epi32(reinterpret_cast<const int*>(base), bitsAs<__m256i>(offset.v), 1)));
#else
    int32_t at[N];
    uint32_t out[N];
    std::memcpy(at, &offset, sizeof at);
    for (int i = 0; i < N; ++i) std::memcpy(&out[i], base + at[i], 4);
    Uint u;
    std::memcpy(&u, out, sizeof u);
    return u;
#endif
}

/// The pixels of a source at whole coordinates (column from the left, row from the top), which lie
/// inside it.
template <Memory memory>
VORN_INLINE Pixel fetch(const SourceView& view, Int column, Int row) {
    const int layout = isPacked(memory) ? static_cast<int>(kPacked8) : view.layout;
    const int64_t bytes = view.rowBytes * view.height;
    if (bytes > 0x7fffffff) [[unlikely]] { // offsets past 31 bits, one lane at a time
        int32_t x[N], y[N];
        float out[4][N];
        std::memcpy(x, &column, sizeof x);
        std::memcpy(y, &row, sizeof y);
        for (int i = 0; i < N; ++i) {
            const uint8_t* at = view.bytes + y[i] * view.rowBytes +
                                static_cast<int64_t>(x[i]) * bytesPerPixel(layout);
            const Pixel one = loadSome(view, at, 1);
            float lanes[4][N];
            std::memcpy(lanes, &one, sizeof lanes);
            for (int c = 0; c < 4; ++c) out[c][i] = lanes[c][0];
        }
        Pixel p;
        std::memcpy(&p, out, sizeof p);
        return p;
    }
    const Int line = row * Int(static_cast<int32_t>(view.rowBytes));
    if (isPacked(memory) || layout == kPacked8) {
        const Uint texels = gather32(view.bytes, line + (column << 2));
        return unpack<Memory::Packed>(bitsAs<Texels>(texels), view.order);
    }
    if (layout == kHalf) {
        const Int at = line + (column << 3);
        const Uint rg = gather32(view.bytes, at), ba = gather32(view.bytes + 4, at);
        return {halfToFloat(rg & Uint(0xffffu)), halfToFloat(rg >> 16),
                halfToFloat(ba & Uint(0xffffu)), halfToFloat(ba >> 16)};
    }
    const Int at = line + (column << 4);
    return {uintBitsToFloat(gather32(view.bytes, at)),
            uintBitsToFloat(gather32(view.bytes + 4, at)),
            uintBitsToFloat(gather32(view.bytes + 8, at)),
            uintBitsToFloat(gather32(view.bytes + 12, at))};
}

/// `fetch` where a lane's coordinates may lie outside: transparent there.
template <Memory memory>
VORN_INLINE Pixel fetchOrNothing(const SourceView& view, Int column, Int row, Mask inside) {
    const Pixel p = fetch<memory>(view, pick(inside, column, Int(0)), pick(inside, row, Int(0)));
    const Float zero = 0.0f;
    return {pick(inside, p.x, zero), pick(inside, p.y, zero), pick(inside, p.z, zero),
            pick(inside, p.w, zero)};
}

VORN_INLINE Mask isWithin(Int value, int32_t limit) {
    return value >= Int(0) && value < Int(limit);
}

// Whole and fractional parts are taken of the point itself, not of its distance to the source's
// corner: rounding then does not depend on which part of a source is at hand. Whole parts are
// limited to just outside of the source, so that the integers that are made of them are safe; a
// coordinate that is not a number ends there as well.
VORN_INLINE Float wholePart(Float value, int32_t origin, int32_t size) {
    const Float low = static_cast<float>(origin) - 2.0f;
    const Float high = static_cast<float>(origin) + static_cast<float>(size) + 1.0f;
    return min1(max1(floor1(value), low), high);
}

/// Where a bilinear read lies: its lower left pixel, and which of its four are there.
struct Spot {
    Float fx, fy;
    Int column, row;
    Mask left, right, lower, upper;
    bool isInside, isOutside;

    VORN_INLINE Spot(const SourceView& view, Vec2<Float> point) {
        const Float u = point.x - Float(0.5f), v = point.y - Float(0.5f);
        // Not a number where the point is infinite: 0 then.
        fx = max1(u - floor1(u), Float(0.0f)), fy = max1(v - floor1(v), Float(0.0f));
        column = toInt(wholePart(u, view.x0, view.width)) - Int(view.x0);
        row = Int(view.y0 + view.height - 1) - toInt(wholePart(v, view.y0, view.height));
        left = isWithin(column, view.width), right = isWithin(column + Int(1), view.width);
        lower = isWithin(row, view.height), upper = isWithin(row - Int(1), view.height);
        isInside = allLanes(left && right && lower && upper);
        isOutside = !isInside && allLanes(!((left || right) && (lower || upper)));
    }
};

#ifdef VORN_HAS_PAIRS
/// Whether reads of a source are of the common kind: bilinear, of packed pixels.
VORN_INLINE bool isCommon(const SourceView& view) {
    return view.layout == kPacked8 && !view.nearest && view.width > 0 && view.height > 0 &&
           view.rowBytes * view.height <= 0x7fffffff;
}

/// `sampleAt` of such a source.
VORN_INLINE Pixel commonSampleAt(const SourceView& view, Vec2<Float> point) {
    const Spot s(view, point);
    if (s.isOutside) {
        const Float zero = 0.0f;
        return {zero, zero, zero, zero};
    }
    const Int line = s.row * Int(static_cast<int32_t>(view.rowBytes));
    const Int at = line + (s.column << 2);
    Nearby nearby;
    Pairs lowerRow, upperRow;
    if (s.isInside && areNearby(s.column, s.row, nearby) && nearby.first + N + 1 <= view.width) {
        const uint8_t* from = view.bytes + line.v[0] + nearby.first * 4;
        const auto read = [&](const uint8_t* first) {
            return joinTexels(loadNearby(first, nearby.places),
                              loadNearby(first + 4, nearby.places));
        };
        lowerRow = read(from);
        upperRow = read(from - view.rowBytes);
    } else if (s.isInside) [[likely]] {
        lowerRow = gatherPairs(view.bytes, at);
        upperRow = gatherPairs(view.bytes - view.rowBytes, at);
    } else {
        // The blend is the same as inside: which pixels are computed together must not show.
        const int32_t up = static_cast<int32_t>(-view.rowBytes);
        const auto texels = [&](int32_t distance, Mask isThere) {
            const Uint there = gather32(view.bytes, pick(isThere, at + Int(distance), Int(0)));
            return bitsAs<Texels>(pick(isThere, there, Uint(0u)));
        };
        lowerRow = joinTexels(texels(0, s.left && s.lower), texels(4, s.right && s.lower));
        upperRow = joinTexels(texels(up, s.left && s.upper), texels(up + 4, s.right && s.upper));
    }
    return blendPacked(lowerRow, upperRow, view.order, s.fx, s.fy);
}
#endif

/// Reads a source at a point of the working space: nearest or bilinear; outside the source is
/// transparent black, and a bilinear read at the border blends with that.
template <Memory memory>
VORN_INLINE Pixel sampleAt(const SourceView& view, Vec2<Float> point) {
    if (view.width <= 0 || view.height <= 0) [[unlikely]] {
        const Float zero = 0.0f;
        return {zero, zero, zero, zero};
    }
    if (view.nearest) {
        const Int column = toInt(wholePart(point.x, view.x0, view.width)) - Int(view.x0);
        const Int row =
            Int(view.y0 + view.height - 1) - toInt(wholePart(point.y, view.y0, view.height));
        return fetchOrNothing<memory>(view, column, row,
                                      isWithin(column, view.width) && isWithin(row, view.height));
    }
#ifdef VORN_HAS_PAIRS
    if (isCommon(view)) [[likely]]
        return commonSampleAt(view, point);
#endif
    const auto [fx, fy, column, row, left, right, lower, upper, isInside, isOutside] =
        Spot(view, point);
    if (isOutside) {
        const Float zero = 0.0f;
        return {zero, zero, zero, zero};
    }
    Pixel p00, p10, p01, p11;
    if (isInside) [[likely]] {
#ifdef VORN_HAS_PAIRS
        if (view.layout == kHalf && view.rowBytes * view.height <= 0x7fffffff) {
            const Int line = row * Int(static_cast<int32_t>(view.rowBytes));
            const uint8_t* above = view.bytes - view.rowBytes;
#if VORN_LANES == 16
            Nearby nearby;
            if (areNearby(column, row, nearby) && nearby.first + N + 1 <= view.width) {
                const uint8_t* from = view.bytes + line.v[0] + nearby.first * 8;
                return blendNearbyHalves(from, from - view.rowBytes, nearby.places, fx, fy);
            }
#endif
            const Int at = line + (column << 3);
            p00 = unpackHalves(gatherPairs(view.bytes, at));
            p10 = unpackHalves(gatherPairs(view.bytes + 8, at));
            p01 = unpackHalves(gatherPairs(above, at));
            p11 = unpackHalves(gatherPairs(above + 8, at));
        } else
#endif
        {
            p00 = fetch<memory>(view, column, row);
            p10 = fetch<memory>(view, column + Int(1), row);
            p01 = fetch<memory>(view, column, row - Int(1));
            p11 = fetch<memory>(view, column + Int(1), row - Int(1));
        }
    } else {
        p00 = fetchOrNothing<memory>(view, column, row, left && lower);
        p10 = fetchOrNothing<memory>(view, column + Int(1), row, right && lower);
        p01 = fetchOrNothing<memory>(view, column, row - Int(1), left && upper);
        p11 = fetchOrNothing<memory>(view, column + Int(1), row - Int(1), right && upper);
    }
    const auto blend = [](Float a, Float b, Float t) { return a + (b - a) * t; };
    const auto channel = [&](Float a, Float b, Float c, Float d) {
        return blend(blend(a, b, fx), blend(c, d, fx), fy);
    };
    return {channel(p00.x, p10.x, p01.x, p11.x), channel(p00.y, p10.y, p01.y, p11.y),
            channel(p00.z, p10.z, p01.z, p11.z), channel(p00.w, p10.w, p01.w, p11.w)};
}

#ifdef VORN_HAS_PAIRS
VORN_INLINE bool canReadOnePoint(const SourceView& view) {
    return !view.nearest && view.width > 0 && view.height > 0;
}
/// Whether all lanes read one point, bilinear.
VORN_INLINE bool isOnePoint(const SourceView& view, Vec2<Float> point) {
    return allLanes(point.x == Float(point.x.v[0]) && point.y == Float(point.y.v[0])) &&
           canReadOnePoint(view);
}

/// `sampleAt` there: the same result, computed once.
template <Memory memory>
__attribute__((noinline)) __m128 sampleOnePoint(const SourceView& view, float x, float y) {
    const int layout = isPacked(memory) ? static_cast<int>(kPacked8) : view.layout;
    const auto whole = [](float value, int32_t origin, int32_t size) {
        const float low = static_cast<float>(origin) - 2.0f;
        const float high = static_cast<float>(origin) + static_cast<float>(size) + 1.0f;
        return static_cast<int32_t>(std::fmin(std::fmax(std::floor(value), low), high));
    };
    const float u = x - 0.5f, v = y - 0.5f;
    const int32_t column = whole(u, view.x0, view.width) - view.x0;
    const int32_t row = view.y0 + view.height - 1 - whole(v, view.y0, view.height);
    const float fx = std::fmax(u - std::floor(u), 0.0f), fy = std::fmax(v - std::floor(v), 0.0f);
    const auto at = [&](int32_t right, int32_t up) -> const uint8_t* {
        const int32_t c = column + right, r = row - up;
        if (c < 0 || c >= view.width || r < 0 || r >= view.height) return nullptr;
        return view.bytes + r * view.rowBytes + static_cast<int64_t>(c) * bytesPerPixel(layout);
    };
    if (layout == kPacked8) {
        const auto bytes = [](int channel) {
            return static_cast<int32_t>(0x80808000u + static_cast<uint32_t>(channel));
        };
        const __m128i places = _mm_set_epi32(bytes(view.order.a), bytes(view.order.b),
                                             bytes(view.order.g), bytes(view.order.r));
        const auto texel = [&](int32_t right, int32_t up) {
            const uint8_t* from = at(right, up);
            int32_t value = 0;
            if (from) std::memcpy(&value, from, 4);
            return _mm_shuffle_epi8(_mm_cvtsi32_si128(value), places);
        };
        return blendOnePacked(texel(0, 0), texel(1, 0), texel(0, 1), texel(1, 1), fx, fy);
    } else {
        const auto pixel = [&](int32_t right, int32_t up) {
            const uint8_t* from = at(right, up);
            if (!from) return _mm_setzero_ps();
            if (layout == kFloat) return _mm_loadu_ps(reinterpret_cast<const float*>(from));
            return _mm_cvtph_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
        };
        return blendOne(pixel(0, 0), pixel(1, 0), pixel(0, 1), pixel(1, 1), fx, fy);
    }
}
#endif

/// The same as a call. A kernel with many reads, or with one that has to choose between all
/// layouts, would take the compiler long if it had them inline, and be little the faster.
template <Memory memory>
__attribute__((noinline)) Pixel calledSampleAt(const SourceView& view, Vec2<Float> point) {
#ifdef VORN_HAS_PAIRS
    if (isOnePoint(view, point)) {
        float channels[4];
        const __m128 p = sampleOnePoint<memory>(view, point.x.v[0], point.y.v[0]);
        std::memcpy(channels, &p, sizeof channels);
        return {Float(channels[0]), Float(channels[1]), Float(channels[2]), Float(channels[3])};
    }
#endif
    return sampleAt<memory>(view, point);
}

/// What a group's reads of one point for all lanes gave, in their order.
struct OnePoints {
    struct Known {
        const SourceView* view = nullptr;
        float x, y, channels[4];
    };
    Known known[16];
    uint32_t next = 0; ///< read of this group
};

#ifdef VORN_HAS_PAIRS
template <Memory memory>
VORN_INLINE Pixel knownPoint(const SourceView& view, float x, float y, OnePoints::Known& known) {
    if (known.view != &view || known.x != x || known.y != y) {
        const __m128 channels = sampleOnePoint<memory>(view, x, y);
        std::memcpy(known.channels, &channels, sizeof channels);
        known.view = &view, known.x = x, known.y = y;
    }
    return {Float(known.channels[0]), Float(known.channels[1]), Float(known.channels[2]),
            Float(known.channels[3])};
}

/// A group that reads a few points: one after the other. Of many, or of one that is not a number,
/// as a group that reads many.
template <Memory memory>
__attribute__((noinline)) Pixel sampleFewPoints(const SourceView& view, Vec2<Float> point,
                                                OnePoints::Known& known) {
    if (canReadOnePoint(view)) {
        constexpr uint32_t kAll = (1ull << N) - 1;
        constexpr int kFew = 4;
        const Float zero = 0.0f;
        Pixel pixels{zero, zero, zero, zero};
        uint32_t done = 0;
        for (int run = 0; run < kFew && done != kAll; ++run) {
            const int lane = __builtin_ctz(~done);
            const float x = point.x.v[lane], y = point.y.v[lane];
            const Mask same = point.x == Float(x) && point.y == Float(y);
            const Pixel one = knownPoint<memory>(view, x, y, known);
            pixels = {pick(same, one.x, pixels.x), pick(same, one.y, pixels.y),
                      pick(same, one.z, pixels.z), pick(same, one.w, pixels.w)};
            done |= bitsOf(same);
        }
        if (done == kAll) return pixels;
    }
    return calledSampleAt<memory>(view, point);
}
#endif

/// The same for blocks of pixels that read the same points, as in a mosaic: what the group before
/// has read is not read again.
template <Memory memory>
VORN_INLINE Pixel sharedSampleAt(const SourceView& view, Vec2<Float> point,
                                 [[maybe_unused]] OnePoints& points) {
#ifdef VORN_HAS_PAIRS
    OnePoints::Known& known = points.known[points.next++ % 16];
    if (isOnePoint(view, point)) return knownPoint<memory>(view, point.x.v[0], point.y.v[0], known);
    return sampleFewPoints<memory>(view, point, known);
#else
    return calledSampleAt<memory>(view, point);
#endif
}

/// The pixels of a source in one row of it, transparent outside. `View` says how the source is
/// handed over: as a copy, the caller's loop can keep what follows from it in registers, which is
/// the faster where that is little.
template <Memory memory, class View>
__attribute__((noinline)) Pixel fetchFromRow(View view, Int columns, int row) {
    if (row < 0 || row >= view.height) {
        const Float zero = 0.0f;
        return {zero, zero, zero, zero};
    }
    return fetchOrNothing<memory>(view, columns, Int(row), isWithin(columns, view.width));
}
/// The same where the columns are evenly apart: the first one, and how far.
template <Memory memory, class View>
__attribute__((noinline)) Pixel fetchFromRow(View view, int column, int row, int stride) {
    int32_t steps[N];
    for (int i = 0; i < N; ++i) steps[i] = column + i * stride;
    Int columns;
    std::memcpy(&columns, steps, sizeof columns);
    return fetchFromRow<memory, const SourceView&>(view, columns, row);
}
template <Memory memory, class View = const SourceView&>
VORN_INLINE Pixel fetchInRow(const SourceView& view, int x, int y, int stride) {
    const int column = x - view.x0, row = view.y0 + view.height - 1 - y;
    const int first = stride < 0 ? column - (N - 1) : column;
    const bool isInside = row >= 0 && row < view.height && first >= 0 && first + N <= view.width;
    if ((stride != 1 && stride != -1) || !isInside) [[unlikely]]
        return fetchFromRow<memory, View>(view, column, row, stride);
    const int layout = isPacked(memory) ? static_cast<int>(kPacked8) : view.layout;
    const uint8_t* from =
        view.bytes + row * view.rowBytes + static_cast<int64_t>(first) * bytesPerPixel(layout);
    if (stride == 1) return loadGroup<memory>(view, from);
    if (layout == kPacked8) return unpack<memory>(reversed(loadTexels(from)), view.order);
    const Pixel p = loadGroup<memory>(view, from);
    return {reversed(p.x), reversed(p.y), reversed(p.z), reversed(p.w)};
}

#ifdef VORN_HAS_PAIRS
/// Kernels choose between the layouts where they read.
template <Memory memory>
VORN_INLINE Pixel readInRow(const SourceView& view, int x, int y, int stride) {
    return fetchInRow<memory>(view, x, y, stride);
}
#else
/// Half floats take so long without instructions for them that a call is little beside it.
template <Memory memory>
__attribute__((noinline)) Pixel calledFetchInRow(const SourceView& view, int x, int y, int stride) {
    return fetchInRow<memory>(view, x, y, stride);
}
template <Memory memory>
VORN_INLINE Pixel readInRow(const SourceView& view, int x, int y, int stride) {
    if constexpr (isPacked(memory)) return fetchInRow<memory>(view, x, y, stride);
    return calledFetchInRow<memory>(view, x, y, stride);
}
#endif

/// The sum of the pixels on a line through each of N pixels by the weights of a Gaussian.
template <Memory memory>
__attribute__((noinline)) Pixel gaussianSum(const SourceView& view, Place place, int x, int y,
                                            int reach, Gaussian weights) {
#ifdef VORN_HAS_PAIRS
    const int layout = isPacked(memory) ? static_cast<int>(kPacked8) : view.layout;
    const bool isAcross = x == 1 && y == 0;
    if ((isAcross || (x == 0 && y == 1)) && reach >= 0 && reach <= kMostReach) [[likely]] {
        const int column = place.x - view.x0, row = view.y0 + view.height - 1 - place.y;
        if (layout == kPacked8)
            return gaussianOf<kPacked8>(view, column, row, isAcross, reach, weights);
        if constexpr (!isPacked(memory))
            return layout == kHalf
                       ? gaussianOf<kHalf>(view, column, row, isAcross, reach, weights)
                       : gaussianOf<kFloat>(view, column, row, isAcross, reach, weights);
    }
#endif
    const auto at = [&](int i) {
        return fetchInRow<memory>(view, place.x + i * x, place.y + i * y, 1);
    };
    Pixel sum = at(0) * weights.center;
    float weight = weights.first, fall = weights.quotient;
    for (int i = 1; i <= reach; ++i) {
        sum = sum + (at(i) + at(-i)) * weight;
        weight *= fall;
        fall *= weights.factor;
    }
    return sum;
}

inline constexpr int kMostSummed = 64; ///< pixels of a block along each axis

/// The sums of N blocks of `across` by `up` pixels, which lie side by side from the pixel (x, y)
/// on; nothing is added outside of the source. Rows are added up first, as they lie in memory.
template <Memory memory>
__attribute__((noinline)) Pixel sumsOfBlocks(SourceView view, int x, int y, int across, int up) {
    across = across < 1 ? 1 : across > kMostSummed ? kMostSummed : across;
    up = up < 1 ? 1 : up > kMostSummed ? kMostSummed : up;
    const int left = x - view.x0, all = across * N;
    const int first = left < 0 ? -left : 0;
    const int last = all < view.width - left ? all : view.width - left;
    const int bottom = view.y0 + view.height - 1 - y, top = bottom - up + 1;
    const int lowest = bottom < view.height ? bottom + 1 : view.height;
    const int highest = top < 0 ? 0 : top;
    float blocks[4][N] = {};
    const auto rowBytes = [&](int row) {
        const int layout = isPacked(memory) ? static_cast<int>(kPacked8) : view.layout;
        return view.bytes + row * view.rowBytes +
               static_cast<int64_t>(left + first) * bytesPerPixel(layout);
    };
    const Float zero = 0.0f;
    if (first >= last || highest >= lowest) return {zero, zero, zero, zero};
    if (isPacked(memory) || view.layout == kPacked8) {
        uint16_t columns[kMostSummed * N * 4];
        std::memset(columns, 0, static_cast<size_t>(all) * 8);
        for (int row = highest; row < lowest; ++row) {
            const uint8_t* from = rowBytes(row);
            uint16_t* to = columns + first * 4;
            const int count = (last - first) * 4;
            int i = 0;
            for (; i + 16 <= count; i += 16) {
                using Bytes = uint8_t __attribute__((vector_size(16)));
                using Words = uint16_t __attribute__((vector_size(32)));
                Bytes bytes;
                Words words;
                std::memcpy(&bytes, from + i, sizeof bytes);
                std::memcpy(&words, to + i, sizeof words);
                words += __builtin_convertvector(bytes, Words);
                std::memcpy(to + i, &words, sizeof words);
            }
            for (; i < count; ++i) to[i] = static_cast<uint16_t>(to[i] + from[i]);
        }
        const int places[4] = {view.order.r, view.order.g, view.order.b, view.order.a};
        if (across * up <= 257) { // the sums of four channels fit into one number side by side
            uint64_t sums[N];
            for (int block = 0; block < N; ++block) {
                uint64_t sum = 0;
                for (int i = 0; i < across; ++i) {
                    uint64_t pixel;
                    std::memcpy(&pixel, columns + (block * across + i) * 4, sizeof pixel);
                    sum += pixel;
                }
                sums[block] = sum;
            }
            for (int c = 0; c < 4; ++c)
                for (int block = 0; block < N; ++block)
                    blocks[c][block] = static_cast<float>(static_cast<int32_t>(
                                           (sums[block] >> (16 * places[c])) & 0xffff)) *
                                       (1.0f / 255.0f);
        } else {
            for (int block = 0; block < N; ++block) {
                uint32_t sums[4] = {};
                const uint16_t* from = columns + block * across * 4;
                for (int i = 0; i < across; ++i)
                    for (int c = 0; c < 4; ++c) sums[c] += from[i * 4 + c];
                for (int c = 0; c < 4; ++c)
                    blocks[c][block] = static_cast<float>(sums[places[c]]) * (1.0f / 255.0f);
            }
        }
    } else {
        float columns[4][kMostSummed * N + N]; // whole groups from `first` on
        for (auto& plane : columns) std::memset(plane, 0, static_cast<size_t>(all + N) * 4);
        for (int row = highest; row < lowest; ++row) {
            const uint8_t* from = rowBytes(row);
            for (int i = first; i < last; i += N) {
                const int count = last - i < N ? last - i : N;
                const Pixel p = loadSome(
                    view, from + static_cast<int64_t>(i - first) * bytesPerPixel(view.layout),
                    count);
                const Float planes[4] = {p.x, p.y, p.z, p.w}; // 0 from `count` on
                for (int c = 0; c < 4; ++c) {
                    Float sum;
                    std::memcpy(&sum, columns[c] + i, sizeof sum);
                    sum = sum + planes[c];
                    std::memcpy(columns[c] + i, &sum, sizeof sum);
                }
            }
        }
        for (int c = 0; c < 4; ++c)
            for (int block = 0; block < N; ++block)
                for (int i = 0; i < across; ++i) blocks[c][block] += columns[c][block * across + i];
    }
    Pixel sums;
    std::memcpy(&sums.x, blocks[0], sizeof blocks[0]);
    std::memcpy(&sums.y, blocks[1], sizeof blocks[1]);
    std::memcpy(&sums.z, blocks[2], sizeof blocks[2]);
    std::memcpy(&sums.w, blocks[3], sizeof blocks[3]);
    return sums;
}

/// The same of packed pixels that stay as they are, at a stride of 1.
__attribute__((noinline)) inline Texels texelsAtBorder(SourceView view, int column, int row) {
    uint32_t texels[N];
    for (int i = 0; i < N; ++i) {
        texels[i] = 0;
        if (row >= 0 && row < view.height && column + i >= 0 && column + i < view.width)
            std::memcpy(&texels[i], view.bytes + row * view.rowBytes + (column + i) * 4, 4);
    }
    Texels t;
    std::memcpy(&t, texels, sizeof t);
    return t;
}
VORN_INLINE Texels texelsInRow(const SourceView& view, int x, int y) {
    const int column = x - view.x0, row = view.y0 + view.height - 1 - y;
    if (row < 0 || row >= view.height || column < 0 || column + N > view.width) [[unlikely]]
        return texelsAtBorder(view, column, row);
    return loadTexels(view.bytes + row * view.rowBytes + static_cast<int64_t>(column) * 4);
}

/// The bilinear read of a source at the own pixels moved by an offset, whose fractions weigh all
/// alike: plain loads.
template <Memory memory>
VORN_INLINE Pixel fetchMoved(const SourceView& view, Place place, Vec2<float> offset) {
    const auto limited = [](float v) {
        return std::fabs(v) < 1.0e8f ? v : v < 0 ? -1.0e8f : 1.0e8f;
    };
    const float u = limited(offset.x), v = limited(offset.y);
    if (view.nearest)
        return fetchInRow<memory>(view, place.x + static_cast<int>(std::floor(u + 0.5f)),
                                  place.y + static_cast<int>(std::floor(v + 0.5f)), 1);
    const int x = place.x + static_cast<int>(std::floor(u));
    const int y = place.y + static_cast<int>(std::floor(v));
    const Float fx = u - std::floor(u), fy = v - std::floor(v);
#ifdef VORN_HAS_PAIRS
    if constexpr (isPacked(memory)) {
        const auto row = [&](int up) __attribute__((always_inline)) {
            return joinTexels(texelsInRow(view, x, y + up), texelsInRow(view, x + 1, y + up));
        };
        return blendPacked(row(0), row(1), view.order, fx, fy);
    }
#endif
    const auto blend = [](Pixel a, Pixel b, Float t) -> Pixel {
        return {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t,
                a.w + (b.w - a.w) * t};
    };
    const auto row = [&](int up) {
        return blend(fetchInRow<memory>(view, x, y + up, 1),
                     fetchInRow<memory>(view, x + 1, y + up, 1), fx);
    };
    return blend(row(0), row(1), fy);
}
template <Memory memory>
__attribute__((noinline)) Pixel calledFetchMoved(SourceView view, Place place, Vec2<float> offset) {
    return fetchMoved<memory>(view, place, offset);
}

/// How an axis of a picture is mirrored, as kernels say it.
enum Mirroring { kAsItIs = 0, kFlipped = 1, kLowerSideTwice = 2, kUpperSideTwice = 3 };

template <class Value>
VORN_INLINE Value mirrored(Value here, Value there, int mirroring) {
    switch (mirroring) {
    case kFlipped:
        return there;
    case kLowerSideTwice:
        return here < there ? here : there;
    case kUpperSideTwice:
        return here < there ? there : here;
    default:
        return here;
    }
}
VORN_INLINE Float mirrored(Float here, Float there, int mirroring) {
    switch (mirroring) {
    case kFlipped:
        return there;
    case kLowerSideTwice:
        return min1(here, there);
    case kUpperSideTwice:
        return max1(here, there);
    default:
        return here;
    }
}

/// The pixels at a place mirrored in whole pixels: x becomes acrossSum - x, y becomes upSum - y.
/// Groups that lie on one side of the axis are plain loads.
template <Memory memory>
VORN_INLINE Pixel fetchMirrored(const SourceView& view, Place place, int acrossSum, int upSum,
                                int across, int up) {
    const int y = mirrored(place.y, upSum - place.y, up);
    const int x = place.x, there = acrossSum - x;
    const bool isAtLower = x + N - 1 <= there - (N - 1), isAtUpper = x >= there;
    if (across == kAsItIs || (across == kLowerSideTwice && isAtLower) ||
        (across == kUpperSideTwice && isAtUpper))
        return fetchInRow<memory, SourceView>(view, x, y, 1);
    if (across == kFlipped || isAtLower || isAtUpper)
        return fetchInRow<memory, SourceView>(view, there, y, -1);
    int32_t columns[N];
    for (int i = 0; i < N; ++i) columns[i] = mirrored(x + i, there - i, across) - view.x0;
    Int at;
    std::memcpy(&at, columns, sizeof at);
    return fetchFromRow<memory, SourceView>(view, at, view.y0 + view.height - 1 - y);
}

/// Whether a mirroring takes pixels to pixels.
VORN_INLINE bool isOnPixels(Vec2<float> sum, int across, int up) {
    const auto isWhole = [](float v) { return v == std::floor(v) && std::fabs(v) < 1.0e9f; };
    return (across == kAsItIs || isWhole(sum.x)) && (up == kAsItIs || isWhole(sum.y));
}

/// The centres of the pixels of a group.
VORN_INLINE Vec2<Float> centersOf(Place place) {
    float steps[N];
    for (int i = 0; i < N; ++i) steps[i] = static_cast<float>(i) + 0.5f;
    Float ramp;
    std::memcpy(&ramp, steps, sizeof ramp);
    return {Float(static_cast<float>(place.x)) + ramp, Float(static_cast<float>(place.y) + 0.5f)};
}

template <Memory memory>
VORN_INLINE Pixel mirroredSample(SourceView view, Place place, Vec2<float> sum, int across,
                                 int up) {
    if (isOnPixels(sum, across, up))
        return fetchMirrored<memory>(view, place,
                                     across == kAsItIs ? 0 : static_cast<int>(sum.x) - 1,
                                     up == kAsItIs ? 0 : static_cast<int>(sum.y) - 1, across, up);
    const Vec2<Float> p = centersOf(place);
    return calledSampleAt<memory>(
        view, {mirrored(p.x, Float(sum.x) - p.x, across), mirrored(p.y, Float(sum.y) - p.y, up)});
}
template <Memory memory>
__attribute__((noinline)) Pixel calledMirroredSample(const SourceView& view, Place place,
                                                     Vec2<float> sum, int across, int up) {
    return mirroredSample<memory>(view, place, sum, across, up);
}

/// Moves packed pixels of a row to the places [x0, x1), transparent where there are none; flipped,
/// the place x gets the pixel at sum - x.
VORN_INLINE void moveInRow(const SourceView& source, const uint8_t* from, uint8_t* to, int x0,
                           int x1, bool isFlipped, int sum) {
    if (x0 >= x1) return;
    // The places whose pixels are there.
    const int low = isFlipped ? sum - (source.x0 + source.width - 1) : source.x0;
    const int first = low < x0 ? x0 : low > x1 ? x1 : low;
    const int high = low + source.width;
    const int last = high < first ? first : high > x1 ? x1 : high;
    std::memset(to, 0, static_cast<size_t>(first - x0) * 4);
    to += static_cast<int64_t>(first - x0) * 4;
    if (!isFlipped) {
        std::memcpy(to, from + static_cast<int64_t>(first - source.x0) * 4,
                    static_cast<size_t>(last - first) * 4);
    } else {
        const uint8_t* end = from + static_cast<int64_t>(sum - first - source.x0 + 1) * 4;
        int x = 0;
        for (; x + N <= last - first; x += N) {
            const Texels t = reversed(loadTexels(end - (x + N) * 4));
            std::memcpy(to + x * 4, &t, sizeof t);
        }
        for (; x < last - first; ++x) std::memcpy(to + x * 4, end - (x + 1) * 4, 4);
    }
    std::memset(to + static_cast<int64_t>(last - first) * 4, 0, static_cast<size_t>(x1 - last) * 4);
}

VORN_INLINE bool isSameOrder(ChannelOrder a, ChannelOrder b) {
    return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
}

/// A call whose kernel does nothing but mirror packed pixels, as bytes; false where it has to blend
/// them or to change their order.
VORN_INLINE bool moveMirrored(const KernelCall& call, const SourceView& source, Vec2<float> sum,
                              int across, int up) {
    if (!isSameOrder(source.order, call.target.order) || !isOnPixels(sum, across, up)) return false;
    const int acrossSum = across == kAsItIs ? 0 : static_cast<int>(sum.x) - 1;
    const int upSum = up == kAsItIs ? 0 : static_cast<int>(sum.y) - 1;
    // From here on a place lies above its mirror image.
    const int axis = (acrossSum >> 1) + 1;
    const int limit = across == kAsItIs ? call.x1 : across == kFlipped ? call.x0 : axis;
    const int middle = limit < call.x0 ? call.x0 : limit > call.x1 ? call.x1 : limit;
    for (int y = call.y1 - 1; y >= call.y0; --y) {
        uint8_t* to = call.target.bytes + (call.y1 - 1 - y) * call.target.rowBytes;
        const int row = source.y0 + source.height - 1 - mirrored(y, upSum - y, up);
        if (row < 0 || row >= source.height) {
            std::memset(to, 0, static_cast<size_t>(call.x1 - call.x0) * 4);
            continue;
        }
        const uint8_t* from = source.bytes + row * source.rowBytes;
        const bool isLowerFlipped = across == kUpperSideTwice;
        moveInRow(source, from, to, call.x0, middle, isLowerFlipped, acrossSum);
        moveInRow(source, from, to + static_cast<int64_t>(middle - call.x0) * 4, middle, call.x1,
                  across != kAsItIs && !isLowerFlipped, acrossSum);
    }
    return true;
}

/// The base of every compiled library: holds the place, and gives the text its built-in functions.
/// Texts have no names that begin with "vorn".
template <Memory memory>
struct KernelBase {
    Place vornPlace;
    TargetView vornTarget;
    uint8_t* vornTo; ///< the target's bytes of that place, or those of a row of floats
    int64_t vornPlaneBytes;
    OnePoints* vornPoints;
    Lattices* vornLattices;

    VORN_INLINE Vec2<Float> destCoord() const { return centersOf(vornPlace); }
    VORN_INLINE Pixel sample(Sampler<memory> source, Vec2<Float> point) const {
#ifdef VORN_HAS_PAIRS
        // Packed memory is read in no other way here: see the kernel's entry.
        if (isPacked(memory) || isCommon(source.view)) [[likely]]
            return commonSampleAt(source.view, point);
#endif
        return calledSampleAt<memory>(source.view, point);
    }
    VORN_INLINE Pixel calledSample(Sampler<memory> source, Vec2<Float> point) const {
        return calledSampleAt<memory>(source.view, point);
    }
    VORN_INLINE Pixel sampleShared(Sampler<memory> source, Vec2<Float> point) const {
        return sharedSampleAt<memory>(source.view, point, *vornPoints);
    }
    template <class Function, class... Rest>
    VORN_INLINE auto latticeAt(int site, Function function, Int x, Int y, Rest... rest) const {
        return lanes::latticeAt(*vornLattices, site, function, x, y, rest...);
    }
    /// At a point that is the same for every pixel: what uniforms are made of.
    Vec4<float> sampleOnce(Sampler<memory> source, Vec2<float> point) const {
        const Pixel p =
            calledSampleAt<memory>(source.view, Vec2<Float>{Float(point.x), Float(point.y)});
        float first[4];
        std::memcpy(&first[0], &p.x, 4), std::memcpy(&first[1], &p.y, 4);
        std::memcpy(&first[2], &p.z, 4), std::memcpy(&first[3], &p.w, 4);
        return {first[0], first[1], first[2], first[3]};
    }
    VORN_INLINE Pixel sampleOffset(Sampler<memory> source, int x, int y) const {
        return readInRow<memory>(source.view, vornPlace.x + x, vornPlace.y + y, 1);
    }
    VORN_INLINE Pixel sampleStrided(Sampler<memory> source, int strideX, int strideY, int x,
                                    int y) const {
        return readInRow<memory>(source.view, vornPlace.x * strideX + x, vornPlace.y * strideY + y,
                                 strideX);
    }
    VORN_INLINE Pixel sampleSum(Sampler<memory> source, int across, int up, int x, int y) const {
        return sumsOfBlocks<memory>(source.view, vornPlace.x * across + x, vornPlace.y * up + y,
                                    across, up);
    }
    VORN_INLINE Pixel sampleGaussian(Sampler<memory> source, int x, int y, int reach, float center,
                                     float first, float quotient, float factor) const {
        return gaussianSum<memory>(source.view, vornPlace, x, y, reach,
                                   {center, first, quotient, factor});
    }
    VORN_INLINE Pixel sampleMoved(Sampler<memory> source, Vec2<float> offset) const {
        if constexpr (isPacked(memory))
            return fetchMoved<memory>(source.view, vornPlace, offset);
        else
            return calledFetchMoved<memory>(source.view, vornPlace, offset);
    }
    VORN_INLINE Pixel sampleMirrored(Sampler<memory> source, Vec2<float> sum, int across,
                                     int up) const {
        if constexpr (isPacked(memory))
            return mirroredSample<memory>(source.view, vornPlace, sum, across, up);
        else
            return calledMirroredSample<memory>(source.view, vornPlace, sum, across, up);
    }
    VORN_INLINE Pixel sampleHere(Sampler<memory> source) const {
        return loadHere<memory>(source.view, source.row, vornPlace);
    }

    /// Stores the pixels that a kernel returns. Packed ones that it hands on as they are go past
    /// the arithmetic.
    VORN_INLINE void give(Pixel p) const {
        if constexpr (isPacked(memory))
            storeTexels(vornTo, pack(p, vornTarget.order), vornPlace.count);
        else
            storePlanes(vornTo, vornPlaneBytes, p);
    }
    VORN_INLINE void giveHere(Sampler<memory> source) const {
        if constexpr (isPacked(memory))
            giveTexels(loadTexels(bytesHere(source.view, vornPlace), vornPlace.count),
                       source.view.order);
        else
            give(sampleHere(source));
    }
    VORN_INLINE void giveOffset(Sampler<memory> source, int x, int y) const {
        if constexpr (isPacked(memory))
            giveTexels(texelsInRow(source.view, vornPlace.x + x, vornPlace.y + y),
                       source.view.order);
        else
            give(sampleOffset(source, x, y));
    }
    VORN_INLINE void giveNothing() const {
        const Float zero = 0.0f;
        if constexpr (isPacked(memory))
            storeTexels(vornTo, bitsAs<Texels>(Uint(0u)), vornPlace.count);
        else
            give({zero, zero, zero, zero});
    }
    VORN_INLINE Vec2<Float> samplerCoord(Sampler<memory>) const {
        return destCoord();
    }
    VORN_INLINE Vec2<float> samplerOrigin(Sampler<memory> source) const {
        return {source.view.extent[0], source.view.extent[1]};
    }
    VORN_INLINE Vec2<float> samplerSize(Sampler<memory> source) const {
        return {source.view.extent[2], source.view.extent[3]};
    }
    VORN_INLINE Vec4<float> samplerExtent(Sampler<memory> source) const {
        return {source.view.extent[0], source.view.extent[1], source.view.extent[2],
                source.view.extent[3]};
    }

private:
    VORN_INLINE void giveTexels(Texels texels, ChannelOrder order) const {
        storeTexels(vornTo, reordered(texels, order, vornTarget.order), vornPlace.count);
    }
};

/// Whether every pixel of a packed source at a place is opaque. Groups that are not whole count as
/// not opaque: there is little to gain on them.
VORN_INLINE bool isOpaqueHere(const SourceView& view, Place place) {
    if (place.count < N) return false;
    const int64_t row = view.y0 + view.height - 1 - place.y;
    return areOpaque(
        loadTexels(view.bytes + row * view.rowBytes + static_cast<int64_t>(place.x - view.x0) * 4),
        view.order);
}

/// Calls `group(place, memory to write, bytes of a plane of it)` for every group of a call. Where
/// memory is not packed, `rows(x, y, count)` comes before the groups of those pixels.
template <Memory memory, class RowsFunction, class GroupFunction>
VORN_INLINE void forEachGroup(const KernelCall& call, RowsFunction rows, GroupFunction group) {
    // Copies: the pixels that are written could otherwise be taken for them.
    const TargetView target = call.target;
    const int x0 = call.x0, x1 = call.x1, y0 = call.y0, y1 = call.y1;
    if constexpr (isPacked(memory)) {
        for (int y = y1 - 1; y >= y0; --y) {
            uint8_t* to = target.bytes + (y1 - 1 - y) * target.rowBytes;
            for (int x = x0; x < x1; x += N, to += N * 4)
                group(Place{x, y, x1 - x < N ? x1 - x : N}, to, 0);
        }
    } else {
        RowRoom<memory> room;
        const int bytes = bytesPerPixel(target.layout);
        for (int y = y1 - 1; y >= y0; --y) {
            uint8_t* to = target.bytes + (y1 - 1 - y) * target.rowBytes;
            for (int x = x0; x < x1; x += kRowPixels, to += kRowPixels * bytes) {
                const int count = x1 - x < kRowPixels ? x1 - x : kRowPixels;
                rows(x, y, count);
                const bool isDirect = target.layout == kPlanar && count % N == 0;
                uint8_t* out = isDirect ? to : room.bytes;
                const int64_t planeBytes =
                    isDirect ? target.planeBytes : RowRoom<memory>::kPlaneBytes;
                for (int i = 0; i < count; i += N)
                    group(Place{x + i, y, N}, out + 4 * i, planeBytes);
                if (!isDirect) storeRow<memory>(target, to, count, room.bytes);
            }
        }
    }
}

/// A call whose kernel does nothing but mirror an image.
template <Memory memory>
__attribute__((noinline)) void callMirrored(const KernelCall& call, SourceView source,
                                            Vec2<float> sum, int across, int up) {
    if constexpr (isPacked(memory))
        if (moveMirrored(call, source, sum, across, up)) return;
    const TargetView target = call.target;
    const int bytes = bytesPerPixel(target.layout);
    for (int y = call.y1 - 1; y >= call.y0; --y) {
        uint8_t* to = target.bytes + (call.y1 - 1 - y) * target.rowBytes;
        for (int x = call.x0; x < call.x1; x += N, to += N * bytes) {
            const int count = call.x1 - x < N ? call.x1 - x : N;
            storeSome(target, to,
                      mirroredSample<memory>(source, Place{x, y, count}, sum, across, up), count);
        }
    }
}

// The functions that are called and not inlined are the same in every library. They are compiled
// once for each level, in common.cpp; a library links those that it calls.
#define VORN_COMMON_IN(keyword, memory)                                                            \
    keyword template Pixel calledSampleAt<memory>(const SourceView&, Vec2<Float>);                 \
    keyword template Pixel fetchFromRow<memory, SourceView>(SourceView, Int, int);                 \
    keyword template Pixel fetchFromRow<memory, const SourceView&>(const SourceView&, Int, int);   \
    keyword template Pixel fetchFromRow<memory, SourceView>(SourceView, int, int, int);            \
    keyword template Pixel fetchFromRow<memory, const SourceView&>(const SourceView&, int, int,    \
                                                                   int);                           \
    keyword template Pixel gaussianSum<memory>(const SourceView&, Place, int, int, int, Gaussian); \
    keyword template Pixel sumsOfBlocks<memory>(SourceView, int, int, int, int);                   \
    keyword template Pixel calledMirroredSample<memory>(const SourceView&, Place, Vec2<float>,     \
                                                        int, int);                                 \
    keyword template void callMirrored<memory>(const KernelCall&, SourceView, Vec2<float>, int,    \
                                               int);                                               \
    keyword template Pixel calledFetchMoved<memory>(SourceView, Place, Vec2<float>);
#ifdef VORN_HAS_PAIRS
#define VORN_COMMON_POINTS_IN(keyword, memory)                                                     \
    keyword template __m128 sampleOnePoint<memory>(const SourceView&, float, float);               \
    keyword template Pixel sampleFewPoints<memory>(const SourceView&, Vec2<Float>,                 \
                                                   OnePoints::Known&);
#else
#define VORN_COMMON_POINTS_IN(keyword, memory)                                                     \
    keyword template Pixel calledFetchInRow<memory>(const SourceView&, int, int, int);
#endif
#define VORN_COMMON(keyword)                                                                       \
    VORN_COMMON_IN(keyword, Memory::Packed)                                                        \
    VORN_COMMON_IN(keyword, Memory::Any)                                                           \
    VORN_COMMON_POINTS_IN(keyword, Memory::Packed)                                                 \
    VORN_COMMON_POINTS_IN(keyword, Memory::Any)                                                    \
    keyword template FloatRow rowOf<Memory::Any>(SourceView, int, int, int, uint8_t*);             \
    keyword template void storeRow<Memory::Any>(TargetView, uint8_t*, int, const uint8_t*);
VORN_COMMON(extern)

} // namespace vorn::lanes

// The reference device has whole images in floats.
#if VORN_LANES == 1
#define VORN_PACKED(...) nullptr
#else
#define VORN_PACKED(...) &__VA_ARGS__
#endif
