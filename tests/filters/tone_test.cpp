// What filters of colour and tone promise to the eye.
#include "tables.h"

#include <limits>

namespace {

const Straight kHues[] = {
    {0.95, 0.55, 0.1}, {0.2, 0.7, 0.45}, {0.15, 0.3, 0.9}, {0.87, 0.65, 0.51}};

TEST(Light, KeepsBlackBlackAndHighlightsApart) {
    double last = 0;
    for (double slider = 0; slider <= 255; slider += 15) {
        const auto look = [&](double grey) {
            return lookOf("VEColorBrightContrast", inputs({{"Brightness", slider}}),
                          Straight{grey, grey, grey})[0];
        };
        EXPECT_NEAR(look(0), 0, 1e-6) << slider;
        EXPECT_GT(look(0.95) - look(0.85), 0.02) << slider;
        EXPECT_GT(look(0.5), last) << slider;
        last = look(0.5);
        for (const Straight& color : kHues)
            expectHue(lookOf("VEColorBrightContrast", inputs({{"Brightness", slider}}), color),
                      color, "brightness " + std::to_string(slider));
    }
    // The default that is advertised is -1: a dark picture.
    const double white = lookOf("VEColorBrightContrast", {}, Straight{1, 1, 1})[0];
    EXPECT_GT(white, 0.2);
    EXPECT_LT(white, 0.5);
}

TEST(Contrast, BendsIntoBlackAndWhiteAndKeepsTheHue) {
    const Settings settings[] = {inputs({{"1", 255}, {"2", 255}, {"3", 255}, {"4", 255}}),
                                 inputs({{"Brightness", 127}, {"Contrast", 255}})};
    const char* const names[] = {"VE_RGB_Contrast", "VEColorBrightContrast"};
    for (int i = 0; i < 2; ++i)
        for (const auto& [darker, brighter] : {std::pair{0.02, 0.1}, {0.5, 0.6}, {0.9, 0.98}}) {
            const double low = lookOf(names[i], settings[i], Straight{darker, darker, darker})[0];
            const double high =
                lookOf(names[i], settings[i], Straight{brighter, brighter, brighter})[0];
            EXPECT_GT(high, low + 0.01) << names[i] << " at " << darker;
        }
    for (const Straight& color : kHues)
        for (const double contrast : {30, 90, 190, 255})
            expectHue(lookOf("VEColorBrightContrast",
                             with(inputs({{"Brightness", 127}}), "Contrast", contrast), color),
                      color, "contrast " + std::to_string(contrast));
}

TEST(Limits, OfTheValueKeepTheHue) {
    for (const double limit : {40, 100, 180})
        for (const Straight& color : kHues)
            expectHue(lookOf("VE_GainClamp", with(inputs({{"1", 2}}), "2", limit), color), color,
                      "limit " + std::to_string(limit));
}

TEST(Film, IsNeverGreyOnTheWay) {
    for (const double intensity : {0.4, 0.5, 0.6, 1.0}) {
        const Pixel black = lookOf("VEXray", inputs({{"Intensity", intensity}}), Straight{0, 0, 0});
        EXPECT_GT(black[2] - black[0], 0.08) << intensity;
    }
}

TEST(HueSwings, KeepTheLumaAndStayInRange) {
    for (const double speed : {0.03, 0.1, 0.17, 0.23}) {
        PlatformClock::drive(1'000'000'000'000);
        const Settings settings = inputs({{"Range", 1}, {"Speed", speed}});
        for (const Straight& color : {Straight{1, 0, 0},
                                      {0, 0, 1},
                                      {1, 1, 0},
                                      {0.9, 0.9, 0.9},
                                      {0.95, 0.55, 0.1},
                                      {0.2, 0.7, 0.45}}) {
            const Pixel p = lookOf("VEColorShift", settings, color);
            EXPECT_NEAR(::luma(p), luma(color), 1e-3) << speed << ": " << textOf(p);
            for (size_t c = 0; c < 3; ++c) {
                EXPECT_GE(p[c], -1e-3) << textOf(p);
                EXPECT_LE(p[c], 1 + 1e-3) << textOf(p);
            }
        }
        PlatformClock::release();
    }
}

/// The pixel that is drawn at x where a row of that length goes on mirrored.
int mirrored(int x, int length) {
    const int period = 2 * length, at = ((x % period) + period) % period;
    return at < length ? at : period - 1 - at;
}

/// Red moved by (x, y), blue the other way.
PixelCase channelsApart(const char* title, int shiftX, int shiftY, double mixer) {
    return {title, "VEChannelShift",
            inputs({{"XShift", shiftX}, {"YShift", shiftY}, {"Mixer", mixer}}),
            [=](const Bitmap& s, int x, int y) {
                const auto at = [&](int sign) {
                    return s.pixel(mirrored(x - sign * shiftX, s.width()),
                                   mirrored(y - sign * shiftY, s.height()));
                };
                const Pixel own = s.pixel(x, y), red = at(1), blue = at(-1);
                const Pixel apart{red[0], own[1], blue[2], std::max({red[3], own[3], blue[3]})};
                Pixel mixed;
                for (size_t c = 0; c < 4; ++c) mixed[c] = own[c] + (apart[c] - own[c]) * mixer;
                return mixed;
            }};
}
INSTANTIATE_TEST_SUITE_P(Channels, Pixels,
                         testing::Values(channelsApart("ChannelsToTheRightAndDown", 5, -3, 1),
                                         channelsApart("ChannelsBeyondTheFrame", -100, 31, 0.5)),
                         kByTitle);

TEST(Signs, AreOfTheirColoursInStepsThatTheScaleCounts) {
    const auto sign = [](const Straight& color, double scale) {
        return lookOf("VE_TrafficSign", inputs({{"Mixer", 1}, {"Scale", scale}, {"Boost", 1}}),
                      color);
    };
    // At the scale of 1 a colour is that of the sign, whatever its shade.
    const std::pair<Straight, Straight> signs[] = {
        {{0.9, 0.1, 0.15}, {0.80, 0.05, 0.09}}, {{0.6, 0.05, 0.05}, {0.80, 0.05, 0.09}},
        {{1, 0.9, 0.1}, {0.99, 0.80, 0}},       {{0.1, 0.6, 0.2}, {0, 0.48, 0.27}},
        {{0.1, 0.3, 0.8}, {0, 0.28, 0.62}},     {{0.95, 0.5, 0.1}, {0.96, 0.45, 0.05}},
        {{0.9, 0.85, 0.9}, {1, 1, 1}},          {{0.2, 0.22, 0.2}, {0, 0, 0}}};
    for (const auto& [color, expected] : signs) {
        const Pixel p = sign(color, 1);
        for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(p[c], expected[c], 0.002) << textOf(p);
    }
    // A ramp of greys stays grey, and has the more levels the larger the scale is.
    size_t last = 0;
    for (const double scale : {1, 10, 40, 80, 120, 160, 200}) {
        std::map<int, int> levels;
        for (int i = 0; i < 256; ++i) {
            const Pixel p = sign({i / 255.0, i / 255.0, i / 255.0}, scale);
            EXPECT_LT(std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]}), 1e-5);
            ++levels[static_cast<int>(std::lround(p[0] * 1000))];
        }
        EXPECT_GT(levels.size(), last) << scale;
        EXPECT_LE(levels.size(), 14u) << scale;
        last = levels.size();
    }
}

