// What breaks on the way: memory that runs out, devices that are lost.
#include "vulkan_support.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "imaging/vulkan/Renderer.h"
#include "vorneffects/VulkanInterop.h"

#include <fcntl.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace vorn::imaging;
using namespace vulkan_test;

/// Puts another function in the place of a driver's for a while.
template <class Function>
class Instead {
public:
    Instead(Function& place, Function other) : place_(place), usual_(std::exchange(place, other)) {}
    ~Instead() { place_ = usual_; }
    Instead(const Instead&) = delete;
    Instead& operator=(const Instead&) = delete;

private:
    Function& place_;
    const Function usual_;
};

VkResult loseQueue(VkQueue, uint32_t, const VkSubmitInfo*, VkFence) {
    return VK_ERROR_DEVICE_LOST;
}
PFN_vkWaitSemaphores usualWait;
VkResult waitInVain(VkDevice device, const VkSemaphoreWaitInfo* info, uint64_t timeout) {
    usualWait(device, info, timeout); // the software device is there still
    return VK_ERROR_DEVICE_LOST;
}
/// From now on the device that is open says that it is lost.
void loseDevice() {
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    device->functions.QueueSubmit = loseQueue;
    usualWait = std::exchange(device->functions.WaitSemaphores, waitInVain);
}
/// The same, and somebody has noticed.
void loseDeviceOf(CIContext& context) {
    uint8_t pixel[4];
    loseDevice();
    static_cast<void>(context.render(CIImage::imageWithColor(CIColor(1, 0, 0)), pixel, 4,
                                     {0, 0, 1, 1}, CIFormat::RGBA8));
}
int timesOpened = 0;
VkResult failToOpen(VkPhysicalDevice, const VkDeviceCreateInfo*, const VkAllocationCallbacks*,
                    VkDevice*) {
    ++timesOpened;
    return VK_ERROR_INITIALIZATION_FAILED;
}

VkResult haveNoMemory(VkDevice, const VkMemoryAllocateInfo*, const VkAllocationCallbacks*,
                      VkDeviceMemory*) {
    return VK_ERROR_OUT_OF_DEVICE_MEMORY;
}

TEST(VulkanErrors, MemoryThatRunsOutIsALineAndTheNextFrameTriesAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    CIContext context({.device = DeviceKind::Vulkan});
    Random random(1);
    const Bitmap source = randomBitmap(random, 333, 222, CIFormat::RGBA8);
    Bitmap target(333, 222);
    const auto allocate = std::exchange(device->functions.AllocateMemory, haveNoMemory);
    const bool isGood =
        context.render(blurred(source.image()), target.bytes(), target.bytesPerRow(),
                       {0, 0, 333, 222}, CIFormat::RGBA8, CGColorSpace::None);
    device->functions.AllocateMemory = allocate;
    EXPECT_FALSE(isGood);
    EXPECT_EQ(context.lastError(), "allocating pixel memory: out of device memory");
    EXPECT_TRUE(isClose(render(context, blurred(source.image()), {0, 0, 333, 222}),
                        render(referenceContext(), blurred(source.image()), {0, 0, 333, 222}),
                        {2 / 255.0}));
}

TEST(VulkanErrors, ALostDeviceIsALineAndIsOpenedAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    CIContext context({.device = DeviceKind::Vulkan});
    Random random(1);
    const Bitmap source = randomBitmap(random, 20, 20, CIFormat::RGBA8);
    Bitmap target(20, 20);
    {
        const auto device = vulkan::Device::open("", true, problem);
        const auto submit = std::exchange(device->functions.QueueSubmit, loseQueue);
        EXPECT_FALSE(context.render(source.image(), target.bytes(), target.bytesPerRow(),
                                    {0, 0, 20, 20}, CIFormat::RGBA8, CGColorSpace::None));
        device->functions.QueueSubmit = submit;
    }
    EXPECT_EQ(context.lastError(), "starting work on the device: the device was lost");
    EXPECT_TRUE(isClose(render(context, source.image(), {0, 0, 20, 20}), source, {}));
}

TEST(VulkanErrors, ALossIsToldToEveryRenderUnderWay) {
    SKIP_WITHOUT_VULKAN();
    Random random(2);
    const CGRect bounds{0, 0, 20, 20};
    const Bitmap source = randomBitmap(random, 20, 20, CIFormat::RGBA8);
    for (const DeviceKind kind : {DeviceKind::Vulkan, DeviceKind::Auto}) {
        const bool isAuto = kind == DeviceKind::Auto; // the CPU takes over
        CIContext context({.device = kind, .deviceName = "0"});
        std::vector<Bitmap> targets(4, Bitmap(20, 20));
        std::vector<RenderTask> tasks;
        for (size_t i = 0; i < 4; ++i) {
            if (i == 3) loseDevice();
            tasks.push_back(context.startRender(source.image(), targets[i].bytes(),
                                                targets[i].bytesPerRow(), bounds, CIFormat::RGBA8,
                                                CGColorSpace::None));
        }
        for (size_t i = 0; i < 4; ++i) {
            const bool isGood = tasks[i].wait();
            EXPECT_EQ(isGood, isAuto) << i;
            EXPECT_EQ(context.lastError().find("lost") != std::string::npos, !isAuto) << i;
            if (isGood) {
                EXPECT_TRUE(isClose(targets[i], source, {})) << i;
            }
        }
        EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
    }
}

