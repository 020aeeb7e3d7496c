// The CPU device against the reference device: every kernel and filter on random sizes, origins,
// contents and formats, on every instruction-set level; splits of the output; what is not to be
// touched stays as it was.
#include "support.h"

#include <functional>
#include <ostream>

namespace {

using Sources = std::vector<CIImage>;

/// A picture to try: how it is made of its sources, and how near the devices have to be.
struct Recipe {
    const char* name;
    size_t sources;
    bool readsElsewhere;
    std::function<CIImage(const Sources&, CGRect target, Random&)> make;
    /// Share of the pixels that may differ by more: those on a hard edge of the formula.
    double hardEdges = 0;
};

std::ostream& operator<<(std::ostream& stream, const Recipe& recipe) {
    return stream << recipe.name;
}

CGPoint centerOf(CGRect rect) {
    return {rect.x + rect.width / 2, rect.y + rect.height / 2};
}

std::function<CIImage(const Sources&, CGRect, Random&)>
filterRecipe(std::string name,
             std::vector<std::pair<std::string, std::pair<double, double>>> ranges,
             Settings fixed = {}) {
    return [=](const Sources& sources, CGRect, Random& random) {
        Settings settings = fixed;
        for (const auto& [key, range] : ranges)
            settings.emplace_back(key, Number(random.real(range.first, range.second)));
        return filtered(name, sources[0], settings);
    };
}

constexpr std::pair<double, double> kUnit{0, 1}, kByte{0, 255};

Recipe gainClamp(const char* name, int mode, double hardEdges = 0) {
    return {name, 1, false,
            filterRecipe("VE_GainClamp", {{"input2", kByte}, {"input3", kByte}, {"input4", kByte}},
                         {{"input1", mode}}),
            hardEdges};
}

const Recipe kRecipes[] = {
    {"Dummy", 1, false, filterRecipe("VEDummy", {})},
    {"Solarize", 1, false, filterRecipe("VESolarize", {{"inputIntensity", {-0.2, 1.2}}})},
    {"Gamma", 1, false,
     filterRecipe(
         "VE_RGB_Gamma",
         {{"input1", kByte}, {"input2", kByte}, {"input3", kByte}, {"input4", {40, 200}}})},
    {"Contrast", 1, false,
     filterRecipe("VE_RGB_Contrast",
                  {{"input1", kByte}, {"input2", kByte}, {"input3", kByte}, {"input4", kByte}})},
    {"BrightContrast", 1, false,
     filterRecipe("VEColorBrightContrast", {{"inputBrightness", kByte},
                                            {"inputContrast", kByte},
                                            {"inputRed", kByte},
                                            {"inputGreen", kByte},
                                            {"inputBlue", kByte}})},
    gainClamp("GainThreshold", 0),
    gainClamp("GainClamp", 1),
    gainClamp("GainClampHybrid", 2),
    {"Xray", 1, false, filterRecipe("VEXray", {{"inputIntensity", kUnit}})},
    {"Gobo", 1, false,
     filterRecipe("VEGobo", {{"inputMixer", kUnit},
                             {"inputIntensity", kUnit},
                             {"inputRed", kUnit},
                             {"inputGreen", kUnit},
                             {"inputBlue", kUnit}})},
    // Rounds to steps: a value next to the middle of two may fall to either side.
    {"TrafficSign", 1, false,
     filterRecipe("VE_TrafficSign",
                  {{"inputMixer", kUnit}, {"inputScale", {1, 60}}, {"inputBoost", {1, 5}}}),
     0.002},

    {"OwnPixelGeneral", 1, false,
     [](const Sources& s, CGRect, Random& random) {
         return pictureKernel("rotateChannels")
             .applyWithExtent(s[0].extent(), RegionOfInterest::identity(),
                              {s[0], random.real(0, 1)});
     }},
    {"TwoPixels", 2, false,
     [](const Sources& s, CGRect, Random& random) {
         return pictureKernel("blend").applyWithExtent(s[0].extent().unionWith(s[1].extent()),
                                                       {s[0], s[1], random.real(0, 1)});
     }},
    {"SameImageTwice", 1, false,
     [](const Sources& s, CGRect, Random&) {
         return pictureKernel("blend").applyWithExtent(
             s[0].extent(),
             {s[0], pictureKernel("square").applyWithExtent(s[0].extent(), {s[0]}), 0.5});
     }},
    {"ChainOfOwnPixels", 2, false,
     [](const Sources& s, CGRect target, Random& random) {
         CIImage image = s[0];
         for (int i = random.whole(1, 6); i > 0; --i) {
             if (random.chance(0.3))
                 image = pictureKernel("blend").applyWithExtent(
                     image.extent().unionWith(s[1].extent()), {image, s[1], random.real(0, 1)});
             else
                 image = pictureKernel("scaleAndShift")
                             .applyWithExtent(image.extent(), {image, CIVector(0.9, 1.1, 0.8, 1),
                                                               CIVector(0.05, -0.02, 0.1, 0)});
             if (random.chance(0.3)) image = image.imageByCroppingToRect(rectNear(target, random));
             if (random.chance(0.2)) image = image.imageByInsertingIntermediate();
         }
         return image;
     }},
    {"Composite", 2, false,
     [](const Sources& s, CGRect, Random&) { return s[0].imageByCompositingOverImage(s[1]); }},
    {"CropOfCrop", 1, false,
     [](const Sources& s, CGRect target, Random& random) {
         return s[0]
             .imageByCroppingToRect(rectNear(target, random))
             .imageByCroppingToRect(rectNear(target, random));
     }},
    {"ConstantColour", 0, false,
     [](const Sources&, CGRect target, Random& random) {
         return CIImage::imageWithColor(CIColor(0.2, 0.5, 0.9, random.real(0, 1)))
             .imageByCroppingToRect(rectNear(target, random));
     }},
    {"NoSource", 0, false,
     [](const Sources&, CGRect target, Random& random) {
         const CGRect extent = rectNear(target, random);
         return pictureKernel("oneColor").applyWithExtent(extent, {CIVector(0.1, 0.2, 0.3, 0.4)});
     }},
    {"Ramp", 0, false,
     [](const Sources&, CGRect target, Random& random) {
         const CGRect r = rectNear(target, random);
         return pictureKernel("ramp").applyWithExtent(
             r, RegionOfInterest::identity(), {CIVector(r.x, r.y), CIVector(r.width, r.height)});
     }},
    {"IntegerHash", 0, false,
     [](const Sources&, CGRect target, Random& random) {
         return pictureKernel("integerHash").applyWithExtent(target, {random.whole(-9, 9)});
     }},
    {"ExtentTold", 1, false,
     [](const Sources& s, CGRect target, Random&) {
         return pictureKernel("scaleAndShift")
             .applyWithExtent(target,
                              {pictureKernel("extentTold")
                                   .applyWithExtent(target, RegionOfInterest::identity(), {s[0]}),
                               CIVector(1e-3, 1e-3, 1e-3, 1e-3), CIVector(0.5, 0.5, 0, 0)});
     }},

    {"ReadAtAnOffset", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CIVector offset(random.real(-4, 4), random.whole(-4, 4));
         return pictureKernel("readAt").applyWithExtent(target, RegionOfInterest::grownBy(5),
                                                        {s[0], offset});
     }},
    {"NearestAtAnOffset", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         // Offsets well inside of a pixel, so that no read falls on the edge between two.
         const CIVector offset(random.whole(-4, 4) + 0.25, random.whole(-4, 4) - 0.25);
         const CISampler sampler(s[0], {.filter = SamplerFilter::Nearest});
         return pictureKernel("readAt").applyWithExtent(target, RegionOfInterest::whole(sampler),
                                                        {sampler, offset});
     }},
    {"BoxOfALazyImage", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         const int radius = random.whole(0, 3);
         const CIImage lazy = pictureKernel("square").applyWithExtent(s[0].extent(), {s[0]});
         return pictureKernel("box").applyWithExtent(target, RegionOfInterest::grownBy(radius),
                                                     {lazy, radius});
     }},
    {"Rotation", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CGPoint center = centerOf(target);
         return pictureKernel("rotateAbout")
             .applyWithExtent(target, RegionOfInterest::whole(s[0]),
                              {s[0], CIVector(center.x, center.y), random.real(-3, 3)});
     }},
    {"Mirror", 1, true,
     [](const Sources& s, CGRect, Random&) {
         // An identity rule that does not hold: the kernel gets the whole input all the same.
         return pictureKernel("mirror").applyWithExtent(s[0].extent(), RegionOfInterest::identity(),
                                                        {s[0]});
     }},
    {"Displace", 2, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CIImage lazy = pictureKernel("square").applyWithExtent(s[1].extent(), {s[1]});
         return pictureKernel("displace")
             .applyWithExtent(target, RegionOfInterest::wholeByIndex(s[0].extent(), s[1].extent()),
                              {s[0], lazy, random.real(-6, 6)});
     }},
    {"AffineTransform", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CGPoint c = centerOf(target);
         const double angle = random.real(-3, 3), k = random.real(0.5, 2);
         const CGAffineTransform about = CGAffineTransform{1, 0, 0, 1, -c.x, -c.y}.then(
             {k * std::cos(angle), k * std::sin(angle), -std::sin(angle), std::cos(angle), c.x,
              c.y});
         return s[0].imageByApplyingTransform(about);
     }},
    {"Warp", 1, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CGPoint c = centerOf(target);
         return warpKernel("swirl").applyWithExtent(target, RegionOfInterest::whole(s[0]), s[0],
                                                    {CIVector(c.x, c.y), random.real(-3, 3)});
     }},
    {"WarpOfAChain", 2, true,
     [](const Sources& s, CGRect target, Random& random) {
         const CIImage over =
             s[0].imageByCompositingOverImage(s[1]).imageByCroppingToRect(rectNear(target, random));
         const double x = random.real(-3, 3), y = random.real(-3, 3);
         const auto rule = RegionOfInterest::computed([x, y](int, CGRect d) {
             return CGRect{d.x + x, d.y + y, d.width, d.height};
         });
         const CIImage moved =
             warpKernel("shift").applyWithExtent(target, rule, over, {CIVector(x, y)});
         return pictureKernel("rotateChannels")
             .applyWithExtent(target, RegionOfInterest::identity(), {moved, 1.0});
     }},
    {"TwoPasses", 1, true,
     [](const Sources& s, CGRect target, Random&) {
         const auto pass = [&](const CIImage& image) {
             return pictureKernel("box").applyWithExtent(target.grownBy(2),
                                                         RegionOfInterest::grownBy(1), {image, 1});
         };
         return pass(pass(s[0]));
     }},
    {"ReadNowhere", 1, true,
     [](const Sources& s, CGRect target, Random&) {
         return pictureKernel("readNowhere")
             .applyWithExtent(target, RegionOfInterest::whole(s[0]), {s[0]});
     }},
    {"InfiniteSourceElsewhere", 0, true,
     [](const Sources&, CGRect target, Random& random) {
         return pictureKernel("constantAsSource")
             .applyWithExtent(
                 target, RegionOfInterest::computed([](int, CGRect d) {
                     return CGRect{d.x * 2 + 7, d.y * 2 + 7, d.width * 2, d.height * 2};
                 }),
                 {CIImage::imageWithColor(CIColor(0.9, 0.6, 0.3)), random.real(0, 1)});
     }},
};

