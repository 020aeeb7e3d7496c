// As much of JSON Schema as docs/chain.schema.json uses.
#pragma once

#include <nlohmann/json.hpp>

#include <algorithm>
#include <regex>
#include <stdexcept>
#include <string>

class Schema {
public:
    using Json = nlohmann::json;
    explicit Schema(Json root) : root_(std::move(root)) {}
    bool allows(const Json& value) const { return allows(root_, value); }

private:
    bool allows(const Json& rule, const Json& value) const {
        for (const auto& [word, wanted] : rule.items())
            if (!keeps(rule, word, wanted, value)) return false;
        return true;
    }

    bool keeps(const Json& rule, const std::string& word, const Json& wanted,
               const Json& value) const {
        const auto fits = [&](const Json& one) { return allows(one, value); };
        const auto isAtMost = [](const Json& a, const Json& b) {
            return a.get<double>() <= b.get<double>();
        };
        if (word == "type") return isOf(wanted, value);
        if (word == "const") return value == wanted;
        if (word == "enum") return std::find(wanted.begin(), wanted.end(), value) != wanted.end();
        if (word == "anyOf") return std::any_of(wanted.begin(), wanted.end(), fits);
        if (word == "$ref")
            return fits(root_.at(Json::json_pointer(wanted.get<std::string>().substr(1))));
        if (word == "minimum") return isAtMost(wanted, value);
        if (word == "maximum") return isAtMost(value, wanted);
        if (word == "minItems") return value.size() >= wanted;
        if (word == "maxItems") return value.size() <= wanted;
        const auto* text = value.get_ptr<const std::string*>(); // rules for texts allow the rest
        if (word == "minLength") return !text || text->size() >= wanted;
        if (word == "maxLength") return !text || text->size() <= wanted;
        if (word == "pattern")
            return !text || std::regex_search(*text, std::regex(wanted.get<std::string>()));
        if (word == "items")
            return std::all_of(value.begin(), value.end(),
                               [&](const Json& item) { return allows(wanted, item); });
        if (word == "required")
            return std::all_of(wanted.begin(), wanted.end(),
                               [&](const Json& key) { return value.contains(key); });
        if (word == "properties") {
            for (const auto& [key, inner] : value.items())
                if (wanted.contains(key) && !allows(wanted.at(key), inner)) return false;
            return true;
        }
        if (word == "additionalProperties") {
            for (const auto& [key, inner] : value.items()) {
                if (rule.contains("properties") && rule.at("properties").contains(key)) continue;
                if (wanted == false || !allows(wanted, inner)) return false;
            }
            return true;
        }
        const bool isWord =
            word == "description" || word == "title" || word == "$schema" || word == "$defs";
        return isWord ? true : throw std::runtime_error("unknown in schemas: " + word);
    }

    static bool isOf(const std::string& type, const Json& value) {
        return type == "object"    ? value.is_object()
               : type == "array"   ? value.is_array()
               : type == "string"  ? value.is_string()
               : type == "number"  ? value.is_number()
               : type == "boolean" ? value.is_boolean()
                                   : type == "null" && value.is_null();
    }

    Json root_;
};