TEST(VulkanErrors, AutoGoesBackToTheGpuAndTriesLessAndLessOften) {
    SKIP_WITHOUT_VULKAN();
    Random random(3);
    const CGRect bounds{0, 0, 4, 4};
    const Bitmap source = randomBitmap(random, 4, 4, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Auto, .deviceName = "0"});
    ASSERT_EQ(context.device(), DeviceKind::Vulkan);
    const auto renderFrames = [&](int most, DeviceKind until) {
        int frames = 0;
        while (frames < most && context.device() != until) {
            EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
            ++frames;
        }
        return frames;
    };
    loseDevice();
    EXPECT_EQ(renderFrames(9, DeviceKind::CPU), 2); // the second one notices
    EXPECT_LT(renderFrames(100, DeviceKind::Vulkan), 20);
    loseDevice();
    renderFrames(9, DeviceKind::CPU);
    {
        const Instead opening(vulkan::instanceFunctions().CreateDevice, failToOpen);
        timesOpened = 0;
        EXPECT_EQ(renderFrames(300, DeviceKind::Vulkan), 300);
        EXPECT_GE(timesOpened, 2);
        EXPECT_LE(timesOpened, 6);
    }
    EXPECT_LT(renderFrames(1000, DeviceKind::Vulkan), 1000);
}

TEST(VulkanErrors, ADeviceThatCouldNotBeOpenedIsTriedAgain) {
    SKIP_WITHOUT_VULKAN();
    const CGRect bounds{0, 0, 8, 8};
    Random random(4);
    const Bitmap source = randomBitmap(random, 8, 8, CIFormat::RGBA8);
    Bitmap target(8, 8);
    CIContext early({.device = DeviceKind::Vulkan, .deviceName = "0"});
    VulkanContext host("0");
    const auto share = [&] {
        const auto shared =
            host.renderShared(source.image(), bounds, CIFormat::RGBA8, SharedMemoryKind::OpaqueFd);
        if (shared) close(shared->fd);
        return shared.has_value();
    };
    const bool shares = share();
    std::unique_ptr<CIContext> late;
    loseDeviceOf(early);
    {
        const Instead opening(vulkan::instanceFunctions().CreateDevice, failToOpen);
        late = std::make_unique<CIContext>(early.options());
        for (CIContext* context : {&early, late.get()}) {
            EXPECT_FALSE(context->render(source.image(), target.bytes(), target.bytesPerRow(),
                                         bounds, CIFormat::RGBA8, CGColorSpace::None));
            EXPECT_NE(context->lastError().find("cannot be opened"), std::string::npos);
        }
        EXPECT_FALSE(share());
        EXPECT_EQ(host.lastError(), host.problem());
    }
    for (CIContext* context : {&early, late.get()}) {
        EXPECT_TRUE(isClose(render(*context, source.image(), bounds), source, {}));
        EXPECT_EQ(context->deviceProblem(), "");
    }
    EXPECT_EQ(share(), shares) << host.lastError();
    EXPECT_EQ(host.problem(), "");
}

TEST(VulkanErrors, WhatWasLostWithItsDeviceIsTransparentAndFeedbackGoesOn) {
    SKIP_WITHOUT_VULKAN();
    const CGRect extent{0, 0, 6, 5};
    for (const DeviceKind kind : {DeviceKind::Vulkan, DeviceKind::Auto}) {
        CIContext context({.device = kind, .deviceName = "0"});
        const auto accumulator =
            CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBA8);
        const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0)).imageByCroppingToRect(extent);
        accumulator->setImage(red);
        ASSERT_NE(accumulator->image().node()->pixels.device, nullptr);
        loseDeviceOf(context);
        EXPECT_TRUE(isClose(render(context, accumulator->image(), extent), Bitmap(6, 5), {}));
        accumulator->setImage(red);
        EXPECT_EQ(*render(context, accumulator->image(), extent).at(2, 2), 255);
    }
}

template <class Function>
struct Failing;
template <class Result, class... Arguments>
struct Failing<Result (*)(Arguments...)> {
    static Result withResult(Arguments...) { return VK_ERROR_OUT_OF_HOST_MEMORY; }
    static Result withException(Arguments...) { throw std::bad_alloc(); }
};

