#include "companions.h"
#include "encoder.h"
#include "output_file.h"
#include "sinks.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>

namespace vorn::media {

namespace {

using AvOutput = std::unique_ptr<AVFormatContext, FreeByValue<avformat_free_context>>;

/// A file as FFmpeg writes it. What goes wrong is kept for rethrow(), for nothing may be thrown
/// through FFmpeg.
class OutputStream {
public:
    explicit OutputStream(OutputFile& file) : file_(file) {
        constexpr int bufferBytes = 32768;
        auto* buffer = static_cast<std::uint8_t*>(av_malloc(bufferBytes));
        if (buffer)
            context_ = avio_alloc_context(buffer, bufferBytes, 1, this, nullptr, write,
                                          file.isSeekable() ? seek : nullptr);
        if (context_) return;
        av_free(buffer);
        throw std::bad_alloc();
    }
    ~OutputStream() {
        av_freep(&context_->buffer);
        avio_context_free(&context_);
    }
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    AVIOContext* context() { return context_; }
    void rethrow() const {
        if (failure_) std::rethrow_exception(failure_);
    }

private:
    static int write(void* opaque, std::uint8_t* bytes, int count) {
        auto& stream = *static_cast<OutputStream*>(opaque);
        try {
            stream.rethrow();
            stream.file_.write(bytes, std::size_t(count));
            return count;
        } catch (...) {
            stream.failure_ = std::current_exception();
            return AVERROR(EIO);
        }
    }

    static std::int64_t seek(void* opaque, std::int64_t offset, int whence) {
        OutputFile& file = static_cast<OutputStream*>(opaque)->file_;
        const std::int64_t place =
            whence & AVSEEK_SIZE ? file.size() : file.seek(offset, whence & ~AVSEEK_FORCE);
        return place < 0 ? AVERROR(EIO) : place;
    }

    OutputFile& file_;
    AVIOContext* context_ = nullptr;
    std::exception_ptr failure_;
};

int openNothing(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EACCES);
}

bool isNamed(const AVOutputFormat& container, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return std::string(container.name) == name; });
}

bool holdsDisplayMatrix(const AVOutputFormat& container) {
    return isNamed(container, {"mp4", "mov", "3gp", "3g2", "ipod"});
}

/// The unit that frame times are kept in, and whether every frame must fall on its own tick of a
/// constant rate.
struct Clock {
    AVRational timeBase{1, 25};
    bool isConstantRate = false;
};

AVRational frameRateOf(const WriterOptions& options) {
    const MediaInfo* source = options.source;
    return toAv(source && source->frameRate.isPositive() ? source->frameRate : options.frameRate);
}

Clock chooseClock(const Target& target, const WriterOptions& options) {
    const AVOutputFormat& container = *target.container;
    const AVCodec& codec = *target.encoder;
    const MediaInfo* source = options.source;
    const AVRational rate = frameRateOf(options);
    // Of a film with variable rate, the rate whose ticks hold all its times.
    const AVRational tickRate =
        source && source->hasVariableFrameRate && source->baseFrameRate.isPositive()
            ? toAv(source->baseFrameRate)
            : rate;

    if (isNamed(container, {"gif"})) return {{1, 100}, false};
    if (codec.supported_framerates) {
        const int nearest = av_find_nearest_q_idx(tickRate, codec.supported_framerates);
        return {av_inv_q(codec.supported_framerates[nearest]), true};
    }
    // There are no times in these, only a rate.
    if (isNamed(container, {"yuv4mpegpipe", "rawvideo"})) return {av_inv_q(rate), true};
    if (isNamed(container, {"avi"})) return {av_inv_q(tickRate), true};
    Clock clock{av_inv_q(rate), false};
    if (source && source->kind == MediaKind::Video && source->timeBase.isPositive())
        clock.timeBase = toAv(source->timeBase);
    // MPEG-4 Part 2 counts in 16 bits.
    constexpr int kLargestMpeg4 = 65535;
    if (codec.id == AV_CODEC_ID_MPEG4 && clock.timeBase.den > kLargestMpeg4)
        return {av_inv_q(tickRate), true};
    return clock;
}

class FilmSink final : public Sink {
public:
    FilmSink(const std::string& path, const Target& target, const WriterOptions& options,
             Warnings& warnings)
        : warnings_(warnings),
          file_(OutputFile::open(path, target.descriptor, options.overwrite, options.access)),
          bytes_(file_), clock_(chooseClock(target, options)),
          startsAtFirstFrame_(options.range.startSeconds > 0), frameRate_(frameRateOf(options)) {
        const MediaInfo* source = options.source;
        AVFormatContext* context = nullptr;
        const int result =
            avformat_alloc_output_context2(&context, const_cast<AVOutputFormat*>(target.container),
                                           nullptr, fileAddress(path).c_str());
        check(result);
        output_.reset(context);
        output_->io_open = openNothing;
        output_->flags |= AVFMT_FLAG_BITEXACT;
        // Y4M with more than 8 bits is FFmpeg's own, and read by all who read Y4M with so many.
        if (isNamed(*output_->oformat, {"yuv4mpegpipe"}))
            output_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;

        openEncoder(target, options);
        addPictureStream(source);
        if (source && options.copyCompanions)
            companions_ = std::make_unique<Companions>(options, *output_, warnings_);
        writeHeader();
    }

