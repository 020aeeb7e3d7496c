// What ends the work of a host: a message for people, and what a program says by its exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace vorn::hosts {

enum class ExitCode : int {
    Done = 0,
    Failed = 1,            ///< something went wrong while running
    Usage = 2,             ///< what was asked for cannot be carried out as it is written
    InputUnreadable = 3,   ///< an input file is missing, unreadable or damaged
    OutputNotWritable = 4, ///< an output could not be written
    DeviceMissing = 5,     ///< the device that was asked for is not there
    Interrupted = 130,     ///< stopped by the user
};

class HostError : public std::runtime_error {
public:
    HostError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

} // namespace vorn::hosts
