// Chains that come with the hosts.
#pragma once

#include <string>
#include <vector>

namespace vorn::hosts {

struct Preset {
    std::string name, description;
    std::string path; ///< of its file
};

/// Those that are installed with the program that is running, in the order of their names. A
/// `HostError` where their folder or one of them cannot be read.
std::vector<Preset> listPresets();
/// The one of that name, whatever the case; a usage error with the nearest names when there is
/// none.
Preset findPreset(const std::string& name);

} // namespace vorn::hosts
