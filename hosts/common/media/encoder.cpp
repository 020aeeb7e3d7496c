#include "encoder.h"

#include "palette.h"
#include "pixel_format_choice.h"
#include "pixels.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

namespace vorn::media {

namespace {

// How an encoder is told the quality, and the quality that is hard to tell from the source.
struct Quality {
    const char* encoder;
    const char* option; ///< "qscale": the fixed quantiser, otherwise an option of the encoder
    double standard;    ///< 0: the encoder's own default
};

constexpr Quality kQualities[] = {
    {"libx264", "crf", 18},          {"libx264rgb", "crf", 18},   {"libx265", "crf", 20},
    {"libvpx-vp9", "crf", 24},       {"libvpx", "crf", 8},        {"libsvtav1", "crf", 26},
    {"libaom-av1", "crf", 22},       {"librav1e", "qp", 70},      {"mpeg4", "qscale", 2},
    {"mpeg2video", "qscale", 2},     {"mpeg1video", "qscale", 2}, {"mjpeg", "qscale", 2},
    {"msmpeg4", "qscale", 2},        {"msmpeg4v2", "qscale", 2},  {"wmv1", "qscale", 2},
    {"wmv2", "qscale", 2},           {"flv", "qscale", 2},        {"h263p", "qscale", 2},
    {"libxvid", "qscale", 2},        {"libtheora", "qscale", 9},  {"libwebp", "quality", 92},
    {"libwebp_anim", "quality", 92}, {"prores_ks", "qscale", 0},
};

struct EncoderOption {
    const char* encoder;
    const char* key;
    const char* value;
};

constexpr EncoderOption kStandardOptions[] = {
    {"libx264", "preset", "medium"},
    {"libx265", "preset", "medium"},
    {"libx265", "x265-params", "log-level=none"},
    {"libvpx-vp9", "deadline", "good"},
    {"libvpx-vp9", "cpu-used", "4"},
    {"libvpx-vp9", "row-mt", "1"},
    {"libvpx", "deadline", "good"},
    {"libvpx", "cpu-used", "2"},
    {"libaom-av1", "cpu-used", "6"},
    {"libaom-av1", "row-mt", "1"},
    {"libsvtav1", "preset", "8"},
    {"prores_ks", "vendor", "apl0"},
    {"ffv1", "level", "3"},
};

const Quality* qualityOf(const AVCodec& codec) {
    const auto found =
        std::find_if(std::begin(kQualities), std::end(kQualities),
                     [&](const Quality& q) { return std::string(q.encoder) == codec.name; });
    return found == std::end(kQualities) ? nullptr : found;
}

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

AVColorRange avRange(ColourRange range) {
    if (range == ColourRange::Full) return AVCOL_RANGE_JPEG;
    return range == ColourRange::Limited ? AVCOL_RANGE_MPEG : AVCOL_RANGE_UNSPECIFIED;
}

// x264 and x265 complain about an unknown preset on the terminal, past FFmpeg's messages.
void checkPreset(const std::string& preset) {
    constexpr const char* kPresets[] = {"ultrafast", "superfast", "veryfast", "faster",
                                        "fast",      "medium",    "slow",     "slower",
                                        "veryslow",  "placebo"};
    std::string names;
    for (const char* name : kPresets) {
        if (preset.empty() || preset == name) return;
        names += std::string(names.empty() ? "" : ", ") + name;
    }
    throw std::runtime_error("unknown preset " + preset + "; there are: " + names);
}

bool canCodeFields(const AVCodec& codec) {
    for (const char* name : {"libx264", "mpeg2video", "prores_ks", "mpeg4"})
        if (std::string(codec.name) == name) return true;
    return false;
}

} // namespace

Encoder::Encoder(const EncoderRequest& request, Warnings& warnings)
    : toStored_(request.toStored), scaler_(request.options->threads) {
    const MediaInfo* source = request.options->source;
    const bool isInterlaced = source && (source->fieldOrder == FieldOrder::TopFirst ||
                                         source->fieldOrder == FieldOrder::BottomFirst);
    if (isInterlaced && request.storedSize == source->storedSize && canCodeFields(*request.codec))
        fieldOrder_ = source->fieldOrder;
    if (source && !request.container) iccProfile_ = source->iccProfile;

    std::string reason;
    const std::vector<AVPixelFormat> formats = candidateFormats(request);
    const bool isOpen = std::any_of(formats.begin(), formats.end(), [&](AVPixelFormat format) {
        return open(request, format, reason);
    });
    if (!isOpen)
        throw std::runtime_error("the encoder " + std::string(request.codec->name) +
                                 " does not open: " + reason);
    // The quality was taken by the open encoder; what it does not know is only worth a remark.
    if (request.options->crf && !qualityOf(*request.codec))
        warnings.add("the encoder " + std::string(request.codec->name) + " has no quality setting");
    keepsAlpha_ = media::hasAlpha(context_->pix_fmt) || context_->pix_fmt == AV_PIX_FMT_PAL8;
    if (request.options->hasAlpha && !keepsAlpha_)
        warnings.add("transparency, if there is any, is composed over black: " +
                     std::string(request.codec->name) + " cannot hold it here");
}

bool Encoder::open(const EncoderRequest& request, AVPixelFormat format, std::string& reason) {
    beginCatchingMessages();
    const WriterOptions& options = *request.options;
    const AVCodec& codec = *request.codec;
    context_.reset(avcodec_alloc_context3(&codec));
    if (!context_) throw std::bad_alloc();
    AVCodecContext& context = *context_;

    const ColourChoice colour = chooseColour(request, format);
    coding_ = colour.coding;
    context.pix_fmt = format;
    context.width = request.storedSize.width;
    context.height = request.storedSize.height;
    context.time_base = request.timeBase;
    context.framerate = request.frameRate;
    context.colorspace = AVColorSpace(colour.tags.matrix);
    context.color_primaries = AVColorPrimaries(colour.tags.primaries);
    context.color_trc = AVColorTransferCharacteristic(colour.tags.transfer);
    context.color_range = avRange(colour.tags.range);
    context.chroma_sample_location = AVChromaLocation(colour.tags.chromaLocation);
    if (options.source) {
        AVRational aspect = toAv(options.source->sampleAspectRatio);
        // Frames that were turned upright and stay so have their pixels on the side.
        const int turn = options.source->rotationDegrees;
        if (toStored_.isIdentity() && (turn == 90 || turn == 270))
            std::swap(aspect.num, aspect.den);
        context.sample_aspect_ratio = aspect;
    }
    context.thread_count = options.threads;
    context.flags |= AV_CODEC_FLAG_BITEXACT;
    if (request.container && (request.container->flags & AVFMT_GLOBALHEADER))
        context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // FFmpeg writes B-frames to AVI only with times that players do not understand.
    if (request.container && std::string(request.container->name) == "avi")
        context.max_b_frames = 0;
    if (fieldOrder_ != FieldOrder::Progressive) {
        context.flags |= AV_CODEC_FLAG_INTERLACED_DCT;
        context.field_order = fieldOrder_ == FieldOrder::TopFirst ? AV_FIELD_TT : AV_FIELD_BB;
    } else {
        context.field_order = AV_FIELD_PROGRESSIVE;
    }
    // HEVC players in the MP4 family look for this tag.
    if (codec.id == AV_CODEC_ID_HEVC && request.container && request.container->codec_tag)
        if (av_codec_get_id(request.container->codec_tag, MKTAG('h', 'v', 'c', '1')) == codec.id)
            context.codec_tag = MKTAG('h', 'v', 'c', '1');

    AvOptions encoderOptions;
    setOptions(request, encoderOptions);
    const int result = avcodec_open2(&context, &codec, encoderOptions.address());
    if (result < 0) {
        reason = reasonFor(result);
        context_.reset();
        return false;
    }
    if (const std::string unknown = encoderOptions.firstLeft(); !unknown.empty())
        throw std::runtime_error("the encoder " + std::string(codec.name) + " has no option " +
                                 unknown);
    return true;
}

void Encoder::setOptions(const EncoderRequest& request, AvOptions& target) {
    const WriterOptions& options = *request.options;
    const std::string name = request.codec->name;
    for (const auto& [key, value] : options.encoderOptions) target.set(key, value);
    if (!options.preset.empty()) target.set("preset", options.preset);
    for (const EncoderOption& standard : kStandardOptions)
        if (name == standard.encoder) target.setDefault(standard.key, standard.value);

    if (name.starts_with("libx26")) checkPreset(target.get("preset"));
    const bool isVpx = name == "libvpx" || name == "libvpx-vp9";
    if (isVpx && media::hasAlpha(context_->pix_fmt)) target.setDefault("auto-alt-ref", "0");
    // VP8 takes the bit rate as the ceiling of constant quality; VP9 has none at zero.
    if (name == "libvpx") context_->bit_rate = 50'000'000;
    // SVT-AV1 writes to the terminal by itself; its variable is the only way to quiet it.
    if (name == "libsvtav1") ::setenv("SVT_LOG", "1", 0);

    const Quality* quality = qualityOf(*request.codec);
    if (!quality) return;
    const double value = options.crf.value_or(quality->standard);
    if (value == 0 && !options.crf) return;
    if (std::string(quality->option) == "qscale") {
        context_->flags |= AV_CODEC_FLAG_QSCALE;
        context_->global_quality = int(std::lround(value * FF_QP2LAMBDA));
    } else {
        target.setDefault(quality->option, numberText(value));
    }
}

AVFrame& Encoder::idlePicture() {
    for (const AvFrame& picture : pictures_)
        if (av_frame_is_writable(picture.get())) return *picture;
    AvFrame picture = makeFrame();
    picture->width = context_->width;
    picture->height = context_->height;
    picture->format = context_->pix_fmt;
    picture->colorspace = context_->colorspace;
    picture->color_range = context_->color_range;
    picture->color_primaries = context_->color_primaries;
    picture->color_trc = context_->color_trc;
    picture->chroma_location = context_->chroma_sample_location;
    picture->sample_aspect_ratio = context_->sample_aspect_ratio;
    picture->interlaced_frame = fieldOrder_ != FieldOrder::Progressive;
    picture->top_field_first = fieldOrder_ == FieldOrder::TopFirst;
    if (const int result = av_frame_get_buffer(picture.get(), 0); result < 0)
        throw std::runtime_error(reasonFor(result));
    if (!iccProfile_.empty()) {
        AVFrameSideData* side =
            av_frame_new_side_data(picture.get(), AV_FRAME_DATA_ICC_PROFILE, iccProfile_.size());
        if (!side) throw std::bad_alloc();
        std::memcpy(side->data, iccProfile_.data(), iccProfile_.size());
    }
    pictures_.push_back(std::move(picture));
    return *pictures_.back();
}

void Encoder::fill(const Frame& frame, AVFrame& picture) {
    const Frame* stage = &frame;
    if (keepsAlpha_ ? frame.alpha == Alpha::Premultiplied : frame.alpha == Alpha::Straight) {
        alphaStage_.reshape(frame.size(), frame.format());
        (keepsAlpha_ ? unpremultiply : premultiply)(frame, alphaStage_);
        stage = &alphaStage_;
    }
    // Between RGB formats of different depth the scaler would go through YCbCr.
    if (isRgb(context_->pix_fmt)) {
        const bool isDeep = media::bitsPerComponent(context_->pix_fmt) > 8;
        const PixelFormat depth = isDeep ? PixelFormat::Rgba16 : PixelFormat::Rgba8;
        if (stage->format() != depth) {
            depthStage_.reshape(stage->size(), depth);
            changeDepth(*stage, depthStage_);
            stage = &depthStage_;
        }
    }
    if (!toStored_.isIdentity()) {
        storedStage_.reshape(toStored_.apply(stage->size()), stage->format());
        reorient(*stage, toStored_, storedStage_);
        stage = &storedStage_;
    }
    if (context_->pix_fmt == AV_PIX_FMT_PAL8) {
        reduceToPalette(*stage, picture);
        return;
    }
    wrapFrame(*stage, *shell_);
    PictureCoding from;
    from.size = stage->size();
    from.format = avFormat(stage->format());
    from.isFullRange = true;
    from.matrix = coding_.matrix;
    scaler_.convert(*shell_, from, picture, coding_);
    av_frame_unref(shell_.get());
}

void Encoder::send(const Frame& frame, std::int64_t pts, std::int64_t duration) {
    AVFrame& picture = idlePicture();
    fill(frame, picture);
    picture.pts = pts;
    picture.pkt_duration = duration;
    if (context_->flags & AV_CODEC_FLAG_QSCALE) picture.quality = context_->global_quality;
    const int result = avcodec_send_frame(context_.get(), &picture);
    if (result < 0) throw std::runtime_error("encoding failed: " + reasonFor(result));
}

void Encoder::sendEnd() {
    const int result = avcodec_send_frame(context_.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF)
        throw std::runtime_error("encoding failed: " + reasonFor(result));
}

bool Encoder::receive(AVPacket& packet) {
    const int result = avcodec_receive_packet(context_.get(), &packet);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return false;
    if (result < 0) throw std::runtime_error("encoding failed: " + reasonFor(result));
    return true;
}

} // namespace vorn::media