    void write(const Frame& frame) override {
        const AVRational unit = toAv(frame.timeBase);
        if (!hasBegun_) {
            hasBegun_ = true;
            origin_ = startsAtFirstFrame_ ? frame.pts : 0;
            originTimeBase_ = unit;
            copyCompanions([&] { companions_->begin(origin_, unit); });
        }
        const std::int64_t start = frame.pts - av_rescale_q(origin_, originTimeBase_, unit);
        std::int64_t pts = av_rescale_q(start, unit, clock_.timeBase);
        const std::int64_t end = av_rescale_q(start + frame.duration, unit, clock_.timeBase);
        if (clock_.isConstantRate && av_compare_ts(pts, clock_.timeBase, start, unit) != 0)
            noteRounding(pts, start, unit);
        if (lastPts_ != AV_NOPTS_VALUE && pts <= lastPts_) {
            warnings_.add(std::string("frames closer together than a tick of the container ") +
                          output_->oformat->name + " were moved apart");
            pts = lastPts_ + 1;
        }
        lastPts_ = pts;
        const std::int64_t duration = std::max<std::int64_t>(1, end - pts);
        if (lastDuration_ > 0 && std::abs(duration - lastDuration_) * 10 > lastDuration_)
            hasVariableTimes_ = true;
        lastDuration_ = duration;
        durations_.push_back({pts, duration});
        end_ = pts + duration;
        encoder_->send(frame, pts, duration);
        store();
    }

    void finish(Ending ending) override {
        encoder_->sendEnd();
        store();
        writeLast();
        if (ending == Ending::Interrupted)
            copyCompanions([&] { companions_->finishAt(end_, clock_.timeBase); });
        else
            copyCompanions([&] { companions_->finish(); });
        check(av_write_trailer(output_.get()));
        avio_flush(output_->pb);
        check(output_->pb->error);
        file_.commit();
    }

    OutputInfo describe() const override {
        OutputInfo info;
        info.container = output_->oformat->name;
        info.encoder = encoder_->codec().name;
        info.pixelFormat = av_get_pix_fmt_name(encoder_->pixelFormat());
        info.storedSize = {encoder_->context().width, encoder_->context().height};
        info.keepsAlpha = encoder_->keepsAlpha();
        info.keepsRotation = keepsRotation_;
        info.timeBase = fromAv(clock_.timeBase);
        info.copiedStreams = companions_ ? companions_->streamCount() : 0;
        return info;
    }

private:
    struct Timing {
        std::int64_t pts;
        std::int64_t duration;
    };

    /// What went wrong with the file says more than FFmpeg's number for it.
    void check(int result) const {
        bytes_.rethrow();
        if (result < 0) throw std::runtime_error(reasonFor(result));
    }

    template <typename Copy>
    void copyCompanions(Copy copy) {
        if (!companions_) return;
        try {
            copy();
        } catch (const std::runtime_error&) {
            bytes_.rethrow();
            throw;
        }
    }

    void openEncoder(const Target& target, const WriterOptions& options) {
        EncoderRequest request;
        request.codec = target.encoder;
        request.container = target.container;
        request.options = &options;
        request.timeBase = clock_.timeBase;
        request.frameRate = frameRate_;
        const MediaInfo* source = options.source;
        if (source && source->displayMatrix && holdsDisplayMatrix(*target.container)) {
            if (const auto upright = orientationOf(*source->displayMatrix)) {
                request.toStored = upright->inverse();
                keepsRotation_ = !upright->isIdentity();
            }
        }
        request.storedSize = request.toStored.apply(options.size);
        encoder_ = std::make_unique<Encoder>(request, warnings_);
    }

    void addPictureStream(const MediaInfo* source) {
        stream_ = avformat_new_stream(output_.get(), nullptr);
        if (!stream_) throw std::bad_alloc();
        if (const int result =
                avcodec_parameters_from_context(stream_->codecpar, &encoder_->context());
            result < 0)
            throw std::runtime_error(reasonFor(result));
        stream_->time_base = clock_.timeBase;
        // Matroska would promise its players a constant rate.
        if (!source || !source->hasVariableFrameRate) stream_->avg_frame_rate = frameRate_;
        stream_->sample_aspect_ratio = encoder_->context().sample_aspect_ratio;
        stream_->disposition = AV_DISPOSITION_DEFAULT;
        if (!source) return;
        if (keepsRotation_)
            addSideData(AV_PKT_DATA_DISPLAYMATRIX, source->displayMatrix->data(),
                        sizeof *source->displayMatrix);
        for (const StreamSideData& side : source->sideData)
            addSideData(AVPacketSideDataType(side.type), side.bytes.data(), side.bytes.size());
        // Matroska tells players by this tag that VP8 and VP9 have an alpha plane.
        const bool isVpx = stream_->codecpar->codec_id == AV_CODEC_ID_VP8 ||
                           stream_->codecpar->codec_id == AV_CODEC_ID_VP9;
        if (isVpx && encoder_->keepsAlpha()) av_dict_set(&stream_->metadata, "alpha_mode", "1", 0);
    }

