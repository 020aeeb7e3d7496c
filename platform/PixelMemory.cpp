// Pixel buffers and surfaces: memory for pixels, and the locks on it.
#include "Guard.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vorn {
namespace {

constexpr size_t kAlignment = 64;
constexpr uint32_t kLargestSide = 131072;

/// The memory of the machine in bytes: no allocation above it can be of use.
size_t machineMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return size_t{1} << 40;
    return static_cast<size_t>(pages) * static_cast<size_t>(pageSize);
}

/// Zeroed memory at a multiple of `kAlignment`, or null. `calloc` hands out large blocks as pages
/// that cost nothing before they are touched, which no aligned allocator does; so the alignment is
/// made here, and the block's own address is kept in front of the aligned one.
uint8_t* allocateZeroed(size_t size) {
    if (size > machineMemory()) return nullptr;
    void* const block = std::calloc(1, size + sizeof(void*) + kAlignment);
    if (!block) return nullptr;
    const uintptr_t first = reinterpret_cast<uintptr_t>(block) + sizeof(void*);
    const uintptr_t aligned = (first + kAlignment - 1) / kAlignment * kAlignment;
    reinterpret_cast<void**>(aligned)[-1] = block;
    return reinterpret_cast<uint8_t*>(aligned);
}

struct FreeAligned {
    void operator()(uint8_t* bytes) const { std::free(reinterpret_cast<void**>(bytes)[-1]); }
};
using PixelBytes = std::unique_ptr<uint8_t, FreeAligned>;

std::atomic<uint64_t> mostPixels = uint64_t{1} << 28;

bool isSizeValid(uint32_t width, uint32_t height) {
    return width > 0 && height > 0 && width <= kLargestSide && height <= kLargestSide &&
           uint64_t{width} * height <= mostPixels;
}

size_t alignedRow(uint32_t width, CIFormat format) {
    const size_t row = size_t{width} * bytesPerPixel(format);
    return (row + kAlignment - 1) / kAlignment * kAlignment;
}

/// The format of a surface's pixel-format code.
std::optional<CIFormat> formatFromCode(uint32_t code) {
    switch (code) {
    case 0x42475241: // 'BGRA'
        return CIFormat::BGRA8;
    case 0x52474241: // 'RGBA'
        return CIFormat::RGBA8;
    case 32: // ARGB has a number for a code
        return CIFormat::ARGB8;
    case 0x52476841: // 'RGhA'
        return CIFormat::RGBAh;
    case 0x52476641: // 'RGfA'
        return CIFormat::RGBAf;
    default:
        return std::nullopt;
    }
}

} // namespace

uint64_t pixelLimit() {
    return mostPixels;
}
void setPixelLimit(uint64_t pixels) {
    mostPixels = pixels;
}

const char* formatName(CIFormat format) {
    switch (format) {
    case CIFormat::RGBA8:
        return "RGBA8";
    case CIFormat::BGRA8:
        return "BGRA8";
    case CIFormat::ARGB8:
        return "ARGB8";
    case CIFormat::RGBAh:
        return "RGBAh";
    case CIFormat::RGBAf:
        return "RGBAf";
    }
    return "unknown";
}

struct PixelMemory::State {
    std::mutex mutex;
    size_t readOnly = 0, readWrite = 0; ///< locks
    std::shared_ptr<DevicePixels> device;
    bool isFetched = true; ///< the memory holds what `device` does
};

PixelMemory::PixelMemory(uint32_t width, uint32_t height, CIFormat format, size_t bytesPerRow,
                         uint8_t* bytes)
    : width_(width), height_(height), format_(format), bytesPerRow_(bytesPerRow), bytes_(bytes),
      state_(std::make_unique<State>()) {}

PixelMemory::~PixelMemory() {
    FreeAligned()(bytes_);
}

/// With the mutex held.
void PixelMemory::fetch() const {
    if (state_->isFetched) return;
    const uint8_t* from = orNothing([&] { return state_->device->hostBytes(); });
    if (!from) return; // the next one who looks tries again
    state_->isFetched = true;
    const size_t row = size_t{width_} * bytesPerPixel(format_);
    for (uint32_t y = 0; y < height_; ++y, from += row)
        std::memcpy(bytes_ + y * bytesPerRow_, from, row);
}

