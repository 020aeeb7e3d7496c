// Inputs that change over time: by keyframes, or by formulas of the time.
#pragma once

#include "easing.h"
#include "expression.h"

#include "vorneffects/CIFilter.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

struct Keyframe {
    double seconds = 0;
    InputValue value;
    Easing easing = Easing::Linear; ///< of the way to the next one
};

/// What one input is at each time.
class Animation {
public:
    /// Reads "TIME:VALUE,TIME:VALUE:EASING,…", or a formula as `formulas` does. `where` is named in
    /// complaints.
    static Animation parse(std::string_view text, std::string_view where);
    /// Values are numbers, vectors or colours, all of one kind and length; times must not decrease,
    /// and two at the same time make a jump.
    static Animation ofKeyframes(std::vector<Keyframe> keyframes, std::string_view where);
    /// One formula for a number, two to four for a vector, four for a colour.
    static Animation ofFormulas(const std::vector<std::string>& texts, InputKind kind,
                                std::string_view where);
    /// Reads "0.5+0.5*t", "[100*t,20]" or "rgba(t,0,0,1)"; nothing when the text is like none.
    static std::optional<Animation> formulas(std::string_view text, std::string_view where);

    /// The first value before the first time, the last one after the last. A `HostError` where a
    /// formula gives no number.
    InputValue valueAt(double seconds) const;
    /// A value of the kind that it has at all times.
    InputValue example() const;

    /// One of the two is empty.
    const std::vector<Keyframe>& keyframes() const { return keyframes_; }
    const std::vector<Expression>& expressions() const { return expressions_; }

private:
    Animation() = default;

    std::vector<Keyframe> keyframes_;
    std::vector<Expression> expressions_;
    InputKind kind_ = InputKind::Number; ///< of what the expressions give
};

} // namespace vorn::hosts
