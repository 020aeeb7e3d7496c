#include "vorneffects/CIFilter.h"

#include "imaging/builtin/Builtin.h"

#include <algorithm>
#include <functional>
#include <map>

namespace {

using Registry = std::map<std::string, RegisteredFilter, std::less<>>;

/// The registry, which has the framework's own filters from its first use on.
Registry& registry() {
    static Registry filters = builtinFilters();
    return filters;
}

/// The categories are registered either as one text or as a list of texts.
bool hasCategory(const ClassAttributes& attributes, std::string_view category) {
    for (const auto& [name, value] : attributes) {
        if (name != kCIAttributeFilterCategories) continue;
        if (const auto* single = std::get_if<std::string>(&value)) return *single == category;
        const auto& list = std::get<std::vector<std::string>>(value);
        return std::find(list.begin(), list.end(), category) != list.end();
    }
    return false;
}

const InputInfo* findInput(const FilterClassInfo& filterClass, std::string_view key) {
    const std::vector<InputInfo>& inputs = filterClass.inputs();
    const auto found = std::find_if(inputs.begin(), inputs.end(),
                                    [&](const InputInfo& input) { return input.key == key; });
    return found == inputs.end() ? nullptr : &*found;
}

bool isAdvertised(const FilterClassInfo& filterClass, std::string_view key) {
    const Attributes& attributes = filterClass.customAttributes();
    return std::any_of(attributes.begin(), attributes.end(),
                       [&](const InputAttributes& input) { return input.key == key; });
}

InputValue inputValueOf(const AttributeValue& attribute) {
    return std::visit([](const auto& value) -> InputValue { return value; }, attribute);
}

std::vector<std::pair<std::string, AttributeValue>> rangeEntries(const ScalarRange& range) {
    return {{kCIAttributeMin, range.min},
            {kCIAttributeSliderMin, range.sliderMin},
            {kCIAttributeSliderMax, range.sliderMax},
            {kCIAttributeDefault, range.standard},
            {kCIAttributeIdentity, range.identity}};
}

} // namespace

const char* vorn::inputKindName(InputKind kind) {
    switch (kind) {
    case InputKind::Image:
        return "image";
    case InputKind::Number:
        return "number";
    case InputKind::Vector:
        return "vector";
    case InputKind::Color:
        return "color";
    case InputKind::Data:
        return "data";
    case InputKind::String:
        return "string";
    case InputKind::Transform:
        return "transform";
    }
    return "unknown";
}

const AttributeValue* InputAttributes::find(std::string_view name) const {
    for (const auto& [entryName, value] : entries)
        if (entryName == name) return &value;
    return nullptr;
}

InputAttributes vorn::scalar(std::string key, std::string displayName, ScalarRange range) {
    InputAttributes attributes{std::move(key), rangeEntries(range)};
    attributes.entries.emplace_back(kCIAttributeDisplayName, std::move(displayName));
    attributes.entries.emplace_back(kCIAttributeType, kCIAttributeTypeDistance);
    return attributes;
}

InputAttributes vorn::constant(std::string key, ScalarRange range) {
    InputAttributes attributes{std::move(key), rangeEntries(range)};
    attributes.entries.emplace_back(kCIAttributeType, kCIAttributeTypeDistance);
    return attributes;
}

InputAttributes vorn::mixer(double standard) {
    return scalar("inputMixer", "mixer", {.standard = standard});
}

InputAttributes vorn::position(std::string key, std::string displayName, CIVector standard) {
    return {std::move(key),
            {{kCIAttributeDefault, standard},
             {kCIAttributeDisplayName, std::move(displayName)},
             {kCIAttributeType, kCIAttributeTypePosition}}};
}

void CIFilter::registerFilterName(std::string name,
                                  std::shared_ptr<CIFilterConstructor> constructor,
                                  ClassAttributes classAttributes) {
    registry().insert_or_assign(
        std::move(name), RegisteredFilter{std::move(constructor), std::move(classAttributes)});
}

CIFilterRef CIFilter::filterWithName(std::string_view name) {
    const RegisteredFilter* registered = registeredFilter(name);
    return registered && registered->constructor ? registered->constructor->filterWithName(name)
                                                 : nullptr;
}

std::vector<std::string> CIFilter::filterNames(std::string_view category) {
    std::vector<std::string> names;
    for (const auto& [name, registered] : registry())
        if (category.empty() || hasCategory(registered.classAttributes, category))
            names.push_back(name);
    return names;
}

const RegisteredFilter* CIFilter::registeredFilter(std::string_view name) {
    const auto found = registry().find(name);
    return found == registry().end() ? nullptr : &found->second;
}

void CIFilter::setVornFrameTime(uint64_t) {}

void CIFilter::clear() {}

bool CIFilter::setValueForKey(const InputValue& value, std::string_view key) {
    if (const InputInfo* input = findInput(filterClass(), key)) return input->set(*this, value);
    return isAdvertised(filterClass(), key);
}

InputValue CIFilter::valueForKey(std::string_view key) const {
    const InputInfo* input = findInput(filterClass(), key);
    return input ? input->get(*this) : InputValue{};
}

void CIFilter::setDefaults() {
    for (const InputAttributes& input : filterClass().customAttributes())
        if (const AttributeValue* standard = input.find(kCIAttributeDefault))
            setValueForKey(inputValueOf(*standard), input.key);
}
