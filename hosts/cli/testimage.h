// Images of the test card, as filter inputs.
#pragma once

#include "values.h"

#include "vorneffects/CIImage.h"

namespace vorn::cli {

/// An RGBA8 image of that size and place that shows the test card as far as it is small; larger
/// ones (above four megapixels) are transparent, and take no memory until somebody reads them. For
/// graphs that are described and not rendered. A `CommandError` when the size cannot be addressed.
CIImage testImage(const PlacedSize& placed);

} // namespace vorn::cli
