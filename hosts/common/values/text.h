// Times, rates and lists as `vorn render` reads them. Text that cannot be read is a usage error
// that quotes it.
#pragma once

#include "media/types.h"
#include "values.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

/// Splits at separators that stand outside of brackets and parentheses. A backslash before a
/// separator makes it an ordinary letter.
std::vector<std::string> splitOutsideBrackets(std::string_view text, char separator);

/// "12.5", "12.5s", "01:30" or "1:02:03.5" in seconds; not negative.
double parseClockTime(std::string_view text, std::string_view option);

/// "10-20", "10,20", "10-" or "-20", each a clock time.
media::TimeRange parseRange(std::string_view text, std::string_view option);

/// "25", "30000/1001" or a decimal number; the rounded forms of television rates such as 29.97
/// and 23.98 give the exact ones. Above 0 and at most 1000.
media::Rational parseRate(std::string_view text, std::string_view option);

/// What is asked of the built-in test card.
struct TestCardRequest {
    std::optional<PixelSize> size;
    std::optional<media::Rational> rate;
    std::optional<double> durationSeconds;
};
/// Nothing when the name of an input is not that of the test card; else what follows "test:", which
/// is "[WIDTHxHEIGHT][@RATE][,DURATION]".
std::optional<TestCardRequest> parseTestCard(std::string_view name);

} // namespace vorn::hosts
