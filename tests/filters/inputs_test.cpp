// Inputs by their keys: set, read, unset, refused; what kernels get of them; and that no value
// makes a filter fail.
#include "allocation_count.h"
#include "bundle_copy.h"
#include "vorneffects/ImageDescription.h"
#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>

using namespace vorn;

namespace {

constexpr CGRect kExtent{10, -5, 4, 3};
constexpr CGRect kProbe{100, 101, 50, 51};

/// A source whose lower-left corner is not the origin.
CIImage source() {
    static const CIImage image =
        CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6)).imageByCroppingToRect(kExtent);
    return image;
}

CIFilterRef filterNamed(std::string_view name) {
    static const bool isRegistered = [] {
        VornEffectsRegistrar::registerAllFilters();
        return true;
    }();
    static_cast<void>(isRegistered);
    return CIFilter::filterWithName(name);
}

std::vector<std::string> everyFilter() {
    filterNamed("");
    return CIFilter::filterNames(kVornFilterCategory);
}

using Settings = std::vector<std::pair<std::string, InputValue>>;

void set(CIFilter& filter, const Settings& settings) {
    for (const auto& [key, value] : settings) EXPECT_TRUE(filter.setValueForKey(value, key)) << key;
}

// ---- Kernel arguments -------------------------------------------------------------------------

TEST(KernelArguments, AreWhatWasSetOrSinglesThatWereComputed) {
    struct Case {
        const char *filter, *key;
        size_t argument;
        Number set, passed;
    };
    for (const Case& test : {Case{"VESolarize", "inputIntensity", 1, -3, -3},
                             {"VESolarize", "inputIntensity", 1, 0.25f, 0.25f},
                             {"VEXray", "inputIntensity", 1, 0.1, 0.1},
                             {"VE_GainClamp", "input2", 1, 51.0, 0.2f},
                             {"VE_RGB_Gamma", "input1", 1, 80.0, 0.998431385f},
                             {"VE_RGB_Contrast", "input2", 2, 126.0, 0.99448818f}}) {
        SCOPED_TRACE(std::string(test.filter) + " " + test.key);
        const CIFilterRef filter = filterNamed(test.filter);
        filter->setDefaults();
        set(*filter, {{"inputImage", source()}, {test.key, test.set}});
        const auto output = describeImage(filter->outputImage(), kProbe);
        const auto& sampler = std::get<SamplerDescription>(output->arguments[0]);
        EXPECT_TRUE(sampler.image->object == source());
        EXPECT_EQ(sampler.colorSpace, CGColorSpace::None);
        const auto& passed = std::get<Number>(output->arguments[test.argument]);
        EXPECT_EQ(passed.doubleValue(), test.passed.doubleValue());
        EXPECT_EQ(passed.kind(), test.passed.kind());
    }
}

// ---- Missing arguments ------------------------------------------------------------------------

struct MissingCase {
    const char* filter;
    const char* key;
};

TEST(MissingInputs, GiveNoImageAndOneLine) {
    for (const MissingCase& missing : {MissingCase{"VEDummy", "inputImage"},
                                       {"VESolarize", "inputImage"},
                                       {"VESolarize", "inputIntensity"},
                                       {"VEGobo", "inputBlue"},
                                       {"VE_RGB_Gamma", "inputImage"},
                                       {"VE_TrafficSign", "inputScale"},
                                       {"VE_GainClamp", "inputImage"}}) {
        SCOPED_TRACE(std::string(missing.filter) + " without " + missing.key);
        const CIFilterRef filter = filterNamed(missing.filter);
        ASSERT_NE(filter, nullptr);
        filter->setDefaults();
        set(*filter, {{"inputImage", source()}});
        ASSERT_TRUE(filter->outputImage());

        set(*filter, {{missing.key, std::monostate{}}});
        testing::internal::CaptureStdout();
        EXPECT_FALSE(filter->outputImage());
        EXPECT_EQ(linesOf(testing::internal::GetCapturedStdout()).size(), 1u);
    }
}

// ---- Inputs by key ----------------------------------------------------------------------------

TEST(InputsByKey, AreSetReadAndUnset) {
    const CIFilterRef filter = filterNamed("VESolarize");
    EXPECT_EQ(std::get<Number>(filter->valueForKey("inputIntensity")), Number());
    EXPECT_TRUE(filter->setValueForKey(0.5, "inputIntensity"));
    EXPECT_EQ(std::get<Number>(filter->valueForKey("inputIntensity")), Number(0.5));
    EXPECT_TRUE(filter->setValueForKey(source(), "inputImage"));
    EXPECT_TRUE(std::get<CIImage>(filter->valueForKey("inputImage")) == source());
    EXPECT_TRUE(filter->setValueForKey({}, "inputIntensity"));
    EXPECT_EQ(std::get<Number>(filter->valueForKey("inputIntensity")), Number());
}

