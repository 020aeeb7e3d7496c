// Text whose bytes are read as Mac Roman.
#include "vorneffects/Platform.h"

#include "platform/Messages.h"

namespace vorn {
namespace {

/// Bytes 128 to 255, as Apple's ROMAN.TXT maps them (its version since Mac OS 8.5, with the euro
/// sign at 0xDB); U+F8FF is the private-use place of the Apple logo.
constexpr char16_t kUpperHalf[] = u"ÄÅÇÉÑÖÜáàâäãåçéè"
                                  u"êëíìîïñóòôöõúùûü"
                                  u"†°¢£§•¶ß®©™´¨≠ÆØ"
                                  u"∞±≤≥¥µ∂∑∏π∫ªºΩæø"
                                  u"¿¡¬√ƒ≈∆«»…\u00A0ÀÃÕŒœ"
                                  u"–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ"
                                  u"‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔ"
                                  u"\uF8FFÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";
static_assert(std::size(kUpperHalf) == 128 + 1);

} // namespace

std::string stringFromMacRoman(std::string_view bytes) try {
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x80) {
            text += byte;
            continue;
        }
        // Every character of the table takes two or three bytes.
        const unsigned character = kUpperHalf[code - 0x80];
        if (character < 0x800) {
            text += static_cast<char>(0xC0 | character >> 6);
        } else {
            text += static_cast<char>(0xE0 | character >> 12);
            text += static_cast<char>(0x80 | (character >> 6 & 0x3F));
        }
        text += static_cast<char>(0x80 | (character & 0x3F));
    }
    return text;
} catch (...) {
    reportCaught("stringFromMacRoman");
    return {};
}

} // namespace vorn
