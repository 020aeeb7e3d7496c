// Reduction to a palette of 256 colours for animated GIF. Internal.
#pragma once

#include "frame.h"
#include "libav.h"

namespace vorn::media {

/// Fills `target` (PAL8, of the frame's size, writable) with the frame in at most 255 colours of
/// its own and one transparent entry. Colours are chosen by median cut over a histogram of 5 bits
/// per component; the rest is hidden by an ordered 8 x 8 dither, which stands still between frames.
/// Pixels less than half opaque become transparent. `frame` is 8 bits and straight or opaque.
void reduceToPalette(const Frame& frame, AVFrame& target);

} // namespace vorn::media
