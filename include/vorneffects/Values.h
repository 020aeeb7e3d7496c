// The values that filters take and kernels get: numbers, vectors, colours, data. Each has an
// unset state (`isSet()` is false), which is what an input is until a host sets it.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vorn {

/// A number that remembers how it was made. Reading it never fails:
/// - `floatValue` rounds to the nearest single, a huge value becomes an infinity;
/// - `intValue` truncates toward zero and saturates at the 32-bit range;
/// - `unsignedIntValue` truncates toward zero and keeps the low 32 bits (so -1 reads as
///   4294967295); a value outside the 64-bit range reads as 0;
/// - not-a-number reads as 0 in both integer forms; an unset number reads as 0 everywhere.
class VORN_EXPORT Number {
public:
    enum class Kind : uint8_t { Unset, Single, Double, Signed, Unsigned };

    constexpr Number() = default;
    constexpr Number(double value) : kind_(Kind::Double), value_(value) {}
    constexpr Number(float value) : kind_(Kind::Single), value_(value) {}
    constexpr Number(int32_t value) : kind_(Kind::Signed), value_(value) {}
    constexpr Number(uint32_t value) : kind_(Kind::Unsigned), value_(value) {}

    constexpr bool isSet() const { return kind_ != Kind::Unset; }
    constexpr Kind kind() const { return kind_; }
    constexpr double doubleValue() const { return value_; }
    float floatValue() const;
    int32_t intValue() const;
    uint32_t unsignedIntValue() const;
    /// `unsignedIntValue` taken as a signed 32-bit integer: how filters read their modes.
    int32_t modeValue() const { return static_cast<int32_t>(unsignedIntValue()); }

    bool operator==(const Number&) const = default;

private:
    Kind kind_ = Kind::Unset;
    double value_ = 0;
};

/// Bytes, shared and immutable; an unset one is a null pointer.
using Data = std::shared_ptr<const std::vector<uint8_t>>;

} // namespace vorn

/// Up to four components; an unset vector has none. Components past the count read as 0.
class CIVector {
public:
    constexpr CIVector() = default;
    constexpr CIVector(double x, double y) : count_(2), values_{x, y, 0, 0} {}
    constexpr CIVector(double x, double y, double z) : count_(3), values_{x, y, z, 0} {}
    constexpr CIVector(double x, double y, double z, double w) : count_(4), values_{x, y, z, w} {}

    constexpr bool isSet() const { return count_ != 0; }
    constexpr size_t count() const { return count_; }
    constexpr double valueAtIndex(size_t index) const { return index < 4 ? values_[index] : 0; }
    constexpr double X() const { return values_[0]; }
    constexpr double Y() const { return values_[1]; }
    constexpr double Z() const { return values_[2]; }
    constexpr double W() const { return values_[3]; }

    bool operator==(const CIVector&) const = default;

private:
    uint8_t count_ = 0;
    std::array<double, 4> values_{};
};

/// A colour with straight (not premultiplied) components in sRGB, 0 to 1 each.
class CIColor {
public:
    constexpr CIColor() = default;
    constexpr CIColor(double red, double green, double blue, double alpha = 1)
        : isSet_(true), values_{red, green, blue, alpha} {}

    constexpr bool isSet() const { return isSet_; }
    constexpr double red() const { return values_[0]; }
    constexpr double green() const { return values_[1]; }
    constexpr double blue() const { return values_[2]; }
    constexpr double alpha() const { return values_[3]; }

    bool operator==(const CIColor&) const = default;

private:
    bool isSet_ = false;
    std::array<double, 4> values_{};
};

/// The colour spaces that the framework knows. `None` means: values are used as stored.
enum class CGColorSpace : uint8_t { None, SRGB, LinearSRGB };

#endif // VORN_HAS_LANGUAGE
