#include "scaler.h"

#include <algorithm>
#include <thread>

extern "C" {
#include <libavutil/opt.h>
}

namespace vorn::media {

namespace {

const AVPixFmtDescriptor& descriptor(AVPixelFormat format) {
    const AVPixFmtDescriptor* found = av_pix_fmt_desc_get(format);
    if (!found) throw std::runtime_error("unknown pixel format");
    return *found;
}

AVPixelFormat withoutRange(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        return AV_PIX_FMT_YUV411P;
    default:
        return format;
    }
}

// Position of the chroma sample in 1/256 of a luma sample, as the scaler counts: 0 lies on the
// first luma sample, 128 half way to the second.
struct ChromaPosition {
    int horizontal = -513; // -513: the axis is not subsampled
    int vertical = -513;
};

ChromaPosition chromaPosition(const PictureCoding& coding) {
    const AVPixFmtDescriptor& format = descriptor(coding.format);
    ChromaPosition position;
    const AVChromaLocation location = coding.chromaLocation;
    if (format.log2_chroma_w == 1)
        position.horizontal = location == AVCHROMA_LOC_CENTER || location == AVCHROMA_LOC_TOP ||
                                      location == AVCHROMA_LOC_BOTTOM
                                  ? 128
                                  : 0;
    if (format.log2_chroma_h == 1) {
        position.vertical = 128;
        if (location == AVCHROMA_LOC_TOPLEFT || location == AVCHROMA_LOC_TOP) position.vertical = 0;
        if (location == AVCHROMA_LOC_BOTTOMLEFT || location == AVCHROMA_LOC_BOTTOM)
            position.vertical = 256;
    }
    return position;
}

const int* coefficients(AVColorSpace matrix) {
    // The scaler numbers its tables as ISO/IEC 23091-2 does, except that 6 is 5.
    return sws_getCoefficients(matrix == AVCOL_SPC_SMPTE170M ? SWS_CS_ITU601 : int(matrix));
}

} // namespace

bool isRgb(AVPixelFormat format) {
    return (descriptor(format).flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

bool hasAlpha(AVPixelFormat format) {
    return (descriptor(format).flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

int bitsPerComponent(AVPixelFormat format) {
    const AVPixFmtDescriptor& found = descriptor(format);
    return (found.flags & AV_PIX_FMT_FLAG_PAL) ? 8 : found.comp[0].depth;
}

AVPixelFormat avFormat(PixelFormat format) {
    return format == PixelFormat::Rgba8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGBA64LE;
}

bool isKnownMatrix(AVColorSpace matrix) {
    switch (matrix) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_BT2020_NCL:
        return true;
    default:
        return false;
    }
}

AVColorSpace usualMatrix(Size size) {
    return size.width >= 1280 || size.height > 576 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

PictureCoding decideCoding(Size size, AVPixelFormat format, const ColourTags& tags) {
    PictureCoding coding;
    coding.size = size;
    coding.format = withoutRange(format);
    coding.isFullRange = tags.range == ColourRange::Full || coding.format != format;
    const auto matrix = AVColorSpace(tags.matrix);
    coding.matrix = isKnownMatrix(matrix) ? matrix : usualMatrix(size);
    coding.chromaLocation = tags.chromaLocation == AVCHROMA_LOC_UNSPECIFIED
                                ? AVCHROMA_LOC_LEFT
                                : AVChromaLocation(tags.chromaLocation);
    // Grey files without a tag are full range, unlike YCbCr.
    if (descriptor(format).nb_components < 3 && tags.range == ColourRange::Unspecified)
        coding.isFullRange = true;
    return coding;
}

void wrapFrame(const Frame& frame, AVFrame& shell) {
    av_frame_unref(&shell);
    shell.width = frame.width();
    shell.height = frame.height();
    shell.format = avFormat(frame.format());
    shell.data[0] = const_cast<std::uint8_t*>(frame.pixels());
    shell.linesize[0] = int(frame.strideBytes());
    shell.buf[0] = av_buffer_ref(frame.buffer());
    if (!shell.buf[0]) throw std::bad_alloc();
}

void Scaler::prepare(const PictureCoding& from, const PictureCoding& to) {
    if (context_ && from == from_ && to == to_) return;
    context_.reset(sws_alloc_context());
    if (!context_) throw std::bad_alloc();
    SwsContext* context = context_.get();

    const ChromaPosition source = chromaPosition(from), target = chromaPosition(to);
    const int cores = std::max(1, int(std::thread::hardware_concurrency()));
    const std::pair<const char*, std::int64_t> settings[] = {
        {"srcw", from.size.width},
        {"srch", from.size.height},
        {"src_format", from.format},
        {"dstw", to.size.width},
        {"dsth", to.size.height},
        {"dst_format", to.format},
        {"sws_flags",
         SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT},
        {"src_h_chr_pos", source.horizontal},
        {"src_v_chr_pos", source.vertical},
        {"dst_h_chr_pos", target.horizontal},
        {"dst_v_chr_pos", target.vertical},
        {"threads", threads_ > 0 ? threads_ : cores},
    };
    for (const auto& [name, value] : settings) {
        if (av_opt_set_int(context, name, value, 0) < 0)
            throw std::runtime_error(std::string("the scaler has no option ") + name);
    }
    if (const int result = sws_init_context(context, nullptr, nullptr); result < 0) {
        context_.reset();
        throw std::runtime_error("cannot convert " + std::string(av_get_pix_fmt_name(from.format)) +
                                 " to " + av_get_pix_fmt_name(to.format) + ": " +
                                 reasonFor(result));
    }
    constexpr int kOne = 1 << 16;
    sws_setColorspaceDetails(context, coefficients(from.matrix), from.isFullRange,
                             coefficients(to.matrix), to.isFullRange, 0, kOne, kOne);
    from_ = from;
    to_ = to;
}

void Scaler::convert(const AVFrame& source, const PictureCoding& from, AVFrame& target,
                     const PictureCoding& to) {
    prepare(from, to);
    const int result = sws_scale_frame(context_.get(), &target, &source);
    if (result < 0) throw std::runtime_error("cannot convert a picture: " + reasonFor(result));
}

} // namespace vorn::media
