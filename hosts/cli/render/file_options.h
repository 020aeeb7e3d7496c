// The options of `vorn render` that say how films are read and written.
#pragma once

#include "media/reader.h"
#include "media/writer.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace vorn::hosts::cli {

/// As they are written.
struct FileArguments {
    std::string audio, subtitles, pixelFormat, bitRate, tune, deinterlace, format, inputFormat;
    std::vector<std::string> encoderOptions;
    bool isStrict = false, writesNothing = false;
};

/// Read and checked.
struct FileOptions {
    media::TrackWish sound, subtitles;
    std::string pixelFormat, tune, format;
    std::optional<media::RawVideo> rawInput;
    std::int64_t bitsPerSecond = 0; ///< 0: not said
    std::vector<std::pair<std::string, std::string>> encoderOptions;
    media::Deinterlacing deinterlacing = media::Deinterlacing::None;
    bool isStrict = false; ///< what cannot be kept or read makes the exit code 1

    void addTo(media::WriterOptions& wanted) const;
};

void addFileOptions(CLI::App& command, FileArguments& arguments);
/// A `HostError` for what cannot be meant.
FileOptions readFileOptions(const FileArguments& arguments);

} // namespace vorn::hosts::cli
