// What limits a filter to a part of the picture.
#pragma once

#include "placement.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::hosts {

/// A length in pixels or as a share of the frame.
struct Length {
    double value = 0;
    bool isShare = false;

    double pixelsOf(double whole) const { return isShare ? value * whole : value; }
};

/// An ellipse or a rectangle, by the box around it, which counts from the lower left corner.
struct Region {
    enum class Shape { Ellipse, Rectangle };
    Shape shape = Shape::Ellipse;
    std::array<Length, 4> box;
    Length soft; ///< how far the edge reaches into the shape; a share of the shorter side
};

enum class MaskChannel { Luma, Alpha };

struct Mask {
    std::optional<Region> region; ///< otherwise a picture:
    size_t picture = 0;           ///< its number among the second ones
    MaskChannel channel = MaskChannel::Luma;
    bool isInverted = false;
};

/// "luma", "alpha".
MaskChannel parseMaskChannel(std::string_view name, std::string_view where);
const char* maskChannelName(MaskChannel channel);

/// "120", "-3.5" or "25%".
Length parseLength(std::string_view text, std::string_view where);
std::string lengthText(const Length& length);

/// Reads "ellipse(x,y,width,height,soft)" or "rectangle(…)", where soft may be left out; nothing
/// for a text of another form.
std::optional<Region> parseRegion(std::string_view text, std::string_view where);
/// Of four or five lengths; a usage error for a box that holds nothing.
Region regionOf(std::string_view shape, const std::vector<Length>& lengths, std::string_view where);
const char* shapeName(Region::Shape shape);
/// As it was read.
std::string regionText(const Region& region);

/// Weights of 0 to 255 for each pixel of a frame, the top row first: 0 everywhere outside of the
/// shape, and linear over the soft edge within it. A hard edge is as wide as a pixel.
std::vector<unsigned char> drawRegion(const Region& region, int width, int height);

} // namespace vorn::hosts
