// The binary interface between compiled kernels and the CPU devices. Plain C types only: a kernel
// library is compiled apart from the program that runs it. Raise `kKernelAbiVersion` with every
// change here; a library of another version is refused before anything in it runs.
#pragma once

#include <cstdint>

namespace vorn::kernelabi {

inline constexpr uint32_t kKernelAbiVersion = 1;

/// How pixels lie in memory.
enum Layout : int32_t {
    kPacked8 = 0, ///< four bytes a pixel, in any order (see ChannelOrder)
    kHalf = 1,    ///< RGBA, 16-bit floats
    kFloat = 2,   ///< RGBA, 32-bit floats
    kPlanar = 3,  ///< scratch memory: rows of 32-bit floats, four planes `planeBytes` apart
};

/// For packed 8-bit pixels: the byte of a pixel at which each channel lies.
struct ChannelOrder {
    uint8_t r, g, b, a;
};

/// What a kernel may read of one source. Memory holds the pixels [x0, x0 + width) by
/// [y0, y0 + height) of the working space, the top row first; everything else is transparent.
struct SourceView {
    const uint8_t* bytes;
    int64_t rowBytes;
    int64_t planeBytes;
    int32_t layout;
    ChannelOrder order;
    int32_t x0, y0, width, height;
    int32_t nearest; ///< 1: nearest pixel, 0: bilinear
    float extent[4]; ///< origin and size that the kernel is told
};

struct TargetView {
    uint8_t* bytes; ///< the pixel (x0, y1 - 1) of the call: the left end of the top row
    int64_t rowBytes;
    int64_t planeBytes;
    int32_t layout;
    ChannelOrder order;
};

/// One call: compute the pixels [x0, x1) by [y0, y1) of the working space.
struct KernelCall {
    int32_t x0, y0, x1, y1;
    const SourceView* sources; ///< by sampler index; a warp kernel's image is number 0
    const float* arguments;    ///< the other arguments, flattened, in order
    TargetView target;
};

using KernelFunction = void (*)(const KernelCall*);

/// One entry of the table that a compiled library exports as `vorn_kernel_table`, ended by a null
/// name. `packed` may be used when every source and the target are kPacked8.
struct TableEntry {
    const char* name;
    KernelFunction packed;
    KernelFunction generic;
};

} // namespace vorn::kernelabi
