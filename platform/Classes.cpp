// Classes by name, the resource bundles beside their binaries, and files read whole.
#include "vorneffects/Platform.h"

#include "platform/Messages.h"
#include "platform/NeverDestroyed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <mutex>
#include <shared_mutex>

namespace vorn {
namespace {

namespace fs = std::filesystem;

struct ClassRegistry {
    std::shared_mutex mutex;
    std::map<std::string, Class, std::less<>> classes;
    /// The files that classes were loaded from, by where they lie in memory.
    std::map<const void*, fs::path> binaries;
};

/// Classes register themselves while static objects are made, in any order, and may be asked for
/// while those are destroyed: so the registry is made on first use and never destroyed.
ClassRegistry& classRegistry() {
    static NeverDestroyed<ClassRegistry> registry;
    return registry.get();
}

/// Where in memory the binary that holds an address begins; null when there is none.
const void* beginningOfBinary(const void* address) {
    Dl_info symbol{};
    return dladdr(address, &symbol) ? symbol.dli_fbase : nullptr;
}

/// The file that an address was loaded from, symbolic links resolved; empty when there is none.
/// Right while the process is in the folder that it was in when the binary was loaded, which may
/// have been by a relative path.
fs::path binaryThatHolds(const void* address) {
    Dl_info symbol{};
    link_map* binary = nullptr;
    if (!dladdr1(address, &symbol, reinterpret_cast<void**>(&binary), RTLD_DL_LINKMAP) || !binary)
        return {};
    std::error_code error;
    if (binary->l_name && *binary->l_name) return fs::canonical(binary->l_name, error);
    // The main program has no name of its own here; what dladdr says is how it was called.
    const fs::path program = fs::canonical("/proc/self/exe", error);
    if (!error) return program;
    const auto* const called = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return called ? fs::canonical(called, error) : fs::path();
}

bool isRegularFile(const std::string& path) {
    // The system would read a path with a zero byte in it as a shorter one.
    if (path.find('\0') != std::string::npos) return false;
    std::error_code error;
    return fs::is_regular_file(path, error);
}

} // namespace

// Binaries register their classes while they are loaded, which is when the place of their bundle is
// found: a process that changes its folder later must not be given another one's native code.
void registerClass(Class info) try {
    if (!info || !info->name) return;
    ClassRegistry& registry = classRegistry();
    static const char ours = 0; // a function may be that of another binary, this is not
    static const void* const ourBeginning = beginningOfBinary(&ours);
    const void* const beginning = beginningOfBinary(info->address);
    bool isKnown = false;
    if (beginning == ourBeginning) {
        const std::shared_lock lock(registry.mutex);
        isKnown = registry.binaries.contains(beginning);
    }
    // Another binary may lie where one was that is gone.
    fs::path binary = isKnown ? fs::path() : binaryThatHolds(info->address);
    const std::unique_lock lock(registry.mutex);
    if (!binary.empty()) registry.binaries[beginning] = std::move(binary);
    registry.classes[info->name] = info;
} catch (...) {
    reportCaught("registerClass");
}

Class classFromString(std::string_view name) {
    ClassRegistry& registry = classRegistry();
    const std::shared_lock lock(registry.mutex);
    const auto found = registry.classes.find(name);
    return found == registry.classes.end() ? nullptr : found->second;
}

Bundle Bundle::forClass(Class owner) try {
    if (!owner) return Bundle(std::string());
    ClassRegistry& registry = classRegistry();
    const void* const beginning = beginningOfBinary(owner->address);
    fs::path binary;
    {
        const std::shared_lock lock(registry.mutex);
        const auto known = registry.binaries.find(beginning);
        if (known != registry.binaries.end()) binary = known->second;
    }
    if (binary.empty()) binary = binaryThatHolds(owner->address);
    return Bundle(binary.empty() ? std::string() : (binary.parent_path() / "VornEffects").string());
} catch (...) {
    reportCaught("Bundle");
    return Bundle(std::string());
}

std::optional<std::string> Bundle::pathForResource(std::string_view name,
                                                   std::string_view extension) const try {
    if (folder_.empty() || name.empty()) return std::nullopt;
    std::string path = folder_ + "/" + std::string(name);
    if (!extension.empty()) path.append(".").append(extension);
    if (!isRegularFile(path)) return std::nullopt;
    return path;
} catch (...) {
    reportCaught("Bundle");
    return {};
}

Data dataWithContentsOfFile(const std::string& path) {
    // The system would read a path with a zero byte in it as a shorter one.
    if (path.find('\0') != std::string::npos) return nullptr;
    // Opening a pipe would wait for somebody who writes to it.
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return nullptr;
    std::shared_ptr<std::vector<uint8_t>> bytes;
    struct stat status {};
    // Devices and pipes have no whole to read.
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
        try {
            bytes = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(status.st_size));
        } catch (const std::exception&) {
            errno = ENOMEM;
        }
    } else {
        errno = EINVAL;
    }
    for (size_t done = 0; bytes && done < bytes->size();) {
        const ssize_t count = read(file, bytes->data() + done, bytes->size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) errno = EIO; // it has become shorter
        if (count <= 0)
            bytes = nullptr;
        else
            done += static_cast<size_t>(count);
    }
    const int error = errno;
    close(file);
    errno = error;
    return bytes;
}

} // namespace vorn
