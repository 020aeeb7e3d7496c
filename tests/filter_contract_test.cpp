// What hosts rely on: the advertised inputs of each filter, what it hands to its kernel, and that
// no input makes it fail.
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

// ---- Advertised inputs ------------------------------------------------------------------------

/// One row of a filter's input table. Without a display name: the form that leaves it out.
struct ScalarRow {
    std::string key, displayName;
    double min, sliderMin, sliderMax, standard, identity;
};

InputAttributes attributesOf(const ScalarRow& row) {
    InputAttributes expected{row.key,
                             {{"kCIAttributeMin", row.min},
                              {"kCIAttributeSliderMin", row.sliderMin},
                              {"kCIAttributeSliderMax", row.sliderMax},
                              {"kCIAttributeDefault", row.standard},
                              {"kCIAttributeIdentity", row.identity}}};
    if (!row.displayName.empty())
        expected.entries.emplace_back("kCIAttributeDisplayName", row.displayName);
    expected.entries.emplace_back("kCIAttributeType", "kCIAttributeTypeDistance");
    return expected;
}

/// Attributes as text, which shows order and values alike in a failure.
std::string textOf(const InputAttributes& input) {
    std::string text = input.key + ":";
    for (const auto& [name, value] : input.entries) {
        text += "\n  " + name + " = ";
        if (const auto* number = std::get_if<double>(&value))
            text += std::to_string(*number);
        else if (const auto* word = std::get_if<std::string>(&value))
            text += *word;
        else if (const auto* vector = std::get_if<CIVector>(&value))
            text += std::to_string(vector->X()) + ", " + std::to_string(vector->Y());
        else
            text += "a colour";
    }
    return text;
}

struct AttributesCase {
    std::string filter;
    std::vector<ScalarRow> rows;
};

std::ostream& operator<<(std::ostream& stream, const AttributesCase& test) {
    return stream << test.filter;
}

class AdvertisedInputs : public testing::TestWithParam<AttributesCase> {};

TEST_P(AdvertisedInputs, AreThoseOfTheTable) {
    const CIFilterRef filter = filterNamed(GetParam().filter);
    ASSERT_NE(filter, nullptr);
    const Attributes& attributes = filter->filterClass().customAttributes();
    ASSERT_EQ(attributes.size(), GetParam().rows.size());
    for (size_t index = 0; index < attributes.size(); ++index)
        EXPECT_EQ(textOf(attributes[index]), textOf(attributesOf(GetParam().rows[index])));
}

INSTANTIATE_TEST_SUITE_P(
    , AdvertisedInputs,
    testing::Values(AttributesCase{"VEDummy", {}},
                    AttributesCase{"VESolarize", {{"inputIntensity", "intensity", 0, 0, 1, 0, 0}}},
                    AttributesCase{"VE_RGB_Gamma",
                                   {{"input1", "", 0, 0, 255, 80, 0},
                                    {"input2", "", 0, 0, 255, 80, 0},
                                    {"input3", "", 0, 0, 255, 80, 0},
                                    {"input4", "", 0, 0, 255, 80, 0}}},
                    AttributesCase{"VE_RGB_Contrast",
                                   {{"input1", "", 0, 0, 255, 127, 0},
                                    {"input2", "", 0, 0, 255, 127, 0},
                                    {"input3", "", 0, 0, 255, 127, 0},
                                    {"input4", "", 0, 0, 255, 127, 0}}},
                    AttributesCase{"VEColorBrightContrast",
                                   {{"inputBrighness", "brightness", 0, 0, 255, 127, 0},
                                    {"inputContrast", "contrast", 0, 0, 255, 127, 0},
                                    {"inputRed", "red", 0, 0, 255, 127, 0},
                                    {"inputGreen", "green", 0, 0, 255, 127, 0},
                                    {"inputBlue", "blue", 0, 0, 255, 127, 0}}},
                    AttributesCase{"VE_GainClamp",
                                   {{"input1", "", 0, 0, 255, 0, 0},
                                    {"input2", "", 0, 0, 255, 255, 0},
                                    {"input3", "", 0, 0, 255, 255, 0},
                                    {"input4", "", 0, 0, 255, 255, 0}}},
                    AttributesCase{"VEXray", {{"inputIntensity", "intensity", 0, 0, 1, 0, 0}}},
                    AttributesCase{"VEGobo",
                                   {{"inputMixer", "mixer", 0, 0, 1, 1, 0},
                                    {"inputIntensity", "intensity", 0, 0, 1, 0, 0},
                                    {"inputRed", "red", 0, 0, 1, 0, 0},
                                    {"inputGreen", "green", 0, 0, 1, 0, 0},
                                    {"inputBlue", "blue", 0, 0, 1, 0, 0}}},
                    AttributesCase{"VE_TrafficSign",
                                   {{"inputMixer", "", 0, 0, 1, 0, 0},
                                    {"inputScale", "", 1, 1, 200, 10, 0},
                                    {"inputBoost", "", 1, 1, 5, 1, 0}}}),
    [](const auto& test) { return test.param.filter; });

