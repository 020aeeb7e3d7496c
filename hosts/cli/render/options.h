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

/// How many inputs become files of one folder.
struct ManyArguments {
    std::string folder; ///< empty: there is one input and one output
    std::string names = "{name}{ext}";
    int jobs = 0;
    bool resumes = false;
};

/// The command line, as it is written.
struct RenderArguments {
    std::vector<std::string> paths; ///< inputs, and behind them the output if there is no folder
    std::string input, output;
    ManyArguments many;
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
    /// Whether a film that ends early is kept.
    bool keepsUnfinished = true;
    std::string speaksFor; ///< what stands before warnings, where there are several renders

    bool writesToStandardOutput() const { return output == "-"; }
};

/// Whether there are several inputs; a usage error where the files fit neither. Of one input, sets
/// it and its output.
bool readFiles(RenderArguments& arguments);

/// Everything that can be told to be wrong without opening a file is a `HostError` here.
RenderOptions readRenderOptions(const RenderArguments& arguments);

} // namespace vorn::hosts::cli
