// What a file name and a codec name ask for. Internal.
#pragma once

#include "libav.h"
#include "sequence.h"

namespace vorn::media {

enum class TargetKind : std::uint8_t { Film, Picture, Sequence, Raw, Nothing };

struct Target {
    TargetKind kind = TargetKind::Film;
    const AVOutputFormat* container = nullptr; ///< of a film
    const AVCodec* encoder = nullptr;          ///< not for raw and nothing
    std::optional<SequencePattern> pattern;    ///< of a sequence
    int descriptor = -1;                       ///< an open file, in place of a name
};

/// What is asked for besides the name, and what the pictures have that not every codec holds.
struct TargetNeeds {
    std::string codec;        ///< empty: one that holds what is needed, where there is any
    std::string format;       ///< empty: by the name
    bool namesPixels = false; ///< a pixel format is asked for
    bool alpha = false;
    bool highDynamicRange = false;
};

/// Decides what to write to `path`. Throws WriteError with what there is to choose from.
Target chooseTarget(const std::string& path, const TargetNeeds& needs);

} // namespace vorn::media
