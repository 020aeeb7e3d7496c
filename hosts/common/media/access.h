// Which files may be touched, and how long is waited for them.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

struct stat;

namespace vorn::media {

/// Somebody asked for an end while a file was waited for.
class Interrupted final : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

/// The wish for an early end. Readers give up as soon as they would wait, writers finish what does
/// not wait. A system call that waits already has to be interrupted by whoever asks, again and
/// again until the waiting thread is done.
class StopRequest {
public:
    /// True for the first call. Safe in a signal handler.
    bool ask() noexcept;
    bool isAsked() const noexcept { return askedAt_ != 0; }
    /// 0 before that.
    double secondsSinceAsked() const noexcept;

private:
    std::atomic<std::int64_t> askedAt_{0}; ///< nanoseconds of the monotonic clock
};

/// For how long a blocked output is waited for after a stop was asked for.
constexpr double kPatienceSeconds = 0.5;

/// The files that are read, known by what they are and not by a name. For any thread.
class InputFiles {
public:
    /// An open file or a path; what is no regular file is left out.
    void add(int descriptor);
    void add(const std::string& path);
    bool contains(const struct stat& file) const;

private:
    void add(const struct stat& file);

    mutable std::mutex mutex_;
    std::set<std::pair<std::uint64_t, std::uint64_t>> files_; ///< device and number
};

/// What readers and writers of one run share.
struct FileAccess {
    /// A file may name further files to read, as playlists do.
    bool allowsPlaylists = false;
    /// Readers add what they open; writers replace none of it. May be null.
    std::shared_ptr<InputFiles> inputs;
    /// May be null; outlives readers and writers.
    const StopRequest* stop = nullptr;
    /// How long what has to be read is still waited for when a stop was asked for.
    double patienceSeconds = 0;

    bool isStopped() const {
        return stop && stop->isAsked() && stop->secondsSinceAsked() >= patienceSeconds;
    }
};

} // namespace vorn::media
