#include "vorneffects/VornEffects.h"

#include "platform/Messages.h"

using namespace vorn;

CIFilterRef VornEffectsFilterConstructor::filterWithName(std::string_view name) {
    const Class filterClass = VornEffectsCatalog::filterClassForName(name);
    // A manifest may name a class that exists and is no filter: nothing can be made of it either.
    if (!filterClass || !filterClass->filter) {
        report(Severity::Warning, "VornEffects: unknown filter request '%.*s'",
               static_cast<int>(name.size()), name.data());
        return nullptr;
    }
    return filterClass->filter->create();
}
