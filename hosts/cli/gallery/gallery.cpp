// `vorn gallery`: a page with pictures of every filter.
#include "commands/commands.h"
#include "media/output_file.h"
#include "media/writer.h"
#include "portrait.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"
#include "terminal/talk.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

struct GalleryOptions {
    std::string folder;
    std::vector<std::string> filters, moreFilters;
    bool isQuiet = false;
};

std::vector<FilterEntry> chosenFilters(const std::vector<std::string>& names) {
    if (names.empty()) return listFilters(false);
    std::vector<FilterEntry> entries;
    std::set<std::string> seen;
    for (const std::string& name : names) {
        FilterEntry entry = findFilter(name);
        if (seen.insert(entry.name).second) entries.push_back(std::move(entry));
    }
    return entries;
}

/// The folder's whole name, in which the media layer sees neither a pipe nor a protocol.
std::string makeFolders(const std::string& folder) {
    if (folder.empty()) throw HostError(ExitCode::Usage, "DIR: the folder has no name");
    std::error_code problem;
    std::filesystem::create_directories(std::filesystem::path(folder) / "pictures", problem);
    if (!problem) return std::filesystem::absolute(folder).string();
    throw HostError(ExitCode::OutputNotWritable,
                    fmt::format("cannot make the folder {}: {}", folder, problem.message()));
}

/// The pictures that a page of this kind shows, by their names in the folder `pictures`.
std::set<std::string> picturesOf(const std::string& page) {
    std::ifstream file(page);
    std::string html;
    std::getline(file, html, '\0');
    std::set<std::string> names;
    if (html.find(kGalleryMark) == std::string::npos) return names;
    const std::regex picture("\"pictures/([\\w-]+\\.(png|gif))\"");
    for (std::sregex_iterator match(html.begin(), html.end(), picture), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

/// Removes what an earlier page showed and the new one does not; nothing else that lies there.
void removeStale(const std::string& folder, const std::set<std::string>& before,
                 const std::set<std::string>& now) {
    for (const std::string& name : before) {
        std::error_code ignored;
        if (!now.contains(name))
            std::filesystem::remove(std::filesystem::path(folder) / "pictures" / name, ignored);
    }
}

void writePage(const std::string& path, const std::string& html) {
    media::OutputFile file(path, true, {});
    file.write(reinterpret_cast<const uint8_t*>(html.data()), html.size());
    file.commit();
}

GalleryPage makePictures(const GalleryOptions& options) {
    const std::vector<FilterEntry> entries = chosenFilters(options.filters);
    const std::string folder = makeFolders(options.folder);
    Progress progress(static_cast<int64_t>(entries.size()), options.isQuiet, "filters");
    Studio studio;
    GalleryPage page;
    page.source = {"pictures/source.png", "first picture", "The test card, the first picture"};
    page.target = {"pictures/target.png", "second picture",
                   "A painted evening sky over hills, the second picture"};
    write(folder + "/" + page.source.file, {studio.sourcePixels[kStillFrame]});
    write(folder + "/" + page.target.file, {studio.targetPixels});
    for (const FilterEntry& entry : entries) {
        page.filters.push_back(portraitOf(studio, entry, folder));
        progress.update(static_cast<int64_t>(page.filters.size()));
    }
    // Who asks for some filters gets these alone.
    if (options.filters.empty()) {
        for (const Preset& preset : listPresets())
            page.presets.push_back(portraitOf(studio, preset, folder));
    }
    progress.clear();
    for (const std::string& message : studio.messages) say("{}", message);
    return page;
}

ExitCode gallery(const GalleryOptions& options) {
    registerFilters();
    const InterruptWatch watch;
    try {
        const GalleryPage page = makePictures(options);
        const std::string path = options.folder + "/index.html";
        const std::set<std::string> before = picturesOf(path);
        writePage(path, galleryHtml(page));
        removeStale(options.folder, before, picturesOf(path));
        if (!options.isQuiet) {
            say("{}: {} {}", path, page.filters.size(),
                page.filters.size() == 1 ? "filter" : "filters");
        }
    } catch (const media::WriteError& error) {
        throw HostError(ExitCode::OutputNotWritable, error.what());
    } catch (const media::Interrupted&) {
        stopIfAsked();
    }
    return ExitCode::Done;
}

} // namespace

void addGalleryCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<GalleryOptions>();
    CLI::App* command = app.add_subcommand("gallery", "Make a page with pictures of the filters");
    command->add_option("DIR", options->folder, "The folder of the page; made where there is none")
        ->required()
        ->type_name("");
    // Further names fall to the positionals, so that DIR may stand on either side of them.
    command->add_option("--filter", options->filters, "Only these; one name or more")
        ->allow_extra_args(false)
        ->type_name("NAME");
    command->add_option("NAME", options->moreFilters, "More of them, after --filter")
        ->type_name("");
    command->add_flag("--quiet", options->isQuiet, "No progress and no summary");
    command->footer(
        "Writes DIR/index.html and its pictures, DIR/pictures, and removes those that only an\n"
        "earlier page there showed. The page needs no network and no script. Everything on it\n"
        "stands still until it is asked to move, with a warning where pictures flash.\n\n"
        "Examples:\n"
        "  vorn gallery gallery\n"
        "  vorn gallery keys --filter VEChromaKeyRGB VELumaKey");
    command->callback([options, &action] {
        options->filters.insert(options->filters.end(), options->moreFilters.begin(),
                                options->moreFilters.end());
        action = [options] { return gallery(*options); };
    });
}

} // namespace vorn::hosts::cli
