#include "imaging/cpu/InstructionSets.h"
#include "imaging/cpu/Renderer.h"

#include <new>

namespace vorn::imaging::cpu {
namespace {

using namespace kernelabi;

class ReferenceRenderer final : public Renderer {
public:
    bool render(const CIImage& image, const IntRect& rect, const Target& target,
                CGColorSpace workingSpace, CGColorSpace outputSpace) override {
        problem_.clear();
        Plan plan; // does without the promises of filters, which the other devices trust
        if (!plan.build(image, rect, {&referenceLevel(), workingSpace, outputSpace, false})) {
            problem_ = plan.problem();
            return false;
        }
        const LibraryFunction* const copy = frameworkKernel("CI_copy");
        copy_ = copy ? copy->entry(referenceLevel(), problem_) : KernelEntry{};
        if (!copy) problem_ = "the framework's copy kernel could not be loaded";
        if (!copy_.generic) return false;
        images_.clear();
        const Plan::Reading reading(plan);
        for (Step& step : plan.steps()) compute(plan, step);
        const Whole result = gather(plan, plan.root(), rect);
        call(copy_, rect, &result.view, nullptr, targetView(target));
        images_.clear();
        return true;
    }

    void trim() override { images_.clear(); }

private:
    /// An image as a whole, in floats.
    struct Whole {
        std::vector<float> pixels;
        SourceView view{};
    };

    static Whole makeWhole(const IntRect& rect) {
        constexpr int64_t kMostPixels = int64_t(1) << 28;
        if (rect.area() > kMostPixels) throw std::bad_alloc();
        Whole whole;
        whole.pixels.resize(static_cast<size_t>(rect.area()) * 4);
        whole.view = {reinterpret_cast<const uint8_t*>(whole.pixels.data()),
                      int64_t(rect.width()) * 16,
                      0,
                      kFloat,
                      {0, 1, 2, 3},
                      rect.x0,
                      rect.y0,
                      rect.width(),
                      rect.height(),
                      0,
                      {}};
        return whole;
    }

    /// What an edge reads over `rect`, with transparent pixels where there is nothing.
    Whole gather(Plan& plan, const Edge& edge, const IntRect& rect) {
        const Step& step = plan.steps()[static_cast<size_t>(edge.step)];
        Whole whole = makeWhole(rect);
        const IntRect inside = rect.intersection(edge.clip).intersection(step.memoryRect);
        if (!inside.isEmpty()) {
            const SourceView source = viewOf(step, edge);
            call(copy_, inside, &source, nullptr, partOf(asTarget(whole), rect, inside));
        }
        const SourceView told = viewOf(step, edge);
        std::copy_n(told.extent, 4, whole.view.extent);
        return whole;
    }

    void compute(Plan& plan, Step& step) {
        if (step.isMemory || step.needed.isEmpty()) return;
        // The whole image where it has an end, so that a wrong region of interest shows as a
        // difference from the other device.
        constexpr int64_t kWholePixels = 1 << 26;
        const IntRect rect = step.extent.area() <= kWholePixels ? step.extent : step.needed;
        std::vector<Whole> inputs;
        SourceView sources[kMostSources];
        for (int e = 0; e < step.edgeCount; ++e) {
            const Edge& edge = plan.edgesOf(step)[e];
            sources[e] = viewOf(plan.steps()[static_cast<size_t>(edge.step)], edge);
            if (edge.ownPixelOnly) {
                inputs.push_back(gather(plan, edge, rect));
                sources[e] = inputs.back().view;
            }
        }
        Whole& result = images_.emplace_back(makeWhole(rect));
        call(step.code, rect, sources, step.arguments, asTarget(result));
        step.memory = result.view;
        step.memoryRect = rect;
        step.isMemory = true;
    }

    static TargetView asTarget(Whole& whole) {
        return {reinterpret_cast<uint8_t*>(whole.pixels.data()),
                whole.view.rowBytes,
                0,
                kFloat,
                {0, 1, 2, 3}};
    }

    static void call(const KernelEntry& code, const IntRect& rect, const SourceView* sources,
                     const float* arguments, const TargetView& target) {
        const KernelCall call{rect.x0, rect.y0, rect.x1, rect.y1, sources, arguments, target};
        code.generic(&call);
    }

    KernelEntry copy_;
    std::vector<Whole> images_;
};

} // namespace

std::unique_ptr<Renderer> makeReferenceRenderer() {
    return std::make_unique<ReferenceRenderer>();
}

} // namespace vorn::imaging::cpu
