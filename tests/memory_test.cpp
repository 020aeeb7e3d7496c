// Memory and its limits: what happens when there is none, on a small stack, for sizes that no
// memory has, and what a context gives back.
#include "allocation_count.h"
#include "support.h"

#include "imaging/Node.h"
#include "imaging/cpu/Plan.h"
#include "vorneffects/ImageDescription.h"

#include <malloc.h>
#include <pthread.h>
#include <stdexcept>

namespace {

using vorn::imaging::Node;

constexpr CGRect kFrame{0, 0, 96, 64};

CIImage square(const CIImage& image, CGRect extent = kFrame) {
    return pictureKernel("square").applyWithExtent(extent, {image});
}
CIImage box(const CIImage& image, CGRect extent = kFrame) {
    return pictureKernel("box").applyWithExtent(extent, RegionOfInterest::grownBy(1), {image, 1});
}

Bitmap noise(CIFormat format = CIFormat::RGBA8) {
    Random random(7);
    return randomBitmap(random, 96, 64, format);
}

Data somePNG() {
    return dataWithContentsOfFile(VORN_SOURCE_DIR "/resources/FX_error_image.png");
}

// ---- When there is no memory --------------------------------------------------------------------

/// Renders a picture that takes memory in every way that there is, with each of its requests in
/// turn being the first that fails.
void renderWithoutMemory(const ContextOptions& options, uint64_t leastBytes) {
    const Bitmap source = noise();
    const CIImage image = square(box(square(square(source.image()))));
    const Bitmap expected = render(referenceContext(), image, kFrame);
    CIContext first(options); // kernels are brought into the process
    render(first, image, kFrame);
    bool wasFelt = true;
    for (int spared = 0; wasFelt; ++spared) {
        ASSERT_LT(spared, 1000);
        SCOPED_TRACE(spared);
        CIContext context(options);
        Bitmap target(96, 64);
        bool isGood = false;
        std::optional<MemoryShortage> shortage(std::in_place, spared, leastBytes);
        isGood =
            context.render(image, target.bytes(), target.bytesPerRow(), kFrame, CIFormat::RGBA8);
        shortage.reset();
        wasFelt = MemoryShortage::wasFelt();
        ASSERT_TRUE(wasFelt || spared > 0);
        if (wasFelt) {
            EXPECT_FALSE(isGood);
            EXPECT_EQ(context.lastError(), "out of memory");
        }
        EXPECT_TRUE(isClose(render(context, image, kFrame), expected, {1 / 255.0}));
    }
}

TEST(WithoutMemory, ARenderFailsAndTheNextOneIsRight) {
    if (!countsAllocations()) GTEST_SKIP() << "a sanitizer has a heap of its own";
    renderWithoutMemory({.device = DeviceKind::Reference}, 0);
    renderWithoutMemory({.device = DeviceKind::CPU, .threads = 1}, 0);
    // The scheduler of the threads takes small pieces of memory, which are not ours.
    renderWithoutMemory({.device = DeviceKind::CPU, .threads = 2}, 1 << 14);
}

TEST(WithoutMemory, AnAccumulatorKeepsWhatItHas) {
    if (!countsAllocations()) GTEST_SKIP() << "a sanitizer has a heap of its own";
    CIContext context({.device = DeviceKind::CPU, .threads = 1});
    const auto accumulator =
        CIImageAccumulator::imageAccumulatorWithExtent(kFrame, CIFormat::RGBA8);
    const Bitmap source = noise();
    const CIImage first = accumulator->image(); // whose memory is not free as long as this is here
    accumulator->setImage(source.image());
    const CIImage kept = accumulator->image();
    testing::internal::CaptureStdout();
    {
        const MemoryShortage shortage;
        accumulator->setImage(kept);
        accumulator->clear();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "### CIImageAccumulator: out of memory\n### CIImageAccumulator: out of memory\n");
    EXPECT_TRUE(accumulator->image() == kept);
    for (int spared = 0; spared < 8; ++spared) {
        const MemoryShortage shortage(spared);
        if (CIImageAccumulator::imageAccumulatorWithExtent(kFrame, CIFormat::RGBA8)) return;
    }
    ADD_FAILURE() << "no accumulator came about";
}

TEST(WithoutMemory, BuffersAndPNGsAreNotThere) {
    if (!countsAllocations()) GTEST_SKIP() << "a sanitizer has a heap of its own";
    const Data png = somePNG();
    ASSERT_TRUE(decodePNG(png));
    const std::function<bool()> makers[] = {
        [] { return Surface::create({.width = 64, .height = 64}) != nullptr; },
        [] { return PixelBuffer::create(64, 64, CIFormat::RGBA8) != nullptr; },
        [&] { return decodePNG(png).has_value(); },
    };
    for (const auto& make : makers) {
        int spared = 0;
        for (bool isMade = false; !isMade && spared < 10000; ++spared) {
            const MemoryShortage shortage(spared);
            isMade = make();
        }
        EXPECT_GT(spared, 1);
        EXPECT_LT(spared, 10000);
    }
}

TEST(Renders, FailWhenARegionOfInterestThrows) {
    const Bitmap source = noise();
    const auto throwing = [&](const auto& what) {
        return pictureKernel("box").applyWithExtent(
            kFrame, RegionOfInterest::computed([what](int, CGRect rect) -> CGRect {
                        if (rect.width > 0) throw what;
                        return rect;
                    }).exact(),
            {square(source.image()), 1});
    };
    std::vector<CIContext*> contexts = everyContext();
    if (vulkanContext()) contexts.push_back(vulkanContext());
    for (CIContext* context : contexts) {
        Bitmap target(96, 64);
        const auto errorOf = [&](const CIImage& image) {
            EXPECT_FALSE(context->render(image, target.bytes(), target.bytesPerRow(), kFrame,
                                         CIFormat::RGBA8));
            return context->lastError();
        };
        EXPECT_EQ(errorOf(throwing(std::runtime_error("no region today"))), "no region today");
        EXPECT_NE(errorOf(throwing(3)), "");
        EXPECT_TRUE(isClose(render(*context, source.image(), kFrame), source, {}));
    }
}

// ---- On a small stack ---------------------------------------------------------------------------

void onStackOf(size_t bytes, const std::function<void()>& work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    const auto run = [](void* of) -> void* {
        (*static_cast<const std::function<void()>*>(of))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(Graphs, OfAnyDepthNeedASmallStackOnly) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr size_t kStack = 1 << 20;
#else
    constexpr size_t kStack = 256 << 10;
#endif
    const Bitmap source = noise();
    const CIKernel shift = pictureKernel("scaleAndShift");
    const CIFilterRef hue = CIFilter::filterWithName("CIHueAdjust");
    hue->setDefaults();
    const std::function<CIImage(const CIImage&)> ways[] = {
        [&](const CIImage& below) {
            return shift.applyWithExtent(kFrame,
                                         {below, CIVector(-1, -1, -1, 1), CIVector(1, 1, 1, 0)});
        },
        [](const CIImage& below) { return below.imageByCroppingToRect(kFrame.grownBy(1)); },
        [&](const CIImage& below) { return below.imageByCompositingOverImage(source.image()); },
        [&](const CIImage& below) { // its node is held by what is told of it as well
            hue->setValueForKey(below, "inputImage");
            return hue->outputImage();
        },
    };
    const auto pile = [](const auto& next, CIImage image) {
        for (CIImage top = image; top && top.node()->depth < Node::kDeepest;)
            image = top, top = next(top);
        return image;
    };
    for (const auto& next : ways) {
        const Bitmap expected = render(referenceContext(), pile(next, source.image()), kFrame);
        for (CIContext* context : everyContext()) {
            SCOPED_TRACE(nameOf(*context));
            render(*context, next(source.image()), kFrame); // its kernels have been loaded
            onStackOf(kStack, [&] {
                CIImage image = pile(next, source.image());
                EXPECT_GE(image.node()->depth, Node::kDeepest - 2);
                EXPECT_TRUE(isClose(render(*context, image, kFrame), expected, {2 / 255.0}));
                EXPECT_NE(describeImage(image, kFrame), nullptr);
                hue->setValueForKey(CIImage(), "inputImage");
            });
        }
    }
}

// ---- Sizes --------------------------------------------------------------------------------------

constexpr auto kNoFormat = static_cast<CIFormat>(5);
constexpr auto kNoSpace = static_cast<CGColorSpace>(3);

TEST(Sizes, StridesFormatsAndSpacesThatThereAreNotAreRefused) {
    std::vector<uint8_t> bytes(64 * 64 * 16);
    constexpr size_t kFarStride = size_t(1) << 63, kWrapping = (SIZE_MAX / 3 / 16 + 1) * 16;
    const auto bitmap = [&](size_t stride, CIFormat format, CGColorSpace space) {
        return CIImage::imageWithBitmap(bytes.data(), 4, 3, stride, format, space);
    };
    EXPECT_TRUE(bitmap(16, CIFormat::RGBA8, CGColorSpace::SRGB));
    EXPECT_FALSE(bitmap(kFarStride, CIFormat::RGBA8, CGColorSpace::SRGB));
    EXPECT_FALSE(bitmap(kWrapping, CIFormat::RGBA8, CGColorSpace::SRGB));
    EXPECT_FALSE(bitmap(16, kNoFormat, CGColorSpace::SRGB));
    EXPECT_FALSE(bitmap(16, CIFormat::RGBA8, kNoSpace));
    EXPECT_FALSE(CIImage::imageWithIOSurface(Surface::create({.width = 4, .height = 3}), kNoSpace));
    for (const auto& [stride, format] : {std::pair{kFarStride, CIFormat::RGBA8},
                                         {kWrapping, CIFormat::RGBA8},
                                         {size_t(16), kNoFormat}}) {
        EXPECT_FALSE(BitmapContext::create(bytes.data(), 4, 3, stride, format, CGColorSpace::SRGB));
        std::vector<CIContext*> contexts = everyContext();
        if (vulkanContext()) contexts.push_back(vulkanContext());
        for (CIContext* context : contexts) {
            const CIImage color = CIImage::imageWithColor(CIColor(1, 1, 1));
            EXPECT_FALSE(context->render(color, bytes.data(), stride, {0, 0, 4, 3}, format));
            EXPECT_FALSE(
                context->startRender(color, bytes.data(), stride, {0, 0, 4, 3}, format).wait());
            EXPECT_FALSE(
                context->render(color, bytes.data(), 16, {0, 0, 4, 3}, CIFormat::RGBA8, kNoSpace));
            const IOSurfaceRef surface = Surface::create({.width = 4, .height = 3});
            EXPECT_FALSE(context->renderToIOSurface(color, *surface, {0, 0, 4, 3}, kNoSpace));
        }
    }
    EXPECT_EQ(bytes, std::vector<uint8_t>(bytes.size()));
    const CISampler sampler(bitmap(16, CIFormat::RGBA8, CGColorSpace::SRGB),
                            {.colorSpace = kNoSpace});
    EXPECT_FALSE(pictureKernel("mirror").applyWithExtent(kFrame, RegionOfInterest::whole(sampler),
                                                         {sampler}));
    int32_t status = 0;
    EXPECT_FALSE(PixelBuffer::create(4, 3, kNoFormat, &status));
    EXPECT_EQ(status, kStatusInvalidPixelFormat);
    EXPECT_FALSE(CIImageAccumulator::imageAccumulatorWithExtent(kFrame, kNoFormat));
    CIContext other({.device = DeviceKind::CPU, .threads = 1, .workingSpace = kNoSpace});
    EXPECT_FALSE(other.render(CIImage::imageWithColor(CIColor(1, 1, 1)), bytes.data(), 16,
                              {0, 0, 4, 3}, CIFormat::RGBA8));
}

TEST(Sizes, AHostLimitsThePixelsOfPictures) {
    const uint64_t before = vorn::pixelLimit();
    const auto isMade = [] {
        int32_t status = 0;
        const auto buffer = PixelBuffer::create(10, 10, CIFormat::RGBA8, &status);
        EXPECT_EQ(status, buffer ? kStatusSuccess : kStatusInvalidSize);
        const bool surface = Surface::create({.width = 10, .height = 10}) != nullptr;
        const bool accumulator = CIImageAccumulator::imageAccumulatorWithExtent(
                                     {0, 0, 10, 10}, CIFormat::RGBA8) != nullptr;
        EXPECT_EQ(surface, accumulator);
        EXPECT_EQ(surface, buffer != nullptr);
        return surface;
    };
    vorn::setPixelLimit(100);
    EXPECT_TRUE(isMade());
    vorn::setPixelLimit(99);
    EXPECT_FALSE(isMade());
    EXPECT_FALSE(decodePNG(somePNG()));
    vorn::setPixelLimit(before);
    EXPECT_TRUE(decodePNG(somePNG()));
}

TEST(Sizes, APeriodMayBeBeyondAllPictures) {
    const Bitmap source = noise();
    constexpr CGRect far{1000, -1000, 96, 64};
    const CIImage image =
        square(source.image({1000, -1000}), far).imageWithPeriod(INT32_MAX, INT32_MAX);
    const Bitmap expected = render(referenceContext(), image, far);
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, far), expected, {1 / 255.0}));
}

