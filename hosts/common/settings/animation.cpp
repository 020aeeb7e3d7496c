#include "animation.h"

#include "host_error.h"
#include "values/text.h"

#include <algorithm>
#include <array>
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

} // namespace

Animation::Animation(std::string_view text, std::string_view option) {
    const auto refuse = [&](std::string_view wanted) {
        throw HostError(ExitCode::Usage, fmt::format("{} \"{}\": {}", option, text, wanted));
    };
    for (const std::string& part : splitOutsideBrackets(text, ',')) {
        const size_t place = part.rfind(':'); // times have colons, values that can move have none
        if (place == std::string::npos) refuse("keyframes are written as TIME:VALUE,TIME:VALUE");
        keyframes_.push_back({parseClockTime(part.substr(0, place), option),
                              parseValue(part.substr(place + 1), option)});
    }
    for (size_t i = 0; i < keyframes_.size(); ++i) {
        const auto components = componentsOf(keyframes_[i].value);
        if (!components) refuse("only numbers, vectors and colours can move");
        if (i == 0) continue;
        if (!components->isLike(*componentsOf(keyframes_[i - 1].value))) {
            refuse("all values must be of one kind and length");
        }
        if (keyframes_[i].seconds < keyframes_[i - 1].seconds) refuse("the times decrease");
    }
}

InputValue Animation::valueAt(double seconds) const {
    const auto next = std::upper_bound(
        keyframes_.begin(), keyframes_.end(), seconds,
        [](double time, const Keyframe& keyframe) { return time < keyframe.seconds; });
    if (next == keyframes_.begin()) return next->value;
    const Keyframe& last = *std::prev(next);
    if (next == keyframes_.end()) return last.value;
    return between(last.value, next->value,
                   (seconds - last.seconds) / (next->seconds - last.seconds));
}

} // namespace vorn::hosts
