// Chains of filters from files.
#include "chain_file.h"

#include "catalogue/suggest.h"
#include "host_error.h"
#include "json_text.h"
#include "values/text.h"
#include "values/values.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <initializer_list>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

/// A part of the text and where it stands.
struct Place {
    const JsonText& value;
    std::string pointer;

    Place at(const std::string& key) const { return {value.at(key), pointerTo(pointer, key)}; }
    Place at(size_t i) const { return {value.at(i), pointerTo(pointer, i)}; }
};

class ChainReader {
public:
    ChainReader(std::string_view where, const std::filesystem::path& folder, ChainPlan& plan)
        : where_(where), folder_(folder), plan_(plan) {}

    ChainWords read(const Place& root) {
        wantObject(root, {"$schema", "version", "name", "description", "filters"});
        const double version = number(required(root, "version"));
        if (version != 1)
            refuse(root.at("version"), fmt::format("this is for version 1, not {}", version));
        const Place filters = required(root, "filters");
        wantList(filters, 1);
        for (size_t i = 0; i < filters.value.size(); ++i) addFilter(filters.at(i));
        return {text(root, "name"), text(root, "description")};
    }

private:
    [[noreturn]] void refuse(const Place& place, std::string_view problem) const {
        throw HostError(ExitCode::Usage, fmt::format("{}: {}", here(place), problem));
    }
    /// A place as complaints name it.
    std::string here(const Place& place) const {
        return fmt::format("{}: {}", where_, place.pointer.empty() ? "/" : place.pointer);
    }

    // --- forms ----------------------------------------------------------------------------------

    void wantObject(const Place& place, std::initializer_list<const char*> keys) const {
        if (!place.value.is_object()) refuse(place, "an object is wanted here, in braces");
        const std::vector<std::string> known(keys.begin(), keys.end());
        for (const auto& [key, value] : place.value.items()) {
            if (std::find(known.begin(), known.end(), key) != known.end()) continue;
            const std::string hint = suggestion(key, known);
            refuse(place.at(key),
                   fmt::format("there is no such thing here{}",
                               hint.empty() ? fmt::format("; there is {}", fmt::join(known, ", "))
                                            : hint));
        }
    }
    void wantList(const Place& place, size_t least) const {
        if (!place.value.is_array()) refuse(place, "a list is wanted here, in brackets");
        if (place.value.size() < least) refuse(place, "the list is too short");
    }
    Place required(const Place& place, const char* key) const {
        if (!place.value.contains(key)) refuse(place, fmt::format("\"{}\" is missing", key));
        return place.at(key);
    }
    double number(const Place& place) const {
        if (!place.value.is_number()) refuse(place, "a number is wanted here");
        return place.value.get<double>();
    }
    std::string text(const Place& place) const {
        if (!place.value.is_string()) refuse(place, "a text is wanted here, in quotes");
        return place.value.get<std::string>();
    }
    std::string text(const Place& place, const char* key) const {
        return place.value.contains(key) ? text(place.at(key)) : std::string();
    }
    double time(const Place& place) const {
        const double seconds = number(place);
        if (seconds < 0 || seconds > 1e9) refuse(place, "a time is wanted here, in seconds");
        return seconds;
    }
    std::vector<double> numbers(const Place& place, size_t least, size_t most) const {
        if (!place.value.is_array() || place.value.size() < least || place.value.size() > most) {
            refuse(place, least == most ? fmt::format("a list of {} numbers is wanted here", most)
                                        : fmt::format("a list of {} to {} numbers is wanted here",
                                                      least, most));
        }
        std::vector<double> all;
        for (size_t i = 0; i < place.value.size(); ++i) all.push_back(number(place.at(i)));
        return all;
    }

    // --- filters --------------------------------------------------------------------------------

