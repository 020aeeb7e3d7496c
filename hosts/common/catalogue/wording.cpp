#include "wording.h"

#include "vorneffects/ImageDescription.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

std::string attributeText(const InputAttributes& attributes, std::string_view name) {
    const AttributeValue* value = attributes.find(name);
    if (!value) return "-";
    const auto listText = [](const auto& held, size_t count, auto component) {
        std::vector<double> numbers(count);
        for (size_t i = 0; i < count; ++i) numbers[i] = component(held, i);
        return fmt::format("[{}]", fmt::join(numbers, ","));
    };
    return std::visit(
        [&](const auto& held) -> std::string {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, CIVector>)
                return listText(held, held.count(),
                                [](const CIVector& v, size_t i) { return v.valueAtIndex(i); });
            else if constexpr (std::is_same_v<Held, CIColor>)
                return fmt::format("[{},{},{},{}]", held.red(), held.green(), held.blue(),
                                   held.alpha());
            else
                return fmt::format("{}", held);
        },
        *value);
}

std::string startText(const ListedInput& input) {
    const auto* standard = std::get_if<double>(&input.guide.start);
    if (standard) return fmt::format("{:.4g}", *standard);
    if (const auto* text = std::get_if<std::string>(&input.guide.start))
        return fmt::format("\"{}\"", *text);
    return attributeText(input.attributes, kCIAttributeDefault);
}

std::string numberText(const std::optional<double>& number) {
    return number ? fmt::format("{:.4g}", *number) : "-";
}

std::string purposeOf(const ListedInput& input) {
    std::string text = input.guide.purpose;
    const auto add = [&](const char* note) {
        text += (text.empty() ? "" : "; ") + std::string(note);
    };
    if (input.guide.feed == InputFeed::Time) add("runs with the time");
    if (input.guide.feed == InputFeed::MediaTime) add("the time of the frame unless it is set");
    if (input.guide.feed == InputFeed::Tracking) add("from a tracker");
    if (input.guide.isDead)
        add("dead: advertised, but not read");
    else if (!input.isAdvertised && input.kind != InputKind::Image)
        add("not advertised");
    return text;
}

std::vector<std::string> factsOf(const FilterGuide& guide) {
    std::vector<std::string> facts;
    if (!guide.frameKey.empty() && guide.frameKey != "inputImage")
        facts.push_back("takes the frame as " + guide.frameKey);
    if (guide.movesByItself) facts.push_back("moves by itself");
    if (guide.takesFrameTime) facts.push_back("can follow the host's frame time");
    if (guide.framesRemembered > 0)
        facts.push_back(fmt::format("remembers {} earlier {}", guide.framesRemembered,
                                    guide.framesRemembered == 1 ? "picture" : "pictures"));
    else if (guide.keepsState)
        facts.push_back("keeps its place from frame to frame");
    if (guide.needsTransparency) facts.push_back("needs a picture that is transparent in places");
    if (guide.canFlash) facts.push_back("can flash quickly, which is not safe for everybody");
    return facts;
}

std::string exampleOf(const FilterEntry& entry) {
    const FilterGuide& guide = entry.guide();
    std::vector<Setting> settings;
    std::string more;
    for (const Setting& setting : guide.beginWith) {
        const auto input =
            std::find_if(guide.inputs.begin(), guide.inputs.end(),
                         [&](const InputGuide& known) { return known.key == setting.first; });
        if (input == guide.inputs.end() || input->feed != InputFeed::Time)
            settings.push_back(setting);
    }
    const char* before = guide.needsTransparency ? " --filter VECropOvalXYPosition:size=0.2" : "";
    bool isFilm = guide.movesByItself || guide.keepsState;
    for (const InputGuide& input : guide.inputs) {
        if (input.feed == InputFeed::Picture && input.key != guide.frameKey)
            more += fmt::format(" --image {}=second.png", input.key);
        if (input.feed == InputFeed::Time) {
            more += fmt::format(" --animate {}=0:{:.4g},2:{:.4g}", input.key,
                                input.from.value_or(0), input.to.value_or(1));
            isFilm = true;
        }
    }
    return fmt::format("vorn render test:1280x720@25,2s {}{} --filter {}{}{}{}",
                       isFilm ? "out.mp4" : "out.png", before, entry.name,
                       settings.empty() ? "" : ":", settingsText(settings), more);
}

namespace {

/// A frame of so many pixels, whose sides multiply to them exactly.
CIImage frameOf(double pixels) {
    constexpr double rows = 4096;
    return CIImage::imageWithColor(CIColor(0.5, 0.5, 0.5))
        .imageByCroppingToRect({0, 0, pixels / rows, rows});
}

constexpr double kSmallFrame = 1 << 16, kLargeFrame = 1 << 30;

/// The label on the picture that stands in for a frame of so many pixels; empty where it is taken.
std::string refusalOf(CIFilter& filter, const FilterEntry& entry, double pixels) {
    for (const ListedInput& input : listInputs(entry))
        if (input.kind == InputKind::Image)
            filter.setValueForKey(
                frameOf(input.key == entry.guide().frameKey ? pixels : kSmallFrame), input.key);
    const auto description = describeImage(filter.outputImage(), {0, 0, 1, 1});
    const bool isRefusal = description && description->kind == ImageDescription::Kind::ErrorImage;
    return isRefusal ? description->label : std::string();
}

/// Its label is empty where no frame is refused.
FrameLimit limitOf(CIFilter& filter, const FilterEntry& entry) {
    double taken = kSmallFrame, refused = kLargeFrame;
    const std::string label = refusalOf(filter, entry, refused);
    if (label.empty() || !refusalOf(filter, entry, taken).empty()) return {};
    while (refused - taken > 1) {
        const double middle = std::floor((taken + refused) / 2);
        (refusalOf(filter, entry, middle).empty() ? taken : refused) = middle;
    }
    return {{}, taken, label};
}

} // namespace

std::vector<FrameLimit> frameLimits(const FilterEntry& entry) {
    const CIFilterRef filter = makeFilter(entry);
    setStarts(*filter, entry);
    const FilterGuide& guide = entry.guide();
    std::vector<FrameLimit> limits;
    if (guide.modes.empty()) limits.push_back(limitOf(*filter, entry));
    for (const ModeGuide& mode : guide.modes) {
        filter->setValueForKey(Number(mode.value), guide.modeKey);
        const FrameLimit limit = limitOf(*filter, entry);
        auto same = std::find_if(limits.begin(), limits.end(), [&](const FrameLimit& other) {
            return other.pixels == limit.pixels && other.label == limit.label;
        });
        if (same == limits.end()) same = limits.insert(same, limit);
        same->modes.push_back(mode.name);
    }
    if (limits.size() == 1) limits[0].modes.clear();
    std::erase_if(limits, [](const FrameLimit& limit) { return limit.label.empty(); });
    return limits;
}

} // namespace vorn::hosts
