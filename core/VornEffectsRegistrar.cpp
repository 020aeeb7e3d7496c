#include "vorneffects/VornEffects.h"

#include "core/ManifestProblem.h"
#include "platform/Messages.h"

using namespace vorn;

void VornEffectsRegistrar::registerAllFilters() {
    static bool isRegistered = false;

    report(Severity::Notice, "VornEffects: registerAllFilters");
    if (isRegistered) return;

    VornEffectsCatalog::registerBuiltInMappings();
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
