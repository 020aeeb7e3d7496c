#include "patterns.h"

#include "greenscreen.h"

namespace vorn::testcard {

namespace {

constexpr Colour kCornerMarks[] = {colourFromHex(0xff3b3b), colourFromHex(0x35d461),
                                   colourFromHex(0x3d7bff), colourFromHex(0xffd23d)};

double cornerRadius(const Layout& layout) {
    return layout.unit * 0.1;
}

bool isOddCell(double x, double y) {
    return ((static_cast<int>(x) + static_cast<int>(y)) & 1) != 0;
}

/// The index of the cell that `position` lies in when `size` is cut into `count` equal cells.
int cellAt(double position, double size, int count) {
    return std::clamp(static_cast<int>(position / size * count), 0, count - 1);
}

} // namespace

Colour colourOfHue(double turns) {
    const double h = fraction(turns) * 6;
    return {clampUnit(std::fabs(h - 3) - 1), clampUnit(2 - std::fabs(h - 2)),
            clampUnit(2 - std::fabs(h - 4))};
}

Colour colourOfBar(int bar, double level) {
    const int bits = 7 - bar;
    return {(bits & 2) ? level : 0, (bits & 4) ? level : 0, (bits & 1) ? level : 0};
}

Colour litSkin(const Colour& skin, double normalX, double normalY, double normalZ) {
    const double facing = -0.48 * normalX - 0.56 * normalY + 0.675 * normalZ;
    // Light wraps around soft skin, and what reaches the shaded side has been reddened by it.
    const double light = smoothStep(-0.55, 1.05, facing);
    const Colour shade{skin.red * 0.40, skin.green * 0.27, skin.blue * 0.27};
    Colour lit = mix(shade, skin, light);
    double gleam = std::max(0.0, -0.27 * normalX - 0.31 * normalY + 0.912 * normalZ);
    for (int doubling = 0; doubling < 4; ++doubling) gleam *= gleam;
    lit = mix(lit, colourFromHex(0xfff4ea), 0.26 * gleam);
    const double rim = 1 - clampUnit(normalZ);
    const double back = clampUnit(0.8 * normalX + 0.4 * normalY) * rim * rim * rim;
    return mix(lit, colourFromHex(0x9db4d8), 0.22 * back);
}

void paintBackdrop(Canvas& canvas, const Layout& layout) {
    const double width = canvas.width(), height = canvas.height();
    const double unit = layout.unit, line = std::max(1.0, unit * 0.012);
    const Point middle{width / 2, height / 2};
    const auto toGridLine = [unit](double fromMiddle) {
        return std::fabs(fraction(fromMiddle / unit) - 0.5) * unit;
    };
    canvas.fill(
        {0, 0, width, height}, [](Point) { return -1.0; },
        [&](Point p) {
            const double distance =
                std::min(toGridLine(p.x - middle.x), toGridLine(p.y - middle.y)) - line / 2;
            return mix(kBackdrop, colourFromHex(0x39414f), coverageAt(distance));
        });

    const double inset = std::max(1.0, std::floor(unit * 0.11));
    const double thick = std::max(2.0, std::floor(unit * 0.13)), reach = std::floor(unit * 1.1);
    for (int corner = 0; corner < 4; ++corner) {
        const double x = (corner & 1) ? width - inset - reach : inset;
        const double y = (corner & 2) ? height - inset - reach : inset;
        const double edgeX = (corner & 1) ? width - inset - thick : inset;
        const double edgeY = (corner & 2) ? height - inset - thick : inset;
        const auto paint = [&](const Rectangle& r) {
            canvas.fillPanel(r, thick * 0.3, [&](Point) { return kCornerMarks[corner]; });
        };
        paint({x, edgeY, reach, thick});
        paint({edgeX, y, thick, reach});
    }
}

void paintColourBars(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.bars;
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const int bar = cellAt(p.x - panel.left, panel.width, 8);
        const bool upper = p.y < panel.top + panel.height * 0.68;
        return upper ? colourOfBar(bar, 0.75) : colourOfBar(7 - bar, 1.0);
    });
}

void paintHueField(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.hues;
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const double down = (p.y - panel.top) / panel.height;
        const Colour hue = colourOfHue((p.x - panel.left) / panel.width);
        return down < 0.5 ? mix(grey(1), hue, down * 2) : mix(hue, grey(0), down * 2 - 1);
    });
}

