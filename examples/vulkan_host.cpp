// A live host with a Vulkan device of its own: it draws into one of its images, has an effect
// render from that into another one, and reads that back; a timeline semaphore keeps the order.
// Links the system's Vulkan loader.
#include <vorneffects/VornEffects.h>
#include <vorneffects/VulkanInterop.h>

#include <vulkan/vulkan.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t width = 64, height = 32;
constexpr VkImageSubresourceRange wholeImage{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};

void check(VkResult result, const char* what) {
    if (result >= 0) return;
    std::fprintf(stderr, "%s: VkResult %d\n", what, result);
    std::exit(1);
}

/// The host: a device with the features that effects need, a queue, and one semaphore for all of
/// it.
struct Host {
    VkInstance instance{};
    VkPhysicalDevice physical{};
    VkDevice device{};
    VkQueue queue{};
    VkCommandPool pool{};
    VkSemaphore timeline{};
    uint64_t now = 0; ///< the last value that somebody signals

    Host() {
        VkApplicationInfo application{};
        application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
        application.apiVersion = VK_API_VERSION_1_2;
        VkInstanceCreateInfo instanceInfo{};
        instanceInfo.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
        instanceInfo.pApplicationInfo = &application;
        check(vkCreateInstance(&instanceInfo, nullptr, &instance), "vkCreateInstance");
        uint32_t count = 1;
        vkEnumeratePhysicalDevices(instance, &count, &physical);
        if (count == 0) std::puts("there is no Vulkan device"), std::exit(77);

        VkPhysicalDeviceVulkan12Features newer{};
        newer.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
        newer.timelineSemaphore = VK_TRUE;
        VkPhysicalDeviceFeatures2 features{};
        features.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2;
        features.pNext = &newer;
        features.features.shaderStorageImageWriteWithoutFormat = VK_TRUE;
        const float priority = 1;
        VkDeviceQueueCreateInfo queueInfo{};
        queueInfo.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
        queueInfo.queueCount = 1; // of family 0, which computes on every device that we know
        queueInfo.pQueuePriorities = &priority;
        VkDeviceCreateInfo deviceInfo{};
        deviceInfo.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
        deviceInfo.pNext = &features;
        deviceInfo.queueCreateInfoCount = 1;
        deviceInfo.pQueueCreateInfos = &queueInfo;
        check(vkCreateDevice(physical, &deviceInfo, nullptr, &device), "vkCreateDevice");
        vkGetDeviceQueue(device, 0, 0, &queue);

        VkCommandPoolCreateInfo poolInfo{};
        poolInfo.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO;
        check(vkCreateCommandPool(device, &poolInfo, nullptr, &pool), "vkCreateCommandPool");
        VkSemaphoreTypeCreateInfo type{};
        type.sType = VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO;
        type.semaphoreType = VK_SEMAPHORE_TYPE_TIMELINE;
        VkSemaphoreCreateInfo semaphoreInfo{};
        semaphoreInfo.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO;
        semaphoreInfo.pNext = &type;
        check(vkCreateSemaphore(device, &semaphoreInfo, nullptr, &timeline), "vkCreateSemaphore");
    }
    ~Host() {
        // A value of the timeline says that the pixels are there, not that the driver has put the
        // commands away that it came from.
        vkDeviceWaitIdle(device);
        vkDestroySemaphore(device, timeline, nullptr);
        vkDestroyCommandPool(device, pool, nullptr);
        vkDestroyDevice(device, nullptr);
        vkDestroyInstance(instance, nullptr);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    VkDeviceMemory memoryFor(const VkMemoryRequirements& needs, VkMemoryPropertyFlags wanted) {
        VkPhysicalDeviceMemoryProperties all;
        vkGetPhysicalDeviceMemoryProperties(physical, &all);
        VkMemoryAllocateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
        info.allocationSize = needs.size;
        for (uint32_t i = all.memoryTypeCount; i-- > 0;)
            if ((needs.memoryTypeBits & 1u << i) &&
                (all.memoryTypes[i].propertyFlags & wanted) == wanted)
                info.memoryTypeIndex = i;
        VkDeviceMemory memory{};
        check(vkAllocateMemory(device, &info, nullptr, &memory), "vkAllocateMemory");
        return memory;
    }

    /// Runs commands once the timeline has reached `now`, and moves it on by one.
    template <class Record>
    void submit(Record record) {
        VkCommandBufferAllocateInfo allocation{};
        allocation.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO;
        allocation.commandPool = pool;
        allocation.commandBufferCount = 1;
        VkCommandBuffer commands{};
        check(vkAllocateCommandBuffers(device, &allocation, &commands), "vkAllocateCommandBuffers");
        VkCommandBufferBeginInfo begin{};
        begin.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO;
        vkBeginCommandBuffer(commands, &begin);
        record(commands);
        check(vkEndCommandBuffer(commands), "vkEndCommandBuffer");
        const uint64_t next = now + 1;
        VkTimelineSemaphoreSubmitInfo values{};
        values.sType = VK_STRUCTURE_TYPE_TIMELINE_SEMAPHORE_SUBMIT_INFO;
        values.waitSemaphoreValueCount = values.signalSemaphoreValueCount = 1;
        values.pWaitSemaphoreValues = &now;
        values.pSignalSemaphoreValues = &next;
        const VkPipelineStageFlags stage = VK_PIPELINE_STAGE_ALL_COMMANDS_BIT;
        VkSubmitInfo info{};
        info.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO;
        info.pNext = &values;
        info.waitSemaphoreCount = info.signalSemaphoreCount = info.commandBufferCount = 1;
        info.pWaitSemaphores = info.pSignalSemaphores = &timeline;
        info.pWaitDstStageMask = &stage;
        info.pCommandBuffers = &commands;
        check(vkQueueSubmit(queue, 1, &info, VK_NULL_HANDLE), "vkQueueSubmit");
        now = next;
    }

    void wait() {
        VkSemaphoreWaitInfo info{};
        info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
        info.semaphoreCount = 1;
        info.pSemaphores = &timeline;
        info.pValues = &now;
        check(vkWaitSemaphores(device, &info, UINT64_MAX), "vkWaitSemaphores");
    }
};

/// One of the host's images.
struct Picture {
    Host& host;
    VkImage image{};
    VkDeviceMemory memory{};

