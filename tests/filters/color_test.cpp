// Colour and tone: what each filter passes on, pictures against their formulas in double precision,
// and what they promise to the eye.
#include "tables.h"

#include <limits>

namespace {

const char* const kFourByte =
    "1 no label to 255 default %, 2 no label to 255 default %, 3 no label to 255 default %, "
    "4 no label to 255 default %";
std::string fourOf(const std::string& standard) {
    std::string text = kFourByte;
    for (size_t at; (at = text.find('%')) != std::string::npos;) text.replace(at, 1, standard);
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Color, Advertised,
    testing::Values(
        AdvertisedCase{"VEDummy", ""}, AdvertisedCase{"VESolarize", "Intensity \"intensity\""},
        AdvertisedCase{"VE_RGB_Gamma", fourOf("80")},
        AdvertisedCase{"VE_RGB_Contrast", fourOf("127")},
        AdvertisedCase{"VEColorBrightContrast",
                       "Brighness \"brightness\" to 255 default 127, "
                       "Contrast \"contrast\" to 255 default 127, Red \"red\" to 255 default 127, "
                       "Green \"green\" to 255 default 127, Blue \"blue\" to 255 default 127"},
        AdvertisedCase{"VE_GainClamp",
                       "1 no label to 255, 2 no label to 255 default 255, "
                       "3 no label to 255 default 255, 4 no label to 255 default 255"},
        AdvertisedCase{"VEXray", "Intensity \"intensity\""},
        AdvertisedCase{"VEGobo", "Mixer \"mixer\" default 1, Intensity \"intensity\", "
                                 "Red \"red\", Green \"green\", Blue \"blue\""},
        AdvertisedCase{"VE_TrafficSign", "Mixer no label, Scale no label min 1 from 1 to 200 "
                                         "default 10, Boost no label min 1 from 1 to 5 default 1"},
        AdvertisedCase{"VEDuotone", "Mixer \"mixer\" default 1, Mode \"mode\" to 56, "
                                    "Value \"value\" default 0.5"},
        AdvertisedCase{"VEDuotoneHSV", "Threshold \"value\" default 0.5, Hue1 \"hue 1\" to 6, "
                                       "Sat1 \"saturation 1\" default 1, Hue2 \"hue 2\" to 6, "
                                       "Sat2 \"saturation 2\" default 1"},
        AdvertisedCase{"VEHueSaturation", "Saturation \"saturation\" to 2 default 1, "
                                          "Hue \"hue\" min -3.14 from -3.14 to 6.28"},
        AdvertisedCase{"VEHueSaturationValue",
                       "Hue \"hue\" default 0.5, Saturation \"saturation\" default 0.5, "
                       "Value \"value\" default 0.5"},
        AdvertisedCase{"VEColorShift",
                       "Mixer \"mixer\" default 1, Range \"range\", Speed \"speed\""},
        AdvertisedCase{"VEColorSwitch", "Mode \"mode\" to 5, Mixer \"intensity\""},
        AdvertisedCase{"VE_CTO", "Mixer no label, Colortemp no label to 2 default 1, "
                                 "MinusGreen no label"},
        AdvertisedCase{"VE_TempAndTint", fourOf("80") + ", 5 no label to 255 default 80"},
        AdvertisedCase{"VEChannelShift",
                       "Mixer \"mixer\" default 1, XShift \"x_shift\" min -100 from -100 to 100, "
                       "YShift \"y_shift\" min -100 from -100 to 100"}),
    kByFilter);

GraphCase color(const char* title, const char* filter, Settings settings, std::string graph) {
    return {title, filter, std::move(settings), std::move(graph), frame(4, 3, {10, -5})};
}
GraphCase gainClamp(const char* title, Number mode, const char* kernel) {
    return color(title, "VE_GainClamp",
                 {{"input1", mode}, {"input2", Number(51)}, {"input3", Number(128)}},
                 std::string("VE_GainClamp_") + kernel + "(source, 0.2, 0.501961, 1) own");
}
GraphCase duotone(const char* title, double mode, const std::string& colors) {
    return color(title, "VEDuotone", inputs({{"Mode", mode}}),
                 "VE_Duotone_simpleDuotone(source, 1, " + colors + ", 0.5) own");
}
GraphCase colorSwitch(const char* title, double mode, const std::string& order) {
    return color(title, "VEColorSwitch", inputs({{"Mode", mode}}),
                 "VE_ColorSwitch_to_" + order + "(source, 0)");
}
GraphCase brightContrast(const char* title, Settings settings, const char* arguments) {
    return color(title, "VEColorBrightContrast", std::move(settings),
                 std::string("VE_ColorBrightContrast_colorBrightContrast(source, ") + arguments +
                     ")");
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Color, Graphs,
    testing::Values(
        color("Dummy", "VEDummy", {}, "VE_Dummy_dummy(source) own"),
        color("SolarizeDefaults", "VESolarize", {}, "VE_Solarize_solarize(source, 0)"),
        color("SolarizeOutOfRange", "VESolarize", inputs({{"Intensity", -3}}),
              "VE_Solarize_solarize(source, -3)"),
        color("Xray", "VEXray", inputs({{"Intensity", 0.25}}), "VE_Xray_xray(source, 0.25)"),
        color("Gobo", "VEGobo",
              inputs({{"Intensity", 0.1}, {"Red", 0.2}, {"Green", 0.3}, {"Blue", 0.4}}),
              "VE_Gobo_blackAndWhite(source, 1, 0.1, 0.2, 0.3, 0.4) own"),
        color("TrafficSign", "VE_TrafficSign", inputs({{"Boost", 2.5}}),
              "VE_TrafficSign_trafficSign(source, 0, 10, 2.5) own"),
        color("GammaDefaults", "VE_RGB_Gamma", {},
              "VE_RGB_Gamma_rgbGamma(source, 0.998431, 0.998431, 0.998431, 0.998431)"),
        color("GammaEndsAndUnset", "VE_RGB_Gamma",
              {{"input1", Number(0)},
               {"input2", Number(1)},
               {"input3", Number(255)},
               {"input4", Number()}},
              "VE_RGB_Gamma_rgbGamma(source, 0.0886275, 0.1, 2.98863, 0.0886275)"),
        color("ContrastDefaults", "VE_RGB_Contrast", {},
              "VE_RGB_Contrast_rgbContrast(source, 1, 1, 1, 1)"),
        color("ContrastEnds", "VE_RGB_Contrast",
              inputs({{"1", 0}, {"2", 126}, {"3", 128}, {"4", 255}}),
              "VE_RGB_Contrast_rgbContrast(source, 0.3, 0.994488, 1.00787, 2.00787)"),
        brightContrast("BrightContrastDefaults", {}, "(1 1 1), (0 0 0), -1, 1"),
        brightContrast("BrightContrastByTheAdvertisedKey", inputs({{"Brighness", 200}}),
                       "(1 1 1), (0 0 0), -1, 1"),
        brightContrast("BrightContrastByTheKeyThatIsRead",
                       inputs({{"Brightness", 255}, {"Contrast", 64}}),
                       "(1 1 1), (0 0 0), 1.00787, 0.503937"),
        brightContrast("BrightContrastGains",
                       inputs({{"Red", 255}, {"Green", 0}, {"Blue", 128}, {"Brightness", 127}}),
                       "(2.00787 0 1.00787), (0.507905 0 3.1e-05), 0, 1"),
        brightContrast("BrightContrastInfinite", inputs({{"Red", -kInfinity}, {"Brightness", 1.5}}),
                       "(-inf 1 1), (0 0 0), -0.988189, 1"),
        gainClamp("GainThreshold", 0.0, "gainThreshold"),
        gainClamp("GainThresholdWhenUnset", Number(), "gainThreshold"),
        gainClamp("GainThresholdWhenNegative", -1, "gainThreshold"),
        gainClamp("GainThresholdWhenNotANumber", std::nan(""), "gainThreshold"),
        gainClamp("GainClampTruncatesItsMode", 1.9, "gainClamp"),
        gainClamp("GainClampHybrid", 2, "hybridHSVgainClamp"),
        gainClamp("GainClampPastTheLast", 7.0, "hybridHSVgainClamp"),
        gainClamp("GainClampAboveTheSignedRange", 3e9, "gainThreshold"),
        duotone("DuotoneNegative", -1, "(1 0 0 1), (0 1 0 1)"),
        duotone("DuotoneFirst", 0, "(1 0 0 1), (0 1 0 1)"),
        duotone("DuotoneLastOfTheFirst", 6, "(1 0 0 1), (0 0 0 1)"),
        duotone("DuotonePassesItself", 8, "(0 1 0 1), (0 0 1 1)"),
        duotone("DuotoneOnItsDiagonal", 21, "(0 1 1 1), (1 0 0 1)"),
        duotone("DuotonePastTheLast", 56, "(0 0 0 1), (1 1 1 1)"),
        color("DuotoneHSV", "VEDuotoneHSV",
              inputs({{"Threshold", 0.4}, {"Hue1", 1}, {"Sat1", 0.2}, {"Hue2", 3}, {"Sat2", 0.6}}),
              "VE_DuotoneHSV_hsvDuotone(source, 0.4, 1, 3, 0.2, 0.6) own"),
        color("HueSaturation", "VEHueSaturation", inputs({{"Hue", 5}, {"Saturation", 0.25}}),
              "CIColorControls(CIHueAdjust(source, 5), 0.25, 0, 1)"),
        color("HueSaturationUnset", "VEHueSaturation", {{"inputSaturation", Number()}}, ""),
        color("HueSaturationValueDefaults", "VEHueSaturationValue", {},
              "CIColorControls(CIHueAdjust(source, 0.0123685), 1.00394, 0.00393701, 1)"),
        color("HueSaturationValueUnsetAndFull", "VEHueSaturationValue",
              {{"inputHue", Number()}, {"inputSaturation", Number(1)}, {"inputValue", Number()}},
              "CIColorControls(CIHueAdjust(source, -3.14159), 2.00787, -1, 1)"),
        color("GelDefaults", "VE_CTO", {}, "VE_CTO_ctoAdjust(source, 0, 0, 0, 0)"),
        color("GelOrange", "VE_CTO", inputs({{"Mixer", 0.7}, {"Colortemp", 0}}),
              "VE_CTO_ctoAdjust(source, 0.7, 0, 0.5, 0)"),
        color("GelBlue", "VE_CTO", inputs({{"Colortemp", 2}, {"MinusGreen", 0.3}}),
              "VE_CTO_ctoAdjust(source, 0, 0.25, 0, 0.3)"),
        color("GelUnset", "VE_CTO", {{"inputColortemp", Number()}},
              "VE_CTO_ctoAdjust(source, 0, 0, 0.5, 0)"),
        color("BalanceDefaults", "VE_TempAndTint", {},
              "VE_TempAndTint_mixer(source, source, 0.313726)"),
        color("BalanceZero", "VE_TempAndTint",
              inputs({{"1", 0}, {"2", 0}, {"3", 0}, {"4", 0}, {"5", 0}}),
              "VE_TempAndTint_mixer(source, source, 0)"),
        color("BalanceEnds", "VE_TempAndTint",
              inputs({{"1", 255}, {"2", 0}, {"3", 255}, {"4", 255}, {"5", 127}}),
              "VE_TempAndTint_mixer(source, CITemperatureAndTint(source, (2516 100.392), (10516 "
              "-1.42e-08)), 1)"),
        colorSwitch("SwitchFirst", -1, "rbg"), colorSwitch("SwitchBySecond", 2, "brg"),
        colorSwitch("SwitchPastTheLast", 5, "grb"),
        color("ChannelsApart", "VEChannelShift", inputs({{"XShift", -30}, {"YShift", 7.5}}),
              "VE_ChannelShift_channelShift(source, 1, -30, 7.5) [40 86 170 81]")),
    kByTitle);

StoryCase colorShift(const char* title, double range, double speed,
                     std::initializer_list<std::pair<double, const char*>> shifts) {
    StoryCase test{title, "VEColorShift", inputs({{"Range", range}, {"Speed", speed}}), {}};
    for (const auto& [seconds, shift] : shifts)
        test.frames.push_back(
            {seconds, {}, std::string("VE_ColorShift_colorShift(source, 1, ") + shift + ")"});
    return test;
}

INSTANTIATE_TEST_SUITE_P(
    Color, Stories,
    testing::Values(
        // The clock stands at 1000 seconds, in step 19531, until 1000.0384 seconds.
        colorShift(
            "ColorShiftSteps", 0.5, 0.25,
            {{0, "0.327815"}, {0.038, "0.327815"}, {0.0385, "0.411029"}, {0.09, "0.468688"}}),
        colorShift("ColorShiftStandsStill", 1, 0, {{0, "0"}, {1, "0"}})),
    kByTitle);

// ---- Pictures against their formulas ------------------------------------------------------------

/// A formula on the straight colour; alpha is kept by every one of these filters.
using Formula = std::function<Straight(Straight)>;

Straight each(const Straight& v, const std::function<double(double, size_t)>& f) {
    return {f(v[0], 0), f(v[1], 1), f(v[2], 2)};
}
Straight mix(const Straight& a, const Straight& b, double t) {
    return each(a, [&](double v, size_t c) { return v * (1 - t) + b[c] * t; });
}
double single(double v) {
    return static_cast<float>(v);
}

// ---- Formulas, as the filters' descriptions give them -------------------------------------------

Formula solarize(double intensity) {
    const double top = 1 - unit(intensity) / 2;
    return [=](Straight v) {
        return each(
            v, [&](double c, size_t) { return std::max(c < top ? c / top : 2 - c / top, 0.0); });
    };
}

Formula gammaCurve(std::array<double, 4> sliders) {
    for (double& s : sliders) s = single((s - 1) * 0.01137254902 + 0.1);
    return [=](Straight v) {
        return each(v, [&](double c, size_t i) {
            return std::pow(std::max(c, 0.0), 1 / std::max(sliders[i] * sliders[3], 0.001));
        });
    };
}

/// k times as steep in the middle, and bent into black and white where that is more than 1.
double bent(double v, double k) {
    const double x = 2 * v - 1;
    return 0.5 + 0.5 * k * x / (1 + std::max(k - 1, 0.0) * std::fabs(x));
}

Formula contrast(std::array<double, 4> sliders) {
    for (double& s : sliders) s = s < 127 ? s / 127 * 0.7 + 0.3 : s / 127;
    return [=](Straight v) {
        return each(v, [&](double c, size_t i) { return bent(c, sliders[i] * sliders[3]); });
    };
}

/// The curves are those of the largest and the smallest channel; the other keeps its place between.
Formula brightContrast(Straight gains, double brightness, double steepness) {
    const double stops = (brightness - 127) / 127, k = steepness / 127;
    const double light = std::exp2(stops * (stops > 0 ? 2.5 : 1.75));
    const auto curve = [=](double g) {
        const double lit = std::min(g * light / (1 + std::max(light - 1, 0.0) * g), 1.0);
        return bent(lit, k > 1 ? std::pow(k, 1.5) : k);
    };
    return [=](Straight v) {
        v = each(v, [&](double c, size_t i) {
            const double gain = gains[i] / 127,
                         boost = gain > 1 ? 0.5 * (gain - 1) * (gain - 1) : 0;
            return gain * c + boost * c * (1 - c);
        });
        const auto [low, high] = std::minmax_element(v.begin(), v.end());
        const double bottom = *low, range = std::max(*high - *low, 1e-5);
        const double share = (curve(*high) - curve(*low)) / range;
        return each(v, [&](double c, size_t) {
            // Straight curves are taken of each channel, as the gain may go beyond white.
            return light <= 1 && k <= 1 ? curve(c) : unit((c - bottom) * share + curve(bottom));
        });
    };
}

Formula threshold(Straight limits) {
    return [=](Straight v) {
        return each(
            v, [&](double c, size_t i) { return c + (1 - c) * unit(16 * (c - limits[i] / 255)); });
    };
}

Formula clampTo(Straight limits) {
    return [=](Straight v) {
        return each(v, [&](double c, size_t i) { return std::min(c, limits[i] / 255); });
    };
}

/// The value is limited for all channels at once. Less saturation: toward the largest channel; less
/// value: toward black.
Formula hybridClamp(double channel, double saturation, double value) {
    return [=](Straight v) {
        const double largest = *std::max_element(v.begin(), v.end());
        const double most = std::min(largest, channel / 255);
        v = each(v, [&](double c, size_t) { return c * most / std::max(largest, 1e-6); });
        return each(v, [&](double c, size_t) {
            return (most + (c - most) * saturation / 255) * value / 255;
        });
    };
}

Formula xray(double i) {
    return [=](Straight v) {
        const double y = luma(v), p = y * (3 - y) / 2;
        const double t = std::min(std::fabs(p - i) / std::max(i, 1 - i), 1.0);
        return mix(
            v,
            {0.85 * t * t + 0.01, 0.36 * t * t + 0.58 * t + 0.015, -0.26 * t * t + 1.23 * t + 0.03},
            1 - std::pow(1 - i, 3));
    };
}

Formula gobo(double mixer, Straight raised) {
    const Straight base{0.2126, 0.7152, 0.0722};
    const double sum = 1 + raised[0] + raised[1] + raised[2];
    return [=](Straight v) {
        double grey = 0;
        for (size_t c = 0; c < 3; ++c) grey += (base[c] + raised[c]) / sum * v[c];
        return mix(v, {grey, grey, grey}, mixer);
    };
}

Formula duotone(double mixer, Straight one, Straight two, double value) {
    const double m = 0.02 + 0.96 * value;
    return [=](Straight v) {
        const double y = luma(v);
        const double share = y * (1 - m) / (y * (1 - m) + (1 - y) * m);
        return mix(v, mix(one, two, share), mixer);
    };
}

/// The tints are given as colours of full value.
Formula tints(double threshold, Straight dark, Straight bright) {
    return [=](Straight v) {
        const double y = luma(v), share = smooth((y + 0.4 - 1.4 * threshold) / 0.4);
        return each(mix(dark, bright, share), [&](double c, size_t) { return c * y; });
    };
}

/// What a gel leaves of the light, with the luma of greys given back, in video of a gamma of 2.2.
Formula gel(double mixer, double warmth, double minusGreen) {
    const Straight left{1, std::exp2(-2.1 * warmth - minusGreen), std::exp2(-5.1 * warmth)};
    const Straight gain =
        each(left, [&](double c, size_t) { return std::pow(c / luma(left), 1 / 2.2); });
    const double most = *std::max_element(gain.begin(), gain.end());
    return [=](Straight v) {
        const Straight lit = each(v, [&](double c, size_t i) { return c * gain[i]; });
        const double m = *std::max_element(lit.begin(), lit.end());
        const double bend = 1 / std::sqrt(1 + (1 - 1 / (most * most)) * m * m);
        return mix(v, each(lit, [&](double c, size_t) { return c * bend; }), mixer);
    };
}

// ---- The table ----------------------------------------------------------------------------------

struct PictureCase {
    const char* title;
    std::string filter;
    Settings settings;
    Formula formula;
    bool isNeutral = false; ///< every byte of the source stays as it is
};

std::ostream& operator<<(std::ostream& stream, const PictureCase& test) {
    return stream << test.title;
}

const Formula kUnchanged = [](Straight v) { return v; };

const PictureCase kCases[] = {
    {"Dummy", "VEDummy", {}, kUnchanged, true},

    {"SolarizeDefault", "VESolarize", {}, solarize(0), true},
    {"SolarizeMiddle", "VESolarize", inputs({{"Intensity", 0.5}}), solarize(0.5)},
    {"SolarizeFull", "VESolarize", inputs({{"Intensity", 1}}), solarize(1)},
    {"SolarizeOutOfRange", "VESolarize", inputs({{"Intensity", 7}}), solarize(1)},

    {"GammaDefault", "VE_RGB_Gamma", {}, gammaCurve({80, 80, 80, 80})},
    {"GammaUneven", "VE_RGB_Gamma", numbered({40, 80, 160, 100}), gammaCurve({40, 80, 160, 100})},
    {"GammaLow", "VE_RGB_Gamma", numbered({1, 20, 40, 80}), gammaCurve({1, 20, 40, 80})},
    {"GammaHigh", "VE_RGB_Gamma", numbered({255, 255, 255, 255}), gammaCurve({255, 255, 255, 255})},

    {"ContrastDefault", "VE_RGB_Contrast", {}, contrast({127, 127, 127, 127}), true},
    {"ContrastLow", "VE_RGB_Contrast", numbered({0, 60, 127, 100}), contrast({0, 60, 127, 100})},
    {"ContrastHigh", "VE_RGB_Contrast", numbered({255, 200, 127, 255}),
     contrast({255, 200, 127, 255})},

    {"BrightContrastNeutral", "VEColorBrightContrast", inputs({{"Brightness", 127}}),
     brightContrast({127, 127, 127}, 127, 127), true},
    {"BrightContrastUnset", "VEColorBrightContrast", {}, brightContrast({127, 127, 127}, 0, 127)},
    {"BrightContrastGains", "VEColorBrightContrast",
     inputs({{"Brightness", 127}, {"Red", 255}, {"Green", 60}, {"Blue", 180}}),
     brightContrast({255, 60, 180}, 127, 127)},
    {"BrightContrastAll", "VEColorBrightContrast",
     inputs({{"Brightness", 150}, {"Contrast", 200}, {"Red", 140}, {"Green", 0}, {"Blue", 127}}),
     brightContrast({140, 0, 127}, 150, 200)},

    {"ThresholdDefault", "VE_GainClamp", {}, threshold({255, 255, 255}), true},
    {"Threshold", "VE_GainClamp", numbered({0, 128, 30, 240}), threshold({128, 30, 240})},
    {"ThresholdZero", "VE_GainClamp", numbered({0, 0, 0, 0}), threshold({0, 0, 0})},
    {"ClampNeutral", "VE_GainClamp", numbered({1, 255, 255, 255}), clampTo({255, 255, 255}), true},
    {"Clamp", "VE_GainClamp", numbered({1, 128, 30, 240}), clampTo({128, 30, 240})},
    {"ClampToBlack", "VE_GainClamp", numbered({1, 0, 0, 0}), clampTo({0, 0, 0})},
    {"HybridNeutral", "VE_GainClamp", numbered({2, 255, 255, 255}), hybridClamp(255, 255, 255),
     true},
    {"HybridChannels", "VE_GainClamp", numbered({2, 100, 255, 255}), hybridClamp(100, 255, 255)},
    {"HybridSaturation", "VE_GainClamp", numbered({2, 255, 100, 255}), hybridClamp(255, 100, 255)},
    {"HybridValue", "VE_GainClamp", numbered({2, 255, 255, 100}), hybridClamp(255, 255, 100)},
    {"HybridAll", "VE_GainClamp", numbered({2, 220, 60, 180}), hybridClamp(220, 60, 180)},
    {"HybridToGrey", "VE_GainClamp", numbered({2, 255, 0, 255}), hybridClamp(255, 0, 255)},

    {"XrayDefault", "VEXray", {}, kUnchanged, true},
    {"XrayMiddle", "VEXray", inputs({{"Intensity", 0.5}}), xray(0.5)},
    {"XrayQuarter", "VEXray", inputs({{"Intensity", 0.25}}), xray(0.25)},
    {"XrayFull", "VEXray", inputs({{"Intensity", 1}}), xray(1)},

    {"GoboMixedOut", "VEGobo", inputs({{"Mixer", 0}, {"Intensity", 1}}), kUnchanged, true},
    {"GoboDefault", "VEGobo", {}, gobo(1, {0, 0, 0})},
    {"GoboWeights", "VEGobo", inputs({{"Mixer", 0.5}, {"Red", 1}, {"Blue", 0.3}}),
     gobo(0.5, {1, 0, 0.3})},

    {"TrafficSignDefault", "VE_TrafficSign", {}, kUnchanged, true},

    {"DuotoneBlackToWhite", "VEDuotone", inputs({{"Mode", 55}}),
     duotone(1, {0, 0, 0}, {1, 1, 1}, 0.5)},
    {"DuotoneBlueToYellow", "VEDuotone", inputs({{"Mode", 18}, {"Value", 0.8}, {"Mixer", 0.7}}),
     duotone(0.7, {0, 0, 1}, {1, 1, 0}, 0.8)},
    {"DuotoneOfNoValue", "VEDuotone", inputs({{"Mode", 0}, {"Value", 0}}),
     duotone(1, {1, 0, 0}, {0, 1, 0}, 0)},
    {"TintsAround", "VEDuotoneHSV",
     inputs({{"Threshold", 0.3}, {"Hue1", 3.5}, {"Sat1", 0.5}, {"Hue2", 7}, {"Sat2", 1}}),
     tints(0.3, {0.5, 0.75, 1}, {1, 1, 0})},
    {"TintsOfGrey", "VEDuotoneHSV", inputs({{"Sat1", 0}, {"Sat2", 0}}),
     tints(0.5, {1, 1, 1}, {1, 1, 1})},
    {"TintsAllDark", "VEDuotoneHSV", inputs({{"Threshold", 1}, {"Hue1", 5}, {"Hue2", 2}}),
     tints(1, {1, 0, 1}, {0, 1, 0})},
    {"SwitchDefault", "VEColorSwitch", {}, kUnchanged, true},
    {"SwitchBRG", "VEColorSwitch", inputs({{"Mode", 2}, {"Mixer", 0.75}}),
     [](Straight v) {
         return mix(v, {v[2], v[0], v[1]}, 0.75);
     }},
    {"SwitchGBR", "VEColorSwitch", inputs({{"Mode", 3}, {"Mixer", 1}}),
     [](Straight v) {
         return Straight{v[1], v[2], v[0]};
     }},
    {"GelNone", "VE_CTO", inputs({{"Mixer", 1}}), kUnchanged, true},
    {"GelOrange", "VE_CTO", inputs({{"Mixer", 1}, {"Colortemp", 0}}), gel(1, 0.5, 0)},
    {"GelBlueInPart", "VE_CTO", inputs({{"Mixer", 0.4}, {"Colortemp", 2}}), gel(0.4, -0.25, 0)},
    {"GelMagenta", "VE_CTO", inputs({{"Mixer", 1}, {"Colortemp", 0.5}, {"MinusGreen", 0.8}}),
     gel(1, 0.25, 0.8)},
    {"BalanceBetweenEqualLights", "VE_TempAndTint", numbered({200, 30, 40, 30, 40}), kUnchanged,
     true},
    {"ShiftDefault", "VEColorShift", {}, kUnchanged, true},
    {"ChannelsTogether", "VEChannelShift", {}, kUnchanged, true},
};

/// Straight colours with an alpha: greys, primaries, tones of every hue; each of them opaque,
/// half transparent and nearly transparent; and nothing at all.
std::vector<Pixel> pixels() {
    const Straight colors[] = {{0, 0, 0},          {1, 1, 1},          {0.5, 0.5, 0.5},
                               {1, 0, 0},          {0, 1, 0},          {0, 0, 1},
                               {0.9, 0.3, 0.12},   {0.1, 0.62, 0.44},  {0.21, 0.33, 0.87},
                               {0.02, 0.03, 0.01}, {0.97, 0.99, 0.95}, {0.72, 0.7, 0.31}};
    std::vector<Pixel> list{{0, 0, 0, 0}};
    for (const Straight& v : colors)
        for (const double alpha : {1.0, 128 / 255.0, 4 / 255.0})
            list.push_back({v[0] * alpha, v[1] * alpha, v[2] * alpha, alpha});
    return list;
}

class Pictures : public testing::TestWithParam<PictureCase> {
protected:
    /// Whether a case's picture is that of its formula, worked out from the pixels as stored.
    void expectFormula(CIFormat format, Tolerance tolerance) {
        const std::vector<Pixel> list = pixels();
        Bitmap source(static_cast<int>(list.size()), 1, format);
        for (size_t i = 0; i < list.size(); ++i) source.set(static_cast<int>(i), 0, list[i]);
        const CIImage image = filtered(GetParam().filter, source.image(), GetParam().settings);
        ASSERT_TRUE(image);
        EXPECT_EQ(image.extent(), source.image().extent());
        const auto expected = [&](int x, int) {
            const Pixel p = source.pixel(x, 0);
            if (p[3] == 0) return Pixel{};
            const Straight v = GetParam().formula({p[0] / p[3], p[1] / p[3], p[2] / p[3]});
            return Pixel{v[0] * p[3], v[1] * p[3], v[2] * p[3], p[3]};
        };
        for (CIContext* context : everyContext())
            ASSERT_TRUE(
                isClose(render(*context, image, image.extent(), format), expected, tolerance))
                << formatName(format) << ", " << nameOf(*context);
    }
};

TEST_P(Pictures, AreThoseOfTheFormula) {
    expectFormula(CIFormat::RGBA8, {0.5 / 255 + 1e-4});
    expectFormula(CIFormat::RGBAf, {5e-6});
}

INSTANTIATE_TEST_SUITE_P(, Pictures, testing::ValuesIn(kCases), kByTitle);

TEST(NeutralSettings, LeaveEveryByteAsItIs) {
    Random random(17);
    for (const PictureCase& test : kCases) {
        if (!test.isNeutral) continue;
        const Bitmap source = randomBitmap(random, 200, 30, CIFormat::RGBA8);
        const CIImage image = filtered(test.filter, source.image(), test.settings);
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()), source, {}))
                << test.title << ", " << nameOf(*context);
    }
}

} // namespace
