// A contact sheet: one picture through every filter, side by side, each with its name.
//
//   contact_sheet PICTURE.png SHEET.ppm
//
// Filters are shown with the settings that their guides begin with, or else at their defaults.
#include <vorneffects/VornEffects.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kGap = 12,
                   kCaption = 28; // pixels between the cells, and under each for its name
constexpr CIFormat kFormat = kCIFormatRGBA8;
constexpr size_t kPixelBytes = vorn::bytesPerPixel(kFormat);

struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels;

    Picture(uint32_t width_, uint32_t height_)
        : width(width_), height(height_), pixels(size_t(width_) * height_ * kPixelBytes) {}
    size_t bytesPerRow() const { return width * kPixelBytes; }
    CGRect extent() const { return {0, 0, double(width), double(height)}; }
};

/// Sets the source as the image, its mirror image on every other image input, and the settings that
/// the guide begins with or else the defaults.
void prepare(CIFilter& filter, const CIImage& source) {
    const CIImage mirrored =
        source.imageByApplyingTransform({-1, 0, 0, 1, source.extent().width, 0});
    filter.setDefaults();
    for (const vorn::InputInfo& input : filter.filterClass().inputs())
        if (input.kind == vorn::InputKind::Image)
            filter.setValueForKey(
                input.key == filter.filterClass().guide().frameKey ? source : mirrored, input.key);
    for (const auto& [key, value] : filter.filterClass().guide().beginWith)
        filter.setValueForKey(vorn::Number(value), key);
}

/// What the filter makes of the source, on black where it is transparent. False with a line on
/// standard error when there is nothing to show.
bool show(CIContext& context, const std::string& name, const CIImage& source, Picture& result) {
    // Effects that move by themselves, or keep something, have a few frames to do so: the same ones
    // every time.
    constexpr uint64_t kFrame = 40'000'000;
    constexpr int kFrames = 12;
    vorn::PlatformClock::drive(0);
    const CIFilterRef filter = CIFilter::filterWithName(name);
    if (!filter) return std::fprintf(stderr, "%s cannot be made\n", name.c_str()), false;
    prepare(*filter, source);
    CIImage image;
    for (uint64_t i = 1; i <= kFrames; ++i) {
        vorn::PlatformClock::drive(i * kFrame);
        image = filter->outputImage();
    }
    if (!image) return std::fprintf(stderr, "%s gives no image\n", name.c_str()), false;
    if (context.render(image.imageByCompositingOverImage(CIImage::imageWithColor({0, 0, 0})),
                       result.pixels.data(), result.bytesPerRow(), result.extent(), kFormat))
        return true;
    return std::fprintf(stderr, "%s: %s\n", name.c_str(), context.lastError().c_str()), false;
}

bool writePPM(const Picture& picture, const char* path) {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    std::fprintf(file, "P6\n%u %u\n255\n", picture.width, picture.height);
    for (size_t i = 0; i < picture.pixels.size(); i += kPixelBytes)
        std::fwrite(&picture.pixels[i], 1, 3, file);
    const bool isWhole = !std::ferror(file);
    return std::fclose(file) == 0 && isWhole;
}

int makeSheet(const char* picturePath, const char* sheetPath) {
    const vorn::Data file = vorn::dataWithContentsOfFile(picturePath);
    const std::optional<vorn::CGImage> decoded = file ? vorn::decodePNG(file) : std::nullopt;
    if (!decoded) return std::fprintf(stderr, "%s is no PNG picture\n", picturePath), 1;
    Picture source(decoded->width, decoded->height);
    source.pixels = decoded->pixels;
    const CIImage image = CIImage::imageWithBitmap(source.pixels.data(), source.width,
                                                   source.height, source.bytesPerRow(), kFormat);

    VornEffectsRegistrar::registerAllFilters();
    const std::vector<std::string> names = CIFilter::filterNames(vorn::kVornFilterCategory);
    const uint32_t columns = static_cast<uint32_t>(std::ceil(std::sqrt(double(names.size()))));
    if (columns == 0) return std::fprintf(stderr, "there are no filters\n"), 1;
    const uint32_t rows = (static_cast<uint32_t>(names.size()) + columns - 1) / columns;
    const uint32_t cellWidth = source.width + kGap, cellHeight = source.height + kCaption + kGap;
    Picture sheet(columns * cellWidth + kGap, rows * cellHeight + kGap);

    const CGContextRef drawing =
        vorn::BitmapContext::create(sheet.pixels.data(), sheet.width, sheet.height,
                                    sheet.bytesPerRow(), kFormat, CGColorSpace::SRGB);
    if (!drawing) return std::fprintf(stderr, "the sheet would be too large\n"), 1;
    drawing->setFillColor(0.13, 0.13, 0.14, 1);
    drawing->fillRect(sheet.extent());
    drawing->setFillColor(0.93, 0.93, 0.93, 1);
    for (uint32_t i = 0; i < names.size(); ++i) {
        const double left = kGap + i % columns * cellWidth;
        const double bottom = sheet.height - (i / columns + 1) * double(cellHeight);
        drawing->drawText({left, bottom + 9}, names[i], vorn::systemFontName(), 16);
    }
    drawing->flush();

    CIContext context;
    Picture cell(source.width, source.height);
    int failures = 0;
    for (uint32_t i = 0; i < names.size(); ++i) {
        if (!show(context, names[i], image, cell)) {
            ++failures;
            continue;
        }
        uint8_t* at = sheet.pixels.data() +
                      (kGap + i / columns * cellHeight) * sheet.bytesPerRow() +
                      (kGap + i % columns * cellWidth) * kPixelBytes;
        for (uint32_t y = 0; y < cell.height; ++y, at += sheet.bytesPerRow())
            std::copy_n(&cell.pixels[y * cell.bytesPerRow()], cell.bytesPerRow(), at);
    }
    if (!writePPM(sheet, sheetPath))
        return std::fprintf(stderr, "%s cannot be written\n", sheetPath), 1;
    std::printf("%s: %zu filters, %u x %u pixels\n", sheetPath, names.size(), sheet.width,
                sheet.height);
    return failures == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) return std::fprintf(stderr, "Usage: contact_sheet PICTURE.png SHEET.ppm\n"), 2;
    return makeSheet(arguments[1], arguments[2]);
}
