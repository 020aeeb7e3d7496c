// How far a render has come: a bar on a terminal, a line every few seconds elsewhere.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vorn::hosts::cli {

class Progress {
public:
    /// Without `expectedFrames` neither share nor time left are shown. `unit` is what is counted.
    Progress(std::optional<std::int64_t> expectedFrames, bool isQuiet, const char* unit = "frames");
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many frames are done.
    void update(std::int64_t frames);
    /// Takes the bar away, so that something else can be said.
    void clear();
    double elapsedSeconds() const;

private:
    using Clock = std::chrono::steady_clock;

    std::string text(std::int64_t frames) const;

    std::optional<std::int64_t> expectedFrames_;
    const char* unit_;
    bool isQuiet_, isTerminal_;
    bool isShown_ = false;
    Clock::time_point start_ = Clock::now(), lastShown_ = start_;
};

/// "0:07", "12:34", "1:02:03".
std::string clockText(double seconds);

} // namespace vorn::hosts::cli
