#include "studio.h"

#include "chain/chain.h"
#include "chain/film_clock.h"
#include "chain/printed_lines.h"
#include "host_error.h"
#include "media/writer.h"
#include "terminal/interrupt.h"
#include "testcard/testcard.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace vorn::hosts::cli {

namespace {

constexpr media::Size kSize{kGalleryWidth, kGalleryHeight};
constexpr size_t kRowBytes = size_t{kGalleryWidth} * 4;

CIImage imageOf(Pixels pixels) {
    const auto owner = std::make_shared<const Pixels>(std::move(pixels));
    return CIImage::imageWithBitmap(owner->data(), kGalleryWidth, kGalleryHeight, kRowBytes,
                                    CIFormat::RGBA8, CGColorSpace::SRGB, owner);
}

Pixels testCardAt(const TestCard& card, int frame) {
    Pixels pixels(kRowBytes * kGalleryHeight);
    card.draw(pixels.data(), kRowBytes, double(frame) / kFramesPerSecond, frame, kFramesPerSecond);
    return pixels;
}

/// The second image: an evening sky with its sun over two ranges of hills.
Pixels paintedEvening() {
    Pixels pixels;
    pixels.reserve(kRowBytes * kGalleryHeight);
    for (int y = 0; y < kGalleryHeight; ++y) {
        for (int x = 0; x < kGalleryWidth; ++x) {
            const double u = double(x) / kGalleryWidth, v = double(y) / kGalleryHeight;
            const double sun = std::hypot((u - 0.68) * kGalleryWidth / kGalleryHeight, v - 0.48);
            const double glow = std::exp(-3 * sun);
            double color[] = {0.16 + 0.7 * v + 0.3 * glow, 0.12 + 0.35 * v + 0.35 * glow,
                              0.38 + 0.05 * v + 0.05 * glow};
            const auto paint = [&](double red, double green, double blue, double share) {
                const double paints[] = {red, green, blue}, part = std::clamp(share, 0.0, 1.0);
                for (int c = 0; c < 3; ++c) color[c] += (paints[c] - color[c]) * part;
            };
            const double far = 0.66 + 0.05 * std::sin(9 * u) + 0.03 * std::sin(23 * u + 1);
            const double near = 0.82 + 0.06 * std::sin(6 * u + 2) + 0.02 * std::sin(31 * u);
            paint(1, 0.93, 0.7, (0.13 - sun) * kGalleryHeight);
            paint(0.29, 0.2, 0.4, (v - far) * kGalleryHeight);
            paint(0.09, 0.09, 0.18, (v - near) * kGalleryHeight);
            for (const double c : color)
                pixels.push_back(static_cast<uint8_t>(std::clamp(c, 0.0, 1.0) * 255 + 0.5));
            pixels.push_back(255);
        }
    }
    return pixels;
}

/// Over a checkerboard, which shows where a picture is transparent.
media::Frame frameOf(const Pixels& pixels) {
    constexpr int side = 10;
    media::Frame frame(kSize, media::PixelFormat::Rgba8);
    for (int y = 0; y < kGalleryHeight; ++y) {
        const uint8_t* in = pixels.data() + kRowBytes * static_cast<size_t>(y);
        uint8_t* out = frame.row(y);
        for (int x = 0; x < kGalleryWidth; ++x, in += 4, out += 4) {
            const int ground = (x / side + y / side) % 2 ? 200 : 240;
            for (int c = 0; c < 3; ++c) {
                out[c] = static_cast<uint8_t>(
                    std::min(255, in[c] + (ground * (255 - in[3]) + 127) / 255));
            }
            out[3] = 255;
        }
    }
    frame.timeBase = {1, kFramesPerSecond};
    frame.duration = 1;
    return frame;
}

uint64_t timeOf(int frame) {
    return uint64_t{1'000'000'000} / kFramesPerSecond * static_cast<uint64_t>(frame);
}

} // namespace

bool lookAlike(const Pixels& a, const Pixels& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
    return sum < 2.55 * double(a.size());
}

bool isOpaque(const Pixels& pixels) {
    for (size_t i = 3; i < pixels.size(); i += 4) {
        if (pixels[i] != 255) return false;
    }
    return true;
}

bool flashes(const Film& film) {
    int turns = 0, direction = 0;
    double extreme = 0;
    for (size_t i = 0; i < film.size(); ++i) {
        double light = 0; // BT.709 luma of the picture over black, mean
        for (size_t k = 0; k < film[i].size(); k += 4)
            light += 0.2126 * film[i][k] + 0.7152 * film[i][k + 1] + 0.0722 * film[i][k + 2];
        light /= 255.0 * double(film[i].size() / 4);
        const int way = light > extreme ? 1 : -1;
        if (i == 0 || way == direction) {
            extreme = light;
        } else if (std::fabs(light - extreme) >= 0.1) {
            turns += direction != 0;
            direction = way;
            extreme = light;
        }
    }
    return turns * kFramesPerSecond > 2 * 3 * static_cast<int>(film.size());
}

void stopIfAsked() {
    if (InterruptWatch::isRequested())
        throw HostError(ExitCode::Interrupted, "interrupted; there is no page yet");
}

void write(const std::string& path, const Film& film) {
    stopIfAsked();
    media::WriterOptions options;
    options.size = kSize;
    options.frameRate = {kFramesPerSecond, 1};
    options.threads = 1; // their number shows in the bytes of some encoders
    options.access.stop = &InterruptWatch::request();
    media::Writer writer(path, options);
    for (size_t i = 0; i < film.size(); ++i) {
        media::Frame frame = frameOf(film[i]);
        frame.pts = static_cast<int64_t>(i);
        writer.write(frame);
    }
    writer.finish();
}

Studio::Studio() : targetPixels(paintedEvening()) {
    const TestCard card(kGalleryWidth, kGalleryHeight);
    for (int i = 0; i < kFrames; ++i) {
        sourcePixels.push_back(testCardAt(card, i));
        sources_.push_back(imageOf(sourcePixels.back()));
    }
    target_ = imageOf(targetPixels);
}

Film Studio::film(const GalleryFilter& filter, const Settings& settings, const Take& take) {
    PrintedLines printed;
    Film film;
    FilmClock clock;
    clock.driveTo(timeOf(take.first), static_cast<uint64_t>(take.first));
    const CIFilterRef instance = makeFilter(filter.entry);
    setStarts(*instance, filter.entry);
    for (const ListedInput& input : filter.inputs) {
        if (input.kind == InputKind::Image) instance->setValueForKey(target_, input.key);
    }
    for (const auto& [key, value] : settings) instance->setValueForKey(Number(value), key);
    const bool isSourceHeld = take.isSourceHeld || !take.fade.empty();
    for (int i = take.first; i < take.first + take.frames; ++i) {
        clock.driveTo(timeOf(i), static_cast<uint64_t>(i));
        instance->setVornFrameTime(timeOf(i));
        setMediaTime(*instance, filter.entry, timeOf(i), [&](const std::string& key) {
            return std::any_of(settings.begin(), settings.end(),
                               [&](const auto& set) { return set.first == key; });
        });
        const CIImage& card = sources_[static_cast<size_t>(isSourceHeld ? 0 : i)];
        const FilterGuide& guide = filter.entry.guide();
        instance->setValueForKey(guide.needsTransparency ? cutOut(card) : card, guide.frameKey);
        if (!take.fade.empty()) { // there in the first half, and back in the second
            constexpr int half = kFrames / 2;
            instance->setValueForKey(Number(double(half - std::abs(i - half)) / half), take.fade);
        }
        film.push_back(rendered(instance->outputImage()));
    }
    for (const std::string& line : printed.take()) messages.insert(filter.entry.name + ": " + line);
    return film;
}

CIImage Studio::cutOut(const CIImage& image) {
    const CIFilterRef oval = makeFilter(findFilter("VECropOvalXYPosition"));
    oval->setDefaults();
    oval->setValueForKey(Number(0.2), "inputSize");
    oval->setValueForKey(image, "inputImage");
    return oval->outputImage();
}

Film Studio::film(const ChainPlan& plan) {
    Film film;
    FilmClock clock;
    clock.driveTo(timeOf(0), 0);
    Chain chain(plan);
    for (int i = 0; i < kFrames; ++i) {
        clock.driveTo(timeOf(i), static_cast<uint64_t>(i));
        film.push_back(rendered(chain.apply(sources_[static_cast<size_t>(i)], {}, timeOf(i),
                                            double(i) / kFramesPerSecond)));
    }
    for (const std::string& line : chain.takeMessages()) messages.insert(line);
    return film;
}

Pixels Studio::rendered(const CIImage& image) {
    Pixels pixels(kRowBytes * kGalleryHeight);
    const CGRect bounds{0, 0, kGalleryWidth, kGalleryHeight};
    if (image && !context_.render(image, pixels.data(), kRowBytes, bounds, CIFormat::RGBA8)) {
        throw HostError(ExitCode::Failed, "rendering failed: " + context_.lastError());
    }
    return pixels;
}

} // namespace vorn::hosts::cli
