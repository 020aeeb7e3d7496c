#include "output.h"

#include "talk.h"

#include <algorithm>

namespace vorn::hosts::cli {

void sayOnStandardError(Severity severity, std::string_view line) {
    if (severity != Severity::Notice) talk(printable(line) + "\n");
}

std::shared_ptr<Session> makeSession(const ContextOptions& options) {
    return Session::make({.device = options.device,
                          .threads = options.threads,
                          .instructionSet = options.instructionSet,
                          .deviceName = options.deviceName,
                          .messages = sayOnStandardError});
}

bool finishResults() {
    return std::fflush(results()) == 0 && !std::ferror(results());
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

} // namespace vorn::hosts::cli
