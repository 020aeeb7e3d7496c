// Kernel text to a GLSL compute shader: nearly as it stands, between a header that gives it its
// built-in functions and a main function that gives it its arguments.

#include "imaging/kernelc/source.h"

#include <algorithm>

namespace vorn::kernelc {
namespace {

const char* const kHeader = R"(
layout(local_size_x = 16, local_size_y = 16) in;
layout(set = 0, binding = 0) uniform writeonly image2D vornTarget;
struct VornSource {
    vec4 extent;   // origin and size that the kernel is told
    ivec4 pixels;  // the pixels that there are: x, y, width, height
};

vec2 destCoord() {
    return vec2(vornCall.region.xy) + vec2(gl_GlobalInvocationID.xy) + 0.5;
}
float select(bool c, float a, float b) { return c ? a : b; }
int select(bool c, int a, int b) { return c ? a : b; }
uint select(bool c, uint a, uint b) { return c ? a : b; }
vec2 select(bool c, vec2 a, vec2 b) { return c ? a : b; }
vec3 select(bool c, vec3 a, vec3 b) { return c ? a : b; }
vec4 select(bool c, vec4 a, vec4 b) { return c ? a : b; }
vec4 premultiply(vec4 c) { return vec4(c.rgb * c.a, c.a); }
vec4 unpremultiply(vec4 c) { return c.a > 0.0 ? vec4(c.rgb * (1.0 / c.a), c.a) : vec4(0.0, 0.0, 0.0, c.a); }
)";

const char* const kSamplers = R"(
layout(set = 0, binding = 1) uniform sampler2D vornTextures[VORN_SOURCES];
vec4 vorn_sample(int source, vec2 point) {
    const ivec4 pixels = vornCall.sources[source].pixels;
    const vec2 place = vec2(point.x - float(pixels.x), float(pixels.y + pixels.w) - point.y);
    return textureLod(vornTextures[source], place / vec2(pixels.zw), 0.0);
}
vec4 vorn_here(int source) {
    const ivec4 pixels = vornCall.sources[source].pixels;
    const ivec2 place = ivec2(floor(destCoord())) - pixels.xy;
    return texelFetch(vornTextures[source], ivec2(place.x, pixels.w - 1 - place.y), 0);
}
vec4 sampleStrided(int source, int strideX, int strideY, int x, int y) {
    const ivec4 pixels = vornCall.sources[source].pixels;
    const ivec2 place = ivec2(floor(destCoord())) * ivec2(strideX, strideY) + ivec2(x, y) - pixels.xy;
    if (any(lessThan(place, ivec2(0))) || any(greaterThanEqual(place, pixels.zw))) return vec4(0.0);
    return texelFetch(vornTextures[source], ivec2(place.x, pixels.w - 1 - place.y), 0);
}
vec4 sampleOffset(int source, int x, int y) { return sampleStrided(source, 1, 1, x, y); }
vec2 samplerCoord(int source) { return destCoord(); }
vec2 samplerOrigin(int source) { return vornCall.sources[source].extent.xy; }
vec2 samplerSize(int source) { return vornCall.sources[source].extent.zw; }
vec4 samplerExtent(int source) { return vornCall.sources[source].extent; }
)";

const char* typeName(ParameterType type) {
    switch (type) {
    case ParameterType::Vec2:
        return "vec2";
    case ParameterType::Vec3:
        return "vec3";
    case ParameterType::Vec4:
        return "vec4";
    case ParameterType::Int:
        return "int";
    case ParameterType::Uint:
        return "uint";
    default:
        return "float";
    }
}

} // namespace

std::string emitGlsl(const Source& source, const KernelDeclaration& kernel) {
    int sources = kernel.function.kind == FunctionKind::Warp ? 1 : 0;
    std::string block, arguments;
    int scalars = 0;
    for (const Parameter& parameter : kernel.function.parameters) {
        if (!arguments.empty()) arguments += ", ";
        if (isImage(parameter.type)) {
            arguments += parameter.type == ParameterType::Sampler
                             ? std::to_string(sources)
                             : "vorn_here(" + std::to_string(sources) + ")";
            ++sources;
        } else {
            // One by one, so that the layout is that of the flattened arguments.
            const int count = flattenedSize(parameter.type);
            const bool vector = count > 1;
            const std::string type = vector ? "float" : typeName(parameter.type);
            std::string value;
            for (int i = 0; i < count; ++i) {
                const std::string name = "argument" + std::to_string(scalars++);
                block += "    " + type + " " + name + ";\n";
                value += (i ? ", vornCall." : "vornCall.") + name;
            }
            arguments += vector ? std::string(typeName(parameter.type)) + "(" + value + ")" : value;
        }
    }
    std::string header = kHeader;
    const std::string call =
        "layout(push_constant) uniform VornCall {\n    ivec4 region;\n" +
        (sources > 0 ? "    VornSource sources[" + std::to_string(sources) + "];\n" : "") + block +
        "} vornCall;\n";
    header.insert(header.find("\nvec2 destCoord"), call);
    std::string out = "#version 450\n" + header;
    if (sources > 0) {
        std::string samplers = kSamplers;
        samplers.replace(samplers.find("VORN_SOURCES"), 12, std::to_string(sources));
        out += samplers;
    }

    const std::vector<Token>& tokens = source.tokens;
    int line = -1;
    for (size_t at = 0; at < tokens.size(); ++at) {
        // Other kernels of the library are left out: they may need other sources.
        for (const KernelDeclaration& other : source.kernels)
            if (at == other.firstToken && &other != &kernel) at = other.endToken;
        if (at >= tokens.size()) break;
        const Token& token = tokens[at];
        if (token.line != line) out += "\n", line = token.line;
        size_t length = 0;
        if (isReadHere(tokens, at, length)) {
            // A source that is read elsewhere as well need not hold the own pixel.
            const std::string& name = tokens[at + 2].text;
            const auto& parameters = kernel.function.parameters;
            const bool isThere =
                std::any_of(parameters.begin(), parameters.end(), [&](const Parameter& parameter) {
                    return parameter.name == name && parameter.readsOwnPixelOnly;
                });
            out += isThere ? "vorn_here(" + name + ") " : "sampleOffset(" + name + ", 0, 0) ";
            at += length - 1;
        } else if (token.is("kernel") || token.is("uniform")) {
            continue;
        } else if (token.is("sample")) {
            out += "vorn_sample";
        } else if (token.is("sampler")) {
            out += "int ";
        } else if (token.is("__sample")) {
            out += "vec4 ";
        } else {
            out += token.text;
            if (token.kind != Token::Kind::Punctuation || !token.is(".")) out += " ";
        }
    }
    out += "\nvoid main() {\n"
           "    const ivec2 place = ivec2(gl_GlobalInvocationID.xy);\n"
           "    const ivec2 size = vornCall.region.zw;\n"
           "    if (any(greaterThanEqual(place, size))) return;\n";
    const std::string result = kernel.function.name + "(" + arguments + ")";
    out += kernel.function.kind == FunctionKind::Warp
               ? "    const vec4 color = vorn_sample(0, " + result + ");\n"
               : "    const vec4 color = " + result + ";\n";
    out += "    imageStore(vornTarget, ivec2(place.x, size.y - 1 - place.y), color);\n}\n";
    return out;
}

} // namespace vorn::kernelc
