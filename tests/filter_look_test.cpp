// What the filters promise to the eye: hues that are kept, light that is light, edges that are
// lines, hair that is free of the screen. Each is a property of the picture and not a formula.
#include "support.h"

#include <functional>

namespace {

using Straight = std::array<double, 3>;

Settings inputs(std::vector<std::pair<std::string, double>> values) {
    Settings settings;
    for (const auto& [key, value] : values) settings.emplace_back("input" + key, Number(value));
    return settings;
}
Settings with(Settings settings, const std::string& key, double value) {
    settings.emplace_back("input" + key, Number(value));
    return settings;
}

Bitmap pictureOf(int width, int height, const std::function<Straight(int, int)>& color) {
    Bitmap picture(width, height, CIFormat::RGBAf);
    picture.forEach([&](int x, int y) {
        const Straight c = color(x, y);
        picture.set(x, y, {c[0], c[1], c[2], 1});
    });
    return picture;
}

Bitmap lookOf(const std::string& filter, const Settings& settings, const Bitmap& source) {
    return render(*cpuContexts().front(), filtered(filter, source.image(), settings),
                  {0, 0, double(source.width()), double(source.height())}, CIFormat::RGBAf);
}

/// What a filter makes of a plane of one colour.
Pixel lookOf(const std::string& filter, const Settings& settings, const Straight& color) {
    const Bitmap plane = pictureOf(9, 9, [&](int, int) { return color; });
    return lookOf(filter, settings, plane).pixel(4, 4);
}

double luma(const Pixel& p) {
    return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}
/// 0 to 6 around the circle; -1 for what is about grey.
double hueOf(double r, double g, double b) {
    const double most = std::max({r, g, b}), range = most - std::min({r, g, b});
    if (range < 0.02) return -1;
    return most == r   ? std::fmod((g - b) / range + 6, 6)
           : most == g ? (b - r) / range + 2
                       : (r - g) / range + 4;
}
void expectHue(const Pixel& actual, const Straight& color, const std::string& what) {
    const double is = hueOf(actual[0], actual[1], actual[2]);
    if (is < 0) return;
    const double apart = std::fabs(is - hueOf(color[0], color[1], color[2]));
    EXPECT_LT(std::min(apart, 6 - apart), 0.02) << what << ": " << textOf(actual);
}

// ---- Tone ---------------------------------------------------------------------------------------

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

// ---- Edges --------------------------------------------------------------------------------------

/// A soft edge, 6 pixels wide, that leans by a third of a pixel each row; bright on the right.
double leaningEdge(int x, int y, double middle) {
    return std::clamp((x + 0.5 - (16 + y / 3.0)) / 6 + middle, 0.0, 1.0);
}

TEST(HardEdges, AreAPixelAndAHalfWideWhereverTheyRun) {
    struct Case {
        const char* filter;
        Settings settings;
        double level;    ///< of the grey at which the edge lies
        bool isReversed; ///< what is bright goes
        size_t channel;
    };
    const Case cases[] = {
        {"VEGobo", inputs({{"Intensity", 1}}), 0.5, false, 0},
        {"VELumaKey", inputs({{"1Amount", 0.4}, {"2Amount", 1}}), 0.39, false, 3},
        {"VELumaKey", inputs({{"1Amount", 0.6}, {"2Amount", 1}, {"Mode", 1}}), 0.41, true, 3},
        {"VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"2Amount", 1}}), 0.49, false, 3},
        {"VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"2Amount", 1}, {"Mode", 1}}), 0.49, false,
         0}};
    const int width = 48, height = 24;
    for (const Case& test : cases) {
        const Bitmap source = pictureOf(width, height, [&](int x, int y) {
            const double grey = leaningEdge(x, y, test.level);
            return Straight{grey, grey, grey};
        });
        const Bitmap result = lookOf(test.filter, test.settings, source);
        for (int y = 2; y < height - 2; ++y) {
            // How many pixels of the row are neither in nor out, and where the edge is by their
            // sum.
            int between = 0;
            double covered = 0;
            for (int x = 2; x < width - 2; ++x) {
                const double is = result.pixel(x, y)[test.channel];
                const double whole = test.channel == 3 ? 1 : source.pixel(x, y)[0];
                const double share = std::strcmp(test.filter, "VEGobo") == 0 || whole == 0
                                         ? is
                                         : std::min(is / whole, 1.0);
                between += share > 0.02 && share < 0.98;
                covered += test.isReversed ? 1 - share : share;
            }
            EXPECT_GE(between, 1) << test.filter << ", row " << y;
            EXPECT_LE(between, 3) << test.filter << ", row " << y;
            EXPECT_NEAR(width - 2 - covered, 16 + y / 3.0, 0.2) << test.filter << ", row " << y;
        }
    }
}

TEST(Lines, AreEvenAndAsWideAsTheyAreSet) {
    const int width = 48, height = 40;
    const Bitmap step = pictureOf(width, height, [](int x, int y) {
        const double grey = std::clamp(x + 0.5 - (18 + y / 3.0) + 0.5, 0.0, 1.0) * 0.6 + 0.2;
        return Straight{grey, grey, grey};
    });
    double last = 0;
    for (const double lineWidth : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        const Bitmap lines =
            lookOf("VEEdgeDetect2",
                   inputs({{"Width", lineWidth}, {"Reduce", 0.3}, {"ReduceBrightness", 0}}), step);
        double sum = 0, least = 1e9, most = 0;
        for (int y = 8; y < height - 8; ++y) {
            double row = 0;
            for (int x = 0; x < width; ++x) row += lines.pixel(x, y)[0];
            sum += row;
            least = std::min(least, row), most = std::max(most, row);
        }
        const double mean = sum / (height - 16);
        EXPECT_LT(most - least, 0.2 * mean) << lineWidth;
        EXPECT_GT(mean, last + 0.25) << lineWidth;
        last = mean;
    }
    EXPECT_LT(last, 4);
}

TEST(Lines, KeepQuietInNoise) {
    Random random(5);
    const Bitmap noise = pictureOf(60, 40, [&](int, int) {
        const double grey = 0.5 + random.real(-0.02, 0.02);
        return Straight{grey, grey, grey};
    });
    const Bitmap lines = lookOf("VEEdgeDetect2", {}, noise);
    double most = 0, sum = 0;
    lines.forEach([&](int x, int y) {
        most = std::max(most, lines.pixel(x, y)[0]);
        sum += lines.pixel(x, y)[0];
    });
    EXPECT_LT(most, 0.06);
    EXPECT_LT(sum / (60 * 40), 0.001);
}

// ---- Keys ---------------------------------------------------------------------------------------

const Straight kScreen{0.07, 0.7, 0.3}, kHair{0.17, 0.09, 0.06}, kSkin{0.87, 0.65, 0.51};

Straight mixed(const Straight& a, const Straight& b, double share) {
    return {a[0] + (b[0] - a[0]) * share, a[1] + (b[1] - a[1]) * share,
            a[2] + (b[2] - a[2]) * share};
}

struct Key {
    const char* filter;
    const char* tolerance;
    Settings settings;
};
const Key kKeys[] = {
    {"VEChromaKey2017", "Sensitivity",
     inputs({{"Red", 0.07}, {"Green", 0.7}, {"Blue", 0.3}, {"Smoothing", 0.7}})},
    {"VEChromaKeyRGB", "Tolerance",
     inputs({{"Red", 0.07}, {"Green", 0.7}, {"Blue", 0.3}, {"Amount", 0.7}})},
    {"VEChromaKeyHSV", "Tolerance",
     inputs({{"Hue", 0.394}, {"Saturation", 0.9}, {"Value", 0.7}, {"Amount", 0.7}})},
    {"VEChromaKeyXY", "Tolerance",
     inputs({{"Xposition", 0.1}, {"Yposition", 0.1}, {"Amount", 0.7}})}};

/// A key's look at a colour; the screen is in the corner, where one of the keys takes its colour.
Pixel keyed(const Key& key, double tolerance, const Straight& color) {
    const Bitmap picture =
        pictureOf(20, 20, [&](int x, int y) { return x < 8 && y < 8 ? kScreen : color; });
    return lookOf(key.filter, with(key.settings, key.tolerance, tolerance), picture).pixel(15, 15);
}

TEST(ColourKeys, TakeTheScreenAndLeaveThePicture) {
    const Straight pictures[] = {{0, 0, 0}, {1, 1, 1},       {0.5, 0.5, 0.5},    kHair,
                                 kSkin,     {0.9, 0.1, 0.1}, {0.03, 0.05, 0.04}, {0.8, 0.65, 0.4}};
    for (const Key& key : kKeys)
        for (const double tolerance : {0.2, 0.35, 0.5, 0.7, 0.9}) {
            EXPECT_LT(keyed(key, tolerance, kScreen)[3], 0.01) << key.filter << ", " << tolerance;
            for (const Straight& color : pictures) {
                const Pixel p = keyed(key, tolerance, color);
                EXPECT_GT(p[3], 0.93) << key.filter << ", " << tolerance << textOf(p);
                for (size_t c = 0; c < 3; ++c)
                    EXPECT_NEAR(p[c], color[c], 0.06) << key.filter << ", " << tolerance;
            }
        }
}

TEST(ColourKeys, LeaveNoTraceOfTheScreenInHairAndOnSkin) {
    for (const Key& key : kKeys)
        for (const double tolerance : {0.2, 0.35, 0.5, 0.65}) {
            for (const double share : {0.1, 0.3, 0.5, 0.7}) {
                const Pixel p = keyed(key, tolerance, mixed(kHair, kScreen, share));
                EXPECT_LT(p[1], std::max(p[0], p[2]) + 0.01)
                    << key.filter << ", " << tolerance << ", " << share << textOf(p);
            }
            // Half a hair is neither there nor gone, where the screen is.
            const Pixel half = keyed(key, tolerance, mixed(kHair, kScreen, 0.5));
            EXPECT_GT(half[3], 0.1) << key.filter << ", " << tolerance;
            if (tolerance > 0.3) {
                EXPECT_LT(half[3], 0.85) << key.filter << ", " << tolerance;
            }
            // Light of the screen on grey goes, and the brightness stays.
            const Straight lit = mixed({0.5, 0.5, 0.5}, kScreen, 0.12);
            const Pixel p = keyed(key, tolerance, lit);
            EXPECT_LT(std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]}), 0.05)
                << key.filter << ", " << tolerance;
            EXPECT_NEAR(luma(p) / p[3], luma({lit[0], lit[1], lit[2], 1}), 0.03) << key.filter;
        }
}

