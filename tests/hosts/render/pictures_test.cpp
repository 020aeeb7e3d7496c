// What goes in comes out: sizes, rates, times, tags, sound, transparency, sequences.
#include "render_support.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace render_test;

using Json = nlohmann::json;

TEST_F(RenderTest, WritesAFilmOfTheSizeRateAndLengthAskedFor) {
    const Outcome run = render({"test:96x64@29.97,1s", path("card.mp4"), "--json"});
    ASSERT_EQ(run.code, 0) << run.talk;
    const Json json = Json::parse(run.results);
    EXPECT_EQ(json["frames"], 30);
    EXPECT_EQ(json["width"], 96);
    EXPECT_EQ(json["height"], 64);
    EXPECT_EQ(json["output"], path("card.mp4"));
    EXPECT_EQ(json["warnings"], Json::array());
    EXPECT_NEAR(json["duration_s"].get<double>(), 1.001, 1e-9);

    const Film film = readFilm(path("card.mp4"));
    EXPECT_EQ(film.frames.size(), 30U);
    EXPECT_EQ(film.info.uprightSize, (Size{96, 64}));
    EXPECT_EQ(film.info.frameRate, (Rational{30000, 1001}));
    EXPECT_NEAR(film.info.durationSeconds.value_or(0), 1.001, 1e-3);
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"card.mp4"});
}

TEST_F(RenderTest, TakesTheTestCardsFormFromItsNameOrFromOptions) {
    const Pixels whole = pixelsOf("test:64x48@10,0.5s");
    constexpr std::size_t frame = 64 * 48 * 4;
    ASSERT_EQ(whole.size(), 5 * frame);
    EXPECT_NE(frameOf(whole, 0, frame), frameOf(whole, 1, frame));
    for (const Arguments& options :
         {Arguments{"--duration", "0.5s"}, Arguments{"--range", "-0.5"},
          Arguments{"--range", "0,0:00.5"}, Arguments{"--frames", "5"}}) {
        Arguments all{"--size", "64x48", "--rate", "10"};
        all.insert(all.end(), options.begin(), options.end());
        EXPECT_EQ(pixelsOf("test:", all), whole) << options[0] << " " << options[1];
    }
    EXPECT_EQ(pixelsOf("test:64x48@10,0.5s", {"--range", "0.2-0.4"}), framesOf(whole, 2, 2, frame));
    EXPECT_EQ(pixelsOf("test:64x48@10", {"--range", "0.3-", "--frames", "2"}),
              framesOf(whole, 3, 2, frame));
}

TEST_F(RenderTest, ResamplesAFilmToTheNearestFrames) {
    constexpr std::size_t frame = 64 * 48 * 4;
    const std::string film = file("test:64x48@10,0.5s", "ten.mkv", {"--codec", "ffv1"});
    const Pixels own = pixelsOf(film), doubled = pixelsOf(film, {"--rate", "20"}),
                 halved = pixelsOf(film, {"--rate", "5"});
    ASSERT_EQ(own.size(), 5 * frame);
    ASSERT_EQ(doubled.size(), 10 * frame);
    ASSERT_EQ(halved.size(), 3 * frame);
    for (std::size_t i = 0; i < 10; ++i)
        EXPECT_EQ(frameOf(doubled, i, frame), frameOf(own, i / 2, frame)) << i;
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(frameOf(halved, i, frame), frameOf(own, i * 2, frame)) << i;
    EXPECT_EQ(readFilm(file(film, "slow.mp4", {"--rate", "5"})).milliseconds,
              (std::vector<std::int64_t>{0, 200, 400}));
}

TEST_F(RenderTest, GivesTheSameBytesEachTime) {
    const Arguments filters{"--filter",  "VESolarize:intensity=0.3", "--filter", "VEGobo",
                            "--animate", "VEGobo.mixer=0:0,0.4:1"};
    const std::string first = file("test:128x96@20,0.4s", "first.mp4", filters);
    const std::string second = file("test:128x96@20,0.4s", "second.mp4", filters);
    EXPECT_EQ(Pixels(fileContents(first)), Pixels(fileContents(second)));

    Arguments one = filters, two = filters;
    one.insert(one.end(), {"--threads", "1"});
    two.insert(two.end(), {"--threads", "2"});
    EXPECT_EQ(pixelsOf("test:128x96@20,0.4s", one), pixelsOf("test:128x96@20,0.4s", two));
}

TEST_F(RenderTest, ChangesNothingThroughAFilterThatChangesNothing) {
    EXPECT_EQ(pixelsOf("test:65x47@10,0.3s", {"--filter", "VEDummy"}),
              pixelsOf("test:65x47@10,0.3s"));

    // Every 16-bit value survives, on its way through floats and on its way into the file.
    WriterOptions options;
    options.size = {256, 256};
    options.bitsPerComponent = 16;
    Writer writer(path("deep.png"), options);
    Frame deep(options.size, PixelFormat::Rgba16);
    for (int y = 0; y < 256; ++y) {
        auto* row = reinterpret_cast<std::uint16_t*>(deep.row(y));
        for (int x = 0; x < 256; ++x) {
            const auto value = std::uint16_t(y * 256 + x);
            row[4 * x] = value;
            row[4 * x + 1] = std::uint16_t(65535 - value);
            row[4 * x + 2] = std::uint16_t(value * 257);
            row[4 * x + 3] = 65535;
        }
    }
    writer.write(deep);
    writer.finish();
    const Film copy = readFilm(
        file(path("deep.png"), "copy.png", {"--filter", "VEDummy", "--filter", "VEDummy"}));
    ASSERT_EQ(copy.info.bitsPerComponent, 16);
    for (int y = 0; y < 256; ++y)
        ASSERT_TRUE(std::equal(deep.row(y), deep.row(y) + 256 * 8, copy.frames[0].row(y))) << y;
}

