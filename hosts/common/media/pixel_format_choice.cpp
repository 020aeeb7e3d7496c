#include "pixel_format_choice.h"

#include "colour.h"
#include "hardware.h"

#include <algorithm>
#include <stdexcept>

namespace vorn::media {

namespace {

bool isIn(std::initializer_list<AVCodecID> codecs, AVCodecID codec) {
    return std::find(codecs.begin(), codecs.end(), codec) != codecs.end();
}

bool isContainer(const EncoderRequest& request, std::initializer_list<const char*> names) {
    if (!request.container) return false;
    return std::any_of(names.begin(), names.end(), [&](const char* name) {
        return std::string(request.container->name) == name;
    });
}

bool isMatroska(const EncoderRequest& request) {
    return isContainer(request, {"matroska", "webm"});
}

bool isY4m(const EncoderRequest& request) {
    return isContainer(request, {"yuv4mpegpipe"});
}

// A film's coding is worth keeping; that of a picture file is an accident of its format.
bool isYCbCrFilm(const MediaInfo* source) {
    return source && source->isYCbCr && source->kind == MediaKind::Video;
}

std::vector<AVPixelFormat> softwareFormats(const AVCodec& codec) {
    std::vector<AVPixelFormat> formats;
    for (const AVPixelFormat* format = codec.pix_fmts; format && *format != AV_PIX_FMT_NONE;
         ++format) {
        const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(*format);
        const bool isHardware = descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL;
        if (!isHardware && sws_isSupportedOutput(*format)) formats.push_back(*format);
    }
    return formats;
}

AVPixelFormat wantedRgb(int bits, bool alpha) {
    if (bits > 8) return alpha ? AV_PIX_FMT_RGBA64LE : AV_PIX_FMT_RGB48LE;
    return alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24;
}

AVPixelFormat wantedYCbCr(int shiftX, int shiftY, int bits, bool alpha) {
    std::string name = alpha ? "yuva" : "yuv";
    name += shiftX == 0 ? "444p" : shiftY == 0 ? "422p" : "420p";
    if (bits > 8) name += bits > 10 && !alpha ? "12le" : "10le";
    return av_get_pix_fmt(name.c_str());
}

AVPixelFormat bestOf(std::vector<AVPixelFormat> formats, AVPixelFormat wanted, bool alpha) {
    if (formats.empty()) return wanted; // the encoder takes anything
    formats.push_back(AV_PIX_FMT_NONE);
    return avcodec_find_best_pix_fmt_of_list(formats.data(), wanted, alpha, nullptr);
}

std::vector<AVPixelFormat> namedFormat(const std::vector<AVPixelFormat>& formats,
                                       const EncoderRequest& request) {
    const std::string& name = request.options->pixelFormat;
    const AVPixelFormat wanted = av_get_pix_fmt(name.c_str());
    if (std::find(formats.begin(), formats.end(), wanted) != formats.end()) return {wanted};
    if (formats.empty() && wanted != AV_PIX_FMT_NONE) return {wanted};
    std::string names;
    for (const AVPixelFormat format : formats)
        names += std::string(names.empty() ? "" : ", ") + av_get_pix_fmt_name(format);
    throw std::runtime_error("the encoder " + std::string(request.codec->name) +
                             " has no pixel format " + name + "; it takes: " + names);
}

bool isJpeg(const EncoderRequest& request) {
    return request.codec->id == AV_CODEC_ID_MJPEG;
}

bool canTagMatrix(const EncoderRequest& request) {
    const AVCodecID codec = request.codec->id;
    if (codec == AV_CODEC_ID_VP8 || codec == AV_CODEC_ID_MPEG1VIDEO) return false;
    return isMatroska(request) || isContainer(request, {"mp4", "mov", "ipod"}) ||
           isIn({AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP9, AV_CODEC_ID_AV1,
                 AV_CODEC_ID_PRORES},
                codec);
}

bool canTagFullRange(const EncoderRequest& request) {
    const AVCodecID codec = request.codec->id;
    if (isIn({AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_VP9, AV_CODEC_ID_AV1}, codec))
        return true;
    return isMatroska(request) && isIn({AV_CODEC_ID_FFV1, AV_CODEC_ID_FFVHUFF}, codec);
}

} // namespace

bool tagsTransfer(const EncoderRequest& request) {
    return request.container && canTagMatrix(request);
}

std::vector<AVPixelFormat> candidateFormats(const EncoderRequest& request) {
    const WriterOptions& options = *request.options;
    const AVCodecID codec = request.codec->id;
    const std::vector<AVPixelFormat> formats = softwareFormats(*request.codec);
    if (!options.pixelFormat.empty()) return namedFormat(formats, request);
    if (codec == AV_CODEC_ID_GIF) return {AV_PIX_FMT_PAL8};
    if (isJpeg(request) && !request.container) return {AV_PIX_FMT_YUVJ444P};
    if (isJpeg(request)) return {AV_PIX_FMT_YUVJ420P};

    // Only Matroska has a place for the alpha plane of VP8 and VP9.
    const bool alpha = options.hasAlpha &&
                       (!isIn({AV_CODEC_ID_VP8, AV_CODEC_ID_VP9}, codec) || isMatroska(request)) &&
                       !isY4m(request);
    // Players of HDR take HEVC with 10 bits, neither fewer nor more.
    const bool isHdr = options.source && isHighDynamicRange(options.source->colour);
    const int bits = isHdr && codec == AV_CODEC_ID_HEVC ? 10 : options.bitsPerComponent;
    if (HardwareFrames::isNeededBy(*request.codec)) return {HardwareFrames::formatInMemory(bits)};
    // The next program on the pipe is to get what the filters made, to the bit.
    if (codec == AV_CODEC_ID_RAWVIDEO && isContainer(request, {"nut"}))
        return {wantedRgb(bits, alpha)};
    const bool isFilm = isYCbCrFilm(options.source);
    const bool holdsRgb = std::any_of(formats.begin(), formats.end(), isRgb);
    const bool prefersRgb =
        holdsRgb && (!request.container ||
                     (!isFilm && isIn({AV_CODEC_ID_FFV1, AV_CODEC_ID_FFVHUFF, AV_CODEC_ID_HUFFYUV,
                                       AV_CODEC_ID_UTVIDEO, AV_CODEC_ID_RAWVIDEO},
                                      codec)));
    if (prefersRgb) return {bestOf(formats, wantedRgb(bits, alpha), alpha)};

    const int shiftX = isFilm ? options.source->chromaShiftX : 1;
    const int shiftY = isFilm ? options.source->chromaShiftY : 1;
    return {bestOf(formats, wantedYCbCr(shiftX, shiftY, bits, alpha), alpha)};
}

namespace {

/// Takes back what the file could not say of its colours.
void keepToWhatCanBeTagged(ColourChoice& choice, const EncoderRequest& request,
                           AVColorSpace usual) {
    if (!canTagMatrix(request)) {
        choice.coding.matrix = request.codec->id == AV_CODEC_ID_VP8 ? AVCOL_SPC_SMPTE170M : usual;
        choice.tags.matrix = AVCOL_SPC_UNSPECIFIED;
        // Y4M without it would say that chroma lies in the centre.
        choice.tags.chromaLocation = isY4m(request) ? AVCHROMA_LOC_LEFT : AVCHROMA_LOC_UNSPECIFIED;
        choice.coding.chromaLocation = AVCHROMA_LOC_LEFT;
    }
    if (choice.coding.isFullRange && !canTagFullRange(request)) {
        choice.coding.isFullRange = false;
        choice.tags.range = ColourRange::Limited;
    }
}

} // namespace

ColourChoice chooseColour(const EncoderRequest& request, AVPixelFormat format) {
    const MediaInfo* source = request.options->source;
    const bool isFilm = isYCbCrFilm(source);
    ColourChoice choice;
    if (source) {
        choice.tags.primaries = source->colour.primaries;
        choice.tags.transfer = source->colour.transfer;
    }
    choice.coding.size = request.storedSize;
    if (isRgb(format)) {
        choice.coding.format = format;
        return choice;
    }
    if (isJpeg(request)) {
        // JFIF: BT.601, full range, chroma in the centre.
        choice.tags = {};
        choice.tags.matrix = AVCOL_SPC_BT470BG;
        choice.tags.range = ColourRange::Full;
        choice.tags.chromaLocation = AVCHROMA_LOC_CENTER;
        choice.coding = decideCoding(request.storedSize, format, choice.tags);
        return choice;
    }
    if (request.codec->id == AV_CODEC_ID_WEBP) {
        choice.tags = {};
        choice.tags.matrix = AVCOL_SPC_SMPTE170M;
        choice.coding = decideCoding(request.storedSize, format, choice.tags);
        return choice;
    }

    const AVColorSpace usual = usualMatrix(request.storedSize);
    if (isFilm) {
        const PictureCoding film = decideCoding(
            source->storedSize, av_get_pix_fmt(source->pixelFormat.c_str()), source->colour);
        choice.tags = source->colour;
        choice.coding = film;
        const bool isTagUsable = isKnownMatrix(AVColorSpace(source->colour.matrix));
        const bool isImplied =
            source->colour.matrix == AVCOL_SPC_UNSPECIFIED && film.matrix == usual;
        if (!isTagUsable && !isImplied) choice.tags.matrix = film.matrix;
        if (film.isFullRange) choice.tags.range = ColourRange::Full;
    } else {
        choice.tags.matrix = usual;
        choice.tags.range = ColourRange::Limited;
        choice.coding.matrix = usual;
    }
    keepToWhatCanBeTagged(choice, request, usual);
    if (av_pix_fmt_desc_get(format)->log2_chroma_h != 1)
        choice.tags.chromaLocation = AVCHROMA_LOC_UNSPECIFIED;
    // A yuvj format, if one was asked for by name, says full range by itself.
    const PictureCoding plain = decideCoding(request.storedSize, format, choice.tags);
    choice.coding.format = plain.format;
    choice.coding.size = request.storedSize;
    if (plain.isFullRange) {
        choice.coding.isFullRange = true;
        choice.tags.range = ColourRange::Full;
    }
    return choice;
}

} // namespace vorn::media
