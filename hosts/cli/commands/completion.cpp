// Completion for shells, from the options themselves.
#include "manual.h"

#include "host_error.h"

#include <algorithm>
#include <functional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts::cli {

namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    return names;
}

bool isFlag(const CLI::Option& option) {
    return option.get_items_expected_max() == 0;
}

/// What stands behind an option or in a place, as far as the program knows.
enum class Values { Anything, Files, Filters, Presets, Devices, Commands, Shells };

Values valuesOf(const CLI::App& command, const CLI::Option& option) {
    const std::string name = option.get_name(option.get_positional());
    const std::string type = option.get_type_name();
    if (name == "--filter") return Values::Filters;
    if (name == "--preset-chain") return Values::Presets;
    if (name == "--device") return Values::Devices;
    if (name == "SHELL") return Values::Shells;
    if (name == "NAME") return command.get_name() == "help" ? Values::Commands : Values::Filters;
    const bool isFile = type == "FILE" || type == "DIR" || name == "--image";
    return option.get_positional() || isFile ? Values::Files : Values::Anything;
}

constexpr const char kDevices[] = "auto cpu reference vulkan";
constexpr const char kShells[] = "bash zsh fish";

/// The first line of a description, without what shells would read in it.
std::string shortText(const CLI::Option& option) {
    std::string text = option.get_description();
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(std::min(text.find_first_of(";:(,"), text.size()));
    std::erase_if(text, [](char c) {
        return std::string_view("'\"`[]\\$").find(c) != std::string_view::npos;
    });
    return text;
}

// --- bash ---------------------------------------------------------------------------------------

std::string bashValues(Values values, const std::string& commands) {
    switch (values) {
    case Values::Files:
        return "mapfile -t COMPREPLY < <(compgen -f -- \"$word\")";
    case Values::Filters:
        return "mapfile -t COMPREPLY < <(compgen -W \"$(vorn list --names 2>/dev/null)\" -- "
               "\"$word\")";
    case Values::Presets:
        return "local IFS=$'\\n'; mapfile -t COMPREPLY < <(compgen -W \"$(vorn list --presets "
               "--names "
               "2>/dev/null)\" -- \"$word\" | sed 's/ /\\\\ /g')";
    case Values::Devices:
        return fmt::format("mapfile -t COMPREPLY < <(compgen -W '{}' -- \"$word\")", kDevices);
    case Values::Shells:
        return fmt::format("mapfile -t COMPREPLY < <(compgen -W '{}' -- \"$word\")", kShells);
    case Values::Commands:
        return fmt::format("mapfile -t COMPREPLY < <(compgen -W '{}' -- \"$word\")", commands);
    case Values::Anything:
        break;
    }
    return "COMPREPLY=()";
}

std::string bashCommand(const CLI::App& command, const std::string& commands) {
    std::string cases, positional = bashValues(Values::Files, commands);
    for (const CLI::Option* option : command.get_options()) {
        const std::string values = bashValues(valuesOf(command, *option), commands);
        if (option->get_positional())
            positional = values;
        else if (!isFlag(*option))
            cases += fmt::format("      --{}) {} ;;\n", option->get_lnames().front(), values);
    }
    return fmt::format("  {}) case $last in\n{}      *) if [[ $word == -* ]]; then\n"
                       "           mapfile -t COMPREPLY < <(compgen -W '{}' -- \"$word\")\n"
                       "         else {}; fi ;;\n    esac ;;\n",
                       command.get_name(), cases, fmt::join(optionNames(command), " "), positional);
}

std::string bashScript(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : commandsOf(app)) names.push_back(command->get_name());
    const std::string commands = fmt::format("{}", fmt::join(names, " "));
    std::string text =
        fmt::format("# Completion of vorn for bash, made by: vorn completion bash\n_vorn() {{\n"
                    "  local word=${{COMP_WORDS[COMP_CWORD]}} last=${{COMP_WORDS[COMP_CWORD-1]}}\n"
                    "  if ((COMP_CWORD == 1)); then\n"
                    "    mapfile -t COMPREPLY < <(compgen -W '{} --help --version' -- \"$word\")\n"
                    "    return\n  fi\n  case ${{COMP_WORDS[1]}} in\n",
                    commands);
    for (const CLI::App* command : commandsOf(app)) text += bashCommand(*command, commands);
    return text + "  esac\n}\ncomplete -o filenames -F _vorn vorn\n";
}

