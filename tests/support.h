// Pictures in memory, random ones among them, contexts of every kind, and how pictures are
// compared.
#pragma once

#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace vorn;

/// Red, green, blue and alpha, in double precision.
using Pixel = std::array<double, 4>;

inline std::string textOf(const Pixel& p) {
    std::string text = "(";
    for (size_t c = 0; c < 4; ++c) text += (c ? ", " : "") + testing::PrintToString(p[c]);
    return text + ")";
}

// ---- 16-bit floats ------------------------------------------------------------------------------

inline double valueOfHalf(uint16_t half) {
    const int exponent = half >> 10 & 31, mantissa = half & 1023;
    double magnitude =
        exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024 + mantissa, exponent - 25);
    if (exponent == 31)
        magnitude = mantissa ? std::numeric_limits<double>::quiet_NaN()
                             : std::numeric_limits<double>::infinity();
    return half & 0x8000 ? -magnitude : magnitude;
}

/// The nearest half, ties to the even one, 65520 and above the infinity.
inline uint16_t nearestHalf(double value) {
    const uint16_t sign = std::signbit(value) ? 0x8000 : 0;
    const double magnitude = std::fabs(value);
    if (std::isnan(value)) return 0x7e00;
    if (magnitude >= 65520) return sign | 0x7c00;
    const int exponent = magnitude < 0x1p-14 ? -14 : std::ilogb(magnitude);
    const int steps = static_cast<int>(std::nearbyint(std::ldexp(magnitude, 10 - exponent)));
    return static_cast<uint16_t>(sign | (((exponent + 14) << 10) + steps));
}

// ---- Pictures -----------------------------------------------------------------------------------

constexpr CIFormat kAllFormats[] = {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::ARGB8,
                                    CIFormat::RGBAh, CIFormat::RGBAf};

constexpr bool isEightBit(CIFormat format) {
    return format != CIFormat::RGBAh && format != CIFormat::RGBAf;
}

/// A picture with guard bytes before it, after it and behind every row. Coordinates are from the
/// lower left, as everywhere in the graph.
class Bitmap {
public:
    Bitmap(int width, int height, CIFormat format = CIFormat::RGBA8, size_t padding = 0)
        : width_(width), height_(height), format_(format),
          bytesPerRow_(static_cast<size_t>(width) * bytesPerPixel(format) + padding),
          memory_(kMargin * 2 + bytesPerRow_ * static_cast<size_t>(height), kGuard) {
        forEach([&](int x, int y) { std::memset(at(x, y), 0, bytesPerPixel(format)); });
    }

    int width() const { return width_; }
    int height() const { return height_; }
    CIFormat format() const { return format_; }
    size_t bytesPerRow() const { return bytesPerRow_; }
    uint8_t* bytes() { return memory_.data() + kMargin; }

    uint8_t* at(int x, int y) { return memory_.data() + offsetOf(x, y); }
    const uint8_t* at(int x, int y) const { return memory_.data() + offsetOf(x, y); }

    Pixel pixel(int x, int y) const {
        Pixel p;
        for (size_t c = 0; c < 4; ++c) p[c] = channel(at(x, y), c);
        return p;
    }
    void set(int x, int y, const Pixel& p) {
        for (size_t c = 0; c < 4; ++c) setChannel(at(x, y), c, p[c]);
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x) visit(x, y);
    }

    CIImage image(CGPoint origin = {}, CGColorSpace colorSpace = CGColorSpace::None) const {
        return CIImage::imageWithBitmap(memory_.data() + kMargin, static_cast<uint32_t>(width_),
                                        static_cast<uint32_t>(height_), bytesPerRow_, format_,
                                        colorSpace, nullptr, origin);
    }

    bool isGuardIntact() const {
        const size_t row = static_cast<size_t>(width_) * bytesPerPixel(format_);
        for (size_t i = 0; i < memory_.size(); ++i) {
            const size_t inside = i - kMargin;
            const bool guards = i < kMargin ||
                                inside >= bytesPerRow_ * static_cast<size_t>(height_) ||
                                inside % bytesPerRow_ >= row;
            if (guards && memory_[i] != kGuard) return false;
        }
        return true;
    }

    bool operator==(const Bitmap& other) const = default;

