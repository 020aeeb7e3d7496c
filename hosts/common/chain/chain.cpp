#include "chain.h"

#include "host_error.h"
#include "printed_lines.h"

#include "vorneffects/ImageDescription.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace vorn::hosts {

Chain::Chain(const ChainPlan& plan) {
    PrintedLines printed;
    for (const ChainLink& link : plan.links()) {
        Stage stage{&link, makeFilter(link.entry)};
        setStarts(*stage.filter, link.entry);
        for (const auto& [key, value] : link.settings) stage.filter->setValueForKey(value, key);
        note(stage, printed.take());
        stages_.push_back(std::move(stage));
    }
}

CIImage Chain::apply(const CIImage& source, const std::vector<CIImage>& secondImages,
                     std::uint64_t nanoseconds, double seconds) {
    PrintedLines printed;
    CIImage image = source;
    for (const Stage& stage : stages_) {
        if (!stage.link->isAtWork(seconds)) continue;
        setInputs(stage, image, secondImages, nanoseconds, seconds);
        image = stage.filter->outputImage();
        const std::vector<std::string> lines = printed.take();
        if (!image) failWithoutImage(stage, lines);
        note(stage, lines);
        noteErrorImage(stage, image);
    }
    ++frames_;
    return image;
}

void Chain::setInputs(const Stage& stage, const CIImage& image,
                      const std::vector<CIImage>& secondImages, std::uint64_t nanoseconds,
                      double seconds) const {
    const ChainLink& link = *stage.link;
    // A filter that makes its picture by itself has no such key.
    stage.filter->setValueForKey(image, link.entry.guide().frameKey);
    for (const auto& [key, number] : link.images)
        stage.filter->setValueForKey(secondImages[number], key);
    for (const auto& [key, animation] : link.animations)
        stage.filter->setValueForKey(animation.valueAt(seconds), key);
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

void Chain::noteErrorImage(const Stage& stage, const CIImage& image) {
    const auto description = describeImage(image, image.extent());
    if (description && description->kind == ImageDescription::Kind::ErrorImage) {
        const std::string error = fmt::format("{} ({})", description->label, description->message);
        note(stage, {"shows an error picture instead of the film: " + error});
        ++errorPictures_[fmt::format("{} {}", stage.link->entry.name, error)];
    }
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