    void addSideData(AVPacketSideDataType type, const void* bytes, std::size_t count) {
        std::uint8_t* side = av_stream_new_side_data(stream_, type, count);
        if (!side) throw std::bad_alloc();
        std::memcpy(side, bytes, count);
    }

    void writeHeader() {
        output_->pb = bytes_.context();
        AvOptions options;
        if (isNamed(*output_->oformat, {"apng"})) options.set("plays", "0");
        // Edit lists count in the film's own ticks; the usual milliseconds would move the sound.
        if (holdsDisplayMatrix(*output_->oformat)) options.set("movie_timescale", "90000");
        // The index of such a file stands in one place, which a pipe cannot go back to, or with
        // each fragment.
        if (holdsDisplayMatrix(*output_->oformat) && !file_.isSeekable())
            options.set("movflags", "frag_keyframe+empty_moov+default_base_moof");
        const int result = avformat_write_header(output_.get(), options.address());
        check(result);
    }

    void noteRounding(std::int64_t pts, std::int64_t start, AVRational unit) {
        // Half a millisecond is the rounding of the source's own clock.
        const double difference =
            double(pts) * av_q2d(clock_.timeBase) - double(start) * av_q2d(unit);
        if (std::abs(difference) > 0.0006)
            warnings_.add(
                std::string(
                    "frame times were rounded to the constant frame rate that the container ") +
                output_->oformat->name + " needs");
    }

    std::int64_t takeDuration(std::int64_t pts) {
        const auto found = std::find_if(durations_.begin(), durations_.end(),
                                        [pts](const Timing& each) { return each.pts == pts; });
        if (found == durations_.end()) return 0;
        const std::int64_t duration = found->duration;
        durations_.erase(found);
        return duration;
    }

    void store() {
        while (encoder_->receive(*packet_)) {
            writeHeld();
            packet_->duration = takeDuration(packet_->pts);
            std::swap(packet_, held_);
            isHolding_ = true;
        }
    }

    void writeHeld() {
        if (!isHolding_) return;
        isHolding_ = false;
        held_->stream_index = stream_->index;
        const std::int64_t dts = held_->dts;
        av_packet_rescale_ts(held_.get(), clock_.timeBase, stream_->time_base);
        // Sound goes along with the pictures, so that an interrupted file is whole.
        if (dts != AV_NOPTS_VALUE)
            copyCompanions([&] { companions_->copyUntil(dts, clock_.timeBase); });
        check(av_interleaved_write_frame(output_.get(), held_.get()));
    }

    void writeLast() {
        // MP4 and MOV derive the length of a film from the last packet in decoding order. Where
        // frame times vary that is wrong unless the packet lasts to the end and is decoded when it
        // is shown.
        if (isHolding_ && hasVariableTimes_ && holdsDisplayMatrix(*output_->oformat)) {
            held_->dts = held_->pts;
            held_->duration = end_ - held_->pts;
        }
        writeHeld();
    }

    Warnings& warnings_;
    OutputFile file_;
    OutputStream bytes_;
    Clock clock_;
    bool startsAtFirstFrame_;
    AVRational frameRate_;
    AvOutput output_;
    std::unique_ptr<Encoder> encoder_;
    std::unique_ptr<Companions> companions_;
    AVStream* stream_ = nullptr;
    AvPacket packet_ = makePacket();
    AvPacket held_ = makePacket(); ///< one packet is kept back until it is known to be the last
    bool isHolding_ = false;
    bool keepsRotation_ = false;

    bool hasBegun_ = false;
    std::int64_t origin_ = 0;
    AVRational originTimeBase_{1, 1};
    std::int64_t lastPts_ = AV_NOPTS_VALUE;
    std::int64_t end_ = 0;
    std::int64_t lastDuration_ = 0;
    bool hasVariableTimes_ = false;
    std::deque<Timing> durations_; ///< of the frames inside the encoder
};

} // namespace

std::unique_ptr<Sink> openFilm(const std::string& path, const Target& target,
                               const WriterOptions& options, Warnings& warnings) {
    return std::make_unique<FilmSink>(path, target, options, warnings);
}

} // namespace vorn::media
