// What is known of an image without rendering it.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIImage.h"

namespace vorn {

/// Whether an image is known to look like another one inside of its extent: it is that image, or it
/// was promised to equal it by `imageKnownToEqual`. False where nothing is known.
VORN_EXPORT bool isKnownToEqual(const CIImage& image, const CIImage& other);

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
