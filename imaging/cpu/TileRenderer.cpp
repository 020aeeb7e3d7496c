#include "imaging/cpu/Renderer.h"
#include "platform/Surroundings.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

namespace vorn::imaging::cpu {
namespace {

using namespace kernelabi;

using PixelBytes = std::unique_ptr<uint8_t, decltype(&std::free)>;

/// Pixel memory at a multiple of 64 bytes; the size is rounded up to one as well.
PixelBytes allocatePixels(size_t& size) {
    constexpr size_t kMost = size_t(1) << 40;
    if (size > kMost) throw std::bad_alloc();
    size = (std::max<size_t>(size, 1) + 63) / 64 * 64;
    PixelBytes bytes(static_cast<uint8_t*>(std::aligned_alloc(64, size)), &std::free);
    if (!bytes) throw std::bad_alloc();
    return bytes;
}

/// Pixel memory that is kept from render to render.
struct Buffer {
    PixelBytes bytes{nullptr, &std::free};
    size_t size = 0;
    bool inUse = false;
};

/// Scratch memory of one worker, given out piece by piece and taken back as a whole.
class Scratch {
public:
    uint8_t* allocate(size_t size) {
        size = (size + 63) / 64 * 64;
        while (block_ < blocks_.size() && used_ + size > blocks_[block_].size) ++block_, used_ = 0;
        if (block_ == blocks_.size()) {
            Buffer block;
            block.size = std::max(size, size_t(1) << 20);
            block.bytes = allocatePixels(block.size);
            blocks_.push_back(std::move(block));
            ++allocations;
            used_ = 0;
        }
        uint8_t* bytes = blocks_[block_].bytes.get() + used_;
        used_ += size;
        return bytes;
    }
    void reset() {
        block_ = 0, used_ = 0;
        known.clear();
        pending.clear();
        views.clear();
    }

    /// What this tile has computed already: a source that two kernels read is computed once.
    struct Known {
        int step;
        IntRect clip, rect;
        SourceView view;
    };
    std::vector<Known> known;

    /// A step whose sources are being made ready. These are kept here and not on the thread's
    /// stack, since there may be as many on top of each other as a graph is deep.
    struct Pending {
        const Edge* edge;
        IntRect rect, inside;    ///< what is to be filled, and the part that the step has pixels of
        TargetView target, part; ///< of these
        int nextSource = 0;
    };
    std::vector<Pending> pending;
    std::vector<SourceView> views; ///< of the sources of all pending steps, the first one's first
    uint64_t allocations = 0;

private:
    std::vector<Buffer> blocks_;
    size_t block_ = 0, used_ = 0;
};

// oneTBB is not built for the thread sanitizer: these tell it that tiles run after what stands
// before them and before what comes after them. What the threads of the arena share otherwise is
// watched.
#ifdef __SANITIZE_THREAD__
extern "C" void __tsan_acquire(void*);
extern "C" void __tsan_release(void*);
void orderBefore(const void* place) {
    __tsan_release(const_cast<void*>(place));
}
void orderAfter(const void* place) {
    __tsan_acquire(const_cast<void*>(place));
}
#else
void orderBefore(const void*) {}
void orderAfter(const void*) {}
#endif

class TileRenderer final : public Renderer {
public:
    TileRenderer(int threads, std::vector<std::string> levels)
        : levels_(std::move(levels)), threads_(std::max(1, threads)),
          scratch_(static_cast<size_t>(threads_)), arena_(threads_) {}

    bool render(const CIImage& image, const IntRect& rect, const Target& target,
                CGColorSpace workingSpace, CGColorSpace outputSpace) override {
        for (Buffer& buffer : buffers_) buffer.inUse = false;
        problem_.clear();
        if (!plan_.build(image, rect, {&levels_, workingSpace, outputSpace})) {
            problem_ = plan_.problem();
            return false;
        }
        if (!copy_.generic) {
            const LibraryFunction* const kernel = frameworkKernel("CI_copy");
            if (kernel)
                copy_ = kernel->entry(levels_, problem_);
            else
                problem_ = "the framework's copy kernel could not be loaded";
            if (!copy_.generic) return false;
        }
        // A wide target is computed in 32-bit floats throughout.
        intermediate_ = target.format == CIFormat::RGBAf ? kFloat : kHalf;
        isTargetInBytes_ = bytesPerPixel(target.format) == 4;
        const Plan::Reading reading(plan_);
        run(rect, target);
        return true;
    }

