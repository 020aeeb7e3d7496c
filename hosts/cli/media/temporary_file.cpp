#include "temporary_file.h"

#include "types.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace vorn::media {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw WriteError("cannot write " + path + ": " + reason);
}

} // namespace

TemporaryFile::TemporaryFile(const std::string& target, bool overwrite) : target_(target) {
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::is_directory(status)) fail(target, "is a folder");
    if (fs::exists(status)) {
        if (!fs::is_regular_file(status)) {
            isDirect_ = true;
            path_ = target;
            if (::access(path_.c_str(), W_OK) != 0) fail(target, std::strerror(errno));
            return;
        }
        if (!overwrite) fail(target, "the file exists already");
        if (::access(target.c_str(), W_OK) != 0) fail(target, std::strerror(errno));
        // The file behind a symbolic link is replaced, not the link.
        const fs::path real = fs::canonical(target, error);
        if (!error) target_ = real.string();
    }
    const fs::path whole(target_);
    const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error)) fail(target, "there is no folder " + folder.string());

    static std::atomic<unsigned> counter{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string name = "." + whole.filename().string() + "." +
                                 std::to_string(::getpid()) + "-" + std::to_string(counter++) +
                                 ".part";
        path_ = (folder / name).string();
        const int descriptor = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0) {
            ::close(descriptor);
            isPending_ = true;
            return;
        }
        if (errno != EEXIST) fail(target, std::strerror(errno));
    }
    fail(target, "no temporary name is free in " + folder.string());
}

void TemporaryFile::commit() {
    if (!isPending_) return;
    if (std::rename(path_.c_str(), target_.c_str()) != 0) fail(target_, std::strerror(errno));
    isPending_ = false;
}

void TemporaryFile::discard() noexcept {
    if (isPending_) ::unlink(path_.c_str());
    isPending_ = false;
}

} // namespace vorn::media
