#include "frame.h"

#include <mutex>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/mathematics.h>
}

namespace vorn::media {

struct Frame::PoolState {
    std::mutex mutex;
    std::vector<AVBufferRef*> idle;
    std::size_t allocations = 0;

    ~PoolState() {
        for (AVBufferRef* buffer : idle) av_buffer_unref(&buffer);
    }

    AVBufferRef* take(std::size_t bytes) {
        std::lock_guard lock(mutex);
        for (auto it = idle.begin(); it != idle.end(); ++it) {
            if ((*it)->size < bytes) continue;
            AVBufferRef* buffer = *it;
            idle.erase(it);
            return buffer;
        }
        // Every idle buffer is too small: the size has changed, so the old ones are of no use.
        for (AVBufferRef*& buffer : idle) av_buffer_unref(&buffer);
        idle.clear();
        ++allocations;
        return av_buffer_alloc(bytes);
    }
};

namespace {

// Vector code in the scaler wants aligned rows and may touch a vector's width past the last pixel.
constexpr std::size_t kAlignment = 64;

std::int64_t toNanoseconds(std::int64_t ticks, Rational timeBase) {
    return av_rescale_q(ticks, {timeBase.numerator, timeBase.denominator}, {1, 1000000000});
}

} // namespace

void Frame::reshape(Size size, PixelFormat format, FramePool* pool) {
    if (size.width <= 0 || size.height <= 0)
        throw std::invalid_argument("a frame needs a positive width and height");
    const std::size_t row = std::size_t(size.width) * std::size_t(bytesPerPixel(format));
    const std::size_t stride = (row + kAlignment - 1) / kAlignment * kAlignment;
    if (stride > (std::size_t(1) << 31) / std::size_t(size.height))
        throw std::invalid_argument("the picture is too large");
    const std::size_t bytes = stride * std::size_t(size.height) + 2 * kAlignment;

    if (!buffer_ || buffer_->size < bytes) {
        release();
        home_ = pool ? pool->state_ : nullptr;
        buffer_ = home_ ? home_->take(bytes) : av_buffer_alloc(bytes);
        if (!buffer_) throw std::bad_alloc();
    }
    const auto address = reinterpret_cast<std::uintptr_t>(buffer_->data);
    pixels_ = buffer_->data + (kAlignment - address % kAlignment) % kAlignment;
    strideBytes_ = stride;
    size_ = size;
    format_ = format;
}

std::int64_t Frame::timeNanoseconds() const {
    return toNanoseconds(pts, timeBase);
}

std::int64_t Frame::durationNanoseconds() const {
    return toNanoseconds(duration, timeBase);
}

void Frame::copyTimeFrom(const Frame& other) {
    pts = other.pts;
    duration = other.duration;
    timeBase = other.timeBase;
}

void Frame::swap(Frame& other) noexcept {
    std::swap(alpha, other.alpha);
    std::swap(pts, other.pts);
    std::swap(duration, other.duration);
    std::swap(timeBase, other.timeBase);
    std::swap(home_, other.home_);
    std::swap(buffer_, other.buffer_);
    std::swap(pixels_, other.pixels_);
    std::swap(strideBytes_, other.strideBytes_);
    std::swap(size_, other.size_);
    std::swap(format_, other.format_);
}

void Frame::release() noexcept {
    if (!buffer_) return;
    if (home_) {
        try {
            std::lock_guard lock(home_->mutex);
            home_->idle.push_back(buffer_);
            buffer_ = nullptr;
        } catch (const std::bad_alloc&) {
            // No room to remember the buffer: it is freed below instead.
        }
    }
    if (buffer_) av_buffer_unref(&buffer_);
    home_.reset();
    pixels_ = nullptr;
    size_ = {};
}

FramePool::FramePool() : state_(std::make_shared<Frame::PoolState>()) {}

Frame FramePool::acquire(Size size, PixelFormat format) {
    Frame frame;
    frame.reshape(size, format, this);
    return frame;
}

std::size_t FramePool::allocations() const {
    std::lock_guard lock(state_->mutex);
    return state_->allocations;
}

} // namespace vorn::media
