// Whole pictures of pictures that hold two fields. Internal.
#pragma once

#include "libav.h"

extern "C" {
#include <libavfilter/avfilter.h>
}

namespace vorn::media {

/// FFmpeg's bwdif, which weighs motion over three pictures as broadcasters do; one picture comes
/// out of each, at its time.
class Deinterlacer {
public:
    /// For pictures such as `first`. Those that do not say that they are interlaced pass as they
    /// are unless `isForAll`. Throws std::runtime_error.
    Deinterlacer(const AVFrame& first, AVRational timeBase, bool isForAll);

    /// Takes a picture, which is empty afterwards; null at the end.
    void send(AVFrame* picture);
    /// The next picture, or false if there is none yet or any more.
    bool receive(AVFrame& picture);

private:
    std::unique_ptr<AVFilterGraph, FreeByAddress<avfilter_graph_free>> graph_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    AVRational timeBase_;
    int width_, height_, format_;
};

} // namespace vorn::media
