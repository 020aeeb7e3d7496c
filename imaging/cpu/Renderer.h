// The CPU device: computes a lazy image tile by tile with the lane kernels.
//
// The output is cut into tiles. A tile computes, in scratch memory of its own, whatever its kernels
// read at the pixel that is written; what a kernel reads elsewhere is computed once per render into
// a pooled buffer first. One kernel on 8-bit pixels reads and writes the caller's memory directly.
#pragma once

#include "imaging/cpu/Plan.h"

#include <memory>
#include <string>

namespace vorn::imaging::cpu {

/// Where a render goes: the top row's first pixel belongs to the upper left of the region.
struct Target {
    void* bytes = nullptr;
    size_t bytesPerRow = 0;
    CIFormat format = CIFormat::RGBA8;
};

class Renderer {
public:
    virtual ~Renderer() = default;

    /// Fills `rect` of an image into the target. False with `problem` set; throws where memory runs
    /// out or a region of interest does.
    virtual bool render(const CIImage& image, const IntRect& rect, const Target& target,
                        CGColorSpace workingSpace, CGColorSpace outputSpace) = 0;
    /// Gives back what is kept for the next render.
    virtual void trim() {}
    const std::string& problem() const { return problem_; }
    uint64_t pixelAllocations() const { return pixelAllocations_; }

protected:
    std::string problem_;
    uint64_t pixelAllocations_ = 0;
};

/// `levels`: instruction-set levels in order of preference.
std::unique_ptr<Renderer> makeTileRenderer(int threads, std::vector<std::string> levels);

/// The reference device: the same kernels one pixel at a time, every image as a whole in 32-bit
/// floats, no tiles, no threads.
std::unique_ptr<Renderer> makeReferenceRenderer();

// Shared by both.
kernelabi::TargetView targetView(const Target& target);
/// A view of the part of a step's memory that an edge may read.
kernelabi::SourceView viewOf(const Step& step, const Edge& edge);
/// Makes pixels of a target transparent. `target.bytes` is the top left one of `width` by `height`.
void clearPixels(const kernelabi::TargetView& target, int width, int height);
/// The target as seen from a part of its rectangle.
kernelabi::TargetView partOf(kernelabi::TargetView target, const IntRect& whole,
                             const IntRect& part);

} // namespace vorn::imaging::cpu
