#include "chain.h"

#include "host_error.h"
#include "printed_lines.h"

#include "vorneffects/ImageDescription.h"
#include "vorneffects/ImagePromise.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace vorn::hosts {

namespace {

/// The weights of a region as shades of grey.
CIImage maskOf(const Region& region, CGRect frame) {
    const int width = static_cast<int>(frame.width), height = static_cast<int>(frame.height);
    const auto pixels = std::make_shared<std::vector<unsigned char>>();
    pixels->reserve(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
    for (const unsigned char weight : drawRegion(region, width, height))
        pixels->insert(pixels->end(), {weight, weight, weight, 255});
    return CIImage::imageWithBitmap(pixels->data(), static_cast<uint32_t>(width),
                                    static_cast<uint32_t>(height), static_cast<size_t>(width) * 4,
                                    CIFormat::RGBA8, CGColorSpace::SRGB, pixels,
                                    {frame.x, frame.y});
}

} // namespace

Chain::Chain(const ChainPlan& plan) {
    PrintedLines printed;
    for (const ChainLink& link : plan.links()) {
        Stage stage{&link, makeFilter(link.entry)};
        setStarts(*stage.filter, link.entry);
        for (const auto& [key, value] : link.settings) {
            stage.filter->setValueForKey(value, key);
            noteRange(stage, key, value);
        }
        note(stage, printed.take());
        stages_.push_back(std::move(stage));
    }
}

CIImage Chain::apply(const CIImage& source, const std::vector<CIImage>& secondImages,
                     std::uint64_t nanoseconds, double seconds) {
    PrintedLines printed;
    CIImage image = source;
    for (Stage& stage : stages_) {
        if (!stage.link->isAtWork(seconds)) continue;
        setInputs(stage, image, secondImages, nanoseconds, seconds);
        const CIImage before = std::exchange(image, stage.filter->outputImage());
        const std::vector<std::string> lines = printed.take();
        if (!image) failWithoutImage(stage, lines);
        note(stage, lines);
        noteErrorImage(stage, image);
        noteChange(stage, before, image);
        if (stage.link->mask) image = masked(stage, image, before, secondImages, source.extent());
    }
    ++frames_;
    return image;
}

CIImage Chain::masked(Stage& stage, const CIImage& image, const CIImage& before,
                      const std::vector<CIImage>& secondImages, CGRect frame) {
    const Mask& mask = *stage.link->mask;
    if (mask.region && stage.drawnMask.extent() != frame)
        stage.drawnMask = maskOf(*mask.region, frame);
    const bool isAlpha = !mask.region && mask.channel == MaskChannel::Alpha;
    const CIFilterRef blend =
        CIFilter::filterWithName(isAlpha ? "CIBlendWithAlphaMask" : "CIBlendWithMask");
    // What lies beyond the frame is not the mask's to show, and may have no end.
    const CIImage within = image.imageByCroppingToRect(before.extent().unionWith(frame));
    blend->setValueForKey(mask.isInverted ? before : within, "inputImage");
    blend->setValueForKey(mask.isInverted ? within : before, "inputBackgroundImage");
    blend->setValueForKey(mask.region ? stage.drawnMask : secondImages[mask.picture],
                          "inputMaskImage");
    const CIImage blended = blend->outputImage();
    if (!blended) throw HostError(ExitCode::Failed, "the mask cannot be laid over the picture");
    return blended;
}

void Chain::setInputs(const Stage& stage, const CIImage& image,
                      const std::vector<CIImage>& secondImages, std::uint64_t nanoseconds,
                      double seconds) {
    const ChainLink& link = *stage.link;
    // A filter that makes its picture by itself has no such key.
    stage.filter->setValueForKey(image, link.entry.guide().frameKey);
    for (const auto& [key, number] : link.images)
        stage.filter->setValueForKey(secondImages[number], key);
    for (const auto& [key, animation] : link.animations) {
        const InputValue value = animation.valueAt(seconds);
        stage.filter->setValueForKey(value, key);
        noteRange(stage, key, value);
    }
    stage.filter->setVornFrameTime(nanoseconds);
    setMediaTime(*stage.filter, link.entry, nanoseconds, [&](const std::string& key) {
        const auto isIt = [&](const auto& set) { return set.first == key; };
        return std::any_of(link.settings.begin(), link.settings.end(), isIt) ||
               std::any_of(link.animations.begin(), link.animations.end(), isIt);
    });
}

std::vector<std::string> Chain::takeMessages() {
    return std::exchange(messages_, {});
}

void Chain::note(const Stage& stage, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        constexpr size_t most = 100;
        if (said_.size() == most) return; // somebody says something new at every frame
        std::string message = fmt::format("{}: {}", stage.link->entry.name, line);
        if (said_.insert(message).second) messages_.push_back(std::move(message));
    }
}

