#include "values.h"

#include "host_error.h"

#include <charconv>
#include <cmath>
#include <limits>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(std::string_view option, std::string_view text, std::string_view wanted) {
    throw HostError(ExitCode::Usage, fmt::format("{} \"{}\": {}", option, text, wanted));
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/// The numbers between an opening and a closing text; nothing when the text has another form.
std::optional<std::vector<double>> readNumbers(std::string_view text, std::string_view opening,
                                               char closing) {
    if (!startsWith(text, opening) || text.back() != closing) return {};
    text.remove_prefix(opening.size());
    text.remove_suffix(1);
    std::vector<double> numbers;
    for (const std::string& part : splitList(text, ',')) {
        const std::optional<double> number = readNumber(part);
        if (!number) return {};
        numbers.push_back(*number);
    }
    return numbers;
}

std::optional<Data> readHex(std::string_view digits) {
    if (digits.size() % 2 != 0) return {};
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        uint8_t byte = 0;
        const char* const end = digits.data() + i + 2;
        if (std::from_chars(digits.data() + i, end, byte, 16).ptr != end) return {};
        bytes.push_back(byte);
    }
    return std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
}

/// Reads a whole number off the front of a text.
template <class Integer>
bool takeInteger(std::string_view& text, Integer& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return true;
}

bool takeSize(std::string_view& text, PixelSize& size) {
    if (!takeInteger(text, size.width) || !startsWith(text, "x")) return false;
    text.remove_prefix(1);
    return takeInteger(text, size.height) && size.width > 0 && size.height > 0;
}

/// "+100", "+-50" or "-50".
bool takeOffset(std::string_view& text, double& offset) {
    if (startsWith(text, "+"))
        text.remove_prefix(1);
    else if (!startsWith(text, "-"))
        return false;
    int32_t value = 0;
    if (!takeInteger(text, value)) return false;
    offset = value;
    return true;
}

} // namespace

std::pair<std::string, std::string> splitOnce(std::string_view text, char separator,
                                              std::string_view option) {
    const size_t place = text.find(separator);
    if (place == std::string_view::npos || place == 0) {
        refuse(option, text, fmt::format("a \"{}\" is missing, see --help", separator));
    }
    return {std::string(text.substr(0, place)), std::string(text.substr(place + 1))};
}

std::vector<std::string> splitList(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (;;) {
        const size_t place = text.find(separator);
        parts.emplace_back(text.substr(0, place));
        if (place == std::string_view::npos) return parts;
        text.remove_prefix(place + 1);
    }
}

std::optional<double> readNumber(std::string_view text) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
    if (text == "inf") return infinity;
    if (text == "-inf") return -infinity;
    if (startsWith(text, "+")) text.remove_prefix(1);
    if (text.find_first_not_of("0123456789.eE+-") != std::string_view::npos) return {};
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return {};
    return value;
}

std::optional<uint64_t> readUnsigned(std::string_view text) {
    uint64_t value = 0;
    if (!takeInteger(text, value) || !text.empty()) return {};
    return value;
}

InputValue parseValue(std::string_view text, std::string_view option) {
    if (text == "none") return std::monostate{};
    if (startsWith(text, "text:")) return std::string(text.substr(5));
    if (startsWith(text, "hex:")) {
        if (std::optional<Data> data = readHex(text.substr(4))) return *data;
        refuse(option, text, "data is written as pairs of hexadecimal digits");
    }
    if (const auto number = readNumber(text)) return Number(*number);
    if (const auto v = readNumbers(text, "[", ']')) {
        switch (v->size()) {
        case 2:
            return CIVector((*v)[0], (*v)[1]);
        case 3:
            return CIVector((*v)[0], (*v)[1], (*v)[2]);
        case 4:
            return CIVector((*v)[0], (*v)[1], (*v)[2], (*v)[3]);
        default:
            refuse(option, text, "a vector has two to four components");
        }
    }
    if (const auto c = readNumbers(text, "rgba(", ')')) {
        if (c->size() == 4) return CIColor((*c)[0], (*c)[1], (*c)[2], (*c)[3]);
        refuse(option, text, "a colour has four components, red, green, blue and alpha");
    }
    if (const auto t = readNumbers(text, "transform(", ')')) {
        if (t->size() == 6) {
            return CGAffineTransform{(*t)[0], (*t)[1], (*t)[2], (*t)[3], (*t)[4], (*t)[5]};
        }
        refuse(option, text, "a transform has six numbers: a,b,c,d,tx,ty");
    }
    refuse(option, text,
           "no value; give a number, [x,y], rgba(r,g,b,a), transform(a,b,c,d,tx,ty), hex:00ff, "
           "text:words or none");
}

PropertyValue parseProperty(std::string_view text) {
    if (text == "true") return true;
    if (text == "false") return false;
    if (const auto number = readNumber(text)) return *number;
    return std::string(text);
}

std::vector<uint64_t> parseTimes(std::string_view text, std::string_view option) {
    std::vector<uint64_t> times;
    for (const std::string& part : splitList(text, ',')) {
        const std::optional<uint64_t> time = readUnsigned(part);
        if (!time) refuse(option, text, "times are whole nanoseconds, parted by commas");
        times.push_back(*time);
    }
    return times;
}

CGRect parseRect(std::string_view text, std::string_view option) {
    std::vector<double> numbers;
    for (const std::string& part : splitList(text, ',')) {
        const std::optional<double> number = readNumber(part);
        if (!number) break;
        numbers.push_back(*number);
    }
    if (numbers.size() != 4 || splitList(text, ',').size() != 4) {
        refuse(option, text, "a rectangle is written as X,Y,WIDTH,HEIGHT");
    }
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

PixelSize parseSize(std::string_view text, std::string_view option) {
    std::string_view rest = text;
    PixelSize size;
    if (!takeSize(rest, size) || !rest.empty()) {
        refuse(option, text, "a size is written as WIDTHxHEIGHT, both whole and at least 1");
    }
    return size;
}

PlacedSize parsePlacedSize(std::string_view text, std::string_view option) {
    std::string_view rest = text;
    PlacedSize placed;
    bool isGood = takeSize(rest, placed.size);
    if (isGood && !rest.empty()) {
        isGood =
            takeOffset(rest, placed.origin.x) && takeOffset(rest, placed.origin.y) && rest.empty();
    }
    if (!isGood) {
        refuse(option, text,
               "an image is written as WIDTHxHEIGHT or WIDTHxHEIGHT+X+Y, the sizes whole and at "
               "least 1, or none");
    }
    return placed;
}

std::vector<int> parseCounts(std::string_view text, int maximum, std::string_view option) {
    std::vector<int> counts;
    for (const std::string& part : splitList(text, ',')) {
        const std::optional<uint64_t> count = readUnsigned(part);
        if (!count || *count < 1 || *count > static_cast<uint64_t>(maximum)) {
            refuse(option, text,
                   fmt::format("whole numbers from 1 to {}, parted by commas", maximum));
        }
        counts.push_back(static_cast<int>(*count));
    }
    return counts;
}

} // namespace vorn::hosts