/// Whatever cannot be had for once: the render says so, throws nothing, and the next one is right.
TEST(VulkanErrors, WhatFailedOnceIsTriedAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    Random random(5);
    const CGRect bounds{0, 0, 33, 22};
    VulkanContext sharing("0");
    // Of each context its first render, so that everything is made. The last kernel has a pipeline
    // of its own for each format.
    const auto expectLine = [&]<class Function>(const char* name,
                                                Function vulkan::Functions::*function,
                                                CIFormat format, Function failing) {
        SCOPED_TRACE(name);
        const Bitmap source = randomBitmap(random, 33, 22, CIFormat::RGBA8);
        const CIImage image = pictureKernel("blend").applyWithExtent(
            bounds, {source.image(), source.image().imageByCroppingToRect({3, 3, 9, 9}), 0.3});
        CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
        Bitmap target(33, 22, format);
        {
            const Instead broken(device->functions.*function, failing);
            EXPECT_FALSE(context.render(image, target.bytes(), target.bytesPerRow(), bounds, format,
                                        CGColorSpace::None));
            EXPECT_NE(context.lastError().find("out of memory"), std::string::npos)
                << context.lastError();
            EXPECT_FALSE(context
                             .startRender(image, target.bytes(), target.bytesPerRow(), bounds,
                                          format, CGColorSpace::None)
                             .wait());
            EXPECT_FALSE(sharing.renderShared(image, bounds, format, SharedMemoryKind::OpaqueFd));
        }
        EXPECT_TRUE(isClose(render(context, image, bounds, format),
                            render(referenceContext(), image, bounds, format), {2 / 255.0}));
    };
#define VORN_EXPECT_LINE(function, first, second)                                                  \
    expectLine(#function, &vulkan::Functions::function, first,                                     \
               &Failing<PFN_vk##function>::withResult);                                            \
    expectLine(#function ", thrown", &vulkan::Functions::function, second,                         \
               &Failing<PFN_vk##function>::withException);
    VORN_EXPECT_LINE(CreateShaderModule, CIFormat::RGBA8, CIFormat::BGRA8)
    expectLine("CreateComputePipelines", &vulkan::Functions::CreateComputePipelines,
               CIFormat::ARGB8, &Failing<PFN_vkCreateComputePipelines>::withResult);
    VORN_EXPECT_LINE(CreateCommandPool, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(AllocateCommandBuffers, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(CreateDescriptorPool, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(CreateBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(MapMemory, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(BeginCommandBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(AllocateDescriptorSets, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(EndCommandBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(QueueSubmit, CIFormat::RGBA8, CIFormat::RGBA8)
#undef VORN_EXPECT_LINE
}

TEST(VulkanErrors, PixelsThatCannotBeFetchedForOnceAreFetchedLater) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    const CGRect bounds{0, 0, 5, 5};
    CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
    CIContext cpu({.device = DeviceKind::CPU});
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0));
    const IOSurfaceRef surface = Surface::create({.width = 5, .height = 5});
    const CIImage captured = CIImage::imageWithIOSurface(surface);
    ASSERT_TRUE(context.renderToIOSurface(red, *surface, bounds, CGColorSpace::None));
    {
        const Instead broken(device->functions.CreateBuffer,
                             &Failing<PFN_vkCreateBuffer>::withResult);
        EXPECT_EQ(surface->lock(), kStatusAllocationFailed);
        EXPECT_EQ(surface->baseAddress(), nullptr);
        uint8_t pixel[4];
        EXPECT_FALSE(cpu.render(captured, pixel, 4, {0, 0, 1, 1}, CIFormat::RGBA8));
        EXPECT_FALSE(cpu.renderToIOSurface(red, *surface, {0, 0, 2, 2}));
    }
    EXPECT_EQ(*render(cpu, captured, bounds).at(3, 3), 255);
    ASSERT_EQ(surface->lock(), kStatusSuccess);
    EXPECT_EQ(static_cast<uint8_t*>(surface->baseAddress())[2], 255); // BGRA
    surface->unlock();
}

int waitsInVain = 0;
VkResult waitWithoutMemory(VkDevice device, const VkSemaphoreWaitInfo* info, uint64_t timeout) {
    if (waitsInVain-- > 0) return VK_ERROR_OUT_OF_HOST_MEMORY;
    return usualWait(device, info, timeout);
}
VkResult haveNoTimes(VkDevice, VkQueryPool, uint32_t, uint32_t, size_t, void*, VkDeviceSize,
                     VkQueryResultFlags) {
    return VK_ERROR_OUT_OF_HOST_MEMORY;
}

TEST(VulkanErrors, AWaitThatFailsForWantOfMemoryGoesOnAndTimesAreZeroWhereThereAreNone) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    Random random(6);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
    render(context, source.image(), bounds);
    if (device->hasTimeStamps()) {
        EXPECT_GT(context.renderTimes().kernels, 0);
    }
    usualWait = device->functions.WaitSemaphores;
    waitsInVain = 2;
    const Instead waiting(device->functions.WaitSemaphores, waitWithoutMemory);
    const Instead times(device->functions.GetQueryPoolResults, haveNoTimes);
    EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
    EXPECT_LT(waitsInVain, 0);
    EXPECT_EQ(context.renderTimes().kernels, 0);
}

} // namespace
