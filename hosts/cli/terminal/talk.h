// What is said to people, on standard error.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace vorn::hosts::cli {

/// The text with control characters as \x1b or \n and bytes that are no UTF-8 as \xff, so that the
/// names and tags of files cannot work on the terminal. Line ends stay where `keepsLines` says so.
std::string printable(std::string_view text, bool keepsLines = false);

/// Writes to standard error as it stands. Never throws for a stream that cannot be written.
void talk(const std::string& text);

/// Says one line, with the program's name before it.
template <class... Values>
void say(fmt::format_string<Values...> format, Values&&... values) {
    talk("vorn: " + printable(fmt::format(format, std::forward<Values>(values)...)) + "\n");
}

} // namespace vorn::hosts::cli
