#include "vorneffects/CIContext.h"

#include "imaging/SessionState.h"
#include "imaging/cpu/InstructionSets.h"
#include "imaging/cpu/Renderer.h"
#include "imaging/vulkan/Renderer.h"
#include "platform/Guard.h"

#include <algorithm>
#include <cmath>
#include <thread>

using namespace vorn;
using namespace vorn::imaging;
using cpu::IntRect;
using cpu::Target;

struct CIContext::State : std::enable_shared_from_this<State> {
    std::shared_ptr<vorn::Session> session; ///< null: lent to whatever session is current
    ContextOptions options;
    int threads = 1;
    std::string instructionSet;
    std::unique_ptr<cpu::Renderer> host; ///< null where only a GPU will do
    std::shared_ptr<vulkan::Renderer> gpu;
    std::shared_ptr<SharedGpu> shared; ///< the session's filters render on the same GPU
    std::string deviceProblem, lastError;
    /// How many renders the CPU does before a GPU that failed is tried again: so many that one that
    /// fails each time, for which a driver may need seconds, costs little.
    static constexpr uint32_t kShortestPause = 8, kLongestPause = 4096;
    uint32_t pause = kShortestPause, pauseLeft = 0, sinceFailure = 0;
    bool mayGpuCome = false; ///< one that can be used now or later has been seen

    bool fail(std::string message) {
        lastError = std::move(message);
        return false;
    }
    /// Of all contexts that there was no memory for; says so and never changes.
    static const std::shared_ptr<State> none;
    static std::shared_ptr<State> make() noexcept {
        try {
            return std::make_shared<State>();
        } catch (...) {
            return none;
        }
    }

    /// What `work` gives; where it throws, the cause is the last error.
    template <class Work>
    bool guarded(const Work& work) noexcept {
        return this != none.get() && succeeds(lastError, work);
    }

    void openGpu() {
        const bool isAuto = options.device == DeviceKind::Auto;
        try {
            if (const auto device =
                    vulkan::Device::open(options.deviceName, !isAuto, deviceProblem, &mayGpuCome)) {
                auto renderer = std::make_shared<vulkan::Renderer>(device);
                renderer->keepsUploads = options.keepsUploads;
                shared = stateOf(*session).share(device);
                gpu = std::move(renderer);
            }
        } catch (...) {
            describeException(deviceProblem);
        }
        if (!gpu) pauseGpu();
        if (isAuto) deviceProblem.clear();
    }

    void pauseGpu() {
        pauseLeft = pause;
        pause = std::min(2 * pause, kLongestPause);
        sinceFailure = 0;
    }
    /// Whether to try to open a GPU for the render at hand.
    bool isTimeForGpu() {
        if (gpu) return false;
        if (!host) return true;
        if (options.device != DeviceKind::Auto || !mayGpuCome) return false;
        return pauseLeft == 0 || --pauseLeft == 0;
    }

    /// For as long as a call takes.
    vorn::Session::Scope inSession() const {
        return vorn::Session::Scope(session ? session : vorn::Session::current());
    }

    bool areSpacesKnown(CGColorSpace ofResult) const {
        return isKnown(ofResult) && isKnown(options.workingSpace);
    }

    /// What can be told to be wrong without rendering.
    bool accepts(const CIImage& image, const void* bytes, size_t bytesPerRow, const IntRect& rect,
                 CIFormat format, CGColorSpace colorSpace) {
        lastError.clear();
        if (!image) return fail("there is no image to render");
        if (!bytes) return fail("there is no memory to render into");
        if (!rect.isInReach()) return fail("the rectangle to render is infinite or too far away");
        if (rect.isEmpty()) return fail("the rectangle to render is empty");
        if (!isKnown(format)) return fail("the format of the memory to render into is none");
        if (bytesPerRow < static_cast<size_t>(rect.width()) * bytesPerPixel(format))
            return fail("the rows of the memory to render into are too short");
        if (!sizeOfRows(bytesPerRow, static_cast<size_t>(rect.height())))
            return fail("the rows of the memory to render into are longer than any memory");
        if (!areSpacesKnown(colorSpace))
            return fail("the colour space of the result or of the context is none");
        return true;
    }

