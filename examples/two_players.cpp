// Two players in one process, each on a thread of its own and in a session of its own: its media
// time, its device and threads, its place for the library's lines. They show what each would show
// alone, which the program checks.
//
//   two_players [LEFT.ppm RIGHT.ppm]
#include <vorneffects/VornEffects.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kWidth = 256, kHeight = 64, kBytesPerRow = kWidth * 4;
using Pixels = std::vector<uint8_t>; // premultiplied RGBA, the top row first

/// A bright bar that moves to the right.
Pixels sourceAt(uint32_t frame) {
    Pixels pixels(kBytesPerRow * kHeight, 255);
    for (uint32_t i = 0; i < pixels.size(); ++i) {
        const uint32_t x = i / 4 % kWidth;
        if (i % 4 != 3) pixels[i] = (x + kWidth - frame * 8) % kWidth < 24 ? 240 : uint8_t(x / 4);
    }
    return pixels;
}

struct Player {
    const char* name;
    uint64_t framesPerSecond;
    int threads;

    /// Plays two seconds; gives the last frame, and none where something went wrong.
    Pixels play() const {
        vorn::SessionOptions options;
        options.threads = threads;
        options.messages = [this](vorn::Severity severity, std::string_view line) {
            if (severity == vorn::Severity::Notice) return;
            std::fprintf(stderr, "%s: %.*s\n", name, int(line.size()), line.data());
        };
        const auto session = vorn::Session::make(options);
        session->driveClock(0);
        const CIFilterRef trail = session->filterWithName("VEDecay");
        const CIFilterRef strobe = session->filterWithName("VE_Strobe_2");
        if (!trail || !strobe) return {};
        for (const CIFilterRef& filter : {trail, strobe}) filter->setDefaults();
        trail->setValueForKey(vorn::Number(0.5), "inputAmount");
        for (const char* key : {"inputScale", "inputXpos", "inputYpos"}) // at rest
            trail->setValueForKey(vorn::Number(127 / 255.0), key);
        strobe->setValueForKey(vorn::Number(7.0), "inputMode");
        strobe->setValueForKey(vorn::Number(0.5), "inputMixer");

        CIContext context(session); // kept for all frames
        Pixels result(kBytesPerRow * kHeight);
        for (uint32_t frame = 0; frame < 2 * framesPerSecond; ++frame) {
            session->driveClock(frame * 1'000'000'000 / framesPerSecond);
            const Pixels source = sourceAt(frame);
            trail->setValueForKey(CIImage::imageWithBitmap(source.data(), kWidth, kHeight,
                                                           kBytesPerRow, kCIFormatRGBA8),
                                  "inputImage");
            strobe->setValueForKey(trail->outputImage(), "inputImage");
            if (!context.render(strobe->outputImage(), result.data(), kBytesPerRow,
                                {0, 0, kWidth, kHeight}, kCIFormatRGBA8)) {
                std::fprintf(stderr, "%s: %s\n", name, context.lastError().c_str());
                return {};
            }
        }
        return result;
    }
};

bool write(const Pixels& pixels, const char* path) {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    std::fprintf(file, "P6\n%u %u\n255\n", kWidth, kHeight);
    for (size_t i = 0; i < pixels.size(); i += 4) std::fwrite(&pixels[i], 1, 3, file);
    return std::fclose(file) == 0;
}

} // namespace

int main(int count, char** arguments) {
    VornEffectsRegistrar::registerAllFilters();
    const Player left{"left", 25, 2}, right{"right", 60, 1};

    Pixels leftFrame, rightFrame;
    std::thread leftThread([&] { leftFrame = left.play(); });
    std::thread rightThread([&] { rightFrame = right.play(); });
    leftThread.join();
    rightThread.join();
    if (leftFrame.empty() || rightFrame.empty()) return 1;

    const bool areAsAlone = leftFrame == left.play() && rightFrame == right.play();
    std::printf("each shows %s\n", areAsAlone ? "what it shows alone" : "something of the other");
    if (count == 3 && !(write(leftFrame, arguments[1]) && write(rightFrame, arguments[2])))
        return std::fprintf(stderr, "the pictures cannot be written\n"), 1;
    return areAsAlone ? 0 : 1;
}
