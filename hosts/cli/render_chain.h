// A chain of filters: what the command line asks of it, and the filters at work.
#pragma once

#include "catalog.h"
#include "render_animation.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorn::cli {

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

/// The filters of a chain at work. The platform clock must be driven when they are made and before
/// each frame.
class Chain {
public:
    explicit Chain(const ChainPlan& plan);

    /// The image that the chain makes; `nanoseconds` is the media time of the frame, `seconds` the
    /// time that animations run on. A `CommandError` that names the filter when one gives no image.
    CIImage apply(const CIImage& source, const std::vector<CIImage>& secondImages,
                  std::uint64_t nanoseconds, double seconds);

    /// What the filters had to say since the last call, each line once in a chain's life.
    std::vector<std::string> takeMessages();

    /// How many frames showed an error picture in place of a filter's work, a line for each kind.
    std::vector<std::string> errorPictures() const;

private:
    struct Stage {
        const ChainLink* link;
        CIFilterRef filter;
    };
    void note(const Stage& stage, const std::vector<std::string>& lines);
    void noteErrorImage(const Stage& stage, const CIImage& image);
    [[noreturn]] void failWithoutImage(const Stage& stage,
                                       const std::vector<std::string>& lines) const;

    std::vector<Stage> stages_;
    std::set<std::string> said_;
    std::vector<std::string> messages_;
    std::map<std::string, std::int64_t> errorPictures_; ///< frames by filter and error
    std::int64_t frames_ = 0;
};

} // namespace vorn::cli
