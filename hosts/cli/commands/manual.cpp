// The manual page, from the options themselves.
#include "manual.h"

#include "vorneffects/VornEffects.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts::cli {

namespace {

/// Text of ours in the language of man, in which backslashes, and dots at the start of a line, mean
/// something.
std::string roff(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        const bool isLineStart = safe.empty() || safe.back() == '\n';
        if (isLineStart && (c == '.' || c == '\'')) safe += "\\&";
        safe += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return safe;
}

/// Lines that stay as they are.
std::string verbatim(const std::string& text) {
    return ".nf\n" + roff(text) + "\n.fi\n";
}

std::string optionText(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("\\-" + roff(name));
    for (const std::string& name : option.get_lnames()) names.push_back("\\-\\-" + roff(name));
    if (names.empty()) names.push_back(roff(option.get_name(true)));
    std::string text = fmt::format(".TP\n\\fB{}\\fR", fmt::join(names, "\\fR, \\fB"));
    const bool isFlag = option.get_items_expected_max() == 0;
    if (!isFlag && !option.get_type_name().empty())
        text += " \\fI" + roff(option.get_type_name()) + "\\fR";
    std::string description = option.get_description();
    std::replace(description.begin(), description.end(), '\n', ' ');
    return text + "\n" + roff(description) + "\n";
}

std::string commandText(const CLI::App& command) {
    std::string text = fmt::format(".SS vorn {}\n{}.\n", roff(command.get_name()),
                                   roff(command.get_description()));
    for (const bool isPositional : {true, false})
        for (const CLI::Option* option : command.get_options())
            if (option->get_positional() == isPositional) text += optionText(*option);
    const std::string footer = command.get_footer();
    return footer.empty() ? text : text + ".PP\n" + verbatim(footer);
}

} // namespace

std::string manualPage(const CLI::App& app) {
    std::string page =
        fmt::format(".TH VORN 1 \"\" \"vorn {:.1f}\" \"User commands\"\n"
                    ".SH NAME\nvorn \\- {}\n"
                    ".SH SYNOPSIS\n\\fBvorn\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR ...]\n"
                    ".SH COMMANDS\n",
                    VornEffectsVersionNumber, roff("real-time video effects on the command line"));
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        page += commandText(*command);
    return page + ".SH NOTES\n" + verbatim(app.get_footer());
}

} // namespace vorn::hosts::cli
