// What a file name and a codec name ask for. Internal.
#pragma once

#include "libav.h"
#include "sequence.h"

namespace vorn::media {

enum class TargetKind : std::uint8_t { Film, Picture, Sequence, Raw };

struct Target {
    TargetKind kind = TargetKind::Film;
    const AVOutputFormat* container = nullptr; ///< of a film
    const AVCodec* encoder = nullptr;          ///< not for raw
    std::optional<SequencePattern> pattern;    ///< of a sequence
    int descriptor = -1;                       ///< raw to an open file descriptor
};

/// What the pictures have that not every codec holds.
struct TargetNeeds {
    bool alpha = false;
    bool highDynamicRange = false;
};

/// Decides what to write to `path`, with the encoder called `codec`, or one that holds what is
/// needed where the container has any. Throws WriteError with what there is to choose from.
Target chooseTarget(const std::string& path, const std::string& codec, TargetNeeds needs = {});

} // namespace vorn::media
