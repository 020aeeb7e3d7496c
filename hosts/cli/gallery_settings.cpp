#include "gallery_settings.h"

#include <cctype>

#include <fmt/format.h>

namespace vorn::cli {

namespace {

constexpr double kRest = 127 / 255.0; // where centred controls stand still

struct Entry {
    const char* filter;
    GallerySettings settings;
};

// The keys look for the green of the test card.
const std::vector<Entry> kEntries = {
    {"VEChromaKey2017",
     {{"inputSensitivity", 0.2},
      {"inputSmoothing", 0.4},
      {"inputRed", 0.07},
      {"inputGreen", 0.7},
      {"inputBlue", 0.3}}},
    {"VEChromaKeyHSV",
     {{"inputTolerance", 0.2},
      {"inputAmount", 0.5},
      {"inputHue", 0.39},
      {"inputSaturation", 0.9},
      {"inputValue", 0.7}}},
    {"VEChromaKeyRGB",
     {{"inputTolerance", 0.25},
      {"inputAmount", 0.5},
      {"inputRed", 0.07},
      {"inputGreen", 0.7},
      {"inputBlue", 0.3}}},
    {"VEChromaKeyXY",
     {{"inputTolerance", 0.2},
      {"inputAmount", 0.5},
      {"inputXposition", 0.375},
      {"inputYposition", 0.55}}},
    {"VEColorBrightContrast", {{"inputBrightness", 127}, {"inputContrast", 150}}},
    {"VEDecay",
     {{"inputAmount", 0.6},
      {"inputSkip", 0},
      {"inputScale", 0.52},
      {"inputXpos", kRest},
      {"inputYpos", 0.54}}},
    {"VETiles_2", {{"inputXdiv", 3}, {"inputYdiv", 2}, {"inputXoffset", 4}, {"inputYoffset", 6}}},
    {"VEWobble", {{"inputMode", 1}, {"inputSize", 0.6}, {"inputSpeed", 0.6}}},
    {"VE_ASCII_Art", {{"inputScale", 40}}},
    {"VE_CloudGenerator",
     {{"inputScale", 60},
      {"inputSpeed", 1},
      {"inputCover", 115},
      {"inputAlpha", 128},
      {"inputBrightness", 127}}},
    {"VE_Repeats",
     {{"inputMode", 4},
      {"inputScale", 5},
      {"inputRepeats", 2},
      {"inputOffsetX", 0.9},
      {"inputOffsetY", 0.9}}},
    {"VE_Strobe_2", {{"inputMode", 3}, {"inputSpeed", 4}, {"inputRange", 127}}},
    {"VE_TrafficSign", {{"inputMixer", 1}, {"inputScale", 3}, {"inputBoost", 2}}},
};

} // namespace

GallerySettings gallerySettings(std::string_view filter) {
    for (const Entry& entry : kEntries) {
        if (entry.filter == filter) return entry.settings;
    }
    return {};
}

std::string settingsText(const GallerySettings& settings) {
    std::string text;
    for (const auto& [key, value] : settings) {
        std::string name = key.starts_with("input") ? key.substr(5) : key;
        name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
        text += fmt::format("{}{}={:.3g}", text.empty() ? "" : ", ", name, value);
    }
    return text;
}

} // namespace vorn::cli
