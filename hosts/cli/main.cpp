// `vorn`: the effects on the command line.
#include "catalogue/catalog.h"
#include "catalogue/suggest.h"
#include "commands/commands.h"
#include "terminal/output.h"
#include "terminal/talk.h"

#include "vorneffects/VornEffects.h"

#include <algorithm>
#include <exception>
#include <sstream>

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
    command->callback([&app, &action, name] {
        action = [&app, name] {
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
        std::ostringstream answer, complaint;
        const int code = app.exit(request, answer, complaint);
        printResult("{}", answer.str());
        talk(printable(complaint.str(), true));
        return code == 0 ? ExitCode::Done : ExitCode::Usage;
    }
    if (!action) throw HostError(ExitCode::Usage, "no command is given; try `vorn help`");
    return action();
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
        say("{}", error.what());
        code = error.code();
    } catch (const std::bad_alloc&) {
        say("out of memory");
    } catch (const std::exception& error) {
        say("{}", error.what());
    }
    if (!finishResults()) {
        say("standard output cannot be written");
        if (code == ExitCode::Done) code = ExitCode::OutputNotWritable;
    }
    return static_cast<int>(code);
}