TEST(InputsByKey, RefuseOtherKindsAndUnknownKeys) {
    const CIFilterRef filter = filterNamed("VESolarize");
    filter->setValueForKey(0.5, "inputIntensity");
    EXPECT_FALSE(filter->setValueForKey("0.7", "inputIntensity"));
    EXPECT_FALSE(filter->setValueForKey(CIVector(1, 2), "inputIntensity"));
    EXPECT_FALSE(filter->setValueForKey(1.0, "inputImage"));
    EXPECT_EQ(std::get<Number>(filter->valueForKey("inputIntensity")), Number(0.5));

    for (const char* key : {"inputintensity", "inputIntensit", "inputIntensity ", "kernel", ""}) {
        EXPECT_FALSE(filter->setValueForKey(0.7, key)) << key;
        EXPECT_TRUE(std::holds_alternative<std::monostate>(filter->valueForKey(key))) << key;
    }
}

TEST(InputsByKey, AnAdvertisedKeyThatIsNotReadIsTakenAndIgnored) {
    const CIFilterRef filter = filterNamed("VEColorBrightContrast");
    EXPECT_TRUE(filter->setValueForKey(3.0, "inputBrighness"));
    EXPECT_TRUE(std::holds_alternative<std::monostate>(filter->valueForKey("inputBrighness")));
    filter->setDefaults();
    EXPECT_EQ(std::get<Number>(filter->valueForKey("inputBrightness")), Number());
}

TEST(InputsByKey, AllocateNothing) {
    if (!countsAllocations()) GTEST_SKIP() << "allocations are not counted under a sanitizer";
    const CIFilterRef filter = filterNamed("VEColorBrightContrast");
    const CIImage image = source();
    const auto setInputs = [&] {
        for (const char* key : {"inputBrighness", "inputBrightness", "inputRed", "inputNothing"})
            filter->setValueForKey(12.0, key);
        filter->setValueForKey(image, "inputImage");
    };
    setInputs();
    const uint64_t before = heapAllocations();
    ASSERT_GT(before, 0u) << "the count works";
    setInputs();
    EXPECT_EQ(heapAllocations(), before);
}

// ---- Every filter -----------------------------------------------------------------------------

TEST(EveryFilter, IsMadeWithoutAWord) {
    for (const std::string& name : everyFilter()) {
        testing::internal::CaptureStdout();
        EXPECT_NE(filterNamed(name), nullptr) << name;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << name;
    }
}

TEST(EveryFilter, TakesTheDefaultsItAdvertises) {
    for (const std::string& name : everyFilter()) {
        const CIFilterRef filter = filterNamed(name);
        filter->setDefaults();
        for (const InputAttributes& input : filter->filterClass().customAttributes()) {
            SCOPED_TRACE(name + " " + input.key);
            const AttributeValue* standard = input.find(kCIAttributeDefault);
            const InputValue value = filter->valueForKey(input.key);
            if (!standard || std::holds_alternative<std::monostate>(value)) continue;
            if (const double* number = std::get_if<double>(standard)) {
                EXPECT_EQ(std::get<Number>(value), Number(*number));
            } else if (const CIVector* vector = std::get_if<CIVector>(standard)) {
                EXPECT_EQ(std::get<CIVector>(value), *vector);
            } else if (const CIColor* color = std::get_if<CIColor>(standard)) {
                EXPECT_EQ(std::get<CIColor>(value), *color);
            }
        }
    }
}

/// Values that no host should set, of every kind.
std::vector<InputValue> oddValues() {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {std::monostate{},
            Number(-1),
            Number(1e300),
            Number(-infinity),
            Number(std::nan("")),
            CIVector(infinity, -1),
            CIVector(0, 0, 0, 0),
            CIColor(std::nan(""), 2, -1, infinity),
            CIImage(),
            CIImage::imageWithColor(CIColor(1, 0, 0)),
            CIImage::imageWithColor(CIColor(1, 0, 0)).imageByCroppingToRect({1e9, -1e9, 1e-3, 7}),
            Data(),
            std::make_shared<const std::vector<uint8_t>>(),
            std::make_shared<const std::vector<uint8_t>>(3, uint8_t{255}),
            std::string(),
            std::string("\xff\xfe text"),
            CGAffineTransform{0, 0, 0, 0, infinity, 0}};
}

TEST(EveryFilter, LivesThroughOddInputs) {
    testing::internal::CaptureStdout();
    for (const std::string& name : everyFilter()) {
        for (const bool startsWithDefaults : {false, true}) {
            const CIFilterRef filter = filterNamed(name);
            const auto makeFrame = [&] { describeImage(filter->outputImage(), kProbe); };
            if (startsWithDefaults) {
                filter->setDefaults();
                filter->setValueForKey(source(), "inputImage");
            }
            makeFrame();
            for (const InputInfo& input : filter->filterClass().inputs()) {
                const InputValue before = filter->valueForKey(input.key);
                for (const InputValue& value : oddValues())
                    if (filter->setValueForKey(value, input.key)) makeFrame();
                EXPECT_TRUE(filter->setValueForKey(before, input.key)) << name << input.key;
            }
            filter->setVornFrameTime(std::numeric_limits<uint64_t>::max());
            makeFrame();
            filter->setVornFrameTime(0);
            filter->clear();
            makeFrame();
        }
    }
    testing::internal::GetCapturedStdout();
}

} // namespace
