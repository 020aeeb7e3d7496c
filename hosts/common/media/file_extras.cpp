#include "file_extras.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vorn::media {

namespace {

bool isOneOf(const AVOutputFormat& container, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return std::string(container.name) == name; });
}

bool isMp4(const AVOutputFormat& container) {
    return isOneOf(container, {"mp4", "ipod", "3gp", "3g2"});
}

AVStream& newStream(AVFormatContext& output) {
    AVStream* stream = avformat_new_stream(&output, nullptr);
    if (!stream) throw std::bad_alloc();
    return *stream;
}

/// Matroska keeps covers as attached files.
void attachCover(const AVStream& from, AVFormatContext& output) {
    AVStream& to = newStream(output);
    AVCodecParameters& codec = *to.codecpar;
    const bool isJpeg = from.codecpar->codec_id == AV_CODEC_ID_MJPEG;
    codec.codec_type = AVMEDIA_TYPE_ATTACHMENT;
    codec.codec_id = from.codecpar->codec_id;
    const auto bytes = std::size_t(from.attached_pic.size);
    codec.extradata = static_cast<std::uint8_t*>(av_mallocz(bytes + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!codec.extradata) throw std::bad_alloc();
    std::memcpy(codec.extradata, from.attached_pic.data, bytes);
    codec.extradata_size = int(bytes);
    av_dict_copy(&to.metadata, from.metadata, 0);
    av_dict_set(&to.metadata, "filename", isJpeg ? "cover.jpg" : "cover.png",
                AV_DICT_DONT_OVERWRITE);
    av_dict_set(&to.metadata, "mimetype", isJpeg ? "image/jpeg" : "image/png",
                AV_DICT_DONT_OVERWRITE);
}

} // namespace

void copyTags(AVDictionary** target, const AVDictionary* source) {
    av_dict_copy(target, source, AV_DICT_DONT_OVERWRITE);
    for (const char* key : {"encoder", "encoded_by", "major_brand", "minor_version",
                            "compatible_brands", "timecode", "duration"})
        av_dict_set(target, key, nullptr, 0);
}

void copyChapters(const AVFormatContext& input, double fileStartSeconds, const TimeRange& range,
                  AVFormatContext& output) {
    for (unsigned i = 0; i < input.nb_chapters; ++i) {
        const AVChapter& from = *input.chapters[i];
        const double unit = av_q2d(from.time_base);
        const double shift = fileStartSeconds + range.startSeconds;
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
            av_realloc_array(output.chapters, output.nb_chapters + 1, sizeof(AVChapter*)));
        if (!grown) {
            av_dict_free(&chapter->metadata);
            av_free(chapter);
            throw std::bad_alloc();
        }
        output.chapters = grown;
        output.chapters[output.nb_chapters++] = chapter;
    }
}

bool copyAttachment(const AVStream& from, AVFormatContext& output, std::vector<Cover>& covers) {
    const AVOutputFormat& container = *output.oformat;
    const AVCodecParameters& codec = *from.codecpar;
    const bool isCover = codec.codec_type == AVMEDIA_TYPE_VIDEO;
    const bool isMatroska = isOneOf(container, {"matroska"});
    if (isCover) {
        const bool isPicture =
            codec.codec_id == AV_CODEC_ID_MJPEG || codec.codec_id == AV_CODEC_ID_PNG;
        if (!isPicture || from.attached_pic.size <= 0) return false;
        if (isMatroska) {
            attachCover(from, output);
            return true;
        }
        if (!isMp4(container)) return false;
    } else if (!isMatroska) {
        return false;
    }
    AVStream& to = newStream(output);
    if (avcodec_parameters_copy(to.codecpar, &codec) < 0) throw std::bad_alloc();
    to.codecpar->codec_tag = 0;
    to.time_base = from.time_base;
    to.disposition = from.disposition;
    av_dict_copy(&to.metadata, from.metadata, 0);
    if (isCover) covers.push_back({to.index, &from.attached_pic});
    return true;
}

void warnOfLostTags(const AVFormatContext& input, const AVFormatContext& output,
                    Warnings& warnings) {
    const AVOutputFormat& container = *output.oformat;
    const bool holdsTags = !isOneOf(container, {"gif", "apng", "mpeg", "vob", "svcd", "dvd"});
    const bool holdsChapters =
        isMp4(container) || isOneOf(container, {"mov", "matroska", "webm", "nut", "asf"});
    if (!holdsTags && av_dict_get(input.metadata, "title", nullptr, 0))
        warnings.add(std::string("the title is left out: the container ") + container.name +
                     " has no place for it");
    if (!holdsChapters && output.nb_chapters > 0)
        warnings.add(std::string("the chapters are left out: the container ") + container.name +
                     " has no place for them");
}

} // namespace vorn::media
