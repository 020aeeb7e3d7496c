#include "sequence.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

namespace vorn::media {

namespace fs = std::filesystem;

std::string SequencePattern::fileName(int number) const {
    std::string text = std::to_string(number);
    if (int(text.size()) < digits) text.insert(0, std::size_t(digits) - text.size(), '0');
    return prefix + text + suffix;
}

std::string SequencePattern::path(int number) const {
    return (fs::path(folder) / fileName(number)).string();
}

std::vector<int> SequencePattern::existingNumbers() const {
    std::vector<int> numbers;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) ||
            !name.ends_with(suffix))
            continue;
        const char* first = name.data() + prefix.size();
        const char* last = name.data() + name.size() - suffix.size();
        int number = 0;
        const auto [stop, fault] = std::from_chars(first, last, number);
        // A name that the pattern would spell differently ("7" for "007") is another file.
        if (fault == std::errc() && stop == last && number >= 0 && fileName(number) == name)
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::optional<SequencePattern> parseSequencePattern(const std::string& path) {
    const fs::path whole(path);
    const std::string name = whole.filename().string();
    SequencePattern pattern;
    pattern.folder = whole.has_parent_path() ? whole.parent_path().string() : ".";
    std::string* part = &pattern.prefix;
    bool hasField = false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '%') {
            *part += name[i];
            continue;
        }
        if (i + 1 < name.size() && name[i + 1] == '%') {
            *part += '%';
            ++i;
            continue;
        }
        std::size_t end = i + 1;
        while (end < name.size() && name[end] >= '0' && name[end] <= '9') ++end;
        if (end >= name.size() || name[end] != 'd' || end - i > 3 || hasField) return std::nullopt;
        if (end > i + 1) pattern.digits = std::stoi(name.substr(i + 1, end - i - 1));
        hasField = true;
        part = &pattern.suffix;
        i = end;
    }
    if (!hasField) return std::nullopt;
    return pattern;
}

} // namespace vorn::media
