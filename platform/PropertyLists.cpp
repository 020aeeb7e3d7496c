// Property lists, read with libplist.
#include "vorneffects/Platform.h"

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace vorn {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
struct FreeNode {
    void operator()(void* node) const { plist_free(node); }
};
using OwnedNode = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;
using OwnedString = std::unique_ptr<char, Free>;
using OwnedIterator = std::unique_ptr<void, Free>;

/// How deeply arrays and dictionaries may be nested.
constexpr int kMostLevels = 128;

/// Whether libplist can take a list. It descends by recursion and would overflow the stack with a
/// hundred thousand levels, which fit in less than a megabyte.
bool isSafeToParse(std::string_view list) {
    if (list.starts_with("bplist")) {
        // A binary list cannot be deeper than its number of values, which its last 32 bytes give.
        constexpr uint64_t kMostValues = 8192;
        constexpr size_t kTrailerSize = 32, kCountOffset = 8;
        if (list.size() < kTrailerSize) return false;
        uint64_t count = 0;
        for (const char byte : list.substr(list.size() - kTrailerSize + kCountOffset, 8))
            count = count << 8 | static_cast<uint8_t>(byte);
        return count <= kMostValues;
    }
    int level = 0;
    for (size_t tag = list.find('<'); tag != list.npos; tag = list.find('<', tag + 1)) {
        const std::string_view rest = list.substr(tag + 1);
        if (rest.starts_with("/array>") || rest.starts_with("/dict>")) {
            --level;
        } else if (rest.starts_with("array>") || rest.starts_with("dict>")) {
            if (++level > kMostLevels) return false;
        }
    }
    return true;
}

/// The value of a node. Throws `std::length_error` when it is nested too deeply. Dates, unique
/// identifiers and nulls have no place in `PropertyList`; they come back unset.
PropertyList propertyListFromNode(plist_t node, int level);

PropertyListArray arrayFromNode(plist_t node, int level) {
    PropertyListArray array;
    void* rawIterator = nullptr;
    plist_array_new_iter(node, &rawIterator);
    const OwnedIterator iterator(rawIterator);
    for (plist_t item = nullptr; plist_array_next_item(node, iterator.get(), &item), item;)
        array.push_back(propertyListFromNode(item, level + 1));
    return array;
}

PropertyListDictionary dictionaryFromNode(plist_t node, int level) {
    PropertyListDictionary dictionary;
    void* rawIterator = nullptr;
    plist_dict_new_iter(node, &rawIterator);
    const OwnedIterator iterator(rawIterator);
    for (;;) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator.get(), &rawKey, &item);
        const OwnedString key(rawKey);
        if (!key || !item) return dictionary;
        dictionary[key.get()] = propertyListFromNode(item, level + 1);
    }
}

PropertyList propertyListFromNode(plist_t node, int level) {
    if (level > kMostLevels) throw std::length_error("property list is nested too deeply");
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return {value != 0};
    }
    case PLIST_UINT: {
        // Negative integers are kept in two's complement in the unsigned value.
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return {static_cast<int64_t>(value)};
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return {value};
    }
    case PLIST_STRING: {
        char* value = nullptr;
        plist_get_string_val(node, &value);
        const OwnedString owned(value);
        return {std::string(owned ? owned.get() : "")};
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        uint64_t size = 0;
        plist_get_data_val(node, &bytes, &size);
        const OwnedString owned(bytes);
        if (!owned) size = 0;
        return {Data(std::make_shared<std::vector<uint8_t>>(bytes, bytes + size))};
    }
    case PLIST_ARRAY:
        return {arrayFromNode(node, level)};
    case PLIST_DICT:
        return {dictionaryFromNode(node, level)};
    default:
        return {};
    }
}

} // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
    const Data data = dataWithContentsOfFile(path);
    if (!data || data->size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    const auto* const bytes = reinterpret_cast<const char*>(data->data());
    if (!isSafeToParse({bytes, data->size()})) return std::nullopt;
    plist_t rawRoot = nullptr;
    plist_from_memory(bytes, static_cast<uint32_t>(data->size()), &rawRoot);
    const OwnedNode root(rawRoot);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
    try {
        return dictionaryFromNode(root.get(), 1);
    } catch (const std::length_error&) {
        return std::nullopt;
    }
}

} // namespace vorn
