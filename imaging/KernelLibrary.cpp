#include "imaging/KernelLibrary.h"
#include "platform/Messages.h"

#include "vorneffects/CIContext.h"

#include <algorithm>
#include <atomic>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <unistd.h>
#include <unordered_map>

namespace vorn::imaging {
namespace {

/// Brings a shared object that lies in memory into the process; null on failure.
void* openObject(const std::string& name, const std::string& object) {
    int file = memfd_create(name.c_str(), MFD_CLOEXEC);
    if (file < 0) return nullptr;
    // Debuggers and sanitizers open the path of a loaded object again. When its number has been
    // given to another file by then, they read that one, or wait for it: a high number is not soon.
    constexpr int kHighNumber = 900;
    if (const int high = fcntl(file, F_DUPFD_CLOEXEC, kHighNumber); high >= 0) {
        close(file);
        file = high;
    }
    size_t written = 0;
    while (written < object.size()) {
        const ssize_t count = write(file, object.data() + written, object.size() - written);
        if (count <= 0) break;
        written += static_cast<size_t>(count);
    }
    void* handle = nullptr;
    if (written == object.size()) {
        // The loader takes a path that it has seen for the object that it knows, and file numbers
        // come back: a count, spelt in dots and slashes, makes every path a new one.
        static std::atomic<unsigned> count = 0;
        std::string path = "/proc/self/fd";
        for (unsigned left = ++count; left != 0; left >>= 1) path += left & 1 ? "/." : "//.";
        handle = dlopen((path + "/" + std::to_string(file)).c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    close(file);
    return handle;
}

struct ModuleCache {
    std::mutex mutex;
    std::unordered_map<std::string_view, std::shared_ptr<const KernelModule>> modules;
    std::vector<Data> keys; ///< hold the bytes that the views above point to
};

ModuleCache& moduleCache() {
    static auto* cache = new ModuleCache; // kernels live to the end of the process
    return *cache;
}

} // namespace

KernelModule::KernelModule(kernelc::Library library)
    : library_(std::move(library)), loaded_(library_.code.size()) {}

KernelModule::~KernelModule() = default;

std::shared_ptr<const KernelModule> KernelModule::fromData(const Data& data, std::string& problem) {
    if (!data) {
        problem = "There is no kernel library.";
        return nullptr;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data->data()), data->size());
    ModuleCache& cache = moduleCache();
    const std::lock_guard lock(cache.mutex);
    if (const auto found = cache.modules.find(bytes); found != cache.modules.end())
        return found->second;
    kernelc::Library library;
    problem = kernelc::parse(bytes, library);
    if (!problem.empty()) return nullptr;
    const std::shared_ptr<const KernelModule> module(new KernelModule(std::move(library)));
    cache.keys.push_back(data);
    cache.modules.emplace(bytes, module);
    return module;
}

const KernelModule::Loaded& KernelModule::load(size_t codeIndex) const {
    const std::lock_guard lock(mutex_);
    Loaded& loaded = loaded_[codeIndex];
    if (loaded.tried) return loaded;
    loaded.tried = true;
    loaded.entries.resize(library_.functions.size());
    const kernelc::Code& code = library_.code[codeIndex];
    loaded.handle = openObject(library_.name + "." + code.level, code.object);
    const auto* table =
        loaded.handle
            ? static_cast<const kernelabi::TableEntry*>(dlsym(loaded.handle, "vorn_kernel_table"))
            : nullptr;
    if (!table) {
        const char* reason = dlerror();
        vorn::report(
            vorn::Severity::Error, "ERROR: cannot load the %s code of kernel library '%s': %s",
            code.level.c_str(), library_.name.c_str(), reason ? reason : "no kernel table");
        return loaded;
    }
    for (; table->name; ++table)
        for (size_t i = 0; i < library_.functions.size(); ++i)
            if (library_.functions[i].name == table->name)
                loaded.entries[i] = {table->packed, table->generic};
    return loaded;
}

KernelModule::Entry KernelModule::entry(size_t index,
                                        const std::vector<std::string>& levels) const {
    for (const std::string& level : levels)
        for (size_t code = 0; code < library_.code.size(); ++code)
            if (library_.code[code].level == level)
                if (const Entry entry = load(code).entries[index]; entry.generic) return entry;
    return {};
}

std::shared_ptr<const KernelFunction> frameworkKernel(std::string_view name,
                                                      std::string_view library) {
    static const ClassInfo owner{"CIKernel", &owner, nullptr};
    static std::mutex mutex;
    static auto* kernels = new std::map<std::string, CIKernel, std::less<>>;
    const std::lock_guard lock(mutex);
    if (const auto found = kernels->find(name); found != kernels->end())
        return found->second.function();
    const auto path = Bundle::forClass(&owner).pathForResource(library, "ci.metallib");
    KernelError error{"The kernel library is missing."};
    const CIKernel kernel = CIKernel::kernelWithFunctionName(
        name, path ? dataWithContentsOfFile(*path) : nullptr, path ? &error : nullptr);
    if (!kernel)
        vorn::report(vorn::Severity::Error,
                     "ERROR: failed to load CIKernel '%.*s' from '%.*s' err=%s",
                     static_cast<int>(name.size()), name.data(), static_cast<int>(library.size()),
                     library.data(), error.localizedDescription.c_str());
    kernels->emplace(name, kernel);
    return kernel.function();
}

} // namespace vorn::imaging

using namespace vorn;

namespace {

/// Shared by the three kinds of kernel; `wanted` null: any kind.
std::shared_ptr<const imaging::KernelFunction> makeFunction(std::string_view name, const Data& data,
                                                            KernelError* error,
                                                            const kernelc::FunctionKind* wanted,
                                                            const char* wantedName) {
    std::string problem;
    if (const auto module = imaging::KernelModule::fromData(data, problem)) {
        const auto& functions = module->library().functions;
        const auto found = std::find_if(functions.begin(), functions.end(),
                                        [&](const auto& f) { return f.name == name; });
        if (found == functions.end())
            problem = "The kernel library has no function named '" + std::string(name) + "'.";
        else if (wanted && found->kind != *wanted)
            problem = "The function '" + std::string(name) + "' is no " + wantedName + " kernel.";
        else
            return std::make_shared<const imaging::KernelFunction>(
                imaging::KernelFunction{module, static_cast<size_t>(found - functions.begin())});
    }
    if (error) error->localizedDescription = problem;
    return nullptr;
}

} // namespace

CIKernel CIKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                          KernelError* error) {
    return CIKernel(makeFunction(name, library, error, nullptr, ""));
}
CIColorKernel CIColorKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                                    KernelError* error) {
    constexpr auto kind = kernelc::FunctionKind::Color;
    return CIColorKernel(makeFunction(name, library, error, &kind, "colour"));
}
CIWarpKernel CIWarpKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                                  KernelError* error) {
    constexpr auto kind = kernelc::FunctionKind::Warp;
    return CIWarpKernel(makeFunction(name, library, error, &kind, "warp"));
}

KernelType CIKernel::type() const {
    return function_ ? static_cast<KernelType>(function_->declaration().kind) : KernelType::General;
}
std::string_view CIKernel::name() const {
    return function_ ? std::string_view(function_->declaration().name) : std::string_view();
}
std::string_view CIKernel::libraryName() const {
    return function_ ? std::string_view(function_->libraryName()) : std::string_view();
}

std::optional<std::string> vorn::kernelLibraryProblem(const Data& library) {
    std::string problem;
    const auto module = imaging::KernelModule::fromData(library, problem);
    if (!module) return problem;
    const std::vector<std::string> levels = supportedInstructionSets();
    for (size_t i = 0; i < module->library().functions.size(); ++i)
        if (!module->entry(i, levels).generic)
            return "The kernel '" + module->library().functions[i].name +
                   "' has no code for this processor.";
    return std::nullopt;
}
