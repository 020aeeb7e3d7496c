// What people type into a shell.
#pragma once

#include "render_support.h"

#include <cstdio>

namespace render_test {

/// Runs a script in a folder, where `vorn` is the program; a pipe fails with its first part.
inline Outcome inShell(const fs::path& folder, const std::string& script) {
    const std::string talk = (folder / ".talk").string();
    const std::string source = (folder / ".script").string();
    std::ofstream(source) << "set -e -o pipefail\nvorn() { '" VORN_CLI_PATH "' \"$@\"; }\ncd '"
                          << folder.string() << "'\n"
                          << script << "\n";
    FILE* pipe = ::popen(("bash '" + source + "' 2>'" + talk + "'").c_str(), "r");
    if (!pipe) throw std::runtime_error("no shell");
    Outcome outcome;
    char block[1 << 16];
    while (const std::size_t count = std::fread(block, 1, sizeof block, pipe))
        outcome.results.append(block, count);
    const int status = ::pclose(pipe);
    if (WIFEXITED(status)) outcome.code = WEXITSTATUS(status);
    outcome.talk = fileContents(talk);
    fs::remove(talk);
    fs::remove(source);
    return outcome;
}

} // namespace render_test
