// How a second picture lies in the frame.
#pragma once

#include "media/types.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::hosts {

enum class Fit {
    Cover,   ///< fills the frame, keeps its shape, and what juts out is cut off
    Contain, ///< lies within the frame, keeps its shape, and the rest is transparent
    Stretch, ///< gets the shape of the frame
    None,    ///< keeps its own size
};

/// Where the room that is left, or what is cut off, lies: 0 to 1 from the left and from below.
struct Anchor {
    double x = 0.5, y = 0.5;
};

/// What is asked of a second picture. What is unset was not said.
struct Placement {
    std::optional<Fit> fit;
    std::optional<std::string> at; ///< one of `anchorNames`
    double scale = 1;              ///< on top of the fit
    Fit usualFit = Fit::None;      ///< without one, by what the picture is for

    Fit fitting() const { return fit.value_or(usualFit); }
    /// Whether it is laid into a rectangle like that of the frame. Otherwise it is handed on in its
    /// own, which its filter stretches, repeats or cuts up.
    bool isInFrame() const { return usualFit != Fit::None || fitting() != Fit::None || at; }
};

/// A second picture: a file or "test:…", and how it lies in the frame.
struct SecondPicture {
    std::string name;
    Placement placement;
};

/// "cover", "contain", "stretch", "none".
const char* fitName(Fit fit);
const std::vector<std::string>& fitNames();
/// "center", "top", "bottom-left" …
const std::vector<std::string>& anchorNames();
Anchor anchorNamed(std::string_view name);

// A usage error with the nearest name for any other text.
Fit parseFit(std::string_view name, std::string_view where);
std::string parseAnchor(std::string_view name, std::string_view where);
/// A usage error for what is no scale.
double checkedScale(double scale, std::string_view where);

/// The fit that is usual for an image input. Pictures that take the place of the frame or lie
/// behind it cover it; masks, maps, patterns and tiles go as they are to a filter that stretches,
/// repeats or cuts them up itself.
Fit usualFitOf(std::string_view inputKey);

/// Sets one of "fit", "at" and "scale"; false for any other key.
bool setPlacement(Placement& placement, std::string_view key, std::string_view value,
                  std::string_view where);
/// "fit=contain,at=top", what was said only.
std::string placementText(const Placement& placement);

/// Parts "FILE:key=value,key=value" into the name and its options. A colon parts them if letters
/// and "=" follow it, and no slash.
std::pair<std::string, std::vector<std::pair<std::string, std::string>>>
splitOptions(std::string_view text, std::string_view where);

/// The size that a picture gets, and its lower left corner from that of the frame.
struct PlacedRectangle {
    media::Size size;
    int x = 0, y = 0;
};
/// `pixelShape` is the width of a pixel of the picture when those of the frame are 1 wide. A usage
/// error where the picture would be too large.
PlacedRectangle placedIn(media::Size frame, media::Size picture, double pixelShape,
                         const SecondPicture& asked);

} // namespace vorn::hosts
