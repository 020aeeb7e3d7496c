#include "text.h"

#include "host_error.h"

#include <cmath>
#include <cstdint>
#include <numeric>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(std::string_view option, std::string_view text, std::string_view wanted) {
    throw HostError(ExitCode::Usage, fmt::format("{} \"{}\": {}", option, text, wanted));
}

/// The exact form of a rate; nothing when it is out of range.
std::optional<media::Rational> rationalRate(double numerator, double denominator) {
    constexpr double largest = 1'000'000;
    const bool isWhole =
        numerator == std::floor(numerator) && denominator == std::floor(denominator);
    if (!isWhole || numerator < 1 || denominator < 1 || numerator > largest ||
        denominator > largest || numerator > 1000 * denominator) {
        return {};
    }
    const int n = static_cast<int>(numerator), d = static_cast<int>(denominator);
    const int divisor = std::gcd(n, d);
    return media::Rational{n / divisor, d / divisor};
}

std::optional<media::Rational> decimalRate(double rate) {
    // Television counts whole rates times 1000/1001, and people round the result.
    constexpr double rounding = 0.005, thousandths = 1000;
    const double whole = std::ceil(rate);
    const bool isTelevision =
        rate != whole && whole >= 24 && std::fabs(rate - whole * 1000 / 1001) < rounding;
    if (isTelevision) return rationalRate(whole * 1000, 1001);
    return rationalRate(std::round(rate * thousandths), thousandths);
}

} // namespace

std::vector<std::string> splitOutsideBrackets(std::string_view text, char separator) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char letter = text[i];
        if (letter == '\\' && i + 1 < text.size() && text[i + 1] == separator) {
            parts.back() += text[++i];
        } else if (letter == separator && depth == 0) {
            parts.emplace_back();
        } else {
            if (letter == '[' || letter == '(') ++depth;
            if ((letter == ']' || letter == ')') && depth > 0) --depth;
            parts.back() += letter;
        }
    }
    return parts;
}

double parseClockTime(std::string_view text, std::string_view option) {
    std::string_view rest = text;
    if (rest.ends_with('s')) rest.remove_suffix(1);
    const std::vector<std::string> parts = splitList(rest, ':');
    double seconds = 0;
    bool isGood = parts.size() <= 3;
    for (const std::string& part : parts) {
        const std::optional<double> number = readNumber(part);
        isGood = isGood && number && std::isfinite(*number) && *number >= 0 && part[0] != '-';
        if (!isGood) break;
        seconds = seconds * 60 + *number;
    }
    constexpr double longest = 1e9;
    if (isGood && seconds <= longest) return seconds;
    refuse(option, text, "a time is written in seconds, as MM:SS or as HH:MM:SS");
}

media::TimeRange parseRange(std::string_view text, std::string_view option) {
    const size_t place = text.find_first_of("-,");
    if (place == std::string_view::npos || text.size() == 1) {
        refuse(option, text, "a range is written as START-END, START- or -END");
    }
    const std::string_view start = text.substr(0, place), end = text.substr(place + 1);
    media::TimeRange range;
    if (!start.empty()) range.startSeconds = parseClockTime(start, option);
    if (!end.empty()) range.endSeconds = parseClockTime(end, option);
    if (range.endSeconds && *range.endSeconds <= range.startSeconds) {
        refuse(option, text, "the range ends before it starts");
    }
    return range;
}

media::Rational parseRate(std::string_view text, std::string_view option) {
    const std::vector<std::string> parts = splitList(text, '/');
    const std::optional<double> first = readNumber(parts.front());
    std::optional<media::Rational> rate;
    if (first && parts.size() == 1) {
        rate = decimalRate(*first);
    } else if (first && parts.size() == 2) {
        if (const std::optional<double> second = readNumber(parts[1])) {
            rate = rationalRate(*first, *second);
        }
    }
    if (rate) return *rate;
    refuse(option, text, "a rate is written as 25, 29.97 or 30000/1001, at most 1000");
}

std::optional<TestCardRequest> parseTestCard(std::string_view name) {
    constexpr std::string_view start = "test:";
    if (!name.starts_with(start)) return {};
    TestCardRequest request;
    std::string_view rest = name.substr(start.size());
    if (const size_t place = rest.find(','); place != std::string_view::npos) {
        request.durationSeconds = parseClockTime(rest.substr(place + 1), name);
        if (*request.durationSeconds <= 0) refuse(name, rest, "the duration is not above 0");
        rest = rest.substr(0, place);
    }
    if (const size_t place = rest.find('@'); place != std::string_view::npos) {
        request.rate = parseRate(rest.substr(place + 1), name);
        rest = rest.substr(0, place);
    }
    if (!rest.empty()) request.size = parseSize(rest, name);
    return request;
}

} // namespace vorn::hosts