TEST(ColourKeys, TakeMoreAtEveryStepOfTheSlider) {
    for (const Key& key : kKeys) {
        double last = 100;
        for (double tolerance = 0.1; tolerance < 1.01; tolerance += 0.1) {
            // The screen in shade and in light, and strands of hair.
            double stays = 0;
            for (double shade = 0.5; shade < 1.2; shade += 0.05)
                stays += keyed(key, tolerance, mixed({0, 0, 0}, kScreen, shade))[3];
            for (double share = 0.1; share < 1; share += 0.1)
                stays += keyed(key, tolerance, mixed(kHair, kScreen, share))[3];
            EXPECT_LT(stays, last - 0.05) << key.filter << " at " << tolerance;
            last = stays;
        }
    }
}

TEST(LevelKeys, TakeBlackAtEverySlopeAndNothingAtAnAmountOf0) {
    for (const char* filter : {"VELumaKey", "VEBlackAlpha2ctl"})
        for (const double slope : {0.0, 0.3, 0.7, 1.0}) {
            const auto look = [&](double amount, const Straight& color) {
                return lookOf(filter, inputs({{"1Amount", amount}, {"2Amount", slope}}), color);
            };
            for (const double amount : {0.1, 0.5, 1.0})
                EXPECT_NEAR(look(amount, {0, 0, 0})[3], 0, 1e-6) << filter << ", " << slope;
            EXPECT_NEAR(look(0, {0, 0, 0})[3], 1, 1e-6) << filter << ", " << slope;
            EXPECT_NEAR(look(0.5, {0.8, 0.8, 0.8})[3], 1, 1e-6) << filter << ", " << slope;
        }
}

