// The kernel library file: what a kernel source compiled to, for every device, in one file.
//
//   header    magic "VORNKLIB", format version, ABI version, file size, checksum, processor
//   functions name, kind, parameters (name, type, whether only the own pixel is read)
//   code      per instruction-set level: name, lanes, a shared object
//   spirv     per function: a SPIR-V module with the entry point "main"
//
// Numbers are little-endian; every text and block is a 64-bit length and its bytes. The checksum is
// FNV-1a over all that follows the header, so damage is found before anything in the file is used.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kernelc {

inline constexpr uint32_t kFormatVersion = 3;

enum class FunctionKind : uint8_t { General = 0, Color = 1, Warp = 2 };
enum class ParameterType : uint8_t {
    Sampler = 0,
    Pixel = 1,
    Float = 2,
    Vec2,
    Vec3,
    Vec4,
    Int,
    Uint,
    Reduced, ///< the first sampler's image with fewer pixels; nobody hands it over
};

/// How many 32-bit values a parameter takes in the flattened arguments; 0 for image parameters.
constexpr int flattenedSize(ParameterType type) {
    switch (type) {
    case ParameterType::Sampler:
    case ParameterType::Pixel:
    case ParameterType::Reduced:
        return 0;
    case ParameterType::Vec2:
        return 2;
    case ParameterType::Vec3:
        return 3;
    case ParameterType::Vec4:
        return 4;
    default:
        return 1;
    }
}
constexpr bool isImage(ParameterType type) {
    return type == ParameterType::Sampler || type == ParameterType::Pixel ||
           type == ParameterType::Reduced;
}

struct Parameter {
    std::string name;
    ParameterType type = ParameterType::Float;
    bool readsOwnPixelOnly = false; ///< of image parameters
};

struct Function {
    std::string name;
    FunctionKind kind = FunctionKind::General;
    std::vector<Parameter> parameters;
    std::vector<uint32_t> spirv;
};

/// The block of values that a shader gets: four numbers that say where its pixels lie, the extent
/// and the place of each source, and the flattened arguments. Up to this size they are push
/// constants, which every device takes; a larger block is a uniform buffer, binding 2.
inline constexpr size_t kMostPushedBytes = 128;
inline constexpr size_t kRegionBytes = 16, kSourceBytes = 32;
/// How many images a function reads; a warp kernel's image counts.
size_t sourceCount(const Function& function);
/// How many of its parameters are handed over: all but the reduced images, which come last.
size_t givenCount(const Function& function);
size_t callBytes(const Function& function);

struct Code {
    std::string level; ///< "reference", "x86-64-v2", …
    uint32_t lanes = 1;
    std::string object; ///< a shared object that exports `vorn_kernel_table`
};

struct Library {
    std::string name;
    std::string processor; ///< "x86_64", "aarch64"
    std::vector<Function> functions;
    std::vector<Code> code;
};

std::string serialize(const Library& library);

/// Reads a library; an empty string, or else what is wrong with the bytes.
std::string parse(std::string_view bytes, Library& library);

/// The processor that this program was compiled for.
const char* thisProcessor();

} // namespace vorn::kernelc
