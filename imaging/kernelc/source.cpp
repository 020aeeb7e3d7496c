#include "imaging/kernelc/source.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace vorn::kernelc {
namespace {

class Scanner {
public:
    Scanner(Source& source, std::string includeFolder)
        : source_(source), includeFolder_(std::move(includeFolder)) {}

    void scanFile(const std::string& path) {
        std::ifstream in(path);
        if (!in) throw SourceError(path + ": cannot be read");
        std::stringstream text;
        text << in.rdbuf();
        const int file = static_cast<int>(source_.files.size());
        source_.files.push_back(path);
        scan(text.str(), file);
    }

private:
    void scan(const std::string& text, int file) {
        int line = 1;
        size_t at = 0;
        const auto add = [&](Token::Kind kind, size_t length) {
            source_.tokens.push_back({kind, text.substr(at, length), file, line});
            at += length;
        };
        while (at < text.size()) {
            const char c = text[at];
            if (c == '\n') {
                ++line, ++at;
            } else if (std::isspace(static_cast<unsigned char>(c))) {
                ++at;
            } else if (text.compare(at, 2, "//") == 0) {
                at = std::min(text.find('\n', at), text.size());
            } else if (text.compare(at, 2, "/*") == 0) {
                const size_t end = std::min(text.find("*/", at + 2), text.size() - 2);
                line += static_cast<int>(std::count(text.begin() + static_cast<long>(at),
                                                    text.begin() + static_cast<long>(end), '\n'));
                at = end + 2;
            } else if (c == '#') {
                const size_t end = std::min(text.find('\n', at), text.size());
                directive(text.substr(at, end - at), file, line);
                at = end;
            } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
                size_t end = at;
                while (end < text.size() &&
                       (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_'))
                    ++end;
                add(Token::Kind::Identifier, end - at);
            } else if (std::isdigit(static_cast<unsigned char>(c)) ||
                       (c == '.' && at + 1 < text.size() &&
                        std::isdigit(static_cast<unsigned char>(text[at + 1])))) {
                size_t end = at;
                while (end < text.size()) {
                    const char d = text[end];
                    const bool sign = (d == '+' || d == '-') && end > at &&
                                      (text[end - 1] == 'e' || text[end - 1] == 'E') &&
                                      text.compare(at, 2, "0x") != 0;
                    if (!std::isalnum(static_cast<unsigned char>(d)) && d != '.' && !sign) break;
                    ++end;
                }
                add(Token::Kind::Number, end - at);
            } else {
                static const char* const pairs[] = {
                    "<<=", ">>=", "<<", ">>", "<=", ">=", "==", "!=", "&&", "||",
                    "+=",  "-=",  "*=", "/=", "%=", "&=", "|=", "^=", "++", "--"};
                size_t length = 1;
                for (const char* pair : pairs)
                    if (text.compare(at, std::char_traits<char>::length(pair), pair) == 0) {
                        length = std::char_traits<char>::length(pair);
                        break;
                    }
                add(Token::Kind::Punctuation, length);
            }
        }
    }

    void directive(const std::string& text, int file, int line) {
        const size_t quote = text.find('"');
        const std::string here =
            source_.files[static_cast<size_t>(file)] + ":" + std::to_string(line) + ": ";
        if (text.compare(0, 8, "#include") != 0 || quote == std::string::npos)
            throw SourceError(here + "only #include \"header\" is understood, not: " + text);
        const std::string name = text.substr(quote + 1, text.find('"', quote + 1) - quote - 1);
        const std::string path = includeFolder_ + "/" + name;
        if (!std::ifstream(path)) throw SourceError(here + path + ": cannot be read");
        if (included_.insert(name).second) scanFile(path);
    }

    Source& source_;
    std::string includeFolder_;
    std::set<std::string> included_;
};

class Declarations {
public:
    explicit Declarations(Source& source) : source_(source), tokens_(source.tokens) {}

    void read() {
        for (size_t at = 0; at < tokens_.size(); ++at)
            if (tokens_[at].is("kernel")) at = readKernel(at) - 1;
        if (source_.kernels.empty()) throw SourceError(source_.files[0] + ": declares no kernel");
    }

private:
    [[noreturn]] void fail(size_t at, const std::string& message) const {
        source_.fail(at, message);
    }
    const Token& token(size_t at) const {
        static const Token end;
        return at < tokens_.size() ? tokens_[at] : end;
    }
    void expect(size_t at, const char* what) const {
        if (!token(at).is(what)) fail(at, std::string("expected '") + what + "'");
    }