namespace {

/// How far a slider runs: by its attributes and by the guide, which knows the modes.
std::optional<std::pair<double, double>> sliderOf(const FilterEntry& entry,
                                                  const std::string& key) {
    for (const ListedInput& input : listInputs(entry)) {
        const InputGuide& guide = input.guide;
        const bool isSlider = guide.feed == InputFeed::Setting || guide.feed == InputFeed::Time;
        if (input.key != key || !isSlider || !guide.from || !guide.to) continue;
        const auto advertised = [&](const char* name, double otherwise) {
            const AttributeValue* value = input.attributes.find(name);
            const auto* number = value ? std::get_if<double>(value) : nullptr;
            return number ? *number : otherwise;
        };
        return std::pair(std::min(*guide.from, advertised(kCIAttributeSliderMin, *guide.from)),
                         std::max(*guide.to, advertised(kCIAttributeSliderMax, *guide.to)));
    }
    return {};
}

/// What else to try with a filter that does nothing; nothing where that is what it is at.
std::string advice(const ChainLink& link) {
    const auto isSet = [&](const Setting& wanted) {
        return std::any_of(link.settings.begin(), link.settings.end(), [&](const auto& set) {
            const auto* number = std::get_if<Number>(&set.second);
            return set.first == wanted.first && number && number->doubleValue() == wanted.second;
        });
    };
    const std::vector<Setting>& settings = link.entry.guide().beginWith;
    if (std::all_of(settings.begin(), settings.end(), isSet)) return {};
    return fmt::format("; to see it, try {}:{}", link.entry.name, settingsText(settings));
}

} // namespace

/// Hosts may set what they like; people who leave a slider's range may have mistaken its unit.
void Chain::noteRange(const Stage& stage, const std::string& key, const InputValue& value) {
    const auto* number = std::get_if<Number>(&value);
    if (!number || !number->isSet() || toldRanges_.contains({stage.link, key})) return;
    const auto slider = sliderOf(stage.link->entry, key);
    if (!slider) return;
    const auto [from, to] = *slider;
    const double v = number->doubleValue();
    constexpr double rounding = 1e-6; // of formulas and single floats
    const double slack = rounding * (std::fabs(from) + std::fabs(to));
    if (v >= from - slack && v <= to + slack) return;
    toldRanges_.insert({stage.link, key});
    note(stage, {fmt::format("{} of {:.6g} is used, though the slider runs from {:.6g} to {:.6g}",
                             key, v, from, to)});
}

void Chain::noteChange(Stage& stage, const CIImage& before, const CIImage& after) {
    ++stage.frames;
    if (!isKnownToEqual(after, before)) return;
    const FilterGuide& guide = stage.link->entry.guide();
    const bool staysSo = stage.link->animations.empty() && !guide.movesByItself &&
                         !guide.keepsState && !guide.takesFrameTime;
    if (++stage.unchanged == 1 && staysSo)
        note(stage, {"changes nothing at these settings" + advice(*stage.link)});
}

void Chain::noteErrorImage(const Stage& stage, const CIImage& image) {
    const auto description = describeImage(image, image.extent());
    if (description && description->kind == ImageDescription::Kind::ErrorImage) {
        const std::string error = fmt::format("{} ({})", description->label, description->message);
        note(stage, {"shows an error picture instead of the film: " + error});
        ++errorPictures_[fmt::format("{} {}", stage.link->entry.name, error)];
    }
}

std::vector<std::string> Chain::remarks() const {
    std::vector<std::string> lines;
    for (const Stage& stage : stages_) {
        const std::string& name = stage.link->entry.name;
        if (stage.frames == 0 && frames_ > 0)
            lines.push_back(name + ": no frame lies in the time in which it works");
        const bool isTold =
            said_.contains(name + ": changes nothing at these settings" + advice(*stage.link));
        if (stage.frames == 0 || stage.unchanged < stage.frames || isTold) continue;
        const bool needsMore = stage.frames == 1 && stage.link->entry.guide().keepsState;
        lines.push_back(name + (needsMore
                                    ? ": changed nothing; it works from frame to frame, and "
                                      "there is one"
                                    : ": changed nothing in any frame" + advice(*stage.link)));
    }
    return lines;
}

std::vector<std::string> Chain::errorPictures() const {
    std::vector<std::string> lines;
    for (const auto& [error, count] : errorPictures_) {
        lines.push_back(fmt::format("{} of {} frame{} {} the error picture of {}", count, frames_,
                                    frames_ == 1 ? "" : "s", count == 1 ? "is" : "are", error));
    }
    return lines;
}

void Chain::failWithoutImage(const Stage& stage, const std::vector<std::string>& lines) const {
    std::string reason = lines.empty() ? "" : ": " + fmt::format("{}", fmt::join(lines, ", "));
    std::vector<std::string> unset;
    for (const std::string& key : inputKeys(stage.link->entry, true)) {
        const InputValue value = stage.filter->valueForKey(key);
        const auto* image = std::get_if<CIImage>(&value);
        if (!image || !*image) unset.push_back(key);
    }
    if (!unset.empty()) reason += fmt::format(" (without --image: {})", fmt::join(unset, ", "));
    throw HostError(ExitCode::Failed,
                    fmt::format("{} gives no image{}", stage.link->entry.name, reason));
}

} // namespace vorn::hosts
