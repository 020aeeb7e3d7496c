// `vorn describe`: what a filter does, its inputs and its modes.
#include "catalogue/catalog.h"
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
                {"beginWith", std::move(settings)}};
}

/// Plain numbers, and vectors as they are written for --set.
std::string startText(const ListedInput& input) {
    const auto* standard = std::get_if<double>(&input.guide.start);
    if (standard) return fmt::format("{:.4g}", *standard);
    if (const auto* text = std::get_if<std::string>(&input.guide.start))
        return fmt::format("\"{}\"", *text);
    return attributeText(input.attributes, kCIAttributeDefault);
}
std::string numberText(const std::optional<double>& number) {
    return number ? fmt::format("{:.4g}", *number) : "-";
}

std::string purposeOf(const ListedInput& input) {
    std::string text = input.guide.purpose;
    const auto add = [&](const char* note) {
        text += (text.empty() ? "" : "; ") + std::string(note);
    };
    if (input.guide.feed == InputFeed::Time) add("runs with the time");
    if (input.guide.feed == InputFeed::MediaTime) add("the time of the frame unless it is set");
    if (input.guide.feed == InputFeed::Tracking) add("from a tracker");
    if (input.guide.isDead)
        add("dead: advertised, but not read");
    else if (!input.isAdvertised && input.kind != InputKind::Image)
        add("not advertised");
    return text;
}

/// What it does besides looking at its frame.
std::vector<std::string> factsOf(const FilterGuide& guide) {
    std::vector<std::string> facts;
    if (!guide.frameKey.empty() && guide.frameKey != "inputImage")
        facts.push_back("takes the frame as " + guide.frameKey);
    if (guide.movesByItself) facts.push_back("moves by itself");
    if (guide.takesFrameTime) facts.push_back("can follow the host's frame time");
    if (guide.framesRemembered > 0)
        facts.push_back(fmt::format("remembers {} earlier {}", guide.framesRemembered,
                                    guide.framesRemembered == 1 ? "picture" : "pictures"));
    else if (guide.keepsState)
        facts.push_back("keeps its place from frame to frame");
    if (guide.canFlash) facts.push_back("can flash quickly, which is not safe for everybody");
    return facts;
}

/// A command line that shows what it does.
std::string exampleOf(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    std::vector<Setting> settings;
    std::string more;
    for (const Setting& setting : guide.beginWith) {
        const auto input =
            std::find_if(guide.inputs.begin(), guide.inputs.end(),
                         [&](const InputGuide& known) { return known.key == setting.first; });
        if (input == guide.inputs.end() || input->feed != InputFeed::Time)
            settings.push_back(setting);
    }
    bool isFilm = guide.movesByItself || guide.keepsState;
    for (const InputGuide& input : guide.inputs) {
        if (input.feed == InputFeed::Picture && input.key != guide.frameKey)
            more += fmt::format(" --image {}=second.png", input.key);
        if (input.feed == InputFeed::Time) {
            more += fmt::format(" --animate {}=0:{:.4g},2:{:.4g}", input.key,
                                input.from.value_or(0), input.to.value_or(1));
            isFilm = true;
        }
    }
    return fmt::format("vorn render test:1280x720@25,2s {} --filter {}{}{}{}",
                       isFilm ? "out.mp4" : "out.png", entry.name, settings.empty() ? "" : ":",
                       settingsText(settings), more);
}

void printDescription(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    printResult("{}: {}\n{}\n\n", entry.name, guide.title, guide.sentence);
    std::vector<TableRow> about{{"Family", guide.familyTitle}};
    if (!guide.tags.empty())
        about.push_back({"Tags", fmt::format("{}", fmt::join(guide.tags, ", "))});
    const std::vector<std::string> facts = factsOf(guide);
    if (!facts.empty()) about.push_back({"It", fmt::format("{}", fmt::join(facts, "; "))});
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
