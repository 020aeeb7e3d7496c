// The options that describe a chain of filters, of every command that takes one.
#pragma once

#include "settings/chain_file.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace vorn::hosts::cli {

/// A chain as it is written.
struct ChainArguments {
    std::vector<std::string> filters, files, presets, images, animations, ranges, masks;
    /// Which of the first three each is, in the order in which they were written.
    using Part = std::vector<std::string> ChainArguments::*;
    std::vector<Part> order;

    bool isEmpty() const { return order.empty(); }
};

void addChainOptions(CLI::App& command, ChainArguments& arguments);

/// The chain, checked; `words`, if given, gets what the last file or preset tells of itself.
ChainPlan readChainPlan(const ChainArguments& arguments, ChainWords* words = nullptr);

} // namespace vorn::hosts::cli
