// Frames made and rendered while memory runs out: at the first allocation, at the second, and so
// on until a frame gets through. Nothing that is thrown may come out of the library, and the next
// frame, with memory again, has to be right. A program of its own, since it replaces `new`.
#include "vorneffects/ImageDescription.h"
#include "vorneffects/VornEffects.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

enum class Want { None, Once, Lasting };
std::atomic<Want> want{Want::None};
std::atomic<long> allocationsLeft{0}; ///< before the one that fails, or the first that does
std::atomic<bool> hasFailed{false};

void* allocate(size_t size, size_t alignment) {
    if (want != Want::None) {
        const long left = allocationsLeft--;
        if (left == 0 || (left < 0 && want == Want::Lasting)) {
            hasFailed = true;
            throw std::bad_alloc();
        }
    }
    void* const memory =
        alignment ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                  : std::malloc(size ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}

} // namespace

void* operator new(size_t size) {
    return allocate(size, 0);
}
void* operator new(size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace {

constexpr int kWidth = 40, kHeight = 24, kRow = kWidth * 4;
using Picture = std::vector<unsigned char>;

Picture source;
CIImage sourceImage;

/// What a host does for a frame. The picture stays as it was when it fails.
bool frame(CIContext& context, const char* name, Picture& picture) {
    const CIFilterRef filter = CIFilter::filterWithName(name);
    if (!filter) return false;
    filter->setDefaults();
    filter->setValueForKey(sourceImage, "inputImage");
    filter->setValueForKey(sourceImage, "inputTargetImage");
    filter->setVornFrameTime(1'000'000'000);
    bool isGood = false;
    for (int i = 0; i < 2; ++i) { // the second one reads what the first has kept
        const CIImage image = filter->outputImage();
        vorn::describeImage(image, {0, 0, kWidth, kHeight});
        isGood =
            context.render(image, picture.data(), kRow, {0, 0, kWidth, kHeight}, kCIFormatRGBA8);
    }
    return isGood;
}

bool survives(const char* name, CIContext& context, Want kind) {
    Picture expected, picture(source.size());
    // Nothing before: what a class loads for its first filter runs out of memory too.
    for (long count = 0;; ++count) {
        hasFailed = false;
        allocationsLeft = count;
        want = kind;
        bool hasThrown = false;
        try {
            frame(context, name, picture);
        } catch (...) {
            hasThrown = true;
        }
        want = Want::None;
        std::fill(picture.begin(), picture.end(), 0);
        const bool isGood = frame(context, name, picture);
        if (expected.empty()) expected = picture;
        if (hasThrown || !isGood || picture != expected) {
            std::fprintf(stderr, "%s, allocation %ld: %s\n", name, count,
                         hasThrown ? "something was thrown"
                         : isGood  ? "the next picture is another"
                                   : context.lastError().c_str());
            return false;
        }
        if (!hasFailed) return true;
    }
}

/// A context that could not be made says so and fails, and harms no other.
bool canBeMadeLater(vorn::DeviceKind device) {
    for (long count = 0;; ++count) {
        Picture picture(source.size());
        hasFailed = false;
        allocationsLeft = count;
        want = Want::Lasting;
        try {
            CIContext context({.device = device, .threads = 2});
            const bool isGood = context.render(sourceImage, picture.data(), kRow,
                                               {0, 0, kWidth, kHeight}, kCIFormatRGBA8);
            want = Want::None;
            if (!isGood && context.lastError().empty()) return false;
        } catch (...) {
            want = Want::None;
            std::fprintf(stderr, "a context threw at allocation %ld\n", count);
            return false;
        }
        CIContext next({.device = device, .threads = 2});
        if (!frame(next, "VEDummy", picture) || picture != source) return false;
        if (!hasFailed) return true;
    }
}

} // namespace

int main() {
    source.resize(kRow * kHeight);
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = i % 4 == 3 ? 255 : static_cast<unsigned char>(i * 13 % 256);
    sourceImage = CIImage::imageWithBitmap(source.data(), kWidth, kHeight, kRow, kCIFormatRGBA8);
    vorn::PlatformClock::drive(5'000'000'000);
    VornEffectsRegistrar::registerAllFilters();
    vorn::Session::standard()->setMessages([](vorn::Severity, std::string_view) {});

    bool isGood = true;
    for (const vorn::DeviceKind device : {vorn::DeviceKind::CPU, vorn::DeviceKind::Reference}) {
        if (!canBeMadeLater(device)) return 1;
        CIContext context({.device = device, .threads = 2});
        for (const char* name : {"VEDummy", "VEFreeze", "VEDecay", "VEEdgeDetect2", "VEMirrors",
                                 "VETiles", "VE_ASCII_Art", "VE_CloudGenerator", "VEXFDissolve",
                                 "CIGaussianBlur", "CILanczosScaleTransform"})
            for (const Want want : {Want::Lasting, Want::Once})
                isGood = survives(name, context, want) && isGood;
    }
    return isGood ? 0 : 1;
}
