#include "testimage.h"

#include "commands.h"
#include "testcard/testcard.h"

#include <memory>

#include <fmt/format.h>

#include <sys/mman.h>

namespace vorn::hosts::cli {

CIImage testImage(const PlacedSize& placed) {
    constexpr size_t largestDrawn = size_t{4} << 20;
    const auto [width, height] = placed.size;
    const size_t bytesPerRow = size_t{width} * 4;
    size_t length = 0;
    void* memory = MAP_FAILED;
    if (!__builtin_mul_overflow(bytesPerRow, size_t{height}, &length)) {
        memory = mmap(nullptr, length, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }
    if (memory == MAP_FAILED) {
        throw HostError(
            ExitCode::Usage,
            fmt::format("an image of {}x{} is larger than memory can address", width, height));
    }
    const std::shared_ptr<void> owner(memory, [length](void* m) { munmap(m, length); });

    const bool isDrawable = width <= TestCard::kLargestSide && height <= TestCard::kLargestSide;
    if (isDrawable && size_t{width} * height <= largestDrawn) {
        const TestCard card(static_cast<int>(width), static_cast<int>(height));
        card.draw(static_cast<uint8_t*>(memory), bytesPerRow, 0, 0, 25);
    }
    return CIImage::imageWithBitmap(memory, width, height, bytesPerRow, CIFormat::RGBA8,
                                    CGColorSpace::SRGB, owner, placed.origin);
}

} // namespace vorn::hosts::cli
