#include "testcard/canvas.h"
#include "testcard/layout.h"
#include "testcard/testcard.h"
#include "testcard/timecode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace vorn {
namespace {

struct Size {
    int width, height;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.width << "x" << size.height;
}

struct Pixel {
    int red, green, blue, alpha;
    bool operator==(const Pixel&) const = default;
};

void PrintTo(const Pixel& p, std::ostream* out) {
    *out << "(" << p.red << ", " << p.green << ", " << p.blue << ", " << p.alpha << ")";
}

class Frame {
public:
    Frame(const TestCard& card, double seconds, std::int64_t frame = 0, double rate = 25)
        : width_(card.width()), bytes_(std::size_t(card.width()) * card.height() * 4) {
        card.draw(bytes_.data(), std::size_t(width_) * 4, seconds, frame, rate);
    }

    Pixel at(double x, double y) const {
        const std::uint8_t* p =
            &bytes_[(static_cast<std::size_t>(y) * width_ + static_cast<std::size_t>(x)) * 4];
        return {p[0], p[1], p[2], p[3]};
    }

    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

    std::size_t pixelsThatDifferFrom(const Frame& other) const {
        std::size_t count = 0;
        for (std::size_t i = 0; i < bytes_.size(); i += 4) {
            count += std::memcmp(&bytes_[i], &other.bytes_[i], 4) != 0;
        }
        return count;
    }

private:
    int width_;
    std::vector<std::uint8_t> bytes_;
};

bool isKeyedGreen(const Pixel& p) {
    return p.green - std::max(p.red, p.blue) > 60;
}

class EverySize : public testing::TestWithParam<Size> {};

// The buffer ends with the last row's pixels, so an address sanitizer sees one byte too many.
TEST_P(EverySize, WritesEveryPixelOpaqueAndNothingElse) {
    const auto [width, height] = GetParam();
    constexpr std::size_t kGuard = 64, kPadding = 12;
    constexpr std::uint8_t kMark = 0x5a;
    const std::size_t rowBytes = std::size_t(width) * 4 + kPadding;
    std::vector<std::uint8_t> memory(kGuard + rowBytes * height - kPadding, kMark);
    TestCard(width, height).draw(memory.data() + kGuard, rowBytes, 2.3, 69, 30);

    for (std::size_t i = 0; i < kGuard; ++i) ASSERT_EQ(memory[i], kMark) << "before the frame";
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* row = memory.data() + kGuard + rowBytes * y;
        for (int x = 0; x < width; ++x) ASSERT_EQ(row[x * 4 + 3], 255) << x << ", " << y;
        if (y + 1 == height) break;
        for (std::size_t i = rowBytes - kPadding; i < rowBytes; ++i) {
            ASSERT_EQ(row[i], kMark) << "padding of row " << y;
        }
    }
}

TEST_P(EverySize, TwoCardsPaintTheSameBytes) {
    const auto [width, height] = GetParam();
    const TestCard card(width, height);
    const Frame first(card, 7.25, 181);
    Frame(card, 100, 2500);
    EXPECT_EQ(first.bytes(), Frame(card, 7.25, 181).bytes()) << "after another frame";
    EXPECT_EQ(first.bytes(), Frame(TestCard(width, height), 7.25, 181).bytes());
}

TEST_P(EverySize, OnlyTheMovingPartsChange) {
    const auto [width, height] = GetParam();
    const TestCard card(width, height);
    const std::size_t pixels = std::size_t(width) * height;
    const std::size_t changed = Frame(card, 0).pixelsThatDifferFrom(Frame(card, 1.55, 39));
    EXPECT_LT(changed, pixels / 6 + 1);
    if (std::min(width, height) >= 8) {
        const std::size_t shorter = std::size_t(std::min(width, height));
        EXPECT_GT(changed, shorter * shorter / 100);
    }
}

TEST_P(EverySize, SurvivesTimesThatMakeNoSense) {
    const auto [width, height] = GetParam();
    const TestCard card(width, height);
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kLargest = std::numeric_limits<double>::max();
    const double nan = std::nan("");
    for (const double seconds : {nan, kInfinity, -kInfinity, kLargest, -kLargest, -0.5}) {
        for (const double rate : {nan, kInfinity, 0.0, -25.0, kLargest, 1e-300}) {
            const Frame frame(card, seconds, std::numeric_limits<std::int64_t>::min(), rate);
            ASSERT_EQ(frame.at(width - 1, height - 1).alpha, 255);
        }
    }
    EXPECT_EQ(Frame(card, nan, 3).bytes(), Frame(card, 0, 3).bytes());
}

