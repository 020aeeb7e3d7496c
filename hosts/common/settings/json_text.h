// JSON as people write it: what is wrong with it is told by line and column.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace vorn::hosts {

/// Keeps the order in which fields were written.
using JsonText = nlohmann::ordered_json;

/// Reads one JSON value. A usage error that names `where`, line and column when the text is none,
/// and the place when an object says a thing twice, of which one would be lost.
JsonText parseJson(std::string_view text, std::string_view where);

/// What is under `pointer`, by the rules of JSON pointers.
std::string pointerTo(std::string_view pointer, std::string_view key);
std::string pointerTo(std::string_view pointer, size_t place);

} // namespace vorn::hosts
