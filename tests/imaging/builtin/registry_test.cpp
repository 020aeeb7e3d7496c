// The framework's own filters by name, and what they refuse.
#include "builtin_support.h"

#include "vorneffects/ImageDescription.h"

#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace {

using namespace builtin_test;

TEST(Builtin, StandsInTheRegistryUnderCategoriesOfItsOwn) {
    const std::map<std::string, std::vector<std::string>> byCategory = {
        {"Built-in Blur", {"CIGaussianBlur"}},
        {"Built-in Color",
         {"CIColorControls", "CIColorMonochrome", "CIHueAdjust", "CITemperatureAndTint"}},
        {"Built-in Compositing",
         {"CIBlendWithAlphaMask", "CIBlendWithMask", "CIDarkenBlendMode", "CIDivideBlendMode",
          "CIHardLightBlendMode", "CIMaximumCompositing", "CIPinLightBlendMode",
          "CISourceOverCompositing"}},
        {"Built-in Generator", {"CIRadialGradient", "CIRandomGenerator", "CISmoothLinearGradient"}},
        {"Built-in Geometry",
         {"CIAffineTransform", "CICrop", "CILanczosScaleTransform",
          "CIPerspectiveTransformWithExtent"}}};
    for (const auto& [category, names] : byCategory) {
        EXPECT_EQ(CIFilter::filterNames(category), names);
        for (const std::string& name : names) {
            const CIFilterRef filter = CIFilter::filterWithName(name);
            ASSERT_TRUE(filter) << name;
            EXPECT_EQ(filter->filterClass().classInfo.name, name);
        }
    }
}

TEST(Builtin, SetsTheAdvertisedDefaultsWhenMade) {
    for (const std::string& name : CIFilter::filterNames()) {
        if (!name.starts_with("CI")) continue;
        const CIFilterRef fresh = CIFilter::filterWithName(name),
                          set = CIFilter::filterWithName(name);
        set->setDefaults();
        for (const InputInfo& input : fresh->filterClass().inputs()) {
            const bool isAdvertised = std::ranges::any_of(
                fresh->filterClass().customAttributes(),
                [&](const InputAttributes& attributes) { return attributes.key == input.key; });
            if (!isAdvertised) continue;
            const InputValue a = fresh->valueForKey(input.key), b = set->valueForKey(input.key);
            EXPECT_EQ(a.index(), b.index()) << name << " " << input.key;
            if (const auto* number = std::get_if<Number>(&b)) {
                EXPECT_EQ(std::get<Number>(a).doubleValue(), number->doubleValue())
                    << name << " " << input.key;
            }
        }
    }
}

