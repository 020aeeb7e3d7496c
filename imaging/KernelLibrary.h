// Kernel libraries in memory: their functions, and their code for this processor.
#pragma once

#include "imaging/kernelc/abi.h"
#include "imaging/kernelc/library_format.h"
#include "vorneffects/CIImage.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::imaging {

class KernelModule;

/// The code of a function at one instruction-set level; both null: there is none.
struct KernelEntry {
    kernelabi::KernelFunction packed = nullptr, generic = nullptr;
};

/// A function of a module, which it belongs to. Both stay until the process ends.
struct LibraryFunction {
    const KernelModule* module = nullptr;
    size_t index = 0;

    const kernelc::Function& declaration() const;
    const std::string& libraryName() const;
    /// The code of the first of `levels` that the library has; none, with `problem` saying why,
    /// when it has none of them or it cannot be brought into the process, which is tried again the
    /// next time.
    KernelEntry entry(const std::vector<std::string>& levels, std::string& problem) const;
};

/// A library's bytes, read and checked. Code is brought into the process when it is first called
/// for, one instruction-set level at a time, and stays there. Safe from any thread.
class KernelModule {
public:
    /// The module of a library's bytes; the same bytes give the same module. Null, with `problem`
    /// saying why, when the bytes are no sound kernel library for this processor.
    static const KernelModule* fromData(const Data& data, std::string& problem);

    const kernelc::Library& library() const { return library_; }
    /// The function of that name, or null.
    const LibraryFunction* function(std::string_view name) const;

private:
    friend LibraryFunction;
    struct Loaded {
        std::vector<KernelEntry> entries; ///< by function index; empty until the code is here
        std::string problem;              ///< that the last line told of
    };
    explicit KernelModule(kernelc::Library library);
    KernelEntry entry(size_t codeIndex, size_t functionIndex, std::string& problem) const;

    kernelc::Library library_;
    std::vector<LibraryFunction> functions_;
    mutable std::mutex mutex_;
    mutable std::vector<Loaded> loaded_; ///< by code index
};

inline const kernelc::Function& LibraryFunction::declaration() const {
    return module->library().functions[index];
}
inline const std::string& LibraryFunction::libraryName() const {
    return module->library().name;
}

/// A kernel of one of the framework's own libraries, made once; null, with a line, when the library
/// is missing or damaged. It is tried again the next time, and a line follows where the reason is
/// another one. No two of these libraries share a kernel's name.
const LibraryFunction* frameworkKernel(std::string_view name,
                                       std::string_view library = "CIFrameworkKernel");

} // namespace vorn::imaging
