// Films that come and go through pipes.
#include "../media/track_support.h"
#include "shell.h"

#include <nlohmann/json.hpp>

namespace {

using namespace render_test;
using Json = nlohmann::json;

class PipeTest : public RenderTest {
protected:
    Outcome shell(const std::string& script) const { return inShell(folder_, script); }
    /// Has to succeed.
    Pixels bytesOf(const std::string& script) const {
        const Outcome run = shell(script);
        EXPECT_EQ(run.code, 0) << script << "\n" << run.talk;
        return Pixels(run.results);
    }
    std::string fails(const std::string& script, int code) const {
        const Outcome run = shell(script);
        EXPECT_EQ(run.code, code) << script;
        EXPECT_EQ(std::count(run.talk.begin(), run.talk.end(), '\n'), 1) << run.talk;
        return run.talk;
    }
};

constexpr const char* kCard = "test:64x48@25,0.4s";

TEST_F(PipeTest, GoThroughWithoutALoss) {
    file(kCard, "card.mkv", {"--codec", "ffv1"});
    const Pixels direct = bytesOf("vorn render card.mkv - --filter VEXray --filter VESolarize");
    ASSERT_EQ(direct.size(), 10U * 64 * 48 * 4);
    for (const char* hop :
         {"- --format nut {} | vorn render -", "one.nut {} && vorn render one.nut",
          "- {} | vorn render - --input-format rgba:64x48@25",
          "one.raw {} && vorn render one.raw --input-format rgba:64x48@25",
          "- --format raw --pixel-format rgb24 {} | vorn render - --input-format rgb24:64x48"}) {
        std::string script = std::string("vorn render card.mkv ") + hop + " --filter VESolarize -";
        script.replace(script.find("{}"), 2, "--filter VEXray");
        EXPECT_EQ(bytesOf(script), direct) << script;
    }
}

TEST_F(PipeTest, KeepY4mAsFilmsStoreIt) {
    for (const char* pixels : {"yuv420p", "yuv444p", "yuv422p10le"}) {
        const std::string film =
            file(kCard, "film.mkv", {"--codec", "ffv1", "--pixel-format", pixels});
        const MediaInfo info = readFilm(film).info;
        const Pixels before =
            bytesOf("vorn render film.mkv same.mkv --codec ffv1 && vorn render same.mkv -");
        const Pixels after = bytesOf("vorn render film.mkv - --format y4m | tee film.y4m | "
                                     "vorn render - -");
        EXPECT_EQ(before, after) << pixels;
        const Film stored = readFilm(path("film.y4m"));
        EXPECT_EQ(stored.info.pixelFormat, pixels);
        EXPECT_EQ(stored.info.frameRate, (Rational{25, 1}));
        EXPECT_EQ(stored.milliseconds.size(), 10U);
        EXPECT_EQ(stored.info.colour.chromaLocation, info.chromaShiftY) << "left, or nothing";
    }
    bytesOf("vorn render --out-dir out --format y4m film.mkv && cmp out/film.y4m film.y4m");
    const AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    media_test::FilmMaker(file(kCard, "card.mp4"), path("rich.mkv"))
        .sound("flac", mono, "deu")
        .write();
    EXPECT_NE(fails("vorn render rich.mkv card.y4m --quiet", 0).find("left out"),
              std::string::npos);
}

TEST_F(PipeTest, WriteAnyContainerToAPipe) {
    for (const char* format : {"mp4", "mov", "mkv", "webm", "ts", "nut"}) {
        const std::string script = std::string("vorn render ") + kCard + " - --format " + format +
                                   " | cat >film && vorn render film --json --null";
        const Outcome run = shell(script);
        ASSERT_EQ(run.code, 0) << run.talk;
        EXPECT_EQ(Json::parse(run.results)["frames"], 10) << format;
    }
    bytesOf(std::string("vorn render ") + kCard + " - --format png >still");
    EXPECT_EQ(readFilm(path("still")).info.codec, "png");
    // A file behind > is written as one with a name is.
    bytesOf(std::string("vorn render ") + kCard + " - --format mp4 >film");
    bytesOf(std::string("vorn render ") + kCard + " film.mp4");
    EXPECT_EQ(fileContents(path("film")), fileContents(path("film.mp4")));
}

TEST_F(PipeTest, KeepSoundSubtitlesAndTitles) {
    const AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    media_test::FilmMaker(file("test:64x48@25,2s", "card.mp4"), path("rich.mkv"))
        .title("A title")
        .chapters()
        .sound("flac", mono, "deu")
        .subtitles("Hello")
        .write();
    // The same as of a file: whole, in part (where the pipe holds more), and after a second pipe.
    for (const char* part : {"", " --range 0.5-1.2", " --frames 20", " --range 1- --audio opus"}) {
        const std::string from = std::string(part) + " --quiet --filter VEXray ";
        bytesOf("vorn render rich.mkv file.mkv" + from);
        bytesOf("cat rich.mkv | vorn render - pipe.mkv --strict" + from);
        EXPECT_EQ(fileContents(path("pipe.mkv")), fileContents(path("file.mkv"))) << part;
    }
    const media_test::Contents direct = media_test::contentsOf(path("rich.mkv"));
    bytesOf("vorn render rich.mkv - --format nut --audio pcm_s16le --subtitles none | "
            "vorn render - hop.mkv");
    const media_test::Contents hop = media_test::contentsOf(path("hop.mkv"));
    EXPECT_EQ(hop.title, "A title");
    EXPECT_EQ(hop.codecs(), "pcm_s16le");
    EXPECT_EQ(hop.tracks[0].language, "deu");
    EXPECT_EQ(hop.tracks[0].samples, direct.tracks[0].samples);
    // Nobody wants it, nobody keeps it.
    EXPECT_EQ(bytesOf("cat rich.mkv | vorn render - - --frames 1").size(), 64U * 48 * 4);
}

TEST_F(PipeTest, WriteNothingToMeasure) {
    for (const char* way : {"--null", "/dev/null", "/dev/null --format mp4"}) {
        const Outcome run =
            shell(std::string("vorn render ") + kCard + " --filter VEXray --json " + way);
        ASSERT_EQ(run.code, 0) << run.talk;
        const Json json = Json::parse(run.results);
        EXPECT_EQ(json["frames"], 10);
        EXPECT_EQ(json["encoder"], std::string(way).ends_with("mp4") ? "libx264" : "");
    }
    EXPECT_EQ(filesInFolder(), std::vector<std::string>());
}

TEST_F(PipeTest, NeverGoToATerminal) {
    const std::string card = std::string("vorn render ") + kCard;
    const std::string script = "script -qec \"" VORN_CLI_PATH " render ";
    for (const std::string& ends :
         {std::string(kCard) + " -", std::string(kCard) + " /dev/tty --format raw",
          std::string("- out.mp4")}) {
        const Outcome run = shell(script + ends + "\" /dev/null </dev/null");
        EXPECT_EQ(run.code, ends.starts_with('-') ? 3 : 4) << run.results;
        EXPECT_NE(run.results.find("terminal"), std::string::npos);
        EXPECT_LT(run.results.size(), 300U);
    }
}

TEST_F(PipeTest, TellWhyTheyCannotBeRead) {
    file("test:320x240@25,2s", "film.mp4", {"--crf", "5"});
    ASSERT_GT(fs::file_size(path("film.mp4")), 65536U);
    EXPECT_NE(fails("cat film.mp4 | vorn render - out.mp4", 3).find("index stands behind"),
              std::string::npos);
    bytesOf("vorn render film.mp4 - --format mp4 | cat >pipe.mp4");
    bytesOf("cat pipe.mp4 | vorn render - out.mp4");
    bytesOf("vorn render test:64x48@25,0.2s pixels.rgba");
    EXPECT_NE(fails("cat pixels.rgba | vorn render - out.mp4", 3).find("--input-format"),
              std::string::npos);
    // A part of a frame is no frame.
    const Outcome damaged = shell("head -c 30000 pixels.rgba | "
                                  "vorn render - cut.mkv --input-format rgba:64x48 --strict");
    EXPECT_EQ(damaged.code, 1) << damaged.talk;
    EXPECT_EQ(readFilm(path("cut.mkv")).frames.size(), 2U);
}

TEST_F(PipeTest, TellWhatFormatsTheyKnow) {
    const std::string card = std::string("vorn render ") + kCard;
    EXPECT_NE(fails(card + " out --format fooo", 4).find("unknown format fooo"), std::string::npos);
    EXPECT_NE(fails(card + " out.mp4 --null", 2).find("no output"), std::string::npos);
    EXPECT_NE(fails(card + " --null --codec ffv1", 4).find("--format"), std::string::npos);
    for (const char* format : {"rgba", "rgbx:64x48", "rgba:64", "rgba:64x48@fast"}) {
        const std::string talk =
            fails(std::string("vorn render - out.mp4 --input-format ") + format, 2);
        EXPECT_NE(talk.find("--input-format "), std::string::npos) << talk;
    }
}

} // namespace
