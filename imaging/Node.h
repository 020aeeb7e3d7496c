// The graph behind `CIImage`: immutable nodes, allocated from a pool that is reused from frame to
// frame, so that building a frame's graph costs no heap allocation in the steady state.
#pragma once

#include "vorneffects/CIFilter.h"
#include "vorneffects/CIImage.h"
#include "vorneffects/ImageDescription.h"

#include <atomic>
#include <memory>
#include <memory_resource>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::imaging {

/// The pool that graph nodes live in. Safe from any thread.
std::pmr::memory_resource* nodePool();

/// Allocates from that pool.
template <class T>
struct PoolAllocator {
    using value_type = T;
    PoolAllocator() = default;
    template <class U>
    PoolAllocator(const PoolAllocator<U>&) {}
    T* allocate(size_t count) {
        return static_cast<T*>(nodePool()->allocate(count * sizeof(T), alignof(T)));
    }
    void deallocate(T* at, size_t count) {
        nodePool()->deallocate(at, count * sizeof(T), alignof(T));
    }
    template <class U>
    void destroy(U* at);
    bool operator==(const PoolAllocator&) const = default;
};
template <class T>
using PoolVector = std::vector<T, PoolAllocator<T>>;

/// Pixels in memory, top row first, premultiplied.
struct PixelSource {
    const uint8_t* bytes = nullptr; ///< null where only `device` has them
    uint32_t width = 0, height = 0;
    size_t bytesPerRow = 0;
    CIFormat format = CIFormat::RGBA8;
    std::shared_ptr<const void> owner;
    std::shared_ptr<DevicePixels> device = nullptr; ///< gives the bytes that may not be here yet
    /// Held by whoever draws on the pixels, shared by those who read them; null: nobody draws.
    std::shared_ptr<std::shared_mutex> drawing = nullptr;
};

/// What is told of a node besides how it is computed.
struct Annotation {
    const char* builtinName =
        nullptr; ///< "CIGaussianBlur", … when a framework filter made the node
    using BuiltinInput =
        std::pair<const char*, std::variant<Number, CIVector, CIColor, CGAffineTransform, CIImage>>;
    PoolVector<BuiltinInput> builtinInputs; ///< that are set, by key
    // Rare, so these may take memory from elsewhere.
    ImageProperties properties;
    std::string errorLabel, errorMessage;
};

struct Node;

/// What an accumulator has of an image that it has stored last: the same as 8-bit pixels. A
/// feedback chain stores its result and hands it out: it is then computed once, not twice. Safe
/// from any thread; copies of a node have nothing stored.
class StoredPixels {
public:
    StoredPixels() = default;
    StoredPixels(const StoredPixels&) {}
    StoredPixels& operator=(const StoredPixels&) = delete;

    void set(const std::shared_ptr<const Node>& pixels) const;
    std::shared_ptr<const Node> get() const; ///< null: nothing, or it is gone

private:
    mutable std::atomic<bool> isSet_ = false;
    mutable std::weak_ptr<const Node> pixels_;
};

struct Node : std::enable_shared_from_this<Node> {
    enum class Kind : uint8_t {
        Pixels,       ///< `pixels`, lower-left corner at the extent's origin
        Kernel,       ///< `function` over `arguments`; looks like `children[0]`, if that is set
        Crop,         ///< `children[0]` inside `rect`
        Transform,    ///< `children[0]` under `transform`; computed by `function`
        Composite,    ///< `children[0]` over `children[1]`; computed by `function`
        Intermediate, ///< `children[0]`, computed once per render
        Constant,     ///< `color` everywhere; computed by `function`
    };
    enum class Origin : uint8_t { Bitmap, PixelBuffer, Surface, Accumulator };

    Kind kind = Kind::Pixels;
    Origin origin = Origin::Bitmap; ///< of Pixels
    CGColorSpace colorSpace = CGColorSpace::None;
    CGRect extent;

    PixelSource pixels;
    const LibraryFunction* function = nullptr;
    PoolVector<KernelArgument> arguments; ///< as given, samplers included, in order
    PoolVector<CISampler> samplers;       ///< by sampler index; a warp kernel's image is number 0
    PoolVector<float> flattened;          ///< the other arguments as kernels get them
    RegionOfInterest regionOfInterest;
    CIImage children[2];
    CGRect rect;
    CGAffineTransform transform;
    CIColor color;

    /// The picture repeats after so many pixels across and up; 0: nobody has said that it does.
    int period[2] = {0, 0};

    /// How the picture is kept until another kernel reads it: in floats of as many bits as the
    /// device takes, in 8 bits where its sources and the result are, or in 32-bit floats.
    enum class Bits : uint8_t { Usual, OfSources, Floats };
    Bits bits = Bits::Usual;

    /// Images on top of each other, this one included. Limited, since each of them may take memory
    /// of every worker while a tile is computed.
    int depth = 1;
    static constexpr int kDeepest = 512;

    std::shared_ptr<const Annotation> annotation; ///< null when there is nothing to tell

    StoredPixels stored;

    /// Destroys a node that nobody holds any longer, and then what that lets go of: one node after
    /// the other, so that a graph is no deeper on the stack than a single image. Allocates nothing.
    static void destroy(Node* node) noexcept;
    Node* nextToDestroy = nullptr;
};

template <class T>
template <class U>
void PoolAllocator<T>::destroy(U* at) {
    if constexpr (std::is_same_v<U, Node>)
        Node::destroy(at);
    else
        at->~U();
}

/// An object, for instance a node or an annotation, in pool memory.
template <class T, class... Arguments>
std::shared_ptr<T> makeInPool(Arguments&&... arguments) {
    return std::allocate_shared<T>(PoolAllocator<T>(), std::forward<Arguments>(arguments)...);
}

std::shared_ptr<Node> makeNode(Node::Kind kind, CGRect extent);

/// The same node with another annotation.
CIImage withAnnotation(const CIImage& image, std::shared_ptr<const Annotation> annotation);

/// Marks the image of a drawn error picture as one, with the texts on it.
CIImage markAsErrorImage(const CIImage& image, std::string label, std::string message);

/// A node that applies a kernel, arguments checked and flattened; null, with a line on standard
/// output, when they do not fit. `image` is a warp kernel's image and empty for the others.
std::shared_ptr<Node> makeKernelNode(const LibraryFunction* function, CGRect extent,
                                     const RegionOfInterest& regionOfInterest, const CIImage& image,
                                     KernelArguments arguments);

} // namespace vorn::imaging
