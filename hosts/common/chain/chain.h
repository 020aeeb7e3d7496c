// A chain of filters at work.
#pragma once

#include "settings/chain_plan.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vorn::hosts {

/// The filters of a chain at work. The platform clock must be driven when they are made and before
/// each frame.
class Chain {
public:
    explicit Chain(const ChainPlan& plan);

    /// The image that the chain makes; `nanoseconds` is the media time of the frame, `seconds` the
    /// time that animations run on. A `HostError` that names the filter when one gives no image.
    CIImage apply(const CIImage& source, const std::vector<CIImage>& secondImages,
                  std::uint64_t nanoseconds, double seconds);

    /// What the filters had to say since the last call, each line once in a chain's life.
    std::vector<std::string> takeMessages();

    /// Known at the end only, a line each: which filters changed no frame, and how many frames
    /// showed an error picture in place of a filter's work.
    std::vector<std::string> remarks() const;
    std::vector<std::string> errorPictures() const;

private:
    struct Stage {
        const ChainLink* link;
        CIFilterRef filter;
        std::int64_t frames = 0; ///< that it worked on
        /// Those of them that it is known to have left as they were.
        std::int64_t unchanged = 0;
        CIImage drawnMask{}; ///< of a region, over the frames that come
    };
    static CIImage masked(Stage& stage, const CIImage& image, const CIImage& before,
                          const std::vector<CIImage>& secondImages, CGRect frame);
    void setInputs(const Stage& stage, const CIImage& image,
                   const std::vector<CIImage>& secondImages, std::uint64_t nanoseconds,
                   double seconds);
    void note(const Stage& stage, const std::vector<std::string>& lines);
    void noteRange(const Stage& stage, const std::string& key, const InputValue& value);
    void noteChange(Stage& stage, const CIImage& before, const CIImage& after);
    void noteErrorImage(const Stage& stage, const CIImage& image);
    [[noreturn]] void failWithoutImage(const Stage& stage,
                                       const std::vector<std::string>& lines) const;

    std::vector<Stage> stages_;
    std::set<std::pair<const ChainLink*, std::string>> toldRanges_;
    std::set<std::string> said_;
    std::vector<std::string> messages_;
    std::map<std::string, std::int64_t> errorPictures_; ///< frames by filter and error
    std::int64_t frames_ = 0;
};

} // namespace vorn::hosts
