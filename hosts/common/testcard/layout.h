// Where the parts of the test card lie for a given frame size.
#pragma once

#include "canvas.h"

namespace vorn::testcard {

/// Places in pixels. Panels start and end on whole pixels.
struct Layout {
    double unit = 0; ///< about a ninth of the shorter side; line widths and corners follow it
    Rectangle bars, hues, ramps, zonePlate, star, gratings, skin, counter, arrow;
    Point ringCentre;      ///< the ring around the green screen
    double ringRadius = 0; ///< to the outer end of its tick marks

    double greenRadius() const { return ringRadius * 0.87; }
    double orbitRadius() const { return ringRadius * 0.94; }
};

/// Frames whose shorter side has fewer pixels get a plain card instead of a layout.
inline constexpr int kSmallestLaidOutSide = 64;

/// The arrangement for the aspect ratio: three columns (wide), stacked rows (tall) or a mixture of
/// both around the square.
Layout layOut(int width, int height);

} // namespace vorn::testcard
