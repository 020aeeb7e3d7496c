// The command line told of itself: as a manual page and to shells.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace vorn::hosts::cli {

/// The page vorn(1), in the language of man.
std::string manualPage(const CLI::App& app);

/// What makes a shell complete command lines: "bash", "zsh" or "fish". A usage error for others.
std::string completionScript(const CLI::App& app, const std::string& shell);

} // namespace vorn::hosts::cli
