#include "vorneffects/FilterGuide.h"

#include "platform/Messages.h"
#include "vorneffects/CIFilter.h"

#include <algorithm>
#include <cctype>

namespace vorn {
namespace {

/// Families in plain words; one that is not here goes by its folder's name.
constexpr std::pair<std::string_view, std::string_view> kFamilies[] = {
    {"color", "Colour and tone"},        {"generators", "Generated pictures"},
    {"geometry", "Geometry and motion"}, {"keying", "Keys"},
    {"shapes", "Shapes and soft edges"}, {"stylize", "Stylized pictures"},
    {"temporal", "Frames over time"},    {"transitions", "Transitions"},
    {"builtin", "The framework's own"},
};

std::string familyTitleOf(std::string_view folder) {
    for (const auto& [name, title] : kFamilies)
        if (name == folder) return std::string(title);
    return std::string(folder);
}

/// The words of a key: "x position" of "inputXPosition".
std::string labelOf(std::string_view key) {
    if (key.starts_with("input") && key.size() > 5) key.remove_prefix(5);
    std::string label;
    for (size_t i = 0; i < key.size(); ++i) {
        const auto letter = static_cast<unsigned char>(key[i]);
        const bool startsWord =
            std::isupper(letter) && i > 0 &&
            (!std::isupper(static_cast<unsigned char>(key[i - 1])) ||
             (i + 1 < key.size() && std::islower(static_cast<unsigned char>(key[i + 1]))));
        if (startsWord) label += ' ';
        label += static_cast<char>(std::tolower(letter));
    }
    return label;
}

const InputAttributes* attributesFor(const FilterClassInfo& info, std::string_view key) {
    for (const InputAttributes& attributes : info.customAttributes())
        if (attributes.key == key) return &attributes;
    return nullptr;
}

const InputInfo* inputFor(const FilterClassInfo& info, std::string_view key) {
    for (const InputInfo& input : info.inputs())
        if (input.key == key) return &input;
    return nullptr;
}

template <class Value>
const Value* attribute(const InputAttributes& attributes, const char* name) {
    const AttributeValue* value = attributes.find(name);
    return value ? std::get_if<Value>(value) : nullptr;
}

void addAttributes(InputGuide& input, const InputAttributes& attributes) {
    if (const auto* label = attribute<std::string>(attributes, kCIAttributeDisplayName);
        label && input.label.empty())
        input.label = *label;
    if (const auto* from = attribute<double>(attributes, kCIAttributeSliderMin);
        from && !input.from)
        input.from = *from;
    if (const auto* to = attribute<double>(attributes, kCIAttributeSliderMax); to && !input.to)
        input.to = *to;
    const AttributeValue* start = attributes.find(kCIAttributeDefault);
    if (start && std::holds_alternative<std::monostate>(input.start))
        std::visit([&](const auto& value) { input.start = value; }, *start);
}

bool needsRange(const InputGuide& input, const InputInfo* info) {
    return !info || info->kind == InputKind::Number || input.feed == InputFeed::Time;
}

} // namespace

const char* inputFeedName(InputFeed feed) {
    constexpr const char* names[] = {"setting", "picture",  "time",
                                     "data",    "tracking", "media time"};
    const auto index = static_cast<size_t>(feed);
    return index < std::size(names) ? names[index] : "unknown";
}

FilterGuide detail::completed(FilterGuide told, const FilterClassInfo& info) {
    told.family = info.folder.text;
    told.familyTitle = familyTitleOf(told.family);
    for (size_t i = 0; i < told.modes.size(); ++i)
        if (std::isnan(told.modes[i].value)) told.modes[i].value = static_cast<double>(i);

    std::vector<InputGuide> inputs;
    const auto take = [&](std::string_view key) {
        const auto place = std::find_if(told.inputs.begin(), told.inputs.end(),
                                        [&](const InputGuide& input) { return input.key == key; });
        if (place == told.inputs.end()) {
            inputs.push_back({.key = std::string(key)});
        } else {
            inputs.push_back(std::move(*place));
            told.inputs.erase(place);
        }
        return &inputs.back();
    };
    for (const InputInfo& input : info.inputs()) {
        InputGuide& guide = *take(input.key);
        if (input.kind == InputKind::Image) guide.feed = InputFeed::Picture;
        if (input.kind == InputKind::Data) guide.feed = InputFeed::Data;
        if (guide.key == told.frameKey && guide.purpose.empty()) guide.purpose = "the frame";
        if (guide.key == told.modeKey && !told.modes.empty()) {
            guide.from = told.modes.front().value;
            guide.to = told.modes.back().value;
        }
    }
    for (const InputAttributes& attributes : info.customAttributes())
        if (!inputFor(info, attributes.key)) take(attributes.key);
    for (InputGuide& input : inputs) {
        if (const InputAttributes* attributes = attributesFor(info, input.key))
            addAttributes(input, *attributes);
        if (input.label.empty()) input.label = labelOf(input.key);
    }
    // Those of no input of the class stay, for `guideProblems` to name.
    std::move(told.inputs.begin(), told.inputs.end(), std::back_inserter(inputs));
    told.inputs = std::move(inputs);
    return told;
}

std::vector<std::string> guideProblems(const FilterClassInfo& info) try {
    const FilterGuide& guide = info.guide();
    std::vector<std::string> problems;
    const auto add = [&](const std::string& problem) {
        problems.push_back(std::string(info.classInfo.name) + ": " + problem);
    };
    if (guide.title.empty()) add("its guide gives no title");
    if (guide.sentence.empty() || !guide.sentence.ends_with('.'))
        add("its guide gives no sentence that ends with a full stop");
    if (guide.tags.empty()) add("its guide gives no tags");
    if (!guide.frameKey.empty() && !inputFor(info, guide.frameKey))
        add("it has no input \"" + guide.frameKey + "\" for the frame");
    if (!guide.modes.empty() && !inputFor(info, guide.modeKey))
        add("it has no input \"" + guide.modeKey + "\" for its modes");
    for (const ModeGuide& mode : guide.modes)
        if (mode.name.empty()) add("a mode of its guide has no name");
    for (const Setting& setting : guide.beginWith)
        if (!inputFor(info, setting.first))
            add("its guide begins with \"" + setting.first + "\", which is no input of it");
    for (const InputGuide& input : guide.inputs) {
        const auto addTo = [&](const char* problem) { add("\"" + input.key + "\" " + problem); };
        const InputInfo* read = inputFor(info, input.key);
        const InputAttributes* advertised = attributesFor(info, input.key);
        if (!read && !advertised)
            addTo("of its guide is no input of it");
        else if (!read && !input.isDead)
            addTo("is advertised, but is no input of it");
        if (std::none_of(input.label.begin(), input.label.end(),
                         [](unsigned char letter) { return std::isalpha(letter); }))
            addTo("has no label");
        const bool isFed = input.feed == InputFeed::Picture || input.feed == InputFeed::Data ||
                           input.feed == InputFeed::Tracking;
        if (isFed && input.purpose.empty()) addTo("does not say what it is for");
        if (isFed) continue;
        if (needsRange(input, read) && !(input.from && input.to)) addTo("has no range");
        if (std::holds_alternative<std::monostate>(input.start)) addTo("has nothing to begin with");
    }
    return problems;
} catch (...) {
    reportCaught(info.classInfo.name);
    return {};
}

} // namespace vorn
