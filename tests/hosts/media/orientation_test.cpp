// Pictures that are stored turned or mirrored.
#include "media_support.h"
#include "stored_sample.h"

#include <array>
#include <cmath>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace {

using namespace media_test;

using Matrix = std::array<std::int32_t, 9>;

TEST_F(MediaTest, TurnsUprightAndBackForEveryOrientation) {
    constexpr std::int32_t kOne = 1 << 16;
    struct {
        const char* name;
        Matrix matrix;
        bool isTransposed;
        double storedX, storedY; ///< where the upright picture's top right corner is stored
    } const cases[] = {
        {"none", {kOne, 0, 0, 0, kOne, 0, 0, 0, 1 << 30}, false, 1, 0},
        {"mirrored", {-kOne, 0, 0, 0, kOne, 0, 0, 0, 1 << 30}, false, 0, 0},
        {"upside down", {kOne, 0, 0, 0, -kOne, 0, 0, 0, 1 << 30}, false, 1, 1},
        {"180", {-kOne, 0, 0, 0, -kOne, 0, 0, 0, 1 << 30}, false, 0, 1},
        {"90 clockwise", {0, kOne, 0, -kOne, 0, 0, 0, 0, 1 << 30}, true, 0, 0},
        {"90 anticlockwise", {0, -kOne, 0, kOne, 0, 0, 0, 0, 1 << 30}, true, 1, 1},
        {"transposed", {0, kOne, 0, kOne, 0, 0, 0, 0, 1 << 30}, true, 0, 1},
        {"transversed", {0, -kOne, 0, -kOne, 0, 0, 0, 0, 1 << 30}, true, 1, 0},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        MediaInfo source;
        source.uprightSize = {96, 64};
        source.storedSize = expected.isTransposed ? Size{64, 96} : Size{96, 64};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.displayMatrix = expected.matrix;
        Frame corner = makeFrame({96, 64}, whiteTopRight);
        const OutputInfo output =
            writeStill(path("turned.mp4"), corner, optionsFor({96, 64}, &source));
        EXPECT_EQ(output.storedSize, source.storedSize);
        const auto luma = [&](double x, double y) {
            return storedSample(path("turned.mp4"), 0.1 + 0.8 * x, 0.1 + 0.8 * y)[0];
        };
        EXPECT_GT(luma(expected.storedX, expected.storedY), 200);
        EXPECT_LT(luma(1 - expected.storedX, expected.storedY), 50);
        EXPECT_LT(luma(expected.storedX, 1 - expected.storedY), 50);

        Frame smooth = makeFrame({96, 64}, gradient);
        writeStill(path("smooth.mp4"), smooth, optionsFor({96, 64}, &source));
        Reader reader(path("smooth.mp4"));
        EXPECT_EQ(reader.info().uprightSize, (Size{96, 64}));
        if (std::string(expected.name) != "none") {
            EXPECT_EQ(reader.info().displayMatrix, expected.matrix);
        }
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        EXPECT_GT(psnr(seen, smooth), 40);

        // Matroska has no place for the matrix, so the pictures are stored upright.
        EXPECT_EQ(writeStill(path("turned.mkv"), smooth, optionsFor({96, 64}, &source)).storedSize,
                  (Size{96, 64}));
        EXPECT_GT(psnr(readFirst(path("turned.mkv")), smooth), 40);
    }
}

TEST_F(MediaTest, NamesTheTurnThatMakesThePictureUpright) {
    for (const int degrees : {0, 90, 180, 270}) {
        for (const bool isMirrored : {false, true}) {
            MediaInfo source;
            source.storedSize = source.uprightSize = {64, 64};
            source.pixelFormat = "yuv420p";
            Matrix matrix;
            // FFmpeg counts anticlockwise in 5.1's header; its matrix turns the picture by -angle.
            av_display_rotation_set(matrix.data(), degrees);
            if (isMirrored) av_display_matrix_flip(matrix.data(), 1, 0);
            source.displayMatrix = matrix;
            Frame frame = makeFrame({64, 64}, gradient);
            writeStill(path("turned.mov"), frame, optionsFor({64, 64}, &source));
            const Reader reader(path("turned.mov"));
            EXPECT_EQ(reader.info().isMirrored, isMirrored) << degrees;
            const double turn = av_display_rotation_get(matrix.data());
            if (!isMirrored) {
                EXPECT_EQ(reader.info().rotationDegrees, (int(std::lround(-turn)) + 360) % 360);
            }
        }
    }
}

TEST_F(MediaTest, LeavesOtherAnglesAloneWithAWarning) {
    MediaInfo source;
    source.storedSize = source.uprightSize = {64, 48};
    source.pixelFormat = "yuv420p";
    Matrix matrix;
    av_display_rotation_set(matrix.data(), 30);
    source.displayMatrix = matrix;
    Frame frame = makeFrame({64, 48}, gradient);
    // The writer leaves an angle it cannot undo out, so the tag is put in by hand.
    Matrix upsideDown{1 << 16, 0, 0, 0, -(1 << 16), 0, 0, 0, 1 << 30};
    source.displayMatrix = upsideDown;
    writeStill(path("turned.mov"), frame, optionsFor({64, 48}, &source));
    std::string bytes = fileBytes(path("turned.mov"));
    const auto bigEndian = [](const Matrix& m) {
        std::string text;
        for (const std::int32_t value : m)
            for (int shift = 24; shift >= 0; shift -= 8)
                text += char(std::uint32_t(value) >> shift & 255);
        return text;
    };
    const std::size_t place = bytes.find(bigEndian(upsideDown));
    ASSERT_NE(place, std::string::npos);
    bytes.replace(place, 36, bigEndian(matrix));
    writeBytes(path("turned.mov"), bytes);

    const Reader reader(path("turned.mov"));
    EXPECT_EQ(reader.info().uprightSize, (Size{64, 48}));
    EXPECT_TRUE(anyContains(reader.warnings(), "90 degrees"));
}

} // namespace
