// Chains of filters as files and as command lines.
#include "chain_file.h"

#include "host_error.h"
#include "json_text.h"
#include "values/text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <type_traits>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

/// The numbers of a vector or colour.
std::vector<double> numbersOf(const CIVector& vector) {
    std::vector<double> all;
    for (size_t i = 0; i < vector.count(); ++i) all.push_back(vector.valueAtIndex(i));
    return all;
}
std::vector<double> numbersOf(const CIColor& color) {
    return {color.red(), color.green(), color.blue(), color.alpha()};
}
std::vector<double> numbersOf(const CGAffineTransform& t) {
    return {t.a, t.b, t.c, t.d, t.tx, t.ty};
}

std::string digitsOf(const Data& data) {
    std::string digits;
    for (const uint8_t byte : *data) digits += fmt::format("{:02x}", byte);
    return digits;
}

/// The shortest text that reads back as the same number.
std::string textOf(double number) {
    return fmt::format("{}", number);
}

// --- JSON ---------------------------------------------------------------------------------------

JsonText numberJson(double value) {
    if (!std::isfinite(value)) return {{"number", textOf(value)}};
    constexpr double largestCounted = 9007199254740992.0;
    const bool isWhole = std::trunc(value) == value && std::fabs(value) <= largestCounted;
    if (isWhole && !(value == 0 && std::signbit(value))) return static_cast<int64_t>(value);
    return value;
}

JsonText listJson(const std::vector<double>& numbers) {
    JsonText list = JsonText::array();
    for (const double number : numbers) {
        if (!std::isfinite(number))
            throw HostError(ExitCode::Usage, "a vector or colour that is not finite cannot be "
                                             "written");
        list.push_back(numberJson(number));
    }
    return list;
}

JsonText valueJson(const InputValue& value) {
    return std::visit(
        [](const auto& held) -> JsonText {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Number>)
                return numberJson(held.doubleValue());
            else if constexpr (std::is_same_v<Held, CIVector>)
                return listJson(numbersOf(held));
            else if constexpr (std::is_same_v<Held, CIColor>)
                return {{"color", listJson(numbersOf(held))}};
            else if constexpr (std::is_same_v<Held, CGAffineTransform>)
                return {{"transform", listJson(numbersOf(held))}};
            else if constexpr (std::is_same_v<Held, Data>)
                return {{"data", digitsOf(held)}};
            else if constexpr (std::is_same_v<Held, std::string>)
                return held;
            else
                return nullptr;
        },
        value);
}

JsonText animationJson(const Animation& animation) {
    const std::vector<Expression>& formulas = animation.expressions();
    if (formulas.size() == 1) return {{"formula", formulas[0].text()}};
    JsonText list = JsonText::array();
    for (const Expression& formula : formulas) list.push_back(formula.text());
    if (!formulas.empty()) return {{"formula", list}};
    for (const Keyframe& keyframe : animation.keyframes()) {
        JsonText each{{"at", numberJson(keyframe.seconds)}, {"value", valueJson(keyframe.value)}};
        if (keyframe.easing != Easing::Linear) each["easing"] = easingName(keyframe.easing);
        list.push_back(std::move(each));
    }
    return {{"keyframes", list}};
}

/// A picture's name from that folder on, so that the two can be moved together; whole names of what
/// lies elsewhere stay whole.
std::string nameFrom(const std::filesystem::path& folder, const std::string& name) {
    const std::filesystem::path path = name;
    if (parseTestCard(name)) return name;
    const std::filesystem::path relative =
        std::filesystem::absolute(path).lexically_normal().lexically_relative(
            std::filesystem::absolute(folder / "").lexically_normal());
    const bool isBelow = !relative.empty() && *relative.begin() != "..";
    return isBelow || !path.is_absolute() ? relative.string() : name;
}

/// As short as it was said.
JsonText pictureJson(const SecondPicture& picture, const std::filesystem::path& folder) {
    const Placement& placement = picture.placement;
    const std::string name = nameFrom(folder, picture.name);
    if (!placement.fit && !placement.at && placement.scale == 1) return name;
    JsonText json{{"file", name}};
    if (placement.fit) json["fit"] = fitName(*placement.fit);
    if (placement.at) json["at"] = *placement.at;
    if (placement.scale != 1) json["scale"] = numberJson(placement.scale);
    return json;
}

JsonText maskJson(const Mask& mask, const ChainPlan& plan, const std::filesystem::path& folder) {
    JsonText json;
    if (mask.region) {
        JsonText list = JsonText::array();
        const auto add = [&](const Length& length) {
            list.push_back(length.isShare ? JsonText(lengthText(length))
                                          : numberJson(length.value));
        };
        for (const Length& length : mask.region->box) add(length);
        if (mask.region->soft.value > 0) add(mask.region->soft);
        json[shapeName(mask.region->shape)] = std::move(list);
    } else {
        json = pictureJson(plan.pictures()[mask.picture], folder);
        const bool saysMore = mask.channel != MaskChannel::Luma || mask.isInverted;
        if (json.is_string() && saysMore) json = JsonText{{"file", json}};
        if (mask.channel != MaskChannel::Luma) json["channel"] = maskChannelName(mask.channel);
    }
    if (mask.isInverted) json["invert"] = true;
    return json;
}

std::string maskText(const Mask& mask, const ChainPlan& plan) {
    std::string options;
    if (!mask.region) options = placementText(plan.pictures()[mask.picture].placement);
    if (mask.channel != MaskChannel::Luma)
        options +=
            fmt::format("{}channel={}", options.empty() ? "" : ",", maskChannelName(mask.channel));
    if (mask.isInverted) options += options.empty() ? "invert=yes" : ",invert=yes";
    return (mask.region ? regionText(*mask.region) : plan.pictures()[mask.picture].name) +
           (options.empty() ? "" : ":" + options);
}

