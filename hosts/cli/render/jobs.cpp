// Which inputs become which outputs.
#include "many.h"

#include "media/sequence.h"
#include "values/text.h"

#include <filesystem>
#include <map>

#include <glob.h>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

namespace fs = std::filesystem;

/// What a pattern such as "films/*.mp4" stands for, in the order of the names; other names stand
/// for themselves, and so does a file that has such letters in its name.
std::vector<std::string> expanded(const std::string& name) {
    std::error_code ignored;
    if (name.find_first_of("*?[") == std::string::npos || fs::exists(name, ignored)) return {name};
    glob_t found = {};
    const int problem = glob(name.c_str(), 0, nullptr, &found);
    std::vector<std::string> names(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    if (problem == 0) return names;
    throw HostError(ExitCode::InputUnreadable, fmt::format("no file is called like {}", name));
}

/// "{name}-{number:03}{ext}" with the places filled in.
class NamePattern {
public:
    explicit NamePattern(const std::string& pattern) : pattern_(pattern) {
        if (pattern.empty() || pattern.find('/') != std::string::npos)
            refuse("a name in the folder is wanted");
        static_cast<void>(nameOf("name", ".ext", 1));
    }

    std::string nameOf(const std::string& stem, const std::string& extension, size_t number) const {
        try {
            return fmt::format(fmt::runtime(pattern_), fmt::arg("name", stem),
                               fmt::arg("ext", extension), fmt::arg("number", number));
        } catch (const fmt::format_error&) {
            refuse("there is {name}, {ext} and {number}, which may be {number:03}");
        }
    }

private:
    [[noreturn]] void refuse(std::string_view wanted) const {
        throw HostError(ExitCode::Usage, fmt::format("--names \"{}\": {}", pattern_, wanted));
    }

    std::string pattern_;
};

} // namespace

std::vector<RenderJob> planJobs(const ManyArguments& many, const std::vector<std::string>& inputs,
                                const std::string& format) {
    const NamePattern pattern(many.names);
    std::vector<RenderJob> jobs;
    std::map<std::string, std::string> inputOf;
    for (const std::string& input : inputs) {
        if (input == "-") {
            throw HostError(ExitCode::Usage,
                            "--out-dir: standard input has no name to make one of");
        }
        for (const std::string& each : expanded(input)) {
            const bool isCard = parseTestCard(each).has_value();
            const fs::path path = isCard ? fs::path("test.mp4") : fs::path(each);
            const std::string output =
                (fs::path(many.folder) /
                 pattern.nameOf(path.stem().string(),
                                format.empty() ? path.extension().string() : "." + format,
                                jobs.size() + 1))
                    .string();
            const auto [place, isNew] = inputOf.emplace(output, each);
            if (!isNew) {
                throw HostError(ExitCode::Usage,
                                fmt::format("{} and {} would both become {}; {{number}} in --names "
                                            "tells them apart",
                                            place->second, each, output));
            }
            jobs.push_back({each, output});
        }
    }
    return jobs;
}

} // namespace vorn::hosts::cli
