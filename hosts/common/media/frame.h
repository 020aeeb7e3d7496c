// A picture in memory with its time, and the pool that its pixels come from.
#pragma once

#include "types.h"

#include <cstddef>
#include <memory>

struct AVBufferRef;

namespace vorn::media {

/// What the alpha component of a frame means.
enum class Alpha : std::uint8_t {
    Opaque,        ///< every alpha is the largest value
    Premultiplied, ///< the colours are multiplied with alpha already
    Straight,      ///< the colours are independent of alpha
};

class FramePool;

/// One RGBA picture, top row first, with its presentation time. Movable, not copyable. The pixels
/// go back to the pool they came from when the frame is destroyed or reshaped.
class Frame {
public:
    Frame() = default;
    /// A frame with pixels of its own (not pooled), uninitialised.
    Frame(Size size, PixelFormat format) { reshape(size, format); }
    Frame(Frame&& other) noexcept { swap(other); }
    Frame& operator=(Frame&& other) noexcept {
        swap(other);
        return *this;
    }
    ~Frame() { release(); }

    /// Gives the frame that size and format; the pixels become undefined. Allocates only when the
    /// present buffer is too small, from `pool` if one is given. Throws std::bad_alloc, and
    /// std::invalid_argument for a size that is not positive or above 2^31 bytes.
    void reshape(Size size, PixelFormat format, FramePool* pool = nullptr);

    bool isEmpty() const { return buffer_ == nullptr; }
    int width() const { return size_.width; }
    int height() const { return size_.height; }
    Size size() const { return size_; }
    PixelFormat format() const { return format_; }

    /// Distance between two rows in bytes, a multiple of 64.
    std::size_t strideBytes() const { return strideBytes_; }
    std::uint8_t* pixels() { return pixels_; }
    const std::uint8_t* pixels() const { return pixels_; }
    std::uint8_t* row(int y) { return pixels_ + strideBytes_ * std::size_t(y); }
    const std::uint8_t* row(int y) const { return pixels_ + strideBytes_ * std::size_t(y); }

    Alpha alpha = Alpha::Opaque;

    /// Presentation time and duration, in units of `timeBase` seconds: exact.
    std::int64_t pts = 0;
    std::int64_t duration = 0;
    Rational timeBase{1, 1};

    /// The same, rounded to nanoseconds.
    std::int64_t timeNanoseconds() const;
    std::int64_t durationNanoseconds() const;

    /// Takes over time, duration and time base of another frame.
    void copyTimeFrom(const Frame& other);

    /// The reference-counted buffer behind the pixels, for this layer's own use.
    AVBufferRef* buffer() const { return buffer_; }

private:
    friend class FramePool;
    struct PoolState;

    void swap(Frame& other) noexcept;
    void release() noexcept;

    std::shared_ptr<PoolState> home_;
    AVBufferRef* buffer_ = nullptr;
    std::uint8_t* pixels_ = nullptr;
    std::size_t strideBytes_ = 0;
    Size size_;
    PixelFormat format_ = PixelFormat::Rgba8;
};

/// Buffers that frames hand back and take again; may be used by several threads, and may end
/// before its frames do.
class FramePool {
public:
    FramePool();

    /// A frame with undefined pixels from the pool.
    Frame acquire(Size size, PixelFormat format);

    /// How many buffers were ever allocated: it stands still in the steady state.
    std::size_t allocations() const;

private:
    friend class Frame;
    std::shared_ptr<Frame::PoolState> state_;
};

} // namespace vorn::media
