// The options of `vorn render`, as they are written and as they are meant.
#pragma once

#include "chain/chain.h"
#include "chain_arguments.h"
#include "file_options.h"
#include "source.h"

#include "media/writer.h"

#include "vorneffects/CIContext.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace vorn::hosts::cli {

/// The command line, as it is written.
struct RenderArguments {
    std::string input, output;
    ChainArguments chain;
    std::string size, range, duration, rate;
    std::int64_t frames = 0;
    std::string codec, preset;
    std::optional<double> crf;
    std::string device = "auto", workingSpace = "none";
    int threads = 0;
    bool keepsAlpha = false, keepsExisting = false, allowsPlaylists = false, isQuiet = false,
         json = false;
    FileArguments files;
};

/// Adds the options and the help text.
void addRenderOptions(CLI::App& command, RenderArguments& arguments);

/// The command line, read and checked.
struct RenderOptions {
    SourceRequest source;
    std::string output;
    ChainPlan chain;
    ContextOptions context;
    std::string codec, preset;
    std::optional<double> crf;
    bool keepsAlpha = false, keepsExisting = false, isQuiet = false, json = false;
    FileOptions files;

    bool writesToStandardOutput() const { return output == "-"; }
};

/// Everything that can be told to be wrong without opening a file is a `HostError` here.
RenderOptions readRenderOptions(const RenderArguments& arguments);

} // namespace vorn::hosts::cli
