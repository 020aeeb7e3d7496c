#include "chain_plan.h"

#include "catalogue/suggest.h"
#include "host_error.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

[[noreturn]] void refuse(const std::string& message) {
    throw HostError(ExitCode::Usage, message);
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

} // namespace vorn::hosts
