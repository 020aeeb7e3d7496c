// A file that takes its name when it is whole. Internal.
#pragma once

#include "access.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn::media {

/// Removes the unfinished files of the process, for a signal handler that ends it. Files that are
/// begun later are removed as well.
void removeUnfinishedFiles() noexcept;

/// A regular file is written under a temporary name beside the target, always through the
/// descriptor that made it, and replaces the target in commit(). It has the permissions of the file
/// that it replaces, never wider ones. What exists and is no regular file (a device, a named pipe)
/// is written directly.
class OutputFile {
public:
    /// Throws WriteError, and Interrupted while a named pipe has no reader.
    OutputFile(const std::string& target, bool overwrite, const FileAccess& access);
    /// Writes to a descriptor that stays open. Throws std::runtime_error.
    OutputFile(int descriptor, const FileAccess& access);
    /// The descriptor, or the target if that is negative.
    static OutputFile open(const std::string& target, int descriptor, bool overwrite,
                           const FileAccess& access);
    /// Removes the file unless commit() has run.
    ~OutputFile() { discard(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Writes all bytes. Throws std::runtime_error, and Interrupted when a stop was asked for and
    /// nobody takes them.
    void write(const std::uint8_t* bytes, std::size_t count);
    /// False for a pipe, a device, and a file that is added to.
    bool isSeekable() const;
    /// As lseek().
    std::int64_t seek(std::int64_t offset, int whence);
    std::int64_t size() const;

    /// Brings the bytes to the disk and gives the file the target's name. Throws WriteError.
    void commit();
    void discard() noexcept;

private:
    void findFolder();
    void openDirectly();
    void create();
    void keepPermissions(const struct stat& old, int oldDescriptor);
    void rename();
    /// The file that has the target's name now; false when there is none.
    bool findTarget(struct stat& file) const;
    void refuseInput(const struct stat& file) const;
    [[noreturn]] void fail(const std::string& reason) const;

    std::string target_; ///< as it was asked for
    std::string name_;   ///< in the folder, behind all links
    int folder_ = -1;
    int descriptor_ = -1;
    int slot_ = -1; ///< of the table of unfinished files
    bool overwrite_ = true;
    bool isRegular_ = false, isBorrowed_ = false;
    FileAccess access_;
    double waitedSeconds_ = 0; ///< since a stop was asked for
};

} // namespace vorn::media
