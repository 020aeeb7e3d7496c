// What is asked of a chain of filters: their names, settings, images and animations.
#pragma once

#include "animation.h"
#include "catalogue/catalog.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::hosts {

/// A filter of the chain with what is set on it.
struct ChainLink {
    FilterEntry entry;
    std::vector<std::pair<std::string, InputValue>> settings;
    std::vector<std::pair<std::string, Animation>> animations;
    /// Keys of image inputs, with the number of the second image that they show.
    std::vector<std::pair<std::string, size_t>> images;
};

/// The chain as the command line describes it. Everything that can be wrong with the texts is a
/// usage error here, with the nearest names.
class ChainPlan {
public:
    /// Adds "NAME" or "NAME:key=value,key=value".
    void addFilter(std::string_view text);
    /// Reads "KEY=FILE", for every filter that has that input, "N.KEY=FILE" or "NAME.KEY=FILE".
    void addImage(std::string_view text);
    /// Reads "KEY=TIME:VALUE,…", "N.KEY=…" or "NAME.KEY=…"; one filter must be meant.
    void addAnimation(std::string_view text);

    const std::vector<ChainLink>& links() const { return links_; }
    /// The files of the second images.
    const std::vector<std::string>& imageNames() const { return imageNames_; }

private:
    struct Target {
        ChainLink* link;
        std::string key;
    };
    std::vector<Target> targets(std::string_view address, bool images, std::string_view option);

    std::vector<ChainLink> links_;
    std::vector<std::string> imageNames_;
};

} // namespace vorn::hosts
