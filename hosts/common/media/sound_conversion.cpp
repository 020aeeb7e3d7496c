#include "track_converter.h"

#include <algorithm>
#include <cmath>
#include <deque>

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace vorn::media {

namespace {

using AvResampler = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;
using AvSampleQueue = std::unique_ptr<AVAudioFifo, FreeByValue<av_audio_fifo_free>>;

void check(int result) {
    if (result < 0) throw std::runtime_error("sound: " + reasonFor(result));
}

int nearestRate(const AVCodec& codec, int rate) {
    if (!codec.supported_samplerates) return rate;
    // The next higher one loses nothing; above the highest there is only that.
    int best = 0;
    for (const int* each = codec.supported_samplerates; *each; ++each) {
        const bool isBetter = best < rate ? *each > best : *each >= rate && *each < best;
        if (best == 0 || isBetter) best = *each;
    }
    return best;
}

AVSampleFormat nearestFormat(const AVCodec& codec, AVSampleFormat wanted) {
    if (!codec.sample_fmts) return wanted;
    AVSampleFormat best = codec.sample_fmts[0];
    for (const AVSampleFormat* each = codec.sample_fmts; *each != AV_SAMPLE_FMT_NONE; ++each) {
        if (av_get_packed_sample_fmt(*each) == av_get_packed_sample_fmt(wanted)) return *each;
        const int bytes = av_get_bytes_per_sample(*each);
        if (av_get_bytes_per_sample(best) < std::min(bytes, av_get_bytes_per_sample(wanted)))
            best = *each;
    }
    return best;
}

// Rates at which sound is hard to tell from the source.
std::int64_t usualBitRate(const AVCodec& codec, int channels) {
    const std::int64_t each = channels == 1 ? 96'000 : channels == 2 ? 80'000 : 64'000;
    switch (codec.id) {
    case AV_CODEC_ID_AAC:
        return channels <= 2 ? 96'000 * channels : 80'000 * channels;
    case AV_CODEC_ID_OPUS:
    case AV_CODEC_ID_VORBIS:
        return each * channels;
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
        return 128'000 * channels;
    default:
        return 0; // the encoder's own
    }
}

class SoundConverter final : public TrackConverter {
public:
    SoundConverter(const ConversionRequest& request, Warnings& warnings)
        : warnings_(warnings), unit_(request.stream->time_base) {
        openDecoder(*request.stream);
        openEncoder(request);
    }

    const AVCodecContext& encoder() const override { return *encoder_; }

    void setEnd(double seconds) override {
        end_ = std::min(end_, std::int64_t(std::llround(seconds * encoder_->sample_rate)));
    }

    void send(const AVPacket* packet) override {
        const int result = avcodec_send_packet(decoder_.get(), packet);
        if (result < 0 && result != AVERROR_EOF)
            warnings_.add("a damaged packet of sound was skipped");
        while (avcodec_receive_frame(decoder_.get(), decoded_.get()) >= 0) take(*decoded_);
        if (packet) {
            encodeWholeFrames();
            return;
        }
        resample(nullptr);
        encodeWholeFrames();
        if (const int rest = av_audio_fifo_size(queue_.get()); rest > 0) encode(rest);
        avcodec_send_frame(encoder_.get(), nullptr);
        collect();
    }

    bool receive(AVPacket& packet) override {
        if (ready_.empty()) return false;
        av_packet_move_ref(&packet, ready_.front().get());
        ready_.pop_front();
        return true;
    }

private:
    void openDecoder(const AVStream& stream) {
        const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
        if (!codec) throw std::runtime_error("there is no decoder for it");
        decoder_.reset(avcodec_alloc_context3(codec));
        if (!decoder_) throw std::bad_alloc();
        check(avcodec_parameters_to_context(decoder_.get(), stream.codecpar));
        decoder_->pkt_timebase = stream.time_base;
        check(avcodec_open2(decoder_.get(), codec, nullptr));
        if (decoder_->sample_rate <= 0 || decoder_->ch_layout.nb_channels <= 0)
            throw std::runtime_error("it says neither its rate nor its channels");
        if (decoder_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&decoder_->ch_layout, decoder_->ch_layout.nb_channels);
    }

    void openEncoder(const ConversionRequest& request) {
        AVChannelLayout usual = {}, stereo = AV_CHANNEL_LAYOUT_STEREO;
        const int channels = decoder_->ch_layout.nb_channels;
        av_channel_layout_default(&usual, channels);
        int result = 0;
        // The same speakers under another name, such as 5.1 with them at the side, lose nothing.
        for (const AVChannelLayout* layout : {&decoder_->ch_layout, &usual, &stereo}) {
            result = tryEncoder(request, *layout);
            if (result >= 0) break;
        }
        check(result);
        if (encoder_->ch_layout.nb_channels < channels)
            warnings_.add("sound of " + std::to_string(channels) +
                          " channels is mixed to stereo: " + encoder_->codec->name +
                          " does not take as many");
        queue_.reset(av_audio_fifo_alloc(encoder_->sample_fmt, encoder_->ch_layout.nb_channels,
                                         encoder_->sample_rate));
        if (!queue_) throw std::bad_alloc();
    }

    int tryEncoder(const ConversionRequest& request, const AVChannelLayout& layout) {
        const AVCodec& codec = *request.encoder;
        encoder_.reset(avcodec_alloc_context3(&codec));
        if (!encoder_) throw std::bad_alloc();
        encoder_->sample_rate = nearestRate(codec, decoder_->sample_rate);
        encoder_->sample_fmt = nearestFormat(codec, decoder_->sample_fmt);
        encoder_->time_base = {1, encoder_->sample_rate};
        encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
        if (request.needsGlobalHeader) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        encoder_->bit_rate = request.bitsPerSecond > 0 ? request.bitsPerSecond
                                                       : usualBitRate(codec, layout.nb_channels);
        if (const int result = av_channel_layout_copy(&encoder_->ch_layout, &layout); result < 0)
            return result;
        return avcodec_open2(encoder_.get(), &codec, nullptr);
    }

    /// The resampler is made for the frames as they come, for their form may change.
    void prepareResampler(const AVFrame& frame) {
        const bool isSame = resampler_ && frame.sample_rate == sourceRate_ &&
                            frame.format == sourceFormat_ &&
                            frame.ch_layout.nb_channels == sourceChannels_;
        if (isSame) return;
        if (resampler_) resample(nullptr);
        AVChannelLayout layout = {};
        if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
        else
            check(av_channel_layout_copy(&layout, &frame.ch_layout));
        SwrContext* context = nullptr;
        const int result = swr_alloc_set_opts2(
            &context, &encoder_->ch_layout, encoder_->sample_fmt, encoder_->sample_rate, &layout,
            AVSampleFormat(frame.format), frame.sample_rate, 0, nullptr);
        av_channel_layout_uninit(&layout);
        resampler_.reset(context);
        check(result);
        check(swr_init(context));
        sourceRate_ = frame.sample_rate;
        sourceFormat_ = frame.format;
        sourceChannels_ = frame.ch_layout.nb_channels;
    }

    void take(const AVFrame& frame) {
        prepareResampler(frame);
        const AVRational samples = {1, encoder_->sample_rate};
        std::int64_t pts = frame.best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) pts = frame.pts;
        if (pts != AV_NOPTS_VALUE) {
            const std::int64_t start = av_rescale_q(pts, unit_, samples);
            if (!hasBegun_) {
                hasBegun_ = true;
                next_ = start;
                queueStart_ = std::max<std::int64_t>(0, start);
            }
            const std::int64_t expected =
                next_ + swr_get_delay(resampler_.get(), encoder_->sample_rate);
            // Times of containers are rounded; a real gap becomes silence, an overlap is dropped.
            const std::int64_t tolerance = encoder_->sample_rate / 20;
            if (start > expected + tolerance)
                addSilence(start - expected);
            else if (start + tolerance < expected)
                skip_ = expected - start;
        }
        resample(&frame);
    }

    void resample(const AVFrame* frame) {
        if (!resampler_) return;
        const int most = swr_get_out_samples(resampler_.get(), frame ? frame->nb_samples : 0) + 32;
        AvFrame out = newFrame(most);
        const auto** in = frame ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr;
        const int count = swr_convert(resampler_.get(), out->extended_data, most, in,
                                      frame ? frame->nb_samples : 0);
        check(count);
        add(*out, count);
    }

    AvFrame newFrame(int samples) {
        AvFrame frame = makeFrame();
        frame->nb_samples = samples;
        frame->format = encoder_->sample_fmt;
        frame->sample_rate = encoder_->sample_rate;
        check(av_channel_layout_copy(&frame->ch_layout, &encoder_->ch_layout));
        check(av_frame_get_buffer(frame.get(), 0));
        return frame;
    }

    void addSilence(std::int64_t count) {
        while (count > 0 && next_ < end_) {
            const int part = int(std::min<std::int64_t>(count, encoder_->sample_rate));
            AvFrame silence = newFrame(part);
            av_samples_set_silence(silence->extended_data, 0, part, encoder_->ch_layout.nb_channels,
                                   encoder_->sample_fmt);
            add(*silence, part);
            encodeWholeFrames();
            count -= part;
        }
    }

    /// Queues what lies inside of the output.
    void add(AVFrame& frame, int count) {
        const std::int64_t overlap = std::min<std::int64_t>(skip_, count);
        skip_ -= overlap;
        const std::int64_t before = std::clamp<std::int64_t>(-next_, 0, count - overlap);
        next_ += count - overlap;
        const std::int64_t after = std::clamp<std::int64_t>(next_ - end_, 0, count);
        const std::int64_t first = overlap + before, kept = count - first - after;
        if (kept <= 0) return;
        const bool isPlanar = av_sample_fmt_is_planar(encoder_->sample_fmt);
        const int channels = encoder_->ch_layout.nb_channels;
        const std::int64_t step =
            std::int64_t{av_get_bytes_per_sample(encoder_->sample_fmt)} * (isPlanar ? 1 : channels);
        std::vector<void*> planes;
        for (int i = 0; i < (isPlanar ? channels : 1); ++i)
            planes.push_back(frame.extended_data[i] + first * step);
        check(av_audio_fifo_write(queue_.get(), planes.data(), int(kept)));
    }

    void encodeWholeFrames() {
        constexpr int kUsualFrame = 1024;
        const int size = encoder_->frame_size > 0 ? encoder_->frame_size : kUsualFrame;
        while (av_audio_fifo_size(queue_.get()) >= size) encode(size);
    }

    void encode(int samples) {
        AvFrame frame = newFrame(samples);
        check(av_audio_fifo_read(queue_.get(), reinterpret_cast<void**>(frame->extended_data),
                                 samples));
        frame->pts = queueStart_;
        queueStart_ += samples;
        check(avcodec_send_frame(encoder_.get(), frame.get()));
        collect();
    }

    /// An encoder takes no further frame before its packets are fetched.
    void collect() {
        while (true) {
            AvPacket packet = makePacket();
            const int result = avcodec_receive_packet(encoder_.get(), packet.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
            check(result);
            ready_.push_back(std::move(packet));
        }
    }

    Warnings& warnings_;
    AVRational unit_;
    AvCodecContext decoder_, encoder_;
    AvFrame decoded_ = makeFrame();
    AvResampler resampler_;
    int sourceRate_ = 0, sourceFormat_ = -1, sourceChannels_ = 0;
    AvSampleQueue queue_;
    std::deque<AvPacket> ready_;
    // In samples of the output from its start.
    bool hasBegun_ = false;
    std::int64_t next_ = 0;       ///< where the next sample of the resampler lies
    std::int64_t queueStart_ = 0; ///< where the first one in the queue lies
    std::int64_t skip_ = 0;       ///< samples that were heard already
    std::int64_t end_ = std::numeric_limits<std::int64_t>::max();
};

} // namespace

std::unique_ptr<TrackConverter> convertSound(const ConversionRequest& request, Warnings& warnings) {
    return std::make_unique<SoundConverter>(request, warnings);
}

} // namespace vorn::media
