// The Vulkan functions that the device uses, loaded at run time: a machine without a Vulkan loader
// runs the library all the same.
#pragma once

#ifndef VK_NO_PROTOTYPES
#define VK_NO_PROTOTYPES
#endif
#include <vulkan/vulkan_core.h>

#include <stdexcept>
#include <string>

namespace vorn::imaging::vulkan {

// clang-format off
#define VORN_GLOBAL_FUNCTIONS(f) \
    f(EnumerateInstanceVersion) f(EnumerateInstanceLayerProperties) f(CreateInstance)

#define VORN_INSTANCE_FUNCTIONS(f) \
    f(DestroyInstance) f(EnumeratePhysicalDevices) f(GetPhysicalDeviceProperties2) f(GetPhysicalDeviceFeatures2) \
    f(GetPhysicalDeviceMemoryProperties) f(GetPhysicalDeviceQueueFamilyProperties) \
    f(GetPhysicalDeviceExternalBufferProperties) f(EnumerateDeviceExtensionProperties) \
    f(CreateDevice) f(GetDeviceProcAddr)

#define VORN_DEVICE_FUNCTIONS(f) \
    f(DestroyDevice) f(GetDeviceQueue) f(QueueSubmit) f(AllocateMemory) f(FreeMemory) \
    f(MapMemory) f(FlushMappedMemoryRanges) f(InvalidateMappedMemoryRanges) f(CreateBuffer) \
    f(DestroyBuffer) f(GetBufferMemoryRequirements) f(BindBufferMemory) f(CreateImage) \
    f(DestroyImage) f(GetImageMemoryRequirements) f(BindImageMemory) f(CreateImageView) \
    f(DestroyImageView) f(CreateShaderModule) f(DestroyShaderModule) f(CreatePipelineCache) \
    f(DestroyPipelineCache) f(GetPipelineCacheData) f(CreateComputePipelines) f(DestroyPipeline) \
    f(CreatePipelineLayout) f(DestroyPipelineLayout) f(CreateDescriptorSetLayout) \
    f(DestroyDescriptorSetLayout) f(CreateDescriptorPool) f(DestroyDescriptorPool) \
    f(ResetDescriptorPool) f(AllocateDescriptorSets) f(UpdateDescriptorSets) f(CreateCommandPool) \
    f(DestroyCommandPool) f(ResetCommandPool) f(AllocateCommandBuffers) f(BeginCommandBuffer) \
    f(EndCommandBuffer) f(CmdPipelineBarrier) f(CmdBindPipeline) f(CmdBindDescriptorSets) \
    f(CmdPushConstants) f(CmdDispatch) f(CmdCopyBufferToImage) f(CmdCopyImageToBuffer) \
    f(CmdWriteTimestamp) f(CmdResetQueryPool) f(CreateQueryPool) f(DestroyQueryPool) \
    f(GetQueryPoolResults) f(CreateSemaphore) f(DestroySemaphore) f(WaitSemaphores) \
    f(GetSemaphoreCounterValue)
// clang-format on

/// Null where the loader or the driver does not have a function.
struct Functions {
    PFN_vkGetInstanceProcAddr GetInstanceProcAddr = nullptr;
#define VORN_MEMBER(name) PFN_vk##name name = nullptr;
    VORN_GLOBAL_FUNCTIONS(VORN_MEMBER)
    VORN_INSTANCE_FUNCTIONS(VORN_MEMBER)
    VORN_DEVICE_FUNCTIONS(VORN_MEMBER)
#undef VORN_MEMBER
    PFN_vkCreateDebugUtilsMessengerEXT CreateDebugUtilsMessengerEXT = nullptr;
    PFN_vkGetMemoryFdKHR GetMemoryFdKHR = nullptr;
    PFN_vkGetMemoryFdPropertiesKHR GetMemoryFdPropertiesKHR = nullptr;

    /// Opens a loader library and takes its global functions; what is wrong, or nothing.
    std::string load(const char* library = "libvulkan.so.1");
    void takeInstance(VkInstance instance);
    void takeDevice(VkDevice device);
};

/// "out of device memory", … in words for people.
std::string nameOf(VkResult result);

/// Something that the driver refused or could not do; `what()` is one line.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& line, VkResult why = VK_ERROR_UNKNOWN)
        : std::runtime_error(line), result(why) {}
    VkResult result;
};

/// A structure of the API with its type set and all else zero.
template <class T>
T typed(VkStructureType type) {
    T t{};
    t.sType = type;
    return t;
}

} // namespace vorn::imaging::vulkan