TEST(BlackTakenOut, LeavesNoDarkFringe) {
    // Over black it is the source again, wherever something of the pixel is left.
    for (const double grey : {0.2, 0.3, 0.45, 0.7}) {
        const Straight color{grey, grey * 0.9, grey * 0.6};
        const Pixel p =
            lookOf("VEBlackAlpha2ctl", inputs({{"1Amount", 0.3}, {"2Amount", 0.2}}), color);
        ASSERT_GT(p[3], 0.2);
        const double level = std::min(1.0, p[3] / grey);
        for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(p[c], color[c] * level, 1e-5) << grey;
    }
}

TEST(OnlyModes, ChooseRatherThanGhost) {
    const Straight red{0.9, 0.1, 0.1}, cyan{0.1, 0.8, 0.8}, white{0.95, 0.95, 0.95};
    const auto alpha = [](double mode, double amount, const Straight& color) {
        return lookOf("VEBlackAlpha", inputs({{"Mode", mode}, {"Amount", amount}}), color)[3];
    };
    for (const double amount : {0.5, 0.75, 1.0}) {
        EXPECT_NEAR(alpha(6, amount, red), 1, 1e-6) << amount;
        EXPECT_NEAR(alpha(6, amount, cyan), 0, 1e-6) << amount;
        EXPECT_NEAR(alpha(5, amount, white), 1, 1e-6) << amount;
        EXPECT_LT(alpha(5, amount, {0, 0, 0}), 0.2) << amount;
    }
    EXPECT_NEAR(alpha(6, 0, cyan), 1, 1e-6);
}

} // namespace
