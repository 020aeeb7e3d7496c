// One line of text, laid out with Pango.
#pragma once

#include <cairo.h>

#include <memory>
#include <string_view>

typedef struct _PangoLayout PangoLayout;

namespace vorn::platform {

/// A line of UTF-8 text in a font. Unhinted and placed in fractions of a pixel, so that its shape
/// is the same at every place and its width grows with its size. To be used on one thread.
class TextLine {
public:
    /// `pixelsPerEm` from 0 (exclusive) to 32767; anything else gives an empty line. Bytes that are
    /// no UTF-8 show as replacement characters, line breaks and other control characters as spaces.
    TextLine(std::string_view utf8, std::string_view fontName, double pixelsPerEm);

    /// The advance width in pixels; 0 for an empty line.
    double width() const;
    /// Adds the outlines to Cairo's path, the baseline starting at the current point.
    void addToPath(cairo_t* context) const;

private:
    struct Unreference {
        void operator()(void* object) const;
    };
    std::unique_ptr<PangoLayout, Unreference> layout_; ///< null for an empty line
    double scale_ = 1;                                 ///< the size over that of the layout
};

} // namespace vorn::platform
