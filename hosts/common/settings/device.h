// The device that a command line asks for.
#pragma once

#include "vorneffects/CIContext.h"

#include <string>

namespace vorn::hosts {

/// Reads "auto", "cpu", "reference", "vulkan" or "vulkan:NUMBER-OR-NAME" into a context's options.
/// A `HostError` for anything else, which names the choices.
void readDevice(const std::string& text, ContextOptions& options,
                const char* choices = "auto, cpu, reference, vulkan or vulkan:N");

/// A `HostError` with the code for missing devices unless a context has what it was made for.
void requireDevice(const CIContext& context);

} // namespace vorn::hosts
