#include "talk.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace vorn::hosts::cli {

namespace {

/// The number of bytes of the UTF-8 letter that starts here; 0 when none does.
size_t letterLength(std::string_view text) {
    const auto byteAt = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byteAt(0);
    const size_t length = first < 0x80    ? 1
                          : first < 0xc2  ? 0
                          : first < 0xe0  ? 2
                          : first < 0xf0  ? 3
                          : first <= 0xf4 ? 4
                                          : 0;
    if (length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xc0) != 0x80) return 0;
    }
    return length;
}

/// Those of ASCII and, in two bytes, those from U+0080 to U+009F.
bool isControl(std::string_view letter) {
    const auto first = static_cast<uint8_t>(letter[0]);
    if (letter.size() == 1) return first < 0x20 || first == 0x7f;
    return first == 0xc2 && static_cast<uint8_t>(letter[1]) < 0xa0;
}

} // namespace

std::string printable(std::string_view text, bool keepsLines) {
    std::string safe;
    while (!text.empty()) {
        const size_t length = letterLength(text);
        const std::string_view letter = text.substr(0, std::max<size_t>(length, 1));
        text.remove_prefix(letter.size());
        if (letter == "\n") {
            safe += keepsLines ? "\n" : "\\n";
        } else if (length == 0 || isControl(letter)) {
            for (const char byte : letter) {
                safe += fmt::format("\\x{:02x}", static_cast<uint8_t>(byte));
            }
        } else {
            safe += letter;
        }
    }
    return safe;
}

void talk(const std::string& text) {
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

} // namespace vorn::hosts::cli
