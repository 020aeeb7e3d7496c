// Kernel text to a GLSL compute shader: nearly as it stands, between a header that gives it its
// built-in functions and a main function that gives it its arguments.

#include "imaging/kernelc/source.h"

#include <algorithm>
#include <iterator>

namespace vorn::kernelc {
namespace {

const char* const kHeader = R"(
layout(local_size_x = 16, local_size_y = 16) in;
layout(set = 0, binding = 0) uniform writeonly image2D vornTarget;
// How a pixel is stored: 0 as it is, else with 8 bits as RGBA (1), BGRA (2), ARGB (3).
layout(constant_id = 0) const int vornOrder = 0;
struct VornSource {
    vec4 extent;   // origin and size that the kernel is told
    // The pixels that there are: x, y; width and height; where they lie in the texture, column and
    // row in 15 bits each. The topmost bit is set for nearest reads.
    ivec4 pixels;
};

// Two numbers of 16 bits in one.
ivec2 vorn_halves(int both) { return ivec2(both & 0xffff, int(uint(both) >> 16)); }
vec2 destCoord() {
    return vec2(vornCall.region.xy) + vec2(gl_GlobalInvocationID.xy) + 0.5;
}
float select(bool c, float a, float b) { return c ? a : b; }
int select(bool c, int a, int b) { return c ? a : b; }
uint select(bool c, uint a, uint b) { return c ? a : b; }
vec2 select(bool c, vec2 a, vec2 b) { return c ? a : b; }
vec3 select(bool c, vec3 a, vec3 b) { return c ? a : b; }
vec4 select(bool c, vec4 a, vec4 b) { return c ? a : b; }
bool everywhere(bool c) { return c; }
vec4 premultiply(vec4 c) { return vec4(c.rgb * c.a, c.a); }
vec4 unpremultiply(vec4 c) { return c.a > 0.0 ? vec4(c.rgb * (1.0 / c.a), c.a) : vec4(0.0, 0.0, 0.0, c.a); }

// Functions for which GLSL leaves open what this language says: not-a-numbers, and powers and
// logarithms of what is not above 0.
float vorn_min(float a, float b) { return a < b ? a : b; }
float vorn_max(float a, float b) { return a > b ? a : b; }
float vorn_exp2(float x) { return exp2(vorn_min(vorn_max(x, -126.0), 127.99999)); }
float vorn_log2(float x) { return log2(vorn_max(x, 1.17549435e-38)); }
float vorn_exp(float x) { return vorn_exp2(x * 1.44269504); }
float vorn_log(float x) { return vorn_log2(x) * 0.693147181; }
float vorn_pow(float x, float y) {
    return x > 0.0 ? vorn_exp2(vorn_log2(x) * y) : y > 0.0 ? 0.0 : 1.0;
}
#define VORN_ON_VECTORS_1(f) \
    vec2 f(vec2 a) { return vec2(f(a.x), f(a.y)); } \
    vec3 f(vec3 a) { return vec3(f(a.x), f(a.y), f(a.z)); } \
    vec4 f(vec4 a) { return vec4(f(a.x), f(a.y), f(a.z), f(a.w)); }
#define VORN_ON_VECTORS_2(f) \
    vec2 f(vec2 a, vec2 b) { return vec2(f(a.x, b.x), f(a.y, b.y)); } \
    vec3 f(vec3 a, vec3 b) { return vec3(f(a.x, b.x), f(a.y, b.y), f(a.z, b.z)); } \
    vec4 f(vec4 a, vec4 b) { return vec4(f(a.x, b.x), f(a.y, b.y), f(a.z, b.z), f(a.w, b.w)); } \
    vec2 f(vec2 a, float b) { return f(a, vec2(b)); } \
    vec3 f(vec3 a, float b) { return f(a, vec3(b)); } \
    vec4 f(vec4 a, float b) { return f(a, vec4(b)); }
#define VORN_CLAMP(T, B) T vorn_clamp(T x, B low, B high) { return vorn_min(vorn_max(x, low), high); }
VORN_ON_VECTORS_2(vorn_min)
VORN_ON_VECTORS_2(vorn_max)
VORN_ON_VECTORS_1(vorn_exp2)
VORN_ON_VECTORS_1(vorn_log2)
VORN_ON_VECTORS_1(vorn_exp)
VORN_ON_VECTORS_1(vorn_log)
VORN_ON_VECTORS_2(vorn_pow)
VORN_CLAMP(float, float)
VORN_CLAMP(vec2, float)
VORN_CLAMP(vec3, float)
VORN_CLAMP(vec4, float)
VORN_CLAMP(vec2, vec2)
VORN_CLAMP(vec3, vec3)
VORN_CLAMP(vec4, vec4)
int vorn_min(int a, int b) { return min(a, b); }
int vorn_max(int a, int b) { return max(a, b); }
int vorn_clamp(int x, int low, int high) { return clamp(x, low, high); }

void vorn_store(ivec2 place, vec4 c) {
    if (vornOrder != 0) {
        // Rounded here, since drivers may round to either side; a not-a-number becomes 0.
        c = vec4(c.r > 0.0 ? min(c.r, 1.0) : 0.0, c.g > 0.0 ? min(c.g, 1.0) : 0.0,
                 c.b > 0.0 ? min(c.b, 1.0) : 0.0, c.a > 0.0 ? min(c.a, 1.0) : 0.0);
        c = roundEven(c * 255.0) * (1.0 / 255.0);
        c = vornOrder == 2 ? c.bgra : vornOrder == 3 ? c.argb : c;
    }
    imageStore(vornTarget, place, c);
}
)";

// Bilinear blends are computed, not left to the texture unit: its fractions have 4 to 8 bits, which
// is up to 8 steps of 255 across an edge, and its border is that of the texture, not of the part of
// it that a source may show.
const char* const kSamplers = R"(
layout(set = 0, binding = 1) uniform texture2D vornTextures[VORN_SOURCES];
// The textures of an array may be chosen by constants only, on the plainest devices.
vec4 vorn_texel(int source, ivec2 at) {
VORN_CASES}
vec4 vorn_fetch(int source, ivec2 place) {
    const ivec4 pixels = vornCall.sources[source].pixels;
    const ivec2 size = vorn_halves(pixels.z);
    const ivec2 p = place - pixels.xy;
    if (any(greaterThanEqual(uvec2(p), uvec2(size)))) return vec4(0.0);
    return vorn_texel(source, (vorn_halves(pixels.w) & 0x7fff) + ivec2(p.x, size.y - 1 - p.y));
}
// Limited to just outside of the source; a coordinate that is not a number ends there as well.
int vorn_whole(float value, int origin, int size) {
    const float low = float(origin) - 2.0;
    return int(vorn_min(vorn_max(value, low), float(origin) + float(size) + 1.0));
}
vec4 vorn_sample(int source, vec2 point) {
    const ivec4 pixels = vornCall.sources[source].pixels;
    const ivec2 size = vorn_halves(pixels.z);
    if (size.x == 0) return vec4(0.0);
    const vec2 p = pixels.w < 0 ? point : point - 0.5;
    const vec2 whole = floor(p);
    const ivec2 at = ivec2(vorn_whole(whole.x, pixels.x, size.x), vorn_whole(whole.y, pixels.y, size.y));
    if (pixels.w < 0) return vorn_fetch(source, at);
    const vec2 t = vorn_max(p - whole, vec2(0.0)); // 0 where the point is infinite
    const vec4 c00 = vorn_fetch(source, at), c10 = vorn_fetch(source, at + ivec2(1, 0));
    const vec4 c01 = vorn_fetch(source, at + ivec2(0, 1)), c11 = vorn_fetch(source, at + ivec2(1, 1));
    const vec4 lower = c00 + (c10 - c00) * t.x, upper = c01 + (c11 - c01) * t.x;
    return lower + (upper - lower) * t.y;
}
vec4 sampleStrided(int source, int strideX, int strideY, int x, int y) {
    return vorn_fetch(source, (vornCall.region.xy + ivec2(gl_GlobalInvocationID.xy)) * ivec2(strideX, strideY) + ivec2(x, y));
}
vec4 sampleOffset(int source, int x, int y) { return sampleStrided(source, 1, 1, x, y); }
vec4 sampleSum(int source, int across, int up, int x, int y) {
    const ivec2 block = clamp(ivec2(across, up), ivec2(1), ivec2(64));
    const ivec2 first = (vornCall.region.xy + ivec2(gl_GlobalInvocationID.xy)) * ivec2(across, up) + ivec2(x, y);
    vec4 sum = vec4(0.0);
    for (int j = 0; j < block.y; ++j)
        for (int i = 0; i < block.x; ++i) sum += vorn_fetch(source, first + ivec2(i, j));
    return sum;
}
vec4 sampleGaussian(int source, int x, int y, int reach, float center, float first, float quotient, float factor) {
    vec4 sum = sampleOffset(source, 0, 0) * center;
    float weight = first, fall = quotient;
    for (int i = 1; i <= reach; ++i) {
        sum += (sampleOffset(source, i * x, i * y) + sampleOffset(source, -i * x, -i * y)) * weight;
        weight *= fall;
        fall *= factor;
    }
    return sum;
}
vec4 sampleMoved(int source, vec2 offset) {
    const vec2 p = vornCall.sources[source].pixels.w < 0 ? offset + 0.5 : offset;
    const vec2 whole = clamp(floor(p), -1.0e8, 1.0e8);
    const ivec2 at = vornCall.region.xy + ivec2(gl_GlobalInvocationID.xy) + ivec2(whole);
    if (vornCall.sources[source].pixels.w < 0) return vorn_fetch(source, at);
    const vec2 t = clamp(p - whole, 0.0, 1.0);
    const vec4 c00 = vorn_fetch(source, at), c10 = vorn_fetch(source, at + ivec2(1, 0));
    const vec4 c01 = vorn_fetch(source, at + ivec2(0, 1)), c11 = vorn_fetch(source, at + ivec2(1, 1));
    const vec4 lower = c00 + (c10 - c00) * t.x, upper = c01 + (c11 - c01) * t.x;
    return lower + (upper - lower) * t.y;
}
vec4 sampleShared(int source, vec2 point) { return vorn_sample(source, point); }
vec4 sampleOnce(int source, vec2 point) { return vorn_sample(source, point); }
float vorn_mirrored(float here, float there, int mirroring) {
    return mirroring == 1 ? there : mirroring == 2 ? min(here, there) : mirroring == 3 ? max(here, there) : here;
}
vec4 sampleMirrored(int source, vec2 sum, int across, int up) {
    const vec2 p = destCoord();
    return vorn_sample(source, vec2(vorn_mirrored(p.x, sum.x - p.x, across), vorn_mirrored(p.y, sum.y - p.y, up)));
}
vec2 samplerCoord(int source) { return destCoord(); }
vec2 samplerOrigin(int source) { return vornCall.sources[source].extent.xy; }
vec2 samplerSize(int source) { return vornCall.sources[source].extent.zw; }
vec4 samplerExtent(int source) { return vornCall.sources[source].extent; }
)";

