#include "source.h"

#include "commands/commands.h"
#include "pixels.h"
#include "testcard/testcard.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

/// Times are compared to half a millisecond, so that 0.042 means the frame at 1/24 s.
constexpr double timeTolerance = 0.0005;

constexpr double testCardSeconds = 5;
constexpr media::Size testCardSize{1280, 720};

std::int64_t firstTickAtOrAfter(double seconds, media::Rational rate) {
    return static_cast<std::int64_t>(std::ceil((seconds - timeTolerance) * rate.value()));
}

class MediaSource final : public FrameSource {
public:
    MediaSource(media::Reader reader, const OpenedSource& opened)
        : reader_(std::move(reader)), isUntouched_(opened.isUntouched), light_(opened.light),
          origin_(opened.origin) {}

    bool read(SourceFrame& frame) override {
        media::Frame picture;
        if (!reader_.read(picture)) return false;
        frame.pts = picture.pts;
        frame.duration = picture.duration;
        frame.timeBase = picture.timeBase;
        if (isUntouched_) {
            frame.stored = std::make_shared<const media::Frame>(std::move(picture));
        } else {
            frame.image = imageOfFrame(std::move(picture), floats_, light_.get(), origin_);
        }
        return true;
    }

    std::vector<std::string> warnings() const override { return reader_.warnings(); }
    std::vector<std::string> notes() const override { return reader_.notes(); }

private:
    media::Reader reader_;
    bool isUntouched_;
    std::shared_ptr<const LightTables> light_;
    CGPoint origin_;
    media::FramePool floats_;
};

/// The ticks of a constant rate; without an end they go on for ever.
class Ticks {
public:
    Ticks(media::Rational rate, std::int64_t first, std::optional<std::int64_t> end)
        : rate_(rate), next_(first), end_(end) {}

    bool take(SourceFrame& frame) {
        if (end_ && next_ >= *end_) return false;
        frame.pts = next_++;
        frame.duration = 1;
        frame.timeBase = rate_.inverse();
        return true;
    }
    double seconds(std::int64_t tick) const { return static_cast<double>(tick) / rate_.value(); }
    double rate() const { return rate_.value(); }
    std::optional<std::int64_t> count() const {
        if (!end_) return {};
        return std::max<std::int64_t>(0, *end_ - next_);
    }

private:
    media::Rational rate_;
    std::int64_t next_;
    std::optional<std::int64_t> end_;
};

Ticks ticksIn(const media::TimeRange& range, media::Rational rate) {
    std::optional<std::int64_t> end;
    if (range.endSeconds) end = firstTickAtOrAfter(*range.endSeconds, rate);
    return {rate, firstTickAtOrAfter(range.startSeconds, rate), end};
}

class TestCardSource final : public FrameSource {
public:
    TestCardSource(media::Size size, CGPoint origin, Ticks ticks)
        : size_(size), origin_(origin), ticks_(ticks), card_(size.width, size.height) {}

    bool read(SourceFrame& frame) override {
        if (!ticks_.take(frame)) return false;
        media::Frame picture = pool_.acquire(size_, media::PixelFormat::Rgba8);
        card_.draw(picture.pixels(), picture.strideBytes(), ticks_.seconds(frame.pts), frame.pts,
                   ticks_.rate());
        frame.image = imageOfFrame(std::move(picture), pool_, nullptr, origin_);
        return true;
    }

private:
    media::Size size_;
    CGPoint origin_;
    Ticks ticks_;
    TestCard card_;
    media::FramePool pool_;
};

/// One picture, shown at every tick.
class StillSource final : public FrameSource {
public:
    StillSource(SourceFrame picture, Ticks ticks, std::vector<std::string> warnings)
        : picture_(std::move(picture)), ticks_(ticks), warnings_(std::move(warnings)) {}

    bool read(SourceFrame& frame) override {
        if (!ticks_.take(frame)) return false;
        frame.image = picture_.image;
        frame.stored = picture_.stored;
        return true;
    }
    std::vector<std::string> warnings() const override { return warnings_; }

private:
    SourceFrame picture_;
    Ticks ticks_;
    std::vector<std::string> warnings_;
};

/// Another source at a constant rate: at every tick the frame whose time is nearest.
class ResampledSource final : public FrameSource {
public:
    ResampledSource(std::unique_ptr<FrameSource> source, media::Rational rate)
        : source_(std::move(source)), rate_(rate) {}

