// The gallery's page. It works without scripts: navigation is links, and what moves is opened by
// whoever wants to see it move.
#include "page.h"

#include "catalogue/wording.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts::cli {

namespace {

constexpr const char* kStyle = R"(
:root { color-scheme: light dark; --ground: #f6f6f3; --card: #fff; --text: #1c1d21; --soft: #5a5d66;
  --line: #dddcd6; --accent: #0b5cad; --tag: #e6eef7; }
@media (prefers-color-scheme: dark) { :root { --ground: #131418; --card: #1d1f25; --text: #ececf0;
  --soft: #a5a8b3; --line: #33353e; --accent: #7db8f5; --tag: #22344a; } }
* { box-sizing: border-box; }
html { scroll-padding-top: 1rem; }
body { margin: 0; background: var(--ground); color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif; }
header, nav, main { max-width: 72rem; margin: 0 auto; padding: 1rem; }
h1 { font-size: 1.9rem; line-height: 1.2; margin: .5rem 0; }
h2 { font-size: 1.35rem; margin: 0; overflow-wrap: anywhere; }
h3 { font-size: 1.2rem; margin: 0; overflow-wrap: anywhere; }
h4 { font-size: 1rem; margin: 1.25rem 0 .5rem; }
section > h2, nav h2 { margin: 1.25rem 0 .5rem; }
nav h2 { font-size: 1rem; }
a { color: var(--accent); }
a:focus-visible, summary:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px; }
.skip { position: absolute; left: -99rem; }
.skip:focus { left: 1rem; top: 1rem; padding: .5rem 1rem; background: var(--card); }
nav ul { columns: 12rem; padding: 0; margin: .5rem 0; list-style: none; }
nav li { padding: .2rem 0; overflow-wrap: anywhere; break-inside: avoid; }
summary { cursor: pointer; font-weight: 600; }
article { background: var(--card); border: 1px solid var(--line); border-radius: .75rem;
  padding: 1rem; margin: 0 0 1.5rem; }
.warning { border-left: .3rem solid var(--accent); padding-left: .6rem; }
.tags { display: flex; flex-wrap: wrap; gap: .4rem; list-style: none; padding: 0; margin: .5rem 0; }
.tags li { background: var(--tag); border-radius: 1rem; padding: .05rem .7rem; font-size: .85rem; }
.top { display: grid; gap: 1rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 19rem), 1fr));
  align-items: start; }
.row { display: grid; gap: .75rem; grid-template-columns: repeat(auto-fill, minmax(8.5rem, 1fr)); }
figure { margin: 0; }
img { display: block; width: 100%; height: auto; border-radius: .4rem; background: var(--line); }
.top img { max-width: 32rem; }
figcaption { font-size: .85rem; color: var(--soft); margin-top: .25rem; }
table { border-collapse: collapse; width: 100%; font-size: .9rem; }
caption { text-align: left; font-weight: 600; padding-bottom: .25rem; }
th, td { text-align: left; padding: .3rem .5rem .3rem 0; border-bottom: 1px solid var(--line);
  vertical-align: top; font-weight: inherit; overflow-wrap: anywhere; }
thead th { color: var(--soft); }
code { font: .8rem ui-monospace, monospace; color: var(--soft); display: block; }
)";

std::string escaped(std::string_view text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        default:
            safe += c;
        }
    }
    return safe;
}

std::string imageTag(const std::string& file, const std::string& description) {
    return fmt::format("<img src=\"{}\" alt=\"{}\" width=\"{}\" height=\"{}\" loading=\"lazy\">",
                       escaped(file), escaped(description), kGalleryWidth, kGalleryHeight);
}

std::string figure(const std::string& image, const std::string& caption) {
    return fmt::format("<figure>{}<figcaption>{}</figcaption></figure>\n", image, escaped(caption));
}

std::string figure(const GalleryPicture& picture) {
    return figure(imageTag(picture.file, picture.description), picture.caption);
}

/// The still picture, and the one in motion for those who ask for it.
std::string leadFigure(const GalleryPicture& lead, const std::string& title,
                       const std::string& animation, bool flashes) {
    std::string html = "<div>" + figure(lead);
    if (!animation.empty()) {
        html += fmt::format("<details><summary>{} in motion{}</summary>{}</details>\n",
                            escaped(title), flashes ? " (it flashes)" : "",
                            imageTag(animation, lead.description + ", in motion"));
    }
    return html + "</div>\n";
}

std::string rangeText(const ListedInput& input) {
    if (input.kind == InputKind::Image) return "a picture";
    if (!input.guide.from || !input.guide.to) return inputKindName(input.kind);
    return fmt::format("{:.4g} to {:.4g}", *input.guide.from, *input.guide.to);
}

std::string startCell(const ListedInput& input) {
    const std::string start = startText(input);
    return start == "-" ? "" : start;
}

std::string inputRow(const ListedInput& input) {
    return fmt::format("<tr><th scope=\"row\">{}<code>{}</code></th><td>{}</td><td>{}</td>"
                       "<td>{}</td></tr>\n",
                       escaped(input.guide.label), escaped(input.key), escaped(rangeText(input)),
                       escaped(startCell(input)), escaped(input.guide.purpose));
}

std::string inputTable(const GalleryFilter& filter) {
    std::string html = "<table><caption>Inputs</caption><thead><tr><th scope=\"col\">Input</th>"
                       "<th scope=\"col\">Range</th><th scope=\"col\">Start</th>"
                       "<th scope=\"col\">What it does</th></tr></thead>\n"
                       "<tbody>\n";
    for (const ListedInput& input : filter.inputs) html += inputRow(input);
    return html + "</tbody></table>\n";
}

