// One filter or preset of the gallery, with its pictures.
#pragma once

#include "chain/presets.h"
#include "studio.h"

#include <string>

namespace vorn::hosts::cli {

/// Draws a filter's pictures into `folder`: one that leads, one for each mode, some along a slider.
GalleryFilter portraitOf(Studio& studio, const FilterEntry& entry, const std::string& folder);
/// Draws a preset into `folder`: one picture, and one in motion.
GalleryPreset portraitOf(Studio& studio, const Preset& preset, const std::string& folder);

} // namespace vorn::hosts::cli
