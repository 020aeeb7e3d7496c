#include "probe.h"

#include "orientation.h"
#include "scaler.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace vorn::media {

namespace {

template <typename Tag>
int firstTag(Tag frame, Tag stream, Tag unspecified) {
    return int(frame != unspecified ? frame : stream);
}

ColourRange rangeOf(AVColorRange range) {
    if (range == AVCOL_RANGE_JPEG) return ColourRange::Full;
    return range == AVCOL_RANGE_MPEG ? ColourRange::Limited : ColourRange::Unspecified;
}

// Every picture takes the same time if all entries of the container's index are the same distance
// apart. Indexes that list key pictures only say nothing.
std::optional<bool> isIndexRegular(AVStream& stream) {
    const int entries = avformat_index_get_entries_count(&stream);
    if (entries < 3 || entries != stream.nb_frames) return std::nullopt;
    std::int64_t shortest = INT64_MAX, longest = 0, previous = 0;
    for (int i = 0; i < entries; ++i) {
        const std::int64_t time = avformat_index_get_entry(&stream, i)->timestamp;
        if (i > 0) {
            shortest = std::min(shortest, time - previous);
            longest = std::max(longest, time - previous);
        }
        previous = time;
    }
    // Times rounded to fine ticks may differ by one.
    return longest == shortest || (longest - shortest == 1 && longest >= 10);
}

bool hasVariableFrameRate(AVStream& stream) {
    if (const auto regular = isIndexRegular(stream)) return !*regular;
    if (stream.r_frame_rate.num <= 0) return false;
    if (stream.avg_frame_rate.num <= 0) return true; // no rate fitted the first pictures
    const double average = av_q2d(stream.avg_frame_rate), base = av_q2d(stream.r_frame_rate);
    return std::abs(average / base - 1) > 0.005;
}

void describeTimes(AVFormatContext& input, AVStream& stream, MediaInfo& info) {
    info.timeBase = fromAv(stream.time_base);
    const AVRational guessed = av_guess_frame_rate(&input, &stream, nullptr);
    info.frameRate = fromAv(stream.avg_frame_rate.num > 0 ? stream.avg_frame_rate : guessed);
    if (!info.frameRate.isPositive()) info.frameRate = {0, 1};
    info.baseFrameRate = fromAv(stream.r_frame_rate);
    if (!info.baseFrameRate.isPositive()) info.baseFrameRate = info.frameRate;
    info.hasVariableFrameRate = hasVariableFrameRate(stream);

    const auto [start, unit] = earliestStart(input);
    info.startTime = start;
    info.startTimeBase = fromAv(unit);

    const std::int64_t streamStart = stream.start_time == AV_NOPTS_VALUE
                                         ? av_rescale_q(start, unit, stream.time_base)
                                         : stream.start_time;
    if (const auto end = endOfPictures(stream))
        info.durationSeconds = double(*end - streamStart) * av_q2d(stream.time_base);
    else if (input.duration > 0)
        info.durationSeconds = double(input.duration) / AV_TIME_BASE;
    if (stream.nb_frames > 0) {
        info.frameCount = stream.nb_frames;
        info.isFrameCountExact = true;
    } else if (info.durationSeconds && info.frameRate.isPositive()) {
        info.frameCount = std::llround(*info.durationSeconds * info.frameRate.value());
    }
}

/// What only the pictures say, as in MPEG-TS; both kinds hold the same bytes.
void addFrameSideData(const AVFrame& first, AVFrameSideDataType type, AVPacketSideDataType as,
                      MediaInfo& info) {
    const AVFrameSideData* found = av_frame_get_side_data(&first, type);
    const bool isThere = std::any_of(info.sideData.begin(), info.sideData.end(),
                                     [as](const auto& each) { return each.type == int(as); });
    if (found && !isThere)
        info.sideData.push_back({int(as), {found->data, found->data + found->size}});
}

void describeSideData(const AVStream& stream, const AVFrame& first, MediaInfo& info) {
    std::array<std::int32_t, 9> matrix;
    std::size_t bytes = 0;
    const std::uint8_t* found = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &bytes);
    if (!found) {
        // Pictures carry their orientation in the frame.
        const AVFrameSideData* side = av_frame_get_side_data(&first, AV_FRAME_DATA_DISPLAYMATRIX);
        if (side) found = side->data, bytes = side->size;
    }
    if (found && bytes >= sizeof matrix) {
        std::memcpy(matrix.data(), found, sizeof matrix);
        info.displayMatrix = matrix;
    }
    for (const AVPacketSideDataType type :
         {AV_PKT_DATA_MASTERING_DISPLAY_METADATA, AV_PKT_DATA_CONTENT_LIGHT_LEVEL,
          AV_PKT_DATA_STEREO3D, AV_PKT_DATA_SPHERICAL}) {
        const std::uint8_t* data = av_stream_get_side_data(&stream, type, &bytes);
        if (data) info.sideData.push_back({int(type), {data, data + bytes}});
    }
    addFrameSideData(first, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA,
                     AV_PKT_DATA_MASTERING_DISPLAY_METADATA, info);
    addFrameSideData(first, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_CONTENT_LIGHT_LEVEL,
                     info);
    if (const AVFrameSideData* icc = av_frame_get_side_data(&first, AV_FRAME_DATA_ICC_PROFILE))
        info.iccProfile.assign(icc->data, icc->data + icc->size);
}