    void trim() override {
        std::vector<Buffer>().swap(buffers_);
        for (Scratch& scratch : scratch_) scratch = Scratch();
        scratchAllocations_ = 0;
        plan_ = {};
    }

private:
    void run(const IntRect& rect, const Target& target) {
        for (Step& step : plan_.steps()) {
            if (!step.materialised || step.needed.isEmpty()) continue;
            const int32_t layout = layoutOf(step);
            const int64_t rowBytes = int64_t(step.needed.width()) * (layout == kFloat  ? 16
                                                                     : layout == kHalf ? 8
                                                                                       : 4);
            Buffer& buffer = acquire(static_cast<uint64_t>(rowBytes) *
                                     static_cast<uint64_t>(step.needed.height()));
            const TargetView view{buffer.bytes.get(), rowBytes, 0, layout, {0, 1, 2, 3}};
            Edge self;
            self.step = static_cast<int>(&step - plan_.steps().data());
            compute(self, step.needed, view);
            step.memory = {view.bytes,
                           rowBytes,
                           0,
                           layout,
                           {0, 1, 2, 3},
                           step.needed.x0,
                           step.needed.y0,
                           step.needed.width(),
                           step.needed.height(),
                           0,
                           {}};
            step.memoryRect = step.needed;
            step.isMemory = true;
        }
        TargetView view = targetView(target);
        if (!readsTarget(rect, target)) {
            compute(plan_.root(), rect, view);
            return;
        }
        // The caller renders over pixels that the image reads: compute beside them, then copy.
        const size_t row = static_cast<size_t>(rect.width()) * bytesPerPixel(target.format);
        Buffer& beside = acquire(uint64_t(row) * static_cast<uint64_t>(rect.height()));
        view.bytes = beside.bytes.get();
        view.rowBytes = static_cast<int64_t>(row);
        compute(plan_.root(), rect, view);
        for (int y = 0; y < rect.height(); ++y)
            std::memcpy(static_cast<uint8_t*>(target.bytes) + size_t(y) * target.bytesPerRow,
                        beside.bytes.get() + size_t(y) * row, row);
    }

    /// How a step is kept that is computed once.
    int32_t layoutOf(const Step& step) {
        return step.bits == Node::Bits::Floats ? kFloat
               : isKeptInBytes(step)           ? kPacked8
                                               : intermediate_;
    }
    /// Whether a step is to have the bits of its sources and these are 8, as are those of the
    /// result.
    bool isKeptInBytes(const Step& step) {
        if (step.bits != Node::Bits::OfSources || !isTargetInBytes_) return false;
        for (int e = 0; e < step.edgeCount; ++e) {
            const Step& source = plan_.steps()[static_cast<size_t>(plan_.edgesOf(step)[e].step)];
            if (!source.isMemory || source.memory.layout != kPacked8) return false;
        }
        return step.edgeCount > 0;
    }

    bool readsTarget(const IntRect& rect, const Target& target) {
        const auto* first = static_cast<const uint8_t*>(target.bytes);
        const auto* last = first + size_t(rect.height()) * target.bytesPerRow;
        for (const Step& step : plan_.steps()) {
            if (!step.isMemory || step.needed.isEmpty()) continue;
            const uint8_t* from = step.memory.bytes;
            if (from < last && from + step.memory.rowBytes * step.memory.height > first)
                return true;
        }
        return false;
    }

    Buffer& acquire(uint64_t size) {
        Buffer* best = nullptr;
        for (Buffer& buffer : buffers_)
            if (!buffer.inUse && buffer.size >= size && (!best || buffer.size < best->size))
                best = &buffer;
        if (!best) {
            // A buffer of another size makes way, so that a change of size does not pile them up.
            for (Buffer& buffer : buffers_)
                if (!buffer.inUse) best = &buffer;
            if (!best) best = &buffers_.emplace_back();
            best->bytes.reset();
            best->size = 0;
            size_t rounded = size;
            best->bytes = allocatePixels(rounded);
            best->size = rounded;
            ++pixelAllocations_;
        }
        best->inUse = true;
        return *best;
    }

    /// Computes what an edge reads over `rect`: of a picture that repeats one period, which is then
    /// copied.
    void compute(const Edge& edge, const IntRect& rect, const TargetView& target) {
        const Step& step = plan_.steps()[static_cast<size_t>(edge.step)];
        IntRect part = rect;
        if (!step.isMemory && step.extent.intersection(edge.clip).contains(rect)) {
            const int across = step.period[0], up = step.period[1];
            if (across > 0 && across < rect.width()) part.x1 = part.x0 + across;
            if (up > 0 && up < rect.height()) part.y0 = part.y1 - up;
        }
        computeTiles(edge, part, target);
        if (part == rect) return;
        const size_t pixel = target.layout == kPacked8 ? 4 : target.layout == kHalf ? 8 : 16;
        const size_t known = static_cast<size_t>(part.width()) * pixel;
        const size_t whole = static_cast<size_t>(rect.width()) * pixel;
        constexpr int kRows = 32;
        spread((rect.height() + kRows - 1) / kRows, [&](int64_t block, Scratch&) {
            const int first = static_cast<int>(block) * kRows;
            const int last = std::min(first + kRows, rect.height());
            for (int row = first; row < last; ++row) {
                uint8_t* const to = target.bytes + row * target.rowBytes;
                const uint8_t* const from = target.bytes + row % part.height() * target.rowBytes;
                if (from != to) std::memcpy(to, from, known);
                for (size_t at = known; at < whole; at += known)
                    std::memcpy(to + at, from, std::min(known, whole - at));
            }
        });
    }

