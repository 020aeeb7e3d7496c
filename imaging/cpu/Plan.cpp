#include "imaging/cpu/Plan.h"

#include <algorithm>
#include <cmath>

namespace vorn::imaging::cpu {
namespace {

int bounded(double value) {
    if (!(value > -IntRect::kFar)) return -IntRect::kFar; // also when it is not a number
    return value < IntRect::kFar ? static_cast<int>(value) : IntRect::kFar;
}

kernelabi::ChannelOrder orderOf(CIFormat format) {
    switch (format) {
    case CIFormat::BGRA8:
        return {2, 1, 0, 3};
    case CIFormat::ARGB8:
        return {1, 2, 3, 0};
    default:
        return {0, 1, 2, 3};
    }
}

} // namespace

IntRect IntRect::around(const CGRect& rect) {
    if (rect.isEmpty()) return {};
    return {bounded(std::floor(rect.x)), bounded(std::floor(rect.y)),
            bounded(std::ceil(rect.maxX())), bounded(std::ceil(rect.maxY()))};
}

IntRect IntRect::intersection(const IntRect& o) const {
    const IntRect both{std::max(x0, o.x0), std::max(y0, o.y0), std::min(x1, o.x1),
                       std::min(y1, o.y1)};
    return both.isEmpty() ? IntRect{} : both;
}

IntRect IntRect::unionWith(const IntRect& o) const {
    if (isEmpty()) return o;
    if (o.isEmpty()) return *this;
    return {std::min(x0, o.x0), std::min(y0, o.y0), std::max(x1, o.x1), std::max(y1, o.y1)};
}

void Plan::fail(std::string problem) {
    if (problem_.empty()) problem_ = std::move(problem);
}

bool Plan::build(const CIImage& image, const IntRect& rect, const PlanSettings& settings) {
    settings_ = settings;
    steps_.clear();
    edges_.clear();
    conversions_.clear();
    drawings_.clear();
    problem_.clear();
    if (!addSteps(image)) return false;
    root_ = resolve(image, settings.outputSpace);
    if (!problem_.empty()) return false;
    propagateNeeds(rect);
    return true;
}

Plan::Reading::Reading(const Plan& plan) : held_(plan.drawings_) {
    for (std::shared_mutex* drawing : held_) drawing->lock_shared();
}
Plan::Reading::~Reading() {
    for (std::shared_mutex* drawing : held_) drawing->unlock_shared();
}

bool Plan::standsForAnother(const Node& node) const {
    return node.kind == Node::Kind::Crop || node.kind == Node::Kind::Intermediate ||
           (node.kind == Node::Kind::Kernel && node.children[0] && settings_.trustsPromises);
}

int Plan::stepOf(const Node* node) const {
    for (size_t i = 0; i < steps_.size(); ++i)
        if (steps_[i].node == node) return static_cast<int>(i);
    return -1;
}

bool Plan::addSteps(const CIImage& image) {
    const auto putOn = [this](const Node* node) {
        while (standsForAnother(*node)) node = node->children[0].node();
        if (stepOf(node) < 0) pending_.push_back({node});
    };
    // Not by recursion: a graph may be deep, and the stack of a host's thread small.
    pending_.clear();
    putOn(image.node());
    while (!pending_.empty()) {
        Pending& top = pending_.back();
        const auto& samplers = top.node->samplers;
        if (top.nextSource < samplers.size()) {
            putOn(samplers[top.nextSource++].image().node());
            continue;
        }
        addStep(top.node);
        if (!problem_.empty()) return false;
        pending_.pop_back();
    }
    return true;
}

Edge Plan::resolve(const CIImage& image, CGColorSpace wanted) {
    Edge edge;
    edge.extent = image.extent();
    const Node* base = image.node();
    bool keep = false;
    for (; standsForAnother(*base); base = base->children[0].node()) {
        if (base->kind == Node::Kind::Intermediate)
            keep = true;
        else
            edge.clip = edge.clip.intersection(IntRect::around(base->extent));
    }
    edge.step = stepOf(base);
    if (keep && !steps_[static_cast<size_t>(edge.step)].isMemory)
        steps_[static_cast<size_t>(edge.step)].materialised = true;
    if (settings_.workingSpace != CGColorSpace::None) {
        // Without a space of their own, images and readers are in the working space.
        const auto spaceOf = [this](CGColorSpace space) {
            return space == CGColorSpace::None ? settings_.workingSpace : space;
        };
        const CGColorSpace has = spaceOf(base->colorSpace), wants = spaceOf(wanted);
        if (has != wants)
            edge.step = conversionOf(edge.step, wants == CGColorSpace::SRGB ? "CI_sRGBFromLinear"
                                                                            : "CI_linearFromSRGB");
    }
    return edge;
}

int Plan::conversionOf(int step, const char* kernel) {
    for (const Conversion& known : conversions_)
        if (known.from == step && known.kernel == kernel) return known.to;
    const LibraryFunction* const function = frameworkKernel(kernel);
    Step conversion;
    conversion.function = function;
    if (!function) fail("the framework's colour conversion kernels could not be loaded");
    if (function && settings_.levels) {
        std::string problem;
        conversion.code = function->entry(*settings_.levels, problem);
        if (!conversion.code.generic) fail(std::move(problem));
    }
    conversion.extent = steps_[static_cast<size_t>(step)].extent;
    conversion.firstEdge = static_cast<int>(edges_.size());
    conversion.edgeCount = 1;
    Edge edge;
    edge.step = step;
    edge.ownPixelOnly = true;
    edges_.push_back(edge);
    steps_.push_back(conversion);
    const int index = static_cast<int>(steps_.size()) - 1;
    conversions_.push_back({step, index, kernel});
    return index;
}

void Plan::addStep(const Node* node) {
    Step step;
    step.node = node;
    step.extent = IntRect::around(node->extent);
    if (node->kind == Node::Kind::Pixels) {
        const PixelSource& pixels = node->pixels;
        step.isMemory = true;
        if (std::shared_mutex* const drawing = pixels.drawing.get()) {
            const auto place =
                std::lower_bound(drawings_.begin(), drawings_.end(), drawing, std::less<>());
            if (place == drawings_.end() || *place != drawing) drawings_.insert(place, drawing);
        }
        step.extent.x1 = step.extent.x0 + static_cast<int>(pixels.width);
        step.extent.y1 = step.extent.y0 + static_cast<int>(pixels.height);
        step.memoryRect = step.extent;
        const uint8_t* bytes = pixels.bytes;
        if (pixels.device && settings_.levels) {
            bytes = pixels.device->hostBytes();
            if (!bytes) fail("an image on another device cannot be read");
        }
        step.memory = {bytes,
                       static_cast<int64_t>(pixels.bytesPerRow),
                       0,
                       pixels.format == CIFormat::RGBAf   ? kernelabi::kFloat
                       : pixels.format == CIFormat::RGBAh ? kernelabi::kHalf
                                                          : kernelabi::kPacked8,
                       orderOf(pixels.format),
                       step.extent.x0,
                       step.extent.y0,
                       static_cast<int32_t>(pixels.width),
                       static_cast<int32_t>(pixels.height),
                       0,
                       {}};
        steps_.push_back(step);
        return;
    }
    const LibraryFunction& function = *node->function;
    step.function = &function;
    std::copy_n(node->period, 2, step.period);
    step.bits = node->bits;
    if (settings_.levels) {
        std::string problem;
        step.code = function.entry(*settings_.levels, problem);
        if (!step.code.generic) return fail(std::move(problem));
    }
    if (node->samplers.size() > kMostSources) {
        fail("kernel '" + function.declaration().name + "' reads more than " +
             std::to_string(kMostSources) + " images");
        return;
    }
    step.arguments = node->flattened.data();
    const bool warps = function.declaration().kind == kernelc::FunctionKind::Warp;
    std::array<Edge, kMostSources> edges;
    for (size_t i = 0; i < node->samplers.size(); ++i) {
        edges[i] = resolve(node->samplers[i].image(), node->samplers[i].options().colorSpace);
        if (!problem_.empty()) return;
        edges[i].nearest = node->samplers[i].options().filter == SamplerFilter::Nearest;
    }
    size_t source = 0;
    if (!warps)
        for (const kernelc::Parameter& parameter : function.declaration().parameters)
            if (kernelc::isImage(parameter.type)) {
                edges[source].reduced = parameter.type == kernelc::ParameterType::Reduced;
                edges[source++].ownPixelOnly = parameter.readsOwnPixelOnly;
            }
    step.firstEdge = static_cast<int>(edges_.size());
    step.edgeCount = static_cast<int>(node->samplers.size());
    edges_.insert(edges_.end(), edges.begin(), edges.begin() + step.edgeCount);
    steps_.push_back(step);
}

IntRect Plan::readBy(const RegionOfInterest& rule, int index, const CGRect& destination,
                     const IntRect& source) {
    if (!rule.isExact()) {
        constexpr int64_t kMostPixels = int64_t(1) << 28; // that are computed as a whole
        const bool cannotHold = rule.kind() == RegionOfInterest::Kind::Identity ||
                                (rule.kind() == RegionOfInterest::Kind::Grown && rule.margin() < 0);
        if (cannotHold || source.area() < kMostPixels) return source;
    }
    return IntRect::around(rule.ask(index, destination).grownBy(1));
}

IntRect Plan::readReduced(const Step& step, const Edge& edge, const CGRect& destination) const {
    const Edge& first = edges_[static_cast<size_t>(step.firstEdge)];
    const IntRect whole = steps_[static_cast<size_t>(first.step)].extent.intersection(first.clip);
    const IntRect read = readBy(step.node->regionOfInterest, 0, destination, whole);
    const CGRect from = first.extent, to = edge.extent;
    if (from.isEmpty() || !from.isFinite() || !read.isInReach())
        return steps_[static_cast<size_t>(edge.step)].extent;
    const double x = to.width / from.width, y = to.height / from.height;
    const CGAffineTransform toReduced{x, 0, 0, y, to.x - from.x * x, to.y - from.y * y};
    const CGRect rect{double(read.x0), double(read.y0), double(read.width()),
                      double(read.height())};
    return IntRect::around(toReduced.boundsOf(rect).grownBy(1));
}

void Plan::propagateNeeds(const IntRect& rect) {
    Step& last = steps_[static_cast<size_t>(root_.step)];
    last.needed = rect.intersection(root_.clip).intersection(last.extent);
    // Sources come before their readers, so from the end on every reader's need is known.
    for (size_t i = steps_.size(); i-- > 0;) {
        Step& step = steps_[i];
        if (step.isMemory || step.needed.isEmpty()) continue;
        const CGRect destination{double(step.needed.x0), double(step.needed.y0),
                                 double(step.needed.width()), double(step.needed.height())};
        for (int e = 0; e < step.edgeCount; ++e) {
            const Edge& edge = edges_[static_cast<size_t>(step.firstEdge + e)];
            Step& source = steps_[static_cast<size_t>(edge.step)];
            const IntRect visible = source.extent.intersection(edge.clip);
            IntRect wanted = step.needed;
            if (!edge.ownPixelOnly) {
                wanted = edge.reduced
                             ? readReduced(step, edge, destination)
                             : readBy(step.node->regionOfInterest, e, destination, visible);
                if (!source.isMemory) source.materialised = true;
            }
            source.needed = source.needed.unionWith(wanted.intersection(visible));
        }
    }
}

} // namespace vorn::imaging::cpu