Tolerance toleranceOf(const Recipe& recipe, CIFormat format) {
    // Single precision rounds each of a few dozen operations; the levels may fuse multiplications
    // with additions, and coordinates of a few thousand leave 2^-12 of a pixel.
    if (format == CIFormat::RGBAf) return {recipe.readsElsewhere ? 2e-3 : 2e-5, recipe.hardEdges};
    // Half floats round to 2^-11, and so do the intermediates then.
    if (format == CIFormat::RGBAh) return {recipe.readsElsewhere ? 4e-3 : 2e-3, recipe.hardEdges};
    return {(recipe.readsElsewhere ? 2 : 1) / 255.0, recipe.hardEdges};
}

/// Images on the target or near it, of any format, in memory or computed; `bitmaps` holds their
/// pixels.
Sources randomSources(size_t count, const CGRect& target, Random& random,
                      std::vector<Bitmap>& bitmaps) {
    Sources sources;
    for (size_t i = 0; i < count; ++i) {
        const CGRect rect = random.chance(0.5) ? target : rectNear(target, random);
        bitmaps.push_back(randomBitmap(random, static_cast<int>(rect.width),
                                       static_cast<int>(rect.height), random.format(),
                                       random.chance(0.3)));
        sources.push_back(randomImageOf(bitmaps.back(), {rect.x, rect.y}, random));
    }
    return sources;
}

