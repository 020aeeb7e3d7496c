// The catalogue of filters: which names exist, and which class each name makes, as the manifest in
// the library's bundle says.
#include "vorneffects/VornEffects.h"

#include "core/ManifestProblem.h"
#include "platform/Messages.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>

using namespace vorn;

namespace {

/// Resources of the library are looked up through this class.
constinit const ClassInfo catalogClass{"VornEffectsCatalog", &catalogClass};
const detail::ClassRegistration registeredCatalog{&catalogClass};

struct Catalog {
    std::map<std::string, Class, std::less<>> classByName;
    std::vector<std::string> problems; ///< of the manifest
};

/// Null until the manifest was read, which is done once: a manifest that is missing then leaves the
/// catalogue empty. Never changed or freed afterwards, since filters may be made on any thread
/// until the process ends.
std::atomic<const Catalog*> loaded = nullptr;

const std::string* stringForKey(const PropertyList& entry, std::string_view key) {
    const PropertyListDictionary* dictionary = entry.dictionary();
    if (!dictionary) return nullptr;
    const auto found = dictionary->find(key);
    return found == dictionary->end() ? nullptr : found->second.string();
}

Catalog catalogOfManifest() {
    Catalog catalog;
    const auto path =
        Bundle::forClass(&catalogClass).pathForResource("VornEffectsManifest", "plist");
    std::optional<PropertyListDictionary> manifest;
    if (path) manifest = dictionaryWithContentsOfFile(*path);
    if (!manifest) {
        catalog.problems = {"VornEffects Manifest: Could not find/open manifest dict!"};
        return catalog;
    }
    const auto found = manifest->find("Entries");
    const PropertyListArray* entries = found == manifest->end() ? nullptr : found->second.array();
    if (!entries) {
        catalog.problems = {"VornEffects Manifest: Could not open manifest array!"};
        return catalog;
    }
    for (const PropertyList& entry : *entries) {
        const std::string* filterName = stringForKey(entry, "FilterName");
        const std::string* className = stringForKey(entry, "ClassName");
        const Class filterClass = className ? classFromString(*className) : nullptr;
        if (filterName && filterClass)
            catalog.classByName.insert_or_assign(*filterName, filterClass);
        else
            catalog.problems.push_back("VornEffects Manifest: class not found for " +
                                       (filterName ? *filterName : "(null)") + " -> " +
                                       (className ? *className : "(null)"));
    }
    return catalog;
}

/// Empty while there was no memory to read the manifest; it is read when that is over.
const Catalog& loadedCatalog() {
    static const Catalog none;
    VornEffectsCatalog::registerBuiltInMappings();
    const Catalog* const catalog = loaded.load(std::memory_order_acquire);
    return catalog ? *catalog : none;
}

} // namespace

std::string vorn::core::manifestProblem() {
    const Catalog* const catalog = loaded.load(std::memory_order_acquire);
    std::string lines;
    if (catalog)
        for (const std::string& problem : catalog->problems) lines += problem + '\n';
    return lines;
}

void VornEffectsCatalog::registerBuiltInMappings() try {
    if (loaded.load(std::memory_order_acquire)) return;
    const Catalog* catalog = nullptr;
    {
        static std::mutex mutex;
        const std::lock_guard lock(mutex);
        if (loaded.load(std::memory_order_relaxed)) return;
        catalog = new Catalog(catalogOfManifest());
        loaded.store(catalog, std::memory_order_release);
    }
    // Whoever receives the lines may ask for filters already.
    for (const std::string& problem : catalog->problems)
        report(Severity::Error, "%s", problem.c_str());
} catch (...) {
    reportCaught("VornEffectsCatalog");
}

Class VornEffectsCatalog::filterClassForName(std::string_view name) {
    const auto& classByName = loadedCatalog().classByName;
    const auto found = classByName.find(name);
    return found == classByName.end() ? nullptr : found->second;
}

std::vector<std::string> VornEffectsCatalog::allFilterNames() try {
    std::vector<std::string> names;
    for (const auto& [name, filterClass] : loadedCatalog().classByName) names.push_back(name);
    return names;
} catch (...) {
    reportCaught("VornEffectsCatalog");
    return {};
}
