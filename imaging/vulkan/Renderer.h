// The Vulkan device: computes a lazy image kernel by kernel, each one over the region that is
// needed of it, into images that stay on the device.
//
// A render is one command buffer: uploads of what lies in the host's memory, the kernels in the
// order of the plan with barriers where one reads what another wrote, and a copy of the result into
// memory that the host reads. Several renders may be under way; everything that they need is kept
// and used again.
#pragma once

#include "imaging/cpu/Renderer.h"
#include "imaging/vulkan/Device.h"
#include "imaging/vulkan/Pipelines.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace vorn::imaging::vulkan {

/// How an image of the host's is handed over: its layout before a render and after it, and when it
/// may be touched.
struct Handover {
    VkImageLayout layout = VK_IMAGE_LAYOUT_GENERAL;
    SemaphoreValue readyAt;
};

/// An image of the host's to render into.
struct HostTarget {
    std::shared_ptr<Image> image;
    Handover handover;
    SemaphoreValue done;
};

/// Pixels that stay on a device from frame to frame.
class DeviceImage final : public DevicePixels {
public:
    DeviceImage(std::shared_ptr<Device> device, std::shared_ptr<Image> image, CIFormat format,
                uint32_t width, uint32_t height)
        : device_(std::move(device)), image_(std::move(image)), format_(format), width_(width),
          height_(height) {}

    /// The same of an image of the host's.
    DeviceImage(std::shared_ptr<Device> device, std::shared_ptr<Image> image, CIFormat format,
                uint32_t width, uint32_t height, Handover handover)
        : DeviceImage(std::move(device), std::move(image), format, width, height) {
        handover_ = handover;
    }

    /// Null for images of the host's, and as long as there is no memory to fetch them into. What
    /// was lost with its device is transparent, so that a picture that feeds back begins anew.
    const uint8_t* hostBytes() noexcept override;

    const std::shared_ptr<Device>& device() const { return device_; }
    const std::shared_ptr<Image>& image() const { return image_; }
    CIFormat format() const { return format_; }
    const std::optional<Handover>& handover() const { return handover_; }

private:
    std::shared_ptr<Device> device_;
    std::shared_ptr<Image> image_;
    CIFormat format_;
    uint32_t width_, height_;
    std::optional<Handover> handover_;
    std::mutex mutex_;
    std::vector<uint8_t> bytes_; ///< in the host's memory, once somebody asked for it
};

/// What it does throws nothing: `problem` is set instead.
class Renderer final : public cpu::Renderer {
public:
    explicit Renderer(std::shared_ptr<Device> device);
    ~Renderer() override;

