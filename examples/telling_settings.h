// Settings that show what a filter is for, where its defaults show little: what the contact sheet
// and the gallery of `vorn` have in common. Both have more of their own.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct FilterSettings {
    std::string_view filter;
    std::vector<std::pair<std::string, double>> values; ///< by input
};

inline constexpr double kRest = 127 / 255.0; // where centred controls stand still

// The keys look for the green of the test card.
inline const std::vector<FilterSettings> kTellingSettings = {
    {"VEChromaKey2017",
     {{"inputSensitivity", 0.3},
      {"inputSmoothing", 0.6},
      {"inputRed", 0.07},
      {"inputGreen", 0.7},
      {"inputBlue", 0.3}}},
    {"VEChromaKeyHSV",
     {{"inputTolerance", 0.4},
      {"inputAmount", 0.6},
      {"inputHue", 0.39},
      {"inputSaturation", 0.9},
      {"inputValue", 0.7}}},
    {"VEChromaKeyRGB",
     {{"inputTolerance", 0.4},
      {"inputAmount", 0.6},
      {"inputRed", 0.07},
      {"inputGreen", 0.7},
      {"inputBlue", 0.3}}},
    {"VEChromaKeyXY",
     {{"inputTolerance", 0.4},
      {"inputAmount", 0.6},
      {"inputXposition", 0.375},
      {"inputYposition", 0.55}}},
    {"VEDecay",
     {{"inputAmount", 0.6},
      {"inputSkip", 0},
      {"inputScale", 0.52},
      {"inputXpos", kRest},
      {"inputYpos", 0.54}}},
    {"VEWobble", {{"inputMode", 1}, {"inputSize", 0.6}, {"inputSpeed", 0.6}}},
    {"VE_Repeats",
     {{"inputMode", 4},
      {"inputScale", 5},
      {"inputRepeats", 2},
      {"inputOffsetX", 0.9},
      {"inputOffsetY", 0.9}}},
    {"VE_TrafficSign", {{"inputMixer", 1}, {"inputScale", 10}, {"inputBoost", 1.5}}},
};
