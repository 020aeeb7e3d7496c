// The framework's own filters beside OpenCV's operations of the same kind: 1920x1080 RGBA, 8 bits
// in and out, one picture in the cache, as many threads on either side. Run by hand.
//
// First how far the two pictures of a smooth pattern differ, in steps of 8 bits. OpenCV's warps
// round their fractions to 1/32 of a pixel and its 8-bit blur leaves out what is past 3 sigma.
//
// Everything is measured in turn, round after round, so that a busy moment of the machine hits all
// alike; the figures are the best of all rounds, in Mpixel/s.

#include "measure.h"
#include "vorneffects/VornEffects.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#ifdef VORN_WITH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

using namespace vorn;

namespace {

/// A filter and the peer that does the same; no peer where OpenCV has none.
struct Comparison {
    std::string name;
    std::vector<std::pair<const char*, InputValue>> inputs;
    std::function<void()> peer;
    Candidate ours{}, theirs{};

    CIFilterRef filter() const {
        const CIFilterRef made = CIFilter::filterWithName(name);
        for (const auto& [key, value] : inputs) made->setValueForKey(value, key);
        return made;
    }
};

/// A pattern of slow waves, opaque.
std::vector<uint8_t> waves() {
    std::vector<uint8_t> bytes(kBytes);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* at =
                bytes.data() + static_cast<size_t>(y) * kRowBytes + static_cast<size_t>(x) * 4;
            at[0] = static_cast<uint8_t>(127.5 + 127.4 * std::sin(x * 0.05));
            at[1] = static_cast<uint8_t>(127.5 + 127.4 * std::cos(y * 0.07));
            at[2] = static_cast<uint8_t>(127.5 + 127.4 * std::sin((x + y) * 0.03));
            at[3] = 255;
        }
    return bytes;
}

void printDifference(const std::string& name, const std::vector<uint8_t>& ours,
                     const std::vector<uint8_t>& theirs) {
    int largest = 0;
    double sum = 0;
    size_t beyondOne = 0;
    for (size_t i = 0; i < kBytes; ++i) {
        const int difference = std::abs(int(ours[i]) - int(theirs[i]));
        largest = std::max(largest, difference);
        beyondOne += difference > 1;
        sum += difference;
    }
    std::printf("  %-34s mean %.3f, largest %d, %.3f %% beyond 1\n", name.c_str(), sum / kBytes,
                largest, 100.0 * static_cast<double>(beyondOne) / kBytes);
}

CIImage pictureOf(std::vector<uint8_t>& bytes, bool isOpaque) {
    for (size_t i = 0; i < kBytes; ++i) {
        const size_t alpha = isOpaque ? 255 : (i / 4 * 2654435761u >> 9) & 255;
        bytes[i] = static_cast<uint8_t>(i % 4 == 3 ? alpha
                                                   : ((i * 2654435761u) >> 13 & 255) * alpha / 255);
    }
    return CIImage::imageWithBitmap(bytes.data(), kWidth, kHeight, kRowBytes, kCIFormatRGBA8);
}

} // namespace

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::atoi(arguments[1]) : 10;
    std::vector<uint8_t> pixels(kBytes), veil(kBytes), target(kBytes);
    const CIImage image = pictureOf(pixels, true), over = pictureOf(veil, false);

    // A turn by 10 degrees about the centre, and a trapezium.
    const double angle = 0.17453292519943295, c = std::cos(angle), s = std::sin(angle);
    const CGAffineTransform turn{c, s, -s, c, 960 - c * 960 + s * 540, 540 - s * 960 - c * 540};
    std::function<void()> blur, affine, perspective, blurSmall, blurLarge, shrink, enlarge;
#ifdef VORN_WITH_OPENCV
    const cv::Mat from(kHeight, kWidth, CV_8UC4, pixels.data());
    cv::Mat to(kHeight, kWidth, CV_8UC4, target.data()), resized;
    // Its coordinates are 0 at the centre of the first pixel and grow downward.
    const cv::Mat matrix = cv::getRotationMatrix2D({959.5, 539.5}, 10, 1);
    const auto point = [](float x, float y) { return cv::Point2f(x - 0.5f, 1079.5f - y); };
    const cv::Point2f corners[] = {point(0, 1080), point(1920, 1080), point(1920, 0), point(0, 0)};
    const cv::Point2f quadrilateral[] = {point(200, 980), point(1800, 1060), point(1900, 20),
                                         point(60, 100)};
    const cv::Mat projection = cv::getPerspectiveTransform(corners, quadrilateral);
    const auto gaussian = [&](double sigma) {
        return [&, sigma] { cv::GaussianBlur(from, to, {}, sigma, sigma, cv::BORDER_CONSTANT); };
    };
    blur = gaussian(10), blurSmall = gaussian(2), blurLarge = gaussian(40);
    affine = [&] { cv::warpAffine(from, to, matrix, to.size(), cv::INTER_LINEAR); };
    perspective = [&] { cv::warpPerspective(from, to, projection, to.size(), cv::INTER_LINEAR); };
    shrink = [&] { cv::resize(from, resized, {640, 360}, 0, 0, cv::INTER_AREA); };
    enlarge = [&] {
        cv::resize(from(cv::Rect(0, 0, 960, 540)), to, to.size(), 0, 0, cv::INTER_LANCZOS4);
    };
