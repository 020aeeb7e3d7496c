// Values as people write them. Text that cannot be read is a usage error that
// quotes it.
#pragma once

#include "vorneffects/CIFilter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::hosts {

/// "KEY=VALUE", split at the first sign of that kind; the key must not be empty.
std::pair<std::string, std::string> splitOnce(std::string_view text, char separator,
                                              std::string_view option);
std::vector<std::string> splitList(std::string_view text, char separator);

/// A number, "nan", "inf" or "-inf"; nothing for any other text.
std::optional<double> readNumber(std::string_view text);
std::optional<uint64_t> readUnsigned(std::string_view text);

/// A number, a vector `[a,b]` to `[a,b,c,d]`, `rgba(r,g,b,a)`, `transform(a,b,c,d,tx,ty)`, data
/// `hex:00ff…`, a string `text:…`, or `none` (unset).
InputValue parseValue(std::string_view text, std::string_view option);
/// `true`, `false`, a number, else the text itself.
PropertyValue parseProperty(std::string_view text);

/// Times in nanoseconds, parted by commas.
std::vector<uint64_t> parseTimes(std::string_view text, std::string_view option);
CGRect parseRect(std::string_view text, std::string_view option);

struct PixelSize {
    uint32_t width = 0, height = 0;
};
/// "1920x1080"; both at least 1.
PixelSize parseSize(std::string_view text, std::string_view option);

struct PlacedSize {
    PixelSize size;
    CGPoint origin;
};
/// "1920x1080" or "1920x1080+100+-50": a size and where its lower-left corner lies.
PlacedSize parsePlacedSize(std::string_view text, std::string_view option);

/// Positive whole numbers parted by commas, each at most `maximum`.
std::vector<int> parseCounts(std::string_view text, int maximum, std::string_view option);

} // namespace vorn::hosts
