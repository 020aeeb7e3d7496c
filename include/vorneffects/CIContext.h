// Rendering of lazy images.
#pragma once

#include "CIImage.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The devices that compute pictures. `Reference` runs the same kernels one pixel at a time over
/// whole images: slow, simple, and the measure for the others.
enum class DeviceKind : uint8_t { Auto, CPU, Reference };

struct ContextOptions {
    DeviceKind device = DeviceKind::Auto;
    int threads = 0;                                ///< 0: one per core
    CGColorSpace workingSpace = CGColorSpace::None; ///< None: values are worked on as stored
    /// CPU instruction-set level by name ("x86-64-v2", …); empty: the best that the processor has.
    std::string instructionSet = {};
};

/// Renders images. Keeps its threads and memory between frames, so hosts keep their context. One
/// thread at a time may render with a context; contexts do not share state.
class CIContext {
public:
    explicit CIContext(ContextOptions options = {});
    ~CIContext();
    CIContext(const CIContext&) = delete;
    CIContext& operator=(const CIContext&) = delete;

    /// Renders the part of an image inside `bounds` (rounded outward to whole pixels) into the
    /// caller's memory, top row first. The colour space is that of the result (None: as worked on).
    /// False, with `lastError` set, for an empty image, an empty or infinite rectangle, a stride
    /// below the row, or memory that runs out.
    bool render(const CIImage& image, void* bytes, size_t bytesPerRow, CGRect bounds,
                CIFormat format, CGColorSpace colorSpace = CGColorSpace::SRGB);
    /// Renders so that the lower-left corner of `bounds` falls on that of the surface or buffer;
    /// what lies outside of it is left out.
    bool renderToIOSurface(const CIImage& image, Surface& surface, CGRect bounds,
                           CGColorSpace colorSpace = CGColorSpace::SRGB);
    bool renderToCVPixelBuffer(const CIImage& image, PixelBuffer& buffer, CGRect bounds,
                               CGColorSpace colorSpace = CGColorSpace::SRGB);

    const std::string& lastError() const;
    const ContextOptions& options() const;
    int threads() const;
    /// The instruction-set level in use ("reference" on that device).
    const char* instructionSet() const;
    /// Heap allocations of pixel memory since the context was made; stands still in a steady state.
    uint64_t pixelAllocations() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// The instruction-set levels that this processor can run, best first.
std::vector<std::string> supportedInstructionSets();
