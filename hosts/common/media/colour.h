// What the colour tags of a file mean.
#pragma once

#include "info.h"

namespace vorn::media {

/// How light is coded in values from 0 to 1.
enum class TransferCurve : std::uint8_t {
    Unknown, ///< tagged with one that cannot be undone here
    Linear,
    SRGB,
    BT709, ///< also BT.601 and BT.2020, which share it
    Gamma22,
    Gamma26,
    Gamma28,
    SMPTE240M,
    PQ,  ///< 1 is 10000 cd/m2
    HLG, ///< 1 is the peak of the scene
};

struct ColourMeaning {
    std::string system;    ///< what kind of film has such tags: "SD", "HD", "UHD", "HDR10", …
    std::string primaries; ///< by name, "as usual for …" where no tag says it
    std::string transfer;
    std::string matrix;
    std::string range;
    TransferCurve curve = TransferCurve::SRGB;
    bool isHighDynamicRange = false;
};

/// Untagged films are taken for BT.601 or BT.709 by their size, untagged RGB for sRGB.
ColourMeaning meaningOf(const MediaInfo& info);

/// PQ and HLG.
bool isHighDynamicRange(const ColourTags& tags);

/// Light from 0 to 1 of a coded value from 0 to 1, and the reverse. Not for `Unknown`.
double toLight(TransferCurve curve, double value);
double fromLight(TransferCurve curve, double light);

} // namespace vorn::media
