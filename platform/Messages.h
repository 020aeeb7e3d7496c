// Lines for whoever runs the process: what a host passed in wrongly, what could not be loaded.
#pragma once

namespace vorn {

/// `Notice`: nothing is wrong. `Warning`: a value was refused, or a frame is missing. `Error`: a
/// part of the installation cannot be used.
enum class Severity { Notice, Warning, Error };

/// One line, formatted as `printf` does, without the newline. It goes to standard output. Safe from
/// any thread; never throws.
[[gnu::format(printf, 2, 3)]] void report(Severity severity, const char* format, ...) noexcept;

} // namespace vorn
