// A kernel source, read: its tokens, and the kernels that it declares.
#pragma once

#include "imaging/kernelc/library_format.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace vorn::kernelc {

struct Token {
    enum class Kind : uint8_t { Identifier, Number, Punctuation, Directive, End };
    Kind kind = Kind::End;
    std::string text;
    int file = 0; ///< index into Source::files
    int line = 0;

    bool is(std::string_view what) const { return text == what; }
};

/// A mistake in a kernel source; `what()` reads "file:line: message".
struct SourceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One kernel: `kernel RESULT NAME(PARAMETERS) { … }`.
struct KernelDeclaration {
    Function function;
    size_t firstToken = 0; ///< the word `kernel`
    size_t parametersToken = 0;
    size_t bodyToken = 0; ///< the opening brace
    size_t endToken = 0;  ///< after the closing brace
};

struct Source {
    std::string name;
    std::vector<std::string> files; ///< the source itself and what it includes
    std::vector<Token> tokens;      ///< with headers in place of their #include lines
    std::vector<KernelDeclaration> kernels;
};

/// Reads a source and the headers that it includes (each once), and checks the declarations.
/// Throws SourceError.
Source readSource(const std::string& path, const std::string& includeFolder);

/// Whether the tokens at `at` read a sampler at the pixel that is written: `sample(s,
/// samplerCoord(s))` or `sample(s, destCoord())`. `length` gets how many tokens that takes.
bool isReadHere(const std::vector<Token>& tokens, size_t at, size_t& length);

/// The function that such a read calls in C++ or GLSL: `here` where the engine makes sure that the
/// pixel is there, which it does for samplers that a kernel reads nowhere else, and otherwise the
/// read at an offset, which looks for the border. `kernel` is null outside of kernels.
std::string callReadingHere(const KernelDeclaration* kernel, const std::string& sampler,
                            const char* here);

/// The kernels as C++ for the lane types.
std::string emitCpp(const Source& source);

/// One kernel as a GLSL compute shader.
std::string emitGlsl(const Source& source, const KernelDeclaration& kernel);

} // namespace vorn::kernelc
