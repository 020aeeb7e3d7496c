// A small anti-aliased painter for the test card: shapes are signed distances in pixels, colours
// are functions of the place. Only + - * / sqrt floor and comparisons are used, so the pixels are
// the same on every machine.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorn::testcard {

/// A colour as stored in video: non-linear sRGB components from 0 to 1.
struct Colour {
    double red = 0, green = 0, blue = 0;
};

/// The colour 0xRRGGBB.
constexpr Colour colourFromHex(unsigned rgb) {
    return {((rgb >> 16) & 255) / 255.0, ((rgb >> 8) & 255) / 255.0, (rgb & 255) / 255.0};
}

constexpr Colour grey(double level) {
    return {level, level, level};
}

constexpr Colour mix(const Colour& from, const Colour& to, double amount) {
    return {from.red + (to.red - from.red) * amount, from.green + (to.green - from.green) * amount,
            from.blue + (to.blue - from.blue) * amount};
}

/// A place in pixels: x to the right, y downwards, pixel centres at halves.
struct Point {
    double x = 0, y = 0;
};

/// A rectangle in pixels, y downwards.
struct Rectangle {
    double left = 0, top = 0, width = 0, height = 0;

    double right() const { return left + width; }
    double bottom() const { return top + height; }
    Point centre() const { return {left + width / 2, top + height / 2}; }
    Rectangle inset(double amount) const {
        return {left + amount, top + amount, std::max(0.0, width - 2 * amount),
                std::max(0.0, height - 2 * amount)};
    }
    /// The part between the fractions `from` and `to` of the height.
    Rectangle rows(double from, double to) const {
        return {left, top + height * from, width, height * (to - from)};
    }
};

inline Rectangle squareAround(Point centre, double radius) {
    return {centre.x - radius, centre.y - radius, 2 * radius, 2 * radius};
}

inline double clampUnit(double value) {
    return std::clamp(value, 0.0, 1.0);
}

inline double smoothStep(double from, double to, double value) {
    const double t = clampUnit((value - from) / (to - from));
    return t * t * (3 - 2 * t);
}

inline double fraction(double value) {
    return value - std::floor(value);
}

inline double length(double x, double y) {
    return std::sqrt(x * x + y * y);
}

/// sin(2 pi turns), accurate to 1e-7: a Taylor polynomial on a quarter turn, where the C library's
/// sine may differ between systems.
inline double sineOfTurns(double turns) {
    double t = turns - std::floor(turns + 0.5);
    if (t > 0.25) t = 0.5 - t;
    if (t < -0.25) t = -0.5 - t;
    const double x = t * 6.283185307179586, s = x * x;
    return x * (1 - s / 6 * (1 - s / 20 * (1 - s / 42 * (1 - s / 72 * (1 - s / 110)))));
}

inline double cosineOfTurns(double turns) {
    return sineOfTurns(turns + 0.25);
}

/// The point at `turns` on a circle, 0 at the top, clockwise.
inline Point onCircle(Point centre, double radius, double turns) {
    return {centre.x + radius * sineOfTurns(turns), centre.y - radius * cosineOfTurns(turns)};
}

// Signed distances in pixels, negative inside.

inline double distanceToCircle(Point p, Point centre, double radius) {
    return length(p.x - centre.x, p.y - centre.y) - radius;
}

/// First-order distance (exact on the outline, which is all that anti-aliasing needs).
inline double distanceToEllipse(Point p, Point centre, double radiusX, double radiusY) {
    const double x = (p.x - centre.x) / radiusX, y = (p.y - centre.y) / radiusY;
    const double gradient = length(x / radiusX, y / radiusY);
    if (gradient == 0) return -std::min(radiusX, radiusY);
    const double k = length(x, y);
    return k * (k - 1) / gradient;
}

inline double distanceToRoundedRectangle(Point p, const Rectangle& r, double cornerRadius) {
    const Point c = r.centre();
    const double x = std::fabs(p.x - c.x) - r.width / 2 + cornerRadius;
    const double y = std::fabs(p.y - c.y) - r.height / 2 + cornerRadius;
    return length(std::max(x, 0.0), std::max(y, 0.0)) + std::min(std::max(x, y), 0.0) -
           cornerRadius;
}

