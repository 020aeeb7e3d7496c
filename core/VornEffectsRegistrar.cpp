#include "vorneffects/VornEffects.h"

#include "core/ManifestProblem.h"
#include "platform/Messages.h"

#include <mutex>

using namespace vorn;

void VornEffectsRegistrar::registerAllFilters() {
    report(Severity::Notice, "VornEffects: registerAllFilters");
    VornEffectsCatalog::registerBuiltInMappings();

    // A second thread finds every name registered when this returns.
    static std::mutex mutex;
    static bool isRegistered = false;
    const std::lock_guard lock(mutex);
    if (isRegistered) return;
    const auto constructor = std::make_shared<VornEffectsFilterConstructor>();
    for (const std::string& name : VornEffectsCatalog::allFilterNames()) {
        // Hosts read the categories as one text here, not as a list.
        CIFilter::registerFilterName(name, constructor,
                                     {{kCIAttributeFilterDisplayName, name},
                                      {kCIAttributeFilterCategories, kVornFilterCategory}});
    }
    isRegistered = true;
}

std::string VornEffectsRegistrar::registrationProblem() {
    return core::manifestProblem();
}
