// Images of the test card, as filter inputs.
#pragma once

#include "values/values.h"

#include "vorneffects/CIImage.h"

namespace vorn::hosts::cli {

/// An RGBA8 image of that size and place that shows the test card as far as it is small; larger
/// ones (above four megapixels) are transparent, and take no memory until somebody reads them. For
/// graphs that are described and not rendered. A `HostError` when the size cannot be addressed.
CIImage testImage(const PlacedSize& placed);

} // namespace vorn::hosts::cli
