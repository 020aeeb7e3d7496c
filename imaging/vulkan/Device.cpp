#include "imaging/vulkan/Device.h"

#include "imaging/SessionState.h"
#include "imaging/vulkan/PipelineCache.h"
#include "imaging/vulkan/Pipelines.h"
#include "platform/Guard.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

namespace vorn::imaging::vulkan {
namespace {

// ---- The instance, one for the process ----------------------------------------------------------

struct Messages {
    std::mutex mutex;
    std::vector<std::string> lines;
};
Messages& messages() {
    static auto* all = new Messages;
    return *all;
}

VKAPI_ATTR VkBool32 VKAPI_CALL note(VkDebugUtilsMessageSeverityFlagBitsEXT,
                                    VkDebugUtilsMessageTypeFlagsEXT,
                                    const VkDebugUtilsMessengerCallbackDataEXT* data,
                                    void*) noexcept try {
    const std::lock_guard lock(messages().mutex);
    constexpr size_t most = 100;
    if (messages().lines.size() == most) return VK_FALSE;
    std::fprintf(stderr, "vulkan: %s\n", data->pMessage);
    messages().lines.emplace_back(data->pMessage);
    return VK_FALSE;
} catch (...) {
    return VK_FALSE; // no exception may go through the driver
}

bool hasLayer(const Functions& functions, const char* wanted) {
    uint32_t count = 0;
    functions.EnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    functions.EnumerateInstanceLayerProperties(&count, layers.data());
    return std::any_of(layers.begin(), layers.end(), [&](const VkLayerProperties& layer) {
        return std::strcmp(layer.layerName, wanted) == 0;
    });
}

struct Instance {
    Functions functions;
    VkInstance handle = VK_NULL_HANDLE;
    std::string problem;
    std::vector<VkPhysicalDevice> devices;

