// The subcommands of `vorn`, one per file, and how they are hooked into the command line.
#pragma once

#include "exitcodes.h"

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace vorn::cli {

/// Ends the command: the message goes to standard error, the code is the exit status.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

/// What is left to do once the command line has been read.
using Action = std::function<ExitCode()>;

/// What `vorn describe NAME` says.
ExitCode describeFilter(const std::string& name, bool asJson);

/// Each adds one subcommand, which stores its work in `action` when the command line chooses it.
void addListCommand(CLI::App& app, Action& action);
void addDescribeCommand(CLI::App& app, Action& action);
void addExplainCommand(CLI::App& app, Action& action);
void addRenderCommand(CLI::App& app, Action& action);
void addGalleryCommand(CLI::App& app, Action& action);
void addBenchCommand(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);

} // namespace vorn::cli
