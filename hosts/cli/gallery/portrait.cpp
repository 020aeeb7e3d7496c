#include "portrait.h"

#include "settings/chain_file.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

constexpr int kSliderPictures = 5;
constexpr const char* kMixer = "inputMixer";

std::optional<double> numberOf(const ListedInput& input, const char* attribute) {
    const AttributeValue* value = input.attributes.find(attribute);
    const auto* number = value ? std::get_if<double>(value) : nullptr;
    return number && std::isfinite(*number) ? std::optional(*number) : std::nullopt;
}

struct Slider {
    std::string key, label;
    double from = 0, to = 1;

    double at(double share) const { return from + share * (to - from); }
};

std::vector<Slider> slidersOf(const std::vector<ListedInput>& inputs) {
    std::vector<Slider> sliders;
    for (const ListedInput& input : inputs) {
        const auto from = numberOf(input, kCIAttributeSliderMin);
        const auto to = numberOf(input, kCIAttributeSliderMax);
        if (!from || !to || input.kind != InputKind::Number) continue;
        sliders.push_back({input.key, input.guide.label, *from, *to});
    }
    return sliders;
}

/// Makes one filter's pictures.
class Portrait {
public:
    Portrait(Studio& studio, const FilterEntry& entry, std::string folder)
        : studio_(studio), folder_(std::move(folder)) {
        filter_.entry = entry;
        filter_.inputs = listInputs(entry);
        sliders_ = slidersOf(filter_.inputs);
        standard_ = raised_ = guide().beginWith;
        if (!standard_.empty()) return;
        for (const Slider& slider : sliders_) {
            if (slider.key == modeKey()) continue;
            raised_.emplace_back(slider.key, slider.at(slider.key == kMixer ? 1 : 0.75));
        }
    }

