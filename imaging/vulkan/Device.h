// The Vulkan devices of this machine, and one of them opened: its queue, its memory, and images
// that are kept for the next frame.
#pragma once

#include "imaging/vulkan/Api.h"
#include "vorneffects/CIContext.h"
#include "vorneffects/Platform.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vorn::imaging::vulkan {

class Device;
class Pipelines;

/// Memory that the host sees.
class Buffer {
public:
    enum class Use { Upload, Download, Arguments };
    Buffer(Device& device, VkDeviceSize size, Use use);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    VkBuffer handle() const { return buffer_; }
    VkDeviceSize size() const { return size_; }
    uint8_t* bytes() const { return bytes_; }
    /// Makes what the host wrote visible to the device, and the other way round.
    void flush();
    void invalidate();

private:
    Device& device_;
    VkBuffer buffer_ = VK_NULL_HANDLE;
    VkDeviceMemory memory_ = VK_NULL_HANDLE;
    VkDeviceSize size_;
    uint8_t* bytes_ = nullptr;
    bool coherent_ = true;
};

/// An image in device memory. All 8-bit pictures are VK_FORMAT_R8G8B8A8_UNORM, whatever the order
/// of their bytes; views put the channels in their places when they are read, shaders when they are
/// written. Always in VK_IMAGE_LAYOUT_GENERAL while it is worked with.
class Image {
public:
    Image(Device& device, VkFormat format, uint32_t width, uint32_t height);
    /// An image of somebody else's, who keeps it. `views` may be made of it.
    Image(Device& device, VkImage image, VkFormat format, uint32_t width, uint32_t height);
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    VkImage handle() const { return image_; }
    VkFormat format() const { return format_; }
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    VkImageView readView(CIFormat order);
    VkImageView writeView() { return view(0); }
    bool isOwned() const { return owned_; }

    bool isNew = true;                    ///< no content and no layout yet
    std::atomic<uint64_t> lastTicket = 0; ///< of the last submission that uses it

private:
    VkImageView view(int order);

    Device& device_;
    VkImage image_ = VK_NULL_HANDLE;
    VkDeviceMemory memory_ = VK_NULL_HANDLE;
    std::mutex mutex_; ///< several contexts may show one image
    VkImageView views_[3] = {};
    VkFormat format_;
    uint32_t width_, height_;
    bool owned_ = true;
};

/// The device's images, kept when nobody uses them any longer. They may be used again at once: all
/// work is done on one queue, in order, and every command buffer begins with a barrier.
class ImagePool : public std::enable_shared_from_this<ImagePool> {
public:
    explicit ImagePool(Device& device) : device_(device) {}

    /// An image of at least this size. It comes back when the pointer goes, from any thread.
    /// `created` is raised when memory had to be allocated. Throws a Failure.
    std::shared_ptr<Image> acquire(VkFormat format, uint32_t width, uint32_t height,
                                   uint64_t& created);
    /// Wraps an image of somebody else's; what is made of it is freed when the device is done with
    /// it.
    std::shared_ptr<Image> wrap(VkImage image, VkFormat format, uint32_t width, uint32_t height);
    /// Frees every image that is not in use.
    void clear() noexcept;
    /// Frees every image that has come back, whatever the device is doing: it is about to go.
    void clearAll() noexcept;

private:
    void makeRoom();
    void giveBack(Image* image) noexcept;
    void freeIdle(uint64_t keepFrom) noexcept;
    void freeWrapped() noexcept;

    Device& device_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Image>> idle_, wrapped_; ///< with room for all that are out
    size_t out_ = 0;                                     ///< images that somebody uses
};

/// A value of a timeline semaphore.
struct SemaphoreValue {
    VkSemaphore semaphore = VK_NULL_HANDLE;
    uint64_t value = 0;
};

