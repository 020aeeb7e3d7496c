#include "palette.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace vorn::media {

namespace {

constexpr int kBits = 5;
constexpr int kLevels = 1 << kBits;
constexpr int kCells = kLevels * kLevels * kLevels;
constexpr std::size_t kColours = 255;
constexpr std::uint8_t kTransparent = 255;

struct Colour {
    std::array<int, 3> component{};
};

/// One cell of the histogram: how many pixels fall into it and the sum of their colours.
struct Cell {
    std::array<std::uint64_t, 3> sum{};
    std::uint64_t count = 0;
    std::array<int, 3> position{}; ///< 0 to kLevels - 1 on each axis

    double mean(int axis) const { return double(sum[axis]) / double(count); }
};

/// A run of cells that becomes one colour.
struct Box {
    std::size_t begin = 0, end = 0;
    int longestAxis = 0;
    double spread = 0; ///< squared deviation along the longest axis, over all pixels
};

int cellIndex(int red, int green, int blue) {
    constexpr int kShift = 8 - kBits;
    return ((red >> kShift) << (2 * kBits)) | ((green >> kShift) << kBits) | (blue >> kShift);
}

Box measure(const std::vector<Cell>& cells, std::size_t begin, std::size_t end) {
    Box box{begin, end, 0, -1};
    for (int axis = 0; axis < 3; ++axis) {
        double count = 0, sum = 0, squares = 0;
        for (std::size_t i = begin; i < end; ++i) {
            const double mean = cells[i].mean(axis), weight = double(cells[i].count);
            count += weight;
            sum += weight * mean;
            squares += weight * mean * mean;
        }
        const double spread = squares - sum * sum / count;
        if (spread > box.spread) box.spread = spread, box.longestAxis = axis;
    }
    if (end - begin < 2) box.spread = 0;
    return box;
}

// Cuts at the median pixel, but leaves at least one cell on either side.
std::size_t cutPoint(std::vector<Cell>& cells, const Box& box) {
    const auto first = cells.begin() + std::ptrdiff_t(box.begin);
    const auto last = cells.begin() + std::ptrdiff_t(box.end);
    const int axis = box.longestAxis;
    // The position breaks ties, so that the result does not depend on the order before.
    std::sort(first, last, [axis](const Cell& a, const Cell& b) {
        const double meanA = a.mean(axis), meanB = b.mean(axis);
        return meanA != meanB ? meanA < meanB : a.position < b.position;
    });
    std::uint64_t total = 0, half = 0;
    for (auto it = first; it != last; ++it) total += it->count;
    std::size_t cut = box.begin;
    while (cut + 1 < box.end && half + cells[cut].count <= total / 2) half += cells[cut++].count;
    return std::max(cut, box.begin + 1);
}

std::vector<Cell> histogram(const Frame& frame) {
    std::vector<Cell> all(kCells);
    for (int y = 0; y < frame.height(); ++y) {
        const std::uint8_t* pixel = frame.row(y);
        for (int x = 0; x < frame.width(); ++x, pixel += 4) {
            if (pixel[3] < 128) continue;
            Cell& cell = all[std::size_t(cellIndex(pixel[0], pixel[1], pixel[2]))];
            for (int c = 0; c < 3; ++c) cell.sum[std::size_t(c)] += pixel[c];
            ++cell.count;
        }
    }
    std::vector<Cell> used;
    for (int i = 0; i < kCells; ++i) {
        if (all[std::size_t(i)].count == 0) continue;
        all[std::size_t(i)].position = {i >> (2 * kBits), (i >> kBits) % kLevels, i % kLevels};
        used.push_back(all[std::size_t(i)]);
    }
    return used;
}

std::vector<Colour> choosePalette(const Frame& frame) {
    std::vector<Cell> cells = histogram(frame);
    std::vector<Box> boxes;
    if (!cells.empty()) boxes.push_back(measure(cells, 0, cells.size()));
    while (boxes.size() < kColours && !boxes.empty()) {
        const auto widest =
            std::max_element(boxes.begin(), boxes.end(),
                             [](const Box& a, const Box& b) { return a.spread < b.spread; });
        if (widest->spread <= 0) break;
        const std::size_t cut = cutPoint(cells, *widest);
        const Box left = measure(cells, widest->begin, cut);
        const Box right = measure(cells, cut, widest->end);
        *widest = left;
        boxes.push_back(right);
    }
    std::vector<Colour> palette;
    for (const Box& box : boxes) {
        std::array<std::uint64_t, 3> sum{};
        std::uint64_t count = 0;
        for (std::size_t i = box.begin; i < box.end; ++i) {
            for (std::size_t c = 0; c < 3; ++c) sum[c] += cells[i].sum[c];
            count += cells[i].count;
        }
        Colour colour;
        for (std::size_t c = 0; c < 3; ++c) colour.component[c] = int((sum[c] + count / 2) / count);
        palette.push_back(colour);
    }
    return palette;
}

std::uint8_t nearest(const std::vector<Colour>& palette, const std::array<int, 3>& wanted) {
    int best = INT32_MAX;
    std::uint8_t index = 0;
    for (std::size_t i = 0; i < palette.size(); ++i) {
        // Weights near the eye's: green counts most, blue least.
        const std::array<int, 3>& colour = palette[i].component;
        const int red = colour[0] - wanted[0], green = colour[1] - wanted[1],
                  blue = colour[2] - wanted[2];
        const int distance = 3 * red * red + 6 * green * green + blue * blue;
        if (distance < best) best = distance, index = std::uint8_t(i);
    }
    return index;
}

// An 8 x 8 Bayer matrix, from -31.5 to 31.5, built from the bits of x ^ y and y.
int bayerTimesTwo(int x, int y) {
    int value = 0;
    for (int bit = 0; bit < 3; ++bit) {
        const int shift = 4 - 2 * bit;
        value |= ((((x ^ y) >> bit) & 1) << (shift + 1)) | (((y >> bit) & 1) << shift);
    }
    return 2 * value - 63;
}

} // namespace

