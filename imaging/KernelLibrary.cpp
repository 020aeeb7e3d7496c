#include "imaging/KernelLibrary.h"
#include "imaging/kernelc/library_check.h"
#include "platform/Messages.h"

#include "imaging/cpu/InstructionSets.h"
#include "platform/Guard.h"
#include "vorneffects/CIContext.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <utility>

namespace vorn::imaging {
namespace {

/// How a shared object came into the process, or why it did not. `isFinal`: nothing else can help.
struct Opened {
    void* handle = nullptr;
    std::string problem;
    bool isFinal = false;
};

bool isExhaustion(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

Opened openPath(const std::string& path) {
    Opened opened;
    opened.handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (opened.handle) return opened;
    // Without the path, which is another one each time.
    const char* reason = dlerror();
    opened.problem = reason ? reason : "the loader gives no reason";
    if (opened.problem.starts_with(path + ": ")) opened.problem.erase(0, path.size() + 2);
    return opened;
}

/// From a file that lies in memory and has no name.
Opened openFromMemory(const std::string& name, std::string_view object) {
    // Names have a limit of 249 bytes and serve debuggers only.
    int file = memfd_create(name.substr(0, 200).c_str(), MFD_CLOEXEC);
    if (file < 0)
        return {nullptr, std::string("no file in memory: ") + std::strerror(errno),
                isExhaustion(errno)};
    // Debuggers and sanitizers open the path of a loaded object again. When its number has been
    // given to another file by then, they read that one, or wait for it: a high number is not soon.
    constexpr int kHighNumber = 900;
    if (const int high = fcntl(file, F_DUPFD_CLOEXEC, kHighNumber); high >= 0) {
        close(file);
        file = high;
    }
    Opened opened;
    if (!writeAll(file, object)) {
        opened = {nullptr, std::string("no memory for its code: ") + std::strerror(errno),
                  isExhaustion(errno)};
    } else {
        // The loader takes a path that it has seen for the object that it knows, and file numbers
        // come back: a count, spelt in dots and slashes, makes every path a new one.
        static std::atomic<unsigned> count = 0;
        std::string path = "/proc/self/fd";
        for (unsigned left = ++count; left != 0; left >>= 1) path += left & 1 ? "/." : "//.";
        path += "/" + std::to_string(file);
        struct stat here {};
        if (stat(path.c_str(), &here) == 0) {
            opened = openPath(path);
            opened.isFinal = true;
        } else {
            opened.problem = "/proc/self/fd cannot be used";
        }
    }
    close(file);
    return opened;
}

/// Whether nobody but this user and the system can put another folder in the place of one that is
/// made in this one.
bool isSafeFolder(const char* path) {
    struct stat folder {};
    if (stat(path, &folder) != 0 || !S_ISDIR(folder.st_mode)) return false;
    if (folder.st_uid != 0 && folder.st_uid != geteuid()) return false;
    return (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (folder.st_mode & S_ISVTX) != 0;
}

/// From a file in a new folder that only this user may enter; both are gone when this returns.
Opened openFromFile(std::string_view object) {
    Opened opened;
    opened.problem = "there is no folder for temporary files";
    for (const char* parent :
         {static_cast<const char*>(secure_getenv("XDG_RUNTIME_DIR")),
          static_cast<const char*>(secure_getenv("TMPDIR")), "/tmp", "/var/tmp", "/dev/shm"}) {
        if (!parent || *parent != '/' || !isSafeFolder(parent)) continue;
        std::string folder = std::string(parent) + "/vorneffects-code-XXXXXX";
        if (!mkdtemp(folder.data())) {
            opened.problem = folder + ": " + std::strerror(errno);
            continue;
        }
        const std::string path = folder + "/kernels.so";
        const int file =
            open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (file < 0 || !writeAll(file, object)) {
            opened.problem = path + ": " + std::strerror(errno);
            if (file >= 0) close(file);
        } else {
            close(file);
            opened = openPath(path);
        }
        unlink(path.c_str());
        rmdir(folder.c_str());
        if (opened.handle) break;
    }
    return opened;
}

/// Brings a shared object that lies in memory into the process.
Opened openObject(const std::string& name, std::string_view object) {
    Opened opened = openFromMemory(name, object);
    if (opened.handle || opened.isFinal) return opened;
    const std::string first = std::move(opened.problem);
    opened = openFromFile(object);
    if (!opened.handle) opened.problem = first + "; " + opened.problem;
    return opened;
}

struct ModuleCache {
    std::mutex mutex;
    std::unordered_map<std::string_view, const KernelModule*> modules;
    std::vector<Data> keys; ///< hold the bytes that the views above point to
};

ModuleCache& moduleCache() {
    static auto* cache = new ModuleCache; // kernels live to the end of the process
    return *cache;
}

std::string_view textOf(const Data& data) {
    return {reinterpret_cast<const char*>(data->data()), data->size()};
}

/// What is wrong with a library's bytes; empty when they were read.
std::string read(const Data& data, kernelc::Library& library) {
    if (!data) return "There is no kernel library.";
    std::string problem = kernelc::parse(textOf(data), library);
    return problem.empty() ? kernelc::declarationProblem(library) : problem;
}

std::string withoutCode(const kernelc::Function& function) {
    return "The kernel '" + function.name + "' has no code for this processor.";
}

std::string badCode(const kernelc::Library& library, const kernelc::Code& code,
                    const std::string& problem) {
    return "cannot load the " + code.level + " code of kernel library '" + library.name +
           "': " + problem;
}

} // namespace

KernelModule::KernelModule(kernelc::Library library)
    : library_(std::move(library)), loaded_(library_.code.size()) {
    for (size_t index = 0; index < library_.functions.size(); ++index)
        functions_.push_back({this, index});
}

const KernelModule* KernelModule::fromData(const Data& data, std::string& problem) {
    ModuleCache& cache = moduleCache();
    const std::lock_guard lock(cache.mutex);
    if (data)
        if (const auto found = cache.modules.find(textOf(data)); found != cache.modules.end())
            return found->second;
    kernelc::Library library;
    problem = read(data, library);
    if (!problem.empty()) return nullptr;
    const auto* const module = new KernelModule(std::move(library));
    cache.keys.push_back(data);
    cache.modules.emplace(textOf(data), module);
    return module;
}

const LibraryFunction* KernelModule::function(std::string_view name) const {
    const auto found =
        std::find_if(functions_.begin(), functions_.end(), [&](const LibraryFunction& function) {
            return function.declaration().name == name;
        });
    return found == functions_.end() ? nullptr : &*found;
}

KernelEntry KernelModule::entry(size_t codeIndex, size_t functionIndex,
                                std::string& problem) const {
    const kernelc::Code& code = library_.code[codeIndex];
    {
        const std::lock_guard lock(mutex_);
        Loaded& loaded = loaded_[codeIndex];
        if (!loaded.entries.empty()) return loaded.entries[functionIndex];
        problem = kernelc::codeProblem(code);
        if (problem.empty()) {
            Opened opened = openObject(library_.name + "." + code.level, code.object);
            problem = std::move(opened.problem);
            if (opened.handle) {
                loaded.entries.resize(library_.functions.size());
                loaded.problem.clear();
                const auto* table = static_cast<const kernelabi::TableEntry*>(
                    dlsym(opened.handle, "vorn_kernel_table"));
                for (; table && table->name; ++table)
                    for (const LibraryFunction& function : functions_)
                        if (function.declaration().name == table->name)
                            loaded.entries[function.index] = {table->packed, table->generic};
                return loaded.entries[functionIndex];
            }
        }
        problem = badCode(library_, code, problem);
        if (problem == loaded.problem) return {};
        loaded.problem = problem;
    }
    vorn::report(vorn::Severity::Error, "ERROR: %s", problem.c_str());
    return {};
}

KernelEntry LibraryFunction::entry(const std::vector<std::string>& levels,
                                   std::string& problem) const {
    const std::vector<kernelc::Code>& code = module->library().code;
    std::string reason;
    for (const std::string& level : levels)
        for (size_t codeIndex = 0; codeIndex < code.size(); ++codeIndex) {
            if (code[codeIndex].level != level) continue;
            const KernelEntry entry = module->entry(codeIndex, index, reason);
            if (entry.generic) return entry;
            // What cannot be loaded at one level cannot at another.
            if (!reason.empty()) {
                problem = reason;
                return {};
            }
        }
    problem = withoutCode(declaration());
    return {};
}

const LibraryFunction* frameworkKernel(std::string_view name, std::string_view library) {
    static const ClassInfo owner{"CIKernel", &owner, nullptr};
    struct Known {
        const LibraryFunction* function = nullptr;
        std::string problem; ///< that the last line told of
    };
    static std::mutex mutex;
    static auto* kernels = new std::map<std::string, Known, std::less<>>;
    {
        const std::lock_guard lock(mutex);
        if (const auto found = kernels->find(name); found != kernels->end())
            if (found->second.function) return found->second.function;
    }
    KernelError error{"The kernel library is missing."};
    const LibraryFunction* function = nullptr;
    if (const auto path = Bundle::forClass(&owner).pathForResource(library, "ci.metallib")) {
        errno = 0;
        const Data data = dataWithContentsOfFile(*path);
        if (data)
            function = CIKernel::kernelWithFunctionName(name, data, &error).function();
        else
            error.localizedDescription =
                std::string("The kernel library cannot be read: ") + std::strerror(errno) + ".";
    }
    {
        const std::lock_guard lock(mutex);
        Known& known = (*kernels)[std::string(name)];
        if (!known.function) known.function = function;
        if (known.function) return known.function;
        if (std::exchange(known.problem, error.localizedDescription) == error.localizedDescription)
            return nullptr;
    }
    vorn::report(vorn::Severity::Error, "ERROR: failed to load CIKernel '%.*s' from '%.*s' err=%s",
                 static_cast<int>(name.size()), name.data(), static_cast<int>(library.size()),
                 library.data(), error.localizedDescription.c_str());
    return nullptr;
}

} // namespace vorn::imaging

using namespace vorn;

namespace {

/// Shared by the three kinds of kernel; `wanted` null: any kind.
const imaging::LibraryFunction* makeFunction(std::string_view name, const Data& data,
                                             KernelError* error,
                                             const kernelc::FunctionKind* wanted,
                                             const char* wantedName) {
    std::string problem;
    if (const auto* const module = imaging::KernelModule::fromData(data, problem)) {
        const imaging::LibraryFunction* const function = module->function(name);
        if (!function)
            problem = "The kernel library has no function named '" + std::string(name) + "'.";
        else if (wanted && function->declaration().kind != *wanted)
            problem = "The function '" + std::string(name) + "' is no " + wantedName + " kernel.";
        else
            return function;
    }
    if (error) error->localizedDescription = problem;
    return nullptr;
}

} // namespace

CIKernel CIKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                          KernelError* error) try {
    return CIKernel(makeFunction(name, library, error, nullptr, ""));
} catch (...) {
    if (error) describeException(error->localizedDescription);
    return {};
}
CIColorKernel CIColorKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                                    KernelError* error) try {
    constexpr auto kind = kernelc::FunctionKind::Color;
    return CIColorKernel(makeFunction(name, library, error, &kind, "colour"));
} catch (...) {
    if (error) describeException(error->localizedDescription);
    return {};
}
CIWarpKernel CIWarpKernel::kernelWithFunctionName(std::string_view name, const Data& library,
                                                  KernelError* error) try {
    constexpr auto kind = kernelc::FunctionKind::Warp;
    return CIWarpKernel(makeFunction(name, library, error, &kind, "warp"));
} catch (...) {
    if (error) describeException(error->localizedDescription);
    return {};
}

KernelType CIKernel::type() const {
    const auto* const function = this->function();
    return function ? static_cast<KernelType>(function->declaration().kind) : KernelType::General;
}
std::string_view CIKernel::name() const {
    const auto* const function = this->function();
    return function ? std::string_view(function->declaration().name) : std::string_view();
}
std::string_view CIKernel::libraryName() const {
    const auto* const function = this->function();
    return function ? std::string_view(function->libraryName()) : std::string_view();
}

std::optional<std::string> vorn::kernelLibraryProblem(const Data& data) try {
    kernelc::Library library;
    if (std::string problem = imaging::read(data, library); !problem.empty()) return problem;
    bool hasCode = false;
    for (const std::string& level : imaging::cpu::supportedLevels())
        for (const kernelc::Code& code : library.code) {
            if (code.level != level) continue;
            hasCode = true;
            if (const std::string problem = kernelc::codeProblem(code); !problem.empty())
                return imaging::badCode(library, code, problem);
        }
    if (!hasCode && !library.functions.empty())
        return imaging::withoutCode(library.functions.front());
    return std::nullopt;
} catch (...) {
    return "out of memory";
}
