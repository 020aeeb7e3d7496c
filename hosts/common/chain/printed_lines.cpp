#include "printed_lines.h"

#include <mutex>
#include <utility>

namespace vorn::hosts {

struct PrintedLines::Lines {
    std::mutex mutex;
    std::vector<std::string> lines;
};

PrintedLines::PrintedLines()
    : session_(Session::current()), lines_(std::make_shared<Lines>()),
      former_(session_->setMessages([to = lines_](Severity, std::string_view line) {
          const std::lock_guard lock(to->mutex);
          to->lines.emplace_back(line);
      })) {}

PrintedLines::~PrintedLines() {
    session_->setMessages(std::move(former_));
}

std::vector<std::string> PrintedLines::take() {
    const std::lock_guard lock(lines_->mutex);
    return std::exchange(lines_->lines, {});
}

} // namespace vorn::hosts
