// The times of frames, and ranges of them.
#include "media_support.h"

#include <string>
#include <vector>

namespace {

using namespace media_test;

TEST_F(MediaTest, KeepsVariableFrameTimesExactly) {
    const std::vector<std::int64_t> times = {0,   40,  80,  123, 140, 141, 300, 340,
                                             500, 501, 520, 900, 940, 980, 1500};
    constexpr std::int64_t kLastDuration = 77;
    for (const char* name : {"times.mp4", "times.mov", "times.mkv", "times.webm"}) {
        SCOPED_TRACE(name);
        MediaInfo source;
        source.storedSize = source.uprightSize = {64, 48};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.timeBase = {1, 1000};
        source.frameRate = {10, 1};
        source.hasVariableFrameRate = true;
        Writer writer(path(name), optionsFor({64, 48}, &source));
        for (std::size_t i = 0; i < times.size(); ++i) {
            const double grey = 0.05 * double(i);
            Frame frame = flatFrame({64, 48}, grey, grey, grey);
            const auto end = i + 1 < times.size() ? times[i + 1] : times[i] + kLastDuration;
            setTime(frame, times[i], {1, 1000}, end - times[i]);
            writer.write(frame);
        }
        writer.finish();

        Reader reader(path(name));
        EXPECT_TRUE(reader.info().hasVariableFrameRate);
        const std::vector<Frame> frames = readAll(reader);
        ASSERT_EQ(frames.size(), times.size());
        for (std::size_t i = 0; i < times.size(); ++i) {
            EXPECT_EQ(frames[i].timeNanoseconds(), times[i] * 1000000) << "frame " << i;
            const auto end = i + 1 < times.size() ? times[i + 1] : times[i] + kLastDuration;
            EXPECT_EQ(frames[i].durationNanoseconds(), (end - times[i]) * 1000000) << "frame " << i;
        }
    }
}

TEST_F(MediaTest, ReadsExactlyTheFramesOfARange) {
    writeCounter(path("counter.mp4"), 50);
    writeCounter(path("counter.mkv"), 50);
    writeCounter(path("counter.webm"), 50, "libvpx");
    writeCounter(path("counter.ts"), 50);
    struct {
        TimeRange range;
        int first, count;
    } const cases[] = {
        {{0, std::nullopt}, 0, 50}, {{0.5, 1.2}, 13, 17}, {{0.52, 1.2}, 13, 17},
        {{0.521, 1.2}, 14, 16},     {{1.96, 9.0}, 49, 1}, {{0.04, 0.08}, 1, 1},
        {{3.0, 4.0}, 0, 0},
    };
    for (const char* name : {"counter.mp4", "counter.mkv", "counter.webm", "counter.ts"}) {
        for (const auto& [range, first, count] : cases) {
            SCOPED_TRACE(std::string(name) + " from " + std::to_string(range.startSeconds));
            ReaderOptions options;
            options.range = range;
            Reader reader(path(name), options);
            const std::vector<Frame> frames = readAll(reader);
            // 0.521 s is later than the frame at 0.52 s by more than the tolerance.
            ASSERT_EQ(int(frames.size()), count);
            for (int i = 0; i < count; ++i) {
                EXPECT_EQ(counterOf(frames[std::size_t(i)]), first + i);
                EXPECT_EQ(frames[std::size_t(i)].timeNanoseconds(), (first + i) * 40000000LL);
            }
            EXPECT_EQ(anyContains(reader.warnings(), "no picture lies in the range"), count == 0);
        }
    }
}

} // namespace
