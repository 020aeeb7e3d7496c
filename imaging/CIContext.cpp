#include "vorneffects/CIContext.h"

#include "imaging/cpu/InstructionSets.h"
#include "imaging/cpu/Renderer.h"

#include <algorithm>
#include <cmath>
#include <thread>

using namespace vorn::imaging::cpu;

struct CIContext::State {
    ContextOptions options;
    int threads = 1;
    std::string instructionSet;
    std::unique_ptr<Renderer> renderer;
    std::string lastError;

    bool fail(std::string message) {
        lastError = std::move(message);
        return false;
    }

    bool render(const CIImage& image, void* bytes, size_t bytesPerRow, const IntRect& rect,
                CIFormat format, CGColorSpace colorSpace) {
        lastError.clear();
        if (!image) return fail("there is no image to render");
        if (!bytes) return fail("there is no memory to render into");
        if (!rect.isInReach()) return fail("the rectangle to render is infinite or too far away");
        if (rect.isEmpty()) return fail("the rectangle to render is empty");
        if (bytesPerRow < static_cast<size_t>(rect.width()) * bytesPerPixel(format))
            return fail("the rows of the memory to render into are too short");
        if (renderer->render(image, rect, {bytes, bytesPerRow, format}, options.workingSpace,
                             colorSpace))
            return true;
        return fail(renderer->problem());
    }

    /// Renders the part of `bounds` that a surface or buffer has room for.
    bool renderToMemory(const CIImage& image, PixelMemory& memory, CGRect bounds,
                        CGColorSpace colorSpace) {
        IntRect rect = IntRect::around(bounds);
        rect.x1 = std::min(rect.x1, rect.x0 + static_cast<int>(memory.width()));
        rect.y1 = std::min(rect.y1, rect.y0 + static_cast<int>(memory.height()));
        const size_t rowsAbove =
            memory.height() - static_cast<uint32_t>(std::max(0, rect.height()));
        return render(image, memory.mutableBytes() + rowsAbove * memory.bytesPerRow(),
                      memory.bytesPerRow(), rect, memory.format(), colorSpace);
    }
};

CIContext::CIContext(ContextOptions options) : state_(std::make_unique<State>()) {
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    state_->threads = std::clamp(options.threads > 0 ? options.threads : cores, 1, 1024);
    if (options.device == DeviceKind::Reference) {
        state_->threads = 1;
        state_->instructionSet = "reference";
        state_->renderer = makeReferenceRenderer();
    } else {
        std::vector<std::string> levels = supportedLevels();
        const auto chosen = std::find(levels.begin(), levels.end(), options.instructionSet);
        if (chosen != levels.end()) levels.erase(levels.begin(), chosen);
        state_->instructionSet = levels.empty() ? "none" : levels.front();
        state_->renderer = makeTileRenderer(state_->threads, std::move(levels));
    }
    state_->options = std::move(options);
}

CIContext::~CIContext() = default;

bool CIContext::render(const CIImage& image, void* bytes, size_t bytesPerRow, CGRect bounds,
                       CIFormat format, CGColorSpace colorSpace) {
    return state_->render(image, bytes, bytesPerRow, IntRect::around(bounds), format, colorSpace);
}

bool CIContext::renderToIOSurface(const CIImage& image, Surface& surface, CGRect bounds,
                                  CGColorSpace colorSpace) {
    return state_->renderToMemory(image, surface, bounds, colorSpace);
}

bool CIContext::renderToCVPixelBuffer(const CIImage& image, PixelBuffer& buffer, CGRect bounds,
                                      CGColorSpace colorSpace) {
    return state_->renderToMemory(image, buffer, bounds, colorSpace);
}

const std::string& CIContext::lastError() const {
    return state_->lastError;
}
const ContextOptions& CIContext::options() const {
    return state_->options;
}
int CIContext::threads() const {
    return state_->threads;
}
const char* CIContext::instructionSet() const {
    return state_->instructionSet.c_str();
}
uint64_t CIContext::pixelAllocations() const {
    return state_->renderer->pixelAllocations();
}