    bool read(SourceFrame& frame) override {
        if (!hasBegun_ && !begin()) return false;
        const double seconds = static_cast<double>(tick_) / rate_.value();
        constexpr double rounding = 1e-6; // of two that are as near, the earlier one
        while (hasNext_ && std::fabs(secondsOf(next_) - seconds) + rounding <
                               std::fabs(secondsOf(current_) - seconds)) {
            advance();
        }
        if (!hasNext_ && !isFirst_ && seconds > endOf(current_) - timeTolerance) return false;
        isFirst_ = false;
        frame = {current_.image, current_.stored, tick_++, 1, rate_.inverse()};
        return true;
    }

    std::vector<std::string> warnings() const override { return source_->warnings(); }
    std::vector<std::string> notes() const override { return source_->notes(); }

private:
    static double secondsOf(const SourceFrame& frame) {
        return static_cast<double>(frame.pts) * frame.timeBase.value();
    }
    static double endOf(const SourceFrame& frame) {
        return static_cast<double>(frame.pts + frame.duration) * frame.timeBase.value();
    }

    bool begin() {
        hasBegun_ = true;
        if (!source_->read(current_)) return false;
        tick_ = std::llround(secondsOf(current_) * rate_.value());
        hasNext_ = source_->read(next_);
        return true;
    }
    void advance() {
        current_ = next_;
        hasNext_ = source_->read(next_);
    }

    std::unique_ptr<FrameSource> source_;
    media::Rational rate_;
    SourceFrame current_, next_;
    std::int64_t tick_ = 0;
    bool hasBegun_ = false, hasNext_ = false, isFirst_ = true;
};

void lay(OpenedSource& opened, const PlacedRectangle& placed) {
    opened.size = placed.size;
    opened.origin = {static_cast<double>(placed.x), static_cast<double>(placed.y)};
}

OpenedSource openTestCard(const SourceRequest& request, const TestCardRequest& card) {
    OpenedSource opened;
    opened.size = testCardSize;
    if (card.size) {
        // What a signed size cannot hold is above the limit anyway.
        constexpr uint32_t most = TestCard::kLargestSide + 1;
        opened.size = {static_cast<int>(std::min(card.size->width, most)),
                       static_cast<int>(std::min(card.size->height, most))};
    }
    if (request.size) opened.size = *request.size;
    if (request.place) lay(opened, request.place(opened.size, 1));
    if (std::max(opened.size.width, opened.size.height) > TestCard::kLargestSide) {
        throw HostError(ExitCode::Usage, fmt::format("{}: each side of the test card is at most {}",
                                                     request.name, int{TestCard::kLargestSide}));
    }
    opened.rate = request.rate.value_or(card.rate.value_or(request.usualRate));
    opened.range = request.range;
    const bool isEndless = request.frames && !card.durationSeconds;
    if (!opened.range.endSeconds && !isEndless) {
        opened.range.endSeconds =
            opened.range.startSeconds + card.durationSeconds.value_or(testCardSeconds);
    }
    const Ticks ticks = ticksIn(opened.range, opened.rate);
    opened.expectedFrames = ticks.count();
    opened.frames = std::make_unique<TestCardSource>(opened.size, opened.origin, ticks);
    return opened;
}

/// Keeps the shape of the picture when its size changes, to the rounding of whole pixels.
media::Rational pixelAspectAfterScaling(const media::MediaInfo& info, media::Size upright) {
    constexpr double rounding = 0.01;
    constexpr std::int64_t largest = 65535; // what files hold
    const media::Rational old = info.sampleAspectRatio;
    const media::Size stored = info.rotationDegrees % 180 != 0 ? upright.transposed() : upright;
    std::int64_t wider = std::int64_t{info.storedSize.width} * stored.height;
    std::int64_t higher = std::int64_t{info.storedSize.height} * stored.width;
    const double change = static_cast<double>(wider) / static_cast<double>(higher);
    if (!old.isPositive() || std::fabs(change - 1) < rounding) return old;

    const std::int64_t common = std::gcd(wider, higher);
    wider /= common, higher /= common;
    if (old == media::Rational{1, 1} && wider <= largest && higher <= largest) {
        return {static_cast<int>(wider), static_cast<int>(higher)};
    }
    constexpr double unit = 1000;
    const double ratio = std::clamp(old.value() * change, 1 / unit, largest / unit);
    return {static_cast<int>(std::lround(ratio * unit)), static_cast<int>(unit)};
}

