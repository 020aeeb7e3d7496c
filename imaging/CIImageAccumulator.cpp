#include "imaging/Node.h"
#include "imaging/SessionState.h"
#include "imaging/cpu/Plan.h"
#include "imaging/vulkan/Renderer.h"
#include "platform/Guard.h"
#include "platform/Messages.h"
#include "vorneffects/CIContext.h"

#include <cstdlib>
#include <cstring>

using namespace vorn;
using namespace vorn::imaging;

struct CIImageAccumulator::State {
    using Memory = std::shared_ptr<uint8_t>;

    CGRect extent;
    CIFormat format = CIFormat::RGBA8;
    cpu::IntRect rect;
    size_t bytesPerRow = 0;
    /// Pictures in memory: the one that `image` shows, and others that are free as soon as no image
    /// made from them is left.
    std::vector<Memory> pictures;
    CIImage image;

    size_t size() const { return bytesPerRow * static_cast<size_t>(rect.height()); }

    /// Memory that no image reads; null when there is none to be had.
    Memory freePicture() {
        for (const Memory& memory : pictures)
            if (memory.use_count() == 1) return memory;
        Memory memory(static_cast<uint8_t*>(std::calloc(1, size())), &std::free);
        if (memory) pictures.push_back(memory);
        return memory;
    }

    void show(const Memory& memory, std::shared_ptr<DevicePixels> device = nullptr) {
        auto node = makeNode(Node::Kind::Pixels, extent);
        node->origin = Node::Origin::Accumulator;
        node->pixels = {memory.get(),
                        static_cast<uint32_t>(rect.width()),
                        static_cast<uint32_t>(rect.height()),
                        bytesPerRow,
                        format,
                        memory,
                        std::move(device)};
        image = CIImage(std::move(node));
    }
};

CIImageAccumulator::CIImageAccumulator() : state_(std::make_unique<State>()) {}
CIImageAccumulator::~CIImageAccumulator() = default;

std::shared_ptr<CIImageAccumulator>
CIImageAccumulator::imageAccumulatorWithExtent(CGRect extent, CIFormat format) {
    const cpu::IntRect rect = cpu::IntRect::around(extent);
    if (extent.isEmpty() || !extent.isFinite() || !rect.isInReach() || !isKnown(format) ||
        static_cast<uint64_t>(rect.area()) > pixelLimit())
        return nullptr;
    return orNothing([&]() -> std::shared_ptr<CIImageAccumulator> {
        const std::shared_ptr<CIImageAccumulator> accumulator(new CIImageAccumulator);
        State& state = *accumulator->state_;
        state.extent = extent;
        state.format = format;
        state.rect = rect;
        state.bytesPerRow = static_cast<size_t>(rect.width()) * bytesPerPixel(format);
        const State::Memory memory = state.freePicture();
        if (!memory) return nullptr;
        state.show(memory);
        return accumulator;
    });
}

CGRect CIImageAccumulator::extent() const {
    return state_->extent;
}
CIFormat CIImageAccumulator::format() const {
    return state_->format;
}
CIImage CIImageAccumulator::image() const {
    return state_->image;
}

void CIImageAccumulator::setImage(const CIImage& image) {
    std::string problem;
    if (!succeeds(problem, [&] { return store(image, problem); }))
        vorn::report(vorn::Severity::Warning, "### CIImageAccumulator: %s", problem.c_str());
}

bool CIImageAccumulator::store(const CIImage& image, std::string& problem) {
    const cpu::IntRect& rect = state_->rect;
    const BorrowedContext context;
    // Where the session's filters render on a GPU, the picture is made there and stays there.
    if (vulkan::Renderer* const gpu = context.gpu(); gpu && image)
        if (auto pixels = gpu->renderOnDevice(image, rect, state_->format, CGColorSpace::None,
                                              CGColorSpace::None)) {
            state_->show(nullptr, std::move(pixels));
            return true;
        }
    const State::Memory memory = state_->freePicture();
    if (!memory) throw std::bad_alloc();
    const CGRect bounds{double(rect.x0), double(rect.y0), double(rect.width()),
                        double(rect.height())};
    if (!context->render(image, memory.get(), state_->bytesPerRow, bounds, state_->format,
                         CGColorSpace::None)) {
        problem = context->lastError();
        return false;
    }
    state_->show(memory);
    if (bytesPerPixel(state_->format) == 4) image.node()->stored.set(state_->image.sharedNode());
    return true;
}

void CIImageAccumulator::clear() {
    std::string problem;
    const bool isClear = succeeds(problem, [this] {
        const State::Memory memory = state_->freePicture();
        if (!memory) throw std::bad_alloc();
        std::memset(memory.get(), 0, state_->size());
        state_->show(memory);
        return true;
    });
    if (!isClear)
        vorn::report(vorn::Severity::Warning, "### CIImageAccumulator: %s", problem.c_str());
}
