#include "reader_state.h"

#include "pixels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vorn::media {

namespace {

constexpr double kTimeTolerance = 0.0005;

std::int64_t firstTickAtOrAfter(double seconds, AVRational timeBase) {
    return std::int64_t(std::ceil((seconds - kTimeTolerance) / av_q2d(timeBase)));
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", seconds);
    return text;
}

} // namespace

void Reader::State::setOutput(std::optional<PixelFormat> wantedFormat,
                              std::optional<Size> wantedSize) {
    format =
        wantedFormat.value_or(info.bitsPerComponent > 8 ? PixelFormat::Rgba16 : PixelFormat::Rgba8);
    size = wantedSize.value_or(info.uprightSize);
    if (size.width <= 0 || size.height <= 0) fail("the wanted size is not positive");
}

void Reader::State::warnDamaged(const std::string& what) {
    warnings.add(path + ": " + what);
}

void Reader::State::feed() {
    int result = 0;
    do {
        if (options.access.isStopped()) throw Interrupted();
        av_packet_unref(packet.get());
        result = av_read_frame(input.get(), packet.get());
        if (passed && result >= 0 && packet->stream_index != stream->index) {
            const int track = packet->stream_index;
            passed->pass(*packet);
            packet->stream_index = track;
        }
    } while (result >= 0 && packet->stream_index != stream->index);
    if (result < 0) {
        if (options.access.isStopped()) throw Interrupted();
        if (result != AVERROR_EOF) warnDamaged("reading ended early: " + reasonFor(result));
        isDraining = true;
        avcodec_send_packet(decoder.get(), nullptr);
        return;
    }
    if (packet->flags & AV_PKT_FLAG_CORRUPT) warnDamaged("a packet is damaged");
    result = avcodec_send_packet(decoder.get(), packet.get());
    if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF)
        warnDamaged("a damaged packet was skipped");
}

bool Reader::State::decodeStored(AVFrame& frame) {
    while (true) {
        const int result = avcodec_receive_frame(decoder.get(), &frame);
        if (result >= 0) {
            if (frame.decode_error_flags || (frame.flags & AV_FRAME_FLAG_CORRUPT))
                warnDamaged("a damaged picture was repaired by the decoder");
            return true;
        }
        if (result == AVERROR_EOF) return false;
        if (result == AVERROR(EAGAIN)) {
            if (isDraining) return false;
            feed();
        } else {
            warnDamaged("a damaged packet was skipped");
            if (isDraining && ++faultsWhileDraining > 64) return false;
        }
    }
}

bool Reader::State::decode(AVFrame& frame) {
    if (options.deinterlacing == Deinterlacing::None) return decodeStored(frame);
    try {
        while (!deinterlacer || !deinterlacer->receive(frame)) {
            if (isDeinterlacerEnded) return false;
            sendToDeinterlacer();
        }
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
    return true;
}

void Reader::State::sendToDeinterlacer() {
    if (!decodeStored(*fields)) {
        isDeinterlacerEnded = true;
        if (deinterlacer) deinterlacer->send(nullptr);
        return;
    }
    if (storedFieldOrder == FieldOrder::Unknown)
        storedFieldOrder = fieldOrderOf(*fields, *stream->codecpar);
    // Some codecs leave it to the container to say that there are fields.
    if (!fields->interlaced_frame && storedFieldOrder != FieldOrder::Progressive &&
        !saysFieldsByPicture(*stream->codecpar)) {
        fields->interlaced_frame = 1;
        fields->top_field_first = storedFieldOrder == FieldOrder::TopFirst;
    }
    if (!deinterlacer)
        deinterlacer = std::make_unique<Deinterlacer>(*fields, stream->time_base,
                                                      options.deinterlacing == Deinterlacing::All);
    deinterlacer->send(fields.get());
}

void Reader::State::resetDeinterlacer() {
    deinterlacer.reset();
    isDeinterlacerEnded = false;
}

std::int64_t Reader::State::timeOf(const AVFrame& frame) const {
    std::int64_t pts = frame.best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) pts = frame.pts;
    if (pts == AV_NOPTS_VALUE) return lastPts == AV_NOPTS_VALUE ? 0 : lastPts + usualDuration;
    return pts - startOffset;
}

