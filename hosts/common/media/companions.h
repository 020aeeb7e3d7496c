// Sound, subtitles, chapters and metadata, carried from one file to another untouched. Internal.
#pragma once

#include "libav.h"
#include "writer.h"

namespace vorn::media {

/// Reads the source a second time and copies the packets of its sound and subtitle streams into an
/// output that someone else writes the pictures to.
class Companions {
public:
    /// Adds streams, chapters and metadata of the source of `options` to `output`, whose header is
    /// not written yet. What the container cannot hold is left out with a warning. The range of
    /// `options` limits the chapters and the sound.
    Companions(const WriterOptions& options, AVFormatContext& output, Warnings& warnings);

    int streamCount() const { return int(streams_.size()); }

    /// Sets the time of the source (from its start) that becomes zero in the output. Comes before
    /// the first copy, after the header.
    void begin(std::int64_t origin, AVRational timeBase);

    /// Copies all packets that start before `limit` (in the output's time), or all that the range
    /// leaves. Throws std::runtime_error.
    void copyUntil(std::int64_t limit, AVRational timeBase);
    void copyRest();

private:
    struct Stream {
        int input = 0;
        int output = 0;
        std::int64_t lastDts = AV_NOPTS_VALUE; ///< in the output's time base
        bool hasEnded = false;                 ///< reached the end of the range
    };

    void addStreams(const MediaInfo& source);
    bool addStream(const AVStream& from);
    void addChapters(const TimeRange& range);
    Stream* streamOf(int input);
    bool fetch();
    void writePending();

    AVFormatContext& output_;
    Warnings& warnings_;
    AvInput input_;
    std::vector<Stream> streams_;
    AvPacket pending_ = makePacket();
    bool hasPending_ = false;
    bool isAtEnd_ = false;
    std::int64_t startTime_ = 0; ///< of the file
    AVRational startTimeBase_{1, 1};
    std::int64_t origin_ = 0; ///< from the start of the file
    AVRational originTimeBase_{1, 1};
    std::optional<double> endSeconds_; ///< from the start of the file
};

} // namespace vorn::media
