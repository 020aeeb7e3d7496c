#include "companions.h"

#include <algorithm>
#include <cmath>

namespace vorn::media {

namespace {

constexpr double kLargestInterleavingSeconds = 30;
/// Decoders of sound give right samples only some packets after they have begun.
constexpr double kPrerollSeconds = 0.2;

std::string nameOf(const AVStream& stream) {
    const AVMediaType type = stream.codecpar->codec_type;
    std::string name = type == AVMEDIA_TYPE_AUDIO      ? "sound"
                       : type == AVMEDIA_TYPE_SUBTITLE ? "subtitles"
                       : type == AVMEDIA_TYPE_VIDEO    ? "a further track of pictures"
                                                       : "a track of data";
    if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) name = "the cover";
    if (type == AVMEDIA_TYPE_ATTACHMENT) name = "an attachment";
    const AVDictionaryEntry* file = av_dict_get(stream.metadata, "filename", nullptr, 0);
    const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
    if (file) return name + " (" + file->value + ")";
    name += std::string(" (") + avcodec_get_name(stream.codecpar->codec_id);
    if (language && std::string(language->value) != "und")
        name += std::string(", ") + language->value;
    return name + ")";
}

/// The tracks that hold the names of chapters and the timecode, which are copied as such.
bool isCopiedOtherwise(const AVStream& stream, const AVFormatContext& input) {
    if (stream.codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd')) return true;
    return input.nb_chapters > 0 && stream.codecpar->codec_id == AV_CODEC_ID_BIN_DATA;
}

/// QuickTime knows languages by the older of their two codes.
void useOlderLanguageCode(AVDictionary** tags) {
    constexpr std::pair<const char*, const char*> kOlder[] = {
        {"bod", "tib"}, {"ces", "cze"}, {"cym", "wel"}, {"deu", "ger"}, {"ell", "gre"},
        {"eus", "baq"}, {"fas", "per"}, {"fra", "fre"}, {"hye", "arm"}, {"isl", "ice"},
        {"kat", "geo"}, {"mkd", "mac"}, {"msa", "may"}, {"mya", "bur"}, {"nld", "dut"},
        {"ron", "rum"}, {"slk", "slo"}, {"sqi", "alb"}, {"zho", "chi"},
    };
    const AVDictionaryEntry* language = av_dict_get(*tags, "language", nullptr, 0);
    for (const auto& [code, older] : kOlder) {
        if (!language || std::string(language->value) != code) continue;
        av_dict_set(tags, "language", older, 0);
        return;
    }
}

} // namespace

Companions::Companions(const WriterOptions& options, AVFormatContext& output, Warnings& warnings)
    : output_(output), warnings_(warnings), startTime_(options.source->startTime),
      startTimeBase_(toAv(options.source->startTimeBase)), endSeconds_(options.range.endSeconds) {
    if (!openSource(options)) return;
    addStreams(*options.source, options);
    if (passed_) {
        std::set<int> wanted;
        for (const Track& track : tracks_) wanted.insert(track.input);
        passed_->take(wanted);
    }
    const double fileStart = double(startTime_) * av_q2d(startTimeBase_);
    copyChapters(*input_, fileStart, options.range, output_);
    copyTags(&output_.metadata, input_->metadata);
    warnOfLostTags(*input_, output_, warnings_);
}

bool Companions::openSource(const WriterOptions& options) {
    const MediaInfo& source = *options.source;
    if (source.kind != MediaKind::Video || source.path.empty()) return false;
    if (source.passed) {
        passed_ = source.passed;
        input_ = &passed_->description();
        return true;
    }
    const bool isSilent = options.sound.kind == TrackWish::Kind::None &&
                          options.subtitles.kind == TrackWish::Kind::None;
    if (source.isReadOnce) {
        const std::string name = source.path == "-" ? "standard input" : source.path + ", a pipe";
        if (!source.companions.empty() && !isSilent)
            warnings_.add("sound and subtitles cannot be carried over from " + name);
        if (source.hasTitleOrChapters)
            warnings_.add("title and chapters cannot be carried over from " + name);
        return false;
    }
    // A film that is ended early still gets its sound, unless that has to be waited for.
    FileAccess access = options.access;
    access.patienceSeconds = kPatienceSeconds;
    if (!access.allowsPlaylists) access.stop = nullptr;
    AvOptions inputOptions;
    try {
        ownInput_ = openInput(source.path, nullptr, inputOptions, access);
        const int result = avformat_find_stream_info(ownInput_.get(), nullptr);
        if (result < 0) throw ReadError(reasonFor(result));
    } catch (const ReadError& error) {
        ownInput_.reset();
        if (!source.companions.empty())
            warnings_.add(std::string("sound is not carried over: ") + error.what());
        return false;
    }
    input_ = ownInput_.get();
    return true;
}

void Companions::addStreams(const MediaInfo& source, const WriterOptions& options) {
    for (unsigned i = 0; i < input_->nb_streams; ++i) {
        AVStream& from = *input_->streams[i];
        from.discard = AVDISCARD_ALL;
        const AVMediaType type = from.codecpar->codec_type;
        if (int(i) == source.pictureStream)
            copyPictureTags(from, options.range);
        else if (type == AVMEDIA_TYPE_AUDIO)
            addTrack(from, options.sound);
        else if (type == AVMEDIA_TYPE_SUBTITLE)
            addTrack(from, options.subtitles);
        else
            addOther(from);
    }
    for (const Track& track : tracks_) input_->streams[track.input]->discard = AVDISCARD_DEFAULT;
}

void Companions::copyPictureTags(const AVStream& from, const TimeRange& range) {
    copyTags(&output_.streams[0]->metadata, from.metadata);
    const AVDictionaryEntry* timecode = av_dict_get(from.metadata, "timecode", nullptr, 0);
    if (!timecode) return;
    const std::string container = output_.oformat->name;
    const bool isHeld = container == "mov" || container == "mp4";
    if (isHeld && range.startSeconds <= 0)
        av_dict_set(&output_.streams[0]->metadata, "timecode", timecode->value, 0);
    else
        warnings_.add(std::string("the timecode (") + timecode->value + ") left out: " +
                      (isHeld ? "the film begins later" : container + " has no place for it"));
}

void Companions::addTrack(const AVStream& from, const TrackWish& wish) {
    TrackPlan plan = planTrack(from, output_, wish, warnings_);
    say(from, plan);
    if (plan.way == TrackPlan::Way::LeftOut) return;
    AVStream* to = avformat_new_stream(&output_, nullptr);
    if (!to) throw std::bad_alloc();
    int result = 0;
    if (plan.converter) {
        result = avcodec_parameters_from_context(to->codecpar, &plan.converter->encoder());
        to->time_base = plan.converter->encoder().time_base;
    } else {
        result = avcodec_parameters_copy(to->codecpar, from.codecpar);
        // A tag of the source's container is kept only if it means the same in the output's.
        const AVCodecTag* const* tags = output_.oformat->codec_tag;
        if (tags && av_codec_get_id(tags, to->codecpar->codec_tag) != to->codecpar->codec_id)
            to->codecpar->codec_tag = 0;
        to->time_base = from.time_base;
    }
    if (result < 0) throw std::bad_alloc();
    to->disposition = from.disposition;
    av_dict_copy(&to->metadata, from.metadata, 0);
    av_dict_set(&to->metadata, "encoder", nullptr, 0);
    if (std::string(output_.oformat->name) == "mov") useOlderLanguageCode(&to->metadata);
    tracks_.push_back({from.index, to->index, from.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE,
                       std::move(plan.converter), AV_NOPTS_VALUE, false});
}

void Companions::say(const AVStream& from, const TrackPlan& plan) {
    if (plan.way == TrackPlan::Way::Converted)
        warnings_.note(nameOf(from) + " converted to " +
                       avcodec_get_name(plan.converter->encoder().codec_id) +
                       (plan.reason.empty() ? "" : ": " + plan.reason));
    else if (plan.way == TrackPlan::Way::LeftOut && !plan.reason.empty())
        warnings_.add(nameOf(from) + " left out: " + plan.reason);
}

void Companions::addOther(const AVStream& from) {
    if (isCopiedOtherwise(from, *input_)) return;
    const bool isAttached = from.codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT ||
                            (from.disposition & AV_DISPOSITION_ATTACHED_PIC);
    if (isAttached && copyAttachment(from, output_, covers_)) return;
    warnings_.add(nameOf(from) + " left out" +
                  (isAttached ? std::string(": the container ") + output_.oformat->name +
                                    " has no place for it"
                              : ""));
}

Companions::Track* Companions::trackOf(int input) {
    const auto found = std::find_if(tracks_.begin(), tracks_.end(),
                                    [input](const Track& track) { return track.input == input; });
    return found == tracks_.end() ? nullptr : &*found;
}

void Companions::begin(std::int64_t origin, AVRational timeBase) {
    origin_ = origin;
    originTimeBase_ = timeBase;
    const double originSeconds = double(origin) * av_q2d(timeBase);
    for (Track& track : tracks_)
        if (track.converter && endSeconds_) track.converter->setEnd(*endSeconds_ - originSeconds);
    for (const Cover& cover : covers_) {
        if (av_packet_ref(pending_.get(), cover.picture) < 0) throw std::bad_alloc();
        pending_->stream_index = cover.output;
        pending_->pts = pending_->dts = 0;
        const int result = av_interleaved_write_frame(&output_, pending_.get());
        if (result < 0) throw std::runtime_error(reasonFor(result));
    }
    if (tracks_.empty() || origin <= 0 || passed_) return;
    const std::int64_t target = av_rescale_q(startTime_, startTimeBase_, AV_TIME_BASE_Q) +
                                av_rescale_q(origin, timeBase, AV_TIME_BASE_Q) -
                                std::int64_t(kPrerollSeconds * AV_TIME_BASE);
    // A file that cannot seek is read from its start and what comes too early is dropped.
    avformat_seek_file(input_, -1, INT64_MIN, target, target, 0);
}

/// Moves a packet's times to the output's; false when it is not for the output.
bool Companions::move(AVPacket& packet, Track& track) {
    const AVRational unit = input_->streams[track.input]->time_base;
    std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time == AV_NOPTS_VALUE) return false;
    const std::int64_t fileStart = av_rescale_q(startTime_, startTimeBase_, unit);
    const double seconds = double(time - fileStart) * av_q2d(unit);
    if (endSeconds_ && seconds >= *endSeconds_) {
        // Streams lie side by side in the file, so the others may still have something to say.
        track.hasEnded = true;
        isAtEnd_ = seconds > *endSeconds_ + kLargestInterleavingSeconds ||
                   std::all_of(tracks_.begin(), tracks_.end(),
                               [](const Track& each) { return each.hasEnded; });
        return false;
    }
    const std::int64_t shift = fileStart + av_rescale_q(origin_, originTimeBase_, unit);
    time -= shift;
    if (packet.pts != AV_NOPTS_VALUE) packet.pts -= shift;
    if (packet.dts != AV_NOPTS_VALUE) packet.dts -= shift;
    packet.time_base = unit;
    // Without a range, packets before zero prime the decoder and stay.
    if (origin_ <= 0 || time >= 0) return true;
    if (track.isText && time + packet.duration > 0) { // still shown when the output begins
        packet.duration += time;
        packet.pts = packet.dts = 0;
        return true;
    }
    return track.converter && double(time) * av_q2d(unit) >= -kPrerollSeconds;
}

