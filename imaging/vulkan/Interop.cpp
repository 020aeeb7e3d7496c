// Devices, images and memory that are shared with a host.
#include "vorneffects/VulkanInterop.h"

#include "imaging/SessionState.h"
#include "imaging/vulkan/Renderer.h"
#include "platform/Guard.h"

#include <cmath>
#include <new>
#include <unistd.h>

using namespace vorn;
using namespace vorn::imaging;
using namespace vorn::imaging::vulkan;
using cpu::IntRect;

namespace {

std::optional<CIFormat> formatOf(VkFormat format) {
    switch (format) {
    case VK_FORMAT_R8G8B8A8_UNORM:
    case VK_FORMAT_B8G8R8A8_UNORM: // the device puts the channels in their places
        return CIFormat::RGBA8;
    case VK_FORMAT_R16G16B16A16_SFLOAT:
        return CIFormat::RGBAh;
    case VK_FORMAT_R32G32B32A32_SFLOAT:
        return CIFormat::RGBAf;
    default:
        return std::nullopt;
    }
}

VkExternalMemoryHandleTypeFlagBits handleType(SharedMemoryKind kind) {
    return kind == SharedMemoryKind::DmaBuf ? VK_EXTERNAL_MEMORY_HANDLE_TYPE_DMA_BUF_BIT_EXT
                                            : VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
}

/// A buffer in memory that others see as well.
class SharedBuffer {
public:
    SharedBuffer(Device& device, VkDeviceSize size, SharedMemoryKind kind) : device_(device) {
        auto external = typed<VkExternalMemoryBufferCreateInfo>(
            VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_BUFFER_CREATE_INFO);
        external.handleTypes = handleType(kind);
        auto info = typed<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
        info.pNext = &external;
        info.size = size;
        info.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT;
        device.check(device.functions.CreateBuffer(device.handle(), &info, nullptr, &handle),
                     "making shared memory");
    }
    ~SharedBuffer() {
        device_.functions.DestroyBuffer(device_.handle(), handle, nullptr);
        device_.functions.FreeMemory(device_.handle(), memory, nullptr);
    }
    SharedBuffer(const SharedBuffer&) = delete;
    SharedBuffer& operator=(const SharedBuffer&) = delete;

    /// Memory of its own, and a descriptor for it.
    int allocate(SharedMemoryKind kind, uint64_t& size) {
        VkMemoryRequirements needs;
        device_.functions.GetBufferMemoryRequirements(device_.handle(), handle, &needs);
        auto info =
            typed<VkExportMemoryAllocateInfo>(VK_STRUCTURE_TYPE_EXPORT_MEMORY_ALLOCATE_INFO);
        info.handleTypes = handleType(kind);
        VkMemoryPropertyFlags has = 0;
        memory = device_.allocate(needs, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, has, &info);
        bind();
        size = needs.size;
        auto wanted = typed<VkMemoryGetFdInfoKHR>(VK_STRUCTURE_TYPE_MEMORY_GET_FD_INFO_KHR);
        wanted.memory = memory;
        wanted.handleType = handleType(kind);
        int fd = -1;
        device_.check(device_.functions.GetMemoryFdKHR(device_.handle(), &wanted, &fd),
                      "sharing memory");
        return fd;
    }

    /// The memory that a descriptor stands for.
    void import(const SharedPicture& picture) {
        VkMemoryRequirements needs;
        device_.functions.GetBufferMemoryRequirements(device_.handle(), handle, &needs);
        if (picture.memorySize < needs.size) throw Failure("the shared memory is too small");
        needs.size = picture.memorySize;
        if (picture.kind == SharedMemoryKind::DmaBuf) {
            auto properties =
                typed<VkMemoryFdPropertiesKHR>(VK_STRUCTURE_TYPE_MEMORY_FD_PROPERTIES_KHR);
            device_.check(device_.functions.GetMemoryFdPropertiesKHR(
                              device_.handle(), handleType(picture.kind), picture.fd, &properties),
                          "taking shared memory");
            needs.memoryTypeBits &= properties.memoryTypeBits;
        }
        auto info = typed<VkImportMemoryFdInfoKHR>(VK_STRUCTURE_TYPE_IMPORT_MEMORY_FD_INFO_KHR);
        info.handleType = handleType(picture.kind);
        info.fd = dup(picture.fd); // the driver keeps it when all goes well
        if (info.fd < 0) throw Failure("the file descriptor of shared memory is not open");
        try {
            VkMemoryPropertyFlags has = 0;
            memory = device_.allocate(needs, 0, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, has, &info);
        } catch (...) {
            close(info.fd);
            throw;
        }
        bind();
    }

    VkBuffer handle = VK_NULL_HANDLE;
    VkDeviceMemory memory = VK_NULL_HANDLE;

private:
    void bind() {
        device_.check(device_.functions.BindBufferMemory(device_.handle(), handle, memory, 0),
                      "sharing memory");
    }
    Device& device_;
};

const std::string kNoMemory = "out of memory";

} // namespace