    void addFilter(const Place& place) {
        wantObject(place, {"filter", "set", "images", "from", "to", "mask"});
        const Place name = required(place, "filter");
        plan_.addLink(text(name), here(name));
        if (place.value.contains("set")) {
            const Place set = place.at("set");
            if (!set.value.is_object()) refuse(set, "an object is wanted here, in braces");
            for (const auto& [key, value] : set.value.items()) setInput(key, set.at(key));
        }
        if (place.value.contains("images")) {
            const Place images = place.at("images");
            if (!images.value.is_object()) refuse(images, "an object is wanted here, in braces");
            for (const auto& [key, value] : images.value.items()) setImage(key, images.at(key));
        }
        limit(place);
        if (place.value.contains("mask")) addMask(place.at("mask"));
    }

    /// A picture as it is written anywhere, or an object with a region; both with a little more.
    void addMask(const Place& place) {
        Mask mask;
        if (place.value.is_object()) {
            wantObject(place,
                       {"file", "fit", "at", "scale", "channel", "ellipse", "rectangle", "invert"});
            if (place.value.contains("invert")) {
                const Place invert = place.at("invert");
                if (!invert.value.is_boolean()) refuse(invert, "true or false is wanted here");
                mask.isInverted = invert.value.get<bool>();
            }
            for (const char* shape : {"ellipse", "rectangle"})
                if (place.value.contains(shape)) mask.region = region(place, shape);
        }
        if (mask.region) return plan_.limit(mask);
        if (place.value.is_object() && place.value.contains("channel")) {
            const Place channel = place.at("channel");
            mask.channel = parseMaskChannel(text(channel), here(channel));
        }
        plan_.limit(mask, picture(place));
    }

    Region region(const Place& mask, const char* shape) const {
        for (const auto& [key, value] : mask.value.items())
            if (key != shape && key != "invert")
                refuse(mask.at(key), fmt::format("this does not go with \"{}\"", shape));
        const Place place = mask.at(shape);
        wantList(place, 4);
        std::vector<Length> lengths;
        for (size_t i = 0; i < place.value.size(); ++i) {
            const Place each = place.at(i);
            lengths.push_back(each.value.is_number() ? Length{number(each)}
                                                     : parseLength(text(each), here(each)));
        }
        return regionOf(shape, lengths, here(place));
    }

    void limit(const Place& place) {
        if (!place.value.contains("from") && !place.value.contains("to")) return;
        media::TimeRange range;
        if (place.value.contains("from")) range.startSeconds = time(place.at("from"));
        if (place.value.contains("to")) range.endSeconds = time(place.at("to"));
        if (range.endSeconds && *range.endSeconds <= range.startSeconds)
            refuse(place.at("to"), "the effect ends before it begins");
        plan_.limit(range);
    }

    void setImage(const std::string& key, const Place& place) {
        if (place.value.is_object()) wantObject(place, {"file", "fit", "at", "scale"});
        plan_.setImage(key, picture(place), here(place));
    }

    /// A file's name, or an object that tells how the picture lies in the frame as well.
    SecondPicture picture(const Place& place) const {
        const bool isNameAlone = !place.value.is_object();
        const Place file = isNameAlone ? place : required(place, "file");
        const std::string name = text(file);
        if (name.empty()) refuse(file, "a file is wanted here");
        const bool isCard = parseTestCard(name).has_value();
        SecondPicture picture{isCard ? name : (folder_ / name).lexically_normal().string(), {}};
        if (isNameAlone) return picture;
        Placement& placement = picture.placement;
        if (place.value.contains("fit"))
            placement.fit = parseFit(text(place.at("fit")), here(place.at("fit")));
        if (place.value.contains("at"))
            placement.at = parseAnchor(text(place.at("at")), here(place.at("at")));
        if (place.value.contains("scale"))
            placement.scale = checkedScale(number(place.at("scale")), here(place.at("scale")));
        return picture;
    }

    void setInput(const std::string& key, const Place& place) {
        const JsonText& value = place.value;
        if (value.is_object() && value.contains("keyframes")) {
            wantObject(place, {"keyframes"});
            plan_.animate(key, keyframes(place.at("keyframes")), here(place));
        } else if (value.is_object() && value.contains("formula")) {
            wantObject(place, {"formula"});
            plan_.animate(key, formula(key, place.at("formula")), here(place));
        } else {
            plan_.set(key, inputValue(place), here(place));
        }
    }

