// A lazy image, made ready to be computed: the graph below it as a list of steps, every source
// before its readers, with the region that is needed of each.
//
// Crops and intermediates are no steps: a crop narrows the edge that reads through it, an
// intermediate marks the step below it. Neither is a kernel whose result is known to equal another
// image: that one is planned, cropped, unless promises are to be checked. Colour conversions are
// steps that the plan adds where an image's colour space differs from the one that its reader works
// in.
#pragma once

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"

#include <string>
#include <vector>

namespace vorn::imaging::cpu {

/// Whole pixels [x0, x1) by [y0, y1).
struct IntRect {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;

    /// Far enough from any picture, near enough for sums of coordinates to stay in range.
    static constexpr int kFar = 1 << 28;
    static IntRect everywhere() { return {-kFar, -kFar, kFar, kFar}; }
    /// Rounded outward; infinite and far-away edges are brought in to `kFar`.
    static IntRect around(const CGRect& rect);

    bool isEmpty() const { return x0 >= x1 || y0 >= y1; }
    /// Whether no edge had to be brought in.
    bool isInReach() const { return x0 > -kFar && y0 > -kFar && x1 < kFar && y1 < kFar; }
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
    int64_t area() const { return isEmpty() ? 0 : int64_t(width()) * height(); }
    IntRect intersection(const IntRect& o) const;
    IntRect unionWith(const IntRect& o) const;
    bool contains(const IntRect& o) const {
        return o.isEmpty() || (x0 <= o.x0 && y0 <= o.y0 && x1 >= o.x1 && y1 >= o.y1);
    }
    bool operator==(const IntRect&) const = default;
};

inline constexpr int kMostSources = 16;

/// One source of a step.
struct Edge {
    int step = -1;
    IntRect clip = IntRect::everywhere();
    bool ownPixelOnly = false; ///< read at the pixel that is written and nowhere else
    bool nearest = false;
    bool reduced = false; ///< the first source with fewer pixels
    CGRect extent;        ///< what the kernel is told
};

struct Step {
    const Node* node = nullptr;     ///< null for a colour conversion
    bool isMemory = false;          ///< pixels that are there already; otherwise a kernel
    kernelabi::SourceView memory{}; ///< of memory, and of a materialised step once it is computed
    IntRect memoryRect;

    const LibraryFunction* function = nullptr; ///< null for memory
    KernelEntry code;                          ///< of the level that is wanted
    const float* arguments = nullptr;
    int firstEdge = 0, edgeCount = 0;
    IntRect extent;                      ///< nothing but transparent black outside
    IntRect needed;                      ///< what all readers together read of it
    bool materialised = false;           ///< computed once, as a whole, into memory of its own
    Node::Bits bits = Node::Bits::Usual; ///< as in the node
    int period[2] = {0, 0};              ///< as in the node
};

struct PlanSettings {
    const std::vector<std::string>* levels = nullptr; ///< null: not for a processor
    CGColorSpace workingSpace = CGColorSpace::None;
    CGColorSpace outputSpace = CGColorSpace::None;
    bool trustsPromises = true; ///< takes the image that another one is known to equal
};

class Plan {
public:
    /// Plans the pixels `rect` of an image. False, with `problem` set, when it cannot be computed.
    /// Memory of earlier plans is used again.
    bool build(const CIImage& image, const IntRect& rect, const PlanSettings& settings);

    const std::string& problem() const { return problem_; }
    std::vector<Step>& steps() { return steps_; }
    const Edge* edgesOf(const Step& step) const { return edges_.data() + step.firstEdge; }
    const Edge& root() const { return root_; }

    /// Keeps what the plan reads from being drawn on.
    class Reading {
    public:
        explicit Reading(const Plan& plan);
        ~Reading();
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

    private:
        const std::vector<std::shared_mutex*>& held_;
    };

private:
    /// Makes steps of all that an image is computed from.
    bool addSteps(const CIImage& image);
    /// The same of one node, whose sources have theirs.
    void addStep(const Node* node);
    /// The number of a node's step; -1 when it has none yet.
    int stepOf(const Node* node) const;
    /// Whether a node is planned as the image below it.
    bool standsForAnother(const Node& node) const;
    Edge resolve(const CIImage& image, CGColorSpace wanted);
    int conversionOf(int step, const char* kernel);
    void propagateNeeds(const IntRect& rect);
    /// What a kernel that reads elsewhere than at its own pixel may read of a source: what its rule
    /// gives where that is exact, else all of it. Where all of it is more than memory holds, as of
    /// a picture without end, the rule is believed if it can hold for such a kernel, as identity
    /// and a destination that shrinks cannot.
    static IntRect readBy(const RegionOfInterest& rule, int index, const CGRect& destination,
                          const IntRect& source);
    /// The same of a reduced image, from what the kernel may read of the image itself.
    IntRect readReduced(const Step& step, const Edge& edge, const CGRect& destination) const;
    void fail(std::string problem);

    PlanSettings settings_;
    std::vector<Step> steps_;
    std::vector<Edge> edges_;
    struct Conversion {
        int from, to;
        const char* kernel;
    };
    std::vector<Conversion> conversions_;
    struct Pending {
        const Node* node;
        size_t nextSource = 0;
    };
    std::vector<Pending> pending_;
    std::vector<std::shared_mutex*> drawings_; ///< of the sources, each once, in order of address
    Edge root_;
    std::string problem_;
};

} // namespace vorn::imaging::cpu
