// The device that a command line asks for.
#pragma once

#include "vorneffects/CIContext.h"

#include <string>

namespace vorn::cli {

/// Reads "auto", "cpu", "reference", "vulkan" or "vulkan:NUMBER-OR-NAME" into a context's options.
/// A `CommandError` for anything else, which names the choices.
void readDevice(const std::string& text, ContextOptions& options,
                const char* choices = "auto, cpu, reference, vulkan or vulkan:N");

/// A `CommandError` with the code for missing devices unless a context has what it was made for.
void requireDevice(const CIContext& context);

} // namespace vorn::cli
