// Films with sound, subtitles, attachments, chapters and a title, made and looked at with FFmpeg.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace media_test {

constexpr int kSoundRate = 44100;

/// Sample `i` of the sound that films get: a tone that swells.
inline double toneAt(int i) {
    return 0.5 * std::sin(i * 440.0 * 2 * M_PI / kSoundRate) * i / kSoundRate / 2;
}

/// Makes a film of the pictures of another one and of what is added.
class FilmMaker {
public:
    FilmMaker(const std::string& pictures, const std::string& target) {
        EXPECT_GE(avformat_open_input(&input_, pictures.c_str(), nullptr, nullptr), 0);
        EXPECT_GE(avformat_find_stream_info(input_, nullptr), 0);
        avformat_alloc_output_context2(&output_, nullptr, nullptr, target.c_str());
        AVStream& stream = newStream({1, 1000});
        avcodec_parameters_copy(stream.codecpar, input_->streams[0]->codecpar);
        stream.codecpar->codec_tag = 0;
        avio_open(&output_->pb, target.c_str(), AVIO_FLAG_WRITE);
    }

    FilmMaker& title(const char* text) {
        av_dict_set(&output_->metadata, "title", text, 0);
        return *this;
    }

    /// Two chapters of a second each.
    FilmMaker& chapters() {
        output_->chapters = static_cast<AVChapter**>(av_calloc(2, sizeof(AVChapter*)));
        for (unsigned i = 0; i < 2; ++i) {
            auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
            *chapter = {int(i) + 1, {1, 1000}, i * 1000, i * 1000 + 1000, nullptr};
            av_dict_set(&chapter->metadata, "title", i == 0 ? "One" : "Two", 0);
            output_->chapters[output_->nb_chapters++] = chapter;
        }
        return *this;
    }

    FilmMaker& font() {
        AVStream& stream = newStream({1, 1000});
        stream.codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
        stream.codecpar->codec_id = AV_CODEC_ID_TTF;
        stream.codecpar->extradata =
            static_cast<std::uint8_t*>(av_mallocz(8 + AV_INPUT_BUFFER_PADDING_SIZE));
        stream.codecpar->extradata_size = 8;
        av_dict_set(&stream.metadata, "filename", "plain.ttf", 0);
        av_dict_set(&stream.metadata, "mimetype", "application/x-truetype-font", 0);
        return *this;
    }

    FilmMaker& cover(const std::string& jpeg) {
        AVStream& stream = newStream({1, 1000});
        stream.codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream.codecpar->codec_id = AV_CODEC_ID_MJPEG;
        stream.codecpar->width = 32;
        stream.codecpar->height = 16;
        stream.disposition = AV_DISPOSITION_ATTACHED_PIC;
        return packet(stream, jpeg, 0, 0);
    }

    FilmMaker& timecode(const char* text) {
        output_->streams[0]->avg_frame_rate = {25, 1};
        av_dict_set(&output_->streams[0]->metadata, "timecode", text, 0);
        return *this;
    }

    /// Two seconds of the tone on all channels.
    FilmMaker& sound(const char* encoder, const AVChannelLayout& layout, const char* language) {
        const AVCodec* codec = avcodec_find_encoder_by_name(encoder);
        AVCodecContext* context = avcodec_alloc_context3(codec);
        context->sample_rate = kSoundRate;
        context->sample_fmt = codec->sample_fmts[0];
        context->time_base = {1, kSoundRate};
        context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
        av_channel_layout_copy(&context->ch_layout, &layout);
        EXPECT_GE(avcodec_open2(context, codec, nullptr), 0);
        AVStream& stream = newStream({1, kSoundRate});
        avcodec_parameters_from_context(stream.codecpar, context);
        av_dict_set(&stream.metadata, "language", language, 0);
        AVFrame* frame = av_frame_alloc();
        const int size = context->frame_size;
        for (int first = 0; first < 2 * kSoundRate; first += size) {
            frame->nb_samples = std::min(size, 2 * kSoundRate - first);
            frame->format = context->sample_fmt;
            av_channel_layout_copy(&frame->ch_layout, &layout);
            av_frame_get_buffer(frame, 0);
            fill(*frame, first);
            frame->pts = first;
            avcodec_send_frame(context, frame);
            av_frame_unref(frame);
            collect(*context, stream.index);
        }
        avcodec_send_frame(context, nullptr);
        collect(*context, stream.index);
        av_frame_free(&frame);
        avcodec_free_context(&context);
        return *this;
    }

