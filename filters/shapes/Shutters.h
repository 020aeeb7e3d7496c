// What the hard and the soft shutters tell alike.
#pragma once

#include "filters/shapes/SoftShape.h"

namespace vorn::filters {

/// One of their own, then how far each shutter is closed.
inline Attributes shutterAttributes(InputAttributes own) {
    return {std::move(own), scalar("inputSizeX1", "sizeX1", {}),
            scalar("inputSizeY1", "sizeY1", {}), scalar("inputSizeX2", "sizeX2", {}),
            scalar("inputSizeY2", "sizeY2", {})};
}

inline std::vector<InputGuide> shutterGuides(std::vector<InputGuide> guides = {}) {
    guides.push_back({.key = "inputSizeX1", .purpose = "how far the left one is closed"});
    guides.push_back({.key = "inputSizeY1", .purpose = "how far the upper one is closed"});
    guides.push_back({.key = "inputSizeX2", .purpose = "how far the right one is closed"});
    guides.push_back({.key = "inputSizeY2", .purpose = "how far the lower one is closed"});
    return guides;
}

} // namespace vorn::filters