class DevicesAgree : public testing::TestWithParam<Recipe> {
protected:
    void tryOne(uint32_t seed) {
        const Recipe& recipe = GetParam();
        Random random(seed);
        const CGRect target = randomTarget(random);
        const CIFormat format = random.format();
        const size_t padding = static_cast<size_t>(random.whole(0, 40));
        std::vector<Bitmap> bitmaps;
        const Sources sources = randomSources(recipe.sources, target, random, bitmaps);
        const CIImage image = recipe.make(sources, target, random);
        ASSERT_TRUE(image);
        const Bitmap expected = render(referenceContext(), image, target, format, padding);
        std::string level;
        Bitmap sameLevel(1, 1);
        for (const auto& context : cpuContexts()) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", " + formatName(format) + " " +
                         testing::PrintToString(target.width) + " by " +
                         testing::PrintToString(target.height) + " at " +
                         testing::PrintToString(target.x) + ", " +
                         testing::PrintToString(target.y) + ", " + nameOf(*context));
            const Bitmap actual = render(*context, image, target, format, padding);
            ASSERT_TRUE(isClose(actual, expected, toleranceOf(recipe, format)));
            if (level == context->instructionSet()) {
                ASSERT_TRUE(isClose(actual, sameLevel, {}) && actual == sameLevel)
                    << "threads make a difference";
            }
            level = context->instructionSet(), sameLevel = actual;

