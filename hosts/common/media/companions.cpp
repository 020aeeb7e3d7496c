#include "companions.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vorn::media {

namespace {

constexpr double kLargestInterleavingSeconds = 30;

// Names of the program that wrote the source say nothing true about the output.
void copyMetadata(AVDictionary** target, const AVDictionary* source) {
    av_dict_copy(target, source, AV_DICT_DONT_OVERWRITE);
    for (const char* key : {"encoder", "encoded_by", "major_brand", "minor_version",
                            "compatible_brands", "timecode", "duration"})
        av_dict_set(target, key, nullptr, 0);
}

bool canHold(const AVFormatContext& output, AVCodecID codec) {
    const int answer = avformat_query_codec(output.oformat, codec, FF_COMPLIANCE_NORMAL);
    if (answer != AVERROR_PATCHWELCOME) return answer == 1;
    const AVMediaType type = avcodec_get_type(codec);
    const AVCodecID usual =
        type == AVMEDIA_TYPE_AUDIO ? output.oformat->audio_codec : output.oformat->subtitle_codec;
    return usual != AV_CODEC_ID_NONE;
}

const char* kindName(AVMediaType type) {
    return type == AVMEDIA_TYPE_AUDIO ? "sound" : "subtitles";
}

} // namespace

Companions::Companions(const WriterOptions& options, AVFormatContext& output, Warnings& warnings)
    : output_(output), warnings_(warnings), startTime_(options.source->startTime),
      startTimeBase_(toAv(options.source->startTimeBase)), endSeconds_(options.range.endSeconds) {
    const MediaInfo& source = *options.source;
    if (source.kind != MediaKind::Video || source.path.empty()) return;
    if (source.isReadOnce) {
        if (!source.companions.empty())
            warnings_.add("sound cannot be carried over from " +
                          (source.path == "-" ? "standard input" : source.path + ", a pipe"));
        return;
    }
    // A film that is ended early still gets its sound, unless that has to be waited for.
    FileAccess access = options.access;
    access.patienceSeconds = kPatienceSeconds;
    if (!access.allowsPlaylists) access.stop = nullptr;
    AvOptions inputOptions;
    try {
        input_ = openInput(source.path, nullptr, inputOptions, access);
        const int result = avformat_find_stream_info(input_.get(), nullptr);
        if (result < 0) throw ReadError(reasonFor(result));
    } catch (const ReadError& error) {
        input_.reset();
        if (!source.companions.empty())
            warnings_.add(std::string("sound is not carried over: ") + error.what());
        return;
    }
    addStreams(source);
    addChapters(options.range);
    copyMetadata(&output_.metadata, input_->metadata);
}

void Companions::addStreams(const MediaInfo& source) {
    for (unsigned i = 0; i < input_->nb_streams; ++i) input_->streams[i]->discard = AVDISCARD_ALL;
    for (const CompanionStream& companion : source.companions) {
        if (companion.index >= int(input_->nb_streams)) continue;
        AVStream& from = *input_->streams[companion.index];
        if (addStream(from)) from.discard = AVDISCARD_DEFAULT;
    }
}

bool Companions::addStream(const AVStream& from) {
    const AVCodecParameters& codec = *from.codecpar;
    const std::string name = avcodec_get_name(codec.codec_id);
    if (codec.codec_id == AV_CODEC_ID_NONE || !canHold(output_, codec.codec_id)) {
        warnings_.add(std::string(kindName(codec.codec_type)) + " left out: the container " +
                      output_.oformat->name + " cannot hold " + name);
        return false;
    }
    AVStream* to = avformat_new_stream(&output_, nullptr);
    if (!to || avcodec_parameters_copy(to->codecpar, &codec) < 0) throw std::bad_alloc();
    // A tag of the source's container is kept only if it means the same in the output's.
    const AVCodecTag* const* tags = output_.oformat->codec_tag;
    if (tags && av_codec_get_id(tags, codec.codec_tag) != codec.codec_id)
        to->codecpar->codec_tag = 0;
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    av_dict_copy(&to->metadata, from.metadata, 0);
    av_dict_set(&to->metadata, "encoder", nullptr, 0);
    streams_.push_back({from.index, to->index, AV_NOPTS_VALUE, false});
    return true;
}

