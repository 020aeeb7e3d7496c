// Where pictures come from: films, still pictures, image sequences and the test card.
#pragma once

#include "settings/placement.h"
#include "values/text.h"

#include "light.h"

#include "media/info.h"
#include "media/reader.h"

#include "vorneffects/CIImage.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorn::hosts::cli {

/// A picture and when it is shown, in units of `timeBase` seconds from the start of its file.
struct SourceFrame {
    CIImage image;
    /// The picture as it is stored, in place of an image, where no effect is to see it.
    std::shared_ptr<const media::Frame> stored;
    std::int64_t pts = 0, duration = 0;
    media::Rational timeBase{1, 1};

    std::int64_t timeNanoseconds() const;
};

/// Gives pictures one after the other, in the order of their times.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    /// False at the end. Throws media::ReadError and media::Interrupted.
    virtual bool read(SourceFrame& frame) = 0;
    /// What went wrong so far without being fatal, one line each.
    virtual std::vector<std::string> warnings() const { return {}; }
    /// What is worth knowing and no fault.
    virtual std::vector<std::string> notes() const { return {}; }
};

struct SourceRequest {
    std::string name; ///< a file, a pattern of numbered files, "-" or "test:…"
    std::optional<media::Size> size;
    /// Where a picture of that size, whose pixels are so wide for their height, is to lie.
    std::function<PlacedRectangle(media::Size size, double pixelShape)> place;
    /// Pictures per second; a film is resampled to it.
    std::optional<media::Rational> rate;
    /// The same for what knows no rate of its own: still and numbered pictures.
    media::Rational usualRate{25, 1};
    media::TimeRange range;
    /// How many frames are wanted at most, which makes a still picture that long.
    std::optional<std::int64_t> frames;
    int threads = 0;
    media::FileAccess access;
    bool passesTracks = false;          ///< a film is made of it, with its sound
    std::optional<media::RawVideo> raw; ///< what headerless pixels look like
    media::Deinterlacing deinterlacing = media::Deinterlacing::None;
    /// Effects are to see light instead of coded values.
    bool isLinear = false;
    /// There are no effects: pictures of 8 bits with alpha are handed on as they are stored.
    bool isUntouched = false;
};

struct OpenedSource {
    std::unique_ptr<FrameSource> frames;
    media::Size size;
    media::PixelFormat format = media::PixelFormat::Rgba8;
    int bitsPerComponent = 8;
    bool hasAlpha = false;
    media::Rational rate{25, 1};
    /// What a film made of it takes over; nothing for the test card.
    std::optional<media::MediaInfo> info;
    CGPoint origin; ///< lower left corner of the images
    media::TimeRange range;
    std::optional<std::int64_t> expectedFrames;
    bool isUntouched = false; ///< frames have `stored` and no image
    bool isStraight = false;  ///< 8 bits with straight alpha, which effects see as floats
    /// Set where `image`s are of light and the context does not know the curve.
    std::shared_ptr<const LightTables> light;
};

/// Throws media::ReadError, media::Interrupted and, for a test card that cannot be made,
/// `HostError`.
OpenedSource openSource(const SourceRequest& request);

/// A second image, which stands still or runs in step with the main one.
class SecondImage {
public:
    /// `main` is the image whose frames the second one is shown with, and `request` how that was
    /// asked for. A test card without a size takes that of the main image.
    SecondImage(SecondPicture picture, const OpenedSource& main, const SourceRequest& request);

    /// The image that is shown at that time; the first one before it, the last one after it. Times
    /// must not decrease.
    CIImage at(std::int64_t nanoseconds);
    std::vector<std::string> warnings() const { return source_->warnings(); }

private:
    void show(SourceFrame frame);

    SecondPicture picture_;
    CGRect frame_; ///< of the main image
    std::unique_ptr<FrameSource> source_;
    SourceFrame next_;
    CIImage read_, shown_; ///< as it was read, and as it lies in the frame
    bool hasNext_ = false;
};

} // namespace vorn::hosts::cli
