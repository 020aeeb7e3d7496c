#include "pixels.h"

#include "commands/commands.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
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

/// Bytes with straight alpha, premultiplied.
media::Frame widenBytes(const media::Frame& bytes, media::FramePool& pool) {
    media::Frame floats = takeFloats(bytes.size(), pool);
    constexpr float unit = 1.0F / 255;
    for (int y = 0; y < bytes.height(); ++y) {
        const uint8_t* in = bytes.row(y);
        auto* out = reinterpret_cast<float*>(floats.row(y));
        for (int x = 0; x < bytes.width(); ++x, in += 4, out += 4) {
            const float alpha = static_cast<float>(in[3]) * unit;
            for (int c = 0; c < 3; ++c) out[c] = static_cast<float>(in[c]) * unit * alpha;
            out[3] = alpha;
        }
    }
    return floats;
}

/// The way back, rounded to nearest.
void narrowToBytes(const media::Frame& floats, media::Frame& bytes) {
    constexpr float largest = 255;
    for (int y = 0; y < bytes.height(); ++y) {
        const auto* in = reinterpret_cast<const float*>(floats.row(y));
        uint8_t* out = bytes.row(y);
        for (int x = 0; x < bytes.width(); ++x, in += 4, out += 4) {
            const float alpha = in[3] > 0 ? std::min(in[3], 1.0F) : 0;
            const float scale = alpha > 0 ? largest / alpha : 0;
            for (int c = 0; c < 3; ++c) {
                const float value = in[c] > 0 ? in[c] * scale : 0;
                out[c] = static_cast<uint8_t>(std::min(value, largest) + 0.5F);
            }
            out[3] = static_cast<uint8_t>(alpha * largest + 0.5F);
        }
    }
}

/// The light of coded values, multiplied with alpha.
media::Frame widenToLight(const media::Frame& words, media::FramePool& pool,
                          const LightTables& light) {
    media::Frame floats = takeFloats(words.size(), pool);
    for (int y = 0; y < words.height(); ++y) {
        const auto* in = reinterpret_cast<const uint16_t*>(words.row(y));
        auto* out = reinterpret_cast<float*>(floats.row(y));
        for (int x = 0; x < words.width(); ++x, in += 4, out += 4) {
            const float alpha = static_cast<float>(in[3]) * (1 / largestWord);
            for (int c = 0; c < 3; ++c) out[c] = light.toLight(in[c]) * alpha;
            out[3] = alpha;
        }
    }
    return floats;
}

/// The coded values of light, divided by alpha.
void narrowFromLight(const media::Frame& floats, media::Frame& words, const LightTables& light) {
    for (int y = 0; y < words.height(); ++y) {
        const auto* in = reinterpret_cast<const float*>(floats.row(y));
        auto* out = reinterpret_cast<uint16_t*>(words.row(y));
        for (int x = 0; x < words.width(); ++x, in += 4, out += 4) {
            const float alpha = in[3] > 0 ? std::min(in[3], 1.0F) : 0;
            const float scale = alpha > 0 ? 1 / alpha : 0;
            for (int c = 0; c < 3; ++c) {
                const float value = light.fromLight(in[c] * scale);
                out[c] = static_cast<uint16_t>(value * largestWord + 0.5F);
            }
            out[3] = static_cast<uint16_t>(alpha * largestWord + 0.5F);
        }
    }
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
bool isEachOpaque(const media::Frame& frame) {
    for (int y = 0; y < frame.height(); ++y) {
        const auto* in = reinterpret_cast<const Component*>(frame.row(y));
        auto common = static_cast<Component>(~Component{0});
        for (int x = 0; x < frame.width(); ++x) common &= in[4 * x + 3];
        if (common != static_cast<Component>(~Component{0})) return false;
    }
    return true;
}

} // namespace

bool isOpaque(const media::Frame& frame) {
    return frame.format() == media::PixelFormat::Rgba16 ? isEachOpaque<uint16_t>(frame)
                                                        : isEachOpaque<uint8_t>(frame);
}

CIImage imageOfFrame(media::Frame frame, media::FramePool& pool, const LightTables* light,
                     CGPoint origin) {
    const bool isDeep = frame.format() == media::PixelFormat::Rgba16;
    const bool isStraightBytes = !isDeep && frame.alpha == media::Alpha::Straight;
    const media::Size size = frame.size();
    const auto owner =
        std::make_shared<const media::Frame>(light             ? widenToLight(frame, pool, *light)
                                             : isDeep          ? widen(frame, pool)
                                             : isStraightBytes ? widenBytes(frame, pool)
                                                               : std::move(frame));
    return CIImage::imageWithBitmap(
        owner->pixels(), static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height),
        owner->strideBytes(), isDeep || isStraightBytes ? CIFormat::RGBAf : CIFormat::RGBA8,
        light ? CGColorSpace::LinearSRGB : CGColorSpace::SRGB, owner, origin);
}

RenderTarget::RenderTarget(media::Size size, media::PixelFormat format, TargetPools& pools,
                           const LightTables* light, bool isStraight)
    : size_(size), words_(&pools.words), light_(light),
      isDeep_(format == media::PixelFormat::Rgba16), isStraight_(isStraight && !isDeep_) {
    frame_ = isDeep_ || isStraight_ ? takeFloats(size, pools.rendered)
                                    : pools.rendered.acquire(size, format);
}

void RenderTarget::take(const media::Frame& picture) {
    const size_t bytes = static_cast<size_t>(size_.width) * 4;
    for (int y = 0; y < size_.height; ++y) std::memcpy(frame_.row(y), picture.row(y), bytes);
    isTaken_ = true;
}

void RenderTarget::start(CIContext& context, const CIImage& image) {
    const CGRect bounds{0, 0, static_cast<double>(size_.width), static_cast<double>(size_.height)};
    task_ = context.startRender(image, frame_.pixels(), frame_.strideBytes(), bounds,
                                isDeep_ || isStraight_ ? CIFormat::RGBAf : CIFormat::RGBA8,
                                light_ ? CGColorSpace::LinearSRGB : CGColorSpace::SRGB);
}

void RenderTarget::wait(const CIContext& context) {
    if (isTaken_ || task_.wait()) return;
    throw HostError(ExitCode::Failed, "rendering failed: " + context.lastError());
}

media::Frame RenderTarget::takeFrame() {
    media::Frame frame;
    if (isDeep_) {
        frame = words_->acquire(size_, media::PixelFormat::Rgba16);
        if (light_) {
            narrowFromLight(frame_, frame, *light_);
        } else {
            narrow(frame_, frame);
        }
        frame_ = media::Frame();
    } else if (isStraight_) {
        frame = words_->acquire(size_, media::PixelFormat::Rgba8);
        narrowToBytes(frame_, frame);
        frame_ = media::Frame();
    } else {
        frame = std::move(frame_);
    }
    const bool opaque = isOpaque(frame);
    const bool isStraight = isTaken_ || isStraight_ || light_;
    frame.alpha = opaque       ? media::Alpha::Opaque
                  : isStraight ? media::Alpha::Straight
                               : media::Alpha::Premultiplied;
    frame.pts = pts;
    frame.duration = duration;
    frame.timeBase = timeBase;
    return frame;
}

} // namespace vorn::hosts::cli
