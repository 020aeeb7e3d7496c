// Which streams a container takes as they are, and what it takes instead.
#include "track_converter.h"

#include <algorithm>

namespace vorn::media {

namespace {

bool isNamed(const AVOutputFormat& container, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return std::string(container.name) == name; });
}

struct FreeDryRun {
    void operator()(AVFormatContext* context) const {
        if (context->pb) {
            std::uint8_t* bytes = nullptr;
            avio_close_dyn_buf(context->pb, &bytes);
            av_free(bytes);
        }
        avformat_free_context(context);
    }
};
using DryRun = std::unique_ptr<AVFormatContext, FreeDryRun>;

void addCopy(AVFormatContext& context, const AVCodecParameters& codec, AVRational timeBase,
             AVRational frameRate) {
    AVStream* stream = avformat_new_stream(&context, nullptr);
    if (!stream || avcodec_parameters_copy(stream->codecpar, &codec) < 0) throw std::bad_alloc();
    stream->time_base = timeBase;
    stream->avg_frame_rate = frameRate;
    stream->sample_aspect_ratio = codec.sample_aspect_ratio;
}

/// FFmpeg writes anything else as private data that no player understands.
bool isKnownInTransportStreams(const AVCodecParameters& codec) {
    for (const AVCodecID known :
         {AV_CODEC_ID_MP1, AV_CODEC_ID_MP2, AV_CODEC_ID_MP3, AV_CODEC_ID_AAC, AV_CODEC_ID_AAC_LATM,
          AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3, AV_CODEC_ID_DTS, AV_CODEC_ID_TRUEHD, AV_CODEC_ID_OPUS,
          AV_CODEC_ID_S302M, AV_CODEC_ID_DVB_SUBTITLE, AV_CODEC_ID_DVB_TELETEXT,
          AV_CODEC_ID_HDMV_PGS_SUBTITLE})
        if (codec.codec_id == known) return true;
    return false;
}

/// Whether the container writes its header with one more stream. Only that tells: what FFmpeg's
/// tables allow may still be refused.
bool isTaken(const AVFormatContext& output, const AVCodecParameters& codec, AVRational timeBase,
             std::string& reason) {
    const AVOutputFormat& container = *output.oformat;
    const std::string name = container.name;
    const bool isSound = codec.codec_type == AVMEDIA_TYPE_AUDIO;
    if (isNamed(container, {"gif", "apng", "yuv4mpegpipe", "rawvideo"})) {
        reason = "the container " + name + " holds no " + (isSound ? "sound" : "subtitles");
        return false;
    }
    const bool isPrivate = (isNamed(container, {"mpegts"}) && !isKnownInTransportStreams(codec)) ||
                           (isNamed(container, {"mpeg", "vob", "svcd", "dvd"}) && !isSound &&
                            codec.codec_id != AV_CODEC_ID_DVD_SUBTITLE);
    if (isPrivate || avformat_query_codec(&container, codec.codec_id, FF_COMPLIANCE_NORMAL) == 0) {
        reason = "the container " + name + " cannot hold " + avcodec_get_name(codec.codec_id);
        return false;
    }
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, const_cast<AVOutputFormat*>(output.oformat),
                                       nullptr, output.url) < 0)
        throw std::bad_alloc();
    DryRun dryRun(context);
    dryRun->io_open = output.io_open;
    dryRun->flags = output.flags;
    for (unsigned i = 0; i < output.nb_streams; ++i) {
        const AVStream& stream = *output.streams[i];
        addCopy(*dryRun, *stream.codecpar, stream.time_base, stream.avg_frame_rate);
    }
    addCopy(*dryRun, codec, timeBase, {0, 1});
    if (avio_open_dyn_buf(&dryRun->pb) < 0) throw std::bad_alloc();
    beginCatchingMessages();
    const int result = avformat_write_header(dryRun.get(), nullptr);
    if (result < 0)
        reason = "the container " + name + " refuses " + avcodec_get_name(codec.codec_id) + ": " +
                 reasonFor(result);
    return result >= 0;
}

