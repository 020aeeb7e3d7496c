// Writes docs/filters: a page for each filter, from what it tells of itself and from the comment
// that its kernels begin with, and an index by family. With --check it writes nothing and fails
// where a page is not as it would be written.
#include "catalogue/wording.h"
#include "host_error.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace fs = std::filesystem;
using namespace vorn;
using namespace vorn::hosts;

namespace {

const fs::path kSources = VORN_SOURCE_DIR;
constexpr const char* kNotice =
    "<!-- Written by ./dev docs from the filter and its kernels' comment: change those. -->\n\n";

std::string contentsOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw HostError(ExitCode::Failed, fmt::format("cannot read {}", file.string()));
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Text as Markdown shows it: signs with a meaning of their own are escaped outside of code.
std::string markdown(std::string_view text) {
    std::string escaped;
    bool isCode = false;
    for (const char sign : text) {
        if (sign == '`') isCode = !isCode;
        if (!isCode && std::string_view("*_<>|[]#").find(sign) != std::string_view::npos)
            escaped += '\\';
        escaped += sign;
    }
    return escaped;
}

/// The comment that a source begins with. Lines that stand further in than the text are formulas
/// and keep their breaks.
std::string headerOf(const fs::path& source) {
    constexpr std::string_view mark = "//";
    std::ifstream stream(source);
    std::string page, line;
    bool isText = false, isFormula = false;
    while (std::getline(stream, line) && line.starts_with(mark)) {
        line.erase(0, mark.size());
        const size_t margin = line.find_first_not_of(' ');
        if (margin == std::string::npos) {
            page += "\n\n";
            isText = isFormula = false;
        } else if (margin > 1) {
            if (!isFormula) page += isText ? "\n\n" : "";
            page += fmt::format("    {}\n", line.substr(margin));
            isFormula = true;
            isText = false;
        } else {
            if (isFormula) page += "\n";
            page += (isText ? "\n" : "") + markdown(line.substr(margin));
            isText = true;
            isFormula = false;
        }
    }
    return page + (isFormula ? "" : "\n");
}

/// What the filter's kernels say of their formula; a filter without kernels of its own says it
/// itself.
std::string formulaOf(const FilterEntry& entry) {
    const std::string& family = entry.guide().family;
    const fs::path source =
        kSources / "filters" / family / (std::string(entry.className()) + ".cpp");
    const std::string code = contentsOf(source);
    static const std::regex library("\"(\\w+FilterKernel)\"");
    std::string text;
    std::vector<std::string> told;
    for (std::sregex_iterator match(code.begin(), code.end(), library), end; match != end;
         ++match) {
        const std::string name = (*match)[1];
        if (std::find(told.begin(), told.end(), name) != told.end()) continue;
        told.push_back(name);
        text += (text.empty() ? "" : "\n") +
                headerOf(kSources / "kernels" / family / (name + ".kernel"));
    }
    return text.empty() ? headerOf(source) : text;
}

void addTable(std::string& page, const std::vector<std::string>& heads,
              const std::vector<std::vector<std::string>>& rows) {
    page += fmt::format("| {} |\n|{}\n", fmt::join(heads, " | "), [&] {
        std::string rule;
        for (size_t i = 0; i < heads.size(); ++i) rule += "---|";
        return rule;
    }());
    for (const auto& row : rows) page += fmt::format("| {} |\n", fmt::join(row, " | "));
}

std::string inputsOf(const FilterEntry& entry) {
    std::vector<std::vector<std::string>> rows;
    for (const ListedInput& input : listInputs(entry)) {
        const InputGuide& guide = input.guide;
        std::string purpose = purposeOf(input);
        if (input.key == entry.guide().frameKey && purpose.empty()) purpose = "the frame";
        const std::string unit = guide.unit.empty() ? "" : " " + guide.unit;
        rows.push_back({fmt::format("`{}`", input.key), inputKindName(input.kind),
                        markdown(guide.label), numberText(guide.from),
                        numberText(guide.to) + (guide.to ? unit : ""), markdown(startText(input)),
                        attributeText(input.attributes, kCIAttributeMin),
                        attributeText(input.attributes, kCIAttributeIdentity), markdown(purpose)});
    }
    std::string page;
    addTable(
        page,
        {"input", "kind", "label", "from", "to", "start", "minimum", "identity", "what it does"},
        rows);
    return page;
}

std::string modesOf(const FilterGuide& guide) {
    std::vector<std::vector<std::string>> rows;
    for (const ModeGuide& mode : guide.modes)
        rows.push_back({fmt::format("{:.4g}", mode.value), markdown(mode.name)});
    std::string page = fmt::format("\n## Modes\n\n`{}` chooses:\n\n", guide.modeKey);
    addTable(page, {"value", "mode"}, rows);
    return page;
}

std::string limitsOf(const FilterEntry& entry) {
    const std::vector<FrameLimit> limits = frameLimits(entry);
    if (limits.empty()) return "Takes frames of any size.\n";
    std::string page;
    for (const FrameLimit& limit : limits)
        page += fmt::format(
            "{}Takes frames of up to {:.4g} megapixels, and gives a picture that says "
            "\"{}\" in the place of a larger one.\n",
            limit.modes.empty()
                ? ""
                : fmt::format("- {}: ", markdown(fmt::format("{}", fmt::join(limit.modes, ", ")))),
            limit.pixels * 1e-6, limit.label);
    return page + "\n1920 x 1080 are 2.074 megapixels, 3840 x 2160 are 8.294.\n";
}

std::string pageOf(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    std::string page = fmt::format("{}# {}\n\n`{}`, of the family [{}](README.md#{})\n\n{}\n",
                                   kNotice, markdown(guide.title), entry.name, guide.familyTitle,
                                   guide.family, markdown(guide.sentence));
    const std::vector<std::string> facts = factsOf(guide);
    if (!facts.empty()) page += "\n";
    for (const std::string& fact : facts) page += fmt::format("- {}\n", markdown(fact));
    page += fmt::format("\nTags: {}.\n", markdown(fmt::format("{}", fmt::join(guide.tags, ", "))));
    page += fmt::format("\n## What it computes\n\n{}", formulaOf(entry));
    page += fmt::format("\n## Inputs\n\n{}", inputsOf(entry));
    if (!guide.modes.empty()) page += modesOf(guide);
    page += fmt::format("\n## Limits\n\n{}", limitsOf(entry));
    page += fmt::format("\n## To try it\n\n```sh\n{}\n```\n", exampleOf(entry));
    return page;
}

std::string indexOf(std::vector<FilterEntry> entries) {
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.guide().familyTitle < b.guide().familyTitle;
    });
    std::string page = fmt::format("{}# The filters\n\n{} filters, by family. `vorn list` and "
                                   "`vorn describe NAME` tell the same; "
                                   "`vorn gallery` makes\na page with their pictures.\n",
                                   kNotice, entries.size());
    for (auto first = entries.begin(); first != entries.end();) {
        const FilterGuide& family = first->guide();
        const auto last = std::find_if(first, entries.end(), [&](const FilterEntry& entry) {
            return entry.guide().family != family.family;
        });
        page += fmt::format("\n<a id=\"{}\"></a>\n## {}\n\n", family.family, family.familyTitle);
        std::vector<std::vector<std::string>> rows;
        for (; first != last; ++first)
            rows.push_back({fmt::format("[{0}]({0}.md)", first->name),
                            markdown(first->guide().title), markdown(first->guide().sentence)});
        addTable(page, {"filter", "title", "what it does"}, rows);
    }
    return page;
}

