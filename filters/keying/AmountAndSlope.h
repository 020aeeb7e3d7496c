// The two controls that some keys turn into a ramp of levels.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

/// Where a key's ramp of levels ends (`high`) and starts. Their distance is 1.001 less the slope,
/// so that even the steepest ramp has a width.
struct LevelRamp {
    float high, low;

    LevelRamp(const Number& amount, const Number& slope)
        : high(amount.floatValue()),
          low(static_cast<float>((amount.floatValue() + slope.floatValue()) - 1.001)) {}
};

/// The inputs of the keys with a ramp of levels.
inline Attributes levelRampAttributes() {
    return {scalar("input1Amount", "amount", {}), scalar("input2Amount", "slope", {}),
            scalar("inputMode", "mode", {.sliderMax = 2})};
}

inline std::vector<InputGuide> levelRampGuides() {
    return {{.key = "input1Amount", .purpose = "the level from which on the picture stays whole"},
            {.key = "input2Amount", .purpose = "how steep the fade below that level is"}};
}

} // namespace vorn::filters