void reduceToPalette(const Frame& frame, AVFrame& target) {
    const std::vector<Colour> palette = choosePalette(frame);
    auto* entries = reinterpret_cast<std::uint32_t*>(target.data[1]);
    std::fill(entries, entries + 256, 0u);
    for (std::size_t i = 0; i < palette.size(); ++i) {
        const std::array<int, 3>& c = palette[i].component;
        entries[i] = 0xff000000u | std::uint32_t(c[0]) << 16 | std::uint32_t(c[1]) << 8 |
                     std::uint32_t(c[2]);
    }

    // The nearest entry of each cell is looked up once, when it first occurs. -1: not yet.
    std::vector<std::int16_t> known(kCells, -1);
    // A picture whose cells all have an entry of their own needs no dither.
    const int strength = palette.size() < kColours ? 0 : 12;
    for (int y = 0; y < frame.height(); ++y) {
        const std::uint8_t* pixel = frame.row(y);
        std::uint8_t* out = target.data[0] + std::ptrdiff_t(y) * target.linesize[0];
        for (int x = 0; x < frame.width(); ++x, pixel += 4) {
            if (pixel[3] < 128) {
                out[x] = kTransparent;
                continue;
            }
            const int offset = bayerTimesTwo(x & 7, y & 7) * strength / 126;
            std::array<int, 3> wanted;
            for (std::size_t c = 0; c < 3; ++c)
                wanted[c] = std::clamp(int(pixel[c]) + offset, 0, 255);
            std::int16_t& entry = known[std::size_t(cellIndex(wanted[0], wanted[1], wanted[2]))];
            if (entry < 0) entry = nearest(palette, wanted);
            out[x] = std::uint8_t(entry);
        }
    }
}

} // namespace vorn::media