    Picture(Host& owner, VkImageUsageFlags usage) : host(owner) {
        VkImageCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
        info.imageType = VK_IMAGE_TYPE_2D;
        info.format = VK_FORMAT_R8G8B8A8_UNORM;
        info.extent = {width, height, 1};
        info.mipLevels = info.arrayLayers = 1;
        info.samples = VK_SAMPLE_COUNT_1_BIT;
        info.usage = usage;
        check(vkCreateImage(host.device, &info, nullptr, &image), "vkCreateImage");
        VkMemoryRequirements needs;
        vkGetImageMemoryRequirements(host.device, image, &needs);
        memory = host.memoryFor(needs, 0);
        check(vkBindImageMemory(host.device, image, memory, 0), "vkBindImageMemory");
    }
    ~Picture() {
        vkDestroyImage(host.device, image, nullptr);
        vkFreeMemory(host.device, memory, nullptr);
    }
    void change(VkCommandBuffer commands, VkImageLayout from, VkImageLayout to) const {
        VkImageMemoryBarrier barrier{};
        barrier.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER;
        barrier.srcAccessMask = VK_ACCESS_MEMORY_WRITE_BIT;
        barrier.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
        barrier.oldLayout = from;
        barrier.newLayout = to;
        barrier.image = image;
        barrier.subresourceRange = wholeImage;
        vkCmdPipelineBarrier(commands, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT,
                             VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 0, nullptr, 0, nullptr, 1,
                             &barrier);
    }
};

/// An image's pixels, fetched into the host's memory.
std::vector<uint8_t> pixelsOf(Host& host, const Picture& picture) {
    VkBufferCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    info.size = width * height * 4;
    info.usage = VK_BUFFER_USAGE_TRANSFER_DST_BIT;
    VkBuffer buffer{};
    check(vkCreateBuffer(host.device, &info, nullptr, &buffer), "vkCreateBuffer");
    VkMemoryRequirements needs;
    vkGetBufferMemoryRequirements(host.device, buffer, &needs);
    VkDeviceMemory memory = host.memoryFor(needs, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                                      VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
    check(vkBindBufferMemory(host.device, buffer, memory, 0), "vkBindBufferMemory");
    host.submit([&](VkCommandBuffer commands) {
        picture.change(commands, VK_IMAGE_LAYOUT_GENERAL, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
        VkBufferImageCopy copy{};
        copy.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
        copy.imageExtent = {width, height, 1};
        vkCmdCopyImageToBuffer(commands, picture.image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL,
                               buffer, 1, &copy);
    });
    host.wait();
    void* bytes = nullptr;
    check(vkMapMemory(host.device, memory, 0, VK_WHOLE_SIZE, 0, &bytes), "vkMapMemory");
    std::vector<uint8_t> pixels(info.size);
    std::memcpy(pixels.data(), bytes, pixels.size());
    vkDestroyBuffer(host.device, buffer, nullptr);
    vkFreeMemory(host.device, memory, nullptr);
    return pixels;
}

} // namespace

int main() {
    Host host;
    Picture source(host, VK_IMAGE_USAGE_TRANSFER_DST_BIT | VK_IMAGE_USAGE_SAMPLED_BIT);
    Picture result(host, VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_STORAGE_BIT);

    VornEffectsRegistrar::registerAllFilters();
    const CIFilterRef solarize = CIFilter::filterWithName("VESolarize");
    if (!solarize) return std::fprintf(stderr, "there is no filter VESolarize\n"), 1;
    solarize->setDefaults();
    solarize->setValueForKey(vorn::Number(1.0), "inputIntensity");

    vorn::VulkanContext context(vorn::VulkanDevice{host.instance, host.physical, host.device, 0,
                                                   host.queue, vkGetInstanceProcAddr});
    if (!context.problem().empty())
        return std::fprintf(stderr, "%s\n", context.problem().c_str()), 77;

    for (const float grey : {0.25f, 1.0f}) {
        host.submit([&](VkCommandBuffer commands) { // the host draws
            source.change(commands, VK_IMAGE_LAYOUT_UNDEFINED,
                          VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
            const VkClearColorValue color{{grey, grey, grey, 1}};
            vkCmdClearColorImage(commands, source.image, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                                 &color, 1, &wholeImage);
            source.change(commands, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_IMAGE_LAYOUT_GENERAL);
            result.change(commands, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_GENERAL);
        });
        // The effect waits for that, on the device, and moves the timeline on when it is done.
        const auto pictureOf = [&](const Picture& picture) {
            return vorn::VulkanPicture{
                picture.image, VK_FORMAT_R8G8B8A8_UNORM, width,
                height,        VK_IMAGE_LAYOUT_GENERAL,  {host.timeline, host.now}};
        };
        solarize->setValueForKey(context.image(pictureOf(source)), "inputImage");
        if (!context.render(solarize->outputImage(), pictureOf(result),
                            {host.timeline, host.now + 1}))
            return std::fprintf(stderr, "%s\n", context.lastError().c_str()), 1;
        ++host.now;
        std::printf("grey %.2f became %d\n", static_cast<double>(grey),
                    pixelsOf(host, result)[(height / 2 * width + width / 2) * 4]);
    }
    solarize->setValueForKey(CIImage(), "inputImage"); // before the context goes
    return 0;
}
