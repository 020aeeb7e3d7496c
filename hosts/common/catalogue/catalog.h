// The filters that can be named on the command line, and what can be set on them.
#pragma once

#include "vorneffects/VornEffects.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

/// Registers every filter. What the registry has to say goes to standard error, its banner nowhere.
void registerFilters();

struct FilterEntry {
    std::string name, category, displayName;
    const FilterClassInfo* info = nullptr;

    const char* className() const { return info->classInfo.name; }
    const FilterGuide& guide() const { return info->guide(); }
};

/// The effects, or the framework's own filters (every other category), sorted by name.
std::vector<FilterEntry> listFilters(bool builtin);
/// A registered filter; a usage error with the nearest names when there is none.
FilterEntry findFilter(std::string_view name);
/// A new instance of it.
CIFilterRef makeFilter(const FilterEntry& entry);
/// Sets inputs to where they start: what is advertised to its default, and what is not to the start
/// that the guide tells, if it tells one.
void setStarts(CIFilter& filter, const FilterEntry& entry);

/// Sets the inputs that run with the time of the frame, in nanoseconds, but for those that `isSet`
/// knows.
void setMediaTime(CIFilter& filter, const FilterEntry& entry, std::uint64_t nanoseconds,
                  const std::function<bool(const std::string& key)>& isSet);

/// One input as it can be listed: those that the class reads, in its order, then those that are
/// only advertised (`info` is null).
struct ListedInput {
    std::string key;
    InputKind kind;
    const InputInfo* info = nullptr;
    bool isAdvertised = false;
    InputAttributes attributes;
    InputGuide guide;
};
std::vector<ListedInput> listInputs(const FilterEntry& entry);
/// The keys of what can be set besides the frame: of the images, or of the other inputs.
std::vector<std::string> inputKeys(const FilterEntry& entry, bool images);
/// The input that a key means: itself, or the one with "input" before it, as "intensity" means
/// "inputIntensity".
std::optional<ListedInput> findInput(const FilterEntry& entry, std::string_view key);
/// For a key that is none of them: the nearest, else all of them.
std::string keySuggestion(std::string_view key, const std::vector<std::string>& keys);

/// "amount=0.6,skip=0", as `vorn render` takes them.
std::string settingsText(const std::vector<Setting>& settings, std::string_view between = ",");

/// Checks that a value can be set: a usage error, with the nearest keys, for a key that the filter
/// neither reads nor advertises, and for a value of another kind than the input's.
void checkInput(const FilterEntry& entry, std::string_view key, const InputValue& value,
                std::string_view option);

} // namespace vorn::hosts
