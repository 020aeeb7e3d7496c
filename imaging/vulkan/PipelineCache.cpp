#include "imaging/vulkan/PipelineCache.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorn::imaging::vulkan {
namespace {

/// Drivers are to refuse a cache that is not theirs or damaged, and not all of them do. So the file
/// says itself whose it is, and carries a checksum.
struct CacheHeader {
    char magic[8] = {'V', 'O', 'R', 'N', 'P', 'I', 'P', 'E'};
    uint32_t version = 1, vendor = 0, device = 0, driver = 0;
    uint8_t uuid[VK_UUID_SIZE] = {};
    uint64_t size = 0, checksum = 0;
};

uint64_t checksumOf(std::string_view bytes) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

CacheHeader headerFor(std::string_view data, const VkPhysicalDeviceProperties& properties) {
    CacheHeader header;
    header.vendor = properties.vendorID;
    header.device = properties.deviceID;
    header.driver = properties.driverVersion;
    std::memcpy(header.uuid, properties.pipelineCacheUUID, sizeof header.uuid);
    header.size = data.size();
    header.checksum = checksumOf(data);
    return header;
}

std::string cacheFolder() {
    const char* const folder = std::getenv("XDG_CACHE_HOME");
    if (folder && *folder == '/') return std::string(folder) + "/vorneffects";
    const char* const home = std::getenv("HOME");
    return home && *home == '/' ? std::string(home) + "/.cache/vorneffects" : "";
}

/// Many times what the kernels of every filter come to.
constexpr size_t kMostBytes = size_t{64} << 20;

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return number_; }

private:
    int number_;
};

struct stat statusOf(int descriptor) {
    struct stat status {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) status.st_mode = 0;
    return status;
}

/// The folder of a file if nobody but the user can have put anything into it, else -1.
int openFolder(const std::string& folder) {
    const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const struct stat status = statusOf(opened);
    if (S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 0777) == 0700)
        return opened;
    if (opened >= 0) close(opened);
    return -1;
}

void makeFolders(const std::string& folder) {
    for (size_t end = folder.find('/', 1); end != folder.npos; end = folder.find('/', end + 1))
        mkdir(folder.substr(0, end).c_str(), 0700);
    mkdir(folder.c_str(), 0700);
}

bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

} // namespace

std::string pipelineCacheFile(const VkPhysicalDeviceProperties& properties) {
    const std::string folder = cacheFolder();
    if (folder.empty()) return {};
    std::string name = folder + "/vulkan-";
    for (const uint8_t byte : properties.pipelineCacheUUID) {
        constexpr char digits[] = "0123456789abcdef";
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    return name + ".pipelines";
}

std::string wrappedCache(const std::string& data, const VkPhysicalDeviceProperties& properties) {
    const CacheHeader header = headerFor(data, properties);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + data;
}

std::string usableCache(const std::string& file, const VkPhysicalDeviceProperties& properties) {
    if (file.size() <= sizeof(CacheHeader)) return {};
    const std::string data = file.substr(sizeof(CacheHeader));
    const CacheHeader wanted = headerFor(data, properties);
    return std::memcmp(file.data(), &wanted, sizeof wanted) == 0 ? data : std::string();
}

std::string readCacheFile(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == path.npos) return {};
    const Descriptor folder(openFolder(path.substr(0, slash)));
    if (folder < 0) return {};
    // Without waiting for somebody to write into what may be a pipe.
    const Descriptor file(
        openat(folder, path.c_str() + slash + 1, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const struct stat status = statusOf(file);
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_size <= 0 ||
        static_cast<uint64_t>(status.st_size) > kMostBytes)
        return {};
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    for (size_t have = 0; have < bytes.size();) {
        const ssize_t more = read(file, bytes.data() + have, bytes.size() - have);
        if (more < 0 && errno == EINTR) continue;
        if (more <= 0) return {};
        have += static_cast<size_t>(more);
    }
    return bytes;
}

bool writeCacheFile(const std::string& path, const std::string& bytes) {
    const size_t slash = path.rfind('/');
    uint64_t number = 0;
    if (slash == path.npos || bytes.size() > kMostBytes ||
        getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
        return false;
    makeFolders(path.substr(0, slash));
    const Descriptor folder(openFolder(path.substr(0, slash)));
    if (folder < 0) return false;
    // Others may write it at the same time: each a file of its own, and then all at once.
    const std::string name = path.substr(slash + 1),
                      unfinished = name + "." + std::to_string(number);
    const Descriptor file(openat(folder, unfinished.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file < 0) return false;
    if (writeAll(file, bytes) && renameat(folder, unfinished.c_str(), folder, name.c_str()) == 0)
        return true;
    unlinkat(folder, unfinished.c_str(), 0);
    return false;
}

} // namespace vorn::imaging::vulkan
