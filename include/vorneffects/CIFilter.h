// Filters: created by name, inputs set by key, one lazy output image.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIImage.h"
#include "FilterGuide.h"

#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

// ---- Attributes -------------------------------------------------------------------------------

inline constexpr const char kCIAttributeMin[] = "kCIAttributeMin";
inline constexpr const char kCIAttributeSliderMin[] = "kCIAttributeSliderMin";
inline constexpr const char kCIAttributeSliderMax[] = "kCIAttributeSliderMax";
inline constexpr const char kCIAttributeDefault[] = "kCIAttributeDefault";
inline constexpr const char kCIAttributeIdentity[] = "kCIAttributeIdentity";
inline constexpr const char kCIAttributeDisplayName[] = "kCIAttributeDisplayName";
inline constexpr const char kCIAttributeType[] = "kCIAttributeType";
inline constexpr const char kCIAttributeTypeDistance[] = "kCIAttributeTypeDistance";
inline constexpr const char kCIAttributeTypePosition[] = "kCIAttributeTypePosition";
inline constexpr const char kCIAttributeFilterDisplayName[] = "kCIAttributeFilterDisplayName";
inline constexpr const char kCIAttributeFilterCategories[] = "kCIAttributeFilterCategories";

namespace vorn {

/// What an input can be set to; the first alternative is "unset".
using InputValue = std::variant<std::monostate, CIImage, Number, CIVector, CIColor, Data,
                                std::string, CGAffineTransform>;

enum class InputKind : uint8_t { Image, Number, Vector, Color, Data, String, Transform };
VORN_EXPORT const char* inputKindName(InputKind kind); // "image", "number", ...

using AttributeValue = std::variant<double, std::string, CIVector, CIColor>;

/// The attributes of one input, in the order in which the filter builds them.
struct VORN_EXPORT InputAttributes {
    std::string key;
    std::vector<std::pair<std::string, AttributeValue>> entries;

    const AttributeValue* find(std::string_view name) const;
};
using Attributes = std::vector<InputAttributes>;

// The four builders below give attributes without key and entries where memory runs out. A class
// whose `customAttributes` holds such ones has none for that moment; they are asked for again.

/// The numbers of a scalar input, in slider units.
struct ScalarRange {
    double min = 0, sliderMin = 0, sliderMax = 1, standard = 0, identity = 0;
};
/// The seven-key form of a scalar input.
VORN_EXPORT InputAttributes scalar(std::string key, std::string displayName, ScalarRange range);
/// The six-key form, without a display name: the host labels the input by its key.
VORN_EXPORT InputAttributes constant(std::string key, ScalarRange range);
/// "inputMixer", 0 to 1: 0 leaves the source as it is, 1 gives the full effect.
VORN_EXPORT InputAttributes mixer(double standard = 1);
/// A position input with its default, in pixels.
VORN_EXPORT InputAttributes position(std::string key, std::string displayName, CIVector standard);

} // namespace vorn

// ---- Filters ----------------------------------------------------------------------------------

class CIFilter;
using CIFilterRef = std::shared_ptr<CIFilter>;

namespace vorn {

class Session;

/// One input of a class: its key, its kind, and how to reach it in an instance.
struct InputInfo {
    const char* key;
    InputKind kind;
    /// Sets the input (monostate: unset it); false when the value is of another kind.
    bool (*set)(CIFilter&, const InputValue&);
    InputValue (*get)(const CIFilter&);
};

/// What is known of a filter class without making an instance.
struct FilterClassInfo {
    ClassInfo classInfo;
    /// A new filter; an empty handle, with a line, where it cannot be made.
    CIFilterRef (*create)();
    /// Attributes and guide are made when they are first asked for. Where that fails there is a
    /// line and an empty one, and the next call tries again.
    const Attributes& (*customAttributes)();
    std::span<const InputInfo> (*inputs)();
    const FilterGuide& (*guide)();
    detail::FolderName folder; ///< where its source lies
};

} // namespace vorn

/// Builds filters for registered names. What it throws counts as no filter, with a line that says
/// so.
class VORN_EXPORT CIFilterConstructor {
public:
    virtual ~CIFilterConstructor() = default;
    virtual CIFilterRef filterWithName(std::string_view name) = 0;
};

namespace vorn {

/// The attributes of a registered filter as a whole, in order: a text, or a list of texts.
using ClassAttributes =
    std::vector<std::pair<std::string, std::variant<std::string, std::vector<std::string>>>>;

struct RegisteredFilter {
    std::shared_ptr<CIFilterConstructor> constructor;
    ClassAttributes classAttributes;
};

} // namespace vorn

/// A filter instance. It belongs to one thread at a time, and to the session that was current when
/// it was made: what it does, it does there, whatever thread calls.
class VORN_EXPORT CIFilter {
public:
    virtual ~CIFilter();
    CIFilter(const CIFilter&) = delete;
    CIFilter& operator=(const CIFilter&) = delete;

