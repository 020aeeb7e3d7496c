// Effects beside OpenCV's operations and frei0r's plug-ins of the same family: 1920x1080 RGBA, 8
// bits in and out, two still pictures in the cache, as many threads on either side (plug-ins have
// one). Run by hand: bench_effects [ROUNDS [FILTER [LEVEL]]],
// FILTER may be empty.
//
// What the other side leaves out of the same work is said in brackets. Everything is measured in
// turn, round after round, so that a busy moment of the machine hits all alike; the figures are the
// best of all rounds, in Mpixel/s.

#include "frei0r.h"
#include "measure.h"
#include "vorneffects/VornEffects.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#ifdef VORN_WITH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

using namespace vorn;

namespace {

struct Comparison {
    std::string name;
    std::vector<std::pair<const char*, double>> inputs;
    const char* peerName;
    std::function<void()> peer;
    Candidate ours{}, theirs{};
};

/// Blocks of colour with some noise, opaque.
std::vector<uint8_t> picture(uint32_t seed) {
    std::vector<uint8_t> bytes(kBytes);
    for (size_t i = 0; i < kBytes; ++i) {
        const size_t block = i / 4 % kWidth / 96 + i / kRowBytes / 72 * 20;
        const uint32_t noise = (static_cast<uint32_t>(i) + seed) * 2654435761u;
        bytes[i] =
            i % 4 == 3
                ? 255
                : static_cast<uint8_t>(((block + i % 4) * 2246822519u >> 7 & 223) + (noise >> 27));
    }
    return bytes;
}

} // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::atoi(arguments[1]) : 20;
    VornEffectsRegistrar::registerAllFilters();
    std::vector<uint8_t> first = picture(1), second = picture(2), target(kBytes);
    const auto imageOf = [](std::vector<uint8_t>& bytes) {
        return CIImage::imageWithBitmap(bytes.data(), kWidth, kHeight, kRowBytes, kCIFormatRGBA8);
    };
    const CIImage image = imageOf(first), other = imageOf(second);

    std::function<void()> copy = [&] { std::memcpy(target.data(), first.data(), kBytes); };
    std::function<void()> dim, masked, lumaKey, colorKey, backwards, upsideDown, flipped, tiled,
        tiledBySeven, moved, turned, remapped, blended, chosen, random, trail, stillTrail,
        laplacian, pixelated;
#ifdef VORN_WITH_OPENCV
    const cv::Mat from(kHeight, kWidth, CV_8UC4, first.data());
    const cv::Mat from2(kHeight, kWidth, CV_8UC4, second.data());
    cv::Mat to(kHeight, kWidth, CV_8UC4, target.data());
    cv::Mat mask(kHeight, kWidth, CV_8UC4), alpha, grey, small, between, kept = from.clone();
    mask.setTo(cv::Scalar::all(128));
    const auto withAlpha = [&] {
        const cv::Mat planes[] = {from, alpha};
        const int pairs[] = {0, 0, 1, 1, 2, 2, 4, 3};
        cv::mixChannels(planes, 2, &to, 1, pairs, 4);
    };
    dim = [&] { cv::convertScaleAbs(from, to, 0.5); };
    masked = [&] { cv::multiply(from, mask, to, 1 / 255.0); };
    lumaKey = [&, withAlpha] {
        cv::cvtColor(from, grey, cv::COLOR_RGBA2GRAY);
        cv::threshold(grey, alpha, 100, 255, cv::THRESH_BINARY);
        withAlpha();
    };
    colorKey = [&, withAlpha] {
        cv::inRange(from, cv::Scalar(0, 100, 0, 0), cv::Scalar(90, 255, 90, 255), grey);
        cv::bitwise_not(grey, alpha);
        withAlpha();
    };
    backwards = [&] { cv::flip(from, to, 1); };
    upsideDown = [&] { cv::flip(from, to, 0); };
    flipped = [&] {
        cv::flip(from, between, 1);
        cv::addWeighted(from, 0.25, between, 0.75, 0, to);
    };
    tiled = [&] {
        cv::resize(from, small, {kWidth / 4, kHeight / 4}, 0, 0, cv::INTER_AREA);
        cv::repeat(small, 4, 4, to);
    };
    tiledBySeven = [&] {
        cv::resize(from, small, {kWidth / 7, kHeight / 7}, 0, 0, cv::INTER_AREA);
        cv::repeat(small, 7, 7, between);
    };
    const cv::Mat shift = (cv::Mat_<double>(2, 3) << 1, 0, 7.3, 0, 1, -4.6);
    const cv::Mat turn = cv::getRotationMatrix2D({959.5, 539.5}, 3, 1);
    const cv::Mat zoom = cv::getRotationMatrix2D({959.5, 539.5}, 0, 1.02);
    moved = [&] { cv::warpAffine(from, to, shift, to.size(), cv::INTER_LINEAR); };
    turned = [&] { cv::warpAffine(from, to, turn, to.size(), cv::INTER_LINEAR); };
    cv::Mat mapX(kHeight, kWidth, CV_32F), mapY(kHeight, kWidth, CV_32F), places, fractions;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            mapX.at<float>(y, x) = static_cast<float>(x + 9 * std::sin(y * 0.02));
            mapY.at<float>(y, x) = static_cast<float>(y + 9 * std::cos(x * 0.02));
        }
    cv::convertMaps(mapX, mapY, places, fractions, CV_16SC2);
    remapped = [&] { cv::remap(from, to, places, fractions, cv::INTER_LINEAR); };
    blended = [&] { cv::addWeighted(from, 0.5, from2, 0.5, 0, to); };
    chosen = [&] {
        from.copyTo(to);
        from2.copyTo(to, grey);
    };
    random = [&] { cv::randu(to, 0, 256); };
    trail = [&] {
        cv::convertScaleAbs(kept, between, 0.95);
        cv::warpAffine(between, kept, zoom, to.size(), cv::INTER_LINEAR);
        cv::max(kept, from, kept);
        kept.copyTo(to);
    };
    stillTrail = [&] {
        cv::convertScaleAbs(kept, kept, 0.95);
        cv::max(kept, from, kept);
        kept.copyTo(to);
    };
    laplacian = [&] { cv::Laplacian(from, to, -1); };
    pixelated = [&] {
        cv::resize(from, small, {kWidth / 12, kHeight / 12}, 0, 0, cv::INTER_AREA);
        cv::resize(small, to, to.size(), 0, 0, cv::INTER_NEAREST);
    };
