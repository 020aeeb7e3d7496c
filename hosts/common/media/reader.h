// Reading of films, pictures, image sequences and raw pipes.
#pragma once

#include "access.h"
#include "frame.h"
#include "info.h"

namespace vorn::media {

/// What headerless pixels look like: 8-bit straight RGBA, or any FFmpeg pixel format by name.
struct RawVideo {
    Size size;
    Rational frameRate{25, 1};
    std::string pixelFormat = "rgba";
};

/// Whether FFmpeg has pixels of that name.
bool isPixelFormatName(const std::string& name);

/// Which pictures of two fields become whole ones.
enum class Deinterlacing : std::uint8_t {
    None,
    Tagged, ///< those that say that they are interlaced
    All,
};

struct ReaderOptions {
    /// Format of the frames; by default Rgba16 when the source has more than 8 bits per component.
    std::optional<PixelFormat> pixelFormat;
    /// Size of the frames (upright), stretched as asked; by default the upright size.
    std::optional<Size> outputSize;
    TimeRange range;
    int threads = 0; ///< for decoding and conversion, 0: one per core
    /// Pictures per second of an image sequence.
    Rational sequenceRate{25, 1};
    /// First number of an image sequence; by default the lowest number that exists.
    std::optional<int> sequenceFirstNumber;
    /// Set to read headerless pixels.
    std::optional<RawVideo> raw;
    Deinterlacing deinterlacing = Deinterlacing::None;
    /// Of a pipe, puts sound and subtitles aside for a writer. The reader stays until that has
    /// finished, and is not at work then.
    bool passesTracks = false;
    FileAccess access;
};

/// Reads the frames of one file in presentation order, upright, as RGBA.
///
/// `path` is a film or picture, a printf pattern of numbered pictures ("frames/%04d.png"), or "-"
/// for standard input. No file is opened but these, whatever names they hold, unless playlists are
/// allowed; then local files are. Every function throws Interrupted instead of waiting when a stop
/// was asked for.
///
/// YCbCr is converted with the matrix and range of the stream. Without a tag the matrix is BT.709
/// for pictures wider than 1279 or higher than 576 and BT.601 below, the range is limited, and
/// 4:2:0 chroma lies left. A rotation by multiples of 90 degrees or a mirroring in the display
/// matrix is applied. Frames with alpha are premultiplied. Interlaced frames are handled as whole
/// frames, or made such, one of each.
class Reader {
public:
    /// Opens the file and decodes its first frame. Throws ReadError.
    explicit Reader(const std::string& path, const ReaderOptions& options = {});
    ~Reader();
    Reader(Reader&&) noexcept;
    Reader& operator=(Reader&&) noexcept;

    const MediaInfo& info() const;

    /// Changes the format and size of the frames that follow; nothing: as by default.
    void setOutput(std::optional<PixelFormat> format, std::optional<Size> size);
    /// Leaves frames with alpha as they are stored instead of premultiplying them.
    void keepStraightAlpha();
    PixelFormat outputFormat() const;
    Size outputSize() const;

    /// Fills `frame` with the next picture and returns true, or returns false at the end of the
    /// file or range. The buffer of `frame` is reused if it is large enough, otherwise one comes
    /// from the reader's pool. Times start at the start of the file, also with a range, and
    /// strictly increase. Damaged packets are skipped. Throws ReadError when conversion fails.
    bool read(Frame& frame);

    /// What went wrong so far without being fatal, one line each.
    std::vector<std::string> warnings() const;
    /// What is worth knowing of the file and no fault, one line each.
    std::vector<std::string> notes() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::media
