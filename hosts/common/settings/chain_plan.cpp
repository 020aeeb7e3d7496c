#include "chain_plan.h"

#include "catalogue/suggest.h"
#include "host_error.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
}

/// The input that a key means; a usage error for a key that is none and for pictures.
ListedInput settableInput(const FilterEntry& entry, std::string_view key, std::string_view where) {
    const std::optional<ListedInput> input = findInput(entry, key);
    if (!input) {
        refuse(fmt::format("{}: {} has no input \"{}\"{}", where, entry.name, key,
                           keySuggestion(key, inputKeys(entry, false))));
    }
    if (input->kind != InputKind::Image) return *input;
    refuse(input->key == entry.guide().frameKey
               ? fmt::format("{}: {} is the picture that the chain hands on", where, input->key)
               : fmt::format("{}: {} is an image, set it with --image {}=FILE, in a file by "
                             "\"images\"",
                             where, input->key, input->key));
}

void unset(ChainLink& link, const std::string& key) {
    const auto isIt = [&](const auto& set) { return set.first == key; };
    std::erase_if(link.settings, isIt);
    std::erase_if(link.animations, isIt);
}

} // namespace

bool ChainLink::isAtWork(double seconds) const {
    constexpr double tolerance = 0.0005;
    if (!during) return true;
    return seconds >= during->startSeconds - tolerance &&
           (!during->endSeconds || seconds < *during->endSeconds - tolerance);
}

void ChainPlan::addLink(std::string_view name, std::string_view where) {
    constexpr size_t most = 256;
    const std::string before = where.empty() ? "" : fmt::format("{}: ", where);
    if (links_.size() == most)
        refuse(fmt::format("{}a chain has at most {} filters", before, most));
    try {
        links_.push_back({findFilter(name), {}, {}, {}, {}, {}});
    } catch (const HostError& error) {
        throw HostError(error.code(), before + error.what());
    }
}

void ChainPlan::set(std::string_view key, InputValue value, std::string_view where) {
    ChainLink& link = links_.back();
    const ListedInput input = settableInput(link.entry, key, where);
    checkInput(link.entry, input.key, value, where);
    unset(link, input.key);
    link.settings.emplace_back(input.key, std::move(value));
}

void ChainPlan::animate(std::string_view key, Animation animation, std::string_view where) {
    ChainLink& link = links_.back();
    const ListedInput input = settableInput(link.entry, key, where);
    checkInput(link.entry, input.key, animation.example(), where);
    unset(link, input.key);
    link.animations.emplace_back(input.key, std::move(animation));
}

void ChainPlan::setImage(std::string_view key, SecondPicture picture, std::string_view where) {
    ChainLink& link = links_.back();
    const std::vector<std::string> keys = inputKeys(link.entry, true);
    const std::optional<ListedInput> input = findInput(link.entry, key);
    if (!input || std::find(keys.begin(), keys.end(), input->key) == keys.end()) {
        refuse(fmt::format("{}: {} has no image input \"{}\"{}", where, link.entry.name, key,
                           keySuggestion(key, keys)));
    }
    link.images.emplace_back(input->key, pictures_.size());
    picture.placement.usualFit = usualFitOf(input->key);
    pictures_.push_back(std::move(picture));
}

std::vector<std::string> ChainPlan::imageNames() const {
    std::vector<std::string> names;
    for (const SecondPicture& picture : pictures_) names.push_back(picture.name);
    return names;
}

