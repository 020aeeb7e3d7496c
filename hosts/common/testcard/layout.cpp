#include "layout.h"

namespace vorn::testcard {

namespace {

constexpr double kMargin = 0.42;
constexpr double kGap = 0.16;

/// Cuts panels off a free area, everything in units.
class Cutter {
public:
    explicit Cutter(const Rectangle& free) : free_(free) {}

    double width() const { return free_.width; }
    double height() const { return free_.height; }
    const Rectangle& rest() const { return free_; }

    Rectangle top(double height) {
        const Rectangle panel{free_.left, free_.top, free_.width, height};
        free_.top += height + kGap;
        free_.height = std::max(0.0, free_.height - height - kGap);
        return panel;
    }

    Rectangle bottom(double height) {
        const Rectangle panel{free_.left, free_.bottom() - height, free_.width, height};
        free_.height = std::max(0.0, free_.height - height - kGap);
        return panel;
    }

    Rectangle left(double width) {
        const Rectangle panel{free_.left, free_.top, width, free_.height};
        free_.left += width + kGap;
        free_.width = std::max(0.0, free_.width - width - kGap);
        return panel;
    }

    Rectangle right(double width) {
        const Rectangle panel{free_.right() - width, free_.top, width, free_.height};
        free_.width = std::max(0.0, free_.width - width - kGap);
        return panel;
    }

private:
    Rectangle free_;
};

/// Cuts an area into two or more panels of equal width.
Rectangle equalColumn(const Rectangle& area, int column, int columns) {
    const double width = (area.width - kGap * (columns - 1)) / columns;
    return {area.left + column * (width + kGap), area.top, width, area.height};
}

/// The arrow above, the ring in the middle, the counter below.
void placeCentre(Layout& layout, Cutter area, double arrowHeight, double counterHeight) {
    layout.counter = area.bottom(counterHeight);
    layout.arrow = area.top(arrowHeight);
    layout.ringCentre = area.rest().centre();
    layout.ringRadius = std::min(area.width(), area.height()) / 2;
}

void placeWide(Layout& layout, const Rectangle& area) {
    const double frameWidth = area.width + 2 * kMargin;
    const double centreWidth = std::min(6.3, 0.405 * frameWidth);
    const double columnWidth = (area.width - centreWidth) / 2 - kGap;
    Cutter columns(area);
    Cutter left(columns.left(columnWidth));
    Cutter right(columns.right(columnWidth));

    layout.bars = left.top(2.75);
    layout.ramps = left.bottom(2.3);
    layout.hues = left.rest();

    const Rectangle detail = right.top(std::min(2.6, std::max(1.4, (columnWidth - kGap) / 2)));
    layout.zonePlate = equalColumn(detail, 0, 2);
    layout.star = equalColumn(detail, 1, 2);
    layout.skin = right.bottom(3.0);
    layout.gratings = right.rest();

    placeCentre(layout, columns, 0.62, 1.2);
}

void placeTall(Layout& layout, const Rectangle& area) {
    constexpr double kArrow = 0.55, kCounter = 1.35;
    Cutter rows(area);
    const double flexible = area.height - kArrow - kCounter - 6 * kGap;
    const double ring = std::min(7.0, 0.50 * flexible);
    const double shared = flexible - ring;

    layout.bars = rows.top(shared * 0.25);
    layout.ramps = rows.top(shared * 0.21);
    const Rectangle detail = rows.bottom(shared * 0.24);
    const Rectangle pictures = rows.bottom(shared * 0.30);
    layout.hues = equalColumn(pictures, 0, 2);
    layout.skin = equalColumn(pictures, 1, 2);
    layout.zonePlate = equalColumn(detail, 0, 3);
    layout.star = equalColumn(detail, 1, 3);
    layout.gratings = equalColumn(detail, 2, 3);
    placeCentre(layout, rows, kArrow, kCounter);
}

void placeSquare(Layout& layout, const Rectangle& area) {
    Cutter rows(area);
    const Rectangle top = rows.top(area.height * 0.22);
    layout.bars = equalColumn(top, 0, 2);
    layout.hues = equalColumn(top, 1, 2);
    layout.ramps = rows.bottom(area.height * 0.17);

    const double centreWidth = area.width * 0.46;
    const double columnWidth = (area.width - centreWidth) / 2 - kGap;
    Cutter columns(rows.rest());
    Cutter left(columns.left(columnWidth));
    Cutter right(columns.right(columnWidth));
    layout.zonePlate = left.top((left.height() - kGap) / 2);
    layout.star = left.rest();
    layout.gratings = right.top((right.height() - kGap) / 2);
    layout.skin = right.rest();
    placeCentre(layout, columns, 0.45, 0.95);
}

Rectangle toPixels(const Rectangle& inUnits, double unit) {
    const auto whole = [unit](double value) { return std::floor(value * unit + 0.5); };
    const double left = whole(inUnits.left), top = whole(inUnits.top);
    return {left, top, whole(inUnits.right()) - left, whole(inUnits.bottom()) - top};
}

} // namespace

Layout layOut(int width, int height) {
    Layout layout;
    layout.unit = std::min(width, height) / 9.0;
    const Rectangle area =
        Rectangle{0, 0, width / layout.unit, height / layout.unit}.inset(kMargin);
    const double aspect = static_cast<double>(width) / height;
    if (aspect > 1.27) {
        placeWide(layout, area);
    } else if (aspect > 0.82) {
        placeSquare(layout, area);
    } else {
        placeTall(layout, area);
    }
    for (Rectangle Layout::*panel :
         {&Layout::bars, &Layout::hues, &Layout::ramps, &Layout::zonePlate, &Layout::star,
          &Layout::gratings, &Layout::skin, &Layout::counter, &Layout::arrow}) {
        layout.*panel = toPixels(layout.*panel, layout.unit);
    }
    layout.ringCentre = {layout.ringCentre.x * layout.unit, layout.ringCentre.y * layout.unit};
    layout.ringRadius *= layout.unit;
    return layout;
}

} // namespace vorn::testcard
