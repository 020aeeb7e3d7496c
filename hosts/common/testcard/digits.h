// The test card's own numerals: one-line strokes on a grid one wide and 1.7 high.
#pragma once

#include "canvas.h"

#include <array>
#include <string_view>

namespace vorn::testcard {

/// Digits, colon, minus and the letter F as coverage masks of one size. Every glyph has the same
/// width, so a running counter does not jitter.
class Numerals {
public:
    /// `digitHeight` in pixels, from the upper edge to the lower edge of the strokes; not more
    /// than 16384. Below 5 pixels nothing is drawn.
    explicit Numerals(double digitHeight);

    /// The width in pixels of a digit height's worth of text.
    static double widthOf(std::string_view text, double digitHeight);

    /// Draws the text with its upper left corner at `topLeft` (rounded to whole pixels).
    /// Characters without a glyph leave a gap.
    void draw(Canvas& canvas, std::string_view text, Point topLeft, const Colour& colour) const;

private:
    static constexpr std::string_view kGlyphs = "0123456789:-F";
    double height_;
    std::array<StrokeMask, kGlyphs.size()> masks_;
};

} // namespace vorn::testcard