#endif
    std::vector<Comparison> comparisons = {
        {"CISourceOverCompositing", {{"inputImage", over}, {"inputBackgroundImage", image}}, {}},
        {"CIHardLightBlendMode", {{"inputImage", over}, {"inputBackgroundImage", image}}, {}},
        {"CIAffineTransform", {{"inputImage", image}, {"inputTransform", turn}}, affine},
        {"CIPerspectiveTransformWithExtent",
         {{"inputImage", image},
          {"inputExtent", CIVector(0, 0, kWidth, kHeight)},
          {"inputTopLeft", CIVector(200, 980)},
          {"inputTopRight", CIVector(1800, 1060)},
          {"inputBottomRight", CIVector(1900, 20)},
          {"inputBottomLeft", CIVector(60, 100)}},
         perspective},
        {"CIGaussianBlur", {{"inputImage", image}, {"inputRadius", Number(2.0)}}, blurSmall},
        {"CIGaussianBlur", {{"inputImage", image}, {"inputRadius", Number(10.0)}}, blur},
        {"CIGaussianBlur", {{"inputImage", image}, {"inputRadius", Number(40.0)}}, blurLarge},
        {"CILanczosScaleTransform",
         {{"inputImage", image}, {"inputScale", Number(1 / 3.0)}},
         shrink},
        {"CILanczosScaleTransform", {{"inputImage", image}, {"inputScale", Number(2.0)}}, enlarge},
        {"CIHueAdjust", {{"inputImage", image}, {"inputAngle", Number(1.0)}}, {}},
        {"CIColorControls", {{"inputImage", image}, {"inputSaturation", Number(1.5)}}, {}},
        {"CITemperatureAndTint",
         {{"inputImage", image}, {"inputTargetNeutral", CIVector(4000, 0)}},
         {}},
        {"CIRandomGenerator", {}, {}},
        {"CIRadialGradient", {}, {}},
        {"CISmoothLinearGradient", {}, {}},
    };
#ifdef VORN_WITH_OPENCV
    std::printf("beside OpenCV, in steps of 8 bits\n");
    const std::vector<uint8_t> pattern = waves(), noise = pixels;
    pixels = pattern;
    for (Comparison& comparison : comparisons) {
        if (!comparison.peer || comparison.name == "CILanczosScaleTransform") continue;
        comparison.peer();
        const std::vector<uint8_t> theirs = target;
        CIContext context;
        context.render(comparison.filter()->outputImage(), target.data(), kRowBytes,
                       {0, 0, kWidth, kHeight}, kCIFormatRGBA8, CGColorSpace::None);
        printDifference(comparison.name, target, theirs);
    }
    pixels = noise;
#endif
    for (const int threads : {1, 2}) {
        CIContext context({.threads = threads});
#ifdef VORN_WITH_OPENCV
        cv::setNumThreads(threads);
#endif
        for (Comparison& comparison : comparisons) {
            comparison.ours = {[&target, &context, filter = comparison.filter()] {
                context.render(filter->outputImage(), target.data(), kRowBytes,
                               {0, 0, kWidth, kHeight}, kCIFormatRGBA8, CGColorSpace::None);
            }};
            comparison.theirs = {comparison.peer};
        }
        for (int round = 0; round < rounds; ++round)
            for (Comparison& comparison : comparisons) {
                comparison.ours.measure();
                if (comparison.peer) comparison.theirs.measure();
            }
        std::printf("%d %s, %s, %d rounds\n", threads, threads == 1 ? "thread" : "threads",
                    context.instructionSet(), rounds);
        for (const Comparison& comparison : comparisons) {
            std::printf("  %-34s %7.0f Mpixel/s", comparison.name.c_str(),
                        comparison.ours.megapixels());
            if (comparison.peer)
                std::printf("   OpenCV %7.0f, ours %5.2fx", comparison.theirs.megapixels(),
                            comparison.ours.megapixels() / comparison.theirs.megapixels());
            std::printf("\n");
        }
    }
}