    /// Makes a name creatable; a name registered before is replaced. These four are safe from any
    /// thread. Where memory runs out there is a line, and nothing is registered or found.
    static void registerFilterName(std::string name,
                                   std::shared_ptr<CIFilterConstructor> constructor,
                                   vorn::ClassAttributes classAttributes);
    /// A new filter in the session that is current; an empty handle for a name that nobody
    /// registered, and, with a line, for a filter that cannot be made.
    static CIFilterRef filterWithName(std::string_view name);
    /// Every registered name, sorted; with a category, only the names of that category.
    static std::vector<std::string> filterNames(std::string_view category = {});
    static std::shared_ptr<const vorn::RegisteredFilter> registeredFilter(std::string_view name);

    /// The image that the filter makes of its inputs; empty when it makes none. Nothing is thrown:
    /// where memory runs out, there is a line and no image.
    virtual CIImage outputImage() = 0;

    /// The host's frame time in nanoseconds; 0: the filter reads the clock itself. Filters without
    /// a motion of their own ignore it.
    virtual void setVornFrameTime(uint64_t nanoseconds);
    /// Drops what a filter keeps from frame to frame.
    virtual void clear();

    virtual const vorn::FilterClassInfo& filterClass() const = 0;

    const std::shared_ptr<vorn::Session>& session() const { return session_; }

    /// Sets an input. False when the class has no such input or the value is of another kind; a
    /// key that is advertised and that the class does not read is taken and ignored.
    bool setValueForKey(const vorn::InputValue& value, std::string_view key);
    /// The input's value; unset for an unknown key.
    vorn::InputValue valueForKey(std::string_view key) const;
    /// Sets every advertised input to the default of its attributes.
    void setDefaults();

    /// Applies a kernel as `CIKernel::applyWithExtent` does.
    static CIImage apply(const CIKernel& kernel, CGRect extent,
                         const vorn::RegionOfInterest& regionOfInterest,
                         vorn::KernelArguments arguments) {
        return kernel.applyWithExtent(extent, regionOfInterest, arguments);
    }

protected:
    CIFilter();

private:
    std::shared_ptr<vorn::Session> session_;
};

// ---- Declaring a filter -----------------------------------------------------------------------

namespace vorn::detail {

template <class Member>
constexpr InputKind kindOf() {
    if constexpr (std::is_same_v<Member, CIImage>)
        return InputKind::Image;
    else if constexpr (std::is_same_v<Member, Number>)
        return InputKind::Number;
    else if constexpr (std::is_same_v<Member, CIVector>)
        return InputKind::Vector;
    else if constexpr (std::is_same_v<Member, CIColor>)
        return InputKind::Color;
    else if constexpr (std::is_same_v<Member, Data>)
        return InputKind::Data;
    else if constexpr (std::is_same_v<Member, CGAffineTransform>)
        return InputKind::Transform;
    else {
        // As an input it is optional, since a text that is set may be empty.
        static_assert(std::is_same_v<Member, std::string> ||
                          std::is_same_v<Member, std::optional<std::string>>,
                      "not a kind of input");
        return InputKind::String;
    }
}

/// What an input holds when it is set.
template <class Member>
struct Held {
    using Type = Member;
};
template <class Value>
struct Held<std::optional<Value>> {
    using Type = Value;
};

template <class Filter, auto member>
constexpr InputInfo inputInfo(const char* key) {
    using Member = std::remove_cvref_t<decltype(std::declval<Filter>().*member)>;
    return {key, kindOf<Member>(),
            [](CIFilter& filter, const InputValue& value) {
                Member& slot = static_cast<Filter&>(filter).*member;
                if (std::holds_alternative<std::monostate>(value))
                    slot = Member{};
                else if (const auto* given = std::get_if<typename Held<Member>::Type>(&value))
                    slot = *given;
                else
                    return false;
                return true;
            },
            [](const CIFilter& filter) -> InputValue {
                const Member& slot = static_cast<const Filter&>(filter).*member;
                if constexpr (requires { slot.has_value(); })
                    return slot ? InputValue(*slot) : InputValue();
                else
                    return slot;
            }};
}

/// To be called where something has been caught: a line, for a filter in its session.
VORN_EXPORT void reportCaught(const CIFilter& filter) noexcept;
VORN_EXPORT void reportCaught(Class owner) noexcept;

/// Built once per class, so that setting inputs by key allocates nothing. Throws what its making
/// does, and so each time until it is whole.
template <class Filter>
const Attributes& wholeAttributesOf() {
    static const Attributes attributes = [] {
        Attributes made;
        if constexpr (requires { Filter::customAttributes(); }) made = Filter::customAttributes();
        for (const InputAttributes& input : made)
            if (input.key.empty() && input.entries.empty()) throw std::bad_alloc();
        return made;
    }();
    return attributes;
}
template <class Filter>
const Attributes& attributesOf() try {
    return wholeAttributesOf<Filter>();
} catch (...) {
    static const Attributes none;
    reportCaught(Filter::theClass());
    return none;
}

/// What the class tells, completed by what else is known of it.
template <class Filter>
const FilterGuide& guideOf() try {
    static const FilterGuide guide = [] {
        wholeAttributesOf<Filter>(); // which it is completed by
        FilterGuide told;
        if constexpr (requires { Filter::guide(); }) told = Filter::guide();
        told.takesFrameTime = !std::is_same_v<decltype(&Filter::setVornFrameTime),
                                              decltype(&CIFilter::setVornFrameTime)>;
        return completed(std::move(told), Filter::classInformation);
    }();
    return guide;
} catch (...) {
    static const FilterGuide none;
    reportCaught(Filter::theClass());
    return none;
}

struct ClassRegistration {
    explicit ClassRegistration(Class info) { registerClass(info); }
};

/// Makes a session current on this thread while it lives.
class VORN_EXPORT InSession {
public:
    explicit InSession(const Session& session);
    ~InSession();
    InSession(const InSession&) = delete;
    InSession& operator=(const InSession&) = delete;

private:
    void* outer_;
};

/// What hosts get of a filter class: its calls are made in the filter's session, and nothing that
/// it throws gets out.
template <class Filter>
class Guarded final : public Filter {
public:
    CIImage outputImage() override {
        CIImage image;
        guard([&] { image = Filter::outputImage(); });
        return image;
    }
    void setVornFrameTime(uint64_t nanoseconds) override {
        guard([&] { Filter::setVornFrameTime(nanoseconds); });
    }
    void clear() override {
        guard([&] { Filter::clear(); });
    }

