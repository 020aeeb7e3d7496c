// Value types shared by the reader and the writer. No FFmpeg type appears in the public headers.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorn::media {

/// A file that cannot be read. The message names the file and the reason.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file that cannot be written. The message names the file and the reason.
class WriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An exact fraction, such as a frame rate (30000/1001 per second) or a time base (1/90000 s).
struct Rational {
    int numerator = 0;
    int denominator = 1;

    double value() const { return denominator == 0 ? 0.0 : double(numerator) / denominator; }
    bool isPositive() const { return numerator > 0 && denominator > 0; }
    Rational inverse() const { return {denominator, numerator}; }
    friend bool operator==(const Rational&, const Rational&) = default;
};

/// Width and height in pixels.
struct Size {
    int width = 0;
    int height = 0;

    Size transposed() const { return {height, width}; }
    friend bool operator==(const Size&, const Size&) = default;
};

/// A half-open stretch of time in seconds from the start of the file; the end is exclusive. Times
/// are compared to half a millisecond, so that 0.042 means the frame at 1/24 s.
struct TimeRange {
    double startSeconds = 0;
    std::optional<double> endSeconds;
};

/// Layout of the pixels of a Frame, components in the order R, G, B, A.
enum class PixelFormat : std::uint8_t {
    Rgba8,  ///< one byte per component
    Rgba16, ///< one little-endian 16-bit word per component
};

constexpr int bytesPerPixel(PixelFormat format) {
    return format == PixelFormat::Rgba8 ? 4 : 8;
}

} // namespace vorn::media
