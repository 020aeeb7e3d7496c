// A file that takes its name when it is whole. Internal.
#pragma once

#include <string>

namespace vorn::media {

/// Creates an empty file with a temporary name beside `target`. A target that exists and is not a
/// regular file (a device, a named pipe) is used directly instead.
class TemporaryFile {
public:
    /// Throws WriteError.
    TemporaryFile(const std::string& target, bool overwrite);
    /// Removes the file unless commit() has run.
    ~TemporaryFile() { discard(); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// The name to write to.
    const std::string& path() const { return path_; }
    /// Gives the file the target's name. Throws WriteError.
    void commit();
    void discard() noexcept;

private:
    std::string target_;
    std::string path_;
    bool isDirect_ = false;
    bool isPending_ = false;
};

} // namespace vorn::media
