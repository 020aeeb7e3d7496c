// The command line as its users meet it: the program is run, its results, talk and exit code read.
#pragma once

#include "bundle_copy.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace cli_test {

using Json = nlohmann::json;

struct Outcome {
    int code = -1;
    std::string results, talk;

    Lines lines() const { return linesOf(results); }
    /// The one JSON object of each line.
    std::vector<Json> objects() const {
        std::vector<Json> all;
        for (const std::string& line : lines()) all.push_back(Json::parse(line));
        return all;
    }
};

/// Runs the program with arguments as a shell reads them.
inline Outcome runVorn(const std::string& arguments, const std::string& environment = {}) {
    std::string talkPath =
        (std::filesystem::temp_directory_path() / "vorn-cli-test-XXXXXX").string();
    const int descriptor = mkstemp(talkPath.data());
    if (descriptor < 0) throw std::runtime_error("cannot make " + talkPath);
    close(descriptor);
    const std::string command =
        environment + " '" VORN_CLI_PATH "' " + arguments + " 2>'" + talkPath + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error("cannot run " + command);
    Outcome run;
    char buffer[4096];
    while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
        run.results.append(buffer, count);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.code = WEXITSTATUS(status);
    run.talk = fileContents(talkPath);
    std::filesystem::remove(talkPath);
    return run;
}

} // namespace cli_test