private:
    static constexpr size_t kMargin = 64;
    static constexpr uint8_t kGuard = 0xa5;

    size_t offsetOf(int x, int y) const {
        return kMargin + static_cast<size_t>(height_ - 1 - y) * bytesPerRow_ +
               static_cast<size_t>(x) * bytesPerPixel(format_);
    }
    size_t placeOf(size_t channel) const {
        static constexpr size_t bgra[] = {2, 1, 0, 3}, argb[] = {1, 2, 3, 0};
        return format_ == CIFormat::BGRA8   ? bgra[channel]
               : format_ == CIFormat::ARGB8 ? argb[channel]
                                            : channel;
    }
    double channel(const uint8_t* from, size_t c) const {
        if (isEightBit(format_)) return from[placeOf(c)] / 255.0;
        if (format_ == CIFormat::RGBAh) {
            uint16_t half;
            std::memcpy(&half, from + 2 * c, sizeof half);
            return valueOfHalf(half);
        }
        float single;
        std::memcpy(&single, from + 4 * c, sizeof single);
        return single;
    }
    void setChannel(uint8_t* to, size_t c, double value) const {
        if (isEightBit(format_)) {
            to[placeOf(c)] =
                static_cast<uint8_t>(std::nearbyint(std::clamp(value, 0.0, 1.0) * 255));
        } else if (format_ == CIFormat::RGBAh) {
            const uint16_t half = nearestHalf(value);
            std::memcpy(to + 2 * c, &half, sizeof half);
        } else {
            const float single = static_cast<float>(value);
            std::memcpy(to + 4 * c, &single, sizeof single);
        }
    }

    int width_, height_;
    CIFormat format_;
    size_t bytesPerRow_;
    std::vector<uint8_t> memory_;
};

// ---- Random pictures ----------------------------------------------------------------------------

class Random {
public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    /// A whole number in [low, high].
    int whole(int low, int high) {
        return low + static_cast<int>(engine_() % static_cast<uint32_t>(high - low + 1));
    }
    double real(double low, double high) { return low + (high - low) * engine_() / 4294967295.0; }
    bool chance(double share) { return real(0, 1) < share; }
    CIFormat format() { return kAllFormats[whole(0, 4)]; }

private:
    std::mt19937 engine_;
};

/// A picture of premultiplied noise: opaque, of any alpha, or of extremes, with transparent pixels
/// among them. The float formats also hold values out of range when `wide`.
inline Bitmap randomBitmap(Random& random, int width, int height, CIFormat format,
                           bool wide = false) {
    Bitmap bitmap(width, height, format,
                  static_cast<size_t>(random.whole(0, 1) * random.whole(1, 37)));
    const int kind = random.whole(0, 2);
    bitmap.forEach([&](int x, int y) {
        const double alpha = kind == 0            ? 1
                             : random.chance(0.2) ? 0
                             : random.chance(0.3) ? 1
                                                  : random.whole(1, 255) / 255.0;
        Pixel p{0, 0, 0, alpha};
        for (size_t c = 0; c < 3; ++c) {
            const double straight = kind == 2 ? random.whole(0, 1) : random.real(0, 1);
            p[c] = alpha * (wide && random.chance(0.1) ? random.real(-0.5, 3) : straight);
        }
        bitmap.set(x, y, p);
    });
    return bitmap;
}

/// A rectangle of a shape that has tripped up image code before.
inline CGRect randomTarget(Random& random) {
    const std::pair<int, int> shapes[] = {{1, 1},
                                          {1, random.whole(2, 70)},
                                          {random.whole(2, 70), 1},
                                          {random.whole(2, 40), random.whole(2, 40)},
                                          {random.whole(15, 18), random.whole(2, 9)},
                                          {random.whole(60, 200), random.whole(60, 100)},
                                          {random.whole(500, 1300), random.whole(1, 12)}};
    const auto [width, height] = shapes[random.whole(0, 6)];
    const int far = random.chance(0.5) ? 10 : 3000;
    return {double(random.whole(-far, far)), double(random.whole(-far, far)), double(width),
            double(height)};
}

inline CGRect rectNear(CGRect rect, Random& random) {
    const int reach = 9;
    return {rect.x + random.whole(-reach, reach), rect.y + random.whole(-reach, reach),
            double(random.whole(1, static_cast<int>(rect.width) + reach)),
            double(random.whole(1, static_cast<int>(rect.height) + reach))};
}

