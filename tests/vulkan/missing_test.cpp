// What is not there: a loader, a driver, a feature, a size.
#include "vulkan_support.h"

#include "imaging/vulkan/Renderer.h"
#include "vorneffects/VulkanInterop.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace vorn::imaging;
using namespace vulkan_test;

TEST(VulkanErrors, NoLoaderIsALine) {
    vulkan::Functions functions;
    EXPECT_NE(functions.load("libvulkan-is-not-here.so.1"), "");
    EXPECT_EQ(functions.CreateInstance, nullptr);
}

TEST(VulkanErrors, NoDriverMeansTheCpuOrExitCodeFive) {
    const std::string none = "VK_ICD_FILENAMES=/nowhere VK_DRIVER_FILES=/nowhere";
    const std::string folder = temporaryFolder(), out = "'" + folder + "/out.ppm' --quiet";
    const auto [code, text] = runVorn(none, "render test:8x8 " + out + " --device vulkan");
    EXPECT_EQ(code, 5);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(runVorn(none, "render test:8x8 " + out + " --device auto"),
              (std::pair<int, std::string>{0, ""}));
    std::filesystem::remove_all(folder);
}

VKAPI_ATTR void VKAPI_CALL haveNoFeatures(VkPhysicalDevice, VkPhysicalDeviceFeatures2* features) {
    features->features = {}; // those of version 1.2, which are linked to it, stay zero as well
}
VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL poorLoader(VkInstance instance, const char* name) {
    if (std::string_view(name) == "vkGetPhysicalDeviceFeatures2")
        return reinterpret_cast<PFN_vkVoidFunction>(haveNoFeatures);
    return plainLoader(instance, name);
}

TEST(VulkanErrors, ADriverWithoutANeededFeatureIsALine) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    int anything = 0; // nobody gets as far as the instance and the queue
    const VulkanContext context(VulkanDevice{reinterpret_cast<VkInstance>(&anything),
                                             device->physical(), device->handle(), 0,
                                             reinterpret_cast<VkQueue>(&anything), poorLoader});
    EXPECT_NE(context.problem().find("the driver has no timeline semaphores"), std::string::npos)
        << context.problem();
}

TEST(VulkanErrors, AutoTakesNoSoftwareDevice) {
    const CIContext context;
    for (const GPUDevice& device : gpuDevices()) {
        if (device.isSoftware) {
            EXPECT_NE(context.deviceName(), device.name);
        }
    }
}

TEST(VulkanErrors, AFrameBeyondTheLimitsIsALine) {
    SKIP_WITHOUT_VULKAN();
    const int width = 40000; // more than any device is asked for
    Bitmap target(width, 1);
    const CIImage image = CIImage::imageWithColor(CIColor(1, 0, 0));
    EXPECT_FALSE(vulkanContext()->render(image, target.bytes(), target.bytesPerRow(),
                                         {0, 0, double(width), 1}, CIFormat::RGBA8));
    EXPECT_NE(vulkanContext()->lastError().find("larger than"), std::string::npos)
        << vulkanContext()->lastError();
    render(*vulkanContext(), image, {0, 0, 8, 8}); // and the next one is rendered
}

} // namespace
