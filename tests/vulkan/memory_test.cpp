// What the Vulkan device keeps from frame to frame.
#include "vulkan_support.h"

#include "imaging/Node.h"
#include "imaging/vulkan/Renderer.h"
#include "vorneffects/VulkanInterop.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace vorn::imaging;
using namespace vulkan_test;

/// The validation layers watch, where they are installed, and whatever they say fails the tests.
class NothingToSay : public testing::Environment {
public:
    NothingToSay() { setenv("VORN_VULKAN_VALIDATION", "2", 0); }
    void TearDown() override {
        const std::vector<std::string> messages = vulkan::validationMessages();
        EXPECT_EQ(messages.size(), 0u) << messages.front();
    }
};
const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new NothingToSay);

TEST(VulkanMemory, StandsStillInTheSteadyState) {
    SKIP_WITHOUT_VULKAN();
    Random random(3);
    const Bitmap source = randomBitmap(random, 200, 100, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Vulkan});
    uint64_t before = 0;
    for (int frame = 0; frame < 12; ++frame) {
        if (frame == 4) before = context.pixelAllocations(); // each of three frames has its own
        render(context, blurred(source.image()), {0, 0, 200, 100});
    }
    EXPECT_EQ(context.pixelAllocations(), before);
}

TEST(VulkanMemory, AnAccumulatorStaysOnTheDevice) {
    SKIP_WITHOUT_VULKAN();
    const CGRect extent{3, -2, 40, 30};
    Random random(8);
    const Bitmap source = randomBitmap(random, 40, 30, CIFormat::RGBA8);
    CIContext cpu({.device = DeviceKind::CPU});
    const auto feedback = [&](CIContext& context, bool isGpu) {
        const auto session =
            vorn::Session::make({.device = isGpu ? DeviceKind::Vulkan : DeviceKind::CPU});
        const vorn::Session::Scope scope(session);
        const auto accumulator =
            CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::BGRA8);
        for (int frame = 0; frame < 5; ++frame) {
            const CIImage image = pictureKernel("blend").applyWithExtent(
                extent, {source.image({3, -2}), accumulator->image(), 0.4});
            render(context, image, extent);
            accumulator->setImage(image);
            EXPECT_EQ(accumulator->image().node()->pixels.device != nullptr, isGpu);
        }
        return accumulator->image();
    };
    const CIImage wanted = feedback(cpu, false), actual = feedback(*vulkanContext(), true);
    EXPECT_TRUE(isClose(render(*vulkanContext(), actual, extent), render(cpu, wanted, extent),
                        {2 / 255.0}));
    // Another device fetches it.
    EXPECT_TRUE(isClose(render(cpu, actual, extent), render(*vulkanContext(), actual, extent), {}));
}

TEST(VulkanMemory, AFrameThatAFilterKeepsStaysWhereTheHostRenders) {
    SKIP_WITHOUT_VULKAN();
    Random random(10);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    CIContext cpu({.device = DeviceKind::CPU});
    // The session of frames that are captured, and the devices of contexts in it.
    struct Case {
        DeviceKind session;
        std::vector<DeviceKind> contexts;
        bool isOnGpu;
    };
    for (const auto& [kind, contexts, isOnGpu] :
         {Case{DeviceKind::Auto, {}, false}, Case{DeviceKind::Auto, {DeviceKind::CPU}, false},
          Case{DeviceKind::Auto, {DeviceKind::CPU, DeviceKind::Vulkan}, true},
          Case{DeviceKind::CPU, {DeviceKind::Vulkan}, false},
          Case{DeviceKind::Reference, {DeviceKind::Vulkan}, false},
          Case{DeviceKind::Vulkan, {}, true}}) {
        const auto session = vorn::Session::make({.device = kind});
        const vorn::Session::Scope scope(session);
        std::vector<std::unique_ptr<CIContext>> open;
        for (const DeviceKind device : contexts)
            open.push_back(std::make_unique<CIContext>(session, ContextOptions{.device = device}));
        for (const bool isOpen : {true, false}) {
            if (!isOpen) open.clear();                        // the GPU goes with its last context
            render(*vulkanContext(), source.image(), bounds); // of another session
            const IOSurfaceRef surface = Surface::create({.width = 30, .height = 20});
            ASSERT_TRUE(CIContext::capture(source.image(), *surface, bounds, CGColorSpace::None));
            const std::shared_ptr<DevicePixels> kept = surface->onDevice();
            EXPECT_EQ(kept != nullptr, isOnGpu && (isOpen || kind == DeviceKind::Vulkan));
            const CIImage image = CIImage::imageWithIOSurface(surface);
            EXPECT_TRUE(isClose(render(cpu, image, bounds), source, {}));
            const auto onDevice = std::dynamic_pointer_cast<vulkan::DeviceImage>(kept);
            if (!onDevice) continue;
            std::string problem;
            EXPECT_EQ(onDevice->device(), vulkan::Device::open("", true, problem));
            EXPECT_TRUE(isClose(render(*vulkanContext(), image, bounds), source, {}))
                << "a context on another session's device fetches it";
        }
    }
}

