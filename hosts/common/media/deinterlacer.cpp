#include "deinterlacer.h"

#include <stdexcept>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace vorn::media {

namespace {

void check(int result) {
    if (result < 0) throw std::runtime_error("cannot deinterlace: " + reasonFor(result));
}

std::string fraction(AVRational value) {
    return std::to_string(value.num) + "/" + std::to_string(value.den);
}

} // namespace

Deinterlacer::Deinterlacer(const AVFrame& first, AVRational timeBase, bool isForAll)
    : graph_(avfilter_graph_alloc()), timeBase_(timeBase), width_(first.width),
      height_(first.height), format_(first.format) {
    if (!graph_) throw std::bad_alloc();
    beginCatchingMessages();
    const std::string form =
        "video_size=" + std::to_string(first.width) + "x" + std::to_string(first.height) +
        ":pix_fmt=" + std::to_string(first.format) + ":time_base=" + fraction(timeBase);
    const std::string work =
        std::string("mode=send_frame:parity=auto:deint=") + (isForAll ? "all" : "interlaced");
    AVFilterContext* middle = nullptr;
    check(avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in", form.c_str(),
                                       nullptr, graph_.get()));
    check(avfilter_graph_create_filter(&middle, avfilter_get_by_name("bwdif"), "bwdif",
                                       work.c_str(), nullptr, graph_.get()));
    check(avfilter_graph_create_filter(&sink_, avfilter_get_by_name("buffersink"), "out", nullptr,
                                       nullptr, graph_.get()));
    check(avfilter_link(source_, 0, middle, 0));
    check(avfilter_link(middle, 0, sink_, 0));
    check(avfilter_graph_config(graph_.get(), nullptr));
}

void Deinterlacer::send(AVFrame* picture) {
    if (picture &&
        (picture->width != width_ || picture->height != height_ || picture->format != format_))
        throw std::runtime_error("cannot deinterlace pictures that change their form");
    if (picture && picture->best_effort_timestamp != AV_NOPTS_VALUE)
        picture->pts = picture->best_effort_timestamp;
    check(av_buffersrc_add_frame(source_, picture));
}

bool Deinterlacer::receive(AVFrame& picture) {
    av_frame_unref(&picture);
    const int result = av_buffersink_get_frame(sink_, &picture);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return false;
    check(result);
    if (picture.pts != AV_NOPTS_VALUE)
        picture.pts = av_rescale_q(picture.pts, av_buffersink_get_time_base(sink_), timeBase_);
    picture.best_effort_timestamp = picture.pts;
    return true;
}

} // namespace vorn::media
