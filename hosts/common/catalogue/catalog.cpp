#include "catalog.h"

#include "host_error.h"
#include "suggest.h"

#include <algorithm>
#include <cctype>
#include <type_traits>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

/// A class attribute that is a text or a list of texts, as one text.
std::string classAttribute(const ClassAttributes& attributes, std::string_view key) {
    for (const auto& [name, value] : attributes) {
        if (name != key) continue;
        if (const auto* text = std::get_if<std::string>(&value)) return *text;
        const auto& list = std::get<std::vector<std::string>>(value);
        return list.empty() ? std::string() : list.front();
    }
    return {};
}

FilterEntry entryFor(const std::string& name, const RegisteredFilter& registered) {
    const Class owner = VornEffectsCatalog::filterClassForName(name);
    const FilterClassInfo* info = owner ? owner->filter : nullptr;
    if (!info) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        if (!filter) throw HostError(ExitCode::Failed, "cannot make a filter " + name);
        info = &filter->filterClass();
    }
    return {name, classAttribute(registered.classAttributes, kCIAttributeFilterCategories),
            classAttribute(registered.classAttributes, kCIAttributeFilterDisplayName), info};
}

/// The kind of an input that is only advertised, from its default.
InputKind advertisedKind(const InputAttributes& attributes) {
    const AttributeValue* standard = attributes.find(kCIAttributeDefault);
    if (standard && std::holds_alternative<CIVector>(*standard)) return InputKind::Vector;
    if (standard && std::holds_alternative<CIColor>(*standard)) return InputKind::Color;
    return InputKind::Number;
}

/// "intensity" as "inputIntensity".
std::string withPrefix(std::string_view key) {
    std::string full = "input" + std::string(key);
    if (!key.empty()) full[5] = static_cast<char>(std::toupper(static_cast<unsigned char>(key[0])));
    return full;
}

/// The kind of a set value.
InputKind kindOfValue(const InputValue& value) {
    return std::visit(
        [](const auto& held) {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::monostate>)
                return InputKind::Number;
            else
                return vorn::detail::kindOf<Held>();
        },
        value);
}

} // namespace

void registerFilters() {
    VornEffectsRegistrar::registerAllFilters();
}

std::vector<FilterEntry> listFilters(bool builtin) {
    std::vector<FilterEntry> entries;
    for (const std::string& name : CIFilter::filterNames()) {
        const auto registered = CIFilter::registeredFilter(name);
        if (!registered) continue;
        const std::string category =
            classAttribute(registered->classAttributes, kCIAttributeFilterCategories);
        if ((category != kVornFilterCategory) == builtin) {
            entries.push_back(entryFor(name, *registered));
        }
    }
    return entries;
}

FilterEntry findFilter(std::string_view name) {
    if (const auto registered = CIFilter::registeredFilter(name)) {
        return entryFor(std::string(name), *registered);
    }
    const std::vector<std::string> names = CIFilter::filterNames();
    const std::string hint =
        names.empty() ? "; no filter is registered, try `vorn doctor`" : suggestion(name, names);
    throw HostError(ExitCode::Usage, fmt::format("there is no filter \"{}\"{}", name, hint));
}

CIFilterRef makeFilter(const FilterEntry& entry) {
    CIFilterRef filter = CIFilter::filterWithName(entry.name);
    if (!filter) throw HostError(ExitCode::Failed, "cannot make a filter " + entry.name);
    return filter;
}

void setStarts(CIFilter& filter, const FilterEntry& entry) {
    filter.setDefaults();
    for (const ListedInput& input : listInputs(entry)) {
        if (input.isAdvertised) continue;
        std::visit(
            [&](const auto& start) {
                using Start = std::remove_cvref_t<decltype(start)>;
                if constexpr (std::is_same_v<Start, double>)
                    filter.setValueForKey(Number(start), input.key);
                else if constexpr (!std::is_same_v<Start, std::monostate>)
                    filter.setValueForKey(start, input.key);
            },
            input.guide.start);
    }
}

void setMediaTime(CIFilter& filter, const FilterEntry& entry, std::uint64_t nanoseconds,
                  const std::function<bool(const std::string& key)>& isSet) {
    for (const InputGuide& input : entry.guide().inputs)
        if (input.feed == InputFeed::MediaTime && !isSet(input.key))
            filter.setValueForKey(Number(static_cast<double>(nanoseconds)), input.key);
}

std::vector<ListedInput> listInputs(const FilterEntry& entry) {
    std::vector<ListedInput> inputs;
    for (const InputInfo& info : entry.info->inputs()) {
        inputs.push_back({info.key, info.kind, &info, false, {}, {}});
    }
    for (const InputAttributes& attributes : entry.info->customAttributes()) {
        const auto place = std::find_if(inputs.begin(), inputs.end(), [&](const ListedInput& i) {
            return i.key == attributes.key;
        });
        if (place == inputs.end()) {
            inputs.push_back(
                {attributes.key, advertisedKind(attributes), nullptr, true, attributes, {}});
        } else {
            place->isAdvertised = true;
            place->attributes = attributes;
        }
    }
    for (const InputGuide& guide : entry.guide().inputs)
        for (ListedInput& input : inputs)
            if (input.key == guide.key) input.guide = guide;
    return inputs;
}

std::vector<std::string> inputKeys(const FilterEntry& entry, bool images) {
    std::vector<std::string> keys;
    for (const ListedInput& input : listInputs(entry)) {
        if ((input.kind == InputKind::Image) == images && input.key != entry.guide().frameKey) {
            keys.push_back(input.key);
        }
    }
    return keys;
}

std::optional<ListedInput> findInput(const FilterEntry& entry, std::string_view key) {
    const std::vector<ListedInput> inputs = listInputs(entry);
    for (const std::string& wanted : {std::string(key), withPrefix(key)}) {
        for (const ListedInput& input : inputs) {
            if (input.key == wanted) return input;
        }
    }
    return {};
}

std::string keySuggestion(std::string_view key, const std::vector<std::string>& keys) {
    std::string hint = suggestion(key, keys);
    if (hint.empty()) hint = suggestion(withPrefix(key), keys);
    if (hint.empty() && !keys.empty())
        hint = "; there is " + fmt::format("{}", fmt::join(keys, ", "));
    return hint;
}

std::string settingsText(const std::vector<Setting>& settings, std::string_view between) {
    std::string text;
    for (const auto& [key, value] : settings) {
        std::string name = key;
        if (key.starts_with("input") && key.size() > 5 &&
            std::isupper(static_cast<unsigned char>(key[5]))) {
            name.erase(0, 5);
            name[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[0])));
        }
        text += fmt::format("{}{}={:.3g}", text.empty() ? "" : between, name, value);
    }
    return text;
}

void checkInput(const FilterEntry& entry, std::string_view key, const InputValue& value,
                std::string_view option) {
    std::vector<std::string> keys;
    for (const ListedInput& input : listInputs(entry)) {
        keys.push_back(input.key);
        if (input.key != key) continue;
        const bool isUnset = std::holds_alternative<std::monostate>(value);
        if (!input.info || isUnset || kindOfValue(value) == input.kind) return;
        throw HostError(ExitCode::Usage,
                        fmt::format("{}: {} of {} is of the kind {}, not {}", option, key,
                                    entry.name, inputKindName(input.kind),
                                    inputKindName(kindOfValue(value))));
    }
    throw HostError(ExitCode::Usage, fmt::format("{}: {} has no input \"{}\"{}", option, entry.name,
                                                 key, suggestion(key, keys)));
}

} // namespace vorn::hosts