/// A line from `a` to `b` with round ends whose half width goes from `halfWidthA` to `halfWidthB`.
inline double distanceToLine(Point p, Point a, Point b, double halfWidthA, double halfWidthB) {
    const double x = b.x - a.x, y = b.y - a.y, squared = x * x + y * y;
    const double t = squared > 0 ? clampUnit(((p.x - a.x) * x + (p.y - a.y) * y) / squared) : 0.0;
    return length(p.x - a.x - t * x, p.y - a.y - t * y) -
           (halfWidthA + (halfWidthB - halfWidthA) * t);
}

/// The triangle whose corners run clockwise on the screen.
inline double distanceToTriangle(Point p, Point a, Point b, Point c) {
    const auto side = [p](Point from, Point to) {
        const double x = to.x - from.x, y = to.y - from.y;
        return ((p.x - from.x) * y - (p.y - from.y) * x) / std::max(length(x, y), 1e-9);
    };
    return std::max({side(a, b), side(b, c), side(c, a)});
}

/// The share of a pixel that a shape covers, from the distance of its centre to the outline.
inline double coverageAt(double distance) {
    return clampUnit(0.5 - distance);
}

/// A range of whole pixels, `first` included and `last` not.
struct PixelRange {
    int first = 0, last = 0;
};

/// The pixels from `low` to `high` that lie in 0..limit; empty where the bounds are not numbers.
inline PixelRange pixelsBetween(double low, double high, int limit) {
    if (!(low < high)) return {};
    return {static_cast<int>(std::floor(std::clamp(low, 0.0, static_cast<double>(limit)))),
            static_cast<int>(std::ceil(std::clamp(high, 0.0, static_cast<double>(limit))))};
}

/// A view of somebody's 8-bit RGBA pixels, top row first. Painting is clipped to it and leaves
/// every touched pixel opaque.
class Canvas {
public:
    Canvas(std::uint8_t* rgba, std::size_t rowBytes, int width, int height)
        : rgba_(rgba), rowBytes_(rowBytes), width_(width), height_(height) {}

    int width() const { return width_; }
    int height() const { return height_; }
    bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < width_ && y < height_; }

    /// Lays `colour` over the pixel with the given coverage (0 to 1). The pixel must exist.
    void blend(int x, int y, const Colour& colour, double coverage) {
        std::uint8_t* pixel =
            rgba_ + static_cast<std::size_t>(y) * rowBytes_ + static_cast<std::size_t>(x) * 4;
        pixel[0] = blended(pixel[0], colour.red, coverage);
        pixel[1] = blended(pixel[1], colour.green, coverage);
        pixel[2] = blended(pixel[2], colour.blue, coverage);
        pixel[3] = 255;
    }

    /// Fills the shape `distance(Point)` within `bounds` with `shade(Point)` at an `opacity`.
    template <class Distance, class Shade>
    void fill(const Rectangle& bounds, Distance distance, Shade shade, double opacity = 1) {
        const PixelRange rows = pixelsBetween(bounds.top - 1, bounds.bottom() + 1, height_);
        const PixelRange columns = pixelsBetween(bounds.left - 1, bounds.right() + 1, width_);
        for (int y = rows.first; y < rows.last; ++y) {
            for (int x = columns.first; x < columns.last; ++x) {
                const Point p{x + 0.5, y + 0.5};
                const double coverage = coverageAt(distance(p)) * opacity;
                if (coverage > 0) blend(x, y, shade(p), coverage);
            }
        }
    }

    template <class Distance>
    void fill(const Rectangle& bounds, Distance distance, const Colour& colour,
              double opacity = 1) {
        fill(
            bounds, distance, [&colour](Point) { return colour; }, opacity);
    }

    /// Fills a rectangle with rounded corners.
    template <class Shade>
    void fillPanel(const Rectangle& bounds, double cornerRadius, const Shade& shade) {
        fill(
            bounds, [&](Point p) { return distanceToRoundedRectangle(p, bounds, cornerRadius); },
            shade);
    }

    void fillCircle(Point centre, double radius, const Colour& colour, double opacity = 1) {
        fill(
            squareAround(centre, radius),
            [&](Point p) { return distanceToCircle(p, centre, radius); }, colour, opacity);
    }

    void strokeCircle(Point centre, double radius, double lineWidth, const Colour& colour,
                      double opacity = 1) {
        fill(
            squareAround(centre, radius + lineWidth),
            [&](Point p) { return std::fabs(distanceToCircle(p, centre, radius)) - lineWidth / 2; },
            colour, opacity);
    }

    void strokeLine(Point a, Point b, double lineWidth, const Colour& colour, double opacity = 1) {
        const double half = lineWidth / 2;
        const Rectangle bounds{std::min(a.x, b.x) - half, std::min(a.y, b.y) - half,
                               std::fabs(a.x - b.x) + lineWidth, std::fabs(a.y - b.y) + lineWidth};
        fill(
            bounds, [&](Point p) { return distanceToLine(p, a, b, half, half); }, colour, opacity);
    }

