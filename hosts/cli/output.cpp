#include "output.h"

#include "commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace vorn::cli {

namespace {
std::FILE* resultStream = nullptr;

[[noreturn]] void failRedirecting() {
    throw CommandError(ExitCode::Failed,
                       fmt::format("cannot redirect standard output: {}", std::strerror(errno)));
}
} // namespace

void separateResultsFromTalk() {
    std::fflush(stdout);
    const int descriptor = dup(STDOUT_FILENO);
    if (descriptor >= 0) resultStream = fdopen(descriptor, "w");
    if (!resultStream || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) failRedirecting();
}

std::FILE* results() {
    return resultStream ? resultStream : stdout;
}

bool finishResults() {
    return std::fflush(results()) == 0 && !std::ferror(results());
}

PrintedLines::PrintedLines() {
    std::fflush(stdout);
    memory_ = memfd_create("printed", MFD_CLOEXEC);
    saved_ = dup(STDOUT_FILENO);
    if (memory_ >= 0 && saved_ >= 0 && dup2(memory_, STDOUT_FILENO) >= 0) return;
    const int reason = errno;
    if (memory_ >= 0) close(memory_);
    if (saved_ >= 0) close(saved_);
    errno = reason;
    failRedirecting();
}

PrintedLines::~PrintedLines() {
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    close(memory_);
}

std::vector<std::string> PrintedLines::take() {
    std::fflush(stdout);
    std::string text;
    lseek(memory_, 0, SEEK_SET);
    char block[4096];
    for (ssize_t count; (count = read(memory_, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(count));
    }
    // Both descriptors share one offset, so the next line lands at the start of an empty file.
    if (ftruncate(memory_, 0) != 0 || lseek(memory_, 0, SEEK_SET) != 0) failRedirecting();

    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

void printTable(const std::vector<TableRow>& rows, const std::vector<size_t>& rightAligned) {
    std::vector<size_t> widths;
    for (const TableRow& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const TableRow& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const bool right =
                std::find(rightAligned.begin(), rightAligned.end(), i) != rightAligned.end();
            if (i > 0) line += "  ";
            line += right ? fmt::format("{:>{}}", row[i], widths[i])
                          : fmt::format("{:<{}}", row[i], widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        printResult("{}\n", line);
    }
}

} // namespace vorn::cli