constexpr const char* kFlashWarning =
    "<p class=\"warning\"><strong>Warning:</strong> it can flash quickly, which is not safe for "
    "everybody.</p>\n";

/// The section of the presets; nothing where there are none.
std::string presetSection(const std::vector<GalleryPreset>& presets) {
    if (presets.empty()) return {};
    std::string html = "<section aria-labelledby=\"presets\">\n<h2 id=\"presets\">Presets</h2>\n"
                       "<p>Chains of filters that come with vorn, by <code>--preset-chain "
                       "NAME</code></p>\n";
    for (const GalleryPreset& preset : presets) {
        html += fmt::format("<article id=\"{0}\" aria-labelledby=\"{0}-name\">\n"
                            "<h3 id=\"{0}-name\">{1}</h3>\n<p>{2}</p>\n{3}"
                            "<p>Made of: {4}</p>\n",
                            escaped(preset.id), escaped(preset.name), escaped(preset.description),
                            preset.flashes ? kFlashWarning : "",
                            escaped(fmt::format("{}", fmt::join(preset.filters, ", "))));
        html += leadFigure(preset.lead, preset.name, preset.animation, preset.flashes) +
                "<p><a href=\"#list\">Back to the list</a></p>\n</article>\n";
    }
    return html + "</section>\n";
}

std::string article(const GalleryFilter& filter) {
    const FilterGuide& guide = filter.entry.guide();
    std::string html =
        fmt::format("<article id=\"{0}\" aria-labelledby=\"{0}-name\">\n"
                    "<h3 id=\"{0}-name\">{1}</h3>\n<code>{0}</code>\n<p>{2}</p>\n",
                    escaped(filter.entry.name), escaped(guide.title), escaped(guide.sentence));
    if (filter.flashes) html += kFlashWarning;
    html += "<ul class=\"tags\" aria-label=\"Tags\">";
    for (const auto* words : {&guide.tags, &filter.traits})
        for (const std::string& word : *words) html += "<li>" + escaped(word) + "</li>";
    html += "</ul>\n<div class=\"top\">\n" +
            leadFigure(filter.lead, guide.title, filter.animation, filter.flashes) +
            inputTable(filter) + "</div>\n";
    for (const GalleryRow& row : filter.rows) {
        html += "<h4>" + escaped(row.title) + "</h4>\n<div class=\"row\">\n";
        for (const GalleryPicture& picture : row.pictures) html += figure(picture);
        html += "</div>\n";
    }
    return html + "<p><a href=\"#list\">Back to the list</a></p>\n</article>\n";
}

std::string presetLinks(const std::vector<GalleryPreset>& presets) {
    std::string html;
    for (const GalleryPreset& preset : presets)
        html += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", escaped(preset.id),
                            escaped(preset.name));
    return html.empty() ? html : "<h2>Presets</h2>\n<ul>\n" + html + "</ul>\n";
}

/// The filters in the order of their families.
std::vector<const GalleryFilter*> byFamily(const GalleryPage& page) {
    std::vector<const GalleryFilter*> filters;
    for (const GalleryFilter& filter : page.filters) filters.push_back(&filter);
    std::stable_sort(filters.begin(), filters.end(), [](const auto* a, const auto* b) {
        return a->entry.guide().familyTitle < b->entry.guide().familyTitle;
    });
    return filters;
}

/// `before` and `after` stand around the filters of each family.
template <class Write>
std::string inFamilies(const std::vector<const GalleryFilter*>& filters, const char* before,
                       const char* after, Write write) {
    std::string html, family;
    for (const GalleryFilter* filter : filters) {
        const FilterGuide& guide = filter->entry.guide();
        if (guide.familyTitle != family) {
            if (!family.empty()) html += after;
            family = guide.familyTitle;
            html += fmt::format(fmt::runtime(before), escaped(family), escaped(guide.family));
        }
        html += write(*filter);
    }
    return html + (family.empty() ? "" : after);
}

} // namespace

std::string galleryHtml(const GalleryPage& page) {
    const size_t count = page.filters.size();
    std::string html = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "{}\n<style>{}</style>\n</head>\n<body>\n"
        "<a class=\"skip\" href=\"#filters\">To the filters</a>\n"
        "<header>\n<h1>{} video {}</h1>\n<p>Each is shown on the first of these pictures; those "
        "that "
        "take two get both. A checkerboard shows where a picture is transparent. Nothing moves "
        "until "
        "you open a picture in motion; where one flashes, it says so.</p>\n"
        "<div class=\"row\">\n{}{}</div>\n</header>\n",
        kGalleryMark, kStyle, count, count == 1 ? "effect" : "effects", figure(page.source),
        figure(page.target));
    const std::vector<const GalleryFilter*> filters = byFamily(page);
    html += "<nav id=\"list\" aria-label=\"Filters\" tabindex=\"-1\">\n" +
            inFamilies(filters, "<h2>{0}</h2>\n<ul>\n", "</ul>\n",
                       [](const GalleryFilter& filter) {
                           return fmt::format("<li><a href=\"#{}\">{}</a></li>\n",
                                              escaped(filter.entry.name),
                                              escaped(filter.entry.guide().title));
                       }) +
            presetLinks(page.presets) + "</nav>\n<main id=\"filters\" tabindex=\"-1\">\n" +
            inFamilies(filters,
                       "<section aria-labelledby=\"family-{1}\">\n<h2 id=\"family-{1}\">{0}</h2>\n",
                       "</section>\n", article) +
            presetSection(page.presets);
    return html + "</main>\n</body>\n</html>\n";
}

} // namespace vorn::hosts::cli