    /// One line that is shown from 0.4 to 1.2 s.
    FilmMaker& subtitles(const char* text) {
        AVStream& stream = newStream({1, 1000});
        stream.codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
        stream.codecpar->codec_id = AV_CODEC_ID_SUBRIP;
        return packet(stream, text, 400, 800);
    }

    void write() {
        EXPECT_GE(avformat_write_header(output_, nullptr), 0);
        for (Packet packet(av_packet_alloc()); av_read_frame(input_, packet.get()) >= 0;) {
            packet->time_base = input_->streams[0]->time_base;
            packet->stream_index = 0;
            put(*packet);
        }
        for (Packet& packet : packets_) put(*packet);
        av_write_trailer(output_);
        avio_closep(&output_->pb);
        avformat_free_context(output_);
        avformat_close_input(&input_);
    }

private:
    struct Free {
        void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    };
    using Packet = std::unique_ptr<AVPacket, Free>;

    AVStream& newStream(AVRational timeBase) {
        AVStream* stream = avformat_new_stream(output_, nullptr);
        stream->time_base = timeBase;
        return *stream;
    }

    FilmMaker& packet(const AVStream& stream, const std::string& bytes, int start, int duration) {
        Packet packet(av_packet_alloc());
        av_new_packet(packet.get(), int(bytes.size()));
        std::memcpy(packet->data, bytes.data(), bytes.size());
        packet->pts = packet->dts = start;
        packet->duration = duration;
        packet->time_base = {1, 1000};
        packet->stream_index = stream.index;
        packets_.push_back(std::move(packet));
        return *this;
    }

    static void fill(AVFrame& frame, int first) {
        const int channels = frame.ch_layout.nb_channels;
        const bool isPlanar = av_sample_fmt_is_planar(AVSampleFormat(frame.format));
        for (int i = 0; i < frame.nb_samples; ++i) {
            for (int c = 0; c < channels; ++c) {
                const double value = toneAt(first + i);
                const int place = isPlanar ? i : i * channels + c;
                std::uint8_t* plane = frame.extended_data[isPlanar ? c : 0];
                if (av_get_bytes_per_sample(AVSampleFormat(frame.format)) == 2)
                    reinterpret_cast<std::int16_t*>(plane)[place] =
                        std::int16_t(std::lround(value * 32767));
                else
                    reinterpret_cast<float*>(plane)[place] = float(value);
            }
        }
    }

    void collect(AVCodecContext& context, int stream) {
        for (Packet packet(av_packet_alloc()); avcodec_receive_packet(&context, packet.get()) >= 0;
             packet.reset(av_packet_alloc())) {
            packet->time_base = context.time_base;
            packet->stream_index = stream;
            // Without those that only prime decoders, all tracks begin at zero.
            if (packet->pts >= 0) packets_.push_back(std::move(packet));
        }
    }

    void put(AVPacket& packet) {
        const AVRational unit = output_->streams[packet.stream_index]->time_base;
        av_packet_rescale_ts(&packet, packet.time_base, unit);
        EXPECT_GE(av_interleaved_write_frame(output_, &packet), 0);
    }

    AVFormatContext* input_ = nullptr;
    AVFormatContext* output_ = nullptr;
    std::vector<Packet> packets_;
};

struct Track {
    std::string codec, language;
    int rate = 0, channels = 0;
    std::vector<float> samples; ///< of sound: the first channel, as a player hears it
    double startSeconds = 0;    ///< of sound: when the first one is heard
    std::string text;           ///< of subtitles: the events
};

struct Contents {
    std::string title, timecode; ///< the latter of the pictures
    std::vector<std::string> chapters;
    std::vector<Track> tracks; ///< all but the pictures
    double picturesStart = 0;

    std::string codecs() const {
        std::string names;
        for (const Track& track : tracks) names += (names.empty() ? "" : " ") + track.codec;
        return names;
    }
};

