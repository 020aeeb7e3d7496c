// Names of numbered pictures: "frames/%04d.png". Internal.
#pragma once

#include "types.h"

namespace vorn::media {

/// A file name with one %d or %0Nd in it. A doubled %% stands for a percent sign.
struct SequencePattern {
    std::string folder; ///< "." if the name has none
    std::string prefix; ///< of the file name, without the folder
    std::string suffix;
    int digits = 0; ///< least number of digits

    std::string fileName(int number) const;
    std::string path(int number) const;
    /// The numbers of the files that exist, ascending.
    std::vector<int> existingNumbers() const;
};

/// Reads a pattern; nothing if the name holds no number field.
std::optional<SequencePattern> parseSequencePattern(const std::string& path);

} // namespace vorn::media
