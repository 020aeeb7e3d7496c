// The graph behind `CIImage`: immutable nodes, allocated from a pool that is reused from frame to
// frame, so that building a frame's graph costs no heap allocation in the steady state.
#pragma once

#include "vorneffects/CIFilter.h"
#include "vorneffects/CIImage.h"
#include "vorneffects/ImageDescription.h"

#include <memory>
#include <memory_resource>
#include <vector>

namespace vorn::imaging {

/// The pool that graph nodes live in. Safe from any thread.
std::pmr::memory_resource* nodePool();

template <class T>
using PoolVector = std::vector<T, std::pmr::polymorphic_allocator<T>>;

/// Pixels in memory, top row first, premultiplied.
struct PixelSource {
    const uint8_t* bytes = nullptr;
    uint32_t width = 0, height = 0;
    size_t bytesPerRow = 0;
    CIFormat format = CIFormat::RGBA8;
    std::shared_ptr<const void> owner;
};

/// What is told of a node besides how it is computed.
struct Annotation {
    ImageProperties properties;
    std::string builtinName; ///< "CICrop", … when a framework filter made the node
    std::vector<std::pair<std::string, std::variant<Number, CIVector, CIColor, CGAffineTransform,
                                                    CIImage>>>
        builtinInputs;
    std::string errorLabel, errorMessage;
};

struct Node {
    enum class Kind : uint8_t {
        Pixels,       ///< `pixels`, lower-left corner at the extent's origin
        Kernel,       ///< `function` over `arguments` and `samplers`
        Crop,         ///< `children[0]` inside the extent
        Transform,    ///< `children[0]` under `transform`
        Composite,    ///< `children[0]` over `children[1]`
        Intermediate, ///< `children[0]`, computed once per render
        Constant,     ///< `color` everywhere
    };
    enum class Origin : uint8_t { Bitmap, PixelBuffer, Surface, Accumulator };

    Node() : arguments(nodePool()), samplers(nodePool()) {}

    Kind kind = Kind::Pixels;
    Origin origin = Origin::Bitmap; ///< of Pixels
    CGColorSpace colorSpace = CGColorSpace::None;
    CGRect extent;

    PixelSource pixels;
    std::shared_ptr<const KernelFunction> function;
    PoolVector<KernelArgument> arguments; ///< as given, samplers included, in order
    PoolVector<CISampler> samplers;       ///< the sampler arguments, by sampler index
    RegionOfInterest regionOfInterest;
    CIImage children[2];
    CGAffineTransform transform;
    CIColor color;

    std::shared_ptr<const Annotation> annotation; ///< null when there is nothing to tell
};

/// A node in pool memory.
std::shared_ptr<Node> makeNode(Node::Kind kind, CGRect extent);

/// The same node with another annotation.
CIImage withAnnotation(const CIImage& image, std::shared_ptr<const Annotation> annotation);

/// Marks the image of a drawn error picture as one, with the texts on it.
CIImage markAsErrorImage(const CIImage& image, std::string label, std::string message);

} // namespace vorn::imaging
