// Kernel libraries in memory: their functions, and their code for this processor.
#pragma once

#include "imaging/kernelc/abi.h"
#include "imaging/kernelc/library_format.h"
#include "vorneffects/CIImage.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::imaging {

/// A library's bytes, read and checked. Code is brought into the process when it is first called
/// for, one instruction-set level at a time, and stays there.
class KernelModule {
public:
    /// The module of a library's bytes; the same bytes give the same module. Null, with `problem`
    /// saying why, when the bytes are no sound kernel library for this processor.
    static std::shared_ptr<const KernelModule> fromData(const Data& data, std::string& problem);
    ~KernelModule();

    const kernelc::Library& library() const { return library_; }

    struct Entry {
        kernelabi::KernelFunction packed = nullptr, generic = nullptr;
    };
    /// The code of function number `index`: the first of `levels` that the library has; both null
    /// when it has none of them.
    Entry entry(size_t index, const std::vector<std::string>& levels) const;

private:
    struct Loaded {
        void* handle = nullptr;
        bool tried = false;
        std::vector<Entry> entries; ///< by function index
    };
    explicit KernelModule(kernelc::Library library);
    const Loaded& load(size_t codeIndex) const;

    kernelc::Library library_;
    mutable std::mutex mutex_;
    mutable std::vector<Loaded> loaded_; ///< by code index
};

struct KernelFunction {
    std::shared_ptr<const KernelModule> module;
    size_t index = 0;

    const kernelc::Function& declaration() const { return module->library().functions[index]; }
    const std::string& libraryName() const { return module->library().name; }
};

/// A kernel of one of the framework's own libraries, made once; null when the library is missing or
/// damaged (with one line on standard output). No two of these libraries share a kernel's name.
std::shared_ptr<const KernelFunction>
frameworkKernel(std::string_view name, std::string_view library = "CIFrameworkKernel");

} // namespace vorn::imaging