OpenedSource openStill(media::Reader reader, const SourceRequest& request, OpenedSource opened) {
    if (!opened.range.endSeconds && !request.frames) {
        opened.range.endSeconds = opened.range.startSeconds + 1 / opened.rate.value();
    }
    const Ticks ticks = ticksIn(opened.range, opened.rate);
    media::Frame picture;
    if (!reader.read(picture)) throw media::ReadError("cannot read " + request.name);
    // Many pictures have a place for transparency and none in it.
    if (isOpaque(picture)) {
        picture.alpha = media::Alpha::Opaque;
        opened.hasAlpha = opened.isStraight = false;
    }
    SourceFrame frame;
    if (opened.isUntouched) {
        frame.stored = std::make_shared<const media::Frame>(std::move(picture));
    } else {
        media::FramePool floats;
        frame.image = imageOfFrame(std::move(picture), floats, opened.light.get(), opened.origin);
    }
    opened.expectedFrames = ticks.count();
    opened.frames = std::make_unique<StillSource>(std::move(frame), ticks, reader.warnings());
    return opened;
}

/// About how many frames lie in the range, if the file tells.
std::optional<std::int64_t> expectedFrames(const media::MediaInfo& info,
                                           const media::TimeRange& range, media::Rational rate,
                                           bool isResampled) {
    const bool isWhole = range.startSeconds <= 0 && !range.endSeconds;
    if (isWhole && !isResampled && info.frameCount) return info.frameCount;
    std::optional<double> end = info.durationSeconds;
    if (!end && info.frameCount && info.frameRate.isPositive()) {
        end = static_cast<double>(*info.frameCount) / info.frameRate.value();
    }
    if (!end) return {};
    if (range.endSeconds) end = std::min(*end, *range.endSeconds);
    return std::llround(std::max(0.0, *end - range.startSeconds) * rate.value());
}

void setConstantRate(media::MediaInfo& info, media::Rational rate) {
    info.frameRate = info.baseFrameRate = rate;
    info.timeBase = rate.inverse();
    info.hasVariableFrameRate = false;
}

/// How wide the pixels of the upright picture are for their height.
double uprightPixelShape(const media::MediaInfo& info) {
    const media::Rational stored = info.sampleAspectRatio;
    if (!stored.isPositive()) return 1;
    return info.rotationDegrees % 180 != 0 ? 1 / stored.value() : stored.value();
}

/// Decides what effects are to see of a file, and has it read so.
void chooseForm(const SourceRequest& request, media::Reader& reader, OpenedSource& opened) {
    const media::MediaInfo& info = reader.info();
    const bool isScaled = reader.outputSize() != info.uprightSize;
    const bool isDeep = reader.outputFormat() == media::PixelFormat::Rgba16;
    const media::ColourMeaning meaning = media::meaningOf(info);
    const bool isStraight = info.hasAlpha && !isDeep && !isScaled;
    opened.isUntouched = request.isUntouched && isStraight;
    // The framework knows the curve of sRGB itself.
    if (request.isLinear && meaning.curve != media::TransferCurve::SRGB) {
        if (meaning.curve == media::TransferCurve::Unknown) {
            throw HostError(ExitCode::Usage,
                            fmt::format("--working-space linear: the transfer {} of {} cannot be "
                                        "undone; none works on the values as they are stored",
                                        meaning.transfer, request.name));
        }
        opened.light = std::make_shared<const LightTables>(meaning.curve);
    }
    opened.isStraight = isStraight && !opened.isUntouched && !opened.light;
    if (isStraight || opened.light) reader.keepStraightAlpha();
    // Colours that are multiplied with a small alpha would keep a few steps of 8 bits.
    const bool needsDepth = opened.light || (info.hasAlpha && !isStraight);
    if (needsDepth) reader.setOutput(media::PixelFormat::Rgba16, reader.outputSize());
    opened.format = reader.outputFormat();
}

} // namespace

std::int64_t SourceFrame::timeNanoseconds() const {
    media::Frame time;
    time.pts = pts;
    time.timeBase = timeBase;
    return time.timeNanoseconds();
}