    Instance() {
        problem = functions.load();
        if (!problem.empty()) return;
        uint32_t version = 0;
        functions.EnumerateInstanceVersion(&version);
        if (version < VK_API_VERSION_1_2) {
            problem = "the Vulkan loader is older than Vulkan 1.2";
            return;
        }
        auto application = typed<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
        application.pApplicationName = "VornEffects";
        application.pEngineName = "VornEffects";
        application.apiVersion = VK_API_VERSION_1_2;
        auto info = typed<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
        info.pApplicationInfo = &application;
        // Set VORN_VULKAN_VALIDATION to have everything checked: 1 for the usual checks and those
        // of synchronisation, 2 for the shaders' reads and writes as well.
        const char* const wish = std::getenv("VORN_VULKAN_VALIDATION");
        const char* const layer = "VK_LAYER_KHRONOS_validation";
        const char* const extensions[] = {VK_EXT_DEBUG_UTILS_EXTENSION_NAME,
                                          VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME};
        const VkValidationFeatureEnableEXT checks[] = {
            VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT,
            VK_VALIDATION_FEATURE_ENABLE_GPU_ASSISTED_EXT,
            VK_VALIDATION_FEATURE_ENABLE_GPU_ASSISTED_RESERVE_BINDING_SLOT_EXT};
        auto features = typed<VkValidationFeaturesEXT>(VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT);
        auto messenger = typed<VkDebugUtilsMessengerCreateInfoEXT>(
            VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT);
        messenger.messageSeverity = VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT |
                                    VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
        messenger.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                                VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
        messenger.pfnUserCallback = note;
        const bool isChecked = wish && *wish && *wish != '0' && hasLayer(functions, layer);
        if (isChecked) {
            features.pNext = &messenger;
            features.enabledValidationFeatureCount = *wish == '2' ? 3 : 1;
            features.pEnabledValidationFeatures = checks;
            info.pNext = &features;
            info.enabledLayerCount = 1;
            info.ppEnabledLayerNames = &layer;
            info.enabledExtensionCount = 2;
            info.ppEnabledExtensionNames = extensions;
        }
        const VkResult result = functions.CreateInstance(&info, nullptr, &handle);
        if (result < 0) {
            problem = "Vulkan cannot be started: " + nameOf(result);
            return;
        }
        functions.takeInstance(handle);
        if (isChecked && functions.CreateDebugUtilsMessengerEXT) {
            VkDebugUtilsMessengerEXT unused;
            functions.CreateDebugUtilsMessengerEXT(handle, &messenger, nullptr, &unused);
        }
        const VkResult found = findDevices();
        if (!devices.empty()) return;
        problem = found < 0 ? "Vulkan cannot be started: " + nameOf(found)
                            : "there is no Vulkan device on this machine";
        functions.DestroyInstance(handle, nullptr);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

private:
    VkResult findDevices() {
        uint32_t count = 0;
        VkResult result = functions.EnumeratePhysicalDevices(handle, &count, nullptr);
        if (result < 0) return result;
        devices.resize(count);
        result = functions.EnumeratePhysicalDevices(handle, &count, devices.data());
        devices.resize(result < 0 ? 0 : count);
        return result;
    }
};

/// The same each time once it has no problem: where memory or descriptors have run out for a
/// moment, even a loader or a driver that is there seems to be missing.
std::shared_ptr<Instance> instance() {
    // Never destroyed: contexts may outlive every other static object.
    static auto* mutex = new std::mutex;
    static auto* kept = new std::shared_ptr<Instance>;
    const std::lock_guard lock(*mutex);
    if (*kept) return *kept;
    auto made = std::make_shared<Instance>();
    if (made->problem.empty()) *kept = made;
    return made;
}

// ---- What devices there are ---------------------------------------------------------------------

std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string versionText(uint32_t version) {
    return std::to_string(VK_API_VERSION_MAJOR(version)) + "." +
           std::to_string(VK_API_VERSION_MINOR(version)) + "." +
           std::to_string(VK_API_VERSION_PATCH(version));
}

std::vector<VkQueueFamilyProperties> familiesOf(const Functions& functions,
                                                VkPhysicalDevice physical) {
    uint32_t count = 0;
    functions.GetPhysicalDeviceQueueFamilyProperties(physical, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    functions.GetPhysicalDeviceQueueFamilyProperties(physical, &count, families.data());
    return families;
}

std::vector<std::string> extensionsOf(const Functions& functions, VkPhysicalDevice physical) {
    uint32_t count = 0;
    functions.EnumerateDeviceExtensionProperties(physical, nullptr, &count, nullptr);
    std::vector<VkExtensionProperties> extensions(count);
    functions.EnumerateDeviceExtensionProperties(physical, nullptr, &count, extensions.data());
    std::vector<std::string> names;
    for (const VkExtensionProperties& extension : extensions)
        names.emplace_back(extension.extensionName);
    return names;
}

bool has(const std::vector<std::string>& names, const char* name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// The family to work on: one that computes, or none.
int computeFamily(const std::vector<VkQueueFamilyProperties>& families) {
    for (size_t i = 0; i < families.size(); ++i)
        if (families[i].queueFlags & VK_QUEUE_COMPUTE_BIT) return static_cast<int>(i);
    return -1;
}

GPUDevice describe(const Functions& functions, VkPhysicalDevice physical, int number) {
    auto driver = typed<VkPhysicalDeviceDriverProperties>(
        VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DRIVER_PROPERTIES);
    VkPhysicalDeviceProperties2 properties{
        VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2, &driver, {}};
    functions.GetPhysicalDeviceProperties2(physical, &properties);
    const VkPhysicalDeviceProperties& p = properties.properties;
    GPUDevice device;
    device.number = number;
    device.name = p.deviceName;
    device.driver = std::string(driver.driverName) + " " + driver.driverInfo;
    device.apiVersion = versionText(p.apiVersion);
    device.isSoftware = p.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU;
    device.kind = p.deviceType == VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU     ? "discrete"
                  : p.deviceType == VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU ? "integrated"
                  : p.deviceType == VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU    ? "virtual"
                  : device.isSoftware                                      ? "software"
                                                                           : "other";
    device.largestSide = std::min(p.limits.maxImageDimension2D, 32768u);
    device.pipelineCache = pipelineCacheFile(p);
    VkPhysicalDeviceMemoryProperties memory{};
    functions.GetPhysicalDeviceMemoryProperties(physical, &memory);
    for (uint32_t i = 0; i < memory.memoryHeapCount; ++i)
        if (memory.memoryHeaps[i].flags & VK_MEMORY_HEAP_DEVICE_LOCAL_BIT)
            device.memoryBytes = std::max<uint64_t>(device.memoryBytes, memory.memoryHeaps[i].size);
    const auto families = familiesOf(functions, physical);
    for (const VkQueueFamilyProperties& family : families)
        device.queueFamilies.push_back(
            {family.queueCount, (family.queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0,
             (family.queueFlags & VK_QUEUE_COMPUTE_BIT) != 0,
             (family.queueFlags & VK_QUEUE_TRANSFER_BIT) != 0, family.timestampValidBits > 0});

    auto newer = typed<VkPhysicalDeviceVulkan12Features>(
        VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES);
    VkPhysicalDeviceFeatures2 features{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, &newer, {}};
    const auto lacks = [&](const std::string& what) {
        if (device.problem.empty()) device.problem = "the driver has no " + what;
    };
    if (p.apiVersion < VK_API_VERSION_1_2) {
        lacks("Vulkan 1.2");
        return device;
    }
    functions.GetPhysicalDeviceFeatures2(physical, &features);
    if (!newer.timelineSemaphore) lacks("timeline semaphores");
    if (!features.features.shaderStorageImageWriteWithoutFormat)
        lacks("writes to images without a format (shaderStorageImageWriteWithoutFormat)");
    if (computeFamily(families) < 0) lacks("queue that computes");
    const auto extensions = extensionsOf(functions, physical);
    device.sharesDmaBufs = has(extensions, VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME) &&
                           has(extensions, VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME);
    return device;
}

int rank(const GPUDevice& device) {
    const char* const order[] = {"discrete", "integrated", "virtual", "other", "software"};
    return static_cast<int>(std::find(std::begin(order), std::end(order), device.kind) - order);
}

std::vector<GPUDevice> describeAll(const Instance& instance) {
    std::vector<GPUDevice> all;
    for (size_t i = 0; i < instance.devices.size(); ++i)
        all.push_back(describe(instance.functions, instance.devices[i], static_cast<int>(i)));
    return all;
}

/// The device that is meant, by its number, a part of its name, or as the best; -1 with `problem`.
int choose(const std::vector<GPUDevice>& all, const std::string& name, bool softwareToo,
           std::string& problem) {
    if (name.empty()) {
        const GPUDevice* best = nullptr;
        for (const GPUDevice& device : all) {
            if (!device.problem.empty() || (device.isSoftware && !softwareToo)) continue;
            if (!best || rank(device) < rank(*best)) best = &device;
        }
        if (best) return best->number;
        problem = all.empty() ? "there is no Vulkan device on this machine"
                              : "no Vulkan device of this machine can be used: " + all[0].name +
                                    (all[0].problem.empty() ? " is a software device"
                                                            : ": " + all[0].problem);
        return -1;
    }
    const bool isNumber =
        std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    for (const GPUDevice& device : all) {
        if (isNumber ? name != std::to_string(device.number)
                     : lowered(device.name).find(lowered(name)) == std::string::npos)
            continue;
        if (device.problem.empty()) return device.number;
        problem = device.name + ": " + device.problem;
        return -1;
    }
    problem = "there is no Vulkan device \"" + name + "\"; there is";
    for (const GPUDevice& device : all)
        problem +=
            (device.number ? ", " : " ") + std::to_string(device.number) + ": " + device.name;
    return -1;
}

int channelOrder(CIFormat format) {
    return format == CIFormat::BGRA8 ? 1 : format == CIFormat::ARGB8 ? 2 : 0;
}

} // namespace

Functions& instanceFunctions() {
    return instance()->functions;
}

std::vector<std::string> validationMessages() {
    const std::lock_guard lock(messages().mutex);
    return messages().lines;
}

// ---- Device -------------------------------------------------------------------------------------

std::shared_ptr<Device> Device::open(const std::string& name, bool softwareToo,
                                     std::string& problem, bool* mayCome) noexcept try {
    bool unwanted;
    bool& mayComeSoon = mayCome ? *mayCome : unwanted;
    static auto* mutex = new std::mutex;
    auto& opened = stateOf(*Session::current()).openDevices;
    const std::lock_guard lock(*mutex);
    const std::shared_ptr<const Instance> instance = vulkan::instance();
    problem = instance->problem;
    mayComeSoon = !problem.empty();
    if (!problem.empty()) return nullptr;
    const std::vector<GPUDevice> all = describeAll(*instance);
    const int number = choose(all, name, softwareToo, problem);
    if (number < 0) return nullptr;
    mayComeSoon = true;
    opened.resize(instance->devices.size());
    std::weak_ptr<Device>& known = opened[static_cast<size_t>(number)];
    if (auto device = known.lock(); device && !device->isLost()) return device;

    const std::shared_ptr<Device> device(new Device);
    device->functions = instance->functions;
    device->physical_ = instance->devices[static_cast<size_t>(number)];
    const Functions& functions = device->functions;
    const auto families = familiesOf(functions, device->physical_);
    device->queueFamily_ = static_cast<uint32_t>(computeFamily(families));
    const auto offered = extensionsOf(functions, device->physical_);
    std::vector<const char*> extensions;
    device->sharesFds_ = has(offered, VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME);
    device->sharesDmaBufs_ = all[static_cast<size_t>(number)].sharesDmaBufs;
    if (device->sharesFds_) extensions.push_back(VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME);
    if (device->sharesDmaBufs_) extensions.push_back(VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME);

    auto offers = typed<VkPhysicalDeviceFeatures2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2);
    functions.GetPhysicalDeviceFeatures2(device->physical_, &offers);
    auto newer = typed<VkPhysicalDeviceVulkan12Features>(
        VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES);
    newer.timelineSemaphore = VK_TRUE;
    VkPhysicalDeviceFeatures2 features{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, &newer, {}};
    features.features.shaderStorageImageWriteWithoutFormat = VK_TRUE;
    const float priority = 1;
    auto queue = typed<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
    queue.queueFamilyIndex = device->queueFamily_;
    queue.queueCount = 1;
    queue.pQueuePriorities = &priority;
    auto info = typed<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
    info.pNext = &features;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queue;
    info.enabledExtensionCount = static_cast<uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    VkDevice made = VK_NULL_HANDLE;
    const VkResult result = functions.CreateDevice(device->physical_, &info, nullptr, &made);
    if (result < 0) {
        problem = all[static_cast<size_t>(number)].name + " cannot be opened: " + nameOf(result);
        return nullptr;
    }
    device->device_ = made;
    device->finishOpening();
    known = device;
    return device;
} catch (...) {
    if (mayCome) *mayCome = true;
    describeException(problem);
    return nullptr;
}

std::shared_ptr<Device> Device::adopt(VkInstance instanceHandle, VkPhysicalDevice physical,
                                      VkDevice handle, uint32_t queueFamily, VkQueue queue,
                                      PFN_vkGetInstanceProcAddr loader,
                                      std::string& problem) noexcept try {
    const std::shared_ptr<Device> device(new Device);
    device->owned_ = false;
    device->functions.GetInstanceProcAddr = loader;
    if (!loader) problem = device->functions.load();
    if (!problem.empty()) return nullptr;
    if (instanceHandle) device->functions.takeInstance(instanceHandle);
    if (!device->functions.GetDeviceProcAddr || !physical || !handle || !queue) {
        problem = "a handle of the host's Vulkan device is missing";
        return nullptr;
    }
    const GPUDevice description = describe(device->functions, physical, 0);
    if (!description.problem.empty()) {
        problem = description.name + ": " + description.problem;
        return nullptr;
    }
    if (queueFamily >= description.queueFamilies.size() ||
        !description.queueFamilies[queueFamily].compute) {
        problem = "the queue of the host's Vulkan device does not compute";
        return nullptr;
    }
    device->physical_ = physical;
    device->device_ = handle;
    device->queueFamily_ = queueFamily;
    device->queue_ = queue;
    device->finishOpening();
    // Whether the host has switched the extensions on shows in their functions.
    device->sharesFds_ = device->functions.GetMemoryFdKHR != nullptr;
    device->sharesDmaBufs_ = device->sharesFds_ && description.sharesDmaBufs;
    return device;
} catch (...) {
    describeException(problem);
    return nullptr;
}

void Device::finishOpening() {
    functions.takeDevice(device_);
    auto properties =
        typed<VkPhysicalDeviceProperties2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2);
    functions.GetPhysicalDeviceProperties2(physical_, &properties);
    properties_ = properties.properties;
    functions.GetPhysicalDeviceMemoryProperties(physical_, &memory_);
    const uint32_t bits = familiesOf(functions, physical_)[queueFamily_].timestampValidBits;
    if (bits > 0) nanosecondsPerTick_ = double(properties_.limits.timestampPeriod);
    ticks_ = bits >= 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1;
    if (!queue_) functions.GetDeviceQueue(device_, queueFamily_, 0, &queue_);
    auto type = typed<VkSemaphoreTypeCreateInfo>(VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO);
    type.semaphoreType = VK_SEMAPHORE_TYPE_TIMELINE;
    auto info = typed<VkSemaphoreCreateInfo>(VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO);
    info.pNext = &type;
    VkSemaphore made = VK_NULL_HANDLE;
    check(functions.CreateSemaphore(device_, &info, nullptr, &made), "making a semaphore");
    timeline_ = made;
    images_ = std::make_shared<ImagePool>(*this);
    pipelines_ = std::make_unique<Pipelines>(*this);
}

Device::~Device() {
    if (!device_) return;
    if (timeline_) {
        // On a device of the host's there may be other work that need not be waited for.
        try {
            wait(lastTicket_);
        } catch (...) {
            // A lost device has nothing under way.
        }
    }
    pipelines_.reset();
    if (images_) images_->clearAll();
    if (timeline_) functions.DestroySemaphore(device_, timeline_, nullptr);
    if (owned_) functions.DestroyDevice(device_, nullptr);
}

uint32_t Device::largestSide() const {
    // Shaders are told places in an image in 15 bits.
    return std::min(properties_.limits.maxImageDimension2D, 32768u);
}

double Device::secondsBetween(uint64_t first, uint64_t second) const {
    return static_cast<double>((second - first) & ticks_) * nanosecondsPerTick_ * 1e-9;
}

void Device::check(VkResult result, const char* doing) {
    if (result == VK_ERROR_DEVICE_LOST) lost_ = true;
    if (result < 0) throw Failure(std::string(doing) + ": " + nameOf(result), result);
}

uint32_t Device::memoryType(uint32_t allowed, VkMemoryPropertyFlags wanted,
                            VkMemoryPropertyFlags preferred, VkMemoryPropertyFlags& has) const {
    int best = -1, bestScore = -1;
    for (uint32_t i = 0; i < memory_.memoryTypeCount; ++i) {
        const VkMemoryPropertyFlags flags = memory_.memoryTypes[i].propertyFlags;
        if (!(allowed & 1u << i) || (flags & wanted) != wanted) continue;
        const int score = __builtin_popcount(flags & preferred);
        if (score > bestScore) best = static_cast<int>(i), bestScore = score, has = flags;
    }
    if (best < 0) throw Failure("the device has no memory of the kind that is needed");
    return static_cast<uint32_t>(best);
}

VkDeviceMemory Device::allocate(const VkMemoryRequirements& needs, VkMemoryPropertyFlags wanted,
                                VkMemoryPropertyFlags preferred, VkMemoryPropertyFlags& has,
                                const void* next) {
    auto info = typed<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
    info.pNext = next;
    info.allocationSize = needs.size;
    info.memoryTypeIndex = memoryType(needs.memoryTypeBits, wanted, preferred, has);
    VkDeviceMemory memory = VK_NULL_HANDLE;
    VkResult result = functions.AllocateMemory(device_, &info, nullptr, &memory);
    if (result == VK_ERROR_OUT_OF_DEVICE_MEMORY || result == VK_ERROR_OUT_OF_HOST_MEMORY) {
        images_->clear();
        result = functions.AllocateMemory(device_, &info, nullptr, &memory);
    }
    check(result, "allocating pixel memory");
    return memory;
}

uint64_t Device::submit(VkCommandBuffer commands, const std::vector<SemaphoreValue>& waitFor,
                        const SemaphoreValue& signal) {
    std::vector<VkSemaphore> waits;
    std::vector<uint64_t> waitValues;
    for (const SemaphoreValue& one : waitFor) {
        waits.push_back(one.semaphore);
        waitValues.push_back(one.value);
    }
    const std::vector<VkPipelineStageFlags> stages(waits.size(),
                                                   VK_PIPELINE_STAGE_ALL_COMMANDS_BIT);
    const std::lock_guard lock(queueMutex_);
    const uint64_t ticket = lastTicket_ + 1;
    const VkSemaphore signals[] = {timeline_, signal.semaphore};
    const uint64_t values[] = {ticket, signal.value};
    auto timeline =
        typed<VkTimelineSemaphoreSubmitInfo>(VK_STRUCTURE_TYPE_TIMELINE_SEMAPHORE_SUBMIT_INFO);
    auto info = typed<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
    info.pNext = &timeline;
    info.waitSemaphoreCount = timeline.waitSemaphoreValueCount =
        static_cast<uint32_t>(waits.size());
    info.pWaitSemaphores = waits.data();
    timeline.pWaitSemaphoreValues = waitValues.data();
    info.pWaitDstStageMask = stages.data();
    info.commandBufferCount = 1;
    info.pCommandBuffers = &commands;
    info.signalSemaphoreCount = timeline.signalSemaphoreValueCount = signal.semaphore ? 2 : 1;
    info.pSignalSemaphores = signals;
    timeline.pSignalSemaphoreValues = values;
    check(functions.QueueSubmit(queue_, 1, &info, VK_NULL_HANDLE), "starting work on the device");
    lastTicket_ = ticket;
    return ticket;
}

void Device::runOnce(const std::function<void(VkCommandBuffer)>& record) {
    VkCommandPool pool = VK_NULL_HANDLE;
    auto poolInfo = typed<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
    poolInfo.queueFamilyIndex = queueFamily_;
    check(functions.CreateCommandPool(device_, &poolInfo, nullptr, &pool), "making a command pool");
    try {
        auto info =
            typed<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
        info.commandPool = pool;
        info.commandBufferCount = 1;
        VkCommandBuffer commands = VK_NULL_HANDLE;
        check(functions.AllocateCommandBuffers(device_, &info, &commands),
              "making a command buffer");
        const auto begin =
            typed<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
        check(functions.BeginCommandBuffer(commands, &begin), "recording");
        record(commands);
        check(functions.EndCommandBuffer(commands), "recording");
        wait(submit(commands));
    } catch (...) {
        functions.DestroyCommandPool(device_, pool, nullptr);
        throw;
    }
    functions.DestroyCommandPool(device_, pool, nullptr);
}

void Device::wait(uint64_t ticket) {
    if (ticket == 0) return;
    auto info = typed<VkSemaphoreWaitInfo>(VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO);
    info.semaphoreCount = 1;
    info.pSemaphores = &timeline_;
    info.pValues = &ticket;
    VkResult result = VK_TIMEOUT;
    // What is under way must not be touched before it is done, and memory may be there again soon.
    for (int attempts = 100; result != VK_SUCCESS && attempts > 0;) {
        result = functions.WaitSemaphores(device_, &info, UINT64_MAX);
        if (result == VK_TIMEOUT) continue;
        if (result != VK_ERROR_OUT_OF_HOST_MEMORY && result != VK_ERROR_OUT_OF_DEVICE_MEMORY) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        --attempts;
    }
    // A driver may say that all is well with work on a device that it has lost. Where it says
    // anything else, nobody knows what the device is doing.
    if (result != VK_SUCCESS) lost_ = true;
    check(lost_ ? VK_ERROR_DEVICE_LOST : VK_SUCCESS, "waiting for the device");
}

uint64_t Device::finishedTicket() noexcept {
    uint64_t value = 0;
    const VkResult result = functions.GetSemaphoreCounterValue(device_, timeline_, &value);
    if (result == VK_SUCCESS) return value;
    if (result == VK_ERROR_DEVICE_LOST) lost_ = true;
    return lost_ ? UINT64_MAX : 0;
}

// ---- Buffers ------------------------------------------------------------------------------------

Buffer::Buffer(Device& device, VkDeviceSize size, Use use) : device_(device), size_(size) {
    auto info = typed<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
    info.size = size;
    info.usage = use == Use::Upload     ? VK_BUFFER_USAGE_TRANSFER_SRC_BIT
                 : use == Use::Download ? VK_BUFFER_USAGE_TRANSFER_DST_BIT
                                        : VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT;
    const Functions& f = device.functions;
    device.check(f.CreateBuffer(device.handle(), &info, nullptr, &buffer_), "making a buffer");
    try {
        VkMemoryRequirements needs;
        f.GetBufferMemoryRequirements(device.handle(), buffer_, &needs);
        VkMemoryPropertyFlags has = 0;
        // Reading from memory that is not cached is many times slower than copying it.
        memory_ = device.allocate(needs, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT,
                                  use == Use::Download ? VK_MEMORY_PROPERTY_HOST_CACHED_BIT
                                                       : VK_MEMORY_PROPERTY_HOST_COHERENT_BIT,
                                  has);
        coherent_ = (has & VK_MEMORY_PROPERTY_HOST_COHERENT_BIT) != 0;
        device.check(f.BindBufferMemory(device.handle(), buffer_, memory_, 0), "making a buffer");
        void* bytes = nullptr;
        device.check(f.MapMemory(device.handle(), memory_, 0, VK_WHOLE_SIZE, 0, &bytes),
                     "making a buffer");
        bytes_ = static_cast<uint8_t*>(bytes);
    } catch (...) {
        f.DestroyBuffer(device.handle(), buffer_, nullptr);
        f.FreeMemory(device.handle(), memory_, nullptr);
        throw;
    }
}

Buffer::~Buffer() {
    device_.functions.DestroyBuffer(device_.handle(), buffer_, nullptr);
    device_.functions.FreeMemory(device_.handle(), memory_, nullptr);
}

void Buffer::flush() {
    if (coherent_) return;
    const VkMappedMemoryRange range{VK_STRUCTURE_TYPE_MAPPED_MEMORY_RANGE, nullptr, memory_, 0,
                                    VK_WHOLE_SIZE};
    device_.check(device_.functions.FlushMappedMemoryRanges(device_.handle(), 1, &range),
                  "uploading");
}

void Buffer::invalidate() {
    if (coherent_) return;
    const VkMappedMemoryRange range{VK_STRUCTURE_TYPE_MAPPED_MEMORY_RANGE, nullptr, memory_, 0,
                                    VK_WHOLE_SIZE};
    device_.check(device_.functions.InvalidateMappedMemoryRanges(device_.handle(), 1, &range),
                  "downloading");
}

// ---- Images -------------------------------------------------------------------------------------

Image::Image(Device& device, VkFormat format, uint32_t width, uint32_t height)
    : device_(device), format_(format), width_(width), height_(height) {
    auto info = typed<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
    info.imageType = VK_IMAGE_TYPE_2D;
    info.format = format;
    info.extent = {width, height, 1};
    info.mipLevels = info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_STORAGE_BIT |
                 VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    const Functions& f = device.functions;
    device.check(f.CreateImage(device.handle(), &info, nullptr, &image_), "making an image");
    try {
        VkMemoryRequirements needs;
        f.GetImageMemoryRequirements(device.handle(), image_, &needs);
        VkMemoryPropertyFlags has = 0;
        memory_ = device.allocate(needs, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, has);
        device.check(f.BindImageMemory(device.handle(), image_, memory_, 0), "making an image");
    } catch (...) {
        f.DestroyImage(device.handle(), image_, nullptr);
        f.FreeMemory(device.handle(), memory_, nullptr);
        throw;
    }
}

Image::Image(Device& device, VkImage image, VkFormat format, uint32_t width, uint32_t height)
    : device_(device), image_(image), format_(format), width_(width), height_(height),
      owned_(false) {}

Image::~Image() {
    const Functions& f = device_.functions;
    for (const VkImageView view : views_) f.DestroyImageView(device_.handle(), view, nullptr);
    if (!owned_) return;
    f.DestroyImage(device_.handle(), image_, nullptr);
    f.FreeMemory(device_.handle(), memory_, nullptr);
}

VkImageView Image::readView(CIFormat order) {
    return view(channelOrder(order));
}

VkImageView Image::view(int order) {
    const std::lock_guard lock(mutex_);
    VkImageView& known = views_[order];
    if (known) return known;
    // Where each channel lies in a pixel's bytes.
    constexpr VkComponentSwizzle r = VK_COMPONENT_SWIZZLE_R, g = VK_COMPONENT_SWIZZLE_G,
                                 b = VK_COMPONENT_SWIZZLE_B, a = VK_COMPONENT_SWIZZLE_A;
    constexpr VkComponentMapping mappings[] = {{}, {b, g, r, a}, {g, b, a, r}};
    auto info = typed<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
    info.image = image_;
    info.viewType = VK_IMAGE_VIEW_TYPE_2D;
    info.format = format_;
    info.components = mappings[order];
    info.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    VkImageView made = VK_NULL_HANDLE;
    device_.check(device_.functions.CreateImageView(device_.handle(), &info, nullptr, &made),
                  "making an image");
    return known = made;
}

std::shared_ptr<Image> ImagePool::acquire(VkFormat format, uint32_t width, uint32_t height,
                                          uint64_t& created) {
    std::unique_ptr<Image> image;
    {
        const std::lock_guard lock(mutex_);
        makeRoom();
        size_t best = idle_.size();
        const auto area = [](const Image& i) { return uint64_t(i.width()) * i.height(); };
        for (size_t i = 0; i < idle_.size(); ++i) {
            const Image& candidate = *idle_[i];
            if (candidate.format() != format || candidate.width() < width ||
                candidate.height() < height || area(candidate) > uint64_t(width) * height * 2)
                continue;
            if (best == idle_.size() || area(candidate) < area(*idle_[best])) best = i;
        }
        if (best < idle_.size()) {
            image = std::move(idle_[best]);
            idle_.erase(idle_.begin() + static_cast<std::ptrdiff_t>(best));
        } else {
            // So that changes of size do not pile images up.
            constexpr uint64_t framesKept = 16;
            const uint64_t last = device_.lastTicket();
            freeIdle(last > framesKept ? last - framesKept : 0);
        }
    }
    try {
        if (!image) {
            image = std::make_unique<Image>(device_, format, width, height);
            ++created;
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        --out_;
        throw;
    }
    return {image.release(), [pool = shared_from_this()](Image* done) { pool->giveBack(done); }};
}

std::shared_ptr<Image> ImagePool::wrap(VkImage image, VkFormat format, uint32_t width,
                                       uint32_t height) {
    auto wrapped = std::make_unique<Image>(device_, image, format, width, height);
    {
        const std::lock_guard lock(mutex_);
        makeRoom();
    }
    return {wrapped.release(), [pool = shared_from_this()](Image* done) { pool->giveBack(done); }};
}

/// So that an image finds room when it comes back, where nothing may fail.
void ImagePool::makeRoom() {
    idle_.reserve(idle_.size() + out_ + 1);
    wrapped_.reserve(wrapped_.size() + out_ + 1);
    ++out_;
}

void ImagePool::giveBack(Image* image) noexcept {
    const std::lock_guard lock(mutex_);
    --out_;
    (image->isOwned() ? idle_ : wrapped_).emplace_back(image);
    if (!image->isOwned()) freeWrapped();
}

void ImagePool::freeWrapped() noexcept {
    const uint64_t finished = device_.finishedTicket();
    std::erase_if(wrapped_, [&](const auto& image) { return image->lastTicket <= finished; });
}

void ImagePool::freeIdle(uint64_t keepFrom) noexcept {
    const uint64_t finished = device_.finishedTicket();
    std::erase_if(idle_, [&](const std::unique_ptr<Image>& image) {
        return image->lastTicket < keepFrom && image->lastTicket <= finished;
    });
}

void ImagePool::clear() noexcept {
    const std::lock_guard lock(mutex_);
    freeWrapped();
    freeIdle(UINT64_MAX);
}

void ImagePool::clearAll() noexcept {
    const std::lock_guard lock(mutex_);
    idle_.clear();
    wrapped_.clear();
}

} // namespace vorn::imaging::vulkan

std::vector<vorn::GPUDevice> vorn::gpuDevices(std::string* problem) {
    using namespace imaging::vulkan;
    std::string unwanted;
    try {
        const auto instance = imaging::vulkan::instance();
        if (problem) *problem = instance->problem;
        return describeAll(*instance);
    } catch (...) {
        describeException(problem ? *problem : unwanted);
        return {};
    }
}
