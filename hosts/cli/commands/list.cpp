// `vorn list`: which filters there are.
#include "catalogue/catalog.h"
#include "catalogue/suggest.h"
#include "chain/presets.h"
#include "commands.h"
#include "terminal/output.h"
#include "terminal/talk.h"
#include "json/json.h"

#include <algorithm>
#include <cctype>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

struct ListOptions {
    bool json = false, builtin = false, presets = false, namesOnly = false;
    std::vector<std::string> words;
};

std::string lowerCase(std::string text) {
    for (char& letter : text)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return text;
}

/// All that a filter can be found by.
std::vector<std::string> textsOf(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    std::vector<std::string> texts{entry.name, guide.title, guide.sentence, guide.family,
                                   guide.familyTitle};
    texts.insert(texts.end(), guide.tags.begin(), guide.tags.end());
    for (const ModeGuide& mode : guide.modes) texts.push_back(mode.name);
    return texts;
}

bool has(const std::vector<std::string>& texts, const std::string& word) {
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
        return lowerCase(text).find(lowerCase(word)) != std::string::npos;
    });
}

/// Those that have every word; where there are none, what else was perhaps meant is said.
std::vector<FilterEntry> found(std::vector<FilterEntry> entries,
                               const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        std::vector<std::string> known;
        std::vector<FilterEntry> left;
        for (FilterEntry& entry : entries) {
            const std::vector<std::string> texts = textsOf(entry);
            known.push_back(entry.guide().title);
            known.insert(known.end(), entry.guide().tags.begin(), entry.guide().tags.end());
            if (has(texts, word)) left.push_back(std::move(entry));
        }
        std::sort(known.begin(), known.end());
        known.erase(std::unique(known.begin(), known.end()), known.end());
        if (left.empty() && !known.empty())
            say("no filter speaks of \"{}\"{}", word, suggestion(word, known));
        entries = std::move(left);
    }
    return entries;
}

/// Name and sentence of each, family by family.
void printFamilies(std::vector<FilterEntry> entries) {
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.guide().familyTitle < b.guide().familyTitle;
    });
    size_t width = 0;
    for (const FilterEntry& entry : entries) width = std::max(width, entry.name.size());
    std::string family;
    for (const FilterEntry& entry : entries) {
        const FilterGuide& guide = entry.guide();
        if (guide.familyTitle != family)
            printResult("{}{}\n", family.empty() ? "" : "\n", guide.familyTitle);
        family = guide.familyTitle;
        printResult("  {:<{}}  {}. {}\n", entry.name, width, guide.title, guide.sentence);
    }
    if (!entries.empty()) printResult("\n");
}

/// The chains that come with vorn.
ExitCode listThePresets(const ListOptions& options) {
    size_t count = 0;
    std::vector<TableRow> rows;
    for (const Preset& preset : listPresets()) {
        const auto isFound = [&](const std::string& word) {
            return has({preset.name, preset.description}, word);
        };
        if (!std::all_of(options.words.begin(), options.words.end(), isFound)) continue;
        ++count;
        if (options.json)
            printResult("{}\n", jsonLine(Json{{"name", preset.name},
                                              {"description", preset.description},
                                              {"file", preset.path}}));
        else if (options.namesOnly)
            printResult("{}\n", preset.name);
        else
            rows.push_back({preset.name, preset.description});
    }
    printTable(rows);
    if (!options.json && !options.namesOnly)
        printResult("\n{} {}\n", count, count == 1 ? "preset" : "presets");
    return ExitCode::Done;
}

ExitCode list(const ListOptions& options) {
    registerFilters();
    if (options.presets) return listThePresets(options);
    const std::vector<FilterEntry> entries = found(listFilters(options.builtin), options.words);
    if (options.json) {
        for (const FilterEntry& entry : entries) {
            const FilterGuide& guide = entry.guide();
            const Json line{{"name", entry.name},         {"class", entry.className()},
                            {"category", entry.category}, {"title", guide.title},
                            {"sentence", guide.sentence}, {"family", guide.family},
                            {"tags", guide.tags}};
            printResult("{}\n", jsonLine(line));
        }
        return ExitCode::Done;
    }
    if (options.namesOnly) {
        for (const FilterEntry& entry : entries) printResult("{}\n", entry.name);
        return ExitCode::Done;
    }
    printFamilies(entries);
    printResult("{} {}\n", entries.size(), entries.size() == 1 ? "filter" : "filters");
    return ExitCode::Done;
}

} // namespace

void addListCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand("list", "List the filters, or those that do something");
    command
        ->add_option("WORD", options->words,
                     "Only filters with these words in their name, title, sentence or tags")
        ->type_name("");
    command->add_flag("--json", options->json, "One JSON object per filter and line");
    command->add_flag("--builtin", options->builtin,
                      "The image framework's own filters instead of the effects");
    command->add_flag("--presets", options->presets,
                      "The chains for --preset-chain instead of the effects");
    command->add_flag("--names", options->namesOnly, "The names alone, one a line");
    command->footer("Examples:\n"
                    "  vorn list\n"
                    "  vorn list key\n"
                    "  vorn list --json | jq -r .name");
    command->callback([options, &action] { action = [options] { return list(*options); }; });
}

} // namespace vorn::hosts::cli