/// The rectangle cut into a few at random.
inline void split(CGRect rect, int depth, Random& random, std::vector<CGRect>& parts) {
    const bool upright = random.chance(0.5);
    const int size = static_cast<int>(upright ? rect.height : rect.width);
    if (depth == 0 || size < 2) {
        parts.push_back(rect);
        return;
    }
    const double first = random.whole(1, size - 1);
    CGRect a = rect, b = rect;
    if (upright)
        a.height = first, b.y += first, b.height -= first;
    else
        a.width = first, b.x += first, b.width -= first;
    split(a, depth - 1, random, parts);
    split(b, depth - 1, random, parts);
}

// ---- Comparison ---------------------------------------------------------------------------------

/// `largest`: the largest difference of a channel, as a share of values above 1. `share` of the
/// pixels may differ by more, where a formula has a hard edge.
struct Tolerance {
    double largest = 0;
    double share = 0;
};

inline double differenceOf(const Pixel& a, const Pixel& b) {
    double most = 0;
    for (size_t c = 0; c < 4; ++c) {
        if (a[c] == b[c] || (std::isnan(a[c]) && std::isnan(b[c]))) continue;
        const double difference = std::fabs(a[c] - b[c]) / std::max(1.0, std::fabs(b[c]));
        most = std::max(most, std::isnan(difference) ? HUGE_VAL : difference);
    }
    return most;
}

/// Compares with a picture or with a function of the coordinates that gives the expected pixel.
template <class Expected>
testing::AssertionResult isClose(const Bitmap& actual, const Expected& expected,
                                 Tolerance tolerance) {
    if (!actual.isGuardIntact())
        return testing::AssertionFailure() << "bytes outside of the pixels were written";
    int count = 0;
    std::string first;
    actual.forEach([&](int x, int y) {
        Pixel wanted;
        if constexpr (std::is_same_v<Expected, Bitmap>)
            wanted = expected.pixel(x, y);
        else
            wanted = expected(x, y);
        const double difference = differenceOf(actual.pixel(x, y), wanted);
        if (difference <= tolerance.largest + 1e-9) return;
        if (count++ == 0)
            first = "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is " +
                    textOf(actual.pixel(x, y)) + " instead of " + textOf(wanted);
    });
    if (count <= tolerance.share * actual.width() * actual.height())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << first << "; " << count << " of "
                                       << actual.width() * actual.height() << " pixels differ";
}

// ---- Rendering ----------------------------------------------------------------------------------

inline CIContext& referenceContext() {
    static CIContext context({.device = DeviceKind::Reference});
    return context;
}

/// The CPU device on every instruction-set level that this processor has and kernels were built
/// for, with one thread and with two.
inline const std::vector<std::unique_ptr<CIContext>>& cpuContexts() {
    static const auto* contexts = [] {
        auto* list = new std::vector<std::unique_ptr<CIContext>>;
        for (const std::string& level : supportedInstructionSets()) {
            if (std::string_view(VORN_BUILT_LEVELS).find(level) == std::string_view::npos) continue;
            for (const int threads : {1, 2})
                list->push_back(std::make_unique<CIContext>(ContextOptions{
                    .device = DeviceKind::CPU, .threads = threads, .instructionSet = level}));
        }
        return list;
    }();
    return *contexts;
}

/// Those and the reference device.
inline std::vector<CIContext*> everyContext() {
    std::vector<CIContext*> contexts{&referenceContext()};
    for (const auto& context : cpuContexts()) contexts.push_back(context.get());
    return contexts;
}

/// The Vulkan device, a software one where there is no other; null where there is none at all, and
/// under the thread sanitizer, which knows nothing of the synchronisation inside of drivers.
inline CIContext* vulkanContext() {
#ifdef __SANITIZE_THREAD__
    return nullptr;
#endif
    static auto* context = new CIContext({.device = DeviceKind::Vulkan});
    return context->deviceProblem().empty() ? context : nullptr;
}
#define SKIP_WITHOUT_VULKAN()                                                                      \
    if (!vulkanContext()) GTEST_SKIP() << "there is no Vulkan device"