    /// The GPU, opened again where it was lost or could not be opened; null where the CPU is to
    /// render.
    vulkan::Renderer* usableGpu() {
        if (gpu && gpu->device()->isLost()) {
            gpu.reset();
            shared.reset();
            pauseGpu();
        }
        if (isTimeForGpu()) openGpu();
        if (gpu && ++sinceFailure >= pause) pause = kShortestPause;
        return gpu.get();
    }

    /// The image, or the pixels that an accumulator has of it where they come to the same: both
    /// are rounded to 8 bits once.
    CIImage storedOr(const CIImage& image, const IntRect& rect, const Target& target) const {
        if (options.device == DeviceKind::Reference || bytesPerPixel(target.format) != 4 ||
            options.workingSpace != CGColorSpace::None)
            return image;
        const std::shared_ptr<const Node> pixels = image.node()->stored.get();
        return pixels && IntRect::around(pixels->extent).contains(rect) ? CIImage(pixels) : image;
    }

    bool renderOnHost(const CIImage& image, const IntRect& rect, const Target& target,
                      CGColorSpace colorSpace) {
        if (!host) return fail(deviceProblem);
        try {
            return host->render(storedOr(image, rect, target), rect, target, options.workingSpace,
                                colorSpace) ||
                   fail(host->problem());
        } catch (...) {
            describeException(lastError);
            host->trim(); // what could not be held as a whole is not kept in parts
            return false;
        }
    }

    bool render(const CIImage& image, void* bytes, size_t bytesPerRow, const IntRect& rect,
                CIFormat format, CGColorSpace colorSpace) {
        if (!accepts(image, bytes, bytesPerRow, rect, format, colorSpace)) return false;
        const Target target{bytes, bytesPerRow, format};
        if (vulkan::Renderer* const renderer = usableGpu()) {
            if (renderer->render(image, rect, target, options.workingSpace, colorSpace))
                return true;
            if (!host) return fail(renderer->problem());
        }
        return renderOnHost(image, rect, target, colorSpace);
    }

    /// Renders the part of `bounds` that a surface or buffer has room for.
    bool renderToMemory(const CIImage& image, PixelMemory& memory, CGRect bounds,
                        CGColorSpace colorSpace) {
        IntRect rect = IntRect::around(bounds);
        rect.x1 = std::min(rect.x1, rect.x0 + static_cast<int>(memory.width()));
        rect.y1 = std::min(rect.y1, rect.y0 + static_cast<int>(memory.height()));
        const bool isWhole = rect.width() == static_cast<int>(memory.width()) &&
                             rect.height() == static_cast<int>(memory.height());
        // A picture that fills all of the memory stays on the GPU until somebody looks at it here.
        if (vulkan::Renderer* const renderer =
                isWhole && image && areSpacesKnown(colorSpace) ? usableGpu() : nullptr)
            if (auto pixels = renderer->renderOnDevice(image, rect, memory.format(),
                                                       options.workingSpace, colorSpace)) {
                lastError.clear();
                memory.keepOnDevice(std::move(pixels));
                return true;
            }
        const size_t rowsAbove =
            memory.height() - static_cast<uint32_t>(std::max(0, rect.height()));
        uint8_t* const first = memory.mutableBytes();
        if (!first) return fail("the pixels to render over cannot be fetched from their device");
        return render(image, first + rowsAbove * memory.bytesPerRow(), memory.bytesPerRow(), rect,
                      memory.format(), colorSpace);
    }
};

// ---- Renders under way --------------------------------------------------------------------------

struct RenderTask::State {
    std::shared_ptr<CIContext::State> context;
    std::shared_ptr<vulkan::Renderer> renderer; ///< null when all is done
    uint64_t ticket = 0;
    bool isGood = false;
    // To render again on the CPU should the GPU fail.
    CIImage image;
    IntRect rect;
    Target target;
    CGColorSpace colorSpace = CGColorSpace::None;

