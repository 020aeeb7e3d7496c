// What is asked of a chain of filters: their names, settings, images, animations and times.
#pragma once

#include "animation.h"
#include "catalogue/catalog.h"
#include "mask.h"
#include "media/types.h"
#include "placement.h"

#include <optional>
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
    /// When it works; the picture passes it unchanged at other times.
    std::optional<media::TimeRange> during;
    /// Where it works; the picture is unchanged elsewhere.
    std::optional<Mask> mask;

    bool isAtWork(double seconds) const;
};

/// The chain as it is described. Everything that can be wrong with a description is a usage error
/// here, with the nearest names.
class ChainPlan {
public:
    // As a command line has it.

    /// Adds "NAME" or "NAME:key=value,key=value"; a value may be a formula of the time.
    void addFilter(std::string_view text);
    /// Reads "KEY=FILE", for every filter that has that input, "N.KEY=FILE" or "NAME.KEY=FILE",
    /// each with ":fit=…,at=…,scale=…" behind it if wanted.
    void addImage(std::string_view text);
    /// Reads "KEY=TIME:VALUE,…", "N.KEY=…" or "NAME.KEY=…"; one filter must be meant.
    void addAnimation(std::string_view text);
    /// Reads "N=START-END" or "NAME=START-END"; of a chain of one filter "START-END" too.
    void addRange(std::string_view text);
    /// Reads "N=MASK" or "NAME=MASK", of a chain of one filter "MASK" too, which is a file or a
    /// region, each with ":channel=…,invert=…" and the placement of a picture behind it.
    void addMask(std::string_view text);

    // Step by step. `where` names the place of what is asked in complaints.

    /// Adds a filter with nothing set.
    void addLink(std::string_view name, std::string_view where = {});
    /// What is set on the filter that was added last; a later value takes the place of an earlier
    /// one.
    void set(std::string_view key, InputValue value, std::string_view where);
    void animate(std::string_view key, Animation animation, std::string_view where);
    void setImage(std::string_view key, SecondPicture picture, std::string_view where);
    void limit(const media::TimeRange& range) { links_.back().during = range; }
    void limit(Mask mask) { links_.back().mask = std::move(mask); }
    /// The same by a picture, which is stretched over the frame unless it is placed otherwise.
    void limit(Mask mask, SecondPicture picture) {
        maskBy(links_.back(), mask, std::move(picture));
    }

    const std::vector<ChainLink>& links() const { return links_; }
    const std::vector<SecondPicture>& pictures() const { return pictures_; }
    /// The files of the second images.
    std::vector<std::string> imageNames() const;

private:
    struct Target {
        ChainLink* link;
        std::string key;
    };
    std::vector<Target> targets(std::string_view address, bool images, std::string_view option);
    void maskBy(ChainLink& link, Mask mask, SecondPicture picture);
    ChainLink& linkNamed(std::string_view who, std::string_view option);

    std::vector<ChainLink> links_;
    std::vector<SecondPicture> pictures_;
};

} // namespace vorn::hosts
