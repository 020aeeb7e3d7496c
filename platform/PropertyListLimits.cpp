#include "platform/PropertyListLimits.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace vorn::platform {
namespace {

// ---- XML ---------------------------------------------------------------------------------------

constexpr std::string_view kSpace = " \t\r\n";

/// Reads the marks of an XML property list from the first to the last. Names of elements, and what
/// may stand between them, are taken strictly, so that libplist sees the same marks.
class XMLMarks {
public:
    explicit XMLMarks(std::string_view text) : rest_(text) {}

    bool areWithinLimits() {
        if (rest_.find('\0') != rest_.npos) return false;
        do {
            skipSpace();
            if (rest_.empty() || !takeMark()) return false;
        } while (!open_.empty() || !hasRoot_);
        // Behind the end there may be comments.
        for (skipSpace(); !rest_.empty(); skipSpace())
            if (!rest_.starts_with("<!--") || !takeComment()) return false;
        return true;
    }

private:
    void skipSpace() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(kSpace), rest_.size()));
    }

    bool takeThrough(std::string_view end) {
        const size_t at = rest_.find(end);
        if (at == rest_.npos) return false;
        rest_.remove_prefix(at + end.size());
        return true;
    }
    bool takeComment() {
        rest_.remove_prefix(4);
        return takeThrough("-->");
    }
    /// Up to the next '>', with nothing in between that could be taken for the end or be skipped.
    std::optional<std::string_view> takePlainMark() {
        const size_t end = rest_.find('>');
        if (end == rest_.npos) return std::nullopt;
        const std::string_view mark = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        if (mark.find_first_of("<[") != mark.npos ||
            std::count(mark.begin(), mark.end(), '"') % 2 != 0)
            return std::nullopt;
        return mark;
    }

    bool takeMark() {
        if (!rest_.starts_with("<")) return false;
        if (rest_.starts_with("<!--")) return takeComment();
        const auto mark = takePlainMark();
        if (!mark) return false;
        if (mark->starts_with("?")) return mark->size() > 1 && mark->ends_with("?");
        if (mark->starts_with("!")) return mark->starts_with("!DOCTYPE") && !hasRoot_;
        return mark->starts_with("/") ? close(mark->substr(1)) : open(*mark);
    }

    static std::string_view withoutSpace(std::string_view name) {
        return name.substr(0, name.find_last_not_of(kSpace) + 1);
    }

    bool close(std::string_view name) {
        if (open_.empty() || withoutSpace(name) != open_.back()) return false;
        open_.pop_back();
        return true;
    }

    bool open(std::string_view mark) {
        const bool isEmpty = mark.ends_with("/");
        if (isEmpty) mark.remove_suffix(1);
        std::string_view name = mark.substr(0, mark.find_first_of(kSpace));
        if (name == "plist") { // the only one that has attributes
            if (isEmpty || hasRoot_) return false;
            hasRoot_ = true;
            open_.push_back(name);
            return true;
        }
        if (withoutSpace(mark) != name || open_.empty()) return false;
        if (++values_ > kMostPropertyListValues) return false;
        if (name == "dict" || name == "array") {
            if (!isEmpty) open_.push_back(name);
            return open_.size() <= size_t{kMostPropertyListLevels} + 1; // the root is none
        }
        const std::string_view leaves[] = {"key",  "string", "integer", "real",
                                           "date", "data",   "true",    "false"};
        if (std::find(std::begin(leaves), std::end(leaves), name) == std::end(leaves)) return false;
        return isEmpty || takeText(name);
    }

    bool takeText(std::string_view name) {
        const std::string_view text = rest_;
        for (;;) {
            rest_.remove_prefix(std::min(rest_.find('<'), rest_.size()));
            if (rest_.starts_with("<!--")) {
                if (!takeComment()) return false;
            } else if (rest_.starts_with("<![CDATA[")) {
                if (!takeThrough("]]>")) return false;
            } else {
                break;
            }
        }
        // For every entity the text behind it is moved.
        const std::string_view content = text.substr(0, text.size() - rest_.size());
        moved_ +=
            static_cast<uint64_t>(std::count(content.begin(), content.end(), '&')) * content.size();
        constexpr uint64_t kMostMoved = 1 << 30;
        const auto mark = takePlainMark();
        return moved_ <= kMostMoved && mark && mark->starts_with("/") &&
               withoutSpace(mark->substr(1)) == name;
    }

    std::string_view rest_;
    std::vector<std::string_view> open_;
    bool hasRoot_ = false;
    size_t values_ = 0;
    uint64_t moved_ = 0;
};

// ---- Binary ------------------------------------------------------------------------------------

/// Walks through the values of a binary list: a header, values that refer to others by number, the
/// offset of each value, and a trailer that says how wide the numbers are.
class BinaryValues {
public:
    explicit BinaryValues(std::string_view bytes) : bytes_(bytes) {}