struct VulkanContext::State {
    std::shared_ptr<vorn::Session> session = vorn::Session::current();
    std::shared_ptr<Device> device;
    std::shared_ptr<Renderer> renderer;
    std::shared_ptr<SharedGpu> shared; ///< the session's filters render on the same device
    CGColorSpace workingSpace = CGColorSpace::None;
    std::optional<std::string> name; ///< of a device that is not the host's
    std::string problem, lastError;

    void open() noexcept {
        shared.reset();
        renderer.reset();
        device.reset();
        problem.clear();
        take(Device::open(*name, true, problem));
    }
    bool fail(std::string line) {
        lastError = std::move(line);
        return false;
    }
    bool isReady() {
        lastError.clear();
        if (name && (!device || device->isLost())) open();
        return device ? true : fail(problem);
    }
    void take(std::shared_ptr<Device> opened) noexcept try {
        if (!opened) return;
        renderer = std::make_shared<Renderer>(opened);
        device = std::move(opened);
        shared = stateOf(*session).share(device);
    } catch (...) {
        renderer.reset();
        device.reset();
        describeException(problem);
    }
    bool hasSize(uint32_t width, uint32_t height) {
        if (width > 0 && height > 0 && width <= device->largestSide() &&
            height <= device->largestSide())
            return true;
        return fail("an image of " + std::to_string(width) + " by " + std::to_string(height) +
                    " pixels is none that the device takes");
    }
    CIImage imageOf(std::shared_ptr<DeviceImage> pixels, uint32_t width, uint32_t height,
                    CIFormat format, CGPoint origin, CGColorSpace colorSpace) {
        auto node =
            makeNode(Node::Kind::Pixels, {origin.x, origin.y, double(width), double(height)});
        node->colorSpace = colorSpace;
        node->pixels.width = width;
        node->pixels.height = height;
        node->pixels.bytesPerRow = width * bytesPerPixel(format);
        node->pixels.format = format;
        node->pixels.device = std::move(pixels);
        return CIImage(std::move(node));
    }
    bool canShare(SharedMemoryKind kind) const {
        if (!device ||
            !(kind == SharedMemoryKind::DmaBuf ? device->sharesDmaBufs() : device->sharesFds()))
            return false;
        auto info = typed<VkPhysicalDeviceExternalBufferInfo>(
            VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_BUFFER_INFO);
        info.usage = VK_BUFFER_USAGE_TRANSFER_SRC_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT;
        info.handleType = handleType(kind);
        auto offered =
            typed<VkExternalBufferProperties>(VK_STRUCTURE_TYPE_EXTERNAL_BUFFER_PROPERTIES);
        device->functions.GetPhysicalDeviceExternalBufferProperties(device->physical(), &info,
                                                                    &offered);
        constexpr VkExternalMemoryFeatureFlags both =
            VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT | VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT;
        return (offered.externalMemoryProperties.externalMemoryFeatures & both) == both;
    }
};

VulkanContext::VulkanContext(const VulkanDevice& host, CGColorSpace workingSpace)
    : state_(new (std::nothrow) State) {
    if (!state_) return;
    state_->workingSpace = workingSpace;
    state_->take(Device::adopt(host.instance, host.physicalDevice, host.device, host.queueFamily,
                               host.queue, host.getInstanceProcAddr, state_->problem));
}

VulkanContext::VulkanContext(const std::string& deviceName, CGColorSpace workingSpace)
    : state_(new (std::nothrow) State) {
    if (!state_) return;
    state_->workingSpace = workingSpace;
    try {
        state_->name = deviceName;
        state_->open();
    } catch (...) {
        describeException(state_->problem);
    }
}

VulkanContext::~VulkanContext() = default;

const std::string& VulkanContext::problem() const {
    return state_ ? state_->problem : kNoMemory;
}
const std::string& VulkanContext::lastError() const {
    return state_ ? state_->lastError : kNoMemory;
}
bool VulkanContext::canShare(SharedMemoryKind kind) const {
    return state_ && state_->canShare(kind);
}

CIImage VulkanContext::image(const VulkanPicture& picture, CGPoint origin,
                             CGColorSpace colorSpace) try {
    if (!state_) return {};
    State& state = *state_;
    const vorn::Session::Scope scope(state.session);
    if (!state.isReady() || !state.hasSize(picture.width, picture.height)) return {};
    const std::optional<CIFormat> format = formatOf(picture.format);
    if (!format || !isKnown(colorSpace) || !picture.image || !std::isfinite(origin.x) ||
        !std::isfinite(origin.y)) {
        state.fail("an image of the host has an unknown format or space, no handle, or no place");
        return {};
    }
    auto wrapped =
        state.device->images().wrap(picture.image, picture.format, picture.width, picture.height);
    return state.imageOf(
        std::make_shared<DeviceImage>(
            state.device, std::move(wrapped), *format, picture.width, picture.height,
            Handover{picture.layout, {picture.readyAt.semaphore, picture.readyAt.value}}),
        picture.width, picture.height, *format, origin, colorSpace);
} catch (...) {
    describeException(state_->lastError);
    return {};
}