TEST(Builtin, IsDescribedByItsNameAndInputs) {
    const Placed source = noise(1, 8, 8);
    const auto description =
        describeImage(made("CIGaussianBlur", {{"inputImage", source.image()}}), {0, 0, 1, 1});
    ASSERT_TRUE(description);
    EXPECT_EQ(description->kind, ImageDescription::Kind::Builtin);
    EXPECT_EQ(description->name, "CIGaussianBlur");
    ASSERT_EQ(description->inputs.size(), 2u);
    EXPECT_EQ(description->inputs[0].first, "inputImage");
    EXPECT_EQ(std::get<Number>(description->inputs[1].second).doubleValue(), 10);
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInf = HUGE_VAL;

struct Refusal {
    const char* filter;
    Settings settings;
};

const Refusal kRefusals[] = {
    {"CICrop", {{"inputRectangle", CIVector(0, kNaN, 3, 3)}}},
    {"CICrop", {{"inputRectangle", CIVector(0, 0, kNaN, 3)}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{0, 0, 0, 0, 1, 1}}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{kNaN, 0, 0, 1, 1, 1}}}},
    {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1, 0, 0, 1, kInf, 1}}}},
    {"CIHueAdjust", {{"inputAngle", Number(kNaN)}}},
    {"CIColorControls", {{"inputContrast", Number(kInf)}}},
    {"CIColorMonochrome", {{"inputColor", CIColor(kNaN, 0, 0)}}},
    {"CITemperatureAndTint", {{"inputNeutral", CIVector(kInf, 0)}}},
    {"CITemperatureAndTint", {{"inputTargetNeutral", CIVector(5000, kNaN)}}},
    {"CIRadialGradient", {{"inputRadius1", Number(kNaN)}}},
    {"CIRadialGradient", {{"inputCenter", CIVector(kInf, 0)}}},
    {"CISmoothLinearGradient", {{"inputPoint0", CIVector(kNaN, 0)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(kNaN)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(kInf)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(-1)}}},
    {"CIGaussianBlur", {{"inputRadius", Number(1000000)}}},
    {"CIGaussianBlur",
     {{"inputImage", CIImage::imageWithColor(CIColor(1, 1, 1))}, {"inputRadius", Number(5000)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(0)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(-2)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(kNaN)}}},
    {"CILanczosScaleTransform", {{"inputScale", Number(1e9)}}},
    {"CILanczosScaleTransform", {{"inputAspectRatio", Number(0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopLeft", CIVector(kNaN, 0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopLeft", CIVector(300, 0)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputTopRight", CIVector(20, 10)}}},
    {"CIPerspectiveTransformWithExtent", {{"inputExtent", CIVector(0, 0, 0, 10)}}},
    {"CIPerspectiveTransformWithExtent",
     {{"inputTopLeft", CIVector(0, 0)},
      {"inputTopRight", CIVector(0, 0)},
      {"inputBottomRight", CIVector(0, 0)},
      {"inputBottomLeft", CIVector(0, 0)}}},
};

TEST(Builtin, RefusesWhatMakesNoSenseWithOneLine) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage image = pixels.image();
    for (const Refusal& refusal : kRefusals) {
        Settings settings = refusal.settings;
        if (CIFilter::filterWithName(refusal.filter)->setValueForKey(image, "inputImage"))
            settings.insert(settings.begin(), {"inputImage", image});
        testing::internal::CaptureStdout();
        const CIImage output = made(refusal.filter, settings);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_FALSE(output) << refusal.filter << printed;
        EXPECT_TRUE(printed.starts_with("### " + std::string(refusal.filter) + ": ")) << printed;
        EXPECT_EQ(std::ranges::count(printed, '\n'), 1) << printed;
    }
}

TEST(Builtin, LivesThroughEmptyImagesAndExtremes) {
    const Placed pixels = noise(1, 5, 5);
    const CIImage source = pixels.image();
    const CIImage empty = source.imageByCroppingToRect({100, 100, 1, 1});
    for (const std::string& name : CIFilter::filterNames()) {
        if (!name.starts_with("CI")) continue;
        const CIFilterRef filter = CIFilter::filterWithName(name);
        const bool takesImage = filter->setValueForKey(empty, "inputImage");
        const CIImage output = filter->outputImage();
        if (!takesImage) continue;
        EXPECT_TRUE(!output || output.extent().isEmpty()) << name;
        filter->setValueForKey(InputValue{}, "inputImage");
        EXPECT_FALSE(filter->outputImage()) << name;
    }
    const std::pair<const char*, Settings> extremes[] = {
        {"CIGaussianBlur", {{"inputRadius", Number(99999)}}},
        {"CIGaussianBlur", {{"inputRadius", Number(1e-30)}}},
        {"CILanczosScaleTransform", {{"inputScale", Number(1e-4)}}},
        {"CILanczosScaleTransform", {{"inputScale", Number(1e4)}}},
        {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1e12, 0, 0, 1e12, 0, 0}}}},
        {"CIAffineTransform", {{"inputTransform", CGAffineTransform{1e-12, 0, 0, 1e-12, 0, 0}}}},
    };
    for (const auto& [name, settings] : extremes) {
        Settings all = settings;
        all.emplace_back("inputImage", source);
        for (CIContext* context : everyContext())
            render(*context, made(name, all), {-8, -8, 32, 16});
    }
}

} // namespace
