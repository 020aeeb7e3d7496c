#include "imagetree.h"

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

void addLine(std::string& text, int depth, const std::string& line) {
    text += std::string(static_cast<size_t>(depth) * 4, ' ') + line + '\n';
}

std::string plain(const Json& value) {
    return value.is_string() ? value.get<std::string>() : jsonLine(value);
}

std::string listText(const Json& list) {
    std::string text;
    for (const Json& part : list) text += (text.empty() ? "" : ", ") + plain(part);
    return text;
}

/// "1920 x 1080 at 0, 0"
std::string rectText(const Json& rect) {
    if (!rect.is_array()) return plain(rect);
    return fmt::format("{} x {} at {}, {}", plain(rect[2]), plain(rect[3]), plain(rect[0]),
                       plain(rect[1]));
}

/// What an image is, in a few words.
std::string headline(const Json& node) {
    const std::string kind = node["kind"];
    if (kind == "kernel") {
        return fmt::format("{} kernel {} of {}", plain(node["type"]), plain(node["function"]),
                           plain(node["library"]));
    }
    if (kind == "input") return "input " + plain(node["key"]);
    if (kind == "builtin") return "built-in " + plain(node["name"]);
    if (kind == "errorImage") {
        return fmt::format("error image \"{}\", \"{}\"", plain(node["label"]),
                           plain(node["message"]));
    }
    std::string text = kind;
    if (node.contains("color")) text += " " + listText(node["color"]);
    for (const char* key : {"format", "colorSpace"}) {
        if (node.contains(key) && node[key].is_string()) text += " " + plain(node[key]);
    }
    return text;
}

} // namespace

std::string ImageTree::text(const Json& image, int depth) {
    std::string text;
    addNode(text, image, "", depth);
    return text;
}

void ImageTree::addNode(std::string& text, const Json& node, const std::string& label, int depth) {
    if (node.is_null()) {
        addLine(text, depth, label + "no image");
        return;
    }
    const int number = node["id"];
    const std::string head = fmt::format("{}{}  #{}", label, headline(node), number);
    const bool hasParts = node["kind"] != "input";
    if (!written_.insert(number).second) {
        addLine(text, depth, hasParts ? head + " (as above)" : head);
        return;
    }
    addLine(text, depth, fmt::format("{}, {}", head, rectText(node["extent"])));
    if (node.contains("arguments")) {
        int index = 0;
        for (const Json& argument : node["arguments"]) {
            addValue(text, argument, fmt::format("{}: ", index++), depth + 1);
        }
    }
    if (node.contains("inputs")) {
        for (const auto& [key, value] : node["inputs"].items()) {
            addValue(text, value, key + ": ", depth + 1);
        }
    }
    for (const char* part : {"over", "under", "image"}) {
        if (node.contains(part)) addNode(text, node[part], std::string(part) + ": ", depth + 1);
    }
    if (node.contains("roi")) {
        int index = 0;
        for (const Json& rect : node["roi"]) {
            addLine(text, depth + 1,
                    fmt::format("region of interest {}: {}", index++, rectText(rect)));
        }
    }
}

void ImageTree::addValue(std::string& text, const Json& value, const std::string& label,
                         int depth) {
    if (value.is_null()) {
        addLine(text, depth, label + "missing");
    } else if (!value.is_object()) {
        addLine(text, depth, label + plain(value));
    } else if (value.contains("kind")) {
        addNode(text, value, label, depth);
    } else if (value.contains("sampler")) {
        if (value["sampler"].is_null()) {
            addLine(text, depth, label + "missing sampler");
            return;
        }
        std::string line = label + plain(value["filter"]) + " sampler";
        if (value["colorSpace"].is_string()) line += " in " + plain(value["colorSpace"]);
        addLine(text, depth, line);
        addNode(text, value["sampler"], "", depth + 1);
    } else {
        addLine(
            text, depth,
            fmt::format("{}{} {}", label, value.items().begin().key(), listText(value.front())));
    }
}

} // namespace vorn::hosts::cli