const uint8_t* PixelMemory::bytes() const {
    const std::lock_guard guard(state_->mutex);
    fetch();
    return state_->isFetched ? bytes_ : nullptr;
}

uint8_t* PixelMemory::mutableBytes() {
    const std::lock_guard guard(state_->mutex);
    fetch();
    if (!state_->isFetched) return nullptr;
    state_->device.reset();
    return bytes_;
}

void PixelMemory::keepOnDevice(std::shared_ptr<DevicePixels> pixels) {
    const std::lock_guard guard(state_->mutex);
    state_->device = std::move(pixels);
    state_->isFetched = !state_->device;
    if (state_->readOnly + state_->readWrite > 0) fetch(); // somebody holds the address
}

std::shared_ptr<DevicePixels> PixelMemory::onDevice() const {
    const std::lock_guard guard(state_->mutex);
    return state_->readWrite > 0 ? nullptr : state_->device;
}

int32_t PixelMemory::lock(Access access) {
    const std::lock_guard guard(state_->mutex);
    fetch();
    if (!state_->isFetched) return kStatusAllocationFailed;
    if (access == Access::ReadOnly) {
        ++state_->readOnly;
    } else {
        if (state_->readOnly > 0) return kStatusLocked;
        ++state_->readWrite;
        state_->device.reset();
    }
    return kStatusSuccess;
}

int32_t PixelMemory::unlock(Access access) {
    const std::lock_guard guard(state_->mutex);
    size_t& held = access == Access::ReadOnly ? state_->readOnly : state_->readWrite;
    if (held == 0) return kStatusLocked;
    --held;
    return kStatusSuccess;
}

bool PixelMemory::isLocked() const {
    const std::lock_guard guard(state_->mutex);
    return state_->readOnly > 0 || state_->readWrite > 0;
}

void* PixelMemory::baseAddress() const {
    return isLocked() ? bytes_ : nullptr;
}

std::shared_ptr<PixelBuffer> PixelBuffer::create(uint32_t width, uint32_t height, CIFormat format,
                                                 int32_t* status) {
    int32_t unwantedStatus;
    int32_t& result = status ? *status : unwantedStatus;
    result = kStatusInvalidPixelFormat;
    if (!isKnown(format)) return nullptr;
    result = kStatusInvalidSize;
    if (!isSizeValid(width, height)) return nullptr;
    const size_t bytesPerRow = alignedRow(width, format);
    result = kStatusAllocationFailed;
    PixelBytes bytes(allocateZeroed(bytesPerRow * height));
    if (!bytes) return nullptr;
    return orNothing([&]() -> std::shared_ptr<PixelBuffer> {
        std::unique_ptr<PixelBuffer> buffer(
            new PixelBuffer(width, height, format, bytesPerRow, bytes.get()));
        bytes.release();
        std::shared_ptr<PixelBuffer> shared(std::move(buffer));
        result = kStatusSuccess;
        return shared;
    });
}

std::shared_ptr<Surface> Surface::create(const SurfaceProperties& properties) {
    const std::optional<CIFormat> format = formatFromCode(properties.pixelFormat);
    if (!format || properties.bytesPerElement != bytesPerPixel(*format)) return nullptr;
    if (!isSizeValid(properties.width, properties.height)) return nullptr;
    const size_t row = size_t{properties.width} * properties.bytesPerElement;
    const size_t bytesPerRow =
        properties.bytesPerRow ? properties.bytesPerRow : alignedRow(properties.width, *format);
    // A stride must be whole pixels, so that every one of them is aligned.
    if (bytesPerRow < row || bytesPerRow % properties.bytesPerElement != 0) return nullptr;
    size_t size = 0;
    if (__builtin_mul_overflow(bytesPerRow, size_t{properties.height}, &size)) return nullptr;
    if (properties.allocSize != 0 && properties.allocSize < size) return nullptr;
    PixelBytes bytes(allocateZeroed(std::max(size, properties.allocSize)));
    if (!bytes) return nullptr;
    return orNothing([&]() -> std::shared_ptr<Surface> {
        std::unique_ptr<Surface> surface(
            new Surface(properties.width, properties.height, *format, bytesPerRow, bytes.get()));
        bytes.release();
        return surface;
    });
}

} // namespace vorn
