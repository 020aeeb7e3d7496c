// Ctrl-C: the first one asks for an end, a second one ends the program at once.
#pragma once

#include <csignal>

namespace vorn::cli {

/// While it lives, the first SIGINT or SIGTERM is only remembered, and writing to a closed pipe is
/// an error instead of the end. One at a time.
class InterruptWatch {
public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    /// Safe from any thread.
    static bool isRequested();

private:
    struct sigaction oldInterrupt_ = {}, oldTerminate_ = {}, oldPipe_ = {};
};

} // namespace vorn::cli
