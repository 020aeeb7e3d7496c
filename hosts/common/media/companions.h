// Sound, subtitles, chapters, attachments and tags, carried from one file to another. Internal.
#pragma once

#include "file_extras.h"
#include "passed_tracks.h"
#include "track_converter.h"

namespace vorn::media {

/// Reads the source a second time, or takes what its reader puts aside, and carries its sound and
/// subtitles into an output that someone else writes the pictures to: untouched where the container
/// takes them, else in another codec.
class Companions {
public:
    /// Adds streams, chapters and tags of the source of `options` to `output`, whose header is not
    /// written yet and whose first stream is that of the pictures. What the container cannot hold
    /// is left out alone, with a warning. The range of `options` limits the chapters and tracks.
    Companions(const WriterOptions& options, AVFormatContext& output, Warnings& warnings);

    int streamCount() const { return int(tracks_.size()); }

    /// Sets the time of the source (from its start) that becomes zero in the output. Comes before
    /// the first copy, after the header.
    void begin(std::int64_t origin, AVRational timeBase);

    /// Copies all packets that start before `limit` (in the output's time). Throws
    /// std::runtime_error.
    void copyUntil(std::int64_t limit, AVRational timeBase);
    /// Copies what is left to the end of the range, or to that of an output that ends early.
    void finish();
    void finishAt(std::int64_t limit, AVRational timeBase);

private:
    struct Track {
        int input = 0;
        int output = 0;
        bool isText = false;
        std::unique_ptr<TrackConverter> converter; ///< null: copied
        std::int64_t lastDts = AV_NOPTS_VALUE;     ///< in the output's time base
        bool hasEnded = false;                     ///< reached the end of the range
    };

    /// Where the source is read from; false when there is nothing to carry over.
    bool openSource(const WriterOptions& options);
    void addStreams(const MediaInfo& source, const WriterOptions& options);
    void copyPictureTags(const AVStream& from, const TimeRange& range);
    void addTrack(const AVStream& from, const TrackWish& wish);
    void addOther(const AVStream& from);
    void say(const AVStream& from, const TrackPlan& plan);
    Track* trackOf(int input);
    bool fetch();
    bool move(AVPacket& packet, Track& track);
    void deliver();
    void drain(Track& track);
    void write(AVPacket& packet, Track& track);

    AVFormatContext& output_;
    Warnings& warnings_;
    std::shared_ptr<PassedTracks> passed_; ///< of a pipe, else
    AvInput ownInput_;
    AVFormatContext* input_ = nullptr; ///< of either
    std::vector<Track> tracks_;
    std::vector<Cover> covers_;
    AvPacket pending_ = makePacket(), converted_ = makePacket();
    bool hasPending_ = false;
    bool isAtEnd_ = false;
    bool readsOn_ = false;       ///< the pictures have ended, so that a pipe may be waited for
    bool beginsAtZero_ = false;  ///< no copied packet has a time below
    std::int64_t startTime_ = 0; ///< of the file
    AVRational startTimeBase_{1, 1};
    std::int64_t origin_ = 0; ///< from the start of the file
    AVRational originTimeBase_{1, 1};
    std::optional<double> endSeconds_; ///< from the start of the file
};

} // namespace vorn::media
