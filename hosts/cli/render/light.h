// Between coded values and light, for sources whose curve is another one than that of sRGB.
#pragma once

#include "media/colour.h"

#include <cstdint>
#include <vector>

namespace vorn::hosts::cli {

/// The way to light and back, by tables: a power for each pixel would cost more than most effects.
class LightTables {
public:
    explicit LightTables(media::TransferCurve curve);

    /// Of a 16-bit coded value.
    float toLight(std::uint16_t value) const { return light_[value]; }
    /// From 0 to 1; what lies outside of it is clamped, not-a-number becomes 0.
    float fromLight(float light) const;

private:
    std::vector<float> light_;
    std::vector<float> value_; ///< by the upper bits of the float
};

} // namespace vorn::hosts::cli
