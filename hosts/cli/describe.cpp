// `vorn describe`: a filter's inputs and their ranges.
#include "catalog.h"
#include "commands.h"
#include "json.h"
#include "output.h"

#include <CLI/CLI.hpp>

namespace vorn::cli {

namespace {

struct DescribeOptions {
    std::string name;
    bool json = false;
};

Json inputJson(const ListedInput& input) {
    Json attributes = Json::object();
    for (const auto& [name, value] : input.attributes.entries) {
        attributes[name] = attributeJson(value);
    }
    return Json{{"key", input.key},
                {"kind", inputKindName(input.kind)},
                {"advertised", input.isAdvertised},
                {"attributes", std::move(attributes)}};
}

std::string noteOn(const ListedInput& input) {
    if (!input.info) return "advertised, but not read";
    return input.isAdvertised || input.kind == InputKind::Image ? "" : "not advertised";
}

ExitCode describe(const DescribeOptions& options) {
    registerFilters();
    const FilterEntry entry = findFilter(options.name);
    const std::vector<ListedInput> inputs = listInputs(entry);
    if (options.json) {
        Json list = Json::array();
        for (const ListedInput& input : inputs) list.push_back(inputJson(input));
        const Json line{{"name", entry.name},
                        {"class", entry.className()},
                        {"category", entry.category},
                        {"displayName", entry.displayName},
                        {"inputs", std::move(list)}};
        printResult("{}\n", jsonLine(line));
        return ExitCode::Done;
    }
    printResult("{} ({}), class {}\n\n", entry.name, entry.category, entry.className());
    constexpr const char* columns[] = {kCIAttributeDisplayName, kCIAttributeMin,
                                       kCIAttributeSliderMin,   kCIAttributeSliderMax,
                                       kCIAttributeDefault,     kCIAttributeIdentity};
    std::vector<TableRow> rows{
        {"INPUT", "KIND", "LABEL", "MIN", "SLIDER FROM", "TO", "DEFAULT", "IDENTITY", ""}};
    for (const ListedInput& input : inputs) {
        TableRow row{input.key, inputKindName(input.kind)};
        for (const char* column : columns) row.push_back(attributeText(input.attributes, column));
        row.push_back(noteOn(input));
        rows.push_back(std::move(row));
    }
    printTable(rows, {3, 4, 5, 6, 7});
    return ExitCode::Done;
}

} // namespace

void addDescribeCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<DescribeOptions>();
    CLI::App* command = app.add_subcommand("describe", "Show a filter's inputs and their ranges");
    command->add_option("NAME", options->name, "The filter, as `vorn list` names it")
        ->required()
        ->type_name("");
    command->add_flag("--json", options->json, "One JSON object");
    command->footer("IDENTITY is the value at which an input has no effect.\n\n"
                    "Examples:\n"
                    "  vorn describe VESolarize\n"
                    "  vorn describe VESolarize --json");
    command->callback([options, &action] { action = [options] { return describe(*options); }; });
}

} // namespace vorn::cli
