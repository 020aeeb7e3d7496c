// Kernels by name. Nothing is kept here: a library is read once per kernel, when the first filter
// of its class is made. Threads that make the first ones at once read it each, and keep the same
// kernel.
#include "vorneffects/VornEffects.h"

#include "platform/Messages.h"

#include <vector>

using namespace vorn;

namespace {

template <class Kernel>
Kernel loadKernel(const char* kernelKind, Class owner, std::string_view libraryName,
                  std::string_view functionName) {
    const Data library = VornEffectsLoadMetalLibraryData(owner, libraryName);
    if (!library) return {};

    KernelError error;
    const Kernel kernel = Kernel::kernelWithFunctionName(functionName, library, &error);
    if (kernel) return kernel;

    const std::string& description = error.localizedDescription;
    report(Severity::Error, "ERROR: failed to load %s '%s' from '%s'%s%s", kernelKind,
           std::string(functionName).c_str(), std::string(libraryName).c_str(),
           description.empty() ? "" : " err=", description.c_str());
    return {};
}

} // namespace

Data VornEffectsLoadMetalLibraryData(Class owner, std::string_view libraryName) try {
    if (!owner || libraryName.empty()) return nullptr;

    const auto path = Bundle::forClass(owner).pathForResource(libraryName, "ci.metallib");
    if (!path) {
        report(Severity::Error, "ERROR: missing ci.metallib resource '%s' for class '%s'",
               std::string(libraryName).c_str(), owner->name);
        return nullptr;
    }
    Data data = dataWithContentsOfFile(*path);
    if (!data)
        report(Severity::Error, "ERROR: failed to load ci.metallib '%s' for class '%s'",
               std::string(libraryName).c_str(), owner->name);
    return data;
} catch (...) {
    reportCaught("VornEffectsLoadMetalLibraryData");
    return {};
}

CIKernel VornEffectsLoadKernel(Class owner, std::string_view libraryName,
                               std::string_view functionName) try {
    return loadKernel<CIKernel>("CIKernel", owner, libraryName, functionName);
} catch (...) {
    reportCaught("VornEffectsLoadKernel");
    return {};
}

CIColorKernel VornEffectsLoadColorKernel(Class owner, std::string_view libraryName,
                                         std::string_view functionName) try {
    return loadKernel<CIColorKernel>("CIColorKernel", owner, libraryName, functionName);
} catch (...) {
    reportCaught("VornEffectsLoadColorKernel");
    return {};
}

CIWarpKernel VornEffectsLoadWarpKernel(Class owner, std::string_view libraryName,
                                       std::string_view functionName) try {
    return loadKernel<CIWarpKernel>("CIWarpKernel", owner, libraryName, functionName);
} catch (...) {
    reportCaught("VornEffectsLoadWarpKernel");
    return {};
}

bool VornEffectsLoadKernelArray(Class owner, std::string_view libraryName,
                                const std::string_view* functionNames, CIKernel* slots,
                                int count) try {
    if (!owner || libraryName.empty() || count < 1 || !slots || !functionNames) return false;

    bool isComplete = true;
    std::vector<CIKernel> kernels(static_cast<size_t>(count));
    for (int index = 0; index < count; ++index) {
        if (slots[index]) continue;
        const std::string_view functionName = functionNames[index];
        if (functionName.empty()) {
            report(Severity::Error, "ERROR: empty kernel name at index %d for class '%s'", index,
                   owner->name);
            isComplete = false;
            continue;
        }
        CIKernel& kernel = kernels[static_cast<size_t>(index)];
        kernel = VornEffectsLoadKernel(owner, libraryName, functionName);
        if (!kernel) {
            report(Severity::Error, "ERROR: failed to load kernel '%s' at index %d for class '%s'",
                   std::string(functionName).c_str(), index, owner->name);
            isComplete = false;
        }
    }
    // Filters look at the first slot to see whether all are filled, on other threads too.
    for (int index = count - 1; index >= 0; --index)
        if (const CIKernel& kernel = kernels[static_cast<size_t>(index)]) slots[index] = kernel;
    return isComplete;
} catch (...) {
    reportCaught("VornEffectsLoadKernelArray");
    return false;
}
