#include "animation.h"

#include "host_error.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

/// The numbers in a value; nothing for a value that is no number, vector or colour.
struct Components {
    size_t kind = 0; ///< which alternative of `InputValue`
    size_t count = 0;
    std::array<double, 4> values{};

    bool isLike(const Components& other) const {
        return kind == other.kind && count == other.count;
    }
};

std::optional<Components> componentsOf(const InputValue& value) {
    if (const auto* number = std::get_if<Number>(&value)) {
        return Components{value.index(), 1, {number->doubleValue()}};
    }
    if (const auto* v = std::get_if<CIVector>(&value)) {
        return Components{value.index(), v->count(), {v->X(), v->Y(), v->Z(), v->W()}};
    }
    if (const auto* c = std::get_if<CIColor>(&value)) {
        return Components{value.index(), 4, {c->red(), c->green(), c->blue(), c->alpha()}};
    }
    return {};
}

/// A value like another one, with other numbers.
InputValue withComponents(const InputValue& like, const std::array<double, 4>& v) {
    if (std::holds_alternative<Number>(like)) return Number(v[0]);
    if (std::holds_alternative<CIColor>(like)) return CIColor(v[0], v[1], v[2], v[3]);
    switch (std::get<CIVector>(like).count()) {
    case 2:
        return CIVector(v[0], v[1]);
    case 3:
        return CIVector(v[0], v[1], v[2]);
    default:
        return CIVector(v[0], v[1], v[2], v[3]);
    }
}

InputValue between(const InputValue& from, const InputValue& to, double share) {
    const Components a = *componentsOf(from), b = *componentsOf(to);
    std::array<double, 4> mixed{};
    for (size_t i = 0; i < a.count; ++i)
        mixed[i] = a.values[i] + (b.values[i] - a.values[i]) * share;
    return withComponents(from, mixed);
}

/// What stands between an opening text and its closing sign; nothing when the text has another
/// form.
std::optional<std::vector<std::string>> partsBetween(std::string_view text,
                                                     std::string_view opening, char closing) {
    if (!text.starts_with(opening) || !text.ends_with(closing)) return {};
    text.remove_prefix(opening.size());
    text.remove_suffix(1);
    return splitOutsideBrackets(text, ',');
}

/// "TIME:VALUE" or "TIME:VALUE:EASING". Times have colons, values that can move have none.
Keyframe parseKeyframe(std::string_view part, std::string_view text, std::string_view where) {
    Keyframe keyframe;
    std::string_view rest = part;
    size_t colon = rest.rfind(':');
    const auto isLetter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
    const std::string_view last = colon == std::string_view::npos ? "" : rest.substr(colon + 1);
    const bool isValue = readNumber(last) || last == "none";
    if (!last.empty() && !isValue && std::all_of(last.begin(), last.end(), isLetter)) {
        keyframe.easing = parseEasing(last, where);
        rest = rest.substr(0, colon);
        colon = rest.rfind(':');
    }
    if (colon == std::string_view::npos) {
        throw HostError(
            ExitCode::Usage,
            fmt::format("{} \"{}\": keyframes are written as TIME:VALUE,TIME:VALUE", where, text));
    }
    keyframe.seconds = parseClockTime(rest.substr(0, colon), where);
    keyframe.value = parseValue(rest.substr(colon + 1), where);
    return keyframe;
}

} // namespace

Animation Animation::parse(std::string_view text, std::string_view where) {
    const bool hasKeyframes =
        text.find(':') != std::string_view::npos && text.find('?') == std::string_view::npos;
    if (!hasKeyframes) {
        if (std::optional<Animation> animation = formulas(text, where)) return *animation;
    }
    std::vector<Keyframe> keyframes;
    for (const std::string& part : splitOutsideBrackets(text, ','))
        keyframes.push_back(parseKeyframe(part, text, where));
    return ofKeyframes(std::move(keyframes), fmt::format("{} \"{}\"", where, text));
}

