#include "access.h"

#include <ctime>
#include <sys/stat.h>

namespace vorn::media {

namespace {

std::int64_t now() {
    timespec time = {};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

} // namespace

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "signal handlers must not lock");

bool StopRequest::ask() noexcept {
    std::int64_t notYet = 0;
    return askedAt_.compare_exchange_strong(notYet, now());
}

double StopRequest::secondsSinceAsked() const noexcept {
    const std::int64_t askedAt = askedAt_;
    return askedAt == 0 ? 0 : double(now() - askedAt) / 1e9;
}

void InputFiles::add(int descriptor) {
    struct stat file = {};
    if (::fstat(descriptor, &file) == 0) add(file);
}

void InputFiles::add(const std::string& path) {
    struct stat file = {};
    if (::stat(path.c_str(), &file) == 0) add(file);
}

void InputFiles::add(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) return;
    const std::lock_guard lock(mutex_);
    files_.emplace(file.st_dev, file.st_ino);
}

bool InputFiles::contains(const struct stat& file) const {
    const std::lock_guard lock(mutex_);
    return files_.count({file.st_dev, file.st_ino}) > 0;
}

} // namespace vorn::media
