// Conversion between pixel formats and sizes with the right matrix, range and chroma position.
// Internal.
#pragma once

#include "frame.h"
#include "info.h"
#include "libav.h"

namespace vorn::media {

/// How the samples of an AVFrame are to be understood; everything is decided, nothing unspecified.
struct PictureCoding {
    Size size;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    AVColorSpace matrix = AVCOL_SPC_BT709; ///< of YCbCr formats
    bool isFullRange = false;              ///< of YCbCr formats
    AVChromaLocation chromaLocation = AVCHROMA_LOC_LEFT;

    friend bool operator==(const PictureCoding&, const PictureCoding&) = default;
};

bool isRgb(AVPixelFormat format);
bool hasAlpha(AVPixelFormat format);
int bitsPerComponent(AVPixelFormat format);
AVPixelFormat avFormat(PixelFormat format);

/// True where the conversion knows the matrix.
bool isKnownMatrix(AVColorSpace matrix);
/// What untagged YCbCr of that size is taken for: BT.709 above 1279 x 576, BT.601 below.
AVColorSpace usualMatrix(Size size);

/// The coding of a picture with these tags, with the usual assumptions where a tag is missing.
/// yuvj formats become their plain twins in full range.
PictureCoding decideCoding(Size size, AVPixelFormat format, const ColourTags& tags);

/// Describes a frame as an AVFrame that shares its buffer, without a copy.
void wrapFrame(const Frame& frame, AVFrame& shell);

/// A converter that keeps its tables while the formats stay the same.
class Scaler {
public:
    explicit Scaler(int threads) : threads_(threads) {}

    /// Converts `source` to the buffers of `target`. Throws std::runtime_error.
    void convert(const AVFrame& source, const PictureCoding& from, AVFrame& target,
                 const PictureCoding& to);

private:
    void prepare(const PictureCoding& from, const PictureCoding& to);
    void scale(const AVFrame& source, const PictureCoding& from, AVFrame& target,
               const PictureCoding& to);
    AVFrame& planes(const PictureCoding& coding);

    int threads_;
    AvScaler context_;
    AvFrame planes_;
    PictureCoding from_, to_;
};

} // namespace vorn::media
