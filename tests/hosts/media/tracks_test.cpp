// What a container refuses is converted or left out alone; all the rest stays.
#include "media_support.h"
#include "track_support.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace media_test;

class TracksTest : public MediaTest {
protected:
    TracksTest() {
        writeCounter(path("counter.mp4"), 50);
        const AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO, surround = AV_CHANNEL_LAYOUT_5POINT1;
        FilmMaker(path("counter.mp4"), path("rich.mkv"))
            .title("A title")
            .chapters()
            .sound("aac", surround, "eng")
            .sound("flac", mono, "deu")
            .subtitles("Hello <i>there</i>")
            .font()
            .write();
    }

    struct Passed {
        std::vector<std::string> warnings, notes;
    };
    Passed passOn(const std::string& to, const std::function<void(WriterOptions&)>& change = {},
                  TimeRange range = {}) {
        ReaderOptions readerOptions;
        readerOptions.range = range;
        Reader reader(path("rich.mkv"), readerOptions);
        WriterOptions options = optionsFor(reader.outputSize(), &reader.info());
        options.range = range;
        if (change) change(options);
        Writer writer(path(to), options);
        for (Frame frame; reader.read(frame);) writer.write(frame);
        writer.finish();
        return {writer.warnings(), writer.notes()};
    }
};

TEST_F(TracksTest, ContainersLoseWhatTheyRefuseAndNothingElse) {
    struct {
        const char* name;
        const char* codecs;
        std::size_t chapters;
        const char* title;
        std::vector<const char*> losses;
    } const cases[] = {
        {"out.mkv", "aac flac subrip ttf", 2, "A title", {}},
        {"out.mp4", "aac aac mov_text", 2, "A title", {"plain.ttf"}},
        {"out.mov", "aac pcm_s16le mov_text", 2, "A title", {"plain.ttf"}},
        {"out.webm", "opus opus webvtt", 2, "A title", {"plain.ttf"}},
        {"out.avi", "aac flac", 0, "A title", {"subrip", "plain.ttf", "chapters"}},
        {"out.ts", "aac aac", 0, "", {"subrip", "plain.ttf", "chapters"}},
        {"out.mpg", "mp2 mp2", 0, "", {"subrip", "plain.ttf", "title", "chapters", "stereo"}},
        {"out.gif", "", 0, "", {"aac", "flac", "subrip", "plain.ttf", "title", "chapters"}},
    };
    for (const auto& [name, codecs, chapters, title, losses] : cases) {
        SCOPED_TRACE(name);
        const Passed passed = passOn(name);
        const Contents contents = contentsOf(path(name));
        EXPECT_EQ(contents.codecs(), codecs);
        EXPECT_EQ(contents.chapters.size(), chapters);
        EXPECT_EQ(contents.title, title);
        EXPECT_NEAR(contents.picturesStart, std::string(name) == "out.mpg" ? 0.5 : 0,
                    std::string(name) == "out.ts" ? 0.2 : 0.06);
        for (const char* loss : losses) EXPECT_TRUE(anyContains(passed.warnings, loss)) << loss;
        EXPECT_EQ(passed.warnings.size(), losses.size());
    }
}

/// How far a track is from the tone; 1 where it is not there at all.
double distanceFromTone(const Track& track, double firstSeconds = 0) {
    double sum = 0, all = 0;
    const double step = double(kSoundRate) / track.rate;
    for (std::size_t i = 2000; i + 2000 < track.samples.size(); ++i) {
        const double place = (track.startSeconds + firstSeconds) * kSoundRate + double(i) * step;
        const double expected = toneAt(int(place)) + (toneAt(int(place) + 1) - toneAt(int(place))) *
                                                         (place - std::floor(place));
        sum += std::pow(track.samples[i] - expected, 2);
        all += std::pow(expected, 2);
    }
    return all > 0 ? sum / all : 1;
}

TEST_F(TracksTest, ConvertedSoundKeepsItsTimeChannelsAndRate) {
    for (const auto& [name, rate] : {std::pair("out.mp4", 44100), std::pair("out.mov", 44100),
                                     std::pair("out.webm", 48000), std::pair("out.ts", 44100)}) {
        SCOPED_TRACE(name);
        passOn(name);
        const Contents contents = contentsOf(path(name));
        ASSERT_EQ(contents.tracks.size(), std::string(name) == "out.ts" ? 2U : 3U);
        const Track& surround = contents.tracks[0];
        const Track& mono = contents.tracks[1];
        EXPECT_EQ(surround.channels, 6);
        EXPECT_EQ(mono.channels, 1);
        EXPECT_EQ(mono.rate, rate);
        // MPEG-TS does not say how much sound only primes the decoder.
        EXPECT_NEAR(double(mono.samples.size()) / mono.rate, 2, 0.05);
        if (std::string(name) == "out.ts") continue; // its times begin later
        EXPECT_EQ(mono.language, std::string(name) == "out.mov" ? "ger" : "deu");
        EXPECT_LT(distanceFromTone(mono), 0.02);
    }
    // From the time of the range on, to the sample but for the milliseconds of Matroska.
    passOn("part.mov", {}, {0.5, 1.2});
    const Contents part = contentsOf(path("part.mov"));
    ASSERT_EQ(part.tracks.size(), 3U);
    EXPECT_LT(distanceFromTone(part.tracks[1], 0.52), 0.02);
    EXPECT_NEAR(double(part.tracks[1].samples.size()) / kSoundRate, 0.68, 0.002);
}