/// The parameters of a stream as another container spells them.
struct Parameters {
    AVCodecParameters* codec = avcodec_parameters_alloc();

    Parameters(const AVCodecParameters& source, const AVOutputFormat& container) {
        if (!codec || avcodec_parameters_copy(codec, &source) < 0) throw std::bad_alloc();
        keepTag(*codec, container);
    }
    ~Parameters() { avcodec_parameters_free(&codec); }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

    /// A tag of the source's container is kept only if it means the same in the output's.
    static void keepTag(AVCodecParameters& codec, const AVOutputFormat& container) {
        if (container.codec_tag &&
            av_codec_get_id(container.codec_tag, codec.codec_tag) != codec.codec_id)
            codec.codec_tag = 0;
    }
};

bool isLossless(AVCodecID codec) {
    const AVCodecDescriptor* found = avcodec_descriptor_get(codec);
    return found && (found->props & AV_CODEC_PROP_LOSSLESS) &&
           !(found->props & AV_CODEC_PROP_LOSSY);
}

std::vector<std::string> soundEncodersFor(const AVOutputFormat& container,
                                          const AVCodecParameters& source) {
    const bool isDeep = source.bits_per_raw_sample > 16 || source.bits_per_coded_sample > 16 ||
                        (source.format != AV_SAMPLE_FMT_NONE &&
                         av_get_bytes_per_sample(AVSampleFormat(source.format)) > 2 &&
                         isLossless(source.codec_id) && source.bits_per_raw_sample == 0);
    const std::string samples = isDeep ? "pcm_s24le" : "pcm_s16le";
    if (isNamed(container, {"gif", "apng", "yuv4mpegpipe", "rawvideo"}) ||
        container.audio_codec == AV_CODEC_ID_NONE)
        return {};
    if (isNamed(container, {"webm"})) return {"libopus", "libvorbis"};
    if (isNamed(container, {"mov", "avi", "matroska"}))
        return isLossless(source.codec_id) ? std::vector<std::string>{samples, "aac"}
                                           : std::vector<std::string>{"aac", "libmp3lame", samples};
    if (isNamed(container, {"mpeg", "vob", "svcd", "dvd"})) return {"mp2"};
    return {"aac", "libopus", "libmp3lame", "mp2", samples};
}

std::vector<std::string> subtitleEncodersFor(const AVOutputFormat& container) {
    if (isNamed(container, {"webm"})) return {"webvtt"};
    if (isNamed(container, {"mp4", "mov", "ipod", "3gp", "3g2"})) return {"mov_text"};
    if (isNamed(container, {"matroska"})) return {"subrip", "ass"};
    return {};
}

const AVCodec* encoderNamed(const std::string& name, AVMediaType type) {
    constexpr std::pair<const char*, const char*> kPreferred[] = {
        {"opus", "libopus"}, {"mp3", "libmp3lame"}, {"vorbis", "libvorbis"},
        {"srt", "subrip"},   {"vtt", "webvtt"},     {"pcm", "pcm_s16le"},
    };
    std::string wanted = name;
    for (const auto& [codec, encoder] : kPreferred)
        if (name == codec) wanted = encoder;
    const AVCodec* encoder = avcodec_find_encoder_by_name(wanted.c_str());
    if (!encoder)
        if (const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(wanted.c_str()))
            encoder = avcodec_find_encoder(codec->id);
    return encoder && encoder->type == type ? encoder : nullptr;
}

bool isText(AVCodecID codec) {
    const AVCodecDescriptor* found = avcodec_descriptor_get(codec);
    return found && (found->props & AV_CODEC_PROP_TEXT_SUB);
}

