#include "reader.h"

#include "orientation.h"
#include "pixels.h"
#include "probe.h"
#include "scaler.h"
#include "sequence.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

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

bool isStillDemuxer(const std::string& name) {
    return name == "image2" || (name.ends_with("_pipe") && name != "yuv4mpegpipe");
}

// Text files are taken for terminal art by these; nobody means that.
bool isTextDemuxer(const std::string& name) {
    for (const char* text : {"tty", "bin", "xbin", "adf", "idf"})
        if (name == text) return true;
    return false;
}

} // namespace

struct Reader::State {
    std::string path;
    ReaderOptions options;
    MediaInfo info;
    Warnings warnings;

    AvInput input;
    AvCodecContext decoder;
    AVStream* stream = nullptr;
    AvPacket packet = makePacket();
    AvFrame current = makeFrame(), next = makeFrame(), scaled = makeFrame();
    bool hasNext = false;
    bool isDraining = false;
    bool hasMoved = false; ///< away from the first picture, by seeking

    // All in ticks of the stream's time base, counted from the start of the file.
    std::int64_t startOffset = 0;
    std::int64_t usualDuration = 1;
    std::int64_t rangeEnd = INT64_MAX;      ///< with the tolerance: frames from here on are out
    std::int64_t exactRangeEnd = INT64_MAX; ///< where the last frame ends at the latest
    std::int64_t lastPts = AV_NOPTS_VALUE;
    std::int64_t lastEnd = 0;
    std::int64_t longestDuration = 0;
    std::int64_t framesRead = 0;
    bool isEndReported = false;

    Orientation orientation;
    PixelFormat format = PixelFormat::Rgba8;
    Size size;
    Scaler scaler;
    FramePool pool;
    Frame stored, narrow;

    State(const std::string& file, const ReaderOptions& wanted)
        : path(file), options(wanted), scaler(wanted.threads) {
        beginCatchingMessages();
        checkOptions();
        open();
        openDecoder();
        if (!decode(*next)) fail("holds no picture that can be decoded");
        hasNext = true;
        describeFile();
        beginRange();
    }

    [[noreturn]] void fail(const std::string& reason) const {
        if (options.access.isStopped()) throw Interrupted();
        throw ReadError("cannot read " + path + ": " + reason);
    }

    void checkOptions() const {
        const TimeRange& range = options.range;
        const bool isFinite = std::isfinite(range.startSeconds) &&
                              (!range.endSeconds || std::isfinite(*range.endSeconds));
        if (!isFinite || range.startSeconds < 0) fail("the range is not a time of the file");
        if (range.endSeconds && *range.endSeconds <= range.startSeconds)
            fail("the range ends before it starts");
        if (!options.sequenceRate.isPositive()) fail("the frame rate is not positive");
    }

    void open() {
        AvOptions openOptions;
        const AVInputFormat* demuxer = nullptr;
        std::error_code ignored;
        std::string address = path;
        info.kind = MediaKind::Video;
        if (options.raw) {
            const RawVideo& raw = *options.raw;
            demuxer = av_find_input_format("rawvideo");
            openOptions.set("pixel_format", raw.pixelFormat);
            openOptions.set("video_size",
                            std::to_string(raw.size.width) + "x" + std::to_string(raw.size.height));
            openOptions.set("framerate", std::to_string(raw.frameRate.numerator) + "/" +
                                             std::to_string(raw.frameRate.denominator));
        } else if (path != "-" && !std::filesystem::exists(path, ignored)) {
            const auto pattern = parseSequencePattern(path);
            if (!pattern) fail("no such file");
            demuxer = prepareSequence(*pattern, openOptions, address);
        } else if (std::filesystem::is_directory(path, ignored)) {
            fail("is a folder; name its pictures with a pattern such as %04d.png");
        } else {
            openOptions.set("pattern_type", "none");
        }

        try {
            input = openInput(address, demuxer, openOptions, options.access);
        } catch (const ReadError& error) {
            if (address == path) throw;
            fail(error.what());
        }
        if (isTextDemuxer(input->iformat->name)) fail("is not a film or picture");
        if (const int result = avformat_find_stream_info(input.get(), nullptr); result < 0)
            fail(reasonFor(result));
        if (info.kind == MediaKind::Video && !options.raw && isStillDemuxer(input->iformat->name))
            info.kind = MediaKind::Picture;
    }