    GalleryFilter made() {
        bool hasTarget = false;
        std::string fade;
        for (const InputGuide& input : guide().inputs) {
            if (input.feed == InputFeed::Time) fade = input.key;
            hasTarget =
                hasTarget || (input.feed == InputFeed::Picture && input.key != guide().frameKey);
        }
        if (!hasTarget) fade.clear();
        if (!fade.empty()) filter_.traits.push_back("transition");
        if (hasTarget && fade.empty()) filter_.traits.push_back("mixes two images");
        addLead(fade);
        addModes();
        addSlider();
        if (isTransparent_) filter_.traits.push_back("makes transparency");
        return std::move(filter_);
    }

private:
    const FilterGuide& guide() const { return filter_.entry.guide(); }
    /// Nothing where there are no modes.
    std::string modeKey() const { return guide().modes.empty() ? "" : guide().modeKey; }
    const Slider* slider(const std::string& key) const {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(),
                                        [&](const Slider& s) { return s.key == key; });
        return place == sliders_.end() ? nullptr : &*place;
    }

    /// Whether what a filter makes of a frame depends on the frames before, on the time since it
    /// was made, or on the frame time.
    bool moves(const Settings& settings) {
        const Pixels lived = studio_.film(filter_, settings, {0, kStillFrame + 1}).back();
        if (lived != studio_.film(filter_, settings, {kStillFrame, 1}).back()) return true;
        const bool takesMediaTime =
            std::any_of(guide().inputs.begin(), guide().inputs.end(),
                        [](const InputGuide& input) { return input.feed == InputFeed::MediaTime; });
        if (!guide().takesFrameTime && !takesMediaTime) return false;
        const Film held = studio_.film(filter_, settings, {0, kFrames, {}, true});
        return std::any_of(held.begin(), held.end(),
                           [&](const Pixels& pixels) { return pixels != held[0]; });
    }

    Pixels still(const Settings& settings) {
        if (!moves_) return studio_.film(filter_, settings, {kStillFrame, 1}).back();
        return studio_.film(filter_, settings, {0, kStillFrame + 1}).back();
    }
    bool looksLikeSource(const Pixels& pixels) const {
        return lookAlike(pixels, studio_.sourcePixels[kStillFrame]);
    }

    std::string picture(const std::string& suffix, const Film& film) {
        const std::string file = "pictures/" + filter_.entry.name + suffix;
        write(folder_ + "/" + file, film);
        isTransparent_ = isTransparent_ || !std::all_of(film.begin(), film.end(), isOpaque);
        return file;
    }

    /// Settings in words, the mode by its name.
    std::string noteOn(Settings settings) const {
        std::string name;
        std::erase_if(settings, [&](const Setting& setting) {
            for (const ModeGuide& mode : guide().modes)
                if (setting.first == modeKey() && setting.second == mode.value) name = mode.name;
            return setting.first == modeKey() && !name.empty();
        });
        std::string note = name.empty() ? "" : '"' + name + '"';
        if (settings.empty()) return note;
        return note + (note.empty() ? "with " : " with ") + settingsText(settings, ", ");
    }

    void addLead(const std::string& fade) {
        const bool fades = !fade.empty();
        Settings settings = standard_;
        const bool movesAtDefaults = moves(settings);
        moves_ = movesAtDefaults || moves(raised_);
        Film film = fades    ? studio_.film(filter_, settings, {0, kFrames, fade})
                    : moves_ ? studio_.film(filter_, settings, {0, kFrames})
                             : Film{still(settings)};
        const bool isDull = std::all_of(film.begin(), film.end(),
                                        [&](const Pixels& p) { return looksLikeSource(p); });
        std::string note = settings.empty() ? "at its defaults" : noteOn(settings);
        if (!fades && raised_ != standard_ && (isDull || movesAtDefaults != moves_)) {
            settings = raised_;
            film = moves_ ? studio_.film(filter_, settings, {0, kFrames}) : Film{still(settings)};
            note = "with its sliders at three quarters";
        }
        if (fades) note = "from the first picture to the second and back";
        if (moves_) filter_.traits.insert(filter_.traits.begin(), "moves");
        if (film.size() > 1) filter_.animation = picture(".gif", film);
        const size_t shown = film.size() == 1 ? 0 : fades ? kFrames / 4 - 1 : kStillFrame;
        filter_.flashes = guide().canFlash || flashes(film);
        filter_.lead = {picture(".png", {film[shown]}), guide().title + " " + note,
                        "The test card through " + guide().title + ", " + note};
    }

    /// Draws a row twice where its filter does nothing at the defaults of the other inputs.
    template <class Draw>
    std::vector<Pixels> drawn(Draw draw, const char*& note) {
        std::vector<Pixels> pictures = draw(standard_);
        note = standard_.empty() ? "" : ", otherwise as above";
        const bool isDull = std::all_of(pictures.begin(), pictures.end(), [&](const Pixels& p) {
            return looksLikeSource(p) || p == pictures[0];
        });
        if (isDull && raised_ != standard_ && raised_.size() > 1) {
            pictures = draw(raised_);
            note = ", the others at three quarters";
        }
        return pictures;
    }

    void addModes() {
        const std::vector<ModeGuide>& modes = guide().modes;
        if (modes.empty()) return;
        const auto draw = [&](Settings settings) {
            std::vector<Pixels> pictures;
            for (const ModeGuide& mode : modes) {
                settings.emplace_back(guide().modeKey, mode.value);
                pictures.push_back(still(settings));
                settings.pop_back();
            }
            return pictures;
        };
        const char* note = "";
        const std::vector<Pixels> pictures = drawn(draw, note);
        GalleryRow row{fmt::format("Modes{}", note), {}};
        for (size_t i = 0; i < pictures.size(); ++i) {
            row.pictures.push_back(
                {picture(fmt::format("-mode-{}.png", modes[i].value), {pictures[i]}), modes[i].name,
                 guide().title + ", " + modes[i].name});
        }
        filter_.traits.push_back(fmt::format("{} modes", pictures.size()));
        filter_.rows.push_back(std::move(row));
    }

    /// The first slider that is neither the mode nor the mixer; the mixer where there is no other.
    void addSlider() {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(), [&](const Slider& s) {
            return s.key != modeKey() && s.key != kMixer;
        });
        const Slider* main = place == sliders_.end() ? slider(kMixer) : &*place;
        if (!main) return;
        const auto share = [](int i) { return double(i) / (kSliderPictures - 1); };
        const auto draw = [&](Settings settings) {
            std::vector<Pixels> pictures;
            for (int i = 0; i < kSliderPictures; ++i) {
                settings.emplace_back(main->key, main->at(share(i)));
                pictures.push_back(still(settings));
                settings.pop_back();
            }
            return pictures;
        };
        const char* note = "";
        const std::vector<Pixels> pictures = drawn(draw, note);
        GalleryRow row{fmt::format("Slider \"{}\"{}", main->label, note), {}};
        for (int i = 0; i < kSliderPictures; ++i) {
            const std::string value = fmt::format("{} = {:.4g}", main->label, main->at(share(i)));
            row.pictures.push_back(
                {picture(fmt::format("-slider-{}.png", i), {pictures[size_t(i)]}), value,
                 guide().title + ", " + value});
        }
        filter_.rows.push_back(std::move(row));
    }

    Studio& studio_;
    std::string folder_;
    GalleryFilter filter_;
    std::vector<Slider> sliders_;
    Settings standard_; ///< what it is shown at besides the defaults
    Settings raised_;   ///< what else is tried where it does nothing with those
    bool moves_ = false, isTransparent_ = false;
};

} // namespace

GalleryFilter portraitOf(Studio& studio, const FilterEntry& entry, const std::string& folder) {
    return Portrait(studio, entry, folder).made();
}

GalleryPreset portraitOf(Studio& studio, const Preset& preset, const std::string& folder) {
    ChainPlan plan;
    readChainFile(preset.path, plan);
    GalleryPreset portrait;
    portrait.id = "preset-" + std::filesystem::path(preset.path).stem().string();
    portrait.name = preset.name;
    portrait.description = preset.description;
    for (const ChainLink& link : plan.links()) {
        portrait.filters.push_back(link.entry.guide().title);
        portrait.flashes = portrait.flashes || link.entry.guide().canFlash;
    }
    const Film film = studio.film(plan);
    portrait.flashes = portrait.flashes || flashes(film);
    portrait.animation = "pictures/" + portrait.id + ".gif";
    portrait.lead = {"pictures/" + portrait.id + ".png", preset.name,
                     "The test card through the preset " + preset.name};
    write(folder + "/" + portrait.animation, film);
    write(folder + "/" + portrait.lead.file, {film[kStillFrame]});
    return portrait;
}

} // namespace vorn::hosts::cli
