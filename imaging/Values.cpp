// How numbers are read.
#include "vorneffects/Values.h"

#include <cmath>
#include <limits>

float vorn::Number::floatValue() const {
    // With IEC 559 arithmetic every double has a nearest single: a huge one the infinity.
    static_assert(std::numeric_limits<float>::is_iec559);
    return static_cast<float>(value_);
}

int32_t vorn::Number::intValue() const {
    if (std::isnan(value_)) return 0;
    if (value_ <= INT32_MIN) return INT32_MIN;
    if (value_ >= INT32_MAX) return INT32_MAX;
    return static_cast<int32_t>(value_);
}

uint32_t vorn::Number::unsignedIntValue() const {
    // Not-a-number fails both comparisons and so counts as outside.
    if (!(value_ >= -0x1p63 && value_ < 0x1p63)) return 0;
    return static_cast<uint32_t>(static_cast<int64_t>(value_));
}
