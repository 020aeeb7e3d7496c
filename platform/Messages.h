// Lines for whoever runs the process: what a host passed in wrongly, what could not be loaded.
#pragma once

#include "vorneffects/Platform.h"

namespace vorn {

/// One line, formatted as `printf` does, without the newline. It goes to the sink of the session
/// that is current on this thread. Safe from any thread; never throws.
[[gnu::format(printf, 2, 3)]] void report(Severity severity, const char* format, ...) noexcept;

/// To be called where something has been caught: says what, as "### NAME: what it was".
void reportCaught(std::string_view name) noexcept;

} // namespace vorn