void Companions::addChapters(const TimeRange& range) {
    const double fileStart = double(startTime_) * av_q2d(startTimeBase_);
    for (unsigned i = 0; i < input_->nb_chapters; ++i) {
        const AVChapter& from = *input_->chapters[i];
        const double unit = av_q2d(from.time_base);
        const double shift = fileStart + range.startSeconds;
        double start = double(from.start) * unit - shift, end = double(from.end) * unit - shift;
        start = std::max(start, 0.0);
        if (range.endSeconds) end = std::min(end, *range.endSeconds - range.startSeconds);
        if (end <= start) continue;
        // The output owns its chapters and frees them with FFmpeg's functions.
        auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (!chapter) throw std::bad_alloc();
        chapter->id = from.id;
        chapter->time_base = from.time_base;
        chapter->start = std::llround(start / unit);
        chapter->end = std::llround(end / unit);
        av_dict_copy(&chapter->metadata, from.metadata, 0);
        auto** grown = static_cast<AVChapter**>(
            av_realloc_array(output_.chapters, output_.nb_chapters + 1, sizeof(AVChapter*)));
        if (!grown) {
            av_dict_free(&chapter->metadata);
            av_free(chapter);
            throw std::bad_alloc();
        }
        output_.chapters = grown;
        output_.chapters[output_.nb_chapters++] = chapter;
    }
}

Companions::Stream* Companions::streamOf(int input) {
    const auto found =
        std::find_if(streams_.begin(), streams_.end(),
                     [input](const Stream& stream) { return stream.input == input; });
    return found == streams_.end() ? nullptr : &*found;
}

void Companions::begin(std::int64_t origin, AVRational timeBase) {
    origin_ = origin;
    originTimeBase_ = timeBase;
    if (streams_.empty() || origin <= 0) return;
    const std::int64_t target = av_rescale_q(startTime_, startTimeBase_, AV_TIME_BASE_Q) +
                                av_rescale_q(origin, timeBase, AV_TIME_BASE_Q);
    // A file that cannot seek is read from its start and what comes too early is dropped.
    avformat_seek_file(input_.get(), -1, INT64_MIN, target, target, 0);
}

/// Reads the next packet that belongs to the output, with times moved to the output's.
bool Companions::fetch() {
    while (!hasPending_ && !isAtEnd_) {
        av_packet_unref(pending_.get());
        if (av_read_frame(input_.get(), pending_.get()) < 0) {
            isAtEnd_ = true;
            break;
        }
        Stream* stream = streamOf(pending_->stream_index);
        if (!stream) continue;
        AVPacket& packet = *pending_;
        const AVRational unit = input_->streams[stream->input]->time_base;
        std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
        if (time == AV_NOPTS_VALUE) continue;
        const std::int64_t fileStart = av_rescale_q(startTime_, startTimeBase_, unit);
        const double seconds = double(time - fileStart) * av_q2d(unit);
        if (endSeconds_ && seconds >= *endSeconds_) {
            // Streams lie side by side in the file, so the others may still have something to say.
            stream->hasEnded = true;
            isAtEnd_ = seconds > *endSeconds_ + kLargestInterleavingSeconds ||
                       std::all_of(streams_.begin(), streams_.end(),
                                   [](const Stream& each) { return each.hasEnded; });
            continue;
        }

        const std::int64_t shift = fileStart + av_rescale_q(origin_, originTimeBase_, unit);
        time -= shift;
        // Without a range, packets before zero prime the decoder and stay.
        if (origin_ > 0 && time < 0) continue;
        if (packet.pts != AV_NOPTS_VALUE) packet.pts -= shift;
        if (packet.dts != AV_NOPTS_VALUE) packet.dts -= shift;
        packet.time_base = unit;
        hasPending_ = true;
    }
    return hasPending_;
}

void Companions::writePending() {
    Stream& stream = *streamOf(pending_->stream_index);
    AVPacket& packet = *pending_;
    const AVRational unit = output_.streams[stream.output]->time_base;
    av_packet_rescale_ts(&packet, packet.time_base, unit);
    // Rounding to a coarser unit may make two decoding times equal, which muxers refuse.
    if (packet.dts != AV_NOPTS_VALUE && stream.lastDts != AV_NOPTS_VALUE &&
        packet.dts < stream.lastDts)
        packet.dts = stream.lastDts;
    if (packet.pts != AV_NOPTS_VALUE && packet.dts != AV_NOPTS_VALUE)
        packet.pts = std::max(packet.pts, packet.dts);
    stream.lastDts = packet.dts;
    packet.stream_index = stream.output;
    packet.pos = -1;
    hasPending_ = false;
    const int result = av_interleaved_write_frame(&output_, &packet);
    if (result < 0) throw std::runtime_error(reasonFor(result));
}

void Companions::copyUntil(std::int64_t limit, AVRational timeBase) {
    if (streams_.empty()) return;
    while (fetch()) {
        const std::int64_t time = pending_->pts != AV_NOPTS_VALUE ? pending_->pts : pending_->dts;
        if (av_compare_ts(time, pending_->time_base, limit, timeBase) >= 0) return;
        writePending();
    }
}

void Companions::copyRest() {
    if (streams_.empty()) return;
    while (fetch()) writePending();
}

} // namespace vorn::media
