// Kernel text to C++: types become lane types or shared ones, literals become single precision,
// swizzles become calls. Everything is a member of a struct template over the memory mode.

#include "imaging/kernelc/source.h"

#include <algorithm>
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
        out_ =
            "#include \"kernel.h\"\n"
            "using namespace vorn::lanes;\n"
            "namespace {\n"
            "template <Memory memory>\n"
            "struct Text : KernelBase<memory> {\n"
            "using KernelBase<memory>::destCoord;\n"
            "using KernelBase<memory>::sample; using KernelBase<memory>::calledSample;\n"
            "using KernelBase<memory>::sampleHere; using KernelBase<memory>::sampleOnce; using "
            "KernelBase<memory>::sampleMirrored;\n"
            "using KernelBase<memory>::sampleMoved; using KernelBase<memory>::sampleShared;\n"
            "using KernelBase<memory>::give; using KernelBase<memory>::giveHere; using "
            "KernelBase<memory>::giveOffset; using KernelBase<memory>::giveNothing;\n"
            "using KernelBase<memory>::sampleOffset; using KernelBase<memory>::sampleStrided;\n"
            "using KernelBase<memory>::sampleSum; using KernelBase<memory>::sampleGaussian;\n"
            "using KernelBase<memory>::samplerCoord; using KernelBase<memory>::samplerSize;\n"
            "using KernelBase<memory>::samplerOrigin; using KernelBase<memory>::samplerExtent;\n";
        findLoops();
        findFunctions();
        int inFunctions = 0, outsideOfLoops = 0;
        for (const KernelDeclaration& kernel : source_.kernels) {
            const Amount all = inlined(kernel.bodyToken, kernel.endToken);
            inFunctions += all.reads - readsIn(kernel.bodyToken, kernel.endToken);
            outsideOfLoops += all.readsOutsideOfLoops;
        }
        const bool hasFewInFunctions = inFunctions <= kFewReads;
        inlinesFirstReads_ = outsideOfLoops <= kFewFirstReads;
        size_t at = 0;
        for (const KernelDeclaration& kernel : source_.kernels) {
            inlinesReads_ = hasFewInFunctions;
            body(at, kernel.firstToken);
            newLine(tokens_[kernel.firstToken]);
            out_ += "VORN_INLINE ";
            if (kernel.function.kind == FunctionKind::Warp)
                body(kernel.firstToken + 1, kernel.parametersToken + 1);
            else
                out_ += "void " + kernel.function.name + "(", ++parentheses_;
            shared_ = true; // a kernel's own parameters are the same for every pixel
            body(kernel.parametersToken + 1, kernel.bodyToken);
            shared_ = false;
            kernel_ = &kernel;
            inlinesReads_ = readsIn(kernel.bodyToken, kernel.endToken) <= kFewReads;
            kernelBody(kernel);
            kernel_ = nullptr;
            parentheses_ = 0; // the parameters were written twice, their closing one too
            at = kernel.endToken;
        }
        inlinesReads_ = hasFewInFunctions;
        body(at, tokens_.size());
        // One for all calls of a function, which are compiled once so.
        for (const std::string& name : latticeFunctions_)
            out_ += "\ntemplate <class... Rest> VORN_INLINE auto latticeOf_" + name +
                    "(int site, Int x, Int y, Rest... rest) {\n"
                    "return this->latticeAt(site, [=, this](Int latticeX, Int latticeY) "
                    "VORN_LATTICE_FUNCTION { return " +
                    name + "(latticeX, latticeY, rest...); }, x, y, rest...);\n}";
        out_ += "\n};\n";
        for (const KernelDeclaration& kernel : source_.kernels) entry(kernel);
        out_ += "} // namespace\n"
                "extern \"C\" __attribute__((visibility(\"default\")))\n"
                "const TableEntry vorn_kernel_table[] = {\n";
        for (const KernelDeclaration& kernel : source_.kernels) {
            const std::string& name = kernel.function.name;
            out_ += "{\"" + name + "\", VORN_PACKED(run_" + name +
                    (isLong(kernel) ? "<Memory::Any>" : "<Memory::Packed>") + "), &run_" + name +
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

    /// Reads at any place that stand between two tokens.
    int readsIn(size_t from, size_t to) const {
        int reads = 0;
        size_t length = 0;
        for (size_t at = from; at < to; ++at)
            reads +=
                token(at).is("sample") && token(at + 1).is("(") && !isReadHere(tokens_, at, length);
        return reads;
    }

    /// Finds what stands in loops.
    void findLoops() {
        isInLoop_.assign(tokens_.size(), false);
        for (size_t at = 0; at < tokens_.size(); ++at) {
            if (!token(at).is("for")) continue;
            size_t end = closing(at + 1) + 1;
            for (int braces = 0; end < tokens_.size(); ++end) {
                braces += token(end).is("{") ? 1 : token(end).is("}") ? -1 : 0;
                if (braces == 0 && (token(end).is(";") || token(end).is("}"))) break;
            }
            for (size_t i = at; i < std::min(end, tokens_.size()); ++i) isInLoop_[i] = true;
        }
    }
    bool isInLoop(size_t at) const { return at < isInLoop_.size() && isInLoop_[at]; }

    /// Finds the bodies of the functions that kernels call.
    void findFunctions() {
        int depth = 0;
        for (size_t at = 0; at < tokens_.size(); ++at) {
            if (depth == 0 && token(at).is("(")) {
                const std::string& name = token(at - 1).text;
                at = closing(at);
                if (!token(at + 1).is("{")) continue;
                size_t end = at + 1;
                for (int braces = 0; end < tokens_.size(); ++end) {
                    braces += token(end).is("{") ? 1 : token(end).is("}") ? -1 : 0;
                    if (braces == 0) break;
                }
                functions_[name] = {at + 1, end};
                at = end;
                continue;
            }
            depth += token(at).is("{") ? 1 : token(at).is("}") ? -1 : 0;
        }
    }

    struct Amount {
        int tokens = 0, reads = 0; ///< reads at any place
        int readsOutsideOfLoops = 0;
        bool readsInRows = false; ///< of whole pixels
    };
    /// What stands between two tokens, with the functions that are called there as often as they
    /// are: they are always inlined.
    Amount inlined(size_t from, size_t to) const {
        Amount amount{static_cast<int>(to - from), readsIn(from, to)};
        for (size_t at = from; at < to; ++at)
            if (!isInLoop(at)) amount.readsOutsideOfLoops += readsIn(at, at + 1);
        for (size_t at = from; at < to; ++at) {
            amount.readsInRows |= token(at).is("sampleOffset") || token(at).is("sampleStrided") ||
                                  token(at).is("sampleMoved") || token(at).is("sampleMirrored");
            const auto function = functions_.find(token(at).text);
            const bool isCall = token(at + 1).is("(") && function != functions_.end();
            // A function never calls one that stands below it, so this ends.
            if (!isCall || function->second.second >= from) continue;
            const Amount inside = inlined(function->second.first, function->second.second);
            amount.tokens += inside.tokens, amount.reads += inside.reads;
            if (!isInLoop(at)) amount.readsOutsideOfLoops += inside.readsOutsideOfLoops;
            amount.readsInRows |= inside.readsInRows;
        }
        return amount;
    }

    /// Whether a kernel is so long that loads and stores are little of it: it is compiled once, for
    /// memory of any layout. Reads in rows would choose between layouts each time.
    bool isLong(const KernelDeclaration& kernel) const {
        const Amount amount = inlined(kernel.bodyToken, kernel.endToken);
        return amount.tokens > kMuchText && !amount.readsInRows;
    }

    /// The parenthesis that closes the one at a token.
    size_t closing(size_t at) const {
        int depth = 0;
        for (; at < tokens_.size(); ++at) {
            depth += token(at).is("(") ? 1 : token(at).is(")") ? -1 : 0;
            if (depth == 0) break;
        }
        return at;
    }

    /// Whether a kernel reads a sampler at the own pixel.
    bool readsHere(const KernelDeclaration& kernel, const std::string& sampler) const {
        size_t length = 0;
        for (size_t at = kernel.bodyToken; at < kernel.endToken; ++at)
            if (isReadHere(tokens_, at, length) && token(at + 2).is(sampler)) return true;
        return false;
    }

    /// Whether the kernel that is being written reads a sampler at the own pixel and nowhere else.
    bool readsOwnPixelOnly(const std::string& sampler) const {
        if (!kernel_) return false;
        for (const Parameter& parameter : kernel_->function.parameters)
            if (parameter.name == sampler) return parameter.readsOwnPixelOnly;
        return false;
    }

    std::string lineOf(const Token& token) const {
        return "#line " + std::to_string(token.line) + " \"" +
               source_.files[static_cast<size_t>(token.file)] + "\"\n";
    }

    void newLine(const Token& token) {
        if (token.line != line_ || token.file != file_) {
            if (token.file != file_ || token.line != line_ + 1)
                out_ += "\n" + lineOf(token);
            else
                out_ += "\n";
            line_ = token.line, file_ = token.file;
        }
    }

    /// A kernel's body. Its `uniform` declarations that stand directly in it move to a function
    /// that runs once per call, before the loop over the pixels; it sees the kernel's parameters
    /// and the uniforms before it, and nothing that differs from pixel to pixel.
    void kernelBody(const KernelDeclaration& kernel) {
        const std::string& name = kernel.function.name;
        std::string fields, locals, setup;
        depth_ = 0;
        const std::string before = std::move(out_);
        out_.clear();
        size_t at = kernel.bodyToken;
        at += one(at);
        while (at < kernel.endToken) {
            if (depth_ != 1 || parentheses_ != 0 || !token(at).is("uniform")) {
                at += one(at);
                continue;
            }
            newLine(token(at));
            const std::string line = lineOf(token(at));
            const std::string pixelText = std::move(out_);
            out_.clear();
            const auto known = kTypes.find(token(at + 1).text);
            if (known == kTypes.end())
                source_.fail(at + 1, "'" + token(at + 1).text + "' is not a type");
            const std::string type = known->second.shared;
            const std::string variable = token(at + 2).text;
            at += 2;
            while (!token(at).is(";")) {
                if (at + 1 >= kernel.endToken) source_.fail(at, "expected ';'");
                at += one(at);
            }
            at += 1;
            setup += line + "const " + type + " " + out_ + ";\nshared_" + name + "." + variable +
                     " = " + variable + ";\n";
            fields += type + " " + variable + "; ";
            locals +=
                "const " + type + " " + variable + " = shared_" + name + "." + variable + "; ";
            out_ = pixelText;
        }
        const std::string pixelText = std::move(out_);
        out_ = before + "{ " + locals + pixelText.substr(pixelText.find('{') + 1);
        out_ += "\nstruct { " + fields + "} shared_" + name + ";\nvoid setup_" + name + "(";
        shared_ = true;
        parentheses_ = 1; // the one above, which the text below closes
        body(kernel.parametersToken + 1, kernel.bodyToken);
        shared_ = false;
        out_ += "{\n" + setup + "}\n";
        if (onlyMirrors(kernel)) {
            out_ += "VORN_INLINE void moves_" + name + "(const KernelCall& call, ";
            shared_ = true;
            parentheses_ = 1;
            body(kernel.parametersToken + 1, kernel.bodyToken);
            shared_ = false;
            out_ += "{ callMirrored<memory>(call, " + token(kernel.bodyToken + 4).text + ".view";
            body(kernel.bodyToken + 5, kernel.endToken);
        }
        line_ = -1;
    }

    /// Whether a kernel does nothing but mirror an image.
    bool onlyMirrors(const KernelDeclaration& kernel) const {
        const size_t at = kernel.bodyToken + 1;
        return token(at).is("return") && token(at + 1).is("sampleMirrored") &&
               closing(at + 2) + 3 == kernel.endToken;
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
            // A source that is read elsewhere as well need not hold the own pixel: it is asked.
            const std::string& source = token(at + 2).text;
            out_ += readsOwnPixelOnly(source) ? "sampleHere(" + source + ") "
                                              : "sampleOffset(" + source + ", 0, 0) ";
            return length;
        }
        if (givesPixels() && now.is("return")) return result(at);
        if (now.is("lattice") && token(at + 1).is("(")) return lattice(at);
        if (now.is("sample") && !inlinesReads_ &&
            (kernel_ || !inlinesFirstReads_ || isInLoop(at))) {
            out_ += "calledSample ";
            return 1;
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
        if (now.is("sampler") || now.is("reduced")) {
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

    /// Whether what is being written returns the pixels of a kernel.
    bool givesPixels() const { return kernel_ && kernel_->function.kind != FunctionKind::Warp; }

    /// A kernel's result, which is stored where it stands: what is handed on as it is then goes
    /// past the arithmetic, and results need not come together first.
    size_t result(size_t at) {
        size_t end = at;
        while (!token(end).is(";")) {
            if (end + 1 >= kernel_->endToken) source_.fail(at, "expected ';'");
            ++end;
        }
        size_t length = 0;
        const bool isRead = isReadHere(tokens_, at + 1, length) && at + 1 + length == end;
        if (isRead) {
            const std::string& source = token(at + 3).text;
            out_ += readsOwnPixelOnly(source) ? "return giveHere(" + source + ") "
                                              : "return giveOffset(" + source + ", 0, 0) ";
        } else if (end == at + 5 && token(at + 1).is("vec4") && token(at + 3).is("0.0")) {
            out_ += "return giveNothing() ";
        } else {
            out_ += "return give( ";
            body(at + 1, end);
            out_ += ") ";
        }
        return end - at;
    }

    /// `lattice(f(x, y, …))`: the function of two coordinates, then all arguments.
    size_t lattice(size_t at) {
        const size_t end = closing(at + 1);
        const size_t callEnd = closing(at + 3);
        if (!token(at + 3).is("(") || callEnd + 1 != end)
            source_.fail(at, "lattice takes the call of a function, and nothing else");
        std::vector<size_t> commas;
        int depth = 0;
        for (size_t i = at + 4; i < callEnd; ++i) {
            depth += token(i).is("(") ? 1 : token(i).is(")") ? -1 : 0;
            if (depth == 0 && token(i).is(",")) commas.push_back(i);
        }
        if (commas.empty())
            source_.fail(at, "a function of a lattice takes two coordinates and what else it "
                             "depends on");
        latticeFunctions_.insert(token(at + 2).text);
        out_ += "latticeOf_" + token(at + 2).text + "(" + std::to_string(sites_++) + ", ";
        body(at + 4, callEnd);
        out_ += ") ";
        return end - at + 1;
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
    void entry(const KernelDeclaration& kernel) {
        const Function& function = kernel.function;
        const std::string& name = function.name;
        out_ += "template <Memory memory> void run_" + name + "(const KernelCall* call) {\n";
        // How a call of the kernel spells its arguments in a memory mode, `%` standing for it.
        std::string arguments, setupArguments, opaque, rows, unusual;
        bool onlyOwnPixels = true;
        int source = function.kind == FunctionKind::Warp ? 1 : 0, offset = 0;
        if (function.kind == FunctionKind::Warp) out_ += view(0), unusual = "!isCommon(view0)";
        for (const Parameter& parameter : function.parameters) {
            if (!arguments.empty()) arguments += ", ", setupArguments += ", ";
            if (isImage(parameter.type)) {
                out_ += view(source);
                const std::string number = "view" + std::to_string(source++);
                const bool sampler = parameter.type != ParameterType::Pixel;
                const bool isOwn = !sampler || parameter.readsOwnPixelOnly;
                const bool hasRow = !sampler || (isOwn && readsHere(kernel, parameter.name));
                const std::string row = hasRow ? "row" + number.substr(4) : "kNoRow";
                arguments += sampler ? "Sampler<%>{" + number + ", " + row + "}"
                                     : "loadHere<%>(" + number + ", " + row + ", place)";
                setupArguments += sampler ? "Sampler<%>{" + number + ", kNoRow}" : "Pixel()";
                if (hasRow) {
                    const std::string room = "room" + number.substr(4);
                    out_ +=
                        "FloatRow " + row + "{};\n[[maybe_unused]] RowRoom<memory> " + room + ";\n";
                    rows += row + " = rowOf<memory>(" + number + ", x, y, count, " + room +
                            ".bytes);\n";
                } else if (!isOwn) {
                    unusual += (unusual.empty() ? "!isCommon(" : " || !isCommon(") + number + ")";
                }
                onlyOwnPixels &= isOwn;
                opaque += (opaque.empty() ? "" : " && ") + ("isOpaqueHere(" + number + ", place)");
                continue;
            }
            out_ += argumentDeclaration(parameter.type, offset);
            const std::string argument = "argument" + std::to_string(offset);
            arguments += argument, setupArguments += argument;
            offset += flattenedSize(parameter.type);
        }
        const Amount amount = inlined(kernel.bodyToken, kernel.endToken);
        // Opaque pixels spare little of a long text.
        const bool opaqueToo = onlyOwnPixels && !opaque.empty() &&
                               function.kind != FunctionKind::Warp && amount.tokens <= kMuchText;
        const bool usesLattices = sites_ > 0;
        const auto instance = [&](const char* variable, const char* memory) {
            out_ += std::string("Text<") + memory + "> " + variable + ";\n" + variable +
                    ".vornTarget = target;\n" + variable + ".vornPoints = &points;\n" +
                    (usesLattices ? std::string(variable) + ".vornLattices = &lattices;\n" : "");
        };
        const auto setup = [&](const char* variable, const char* memory) {
            out_ += std::string(variable) + ".setup_" + name + "(" +
                    inMode(setupArguments, memory) + ");\n";
        };
        const auto call = [&](const char* variable, const char* memory) {
            std::string result =
                std::string(variable) + "." + name + "(" + inMode(arguments, memory) + ")";
            if (function.kind == FunctionKind::Warp)
                result = std::string(variable) + ".sample(Sampler<" + memory +
                         ">{view0, kNoRow}, Vec2<Float>(" + result + "))";
            out_ += std::string(variable) + ".vornPlace = place;\n" + variable + ".vornTo = to;\n" +
                    variable + ".vornPlaneBytes = planeBytes;\npoints.next = 0;\n" +
                    (usesLattices ? "lattices.next = 0;\n" : "") +
                    (function.kind == FunctionKind::Warp ? variable + (".give(" + result + ")")
                                                         : result) +
                    ";\n";
        };
        if (onlyMirrors(kernel)) {
            out_ += "Text<memory>().moves_" + name + "(*call, " + inMode(setupArguments, "memory") +
                    ");\n}\n";
            return;
        }
        // What is packed and read elsewhere is read in the common way; other sources are rare.
        if (!unusual.empty() && (amount.reads > 0 || function.kind == FunctionKind::Warp))
            out_ += "#ifdef VORN_HAS_PAIRS\nif constexpr (isPacked(memory)) if (" + unusual +
                    ") return run_" + name + "<Memory::Any>(call);\n#endif\n";
        out_ += "const TargetView target = call->target;\nOnePoints points;\n";
        if (usesLattices) out_ += "Lattices lattices;\n";
        instance("text", "memory");
        setup("text", "memory");
        if (opaqueToo) {
            instance("opaqueText", "Memory::Opaque");
            out_ += "if constexpr (isPacked(memory)) ";
            setup("opaqueText", "Memory::Opaque");
        }
        out_ += "forEachGroup<memory>(*call, [&](int x, int y, int count) "
                "__attribute__((always_inline)) {\nif constexpr (!isPacked(memory)) {\n" +
                rows +
                "}\n}, [&](Place place, uint8_t* to, int64_t planeBytes) "
                "__attribute__((always_inline)) {\n";
        if (opaqueToo) {
            out_ += "if constexpr (memory == Memory::Packed) if (" + opaque + ") {\n";
            call("opaqueText", "Memory::Opaque");
            out_ += "return;\n}\n";
        }
        call("text", "memory");
        out_ += "});\n}\n";
    }

    static std::string inMode(std::string text, const std::string& memory) {
        for (size_t at; (at = text.find('%')) != std::string::npos;) text.replace(at, 1, memory);
        return text;
    }

    static std::string argumentDeclaration(ParameterType type, int offset) {
        const std::string name = "argument" + std::to_string(offset);
        const auto value = [&](int i) {
            return "call->arguments[" + std::to_string(offset + i) + "]";
        };
        switch (type) {
        case ParameterType::Int:
            return "const int32_t " + name + " = bitsAs<int32_t>(" + value(0) + ");\n";
        case ParameterType::Uint:
            return "const uint32_t " + name + " = bitsAs<uint32_t>(" + value(0) + ");\n";
        case ParameterType::Float:
            return "const float " + name + " = " + value(0) + ";\n";
        default:
            break;
        }
        const int count = flattenedSize(type);
        std::string text = "const Vec" + std::to_string(count) + "<float> " + name + "(";
        for (int i = 0; i < count; ++i) text += (i ? ", " : "") + value(i);
        return text + ");\n";
    }

    static std::string view(int index) {
        const std::string number = std::to_string(index);
        // A copy of its own: the pixels that are written could otherwise be taken for it.
        return "const SourceView view" + number + " = call->sources[" + number + "];\n";
    }

    const Source& source_;
    const std::vector<Token>& tokens_;
    std::string out_;
    static constexpr int kFewReads = 2, kFewFirstReads = 5, kMuchText = 2000;
    std::map<std::string, std::pair<size_t, size_t>, std::less<>> functions_; ///< their bodies
    bool inlinesReads_ = true;                  ///< of the text that is being written
    bool inlinesFirstReads_ = false;            ///< those of functions outside of loops
    std::vector<bool> isInLoop_;                ///< by token
    const KernelDeclaration* kernel_ = nullptr; ///< the one whose body is being written
    int sites_ = 0;                             ///< calls of `lattice` so far
    std::set<std::string> latticeFunctions_;
    int line_ = -1, file_ = -1;
    int depth_ = 0, parentheses_ = 0;
    int forHeader_ = 0; ///< the parenthesis depth of the `for` header that we are in, or 0
    bool shared_ = false, sharedNext_ = false, referenceNext_ = false;
};

} // namespace

std::string emitCpp(const Source& source) {
    return Emitter(source).run();
}

} // namespace vorn::kernelc
