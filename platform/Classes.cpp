// Classes by name, the resource bundles beside their binaries, and files read whole.
#include "vorneffects/Platform.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <stdexcept>

namespace vorn {
namespace {

namespace fs = std::filesystem;

struct ClassRegistry {
    std::shared_mutex mutex;
    std::map<std::string, Class, std::less<>> classes;
};

/// Classes register themselves while static objects are made, in any order, and may be asked for
/// while those are destroyed: so the registry is made on first use and never destroyed.
ClassRegistry& classRegistry() {
    static ClassRegistry& registry = *new ClassRegistry;
    return registry;
}

/// The file that an address was loaded from, symbolic links resolved; empty when there is none.
fs::path binaryThatHolds(const void* address) {
    Dl_info symbol{};
    link_map* binary = nullptr;
    if (!dladdr1(address, &symbol, reinterpret_cast<void**>(&binary), RTLD_DL_LINKMAP) || !binary)
        return {};
    // The main program has no name of its own here; what dladdr says is how it was called.
    const bool isMainProgram = !binary->l_name || !*binary->l_name;
    std::error_code error;
    return fs::canonical(isMainProgram ? "/proc/self/exe" : binary->l_name, error);
}

bool isRegularFile(const std::string& path) {
    // The system would read a path with a zero byte in it as a shorter one.
    if (path.find('\0') != std::string::npos) return false;
    std::error_code error;
    return fs::is_regular_file(path, error);
}

} // namespace

void registerClass(Class info) {
    if (!info || !info->name) return;
    ClassRegistry& registry = classRegistry();
    const std::unique_lock lock(registry.mutex);
    registry.classes[info->name] = info;
}

Class classFromString(std::string_view name) {
    ClassRegistry& registry = classRegistry();
    const std::shared_lock lock(registry.mutex);
    const auto found = registry.classes.find(name);
    return found == registry.classes.end() ? nullptr : found->second;
}

Bundle Bundle::forClass(Class owner) {
    const fs::path binary = owner ? binaryThatHolds(owner->address) : fs::path();
    return Bundle(binary.empty() ? std::string() : (binary.parent_path() / "VornEffects").string());
}

std::optional<std::string> Bundle::pathForResource(std::string_view name,
                                                   std::string_view extension) const {
    if (folder_.empty() || name.empty()) return std::nullopt;
    std::string path = folder_ + "/" + std::string(name);
    if (!extension.empty()) path.append(".").append(extension);
    if (!isRegularFile(path)) return std::nullopt;
    return path;
}

Data dataWithContentsOfFile(const std::string& path) {
    // Devices and pipes have no whole to read, and opening them may wait for ever.
    if (!isRegularFile(path)) return nullptr;
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file) return nullptr;
    try {
        auto bytes = std::make_shared<std::vector<uint8_t>>(size);
        file.read(reinterpret_cast<char*>(bytes->data()), static_cast<std::streamsize>(size));
        if (static_cast<uintmax_t>(file.gcount()) != size) return nullptr;
        return bytes;
    } catch (const std::bad_alloc&) {
        return nullptr;
    } catch (const std::length_error&) {
        return nullptr;
    }
}

} // namespace vorn
