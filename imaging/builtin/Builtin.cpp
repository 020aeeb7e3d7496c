#include "imaging/builtin/Builtin.h"
#include "platform/Messages.h"

namespace vorn::imaging {
namespace {

class BuiltinConstructor : public CIFilterConstructor {
public:
    explicit BuiltinConstructor(Class filterClass) : filterClass_(filterClass) {}
    CIFilterRef filterWithName(std::string_view) override { return filterClass_->filter->create(); }

private:
    Class filterClass_;
};

} // namespace

std::map<std::string, RegisteredFilter, std::less<>> builtinFilters() {
    std::map<std::string, RegisteredFilter, std::less<>> filters;
    const auto add = [&](std::string name, Class filterClass, std::string category) {
        filters.emplace(name, RegisteredFilter{std::make_shared<BuiltinConstructor>(filterClass),
                                               {{kCIAttributeFilterDisplayName, name},
                                                {kCIAttributeFilterCategories, category}}});
    };
#define VORN_ADD_BUILTIN(name, category) add(#name, builtinClass##name(), category);
    VORN_BUILTIN_FILTERS(VORN_ADD_BUILTIN)
#undef VORN_ADD_BUILTIN
    return filters;
}

std::shared_ptr<Node> applyFrameworkKernel(std::string_view library, std::string_view kernel,
                                           CGRect extent, const RegionOfInterest& regionOfInterest,
                                           KernelArguments arguments) {
    const auto function = frameworkKernel(kernel, library);
    return function ? makeKernelNode(function, extent, regionOfInterest, {}, arguments) : nullptr;
}

CIImage outputOf(const CIFilter& filter, std::shared_ptr<Node> node) {
    if (!node) return {};
    auto annotation = makeInPool<Annotation>();
    const FilterClassInfo& filterClass = filter.filterClass();
    annotation->builtinName = filterClass.classInfo.name;
    for (const InputInfo& input : filterClass.inputs())
        std::visit(
            [&](const auto& value) {
                using Value = std::decay_t<decltype(value)>;
                if constexpr (requires { value.isSet(); }) {
                    if (value.isSet()) annotation->builtinInputs.emplace_back(input.key, value);
                } else if constexpr (std::is_same_v<Value, CIImage>) {
                    if (value) annotation->builtinInputs.emplace_back(input.key, value);
                } else if constexpr (std::is_same_v<Value, CGAffineTransform>) {
                    annotation->builtinInputs.emplace_back(input.key, value);
                }
            },
            input.get(filter));
    node->annotation = std::move(annotation);
    return CIImage(std::move(node));
}

CIImage refuse(const CIFilter& filter, const char* problem) {
    vorn::report(vorn::Severity::Warning, "### %s: %s", filter.filterClass().classInfo.name,
                 problem);
    return {};
}

InputAttributes withDefault(std::string key, std::string displayName, AttributeValue standard) {
    return {std::move(key),
            {{kCIAttributeDefault, std::move(standard)},
             {kCIAttributeDisplayName, std::move(displayName)}}};
}

} // namespace vorn::imaging
