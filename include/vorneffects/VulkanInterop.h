// Pictures shared with a host that has a Vulkan device of its own, and with other processes. Needs
// the Vulkan headers; a host that includes nothing of this does not.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIContext.h"

#include <vulkan/vulkan_core.h>

#include <memory>
#include <optional>
#include <string>

namespace vorn {

/// A device that the host has opened. It needs Vulkan 1.2 with the features timelineSemaphore and
/// shaderStorageImageWriteWithoutFormat switched on; sharing of memory also needs the extensions
/// VK_KHR_external_memory_fd and, for dma-bufs, VK_EXT_external_memory_dma_buf. Renders are
/// submitted to the queue, which computes, by the thread that calls; the host does not use the
/// queue meanwhile.
struct VulkanDevice {
    VkInstance instance = VK_NULL_HANDLE;
    VkPhysicalDevice physicalDevice = VK_NULL_HANDLE;
    VkDevice device = VK_NULL_HANDLE;
    uint32_t queueFamily = 0;
    VkQueue queue = VK_NULL_HANDLE;
    PFN_vkGetInstanceProcAddr getInstanceProcAddr = nullptr; ///< null: that of the system's loader
};

/// A value of a timeline semaphore of the host's.
struct VulkanTimeline {
    VkSemaphore semaphore = VK_NULL_HANDLE;
    uint64_t value = 0;
};

/// A two-dimensional image of the host's with one level, one layer and one sample, premultiplied,
/// the top row first. Formats: R8G8B8A8_UNORM, R16G16B16A16_SFLOAT and R32G32B32A32_SFLOAT, to be
/// read also B8G8R8A8_UNORM.
struct VulkanPicture {
    VkImage image = VK_NULL_HANDLE; ///< made with SAMPLED usage to be read, STORAGE to be written
    VkFormat format = VK_FORMAT_UNDEFINED;
    uint32_t width = 0, height = 0;
    /// Before a render and after it; where it is UNDEFINED before, it is GENERAL after.
    VkImageLayout layout = VK_IMAGE_LAYOUT_GENERAL;
    VulkanTimeline readyAt = {}; ///< when it may be read or written; no semaphore: at once
};

/// How memory is shared.
enum class SharedMemoryKind : uint8_t { DmaBuf, OpaqueFd };

/// A picture in memory that a file descriptor stands for: linear, the top row first, at its
/// beginning.
struct SharedPicture {
    int fd = -1;
    SharedMemoryKind kind = SharedMemoryKind::DmaBuf;
    CIFormat format = CIFormat::RGBA8;
    uint32_t width = 0, height = 0;
    size_t bytesPerRow = 0;
    uint64_t memorySize = 0; ///< of all the memory, which may be more than the picture
};

/// Renders on a device of the host's, in the session that is current when it is made. One thread at
/// a time; to be destroyed before the device, and after every image that was made with it. Filters
/// of the session that keep frames may render on the same device, on their threads: none of them
/// may be at work while this is destroyed.
class VORN_EXPORT VulkanContext {
public:
    explicit VulkanContext(const VulkanDevice& device,
                           CGColorSpace workingSpace = CGColorSpace::None);
    /// The same for a device that the library opens, by name or number as in `ContextOptions`.
    explicit VulkanContext(const std::string& deviceName,
                           CGColorSpace workingSpace = CGColorSpace::None);
    ~VulkanContext();
    VulkanContext(const VulkanContext&) = delete;
    VulkanContext& operator=(const VulkanContext&) = delete;

    /// Why the device cannot be used; empty when it can. Everything below fails with the same then,
    /// and so does all work on a device of the host's that is lost. A device that the library opens
    /// is opened again by the next call, and images on one that was lost are transparent.
    const std::string& problem() const;
    const std::string& lastError() const;

    /// A lazy image of the host's, its lower-left corner at `origin`, in whole pixels. Nothing is
    /// copied; it must stay as it is until the last render of it is done. Empty, with `lastError`
    /// set, when the format or the size is none of those above.
    CIImage image(const VulkanPicture& picture, CGPoint origin = {},
                  CGColorSpace colorSpace = CGColorSpace::SRGB);

    /// Starts to render the pixels from `corner` (the lower-left one) on into an image of the
    /// host's, which is transparent where the image shows nothing. `done` is signalled when the
    /// picture is there and no source is read any longer. False with `lastError` set; nothing is
    /// signalled then.
    bool render(const CIImage& image, const VulkanPicture& target, const VulkanTimeline& done,
                CGPoint corner = {}, CGColorSpace colorSpace = CGColorSpace::SRGB);

    bool canShare(SharedMemoryKind kind) const;
    /// Renders into memory of its own that others may import; the caller closes the descriptor.
    std::optional<SharedPicture> renderShared(const CIImage& image, CGRect bounds, CIFormat format,
                                              SharedMemoryKind kind,
                                              CGColorSpace colorSpace = CGColorSpace::SRGB);
    /// The picture that is in such memory now, fetched at once. The descriptor stays the caller's.
    CIImage imageOfShared(const SharedPicture& picture,
                          CGColorSpace colorSpace = CGColorSpace::SRGB);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
