// `vorn render`: films, pictures and sequences through a chain of filters.
#include "render.h"
#include "commands/commands.h"
#include "many.h"
#include "options.h"
#include "pipeline.h"
#include "terminal/interrupt.h"
#include "terminal/output.h"
#include "terminal/talk.h"
#include "json/json.h"

#include <exception>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

/// Pipes are named by their descriptor below; people wrote "-".
std::string withOutputName(std::string message, const RenderOptions& options) {
    const std::string pipe = fmt::format("pipe:{}", fileno(results()));
    const size_t place = message.find(pipe);
    if (options.writesToStandardOutput() && place != std::string::npos) {
        message.replace(place, pipe.size(), "standard output");
    }
    return message;
}

} // namespace

RenderOutcome renderWithExitCodes(const RenderOptions& options) {
    try {
        return runRender(options);
    } catch (const media::ReadError& error) {
        throw HostError(ExitCode::InputUnreadable, error.what());
    } catch (const media::WriteError& error) {
        throw HostError(ExitCode::OutputNotWritable, withOutputName(error.what(), options));
    }
}

Json colourJson(const std::optional<media::ColourMeaning>& colour) {
    if (!colour) return nullptr;
    return {{"system", colour->system},
            {"primaries", colour->primaries},
            {"transfer", colour->transfer},
            {"matrix", colour->matrix},
            {"range", colour->range}};
}

Json outcomeJson(const RenderOptions& options, const RenderOutcome& outcome) {
    return Json{{"output", options.output},
                {"frames", outcome.frames},
                {"width", outcome.size.width},
                {"height", outcome.size.height},
                {"duration_s", outcome.mediaSeconds},
                {"encoder", outcome.encoder},
                {"elapsed_s", outcome.elapsedSeconds},
                {"frames_per_s", outcome.framesPerSecond()},
                {"interrupted", outcome.isInterrupted},
                {"colour", colourJson(outcome.colour)},
                {"notes", outcome.notes},
                {"warnings", outcome.warnings}};
}

std::string countText(std::int64_t frames) {
    return fmt::format("{} frame{}", frames, frames == 1 ? "" : "s");
}

namespace {

void printSummary(const RenderOptions& options, const RenderOutcome& outcome) {
    const std::string name =
        options.writesToStandardOutput() ? std::string("standard output") : options.output;
    if (outcome.isCutOff) {
        say("interrupted while nobody read {}, after {} and a part of the next", name,
            countText(outcome.frames));
    } else if (outcome.isInterrupted && outcome.frames == 0) {
        say("interrupted before the first frame; nothing is written");
    } else if (outcome.isInterrupted) {
        say("interrupted; {} is whole up to there, {}", name, countText(outcome.frames));
    } else if (!options.isQuiet) {
        say("{}: {} of {}x{}, {:.3f} s, rendered in {:.1f} s ({:.1f} frames/s)", name,
            countText(outcome.frames), outcome.size.width, outcome.size.height,
            outcome.mediaSeconds, outcome.elapsedSeconds, outcome.framesPerSecond());
    }
}

ExitCode render(RenderArguments arguments) {
    registerFilters();
    if (readFiles(arguments)) return renderMany(arguments);
    const RenderOptions options = readRenderOptions(arguments);
    const InterruptWatch watch;
    const RenderOutcome outcome = renderWithExitCodes(options);
    printSummary(options, outcome);
    if (options.json) printResult("{}\n", jsonLine(outcomeJson(options, outcome)));
    if (outcome.isInterrupted) return ExitCode::Interrupted;
    if (!options.files.isStrict || outcome.losses == 0) return ExitCode::Done;
    say("--strict: {} of what is said above makes this a failure; {} is written all the same",
        outcome.losses, options.writesToStandardOutput() ? "standard output" : options.output);
    return ExitCode::Failed;
}

} // namespace

void addRenderCommand(CLI::App& app, Action& action) {
    auto arguments = std::make_shared<RenderArguments>();
    CLI::App* command = app.add_subcommand(
        "render", "Run a film, a picture or a sequence through a chain of filters");
    addRenderOptions(*command, *arguments);
    command->callback(
        [arguments, &action] { action = [arguments] { return render(*arguments); }; });
}

} // namespace vorn::hosts::cli
