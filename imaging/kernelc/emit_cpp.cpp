// Kernel text to C++: types become lane types or shared ones, literals become single precision,
// swizzles become calls. Everything is a member of a struct template over the memory mode.

#include "imaging/kernelc/source.h"

#include <map>
#include <set>

namespace vorn::kernelc {
namespace {

struct TypeNames {
    const char* lanes;
    const char* shared;
    const char* constructor;
};
const std::map<std::string, TypeNames, std::less<>> kTypes = {
    {"float", {"Float", "float", "toFloat"}},
    {"int", {"Int", "int32_t", "toInt"}},
    {"uint", {"Uint", "uint32_t", "toUint"}},
    {"bool", {"Mask", "bool", "Mask"}},
    {"vec2", {"Vec2<Float>", "Vec2<float>", "makeVec2"}},
    {"vec3", {"Vec3<Float>", "Vec3<float>", "makeVec3"}},
    {"vec4", {"Vec4<Float>", "Vec4<float>", "makeVec4"}},
    {"mat2", {"Mat2<Float>", "Mat2<float>", "makeMat2"}},
    {"mat3", {"Mat3<Float>", "Mat3<float>", "makeMat3"}},
};

/// The swizzle in x, y, z and w, or nothing when the name is none.
std::string swizzle(const std::string& name) {
    static const char* const alphabets[] = {"xyzw", "rgba", "stpq"};
    if (name.size() > 4) return {};
    for (const std::string_view alphabet : alphabets) {
        std::string result;
        for (const char c : name) {
            const size_t index = alphabet.find(c);
            if (index == std::string_view::npos) break;
            result += "xyzw"[index];
        }
        if (result.size() == name.size()) return result;
    }
    return {};
}

std::string number(const std::string& text) {
    const bool hexadecimal = text.size() > 1 && text[1] == 'x';
    const bool real = !hexadecimal && text.find_first_of(".eE") != std::string::npos;
    return real && text.back() != 'f' ? text + "f" : text;
}

class Emitter {
public:
    explicit Emitter(const Source& source) : source_(source), tokens_(source.tokens) {}

    std::string run() {
        out_ = "#include \"kernel.h\"\n"
               "using namespace vorn::lanes;\n"
               "namespace {\n"
               "template <Memory memory>\n"
               "struct Text : KernelBase<memory> {\n"
               "using KernelBase<memory>::place; using KernelBase<memory>::destCoord;\n"
               "using KernelBase<memory>::sample; using KernelBase<memory>::sampleHere;\n"
               "using KernelBase<memory>::samplerCoord; using KernelBase<memory>::samplerSize;\n"
               "using KernelBase<memory>::samplerOrigin; using KernelBase<memory>::samplerExtent;\n";
        size_t at = 0;
        for (const KernelDeclaration& kernel : source_.kernels) {
            body(at, kernel.firstToken);
            newLine(tokens_[kernel.firstToken]);
            out_ += "VORN_INLINE ";
            body(kernel.firstToken + 1, kernel.parametersToken + 1);
            shared_ = true; // a kernel's own parameters are the same for every pixel
            body(kernel.parametersToken + 1, kernel.bodyToken);
            shared_ = false;
            depth_ = 0;
            body(kernel.bodyToken, kernel.endToken);
            at = kernel.endToken;
        }
        body(at, tokens_.size());
        out_ += "\n};\n";
        for (const KernelDeclaration& kernel : source_.kernels) entry(kernel.function);
        out_ += "} // namespace\n"
                "extern \"C\" __attribute__((visibility(\"default\")))\n"
                "const TableEntry vorn_kernel_table[] = {\n";
        for (const KernelDeclaration& kernel : source_.kernels) {
            const std::string& name = kernel.function.name;
            out_ += "{\"" + name + "\", &run_" + name + "<Memory::Packed>, &run_" + name +
                    "<Memory::Any>},\n";
        }
        out_ += "{nullptr, nullptr, nullptr}};\n";
        return out_;
    }

private:
    const Token& token(size_t at) const {
        static const Token end;
        return at < tokens_.size() ? tokens_[at] : end;
    }

    void newLine(const Token& token) {
        if (token.line != line_ || token.file != file_) {
            if (token.file != file_ || token.line != line_ + 1)
                out_ += "\n#line " + std::to_string(token.line) + " \"" +
                        source_.files[static_cast<size_t>(token.file)] + "\"\n";
            else
                out_ += "\n";
            line_ = token.line, file_ = token.file;
        }
    }

    void body(size_t from, size_t to) {
        for (size_t at = from; at < to; ++at) at += one(at) - 1;
    }

