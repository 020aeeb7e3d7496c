#include "fonts.h"

#include <fontconfig/fontconfig.h>

#include <memory>

namespace vorn::hosts::cli {

namespace {

using Pattern = std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)>;

std::string stringOf(FcPattern* pattern, const char* property) {
    FcChar8* text = nullptr;
    if (FcPatternGetString(pattern, property, 0, &text) != FcResultMatch) return {};
    return reinterpret_cast<const char*>(text);
}

} // namespace

std::optional<FoundFont> findFont(const std::string& name, const std::string& genericFamily) {
    const Pattern wanted(FcPatternCreate(), &FcPatternDestroy);
    for (const std::string& family : {name, genericFamily}) {
        FcPatternAddString(wanted.get(), FC_FAMILY,
                           reinterpret_cast<const FcChar8*>(family.c_str()));
    }
    FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
    FcDefaultSubstitute(wanted.get());
    FcResult result = FcResultNoMatch;
    const Pattern match(FcFontMatch(nullptr, wanted.get(), &result), &FcPatternDestroy);
    if (!match || result != FcResultMatch) return {};
    return FoundFont{stringOf(match.get(), FC_FAMILY), stringOf(match.get(), FC_FILE)};
}

} // namespace vorn::hosts::cli
