// The pointwise filters beside a copy of the same bytes and, where OpenCV is installed, beside its
// operation of the same family: 1920x1080 RGBA, 8 bits in and out, one picture in the cache.
//
// Everything is measured in turn, round after round, so that a busy moment of the machine hits all
// alike; the figures are the best of all rounds, in Mpixel/s.

#include "measure.h"
#include "vorneffects/VornEffects.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#ifdef VORN_WITH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

using namespace vorn;

namespace {

struct Named : Candidate {
    std::string name;
};

struct Setting {
    const char* filter;
    std::vector<std::pair<const char*, double>> inputs;
    const char* peer;
};

const std::vector<Setting> kSettings = {
    {"VEDummy", {}, "copy"},
    {"VESolarize", {{"inputIntensity", 0.7}}, ""},
    {"VE_RGB_Gamma", {{"input1", 60}, {"input2", 100}, {"input3", 120}, {"input4", 90}}, "LUT"},
    {"VE_RGB_Contrast", {{"input1", 160}, {"input2", 100}}, "convertScaleAbs"},
    {"VEColorBrightContrast",
     {{"inputBrightness", 140}, {"inputContrast", 150}, {"inputRed", 180}},
     "convertScaleAbs"},
    {"VE_GainClamp", {{"input1", 0}, {"input2", 128}, {"input3", 200}}, ""},
    {"VE_GainClamp", {{"input1", 1}, {"input2", 128}, {"input3", 200}}, ""},
    {"VE_GainClamp", {{"input1", 2}, {"input2", 200}, {"input3", 100}}, ""},
    {"VEXray", {{"inputIntensity", 0.6}}, "RGBA-GRAY-RGBA"},
    {"VEGobo", {{"inputMixer", 0.9}, {"inputIntensity", 0.5}}, "RGBA-GRAY-RGBA"},
    {"VE_TrafficSign", {{"inputMixer", 0.9}, {"inputScale", 4}, {"inputBoost", 2}}, ""},
};

} // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::atoi(arguments[1]) : 40;
    VornEffectsRegistrar::registerAllFilters();
    std::vector<uint8_t> source(kBytes), target(kBytes);
    for (size_t i = 0; i < kBytes; ++i)
        source[i] = i % 4 == 3 ? 255 : static_cast<uint8_t>((i * 2654435761u) >> 13);
    const CIImage image =
        CIImage::imageWithBitmap(source.data(), kWidth, kHeight, kRowBytes, kCIFormatRGBA8);

    CIContext one({.threads = 1}), two({.threads = 2});
    std::vector<Named> candidates;
    const auto add = [&](const char* name, std::function<void()> run) {
        candidates.push_back({{std::move(run)}, name});
    };
    add("copy", [&] { std::memcpy(target.data(), source.data(), kBytes); });
#ifdef VORN_WITH_OPENCV
    cv::setNumThreads(1);
    const cv::Mat from(kHeight, kWidth, CV_8UC4, source.data());
    cv::Mat to(kHeight, kWidth, CV_8UC4, target.data()), grey, table(1, 256, CV_8UC4);
    for (int i = 0; i < 256; ++i)
        table.at<cv::Vec4b>(i) = cv::Vec4b::all(static_cast<uchar>(255 - i));
    add("LUT", [&] { cv::LUT(from, table, to); });
    add("convertScaleAbs", [&] { cv::convertScaleAbs(from, to, 1.2, 10); });
    add("RGBA-GRAY-RGBA", [&] {
        cv::cvtColor(from, grey, cv::COLOR_RGBA2GRAY);
        cv::cvtColor(grey, to, cv::COLOR_GRAY2RGBA);
    });
#endif
    const size_t peers = candidates.size();
    std::vector<CIFilterRef> filters;
    for (const Setting& setting : kSettings) {
        const CIFilterRef filter = CIFilter::filterWithName(setting.filter);
        filter->setDefaults();
        filter->setValueForKey(image, "inputImage");
        for (const auto& [key, value] : setting.inputs) filter->setValueForKey(Number(value), key);
        for (CIContext* context : {&one, &two})
            add(setting.filter, [&target, filter, context] {
                context->render(filter->outputImage(), target.data(), kRowBytes,
                                {0, 0, kWidth, kHeight}, kCIFormatRGBA8);
            });
    }
    for (int round = 0; round < rounds; ++round)
        for (Named& candidate : candidates) {
            candidate.run(); // brings its code and data into the cache
            for (int repeat = 0; repeat < 3; ++repeat) candidate.measure();
        }

    const double copy = candidates[0].megapixels();
    std::printf("%u cores, %s, %d rounds; copy of the frame, one thread: %.0f Mpixel/s\n",
                std::thread::hardware_concurrency(), one.instructionSet(), rounds, copy);
    std::printf("%-22s %9s %9s %9s %9s  %s\n", "filter", "Mpixel/s", "of copy", "2 threads", "gain",
                "OpenCV, one thread");
    for (size_t i = 0; i < kSettings.size(); ++i) {
        const Named& single = candidates[peers + 2 * i];
        const Named& both = candidates[peers + 2 * i + 1];
        std::printf("%-22s %9.0f    1/%.2f %9.0f %8.2fx", single.name.c_str(), single.megapixels(),
                    copy / single.megapixels(), both.megapixels(),
                    both.megapixels() / single.megapixels());
        for (size_t peer = 0; peer < peers; ++peer)
            if (candidates[peer].name == kSettings[i].peer)
                std::printf("  %s %.0f, ours %.2fx", kSettings[i].peer,
                            candidates[peer].megapixels(),
                            single.megapixels() / candidates[peer].megapixels());
        std::printf("\n");
    }
}
