#include "render_chain.h"

#include "commands.h"
#include "output.h"
#include "render_text.h"
#include "suggest.h"
#include "values.h"

#include "vorneffects/ImageDescription.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include <fmt/format.h>

namespace vorn::cli {

namespace {

[[noreturn]] void refuse(const std::string& message) {
    throw CommandError(ExitCode::Usage, message);
}

/// "intensity" as "inputIntensity".
std::string withPrefix(std::string_view key) {
    std::string full = "input" + std::string(key);
    if (!key.empty()) full[5] = static_cast<char>(std::toupper(static_cast<unsigned char>(key[0])));
    return full;
}

/// The input that a key means: itself, or the one with "input" before it.
std::optional<ListedInput> findInput(const FilterEntry& entry, std::string_view key) {
    const std::vector<ListedInput> inputs = listInputs(entry);
    for (const std::string& wanted : {std::string(key), withPrefix(key)}) {
        for (const ListedInput& input : inputs) {
            if (input.key == wanted) return input;
        }
    }
    return {};
}

/// What can be set besides the frame: the images or the other inputs.
std::vector<std::string> inputKeys(const FilterEntry& entry, bool images) {
    std::vector<std::string> keys;
    for (const ListedInput& input : listInputs(entry)) {
        if ((input.kind == InputKind::Image) == images && input.key != entry.guide().frameKey) {
            keys.push_back(input.key);
        }
    }
    return keys;
}

std::string listed(const std::vector<std::string>& words) {
    return fmt::format("{}", fmt::join(words, ", "));
}

/// The nearest of the keys, else all of them.
std::string keySuggestion(std::string_view key, const std::vector<std::string>& keys) {
    std::string hint = suggestion(key, keys);
    if (hint.empty()) hint = suggestion(withPrefix(key), keys);
    if (hint.empty() && !keys.empty()) hint = "; there is " + listed(keys);
    return hint;
}

} // namespace

void ChainPlan::addFilter(std::string_view text) {
    const size_t colon = text.find(':');
    ChainLink link{findFilter(text.substr(0, colon)), {}, {}, {}};
    if (colon != std::string_view::npos) {
        for (const std::string& part : splitOutsideBrackets(text.substr(colon + 1), ',')) {
            const std::string option = "--filter " + link.entry.name;
            const auto [key, valueText] = splitOnce(part, '=', option);
            const std::optional<ListedInput> input = findInput(link.entry, key);
            if (!input) {
                std::vector<std::string> keys = inputKeys(link.entry, false);
                refuse(fmt::format("{} has no input \"{}\"{}", link.entry.name, key,
                                   keySuggestion(key, keys)));
            }
            if (input->kind == InputKind::Image) {
                refuse(input->key == link.entry.guide().frameKey
                           ? fmt::format("{}: {} is the picture that the chain hands on", option,
                                         input->key)
                           : fmt::format("{}: {} is an image, set it with --image {}=FILE", option,
                                         input->key, input->key));
            }
            InputValue value = parseValue(valueText, fmt::format("{} {}", option, key));
            checkInput(link.entry, input->key, value, option);
            link.settings.emplace_back(input->key, std::move(value));
        }
    }
    links_.push_back(std::move(link));
}

std::vector<ChainPlan::Target> ChainPlan::targets(std::string_view address, bool images,
                                                  std::string_view option) {
    const size_t dot = address.find('.');
    const std::string_view key = dot == std::string_view::npos ? address : address.substr(dot + 1);
    const std::string who(dot == std::string_view::npos ? "" : address.substr(0, dot));
    if (links_.empty()) refuse(fmt::format("{} {}: there is no --filter", option, address));

    std::vector<Target> found;
    std::vector<std::string> keys, names;
    bool isSomebodyMeant = false;
    for (size_t i = 0; i < links_.size(); ++i) {
        ChainLink& link = links_[i];
        names.push_back(link.entry.name);
        const bool isMeant = who.empty() || who == link.entry.name || who == std::to_string(i + 1);
        if (!isMeant) continue;
        isSomebodyMeant = true;
        const std::vector<std::string> own = inputKeys(link.entry, images);
        keys.insert(keys.end(), own.begin(), own.end());
        const std::optional<ListedInput> input = findInput(link.entry, key);
        if (input && std::find(own.begin(), own.end(), input->key) != own.end()) {
            found.push_back({&link, input->key});
        }
    }
    if (!isSomebodyMeant) {
        refuse(fmt::format("{} {}: \"{}\" is not in the chain of {} filters{}", option, address,
                           who, links_.size(), suggestion(who, names)));
    }
    if (found.empty()) {
        refuse(fmt::format("{} {}: {} no {} \"{}\"{}", option, address,
                           who.empty() ? "the filters have" : who + " has",
                           images ? "image input" : "input", key, keySuggestion(key, keys)));
    }
    return found;
}

void ChainPlan::addImage(std::string_view text) {
    const auto [address, name] = splitOnce(text, '=', "--image");
    for (const Target& target : targets(address, true, "--image")) {
        std::erase_if(target.link->images,
                      [&](const auto& image) { return image.first == target.key; });
        target.link->images.emplace_back(target.key, imageNames_.size());
    }
    imageNames_.push_back(name);
}

void ChainPlan::addAnimation(std::string_view text) {
    const auto [address, keyframes] = splitOnce(text, '=', "--animate");
    const std::vector<Target> found = targets(address, false, "--animate");
    if (found.size() > 1) {
        std::vector<std::string> forms;
        for (const Target& target : found) {
            forms.push_back(fmt::format("{}.{}", target.link - links_.data() + 1, target.key));
        }
        refuse(fmt::format("--animate {}: several filters have that input; say {}", address,
                           fmt::join(forms, " or ")));
    }
    Animation animation(keyframes, "--animate " + address);
    checkInput(found[0].link->entry, found[0].key, animation.first().value, "--animate");
    found[0].link->animations.emplace_back(found[0].key, std::move(animation));
}

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
        // A filter that makes its picture by itself has no such key.
        stage.filter->setValueForKey(image, stage.link->entry.guide().frameKey);
        for (const auto& [key, number] : stage.link->images) {
            stage.filter->setValueForKey(secondImages[number], key);
        }
        for (const auto& [key, animation] : stage.link->animations) {
            stage.filter->setValueForKey(animation.valueAt(seconds), key);
        }
        stage.filter->setVornFrameTime(nanoseconds);
        image = stage.filter->outputImage();
        const std::vector<std::string> lines = printed.take();
        if (!image) failWithoutImage(stage, lines);
        note(stage, lines);
        noteErrorImage(stage, image);
    }
    ++frames_;
    return image;
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
    std::string reason = lines.empty() ? "" : ": " + listed(lines);
    std::vector<std::string> unset;
    for (const std::string& key : inputKeys(stage.link->entry, true)) {
        const InputValue value = stage.filter->valueForKey(key);
        const auto* image = std::get_if<CIImage>(&value);
        if (!image || !*image) unset.push_back(key);
    }
    if (!unset.empty()) reason += fmt::format(" (without --image: {})", listed(unset));
    throw CommandError(ExitCode::Failed,
                       fmt::format("{} gives no image{}", stage.link->entry.name, reason));
}

} // namespace vorn::cli