    Animation keyframes(const Place& place) const {
        wantList(place, 1);
        std::vector<Keyframe> all;
        for (size_t i = 0; i < place.value.size(); ++i) {
            const Place each = place.at(i);
            wantObject(each, {"at", "value", "easing"});
            Keyframe keyframe{time(required(each, "at")), inputValue(required(each, "value"))};
            if (each.value.contains("easing"))
                keyframe.easing = parseEasing(text(each.at("easing")), here(each.at("easing")));
            all.push_back(std::move(keyframe));
        }
        return Animation::ofKeyframes(std::move(all), here(place));
    }

    /// One text, or a list of them for a vector or a colour.
    Animation formula(const std::string& key, const Place& place) const {
        if (!place.value.is_array())
            return Animation::ofFormulas({text(place)}, InputKind::Number, here(place));
        std::vector<std::string> texts;
        for (size_t i = 0; i < place.value.size(); ++i) texts.push_back(text(place.at(i)));
        const auto input = findInput(plan_.links().back().entry, key);
        const bool isColor = input && input->kind == InputKind::Color;
        return Animation::ofFormulas(texts, isColor ? InputKind::Color : InputKind::Vector,
                                     here(place));
    }

    InputValue inputValue(const Place& place) const {
        const JsonText& value = place.value;
        if (value.is_null()) return std::monostate{};
        if (value.is_number()) return Number(number(place));
        if (value.is_string()) return text(place);
        if (value.is_array()) {
            const std::vector<double> v = numbers(place, 2, 4);
            if (v.size() == 2) return CIVector(v[0], v[1]);
            return v.size() == 3 ? CIVector(v[0], v[1], v[2]) : CIVector(v[0], v[1], v[2], v[3]);
        }
        if (!value.is_object() || value.size() != 1) {
            refuse(place, "no value; give a number, a text, [x, y], null, or an object with one of "
                          "color, transform, data, number, keyframes and formula");
        }
        return namedValue(place);
    }

    InputValue namedValue(const Place& place) const {
        wantObject(place, {"color", "transform", "data", "number"});
        const std::string name = place.value.begin().key();
        const Place inner = place.at(name);
        if (name == "color") {
            const std::vector<double> c = numbers(inner, 4, 4);
            return CIColor(c[0], c[1], c[2], c[3]);
        }
        if (name == "transform") {
            const std::vector<double> t = numbers(inner, 6, 6);
            return CGAffineTransform{t[0], t[1], t[2], t[3], t[4], t[5]};
        }
        if (name == "data") return parseValue("hex:" + text(inner), here(inner));
        const std::optional<double> special = readNumber(text(inner));
        if (!special || std::isfinite(*special)) refuse(inner, "nan, inf or -inf is wanted here");
        return Number(*special);
    }

    std::string where_;
    std::filesystem::path folder_;
    ChainPlan& plan_;
};

} // namespace

ChainWords readChain(std::string_view text, std::string_view where,
                     const std::filesystem::path& folder, ChainPlan& plan) {
    const JsonText root = parseJson(text, where);
    return ChainReader(where, folder, plan).read({root, ""});
}

ChainWords readChainFile(const std::string& path, ChainPlan& plan) {
    constexpr std::streamsize most = 4 << 20;
    std::ifstream file(path, std::ios::binary);
    std::string text(most + 1, '\0');
    if (std::filesystem::is_directory(path))
        throw HostError(ExitCode::InputUnreadable, fmt::format("{} is a folder", path));
    if (!file) throw HostError(ExitCode::InputUnreadable, "cannot read " + path);
    file.read(text.data(), most + 1);
    if (file.bad()) throw HostError(ExitCode::InputUnreadable, "cannot read " + path);
    if (file.gcount() > most) {
        throw HostError(ExitCode::InputUnreadable,
                        fmt::format("{} is too large for a chain of filters", path));
    }
    text.resize(static_cast<size_t>(file.gcount()));
    return readChain(text, path, std::filesystem::path(path).parent_path(), plan);
}

} // namespace vorn::hosts