/// Built-in functions that have names of their own in the shader, see above.
bool isDefinedHere(const Token& token) {
    static const char* const names[] = {"sample", "min", "max", "clamp", "exp2",
                                        "log2",   "exp", "log", "pow"};
    return std::any_of(std::begin(names), std::end(names),
                       [&](const char* name) { return token.is(name); });
}

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
            arguments += parameter.type != ParameterType::Pixel
                             ? std::to_string(sources)
                             : "sampleOffset(" + std::to_string(sources) + ", 0, 0)";
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
    const bool pushed = callBytes(kernel.function) <= kMostPushedBytes;
    const std::string call =
        (pushed ? "layout(push_constant)" : "layout(set = 0, binding = 2, std140)") +
        std::string(" uniform VornCall {\n"
                    "    // Lower left corner; width and height; where it lies in the target.\n"
                    "    ivec4 region;\n") +
        (sources > 0 ? "    VornSource sources[" + std::to_string(sources) + "];\n" : "") + block +
        "} vornCall;\n";
    header.insert(header.find("\n// Two numbers"), call);
    std::string out =
        "#version 450\n#extension GL_EXT_samplerless_texture_functions : require\n" + header;
    if (sources > 0) {
        std::string samplers = kSamplers;
        samplers.replace(samplers.find("VORN_SOURCES"), 12, std::to_string(sources));
        std::string cases;
        for (int i = 0; i < sources; ++i)
            cases += (i + 1 < sources ? "    if (source == " + std::to_string(i) + ") " : "    ") +
                     "return texelFetch(vornTextures[" + std::to_string(i) + "], at, 0);\n";
        samplers.replace(samplers.find("VORN_CASES"), 10, cases);
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
            out += "sampleOffset(" + tokens[at + 2].text + ", 0, 0) ";
            at += length - 1;
        } else if (token.is("kernel") || token.is("uniform") || token.is("lattice")) {
            continue;
        } else if (isDefinedHere(token) && (at == 0 || !tokens[at - 1].is("."))) {
            out += "vorn_" + token.text;
        } else if (token.is("sampler") || token.is("reduced")) {
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
           "    const ivec2 size = vorn_halves(vornCall.region.z);\n"
           "    if (any(greaterThanEqual(place, size))) return;\n";
    const std::string result = kernel.function.name + "(" + arguments + ")";
    out += kernel.function.kind == FunctionKind::Warp
               ? "    const vec4 color = vorn_sample(0, " + result + ");\n"
               : "    const vec4 color = " + result + ";\n";
    out += "    vorn_store(ivec2(place.x, size.y - 1 - place.y) + vorn_halves(vornCall.region.w), "
           "color);\n"
           "}\n";
    return out;
}

} // namespace vorn::kernelc
