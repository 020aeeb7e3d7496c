// `vorn`: the effects on the command line.
#include "catalogue/catalog.h"
#include "catalogue/suggest.h"
#include "commands/commands.h"
#include "commands/manual.h"
#include "terminal/output.h"
#include "terminal/talk.h"
#include "json/json.h"

#include "vorneffects/VornEffects.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

/// A command's own help; `help()` would show that of the command that was chosen.
std::string helpFor(const CLI::App& command, const std::string& name) {
    return command.get_formatter()->make_help(&command, name, CLI::AppFormatMode::Normal);
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    return names;
}

bool isCommand(const CLI::App& app, const std::string& name) {
    const std::vector<std::string> names = commandNames(app);
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// The command of that name; a usage error that names the nearest when there is none.
CLI::App& findCommand(CLI::App& app, const std::string& name) {
    if (isCommand(app, name)) return *app.get_subcommand(name);
    const std::vector<std::string> names = commandNames(app);
    const std::string hint = suggestion(name, names);
    throw HostError(ExitCode::Usage, fmt::format("there is no command \"{}\"{}", name,
                                                 hint.empty() ? "; try `vorn help`" : hint));
}

void addHelpCommand(CLI::App& app, Action& action) {
    auto name = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("help", "Explain a command or a filter");
    command->add_option("NAME", *name, "The command or the filter; all commands when left out")
        ->type_name("");
    auto asManual = std::make_shared<bool>(false);
    command->add_flag("--man", *asManual, "The whole of it as a manual page, for man");
    command->callback([&app, &action, name, asManual] {
        action = [&app, name, asManual] {
            if (*asManual) {
                printResult("{}", manualPage(app));
                return ExitCode::Done;
            }
            if (!name->empty() && !isCommand(app, *name)) {
                registerFilters();
                if (CIFilter::registeredFilter(*name)) return describeFilter(*name, false);
            }
            const std::string help = name->empty()
                                         ? helpFor(app, "vorn")
                                         : helpFor(findCommand(app, *name), "vorn " + *name);
            printResult("{}", help);
            return ExitCode::Done;
        };
    });
}

void addCompletionCommand(CLI::App& app, Action& action) {
    auto shell = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("completion", "Print what makes a shell complete");
    command->add_option("SHELL", *shell, "bash, zsh or fish")->required()->type_name("");
    command->footer("Installed where these shells look for it; to try it at once:\n"
                    "  vorn completion bash >vorn.bash && source ./vorn.bash");
    command->callback([&app, &action, shell] {
        action = [&app, shell] {
            printResult("{}", completionScript(app, *shell));
            return ExitCode::Done;
        };
    });
}

/// What was perhaps meant by an option that no command has.
std::string optionSuggestion(const CLI::App& app) {
    for (const CLI::App* command : app.get_subcommands()) {
        std::vector<std::string> names;
        for (const CLI::Option* option : command->get_options())
            for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& word : app.remaining(true)) {
            if (!word.starts_with("--")) continue;
            const std::string hint = suggestion(word.substr(0, word.find('=')), names);
            return fmt::format(
                "vorn {} has no option {}{}", command->get_name(), word,
                hint.empty() ? fmt::format("; see `vorn help {}`", command->get_name()) : hint);
        }
    }
    return {};
}

/// What is wrong with a command line, as it is said.
std::string problemOf(const CLI::App& app, const CLI::ParseError& error) {
    if (dynamic_cast<const CLI::ExtrasError*>(&error)) {
        std::string problem = optionSuggestion(app);
        if (!problem.empty()) return problem;
    }
    return error.what();
}

/// A program may be started without standard streams. The next file that it opens would take the
/// place of one, and messages would be written into it. What takes it instead can be neither read
/// nor filled with results, so that nothing is lost unnoticed.
void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        const char* device = descriptor == STDOUT_FILENO ? "/dev/full" : "/dev/null";
        if (open(device, O_WRONLY) != descriptor) _exit(static_cast<int>(ExitCode::Failed));
    }
}

ExitCode run(int argc, char** argv) {
    CLI::App app("Real-time video effects on the command line.", "vorn");
    app.get_formatter()->column_width(38);
    app.set_version_flag("--version", fmt::format("vorn {:.1f}", VornEffectsVersionNumber),
                         "Print the version and leave");
    app.footer(std::string("`vorn help COMMAND` explains a command, with examples.\n\n") +
               kExitCodesHelp);
    Action action;
    addListCommand(app, action);
    addDescribeCommand(app, action);
    addExplainCommand(app, action);
    addRenderCommand(app, action);
    addChainCommand(app, action);
    addGalleryCommand(app, action);
    addBenchCommand(app, action);
    addDoctorCommand(app, action);
    addCompletionCommand(app, action);
    addHelpCommand(app, action);
    app.require_subcommand(0, 1); // the names of commands are plain words behind the first one

    if (argc < 2) {
        talk(helpFor(app, "vorn"));
        return ExitCode::Usage;
    }
    if (argv[1][0] != '-') findCommand(app, argv[1]);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& request) {
        std::ostringstream answer, ignored;
        if (app.exit(request, answer, ignored) != 0)
            throw HostError(ExitCode::Usage, problemOf(app, request));
        printResult("{}", answer.str());
        return ExitCode::Done;
    }
    if (!action) throw HostError(ExitCode::Usage, "no command is given; try `vorn help`");
    return action();
}

/// Says what went wrong, as JSON to who asked for that.
ExitCode complain(int argc, char** argv, ExitCode code, const std::string& problem) {
    const auto isJson = [](const char* word) { return std::string_view(word) == "--json"; };
    if (std::any_of(argv, argv + argc, isJson))
        talk(jsonLine(Json{{"error", problem}, {"exit_code", static_cast<int>(code)}}) + "\n");
    else
        say("{}", problem);
    return code;
}

} // namespace

} // namespace vorn::hosts::cli

int main(int argc, char** argv) {
    using namespace vorn::hosts;
    using namespace vorn::hosts::cli;
    occupyStandardDescriptors();
    ExitCode code = ExitCode::Failed;
    try {
        vorn::Session::standard()->setMessages(sayOnStandardError);
        code = run(argc, argv);
    } catch (const HostError& error) {
        code = complain(argc, argv, error.code(), error.what());
    } catch (const std::bad_alloc&) {
        code = complain(argc, argv, ExitCode::Failed, "out of memory");
    } catch (const std::exception& error) {
        code = complain(argc, argv, ExitCode::Failed, error.what());
    }
    if (!finishResults()) {
        const ExitCode lost = code == ExitCode::Done ? ExitCode::OutputNotWritable : code;
        code = complain(argc, argv, lost, "standard output cannot be written");
    }
    return static_cast<int>(code);
}
