// What a film has besides its tracks: title and tags, chapters, attachments, covers. Internal.
#pragma once

#include "libav.h"
#include "writer.h"

namespace vorn::media {

/// Names of the program that wrote the source say nothing true about the output.
void copyTags(AVDictionary** target, const AVDictionary* source);

/// Copies chapters, those of the range only; they begin `fileStartSeconds` late in the source.
void copyChapters(const AVFormatContext& input, double fileStartSeconds, const TimeRange& range,
                  AVFormatContext& output);

/// Copies an attachment, such as a font, or a cover. False when the container has no place for it.
/// What it needs written after the header is added to `covers`.
struct Cover {
    int output = 0; ///< number of the stream
    const AVPacket* picture = nullptr;
};
bool copyAttachment(const AVStream& from, AVFormatContext& output, std::vector<Cover>& covers);

/// Says which of the title and the chapters the container has no place for.
void warnOfLostTags(const AVFormatContext& input, const AVFormatContext& output,
                    Warnings& warnings);

} // namespace vorn::media