    size_t readKernel(size_t first) {
        static const std::map<std::string, ParameterType, std::less<>> types = {
            {"sampler", ParameterType::Sampler}, {"__sample", ParameterType::Pixel},
            {"float", ParameterType::Float},     {"vec2", ParameterType::Vec2},
            {"vec3", ParameterType::Vec3},       {"vec4", ParameterType::Vec4},
            {"int", ParameterType::Int},         {"uint", ParameterType::Uint},
            {"reduced", ParameterType::Reduced}};
        KernelDeclaration kernel;
        kernel.firstToken = first;
        const bool returnsPoint = token(first + 1).is("vec2");
        if (!returnsPoint && !token(first + 1).is("vec4"))
            fail(first + 1, "a kernel returns vec4 (a colour) or vec2 (a source coordinate)");
        kernel.function.name = token(first + 2).text;
        expect(first + 3, "(");
        kernel.parametersToken = first + 3;
        size_t at = first + 4;
        bool samplers = false, pixels = false, reduced = false;
        while (!token(at).is(")")) {
            if (!kernel.function.parameters.empty()) expect(at++, ",");
            const auto type = types.find(token(at).text);
            if (type == types.end())
                fail(at, "'" + token(at).text + "' is not a type of kernel parameters");
            Parameter parameter{token(at + 1).text, type->second, false};
            samplers |= parameter.type == ParameterType::Sampler;
            pixels |= parameter.type == ParameterType::Pixel;
            if (reduced && parameter.type != ParameterType::Reduced)
                fail(at, "reduced images stand after all other parameters");
            reduced |= parameter.type == ParameterType::Reduced;
            if (token(at + 1).kind != Token::Kind::Identifier) fail(at + 1, "expected a name");
            kernel.function.parameters.push_back(std::move(parameter));
            at += 2;
        }
        if (samplers && pixels)
            fail(first, "a kernel has sampler or __sample parameters, not both");
        if (reduced && !samplers)
            fail(first, "a reduced image is that of the first sampler, and there is none");
        if (returnsPoint && (samplers || pixels))
            fail(first, "a warp kernel takes no image; its result says where to read");
        kernel.function.kind = returnsPoint ? FunctionKind::Warp
                               : pixels     ? FunctionKind::Color
                                            : FunctionKind::General;
        kernel.bodyToken = at + 1;
        expect(kernel.bodyToken, "{");
        int depth = 0;
        for (at = kernel.bodyToken; at < tokens_.size(); ++at) {
            depth += token(at).is("{") ? 1 : token(at).is("}") ? -1 : 0;
            if (depth == 0) break;
        }
        expect(at, "}");
        kernel.endToken = at + 1;
        for (const KernelDeclaration& other : source_.kernels)
            if (other.function.name == kernel.function.name)
                fail(first + 2, "there is a kernel '" + kernel.function.name + "' already");
        for (Parameter& parameter : kernel.function.parameters)
            parameter.readsOwnPixelOnly =
                parameter.type == ParameterType::Pixel ||
                (parameter.type == ParameterType::Sampler && onlyReadHere(kernel, parameter.name));
        source_.kernels.push_back(std::move(kernel));
        return source_.kernels.back().endToken;
    }

    /// Whether a sampler is used for nothing but reads at the own pixel and questions of its size.
    bool onlyReadHere(const KernelDeclaration& kernel, const std::string& name) const {
        for (size_t at = kernel.bodyToken; at < kernel.endToken; ++at) {
            size_t length = 0;
            if (isReadHere(tokens_, at, length)) {
                at += length - 1;
            } else if (token(at).is(name) && !token(at - 1).is(".")) {
                const bool question =
                    token(at - 1).is("(") && token(at + 1).is(")") &&
                    (token(at - 2).is("samplerSize") || token(at - 2).is("samplerOrigin") ||
                     token(at - 2).is("samplerExtent") || token(at - 2).is("samplerCoord"));
                if (!question) return false;
            }
        }
        return true;
    }

    Source& source_;
    const std::vector<Token>& tokens_;
};

} // namespace

void Source::fail(size_t at, const std::string& message) const {
    const Token& token = tokens[std::min(at, tokens.size() - 1)];
    throw SourceError(files[static_cast<size_t>(token.file)] + ":" + std::to_string(token.line) +
                      ": " + message);
}

bool isReadHere(const std::vector<Token>& tokens, size_t at, size_t& length) {
    const auto matches = [&](std::initializer_list<const char*> pattern) {
        size_t i = at;
        for (const char* text : pattern) {
            if (i >= tokens.size() || (*text && !tokens[i].is(text))) return false;
            ++i;
        }
        length = pattern.size();
        return true;
    };
    if (matches({"sample", "(", "", ",", "destCoord", "(", ")", ")"})) return true;
    return matches({"sample", "(", "", ",", "samplerCoord", "(", "", ")", ")"}) &&
           tokens[at + 2].text == tokens[at + 6].text;
}

Source readSource(const std::string& path, const std::string& includeFolder) {
    Source source;
    const size_t slash = path.rfind('/');
    const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
    source.name = file.substr(0, file.find('.'));
    Scanner(source, includeFolder).scanFile(path);
    Declarations(source).read();
    return source;
}

} // namespace vorn::kernelc
