#include "testcard.h"

#include "digits.h"
#include "greenscreen.h"
#include "layout.h"
#include "patterns.h"
#include "timecode.h"

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorn {

using namespace testcard;

namespace {

constexpr double kOrbitSeconds = 6;
constexpr double kCounterOrbitSeconds = 9;
constexpr double kHandSeconds = 1;
constexpr double kBarSeconds = 4;

/// The sizes within the counter panel, chosen so that the longest timecode fits.
struct CounterSizes {
    double pad, dialRadius, timecodeHeight, frameHeight;

    explicit CounterSizes(const Rectangle& panel) {
        pad = panel.height * 0.16;
        dialRadius = std::min(panel.height / 2 - pad, panel.width * 0.1);
        const double room = panel.width - 3.5 * pad - 2 * dialRadius;
        timecodeHeight =
            std::min(panel.height * 0.44, room / Numerals::widthOf("-00:00:00:000", 1));
        // Seven pixels are the least that digits need.
        frameHeight = std::max(timecodeHeight * 0.44, std::min(7.0, timecodeHeight * 0.8));
    }
};

void paintShadedBall(Canvas& canvas, Point centre, double radius, const Colour& colour) {
    canvas.fill(
        squareAround(centre, radius), [&](Point p) { return distanceToCircle(p, centre, radius); },
        [&](Point p) {
            const double x = (p.x - centre.x) / radius, y = (p.y - centre.y) / radius;
            const double light = smoothStep(1.5, 0.0, length(x + 0.4, y + 0.45));
            const Colour body = mix(mix(colour, grey(0), 0.45), colour, light);
            return mix(body, grey(1), 0.75 * smoothStep(0.45, 0.0, length(x + 0.35, y + 0.4)));
        });
}

/// A ball on a circle with a tail that fades out behind it. `direction` is 1 or -1.
void paintComet(Canvas& canvas, Point centre, double orbit, double turns, double direction,
                double radius, const Colour& colour) {
    constexpr int kTail = 80;
    for (int piece = kTail; piece > 0; --piece) {
        const double age = static_cast<double>(piece) / kTail;
        canvas.fillCircle(onCircle(centre, orbit, turns - direction * age * 0.13),
                          radius * (1 - 0.75 * age), colour, 0.09 * (1 - age));
    }
    paintShadedBall(canvas, onCircle(centre, orbit, turns), radius, colour);
}

/// The distance to a sector of a full disc from the top clockwise by up to half a turn, around the
/// origin.
double distanceToSector(Point p, double turns) {
    const double fromTop = -p.x;
    const double fromHand = p.x * cosineOfTurns(turns) + p.y * sineOfTurns(turns);
    // A narrow sector must not appear on the other side of the centre.
    const double behind = p.y * cosineOfTurns(turns / 2) - p.x * sineOfTurns(turns / 2);
    return std::max({fromTop, fromHand, behind});
}

/// A dial whose hand goes round once a second, with the passed part of the second lit up.
void paintDial(Canvas& canvas, Point centre, double radius, double turns) {
    const double passed = fraction(turns);
    canvas.fillCircle(centre, radius, colourFromHex(0x20252e));
    canvas.fill(
        squareAround(centre, radius),
        [&](Point p) {
            const double x = p.x - centre.x, y = p.y - centre.y;
            const double sector = passed <= 0.5 ? distanceToSector({x, y}, passed)
                                                : -distanceToSector({-x, y}, 1 - passed);
            return std::max(distanceToCircle(p, centre, radius), sector);
        },
        kAccent, 0.38);
    canvas.strokeLine(centre, onCircle(centre, radius * 0.94, passed), std::max(1.0, radius * 0.10),
                      kInk);
    canvas.fillCircle(centre, std::max(1.0, radius * 0.13), kInk);
}

void paintMovingBar(Canvas& canvas, const Rectangle& track, double turns) {
    const double there = fraction(turns) * 2, along = there < 1 ? there : 2 - there;
    const double width = std::min(track.width, std::max(2.0, track.height * 1.6));
    const Rectangle bar{track.left + along * (track.width - width), track.top, width, track.height};
    canvas.fillPanel(bar, std::min(width, track.height) * 0.25, [](Point) { return kAccent; });
}

} // namespace

struct TestCard::State {
    int width, height;
    std::size_t rowBytes;
    std::vector<std::uint8_t> background;
    std::optional<Layout> layout; ///< none for frames too small for it
    std::optional<Numerals> timecodeNumerals, frameNumerals;

    State(int cardWidth, int cardHeight)
        : width(cardWidth), height(cardHeight), rowBytes(static_cast<std::size_t>(cardWidth) * 4),
          background(rowBytes * static_cast<std::size_t>(cardHeight)) {
        Canvas canvas(background.data(), rowBytes, width, height);
        if (std::min(width, height) < kSmallestLaidOutSide) {
            paintPlainCard(canvas);
            return;
        }
        layout = layOut(width, height);
        paintBackdrop(canvas, *layout);
        paintColourBars(canvas, *layout);
        paintHueField(canvas, *layout);
        paintRamps(canvas, *layout);
        paintZonePlate(canvas, *layout);
        paintSiemensStar(canvas, *layout);
        paintGratings(canvas, *layout);
        paintSkinBalls(canvas, *layout);
        paintRingAndArrow(canvas, *layout);
        paintGreenScreen(canvas, layout->ringCentre, layout->greenRadius());
        canvas.fillPanel(layout->counter, layout->unit * 0.1, [](Point) { return kPanel; });
        const CounterSizes sizes(layout->counter);
        timecodeNumerals.emplace(sizes.timecodeHeight);
        frameNumerals.emplace(sizes.frameHeight);
    }

    void paintMovingParts(Canvas& canvas, double seconds, std::int64_t frame,
                          double framesPerSecond) const {
        if (!layout) {
            const double shorter = std::min(width, height);
            if (shorter < 8) return;
            const Point centre{width / 2.0, height / 2.0};
            paintShadedBall(canvas, onCircle(centre, shorter * 0.36, seconds / kOrbitSeconds),
                            std::max(1.5, shorter * 0.09), kAccent);
            return;
        }
        paintMovingBar(canvas, motionTrack(*layout), seconds / kBarSeconds);
        const double ball = layout->ringRadius * 0.068;
        paintComet(canvas, layout->ringCentre, layout->orbitRadius(),
                   0.5 - seconds / kCounterOrbitSeconds, -1, ball * 0.7, kSecondAccent);
        paintComet(canvas, layout->ringCentre, layout->orbitRadius(), seconds / kOrbitSeconds, 1,
                   ball, kAccent);

        paintCounter(canvas, seconds, frame, framesPerSecond);
    }

    /// The dial with the timecode and the frame number beside it, centred in their panel.
    void paintCounter(Canvas& canvas, double seconds, std::int64_t frame,
                      double framesPerSecond) const {
        const Rectangle& panel = layout->counter;
        const CounterSizes sizes(panel);
        const std::string time = timecode(seconds, framesPerSecond);
        const double gap = sizes.pad * 1.5;
        const double width =
            2 * sizes.dialRadius + gap + Numerals::widthOf(time, sizes.timecodeHeight);
        const double lineGap = sizes.timecodeHeight * 0.30;
        const double height = sizes.timecodeHeight + lineGap + sizes.frameHeight;
        const Point middle = panel.centre();
        const double left = middle.x - width / 2, top = middle.y - height / 2;

        paintDial(canvas, {left + sizes.dialRadius, middle.y}, sizes.dialRadius,
                  seconds / kHandSeconds);
        const double textLeft = left + 2 * sizes.dialRadius + gap;
        timecodeNumerals->draw(canvas, time, {textLeft, top}, kInk);
        frameNumerals->draw(canvas, "F " + std::to_string(frame),
                            {textLeft, top + sizes.timecodeHeight + lineGap}, kAccent);
    }
};

TestCard::TestCard(int width, int height) {
    if (width < 1 || height < 1 || width > kLargestSide || height > kLargestSide) {
        throw std::invalid_argument("test card of " + std::to_string(width) + "x" +
                                    std::to_string(height) + " pixels: each side must be 1 to " +
                                    std::to_string(kLargestSide));
    }
    state_ = std::make_unique<const State>(width, height);
}

TestCard::~TestCard() = default;
TestCard::TestCard(TestCard&&) noexcept = default;
TestCard& TestCard::operator=(TestCard&&) noexcept = default;

int TestCard::width() const {
    return state_->width;
}
int TestCard::height() const {
    return state_->height;
}

void TestCard::draw(std::uint8_t* rgba, std::size_t rowBytes, double seconds, std::int64_t frame,
                    double framesPerSecond) const {
    if (!rgba || rowBytes < state_->rowBytes) {
        throw std::invalid_argument("test card: " + std::to_string(rowBytes) + " bytes a row for " +
                                    std::to_string(width()) + " pixels" +
                                    (rgba ? "" : ", and no memory"));
    }
    for (int y = 0; y < height(); ++y) {
        const std::size_t row = static_cast<std::size_t>(y);
        std::memcpy(rgba + row * rowBytes, state_->background.data() + row * state_->rowBytes,
                    state_->rowBytes);
    }
    Canvas canvas(rgba, rowBytes, width(), height());
    state_->paintMovingParts(canvas, std::isfinite(seconds) ? seconds : 0, frame, framesPerSecond);
}

} // namespace vorn
