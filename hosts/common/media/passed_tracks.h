// What a pipe holds besides its pictures, on its way from the reader to the writer. Internal.
#pragma once

#include "libav.h"

#include <deque>
#include <functional>
#include <mutex>
#include <set>

namespace vorn::media {

/// A pipe is read once, so the reader of its pictures puts the packets of sound and subtitles
/// aside here. Between that reader's thread and the writer's.
class PassedTracks {
public:
    /// Describes the streams, chapters and tags of `input`, which may change while it is read.
    /// Sound before `startSeconds` (from the start of the file) is not kept for long.
    PassedTracks(const AVFormatContext& input, double startSeconds);

    AVFormatContext& description() { return *description_; }

    /// The reader's: takes over what the packet holds.
    void pass(AVPacket& packet);
    /// How the reader reads one packet further, false at the end; null before it goes.
    void setReadOn(std::function<bool()> readOn) { readOn_ = std::move(readOn); }

    /// The writer's: which streams are wanted. What nobody wants is not kept.
    void take(const std::set<int>& streams);
    bool isTaken() const { return isTaken_; }
    /// The next packet there is; with `readsOn`, once the reader has ended, also of what it has
    /// not come to.
    bool next(AVPacket& packet, bool readsOn);

private:
    bool isWanted(const AVPacket& packet) const;
    bool takeFirst(AVPacket& packet);
    void copyStreams(const AVFormatContext& input);

    std::unique_ptr<AVFormatContext, FreeByValue<avformat_free_context>> description_;
    double earliestSeconds_ = 0; ///< of sound, by the file's clock
    std::function<bool()> readOn_;
    bool isTaken_ = false;
    std::mutex mutex_; ///< of what follows
    std::deque<AvPacket> packets_;
    std::set<int> wanted_; ///< streams
};

} // namespace vorn::media