    /// Computes what an edge reads over `rect`, in tiles spread over the threads.
    void computeTiles(const Edge& edge, const IntRect& rect, const TargetView& target) {
        const Step& step = plan_.steps()[static_cast<size_t>(edge.step)];
        bool usesScratch = false;
        for (int e = 0; e < step.edgeCount; ++e)
            usesScratch |=
                !plan_.steps()[static_cast<size_t>(plan_.edgesOf(step)[e].step)].isMemory;
        // Whole rows, since the processor fetches those ahead; fewer of them where the scratch of a
        // tile should stay in the cache.
        const int64_t tileArea = usesScratch ? 4096 : 32768;
        const int tileWidth = std::min(rect.width(), usesScratch ? 2048 : 8192);
        const int tileHeight =
            static_cast<int>(std::clamp<int64_t>(tileArea / tileWidth, 1, rect.height()));
        const int64_t columns = (rect.width() + tileWidth - 1) / tileWidth;
        const int64_t rows = (rect.height() + tileHeight - 1) / tileHeight;
        const auto tile = [&](int64_t index, Scratch& scratch) {
            IntRect part;
            part.x0 = rect.x0 + static_cast<int>(index % columns) * tileWidth;
            part.x1 = std::min(part.x0 + tileWidth, rect.x1);
            part.y1 = rect.y1 - static_cast<int>(index / columns) * tileHeight;
            part.y0 = std::max(part.y1 - tileHeight, rect.y0);
            scratch.reset();
            evaluate(edge, part, partOf(target, rect, part), scratch);
        };
        spread(columns * rows, tile);
        uint64_t allocations = 0;
        for (const Scratch& scratch : scratch_) allocations += scratch.allocations;
        pixelAllocations_ += allocations - scratchAllocations_;
        scratchAllocations_ = allocations;
    }

    /// Calls `task(index, scratch of its thread)` for every index below a count.
    template <class Task>
    void spread(int64_t count, const Task& task) {
        if (threads_ == 1 || count == 1) {
            for (int64_t i = 0; i < count; ++i) task(i, scratch_[0]);
            return;
        }
        static char place; // known before anything of the caller is read
        Surroundings& surroundings = Surroundings::current();
        const auto ordered = [&](int64_t i) {
            orderAfter(&place);
            const CurrentSurroundings current(surroundings);
            task(i, scratch_[static_cast<size_t>(
                        oneapi::tbb::this_task_arena::current_thread_index())]);
            orderBefore(&place);
        };
        orderBefore(&place);
        arena_.execute([&] { oneapi::tbb::parallel_for(int64_t(0), count, ordered); });
        orderAfter(&place);
    }

    /// Fills `rect` of a target with what an edge reads there.
    void evaluate(const Edge& edge, const IntRect& rect, const TargetView& target,
                  Scratch& scratch) {
        std::vector<Scratch::Pending>& pending = scratch.pending;
        if (!begin(edge, rect, target, scratch)) return;
        while (true) {
            Scratch::Pending& top = pending.back();
            const Step& step = stepOf(*top.edge);
            if (top.nextSource < step.edgeCount) {
                const Edge& source = plan_.edgesOf(step)[top.nextSource];
                if (addReadySource(source, top.inside, scratch)) {
                    ++top.nextSource;
                } else if (const TargetView place = placeFor(source, top.inside, scratch);
                           !begin(source, top.inside, place, scratch)) {
                    ++top.nextSource;
                    addComputedSource(source, top.inside, place, scratch);
                }
                continue;
            }
            const size_t firstView = scratch.views.size() - static_cast<size_t>(step.edgeCount);
            call(step.code, top.inside, scratch.views.data() + firstView, step.edgeCount,
                 step.arguments, top.part);
            scratch.views.resize(firstView);
            if (pending.size() == 1) return pending.clear();
            const Scratch::Pending done = top;
            pending.pop_back();
            ++pending.back().nextSource;
            addComputedSource(*done.edge, done.rect, done.target, scratch);
        }
    }

