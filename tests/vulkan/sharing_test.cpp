// Pictures shared with others.
#include "vulkan_support.h"

#include "imaging/vulkan/Renderer.h"
#include "vorneffects/VulkanInterop.h"

#include <cstdio>
#include <fcntl.h>
#include <string>

namespace {

using namespace vorn::imaging;
using namespace vulkan_test;

TEST(VulkanSharing, MemoryThatIsSharedHoldsThePicture) {
    SKIP_WITHOUT_VULKAN();
    VulkanContext one(""), other("");
    Random random(6);
    bool isAnyShared = false;
    for (const SharedMemoryKind kind : {SharedMemoryKind::DmaBuf, SharedMemoryKind::OpaqueFd})
        for (const CIFormat format : kAllFormats) {
            const Bitmap source = randomBitmap(random, 37, 21, format);
            const auto shared = one.renderShared(source.image({2, 1}), {2, 1, 37, 21}, format, kind,
                                                 CGColorSpace::None);
            EXPECT_EQ(shared.has_value(), one.canShare(kind)) << one.lastError();
            if (!shared) {
                EXPECT_EQ(one.lastError(), "the driver does not share memory in this way");
                continue;
            }
            isAnyShared = true;
            const CIImage image = other.imageOfShared(*shared, CGColorSpace::None);
            ASSERT_TRUE(image) << other.lastError();
            EXPECT_TRUE(
                isClose(render(*vulkanContext(), image, {0, 0, 37, 21}, format), source, {}))
                << formatName(format);
            SharedPicture wrong = *shared;
            wrong.height = 3;
            wrong.bytesPerRow =
                (SIZE_MAX / 3 / 16 + 1) * 16; // three of them come to next to nothing
            EXPECT_FALSE(other.imageOfShared(wrong));
            wrong = *shared;
            wrong.fd = -1;
            EXPECT_FALSE(other.imageOfShared(wrong));
            wrong.memorySize = 1;
            EXPECT_FALSE(other.imageOfShared(wrong));
            close(shared->fd);
        }
    if (!isAnyShared) GTEST_SKIP() << "the driver shares no memory";
}

TEST(VulkanSharing, WrongHandlesAreALine) {
    SKIP_WITHOUT_VULKAN();
    VulkanContext none(VulkanDevice{});
    EXPECT_EQ(none.problem(), "a handle of the host's Vulkan device is missing");
    EXPECT_FALSE(none.image({}));
    EXPECT_EQ(none.lastError(), none.problem());
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    int anything = 0; // nobody gets as far as the instance and the queue
    const VulkanContext wrongQueue(VulkanDevice{reinterpret_cast<VkInstance>(&anything),
                                                device->physical(), device->handle(), 99,
                                                reinterpret_cast<VkQueue>(&anything), plainLoader});
    EXPECT_EQ(wrongQueue.problem(), "the queue of the host's Vulkan device does not compute");
    VulkanContext context("");
    const CIImage color = CIImage::imageWithColor(CIColor(1, 0, 0));
    for (const VulkanPicture& picture :
         {VulkanPicture{}, VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8G8B8A8_UNORM, 8, 8},
          VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8_UNORM, 8, 8},
          VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8G8B8A8_UNORM, UINT32_MAX, 8}}) {
        EXPECT_FALSE(context.image(picture));
        EXPECT_NE(context.lastError(), "");
        EXPECT_FALSE(context.render(color, picture, {}));
        EXPECT_NE(context.lastError(), "");
    }
    EXPECT_FALSE(context.renderShared(color, {0, 0, 8, 8}, static_cast<CIFormat>(5),
                                      SharedMemoryKind::OpaqueFd));
    EXPECT_NE(context.lastError().find("format"), std::string::npos);
}

/// The example is a live host: its device, its images, its semaphore.
TEST(VulkanSharing, TheExampleHostGetsItsPictures) {
    SKIP_WITHOUT_VULKAN();
    // At its end the driver is unloaded, and what it has leaked is nobody's then.
    FILE* const pipe = popen("ASAN_OPTIONS=detect_leaks=0 '" VORN_VULKAN_HOST "' 2>&1", "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    EXPECT_EQ(pclose(pipe), 0) << text;
    // 0.25 doubles, 1 folds back to 0.
    EXPECT_NE(text.find("grey 0.25 became 128\ngrey 1.00 became 0\n"), std::string::npos) << text;
}

} // namespace