    /// Writes the token at `at`; gives how many tokens that took.
    size_t one(size_t at) {
        const Token& now = token(at);
        newLine(now);
        size_t length = 0;
        if (isReadHere(tokens_, at, length)) {
            out_ += "sampleHere(" + token(at + 2).text + ") ";
            return length;
        }
        if (now.kind == Token::Kind::Number) {
            out_ += number(now.text) + " ";
            return 1;
        }
        if (now.kind == Token::Kind::Punctuation) return punctuation(at);
        if (at > 0 && token(at - 1).is(".")) {
            const std::string lanes = swizzle(now.text);
            out_ += lanes.empty() ? now.text : lanes.size() == 1 ? lanes : lanes + "()";
            out_ += " ";
            return 1;
        }
        if (now.is("uniform")) {
            sharedNext_ = true;
            return 1;
        }
        if (now.is("in")) return 1;
        if (now.is("out") || now.is("inout")) {
            referenceNext_ = true;
            return 1;
        }
        if (now.is("const") && depth_ == 0 && parentheses_ == 0) {
            out_ += "static constexpr ";
            sharedNext_ = true;
            return 1;
        }
        if (now.is("for")) forHeader_ = parentheses_ + 1;
        if (now.is("sampler")) {
            out_ += "Sampler<memory> ";
            return 1;
        }
        if (now.is("__sample")) {
            out_ += "Vec4<Float> ";
            return 1;
        }
        const auto type = kTypes.find(now.text);
        if (type == kTypes.end() && !now.is("void")) {
            out_ += now.text + " ";
            return 1;
        }
        if (type != kTypes.end() && token(at + 1).is("(")) {
            out_ += type->second.constructor;
            return 1;
        }
        const bool definesFunction = depth_ == 0 && parentheses_ == 0 && token(at + 2).is("(");
        const bool afterKernel = at > 0 && token(at - 1).is("kernel");
        if (definesFunction && !afterKernel) out_ += "VORN_INLINE ";
        if (type == kTypes.end()) {
            out_ += "void ";
            return 1;
        }
        const bool shared = shared_ || sharedNext_ || forHeader_ != 0;
        out_ += shared ? type->second.shared : type->second.lanes;
        if (referenceNext_) out_ += "&";
        out_ += " ";
        sharedNext_ = referenceNext_ = false;
        return 1;
    }

    size_t punctuation(size_t at) {
        const Token& now = token(at);
        if (now.is("{")) ++depth_;
        if (now.is("}")) --depth_;
        if (now.is("(")) ++parentheses_;
        if (now.is(")")) {
            if (forHeader_ == parentheses_) forHeader_ = 0;
            --parentheses_;
        }
        out_ += now.text;
        if (!now.is(".")) out_ += " ";
        return 1;
    }

    /// The function that the engine calls: unflattens the arguments and runs the loop.
    void entry(const Function& function) {
        out_ += "template <Memory memory> void run_" + function.name +
                "(const KernelCall* call) {\nText<memory> text;\n";
        std::string arguments, views;
        int source = function.kind == FunctionKind::Warp ? 1 : 0, offset = 0;
        if (function.kind == FunctionKind::Warp) out_ += view(0);
        for (const Parameter& parameter : function.parameters) {
            if (!arguments.empty()) arguments += ", ";
            if (isImage(parameter.type)) {
                out_ += view(source);
                const std::string name = "view" + std::to_string(source++);
                arguments += parameter.type == ParameterType::Sampler
                                 ? "Sampler<memory>{" + name + "}"
                                 : "loadHere<memory>(" + name + ", place)";
                continue;
            }
            const std::string argument = "argument" + std::to_string(offset);
            const auto value = [&](int i) {
                return "call->arguments[" + std::to_string(offset + i) + "]";
            };
            switch (parameter.type) {
            case ParameterType::Int:
                out_ += "const int32_t " + argument + " = bitsAs<int32_t>(" + value(0) + ");\n";
                break;
            case ParameterType::Uint:
                out_ += "const uint32_t " + argument + " = bitsAs<uint32_t>(" + value(0) + ");\n";
                break;
            case ParameterType::Float:
                out_ += "const float " + argument + " = " + value(0) + ";\n";
                break;
            default: {
                const int count = flattenedSize(parameter.type);
                out_ += "const Vec" + std::to_string(count) + "<float> " + argument + "(";
                for (int i = 0; i < count; ++i) out_ += (i ? ", " : "") + value(i);
                out_ += ");\n";
            }
            }
            arguments += argument;
            offset += flattenedSize(parameter.type);
        }
        const std::string result = "text." + function.name + "(" + arguments + ")";
        out_ += "forEachGroup<memory>(*call, [&](Place place) __attribute__((always_inline)) -> Pixel {\n"
                "text.place = place;\n";
        out_ += function.kind == FunctionKind::Warp
                    ? "return sampleAt<memory>(view0, Vec2<Float>(" + result + "));\n"
                    : "return " + result + ";\n";
        out_ += "});\n}\n";
    }

    static std::string view(int index) {
        const std::string number = std::to_string(index);
        // A copy of its own: the pixels that are written could otherwise be taken for it.
        return "const SourceView view" + number + " = call->sources[" + number + "];\n";
    }

    const Source& source_;
    const std::vector<Token>& tokens_;
    std::string out_;
    int line_ = -1, file_ = -1;
    int depth_ = 0, parentheses_ = 0;
    int forHeader_ = 0; ///< the parenthesis depth of the `for` header that we are in, or 0
    bool shared_ = false, sharedNext_ = false, referenceNext_ = false;
};

} // namespace

std::string emitCpp(const Source& source) { return Emitter(source).run(); }

} // namespace vorn::kernelc
