// Inputs that change over time by keyframes.
#pragma once

#include "vorneffects/CIFilter.h"

#include <string_view>
#include <vector>

namespace vorn::hosts {

struct Keyframe {
    double seconds = 0;
    InputValue value;
};

/// Keyframes of one input, with straight lines between them.
class Animation {
public:
    /// Reads "TIME:VALUE,TIME:VALUE,…". Values are numbers, vectors or colours, all of one kind and
    /// length; times must not decrease, and two at the same time make a jump.
    Animation(std::string_view text, std::string_view option);

    /// The first value before the first time, the last one after the last.
    InputValue valueAt(double seconds) const;
    const Keyframe& first() const { return keyframes_.front(); }

private:
    std::vector<Keyframe> keyframes_;
};

} // namespace vorn::hosts
