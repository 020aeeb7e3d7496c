#include "file_options.h"

#include "host_error.h"
#include "values/text.h"

#include <charconv>
#include <cmath>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

/// Bits per second: a number, or one with k or M behind it.
std::int64_t readBitRate(const std::string& text, const char* option) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    double unit = 1;
    const std::string rest(stop, end);
    if (rest == "k" || rest == "K") unit = 1e3;
    if (rest == "M") unit = 1e6;
    constexpr double most = 2e9; // more than encoders count
    const double bits = value * unit;
    const bool isRead = error == std::errc() && (rest.empty() || unit > 1);
    if (!isRead || !std::isfinite(bits) || bits < 1 || bits > most) {
        throw HostError(ExitCode::Usage,
                        fmt::format("{} {}: bits per second, such as 192k or 5M", option, text));
    }
    return std::llround(bits);
}

media::TrackWish readTracks(const std::string& text, const char* option) {
    using Kind = media::TrackWish::Kind;
    media::TrackWish wish;
    if (text.empty()) return wish;
    const size_t colon = text.find(':');
    wish.codec = text.substr(0, colon);
    wish.kind = wish.codec == "copy" ? Kind::Copy : wish.codec == "none" ? Kind::None : Kind::Codec;
    if (colon == std::string::npos) return wish;
    const bool isSound = std::string(option) == "--audio";
    if (wish.kind != Kind::Codec || !isSound || wish.codec.empty()) {
        throw HostError(ExitCode::Usage,
                        fmt::format("{} {}: copy, none or CODEC{}", option, text,
                                    isSound ? "[:BITRATE], such as aac:192k" : ""));
    }
    wish.bitsPerSecond = readBitRate(text.substr(colon + 1), option);
    return wish;
}

/// "rgba:1280x720@25": pixels that say nothing of themselves.
media::RawVideo readRawInput(const std::string& text) {
    const size_t colon = text.find(':'), at = text.find('@');
    media::RawVideo raw;
    raw.pixelFormat = text.substr(0, colon);
    if (colon == std::string::npos) {
        throw HostError(ExitCode::Usage,
                        fmt::format("--input-format {}: PIXELS:WIDTHxHEIGHT[@RATE] of headerless "
                                    "pixels, such as rgba:1280x720@25; all else tells what it is",
                                    text));
    }
    if (!media::isPixelFormatName(raw.pixelFormat)) {
        throw HostError(ExitCode::Usage,
                        fmt::format("--input-format {}: FFmpeg has no pixels called \"{}\"; there "
                                    "are rgba, rgba64le, rgb24, yuv420p and many more",
                                    text, raw.pixelFormat));
    }
    const PixelSize size = parseSize(text.substr(colon + 1, at - colon - 1), "--input-format");
    raw.size = {static_cast<int>(size.width), static_cast<int>(size.height)};
    if (at != std::string::npos) raw.frameRate = parseRate(text.substr(at + 1), "--input-format");
    return raw;
}

media::Deinterlacing readDeinterlacing(const std::string& text) {
    if (text.empty()) return media::Deinterlacing::None;
    if (text == "tagged") return media::Deinterlacing::Tagged;
    if (text == "all") return media::Deinterlacing::All;
    throw HostError(ExitCode::Usage, fmt::format("--deinterlace={}: tagged or all", text));
}

std::pair<std::string, std::string> readEncoderOption(const std::string& text) {
    const size_t place = text.find('=');
    if (place == std::string::npos || place == 0) {
        throw HostError(ExitCode::Usage,
                        fmt::format("--encoder-option {}: KEY=VALUE, such as g=50", text));
    }
    return {text.substr(0, place), text.substr(place + 1)};
}

} // namespace

void FileOptions::addTo(media::WriterOptions& wanted) const {
    wanted.sound = sound;
    wanted.subtitles = subtitles;
    wanted.pixelFormat = pixelFormat;
    wanted.format = format;
    wanted.tune = tune;
    wanted.bitsPerSecond = bitsPerSecond;
    wanted.encoderOptions = encoderOptions;
}

void addFileOptions(CLI::App& command, FileArguments& arguments) {
    const auto addText = [&command](const char* name, const char* type, std::string& value,
                                    const char* text) {
        command.add_option(name, value, text)->type_name(type);
    };
    addText("--format", "NAME", arguments.format,
            "What to write, whatever OUT is called: mkv, nut, y4m,\n"
            "raw, png or another extension or name of FFmpeg's");
    addText("--input-format", "PIXELS:WxH[@RATE]", arguments.inputFormat,
            "IN holds nothing but such pixels: rgba:1280x720@25");
    command.add_flag("--null", arguments.writesNothing,
                     "Render and write nothing, to measure; there is no OUT");
    addText("--audio", "WHAT", arguments.audio,
            "copy, none, or CODEC[:BITRATE] such as opus:128k\n"
            "(default: copied, converted where OUT refuses it)");
    addText("--subtitles", "WHAT", arguments.subtitles,
            "copy, none, srt, mov_text, webvtt or ass (default:\nthe same)");
    addText("--pixel-format", "NAME", arguments.pixelFormat,
            "How pixels are stored, by FFmpeg's name, such as\nyuv444p10le");
    addText("--bitrate", "BITS", arguments.bitRate,
            "Of the pictures, such as 5M, instead of --crf");
    addText("--tune", "NAME", arguments.tune, "What the encoder is tuned for, such as grain");
    command
        .add_option("--encoder-option", arguments.encoderOptions,
                    "An option of the encoder by FFmpeg's name; repeat for\nmore")
        ->allow_extra_args(false)
        ->type_name("KEY=VALUE");
    command.add_flag("--deinterlace{tagged}", arguments.deinterlace,
                     "Make whole pictures of interlaced ones; with =all of\n"
                     "all pictures, whatever they say");
    command.add_flag("--strict", arguments.isStrict,
                     "Leave with 1 if anything could not be kept or read, or\n"
                     "an error picture was shown");
}

FileOptions readFileOptions(const FileArguments& arguments) {
    FileOptions options;
    options.sound = readTracks(arguments.audio, "--audio");
    options.subtitles = readTracks(arguments.subtitles, "--subtitles");
    options.pixelFormat = arguments.pixelFormat;
    options.format = arguments.format;
    if (!arguments.inputFormat.empty()) options.rawInput = readRawInput(arguments.inputFormat);
    options.tune = arguments.tune;
    if (!arguments.bitRate.empty()) {
        options.bitsPerSecond = readBitRate(arguments.bitRate, "--bitrate");
    }
    for (const std::string& text : arguments.encoderOptions) {
        options.encoderOptions.push_back(readEncoderOption(text));
    }
    options.deinterlacing = readDeinterlacing(arguments.deinterlace);
    options.isStrict = arguments.isStrict;
    return options;
}

} // namespace vorn::hosts::cli
