// Results go to standard output, talk to standard error, and so does what the library says.
#pragma once

#include "vorneffects/Session.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace vorn::hosts::cli {

/// Where lines of the library go: to standard error, but for mere notices.
void sayOnStandardError(Severity severity, std::string_view line);

/// A session with the device and the threads that are asked for, whose lines go there.
std::shared_ptr<Session> makeSession(const ContextOptions& options);

/// Where results go.
inline std::FILE* results() {
    return stdout;
}

/// Writes what is buffered; false when the results could not be written in full.
bool finishResults();

/// What cannot be written shows when the results are finished.
template <class... Values>
void printResult(fmt::format_string<Values...> format, Values&&... values) {
    const std::string text = fmt::format(format, std::forward<Values>(values)...);
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), results()));
}

/// A table in columns that are as wide as their widest cell; columns named in `rightAligned` hold
/// numbers. The first row is the heading.
using TableRow = std::vector<std::string>;
void printTable(const std::vector<TableRow>& rows, const std::vector<size_t>& rightAligned = {});

} // namespace vorn::hosts::cli
