#include "bench_pictures.h"

#include "host_error.h"
#include "testcard/testcard.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

namespace vorn::hosts::cli {

void failRendering(const CIContext& context) {
    throw HostError(ExitCode::Failed, "rendering failed: " + context.lastError());
}

namespace {

std::vector<uint8_t> testCardPixels(const TestCard& card, const Pictures& pictures,
                                    double seconds) {
    constexpr double framesPerSecond = 25;
    const auto [width, height] = pictures.size;
    std::vector<uint8_t> drawn(size_t{width} * height * 4);
    card.draw(drawn.data(), size_t{width} * 4, seconds, int64_t(seconds * framesPerSecond),
              framesPerSecond);
    if (pictures.format == CIFormat::RGBA8) return drawn;

    std::vector<uint8_t> pixels(pictures.bytesPerRow() * height);
    const CIImage image =
        CIImage::imageWithBitmap(drawn.data(), width, height, size_t{width} * 4, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::CPU});
    if (!context.render(image, pixels.data(), pictures.bytesPerRow(), pictures.bounds(),
                        pictures.format)) {
        failRendering(context);
    }
    return pixels;
}

void fill(Pictures& pictures) {
    const auto [width, height] = pictures.size;
    const TestCard card(static_cast<int>(width), static_cast<int>(height));
    const auto imageOf = [&](const std::vector<uint8_t>& pixels) {
        return CIImage::imageWithBitmap(pixels.data(), pictures.size.width, pictures.size.height,
                                        pictures.bytesPerRow(), pictures.format);
    };
    pictures.firstPixels = testCardPixels(card, pictures, 0);
    pictures.laterPixels = testCardPixels(card, pictures, 1.6);
    pictures.target.resize(pictures.bytesPerRow() * height);
    pictures.first = imageOf(pictures.firstPixels);
    pictures.later = imageOf(pictures.laterPixels);
}

} // namespace

std::vector<Pictures> makePictures(const std::vector<std::string>& sizeLists,
                                   const std::string& formatText) {
    std::optional<CIFormat> format;
    for (const CIFormat known :
         {CIFormat::RGBA8, CIFormat::BGRA8, CIFormat::RGBAh, CIFormat::RGBAf}) {
        if (formatText == formatName(known)) format = known;
    }
    if (!format) {
        throw HostError(ExitCode::Usage,
                        fmt::format("--format {}: RGBA8, BGRA8, RGBAh or RGBAf", formatText));
    }
    std::vector<PixelSize> sizes;
    for (const std::string& list : sizeLists) {
        for (const std::string& text : splitList(list, ',')) {
            sizes.push_back(parseSize(text, "--size"));
            if (std::max(sizes.back().width, sizes.back().height) > TestCard::kLargestSide) {
                throw HostError(ExitCode::Usage, fmt::format("--size {}: each side is at most {}",
                                                             text, int{TestCard::kLargestSide}));
            }
        }
    }
    std::vector<Pictures> all(sizes.size());
    for (size_t i = 0; i < sizes.size(); ++i) {
        all[i].size = sizes[i];
        all[i].format = *format;
        fill(all[i]);
    }
    return all;
}

} // namespace vorn::hosts::cli