INSTANTIATE_TEST_SUITE_P(Sizes, EverySize,
                         testing::Values(Size{1, 1}, Size{7, 3}, Size{1, 40}, Size{63, 200},
                                         Size{64, 64}, Size{64, 36}, Size{200, 200}, Size{2000, 64},
                                         Size{64, 1500}, Size{540, 960}, Size{961, 541}));

TEST(TestCard, WritesOnlyItsPixelsAtFullVideoSizes) {
    for (const Size size : {Size{1080, 1920}, Size{1921, 1081}}) {
        const std::size_t rowBytes = std::size_t(size.width) * 4;
        std::vector<std::uint8_t> memory(rowBytes * size.height + 16, 0x5a);
        TestCard(size.width, size.height).draw(memory.data() + 8, rowBytes, 5.9, 177, 30);
        for (std::size_t i = 0; i < 8; ++i) {
            ASSERT_EQ(memory[i], 0x5a);
            ASSERT_EQ(memory[memory.size() - 1 - i], 0x5a);
        }
        for (std::size_t i = 11; i < memory.size() - 8; i += 4) ASSERT_EQ(memory[i], 255);
    }
}

TEST(TestCard, RefusesImpossibleSizesAndBuffers) {
    for (const Size size : {Size{0, 5}, Size{5, 0}, Size{-1, 5}, Size{16385, 1}, Size{1, 16385}}) {
        EXPECT_THROW(TestCard(size.width, size.height), std::invalid_argument)
            << size.width << "x" << size.height;
    }
    const TestCard card(10, 2);
    std::vector<std::uint8_t> memory(80, 7);
    EXPECT_THROW(card.draw(nullptr, 40, 0, 0, 25), std::invalid_argument);
    EXPECT_THROW(card.draw(memory.data(), 39, 0, 0, 25), std::invalid_argument);
    EXPECT_EQ(memory, std::vector<std::uint8_t>(80, 7));
}

TEST(TestCard, PaintsTheLongestSides) {
    for (const Size size : {Size{16384, 2}, Size{2, 16384}, Size{16384, 70}, Size{70, 16384}}) {
        const Frame frame(TestCard(size.width, size.height), 1);
        EXPECT_EQ(frame.at(size.width - 1, size.height - 1).alpha, 255);
    }
}

TEST(TestCard, CornersTellMirroredAndTurnedPicturesApart) {
    for (const Size size : {Size{1920, 1080}, Size{540, 960}, Size{300, 300}, Size{64, 36}}) {
        const Frame frame(TestCard(size.width, size.height), 1);
        const double inset = std::max(0.0, std::min(size.width, size.height) / 9.0 * 0.18);
        const double right = size.width - 1 - inset, bottom = size.height - 1 - inset;
        EXPECT_EQ(frame.at(inset, inset), (Pixel{255, 59, 59, 255}));
        EXPECT_EQ(frame.at(right, inset), (Pixel{53, 212, 97, 255}));
        EXPECT_EQ(frame.at(inset, bottom), (Pixel{61, 123, 255, 255}));
        EXPECT_EQ(frame.at(right, bottom), (Pixel{255, 210, 61, 255}));
    }
}

TEST(TestCard, TheScreenKeysAsGreenAndTheSitterDoesNot) {
    for (const Size size : {Size{1920, 1080}, Size{1080, 1920}, Size{480, 270}, Size{200, 200}}) {
        const Frame frame(TestCard(size.width, size.height), 1);
        const testcard::Layout layout = testcard::layOut(size.width, size.height);
        const double radius = layout.greenRadius();
        const auto onDisc = [&](double x, double y) {
            return frame.at(layout.ringCentre.x + x * radius, layout.ringCentre.y + y * radius);
        };
        for (int step = 0; step < 20; ++step) {
            const double angle = (step / 19.0 - 1) * 3.14159;
            EXPECT_TRUE(isKeyedGreen(onDisc(0.92 * std::cos(angle), 0.92 * std::sin(angle))));
        }
        for (const auto& [x, y] : {std::pair{0.0, -0.28}, {0.0, 0.35}, {0.0, 0.85}, {0.3, 0.2}}) {
            EXPECT_FALSE(isKeyedGreen(onDisc(x, y))) << x << ", " << y;
        }
        int edges = 0;
        for (double x = -0.9; x < 0.9; x += 1 / radius) {
            edges += isKeyedGreen(onDisc(x, 0.1)) != isKeyedGreen(onDisc(x + 1 / radius, 0.1));
        }
        if (radius > 200) {
            EXPECT_GT(edges, 10) << "no loose hair before the screen";
        }
    }
}