// --- zsh ----------------------------------------------------------------------------------------

std::string zshValues(Values values, const std::string& commands) {
    switch (values) {
    case Values::Files:
        return "_files";
    case Values::Filters:
        return "{compadd -- ${(f)\"$(vorn list --names 2>/dev/null)\"}}";
    case Values::Presets:
        return "{compadd -- ${(f)\"$(vorn list --presets --names 2>/dev/null)\"}}";
    case Values::Devices:
        return fmt::format("({})", kDevices);
    case Values::Shells:
        return fmt::format("({})", kShells);
    case Values::Commands:
        return fmt::format("({})", commands);
    case Values::Anything:
        break;
    }
    return "";
}

std::string zshScript(const CLI::App& app) {
    std::string described, cases, names;
    for (const CLI::App* command : commandsOf(app)) {
        names += (names.empty() ? "" : " ") + command->get_name();
        described += fmt::format("    '{}:{}'\n", command->get_name(), command->get_description());
    }
    for (const CLI::App* command : commandsOf(app)) {
        cases += fmt::format("      {}) _arguments", command->get_name());
        for (const CLI::Option* option : command->get_options()) {
            const std::string values = zshValues(valuesOf(*command, *option), names);
            if (option->get_positional())
                cases += fmt::format(" \\\n        '*:{}:{}'", option->get_name(true), values);
            else if (isFlag(*option))
                cases += fmt::format(" \\\n        '--{}[{}]'", option->get_lnames().front(),
                                     shortText(*option));
            else
                cases += fmt::format(" \\\n        '*--{}[{}]:value:{}'",
                                     option->get_lnames().front(), shortText(*option), values);
        }
        cases += " ;;\n";
    }
    return fmt::format("#compdef vorn\n# Completion of vorn for zsh, made by: vorn completion zsh\n"
                       "_vorn() {{\n  local state line\n  local -a commands=(\n{}  )\n"
                       "  _arguments -C '1:command:->command' '*::argument:->rest'\n"
                       "  case $state in\n    command) _describe command commands ;;\n"
                       "    rest) case $words[1] in\n{}    esac ;;\n  esac\n}}\n_vorn \"$@\"\n",
                       described, cases);
}

// --- fish ---------------------------------------------------------------------------------------

std::string fishValues(Values values, const std::string& commands) {
    switch (values) {
    case Values::Files:
        return " -r -F";
    case Values::Filters:
        return " -x -a '(vorn list --names 2>/dev/null)'";
    case Values::Presets:
        return " -x -a '(vorn list --presets --names 2>/dev/null)'";
    case Values::Devices:
        return fmt::format(" -x -a '{}'", kDevices);
    case Values::Shells:
        return fmt::format(" -x -a '{}'", kShells);
    case Values::Commands:
        return fmt::format(" -x -a '{}'", commands);
    case Values::Anything:
        break;
    }
    return " -x";
}

std::string fishScript(const CLI::App& app) {
    std::string text = "# Completion of vorn for fish, made by: vorn completion fish\n", names;
    for (const CLI::App* command : commandsOf(app)) {
        names += (names.empty() ? "" : " ") + command->get_name();
        text += fmt::format("complete -c vorn -n __fish_use_subcommand -f -a {} -d '{}'\n",
                            command->get_name(), command->get_description());
    }
    for (const CLI::App* command : commandsOf(app)) {
        const std::string start = fmt::format(
            "complete -c vorn -n '__fish_seen_subcommand_from {}'", command->get_name());
        for (const CLI::Option* option : command->get_options()) {
            const Values values = valuesOf(*command, *option);
            if (!option->get_positional()) {
                text += fmt::format("{} -l {}{} -d '{}'\n", start, option->get_lnames().front(),
                                    isFlag(*option) ? "" : fishValues(values, names),
                                    shortText(*option));
            } else if (values != Values::Files) {
                text += fmt::format("{}{}\n", start, fishValues(values, names));
            }
        }
    }
    return text;
}

} // namespace

std::string completionScript(const CLI::App& app, const std::string& shell) {
    if (shell == "bash") return bashScript(app);
    if (shell == "zsh") return zshScript(app);
    if (shell == "fish") return fishScript(app);
    throw HostError(ExitCode::Usage,
                    fmt::format("there is no completion for \"{}\"; there is bash, "
                                "zsh and fish",
                                shell));
}

} // namespace vorn::hosts::cli
