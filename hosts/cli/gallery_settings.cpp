#include "gallery_settings.h"

#include "examples/telling_settings.h"

#include <cctype>

#include <fmt/format.h>

namespace vorn::cli {

namespace {

/// A shape beside the middle, with a soft edge.
const GallerySettings kPositioned = {
    {"inputIsXY", 1},        {"inputMode", 4},         {"inputSize", 0.45}, {"inputEdge", 0.3},
    {"inputXPosition", 0.4}, {"inputYPosition", 0.55}, {"inputAspect", 1.2}};

const std::vector<FilterSettings> kOwnSettings = {
    {"VECropCircleXYPosition", kPositioned},
    {"VEFalloffXYPosition", kPositioned},
    {"VEColorBrightContrast", {{"inputBrightness", 127}, {"inputContrast", 150}}},
    {"VETiles_2", {{"inputXdiv", 3}, {"inputYdiv", 2}, {"inputXoffset", 4}, {"inputYoffset", 6}}},
    {"VE_ASCII_Art", {{"inputScale", 40}}},
    {"VE_CloudGenerator",
     {{"inputScale", 60},
      {"inputSpeed", 1},
      {"inputCover", 115},
      {"inputAlpha", 128},
      {"inputBrightness", 127}}},
    {"VE_Strobe_2", {{"inputMode", 3}, {"inputSpeed", 4}, {"inputRange", 127}}},
};

} // namespace

GallerySettings gallerySettings(std::string_view filter) {
    for (const auto* table : {&kTellingSettings, &kOwnSettings})
        for (const FilterSettings& settings : *table)
            if (settings.filter == filter) return settings.values;
    return {};
}

int modesPastSlider(std::string_view filter) {
    return filter == "VECropCircleXYPosition" || filter == "VEFalloffXYPosition" ? 5 : 0;
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
