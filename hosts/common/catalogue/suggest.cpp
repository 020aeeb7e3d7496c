#include "suggest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace vorn::hosts {

namespace {

std::string comparable(std::string_view name) {
    std::string letters;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte)) letters += static_cast<char>(std::tolower(byte));
    }
    return letters;
}

/// Levenshtein distance: the fewest insertions, deletions and replacements of one letter.
size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row[b.size()];
}

} // namespace

std::vector<std::string> nearestNames(std::string_view name,
                                      const std::vector<std::string>& candidates) {
    constexpr size_t maximumCount = 3;
    const std::string wanted = comparable(name);
    if (wanted.empty()) return {};
    const size_t tolerance = std::max<size_t>(2, wanted.size() / 3);

    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& candidate : candidates) {
        const std::string other = comparable(candidate);
        size_t distance = editDistance(wanted, other);
        const bool contains = wanted.size() >= 3 && other.find(wanted) != std::string::npos;
        if (contains) distance = std::min<size_t>(distance, 1);
        if (distance <= tolerance) near.emplace_back(distance, candidate);
    }
    std::sort(near.begin(), near.end());
    if (near.size() > maximumCount) near.resize(maximumCount);

    std::vector<std::string> names;
    for (auto& entry : near) names.push_back(std::move(entry.second));
    return names;
}

std::string suggestion(std::string_view name, const std::vector<std::string>& candidates) {
    const std::vector<std::string> names = nearestNames(name, candidates);
    if (names.empty()) return {};
    std::string text = "; did you mean " + names.front();
    for (size_t i = 1; i < names.size(); ++i) {
        text += (i + 1 == names.size() ? " or " : ", ") + names[i];
    }
    return text + "?";
}

} // namespace vorn::hosts
