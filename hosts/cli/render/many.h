// Many renders by one command line: several inputs into one folder.
#pragma once

#include "options.h"

#include "host_error.h"

#include <string>
#include <vector>

namespace vorn::hosts::cli {

/// An input and what it becomes.
struct RenderJob {
    std::string input, output;
};

/// The inputs, patterns such as "films/*.mp4" by what they stand for, with the names of their
/// outputs, which end in what `format` names, if it names any. A usage error where two would become
/// one, and for a pattern of names that cannot be.
std::vector<RenderJob> planJobs(const ManyArguments& many, const std::vector<std::string>& inputs,
                                const std::string& format);

/// Renders each on its own; one that fails does not keep the others. The code of the failures, if
/// they have the same, else `Failed`.
ExitCode renderMany(const RenderArguments& arguments);

} // namespace vorn::hosts::cli
