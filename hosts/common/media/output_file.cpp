#include "output_file.h"

#include "types.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace vorn::media {

namespace fs = std::filesystem;

namespace {

constexpr const char* kTerminal =
    "it is a terminal, which pictures would only confuse; name a file, or send them on with | or >";
constexpr int kPrivate = 0600;
constexpr int kMostLinks = 40; // as many as the kernel follows

/// The temporary names, where a signal handler finds them.
struct Unfinished {
    enum State { Free, Claimed, Named };
    std::atomic<int> state{Free};
    int folder = -1;
    std::array<char, 256> name{};
};
std::array<Unfinished, 64> unfinished;
std::atomic<bool> isEnding{false};
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers must not lock");

int claimSlot() {
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        int expected = Unfinished::Free;
        if (unfinished[i].state.compare_exchange_strong(expected, Unfinished::Claimed))
            return int(i);
    }
    return -1;
}

std::string reason(int error) {
    return std::strerror(error);
}

double secondsNow() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

void removeUnfinishedFiles() noexcept {
    isEnding = true;
    for (const Unfinished& file : unfinished)
        if (file.state == Unfinished::Named) ::unlinkat(file.folder, file.name.data(), 0);
}

OutputFile::OutputFile(const std::string& target, bool overwrite, const FileAccess& access)
    : target_(target), overwrite_(overwrite), access_(access) {
    try {
        struct stat file = {};
        const bool exists = ::stat(target.c_str(), &file) == 0;
        if (exists && S_ISDIR(file.st_mode)) fail("is a folder");
        if (exists && !S_ISREG(file.st_mode)) {
            openDirectly();
            return;
        }
        isRegular_ = true;
        findFolder();
        create();
    } catch (...) {
        discard();
        throw;
    }
}

OutputFile::OutputFile(int descriptor, const FileAccess& access)
    : descriptor_(descriptor), isBorrowed_(true), access_(access) {
    const int mode = ::fcntl(descriptor_, F_GETFL);
    struct stat file = {};
    if (mode < 0 || ::fstat(descriptor_, &file) != 0) throw std::runtime_error(reason(errno));
    if ((mode & O_ACCMODE) == O_RDONLY)
        throw std::runtime_error("the descriptor is open for reading only");
    if (access_.inputs && access_.inputs->contains(file))
        throw std::runtime_error("is read: choose another output");
    if (::isatty(descriptor_)) throw std::runtime_error(kTerminal);
    isRegular_ = S_ISREG(file.st_mode);
}

OutputFile OutputFile::open(const std::string& target, int descriptor, bool overwrite,
                            const FileAccess& access) {
    if (descriptor >= 0) return OutputFile(descriptor, access);
    return OutputFile(target, overwrite, access);
}

void OutputFile::fail(const std::string& reason) const {
    throw WriteError("cannot write " + target_ + ": " + reason);
}

/// Waits until a named pipe has a reader.
void OutputFile::openDirectly() {
    do {
        if (access_.isStopped()) throw Interrupted();
        descriptor_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    } while (descriptor_ < 0 && errno == EINTR);
    if (descriptor_ < 0) fail(reason(errno));
    struct stat file = {};
    if (::fstat(descriptor_, &file) != 0 || S_ISREG(file.st_mode))
        fail("has become another file meanwhile");
    if (::isatty(descriptor_)) fail(kTerminal);
}