void Reader::State::beginRange() {
    if (info.kind == MediaKind::Picture) return; // a still picture has no time
    const TimeRange& range = options.range;
    if (range.endSeconds) {
        rangeEnd = firstTickAtOrAfter(*range.endSeconds, stream->time_base);
        exactRangeEnd = std::llround(*range.endSeconds / av_q2d(stream->time_base));
    }
    if (range.startSeconds <= 0) return;
    const std::int64_t start = firstTickAtOrAfter(range.startSeconds, stream->time_base);
    if (timeOf(*next) < start) seekBefore(start);
    while (hasNext && timeOf(*next) < start) advance();
}

void Reader::State::advance() {
    hasNext = decode(*next);
}

void Reader::State::seekBefore(std::int64_t target) {
    const double targetSeconds = double(target) * av_q2d(stream->time_base);
    // Some containers find the key picture by decoding time, which runs ahead of presentation,
    // and some go to any picture, after which the decoder waits for the next key picture.
    for (const double marginSeconds : {0.5, 5.0, 60.0}) {
        if (marginSeconds >= targetSeconds) break;
        const auto wanted =
            startOffset + std::int64_t((targetSeconds - marginSeconds) / av_q2d(stream->time_base));
        const int result =
            avformat_seek_file(input.get(), stream->index, INT64_MIN, wanted, wanted, 0);
        if (result < 0) {
            if (!hasMoved) return; // still at the first picture
            break;
        }
        hasMoved = true;
        avcodec_flush_buffers(decoder.get());
        resetDeinterlacer();
        isDraining = false;
        advance();
        if (hasNext && timeOf(*next) <= target) return;
    }
    if (hasMoved) reopen();
}

void Reader::State::reopen() {
    decoder.reset();
    input.reset();
    resetDeinterlacer();
    isDraining = false;
    open();
    openDecoder();
    advance();
}

void Reader::State::convert(const AVFrame& picture, Frame& frame) {
    const auto pictureFormat = AVPixelFormat(picture.format);
    const PictureCoding from = decideCoding({picture.width, picture.height}, pictureFormat,
                                            colourTags(picture, *stream->codecpar));
    frame.reshape(size, format, &pool);
    Frame* target = &frame;
    if (!orientation.isIdentity()) {
        stored.reshape(orientation.apply(size), format, &pool);
        target = &stored;
    }
    const bool isScaled = target->size() != from.size;
    if (info.hasAlpha && isScaled && !keepsStraightAlpha) {
        // Scaled first, the colours below no alpha would come out at the edges.
        unscaled.reshape(from.size, format, &pool);
        convertPixels(picture, from, unscaled);
        premultiply(unscaled, unscaled);
        AvFrame shell = makeFrame();
        wrapFrame(unscaled, *shell);
        PictureCoding rgb;
        rgb.size = from.size;
        rgb.format = avFormat(format);
        rgb.isFullRange = true;
        scale(*shell, rgb, *target);
        target->alpha = Alpha::Premultiplied;
        limitToAlpha(*target);
    } else {
        convertPixels(picture, from, *target);
        target->alpha = Alpha::Opaque;
        if (info.hasAlpha && keepsStraightAlpha)
            target->alpha = Alpha::Straight;
        else if (info.hasAlpha)
            premultiply(*target, *target);
    }
    if (target != &frame) reorient(*target, orientation, frame);
    frame.alpha = target->alpha;
}

void Reader::State::convertPixels(const AVFrame& picture, const PictureCoding& from,
                                  Frame& target) {
    // The scaler would take 8-bit RGB through YCbCr on its way to 16 bits.
    const bool widens = target.format() == PixelFormat::Rgba16 && isRgb(from.format) &&
                        media::bitsPerComponent(from.format) <= 8;
    if (!widens) {
        scale(picture, from, target);
        return;
    }
    narrow.reshape(target.size(), PixelFormat::Rgba8, &pool);
    scale(picture, from, narrow);
    changeDepth(narrow, target);
}

