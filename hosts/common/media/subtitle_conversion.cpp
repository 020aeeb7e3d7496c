#include "track_converter.h"

#include <algorithm>
#include <cstring>
#include <deque>

namespace vorn::media {

namespace {

struct SubtitleHolder : AVSubtitle {
    SubtitleHolder() : AVSubtitle() {}
    ~SubtitleHolder() { avsubtitle_free(this); }
    SubtitleHolder(const SubtitleHolder&) = delete;
    SubtitleHolder& operator=(const SubtitleHolder&) = delete;
};

/// Every kind of text passes through lines of ASS, which hold what the others can say.
class SubtitleConverter final : public TrackConverter {
public:
    SubtitleConverter(const ConversionRequest& request, Warnings& warnings)
        : warnings_(warnings), unit_(request.stream->time_base) {
        const AVCodecParameters& stream = *request.stream->codecpar;
        const AVCodec* decoder = avcodec_find_decoder(stream.codec_id);
        if (!decoder) throw std::runtime_error("there is no decoder for it");
        decoder_.reset(avcodec_alloc_context3(decoder));
        encoder_.reset(avcodec_alloc_context3(request.encoder));
        if (!decoder_ || !encoder_) throw std::bad_alloc();
        check(avcodec_parameters_to_context(decoder_.get(), &stream));
        decoder_->pkt_timebase = unit_;
        check(avcodec_open2(decoder_.get(), decoder, nullptr));

        encoder_->time_base = {1, 1000};
        encoder_->flags |= AV_CODEC_FLAG_BITEXACT;
        if (decoder_->subtitle_header) {
            const auto bytes = std::size_t(decoder_->subtitle_header_size);
            encoder_->subtitle_header = static_cast<std::uint8_t*>(av_mallocz(bytes + 1));
            if (!encoder_->subtitle_header) throw std::bad_alloc();
            std::memcpy(encoder_->subtitle_header, decoder_->subtitle_header, bytes);
            encoder_->subtitle_header_size = int(bytes);
        }
        check(avcodec_open2(encoder_.get(), request.encoder, nullptr));
    }

    const AVCodecContext& encoder() const override { return *encoder_; }
    void setEnd(double seconds) override { end_ = std::min(end_, seconds * 1000); }

    void send(const AVPacket* packet) override {
        if (!packet) return;
        SubtitleHolder text;
        int isThere = 0;
        AvPacket own = makePacket();
        check(av_packet_ref(own.get(), packet));
        if (avcodec_decode_subtitle2(decoder_.get(), &text, &isThere, own.get()) < 0) {
            warnings_.add("a damaged subtitle was skipped");
            return;
        }
        if (!isThere || text.num_rects == 0) return;
        const std::int64_t shown = av_rescale_q(packet->pts, unit_, {1, 1000});
        const std::int64_t start = std::max<std::int64_t>(0, shown + text.start_display_time);
        std::int64_t end = shown + text.end_display_time;
        if (packet->duration > 0 && text.end_display_time == 0)
            end = shown + av_rescale_q(packet->duration, unit_, {1, 1000});
        if (end <= start || double(start) >= end_) return;
        if (double(end) > end_) end = std::int64_t(end_);
        text.pts = start * 1000;
        text.start_display_time = 0;
        text.end_display_time = std::uint32_t(end - start);
        encode(text, start, end - start);
    }

    bool receive(AVPacket& packet) override {
        if (ready_.empty()) return false;
        av_packet_move_ref(&packet, ready_.front().get());
        ready_.pop_front();
        return true;
    }

private:
    static void check(int result) {
        if (result < 0) throw std::runtime_error("subtitles: " + reasonFor(result));
    }

    void encode(const AVSubtitle& text, std::int64_t start, std::int64_t duration) {
        constexpr int kLargest = 1 << 20; // bytes; no subtitle comes near
        buffer_.resize(kLargest);
        const int size = avcodec_encode_subtitle(encoder_.get(), buffer_.data(), kLargest, &text);
        check(size);
        AvPacket packet = makePacket();
        check(av_new_packet(packet.get(), size));
        std::memcpy(packet->data, buffer_.data(), std::size_t(size));
        packet->pts = packet->dts = start;
        packet->duration = duration;
        packet->flags |= AV_PKT_FLAG_KEY;
        ready_.push_back(std::move(packet));
    }

    Warnings& warnings_;
    AVRational unit_;
    AvCodecContext decoder_, encoder_;
    std::vector<std::uint8_t> buffer_;
    std::deque<AvPacket> ready_;
    double end_ = std::numeric_limits<double>::infinity(); ///< milliseconds
};

} // namespace

std::unique_ptr<TrackConverter> convertSubtitles(const ConversionRequest& request,
                                                 Warnings& warnings) {
    return std::make_unique<SubtitleConverter>(request, warnings);
}

} // namespace vorn::media
