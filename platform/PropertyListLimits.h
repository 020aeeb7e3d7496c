// What keeps a property list from harming the process that reads it.
#pragma once

#include <string_view>

namespace vorn::platform {

/// The most that a property list may hold: bytes as a file and as its values together, values, and
/// arrays and dictionaries inside each other. A manifest of a hundred filters has 15 thousand bytes
/// and 500 values.
inline constexpr size_t kMostPropertyListBytes = 4 << 20;
inline constexpr size_t kMostPropertyListValues = 1 << 16;
inline constexpr int kMostPropertyListLevels = 128;

/// Whether the bytes are an XML or a binary property list within these limits that libplist can be
/// given. It descends by recursion, which hundreds of thousands of levels would overflow the stack
/// with; it copies a value of a binary list as often as it is referred to; and what it makes of
/// other forms depends on its version. Lists that are only almost right are refused here as well.
bool isSafePropertyList(std::string_view bytes);

} // namespace vorn::platform
