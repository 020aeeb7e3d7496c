// Numbers, rectangles and input values as JSON.
#pragma once

#include "vorneffects/CIFilter.h"

#include <nlohmann/json.hpp>

namespace vorn::hosts::cli {

/// Keeps the order in which fields were added.
using Json = nlohmann::ordered_json;

/// A number that reads back exactly; not-a-number and the infinities become "nan", "inf", "-inf".
Json numberJson(double value);
/// [x, y, width, height], or "infinite".
Json rectJson(const CGRect& rect);
/// {"vector": [..]}, {"color": [r,g,b,a]}, {"transform": [a,b,c,d,tx,ty]}; null when unset.
Json vectorJson(const CIVector& vector);
Json colorJson(const CIColor& color);
Json transformJson(const CGAffineTransform& transform);
/// The components alone.
Json colorComponentsJson(const CIColor& color);
/// A set value as data ("hex:…" for bytes); null for an unset value and for images.
Json valueJson(const InputValue& value);
Json attributeJson(const AttributeValue& value);

/// One line of text; bytes that are no UTF-8 become replacement characters.
std::string jsonLine(const Json& json);

} // namespace vorn::hosts::cli
