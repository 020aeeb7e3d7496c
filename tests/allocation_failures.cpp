// Frames made and rendered, and functions of the interface called, while memory runs out: at
// the first allocation, at the second, and so on until all gets through. Nothing that is thrown may
// come out of the library, and the next frame or call, with memory again, has to be right. A
// program of its own, since it replaces `new`.
#include "vorneffects/ImageDescription.h"
#include "vorneffects/VornEffects.h"
#include "vorneffects/VulkanInterop.h"

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

/// Filters of the host's. The texts are longer than what fits into a string without memory.
class HostFilter : public CIFilter {
public:
    static vorn::Attributes customAttributes() {
        return {vorn::scalar("inputAmountOfThisFilter", "amount of this filter", {.standard = 3}),
                vorn::constant("inputConstantOfThisFilter", {.standard = 4}), vorn::mixer(),
                vorn::position("inputPlaceOfThisFilter", "place of this filter", {1, 2})};
    }
    static vorn::FilterGuide guide() { return {.title = "A filter of the host that is tried"}; }
    CIImage outputImage() override { return inputImage; }

    CIImage inputImage;
    vorn::Number inputAmountOfThisFilter, inputConstantOfThisFilter, inputMixer;
    CIVector inputPlaceOfThisFilter;
    VORN_FILTER(HostFilter, inputImage, inputAmountOfThisFilter, inputConstantOfThisFilter,
                inputMixer, inputPlaceOfThisFilter)
};
VORN_REGISTER(HostFilter)

struct HostConstructor : CIFilterConstructor {
    CIFilterRef filterWithName(std::string_view) override {
        return HostFilter::classInformation.create();
    }
};

/// A call into the library, with what it is given made beforehand. True when it did what it should.
struct Call {
    const char* name;
    bool (*works)();
};

using vorn::Session;
constexpr std::string_view kFilter = "VE_RGB_Contrast", kHosts = "A filter of the host";
const vorn::ClassInfo owner{"allocation_failures", &owner};
const vorn::Bundle bundle = vorn::Bundle::forClass(&owner);
const std::string manifestFile = bundle.folder() + "/VornEffectsManifest.plist",
                  pictureFile = bundle.folder() + "/FX_error_image.png";
constexpr std::string_view kLibrary = "VE_SolarizeFilterKernel";

