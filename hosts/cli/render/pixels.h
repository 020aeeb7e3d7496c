// Between the frames of the media layer and the images of the framework. Opaque pictures of 8 bits
// are worked on where they lie; others pass as 32-bit floats, which hold 16 bits exactly.
#pragma once

#include "light.h"

#include "media/frame.h"

#include "vorneffects/CIContext.h"

namespace vorn::hosts::cli {

/// A lazy image of a frame, which goes back to its pool with the last image that is made of it.
/// Deep frames, and those with straight alpha, take their floats from `pool`. With tables, the
/// frame is deep, its alpha opaque or straight, and the image is of light; other deep frames are
/// opaque or premultiplied. `origin` is the lower left corner of the image.
CIImage imageOfFrame(media::Frame frame, media::FramePool& pool, const LightTables* light = nullptr,
                     CGPoint origin = {});

/// Whether every alpha of a frame is the largest value.
bool isOpaque(const media::Frame& frame);

/// Where the pixels of targets come from; blocks of one size each, so that none is ever too small.
struct TargetPools {
    media::FramePool rendered, words;
};

/// A picture on its way from the effects to the encoder.
class RenderTarget {
public:
    /// `pools` and `light`, which is null unless light is coded again, outlive the target. A frame
    /// of 8 bits that `isStraight` is rendered as floats, so that a small alpha costs no colour.
    RenderTarget(media::Size size, media::PixelFormat format, TargetPools& pools,
                 const LightTables* light = nullptr, bool isStraight = false);

    /// Takes a picture of 8 bits as it is stored, past all effects.
    void take(const media::Frame& picture);
    /// Starts to render the rectangle (0, 0, width, height) of an image.
    void start(CIContext& context, const CIImage& image);
    /// Waits for that. A `HostError` when it has failed.
    void wait(const CIContext& context);
    /// The frame of the format that was asked for, with its alpha stated. Called once.
    media::Frame takeFrame();

    /// The time of the picture, which becomes that of the frame.
    std::int64_t pts = 0, duration = 0;
    media::Rational timeBase{1, 1};

private:
    media::Size size_;
    media::FramePool* words_;
    const LightTables* light_;
    media::Frame frame_; ///< what is rendered into: 8-bit pixels or floats
    RenderTask task_;
    bool isDeep_, isStraight_, isTaken_ = false;
};

} // namespace vorn::hosts::cli