TEST(Clamping, ComputesNoMoreThanIsRead) {
    const std::vector<std::string> levels = supportedInstructionSets();
    const CGRect large{-20000, 100, 40000, 30000};
    const CIImage clamped =
        square(CIImage::imageWithColor(CIColor(0.5, 0, 0)), large).imageByClampingToExtent();
    for (const CGPoint at : {CGPoint{0, 1000}, {-20100, 0}, {90000, 15000}, {-90000, 90000}}) {
        vorn::imaging::cpu::Plan plan;
        const CGRect rect{at.x, at.y, 640, 360};
        ASSERT_TRUE(plan.build(clamped, vorn::imaging::cpu::IntRect::around(rect),
                               {&levels, CGColorSpace::None, CGColorSpace::None}));
        for (const auto& step : plan.steps()) EXPECT_LE(step.needed.area(), 642 * 362);
    }
    // And that is enough, from extents of all kinds and into rectangles anywhere.
    Random random(3);
    for (int i = 0; i < 40; ++i) {
        const CGRect extent{random.real(-9, 9), random.real(-9, 9), random.real(0.2, 9),
                            random.real(0.2, 9)};
        const Bitmap source = randomBitmap(random, 40, 40, CIFormat::RGBA8);
        const CIImage image = square(source.image({-20, -20}), extent).imageByClampingToExtent();
        const CGRect rect{double(random.whole(-30, 20)), double(random.whole(-30, 20)),
                          double(random.whole(1, 20)), double(random.whole(1, 20))};
        const Bitmap expected = render(referenceContext(), image, rect);
        for (const auto& context : cpuContexts())
            EXPECT_TRUE(isClose(render(*context, image, rect), expected, {1 / 255.0}));
    }
}

