// Property lists, read with libplist.
#include "platform/Messages.h"
#include "platform/PropertyListLimits.h"
#include "vorneffects/Platform.h"

#include <locale.h>
#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
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

/// While one is there, the thread reads numbers with a point, whatever the process's locale says.
class PlainLocale {
public:
    PlainLocale() : before_(plain_ ? uselocale(plain_) : nullptr) {}
    ~PlainLocale() {
        if (!before_) return;
        uselocale(before_);
        freelocale(plain_);
    }
    PlainLocale(const PlainLocale&) = delete;
    PlainLocale& operator=(const PlainLocale&) = delete;
    explicit operator bool() const { return before_ != nullptr; }

private:
    locale_t plain_ = newlocale(LC_ALL_MASK, "C", nullptr), before_;
};

/// The value of a node. Dates, unique identifiers and nulls have no place in `PropertyList`; they
/// come back unset.
PropertyList propertyListFromNode(plist_t node);

PropertyListArray arrayFromNode(plist_t node) {
    PropertyListArray array;
    void* rawIterator = nullptr;
    plist_array_new_iter(node, &rawIterator);
    const OwnedIterator iterator(rawIterator);
    for (plist_t item = nullptr; plist_array_next_item(node, iterator.get(), &item), item;)
        array.push_back(propertyListFromNode(item));
    return array;
}

PropertyListDictionary dictionaryFromNode(plist_t node) {
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
        dictionary[key.get()] = propertyListFromNode(item);
    }
}

PropertyList propertyListFromNode(plist_t node) {
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
        return {arrayFromNode(node)};
    case PLIST_DICT:
        return {dictionaryFromNode(node)};
    default:
        return {};
    }
}

} // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) try {
    std::error_code error;
    if (std::filesystem::file_size(path, error) > vorn::platform::kMostPropertyListBytes || error)
        return std::nullopt;
    const Data data = dataWithContentsOfFile(path);
    if (!data) return std::nullopt;
    const std::string_view bytes(reinterpret_cast<const char*>(data->data()), data->size());
    const PlainLocale locale;
    if (!locale || !vorn::platform::isSafePropertyList(bytes)) return std::nullopt;
    plist_t rawRoot = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &rawRoot);
    const OwnedNode root(rawRoot);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
    return dictionaryFromNode(root.get());
} catch (...) {
    reportCaught("dictionaryWithContentsOfFile");
    return {};
}

} // namespace vorn