    const AVInputFormat* prepareSequence(const SequencePattern& pattern, AvOptions& openOptions,
                                         std::string& address) {
        const std::vector<int> numbers = pattern.existingNumbers();
        if (numbers.empty()) fail("no file matches the pattern");
        const int first = options.sequenceFirstNumber.value_or(numbers.front());
        const auto start = std::find(numbers.begin(), numbers.end(), first);
        if (start == numbers.end()) fail("there is no picture " + pattern.fileName(first));
        auto last = start;
        while (last + 1 != numbers.end() && *(last + 1) == *last + 1) ++last;
        if (last + 1 != numbers.end())
            warnings.add("the sequence " + path + " has a gap after " + pattern.fileName(*last) +
                         ": it ends there");
        if (options.access.inputs)
            for (auto each = start; each <= last; ++each)
                options.access.inputs->add(pattern.path(*each));
        info.kind = MediaKind::Sequence;
        info.firstNumber = first;
        info.frameCount = last - start + 1;

        // The demuxer would take a percent sign in the folder's name for a field.
        address.clear();
        for (const char c : pattern.folder) address += c == '%' ? "%%" : std::string(1, c);
        address += "/" + std::filesystem::path(path).filename().string();
        openOptions.set("pattern_type", "sequence");
        openOptions.set("start_number", std::to_string(first));
        openOptions.set("start_number_range", "1");
        openOptions.set("framerate", std::to_string(options.sequenceRate.numerator) + "/" +
                                         std::to_string(options.sequenceRate.denominator));
        return av_find_input_format("image2");
    }

    // FFmpeg's own VP8 and VP9 decoders leave the alpha plane out.
    const AVCodec* decoderFor(const AVStream& found) const {
        const AVCodecID id = found.codecpar->codec_id;
        const AVDictionaryEntry* alpha = av_dict_get(found.metadata, "alpha_mode", nullptr, 0);
        const AVCodec* codec = nullptr;
        if (alpha && std::string(alpha->value) == "1") {
            if (id == AV_CODEC_ID_VP8) codec = avcodec_find_decoder_by_name("libvpx");
            if (id == AV_CODEC_ID_VP9) codec = avcodec_find_decoder_by_name("libvpx-vp9");
        }
        return codec ? codec : avcodec_find_decoder(id);
    }

    void openDecoder() {
        const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (index < 0) fail("holds no pictures");
        stream = input->streams[index];
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC)
            fail("holds no film, only sound with a cover picture");
        for (unsigned i = 0; i < input->nb_streams; ++i)
            if (int(i) != index) input->streams[i]->discard = AVDISCARD_ALL;