void paintRamps(Canvas& canvas, const Layout& layout) {
    const Rectangle panel = layout.ramps.rows(0, 0.80);
    constexpr Colour kPrimaries[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        // Half a pixel off both ends makes the first pixel exactly black and the last white.
        const double across = clampUnit((p.x - panel.left - 0.5) / std::max(1.0, panel.width - 1));
        const double down = (p.y - panel.top) / panel.height;
        if (down < 0.36) return grey(across);
        if (down < 0.68) return grey(cellAt(p.x - panel.left, panel.width, 11) / 10.0);
        return mix(grey(0), kPrimaries[cellAt(down - 0.68, 0.32, 3)], across);
    });
    canvas.fillPanel(motionTrack(layout), cornerRadius(layout), [](Point) { return kPanel; });
}

Rectangle motionTrack(const Layout& layout) {
    return layout.ramps.rows(0.86, 1);
}

void paintZonePlate(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.zonePlate;
    const Point centre = panel.centre();
    const double radius = std::min(panel.width, panel.height) / 2;
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const double x = p.x - centre.x, y = p.y - centre.y, squared = x * x + y * y;
        // The frequency rises with the radius and meets the pixel grid's limit at the rim.
        const double wave = cosineOfTurns(squared / (4 * radius));
        const double amount = 1 - smoothStep(0.9, 1.0, std::sqrt(squared) / radius);
        return grey(0.5 + 0.5 * wave * amount);
    });
}

void paintSiemensStar(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.star;
    const Point centre = panel.centre();
    const double radius = std::min(panel.width, panel.height) * 0.46;
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const double x = p.x - centre.x, y = p.y - centre.y, r = length(x, y);
        // (cos a, sin a) squared as a complex number five times gives the sine of 32 a.
        double real = r > 0 ? x / r : 1, imaginary = r > 0 ? y / r : 0;
        for (int doubling = 0; doubling < 5; ++doubling) {
            const double square = real * real - imaginary * imaginary;
            imaginary = 2 * real * imaginary;
            real = square;
        }
        const double spoke = clampUnit(0.5 + imaginary * r / 32);
        const double disc = coverageAt(r - radius);
        return mix(grey(0.93), mix(grey(0.93), grey(0.04), spoke), disc);
    });
}

void paintGratings(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.gratings;
    constexpr int kPeriods[] = {16, 12, 8, 6, 4, 2};
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const double x = std::floor(p.x - panel.left), y = std::floor(p.y - panel.top);
        const double rowHeight = std::floor(panel.height / 3);
        const int block = cellAt(x, panel.width, static_cast<int>(std::size(kPeriods)));
        const int halfPeriod = kPeriods[block] / 2;
        const bool isChecker = y >= 2 * rowHeight;
        const double across = isChecker || y < rowHeight ? x / halfPeriod : 0;
        const double down = y >= rowHeight ? y / halfPeriod : 0;
        return grey(isOddCell(across, down) ? 0 : 1);
    });
}

void paintSkinBalls(Canvas& canvas, const Layout& layout) {
    const Rectangle& panel = layout.skin;
    constexpr Colour kSkins[] = {colourFromHex(0xf6d7c3), colourFromHex(0xe3b08c),
                                 colourFromHex(0xc98e66), colourFromHex(0xa56a43),
                                 colourFromHex(0x754629), colourFromHex(0x4a2c1d)};
    canvas.fillPanel(panel, cornerRadius(layout), [&](Point p) {
        const double down = (p.y - panel.top) / panel.height;
        return mix(colourFromHex(0xd9d0c6), colourFromHex(0xa9998a), smoothStep(0, 1, down));
    });
    const int columns = panel.width > panel.height * 4     ? 6
                        : panel.width > panel.height * 0.9 ? 3
                                                           : 2;
    const int rows = 6 / columns;
    const double cellWidth = panel.width / columns, cellHeight = panel.height / rows;
    const double radius = std::min(cellWidth, cellHeight) * 0.38;
    for (int ball = 0; ball < 6; ++ball) {
        const Point centre{panel.left + cellWidth * (ball % columns + 0.5),
                           panel.top + cellHeight * (ball / columns + 0.48)};
        const Point foot{centre.x + radius * 0.18, centre.y + radius * 0.9};
        const Rectangle shadow{foot.x - radius * 1.2, foot.y - radius * 0.4, radius * 2.4,
                               std::min(radius * 0.8, panel.bottom() - foot.y + radius * 0.4)};
        canvas.fill(
            shadow,
            [&](Point p) {
                const double x = (p.x - foot.x) / (radius * 1.15);
                const double y = (p.y - foot.y) / (radius * 0.36);
                return smoothStep(0, 1, length(x, y)) - 0.5;
            },
            colourFromHex(0x4a3b30), 0.55);
        canvas.fill(
            squareAround(centre, radius),
            [&](Point p) { return distanceToCircle(p, centre, radius); },
            [&](Point p) {
                const double x = (p.x - centre.x) / radius, y = (p.y - centre.y) / radius;
                return litSkin(kSkins[ball], x, y, std::sqrt(std::max(0.0, 1 - x * x - y * y)));
            });
    }
}