    static CIFilterRef make() try {
        return CIFilterRef(new Guarded, [](Guarded* filter) {
            const std::shared_ptr<Session> session = filter->session(); // outlives the filter
            const InSession current(*session);
            delete filter;
        });
    } catch (...) {
        reportCaught(Filter::theClass());
        return nullptr;
    }

private:
    template <class Call>
    void guard(const Call& call) {
        const InSession current(*this->session());
        try {
            call();
        } catch (...) {
            reportCaught(*this);
        }
    }
};

} // namespace vorn::detail

// VORN_EACH(macro, c, x, y, ...) gives macro(c, x), macro(c, y), ... for up to 85 members: a step
// names its successor without calling it, and each rescan of the expansion takes one step more.
#define VORN_RESCAN_1(...) __VA_ARGS__
#define VORN_RESCAN_4(...) VORN_RESCAN_1(VORN_RESCAN_1(VORN_RESCAN_1(VORN_RESCAN_1(__VA_ARGS__))))
#define VORN_RESCAN_16(...) VORN_RESCAN_4(VORN_RESCAN_4(VORN_RESCAN_4(VORN_RESCAN_4(__VA_ARGS__))))
#define VORN_RESCAN(...) VORN_RESCAN_16(VORN_RESCAN_16(VORN_RESCAN_16(VORN_RESCAN_16(__VA_ARGS__))))
#define VORN_PARENTHESES ()
#define VORN_NEXT_STEP() VORN_STEP
#define VORN_STEP(macro, c, x, ...)                                                                \
    macro(c, x) __VA_OPT__(, VORN_NEXT_STEP VORN_PARENTHESES(macro, c, __VA_ARGS__))
#define VORN_EACH(macro, c, ...) VORN_RESCAN(VORN_STEP(macro, c, __VA_ARGS__))
#define VORN_INPUT(FilterClass, member)                                                            \
    ::vorn::detail::inputInfo<FilterClass, &FilterClass::member>(#member)

/// The library exports its filter classes by the information on them. A host that has filters of
/// its own decides for itself.
#ifndef VORN_FILTER_EXPORT
#define VORN_FILTER_EXPORT
#endif

/// Inside a filter class, after its inputs: names the class and its inputs, keys in this order.
#define VORN_FILTER(FilterClass, ...)                                                              \
    static std::span<const ::vorn::InputInfo> inputs() {                                           \
        static constexpr ::vorn::InputInfo table[] = {                                             \
            VORN_EACH(VORN_INPUT, FilterClass, __VA_ARGS__)};                                      \
        return table;                                                                              \
    }                                                                                              \
    VORN_FILTER_EXPORT static const ::vorn::FilterClassInfo classInformation;                      \
    static Class theClass() {                                                                      \
        return &classInformation.classInfo;                                                        \
    }                                                                                              \
    const ::vorn::FilterClassInfo& filterClass() const override {                                  \
        return classInformation;                                                                   \
    }

/// After a filter class, which is not final: makes the class known by its name.
#define VORN_REGISTER(FilterClass)                                                                 \
    constinit const ::vorn::FilterClassInfo FilterClass::classInformation{                         \
        {#FilterClass, &FilterClass::classInformation, &FilterClass::classInformation},            \
        &::vorn::detail::Guarded<FilterClass>::make,                                               \
        &::vorn::detail::attributesOf<FilterClass>,                                                \
        &FilterClass::inputs,                                                                      \
        &::vorn::detail::guideOf<FilterClass>,                                                     \
        ::vorn::detail::folderOf(__FILE__)};                                                       \
    static const ::vorn::detail::ClassRegistration registered##FilterClass{FilterClass::theClass()};

#endif // VORN_HAS_LANGUAGE
