// A host whose own code has global names that the library's interface has in its namespace, and
// exports them, so that a library that called any of these by such a name would call the host's.
#include "vorneffects/ImageDescription.h"
#include "vorneffects/VornEffects.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

/// The host's own must not be called by the library.
[[noreturn]] void calledByMistake(const char* name) {
    std::fprintf(stderr, "the library called the host's own %s\n", name);
    std::_Exit(3);
}

// Classes of other sizes, with other virtual functions, defined in this program.
#define CLASS(Name)                                                                                \
    class Name {                                                                                   \
    public:                                                                                        \
        Name();                                                                                    \
        Name(double, double);                                                                      \
        Name(const Name&);                                                                         \
        virtual ~Name();                                                                           \
        virtual int clear();                                                                       \
        virtual int flush();                                                                       \
        bool isSet() const;                                                                        \
        bool isMissing() const;                                                                    \
        float floatValue() const;                                                                  \
        int intValue() const;                                                                      \
        unsigned unsignedIntValue() const;                                                         \
        const unsigned char* bytes() const;                                                        \
        unsigned char* mutableBytes();                                                             \
        bool wait();                                                                               \
        static Name identity();                                                                    \
        static unsigned long ticks();                                                              \
        double layout[37];                                                                         \
    };                                                                                             \
    Name::Name() {                                                                                 \
        calledByMistake(#Name);                                                                    \
    }                                                                                              \
    Name::Name(double, double) {                                                                   \
        calledByMistake(#Name);                                                                    \
    }                                                                                              \
    Name::Name(const Name&) {                                                                      \
        calledByMistake(#Name);                                                                    \
    }                                                                                              \
    Name::~Name() {                                                                                \
        calledByMistake("~" #Name);                                                                \
    }                                                                                              \
    int Name::clear() {                                                                            \
        calledByMistake(#Name "::clear");                                                          \
    }                                                                                              \
    int Name::flush() {                                                                            \
        calledByMistake(#Name "::flush");                                                          \
    }                                                                                              \
    bool Name::isSet() const {                                                                     \
        calledByMistake(#Name "::isSet");                                                          \
    }                                                                                              \
    bool Name::isMissing() const {                                                                 \
        calledByMistake(#Name "::isMissing");                                                      \
    }                                                                                              \
    float Name::floatValue() const {                                                               \
        calledByMistake(#Name "::floatValue");                                                     \
    }                                                                                              \
    int Name::intValue() const {                                                                   \
        calledByMistake(#Name "::intValue");                                                       \
    }                                                                                              \
    unsigned Name::unsignedIntValue() const {                                                      \
        calledByMistake(#Name "::unsignedIntValue");                                               \
    }                                                                                              \
    const unsigned char* Name::bytes() const {                                                     \
        calledByMistake(#Name "::bytes");                                                          \
    }                                                                                              \
    unsigned char* Name::mutableBytes() {                                                          \
        calledByMistake(#Name "::mutableBytes");                                                   \
    }                                                                                              \
    bool Name::wait() {                                                                            \
        calledByMistake(#Name "::wait");                                                           \
    }                                                                                              \
    Name Name::identity() {                                                                        \
        calledByMistake(#Name "::identity");                                                       \
    }                                                                                              \
    unsigned long Name::ticks() {                                                                  \
        calledByMistake(#Name "::ticks");                                                          \
    }

CLASS(ArgumentDescription)
CLASS(AttributeValue)
CLASS(Attributes)
CLASS(BitmapContext)
CLASS(BuiltinInput)
CLASS(Bundle)
CLASS(CGBlendMode)
CLASS(CGImage)
CLASS(ClassAttributes)
CLASS(ClassInfo)
CLASS(ContextOptions)
CLASS(Data)
CLASS(DeviceKind)
CLASS(DevicePixels)
CLASS(FilterClassInfo)
CLASS(FilterGuide)
CLASS(GPUDevice)
CLASS(ImageDescription)
CLASS(ImageProperties)
CLASS(InputAttributes)
CLASS(InputFeed)
CLASS(InputGuide)
CLASS(InputInfo)
CLASS(InputKind)
CLASS(InputValue)
CLASS(KernelArgument)
CLASS(KernelArguments)
CLASS(KernelError)
CLASS(KernelType)
CLASS(ModeGuide)
CLASS(Number)
CLASS(PixelBuffer)
CLASS(PixelMemory)
CLASS(PlatformClock)
CLASS(PropertyList)
CLASS(PropertyListArray)
CLASS(PropertyListDictionary)
CLASS(PropertyValue)
CLASS(ReducedBits)
CLASS(RegionOfInterest)
CLASS(RegisteredFilter)
CLASS(RenderTask)
CLASS(RenderTimes)
CLASS(SamplerDescription)
CLASS(SamplerFilter)
CLASS(SamplerOptions)
CLASS(ScalarRange)
CLASS(Surface)
CLASS(SurfaceProperties)

// What the library has inside and in its filters.
CLASS(AmountAndSlope)
CLASS(CharacterAtlas)
CLASS(ErrorImage)
CLASS(FrameCapture)
CLASS(KernelFunction)
CLASS(KernelModule)
CLASS(Motion)
CLASS(Node)
CLASS(Plan)
CLASS(Renderer)
CLASS(SoftShape)
CLASS(TextLine)

// Functions, with the very parameters where these are of types that both know.
#define FUNCTION(name, ...)                                                                        \
    void name(__VA_ARGS__) {                                                                       \
        calledByMistake(#name);                                                                    \
    }
FUNCTION(area, const CIImage&)
FUNCTION(bytesPerPixel, CIFormat)
FUNCTION(classFromString, std::string_view)
FUNCTION(constant, std::string, ScalarRange)
FUNCTION(dataWithContentsOfFile, const std::string&)
FUNCTION(decodePNG, const Data&)
FUNCTION(describeImage, const CIImage&, CGRect)
FUNCTION(dictionaryWithContentsOfFile, const std::string&)
FUNCTION(formatName, CIFormat)
FUNCTION(gpuDevices, std::string*)
FUNCTION(inputKindName, InputKind)
FUNCTION(kernelLibraryProblem, const Data&)
FUNCTION(mixer, double)
FUNCTION(position, std::string, std::string, CIVector)
FUNCTION(registerClass, Class)
FUNCTION(report, int, const char*)
FUNCTION(scalar, std::string, std::string, ScalarRange)
FUNCTION(stringFromMacRoman, std::string_view)
FUNCTION(supportedInstructionSets)
FUNCTION(systemFontName)

extern const int kStatusSuccess = 7, kStatusLocked = 8, kVornFilterCategory = 9;

// Filters that keep frames, draw text, read others and refuse large frames.
int main() {
    constexpr int kWidth = 64, kHeight = 48, kRow = kWidth * 4;
    std::vector<unsigned char> source(kRow * kHeight), picture(source.size());
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = i % 4 == 3 ? 255 : static_cast<unsigned char>(i * 7 % 256);
    const CIImage image =
        CIImage::imageWithBitmap(source.data(), kWidth, kHeight, kRow, kCIFormatRGBA8);
    const CIImage large =
        CIImage::imageWithColor(CIColor(1, 0, 0)).imageByCroppingToRect({0, 0, 4900, 4900});

    VornEffectsRegistrar::registerAllFilters();
    CIContext context({.device = vorn::DeviceKind::CPU});
    for (const char* name : {"VEFreeze", "VEDecay", "VEEdgeDetect2", "VE_ASCII_Art", "VETiles",
                             "VE_CloudGenerator", "VEXFDissolve", "VELumaKey"}) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        if (!filter) return std::fprintf(stderr, "there is no filter %s\n", name), 1;
        for (const CIImage& input : {image, image, large}) {
            filter->setDefaults();
            filter->setValueForKey(input, "inputImage");
            filter->setValueForKey(image, "inputTargetImage");
            const CIImage output = filter->outputImage();
            if (!vorn::describeImage(output, {0, 0, kWidth, kHeight}) ||
                !context.render(output, picture.data(), kRow, {0, 0, kWidth, kHeight},
                                kCIFormatRGBA8))
                return std::fprintf(stderr, "%s: %s\n", name, context.lastError().c_str()), 1;
            // The frozen frame is the one before.
            if (name == std::string_view("VEFreeze") && picture != source)
                return std::fprintf(stderr, "%s gave another picture\n", name), 1;
        }
    }
    const CIContext second({.device = vorn::DeviceKind::Reference});
    std::puts(vorn::systemFontName().c_str());
    return vorn::gpuDevices().size() > 99;
}