    /// Fills `rect` of a target with what is there without a kernel: transparent pixels and memory.
    /// True when a kernel has to do the rest, which is pending then.
    bool begin(const Edge& edge, const IntRect& rect, const TargetView& target, Scratch& scratch) {
        const Step& step = stepOf(edge);
        const IntRect inside = rect.intersection(edge.clip).intersection(
            step.isMemory ? step.memoryRect : step.extent);
        if (inside != rect) clearPixels(target, rect.width(), rect.height());
        if (inside.isEmpty()) return false;
        const TargetView part = partOf(target, rect, inside);
        if (!step.isMemory) {
            scratch.pending.push_back({&edge, rect, inside, target, part});
            return true;
        }
        const SourceView source = viewOf(step, edge);
        if (!areTheSameBytes(source, part)) {
            call(copy_, inside, &source, 1, nullptr, part);
            return false;
        }
        const uint8_t* from = source.bytes +
                              (source.y0 + source.height - inside.y1) * source.rowBytes +
                              (inside.x0 - source.x0) * 4;
        for (int row = 0; row < inside.height(); ++row)
            std::memcpy(part.bytes + row * part.rowBytes, from + row * source.rowBytes,
                        static_cast<size_t>(inside.width()) * 4);
        return false;
    }

    const Step& stepOf(const Edge& edge) { return plan_.steps()[static_cast<size_t>(edge.step)]; }

    static bool areTheSameBytes(const SourceView& source, const TargetView& target) {
        const ChannelOrder a = source.order, b = target.order;
        return source.layout == kPacked8 && target.layout == kPacked8 && a.r == b.r && a.g == b.g &&
               a.b == b.b && a.a == b.a;
    }

    /// Adds the view of a source whose pixels are there; false where they are yet to be computed.
    bool addReadySource(const Edge& edge, const IntRect& rect, Scratch& scratch) {
        const Step& step = stepOf(edge);
        // What is read elsewhere is memory by now, or empty because nothing of it is needed.
        if (!edge.ownPixelOnly ||
            (step.isMemory && step.memoryRect.intersection(edge.clip).contains(rect))) {
            scratch.views.push_back(viewOf(step, edge));
            return true;
        }
        for (const Scratch::Known& known : scratch.known)
            if (known.step == edge.step && known.clip == edge.clip && known.rect == rect) {
                SourceView view = known.view;
                std::copy_n(viewOf(step, edge).extent, 4, view.extent);
                scratch.views.push_back(view);
                return true;
            }
        return false;
    }

    /// Scratch memory for what an edge reads over `rect`.
    TargetView placeFor(const Edge& edge, const IntRect& rect, Scratch& scratch) {
        const Step& step = stepOf(edge);
        const int64_t rowBytes = (int64_t(rect.width()) * 4 + 63) / 64 * 64;
        // Planes a multiple of 4096 bytes apart would all fall on the same lines of the cache.
        const int64_t planeBytes = rowBytes * rect.height() + 5 * 64;
        TargetView target{nullptr, rowBytes, planeBytes, kPlanar, {0, 1, 2, 3}};
        if (isKeptInBytes(step)) {
            // In the order of the source, so that pixels that only move are copied.
            const Edge& from = plan_.edgesOf(step)[0];
            target.layout = kPacked8;
            target.order = stepOf(from).memory.order;
        }
        target.bytes =
            scratch.allocate(static_cast<size_t>(planeBytes) * (target.layout == kPacked8 ? 1 : 4));
        return target;
    }

    /// Adds the view of a source that has been computed into such memory.
    void addComputedSource(const Edge& edge, const IntRect& rect, const TargetView& place,
                           Scratch& scratch) {
        SourceView view = viewOf(stepOf(edge), edge);
        view.bytes = place.bytes, view.rowBytes = place.rowBytes;
        view.planeBytes = place.planeBytes;
        view.layout = place.layout, view.order = place.order;
        view.x0 = rect.x0, view.y0 = rect.y0;
        view.width = rect.width(), view.height = rect.height();
        scratch.known.push_back({edge.step, edge.clip, rect, view});
        scratch.views.push_back(view);
    }

    static void call(const KernelEntry& code, const IntRect& rect, const SourceView* sources,
                     int count, const float* arguments, const TargetView& target) {
        bool packed = target.layout == kPacked8;
        for (int i = 0; i < count; ++i) packed &= sources[i].layout == kPacked8;
        const KernelCall call{rect.x0, rect.y0, rect.x1, rect.y1, sources, arguments, target};
        (packed ? code.packed : code.generic)(&call);
    }

    std::vector<std::string> levels_;
    int threads_;
    std::vector<Scratch> scratch_;
    oneapi::tbb::task_arena arena_;
    Plan plan_;
    KernelEntry copy_;
    int32_t intermediate_ = kHalf;
    bool isTargetInBytes_ = false;
    std::vector<Buffer> buffers_;
    uint64_t scratchAllocations_ = 0;
};

} // namespace

std::unique_ptr<Renderer> makeTileRenderer(int threads, std::vector<std::string> levels) {
    return std::make_unique<TileRenderer>(threads, std::move(levels));
}

} // namespace vorn::imaging::cpu
