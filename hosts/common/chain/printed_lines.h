// What the library has to say, held for whoever wants to show it.
#pragma once

#include "vorneffects/Session.h"

#include <memory>
#include <string>
#include <vector>

namespace vorn::hosts {

/// Collects, while it lives, what the library says in the session that was current when it was
/// made.
class PrintedLines {
public:
    PrintedLines();
    ~PrintedLines();
    PrintedLines(const PrintedLines&) = delete;
    PrintedLines& operator=(const PrintedLines&) = delete;

    /// The lines since the last call.
    std::vector<std::string> take();

private:
    struct Lines;
    std::shared_ptr<Session> session_;
    std::shared_ptr<Lines> lines_;
    MessageSink former_;
};

} // namespace vorn::hosts
