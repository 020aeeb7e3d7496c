// Writing of films, pictures, image sequences and raw pipes.
#pragma once

#include "access.h"
#include "frame.h"
#include "info.h"

#include <utility>

namespace vorn::media {

/// What becomes of the sound or of the subtitles of the source.
struct TrackWish {
    enum class Kind : std::uint8_t {
        AsNeeded, ///< copied, or converted where the container refuses them
        Copy,     ///< copied, or left out
        None,     ///< left out
        Codec,    ///< converted to `codec`, copied if they are that already
    };
    Kind kind = Kind::AsNeeded;
    std::string codec;              ///< by FFmpeg's name
    std::int64_t bitsPerSecond = 0; ///< 0: what is hard to tell from the source
};

struct WriterOptions {
    /// Size of the frames that will be written, upright.
    Size size;
    /// Bits per component worth keeping; more than 8 chooses a deeper format where the codec has
    /// one.
    int bitsPerComponent = 8;
    /// Keep alpha where the codec can hold it.
    bool hasAlpha = false;
    /// Frames per second, used where `source` knows none.
    Rational frameRate{25, 1};
    /// What was read: colour tags, aspect ratio, rotation, time base and sound are taken from it.
    /// Only read during construction. May be null.
    const MediaInfo* source = nullptr;

    /// What is written, by extension or FFmpeg's name ("mkv", "nut", "raw", "png"), whatever the
    /// target is called; empty: by its name.
    std::string format;
    /// Encoder or codec by FFmpeg's name ("libx264", "prores_ks", "vp9"); empty: by file name.
    std::string codec;
    /// Constant quality in the encoder's own scale (smaller is better); nothing: the default.
    std::optional<double> crf;
    /// Speed preset of encoders that have one; empty: the default.
    std::string preset;
    /// What the encoder is tuned for, by its own names; empty: nothing.
    std::string tune;
    /// Of the pictures, instead of a constant quality; 0: none.
    std::int64_t bitsPerSecond = 0;
    /// FFmpeg pixel format name; empty: chosen.
    std::string pixelFormat;
    /// Further encoder options by FFmpeg's names.
    std::vector<std::pair<std::string, std::string>> encoderOptions;

    /// Carry over sound, subtitles, chapters, attachments and metadata of `source`.
    bool copyCompanions = true;
    TrackWish sound, subtitles;
    /// The range given to the reader. Sound is cut to it and times are shifted to start at zero.
    TimeRange range;
    int threads = 0; ///< for conversion and encoding, 0: one per core
    /// Replace an existing file. Otherwise it is an error, also when the file comes to be while
    /// this one is written.
    bool overwrite = true;
    FileAccess access;
    /// First number of an image sequence; nothing: the source's, or 1.
    std::optional<int> sequenceFirstNumber;
};

/// What the writer has chosen.
struct OutputInfo {
    std::string container;   ///< FFmpeg's short name; "picture", "sequence" or "raw"
    std::string encoder;     ///< empty for raw
    std::string pixelFormat; ///< FFmpeg's name
    Size storedSize;         ///< as coded, differs from the frames' size under a rotation
    bool keepsAlpha = false;
    bool keepsRotation = false;   ///< stored in the source's orientation with its display matrix
    bool isSinglePicture = false; ///< takes one frame only
    Rational timeBase{1, 1};      ///< frame times are kept as multiples of this
    int copiedStreams = 0;        ///< sound and subtitle streams, converted ones too
};

/// How finish() ends the file.
enum class Ending : std::uint8_t {
    Complete,    ///< all frames were written; sound goes on to its own end or that of the range
    Interrupted, ///< stopped early; sound is cut where the pictures end
};

/// Writes frames to one file.
///
/// `path` decides what is written: a film (.mp4 .m4v .mov .mkv .webm .avi .gif .apng .mpg .ts and
/// what else FFmpeg knows, such as .y4m and .nut for pipes), a picture (.png .jpg .tif .bmp .webp
/// .ppm .pam .tga .jp2), a printf pattern of numbered pictures, nothing ("/dev/null"), or
/// headerless straight RGBA: "-" for standard output, "pipe:N" for file descriptor N, or a file
/// ending in .rgba or .raw. Raw output is little-endian, 16 bits per component if bitsPerComponent
/// is above 8. The caller ignores SIGPIPE if a closed pipe is to be a WriteError.
///
/// Colour: the matrix, range and chroma location of the source are used again and tagged again. If
/// the codec and container cannot tag them, what a player assumes is used: BT.601 or BT.709 by
/// size, limited range. Sampling and depth of a YCbCr film are kept where the encoder can; pictures
/// become 4:2:0, limited. For encoders that refuse odd sizes in 4:2:0 (H.264, HEVC) the last column
/// or row stands twice. Without a codec by name, frames with alpha get one that holds it where the
/// container has any, and PQ and HLG get HEVC with 10 bits. Alpha that cannot be kept is composed
/// over black.
///
/// Rotation: in MP4 and MOV the frames are turned back and the source's display matrix is written;
/// everything else is stored upright without a tag.
///
/// Times: frame times are never rounded to a constant rate in MP4, MOV and MPEG-TS. Matroska and
/// WebM hold milliseconds, GIF hundredths of a second, AVI and MPEG-PS multiples of the frame rate;
/// no frame is dropped or repeated.
///
/// A file is written under a temporary name in the same folder, goes to the disk and takes its name
/// in finish(), with the permissions of the file that it replaces; none that is read is replaced. A
/// target that is not a regular file (a device, a named pipe) is written directly. When a stop was
/// asked for, a pipe that nobody empties is given up after half a second: Interrupted. The pictures
/// of a sequence take their names one by one, each when it is whole, and stay after abort(). The
/// same frames with the same options and thread count give the same bytes.
class Writer {
public:
    /// Checks everything, opens the encoder and begins the file. Throws WriteError.
    Writer(const std::string& path, const WriterOptions& options);
    /// Removes an unfinished file, as abort() does.
    ~Writer();
    Writer(Writer&&) noexcept;
    Writer& operator=(Writer&&) noexcept;

    const OutputInfo& output() const;

    /// Writes one frame, of either pixel format and any alpha. Times must increase. Throws
    /// WriteError for a frame of another size, a second frame for a single picture, a full disk.
    void write(const Frame& frame);

    /// Ends the file and gives it its name. Throws WriteError, also when no frame was written; the
    /// file is removed then.
    void finish(Ending ending = Ending::Complete);

    /// Removes the unfinished file.
    void abort() noexcept;

    /// What could not be kept, one line each.
    std::vector<std::string> warnings() const;
    /// What is worth knowing and no loss, one line each.
    std::vector<std::string> notes() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::media
