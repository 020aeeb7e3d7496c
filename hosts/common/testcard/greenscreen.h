// The green screen with a sitter in front of it: soft shoulders, skin and loose hair, which is what
// keyers find hard.
#pragma once

#include "canvas.h"

namespace vorn::testcard {

/// The screen's colour where the light on it is even.
inline constexpr Colour kGreen = colourFromHex(0x12b24c);

/// Paints a round green screen and the sitter, cut off at the circle. Needs scratch memory of four
/// bytes for each pixel of the square around it.
void paintGreenScreen(Canvas& canvas, Point centre, double radius);

} // namespace vorn::testcard