TEST(TestCard, TheRampRunsFromBlackToWhiteInOrder) {
    const Frame frame(TestCard(1280, 720), 0);
    const testcard::Rectangle ramps = testcard::layOut(1280, 720).ramps;
    const double y = ramps.top + ramps.height * 0.2;
    EXPECT_EQ(frame.at(ramps.left, y), (Pixel{0, 0, 0, 255}));
    EXPECT_EQ(frame.at(ramps.right() - 1, y), (Pixel{255, 255, 255, 255}));
    for (double x = ramps.left + 1; x < ramps.right(); ++x) {
        const Pixel before = frame.at(x - 1, y), here = frame.at(x, y);
        ASSERT_GE(here.red, before.red);
        ASSERT_LE(here.red, before.red + 2);
        ASSERT_TRUE(here.red == here.green && here.green == here.blue);
    }
}

TEST(TestCard, TheFinestCheckerChangesWithEveryPixel) {
    const Frame frame(TestCard(1920, 1080), 0);
    const testcard::Rectangle panel = testcard::layOut(1920, 1080).gratings;
    for (double y = panel.bottom() - 60; y < panel.bottom() - 40; ++y) {
        for (double x = panel.right() - 60; x < panel.right() - 20; ++x) {
            const int here = frame.at(x, y).red;
            ASSERT_TRUE(here == 0 || here == 255);
            ASSERT_EQ(frame.at(x + 1, y).red, 255 - here);
            ASSERT_EQ(frame.at(x, y + 1).red, 255 - here);
        }
    }
}

TEST(TestCard, PanelsLieApartInsideTheFrame) {
    for (const Size size :
         {Size{64, 64}, Size{3840, 1080}, Size{1920, 1080}, Size{1024, 768}, Size{1000, 1000},
          Size{1080, 1350}, Size{768, 1024}, Size{1080, 1920}, Size{64, 2000}, Size{2000, 64}}) {
        const testcard::Layout layout = testcard::layOut(size.width, size.height);
        const double ring = layout.ringRadius;
        const testcard::Rectangle panels[] = {
            layout.bars,
            layout.hues,
            layout.ramps,
            layout.zonePlate,
            layout.star,
            layout.gratings,
            layout.skin,
            layout.counter,
            layout.arrow,
            {layout.ringCentre.x - ring, layout.ringCentre.y - ring, 2 * ring, 2 * ring}};
        for (const testcard::Rectangle& a : panels) {
            EXPECT_TRUE(a.left >= 0 && a.top >= 0 && a.right() <= size.width &&
                        a.bottom() <= size.height && a.width > 1 && a.height > 1)
                << size.width << "x" << size.height << ", panel " << &a - panels;
            for (const testcard::Rectangle& b : panels) {
                // The ring is not rounded to whole pixels, its neighbours are.
                const bool apart = a.right() <= b.left + 1 || b.right() <= a.left + 1 ||
                                   a.bottom() <= b.top + 1 || b.bottom() <= a.top + 1;
                EXPECT_TRUE(&a == &b || apart) << size.width << "x" << size.height << ", panels "
                                               << &a - panels << " and " << &b - panels;
            }
        }
    }
}

TEST(Timecode, CountsHoursMinutesSecondsAndFrames) {
    const struct {
        double seconds, rate;
        const char* text;
    } cases[] = {
        {0, 25, "00:00:00:00"},
        {12.28, 25, "00:00:12:07"},
        {3723.96, 25, "01:02:03:24"},
        {30 * 1001 / 30000.0, 30000 / 1001.0, "00:00:01:00"},
        {29 * 1001 / 30000.0, 30000 / 1001.0, "00:00:00:29"},
        {-1.5, 24, "-00:00:01:12"},
        {359999.5, 10, "99:59:59:05"},
        {360001, 10, "00:00:01:00"},
        {0.5, 240, "00:00:00:120"},
        {5, 0, "00:00:05:00"},
        {std::nan(""), 25, "00:00:00:00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(testcard::timecode(c.seconds, c.rate), c.text) << c.seconds << " at " << c.rate;
    }
    for (int frame = 0; frame < 3000; ++frame) {
        const std::string text = testcard::timecode(frame / 24.0, 24);
        ASSERT_EQ(std::stoi(text.substr(6, 2)), frame / 24 % 60) << frame;
        ASSERT_EQ(std::stoi(text.substr(9)), frame % 24) << frame;
    }
}

TEST(TestCard, SineOfTurnsIsExactEnoughForPixels) {
    for (double turns = -3; turns < 3; turns += 0.001) {
        // The series is cut at the 13th power: at a quarter turn that leaves 6e-8.
        ASSERT_NEAR(testcard::sineOfTurns(turns), std::sin(turns * 6.283185307179586), 1e-7);
    }
}

} // namespace
} // namespace vorn
