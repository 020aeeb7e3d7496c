// Where the gallery's pictures are drawn: filters at work on the test card.
#pragma once

#include "page.h"

#include "settings/chain_plan.h"

#include "vorneffects/CIContext.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace vorn::hosts::cli {

/// How long films are, and how fast; and which frame of a film stands for it.
constexpr int kFrames = 16, kFramesPerSecond = 10, kStillFrame = 9;

using Pixels = std::vector<uint8_t>; ///< premultiplied RGBA of `kGalleryWidth`, top row first
using Film = std::vector<Pixels>;
using Settings = std::vector<Setting>;

/// Less than a hundredth of the range apart on average.
bool lookAlike(const Pixels& a, const Pixels& b);
bool isOpaque(const Pixels& pixels);
/// Whether the picture as a whole turns darker and lighter more than three times a second, by a
/// tenth of the range or more.
bool flashes(const Film& film);

/// Throws when a signal has asked for an end.
void stopIfAsked();
/// Writes a picture or a film to a file, over a checkerboard.
void write(const std::string& path, const Film& film);

/// Draws with one filter. Everything runs on the same times, so that pictures come out the same
/// each time.
class Studio {
public:
    Studio();

    /// What a filter lives through: so many frames from `first` on.
    struct Take {
        int first, frames;
        std::string fade = {};     ///< this input, if given, runs from 0 to 1 and back
        bool isSourceHeld = false; ///< the test card stands still
    };
    /// What it makes of them.
    Film film(const GalleryFilter& filter, const Settings& settings, const Take& take);

    /// What a chain without second pictures makes of all frames.
    Film film(const ChainPlan& plan);

    Film sourcePixels;
    Pixels targetPixels;
    std::set<std::string> messages; ///< what filters had to say, each line once

private:
    /// An oval of it.
    static CIImage cutOut(const CIImage& image);
    /// Transparent where the filter gives no image.
    Pixels rendered(const CIImage& image);

    std::vector<CIImage> sources_;
    CIImage target_;
    CIContext context_{ContextOptions{.device = DeviceKind::CPU}};
};

} // namespace vorn::hosts::cli
