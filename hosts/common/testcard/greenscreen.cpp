#include "greenscreen.h"

#include "patterns.h"

namespace vorn::testcard {

namespace {

constexpr Colour kSkin = colourFromHex(0xdfa683);
constexpr Colour kHair = colourFromHex(0x2c1710);
constexpr Colour kHairLight = colourFromHex(0xa8623a);
constexpr Colour kJumper = colourFromHex(0x34418f);
constexpr Colour kJumperShade = colourFromHex(0x171b45);

/// Paints in coordinates of the disc: centre (0, 0), radius 1, y down. Shapes end at the disc.
class Portrait {
public:
    Portrait(Canvas& canvas, Point centre, double radius)
        : canvas_(canvas), centre_(centre), radius_(radius),
          maskLeft_(static_cast<int>(centre.x - radius)),
          maskTop_(static_cast<int>(centre.y - radius)), strands_(maskSide(), maskSide()) {}

    void paint() {
        paintScreen();
        fillEllipse({0, -0.12}, 0.38, 0.41, 0.03, [](Point) { return kHair; });
        fillEllipse({0, 0.22}, 0.38, 0.36, 0.06, [](Point) { return kHair; });
        paintHair(260, 0.2, 1.0, 0.0085, 0.7);
        paintHair(110, 0.8, 1.8, 0.0030, 0.9);
        paintBody();
        paintHead();
        paintHair(240, -1.0, 0.45, 0.0075, 0.8);
    }

private:
    Point place(Point p) const { return {centre_.x + p.x * radius_, centre_.y + p.y * radius_}; }
    Point discPoint(Point pixel) const {
        return {(pixel.x - centre_.x) / radius_, (pixel.y - centre_.y) / radius_};
    }

    int maskSide() const { return static_cast<int>(std::ceil(2 * radius_)) + 2; }

    void addToMask(Point from, Point to, double halfFrom, double halfTo) {
        const auto inMask = [this](Point p) {
            const Point pixel = place(p);
            return Point{pixel.x - maskLeft_, pixel.y - maskTop_};
        };
        strands_.addLine(inMask(from), inMask(to), halfFrom * radius_, halfTo * radius_);
    }

    void paintMask(const Colour& colour, double opacity) {
        strands_.paintAndClear(canvas_, maskLeft_, maskTop_, colour, opacity);
    }

    /// An ellipse whose edge fades over `softness` (in radii); `shade` gets disc coordinates.
    template <class Shade>
    void fillEllipse(Point middle, double radiusX, double radiusY, double softness, Shade shade,
                     double opacity = 1) {
        const double spread = std::max(1.0, softness * radius_);
        const Point c = place(middle);
        const double rx = radiusX * radius_, ry = radiusY * radius_;
        canvas_.fill(
            {c.x - rx - spread, c.y - ry - spread, 2 * (rx + spread), 2 * (ry + spread)},
            [&](Point p) {
                const double edge = distanceToCircle(p, centre_, radius_);
                return std::max(edge, distanceToEllipse(p, c, rx, ry) / spread);
            },
            [&](Point p) { return shade(discPoint(p)); }, opacity);
    }

    void paintScreen() {
        fillEllipse({0, 0}, 1, 1, 0, [](Point p) {
            const double away = length(p.x + 0.15, p.y + 0.2);
            return mix(colourFromHex(0x1cc257), colourFromHex(0x0a9a3f),
                       smoothStep(0.1, 1.3, away));
        });
    }

    void paintBody() {
        const auto knit = [](Point p) {
            const double light = smoothStep(0.75, -0.6, p.x + 0.5 * (p.y - 0.6));
            return mix(kJumperShade, kJumper, light);
        };
        fillEllipse({0, 1.16}, 0.86, 0.70, 0.02, knit);
        const auto neck = [](Point p) {
            const double x = std::clamp(p.x / 0.17, -1.0, 1.0);
            const Colour skin = litSkin(kSkin, x * 0.9, 0.1, std::sqrt(1 - 0.8 * x * x));
            const double underChin = 1 - smoothStep(0.20, 0.50, p.y + 0.25 * p.x);
            return mix(skin, colourFromHex(0x7a4630), 0.62 * underChin);
        };
        fillEllipse({0, 0.52}, 0.235, 0.105, 0.008, neck);
        fillEllipse({0, 0.30}, 0.150, 0.30, 0.008, neck);
        // The collar lies over the neckline's lower edge.
        for (int piece = 0; piece < 48; ++piece) {
            const auto onCollar = [](int step) {
                const double turns = 0.27 + 0.46 * step / 48;
                return Point{0.245 * sineOfTurns(turns), 0.52 - 0.115 * cosineOfTurns(turns)};
            };
            addToMask(onCollar(piece), onCollar(piece + 1), 0.022, 0.022);
        }
        paintMask(colourFromHex(0x4655ab), 1);
    }

