// One filter of the gallery, with its pictures.
#pragma once

#include "studio.h"

#include <string>

namespace vorn::hosts::cli {

/// Draws a filter's pictures into `folder`: one that leads, one for each mode, some along a slider.
GalleryFilter portraitOf(Studio& studio, const FilterEntry& entry, const std::string& folder);

} // namespace vorn::hosts::cli