            const Bitmap again = renderInParts(*context, image, target, 3, random, format, padding);
            ASSERT_TRUE(isClose(again, actual, {})) << "rendered in parts";
            ASSERT_TRUE(again == actual);
        }
        for (const Bitmap& bitmap : bitmaps) ASSERT_TRUE(bitmap.isGuardIntact());
    }
};

TEST_P(DevicesAgree, OnRandomPicturesAndSplits) {
    for (uint32_t seed = 1; seed <= 40 && !HasFatalFailure(); ++seed) tryOne(seed * 7919);
}

TEST_P(DevicesAgree, OnVulkan) {
    SKIP_WITHOUT_VULKAN();
    const Recipe& recipe = GetParam();
    for (uint32_t seed = 1; seed <= 12 && !HasFatalFailure(); ++seed) {
        Random random(seed * 104729);
        const CGRect target = randomTarget(random);
        const CIFormat format = random.format();
        std::vector<Bitmap> bitmaps;
        const Sources sources = randomSources(recipe.sources, target, random, bitmaps);
        const CIImage image = recipe.make(sources, target, random);
        const Bitmap expected = render(referenceContext(), image, target, format);
        const Bitmap actual = render(*vulkanContext(), image, target, format, 12);
        ASSERT_TRUE(isClose(actual, expected, toleranceOf(recipe, format)))
            << "seed " << seed << ", " << formatName(format) << " "
            << testing::PrintToString(target.width) << " by "
            << testing::PrintToString(target.height) << " at " << testing::PrintToString(target.x)
            << ", " << testing::PrintToString(target.y);
        ASSERT_TRUE(renderInParts(*vulkanContext(), image, target, 2, random, format, 12) == actual)
            << "rendered in parts";
    }
}

INSTANTIATE_TEST_SUITE_P(, DevicesAgree, testing::ValuesIn(kRecipes),
                         [](const auto& test) { return test.param.name; });

TEST(Render, TwiceGivesTheSameBytes) {
    Random random(5);
    const Bitmap source = randomBitmap(random, 300, 120, CIFormat::BGRA8);
    const CIImage image =
        pictureKernel("box").applyWithExtent(source.image().extent(), RegionOfInterest::grownBy(2),
                                             {filtered("VE_RGB_Gamma", source.image(), {}), 2});
    for (const auto& context : cpuContexts())
        EXPECT_TRUE(render(*context, image, {0, 0, 300, 120}) ==
                    render(*context, image, {0, 0, 300, 120}))
            << nameOf(*context);
}

TEST(Render, TheIntegerHashIsThatOfPlainIntegers) {
    const CGRect rect{-37, 1000, 80, 9};
    const CIImage image = pictureKernel("integerHash").applyWithExtent(rect, {Number(7u)});
    const auto expected = [&](int x, int y) {
        uint32_t h =
            uint32_t(x + int(rect.x)) * 0x9e3779b9u + uint32_t(y + int(rect.y)) * 0x85ebca6bu + 7;
        h = (h ^ h >> 16) * 0x7feb352du;
        h = (h ^ h >> 15) * 0x846ca68bu;
        h ^= h >> 16;
        return Pixel{(h & 255) / 255.0, (h >> 8 & 255) / 255.0, (h >> 16 & 255) / 255.0, 1};
    };
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, rect), expected, {})) << nameOf(*context);
}

} // namespace
