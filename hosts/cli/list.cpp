// `vorn list`: which filters there are.
#include "catalog.h"
#include "commands.h"
#include "json.h"
#include "output.h"

#include <CLI/CLI.hpp>

namespace vorn::cli {

namespace {

struct ListOptions {
    bool json = false, builtin = false;
};

ExitCode list(const ListOptions& options) {
    registerFilters();
    const std::vector<FilterEntry> entries = listFilters(options.builtin);
    if (options.json) {
        for (const FilterEntry& entry : entries) {
            const Json line{
                {"name", entry.name}, {"class", entry.className()}, {"category", entry.category}};
            printResult("{}\n", jsonLine(line));
        }
        return ExitCode::Done;
    }
    if (!entries.empty()) {
        std::vector<TableRow> rows{{"NAME", "CLASS", "CATEGORY"}};
        for (const FilterEntry& entry : entries) {
            rows.push_back({entry.name, entry.className(), entry.category});
        }
        printTable(rows);
        printResult("\n");
    }
    printResult("{} {}\n", entries.size(), entries.size() == 1 ? "filter" : "filters");
    return ExitCode::Done;
}

} // namespace

void addListCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand("list", "List the filters by name");
    command->add_flag("--json", options->json, "One JSON object per filter and line");
    command->add_flag("--builtin", options->builtin,
                      "The image framework's own filters instead of the effects");
    command->footer("Examples:\n"
                    "  vorn list\n"
                    "  vorn list --json | jq -r .name");
    command->callback([options, &action] { action = [options] { return list(*options); }; });
}

} // namespace vorn::cli
