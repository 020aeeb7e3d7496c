// `vorn chain`: chains of filters from command lines into files, and back.
#include "catalogue/catalog.h"
#include "commands.h"
#include "media/output_file.h"
#include "media/writer.h"
#include "render/chain_arguments.h"
#include "terminal/output.h"

#include <filesystem>

#include <CLI/CLI.hpp>
#include <fmt/ranges.h>

namespace vorn::hosts::cli {

namespace {

struct ChainOptions {
    ChainArguments chain;
    std::string output, name, description;
    bool keepsExisting = false, asOptions = false;
};

void write(const std::string& path, const std::string& text, bool overwrites) {
    try {
        media::OutputFile file(path, overwrites, {});
        file.write(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        file.commit();
    } catch (const media::WriteError& error) {
        throw HostError(ExitCode::OutputNotWritable, error.what());
    }
}

ExitCode convert(const ChainOptions& options) {
    registerFilters();
    if (options.chain.isEmpty())
        throw HostError(ExitCode::Usage, "there is no chain: give --filter, --chain or "
                                         "--preset-chain");
    ChainWords words;
    const ChainPlan plan = readChainPlan(options.chain, &words);
    if (!options.name.empty()) words.name = options.name;
    if (!options.description.empty()) words.description = options.description;
    if (options.asOptions) {
        printResult("{}\n", fmt::join(chainOptions(plan), " "));
    } else if (options.output.empty()) {
        printResult("{}", chainText(plan, words, std::filesystem::current_path()));
    } else {
        const std::filesystem::path path = std::filesystem::absolute(options.output);
        write(path.string(), chainText(plan, words, path.parent_path()), !options.keepsExisting);
    }
    return ExitCode::Done;
}

constexpr const char helpText[] =
    "Without FILE the chain goes to standard output. Second images are named in a chain file\n"
    "from the folder of the file on. docs/chain.schema.json describes the form for editors and\n"
    "programs.\n\n"
    "Examples:\n"
    "  vorn chain dream.json --filter VESolarize:intensity=0.7 --filter VEGobo \\\n"
    "      --animate VEGobo.mixer=0:0:smooth,4:1\n"
    "  vorn render film.mp4 out.mp4 --chain dream.json\n"
    "  vorn chain --chain dream.json --command-line";

} // namespace

void addChainCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ChainOptions>();
    CLI::App* command =
        app.add_subcommand("chain", "Write a chain of filters to a file, or as options");
    command->add_option("FILE", options->output, "The chain file that is written")->type_name("");
    addChainOptions(*command, options->chain);
    command->add_option("--name", options->name, "What the chain is called")->type_name("TEXT");
    command->add_option("--description", options->description, "A sentence on what it shows")
        ->type_name("TEXT");
    command->add_flag("--command-line", options->asOptions,
                      "Print the chain as options of `vorn render`");
    command->add_flag("--no-overwrite", options->keepsExisting,
                      "Refuse to replace an existing FILE");
    command->footer(helpText);
    command->callback([options, &action] { action = [options] { return convert(*options); }; });
}

} // namespace vorn::hosts::cli