TEST_F(TracksTest, SubtitlesPassBetweenTheKindsOfText) {
    for (const auto& [name, codec] :
         {std::pair("out.mkv", "ass"), std::pair("out.mkv", "webvtt"), std::pair("out.mkv", "srt"),
          std::pair("out.mp4", "mov_text"), std::pair("out.webm", "webvtt")}) {
        SCOPED_TRACE(codec);
        passOn(name, [&, wanted = codec](WriterOptions& options) {
            options.subtitles = {TrackWish::Kind::Codec, wanted, 0};
        });
        const std::string text = contentsOf(path(name)).tracks[2].text;
        EXPECT_EQ(text.find("400+800"), 0U) << text;
        EXPECT_NE(text.find("Hello {\\i1}there"), std::string::npos) << text;
    }
    // What is shown when a range begins is shown from its beginning.
    passOn("part.mkv", {}, {0.8, 1.0});
    EXPECT_EQ(contentsOf(path("part.mkv")).tracks[2].text.find("0+"), 0U);
}

TEST_F(TracksTest, TracksAreWhatTheUserAsksFor) {
    using Kind = TrackWish::Kind;
    const auto wishing = [](TrackWish sound, TrackWish subtitles) {
        return [=](WriterOptions& options) {
            options.sound = sound;
            options.subtitles = subtitles;
        };
    };
    EXPECT_TRUE(
        passOn("none.mkv", wishing({Kind::None, "", 0}, {Kind::None, "", 0})).warnings.empty());
    EXPECT_EQ(contentsOf(path("none.mkv")).codecs(), "ttf");
    const Passed copied = passOn("copy.mp4", wishing({Kind::Copy, "", 0}, {Kind::Copy, "", 0}));
    EXPECT_EQ(contentsOf(path("copy.mp4")).codecs(), "aac");
    EXPECT_TRUE(anyContains(copied.warnings, "flac"));
    EXPECT_TRUE(anyContains(copied.warnings, "subrip"));
    const Passed opus = passOn("opus.mkv", wishing({Kind::Codec, "opus", 96000}, {}));
    EXPECT_EQ(contentsOf(path("opus.mkv")).codecs(), "opus opus subrip ttf");
    EXPECT_TRUE(anyContains(opus.notes, "sound (aac, eng) converted to opus"));
    passOn("aac.mkv", wishing({Kind::Codec, "aac", 0}, {}));
    EXPECT_EQ(contentsOf(path("aac.mkv")).codecs(), "aac aac subrip ttf");
    const auto refusal = [&](const char* codec) {
        return messageOf<WriteError>([&] {
            passOn("no.webm", wishing({Kind::Codec, codec, 0}, {}));
        });
    };
    EXPECT_NE(refusal("flac").find("webm cannot hold flac"), std::string::npos) << refusal("flac");
    EXPECT_NE(refusal("zork").find("no such encoder"), std::string::npos) << refusal("zork");
}

TEST_F(TracksTest, FilmsThatEndEarlyEndWithTheirSound) {
    Reader reader(path("rich.mkv"));
    Writer writer(path("short.webm"), optionsFor(reader.outputSize(), &reader.info()));
    Frame frame;
    for (int i = 0; i < 20 && reader.read(frame); ++i) writer.write(frame);
    writer.finish(Ending::Interrupted);
    const Track sound = contentsOf(path("short.webm")).tracks[1];
    // A packet of FLAC, a tenth of a second, is converted as a whole.
    EXPECT_GE(double(sound.samples.size()) / sound.rate, 0.79);
    EXPECT_LE(double(sound.samples.size()) / sound.rate, 0.91);
}

TEST_F(TracksTest, CoversAndTimecodesGoWhereThereIsAPlace) {
    Frame red = flatFrame({32, 16}, 1, 0, 0);
    writeStill(path("cover.jpg"), red, optionsFor(red.size()), 1);
    FilmMaker(path("counter.mp4"), path("rich.mkv.mp4"))
        .cover(fileBytes(path("cover.jpg")))
        .timecode("01:00:00:00")
        .write();
    fs::rename(path("rich.mkv.mp4"), path("rich.mkv")); // what passOn reads; names tell nothing
    struct {
        const char* name;
        const char* codecs;
        const char* timecode;
        std::size_t losses;
    } const cases[] = {
        {"out.mp4", "none mjpeg", "01:00:00:00", 0},
        {"out.mkv", "mjpeg", "", 1},
        {"out.mov", "none", "01:00:00:00", 1},
        {"out.avi", "", "", 2},
    };
    for (const auto& [name, codecs, timecode, losses] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(passOn(name).warnings.size(), losses);
        const Contents contents = contentsOf(path(name));
        EXPECT_EQ(contents.codecs(), codecs);
        EXPECT_EQ(contents.timecode, timecode);
        Reader reader(path(name));
        EXPECT_EQ(readAll(reader).size(), 50U);
    }
    // A part of the film begins at another timecode.
    EXPECT_TRUE(anyContains(passOn("part.mov", {}, {0.5, 1}).warnings, "timecode"));
}

} // namespace
