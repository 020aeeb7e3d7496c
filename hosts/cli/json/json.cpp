#include "json.h"

#include <cmath>
#include <type_traits>

#include <fmt/format.h>

namespace vorn::hosts::cli {

Json numberJson(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
    // Whole numbers are written without a fraction, as far as doubles count them one by one.
    constexpr double largestCounted = 9007199254740992.0;
    const bool isNegativeZero = value == 0 && std::signbit(value);
    if (std::trunc(value) == value && std::fabs(value) <= largestCounted && !isNegativeZero) {
        return static_cast<int64_t>(value);
    }
    return value;
}

Json rectJson(const CGRect& rect) {
    if (rect.isInfinite()) return "infinite";
    return Json::array(
        {numberJson(rect.x), numberJson(rect.y), numberJson(rect.width), numberJson(rect.height)});
}

Json vectorJson(const CIVector& vector) {
    if (!vector.isSet()) return nullptr;
    Json components = Json::array();
    for (size_t i = 0; i < vector.count(); ++i) {
        components.push_back(numberJson(vector.valueAtIndex(i)));
    }
    return Json{{"vector", std::move(components)}};
}

Json colorComponentsJson(const CIColor& color) {
    if (!color.isSet()) return nullptr;
    return Json::array({numberJson(color.red()), numberJson(color.green()),
                        numberJson(color.blue()), numberJson(color.alpha())});
}

Json colorJson(const CIColor& color) {
    if (!color.isSet()) return nullptr;
    return Json{{"color", colorComponentsJson(color)}};
}

Json transformJson(const CGAffineTransform& t) {
    return Json{{"transform", Json::array({numberJson(t.a), numberJson(t.b), numberJson(t.c),
                                           numberJson(t.d), numberJson(t.tx), numberJson(t.ty)})}};
}

Json valueJson(const InputValue& value) {
    return std::visit(
        [](const auto& held) -> Json {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Number>) {
                return held.isSet() ? numberJson(held.doubleValue()) : Json(nullptr);
            } else if constexpr (std::is_same_v<Held, CIVector>) {
                return vectorJson(held);
            } else if constexpr (std::is_same_v<Held, CIColor>) {
                return colorJson(held);
            } else if constexpr (std::is_same_v<Held, CGAffineTransform>) {
                return transformJson(held);
            } else if constexpr (std::is_same_v<Held, std::string>) {
                return held;
            } else if constexpr (std::is_same_v<Held, Data>) {
                if (!held) return nullptr;
                std::string digits = "hex:";
                for (const uint8_t byte : *held) digits += fmt::format("{:02x}", byte);
                return digits;
            } else {
                return nullptr;
            }
        },
        value);
}

Json attributeJson(const AttributeValue& value) {
    return std::visit(
        [](const auto& held) -> Json {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, double>)
                return numberJson(held);
            else if constexpr (std::is_same_v<Held, CIVector>)
                return vectorJson(held);
            else if constexpr (std::is_same_v<Held, CIColor>)
                return colorJson(held);
            else
                return held;
        },
        value);
}

std::string jsonLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace vorn::hosts::cli
