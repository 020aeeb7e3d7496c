// Results go to standard output, talk to standard error. Effects report trouble on standard output,
// so that descriptor is lent to standard error while a command runs, and results have their own.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace vorn::cli {

/// To be called once, before anything is printed: from then on descriptor 1 is standard error.
void separateResultsFromTalk();

/// The program's standard output, for results only.
std::FILE* results();

/// Writes what is buffered; false when the results could not be written in full.
bool finishResults();

template <class... Values>
void printResult(fmt::format_string<Values...> format, Values&&... values) {
    fmt::print(results(), format, std::forward<Values>(values)...);
}

/// Collects, while it lives, what the library prints on standard output.
class PrintedLines {
public:
    PrintedLines();
    ~PrintedLines();
    PrintedLines(const PrintedLines&) = delete;
    PrintedLines& operator=(const PrintedLines&) = delete;

    /// The lines since the last call, without their line ends.
    std::vector<std::string> take();

private:
    int memory_ = -1, saved_ = -1;
};

/// A table in columns that are as wide as their widest cell; columns named in `rightAligned` hold
/// numbers. The first row is the heading.
using TableRow = std::vector<std::string>;
void printTable(const std::vector<TableRow>& rows, const std::vector<size_t>& rightAligned = {});

} // namespace vorn::cli