    ~State() {
        if (renderer) renderer->forget(ticket);
    }
    bool wait() {
        const auto by = std::move(renderer);
        if (!by) return isGood;
        return isGood = context->guarded([&] {
            if (by->finish(ticket)) return isGood;
            if (!context->host) return context->fail(by->problem());
            return context->renderOnHost(image, rect, target, colorSpace);
        });
    }
};

RenderTask::RenderTask() = default;
RenderTask::RenderTask(RenderTask&& other) noexcept = default;
RenderTask& RenderTask::operator=(RenderTask&& other) noexcept = default;
RenderTask::~RenderTask() = default;

bool RenderTask::wait() {
    if (!state_) return false;
    const auto scope = state_->context->inSession();
    return state_->wait();
}

RenderTask CIContext::startRender(const CIImage& image, void* bytes, size_t bytesPerRow,
                                  CGRect bounds, CIFormat format, CGColorSpace colorSpace) {
    const auto scope = state_->inSession();
    RenderTask task;
    state_->guarded([&] {
        task.state_ = std::make_unique<RenderTask::State>();
        RenderTask::State& state = *task.state_;
        state.context = state_;
        const IntRect rect = IntRect::around(bounds);
        if (!state_->accepts(image, bytes, bytesPerRow, rect, format, colorSpace)) return false;
        const Target target{bytes, bytesPerRow, format};
        if (vulkan::Renderer* const renderer = state_->usableGpu()) {
            state.ticket =
                renderer->start(image, rect, target, state_->options.workingSpace, colorSpace);
            if (state.ticket != 0) {
                state.renderer = state_->gpu;
                state.image = image, state.rect = rect, state.target = target;
                state.colorSpace = colorSpace;
                return state.isGood = true;
            }
            if (!state_->host) return state_->fail(renderer->problem());
        }
        return state.isGood = state_->renderOnHost(image, rect, target, colorSpace);
    });
    return task;
}

// ---- Context ------------------------------------------------------------------------------------

const std::shared_ptr<CIContext::State> CIContext::State::none = [] {
    auto state = std::make_shared<State>();
    state->deviceProblem = state->lastError = "out of memory";
    return state;
}();

CIContext::CIContext(ContextOptions options)
    : CIContext(vorn::Session::current(), std::move(options)) {}

CIContext::CIContext(std::shared_ptr<vorn::Session> session, ContextOptions options)
    : state_(State::make()) {
    if (state_ == State::none) return;
    State& state = *state_;
    const bool isWhole = state.guarded([&] {
        state.session = session ? std::move(session) : vorn::Session::standard();
        const auto scope = state.inSession();
        const vorn::SessionOptions& ofSession = state.session->options();
        if (options.device == DeviceKind::Auto) options.device = ofSession.device;
        if (options.threads <= 0) options.threads = ofSession.threads;
        if (options.instructionSet.empty()) options.instructionSet = ofSession.instructionSet;
        if (options.deviceName.empty()) options.deviceName = ofSession.deviceName;
        const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
        state.threads = std::clamp(options.threads > 0 ? options.threads : cores, 1, 1024);
        state.options = std::move(options);
        if (state.options.device == DeviceKind::Reference) {
            state.threads = 1;
            state.instructionSet = "reference";
            state.host = cpu::makeReferenceRenderer();
            return true;
        }
        std::vector<std::string> levels = cpu::supportedLevels();
        const auto chosen = std::find(levels.begin(), levels.end(), state.options.instructionSet);
        if (chosen != levels.end()) levels.erase(levels.begin(), chosen);
        state.instructionSet = levels.empty() ? "none" : levels.front();
        if (state.options.device != DeviceKind::Vulkan)
            state.host = cpu::makeTileRenderer(state.threads, std::move(levels));
        if (state.options.device != DeviceKind::CPU) state.openGpu();
        return true;
    });
    if (isWhole) return;
    // Every render fails with the cause.
    state.host.reset();
    state.gpu.reset();
    state.deviceProblem.swap(state.lastError);
}

CIContext::~CIContext() = default;

