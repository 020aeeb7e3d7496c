#include "placement.h"

#include "catalogue/suggest.h"
#include "host_error.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(std::string_view where, const std::string& problem) {
    throw HostError(ExitCode::Usage, fmt::format("{}: {}", where, problem));
}

/// The place of a name among those that there are.
size_t placeOf(std::string_view name, const std::vector<std::string>& names, std::string_view what,
               std::string_view where) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found != names.end()) return static_cast<size_t>(found - names.begin());
    const std::string hint = suggestion(name, names);
    refuse(where,
           fmt::format("there is no {} \"{}\"{}", what, name,
                       hint.empty() ? fmt::format("; there is {}", fmt::join(names, ", ")) : hint));
}

constexpr std::array<Anchor, 9> anchors{
    {{0.5, 0.5}, {0.5, 1}, {0.5, 0}, {0, 0.5}, {1, 0.5}, {0, 1}, {1, 1}, {0, 0}, {1, 0}}};

bool isOptionList(std::string_view text) {
    const size_t letters = static_cast<size_t>(
        std::find_if_not(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; }) -
        text.begin());
    return letters > 0 && letters < text.size() && text[letters] == '=' &&
           text.find('/') == std::string_view::npos;
}

} // namespace

const std::vector<std::string>& fitNames() {
    static const std::vector<std::string> names{"cover", "contain", "stretch", "none"};
    return names;
}

const char* fitName(Fit fit) {
    return fitNames()[static_cast<size_t>(fit)].c_str();
}

const std::vector<std::string>& anchorNames() {
    static const std::vector<std::string> names{"center",    "top",         "bottom",
                                                "left",      "right",       "top-left",
                                                "top-right", "bottom-left", "bottom-right"};
    return names;
}

Anchor anchorNamed(std::string_view name) {
    return anchors.at(placeOf(name, anchorNames(), "place", "at"));
}

Fit parseFit(std::string_view name, std::string_view where) {
    return static_cast<Fit>(placeOf(name, fitNames(), "fit", where));
}

std::string parseAnchor(std::string_view name, std::string_view where) {
    return anchorNames()[placeOf(name, anchorNames(), "place", where)];
}

double checkedScale(double scale, std::string_view where) {
    constexpr double least = 0.001, most = 1000;
    if (!(scale >= least && scale <= most))
        refuse(where, fmt::format("a scale is a number from {} to {}", least, most));
    return scale;
}

Fit usualFitOf(std::string_view inputKey) {
    const bool isShown = inputKey == "inputTargetImage" || inputKey == "inputBackgroundImage";
    return isShown ? Fit::Cover : Fit::None;
}

bool setPlacement(Placement& placement, std::string_view key, std::string_view value,
                  std::string_view where) {
    const std::string here = fmt::format("{} {}", where, key);
    if (key == "fit") {
        placement.fit = parseFit(value, here);
    } else if (key == "at") {
        placement.at = parseAnchor(value, here);
    } else if (key == "scale") {
        placement.scale = checkedScale(readNumber(value).value_or(0), here);
    } else {
        return false;
    }
    return true;
}

std::string placementText(const Placement& placement) {
    std::vector<std::string> parts;
    if (placement.fit) parts.push_back(fmt::format("fit={}", fitName(*placement.fit)));
    if (placement.at) parts.push_back("at=" + *placement.at);
    if (placement.scale != 1) parts.push_back(fmt::format("scale={}", placement.scale));
    return fmt::format("{}", fmt::join(parts, ","));
}

std::pair<std::string, std::vector<std::pair<std::string, std::string>>>
splitOptions(std::string_view text, std::string_view where) {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || !isOptionList(text.substr(colon + 1)))
        return {std::string(text), {}};
    std::vector<std::pair<std::string, std::string>> options;
    for (const std::string& part : splitOutsideBrackets(text.substr(colon + 1), ','))
        options.push_back(splitOnce(part, '=', std::string(where)));
    return {std::string(text.substr(0, colon)), std::move(options)};
}

PlacedRectangle placedIn(media::Size frame, media::Size picture, double pixelShape,
                         const SecondPicture& asked) {
    const Placement& placement = asked.placement;
    const Fit fit = placement.fitting();
    double across = 1, up = 1;
    if (fit != Fit::None) {
        const double fillsAcross = frame.width / (picture.width * pixelShape);
        const double fillsUp = static_cast<double>(frame.height) / picture.height;
        up = fit == Fit::Cover     ? std::max(fillsAcross, fillsUp)
             : fit == Fit::Contain ? std::min(fillsAcross, fillsUp)
                                   : fillsUp;
        across = (fit == Fit::Stretch ? fillsAcross : up) * pixelShape;
    }
    const double width = std::max(1.0, std::round(picture.width * across * placement.scale));
    const double height = std::max(1.0, std::round(picture.height * up * placement.scale));
    constexpr double longest = 32767, most = 1 << 27;
    if (width > longest || height > longest || width * height > most) {
        refuse(asked.name,
               fmt::format("would be {:.0f}x{:.0f} large in a frame of {}x{}; say another fit or "
                           "a smaller scale",
                           width, height, frame.width, frame.height));
    }
    PlacedRectangle placed{{static_cast<int>(width), static_cast<int>(height)}};
    if (!placement.isInFrame()) return placed;
    const Anchor anchor = anchorNamed(placement.at.value_or("center"));
    placed.x = static_cast<int>(std::lround((frame.width - placed.size.width) * anchor.x));
    placed.y = static_cast<int>(std::lround((frame.height - placed.size.height) * anchor.y));
    return placed;
}

} // namespace vorn::hosts
