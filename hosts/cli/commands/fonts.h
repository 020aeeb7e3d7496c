// Which installed font stands in for a name.
#pragma once

#include <optional>
#include <string>

namespace vorn::hosts::cli {

struct FoundFont {
    std::string family, file;
};

/// The installed font that text in the font `name` is drawn with: that font, else one of the
/// generic family. Nothing when no font is installed at all.
std::optional<FoundFont> findFont(const std::string& name, const std::string& genericFamily);

} // namespace vorn::hosts::cli
