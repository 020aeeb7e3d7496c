// What is told of a filter in words, wherever people read it.
#pragma once

#include "catalog.h"

namespace vorn::hosts {

/// An attribute as people read it: plain numbers, and vectors as they are written for --set; "-"
/// where it is not advertised.
std::string attributeText(const InputAttributes& attributes, std::string_view name);
/// Where an input starts, "-" where nobody says.
std::string startText(const ListedInput& input);
std::string numberText(const std::optional<double>& number);
/// What an input does and who feeds it; may be empty.
std::string purposeOf(const ListedInput& input);

/// What a filter does besides looking at its frame: "moves by itself".
std::vector<std::string> factsOf(const FilterGuide& guide);

/// A command line that shows what it does.
std::string exampleOf(const FilterEntry& entry);

/// The largest frame that a filter takes, in pixels, and what stands on the picture in the place of
/// a larger one.
struct FrameLimit {
    std::vector<std::string> modes; ///< whose limit it is; empty where it is that of all
    double pixels = 0;
    std::string label;
};
/// Empty where no frame is refused. Asked of the filter itself, with its inputs where they start
/// and small further pictures.
std::vector<FrameLimit> frameLimits(const FilterEntry& entry);

} // namespace vorn::hosts
