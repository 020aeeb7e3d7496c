// What filters are shown at whose defaults and sliders show little of what they are for.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::cli {

/// Numbers by input.
using GallerySettings = std::vector<std::pair<std::string, double>>;

/// Empty where nothing is said about a filter.
GallerySettings gallerySettings(std::string_view filter);

/// The last mode of a filter whose slider ends before its modes do; 0 for the others.
int modesPastSlider(std::string_view filter);

/// "amount=0.6, skip=0", as `vorn render` takes them.
std::string settingsText(const GallerySettings& settings);

} // namespace vorn::cli