std::map<std::string, std::string> allPages() {
    registerFilters();
    const std::vector<FilterEntry> entries = listFilters(false);
    if (entries.empty())
        throw HostError(ExitCode::Failed, "no filter is registered, try `vorn doctor`");
    std::map<std::string, std::string> pages{{"README.md", indexOf(entries)}};
    for (const FilterEntry& entry : entries) pages[entry.name + ".md"] = pageOf(entry);
    return pages;
}

/// The pages that are not in the folder as they should be, and those that should not be there.
std::vector<std::string> stalePages(const fs::path& folder,
                                    const std::map<std::string, std::string>& pages) {
    std::vector<std::string> stale;
    for (const auto& [name, text] : pages)
        if (!fs::exists(folder / name) || contentsOf(folder / name) != text) stale.push_back(name);
    if (fs::exists(folder))
        for (const auto& file : fs::directory_iterator(folder))
            if (!pages.contains(file.path().filename().string()))
                stale.push_back(file.path().filename().string());
    return stale;
}

void writePages(const fs::path& folder, const std::map<std::string, std::string>& pages) {
    fs::create_directories(folder);
    for (const std::string& name : stalePages(folder, pages)) {
        const auto page = pages.find(name);
        if (page == pages.end()) {
            fs::remove(folder / name);
            continue;
        }
        std::ofstream stream(folder / name, std::ios::binary);
        stream << page->second;
        if (!stream.flush())
            throw HostError(ExitCode::Failed,
                            fmt::format("cannot write {}", (folder / name).string()));
    }
}

} // namespace

int main(int count, char** arguments) {
    const bool isCheck = count == 2 && std::string_view(arguments[1]) == "--check";
    if (count > 1 && !isCheck) {
        fmt::print(stderr, "filter_pages [--check]\n");
        return 2;
    }
    try {
        const fs::path folder = kSources / "docs/filters";
        const auto pages = allPages();
        if (isCheck) {
            const auto stale = stalePages(folder, pages);
            for (const std::string& name : stale)
                fmt::print(stderr, "docs/filters/{} is stale: run ./dev docs\n", name);
            return stale.empty() ? 0 : 1;
        }
        writePages(folder, pages);
        fmt::print("{} pages in docs/filters\n", pages.size());
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "filter_pages: {}\n", error.what());
        return 1;
    }
}