TEST(PositionInputs, HaveADefaultALabelAndAType) {
    EXPECT_EQ(textOf(position("inputTargetSize", "Target Size", CIVector(800, 600))),
              "inputTargetSize:\n  kCIAttributeDefault = 800.000000, 600.000000\n"
              "  kCIAttributeDisplayName = Target Size\n"
              "  kCIAttributeType = kCIAttributeTypePosition");
}

// ---- Kernel arguments -------------------------------------------------------------------------

using Settings = std::vector<std::pair<std::string, InputValue>>;

void set(CIFilter& filter, const Settings& settings) {
    for (const auto& [key, value] : settings) EXPECT_TRUE(filter.setValueForKey(value, key)) << key;
}

/// A row: the filter with its defaults, the inputs set besides, and the kernel and arguments that
/// follow. Numbers that the filter computes are singles, numbers passed as set stay what they were.
struct KernelCase {
    const char* title;
    std::string filter;
    Settings settings;
    KernelType type;
    std::string library, function;
    std::vector<ArgumentDescription> numbers; // the arguments after the sampler
};

std::ostream& operator<<(std::ostream& stream, const KernelCase& test) {
    return stream << test.title;
}

class KernelArgumentsOf : public testing::TestWithParam<KernelCase> {};

void expectArgument(const ArgumentDescription& actual, const ArgumentDescription& expected) {
    ASSERT_EQ(actual.index(), expected.index());
    if (const Number* number = std::get_if<Number>(&expected)) {
        EXPECT_EQ(std::get<Number>(actual).doubleValue(), number->doubleValue());
        EXPECT_EQ(std::get<Number>(actual).kind(), number->kind());
    } else {
        const CIVector wanted = std::get<CIVector>(expected), got = std::get<CIVector>(actual);
        EXPECT_EQ(got.count(), wanted.count());
        for (size_t index = 0; index < 4; ++index)
            EXPECT_EQ(got.valueAtIndex(index), wanted.valueAtIndex(index)) << index;
    }
}

TEST_P(KernelArgumentsOf, FollowTheInputs) {
    const KernelCase& expected = GetParam();
    const CIFilterRef filter = filterNamed(expected.filter);
    ASSERT_NE(filter, nullptr);
    filter->setDefaults();
    set(*filter, {{"inputImage", source()}});
    set(*filter, expected.settings);

    const auto output = describeImage(filter->outputImage(), kProbe);
    ASSERT_NE(output, nullptr);
    ASSERT_EQ(output->kind, ImageDescription::Kind::Kernel);
    EXPECT_EQ(output->library, expected.library);
    EXPECT_EQ(output->function, expected.function);
    EXPECT_EQ(output->type, expected.type);
    EXPECT_EQ(output->extent, kExtent);
    if (expected.type != KernelType::Color) {
        EXPECT_EQ(output->regionsOfInterest, std::vector<CGRect>{kProbe});
    }

    ASSERT_EQ(output->arguments.size(), expected.numbers.size() + 1);
    const auto* sampler = std::get_if<SamplerDescription>(&output->arguments[0]);
    ASSERT_NE(sampler, nullptr);
    ASSERT_NE(sampler->image, nullptr);
    EXPECT_TRUE(sampler->image->object == source());
    EXPECT_EQ(sampler->colorSpace, CGColorSpace::None);
    for (size_t index = 0; index < expected.numbers.size(); ++index) {
        SCOPED_TRACE("argument " + std::to_string(index + 1));
        expectArgument(output->arguments[index + 1], expected.numbers[index]);
    }
}

using Arguments = std::vector<ArgumentDescription>;

KernelCase gainClamp(const char* title, Number mode, const char* function) {
    return {title,
            "VE_GainClamp",
            {{"input1", mode}, {"input2", 51.0}, {"input3", 128.0}},
            KernelType::General,
            "VE_GainClampFilterKernel",
            function,
            {Number(0.2f), Number(0.501960814f), Number(1.0f)}};
}

KernelCase gamma(const char* title, Settings settings, Arguments arguments) {
    return {title,
            "VE_RGB_Gamma",
            std::move(settings),
            KernelType::Color,
            "VE_RGB_GammaFilterKernel",
            "VE_RGB_Gamma_rgbGamma",
            std::move(arguments)};
}

KernelCase contrast(const char* title, Settings settings, Arguments arguments) {
    return {title,
            "VE_RGB_Contrast",
            std::move(settings),
            KernelType::Color,
            "VE_RGB_ContrastFilterKernel",
            "VE_RGB_Contrast_rgbContrast",
            std::move(arguments)};
}

KernelCase brightContrast(const char* title, Settings settings, CIVector gains, CIVector boosts,
                          float brightness, float contrast) {
    return {title,
            "VEColorBrightContrast",
            std::move(settings),
            KernelType::Color,
            "VE_ColorBrightContrastFilterKernel",
            "VE_ColorBrightContrast_colorBrightContrast",
            {gains, boosts, Number(brightness), Number(contrast)}};
}

