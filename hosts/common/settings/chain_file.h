// Chains of filters as files: JSON, whose form docs/chain.schema.json describes.
#pragma once

#include "chain_plan.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace vorn::hosts {

/// What a file tells of its chain besides the filters; both may be empty.
struct ChainWords {
    std::string name, description;
};

/// Adds the filters of a chain's text to a plan. Second images are looked for from `folder` on.
/// Usage errors begin with `where` and tell line and column, or the JSON pointer of the place.
ChainWords readChain(std::string_view text, std::string_view where,
                     const std::filesystem::path& folder, ChainPlan& plan);
/// The same of a file; one that cannot be read is an error of its own kind.
ChainWords readChainFile(const std::string& path, ChainPlan& plan);

/// The chain as such a text. Second images are named from `folder` on.
std::string chainText(const ChainPlan& plan, const ChainWords& words,
                      const std::filesystem::path& folder);

/// The chain as options of a command line, one each, quoted for a shell: "--filter VEXray".
std::vector<std::string> chainOptions(const ChainPlan& plan);

} // namespace vorn::hosts