    bool areWithinLimits() {
        constexpr size_t kHeader = 8, kTrailer = 32;
        if (bytes_.size() < kHeader + kTrailer) return false;
        const size_t trailer = bytes_.size() - kTrailer;
        offsetWidth_ = number(trailer + 6, 1);
        referenceWidth_ = number(trailer + 7, 1);
        const uint64_t count = number(trailer + 8, 8), root = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (offsetWidth_ < 1 || offsetWidth_ > 8 || referenceWidth_ < 1 || referenceWidth_ > 8)
            return false;
        if (count < 1 || count > kMostPropertyListValues || root >= count || table_ < kHeader ||
            table_ > trailer || (trailer - table_) / offsetWidth_ < count)
            return false;
        sums_.resize(count);
        return measure(root, 0);
    }

private:
    /// What a value comes to with all that it refers to, as often as it does.
    struct Sum {
        enum { Unknown, Open, Known } state = Unknown;
        uint64_t values = 1, bytes = 0;
        int levels = 0;
    };

    uint64_t number(uint64_t at, uint64_t width) const {
        uint64_t value = 0;
        for (const char byte : bytes_.substr(at, width))
            value = value << 8 | static_cast<uint8_t>(byte);
        return value;
    }

    /// Whether so many items of so many bytes lie before the table of offsets.
    bool isInside(uint64_t at, uint64_t items, uint64_t width) const {
        return at <= table_ && items <= (table_ - at) / width;
    }

    /// Whether a text has a zero in it: libplist aborts the process over some of those.
    bool hasZero(uint64_t at, uint64_t items, uint64_t width) const {
        for (uint64_t i = 0; i < items; ++i)
            if (number(at + i * width, width) == 0) return true;
        return false;
    }

    bool measure(uint64_t index, int level) {
        if (level > kMostPropertyListLevels) return false;
        Sum& sum = sums_[index];
        if (sum.state == Sum::Known) return level + sum.levels <= kMostPropertyListLevels;
        if (sum.state == Sum::Open) return false; // it refers to itself
        sum.state = Sum::Open;

        uint64_t at = number(table_ + index * offsetWidth_, offsetWidth_);
        if (at < 8 || at >= table_) return false;
        const auto mark = static_cast<uint8_t>(bytes_[at++]);
        uint64_t size = mark & 15;
        switch (mark >> 4) {
        case 0x0: // null, false, true
            sum.state = Sum::Known;
            return size == 0 || size == 8 || size == 9;
        case 0x1: // an integer of 2^size bytes
            sum.state = Sum::Known;
            return size <= 4 && isInside(at, 1, uint64_t{1} << size);
        case 0x2: // a number in floating point
            sum.state = Sum::Known;
            return (size == 2 || size == 3) && isInside(at, 1, uint64_t{1} << size);
        case 0x3: // a date
            sum.state = Sum::Known;
            return size == 3 && isInside(at, 1, 8);
        case 0x8: // a unique identifier
            sum.state = Sum::Known;
            return size < 8 && isInside(at, 1, size + 1);
        }
        if (size == 15) { // an integer has the size
            if (!isInside(at, 1, 1)) return false;
            const auto next = static_cast<uint8_t>(bytes_[at++]);
            const uint64_t width = uint64_t{1} << (next & 15);
            if (next >> 4 != 1 || width > 8 || !isInside(at, 1, width)) return false;
            size = number(at, width);
            at += width;
        }
        switch (mark >> 4) {
        case 0x4: // data
            sum.bytes = size;
            sum.state = Sum::Known;
            return isInside(at, size, 1);
        case 0x5: // text in ASCII
            sum.bytes = size;
            sum.state = Sum::Known;
            return isInside(at, size, 1) && !hasZero(at, size, 1);
        case 0x6: // text in UTF-16, which takes up to 4 bytes a character while it is read
            if (!isInside(at, size, 2)) return false;
            sum.bytes = 4 * size;
            sum.state = Sum::Known;
            return !hasZero(at, size, 2);
        case 0xA: // an array
            return isInside(at, size, referenceWidth_) && measureItems(index, at, size, level);
        case 0xD: // a dictionary: its keys, then its values
            return isInside(at, size, 2 * referenceWidth_) &&
                   measureItems(index, at, 2 * size, level);
        default:
            return false;
        }
    }

    bool measureItems(uint64_t index, uint64_t at, uint64_t count, int level) {
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t item = number(at + i * referenceWidth_, referenceWidth_);
            if (item >= sums_.size() || !measure(item, level + 1)) return false;
            Sum& sum = sums_[index];
            sum.values += sums_[item].values;
            sum.bytes += sums_[item].bytes;
            sum.levels = std::max(sum.levels, sums_[item].levels + 1);
            if (sum.values > kMostPropertyListValues || sum.bytes > kMostPropertyListBytes)
                return false;
        }
        sums_[index].state = Sum::Known;
        return true;
    }

    std::string_view bytes_;
    uint64_t offsetWidth_ = 0, referenceWidth_ = 0, table_ = 0;
    std::vector<Sum> sums_;
};

} // namespace

bool isSafePropertyList(std::string_view bytes) {
    if (bytes.size() > kMostPropertyListBytes) return false;
    return bytes.starts_with("bplist00") ? BinaryValues(bytes).areWithinLimits()
                                         : XMLMarks(bytes).areWithinLimits();
}

} // namespace vorn::platform
