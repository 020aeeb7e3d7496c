#include "TextLine.h"

#include "platform/Messages.h"
#include "vorneffects/Platform.h"

#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace vorn::platform {
namespace {

struct FreePangoObject {
    void operator()(PangoFontDescription* font) const { pango_font_description_free(font); }
    void operator()(cairo_font_options_t* options) const { cairo_font_options_destroy(options); }
    void operator()(char* text) const { g_free(text); }
    void operator()(PangoContext* context) const { g_object_unref(context); }
    void operator()(PangoAttrList* list) const { pango_attr_list_unref(list); }
    void operator()(PangoFont* font) const { g_object_unref(font); }
};
template <class T>
using Owned = std::unique_ptr<T, FreePangoObject>;

std::string validUTF8(std::string_view bytes) {
    const Owned<char> valid(g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size())));
    return valid.get();
}

/// A font by its family's name or by its PostScript name, as in "Menlo-Bold". The generic family
/// that follows the name takes over when there is no such font.
Owned<PangoFontDescription> describeFont(std::string_view name) {
    std::string family = validUTF8(name);
    Owned<PangoFontDescription> font(pango_font_description_new());
    if (const size_t dash = family.rfind('-'); dash != std::string::npos) {
        const std::string_view style = std::string_view(family).substr(dash + 1);
        const auto has = [&](const char* word) { return style.find(word) != style.npos; };
        const bool bold = has("Bold"), italic = has("Italic") || has("Oblique");
        if (bold) pango_font_description_set_weight(font.get(), PANGO_WEIGHT_BOLD);
        if (italic) pango_font_description_set_style(font.get(), PANGO_STYLE_ITALIC);
        if (bold || italic || style == "Regular" || style == "Roman") family.resize(dash);
    }
    const bool monospaced = family == "Menlo" || family == "Monaco";
    family += monospaced ? ",Monospace" : ",Sans";
    pango_font_description_set_family(font.get(), family.c_str());
    return font;
}

bool hasFonts(FcConfig* config) {
    for (const FcSetName set : {FcSetSystem, FcSetApplication})
        if (const FcFontSet* fonts = FcConfigGetFonts(config, set); fonts && fonts->nfont > 0)
            return true;
    return false;
}

/// Whether there is any font, with a line where there is none. That may have been the state of a
/// moment, in which files could not be opened: what was found then is looked for again.
bool haveFonts() {
    if (hasFonts(nullptr)) return true;
    static std::mutex mutex;
    static bool isReported = false;
    {
        const std::lock_guard lock(mutex);
        if (!hasFonts(nullptr)) FcInitReinitialize();
        const bool found = hasFonts(nullptr);
        if (std::exchange(isReported, !found) || found) return found;
    }
    vorn::report(vorn::Severity::Error, "ERROR: there are no fonts: no text is drawn");
    return false;
}

/// A context of the calling thread's own fonts.
Owned<PangoContext> makeContext() {
    Owned<PangoContext> context(pango_font_map_create_context(pango_cairo_font_map_get_default()));
    const Owned<cairo_font_options_t> options(cairo_font_options_create());
    cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context.get(), options.get());
    pango_context_set_round_glyph_positions(context.get(), FALSE);
    // The user's language would choose other fonts for the same text.
    pango_context_set_language(context.get(), pango_language_from_string("en"));
    return context;
}

} // namespace

void TextLine::Unreference::operator()(void* object) const {
    g_object_unref(object);
}

TextLine::TextLine(std::string_view utf8, std::string_view fontName, double pixelsPerEm) {
    if (utf8.empty() || !(pixelsPerEm > 0 && pixelsPerEm <= 32767)) return;
    std::string text = validUTF8(utf8);
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');

    if (!haveFonts()) return;
    // Laid out in one size and drawn in any: of each size the fonts' caches would keep some 20 KB.
    constexpr double kLaidOut = 1024;
    scale_ = pixelsPerEm / kLaidOut;
    const Owned<PangoContext> context = makeContext();
    const Owned<PangoFontDescription> font = describeFont(fontName);
    pango_font_description_set_absolute_size(font.get(), kLaidOut * PANGO_SCALE);
    const Owned<PangoAttrList> attributes(pango_attr_list_new());
    layout_.reset(pango_layout_new(context.get()));
    pango_layout_set_single_paragraph_mode(layout_.get(), TRUE);
    pango_layout_set_font_description(layout_.get(), font.get());
    // Digits of one width, so that a number keeps still while it counts.
    pango_attr_list_insert(attributes.get(), pango_attr_font_features_new("tnum"));
    pango_layout_set_attributes(layout_.get(), attributes.get());
    pango_layout_set_text(layout_.get(), text.data(), static_cast<int>(text.size()));
}

double TextLine::width() const {
    if (!layout_) return 0;
    PangoRectangle extents;
    pango_layout_line_get_extents(pango_layout_get_line_readonly(layout_.get(), 0), nullptr,
                                  &extents);
    return static_cast<double>(extents.width) / PANGO_SCALE * scale_;
}

void TextLine::addToPath(cairo_t* context) const {
    if (!layout_) return;
    double x = 0, y = 0;
    cairo_get_current_point(context, &x, &y);
    cairo_save(context);
    cairo_translate(context, x, y);
    cairo_scale(context, scale_, scale_);
    cairo_move_to(context, 0, 0);
    pango_cairo_layout_line_path(context, pango_layout_get_line_readonly(layout_.get(), 0));
    cairo_restore(context);
}

} // namespace vorn::platform

std::string vorn::systemFontName() try {
    using namespace vorn::platform;
    if (!haveFonts()) return "Sans";
    const Owned<PangoContext> context = makeContext();
    const Owned<PangoFontDescription> wanted(pango_font_description_from_string("Sans"));
    const Owned<PangoFont> font(pango_context_load_font(context.get(), wanted.get()));
    if (!font) return "Sans";
    const Owned<PangoFontDescription> found(pango_font_describe(font.get()));
    const char* family = pango_font_description_get_family(found.get());
    return family ? family : "Sans";
} catch (...) {
    reportCaught("systemFontName");
    return {};
}
