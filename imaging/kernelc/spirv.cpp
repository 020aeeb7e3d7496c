// GLSL to SPIR-V by glslang, as a library: the program takes longer to start than a shader to
// compile.
#include "imaging/kernelc/spirv.h"

#include "imaging/kernelc/source.h"

#include <glslang/Public/ResourceLimits.h>
#include <glslang/Public/ShaderLang.h>
#include <glslang/SPIRV/GlslangToSpv.h>

namespace vorn::kernelc {

std::vector<uint32_t> spirvOf(const std::string& glsl, const std::string& name) {
    static const bool isReady = glslang::InitializeProcess();
    if (!isReady) throw SourceError("glslang cannot be started");
    constexpr int kDefaultVersion = 100; // of a shader that does not state its own
    const auto messages = static_cast<EShMessages>(EShMsgSpvRules | EShMsgVulkanRules);
    glslang::TShader shader(EShLangCompute);
    const char* const text = glsl.c_str();
    const char* const called = name.c_str();
    shader.setStringsWithLengthsAndNames(&text, nullptr, &called, 1);
    shader.setEnvInput(glslang::EShSourceGlsl, EShLangCompute, glslang::EShClientVulkan,
                       kDefaultVersion);
    shader.setEnvClient(glslang::EShClientVulkan, glslang::EShTargetVulkan_1_2);
    shader.setEnvTarget(glslang::EShTargetSpv, glslang::EShTargetSpv_1_5);
    if (!shader.parse(GetDefaultResources(), kDefaultVersion, false, messages))
        throw SourceError(shader.getInfoLog());
    glslang::TProgram program;
    program.addShader(&shader);
    if (!program.link(messages)) throw SourceError(program.getInfoLog());
    std::vector<uint32_t> words;
    glslang::GlslangToSpv(*program.getIntermediate(EShLangCompute), words);
    return words;
}

} // namespace vorn::kernelc