private:
    static std::uint8_t blended(std::uint8_t below, double component, double coverage) {
        return static_cast<std::uint8_t>(below + (clampUnit(component) * 255 - below) * coverage +
                                         0.5);
    }

    std::uint8_t* rgba_;
    std::size_t rowBytes_;
    int width_, height_;
};

/// The coverage of a chain of lines, gathered first and painted once, so that a translucent stroke
/// has no darker joints.
class StrokeMask {
public:
    StrokeMask(int width, int height)
        : width_(width), height_(height),
          coverage_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {}

    int width() const { return width_; }
    int height() const { return height_; }
    float at(int x, int y) const { return coverage_[index(x, y)]; }

    /// Adds a line; widths below one pixel become a thinner coverage of one pixel's width.
    void addLine(Point a, Point b, double halfWidthA, double halfWidthB) {
        const double reach = std::max({halfWidthA, halfWidthB, 0.5}) + 1;
        const PixelRange rows =
            pixelsBetween(std::min(a.y, b.y) - reach, std::max(a.y, b.y) + reach, height_);
        const PixelRange columns =
            pixelsBetween(std::min(a.x, b.x) - reach, std::max(a.x, b.x) + reach, width_);
        const double strength = std::min(1.0, halfWidthA + halfWidthB);
        const double widthA = std::max(halfWidthA, 0.5), widthB = std::max(halfWidthB, 0.5);
        for (int y = rows.first; y < rows.last; ++y) {
            for (int x = columns.first; x < columns.last; ++x) {
                const double distance = distanceToLine({x + 0.5, y + 0.5}, a, b, widthA, widthB);
                float& coverage = coverage_[index(x, y)];
                coverage = std::max(coverage, static_cast<float>(coverageAt(distance) * strength));
            }
        }
        if (rows.first < rows.last && columns.first < columns.last) include(rows, columns);
    }

    /// Lays the strokes over the canvas with the mask's corner at (`left`, `top`), and empties the
    /// mask.
    void paintAndClear(Canvas& canvas, int left, int top, const Colour& colour, double opacity) {
        for (int y = touchedRows_.first; y < touchedRows_.last; ++y) {
            for (int x = touchedColumns_.first; x < touchedColumns_.last; ++x) {
                float& coverage = coverage_[index(x, y)];
                if (coverage > 0 && canvas.contains(left + x, top + y)) {
                    canvas.blend(left + x, top + y, colour, coverage * opacity);
                }
                coverage = 0;
            }
        }
        touchedRows_ = touchedColumns_ = {};
    }

private:
    std::size_t index(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
               static_cast<std::size_t>(x);
    }

    void include(PixelRange rows, PixelRange columns) {
        const bool empty = touchedRows_.first >= touchedRows_.last;
        const auto join = [empty](PixelRange& all, PixelRange added) {
            all = empty ? added
                        : PixelRange{std::min(all.first, added.first),
                                     std::max(all.last, added.last)};
        };
        join(touchedRows_, rows);
        join(touchedColumns_, columns);
    }

    int width_, height_;
    PixelRange touchedRows_, touchedColumns_;
    std::vector<float> coverage_;
};

} // namespace vorn::testcard
