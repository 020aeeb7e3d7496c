// A host in one screen: registers the effects, solarizes a grey ramp made in memory, writes the
// result as a picture file and says what became of three greys.
//
//   minimal_host [PICTURE.ppm]
#include <vorneffects/VornEffects.h>

#include <cstdint>
#include <cstdio>
#include <vector>

int main(int count, char** arguments) {
    const char* path = count > 1 ? arguments[1] : "solarized.ppm";
    constexpr uint32_t width = 256, height = 64, bytesPerRow = width * 4;
    std::vector<uint8_t> source(bytesPerRow * height), result(source.size());
    for (size_t i = 0; i < source.size(); ++i) // premultiplied RGBA, the top row first
        source[i] = i % 4 == 3 ? 255 : static_cast<uint8_t>(i / 4 % width);

    VornEffectsRegistrar::registerAllFilters();
    const CIFilterRef solarize = CIFilter::filterWithName("VESolarize");
    if (!solarize) return std::fprintf(stderr, "there is no filter VESolarize\n"), 1;
    const CIImage ramp =
        CIImage::imageWithBitmap(source.data(), width, height, bytesPerRow, kCIFormatRGBA8);
    solarize->setDefaults();
    solarize->setValueForKey(ramp, "inputImage");
    solarize->setValueForKey(vorn::Number(1.0), "inputIntensity");

    CIContext context; // keeps its threads and memory: make one and keep it for all frames
    if (!context.render(solarize->outputImage(), result.data(), bytesPerRow, {0, 0, width, height},
                        kCIFormatRGBA8))
        return std::fprintf(stderr, "%s\n", context.lastError().c_str()), 1;

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return std::fprintf(stderr, "%s cannot be written\n", path), 1;
    std::fprintf(file, "P6\n%u %u\n255\n", width, height);
    for (size_t i = 0; i < result.size(); i += 4) std::fwrite(&result[i], 1, 3, file);
    if (std::fclose(file) != 0) return std::fprintf(stderr, "%s cannot be written\n", path), 1;
    std::printf("%s: grey 0 became %d, 64 became %d, 255 became %d\n", path, result[0],
                result[64 * 4], result[255 * 4]);
    return 0;
}
