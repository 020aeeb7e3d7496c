// The eight ways a picture can lie, read from a display matrix. Internal.
#pragma once

#include "frame.h"

#include <array>

namespace vorn::media {

/// Turns a stored picture upright: first the axes are exchanged if `transpose`, then the result is
/// mirrored left to right and top to bottom.
struct Orientation {
    bool transpose = false;
    bool flipX = false;
    bool flipY = false;

    bool isIdentity() const { return !transpose && !flipX && !flipY; }
    /// The orientation that undoes this one.
    Orientation inverse() const { return transpose ? Orientation{true, flipY, flipX} : *this; }
    Size apply(Size size) const { return transpose ? size.transposed() : size; }

    /// Clockwise degrees of the turn that follows a mirroring left to right (if isMirrored()).
    int rotationDegrees() const;
    bool isMirrored() const { return transpose != (flipX != flipY); }
};

/// The orientation in a display matrix (libavutil/display.h), or nothing if it turns by an angle
/// that is no multiple of 90 degrees.
std::optional<Orientation> orientationOf(const std::array<std::int32_t, 9>& displayMatrix);

/// Writes `source` in the given orientation to `target`, which has the oriented size and the same
/// format already.
void reorient(const Frame& source, Orientation orientation, Frame& target);

} // namespace vorn::media
