// Pictures and films to try the media layer on, and what is in them.
#pragma once

#include "media/reader.h"
#include "media/writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace media_test {

using namespace vorn::media;
namespace fs = std::filesystem;

class MediaTest : public testing::Test {
protected:
    MediaTest() {
        std::string name = (fs::temp_directory_path() / "media-test-XXXXXX").string();
        folder_ = ::mkdtemp(name.data());
    }
    ~MediaTest() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<std::string> filesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path folder_;
};

using MediaTestFolder = std::function<std::string(const std::string&)>;

/// The colour of each place; all from 0 to 1.
using Colouring = std::function<std::array<double, 4>(double x, double y)>;

inline void paint(Frame& frame, const Colouring& colour) {
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            const auto value = colour((x + 0.5) / frame.width(), (y + 0.5) / frame.height());
            for (int c = 0; c < 4; ++c) {
                if (frame.format() == PixelFormat::Rgba8)
                    frame.row(y)[4 * x + c] = std::uint8_t(std::lround(value[c] * 255));
                else
                    reinterpret_cast<std::uint16_t*>(frame.row(y))[4 * x + c] =
                        std::uint16_t(std::lround(value[c] * 65535));
            }
        }
    }
}

/// Smooth in all colours and different in every corner.
inline std::array<double, 4> gradient(double x, double y) {
    return {0.1 + 0.8 * x, 0.15 + 0.7 * y, 0.2 + 0.6 * (1 - x) * (1 - y), 1};
}

inline std::array<double, 4> whiteTopRight(double x, double y) {
    const double value = x > 0.5 && y < 0.5 ? 1 : 0;
    return {value, value, value, 1};
}

inline Frame makeFrame(Size size, const Colouring& colour,
                       PixelFormat format = PixelFormat::Rgba8) {
    Frame frame(size, format);
    paint(frame, colour);
    return frame;
}

inline Frame flatFrame(Size size, double red, double green, double blue) {
    return makeFrame(size, [=](double, double) {
        return std::array<double, 4>{red, green, blue, 1};
    });
}

inline double component(const Frame& frame, int x, int y, int c) {
    if (frame.format() == PixelFormat::Rgba8) return frame.row(y)[4 * x + c] / 255.0;
    return reinterpret_cast<const std::uint16_t*>(frame.row(y))[4 * x + c] / 65535.0;
}

/// Peak signal-to-noise ratio in decibels over all four components; 200 for equal pictures.
inline double psnr(const Frame& a, const Frame& b) {
    if (a.size() != b.size()) return 0;
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < 4; ++c)
                sum += std::pow(component(a, x, y, c) - component(b, x, y, c), 2);
    const double mean = sum / (4.0 * a.width() * a.height());
    return mean == 0 ? 200 : -10 * std::log10(mean);
}

inline double largestDifference(const Frame& a, const Frame& b) {
    if (a.size() != b.size()) return 1;
    double largest = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < 4; ++c)
                largest =
                    std::max(largest, std::abs(component(a, x, y, c) - component(b, x, y, c)));
    return largest;
}

inline WriterOptions optionsFor(Size size, const MediaInfo* source = nullptr) {
    WriterOptions options;
    options.size = size;
    options.source = source;
    options.threads = 2;
    return options;
}

inline void setTime(Frame& frame, std::int64_t pts, Rational timeBase, std::int64_t duration = 1) {
    frame.pts = pts;
    frame.duration = duration;
    frame.timeBase = timeBase;
}

/// Writes the same picture `count` times at 25 frames per second.
inline OutputInfo writeStill(const std::string& path, Frame& frame, const WriterOptions& options,
                             int count = 3) {
    Writer writer(path, options);
    for (int i = 0; i < count; ++i) {
        setTime(frame, i, {1, 25});
        writer.write(frame);
    }
    writer.finish();
    return writer.output();
}

/// Frame `i` is a grey that tells its number: 5 i / 255 above black.
inline void writeCounter(const std::string& path, int count, const std::string& codec = "") {
    WriterOptions options = optionsFor({64, 48});
    options.codec = codec;
    Writer writer(path, options);
    for (int i = 0; i < count; ++i) {
        const double grey = 5 * i / 255.0;
        Frame frame = flatFrame({64, 48}, grey, grey, grey);
        setTime(frame, i, {1, 25});
        writer.write(frame);
    }
    writer.finish();
}

inline int counterOf(const Frame& frame) {
    return int(std::lround(component(frame, 32, 24, 1) * 255 / 5));
}

inline std::vector<Frame> readAll(Reader& reader) {
    std::vector<Frame> frames;
    for (Frame frame; reader.read(frame); frame = Frame()) frames.push_back(std::move(frame));
    return frames;
}

inline Frame readFirst(const std::string& path, const ReaderOptions& options = {}) {
    Reader reader(path, options);
    Frame frame;
    EXPECT_TRUE(reader.read(frame)) << path;
    return frame;
}

inline std::string fileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline bool anyContains(const std::vector<std::string>& lines, const std::string& part) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
    });
}

template <typename Error>
inline std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "";
}

/// Copies a film as the command line does; stops after `stopAfter` frames if that is positive.
inline std::vector<std::string> pass(const std::string& from, const std::string& to,
                                     TimeRange range = {}, int stopAfter = 0) {
    ReaderOptions readerOptions;
    readerOptions.range = range;
    Reader reader(from, readerOptions);
    WriterOptions options = optionsFor(reader.outputSize(), &reader.info());
    options.range = range;
    options.hasAlpha = reader.info().hasAlpha;
    options.bitsPerComponent = reader.info().bitsPerComponent;
    Writer writer(to, options);
    int count = 0;
    for (Frame frame; (stopAfter == 0 || count < stopAfter) && reader.read(frame); ++count)
        writer.write(frame);
    writer.finish(stopAfter ? Ending::Interrupted : Ending::Complete);
    return writer.warnings();
}

} // namespace media_test
