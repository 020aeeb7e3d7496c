// What a media file says about itself.
#pragma once

#include "types.h"

#include <array>
#include <memory>

namespace vorn::media {

class PassedTracks;

enum class ColourRange : std::uint8_t { Unspecified, Limited, Full };

/// How YCbCr samples are to be understood, as tagged in the file. `matrix`, `primaries` and
/// `transfer` are the code points of ISO/IEC 23091-2 (2 = unspecified, 1 = BT.709, 5 and 6 =
/// BT.601, 9 = BT.2020). `chromaLocation` is 0 unspecified, 1 left, 2 centre, 3 top left, 4 top,
/// 5 bottom left, 6 bottom.
struct ColourTags {
    int matrix = 2;
    int primaries = 2;
    int transfer = 2;
    ColourRange range = ColourRange::Unspecified;
    int chromaLocation = 0;

    friend bool operator==(const ColourTags&, const ColourTags&) = default;
};

enum class FieldOrder : std::uint8_t { Unknown, Progressive, TopFirst, BottomFirst };

enum class MediaKind : std::uint8_t {
    Video,    ///< a film, animation or pipe
    Picture,  ///< one still picture
    Sequence, ///< numbered pictures
};

/// A sound or subtitle stream that goes with the pictures.
struct CompanionStream {
    int index = 0;        ///< number of the stream in the file
    bool isSound = false; ///< false: subtitles
    std::string codec;    ///< FFmpeg's short name, such as "aac"
    std::string language; ///< three letters, empty if not tagged
    int sampleRateHertz = 0;
    int channels = 0;
};

/// A block of stream metadata that is carried over unchanged (mastering display, content light
/// level, stereo layout, projection); `type` is FFmpeg's number for it.
struct StreamSideData {
    int type = 0;
    std::vector<std::uint8_t> bytes;
};

struct MediaInfo {
    std::string path;        ///< as it was opened; "-" is standard input
    bool isReadOnce = false; ///< a pipe, which cannot be opened again
    MediaKind kind = MediaKind::Video;
    std::string container;   ///< FFmpeg's short name, such as "mov,mp4,m4a,3gp,3g2,mj2"
    std::string codec;       ///< such as "h264"
    std::string pixelFormat; ///< such as "yuv420p10le"

    Size storedSize;  ///< as coded
    Size uprightSize; ///< after rotation: the size of the frames the reader gives by default
    Rational sampleAspectRatio{1, 1}; ///< width to height of one stored pixel

    /// Display matrix of the stream, in FFmpeg's layout (nine fixed-point numbers, row by row).
    std::optional<std::array<std::int32_t, 9>> displayMatrix;
    int rotationDegrees = 0; ///< clockwise turn that makes the stored picture upright
    bool isMirrored = false; ///< the stored picture is mirrored left to right before that turn

    Rational frameRate;     ///< average, pictures per second; 0/1 if unknown
    Rational baseFrameRate; ///< lowest rate whose ticks hold every frame time, 0/1 if unknown
    bool hasVariableFrameRate = false;
    Rational timeBase{1, 1};                ///< of the frames' times
    std::optional<std::int64_t> frameCount; ///< if known
    bool isFrameCountExact = false;         ///< otherwise derived from duration and rate
    std::optional<double> durationSeconds;  ///< of the picture stream, if known

    ColourTags colour;
    /// True where the pixels are stored as YCbCr (or grey), false for RGB.
    bool isYCbCr = true;
    int chromaShiftX = 0; ///< chroma planes are 2^n times narrower
    int chromaShiftY = 0; ///< and 2^n times lower
    int bitsPerComponent = 8;
    bool hasAlpha = false;
    FieldOrder fieldOrder = FieldOrder::Unknown;
    std::vector<std::uint8_t> iccProfile; ///< of a picture, empty if it has none

    int pictureStream = 0; ///< number of the stream that is read in the file
    std::vector<CompanionStream> companions;
    bool hasTitleOrChapters = false;
    std::vector<StreamSideData> sideData;
    int firstNumber = 0; ///< of a sequence
    /// What a writer takes sound and subtitles of a pipe from; null for other files.
    std::shared_ptr<PassedTracks> passed;

    /// Time of the earliest stream in the file, which the reader subtracts from all times, in units
    /// of `startTimeBase` seconds.
    std::int64_t startTime = 0;
    Rational startTimeBase{1, 1};
};

} // namespace vorn::media
