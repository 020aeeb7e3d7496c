// The built-in moving test card: colour bars, ramps, a hue field, fine detail, skin, a green screen
// with loose hair, orientation marks and a running counter in one picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorn {

/// One size of the moving test card. The still part is painted once, by the constructor; a frame
/// then costs a copy and a few small shapes. Pixels depend on nothing but the arguments.
class TestCard {
public:
    /// The largest width and height.
    static constexpr int kLargestSide = 16384;

    /// Sizes from 1 to `kLargestSide` pixels each way; keeps four bytes for each pixel.
    /// Throws std::invalid_argument for other sizes and std::bad_alloc without memory.
    TestCard(int width, int height);
    ~TestCard();
    TestCard(TestCard&&) noexcept;
    TestCard& operator=(TestCard&&) noexcept;

    int width() const;
    int height() const;

    /// Writes the frame at `seconds` as 8-bit RGBA, alpha 255, top row first. `rowBytes` is the
    /// distance of two rows; bytes between the rows are left alone. The counter shows `seconds` as
    /// HH:MM:SS:FF, where FF counts the frames since the last whole second at `framesPerSecond`
    /// (hours start again after 99), and `frame` below it; times and rates that are not finite
    /// numbers, and rates not above 0, count as 0. May be called by several threads at a time.
    /// Throws std::invalid_argument where `rgba` is null or `rowBytes` less than four times the
    /// width; nothing is written then.
    void draw(std::uint8_t* rgba, std::size_t rowBytes, double seconds, std::int64_t frame,
              double framesPerSecond) const;

private:
    struct State;
    std::unique_ptr<const State> state_;
};

} // namespace vorn