// ---- Giving memory back -------------------------------------------------------------------------

TEST(Contexts, GiveTheirMemoryBack) {
    Random random(1);
    const Bitmap source = randomBitmap(random, 512, 512, CIFormat::RGBA8);
    const CGRect frame{0, 0, 512, 512};
    const CIImage image = square(box(square(square(source.image(), frame), frame), frame), frame);
    const Bitmap expected = render(*cpuContexts()[0], image, frame);
    std::vector<CIContext*> contexts;
    for (const auto& context : cpuContexts()) contexts.push_back(context.get());
    if (vulkanContext()) contexts.push_back(vulkanContext());
    for (CIContext* context : contexts) {
        SCOPED_TRACE(nameOf(*context));
        render(*context, image, frame);
        const auto heap = [] { return mallinfo2().hblkhd + mallinfo2().uordblks; };
        const size_t before = heap();
        const uint64_t made = context->pixelAllocations();
        context->trim();
        const size_t least = countsAllocations() && context != vulkanContext() ? 512 * 512 * 8 : 0;
        EXPECT_LE(heap() + least, before);
        EXPECT_TRUE(isClose(render(*context, image, frame), expected, {1 / 255.0}));
        EXPECT_GT(context->pixelAllocations(), made);
        // What is under way is brought to its end.
        Bitmap target(512, 512);
        RenderTask task = context->startRender(image, target.bytes(), target.bytesPerRow(), frame,
                                               CIFormat::RGBA8, CGColorSpace::None);
        context->trim();
        EXPECT_TRUE(task.wait());
        EXPECT_TRUE(isClose(target, expected, {1 / 255.0}));
    }
}

} // namespace