/// Reads the next packet that belongs to the output.
bool Companions::fetch() {
    while (!hasPending_ && !isAtEnd_) {
        av_packet_unref(pending_.get());
        const bool isThere = passed_ ? passed_->next(*pending_, readsOn_)
                                     : av_read_frame(input_, pending_.get()) >= 0;
        if (!isThere) {
            isAtEnd_ = !passed_ || readsOn_; // what a pipe has not given yet may still come
            break;
        }
        Track* track = trackOf(pending_->stream_index);
        hasPending_ = track && move(*pending_, *track);
    }
    return hasPending_;
}

void Companions::deliver() {
    Track& track = *trackOf(pending_->stream_index);
    hasPending_ = false;
    if (!track.converter) {
        write(*pending_, track);
        return;
    }
    track.converter->send(pending_.get());
    drain(track);
}

void Companions::drain(Track& track) {
    const AVCodecContext& encoder = track.converter->encoder();
    // Matroska's players subtract what the encoder needs to begin; elsewhere times are below zero.
    const std::string container = output_.oformat->name;
    const bool isMatroska = container == "matroska" || container == "webm";
    while (track.converter->receive(*converted_)) {
        converted_->time_base = encoder.time_base;
        if (isMatroska && !track.isText) {
            converted_->pts += encoder.initial_padding;
            converted_->dts += encoder.initial_padding;
        }
        write(*converted_, track);
    }
}