/// A session whose filters keep their frames on the CPU. Those of the standard one do so on a GPU
/// where any context has opened one, whose driver takes memory as it likes.
inline std::shared_ptr<vorn::Session> cpuSession() {
    return vorn::Session::make({.device = DeviceKind::CPU});
}

inline std::string nameOf(const CIContext& context) {
    return std::string(context.instructionSet()) + ", " + std::to_string(context.threads()) +
           " threads";
}

/// Renders whole pixels; a failure to render fails the test.
inline Bitmap render(CIContext& context, const CIImage& image, CGRect bounds,
                     CIFormat format = CIFormat::RGBA8, size_t padding = 0,
                     CGColorSpace colorSpace = CGColorSpace::None) {
    Bitmap bitmap(static_cast<int>(bounds.width), static_cast<int>(bounds.height), format, padding);
    EXPECT_TRUE(
        context.render(image, bitmap.bytes(), bitmap.bytesPerRow(), bounds, format, colorSpace))
        << context.lastError();
    return bitmap;
}

/// Renders the same in parts, cut at random.
inline Bitmap renderInParts(CIContext& context, const CIImage& image, CGRect bounds, int depth,
                            Random& random, CIFormat format = CIFormat::RGBA8, size_t padding = 0) {
    std::vector<CGRect> parts;
    split(bounds, depth, random, parts);
    Bitmap bitmap(static_cast<int>(bounds.width), static_cast<int>(bounds.height), format, padding);
    for (const CGRect& part : parts)
        EXPECT_TRUE(context.render(image,
                                   bitmap.at(static_cast<int>(part.x - bounds.x),
                                             static_cast<int>(part.y - bounds.y + part.height - 1)),
                                   bitmap.bytesPerRow(), part, format, CGColorSpace::None))
            << context.lastError();
    return bitmap;
}

// ---- Kernels and filters ------------------------------------------------------------------------

/// A kernel of a library that only the tests have.
inline CIKernel testKernel(const std::string& library, const std::string& name) {
    static std::map<std::string, Data> libraries;
    Data& data = libraries[library];
    if (!data) data = dataWithContentsOfFile(VORN_TEST_KERNELS "/" + library + ".ci.metallib");
    KernelError error;
    const CIKernel kernel = CIKernel::kernelWithFunctionName(name, data, &error);
    EXPECT_TRUE(kernel) << error.localizedDescription;
    return kernel;
}
inline CIKernel pictureKernel(const std::string& name) {
    return testKernel("EnginePictures", name);
}
inline CIWarpKernel warpKernel(const std::string& name) {
    return CIWarpKernel(pictureKernel(name).function());
}

/// The same picture, computed. It keeps its bits, so that what is steep in a kernel on top of it
/// does not enlarge what is lost.
inline CIImage computedAs(const CIImage& image) {
    return pictureKernel("scaleAndShift")
        .applyWithExtent(image.extent(), {image, CIVector(1, 1, 1, 1), CIVector(0, 0, 0, 0)})
        .imageInBitsOfSources();
}

/// An image of a bitmap as hosts and other filters hand it over: pixels in memory or computed, and
/// with its corner on a whole pixel or anywhere.
inline CIImage randomImageOf(const Bitmap& bitmap, CGPoint origin, Random& random) {
    if (random.chance(0.25)) origin.x += random.whole(1, 3) / 4.0;
    if (random.chance(0.25)) origin.y += random.whole(1, 3) / 4.0;
    const CIImage image = bitmap.image(origin);
    return random.chance(0.5) ? computedAs(image) : image;
}

using Settings = std::vector<std::pair<std::string, InputValue>>;

/// A filter's output for a source: its defaults, and the inputs set besides.
inline CIImage filtered(const std::string& name, const CIImage& source, const Settings& settings) {
    static const bool isRegistered = [] {
        VornEffectsRegistrar::registerAllFilters();
        return true;
    }();
    static_cast<void>(isRegistered);
    const CIFilterRef filter = CIFilter::filterWithName(name);
    if (!filter) {
        ADD_FAILURE() << "there is no filter " << name;
        return {};
    }
    filter->setDefaults();
    EXPECT_TRUE(filter->setValueForKey(source, filter->filterClass().guide().frameKey));
    for (const auto& [key, value] : settings)
        EXPECT_TRUE(filter->setValueForKey(value, key)) << key;
    return filter->outputImage();
}