        const AVCodec* codec = decoderFor(*stream);
        const std::string name = avcodec_get_name(stream->codecpar->codec_id);
        if (!codec) fail("there is no decoder for " + name);
        decoder.reset(avcodec_alloc_context3(codec));
        if (!decoder) throw std::bad_alloc();
        int result = avcodec_parameters_to_context(decoder.get(), stream->codecpar);
        decoder->pkt_timebase = stream->time_base;
        decoder->thread_count = options.threads;
        decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
        if (result >= 0) result = avcodec_open2(decoder.get(), codec, nullptr);
        if (result < 0) fail("the " + name + " decoder does not open: " + reasonFor(result));
    }

    void describeFile() {
        const MediaKind kind = info.kind;
        const int firstNumber = info.firstNumber;
        const auto sequenceCount = info.frameCount;
        info = describe(*input, *stream, *next);
        info.path = path;
        info.isReadOnce = isReadOnce(*input);
        info.kind = kind;
        info.firstNumber = firstNumber;
        if (kind == MediaKind::Sequence) info.frameCount = sequenceCount;
        if (kind == MediaKind::Picture) info.frameCount = 1;
        if (kind != MediaKind::Video) info.isFrameCountExact = true;

        if (info.displayMatrix) {
            if (const auto found = orientationOf(*info.displayMatrix))
                orientation = *found;
            else
                warnings.add("the picture is turned by an angle that is no multiple of 90 degrees: "
                             "it is left as it is stored");
        }
        if (info.isYCbCr && info.colour.matrix != AVCOL_SPC_UNSPECIFIED &&
            info.colour.matrix != AVCOL_SPC_RGB && !isKnownMatrix(AVColorSpace(info.colour.matrix)))
            warnings.add(std::string("the colour matrix ") +
                         av_color_space_name(AVColorSpace(info.colour.matrix)) +
                         " is not supported: the usual one for the size is taken");

        startOffset = av_rescale_q(info.startTime, toAv(info.startTimeBase), stream->time_base);
        if (info.frameRate.isPositive())
            usualDuration = std::max<std::int64_t>(
                1, av_rescale_q(1, toAv(info.frameRate.inverse()), stream->time_base));
        setOutput(options.pixelFormat, options.outputSize);
    }

    void setOutput(std::optional<PixelFormat> wantedFormat, std::optional<Size> wantedSize) {
        format = wantedFormat.value_or(info.bitsPerComponent > 8 ? PixelFormat::Rgba16
                                                                 : PixelFormat::Rgba8);
        size = wantedSize.value_or(info.uprightSize);
        if (size.width <= 0 || size.height <= 0) fail("the wanted size is not positive");
    }

    // --- packets and decoding -------------------------------------------------------------------

    void warnDamaged(const std::string& what) { warnings.add(path + ": " + what); }

    /// Feeds the decoder one packet, or the end.
    void feed() {
        int result = 0;
        do {
            if (options.access.isStopped()) throw Interrupted();
            av_packet_unref(packet.get());
            result = av_read_frame(input.get(), packet.get());
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

    /// The next picture in presentation order; false at the end of the file.
    bool decode(AVFrame& frame) {
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
    int faultsWhileDraining = 0;

    /// The time of a decoded picture from the start of the file.
    std::int64_t timeOf(const AVFrame& frame) const {
        std::int64_t pts = frame.best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) pts = frame.pts;
        if (pts == AV_NOPTS_VALUE) return lastPts == AV_NOPTS_VALUE ? 0 : lastPts + usualDuration;
        return pts - startOffset;
    }

    // --- range ----------------------------------------------------------------------------------

    void beginRange() {
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

    void advance() { hasNext = decode(*next); }

    /// Goes to a key picture at or before `target`, if the file can seek.
    void seekBefore(std::int64_t target) {
        const double targetSeconds = double(target) * av_q2d(stream->time_base);
        // Some containers find the key picture by decoding time, which runs ahead of presentation,
        // and some go to any picture, after which the decoder waits for the next key picture.
        for (const double marginSeconds : {0.5, 5.0, 60.0}) {
            if (marginSeconds >= targetSeconds) break;
            const auto wanted = startOffset + std::int64_t((targetSeconds - marginSeconds) /
                                                           av_q2d(stream->time_base));
            const int result =
                avformat_seek_file(input.get(), stream->index, INT64_MIN, wanted, wanted, 0);
            if (result < 0) {
                if (!hasMoved) return; // still at the first picture
                break;
            }
            hasMoved = true;
            avcodec_flush_buffers(decoder.get());
            isDraining = false;
            advance();
            if (hasNext && timeOf(*next) <= target) return;
        }
        if (hasMoved) reopen();
    }

    /// Back to the first picture, for files that cannot seek there.
    void reopen() {
        decoder.reset();
        input.reset();
        isDraining = false;
        open();
        openDecoder();
        advance();
    }

    // --- conversion -----------------------------------------------------------------------------

    void convert(const AVFrame& picture, Frame& frame) {
        const auto pictureFormat = AVPixelFormat(picture.format);
        const PictureCoding from = decideCoding({picture.width, picture.height}, pictureFormat,
                                                colourTags(picture, *stream->codecpar));
        frame.reshape(size, format, &pool);
        Frame* target = &frame;
        if (!orientation.isIdentity()) {
            stored.reshape(orientation.apply(size), format, &pool);
            target = &stored;
        }
        // The scaler would take 8-bit RGB through YCbCr on its way to 16 bits.
        const bool widens = format == PixelFormat::Rgba16 && isRgb(pictureFormat) &&
                            media::bitsPerComponent(pictureFormat) <= 8;
        if (widens) {
            narrow.reshape(target->size(), PixelFormat::Rgba8, &pool);
            scale(picture, from, narrow);
            changeDepth(narrow, *target);
        } else {
            scale(picture, from, *target);
        }
        target->alpha = Alpha::Opaque;
        if (info.hasAlpha) premultiply(*target, *target);
        if (target != &frame) reorient(*target, orientation, frame);
        frame.alpha = target->alpha;
    }

    void scale(const AVFrame& picture, const PictureCoding& from, Frame& target) {
        wrapFrame(target, *scaled);
        PictureCoding to;
        to.size = target.size();
        to.format = avFormat(target.format());
        to.isFullRange = true;
        to.matrix = from.matrix;
        scaler.convert(picture, from, *scaled, to);
        av_frame_unref(scaled.get());
    }

    bool read(Frame& frame) {
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

    /// The duration of a frame that none follows.
    std::int64_t lastDuration(const AVFrame& picture, std::int64_t pts) const {
        if (const auto end = endOfPictures(*stream)) {
            // Unless the file is cut off: then the end lies far away.
            const std::int64_t rest = *end - startOffset - pts;
            const auto second = std::int64_t(1 / av_q2d(stream->time_base));
            if (rest > 0 && rest <= std::max(second, 4 * longestDuration)) return rest;
        }
        return picture.pkt_duration > 0 ? picture.pkt_duration : usualDuration;
    }

    /// Says so if the file ends well before the time it promised.
    bool reportEnd() {
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
        if (seconds <
            promised - std::max(0.5, 4 * av_q2d(stream->time_base) * double(usualDuration)))
            warnings.add(path + ": ends early, at " + secondsText(seconds) + " of " +
                         secondsText(promised));
        return false;
    }
};

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

} // namespace vorn::media