bool VulkanContext::render(const CIImage& image, const VulkanPicture& target,
                           const VulkanTimeline& done, CGPoint corner,
                           CGColorSpace colorSpace) try {
    if (!state_) return {};
    State& state = *state_;
    const vorn::Session::Scope scope(state.session);
    if (!state.isReady() || !state.hasSize(target.width, target.height)) return false;
    const std::optional<CIFormat> format = formatOf(target.format);
    if (!image) return state.fail("there is no image to render");
    if (!format || target.format == VK_FORMAT_B8G8R8A8_UNORM || !target.image)
        return state.fail(
            "an image of the host cannot be rendered into: its format is none of those "
            "that can, or it has no handle");
    const IntRect rect = IntRect::around(
        {std::floor(corner.x), std::floor(corner.y), double(target.width), double(target.height)});
    if (!rect.isInReach() || rect.width() != static_cast<int>(target.width))
        return state.fail("the rectangle to render is infinite or too far away");
    if (!isKnown(colorSpace)) return state.fail("the colour space of the result is none");
    const HostTarget host{
        state.device->images().wrap(target.image, target.format, target.width, target.height),
        {target.layout, {target.readyAt.semaphore, target.readyAt.value}},
        {done.semaphore, done.value}};
    return state.renderer->renderInto(image, rect, host, *format, state.workingSpace, colorSpace) ||
           state.fail(state.renderer->problem());
} catch (...) {
    describeException(state_->lastError);
    return {};
}

std::optional<SharedPicture> VulkanContext::renderShared(const CIImage& image, CGRect bounds,
                                                         CIFormat format, SharedMemoryKind kind,
                                                         CGColorSpace colorSpace) try {
    if (!state_) return {};
    State& state = *state_;
    const vorn::Session::Scope scope(state.session);
    if (!state.isReady()) return {};
    const IntRect rect = IntRect::around(bounds);
    if (!image || rect.isEmpty() || !rect.isInReach()) {
        state.fail("there is no image to render, or its rectangle is empty or infinite");
        return {};
    }
    if (!isKnown(format) || !isKnown(colorSpace)) {
        state.fail("the format or the colour space of the result is none");
        return {};
    }
    if (!state.canShare(kind)) {
        state.fail("the driver does not share memory in this way");
        return {};
    }
    const auto pixels =
        state.renderer->renderOnDevice(image, rect, format, state.workingSpace, colorSpace);
    if (!pixels) {
        state.fail(state.renderer->problem());
        return {};
    }
    SharedPicture shared{-1,
                         kind,
                         format,
                         static_cast<uint32_t>(rect.width()),
                         static_cast<uint32_t>(rect.height()),
                         static_cast<size_t>(rect.width()) * bytesPerPixel(format),
                         0};
    try {
        SharedBuffer buffer(*state.device, shared.bytesPerRow * shared.height, kind);
        shared.fd = buffer.allocate(kind, shared.memorySize);
        state.device->runOnce([&](VkCommandBuffer commands) {
            download(state.device->functions, commands, *pixels->image(), buffer.handle,
                     rect.width(), rect.height());
        });
        return shared;
    } catch (...) {
        if (shared.fd >= 0) close(shared.fd);
        throw;
    }
} catch (...) {
    describeException(state_->lastError);
    return {};
}

CIImage VulkanContext::imageOfShared(const SharedPicture& picture, CGColorSpace colorSpace) try {
    if (!state_) return {};
    State& state = *state_;
    const vorn::Session::Scope scope(state.session);
    if (!state.isReady() || !state.hasSize(picture.width, picture.height)) return {};
    const size_t pixel = bytesPerPixel(picture.format);
    const std::optional<size_t> size = sizeOfRows(picture.bytesPerRow, picture.height);
    if (!isKnown(picture.format) || !isKnown(colorSpace) || !size ||
        picture.bytesPerRow < picture.width * pixel || picture.bytesPerRow % pixel != 0 ||
        picture.bytesPerRow / pixel > UINT32_MAX || !state.canShare(picture.kind)) {
        state.fail("shared memory of this kind, or with rows of this length, cannot be read");
        return {};
    }
    SharedBuffer buffer(*state.device, *size, picture.kind);
    buffer.import(picture);
    uint64_t created = 0;
    const auto image = state.device->images().acquire(vulkanFormat(picture.format), picture.width,
                                                      picture.height, created);
    state.device->runOnce([&](VkCommandBuffer commands) {
        upload(state.device->functions, commands, *image, buffer.handle, 0,
               static_cast<int>(picture.width), static_cast<int>(picture.height),
               static_cast<uint32_t>(picture.bytesPerRow / pixel));
    });
    image->isNew = false;
    return state.imageOf(std::make_shared<DeviceImage>(state.device, image, picture.format,
                                                       picture.width, picture.height),
                         picture.width, picture.height, picture.format, {}, colorSpace);
} catch (...) {
    describeException(state_->lastError);
    return {};
}
