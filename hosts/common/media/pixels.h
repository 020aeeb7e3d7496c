// Alpha and depth of RGBA rows. Internal.
#pragma once

#include "frame.h"

namespace vorn::media {

/// Multiplies the colours with alpha, rounding to nearest. `target` may be `source`; otherwise it
/// has its size and format.
void premultiply(const Frame& source, Frame& target);

/// Divides the colours by alpha, rounding to nearest and limited to the largest value; colours
/// become zero where alpha is.
void unpremultiply(const Frame& source, Frame& target);

/// Brings premultiplied colours that a scaler's overshoot lifted above alpha back to it.
void limitToAlpha(Frame& frame);

/// From 8 to 16 bits (v * 257) or from 16 to 8 (rounded to nearest). `target` has the other format
/// and the same size.
void changeDepth(const Frame& source, Frame& target);

} // namespace vorn::media