    bool render(const CIImage& image, const cpu::IntRect& rect, const cpu::Target& target,
                CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept override;

    /// Starts a render; its pixels are in the target once `finish` has returned. 0 with `problem`
    /// set when it cannot be started. The sources' memory has been read when this returns.
    uint64_t start(const CIImage& image, const cpu::IntRect& rect, const cpu::Target& target,
                   CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept;
    /// Waits for a render and fills its target. False with `problem` set. Of each render that was
    /// started, either this or `forget` is called, once.
    bool finish(uint64_t ticket) noexcept;
    /// The target of a render is there no longer.
    void forget(uint64_t ticket) noexcept;

    /// Renders into device memory that lives as long as the result; null with `problem` set.
    std::shared_ptr<DeviceImage> renderOnDevice(const CIImage& image, const cpu::IntRect& rect,
                                                CIFormat format, CGColorSpace workingSpace,
                                                CGColorSpace outputSpace) noexcept;
    /// Renders into an image of the host's.
    bool renderInto(const CIImage& image, const cpu::IntRect& rect, const HostTarget& target,
                    CIFormat format, CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept;

    /// Gives back what no render under way needs, and the idle images of the device.
    void trim() noexcept override;

    const std::shared_ptr<Device>& device() const { return device_; }
    /// How long the parts of the last finished render took on the device; zeros where that cannot
    /// be told.
    const RenderTimes& times() const { return times_; }
    /// Whether sources that have been uploaded before are used again; they are, unless a
    /// measurement wants to know what they cost.
    bool keepsUploads = true;

private:
    /// What one render needs until it is finished.
    struct Frame {
        VkCommandPool commandPool = VK_NULL_HANDLE;
        VkCommandBuffer commands = VK_NULL_HANDLE;
        VkDescriptorPool descriptorPool = VK_NULL_HANDLE;
        uint32_t sets = 0; ///< that the descriptor pool has room for
        VkQueryPool queries = VK_NULL_HANDLE;
        std::unique_ptr<Buffer> upload, download, calls;
        uint64_t ticket = 0;
        bool isUnderWay = false;
        cpu::Target target; ///< no bytes when nothing is downloaded, or nobody wants it any more
        int width = 0, height = 0;
    };
    /// A render whose caller has not asked yet how it went; its frame may have been used again.
    struct Outcome {
        uint64_t ticket = 0;
        bool isGood = false; ///< the pixels are in the target
        std::string problem = {};
    };
    /// An image that the render at hand uses. The numbers are those of the last group of commands,
    /// between two barriers, that wrote it, and that read or wrote it.
    struct Used {
        std::shared_ptr<Image> image;
        uint64_t lastWritten = 0, lastUsed = 0;
        bool isSpare = false; ///< its readers have read it
        bool isNew = false;   ///< has no layout before this render
    };
    static constexpr size_t kNone = SIZE_MAX;
    /// A step's pixels on the device.
    struct Computed {
        size_t image = kNone;
        cpu::IntRect rect; ///< the pixels that the image's upper left corner holds
        CIFormat order = CIFormat::RGBA8;
        int readers = 0;
        bool mayBeSpare = false;
    };
    struct Upload {
        int step;
        VkDeviceSize offset;
    };
    struct KeptUpload {
        std::weak_ptr<const Node> node;
        const Node* key;
        std::shared_ptr<Image> image;
        cpu::IntRect rect;
    };
    struct Destination {
        CIFormat format;
        const HostTarget* host = nullptr;         ///< none: an image of the pool
        std::shared_ptr<Image>* result = nullptr; ///< gets that image, which is else downloaded
    };

    void finishFrame(Frame& frame) noexcept;
    void fetch(Frame& frame);
    void prepare(Frame& frame);
    bool begin(const CIImage& image, const cpu::IntRect& rect, CIFormat format,
               CGColorSpace workingSpace, CGColorSpace outputSpace) noexcept;
    uint64_t compute(const cpu::IntRect& rect, const cpu::Target& target,
                     const Destination& destination) noexcept;
    void findSources(Frame& frame);
    void copySources(Frame& frame);
    void record(Frame& frame, const cpu::IntRect& rect, const Destination& destination);
    void recordKernels(Frame& frame, const cpu::IntRect& rect, size_t target, CIFormat format);
    void runKernel(Frame& frame, const LibraryFunction& function, const float* arguments,
                   const cpu::Edge* edges, int edgeCount, const cpu::IntRect& rect, size_t target,
                   Store store);
    void release(const cpu::Edge* edges, int edgeCount);
    void barrier(Frame& frame);
    void stamp(Frame& frame, uint32_t number);
    size_t use(std::shared_ptr<Image> image);
    size_t takeOver(Frame& frame, std::shared_ptr<Image> image, const Handover& handover);
    void handBack(Frame& frame);
    /// How the image of a step is kept that other steps read.
    VkFormat formatKeptOf(const cpu::Step& step);
    size_t newImage(Frame& frame, VkFormat format, const cpu::IntRect& rect);

    static constexpr size_t kFrames = 3;

    std::shared_ptr<Device> device_;
    cpu::Plan plan_;
    std::vector<Computed> computed_;
    std::vector<Upload> uploads_;
    VkDeviceSize uploadBytes_ = 0;
    std::vector<KeptUpload> kept_;
    std::array<Frame, kFrames> frames_;
    size_t next_ = 0;
    std::vector<Outcome> outcomes_;
    const LibraryFunction* copy_ = nullptr;
    std::shared_ptr<Image> nothing_; ///< stands for sources without pixels
    struct TakenOver {
        std::shared_ptr<Image> image;
        VkImageLayout layout;
    };
    std::vector<TakenOver> takenOver_; ///< images of the host's
    std::vector<SemaphoreValue> waitFor_;
    VkFormat intermediate_ = VK_FORMAT_R16G16B16A16_SFLOAT;
    bool isTargetInBytes_ = false;
    uint64_t group_ = 1; ///< of commands between two barriers
    VkDeviceSize callsUsed_ = 0;
    std::vector<Used> used_; ///< by the render that is being recorded
    RenderTimes times_;
};

VkFormat vulkanFormat(CIFormat format);

/// Copies an image's upper left corner, rows without padding, into memory that the host or others
/// read.
void download(const Functions& functions, VkCommandBuffer commands, const Image& image,
              VkBuffer buffer, int width, int height);
/// The other way round, `offset` bytes into the buffer; rows are `pixelsPerRow` apart, or follow
/// each other when that is 0. Whatever the image held is lost.
void upload(const Functions& functions, VkCommandBuffer commands, const Image& image,
            VkBuffer buffer, VkDeviceSize offset, int width, int height, uint32_t pixelsPerRow = 0);

} // namespace vorn::imaging::vulkan