std::unique_ptr<TrackConverter> tryEncoder(const AVStream& stream, const AVFormatContext& output,
                                           const AVCodec& encoder, std::int64_t bitsPerSecond,
                                           Warnings& warnings, std::string& reason) {
    ConversionRequest request;
    request.stream = &stream;
    request.encoder = &encoder;
    request.bitsPerSecond = bitsPerSecond;
    request.needsGlobalHeader = output.oformat->flags & AVFMT_GLOBALHEADER;
    try {
        const bool isSound = encoder.type == AVMEDIA_TYPE_AUDIO;
        auto converter = (isSound ? convertSound : convertSubtitles)(request, warnings);
        AVCodecParameters* codec = avcodec_parameters_alloc();
        if (!codec || avcodec_parameters_from_context(codec, &converter->encoder()) < 0)
            throw std::bad_alloc();
        const bool isFine = isTaken(output, *codec, converter->encoder().time_base, reason);
        avcodec_parameters_free(&codec);
        return isFine ? std::move(converter) : nullptr;
    } catch (const std::runtime_error& error) {
        reason = error.what();
        return nullptr;
    }
}

TrackPlan convertAsAsked(const AVStream& stream, const AVFormatContext& output,
                         const TrackWish& wish, Warnings& warnings) {
    const AVMediaType type = stream.codecpar->codec_type;
    const char* option = type == AVMEDIA_TYPE_AUDIO ? "--audio " : "--subtitles ";
    const AVCodec* encoder = encoderNamed(wish.codec, type);
    if (!encoder)
        throw std::runtime_error(option + wish.codec + ": there is no such encoder of " +
                                 (type == AVMEDIA_TYPE_AUDIO ? "sound; aac, opus, mp3, flac and "
                                                               "pcm_s16le are some"
                                                             : "subtitles; there are srt, "
                                                               "mov_text, webvtt and ass"));
    TrackPlan plan;
    if (type == AVMEDIA_TYPE_SUBTITLE && !isText(stream.codecpar->codec_id)) {
        plan.reason =
            std::string(avcodec_get_name(stream.codecpar->codec_id)) + " are pictures, not text";
        return plan;
    }
    plan.converter =
        tryEncoder(stream, output, *encoder, wish.bitsPerSecond, warnings, plan.reason);
    if (!plan.converter) throw std::runtime_error(option + wish.codec + ": " + plan.reason);
    plan.way = TrackPlan::Way::Converted;
    return plan;
}

} // namespace

TrackPlan planTrack(const AVStream& stream, const AVFormatContext& output, const TrackWish& wish,
                    Warnings& warnings) {
    TrackPlan plan;
    const AVCodecParameters& codec = *stream.codecpar;
    if (wish.kind == TrackWish::Kind::None) return plan;
    if (wish.kind == TrackWish::Kind::Codec) {
        const AVCodec* encoder = encoderNamed(wish.codec, codec.codec_type);
        const bool isThatAlready =
            encoder && encoder->id == codec.codec_id && wish.bitsPerSecond == 0;
        if (!isThatAlready) return convertAsAsked(stream, output, wish, warnings);
    }
    if (codec.codec_id == AV_CODEC_ID_NONE) {
        plan.reason = "its codec is not known";
        return plan;
    }
    const Parameters copy(codec, *output.oformat);
    if (isTaken(output, *copy.codec, stream.time_base, plan.reason)) {
        plan.way = TrackPlan::Way::Copied;
        return plan;
    }
    if (wish.kind == TrackWish::Kind::Copy) return plan;
    const bool isSound = codec.codec_type == AVMEDIA_TYPE_AUDIO;
    if (!isSound && !isText(codec.codec_id)) return plan;
    for (const std::string& name : isSound ? soundEncodersFor(*output.oformat, codec)
                                           : subtitleEncodersFor(*output.oformat)) {
        const AVCodec* encoder = avcodec_find_encoder_by_name(name.c_str());
        std::string reason;
        if (!encoder) continue;
        plan.converter = tryEncoder(stream, output, *encoder, 0, warnings, reason);
        if (!plan.converter) continue;
        plan.way = TrackPlan::Way::Converted;
        plan.reason = std::string(output.oformat->name) + " does not take " +
                      avcodec_get_name(codec.codec_id);
        break;
    }
    return plan;
}

} // namespace vorn::media