/// An open device. Safe from any thread, where nothing else is said.
class Device {
public:
    /// Opens the device of that name or number; an empty one takes the best. The same device is
    /// opened once in a session and shared there. Null with `problem` set when there is none to be
    /// had; `mayCome` says whether that may be over soon, as when memory ran out. Throws nothing.
    static std::shared_ptr<Device> open(const std::string& name, bool softwareToo,
                                        std::string& problem, bool* mayCome = nullptr) noexcept;
    /// Takes over a device that a host has opened. It must outlive the result.
    static std::shared_ptr<Device> adopt(VkInstance instance, VkPhysicalDevice physical,
                                         VkDevice device, uint32_t queueFamily, VkQueue queue,
                                         PFN_vkGetInstanceProcAddr loader,
                                         std::string& problem) noexcept;
    ~Device();

    VkDevice handle() const { return device_; }
    VkPhysicalDevice physical() const { return physical_; }
    uint32_t queueFamily() const { return queueFamily_; }
    const VkPhysicalDeviceProperties& properties() const { return properties_; }
    /// How long it is between two time stamps; 0 where the device has none.
    double secondsBetween(uint64_t first, uint64_t second) const;
    bool hasTimeStamps() const { return nanosecondsPerTick_ > 0; }
    uint32_t largestSide() const;
    bool sharesFds() const { return sharesFds_; }
    bool sharesDmaBufs() const { return sharesDmaBufs_; }

    /// A type of memory out of `allowed` with the wanted properties, as many of the preferred ones
    /// as there are; throws a Failure when there is none.
    uint32_t memoryType(uint32_t allowed, VkMemoryPropertyFlags wanted,
                        VkMemoryPropertyFlags preferred, VkMemoryPropertyFlags& has) const;
    VkDeviceMemory allocate(const VkMemoryRequirements& needs, VkMemoryPropertyFlags wanted,
                            VkMemoryPropertyFlags preferred, VkMemoryPropertyFlags& has,
                            const void* next = nullptr);

    /// Submits a command buffer; gives the number to wait for.
    uint64_t submit(VkCommandBuffer commands, const std::vector<SemaphoreValue>& waitFor = {},
                    const SemaphoreValue& signal = {});
    /// Records commands, submits them and waits until they are done.
    void runOnce(const std::function<void(VkCommandBuffer)>& record);
    /// Returns when that submission is done, and throws a Failure when its results cannot be had.
    void wait(uint64_t ticket);
    uint64_t lastTicket() const { return lastTicket_; }
    /// The last submission that is known to be done; the largest number once the device is lost
    /// and does not tell.
    uint64_t finishedTicket() noexcept;
    bool isLost() const { return lost_; }
    /// Throws a Failure unless a call went well, and notes it when the device is lost.
    void check(VkResult result, const char* doing);

    ImagePool& images() { return *images_; }
    Pipelines& pipelines() { return *pipelines_; }

    /// The driver's functions; tests put failing ones in their place.
    Functions functions;

private:
    Device() = default;
    void finishOpening();

    VkPhysicalDevice physical_ = VK_NULL_HANDLE;
    VkDevice device_ = VK_NULL_HANDLE;
    VkQueue queue_ = VK_NULL_HANDLE;
    uint32_t queueFamily_ = 0;
    bool owned_ = true, sharesFds_ = false, sharesDmaBufs_ = false;
    VkPhysicalDeviceProperties properties_{};
    VkPhysicalDeviceMemoryProperties memory_{};
    double nanosecondsPerTick_ = 0;
    uint64_t ticks_ = 0; ///< the bits of a time stamp that count
    VkSemaphore timeline_ = VK_NULL_HANDLE;
    std::mutex queueMutex_;
    std::atomic<uint64_t> lastTicket_ = 0;
    std::atomic<bool> lost_ = false;
    std::shared_ptr<ImagePool> images_;
    std::unique_ptr<Pipelines> pipelines_;
};

/// The functions that devices are found and opened with; tests put failing ones in their place.
Functions& instanceFunctions();

/// What the Khronos validation layers have said since the start, when they are on.
std::vector<std::string> validationMessages();

} // namespace vorn::imaging::vulkan