Animation Animation::ofKeyframes(std::vector<Keyframe> keyframes, std::string_view where) {
    const auto refuse = [&](std::string_view wanted) {
        throw HostError(ExitCode::Usage, fmt::format("{}: {}", where, wanted));
    };
    if (keyframes.empty()) refuse("there is no keyframe");
    for (size_t i = 0; i < keyframes.size(); ++i) {
        const auto components = componentsOf(keyframes[i].value);
        if (!components) refuse("only numbers, vectors and colours can move");
        if (i == 0) continue;
        if (!components->isLike(*componentsOf(keyframes[i - 1].value))) {
            refuse("all values must be of one kind and length");
        }
        if (keyframes[i].seconds < keyframes[i - 1].seconds) refuse("the times decrease");
    }
    Animation animation;
    animation.keyframes_ = std::move(keyframes);
    return animation;
}

Animation Animation::ofFormulas(const std::vector<std::string>& texts, InputKind kind,
                                std::string_view where) {
    const size_t least = kind == InputKind::Number ? 1 : kind == InputKind::Vector ? 2 : 4;
    const size_t most = kind == InputKind::Number ? 1 : 4;
    const bool canMove =
        kind == InputKind::Number || kind == InputKind::Vector || kind == InputKind::Color;
    if (!canMove || texts.size() < least || texts.size() > most) {
        throw HostError(ExitCode::Usage,
                        fmt::format("{}: one formula makes a number, two to four make a vector and "
                                    "four a colour",
                                    where));
    }
    Animation animation;
    animation.kind_ = kind;
    for (const std::string& text : texts) animation.expressions_.emplace_back(text, where);
    return animation;
}

std::optional<Animation> Animation::formulas(std::string_view text, std::string_view where) {
    const auto make = [&](const std::vector<std::string>& texts, InputKind kind) {
        return std::optional(ofFormulas(texts, kind, where));
    };
    const auto isAnyLikely = [](const std::vector<std::string>& texts) {
        return std::any_of(texts.begin(), texts.end(),
                           [](const std::string& each) { return Expression::isLikely(each); });
    };
    for (const char* other : {"hex:", "text:", "transform("})
        if (text.starts_with(other)) return {};
    if (const auto texts = partsBetween(text, "[", ']'))
        return isAnyLikely(*texts) ? make(*texts, InputKind::Vector) : std::nullopt;
    if (const auto texts = partsBetween(text, "rgba(", ')'))
        return isAnyLikely(*texts) ? make(*texts, InputKind::Color) : std::nullopt;
    if (!Expression::isLikely(text) || readNumber(text)) return {};
    return make({std::string(text)}, InputKind::Number);
}

InputValue Animation::valueAt(double seconds) const {
    if (!expressions_.empty()) {
        std::array<double, 4> values{};
        for (size_t i = 0; i < expressions_.size(); ++i) values[i] = expressions_[i].at(seconds);
        return withComponents(example(), values);
    }
    const auto next = std::upper_bound(
        keyframes_.begin(), keyframes_.end(), seconds,
        [](double time, const Keyframe& keyframe) { return time < keyframe.seconds; });
    if (next == keyframes_.begin()) return next->value;
    const Keyframe& last = *std::prev(next);
    if (next == keyframes_.end()) return last.value;
    const double share = (seconds - last.seconds) / (next->seconds - last.seconds);
    return between(last.value, next->value, eased(last.easing, share));
}

InputValue Animation::example() const {
    if (!keyframes_.empty()) return keyframes_.front().value;
    if (kind_ == InputKind::Color) return CIColor(0, 0, 0, 1);
    if (kind_ == InputKind::Number) return Number(0.0);
    switch (expressions_.size()) {
    case 2:
        return CIVector(0, 0);
    case 3:
        return CIVector(0, 0, 0);
    default:
        return CIVector(0, 0, 0, 0);
    }
}

} // namespace vorn::hosts
