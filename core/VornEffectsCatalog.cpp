// The catalogue of filters: which names exist, and which class each name makes, as the manifest in
// the library's bundle says.
#include "vorneffects/VornEffects.h"

#include "core/ManifestProblem.h"
#include "platform/Messages.h"

#include <functional>
#include <map>

using namespace vorn;

namespace {

/// Resources of the library are looked up through this class.
constinit const ClassInfo catalogClass{"VornEffectsCatalog", &catalogClass};
const detail::ClassRegistration registeredCatalog{&catalogClass};

using ClassByName = std::map<std::string, Class, std::less<>>;

/// Null until the manifest was asked for. It is asked for once: a manifest that is missing then
/// leaves the catalogue empty. Never freed, since filters may be made until the process ends.
ClassByName* classByName = nullptr;

/// Never freed either.
std::string& problem() {
    static auto* const lines = new std::string;
    return *lines;
}

void complain(const std::string& line) {
    report(Severity::Error, "%s", line.c_str());
    problem() += line + '\n';
}

const std::string* stringForKey(const PropertyList& entry, std::string_view key) {
    const PropertyListDictionary* dictionary = entry.dictionary();
    if (!dictionary) return nullptr;
    const auto found = dictionary->find(key);
    return found == dictionary->end() ? nullptr : found->second.string();
}

std::optional<PropertyListDictionary> readManifest() {
    const auto path =
        Bundle::forClass(&catalogClass).pathForResource("VornEffectsManifest", "plist");
    if (!path) return std::nullopt;
    return dictionaryWithContentsOfFile(*path);
}

const ClassByName& loadedCatalog() {
    VornEffectsCatalog::registerBuiltInMappings();
    return *classByName;
}

} // namespace

const std::string& vorn::core::manifestProblem() {
    return problem();
}

void VornEffectsCatalog::registerBuiltInMappings() {
    if (classByName) return;
    classByName = new ClassByName;

    const auto manifest = readManifest();
    if (!manifest) {
        complain("VornEffects Manifest: Could not find/open manifest dict!");
        return;
    }
    const auto found = manifest->find("Entries");
    const PropertyListArray* entries = found == manifest->end() ? nullptr : found->second.array();
    if (!entries) {
        complain("VornEffects Manifest: Could not open manifest array!");
        return;
    }
    for (const PropertyList& entry : *entries) {
        const std::string* filterName = stringForKey(entry, "FilterName");
        const std::string* className = stringForKey(entry, "ClassName");
        const Class filterClass = className ? classFromString(*className) : nullptr;
        if (filterName && filterClass) {
            classByName->insert_or_assign(*filterName, filterClass);
            continue;
        }
        complain("VornEffects Manifest: class not found for " +
                 (filterName ? *filterName : "(null)") + " -> " +
                 (className ? *className : "(null)"));
    }
}

Class VornEffectsCatalog::filterClassForName(std::string_view name) {
    const ClassByName& catalog = loadedCatalog();
    const auto found = catalog.find(name);
    return found == catalog.end() ? nullptr : found->second;
}

std::vector<std::string> VornEffectsCatalog::allFilterNames() {
    std::vector<std::string> names;
    for (const auto& [name, filterClass] : loadedCatalog()) names.push_back(name);
    return names;
}