void ChainPlan::addFilter(std::string_view text) {
    const size_t colon = text.find(':');
    addLink(text.substr(0, colon));
    if (colon == std::string_view::npos) return;
    const std::string option = "--filter " + links_.back().entry.name;
    for (const std::string& part : splitOutsideBrackets(text.substr(colon + 1), ',')) {
        const auto [key, value] = splitOnce(part, '=', option);
        settableInput(links_.back().entry, key, option); // before what is wrong with its value
        const std::string where = fmt::format("{} {}", option, key);
        if (std::optional<Animation> animation = Animation::formulas(value, where))
            animate(key, *std::move(animation), where);
        else
            set(key, parseValue(value, where), option);
    }
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
    const auto [address, file] = splitOnce(text, '=', "--image");
    const std::string where = "--image " + address;
    const auto [name, options] = splitOptions(file, where);
    SecondPicture picture{name, {}};
    for (const auto& [key, value] : options) {
        if (setPlacement(picture.placement, key, value, where)) continue;
        refuse(fmt::format("{}: a picture has no option \"{}\"; there is fit, at and scale", where,
                           key));
    }
    for (const Target& target : targets(address, true, "--image")) {
        std::erase_if(target.link->images,
                      [&](const auto& image) { return image.first == target.key; });
        target.link->images.emplace_back(target.key, pictures_.size());
        picture.placement.usualFit = usualFitOf(target.key);
    }
    pictures_.push_back(picture);
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
    const std::string where = "--animate " + address;
    Animation animation = Animation::parse(keyframes, where);
    checkInput(found[0].link->entry, found[0].key, animation.example(), "--animate");
    unset(*found[0].link, found[0].key);
    found[0].link->animations.emplace_back(found[0].key, std::move(animation));
}

ChainLink& ChainPlan::linkNamed(std::string_view who, std::string_view option) {
    ChainLink* found = nullptr;
    std::vector<std::string> names;
    for (size_t i = 0; i < links_.size(); ++i) {
        names.push_back(links_[i].entry.name);
        if (who == std::to_string(i + 1)) return links_[i];
        if (who != names.back()) continue;
        if (found)
            refuse(fmt::format("{}: there are several {}; say 1 for the first filter of the "
                               "chain, 2 for the second",
                               option, who));
        found = &links_[i];
    }
    if (found) return *found;
    refuse(fmt::format("{}: \"{}\" is not in the chain of {} filters{}", option, who, links_.size(),
                       suggestion(who, names)));
}

void ChainPlan::addRange(std::string_view text) {
    if (links_.empty()) refuse(fmt::format("--during {}: there is no --filter", text));
    const size_t place = text.find('=');
    const std::string option = fmt::format("--during {}", text);
    if (place == std::string_view::npos && links_.size() > 1)
        refuse(option + ": the chain has several filters; say N=START-END");
    ChainLink& link =
        place == std::string_view::npos ? links_[0] : linkNamed(text.substr(0, place), option);
    link.during =
        parseRange(place == std::string_view::npos ? text : text.substr(place + 1), "--during");
}

void ChainPlan::maskBy(ChainLink& link, Mask mask, SecondPicture picture) {
    picture.placement.usualFit = Fit::Stretch;
    mask.picture = pictures_.size();
    pictures_.push_back(std::move(picture));
    link.mask = mask;
}

void ChainPlan::addMask(std::string_view text) {
    if (links_.empty()) refuse(fmt::format("--mask {}: there is no --filter", text));
    // Files may have "=" in their names; what stands before it is a filter if it is one word.
    const size_t place = text.find('=');
    const auto isOfWord = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
    const bool isNamed =
        place != std::string_view::npos && place > 0 &&
        std::all_of(text.begin(), text.begin() + static_cast<long>(place), isOfWord);
    const std::string option = fmt::format("--mask {}", text);
    if (!isNamed && links_.size() > 1)
        refuse(option + ": the chain has several filters; say N=MASK");
    ChainLink& link = isNamed ? linkNamed(text.substr(0, place), option) : links_[0];
    const auto [name, options] = splitOptions(isNamed ? text.substr(place + 1) : text, option);

    Mask mask;
    SecondPicture picture{name, {}};
    mask.region = parseRegion(name, "--mask");
    for (const auto& [key, value] : options) {
        if (key == "invert" && (value == "yes" || value == "no")) {
            mask.isInverted = value == "yes";
        } else if (!mask.region && key == "channel") {
            mask.channel = parseMaskChannel(value, "--mask channel");
        } else if (mask.region || !setPlacement(picture.placement, key, value, "--mask")) {
            refuse(fmt::format("{}: {} has no option \"{}={}\"; there is {}invert=yes", option,
                               mask.region ? "a region" : "a mask", key, value,
                               mask.region ? "" : "channel, fit, at, scale, "));
        }
    }
    if (name.empty()) refuse(option + ": a file is wanted, ellipse(...) or rectangle(...)");
    if (mask.region)
        link.mask = mask;
    else
        maskBy(link, mask, std::move(picture));
}

} // namespace vorn::hosts
