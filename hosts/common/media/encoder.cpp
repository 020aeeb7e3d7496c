#include "encoder.h"

#include "colour.h"
#include "palette.h"
#include "pixel_format_choice.h"
#include "pixels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

namespace vorn::media {

namespace {

AVColorRange avRange(ColourRange range) {
    if (range == ColourRange::Full) return AVCOL_RANGE_JPEG;
    return range == ColourRange::Limited ? AVCOL_RANGE_MPEG : AVCOL_RANGE_UNSPECIFIED;
}

/// The next size that the format's chroma divides.
Size evenSize(Size size, AVPixelFormat format) {
    const AVPixFmtDescriptor& descriptor = *av_pix_fmt_desc_get(format);
    const int x = (1 << descriptor.log2_chroma_w) - 1, y = (1 << descriptor.log2_chroma_h) - 1;
    return {(size.width + x) & ~x, (size.height + y) & ~y};
}

/// Repeats the last column and row of a picture.
void pad(const Frame& source, Frame& target) {
    const auto pixel = std::size_t(bytesPerPixel(source.format()));
    for (int y = 0; y < target.height(); ++y) {
        const std::uint8_t* in = source.row(std::min(y, source.height() - 1));
        std::uint8_t* out = target.row(y);
        std::memcpy(out, in, pixel * std::size_t(source.width()));
        for (int x = source.width(); x < target.width(); ++x)
            std::memcpy(out + pixel * std::size_t(x), out + pixel * std::size_t(x - 1), pixel);
    }
    target.alpha = source.alpha;
}

std::string sizeText(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

bool canCodeFields(const AVCodec& codec) {
    for (const char* name : {"libx264", "mpeg2video", "prores_ks", "mpeg4", "wrapped_avframe"})
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

    openAny(request, warnings);
    remarkOnQuality(request, warnings);
    const std::string name = request.codec->name;
    keepsAlpha_ = media::hasAlpha(format_) || format_ == AV_PIX_FMT_PAL8;
    if (request.options->hasAlpha && !keepsAlpha_)
        warnings.add("transparency, if there is any, is composed over black: " + name +
                     " cannot hold it here; a mov, webm or mkv file keeps it");
    if (source && isHighDynamicRange(source->colour) && !tagsTransfer(request))
        warnings.add("the file cannot say that its values are coded for HDR: players will show "
                     "them dull");
}

void Encoder::openAny(const EncoderRequest& request, Warnings& warnings) {
    std::string reason;
    for (const AVPixelFormat format : candidateFormats(request)) {
        if (open(request, format, request.storedSize, reason)) return;
        const Size even = evenSize(request.storedSize, format);
        if (even == request.storedSize || !open(request, format, even, reason)) continue;
        warnings.note("the film is stored as " + sizeText(even) + " instead of " +
                      sizeText(request.storedSize) + ": " + request.codec->name +
                      " takes even sizes only, so the last column or row stands twice");
        return;
    }
    std::string needs = HardwareFrames::needsOf(*request.codec);
    constexpr int kLeastSide = 64;
    const Size size = request.storedSize;
    if (std::string(request.codec->name) == "libsvtav1" &&
        std::min(size.width, size.height) < kLeastSide)
        needs = "it takes pictures from 64x64 on";
    throw std::runtime_error("the encoder " + std::string(request.codec->name) +
                             " does not open: " + reason + (needs.empty() ? "" : "; " + needs));
}

void Encoder::describePictures(const EncoderRequest& request, AVPixelFormat format, Size size) {
    const WriterOptions& options = *request.options;
    AVCodecContext& context = *context_;
    EncoderRequest stored = request;
    stored.storedSize = size;
    const ColourChoice colour = chooseColour(stored, format);
    coding_ = colour.coding;
    format_ = format;
    context.pix_fmt = format;
    context.width = size.width;
    context.height = size.height;
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
    if (fieldOrder_ != FieldOrder::Progressive) {
        context.flags |= AV_CODEC_FLAG_INTERLACED_DCT;
        context.field_order = fieldOrder_ == FieldOrder::TopFirst ? AV_FIELD_TT : AV_FIELD_BB;
    } else {
        context.field_order = AV_FIELD_PROGRESSIVE;
    }
}

bool Encoder::open(const EncoderRequest& request, AVPixelFormat format, Size size,
                   std::string& reason) {
    beginCatchingMessages();
    const AVCodec& codec = *request.codec;
    hardware_.reset();
    context_.reset(avcodec_alloc_context3(&codec));
    if (!context_) throw std::bad_alloc();
    AVCodecContext& context = *context_;
    describePictures(request, format, size);
    context.thread_count = request.options->threads;
    context.flags |= AV_CODEC_FLAG_BITEXACT;
    if (request.container && (request.container->flags & AVFMT_GLOBALHEADER))
        context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // FFmpeg writes B-frames to AVI only with times that players do not understand.
    if (request.container && std::string(request.container->name) == "avi")
        context.max_b_frames = 0;
    // HEVC players in the MP4 family look for this tag.
    if (codec.id == AV_CODEC_ID_HEVC && request.container && request.container->codec_tag)
        if (av_codec_get_id(request.container->codec_tag, MKTAG('h', 'v', 'c', '1')) == codec.id)
            context.codec_tag = MKTAG('h', 'v', 'c', '1');

    AvOptions encoderOptions;
    setOptions(request, encoderOptions);
    if (HardwareFrames::isNeededBy(codec)) {
        try {
            hardware_ = std::make_unique<HardwareFrames>(context, format);
        } catch (const std::runtime_error& error) {
            reason = error.what();
            return false;
        }
    }
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

AVFrame& Encoder::idlePicture() {
    for (const AvFrame& picture : pictures_)
        if (av_frame_is_writable(picture.get())) return *picture;
    AvFrame picture = makeFrame();
    picture->width = context_->width;
    picture->height = context_->height;
    picture->format = format_;
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
    if (isRgb(format_)) {
        const bool isDeep = media::bitsPerComponent(format_) > 8;
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
    if (stage->size() != coding_.size) {
        paddedStage_.reshape(coding_.size, stage->format());
        pad(*stage, paddedStage_);
        stage = &paddedStage_;
    }
    if (format_ == AV_PIX_FMT_PAL8) {
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
    const AVFrame& sent = hardware_ ? hardware_->bring(picture) : picture;
    const int result = avcodec_send_frame(context_.get(), &sent);
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
