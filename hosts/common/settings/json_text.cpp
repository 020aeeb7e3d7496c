#include "json_text.h"

#include "host_error.h"

#include <algorithm>

#include <fmt/format.h>

namespace vorn::hosts {

namespace {

/// Builds the value while it is read, which is when places in the text are known.
class Builder final : public nlohmann::json_sax<JsonText> {
public:
    Builder(std::string_view text, std::string_view where) : text_(text), where_(where) {}

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t value) override { return add(value); }
    bool number_unsigned(number_unsigned_t value) override { return add(value); }
    bool number_float(number_float_t value, const string_t&) override { return add(value); }
    bool string(string_t& value) override { return add(std::move(value)); }
    bool binary(binary_t&) override { return false; } // not in texts
    bool start_object(std::size_t) override { return open(JsonText::object()); }
    bool start_array(std::size_t) override { return open(JsonText::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        if (open_.back().value->contains(name)) {
            throw HostError(ExitCode::Usage, fmt::format("{}: {} is there twice", where_,
                                                         pointerTo(open_.back().pointer, name)));
        }
        key_ = std::move(name);
        return true;
    }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& error) override {
        throw HostError(ExitCode::Usage, fmt::format("{}, {}: {}", where_, placeOf(position),
                                                     problemIn(error.what())));
    }

    JsonText root;

private:
    struct Open {
        JsonText* value;
        std::string pointer;
    };

    bool add(JsonText value) {
        place(std::move(value));
        return true;
    }
    bool open(JsonText value) {
        std::string pointer;
        if (!open_.empty()) {
            const Open& outer = open_.back();
            pointer = outer.value->is_object() ? pointerTo(outer.pointer, key_)
                                               : pointerTo(outer.pointer, outer.value->size());
        }
        constexpr size_t most = 100;
        if (open_.size() == most)
            throw HostError(ExitCode::Usage,
                            fmt::format("{}: it nests more than {} deep", where_, most));
        JsonText* placed = place(std::move(value));
        open_.push_back({placed, std::move(pointer)});
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }
    JsonText* place(JsonText value) {
        if (open_.empty()) return &(root = std::move(value));
        JsonText& outer = *open_.back().value;
        if (outer.is_object()) return &(outer[key_] = std::move(value));
        outer.push_back(std::move(value));
        return &outer.back();
    }

    /// `position` counts the bytes that were read, the last of which cannot be where it is.
    std::string placeOf(size_t position) const {
        const std::string_view before = text_.substr(0, std::max<size_t>(position, 1) - 1);
        const size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
        const auto isLetterStart = [](char c) {
            return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
        };
        const auto line = before.substr(lineStart);
        return fmt::format("line {}, column {}", 1 + std::count(before.begin(), before.end(), '\n'),
                           1 + std::count_if(line.begin(), line.end(), isLetterStart));
    }
    /// What the parser says without its own numbers and places.
    static std::string problemIn(std::string message) {
        for (const std::string_view before : {"] ", "column ", ": ", " - "}) {
            const size_t place = message.find(before);
            if (place != std::string::npos) message.erase(0, place + before.size());
        }
        return message;
    }

    std::string_view text_, where_;
    std::vector<Open> open_;
    std::string key_;
};

} // namespace

JsonText parseJson(std::string_view text, std::string_view where) {
    Builder builder(text, where);
    JsonText::sax_parse(text.begin(), text.end(), &builder);
    return std::move(builder.root);
}

std::string pointerTo(std::string_view pointer, std::string_view key) {
    std::string whole(pointer);
    whole += '/';
    for (const char c : key) whole += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
    return whole;
}

std::string pointerTo(std::string_view pointer, size_t place) {
    return fmt::format("{}/{}", pointer, place);
}

} // namespace vorn::hosts
