// The still panels of the test card.
#pragma once

#include "canvas.h"
#include "layout.h"

namespace vorn::testcard {

inline constexpr Colour kBackdrop = colourFromHex(0x14171d);
inline constexpr Colour kPanel = colourFromHex(0x0b0d11);
inline constexpr Colour kInk = colourFromHex(0xf2f4f7);
inline constexpr Colour kQuietInk = colourFromHex(0x8a94a6);
inline constexpr Colour kAccent = colourFromHex(0xff6a3d);
inline constexpr Colour kSecondAccent = colourFromHex(0x3dc8ff);

/// A colour of full saturation and value; `turns` 0 is red, 1/3 green, 2/3 blue.
Colour colourOfHue(double turns);

/// Eight bars from white to black (bit 2 green, bit 1 red, bit 0 blue) at 0 to 1 of full level.
Colour colourOfBar(int bar, double level);

/// A matt ball or face: the skin colour lit from the upper left. The normal is a unit vector, x to
/// the right, y down, z to the viewer.
Colour litSkin(const Colour& skin, double normalX, double normalY, double normalZ);

/// The dark ground with its fine square grid and the four corner marks: red upper left, green
/// upper right, blue lower left, yellow lower right.
void paintBackdrop(Canvas& canvas, const Layout& layout);

void paintColourBars(Canvas& canvas, const Layout& layout);
void paintHueField(Canvas& canvas, const Layout& layout);
/// Grey ramp, eleven grey steps, red, green and blue ramps, and the empty track of the moving bar.
void paintRamps(Canvas& canvas, const Layout& layout);
void paintZonePlate(Canvas& canvas, const Layout& layout);
void paintSiemensStar(Canvas& canvas, const Layout& layout);
/// Upright and level line pairs of 16 to 2 pixels, and checkers of 8 pixels to one.
void paintGratings(Canvas& canvas, const Layout& layout);
void paintSkinBalls(Canvas& canvas, const Layout& layout);
/// The ring with its sixty tick marks, and the arrow that points up.
void paintRingAndArrow(Canvas& canvas, const Layout& layout);

/// The track of the moving bar within the ramps panel.
Rectangle motionTrack(const Layout& layout);

/// The card for frames too small for a layout: bars, hues, a green disc with a ball of skin, a
/// one-pixel checker, a ramp and the corner marks, as far as the size allows.
void paintPlainCard(Canvas& canvas);

} // namespace vorn::testcard
