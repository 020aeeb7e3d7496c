#include "orientation.h"

#include <algorithm>
#include <cstdlib>

namespace vorn::media {

int Orientation::rotationDegrees() const {
    if (!transpose) return flipY ? 180 : 0;
    return flipY != isMirrored() ? 270 : 90;
}

std::optional<Orientation> orientationOf(const std::array<std::int32_t, 9>& m) {
    // x' = m[0] x + m[3] y and y' = m[1] x + m[4] y; a true right angle leaves one pair at zero.
    const std::int64_t straight = std::min(std::llabs(m[0]), std::llabs(m[4]));
    const std::int64_t crossed = std::min(std::llabs(m[1]), std::llabs(m[3]));
    const std::int64_t straightLargest = std::max(std::llabs(m[0]), std::llabs(m[4]));
    const std::int64_t crossedLargest = std::max(std::llabs(m[1]), std::llabs(m[3]));
    if (straight > 0 && crossedLargest * 100 <= straight)
        return Orientation{false, m[0] < 0, m[4] < 0};
    if (crossed > 0 && straightLargest * 100 <= crossed)
        return Orientation{true, m[3] < 0, m[1] < 0};
    return std::nullopt;
}

namespace {

// A transposition walks down columns; blocks keep both sides of it in the cache.
constexpr int kBlock = 32;

template <typename Pixel>
void reorientPixels(const Frame& source, Orientation orientation, Frame& target) {
    const int width = target.width(), height = target.height();
    for (int top = 0; top < height; top += kBlock) {
        for (int left = 0; left < width; left += kBlock) {
            const int bottom = std::min(top + kBlock, height);
            const int right = std::min(left + kBlock, width);
            for (int y = top; y < bottom; ++y) {
                auto* out = reinterpret_cast<Pixel*>(target.row(y));
                const int v = orientation.flipY ? height - 1 - y : y;
                for (int x = left; x < right; ++x) {
                    const int u = orientation.flipX ? width - 1 - x : x;
                    const int sourceX = orientation.transpose ? v : u;
                    const int sourceY = orientation.transpose ? u : v;
                    out[x] = reinterpret_cast<const Pixel*>(source.row(sourceY))[sourceX];
                }
            }
        }
    }
}

} // namespace

void reorient(const Frame& source, Orientation orientation, Frame& target) {
    if (source.format() == PixelFormat::Rgba8)
        reorientPixels<std::uint32_t>(source, orientation, target);
    else
        reorientPixels<std::uint64_t>(source, orientation, target);
}

} // namespace vorn::media