std::vector<CompanionStream> companionsOf(const AVFormatContext& input) {
    std::vector<CompanionStream> companions;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& stream = *input.streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        const bool isSound = codec.codec_type == AVMEDIA_TYPE_AUDIO;
        if (!isSound && codec.codec_type != AVMEDIA_TYPE_SUBTITLE) continue;
        const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
        companions.push_back({int(i), isSound, avcodec_get_name(codec.codec_id),
                              language ? language->value : "", codec.sample_rate,
                              codec.ch_layout.nb_channels});
    }
    return companions;
}

// A palette holds alpha only if one of its colours is not opaque.
bool hasVisibleAlpha(const AVFrame& frame) {
    const auto format = AVPixelFormat(frame.format);
    if (format != AV_PIX_FMT_PAL8) return hasAlpha(format);
    const auto* palette = reinterpret_cast<const std::uint32_t*>(frame.data[1]);
    return std::any_of(palette, palette + 256,
                       [](std::uint32_t colour) { return colour >> 24 != 255 && colour != 0; });
}

} // namespace

ColourTags colourTags(const AVFrame& frame, const AVCodecParameters& stream) {
    ColourTags tags;
    tags.matrix = firstTag(frame.colorspace, stream.color_space, AVCOL_SPC_UNSPECIFIED);
    tags.primaries = firstTag(frame.color_primaries, stream.color_primaries, AVCOL_PRI_UNSPECIFIED);
    tags.transfer = firstTag(frame.color_trc, stream.color_trc, AVCOL_TRC_UNSPECIFIED);
    tags.range = rangeOf(
        AVColorRange(firstTag(frame.color_range, stream.color_range, AVCOL_RANGE_UNSPECIFIED)));
    tags.chromaLocation =
        firstTag(frame.chroma_location, stream.chroma_location, AVCHROMA_LOC_UNSPECIFIED);
    return tags;
}

bool saysFieldsByPicture(const AVCodecParameters& stream) {
    return stream.codec_id == AV_CODEC_ID_H264 || stream.codec_id == AV_CODEC_ID_MPEG2VIDEO;
}

FieldOrder fieldOrderOf(const AVFrame& picture, const AVCodecParameters& stream) {
    if (picture.interlaced_frame)
        return picture.top_field_first ? FieldOrder::TopFirst : FieldOrder::BottomFirst;
    if (saysFieldsByPicture(stream)) return FieldOrder::Progressive;
    const AVFieldOrder order = stream.field_order;
    if (order == AV_FIELD_TT || order == AV_FIELD_TB) return FieldOrder::TopFirst;
    return order == AV_FIELD_BB || order == AV_FIELD_BT ? FieldOrder::BottomFirst
                                                        : FieldOrder::Progressive;
}

std::optional<std::int64_t> endOfPictures(const AVStream& stream) {
    if (stream.duration > 0)
        return stream.duration + (stream.start_time == AV_NOPTS_VALUE ? 0 : stream.start_time);
    // Matroska files say it in a tag, such as 00:01:30.041000000.
    const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "DURATION", nullptr, 0);
    std::int64_t microseconds = 0;
    if (!tag || av_parse_time(&microseconds, tag->value, 1) < 0 || microseconds <= 0)
        return std::nullopt;
    return av_rescale_q(microseconds, AV_TIME_BASE_Q, stream.time_base);
}

MediaInfo describe(AVFormatContext& input, AVStream& stream, const AVFrame& first) {
    MediaInfo info;
    const AVCodecParameters& codec = *stream.codecpar;
    info.container = input.iformat->name;
    info.codec = avcodec_get_name(codec.codec_id);

    const auto format = AVPixelFormat(first.format);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    info.pixelFormat = av_get_pix_fmt_name(format);
    info.isYCbCr = !isRgb(format);
    info.chromaShiftX = descriptor->log2_chroma_w;
    info.chromaShiftY = descriptor->log2_chroma_h;
    info.bitsPerComponent = bitsPerComponent(format);
    info.hasAlpha = hasVisibleAlpha(first);
    info.colour = colourTags(first, codec);

    info.storedSize = {first.width, first.height};
    const AVRational aspect =
        av_guess_sample_aspect_ratio(&input, &stream, const_cast<AVFrame*>(&first));
    if (aspect.num > 0 && aspect.den > 0) info.sampleAspectRatio = fromAv(aspect);
    info.fieldOrder = fieldOrderOf(first, codec);

    describeTimes(input, stream, info);
    describeSideData(stream, first, info);
    Orientation orientation;
    if (info.displayMatrix) orientation = orientationOf(*info.displayMatrix).value_or(orientation);
    info.uprightSize = orientation.apply(info.storedSize);
    info.rotationDegrees = orientation.rotationDegrees();
    info.isMirrored = orientation.isMirrored();
    info.pictureStream = stream.index;
    info.companions = companionsOf(input);
    info.hasTitleOrChapters =
        input.nb_chapters > 0 || av_dict_get(input.metadata, "title", nullptr, 0);
    return info;
}

} // namespace vorn::media