const CIVector kGainsAtRest(1, 1, 1), kNoBoost(0, 0, 0);
constexpr Number kUnset;

INSTANTIATE_TEST_SUITE_P(
    , KernelArgumentsOf,
    testing::Values(
        KernelCase{"Dummy",
                   "VEDummy",
                   {},
                   KernelType::General,
                   "VE_DummyFilterKernel",
                   "VE_Dummy_dummy",
                   {}},
        KernelCase{"SolarizeDefaults",
                   "VESolarize",
                   {},
                   KernelType::Color,
                   "VE_SolarizeFilterKernel",
                   "VE_Solarize_solarize",
                   {Number(0.0)}},
        KernelCase{"SolarizeOutOfRange",
                   "VESolarize",
                   {{"inputIntensity", -3}},
                   KernelType::Color,
                   "VE_SolarizeFilterKernel",
                   "VE_Solarize_solarize",
                   {Number(-3)}},
        KernelCase{"Xray",
                   "VEXray",
                   {{"inputIntensity", 0.25f}},
                   KernelType::Color,
                   "VE_XrayFilterKernel",
                   "VE_Xray_xray",
                   {Number(0.25f)}},
        KernelCase{
            "Gobo",
            "VEGobo",
            {{"inputIntensity", 0.1}, {"inputRed", 0.2}, {"inputGreen", 0.3}, {"inputBlue", 0.4}},
            KernelType::General,
            "VE_GoboFilterKernel",
            "VE_Gobo_blackAndWhite",
            {Number(1.0), Number(0.1), Number(0.2), Number(0.3), Number(0.4)}},
        KernelCase{"TrafficSign",
                   "VE_TrafficSign",
                   {{"inputBoost", 2.5}},
                   KernelType::General,
                   "VE_TrafficSignFilterKernel",
                   "VE_TrafficSign_trafficSign",
                   {Number(0.0), Number(10.0), Number(2.5)}},

        gamma("GammaDefaults", {},
              {Number(0.998431385f), Number(0.998431385f), Number(0.998431385f),
               Number(0.998431385f)}),
        gamma("GammaEndsAndUnset",
              {{"input1", 0.0}, {"input2", 1.0}, {"input3", 255.0}, {"input4", kUnset}},
              {Number(0.0886274502f), Number(0.1f), Number(2.98862743f), Number(0.0886274502f)}),

        contrast("ContrastDefaults", {}, Arguments(4, Number(1.0f))),
        contrast("ContrastEnds",
                 {{"input1", 0.0}, {"input2", 126.0}, {"input3", 128.0}, {"input4", 255.0}},
                 {Number(0.300000012f), Number(0.99448818f), Number(1.00787401f),
                  Number(2.00787401f)}),

        brightContrast("BrightContrastDefaults", {}, kGainsAtRest, kNoBoost, -1.0f, 1.0f),
        brightContrast("BrightContrastByTheAdvertisedKey", {{"inputBrighness", 200.0}},
                       kGainsAtRest, kNoBoost, -1.0f, 1.0f),
        brightContrast("BrightContrastByTheKeyThatIsRead",
                       {{"inputBrightness", 255.0}, {"inputContrast", 64.0}}, kGainsAtRest,
                       kNoBoost, 1.00787401f, 0.503937006f),
        brightContrast("BrightContrastGains",
                       {{"inputRed", 255.0},
                        {"inputGreen", 0.0},
                        {"inputBlue", 128.0},
                        {"inputBrightness", 127.0}},
                       CIVector(2.00787401f, 0, 1.00787401f),
                       CIVector(0.507905006f, 0, 3.10000323e-05f), 0.0f, 1.0f),
        brightContrast(
            "BrightContrastInfinite",
            {{"inputRed", -std::numeric_limits<double>::infinity()}, {"inputBrightness", 1.5}},
            CIVector(-std::numeric_limits<float>::infinity(), 1, 1), kNoBoost, -0.988188982f, 1.0f),

        gainClamp("GainThreshold", 0.0, "VE_GainClamp_gainThreshold"),
        gainClamp("GainThresholdWhenUnset", kUnset, "VE_GainClamp_gainThreshold"),
        gainClamp("GainThresholdWhenNegative", -1, "VE_GainClamp_gainThreshold"),
        gainClamp("GainThresholdWhenNotANumber", std::nan(""), "VE_GainClamp_gainThreshold"),
        gainClamp("GainClampTruncatesItsMode", 1.9, "VE_GainClamp_gainClamp"),
        gainClamp("GainClampHybrid", 2, "VE_GainClamp_hybridHSVgainClamp"),
        gainClamp("GainClampPastTheLast", 7.0, "VE_GainClamp_hybridHSVgainClamp"),
        gainClamp("GainClampAboveTheSignedRange", 3e9, "VE_GainClamp_gainThreshold")),
    [](const auto& test) { return test.param.title; });

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