TEST(Signs, BoostColoursAndNotTheTintOfGreys) {
    const auto spread = [](const Straight& color) {
        const Pixel p =
            lookOf("VE_TrafficSign", inputs({{"Mixer", 1}, {"Scale", 10}, {"Boost", 5}}), color);
        return std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]});
    };
    EXPECT_LT(spread({0.86, 0.8, 0.76}), 1e-5);
    EXPECT_GT(spread({0.85, 0.65, 0.55}), 0.3);
}

TEST(Signs, HaveThinBorders) {
    const Bitmap halves = pictureOf(40, 8, [](int x, int) {
        return x < 20 ? Straight{0.9, 0.1, 0.1} : Straight{0.1, 0.3, 0.8};
    });
    const Bitmap result =
        lookOf("VE_TrafficSign", inputs({{"Mixer", 1}, {"Scale", 1}, {"Boost", 1}}), halves);
    int dark = 0;
    for (int x = 0; x < 40; ++x) {
        const Pixel p = result.pixel(x, 4);
        if (std::max({p[0], p[1], p[2]}) < 0.45) ++dark;
    }
    EXPECT_GE(dark, 1);
    EXPECT_LE(dark, 3);
}

// ---- Light --------------------------------------------------------------------------------------

TEST(Gels, TintWhiteAndKeepTheLight) {
    const Settings gels[] = {inputs({{"Mixer", 1}, {"Colortemp", 0}}),
                             inputs({{"Mixer", 1}, {"Colortemp", 2}}),
                             inputs({{"Mixer", 1}, {"MinusGreen", 1}})};
    const size_t strongest[] = {0, 2, 0}, weakest[] = {2, 0, 1};
    for (size_t i = 0; i < 3; ++i) {
        const auto look = [&](double v) { return lookOf("VE_CTO", gels[i], Straight{v, v, v}); };
        const Pixel white = look(1), grey = look(0.25);
        EXPECT_NEAR(white[strongest[i]], 1, 1e-4) << i;
        EXPECT_LT(white[weakest[i]], 0.75) << i;
        // The luma of light, not of video.
        double light = 0;
        const double weights[] = {0.2126, 0.7152, 0.0722};
        for (size_t c = 0; c < 3; ++c) light += weights[c] * std::pow(grey[c], 2.2);
        EXPECT_NEAR(std::pow(light, 1 / 2.2), 0.25, 0.01) << i;
        // Tones stay apart up to white.
        EXPECT_GT(white[1] - look(0.9)[1], 0.035) << i;
    }
}

TEST(WhiteBalance, MixesTheBalancedPictureIn) {
    const Straight grey{0.5, 0.5, 0.5};
    const Pixel full = lookOf("VE_TempAndTint", numbered({255, 127, 127, 20, 127}), grey);
    EXPECT_GT(full[0], full[2] + 0.15) << "a lower temperature is warmer";
    const Pixel part = lookOf("VE_TempAndTint", numbered({51, 127, 127, 20, 127}), grey);
    for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(part[c], 0.8 * 0.5 + 0.2 * full[c], 1e-3);
}

} // namespace
