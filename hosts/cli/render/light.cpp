#include "light.h"

#include <bit>
#include <cmath>

namespace vorn::hosts::cli {

namespace {

constexpr std::uint32_t droppedBits = 13; // of 23: 1024 entries for each power of two
constexpr std::uint32_t smallest = std::bit_cast<std::uint32_t>(0x1p-40F) >> droppedBits;
constexpr std::uint32_t one = std::bit_cast<std::uint32_t>(1.0F) >> droppedBits;

} // namespace

LightTables::LightTables(media::TransferCurve curve) {
    constexpr int words = 65536;
    light_.reserve(words);
    for (int i = 0; i < words; ++i) {
        light_.push_back(static_cast<float>(media::toLight(curve, i / double{words - 1})));
    }
    for (std::uint32_t i = smallest; i <= one + 1; ++i) {
        const auto light = std::bit_cast<float>(i << droppedBits);
        value_.push_back(static_cast<float>(media::fromLight(curve, light)));
    }
}

float LightTables::fromLight(float light) const {
    const auto least = std::bit_cast<float>(smallest << droppedBits);
    if (!(light > least)) return value_.front() * (light > 0 ? light / least : 0);
    if (light >= 1) return 1;
    const auto bits = std::bit_cast<std::uint32_t>(light);
    const std::uint32_t index = (bits >> droppedBits) - smallest;
    constexpr std::uint32_t mask = (1U << droppedBits) - 1;
    const float part = static_cast<float>(bits & mask) * (1.0F / (mask + 1));
    return value_[index] + (value_[index + 1] - value_[index]) * part;
}

} // namespace vorn::hosts::cli
