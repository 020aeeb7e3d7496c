// Decoding, effects and encoding, each in its own thread.
#pragma once

#include "options.h"

#include "media/colour.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::hosts::cli {

struct RenderOutcome {
    std::int64_t frames = 0;   ///< written
    double elapsedSeconds = 0; ///< that the render took
    double mediaSeconds = 0;   ///< that the pictures last
    media::Size size;
    std::string encoder; ///< empty for headerless pixels
    bool isInterrupted = false;
    bool isCutOff = false; ///< interrupted within a frame, which nobody took
    std::vector<std::string> warnings;
    std::vector<std::string> notes; ///< worth knowing, and no loss
    /// Warnings of what could not be kept or read, and of error pictures.
    int losses = 0;
    std::optional<media::ColourMeaning> colour; ///< of the source, if it is a file

    double framesPerSecond() const {
        return static_cast<double>(frames) / std::max(1e-6, elapsedSeconds);
    }
};

/// Carries out a render. Warnings and progress go to standard error as they come. Throws
/// media::ReadError, media::WriteError and `HostError`; the frames that were done before an
/// error are kept, unless writing them is what failed. Needs an `InterruptWatch`.
RenderOutcome runRender(const RenderOptions& options);

} // namespace vorn::hosts::cli