const Call kCalls[] = {
    {"names",
     [] {
         VornEffectsRegistrar::registerAllFilters();
         return VornEffectsRegistrar::registrationProblem().empty() &&
                VornEffectsCatalog::allFilterNames().size() > 30 &&
                CIFilter::filterNames(vorn::kVornFilterCategory).size() > 30 &&
                CIFilter::registeredFilter(kFilter) && vorn::classFromString(kFilter);
     }},
    {"a session",
     [] {
         const auto session = Session::make({.messages = [](vorn::Severity, std::string_view) {}});
         if (!session) return false;
         const Session::Scope scope(session);
         session->driveClock(5);
         return Session::current() == session && vorn::PlatformClock::ticks() == 5 &&
                session->filterWithName(kFilter) != nullptr;
     }},
    {"a sink",
     [] {
         const auto session = Session::make();
         if (!session) return false;
         // More than fits into a function object without memory.
         struct Large {
             char bytes[64] = {};
             void operator()(vorn::Severity, std::string_view) const {}
         };
         vorn::MessageSink sink;
         try {
             sink = Large();
         } catch (const std::bad_alloc&) { // the host's own
             return false;
         }
         session->setMessages(std::move(sink));
         return session->setMessages({}) != nullptr;
     }},
    {"a context's names",
     [] {
         CIContext context({.device = vorn::DeviceKind::Reference});
         context.trim();
         return context.deviceName() == "reference" && context.deviceProblem().empty() &&
                context.options().device == vorn::DeviceKind::Reference &&
                *context.instructionSet() != 0 && context.threads() == 1 &&
                !vorn::supportedInstructionSets().empty();
     }},
    {"a render that is waited for",
     [] {
         static unsigned char picture[kRow * kHeight];
         CIContext context({.device = vorn::DeviceKind::Reference});
         return context
             .startRender(sourceImage, picture, kRow, {0, 0, kWidth, kHeight}, kCIFormatRGBA8)
             .wait();
     }},
    {"a capture",
     [] {
         const auto surface = vorn::Surface::create({.width = 8, .height = 8});
         const auto buffer = vorn::PixelBuffer::create(8, 8, kCIFormatRGBAh);
         CIContext context({.device = vorn::DeviceKind::Reference});
         return surface && buffer && CIContext::capture(sourceImage, *surface, {0, 0, 8, 8}) &&
                context.renderToIOSurface(sourceImage, *surface, {0, 0, 8, 8}) &&
                context.renderToCVPixelBuffer(sourceImage, *buffer, {0, 0, 8, 8}) &&
                CIImage::imageWithIOSurface(surface) && CIImage::imageWithCVPixelBuffer(buffer);
     }},
    {"attributes",
     [] {
         const auto isWhole = [](const vorn::InputAttributes& input, size_t entries) {
             return !input.key.empty() && input.entries.size() == entries;
         };
         return isWhole(vorn::scalar("inputSize", "size", {}), 7) &&
                isWhole(vorn::constant("inputSize", {}), 6) && isWhole(vorn::mixer(), 7) &&
                isWhole(vorn::position("inputPlace", "place", {1, 2}), 3);
     }},
    {"what a host's class tells",
     [] {
         const vorn::FilterClassInfo& info = HostFilter::classInformation;
         return info.inputs().size() == 5 && info.guide().inputs.size() == 5 &&
                info.guide().inputs[1].label == "amount of this filter" &&
                info.customAttributes().size() == 4 && info.customAttributes()[3].key.size() > 20 &&
                !vorn::guideProblems(info).empty();
     }},
    {"what a class tells",
     [] {
         const auto& info = *VornEffectsCatalog::filterClassForName(kFilter)->filter;
         return !info.guide().sentence.empty() && !info.customAttributes().empty() &&
                vorn::guideProblems(info).empty();
     }},
    {"a host's filter",
     [] {
         try {
             CIFilter::registerFilterName(std::string(kHosts), std::make_shared<HostConstructor>(),
                                          {});
         } catch (const std::bad_alloc&) { // for what the host makes itself
             return false;
         }
         const CIFilterRef filter = CIFilter::filterWithName(kHosts);
         if (!filter) return false;
         filter->setDefaults();
         const vorn::InputValue amount = filter->valueForKey("inputAmountOfThisFilter");
         return amount == vorn::InputValue(vorn::Number(3.0)) &&
                filter->setValueForKey(sourceImage, "inputImage") &&
                filter->outputImage() == sourceImage;
     }},
    {"unknown names",
     [] {
         VornEffectsFilterConstructor constructor;
         return !constructor.filterWithName("a filter that nobody has ever registered") &&
                !CIFilter::filterWithName("a filter that nobody has ever registered") &&
                !VornEffectsLoadKernel(&owner, "a library that nobody has made", "and no function");
     }},
    {"classes and bundles",
     [] {
         vorn::registerClass(&owner);
         return vorn::classFromString("allocation_failures") == &owner &&
                vorn::Bundle::forClass(&owner).pathForResource("VornEffectsManifest", "plist") &&
                vorn::dictionaryWithContentsOfFile(manifestFile);
     }},
    {"kernels",
     [] {
         constexpr std::string_view names[] = {"VE_Solarize_solarize"};
         CIKernel slots[1];
         vorn::KernelError error;
         const vorn::Data bytes = VornEffectsLoadMetalLibraryData(&owner, kLibrary);
         return bytes && VornEffectsLoadKernelArray(&owner, kLibrary, names, slots, 1) &&
                VornEffectsLoadKernel(&owner, kLibrary, names[0]) &&
                VornEffectsLoadColorKernel(&owner, kLibrary, names[0]) &&
                !VornEffectsLoadWarpKernel(&owner, kLibrary, names[0]) &&
                !CIKernel::kernelWithFunctionName("no such function in it", bytes, &error) &&
                error.localizedDescription.size() > 20 && !vorn::kernelLibraryProblem(bytes);
     }},
    {"images",
     [] {
         const CIImage image = sourceImage.imageByCroppingToRect({1, 1, 20, 20});
         const auto rule = vorn::RegionOfInterest::identity();
         const CIKernel kernel = VornEffectsLoadKernel(&owner, kLibrary, "VE_Solarize_solarize");
         const CIImage all[] = {image,
                                image.imageByClampingToExtent(),
                                image.imageByCompositingOverImage(sourceImage),
                                image.imageByApplyingTransform({2, 0, 0, 2, 1, 1}),
                                image.imageWithPeriod(2, 2),
                                CIImage::imageWithColor(CIColor(1, 1, 1)),
                                image.imageInBitsOfSources(),
                                image.imageKnownToEqual(sourceImage),
                                image.imageWithReduction(2, 2),
                                image.imageByInsertingIntermediate(),
                                image.imageBySettingProperties({}),
                                kernel.applyWithExtent({0, 0, 8, 8}, rule, {sourceImage, 1})};
         bool areAll = true;
         for (const CIImage& made : all) areAll = areAll && made && vorn::describeImage(made, {});
         return areAll;
     }},
    {"a rule of the host's",
     [] {
         static const auto rule = vorn::RegionOfInterest::computed(
             [](int, CGRect) -> CGRect { throw std::bad_alloc(); });
         return rule.rectFor(0, {1, 2, 3, 4}) == CGRect{};
     }},
    {"an accumulator",
     [] {
         const auto kept =
             CIImageAccumulator::imageAccumulatorWithExtent({0, 0, 8, 8}, kCIFormatRGBA8);
         if (!kept) return false;
         kept->setImage(sourceImage);
         const CIImage image = kept->image();
         kept->clear();
         return image && kept->image() && kept->image() != image;
     }},
    {"bitmaps and texts",
     [] {
         CVPixelBufferRef buffer;
         const CGContextRef bitmap = VornEffectsCreateBitmapContext(64, 32, &buffer, nullptr);
         const std::string_view text = "a text that is longer than twenty letters";
         if (!bitmap) {
             if (buffer) std::abort(); // nothing is left behind
             return false;
         }
         return bitmap->drawText({2, 2}, text, "Menlo-Bold", 12) > 0 &&
                bitmap->textWidth(text, "Sans", 12) > 0 &&
                vorn::decodePNG(vorn::dataWithContentsOfFile(pictureFile)) &&
                !vorn::systemFontName().empty() && !vorn::stringFromMacRoman(text).empty() &&
                VornEffectsCreateErrorImage("FX_error_image", text, text);
     }},
    {"devices of the host's",
     [] {
         vorn::VulkanContext context(vorn::VulkanDevice{});
         return context.problem() == "a handle of the host's Vulkan device is missing" ||
                context.problem().starts_with("there is no Vulkan loader");
     }},
};

