#include "vorneffects/CIFilter.h"

#include "imaging/SessionState.h"
#include "imaging/builtin/Builtin.h"
#include "platform/Guard.h"
#include "platform/Messages.h"

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <shared_mutex>

namespace {

/// The framework's own filters are there from the first use on. Never destroyed: filters may be
/// made until the process ends.
struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, std::shared_ptr<const RegisteredFilter>, std::less<>> filters;
};

Registry& registry() {
    static auto& registry = *[] {
        auto made = std::make_unique<Registry>();
        for (auto& [name, filter] : builtinFilters())
            made->filters.emplace(name, std::make_shared<const RegisteredFilter>(filter));
        return made.release();
    }();
    return registry;
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
    const std::span<const InputInfo> inputs = filterClass.inputs();
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

vorn::detail::InSession::InSession(const Session& session)
    : outer_(Surroundings::makeCurrent(stateOf(session).surroundings)) {}

vorn::detail::InSession::~InSession() {
    Surroundings::makeCurrent(static_cast<Surroundings*>(outer_));
}

void vorn::detail::reportCaught(const CIFilter& filter) noexcept {
    const InSession current(*filter.session());
    reportCaught(&filter.filterClass().classInfo);
}

void vorn::detail::reportCaught(Class owner) noexcept {
    vorn::reportCaught(owner->name);
}

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
    return orNothing([&] {
        InputAttributes attributes{std::move(key), rangeEntries(range)};
        attributes.entries.emplace_back(kCIAttributeDisplayName, std::move(displayName));
        attributes.entries.emplace_back(kCIAttributeType, kCIAttributeTypeDistance);
        return attributes;
    });
}

InputAttributes vorn::constant(std::string key, ScalarRange range) {
    return orNothing([&] {
        InputAttributes attributes{std::move(key), rangeEntries(range)};
        attributes.entries.emplace_back(kCIAttributeType, kCIAttributeTypeDistance);
        return attributes;
    });
}

InputAttributes vorn::mixer(double standard) {
    return scalar("inputMixer", "mixer", {.standard = standard});
}

InputAttributes vorn::position(std::string key, std::string displayName, CIVector standard) {
    return orNothing([&] {
        return InputAttributes{std::move(key),
                               {{kCIAttributeDefault, standard},
                                {kCIAttributeDisplayName, std::move(displayName)},
                                {kCIAttributeType, kCIAttributeTypePosition}}};
    });
}

CIFilter::CIFilter() : session_(vorn::Session::current()) {}

CIFilter::~CIFilter() = default;

void CIFilter::registerFilterName(std::string name,
                                  std::shared_ptr<CIFilterConstructor> constructor,
                                  ClassAttributes classAttributes) {
    try {
        std::shared_ptr<const RegisteredFilter> registered = std::make_shared<RegisteredFilter>(
            RegisteredFilter{std::move(constructor), std::move(classAttributes)});
        Registry& known = registry();
        const std::unique_lock lock(known.mutex);
        // What was there before goes after the lock does: its constructor is the host's.
        std::swap(known.filters[name], registered);
    } catch (...) {
        vorn::reportCaught(name);
    }
}

CIFilterRef CIFilter::filterWithName(std::string_view name) {
    try {
        const auto registered = registeredFilter(name);
        return registered && registered->constructor ? registered->constructor->filterWithName(name)
                                                     : nullptr;
    } catch (...) {
        vorn::reportCaught(name);
        return nullptr;
    }
}

std::vector<std::string> CIFilter::filterNames(std::string_view category) try {
    Registry& known = registry();
    const std::shared_lock lock(known.mutex);
    std::vector<std::string> names;
    for (const auto& [name, registered] : known.filters)
        if (category.empty() || hasCategory(registered->classAttributes, category))
            names.push_back(name);
    return names;
} catch (...) {
    reportCaught("CIFilter");
    return {};
}

std::shared_ptr<const RegisteredFilter> CIFilter::registeredFilter(std::string_view name) try {
    Registry& known = registry();
    const std::shared_lock lock(known.mutex);
    const auto found = known.filters.find(name);
    return found == known.filters.end() ? nullptr : found->second;
} catch (...) {
    reportCaught(name);
    return nullptr;
}

void CIFilter::setVornFrameTime(uint64_t) {}

void CIFilter::clear() {}

bool CIFilter::setValueForKey(const InputValue& value, std::string_view key) {
    const vorn::detail::InSession current(*session_);
    try {
        if (const InputInfo* input = findInput(filterClass(), key)) return input->set(*this, value);
        return isAdvertised(filterClass(), key);
    } catch (...) {
        vorn::detail::reportCaught(*this);
        return false;
    }
}

InputValue CIFilter::valueForKey(std::string_view key) const try {
    const InputInfo* input = findInput(filterClass(), key);
    return input ? input->get(*this) : InputValue{};
} catch (...) {
    reportCaught(key);
    return {};
}

void CIFilter::setDefaults() try {
    for (const InputAttributes& input : filterClass().customAttributes())
        if (const AttributeValue* standard = input.find(kCIAttributeDefault))
            setValueForKey(inputValueOf(*standard), input.key);
} catch (...) {
    vorn::detail::reportCaught(*this);
}