std::string pictureText(const SecondPicture& picture) {
    const std::string options = placementText(picture.placement);
    return options.empty() ? picture.name : picture.name + ":" + options;
}

JsonText linkJson(const ChainLink& link, const ChainPlan& plan,
                  const std::filesystem::path& folder) {
    JsonText json{{"filter", link.entry.name}};
    for (const auto& [key, value] : link.settings) json["set"][key] = valueJson(value);
    for (const auto& [key, animation] : link.animations)
        json["set"][key] = animationJson(animation);
    for (const auto& [key, number] : link.images)
        json["images"][key] = pictureJson(plan.pictures()[number], folder);
    if (link.mask) json["mask"] = maskJson(*link.mask, plan, folder);
    if (!link.during) return json;
    json["from"] = numberJson(link.during->startSeconds);
    if (link.during->endSeconds) json["to"] = numberJson(*link.during->endSeconds);
    return json;
}

// --- the command line ---------------------------------------------------------------------------

std::string listText(const char* opening, const std::vector<double>& numbers, const char* closing) {
    std::vector<std::string> texts;
    for (const double number : numbers) texts.push_back(textOf(number));
    return fmt::format("{}{}{}", opening, fmt::join(texts, ","), closing);
}

/// Without an exponent, whose sign is that of a range.
std::string timeText(double seconds) {
    std::string text = fmt::format("{:.6f}", seconds);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
}

std::string valueText(const InputValue& value) {
    return std::visit(
        [](const auto& held) -> std::string {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Number>) {
                return textOf(held.doubleValue());
            } else if constexpr (std::is_same_v<Held, CIVector>) {
                return listText("[", numbersOf(held), "]");
            } else if constexpr (std::is_same_v<Held, CIColor>) {
                return listText("rgba(", numbersOf(held), ")");
            } else if constexpr (std::is_same_v<Held, CGAffineTransform>) {
                return listText("transform(", numbersOf(held), ")");
            } else if constexpr (std::is_same_v<Held, Data>) {
                return "hex:" + digitsOf(held);
            } else if constexpr (std::is_same_v<Held, std::string>) {
                std::string text = "text:";
                for (const char c : held) text += c == ',' ? "\\," : std::string(1, c);
                return text;
            } else {
                return "none";
            }
        },
        value);
}

std::string animationText(const Animation& animation) {
    std::vector<std::string> parts;
    for (const Expression& formula : animation.expressions()) parts.push_back(formula.text());
    if (parts.size() > 1) {
        const bool isColor = std::holds_alternative<CIColor>(animation.example());
        return fmt::format("{}{}{}", isColor ? "rgba(" : "[", fmt::join(parts, ","),
                           isColor ? ")" : "]");
    }
    for (const Keyframe& keyframe : animation.keyframes()) {
        const bool isEased = keyframe.easing != Easing::Linear;
        parts.push_back(fmt::format("{}:{}{}{}", textOf(keyframe.seconds),
                                    valueText(keyframe.value), isEased ? ":" : "",
                                    isEased ? easingName(keyframe.easing) : ""));
    }
    return fmt::format("{}", fmt::join(parts, ","));
}

/// As a shell reads it back.
std::string shellQuoted(const std::string& text) {
    const bool isPlain = std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) ||
               std::string_view("_-+=./:,%@").find(static_cast<char>(c)) != std::string_view::npos;
    });
    if (isPlain && !text.empty()) return text;
    std::string safe = "'";
    for (const char c : text) safe += c == '\'' ? "'\\''" : std::string(1, c);
    return safe + "'";
}

} // namespace

std::string chainText(const ChainPlan& plan, const ChainWords& words,
                      const std::filesystem::path& folder) {
    JsonText json{{"version", 1}};
    if (!words.name.empty()) json["name"] = words.name;
    if (!words.description.empty()) json["description"] = words.description;
    json["filters"] = JsonText::array();
    for (const ChainLink& link : plan.links())
        json["filters"].push_back(linkJson(link, plan, folder));
    return json.dump(2, ' ', false, JsonText::error_handler_t::replace) + "\n";
}

std::vector<std::string> chainOptions(const ChainPlan& plan) {
    std::vector<std::string> filters, others;
    for (size_t i = 0; i < plan.links().size(); ++i) {
        const ChainLink& link = plan.links()[i];
        std::string filter = link.entry.name;
        char before = ':';
        for (const auto& [key, value] : link.settings) {
            filter += fmt::format("{}{}={}", before, key, valueText(value));
            before = ',';
        }
        filters.push_back("--filter " + shellQuoted(filter));
        const auto add = [&](const char* option, const std::string& key, const std::string& text) {
            others.push_back(fmt::format("{} {}", option,
                                         shellQuoted(fmt::format("{}{}={}", i + 1, key, text))));
        };
        for (const auto& [key, animation] : link.animations)
            add("--animate", "." + key, animationText(animation));
        for (const auto& [key, number] : link.images)
            add("--image", "." + key, pictureText(plan.pictures()[number]));
        if (link.mask) add("--mask", "", maskText(*link.mask, plan));
        if (!link.during) continue;
        const auto& end = link.during->endSeconds;
        add("--during", "",
            timeText(link.during->startSeconds) + "-" + (end ? timeText(*end) : ""));
    }
    filters.insert(filters.end(), others.begin(), others.end());
    return filters;
}

} // namespace vorn::hosts
