// What the reader of a kernel library cannot see from its bytes alone: whether its declarations
// make sense together, and whether its code is code.
#pragma once

#include "imaging/kernelc/library_format.h"

#include <string>
#include <string_view>

namespace vorn::kernelc {

/// What is wrong with the declarations of a library that was read; empty when nothing is.
std::string declarationProblem(const Library& library);

/// What is wrong with the shared object of one level; empty when it is whole, for this processor,
/// and exports a table of kernels. Nothing in it is run.
std::string codeProblem(const Code& code);

} // namespace vorn::kernelc
