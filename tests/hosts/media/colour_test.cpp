// Colours as they are coded, looked at with FFmpeg directly where a mistake in reader and writer
// could cancel out.
#include "media_support.h"
#include "stored_sample.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using namespace media_test;

struct ColourCase {
    const char* name;
    ColourTags tags;
    Rgb red; ///< Y, Cb, Cr of (255, 0, 0) by the equations of BT.601 and BT.709
};

TEST_F(MediaTest, CodesAndTagsTheMatrixAndRangeOfTheSource) {
    const ColourCase cases[] = {
        {"BT.601 limited", {6, 6, 6, ColourRange::Limited, 1}, {81, 90, 240}},
        {"BT.601 full", {5, 5, 6, ColourRange::Full, 1}, {76, 85, 255}},
        {"BT.709 limited", {1, 1, 1, ColourRange::Limited, 1}, {63, 102, 240}},
        {"BT.709 full", {1, 1, 1, ColourRange::Full, 2}, {54, 99, 255}},
        {"BT.2020 limited", {9, 9, 16, ColourRange::Limited, 3}, {74, 97, 240}},
        {"untagged, small", {2, 2, 2, ColourRange::Unspecified, 1}, {81, 90, 240}},
    };
    for (const ColourCase& expected : cases) {
        SCOPED_TRACE(expected.name);
        MediaInfo source;
        source.storedSize = source.uprightSize = {64, 48};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.frameRate = {25, 1};
        source.timeBase = {1, 25};
        source.colour = expected.tags;
        WriterOptions options = optionsFor({64, 48}, &source);
        options.crf = 0;

        Frame red = flatFrame({64, 48}, 1, 0, 0);
        writeStill(path("red.mp4"), red, options);
        const Rgb stored = storedSample(path("red.mp4"), 0.5, 0.5);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(stored[c], expected.red[c], 1) << "component " << c;
        Reader reader(path("red.mp4"));
        EXPECT_EQ(reader.info().colour, expected.tags);
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        // Rounding to limited 8-bit YCbCr costs two levels of RGB at most.
        EXPECT_LE(largestDifference(seen, red), 3 / 255.0);

        Frame smooth = makeFrame({64, 48}, gradient);
        writeStill(path("smooth.mp4"), smooth, options);
        EXPECT_GT(psnr(readFirst(path("smooth.mp4")), smooth), 44);
    }
}

TEST_F(MediaTest, ReadsUntaggedYCbCrByTheSizeOfThePicture) {
    struct {
        Size size;
        unsigned char red[3];
    } const cases[] = {
        {{720, 576}, {81, 90, 240}},
        {{1280, 16}, {63, 102, 240}},
        {{16, 578}, {63, 102, 240}},
    };
    for (const auto& [size, red] : cases) {
        std::string bytes;
        for (const unsigned char sample : red)
            bytes.append(std::size_t(size.width) * std::size_t(size.height), char(sample));
        writeBytes(path("red.yuv"), bytes);
        ReaderOptions options;
        options.raw = RawVideo{size, {25, 1}, "yuv444p"};
        const Frame frame = readFirst(path("red.yuv"), options);
        EXPECT_LE(largestDifference(frame, flatFrame(size, 1, 0, 0)), 2 / 255.0)
            << size.width << "x" << size.height;
    }
}

TEST_F(MediaTest, KeepsMoreThanEightBits) {
    // 512 columns that differ by a fraction of an 8-bit level.
    const auto ramp = [](double x, double) {
        const double value = 0.4 + 0.1 * x;
        return std::array<double, 4>{value, value, value, 1};
    };
    const auto levels = [](const Frame& frame) {
        std::vector<double> values;
        for (int x = 0; x < frame.width(); ++x) values.push_back(component(frame, x, 4, 1));
        std::sort(values.begin(), values.end());
        return std::unique(values.begin(), values.end()) - values.begin();
    };
    Frame frame = makeFrame({512, 16}, ramp, PixelFormat::Rgba16);
    WriterOptions options = optionsFor(frame.size());
    options.bitsPerComponent = 10;
    options.crf = 0;
    options.encoderOptions = {{"qp", "0"}};
    EXPECT_EQ(writeStill(path("deep.mp4"), frame, options).pixelFormat, "yuv420p10le");
    Reader reader(path("deep.mp4"));
    EXPECT_EQ(reader.info().bitsPerComponent, 10);
    EXPECT_EQ(reader.outputFormat(), PixelFormat::Rgba16);
    Frame seen;
    ASSERT_TRUE(reader.read(seen));
    EXPECT_GT(levels(seen), 80); // 0.1 of the 876 levels of limited 10-bit luma; 22 in 8 bits
    EXPECT_LE(largestDifference(seen, frame), 1.5 / 876);

    options = optionsFor(frame.size());
    options.bitsPerComponent = 16;
    for (const char* name : {"deep.png", "deep.tif", "deep.ppm"}) {
        writeStill(path(name), frame, options, 1);
        EXPECT_EQ(largestDifference(readFirst(path(name)), frame), 0) << name;
    }
}

} // namespace