    void paintHead() {
        constexpr Point kMiddle{0.005, -0.09};
        constexpr double kWide = 0.285, kHigh = 0.39;
        fillEllipse(kMiddle, kWide, kHigh, 0.006, [&](Point p) {
            const double x = (p.x - kMiddle.x) / kWide, y = (p.y - kMiddle.y) / kHigh;
            const double z = std::sqrt(std::max(0.0, 1 - x * x - y * y));
            return litSkin(kSkin, x, y, z);
        });
        for (const double side : {-1.0, 1.0}) {
            fillEllipse(
                {0.13 * side, 0.05}, 0.09, 0.07, 0.09,
                [](Point) { return colourFromHex(0xd9705a); }, 0.30);
            paintCurve({0.055 * side, -0.145}, {0.12 * side, -0.195}, {0.19 * side, -0.145}, 0.010,
                       kHair, 0.85);
            paintCurve({0.062 * side, -0.065}, {0.12 * side, -0.01}, {0.178 * side, -0.07}, 0.0075,
                       kHair, 0.95);
        }
        paintCurve({0.012, -0.085}, {0.058, 0.06}, {-0.008, 0.058}, 0.007, colourFromHex(0x9c5a40),
                   0.55);
        paintCurve({-0.068, 0.150}, {0, 0.182}, {0.068, 0.147}, 0.014, colourFromHex(0xb14a48),
                   0.9);
    }

    /// A quadratic curve that thins out to both ends.
    void paintCurve(Point a, Point b, Point c, double halfWidth, const Colour& colour,
                    double opacity) {
        constexpr int kPieces = 16;
        const auto at = [&](int piece) {
            const double t = static_cast<double>(piece) / kPieces, u = 1 - t;
            return Point{u * u * a.x + 2 * u * t * b.x + t * t * c.x,
                         u * u * a.y + 2 * u * t * b.y + t * t * c.y};
        };
        const auto half = [&](int piece) {
            const double t = static_cast<double>(piece) / kPieces;
            return halfWidth * (0.25 + 3 * t * (1 - t));
        };
        for (int piece = 0; piece < kPieces; ++piece) {
            addToMask(at(piece), at(piece + 1), half(piece), half(piece + 1));
        }
        paintMask(colour, opacity);
    }

    /// Strands from the parting to the shoulders on both sides. `inner` and `outer` say how far
    /// from the face they hang (0 next to it, 1 at the outside of the hair, more for loose ones).
    void paintHair(int count, double inner, double outer, double halfWidth, double opacity) {
        for (int strand = 0; strand < count; ++strand) {
            // Multiples of irrational numbers spread evenly without looking regular.
            const double a = fraction(strand * 0.6180339887498949);
            const double b = fraction(strand * 0.7548776662466927 + 0.5);
            const double c = fraction(strand * 0.5698402909980532 + 0.25);
            const double side = (strand & 1) ? 1 : -1;
            paintStrand(side, inner + (outer - inner) * a, b, c, halfWidth, opacity);
        }
    }

    void paintStrand(double side, double depth, double b, double c, double halfWidth,
                     double opacity) {
        // Strands in front of the face fall from the parting to the temples and stay clear of it.
        const double outside = std::max(depth, 0.0), fringe = std::max(-depth, 0.0);
        const double loose = std::max(depth - 0.9, 0.0);
        const Point p0{0.06 + side * 0.03 * b, -0.51 + 0.03 * (1 - outside) * c};
        const Point p1{side * (0.25 + 0.13 * depth + 0.16 * loose * (b - 0.5)),
                       -0.65 - 0.06 * outside + 0.09 * fringe + 0.06 * b - 0.12 * loose * c};
        const Point p2{side * (0.31 + 0.17 * outside + 0.22 * loose * (c - 0.5)),
                       -0.04 + 0.10 * c - 0.24 * fringe};
        const Point p3{side * (0.29 + 0.17 * outside * (0.4 + 0.9 * b)),
                       0.44 + 0.26 * c - 0.12 * fringe};
        constexpr int kPieces = 28;
        const auto at = [&](int piece) {
            const double t = static_cast<double>(piece) / kPieces, u = 1 - t;
            const double w0 = u * u * u, w1 = 3 * u * u * t, w2 = 3 * u * t * t, w3 = t * t * t;
            const double curl = (0.024 + 0.03 * loose) * t *
                                sineOfTurns((1.5 + 0.6 * loose) * t + 0.15 * depth + 0.3 * b);
            return Point{w0 * p0.x + w1 * p1.x + w2 * p2.x + w3 * p3.x + side * curl,
                         w0 * p0.y + w1 * p1.y + w2 * p2.y + w3 * p3.y};
        };
        const auto half = [&](int piece) {
            const double t = static_cast<double>(piece) / kPieces;
            return halfWidth * (0.45 + 0.8 * t) * (1 - t * t * t);
        };
        for (int piece = 0; piece < kPieces; ++piece) {
            const Point from = at(piece), to = at(piece + 1);
            if (length(from.x, from.y) > 0.99 || length(to.x, to.y) > 0.99) continue;
            addToMask(from, to, half(piece), half(piece + 1));
        }
        const double shine = (side < 0 ? 0.55 : 0.3) * c * c + 0.12 * b;
        paintMask(mix(kHair, kHairLight, shine), opacity);
    }

    Canvas& canvas_;
    Point centre_;
    double radius_;
    int maskLeft_, maskTop_;
    StrokeMask strands_; ///< the size of the disc
};

} // namespace

void paintGreenScreen(Canvas& canvas, Point centre, double radius) {
    Portrait(canvas, centre, radius).paint();
}

} // namespace vorn::testcard
