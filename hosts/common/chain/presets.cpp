#include "presets.h"

#include "catalogue/suggest.h"
#include "host_error.h"
#include "settings/chain_file.h"

#include <algorithm>
#include <filesystem>

#include <strings.h>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

namespace fs = std::filesystem;

/// Beside the program's own folder, wherever the two are installed.
fs::path presetFolder() {
    std::error_code problem;
    const fs::path program = fs::read_symlink("/proc/self/exe", problem);
    if (problem)
        throw HostError(ExitCode::Failed, "the program's own place is unknown without /proc");
    for (const char* each : {VORN_PRESETS_FROM_PROGRAM, VORN_BUILT_PRESETS_FROM_PROGRAM}) {
        const fs::path folder = (program.parent_path() / each).lexically_normal();
        if (fs::is_directory(folder, problem)) return folder;
    }
    throw HostError(
        ExitCode::Failed,
        fmt::format(
            "there is no folder {}, where presets are installed",
            (program.parent_path() / VORN_PRESETS_FROM_PROGRAM).lexically_normal().string()));
}

} // namespace

std::vector<Preset> listPresets() {
    std::vector<Preset> presets;
    std::error_code problem;
    for (const auto& entry : fs::directory_iterator(presetFolder(), problem)) {
        if (entry.path().extension() != ".json") continue;
        ChainPlan plan;
        const ChainWords words = readChainFile(entry.path().string(), plan);
        presets.push_back({words.name, words.description, entry.path().string()});
    }
    if (problem) throw HostError(ExitCode::Failed, "presets: " + problem.message());
    std::sort(presets.begin(), presets.end(),
              [](const Preset& a, const Preset& b) { return a.name < b.name; });
    return presets;
}

Preset findPreset(const std::string& name) {
    std::vector<std::string> names;
    for (Preset& preset : listPresets()) {
        if (strcasecmp(preset.name.c_str(), name.c_str()) == 0) return std::move(preset);
        names.push_back(preset.name);
    }
    const std::string hint = suggestion(name, names);
    throw HostError(ExitCode::Usage,
                    fmt::format("--preset-chain: there is no preset \"{}\"{}", name,
                                hint.empty() ? "; see `vorn list --presets`" : hint));
}

} // namespace vorn::hosts
