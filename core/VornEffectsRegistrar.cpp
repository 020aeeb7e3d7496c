#include "vorneffects/VornEffects.h"

#include "core/ManifestProblem.h"
#include "platform/Messages.h"

#include <mutex>

using namespace vorn;

void VornEffectsRegistrar::registerAllFilters() try {
    report(Severity::Notice, "VornEffects: registerAllFilters");
    VornEffectsCatalog::registerBuiltInMappings();

    // A second thread finds every name registered when this returns.
    static std::mutex mutex;
    static bool isRegistered = false;
    const std::lock_guard lock(mutex);
    if (isRegistered) return;
    const auto constructor = std::make_shared<VornEffectsFilterConstructor>();
    const std::vector<std::string> names = VornEffectsCatalog::allFilterNames();
    bool isComplete = !names.empty();
    for (const std::string& name : names) {
        // Hosts read the categories as one text here, not as a list.
        CIFilter::registerFilterName(name, constructor,
                                     {{kCIAttributeFilterDisplayName, name},
                                      {kCIAttributeFilterCategories, kVornFilterCategory}});
        isComplete = isComplete && CIFilter::registeredFilter(name);
    }
    isRegistered = isComplete;
} catch (...) {
    reportCaught("VornEffectsRegistrar");
}

std::string VornEffectsRegistrar::registrationProblem() try {
    return core::manifestProblem();
} catch (...) {
    return "out of memory";
}