void Reader::State::scale(const AVFrame& picture, const PictureCoding& from, Frame& target) {
    wrapFrame(target, *scaled);
    PictureCoding to;
    to.size = target.size();
    to.format = avFormat(target.format());
    to.isFullRange = true;
    to.matrix = from.matrix;
    scaler.convert(picture, from, *scaled, to);
    av_frame_unref(scaled.get());
}

bool Reader::State::read(Frame& frame) {
    if (!hasNext) return reportEnd();
    av_frame_unref(current.get());
    std::swap(current, next);
    std::int64_t pts = timeOf(*current);
    if (lastPts != AV_NOPTS_VALUE && pts <= lastPts) {
        warnDamaged("a frame's time does not increase: it was moved behind the one before");
        pts = lastPts + 1;
    }
    lastPts = pts;
    advance();
    if (pts >= rangeEnd) {
        hasNext = false;
        isEndReported = true;
        return false;
    }
    std::int64_t duration =
        hasNext && timeOf(*next) > pts ? timeOf(*next) - pts : lastDuration(*current, pts);
    longestDuration = std::max(longestDuration, duration);
    duration = std::clamp<std::int64_t>(exactRangeEnd - pts, 1, duration);

    try {
        convert(*current, frame);
    } catch (const std::exception& error) {
        fail(error.what());
    }
    frame.pts = pts;
    frame.duration = duration;
    frame.timeBase = info.timeBase;
    lastEnd = pts + duration;
    ++framesRead;
    return true;
}

std::int64_t Reader::State::lastDuration(const AVFrame& picture, std::int64_t pts) const {
    if (const auto end = endOfPictures(*stream)) {
        // Unless the file is cut off: then the end lies far away.
        const std::int64_t rest = *end - startOffset - pts;
        const auto second = std::int64_t(1 / av_q2d(stream->time_base));
        if (rest > 0 && rest <= std::max(second, 4 * longestDuration)) return rest;
    }
    return picture.pkt_duration > 0 ? picture.pkt_duration : usualDuration;
}

bool Reader::State::reportEnd() {
    if (isEndReported) return false;
    isEndReported = true;
    if (framesRead == 0) {
        warnings.add(path + ": no picture lies in the range");
        return false;
    }
    if (!info.durationSeconds || info.kind != MediaKind::Video) return false;
    // The length of a whole file may be that of its sound.
    if (!endOfPictures(*stream) && !info.companions.empty()) return false;
    const double seconds = double(lastEnd) * av_q2d(stream->time_base);
    double promised = *info.durationSeconds;
    if (options.range.endSeconds) promised = std::min(promised, *options.range.endSeconds);
    if (seconds < promised - std::max(0.5, 4 * av_q2d(stream->time_base) * double(usualDuration)))
        warnings.add(path + ": ends early, at " + secondsText(seconds) + " of " +
                     secondsText(promised));
    return false;
}

Reader::Reader(const std::string& path, const ReaderOptions& options)
    : state_(std::make_unique<State>(path, options)) {}
Reader::~Reader() = default;
Reader::Reader(Reader&&) noexcept = default;
Reader& Reader::operator=(Reader&&) noexcept = default;

const MediaInfo& Reader::info() const {
    return state_->info;
}

void Reader::setOutput(std::optional<PixelFormat> format, std::optional<Size> size) {
    state_->setOutput(format, size);
}

void Reader::keepStraightAlpha() {
    state_->keepsStraightAlpha = true;
}

PixelFormat Reader::outputFormat() const {
    return state_->format;
}
Size Reader::outputSize() const {
    return state_->size;
}

bool Reader::read(Frame& frame) {
    return state_->read(frame);
}

std::vector<std::string> Reader::warnings() const {
    return state_->warnings.lines();
}

std::vector<std::string> Reader::notes() const {
    return state_->warnings.notes();
}

} // namespace vorn::media