OpenedSource openSource(const SourceRequest& request) {
    if (const auto card = parseTestCard(request.name)) return openTestCard(request, *card);

    media::ReaderOptions options;
    options.outputSize = request.size;
    options.range = request.range;
    options.threads = request.threads;
    options.access = request.access;
    options.sequenceRate = request.rate.value_or(request.usualRate);
    options.deinterlacing = request.deinterlacing;
    options.raw = request.raw;
    options.passesTracks = request.passesTracks;
    media::Reader reader(request.name, options);

    OpenedSource opened;
    opened.info = reader.info();
    media::MediaInfo& info = *opened.info;
    opened.size = reader.outputSize();
    if (request.place) {
        lay(opened, request.place(opened.size, uprightPixelShape(info)));
        if (opened.size != info.uprightSize) reader.setOutput(reader.outputFormat(), opened.size);
    }
    chooseForm(request, reader, opened);
    opened.bitsPerComponent = info.bitsPerComponent;
    opened.hasAlpha = info.hasAlpha;
    opened.range = request.range;
    info.sampleAspectRatio = pixelAspectAfterScaling(info, opened.size);

    const bool isVideo = info.kind == media::MediaKind::Video;
    opened.rate = request.rate.value_or(isVideo && info.frameRate.isPositive() ? info.frameRate
                                                                               : request.usualRate);
    if (info.kind == media::MediaKind::Picture) {
        setConstantRate(info, opened.rate);
        return openStill(std::move(reader), request, std::move(opened));
    }
    const bool isResampled = isVideo && request.rate;
    opened.expectedFrames = expectedFrames(info, request.range, opened.rate, isResampled);
    opened.frames = std::make_unique<MediaSource>(std::move(reader), opened);
    if (isResampled) {
        setConstantRate(info, opened.rate);
        opened.frames = std::make_unique<ResampledSource>(std::move(opened.frames), opened.rate);
    }
    return opened;
}

SecondImage::SecondImage(SecondPicture picture, const OpenedSource& main,
                         const SourceRequest& mainRequest)
    : picture_(std::move(picture)), frame_{0, 0, static_cast<double>(main.size.width),
                                           static_cast<double>(main.size.height)} {
    SourceRequest request;
    request.name = picture_.name;
    request.threads = mainRequest.threads;
    request.access = mainRequest.access;
    request.deinterlacing = mainRequest.deinterlacing;
    request.isLinear = mainRequest.isLinear;
    request.usualRate = main.rate;
    request.frames = std::numeric_limits<std::int64_t>::max();
    // Some frames before the first one that is needed, for the one that is shown by then may be
    // old.
    constexpr double lead = 2;
    request.range.startSeconds = std::max(0.0, main.range.startSeconds - lead);
    if (const auto card = parseTestCard(request.name); card && !card->size)
        request.size = main.size;
    const double mainShape = main.info ? uprightPixelShape(*main.info) : 1;
    request.place = [&](media::Size size, double pixelShape) {
        return placedIn(main.size, size, pixelShape / mainShape, picture_);
    };
    source_ = openSource(request).frames;
    SourceFrame first;
    if (!source_->read(first)) {
        throw media::ReadError(fmt::format("cannot read {}: it has no picture at {:.3f} s or later",
                                           request.name, request.range.startSeconds));
    }
    show(std::move(first));
    hasNext_ = source_->read(next_);
}

void SecondImage::show(SourceFrame frame) {
    if (frame.image == read_) return;
    shown_ = read_ = std::move(frame.image);
    const CGRect own = read_.extent();
    if (!picture_.placement.isInFrame() || own == frame_) return;
    const CIImage clear = CIImage::imageWithColor(CIColor(0, 0, 0, 0));
    shown_ = read_.imageByCroppingToRect(frame_);
    if (shown_.extent() != frame_)
        shown_ = shown_.imageByCompositingOverImage(clear.imageByCroppingToRect(frame_));
}

CIImage SecondImage::at(std::int64_t nanoseconds) {
    while (hasNext_ && next_.timeNanoseconds() <= nanoseconds) {
        show(next_);
        hasNext_ = source_->read(next_);
    }
    return shown_;
}

} // namespace vorn::hosts::cli
