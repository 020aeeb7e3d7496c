#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::kernelc {

/// Compiles a compute shader for Vulkan 1.2. A SourceError with the compiler's words when it is
/// wrong; `name` is what it is called in them.
std::vector<uint32_t> spirvOf(const std::string& glsl, const std::string& name);

} // namespace vorn::kernelc
