// The subcommands of `vorn`, one per file, and how they are hooked into the command line.
#pragma once

#include "host_error.h"

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace vorn::hosts::cli {

inline constexpr const char kExitCodesHelp[] =
    "Exit codes: 0 done, 1 failed while running, 2 wrong usage, 3 input unreadable,\n"
    "4 output not writable, 5 device missing, 130 interrupted.";

/// What is left to do once the command line has been read.
using Action = std::function<ExitCode()>;

/// What `vorn describe NAME` says.
ExitCode describeFilter(const std::string& name, bool asJson);

/// Each adds one subcommand, which stores its work in `action` when the command line chooses it.
void addListCommand(CLI::App& app, Action& action);
void addDescribeCommand(CLI::App& app, Action& action);
void addExplainCommand(CLI::App& app, Action& action);
void addRenderCommand(CLI::App& app, Action& action);
void addChainCommand(CLI::App& app, Action& action);
void addGalleryCommand(CLI::App& app, Action& action);
void addBenchCommand(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);

} // namespace vorn::hosts::cli
