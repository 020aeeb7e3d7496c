#include "passed_tracks.h"

#include "file_extras.h"
#include "info.h"

#include <new>

namespace vorn::media {

namespace {

/// Enough for decoders of sound to begin with.
constexpr double kLeadSeconds = 2;

bool isTrack(const AVStream& stream) {
    const AVMediaType type = stream.codecpar->codec_type;
    return type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_SUBTITLE;
}

} // namespace

PassedTracks::PassedTracks(const AVFormatContext& input, double startSeconds)
    : description_(avformat_alloc_context()) {
    if (!description_) throw std::bad_alloc();
    const auto [start, unit] = earliestStart(input);
    earliestSeconds_ = double(start) * av_q2d(unit) + startSeconds - kLeadSeconds;
    description_->iformat = input.iformat;
    av_dict_copy(&description_->metadata, input.metadata, 0);
    copyStreams(input);
    copyChapters(input, 0, {}, *description_);
}

void PassedTracks::copyStreams(const AVFormatContext& input) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& from = *input.streams[i];
        AVStream* to = avformat_new_stream(description_.get(), nullptr);
        if (!to || avcodec_parameters_copy(to->codecpar, from.codecpar) < 0) throw std::bad_alloc();
        to->id = from.id;
        to->time_base = from.time_base;
        to->start_time = from.start_time;
        to->duration = from.duration;
        to->disposition = from.disposition;
        to->avg_frame_rate = from.avg_frame_rate;
        av_dict_copy(&to->metadata, from.metadata, 0);
        if (from.attached_pic.size > 0 && av_packet_ref(&to->attached_pic, &from.attached_pic) < 0)
            throw std::bad_alloc();
        if (isTrack(from)) wanted_.insert(from.index);
    }
}

bool PassedTracks::isWanted(const AVPacket& packet) const {
    if (wanted_.count(packet.stream_index) == 0) return false;
    const AVStream& stream = *description_->streams[packet.stream_index];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) return true; // may be shown for long
    const std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    return time == AV_NOPTS_VALUE || double(time) * av_q2d(stream.time_base) >= earliestSeconds_;
}

void PassedTracks::pass(AVPacket& packet) {
    const std::lock_guard lock(mutex_);
    if (!isWanted(packet)) return;
    packets_.push_back(makePacket());
    av_packet_move_ref(packets_.back().get(), &packet);
}

void PassedTracks::take(const std::set<int>& streams) {
    isTaken_ = true;
    const std::lock_guard lock(mutex_);
    wanted_ = streams;
    std::erase_if(packets_, [this](const AvPacket& each) { return !isWanted(*each); });
}

bool PassedTracks::takeFirst(AVPacket& packet) {
    const std::lock_guard lock(mutex_);
    if (packets_.empty()) return false;
    av_packet_move_ref(&packet, packets_.front().get());
    packets_.pop_front();
    return true;
}

bool PassedTracks::next(AVPacket& packet, bool readsOn) {
    while (!takeFirst(packet))
        if (!readsOn || !readOn_ || !readOn_()) return false;
    return true;
}

} // namespace vorn::media