/// Whether a call throws nothing whatever fails, and does what it should as soon as nothing does.
bool survives(const Call& call, Want kind) {
    for (long count = 0;; ++count) {
        hasFailed = false;
        allocationsLeft = count;
        want = kind;
        bool hasThrown = false;
        try {
            call.works();
        } catch (...) {
            hasThrown = true;
        }
        want = Want::None;
        const bool isGood = call.works();
        if (hasThrown || !isGood) {
            std::fprintf(stderr, "%s, allocation %ld: %s\n", call.name, count,
                         hasThrown ? "something was thrown" : "it does not work again");
            return false;
        }
        if (!hasFailed) return true;
    }
}

bool standardSessionNeedsNoMemory() {
    allocationsLeft = 0;
    want = Want::Lasting;
    const bool isThere = Session::current() && Session::current() == Session::standard();
    want = Want::None;
    if (!isThere || hasFailed) std::fprintf(stderr, "the standard session takes memory\n");
    return isThere && !hasFailed;
}

} // namespace

int main() {
    if (!standardSessionNeedsNoMemory()) return 1;
    source.resize(kRow * kHeight);
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = i % 4 == 3 ? 255 : static_cast<unsigned char>(i * 13 % 256);
    sourceImage = CIImage::imageWithBitmap(source.data(), kWidth, kHeight, kRow, kCIFormatRGBA8);
    vorn::PlatformClock::drive(5'000'000'000);
    vorn::Session::standard()->setMessages([](vorn::Severity, std::string_view) {});

    bool isGood = true;
    for (const Call& call : kCalls)
        for (const Want want : {Want::Lasting, Want::Once}) isGood = survives(call, want) && isGood;
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
