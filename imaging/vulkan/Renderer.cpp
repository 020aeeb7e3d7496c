#include "imaging/vulkan/Renderer.h"

#include "platform/Guard.h"
#include "platform/Messages.h"

#include <algorithm>
#include <cstring>

namespace vorn::imaging::vulkan {

using cpu::Edge;
using cpu::IntRect;
using cpu::Step;
using cpu::Target;

namespace {

constexpr VkImageSubresourceRange kWholeImage{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
constexpr VkImageSubresourceLayers kLayer{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
constexpr uint32_t kStamps = 4; ///< begin, uploaded, computed, downloaded

Store storeOf(CIFormat format) {
    switch (format) {
    case CIFormat::RGBA8:
        return Store::RGBA8;
    case CIFormat::BGRA8:
        return Store::BGRA8;
    case CIFormat::ARGB8:
        return Store::ARGB8;
    default:
        return Store::AsItIs;
    }
}

CIFormat formatOf(const kernelabi::SourceView& memory) {
    if (memory.layout == kernelabi::kFloat) return CIFormat::RGBAf;
    if (memory.layout == kernelabi::kHalf) return CIFormat::RGBAh;
    return memory.order.r == 2   ? CIFormat::BGRA8
           : memory.order.r == 1 ? CIFormat::ARGB8
                                 : CIFormat::RGBA8;
}

/// What a shader is told of where its pixels lie, and of each source; see kernelc.
struct CallSource {
    float extent[4];
    int32_t x, y, size, place;
};

int32_t halves(int low, int high) {
    return static_cast<int32_t>(static_cast<uint32_t>(low) | static_cast<uint32_t>(high) << 16);
}

VkDeviceSize roundedUp(VkDeviceSize size, VkDeviceSize step) {
    return (size + step - 1) / step * step;
}

/// What a layout is good for here, and at which stage.
struct Access {
    VkImageLayout layout;
    VkPipelineStageFlags stages;
    VkAccessFlags access;
};
constexpr Access kUndefined{VK_IMAGE_LAYOUT_UNDEFINED, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, 0};
constexpr Access kComputed{VK_IMAGE_LAYOUT_GENERAL, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
                           VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT};
constexpr Access kUploaded{VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
                           VK_ACCESS_TRANSFER_WRITE_BIT};
constexpr Access kDownloaded{VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
                             VK_ACCESS_TRANSFER_READ_BIT};

void changeLayout(const Functions& f, VkCommandBuffer commands, const Image& image, Access from,
                  Access to) {
    auto barrier = typed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
    barrier.srcAccessMask = from.access;
    barrier.dstAccessMask = to.access;
    barrier.oldLayout = from.layout;
    barrier.newLayout = to.layout;
    barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.image = image.handle();
    barrier.subresourceRange = kWholeImage;
    f.CmdPipelineBarrier(commands, from.stages, to.stages, 0, 0, nullptr, 0, nullptr, 1, &barrier);
}

} // namespace

void download(const Functions& f, VkCommandBuffer commands, const Image& image, VkBuffer buffer,
              int width, int height) {
    VkBufferImageCopy copy{};
    copy.imageSubresource = kLayer;
    copy.imageExtent = {static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1};
    changeLayout(f, commands, image, kComputed, kDownloaded);
    f.CmdCopyImageToBuffer(commands, image.handle(), kDownloaded.layout, buffer, 1, &copy);
    changeLayout(f, commands, image, kDownloaded, kComputed);
    const VkMemoryBarrier memory{VK_STRUCTURE_TYPE_MEMORY_BARRIER, nullptr,
                                 VK_ACCESS_TRANSFER_WRITE_BIT, VK_ACCESS_HOST_READ_BIT};
    f.CmdPipelineBarrier(commands, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0, 1,
                         &memory, 0, nullptr, 0, nullptr);
}

void upload(const Functions& f, VkCommandBuffer commands, const Image& image, VkBuffer buffer,
            VkDeviceSize offset, int width, int height, uint32_t pixelsPerRow) {
    VkBufferImageCopy copy{};
    copy.bufferOffset = offset;
    copy.bufferRowLength = pixelsPerRow;
    copy.imageSubresource = kLayer;
    copy.imageExtent = {static_cast<uint32_t>(width), static_cast<uint32_t>(height), 1};
    // What is in it is not kept, but earlier kernels must be done with it.
    const Access before{VK_IMAGE_LAYOUT_UNDEFINED, kComputed.stages | kUploaded.stages,
                        VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT};
    changeLayout(f, commands, image, before, kUploaded);
    f.CmdCopyBufferToImage(commands, buffer, image.handle(), kUploaded.layout, 1, &copy);
    changeLayout(f, commands, image, kUploaded, kComputed);
}

VkFormat vulkanFormat(CIFormat format) {
    return format == CIFormat::RGBAf   ? VK_FORMAT_R32G32B32A32_SFLOAT
           : format == CIFormat::RGBAh ? VK_FORMAT_R16G16B16A16_SFLOAT
                                       : VK_FORMAT_R8G8B8A8_UNORM;
}

Renderer::Renderer(std::shared_ptr<Device> device) : device_(std::move(device)) {}

Renderer::~Renderer() {
    const Functions& f = device_->functions;
    for (Frame& frame : frames_) {
        try {
            device_->wait(frame.ticket);
        } catch (...) {
            // A lost device has nothing under way.
        }
        f.DestroyCommandPool(device_->handle(), frame.commandPool, nullptr);
        f.DestroyDescriptorPool(device_->handle(), frame.descriptorPool, nullptr);
        f.DestroyQueryPool(device_->handle(), frame.queries, nullptr);
    }
    device_->pipelines().save();
}

// ---- Frames -------------------------------------------------------------------------------------

bool Renderer::render(const CIImage& image, const IntRect& rect, const Target& target,
                      CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept {
    const uint64_t ticket = start(image, rect, target, workingSpace, outputSpace);
    return ticket != 0 && finish(ticket);
}

uint64_t Renderer::start(const CIImage& image, const IntRect& rect, const Target& target,
                         CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept {
    if (!begin(image, rect, target.format, workingSpace, outputSpace)) return 0;
    return compute(rect, target, {.format = target.format});
}

bool Renderer::finish(uint64_t ticket) noexcept {
    for (Frame& frame : frames_)
        if (frame.ticket == ticket) finishFrame(frame);
    problem_ = "";
    for (auto outcome = outcomes_.begin(); outcome != outcomes_.end(); ++outcome) {
        if (outcome->ticket != ticket) continue;
        const bool isGood = outcome->isGood;
        problem_.swap(outcome->problem);
        outcomes_.erase(outcome);
        return isGood;
    }
    return false;
}

void Renderer::forget(uint64_t ticket) noexcept {
    for (Frame& frame : frames_)
        if (frame.ticket == ticket) frame.target.bytes = nullptr;
    std::erase_if(outcomes_, [&](const Outcome& outcome) { return outcome.ticket == ticket; });
}

std::shared_ptr<DeviceImage> Renderer::renderOnDevice(const CIImage& image, const IntRect& rect,
                                                      CIFormat format, CGColorSpace workingSpace,
                                                      CGColorSpace outputSpace) noexcept {
    if (!begin(image, rect, format, workingSpace, outputSpace)) return nullptr;
    std::shared_ptr<Image> result;
    if (compute(rect, {}, {.format = format, .result = &result}) == 0) return nullptr;
    try {
        return std::make_shared<DeviceImage>(device_, std::move(result), format,
                                             static_cast<uint32_t>(rect.width()),
                                             static_cast<uint32_t>(rect.height()));
    } catch (...) {
        describeException(problem_);
        return nullptr;
    }
}

bool Renderer::renderInto(const CIImage& image, const IntRect& rect, const HostTarget& target,
                          CIFormat format, CGColorSpace workingSpace,
                          CGColorSpace outputSpace) noexcept {
    if (!begin(image, rect, format, workingSpace, outputSpace)) return false;
    return compute(rect, {}, {.format = format, .host = &target}) != 0;
}

void Renderer::trim() noexcept {
    kept_.clear();
    nothing_.reset();
    for (Frame& frame : frames_) {
        if (frame.isUnderWay) continue;
        frame.upload.reset();
        frame.download.reset();
        frame.calls.reset();
    }
    plan_ = {};
    device_->images().clear();
}

bool Renderer::begin(const CIImage& image, const IntRect& rect, CIFormat format,
                     CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept try {
    problem_.clear();
    // A wide target is computed in 32-bit floats throughout.
    intermediate_ = vulkanFormat(format == CIFormat::RGBAf ? format : CIFormat::RGBAh);
    isTargetInBytes_ = bytesPerPixel(format) == 4;
    if (device_->isLost()) throw Failure("the Vulkan device was lost");
    if (!plan_.build(image, rect, {nullptr, workingSpace, outputSpace}))
        throw Failure(plan_.problem());
    if (!copy_) copy_ = frameworkKernel("CI_copy");
    if (!copy_) throw Failure("the framework's copy kernel could not be loaded");
    return true;
} catch (...) {
    describeException(problem_);
    return false;
}

uint64_t Renderer::compute(const IntRect& rect, const Target& target,
                           const Destination& destination) noexcept {
    uint64_t ticket = 0;
    try {
        Frame& frame = frames_[next_];
        finishFrame(frame); // its caller will find out how it went
        if (device_->isLost()) throw Failure("the Vulkan device was lost");
        prepare(frame);
        frame.target = target;
        frame.width = rect.width();
        frame.height = rect.height();
        record(frame, rect, destination);
        outcomes_.reserve(outcomes_.size() + 1); // nothing may fail once it is submitted
        ticket = device_->submit(frame.commands, waitFor_,
                                 destination.host ? destination.host->done : SemaphoreValue{});
        frame.ticket = ticket;
        frame.isUnderWay = true;
        if (target.bytes) outcomes_.push_back({ticket});
        next_ = (next_ + 1) % kFrames;
    } catch (...) {
        describeException(problem_);
    }
    for (const Used& used : used_) {
        if (ticket != 0)
            used.image->lastTicket = ticket;
        else if (used.isNew)
            used.image->isNew = true;
    }
    if (ticket == 0) {
        kept_.clear(); // what was to be uploaded has not been
        nothing_.reset();
    }
    used_.clear();
    takenOver_.clear();
    waitFor_.clear();
    return ticket;
}

void Renderer::finishFrame(Frame& frame) noexcept {
    if (!frame.isUnderWay) return;
    frame.isUnderWay = false;
    const auto outcome = std::find_if(outcomes_.begin(), outcomes_.end(), [&](const Outcome& one) {
        return one.ticket == frame.ticket;
    });
    try {
        fetch(frame);
        if (outcome != outcomes_.end()) outcome->isGood = true;
    } catch (...) {
        if (outcome != outcomes_.end()) describeException(outcome->problem);
    }
}

/// Waits until a frame is done and brings its pixels to its target.
void Renderer::fetch(Frame& frame) {
    const Functions& f = device_->functions;
    times_ = {};
    device_->wait(frame.ticket);
    uint64_t at[kStamps] = {};
    if (frame.queries &&
        f.GetQueryPoolResults(device_->handle(), frame.queries, 0, kStamps, sizeof at, at,
                              sizeof at[0], VK_QUERY_RESULT_64_BIT) == VK_SUCCESS)
        times_ = {device_->secondsBetween(at[0], at[1]), device_->secondsBetween(at[1], at[2]),
                  device_->secondsBetween(at[2], at[3])};
    if (!frame.target.bytes) return;
    frame.download->invalidate();
    const size_t row = static_cast<size_t>(frame.width) * bytesPerPixel(frame.target.format);
    auto* to = static_cast<uint8_t*>(frame.target.bytes);
    const uint8_t* from = frame.download->bytes();
    if (row == frame.target.bytesPerRow) {
        std::memcpy(to, from, row * static_cast<size_t>(frame.height));
        return;
    }
    for (int y = 0; y < frame.height; ++y, to += frame.target.bytesPerRow, from += row)
        std::memcpy(to, from, row);
}

void Renderer::prepare(Frame& frame) {
    const Functions& f = device_->functions;
    const VkDevice device = device_->handle();
    frame.ticket = 0;
    // Each on its own, so that what could not be made is made the next time.
    if (!frame.commandPool) {
        auto pool = typed<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
        pool.queueFamilyIndex = device_->queueFamily();
        VkCommandPool made = VK_NULL_HANDLE;
        device_->check(f.CreateCommandPool(device, &pool, nullptr, &made), "making a command pool");
        frame.commandPool = made;
    }
    if (!frame.commands) {
        auto info =
            typed<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
        info.commandPool = frame.commandPool;
        info.commandBufferCount = 1;
        VkCommandBuffer made = VK_NULL_HANDLE;
        device_->check(f.AllocateCommandBuffers(device, &info, &made), "making a command buffer");
        frame.commands = made;
    }
    if (!frame.queries && device_->hasTimeStamps()) {
        auto queries = typed<VkQueryPoolCreateInfo>(VK_STRUCTURE_TYPE_QUERY_POOL_CREATE_INFO);
        queries.queryType = VK_QUERY_TYPE_TIMESTAMP;
        queries.queryCount = kStamps;
        VkQueryPool made = VK_NULL_HANDLE;
        device_->check(f.CreateQueryPool(device, &queries, nullptr, &made), "making a query pool");
        frame.queries = made;
    }
    // One set for each kernel, and one for a copy into the target.
    const auto sets = static_cast<uint32_t>(plan_.steps().size()) + 1;
    if (frame.sets < sets) {
        f.DestroyDescriptorPool(device, frame.descriptorPool, nullptr);
        frame.descriptorPool = VK_NULL_HANDLE;
        frame.sets = 0;
        const uint32_t room = std::max(sets, 64u);
        const VkDescriptorPoolSize sizes[] = {
            {VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, room},
            {VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE, room * cpu::kMostSources},
            {VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, room}};
        auto info =
            typed<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
        info.maxSets = room;
        info.poolSizeCount = static_cast<uint32_t>(std::size(sizes));
        info.pPoolSizes = sizes;
        VkDescriptorPool made = VK_NULL_HANDLE;
        device_->check(f.CreateDescriptorPool(device, &info, nullptr, &made),
                       "making a descriptor pool");
        frame.descriptorPool = made;
        frame.sets = room;
    } else {
        device_->check(f.ResetDescriptorPool(device, frame.descriptorPool, 0),
                       "emptying a descriptor pool");
    }
    device_->check(f.ResetCommandPool(device, frame.commandPool, 0), "emptying a command pool");
}

// ---- Images of a render -------------------------------------------------------------------------

size_t Renderer::use(std::shared_ptr<Image> image) {
    used_.push_back({std::move(image)});
    return used_.size() - 1;
}

/// An image for `rect`: one that this render needs no longer, or one from the pool.
size_t Renderer::newImage(Frame& frame, VkFormat format, const IntRect& rect) {
    const auto limit = static_cast<int>(device_->largestSide());
    if (rect.width() > limit || rect.height() > limit)
        throw Failure("an image of " + std::to_string(rect.width()) + " by " +
                      std::to_string(rect.height()) + " pixels is larger than " +
                      device_->properties().deviceName + " takes, " + std::to_string(limit));
    const auto width = static_cast<uint32_t>(rect.width()),
               height = static_cast<uint32_t>(rect.height());
    for (size_t i = 0; i < used_.size(); ++i) {
        const Image& image = *used_[i].image;
        if (!used_[i].isSpare || image.format() != format || image.width() < width ||
            image.height() < height)
            continue;
        used_[i].isSpare = false;
        return i;
    }
    const size_t index = use(device_->images().acquire(format, width, height, pixelAllocations_));
    Image& image = *used_[index].image;
    if (image.isNew) {
        changeLayout(device_->functions, frame.commands, image, kUndefined, kComputed);
        image.isNew = false;
        used_[index].isNew = true;
    }
    return index;
}

/// An image of the host's in the layout that kernels work with.
size_t Renderer::takeOver(Frame& frame, std::shared_ptr<Image> image, const Handover& handover) {
    for (size_t i = 0; i < used_.size(); ++i)
        if (used_[i].image->handle() == image->handle()) {
            used_.push_back({std::move(image)}); // its views have to last as well
            return used_.size() - 1;
        }
    const VkPipelineStageFlags stages =
        VK_PIPELINE_STAGE_TRANSFER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;
    changeLayout(
        device_->functions, frame.commands, *image,
        {handover.layout, stages, VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT},
        kComputed);
    if (handover.readyAt.semaphore) waitFor_.push_back(handover.readyAt);
    takenOver_.push_back({image, handover.layout});
    return use(std::move(image));
}

void Renderer::handBack(Frame& frame) {
    for (const TakenOver& taken : takenOver_)
        if (taken.layout != VK_IMAGE_LAYOUT_UNDEFINED)
            changeLayout(device_->functions, frame.commands, *taken.image, kComputed,
                         {taken.layout, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, 0});
}

/// One reader of each of these sources has been recorded.
void Renderer::release(const Edge* edges, int edgeCount) {
    for (int e = 0; e < edgeCount; ++e) {
        Computed& source = computed_[static_cast<size_t>(edges[e].step)];
        if (--source.readers == 0 && source.mayBeSpare) used_[source.image].isSpare = true;
    }
}

/// Finds out where the pixels of each step in memory come from: an image that is on the device
/// already, or an upload.
void Renderer::findSources(Frame& frame) {
    std::erase_if(kept_, [](const KeptUpload& upload) { return upload.node.expired(); });
    computed_.assign(plan_.steps().size(), {});
    uploads_.clear();
    uploadBytes_ = 0;
    const VkDeviceSize alignment =
        std::max<VkDeviceSize>(16, device_->properties().limits.optimalBufferCopyOffsetAlignment);
    ++computed_[static_cast<size_t>(plan_.root().step)].readers;
    for (size_t i = 0; i < plan_.steps().size(); ++i) {
        const Step& step = plan_.steps()[i];
        Computed& computed = computed_[i];
        if (step.needed.isEmpty()) continue;
        for (int e = 0; e < step.edgeCount; ++e)
            ++computed_[static_cast<size_t>(plan_.edgesOf(step)[e].step)].readers;
        if (!step.isMemory) continue;
        computed.order = formatOf(step.memory);
        std::shared_ptr<DevicePixels> pixels = step.node->pixels.device;
        if (const auto* memory = dynamic_cast<const PixelMemory*>(pixels.get()))
            pixels = memory->onDevice();
        const auto* there = dynamic_cast<const DeviceImage*>(pixels.get());
        if (there && there->device() == device_) {
            computed.image = there->handover() ? takeOver(frame, there->image(), *there->handover())
                                               : use(there->image());
            computed.rect = step.memoryRect;
            continue;
        }
        // Bitmaps keep still as long as their image lives; pixel buffers and surfaces do not.
        const bool mayKeep = keepsUploads && step.node->origin != Node::Origin::PixelBuffer &&
                             step.node->origin != Node::Origin::Surface;
        const auto known = std::find_if(kept_.begin(), kept_.end(), [&](const KeptUpload& upload) {
            return upload.key == step.node;
        });
        computed.rect = step.needed;
        if (mayKeep && known != kept_.end()) {
            if (known->rect.contains(step.needed)) {
                computed.image = use(known->image);
                computed.rect = known->rect;
                continue;
            }
            // Whoever asks for one part after the other gets the whole, once.
            const auto limit = static_cast<int>(device_->largestSide());
            if (step.memoryRect.width() <= limit && step.memoryRect.height() <= limit)
                computed.rect = step.memoryRect;
            kept_.erase(known);
        }
        computed.image = newImage(frame, vulkanFormat(computed.order), computed.rect);
        uploads_.push_back({static_cast<int>(i), uploadBytes_});
        uploadBytes_ += roundedUp(static_cast<VkDeviceSize>(computed.rect.area()) *
                                      bytesPerPixel(computed.order),
                                  alignment);
        if (!mayKeep) continue;
        constexpr size_t mostKept = 64;
        if (kept_.size() == mostKept) kept_.erase(kept_.begin());
        kept_.push_back(
            {step.node->weak_from_this(), step.node, used_[computed.image].image, computed.rect});
    }
}

/// Copies sources to where the device fetches them.
void Renderer::copySources(Frame& frame) {
    if (uploads_.empty()) return;
    if (!frame.upload || frame.upload->size() < uploadBytes_) {
        frame.upload.reset();
        frame.upload = std::make_unique<Buffer>(*device_, uploadBytes_, Buffer::Use::Upload);
        ++pixelAllocations_;
    }
    const cpu::Plan::Reading reading(plan_);
    for (const Upload& upload : uploads_) {
        const Step& step = plan_.steps()[static_cast<size_t>(upload.step)];
        const Computed& computed = computed_[static_cast<size_t>(upload.step)];
        const IntRect& rect = computed.rect;
        const size_t pixel = bytesPerPixel(computed.order);
        const size_t row = static_cast<size_t>(rect.width()) * pixel;
        const PixelSource& pixels = step.node->pixels;
        const uint8_t* from = pixels.device ? pixels.device->hostBytes() : pixels.bytes;
        if (!from) throw Failure("an image of another device cannot be read");
        from += static_cast<size_t>(step.memoryRect.y1 - rect.y1) * pixels.bytesPerRow +
                static_cast<size_t>(rect.x0 - step.memoryRect.x0) * pixel;
        uint8_t* to = frame.upload->bytes() + upload.offset;
        for (int y = 0; y < rect.height(); ++y, to += row, from += pixels.bytesPerRow)
            std::memcpy(to, from, row);
        vulkan::upload(device_->functions, frame.commands, *used_[computed.image].image,
                       frame.upload->handle(), upload.offset, rect.width(), rect.height());
    }
    frame.upload->flush();
}

// ---- Recording ----------------------------------------------------------------------------------

/// Between kernels, and before the first one after whatever earlier renders did.
void Renderer::barrier(Frame& frame) {
    constexpr VkPipelineStageFlags stages =
        VK_PIPELINE_STAGE_TRANSFER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;
    const VkMemoryBarrier memory{VK_STRUCTURE_TYPE_MEMORY_BARRIER, nullptr,
                                 VK_ACCESS_SHADER_WRITE_BIT | VK_ACCESS_TRANSFER_WRITE_BIT,
                                 VK_ACCESS_SHADER_READ_BIT | VK_ACCESS_SHADER_WRITE_BIT |
                                     VK_ACCESS_TRANSFER_READ_BIT | VK_ACCESS_TRANSFER_WRITE_BIT};
    device_->functions.CmdPipelineBarrier(frame.commands, stages, stages, 0, 1, &memory, 0, nullptr,
                                          0, nullptr);
    ++group_;
}

void Renderer::stamp(Frame& frame, uint32_t number) {
    if (frame.queries)
        device_->functions.CmdWriteTimestamp(frame.commands, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT,
                                             frame.queries, number);
}

void Renderer::record(Frame& frame, const IntRect& rect, const Destination& destination) {
    const Functions& f = device_->functions;
    auto begin = typed<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
    begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
    device_->check(f.BeginCommandBuffer(frame.commands, &begin), "recording");
    if (frame.queries) f.CmdResetQueryPool(frame.commands, frame.queries, 0, kStamps);
    // Images that earlier renders worked with are used again.
    barrier(frame);
    stamp(frame, 0);
    findSources(frame);
    copySources(frame);
    stamp(frame, 1);
    if (nothing_)
        static_cast<void>(use(nothing_));
    else
        nothing_ = used_[newImage(frame, VK_FORMAT_R8G8B8A8_UNORM, {0, 0, 1, 1})].image;
    for (const Used& used : used_)
        if (destination.host && used.image->handle() == destination.host->image->handle())
            throw Failure("an image cannot be read and rendered into at once");
    const size_t target = destination.host
                              ? takeOver(frame, destination.host->image, destination.host->handover)
                              : newImage(frame, vulkanFormat(destination.format), rect);
    recordKernels(frame, rect, target, destination.format);
    stamp(frame, 2);
    if (destination.result) {
        *destination.result = used_[target].image;
    } else if (!destination.host) {
        const VkDeviceSize size =
            static_cast<VkDeviceSize>(rect.area()) * bytesPerPixel(destination.format);
        if (!frame.download || frame.download->size() < size) {
            frame.download.reset();
            frame.download = std::make_unique<Buffer>(*device_, size, Buffer::Use::Download);
            ++pixelAllocations_;
        }
        download(f, frame.commands, *used_[target].image, frame.download->handle(), rect.width(),
                 rect.height());
    }
    handBack(frame);
    stamp(frame, 3);
    device_->check(f.EndCommandBuffer(frame.commands), "recording");
}

VkFormat Renderer::formatKeptOf(const Step& step) {
    if (step.bits == Node::Bits::Floats) return vulkanFormat(CIFormat::RGBAf);
    if (step.bits == Node::Bits::Usual || !isTargetInBytes_) return intermediate_;
    for (int e = 0; e < step.edgeCount; ++e) {
        const auto source = static_cast<size_t>(plan_.edgesOf(step)[e].step);
        if (!plan_.steps()[source].isMemory || bytesPerPixel(computed_[source].order) != 4)
            return intermediate_;
    }
    return vulkanFormat(CIFormat::RGBA8);
}

void Renderer::recordKernels(Frame& frame, const IntRect& rect, size_t target, CIFormat format) {
    callsUsed_ = 0;
    VkDeviceSize calls = 0;
    for (const Step& step : plan_.steps())
        if (step.function)
            calls += roundedUp(kernelc::callBytes(step.function->declaration()), 256);
    if (calls > 0 && (!frame.calls || frame.calls->size() < calls)) {
        frame.calls.reset();
        frame.calls = std::make_unique<Buffer>(*device_, std::max<VkDeviceSize>(calls, 4096),
                                               Buffer::Use::Arguments);
    }
    const auto root = static_cast<size_t>(plan_.root().step);
    for (size_t i = 0; i < plan_.steps().size(); ++i) {
        const Step& step = plan_.steps()[i];
        if (step.isMemory || step.needed.isEmpty()) continue;
        Computed& computed = computed_[i];
        // The last kernel writes the result itself where it fills all of it.
        const bool isResult = i == root && step.needed == rect;
        if (!isResult) {
            // It is rounded to the format of the result either way, so that a part of a picture is
            // the same as that part of the whole.
            computed.rect = step.needed;
            computed.order = i == root ? format : CIFormat::RGBAf;
            computed.image =
                newImage(frame, i == root ? vulkanFormat(format) : formatKeptOf(step), step.needed);
            computed.mayBeSpare = true;
        }
        runKernel(frame, *step.function, step.arguments, plan_.edgesOf(step), step.edgeCount,
                  step.needed, isResult ? target : computed.image,
                  i == root ? storeOf(format) : Store::AsItIs);
        release(plan_.edgesOf(step), step.edgeCount);
        if (isResult) {
            if (frame.calls) frame.calls->flush();
            return;
        }
    }
    // Transparent where the image shows nothing.
    runKernel(frame, *copy_, nullptr, &plan_.root(), 1, rect, target, storeOf(format));
    if (frame.calls) frame.calls->flush();
}

/// Runs a kernel for the pixels `rect`, which go into the upper left corner of the target.
void Renderer::runKernel(Frame& frame, const LibraryFunction& function, const float* arguments,
                         const Edge* edges, int edgeCount, const IntRect& rect, size_t target,
                         Store store) {
    const Functions& f = device_->functions;
    const Pipeline& pipeline = device_->pipelines().pipelineFor(function, store);
    auto setInfo =
        typed<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
    setInfo.descriptorPool = frame.descriptorPool;
    setInfo.descriptorSetCount = 1;
    setInfo.pSetLayouts = &pipeline.sets;
    VkDescriptorSet set = VK_NULL_HANDLE;
    device_->check(f.AllocateDescriptorSets(device_->handle(), &setInfo, &set),
                   "making a descriptor set");

    // What the shader is told: see kernelc. Larger than the largest there can be.
    uint8_t call[kernelc::kRegionBytes + cpu::kMostSources * sizeof(CallSource) + 4096];
    if (pipeline.callBytes > sizeof call)
        throw Failure("kernel '" + function.declaration().name + "' has too many arguments");
    const int32_t region[] = {rect.x0, rect.y0, halves(rect.width(), rect.height()), 0};
    std::memcpy(call, region, sizeof region);
    VkDescriptorImageInfo textures[cpu::kMostSources];
    bool mustWait = used_[target].lastUsed == group_;
    for (int e = 0; e < edgeCount; ++e) {
        const Edge& edge = edges[e];
        const Computed& source = computed_[static_cast<size_t>(edge.step)];
        const bool isThere = source.image != kNone;
        const IntRect pixels = isThere ? source.rect.intersection(edge.clip) : IntRect{};
        CallSource told{{static_cast<float>(edge.extent.x), static_cast<float>(edge.extent.y),
                         static_cast<float>(edge.extent.width),
                         static_cast<float>(edge.extent.height)},
                        pixels.x0,
                        pixels.y0,
                        halves(pixels.width(), pixels.height()),
                        0};
        if (!pixels.isEmpty())
            told.place = halves(pixels.x0 - source.rect.x0, source.rect.y1 - pixels.y1);
        if (edge.nearest) told.place |= INT32_MIN;
        std::memcpy(call + kernelc::kRegionBytes + static_cast<size_t>(e) * sizeof told, &told,
                    sizeof told);
        Image& image = isThere ? *used_[source.image].image : *nothing_;
        textures[e] = {VK_NULL_HANDLE, image.readView(isThere ? source.order : CIFormat::RGBA8),
                       VK_IMAGE_LAYOUT_GENERAL};
        if (isThere) mustWait |= used_[source.image].lastWritten == group_;
    }
    const size_t before =
        kernelc::kRegionBytes + static_cast<size_t>(edgeCount) * sizeof(CallSource);
    if (pipeline.callBytes > before)
        std::memcpy(call + before, arguments, pipeline.callBytes - before);
    if (mustWait) barrier(frame);
    for (int e = 0; e < edgeCount; ++e)
        if (const size_t image = computed_[static_cast<size_t>(edges[e].step)].image;
            image != kNone)
            used_[image].lastUsed = group_;
    used_[target].lastUsed = used_[target].lastWritten = group_;

    const VkDescriptorImageInfo output{VK_NULL_HANDLE, used_[target].image->writeView(),
                                       VK_IMAGE_LAYOUT_GENERAL};
    VkWriteDescriptorSet writes[3] = {};
    uint32_t count = 0;
    const auto write = [&](uint32_t binding, VkDescriptorType type, uint32_t number) -> auto& {
        VkWriteDescriptorSet& w = writes[count++];
        w.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
        w.dstSet = set;
        w.dstBinding = binding;
        w.descriptorCount = number;
        w.descriptorType = type;
        return w;
    };
    write(0, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1).pImageInfo = &output;
    if (edgeCount > 0)
        write(1, VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE, static_cast<uint32_t>(edgeCount)).pImageInfo =
            textures;
    VkDescriptorBufferInfo buffer{};
    if (!pipeline.pushesCall) {
        std::memcpy(frame.calls->bytes() + callsUsed_, call, pipeline.callBytes);
        buffer = {frame.calls->handle(), callsUsed_, pipeline.callBytes};
        callsUsed_ += roundedUp(pipeline.callBytes, 256); // no device asks for more
        write(2, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, 1).pBufferInfo = &buffer;
    }
    f.UpdateDescriptorSets(device_->handle(), count, writes, 0, nullptr);
    f.CmdBindPipeline(frame.commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline.handle);
    f.CmdBindDescriptorSets(frame.commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline.layout, 0, 1,
                            &set, 0, nullptr);
    if (pipeline.pushesCall)
        f.CmdPushConstants(frame.commands, pipeline.layout, VK_SHADER_STAGE_COMPUTE_BIT, 0,
                           pipeline.callBytes, call);
    constexpr uint32_t side = 16; // of a workgroup, see kernelc
    f.CmdDispatch(frame.commands, (static_cast<uint32_t>(rect.width()) + side - 1) / side,
                  (static_cast<uint32_t>(rect.height()) + side - 1) / side, 1);
}

// ---- Pixels that stay on the device -------------------------------------------------------------

const uint8_t* DeviceImage::hostBytes() noexcept {
    const std::lock_guard lock(mutex_);
    if (!bytes_.empty()) return bytes_.data();
    if (handover_) return nullptr;
    const size_t size = size_t{width_} * height_ * bytesPerPixel(format_);
    try {
        try {
            if (device_->isLost()) throw Failure("the Vulkan device was lost");
            Buffer buffer(*device_, size, Buffer::Use::Download);
            device_->runOnce([&](VkCommandBuffer commands) {
                download(device_->functions, commands, *image_, buffer.handle(),
                         static_cast<int>(width_), static_cast<int>(height_));
            });
            buffer.invalidate();
            bytes_.assign(buffer.bytes(), buffer.bytes() + size);
        } catch (const Failure&) {
            if (!device_->isLost()) return nullptr;
            bytes_.assign(size, 0);
            report(Severity::Warning, "### a picture of %u by %u pixels was lost with its device",
                   width_, height_);
        }
    } catch (...) {
        return nullptr;
    }
    return bytes_.data();
}

} // namespace vorn::imaging::vulkan
