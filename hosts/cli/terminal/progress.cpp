#include "progress.h"

#include "talk.h"

#include <algorithm>
#include <cmath>

#include <unistd.h>

namespace vorn::hosts::cli {

std::string clockText(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::llround(std::clamp(seconds, 0.0, 1e9)));
    const std::int64_t hours = whole / 3600, minutes = whole / 60 % 60;
    return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60)
                     : fmt::format("{}:{:02}", minutes, whole % 60);
}

Progress::Progress(std::optional<std::int64_t> expectedFrames, bool isQuiet, const char* unit)
    : expectedFrames_(expectedFrames), unit_(unit), isQuiet_(isQuiet),
      isTerminal_(isatty(STDERR_FILENO) == 1) {}

double Progress::elapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

std::string Progress::text(std::int64_t frames) const {
    const double rate = static_cast<double>(frames) / std::max(elapsedSeconds(), 1e-6);
    if (!expectedFrames_ || *expectedFrames_ < frames) {
        return fmt::format("{} {}, {:.1f} {}/s", frames, unit_, rate, unit_);
    }
    const auto total = static_cast<double>(std::max<std::int64_t>(1, *expectedFrames_));
    const double share = static_cast<double>(frames) / total;
    const std::string left = clockText((total - static_cast<double>(frames)) / rate);
    const std::string counts = fmt::format("{:3.0f} %  {}/{} {}  {:.1f} {}/s  {} left", share * 100,
                                           frames, *expectedFrames_, unit_, rate, unit_, left);
    if (!isTerminal_) return counts;
    constexpr int width = 24;
    const int filled = static_cast<int>(share * width);
    return fmt::format("[{:#<{}}{:.<{}}] {}", "", filled, "", width - filled, counts);
}

void Progress::update(std::int64_t frames) {
    if (isQuiet_ || frames < 1) return;
    using std::chrono::milliseconds;
    const auto now = Clock::now();
    if (now - lastShown_ < (isTerminal_ ? milliseconds(100) : milliseconds(5000))) return;
    lastShown_ = now;
    isShown_ = isTerminal_;
    talk((isTerminal_ ? "\r" : "vorn: ") + text(frames) + (isTerminal_ ? "\033[K" : "\n"));
}

void Progress::clear() {
    if (!isShown_) return;
    isShown_ = false;
    talk("\r\033[K");
}

} // namespace vorn::hosts::cli
