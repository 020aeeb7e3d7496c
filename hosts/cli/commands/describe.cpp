// `vorn describe`: what a filter does, its inputs and its modes.
#include "catalogue/wording.h"
#include "commands.h"
#include "terminal/output.h"
#include "json/json.h"

#include <algorithm>

#include <CLI/CLI.hpp>
#include <fmt/ranges.h>

namespace vorn::hosts::cli {

namespace {

struct DescribeOptions {
    std::string name;
    bool json = false;
};

Json startJson(const InputGuide& guide) {
    return std::visit(
        [](const auto& value) -> Json {
            if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>)
                return nullptr;
            else
                return attributeJson(value);
        },
        guide.start);
}

Json numberOrNull(const std::optional<double>& number) {
    return number ? numberJson(*number) : Json(nullptr);
}

Json inputJson(const ListedInput& input) {
    Json attributes = Json::object();
    for (const auto& [name, value] : input.attributes.entries) {
        attributes[name] = attributeJson(value);
    }
    const InputGuide& guide = input.guide;
    return Json{{"key", input.key},
                {"kind", inputKindName(input.kind)},
                {"advertised", input.isAdvertised},
                {"attributes", std::move(attributes)},
                {"label", guide.label},
                {"purpose", guide.purpose},
                {"from", numberOrNull(guide.from)},
                {"to", numberOrNull(guide.to)},
                {"start", startJson(guide)},
                {"unit", guide.unit},
                {"feed", inputFeedName(guide.feed)},
                {"dead", guide.isDead}};
}

Json filterJson(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    Json inputs = Json::array(), modes = Json::array(), settings = Json::object();
    for (const ListedInput& input : listInputs(entry)) inputs.push_back(inputJson(input));
    for (const ModeGuide& mode : guide.modes)
        modes.push_back({{"name", mode.name}, {"value", numberJson(mode.value)}});
    for (const auto& [key, value] : guide.beginWith) settings[key] = numberJson(value);
    return Json{{"name", entry.name},
                {"class", entry.className()},
                {"category", entry.category},
                {"displayName", entry.displayName},
                {"inputs", std::move(inputs)},
                {"title", guide.title},
                {"sentence", guide.sentence},
                {"family", guide.family},
                {"familyTitle", guide.familyTitle},
                {"tags", guide.tags},
                {"frameKey", guide.frameKey},
                {"modeKey", guide.modes.empty() ? Json(nullptr) : Json(guide.modeKey)},
                {"modes", std::move(modes)},
                {"movesByItself", guide.movesByItself},
                {"keepsState", guide.keepsState},
                {"framesRemembered", guide.framesRemembered},
                {"takesFrameTime", guide.takesFrameTime},
                {"canFlash", guide.canFlash},
                {"needsTransparency", guide.needsTransparency},
                {"beginWith", std::move(settings)}};
}

void printDescription(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    printResult("{}: {}\n{}\n\n", entry.name, guide.title, guide.sentence);
    std::vector<TableRow> about{{"Family", guide.familyTitle}};
    if (!guide.tags.empty())
        about.push_back({"Tags", fmt::format("{}", fmt::join(guide.tags, ", "))});
    const std::vector<std::string> facts = factsOf(guide);
    if (!facts.empty()) about.push_back({"It", fmt::format("{}", fmt::join(facts, "; "))});
    for (const FrameLimit& limit : frameLimits(entry))
        about.push_back({"Frames", fmt::format("up to {:.4g} megapixels{}{}", limit.pixels * 1e-6,
                                               limit.modes.empty() ? "" : " in the modes ",
                                               fmt::join(limit.modes, ", "))});
    about.push_back({"Category", entry.category});
    if (entry.name != entry.className()) about.push_back({"Class", entry.className()});
    printTable(about);
    printResult("\n");

    std::vector<TableRow> rows{
        {"INPUT", "KIND", "LABEL", "MIN", "FROM", "TO", "START", "IDENTITY", ""}};
    for (const ListedInput& input : listInputs(entry)) {
        rows.push_back({input.key, inputKindName(input.kind), input.guide.label,
                        attributeText(input.attributes, kCIAttributeMin),
                        numberText(input.guide.from), numberText(input.guide.to), startText(input),
                        attributeText(input.attributes, kCIAttributeIdentity), purposeOf(input)});
    }
    printTable(rows, {3, 4, 5, 6, 7});

    if (!guide.modes.empty()) {
        printResult("\nModes, by {}\n", guide.modeKey);
        std::vector<TableRow> modes;
        for (const ModeGuide& mode : guide.modes)
            modes.push_back({fmt::format("  {:.4g}", mode.value), mode.name});
        printTable(modes, {0});
    }
    printResult("\nTo try it\n  {}\n", exampleOf(entry));
}

} // namespace

ExitCode describeFilter(const std::string& name, bool asJson) {
    registerFilters();
    const FilterEntry entry = findFilter(name);
    if (asJson)
        printResult("{}\n", jsonLine(filterJson(entry)));
    else
        printDescription(entry);
    return ExitCode::Done;
}

void addDescribeCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<DescribeOptions>();
    CLI::App* command =
        app.add_subcommand("describe", "Tell what a filter does, its inputs and its modes");
    command->add_option("NAME", options->name, "The filter, as `vorn list` names it")
        ->required()
        ->type_name("");
    command->add_flag("--json", options->json, "One JSON object");
    command->footer(
        "FROM, TO and START are where a control runs and begins. IDENTITY is the filter's\n"
        "attribute of that name, not always a value at which nothing changes.\n\n"
        "Examples:\n"
        "  vorn describe VESolarize\n"
        "  vorn describe VESolarize --json");
    command->callback([options, &action] {
        action = [options] { return describeFilter(options->name, options->json); };
    });
}

} // namespace vorn::hosts::cli
