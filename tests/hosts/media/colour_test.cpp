// Colours as they are coded, looked at with FFmpeg directly where a mistake in reader and writer
// could cancel out.
#include "media_support.h"
#include "stored_sample.h"

#include "media/colour.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/mastering_display_metadata.h>
}

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
        options.codec = "libx264";
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

TEST_F(MediaTest, KnowsWhatColourTagsMean) {
    struct {
        ColourTags tags;
        bool isYCbCr;
        Size size;
        const char* system;
        TransferCurve curve;
        const char* range;
    } const cases[] = {
        {{2, 2, 2, ColourRange::Unspecified, 0},
         true,
         {720, 576},
         "SD",
         TransferCurve::BT709,
         "limited"},
        {{2, 2, 2, ColourRange::Unspecified, 0},
         true,
         {1280, 720},
         "HD",
         TransferCurve::BT709,
         "limited"},
        {{6, 6, 6, ColourRange::Limited, 0},
         true,
         {1280, 720},
         "SD",
         TransferCurve::BT709,
         "limited"},
        {{1, 1, 1, ColourRange::Full, 0}, true, {720, 576}, "HD", TransferCurve::BT709, "full"},
        {{9, 9, 14, ColourRange::Limited, 0},
         true,
         {64, 48},
         "UHD",
         TransferCurve::BT709,
         "limited"},
        {{9, 9, 16, ColourRange::Limited, 0},
         true,
         {64, 48},
         "HDR with PQ",
         TransferCurve::PQ,
         "limited"},
        {{9, 9, 18, ColourRange::Limited, 0},
         true,
         {64, 48},
         "HDR with HLG",
         TransferCurve::HLG,
         "limited"},
        {{0, 2, 2, ColourRange::Unspecified, 0},
         false,
         {64, 48},
         "RGB",
         TransferCurve::SRGB,
         "full"},
        {{0, 1, 4, ColourRange::Full, 0}, false, {64, 48}, "RGB", TransferCurve::Gamma22, "full"},
        {{1, 1, 9, ColourRange::Limited, 0},
         true,
         {64, 48},
         "HD",
         TransferCurve::Unknown,
         "limited"},
    };
    for (const auto& [tags, isYCbCr, size, system, curve, range] : cases) {
        MediaInfo info;
        info.colour = tags;
        info.isYCbCr = isYCbCr;
        info.storedSize = size;
        info.pixelFormat = isYCbCr ? "yuv420p" : "rgb24";
        const ColourMeaning meaning = meaningOf(info);
        EXPECT_EQ(meaning.system, system);
        EXPECT_EQ(meaning.curve, curve) << system;
        EXPECT_EQ(meaning.range, range) << system;
    }
}

TEST(TransferCurves, GoThroughTheirKnownPoints) {
    struct {
        TransferCurve curve;
        double value, light;
    } const points[] = {
        {TransferCurve::SRGB, 0.5, 0.21404},    {TransferCurve::SRGB, 0.04045, 0.0031308},
        {TransferCurve::BT709, 0.5, 0.25972},   {TransferCurve::BT709, 0.081, 0.018},
        {TransferCurve::PQ, 0.50808, 0.01},     {TransferCurve::PQ, 0.75183, 0.1},
        {TransferCurve::HLG, 0.5, 1.0 / 12},    {TransferCurve::HLG, 0.75, 0.26496},
        {TransferCurve::Gamma22, 0.5, 0.21764}, {TransferCurve::Gamma28, 0.5, 0.14359},
        {TransferCurve::Linear, 0.5, 0.5},
    };
    for (const auto& [curve, value, light] : points) {
        EXPECT_NEAR(toLight(curve, value), light, 2e-5) << int(curve);
        EXPECT_NEAR(fromLight(curve, light), value, 2e-4) << int(curve);
        for (const double end : {0.0, 1.0}) {
            EXPECT_NEAR(toLight(curve, end), end, 1e-6) << int(curve);
            EXPECT_NEAR(fromLight(curve, end), end, 1e-6) << int(curve);
        }
    }
}

TEST_F(MediaTest, WritesHdrAsPlayersTakeItAndKeepsItsLightLevels) {
    MediaInfo source;
    source.storedSize = source.uprightSize = {64, 48};
    source.pixelFormat = "yuv420p10le";
    source.bitsPerComponent = 10;
    source.chromaShiftX = source.chromaShiftY = 1;
    source.frameRate = {25, 1};
    source.timeBase = {1, 25};
    source.colour = {9, 9, 16, ColourRange::Limited, 1};
    AVMasteringDisplayMetadata display = {};
    display.has_primaries = display.has_luminance = 1;
    const int primaries[3][2] = {{35400, 14600}, {8500, 39850}, {6550, 2300}};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 2; ++i) display.display_primaries[c][i] = {primaries[c][i], 50000};
    display.white_point[0] = {15635, 50000};
    display.white_point[1] = {16450, 50000};
    display.max_luminance = {10000000, 10000};
    display.min_luminance = {50, 10000};
    const AVContentLightMetadata light = {900, 300};
    const auto bytes = [](const auto& value) {
        const auto* first = reinterpret_cast<const std::uint8_t*>(&value);
        return std::vector<std::uint8_t>(first, first + sizeof value);
    };
    source.sideData = {{AV_PKT_DATA_MASTERING_DISPLAY_METADATA, bytes(display)},
                       {AV_PKT_DATA_CONTENT_LIGHT_LEVEL, bytes(light)}};
    Frame frame = makeFrame({64, 48}, gradient, PixelFormat::Rgba16);
    WriterOptions options = optionsFor({64, 48}, &source);
    options.bitsPerComponent = 10;
    // In MPEG-TS only the pictures themselves tell.
    for (const char* name : {"hdr.mp4", "hdr.mkv", "hdr.mov", "hdr.ts"}) {
        SCOPED_TRACE(name);
        const OutputInfo output = writeStill(path(name), frame, options);
        EXPECT_EQ(output.encoder, "libx265");
        EXPECT_EQ(output.pixelFormat, "yuv420p10le");
        const MediaInfo info = Reader(path(name)).info();
        EXPECT_EQ(info.colour.transfer, 16);
        EXPECT_EQ(meaningOf(info).system, "HDR10");
        ASSERT_EQ(info.sideData.size(), 2U);
        for (const StreamSideData& side : info.sideData) {
            if (side.type == AV_PKT_DATA_CONTENT_LIGHT_LEVEL) {
                const auto* seen =
                    reinterpret_cast<const AVContentLightMetadata*>(side.bytes.data());
                EXPECT_EQ(seen->MaxCLL, 900U);
                EXPECT_EQ(seen->MaxFALL, 300U);
                continue;
            }
            const auto* seen =
                reinterpret_cast<const AVMasteringDisplayMetadata*>(side.bytes.data());
            EXPECT_NEAR(av_q2d(seen->max_luminance), 1000, 0.1);
            EXPECT_NEAR(av_q2d(seen->min_luminance), 0.005, 1e-4);
            EXPECT_NEAR(av_q2d(seen->display_primaries[1][1]), 0.797, 1e-4);
            EXPECT_NEAR(av_q2d(seen->white_point[0]), 0.3127, 1e-4);
        }
    }
    Writer picture(path("hdr.png"), options);
    EXPECT_TRUE(anyContains(picture.warnings(), "HDR"));
}

} // namespace
