// Fills MediaInfo from an opened input. Internal.
#pragma once

#include "info.h"
#include "libav.h"

namespace vorn::media {

/// The colour tags of a decoded frame, with those of its stream where the frame has none.
ColourTags colourTags(const AVFrame& frame, const AVCodecParameters& stream);

/// Whether a picture holds two fields, by what it says or, if that is nothing, by its stream.
FieldOrder fieldOrderOf(const AVFrame& picture, const AVCodecParameters& stream);
/// Codecs whose pictures tell one by one.
bool saysFieldsByPicture(const AVCodecParameters& stream);

/// When the last picture ends, in ticks of the stream's time base as stored (the file's start is
/// not subtracted); nothing if the container does not say.
std::optional<std::int64_t> endOfPictures(const AVStream& stream);

/// Describes the picture stream `stream` of `input`, whose first decoded picture is `first`, and
/// its companions. `path` and `kind` are left to the caller.
MediaInfo describe(AVFormatContext& input, AVStream& stream, const AVFrame& first);

} // namespace vorn::media