void Companions::write(AVPacket& packet, Track& track) {
    const AVRational unit = output_.streams[track.output]->time_base;
    av_packet_rescale_ts(&packet, packet.time_base, unit);
    // Rounding to a coarser unit may make two decoding times equal, which muxers refuse.
    if (packet.dts != AV_NOPTS_VALUE && track.lastDts != AV_NOPTS_VALUE &&
        packet.dts < track.lastDts)
        packet.dts = track.lastDts;
    if (packet.pts != AV_NOPTS_VALUE && packet.dts != AV_NOPTS_VALUE)
        packet.pts = std::max(packet.pts, packet.dts);
    track.lastDts = packet.dts;
    packet.stream_index = track.output;
    packet.pos = -1;
    const int result = av_interleaved_write_frame(&output_, &packet);
    if (result < 0) throw std::runtime_error(reasonFor(result));
}

void Companions::copyUntil(std::int64_t limit, AVRational timeBase) {
    if (tracks_.empty()) return;
    while (fetch()) {
        const std::int64_t time = pending_->pts != AV_NOPTS_VALUE ? pending_->pts : pending_->dts;
        if (av_compare_ts(time, pending_->time_base, limit, timeBase) >= 0) return;
        deliver();
    }
}

void Companions::finish() {
    if (tracks_.empty()) return;
    readsOn_ = true;
    while (fetch()) deliver();
    for (Track& track : tracks_) {
        if (!track.converter) continue;
        track.converter->send(nullptr);
        drain(track);
    }
}

void Companions::finishAt(std::int64_t limit, AVRational timeBase) {
    readsOn_ = true;
    for (Track& track : tracks_)
        if (track.converter) track.converter->setEnd(double(limit) * av_q2d(timeBase));
    copyUntil(limit, timeBase);
    isAtEnd_ = true;
    hasPending_ = false;
    finish();
}

} // namespace vorn::media
