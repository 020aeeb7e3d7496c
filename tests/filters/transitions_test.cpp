// From one picture to another.
#include "tables.h"

namespace {

const char* const kDissolve =
    "FadeStatus \"Time\", Adjust \"Adjust\" min 1 from 1 to 4 default 1 identity 1";

INSTANTIATE_TEST_SUITE_P(
    Transitions, Advertised,
    testing::Values(
        AdvertisedCase{"VEXFDissolve", kDissolve},
        AdvertisedCase{"VEXFDissolveWithPixels", kDissolve},
        AdvertisedCase{"VEXFBrightness", "Mode \"mode\" to 2, FadeStatus \"Time\""},
        AdvertisedCase{
            "VEXFColorBlend",
            "FadeStatus \"Time\", Color \"Color\" no min no from no to default (1 1 1 1) "
            "no identity no type"}),
    kByFilter);

Settings toSecond(Settings settings) {
    settings.emplace_back("inputTargetImage", secondFrame());
    return settings;
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, Graphs,
    testing::Values(
        GraphCase{"Dissolve", "VEXFDissolve",
                  toSecond(inputs({{"FadeStatus", 0.5}, {"Adjust", 2}})),
                  "VEXFDissolve_dissolve(source, target, 0.25) own own"},
        GraphCase{"DissolveWithPixels", "VEXFDissolveWithPixels",
                  toSecond(inputs({{"FadeStatus", 0.5}, {"Adjust", 2}})),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "0.25) own own, 100) [110 111 30 31]"},
        GraphCase{"DissolveWithPixelsEnd", "VEXFDissolveWithPixels",
                  toSecond(inputs({{"FadeStatus", 1}})),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "1) own own, 0.0200033) [100.002 101.002 49.996 50.996]"},
        GraphCase{"ColorBlendMiddle", "VEXFColorBlend",
                  toSecond({{"inputFadeStatus", Number(0.5)},
                            {"inputColor", CIColor(0.1, 0.2, 0.3, 0.4)}}),
                  "VEXFColorBlend_colorBlend(source, (0.1 0.2 0.3 0.4), 0) own"},
        GraphCase{"ColorBlendLater", "VEXFColorBlend", toSecond(inputs({{"FadeStatus", 0.75}})),
                  "VEXFColorBlend_colorBlend(target, (1 1 1 1), 0.5) own at [0 0 640 480]"},
        GraphCase{"BrightFirst", "VEXFBrightness",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", -1}})),
                  "VEXFBrightness_brightFirst(source, target, 0.3) own own"},
        GraphCase{"DarkFirst", "VEXFBrightness",
                  toSecond(inputs({{"FadeStatus", 0.3}, {"Mode", 2}})),
                  "VEXFBrightness_darkFirst(source, target, 0.3) own own"}),
    kByTitle);

TEST(Transitions, BeginWithOneImageAndEndWithTheOther) {
    Random random(5);
    const Bitmap source = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    for (const char* name :
         {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFColorBlend", "VEXFBrightness"})
        for (const double mode : {0.0, 1.0})
            for (const double time : {0.0, 1.0}) {
                Settings settings{{"inputTargetImage", target.image()},
                                  {"inputFadeStatus", Number(time)}};
                if (name == std::string("VEXFBrightness"))
                    settings.emplace_back("inputMode", Number(mode));
                const CIImage image = filtered(name, source.image(), settings);
                for (CIContext* context : everyContext())
                    EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                        time == 0 ? source : target, {}))
                        << name << " at " << time << ", " << nameOf(*context);
            }
}

TEST(Transitions, OfUnlikeSizesEndWithoutAHole) {
    Random random(6);
    const Bitmap source = randomBitmap(random, 40, 30, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 24, 20, CIFormat::RGBA8);
    for (const char* name : {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFBrightness"}) {
        const CIImage image =
            filtered(name, source.image({-4, 3}),
                     {{"inputTargetImage", target.image({5, 1})}, {"inputFadeStatus", Number(1)}});
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                [&](int x, int y) {
                                    return target.pixel(std::clamp(x - 9, 0, 23),
                                                        std::clamp(y + 2, 0, 19));
                                },
                                {}))
                << name << ", " << nameOf(*context);
    }
}

TEST(Transitions, ThroughBrightnessHoldBlackAndWhite) {
    // Black, a shadow, middle grey, white, half transparent grey; the same on both sides.
    Bitmap source(5, 1, CIFormat::RGBAf);
    const double levels[] = {0, 0.05, 0.5, 1, 0.25};
    for (int x = 0; x < 5; ++x) {
        const double v = levels[x];
        source.set(x, 0, {v, v, v, x == 4 ? 0.5 : 1});
    }
    for (const int mode : {0, 1}) {
        const CIImage image = filtered("VEXFBrightness", source.image(),
                                       {{"inputTargetImage", source.image()},
                                        {"inputFadeStatus", Number(0.5)},
                                        {"inputMode", Number(mode)}});
        for (CIContext* context : everyContext()) {
            const Bitmap result = render(*context, image, {0, 0, 5, 1}, CIFormat::RGBAf);
            const auto at = [&](int x) { return double(result.pixel(x, 0)[0]); };
            EXPECT_NEAR(at(0), 0, 1e-4);
            EXPECT_NEAR(at(3), 1, 1e-4);
            EXPECT_LT(at(1), 0.15);
            EXPECT_NEAR(at(2), mode == 0 ? 0.95 : 0.05, 0.05);
            EXPECT_NEAR(at(4), at(2) / 2, 1e-3);
        }
    }
}

TEST(Transitions, DissolveImagesWithoutEnd) {
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0, 1)),
                  blue = CIImage::imageWithColor(CIColor(0, 0, 1, 1));
    const CGRect rect{-50, 9, 40, 20};
    for (const char* name : {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFColorBlend"})
        for (const auto& [source, target] :
             {std::pair{red, blue}, std::pair{red.imageByCroppingToRect(rect), blue},
              std::pair{red, blue.imageByCroppingToRect(rect)}}) {
            const CIImage image = filtered(
                name, source, {{"inputTargetImage", target}, {"inputFadeStatus", Number(0.5)}});
            const bool isDip = name == std::string("VEXFColorBlend");
            const Pixel expected = isDip ? Pixel{1, 1, 1, 1} : Pixel{0.5, 0, 0.5, 1};
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, rect, CIFormat::RGBAf),
                                    [&](int, int) { return expected; }, {1e-3}))
                    << name << ", " << nameOf(*context);
        }
}

} // namespace
