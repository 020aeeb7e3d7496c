// An image's JSON as an indented tree for people.
#pragma once

#include "json.h"

#include <set>
#include <string>

namespace vorn::hosts::cli {

/// Writes the images of one frame; an image that was written before in it is only named.
class ImageTree {
public:
    /// The tree of an image, as `ImageJson` gives it, with a line end after every line.
    std::string text(const Json& image, int depth = 0);

private:
    void addNode(std::string& text, const Json& node, const std::string& label, int depth);
    void addValue(std::string& text, const Json& value, const std::string& label, int depth);

    std::set<int> written_;
};

} // namespace vorn::hosts::cli
