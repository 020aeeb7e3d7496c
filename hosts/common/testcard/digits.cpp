#include "digits.h"

#include <span>
#include <utility>

namespace vorn::testcard {

namespace {

/// A stroke: a line where the radii are 0, else an arc of an ellipse.
struct Stroke {
    Point a;     ///< start of the line, or centre of the arc
    Point b;     ///< end of the line, or the two radii
    double from; ///< start of the arc in turns, 0 at the top, clockwise
    double to;   ///< end of the arc in turns; equal to `from` for a line
};

constexpr Stroke line(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y1}, 0, 0};
}

constexpr Stroke arc(double x, double y, double radiusX, double radiusY, double from, double to) {
    return {{x, y}, {radiusX, radiusY}, from, to};
}

constexpr double kLeastHeight = 5;
constexpr double kGlyphHeight = 1.7;
constexpr double kHalfStroke = 0.115;
constexpr double kMargin = kHalfStroke;
constexpr double kTotalHeight = kGlyphHeight + 2 * kMargin;
constexpr double kDigitAdvance = 1.42;
constexpr double kColonAdvance = 0.72;

constexpr Stroke kZero[] = {arc(.5, .5, .5, .5, -.25, .25), arc(.5, 1.2, .5, .5, .25, .75),
                            line(0, .5, 0, 1.2), line(1, .5, 1, 1.2)};
constexpr Stroke kOne[] = {line(.18, .3, .58, 0), line(.58, 0, .58, 1.7)};
constexpr Stroke kTwo[] = {arc(.5, .48, .48, .48, -.25, .355), line(.88, .79, .02, 1.7),
                           line(.02, 1.7, 1, 1.7)};
constexpr Stroke kThree[] = {arc(.5, .42, .43, .42, -.2, .5), arc(.5, 1.27, .49, .43, 0, .71),
                             line(.4, .84, .5, .84)};
constexpr Stroke kFour[] = {line(.74, 1.7, .74, 0), line(.74, 0, 0, 1.22),
                            line(0, 1.22, 1.02, 1.22)};
constexpr Stroke kFive[] = {line(.9, 0, .16, 0), line(.16, 0, .09, .78),
                            arc(.47, 1.18, .52, .52, -.13, .7)};
constexpr Stroke kSix[] = {arc(.5, 1.2, .5, .5, 0, 1), line(.06, 1.0, .66, 0)};
constexpr Stroke kSeven[] = {line(0, 0, 1, 0), line(1, 0, .36, 1.7)};
constexpr Stroke kEight[] = {arc(.5, .41, .42, .41, 0, 1), arc(.5, 1.26, .5, .44, 0, 1)};
constexpr Stroke kNine[] = {arc(.5, .5, .5, .5, 0, 1), line(.94, .7, .34, 1.7)};
constexpr Stroke kColon[] = {line(.15, .52, .15, .52), line(.15, 1.22, .15, 1.22)};
constexpr Stroke kMinus[] = {line(.15, .88, .85, .88)};
constexpr Stroke kLetterF[] = {line(.1, 0, .1, 1.7), line(.1, 0, .92, 0), line(.1, .82, .78, .82)};

constexpr std::span<const Stroke> kStrokes[] = {
    kZero, kOne, kTwo, kThree, kFour, kFive, kSix, kSeven, kEight, kNine, kColon, kMinus, kLetterF};

double advanceOf(char character) {
    return character == ':' ? kColonAdvance : kDigitAdvance;
}

StrokeMask drawGlyph(std::span<const Stroke> strokes, double height) {
    if (height < kLeastHeight) return {0, 0};
    const double scale = height / kTotalHeight;
    StrokeMask mask(static_cast<int>(std::ceil((1 + 3 * kMargin) * scale)) + 1,
                    static_cast<int>(std::ceil(height)) + 1);
    const double half = std::max(kHalfStroke * scale, 0.5);
    const auto add = [&](Point a, Point b) {
        const auto place = [&](Point p) {
            return Point{(p.x + kMargin) * scale, (p.y + kMargin) * scale};
        };
        mask.addLine(place(a), place(b), half, half);
    };
    for (const Stroke& stroke : strokes) {
        if (stroke.from == stroke.to) {
            add(stroke.a, stroke.b);
            continue;
        }
        constexpr int kPieces = 40;
        const auto pointAt = [&](int piece) {
            const double turns = stroke.from + (stroke.to - stroke.from) * piece / kPieces;
            return Point{stroke.a.x + stroke.b.x * sineOfTurns(turns),
                         stroke.a.y - stroke.b.y * cosineOfTurns(turns)};
        };
        for (int piece = 0; piece < kPieces; ++piece) add(pointAt(piece), pointAt(piece + 1));
    }
    return mask;
}

template <std::size_t... I>
std::array<StrokeMask, sizeof...(I)> drawGlyphs(double height, std::index_sequence<I...>) {
    return {drawGlyph(kStrokes[I], height)...};
}

} // namespace

Numerals::Numerals(double digitHeight)
    : height_(digitHeight),
      masks_(drawGlyphs(digitHeight, std::make_index_sequence<kGlyphs.size()>())) {
    static_assert(std::size(kStrokes) == kGlyphs.size());
}

double Numerals::widthOf(std::string_view text, double digitHeight) {
    double advance = 0;
    for (const char character : text) advance += advanceOf(character);
    const double gapAfterLast = kDigitAdvance - 1 - 2 * kMargin;
    return std::max(0.0, advance - gapAfterLast) * digitHeight / kTotalHeight;
}

void Numerals::draw(Canvas& canvas, std::string_view text, Point topLeft,
                    const Colour& colour) const {
    double left = topLeft.x;
    const int top = static_cast<int>(std::floor(topLeft.y + 0.5));
    for (const char character : text) {
        const std::size_t glyph = kGlyphs.find(character);
        if (glyph != std::string_view::npos) {
            const StrokeMask& mask = masks_[glyph];
            const int x0 = static_cast<int>(std::floor(left + 0.5));
            const int firstColumn = std::max(0, -x0);
            const int lastColumn = std::min(mask.width(), canvas.width() - x0);
            const int firstRow = std::max(0, -top);
            const int lastRow = std::min(mask.height(), canvas.height() - top);
            for (int y = firstRow; y < lastRow; ++y) {
                for (int x = firstColumn; x < lastColumn; ++x) {
                    const double coverage = mask.at(x, y);
                    if (coverage > 0) canvas.blend(x0 + x, top + y, colour, coverage);
                }
            }
        }
        left += advanceOf(character) * height_ / kTotalHeight;
    }
}

} // namespace vorn::testcard
