#include "pixels.h"

#include "commands/commands.h"

#include <cstdint>
#include <utility>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

constexpr float largestWord = 65535;

/// A pooled block of floats, four for each pixel: a frame of 16-bit words that is twice as wide.
media::Frame takeFloats(media::Size size, media::FramePool& pool) {
    return pool.acquire({size.width * 2, size.height}, media::PixelFormat::Rgba16);
}

media::Frame widen(const media::Frame& words, media::FramePool& pool) {
    media::Frame floats = takeFloats(words.size(), pool);
    const size_t count = static_cast<size_t>(words.width()) * 4;
    for (int y = 0; y < words.height(); ++y) {
        const auto* in = reinterpret_cast<const uint16_t*>(words.row(y));
        auto* out = reinterpret_cast<float*>(floats.row(y));
        for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]) * (1 / largestWord);
    }
    return floats;
}

/// Rounds to nearest; values outside 0 to 1 are clamped, not-a-number becomes 0.
void narrow(const media::Frame& floats, media::Frame& words) {
    const size_t count = static_cast<size_t>(words.width()) * 4;
    for (int y = 0; y < words.height(); ++y) {
        const auto* in = reinterpret_cast<const float*>(floats.row(y));
        auto* out = reinterpret_cast<uint16_t*>(words.row(y));
        for (size_t i = 0; i < count; ++i) {
            const float positive = in[i] > 0 ? in[i] : 0;
            const float value = positive < 1 ? positive : 1;
            out[i] = static_cast<uint16_t>(static_cast<int32_t>(value * largestWord + 0.5F));
        }
    }
}

/// Whether every alpha is the largest value. The bits of a whole row are gathered before looking.
template <class Component>
bool isOpaque(const media::Frame& frame) {
    for (int y = 0; y < frame.height(); ++y) {
        const auto* in = reinterpret_cast<const Component*>(frame.row(y));
        auto common = static_cast<Component>(~Component{0});
        for (int x = 0; x < frame.width(); ++x) common &= in[4 * x + 3];
        if (common != static_cast<Component>(~Component{0})) return false;
    }
    return true;
}

} // namespace

CIImage imageOfFrame(media::Frame frame, media::FramePool& pool) {
    const bool isDeep = frame.format() == media::PixelFormat::Rgba16;
    const media::Size size = frame.size();
    const auto owner =
        std::make_shared<const media::Frame>(isDeep ? widen(frame, pool) : std::move(frame));
    return CIImage::imageWithBitmap(owner->pixels(), static_cast<uint32_t>(size.width),
                                    static_cast<uint32_t>(size.height), owner->strideBytes(),
                                    isDeep ? CIFormat::RGBAf : CIFormat::RGBA8, CGColorSpace::SRGB,
                                    owner);
}

RenderTarget::RenderTarget(media::Size size, media::PixelFormat format, TargetPools& pools)
    : size_(size), words_(&pools.words), isDeep_(format == media::PixelFormat::Rgba16) {
    frame_ = isDeep_ ? takeFloats(size, pools.rendered) : pools.rendered.acquire(size, format);
}

void RenderTarget::start(CIContext& context, const CIImage& image) {
    const CGRect bounds{0, 0, static_cast<double>(size_.width), static_cast<double>(size_.height)};
    task_ = context.startRender(image, frame_.pixels(), frame_.strideBytes(), bounds,
                                isDeep_ ? CIFormat::RGBAf : CIFormat::RGBA8);
}

void RenderTarget::wait(const CIContext& context) {
    if (task_.wait()) return;
    throw HostError(ExitCode::Failed, "rendering failed: " + context.lastError());
}

media::Frame RenderTarget::takeFrame() {
    media::Frame frame;
    bool opaque = false;
    if (isDeep_) {
        frame = words_->acquire(size_, media::PixelFormat::Rgba16);
        narrow(frame_, frame);
        frame_ = media::Frame();
        opaque = isOpaque<uint16_t>(frame);
    } else {
        frame = std::move(frame_);
        opaque = isOpaque<uint8_t>(frame);
    }
    frame.alpha = opaque ? media::Alpha::Opaque : media::Alpha::Premultiplied;
    frame.pts = pts;
    frame.duration = duration;
    frame.timeBase = timeBase;
    return frame;
}

} // namespace vorn::hosts::cli
