// What the program's exit status says.
#pragma once

namespace vorn::cli {

enum class ExitCode : int {
    Done = 0,
    Failed = 1,            ///< something went wrong while running
    Usage = 2,             ///< the command line cannot be carried out as written
    InputUnreadable = 3,   ///< an input file is missing, unreadable or damaged
    OutputNotWritable = 4, ///< an output could not be written
    DeviceMissing = 5,     ///< the device that was asked for is not there
    Interrupted = 130,     ///< stopped by the user
};

inline constexpr const char kExitCodesHelp[] =
    "Exit codes: 0 done, 1 failed while running, 2 wrong usage, 3 input unreadable,\n"
    "4 output not writable, 5 device missing, 130 interrupted.";

} // namespace vorn::cli