#endif
    const auto plugin = [&](const char* name,
                            const std::vector<std::pair<int, double>>& parameters = {}) {
        return frei0r(name, kWidth, kHeight, first.data(), target.data(), parameters);
    };
    const double middle = 0.5;
    std::vector<Comparison> comparisons = {
        {"VECropCircle", {{"inputSize", middle}}, "multiply (mask made before)", masked},
        {"VECropCircleXYPosition", {{"inputSize", middle}}, "multiply (mask made before)", masked},
        {"VECropOvalXYPosition", {{"inputSize", middle}}, "multiply (mask made before)", masked},
        {"VEFalloff", {{"inputSize", middle}}, "multiply (mask made before)", masked},
        {"VEFalloffXYPosition", {{"inputSize", middle}}, "multiply (mask made before)", masked},
        {"VELumaKey", {{"input1Amount", middle}}, "grey, threshold, alpha (hard edge)", lumaKey},
        {"VEBlackAlpha", {{"inputAmount", 1}}, "grey, threshold, alpha (hard edge)", lumaKey},
        {"VEBlackAlpha2ctl",
         {{"input1Amount", middle}},
         "grey, threshold, alpha (hard edge)",
         lumaKey},
        {"VEChromaKeyRGB", {{"inputTolerance", 0.3}}, "inRange, alpha (hard edge)", colorKey},
        {"VEChromaKeyHSV", {{"inputTolerance", 0.3}}, "inRange, alpha (hard edge)", colorKey},
        {"VEChromaKey2017", {}, "inRange, alpha (hard edge)", colorKey},
        {"VEChromaKeyXY", {{"inputTolerance", 0.3}}, "inRange, alpha (hard edge)", colorKey},
        {"VEMirrors", {}, "flip", backwards},
        {"VEMirrors", {{"inputMode", 1}}, "flip", upsideDown},
        {"VEMirrors", {{"inputMixer", 0.75}}, "flip, addWeighted", flipped},
        {"VETiles", {{"inputDivisions", 4}}, "resize, repeat (whole tiles only)", tiled},
        {"VETiles", {{"inputDivisions", 7}}, "resize, repeat (whole tiles only)", tiledBySeven},
        {"VETiles_2",
         {{"inputXdiv", 4}, {"inputYdiv", 4}},
         "resize, repeat (whole tiles only)",
         tiled},
        {"VE_Repeats", {{"inputMode", 2}}, "", {}},
        {"VE_Repeats", {{"inputMode", 2}, {"inputScale", 8}, {"inputRepeats", 3}}, "", {}},
        {"VEWobble", {{"inputMode", 0}, {"inputMixer", 1}}, "warpAffine, moved", moved},
        {"VEWobble", {{"inputMode", 1}, {"inputMixer", 1}}, "warpAffine, turned", turned},
        {"VEWobble", {{"inputMode", 7}, {"inputMixer", 1}}, "remap (places made before)", remapped},
        {"VEXFDissolve", {{"inputFadeStatus", middle}}, "addWeighted", blended},
        {"VEXFColorBlend", {{"inputFadeStatus", middle}}, "addWeighted", blended},
        {"VEXFBrightness", {{"inputFadeStatus", middle}}, "addWeighted", blended},
        {"VEXFDissolveWithPixels",
         {{"inputFadeStatus", middle}},
         "copyTo (mask made before)",
         chosen},
        {"VE_NoiseGenerator", {}, "randu (a number for each byte, no shapes)", random},
        {"VE_NoiseGenerator", {{"inputMode", 1}}, "", {}},
        {"VE_NoiseGenerator", {{"inputMode", 2}}, "", {}},
        {"VE_NoiseGenerator", {{"inputMode", 3}}, "", {}},
        {"VEDecay",
         {{"inputAmount", 0.6},
          {"inputScale", 0.4980392157},
          {"inputXpos", 0.4980392157},
          {"inputYpos", 0.4980392157},
          {"inputSkip", 1}},
         "convertScaleAbs, max",
         stillTrail},
        {"VEDecay",
         {{"inputAmount", 0.6},
          {"inputScale", 0.518},
          {"inputXpos", 0.498},
          {"inputYpos", 0.498},
          {"inputSkip", 1}},
         "convertScaleAbs, warpAffine, max",
         trail},
        {"VEEdgeDetect2", {}, "Laplacian (3x3, by channel)", laplacian},
        {"VE_ASCII_Art", {}, "resize down and up (no characters)", pixelated},
        {"VECropCircle",
         {{"inputSize", middle}},
         "frei0r alphaspot (into alpha only)",
         plugin("alphaspot", {{0, 0.5}})},
        {"VEChromaKeyRGB",
         {{"inputTolerance", 0.3}},
         "frei0r bluescreen0r (hard edge)",
         plugin("bluescreen0r")},
        {"VEMirrors", {}, "frei0r flippo", plugin("flippo", {{0, 1}})},
        {"VEWobble",
         {{"inputMode", 7}, {"inputMixer", 1}},
         "frei0r distort0r (nearest)",
         plugin("distort0r", {{0, 0.1}})},
        {"VEXFDissolveWithPixels",
         {{"inputFadeStatus", middle}},
         "frei0r pixeliz0r (one picture)",
         plugin("pixeliz0r")},
        {"VE_NoiseGenerator", {}, "frei0r nois0r (a number for each pixel)", plugin("nois0r")},
        {"VE_CloudGenerator",
         {{"inputScale", 60}, {"inputCover", 110}, {"inputAlpha", 40}, {"inputSpeed", middle}},
         "frei0r plasma (sums of waves)",
         plugin("plasma")},
        {"VEDecay",
         {{"inputAmount", 0.6},
          {"inputScale", 0.4980392157},
          {"inputXpos", 0.4980392157},
          {"inputYpos", 0.4980392157},
          {"inputSkip", 1}},
         "frei0r baltan (means of a few frames)",
         plugin("baltan")},
        {"VEEdgeDetect2", {}, "frei0r sobel (3x3)", plugin("sobel")},
        {"VEFreeze", {{"inputFreeze", 1}}, "copy", copy},
        {"VE_Strobe_2", {}, "convertScaleAbs", dim},
    };
    const std::string level = count > 3 ? arguments[3] : "";
    if (count > 2 && *arguments[2])
        std::erase_if(comparisons, [&](const Comparison& c) { return c.name != arguments[2]; });
    PlatformClock::drive(1'000'000'000);
    for (const int threads : {1, 2}) {
        CIContext context({.device = DeviceKind::CPU, .threads = threads, .instructionSet = level});
#ifdef VORN_WITH_OPENCV
        cv::setNumThreads(threads);
#endif
        for (Comparison& comparison : comparisons) {
            const CIFilterRef filter = CIFilter::filterWithName(comparison.name);
            filter->setDefaults();
            for (const auto& [key, value] : comparison.inputs)
                filter->setValueForKey(Number(value), key);
            filter->setValueForKey(image, "inputImage");
            filter->setValueForKey(other, "inputTargetImage");
            comparison.ours = {[&target, &context, filter] {
                context.render(filter->outputImage(), target.data(), kRowBytes,
                               {0, 0, kWidth, kHeight}, kCIFormatRGBA8, CGColorSpace::None);
            }};
            comparison.theirs = {comparison.peer};
        }
        Candidate copying{copy};
        // Effects that keep a picture show a plain one first.
        for (Comparison& comparison : comparisons)
            for (int frame = 0; frame < 3; ++frame) comparison.ours.run();
        for (int round = 0; round < rounds; ++round) {
            copying.measure();
            for (Comparison& comparison : comparisons) {
                comparison.ours.measure();
                if (comparison.peer) comparison.theirs.measure();
            }
        }
        std::printf("%d %s, %s, %d rounds; copy of the frame, one thread: %.0f Mpixel/s\n", threads,
                    threads == 1 ? "thread" : "threads", context.instructionSet(), rounds,
                    copying.megapixels());
        for (const Comparison& comparison : comparisons) {
            std::printf("  %-24s %6.0f Mpixel/s", comparison.name.c_str(),
                        comparison.ours.megapixels());
            if (comparison.peer)
                std::printf("  %6.0f %s, ours %.2fx", comparison.theirs.megapixels(),
                            comparison.peerName,
                            comparison.ours.megapixels() / comparison.theirs.megapixels());
            std::printf("\n");
        }
    }
}