/// The folder that the file lies in, and its name there. The file behind a link is replaced, not
/// the link; from here on nobody can put another link in its place.
void OutputFile::findFolder() {
    fs::path path = target_;
    for (int links = 0; links < kMostLinks; ++links) {
        const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
        name_ = path.filename().string();
        if (name_.empty()) fail("is a folder");
        if (folder_ >= 0) ::close(folder_);
        folder_ = ::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (folder_ < 0 && (errno == ENOENT || errno == ENOTDIR))
            fail("there is no folder " + parent.string());
        if (folder_ < 0) fail(reason(errno));

        struct stat file = {};
        if (::fstatat(folder_, name_.c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISLNK(file.st_mode))
            return;
        if (file.st_uid != ::geteuid() && file.st_uid != 0)
            fail("is a link that belongs to another user");
        std::array<char, 4096> text;
        const ssize_t length = ::readlinkat(folder_, name_.c_str(), text.data(), text.size());
        if (length <= 0 || std::size_t(length) == text.size()) fail("is a link that leads nowhere");
        path = parent / fs::path(std::string(text.data(), std::size_t(length)));
    }
    fail(reason(ELOOP));
}

bool OutputFile::findTarget(struct stat& file) const {
    if (::fstatat(folder_, name_.c_str(), &file, AT_SYMLINK_NOFOLLOW) == 0) return true;
    if (errno != ENOENT) fail(reason(errno));
    return false;
}

void OutputFile::refuseInput(const struct stat& file) const {
    if (access_.inputs && access_.inputs->contains(file))
        fail("it is read: choose another name for the output");
}

void OutputFile::create() {
    struct stat old = {};
    const bool replaces = findTarget(old);
    int oldDescriptor = -1;
    if (replaces) {
        if (!overwrite_) fail("the file exists already");
        refuseInput(old);
        if (::faccessat(folder_, name_.c_str(), W_OK, AT_EACCESS) != 0) fail(reason(errno));
    }
    slot_ = claimSlot();
    if (slot_ < 0) fail("too many files are being written");
    Unfinished& slot = unfinished[std::size_t(slot_)];

    static std::atomic<unsigned> counter{0};
    constexpr std::size_t longest = 200; // the end needs room too
    for (int attempt = 0; attempt < 100 && descriptor_ < 0; ++attempt) {
        std::snprintf(slot.name.data(), slot.name.size(), ".%s.%d-%u.part",
                      name_.substr(0, longest).c_str(), int(::getpid()), counter++);
        slot.folder = folder_;
        slot.state = Unfinished::Named;
        descriptor_ = ::openat(folder_, slot.name.data(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               replaces ? kPrivate : 0666);
        if (descriptor_ >= 0) break;
        slot.state = Unfinished::Claimed;
        if (errno != EEXIST) fail(reason(errno));
    }
    if (descriptor_ < 0) fail("no temporary name is free in its folder");
    if (isEnding) removeUnfinishedFiles();
    if (!replaces) return;
    oldDescriptor = ::openat(folder_, name_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    keepPermissions(old, oldDescriptor);
    if (oldDescriptor >= 0) ::close(oldDescriptor);
}

/// Those of the old file. Where the new one cannot belong to the same group, or cannot have the
/// same list of those who may use it, what the group may do is left out.
void OutputFile::keepPermissions(const struct stat& old, int oldDescriptor) {
    mode_t mode = old.st_mode & 0777;
    const bool hasGroup = ::fchown(descriptor_, old.st_uid, old.st_gid) == 0 ||
                          ::fchown(descriptor_, uid_t(-1), old.st_gid) == 0;
    if (!hasGroup) mode &= ~mode_t(S_IRWXG);
    constexpr const char* list = "system.posix_acl_access";
    std::array<char, 4096> entries;
    const std::string path = "/proc/self/fd/" + std::to_string(oldDescriptor);
    const ssize_t size = ::getxattr(path.c_str(), list, entries.data(), entries.size());
    const bool hasNone = size < 0 && (errno == ENODATA || errno == ENOTSUP);
    if (hasNone) ::fremovexattr(descriptor_, list); // the folder's, which may allow others more
    const bool keepsList = hasNone || (size >= 0 && ::fsetxattr(descriptor_, list, entries.data(),
                                                                std::size_t(size), 0) == 0);
    if (!keepsList) mode &= ~mode_t(S_IRWXG);
    if (::fchmod(descriptor_, mode) != 0) fail(reason(errno));
}

void OutputFile::write(const std::uint8_t* bytes, std::size_t count) {
    while (count > 0) {
        const double begin = secondsNow();
        const ssize_t done = ::write(descriptor_, bytes, count);
        const int error = errno;
        if (done >= 0) {
            bytes += done;
            count -= std::size_t(done);
        } else if (error == EAGAIN) {
            pollfd waiting{descriptor_, POLLOUT, 0};
            ::poll(&waiting, 1, 100);
        } else if (error != EINTR) {
            // Those who read from a pipe often get the same signal and are gone.
            if (error == EPIPE && access_.isStopped()) throw Interrupted();
            throw std::runtime_error(reason(error));
        }
        if (isRegular_ || !access_.isStopped()) continue;
        waitedSeconds_ += std::min(secondsNow() - begin, access_.stop->secondsSinceAsked());
        if (waitedSeconds_ > kPatienceSeconds) throw Interrupted();
    }
}

bool OutputFile::isSeekable() const {
    if (!isRegular_ || (::fcntl(descriptor_, F_GETFL) & O_APPEND)) return false;
    // What stands in front of it belongs to somebody else.
    return ::lseek(descriptor_, 0, SEEK_CUR) == 0;
}

std::int64_t OutputFile::seek(std::int64_t offset, int whence) {
    return ::lseek(descriptor_, offset, whence);
}

std::int64_t OutputFile::size() const {
    struct stat file = {};
    return ::fstat(descriptor_, &file) == 0 ? std::int64_t(file.st_size) : -1;
}

void OutputFile::commit() {
    if (slot_ < 0) return;
    // Otherwise a power cut could leave the new name with none of the bytes.
    if (::fsync(descriptor_) != 0 && errno != EINVAL && errno != ENOSYS) fail(reason(errno));
    const Unfinished& slot = unfinished[std::size_t(slot_)];
    struct stat mine = {}, named = {};
    if (::fstat(descriptor_, &mine) != 0 ||
        ::fstatat(folder_, slot.name.data(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        mine.st_dev != named.st_dev || mine.st_ino != named.st_ino)
        fail("somebody took the unfinished file away");
    if (findTarget(named)) refuseInput(named);
    rename();
    unfinished[std::size_t(slot_)].state = Unfinished::Claimed;
    discard();
}

void OutputFile::rename() {
    const char* from = unfinished[std::size_t(slot_)].name.data();
    const char* to = name_.c_str();
    int result = ::renameat2(folder_, from, folder_, to, overwrite_ ? 0 : RENAME_NOREPLACE);
    // File systems that cannot do that refuse a second name where there is one already.
    if (result != 0 && !overwrite_ && (errno == EINVAL || errno == ENOSYS)) {
        result = ::linkat(folder_, from, folder_, to, 0);
        if (result == 0) ::unlinkat(folder_, from, 0);
    }
    if (result == 0) return;
    fail(errno == EEXIST ? std::string("the file exists already") : reason(errno));
}

void OutputFile::discard() noexcept {
    if (slot_ >= 0) {
        Unfinished& slot = unfinished[std::size_t(slot_)];
        if (slot.state == Unfinished::Named) ::unlinkat(folder_, slot.name.data(), 0);
        slot.state = Unfinished::Free;
    }
    if (descriptor_ >= 0 && !isBorrowed_) ::close(descriptor_);
    if (folder_ >= 0) ::close(folder_);
    slot_ = descriptor_ = folder_ = -1;
}

} // namespace vorn::media