TEST_F(RenderTest, KeepsTransparency) {
    WriterOptions options;
    options.size = {16, 16};
    options.hasAlpha = true;
    Writer writer(path("alpha.png"), options);
    Frame picture(options.size, PixelFormat::Rgba8);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            for (int c = 0; c < 4; ++c)
                picture.row(y)[4 * x + c] = std::uint8_t(c == 3 ? x * 17 : x * y); // below alpha
    picture.alpha = Alpha::Premultiplied;
    writer.write(picture);
    writer.finish();
    const Film source = readFilm(path("alpha.png"));
    const Film copy = readFilm(file(path("alpha.png"), "copy.png", {"--filter", "VEDummy"}));
    ASSERT_TRUE(copy.info.hasAlpha);
    for (int y = 0; y < 16; ++y)
        EXPECT_TRUE(std::equal(source.frames[0].row(y), source.frames[0].row(y) + 64,
                               copy.frames[0].row(y)))
            << y;
    const Outcome film = render({path("alpha.png"), path("alpha.mp4")});
    EXPECT_EQ(film.code, 0);
    EXPECT_NE(film.talk.find("over black"), std::string::npos) << film.talk;
}

TEST_F(RenderTest, KeepsTimesTagsAndRotation) {
    MediaInfo source;
    source.frameRate = {25, 1};
    source.baseFrameRate = {1000, 1};
    source.hasVariableFrameRate = true;
    source.timeBase = {1, 1000};
    source.pixelFormat = "yuv420p";
    source.chromaShiftX = source.chromaShiftY = 1;
    source.colour = {1, 1, 1, ColourRange::Full, 1};
    source.displayMatrix = {0, 65536, 0, -65536, 0, 0, 0, 0, 1 << 30}; // a quarter turn
    WriterOptions options;
    options.size = {48, 96};
    options.source = &source;
    options.copyCompanions = false;
    Writer writer(path("source.mp4"), options);
    const std::vector<std::int64_t> times{0, 40, 50, 130, 131, 300};
    for (const std::int64_t time : times) {
        Frame frame(options.size, PixelFormat::Rgba8);
        std::fill(frame.pixels(), frame.pixels() + frame.strideBytes() * 96, std::uint8_t{255});
        frame.pts = time;
        frame.duration = 40;
        frame.timeBase = {1, 1000};
        writer.write(frame);
    }
    writer.finish();
    const Film before = readFilm(path("source.mp4"));
    ASSERT_EQ(before.milliseconds, times);
    ASSERT_NE(before.info.rotationDegrees, 0);

    const Film after = readFilm(file(path("source.mp4"), "after.mp4", {"--filter", "VEDummy"}));
    EXPECT_EQ(after.milliseconds, times);
    EXPECT_EQ(after.info.colour, before.info.colour);
    EXPECT_EQ(after.info.rotationDegrees, before.info.rotationDegrees);
    EXPECT_EQ(after.info.storedSize, (Size{96, 48}));
    EXPECT_EQ(after.info.uprightSize, (Size{48, 96}));
}

TEST_F(RenderTest, KeepsTheShapeOfThePictureWhenItsSizeChanges) {
    const std::string film = file("test:80x40@10,0.2s", "wide.mp4");
    const Film half = readFilm(file(film, "half.mp4", {"--size", "40x20"}));
    EXPECT_EQ(half.info.storedSize, (Size{40, 20}));
    EXPECT_EQ(half.info.sampleAspectRatio, (Rational{1, 1}));
    const Film square = readFilm(file(film, "square.mp4", {"--size", "40x40"}));
    EXPECT_EQ(square.info.sampleAspectRatio, (Rational{2, 1}));
}

TEST_F(RenderTest, CarriesTheSoundOfAFilm) {
    if (!fs::exists(sharedFilm)) GTEST_SKIP() << "there is no " << sharedFilm;
    const Film part = readFilm(
        file(sharedFilm, "part.mp4", {"--range", "2-3", "--size", "160x90", "--filter", "VEGobo"}));
    EXPECT_EQ(part.frames.size(), 24U);
    ASSERT_EQ(part.info.companions.size(), 1U);
    EXPECT_TRUE(part.info.companions[0].isSound);
    EXPECT_EQ(part.info.companions[0].codec, "aac");
    EXPECT_EQ(part.milliseconds[0], 0);
}

TEST_F(RenderTest, WritesPicturesAndSequences) {
    const std::string card = "test:64x48@10,0.3s";
    const Pixels pixels = pixelsOf(card);
    file(card, "card%02d.png");
    EXPECT_EQ(filesInFolder(),
              (std::vector<std::string>{"card01.png", "card02.png", "card03.png"}));
    EXPECT_EQ(pixelsOf(path("card%02d.png")), pixels);
    EXPECT_EQ(readFilm(file(path("card%02d.png"), "slow.mp4", {"--rate", "5"})).milliseconds,
              (std::vector<std::int64_t>{0, 200, 400}));

    file(card, "one.png", {"--range", "0.1-"});
    EXPECT_EQ(pixelsOf(path("one.png")), frameOf(pixels, 1, 64 * 48 * 4));
}

TEST_F(RenderTest, MakesAFilmOfAPicture) {
    const std::string picture = file("test:64x48", "card.png", {"--frames", "1"});
    EXPECT_EQ(readFilm(file(picture, "short.mp4")).frames.size(), 1U);
    const Film film = readFilm(file(picture, "long.mp4", {"--duration", "0.5", "--rate", "10"}));
    EXPECT_EQ(film.milliseconds, (std::vector<std::int64_t>{0, 100, 200, 300, 400}));
}

} // namespace
