// A lazy image as JSON: the form that `vorn explain --json` prints.
#pragma once

#include "json.h"

#include "vorneffects/ImageDescription.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vorn::hosts::cli {

/// Turns images into JSON over a run of frames. It holds every image that it has seen, so that a
/// number stands for the same image object throughout.
class ImageJson {
public:
    /// `probe` is the rectangle that region-of-interest rules are asked with.
    explicit ImageJson(CGRect probe) : probe_(probe) {}

    /// Makes an image known as the one that was set for an input.
    void addInput(const CIImage& image, std::string key);
    /// An image and everything below it; null for an empty handle.
    Json imageJson(const CIImage& image);

private:
    Json nodeJson(const ImageDescription* description);
    Json argumentJson(const ArgumentDescription& argument);
    Json builtinInputJson(const BuiltinInput& input);
    int numberOf(const CIImage& image);

    CGRect probe_;
    std::vector<std::pair<CIImage, std::string>> inputs_;
    std::unordered_map<const imaging::Node*, int> numbers_;
    std::vector<CIImage> held_;
};

} // namespace vorn::hosts::cli