void paintRingAndArrow(Canvas& canvas, const Layout& layout) {
    const double radius = layout.ringRadius;
    const Point centre = layout.ringCentre;
    canvas.fillCircle(centre, radius * 1.005, kBackdrop);
    for (int tick = 0; tick < 60; ++tick) {
        const bool major = tick % 5 == 0;
        const double turns = tick / 60.0;
        canvas.strokeLine(onCircle(centre, radius * (major ? 0.965 : 0.978), turns),
                          onCircle(centre, radius * 0.995, turns),
                          std::max(1.0, radius * (major ? 0.014 : 0.006)),
                          major ? kInk : kQuietInk);
    }
    canvas.strokeCircle(centre, layout.orbitRadius(), std::max(1.0, radius * 0.005),
                        colourFromHex(0x4a5466));
    canvas.strokeCircle(centre, layout.greenRadius() + radius * 0.018,
                        std::max(1.0, radius * 0.014), kInk);

    const Rectangle& arrow = layout.arrow;
    const Point foot = arrow.centre();
    const double height = arrow.height, half = height * 0.62;
    const Point tip{foot.x, arrow.top};
    canvas.fill(
        {foot.x - half, arrow.top, 2 * half, height},
        [&](Point p) {
            return distanceToTriangle(p, tip, {foot.x + half, arrow.top + height},
                                      {foot.x - half, arrow.top + height});
        },
        kInk);
}

void paintPlainCard(Canvas& canvas) {
    const double width = canvas.width(), height = canvas.height();
    const double shorter = std::min(width, height);
    const double barsEnd = std::ceil(height * 0.4);
    const double rampStart = height - std::floor(height * 0.2);
    canvas.fill(
        {0, 0, width, height}, [](Point) { return -1.0; },
        [&](Point p) {
            const double across = (p.x - 0.5) / std::max(1.0, width - 1);
            if (p.y < barsEnd) return colourOfBar(cellAt(p.x, width, 8), 0.75);
            if (p.y > rampStart) return grey(across);
            if (shorter >= 16 && p.x > width * 0.75) return grey(isOddCell(p.x, p.y) ? 1 : 0);
            const double down = (p.y - barsEnd) / std::max(1.0, rampStart - barsEnd);
            return mix(grey(1), colourOfHue(p.x / (width * 0.75)), down);
        });

    const Point centre{width / 2, height / 2};
    const double radius = shorter * 0.3;
    if (shorter >= 16) {
        canvas.fillCircle(centre, radius, kGreen);
        const double ball = radius * 0.5;
        canvas.fill(
            squareAround(centre, ball), [&](Point p) { return distanceToCircle(p, centre, ball); },
            [&](Point p) {
                const double x = (p.x - centre.x) / ball, y = (p.y - centre.y) / ball;
                return litSkin(colourFromHex(0xe3b08c), x, y,
                               std::sqrt(std::max(0.0, 1 - x * x - y * y)));
            });
        const double half = shorter * 0.07;
        canvas.fill(
            squareAround({centre.x, half + 1}, half),
            [&](Point p) {
                return distanceToTriangle(p, {centre.x, 1}, {centre.x + half, 1 + 2 * half},
                                          {centre.x - half, 1 + 2 * half});
            },
            kBackdrop);
    }
    if (shorter >= 3) {
        const double side = std::max(1.0, std::floor(shorter / 8));
        for (int corner = 0; corner < 4; ++corner) {
            const double x = (corner & 1) ? width - side : 0;
            const double y = (corner & 2) ? height - side : 0;
            canvas.fillPanel({x, y, side, side}, 0, [&](Point) { return kCornerMarks[corner]; });
        }
    }
}

} // namespace vorn::testcard