bool CIContext::render(const CIImage& image, void* bytes, size_t bytesPerRow, CGRect bounds,
                       CIFormat format, CGColorSpace colorSpace) {
    const auto scope = state_->inSession();
    return state_->guarded([&] {
        return state_->render(image, bytes, bytesPerRow, IntRect::around(bounds), format,
                              colorSpace);
    });
}

bool CIContext::renderToIOSurface(const CIImage& image, Surface& surface, CGRect bounds,
                                  CGColorSpace colorSpace) {
    const auto scope = state_->inSession();
    return state_->guarded(
        [&] { return state_->renderToMemory(image, surface, bounds, colorSpace); });
}

bool CIContext::renderToCVPixelBuffer(const CIImage& image, PixelBuffer& buffer, CGRect bounds,
                                      CGColorSpace colorSpace) {
    const auto scope = state_->inSession();
    return state_->guarded(
        [&] { return state_->renderToMemory(image, buffer, bounds, colorSpace); });
}

bool CIContext::capture(const CIImage& image, Surface& surface, CGRect bounds,
                        CGColorSpace colorSpace) {
    std::string unwanted;
    return succeeds(unwanted, [&] {
        const BorrowedContext context;
        return context->renderToIOSurface(image, surface, bounds, colorSpace);
    });
}

void CIContext::trim() {
    std::string unwanted;
    succeeds(unwanted, [&] {
        if (state_->host) state_->host->trim();
        if (state_->gpu) state_->gpu->trim();
        if (state_->session) stateOf(*state_->session).trim();
        return true;
    });
}

BorrowedContext::BorrowedContext() : session_(vorn::Session::current()) {
    SessionState& state = stateOf(*session_);
    {
        const std::lock_guard lock(state.mutex);
        if (!state.idle.empty()) {
            context_ = std::move(state.idle.back());
            state.idle.pop_back();
        } else {
            state.idle.reserve(++state.made); // so that nothing can fail when it is given back
        }
    }
    if (!context_) {
        const DeviceKind kind =
            state.options.device == DeviceKind::Reference ? DeviceKind::Reference : DeviceKind::CPU;
        context_ = std::make_unique<CIContext>(session_, ContextOptions{.device = kind});
        context_->state_->session.reset(); // which keeps the context
    }
    gpu_ = state.gpuForFilters();
    if (gpu_) context_->state_->gpu = gpu_->borrow();
}

BorrowedContext::~BorrowedContext() {
    if (gpu_ && gpu()) gpu_->giveBack(std::exchange(context_->state_->gpu, nullptr));
    SessionState& state = stateOf(*session_);
    const std::lock_guard lock(state.mutex);
    state.idle.push_back(std::move(context_));
}

vulkan::Renderer* BorrowedContext::gpu() const {
    return context_->state_->gpu.get();
}

const std::string& CIContext::lastError() const {
    return state_->lastError;
}
const std::string& CIContext::deviceProblem() const {
    return state_->deviceProblem;
}
const ContextOptions& CIContext::options() const {
    return state_->options;
}
DeviceKind CIContext::device() const {
    const DeviceKind wanted = state_->options.device;
    return wanted != DeviceKind::Auto ? wanted : state_->gpu ? DeviceKind::Vulkan : DeviceKind::CPU;
}
std::string CIContext::deviceName() const {
    return orNothing([&]() -> std::string {
        if (state_->gpu) return state_->gpu->device()->properties().deviceName;
        return device() == DeviceKind::Reference ? "reference"
               : device() == DeviceKind::CPU     ? "cpu"
                                                 : "vulkan";
    });
}
RenderTimes CIContext::renderTimes() const {
    return state_->gpu ? state_->gpu->times() : RenderTimes{};
}
int CIContext::threads() const {
    return state_->threads;
}
const char* CIContext::instructionSet() const {
    return state_->instructionSet.c_str();
}
uint64_t CIContext::pixelAllocations() const {
    return (state_->host ? state_->host->pixelAllocations() : 0) +
           (state_->gpu ? state_->gpu->pixelAllocations() : 0);
}
