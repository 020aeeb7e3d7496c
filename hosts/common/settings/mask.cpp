#include "mask.h"

#include "host_error.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(std::string_view where, const std::string& problem) {
    throw HostError(ExitCode::Usage, fmt::format("{}: {}", where, problem));
}

} // namespace

MaskChannel parseMaskChannel(std::string_view name, std::string_view where) {
    if (name == "luma") return MaskChannel::Luma;
    if (name == "alpha") return MaskChannel::Alpha;
    refuse(where, fmt::format("there is no channel \"{}\"; there is luma, alpha", name));
}

const char* maskChannelName(MaskChannel channel) {
    return channel == MaskChannel::Alpha ? "alpha" : "luma";
}

Length parseLength(std::string_view text, std::string_view where) {
    const bool isShare = text.ends_with('%');
    const std::optional<double> number =
        readNumber(isShare ? text.substr(0, text.size() - 1) : text);
    if (!number || !(std::fabs(*number) <= 1e6))
        refuse(where,
               fmt::format("\"{}\" is no length; give pixels, or a share such as 25%", text));
    return {isShare ? *number / 100 : *number, isShare};
}

std::string lengthText(const Length& length) {
    if (!length.isShare) return fmt::format("{}", length.value);
    // Twelve digits hold what anybody writes, and not what the division has added.
    return fmt::format("{:.12g}%", length.value * 100);
}

std::optional<Region> parseRegion(std::string_view text, std::string_view where) {
    const size_t opening = text.find('(');
    const std::string_view shape = text.substr(0, opening);
    if (opening == std::string_view::npos || !text.ends_with(')') ||
        (shape != "ellipse" && shape != "rectangle"))
        return {};
    std::vector<Length> lengths;
    const std::string_view inner = text.substr(opening + 1, text.size() - opening - 2);
    for (const std::string& part : splitOutsideBrackets(inner, ','))
        lengths.push_back(parseLength(part, where));
    return regionOf(shape, lengths, where);
}

Region regionOf(std::string_view shape, const std::vector<Length>& lengths,
                std::string_view where) {
    if (lengths.size() != 4 && lengths.size() != 5)
        refuse(where,
               fmt::format("{}(x,y,width,height) is wanted, or with the width of a soft edge "
                           "behind it",
                           shape));
    Region region;
    region.shape = shape == "ellipse" ? Region::Shape::Ellipse : Region::Shape::Rectangle;
    std::copy_n(lengths.begin(), 4, region.box.begin());
    if (lengths.size() == 5) region.soft = lengths[4];
    if (region.box[2].value <= 0 || region.box[3].value <= 0)
        refuse(where, "width and height must be above 0");
    if (region.soft.value < 0) refuse(where, "a soft edge is not below 0");
    return region;
}

const char* shapeName(Region::Shape shape) {
    return shape == Region::Shape::Ellipse ? "ellipse" : "rectangle";
}

std::string regionText(const Region& region) {
    std::string text = std::string(shapeName(region.shape)) + "(";
    for (const Length& length : region.box) text += lengthText(length) + ",";
    text.pop_back();
    if (region.soft.value > 0) text += "," + lengthText(region.soft);
    return text + ")";
}

std::vector<unsigned char> drawRegion(const Region& region, int width, int height) {
    const double left = region.box[0].pixelsOf(width), bottom = region.box[1].pixelsOf(height);
    const double halfWidth = region.box[2].pixelsOf(width) / 2,
                 halfHeight = region.box[3].pixelsOf(height) / 2;
    const double shorter = std::min(halfWidth, halfHeight);
    const double soft = std::clamp(region.soft.pixelsOf(std::min(width, height)), 0.0, shorter);
    // How far a place, counted from the middle, lies within the shape.
    const auto depth = [&](double x, double y) {
        if (region.shape == Region::Shape::Rectangle)
            return std::min(halfWidth - std::fabs(x), halfHeight - std::fabs(y));
        // To first order, which is exact for a circle and on the border.
        const double across = x / halfWidth, up = y / halfHeight;
        const double radius = std::hypot(across, up);
        const double slope = std::hypot(across / halfWidth, up / halfHeight);
        return slope > 0 ? (1 - radius) * radius / slope : shorter;
    };
    std::vector<unsigned char> weights;
    weights.reserve(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (int row = height - 1; row >= 0; --row)
        for (int x = 0; x < width; ++x) {
            const double inside =
                depth(x + 0.5 - left - halfWidth, row + 0.5 - bottom - halfHeight);
            const double weight = std::clamp((inside + 0.5) / (soft + 1), 0.0, 1.0);
            weights.push_back(static_cast<unsigned char>(weight * 255 + 0.5));
        }
    return weights;
}

} // namespace vorn::hosts