inline void hear(AVCodecContext& decoder, const AVPacket* packet, Track& track) {
    AVFrame* frame = av_frame_alloc();
    avcodec_send_packet(&decoder, packet);
    while (avcodec_receive_frame(&decoder, frame) >= 0) {
        if (track.samples.empty())
            track.startSeconds = double(frame->pts) * av_q2d(decoder.pkt_timebase);
        const auto format = AVSampleFormat(frame->format);
        const int step = av_sample_fmt_is_planar(format) ? 1 : frame->ch_layout.nb_channels;
        for (int i = 0; i < frame->nb_samples; ++i) {
            const std::uint8_t* place = frame->extended_data[0];
            if (av_get_bytes_per_sample(format) == 2)
                track.samples.push_back(
                    float(reinterpret_cast<const std::int16_t*>(place)[i * step]) / 32767);
            else
                track.samples.push_back(reinterpret_cast<const float*>(place)[i * step]);
        }
    }
    av_frame_free(&frame);
}

inline void readText(AVCodecContext& decoder, AVPacket& packet, Track& track) {
    AVSubtitle text = {};
    int isThere = 0;
    avcodec_decode_subtitle2(&decoder, &text, &isThere, &packet);
    for (unsigned i = 0; isThere && i < text.num_rects; ++i) {
        const double unit = av_q2d(decoder.pkt_timebase);
        track.text += std::to_string(std::lround(double(packet.pts) * unit * 1000)) + "+" +
                      std::to_string(std::lround(double(packet.duration) * unit * 1000)) + " " +
                      text.rects[i]->ass + "\n";
    }
    avsubtitle_free(&text);
}

/// What a film has besides its pictures, decoded.
inline Contents contentsOf(const std::string& path) {
    Contents contents;
    AVFormatContext* input = nullptr;
    EXPECT_GE(avformat_open_input(&input, path.c_str(), nullptr, nullptr), 0) << path;
    EXPECT_GE(avformat_find_stream_info(input, nullptr), 0);
    const auto tag = [](const AVDictionary* tags, const char* key) {
        const AVDictionaryEntry* entry = av_dict_get(tags, key, nullptr, 0);
        return std::string(entry ? entry->value : "");
    };
    contents.title = tag(input->metadata, "title");
    for (unsigned i = 0; i < input->nb_chapters; ++i)
        contents.chapters.push_back(tag(input->chapters[i]->metadata, "title"));
    std::vector<AVCodecContext*> decoders;
    std::vector<int> places;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream& stream = *input->streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        decoders.push_back(nullptr);
        places.push_back(-1);
        if (i == 0) {
            contents.picturesStart = double(stream.start_time) * av_q2d(stream.time_base);
            contents.timecode = tag(stream.metadata, "timecode");
        }
        if (i == 0 || codec.codec_id == AV_CODEC_ID_BIN_DATA) continue; // names of chapters
        places.back() = int(contents.tracks.size());
        contents.tracks.push_back({avcodec_get_name(codec.codec_id),
                                   tag(stream.metadata, "language"),
                                   codec.sample_rate,
                                   codec.ch_layout.nb_channels,
                                   {},
                                   0,
                                   ""});
        const AVCodec* decoder = avcodec_find_decoder(codec.codec_id);
        if (!decoder) continue;
        decoders.back() = avcodec_alloc_context3(decoder);
        avcodec_parameters_to_context(decoders.back(), &codec);
        decoders.back()->pkt_timebase = stream.time_base;
        EXPECT_GE(avcodec_open2(decoders.back(), decoder, nullptr), 0);
    }
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        const auto i = std::size_t(packet->stream_index);
        if (places[i] >= 0 && decoders[i]) {
            Track& track = contents.tracks[std::size_t(places[i])];
            if (decoders[i]->codec_type == AVMEDIA_TYPE_AUDIO)
                hear(*decoders[i], packet, track);
            else if (decoders[i]->codec_type == AVMEDIA_TYPE_SUBTITLE)
                readText(*decoders[i], *packet, track);
        }
        av_packet_unref(packet);
    }
    for (std::size_t i = 0; i < decoders.size(); ++i) {
        if (decoders[i] && decoders[i]->codec_type == AVMEDIA_TYPE_AUDIO)
            hear(*decoders[i], nullptr, contents.tracks[std::size_t(places[i])]);
        avcodec_free_context(&decoders[i]);
    }
    av_packet_free(&packet);
    avformat_close_input(&input);
    return contents;
}

} // namespace media_test
