#include "imaging/vulkan/Api.h"

#include <dlfcn.h>

namespace vorn::imaging::vulkan {

std::string Functions::load(const char* library) {
    // Never closed: drivers keep threads of their own in it.
    void* const loader = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!loader) return "there is no Vulkan loader on this machine (libvulkan.so.1)";
    GetInstanceProcAddr =
        reinterpret_cast<PFN_vkGetInstanceProcAddr>(dlsym(loader, "vkGetInstanceProcAddr"));
    if (!GetInstanceProcAddr) return "the Vulkan loader lacks vkGetInstanceProcAddr";
#define VORN_TAKE(name)                                                                            \
    name = reinterpret_cast<PFN_vk##name>(GetInstanceProcAddr(nullptr, "vk" #name));
    VORN_GLOBAL_FUNCTIONS(VORN_TAKE)
#undef VORN_TAKE
    if (!CreateInstance || !EnumerateInstanceVersion)
        return "the Vulkan loader is older than Vulkan 1.1";
    return {};
}

void Functions::takeInstance(VkInstance instance) {
#define VORN_TAKE(name)                                                                            \
    name = reinterpret_cast<PFN_vk##name>(GetInstanceProcAddr(instance, "vk" #name));
    VORN_INSTANCE_FUNCTIONS(VORN_TAKE)
    VORN_TAKE(CreateDebugUtilsMessengerEXT)
#undef VORN_TAKE
}

void Functions::takeDevice(VkDevice device) {
#define VORN_TAKE(name)                                                                            \
    name = reinterpret_cast<PFN_vk##name>(GetDeviceProcAddr(device, "vk" #name));
    VORN_DEVICE_FUNCTIONS(VORN_TAKE)
    VORN_TAKE(GetMemoryFdKHR)
    VORN_TAKE(GetMemoryFdPropertiesKHR)
#undef VORN_TAKE
}

std::string nameOf(VkResult result) {
    switch (result) {
    case VK_ERROR_OUT_OF_HOST_MEMORY:
        return "out of memory";
    case VK_ERROR_OUT_OF_DEVICE_MEMORY:
        return "out of device memory";
    case VK_ERROR_DEVICE_LOST:
        return "the device was lost";
    case VK_ERROR_INITIALIZATION_FAILED:
        return "initialisation failed";
    case VK_ERROR_FEATURE_NOT_PRESENT:
        return "a feature is missing";
    case VK_ERROR_EXTENSION_NOT_PRESENT:
        return "an extension is missing";
    case VK_ERROR_INCOMPATIBLE_DRIVER:
        return "there is no driver";
    case VK_ERROR_FORMAT_NOT_SUPPORTED:
        return "the format is not supported";
    case VK_ERROR_INVALID_EXTERNAL_HANDLE:
        return "the file descriptor is not of this kind of memory";
    case VK_ERROR_FRAGMENTED_POOL:
    case VK_ERROR_OUT_OF_POOL_MEMORY:
        return "a pool is exhausted";
    default:
        return "VkResult " + std::to_string(result);
    }
}

} // namespace vorn::imaging::vulkan