TEST(VulkanMemory, PixelBuffersAreReadAnewEachTime) {
    SKIP_WITHOUT_VULKAN();
    const CVPixelBufferRef buffer = PixelBuffer::create(8, 8, CIFormat::RGBA8);
    const CIImage image = CIImage::imageWithCVPixelBuffer(buffer, CGColorSpace::None);
    for (const uint8_t value : {10, 200}) {
        std::memset(buffer->mutableBytes(), value, buffer->bytesPerRow() * 8);
        EXPECT_EQ(*render(*vulkanContext(), image, {0, 0, 8, 8}).at(3, 3), value);
    }
}

TEST(VulkanMemory, ASurfaceStaysOnTheDeviceUntilSomebodyLooksAtIt) {
    SKIP_WITHOUT_VULKAN();
    Random random(9);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    const IOSurfaceRef surface = Surface::create({.width = 30, .height = 20});
    const CIImage captured = CIImage::imageWithIOSurface(surface);
    CIContext cpu({.device = DeviceKind::CPU});
    const auto expectCaptured = [&](CIContext& context) {
        EXPECT_TRUE(isClose(render(context, captured, bounds), source, {}));
    };
    ASSERT_TRUE(
        vulkanContext()->renderToIOSurface(source.image(), *surface, bounds, CGColorSpace::None));
    expectCaptured(*vulkanContext());
    EXPECT_NE(surface->onDevice(), nullptr);
    expectCaptured(cpu);
    EXPECT_NE(surface->onDevice(), nullptr) << "reading does not take it off the device";
    ASSERT_EQ(surface->lock(), kStatusSuccess);
    uint8_t* const first = static_cast<uint8_t*>(surface->baseAddress());
    EXPECT_EQ(first[2], source.at(0, 19)[0]); // BGRA
    std::memset(first, 77, 4);
    surface->unlock();
    for (CIContext* context : {vulkanContext(), &cpu})
        EXPECT_EQ(*render(*context, captured, bounds).at(0, 19), 77);
    // A part leaves the rest as it was.
    ASSERT_TRUE(
        vulkanContext()->renderToIOSurface(source.image(), *surface, bounds, CGColorSpace::None));
    ASSERT_TRUE(vulkanContext()->renderToIOSurface(CIImage::imageWithColor(CIColor(1, 1, 1)),
                                                   *surface, {0, 0, 30, 1}, CGColorSpace::None));
    const Bitmap both = render(*vulkanContext(), captured, bounds);
    EXPECT_EQ(*both.at(5, 0), 255);
    EXPECT_EQ(both.pixel(5, 1), source.pixel(5, 1));
}

TEST(VulkanTasks, SeveralAreUnderWayAndEachKeepsItsPicture) {
    SKIP_WITHOUT_VULKAN();
    Random random(4);
    constexpr size_t count = 7; // more than there are frames
    const CGRect bounds{0, 0, 64, 48};
    std::vector<Bitmap> sources, targets(count, Bitmap(64, 48));
    for (size_t i = 0; i < count; ++i)
        sources.push_back(randomBitmap(random, 64, 48, CIFormat::RGBA8));
    std::vector<RenderTask> tasks;
    for (size_t i = 0; i < count; ++i)
        tasks.push_back(vulkanContext()->startRender(sources[i].image(), targets[i].bytes(),
                                                     targets[i].bytesPerRow(), bounds,
                                                     CIFormat::RGBA8, CGColorSpace::None));
    tasks[5] = {}; // given up
    for (size_t i = 0; i < count; ++i) {
        if (i == 5) continue;
        EXPECT_TRUE(tasks[i].wait());
        EXPECT_TRUE(isClose(targets[i], sources[i], {})) << i;
    }
}

} // namespace
