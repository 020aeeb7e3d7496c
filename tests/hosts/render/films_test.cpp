// Films and pictures with something special: fields, transparency, light, losses.
#include "render_support.h"

#include "hosts/media/track_support.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace render_test;

using Json = nlohmann::json;

bool says(const Outcome& run, const std::string& part) {
    return run.talk.find(part) != std::string::npos;
}

/// Eight bits of every alpha with colours of every kind, also above alpha and below no alpha.
Frame straightPicture() {
    Frame picture({256, 16}, PixelFormat::Rgba8);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 256; ++x) {
            std::uint8_t* pixel = picture.row(y) + 4 * x;
            pixel[0] = std::uint8_t(x * 7 + y * 31);
            pixel[1] = std::uint8_t(255 - y * 16);
            pixel[2] = std::uint8_t(y * 17);
            pixel[3] = std::uint8_t(x);
        }
    }
    picture.alpha = Alpha::Straight;
    return picture;
}

TEST_F(RenderTest, LeavesTransparentPicturesAsTheyAre) {
    const Frame picture = straightPicture();
    WriterOptions options;
    options.size = picture.size();
    options.hasAlpha = true;
    Writer writer(path("straight.png"), options);
    writer.write(picture);
    writer.finish();
    std::string stored;
    for (int y = 0; y < 16; ++y)
        stored.append(reinterpret_cast<const char*>(picture.row(y)), 256 * 4);

    EXPECT_EQ(pixelsOf(path("straight.png")), Pixels(stored));
    EXPECT_EQ(pixelsOf(file(path("straight.png"), "copy.png")), Pixels(stored));
    EXPECT_EQ(pixelsOf(file(path("straight.png"), "copy.mkv")), Pixels(stored));
    // A filter sees premultiplied colours, but more than 8 bits of them: the rest is the same.
    const Pixels filtered = pixelsOf(path("straight.png"), {"--filter", "VEDummy"});
    ASSERT_EQ(filtered.size(), stored.size());
    for (std::size_t i = 0; i < stored.size(); i += 4) {
        if (stored[i + 3] == 0) continue;
        ASSERT_EQ(filtered.substr(i, 4), stored.substr(i, 4)) << i / 4;
    }
}

/// A white bar that moves on between the fields of a frame.
std::string interlacedFilm(const std::string& path) {
    constexpr Size size{160, 64};
    MediaInfo source;
    source.storedSize = source.uprightSize = size;
    source.frameRate = {25, 1};
    source.timeBase = {1, 25};
    source.pixelFormat = "yuv420p";
    source.chromaShiftX = source.chromaShiftY = 1;
    source.fieldOrder = FieldOrder::TopFirst;
    WriterOptions options;
    options.size = size;
    options.source = &source;
    options.codec = "mpeg2video";
    Writer writer(path, options);
    for (int i = 0; i < 6; ++i) {
        Frame frame(size, PixelFormat::Rgba8);
        for (int y = 0; y < size.height; ++y) {
            const int bar = 16 + (2 * i + y % 2) * 8;
            for (int x = 0; x < size.width; ++x)
                for (int c = 0; c < 4; ++c)
                    frame.row(y)[4 * x + c] = c == 3 || (x >= bar && x < bar + 32) ? 255 : 0;
        }
        frame.pts = i;
        frame.duration = 1;
        frame.timeBase = {1, 25};
        writer.write(frame);
    }
    writer.finish();
    return path;
}

/// How much neighbouring rows differ, which are of different fields.
double combing(const Frame& frame) {
    double sum = 0;
    for (int y = 8; y + 9 < frame.height(); ++y)
        for (int x = 0; x < frame.width(); ++x)
            sum += std::abs(int(frame.row(y)[4 * x]) - int(frame.row(y + 1)[4 * x]));
    return sum / (frame.width() * (frame.height() - 17));
}

TEST_F(RenderTest, SaysThatFilmsAreInterlacedAndMakesThemWhole) {
    const std::string film = interlacedFilm(path("fields.mpg"));
    const Outcome kept = render({film, path("kept.mp4"), "--json", "--strict"});
    EXPECT_EQ(kept.code, 0) << kept.talk;
    EXPECT_TRUE(says(kept, "is interlaced, top field first")) << kept.talk;
    EXPECT_EQ(Json::parse(kept.results)["notes"].size(), 1U);
    const Film before = readFilm(path("kept.mp4"));
    EXPECT_EQ(before.info.fieldOrder, FieldOrder::TopFirst);

    const Film after = readFilm(file(film, "whole.mp4", {"--deinterlace"}));
    EXPECT_EQ(after.info.fieldOrder, FieldOrder::Progressive);
    EXPECT_EQ(after.milliseconds, before.milliseconds);
    ASSERT_EQ(after.frames.size(), 6U);
    for (std::size_t i = 1; i < 5; ++i)
        EXPECT_LT(combing(after.frames[i]) * 5, combing(before.frames[i])) << i;
    const Film part = readFilm(file(film, "part.mp4", {"--deinterlace", "--range", "0.08-0.16"}));
    EXPECT_EQ(part.frames.size(), 2U);

    const std::string plain = file("test:64x48@10,0.3s", "plain.mp4");
    const Outcome untagged = render({plain, path("same.mp4"), "--deinterlace"});
    EXPECT_TRUE(says(untagged, "--deinterlace=all")) << untagged.talk;
}

TEST_F(RenderTest, StrictnessMakesLossesFailures) {
    file("test:64x48@10,0.3s", "card%02d.png");
    fs::remove(path("card02.png"));
    for (const bool isStrict : {false, true}) {
        Arguments gap{path("card%02d.png"), path("gap.mp4"), "--quiet"};
        Arguments big{"test:64x48@10,0.2s",
                      path("error.mkv"),
                      "--quiet",
                      "--filter",
                      "CILanczosScaleTransform:scale=120",
                      "--filter",
                      "VETiles"};
        Arguments fine{"test:64x48@10,0.2s", path("fine.mp4")};
        for (Arguments* each : {&gap, &big, &fine})
            if (isStrict) each->push_back("--strict");
        EXPECT_EQ(render(gap).code, isStrict ? 1 : 0);
        EXPECT_EQ(readFilm(path("gap.mp4")).frames.size(), 1U);
        const Outcome error = render(big);
        EXPECT_EQ(error.code, isStrict ? 1 : 0);
        EXPECT_TRUE(says(error, "2 of 2 frames are the error picture")) << error.talk;
        EXPECT_EQ(says(error, "--strict: 1 of"), isStrict) << error.talk;
        EXPECT_EQ(render(fine).code, 0);
    }
}

/// A flat film of a coded value, with a transfer and 10 bits.
std::string flatFilm(const std::string& path, int transfer, double value) {
    constexpr Size size{32, 16};
    MediaInfo source;
    source.storedSize = source.uprightSize = size;
    source.frameRate = {25, 1};
    source.timeBase = {1, 25};
    source.pixelFormat = "yuv444p10le";
    source.bitsPerComponent = 10;
    source.colour = {9, 9, transfer, ColourRange::Full, 0};
    WriterOptions options;
    options.size = size;
    options.source = &source;
    options.codec = "ffv1";
    options.bitsPerComponent = 10;
    Writer writer(path, options);
    Frame frame(size, PixelFormat::Rgba16);
    for (int y = 0; y < size.height; ++y) {
        auto* row = reinterpret_cast<std::uint16_t*>(frame.row(y));
        for (int i = 0; i < size.width * 4; ++i)
            row[i] = std::uint16_t(i % 4 == 3 ? 65535 : std::lround(value * 65535));
    }
    frame.duration = 1;
    frame.timeBase = {1, 25};
    writer.write(frame);
    writer.finish();
    return path;
}

double valueOf(const std::string& film) {
    const Film seen = readFilm(film);
    return reinterpret_cast<const std::uint16_t*>(seen.frames[0].row(8))[4 * 16] / 65535.0;
}

TEST_F(RenderTest, WorksOnTheLightThatTheTransferOfTheSourceMeans) {
    struct {
        int transfer;
        double limited; ///< the coded value of a fifth of the peak
    } const cases[] = {{1, 1.099297 * std::pow(0.2, 0.45) - 0.099297}, // BT.709
                       {16, 0.82742},                                  // PQ: 2000 cd/m2
                       {18, 0.69389},                                  // HLG
                       {8, 0.2},                                       // linear
                       {4, std::pow(0.2, 1 / 2.2)}};
    for (const auto& [transfer, limited] : cases) {
        SCOPED_TRACE(transfer);
        const std::string white = flatFilm(path("white.mkv"), transfer, 1);
        const Arguments limit{
            "--working-space", "linear",
            "--codec",         "ffv1",
            "--filter",        "VE_GainClamp:input1=1,input2=51,input3=51,input4=51"};
        EXPECT_NEAR(valueOf(file(white, "limited.mkv", limit)), limited, 1.5 / 1023);
        // What is not changed stays as it is, to the bit.
        const std::string grey = flatFilm(path("grey.mkv"), transfer, 0.3);
        EXPECT_EQ(
            valueOf(file(grey, "same.mkv",
                         {"--working-space", "linear", "--codec", "ffv1", "--filter", "VEDummy"})),
            valueOf(grey));
    }
    const Outcome cannot =
        render({flatFilm(path("log.mkv"), 9, 0.5), path("no.mkv"), "--working-space", "linear"});
    EXPECT_EQ(cannot.code, 2);
    EXPECT_TRUE(says(cannot, "cannot be undone")) << cannot.talk;
}

TEST_F(RenderTest, SaysOnceThatFiltersSeeCodedValuesOfHdr) {
    const std::string film = flatFilm(path("pq.mkv"), 16, 0.5);
    const Outcome run = render({film, path("out.mkv"), "--filter", "VEDummy", "--json"});
    ASSERT_EQ(run.code, 0) << run.talk;
    const Json json = Json::parse(run.results);
    EXPECT_EQ(json["colour"]["system"], "HDR with PQ");
    EXPECT_EQ(json["colour"]["primaries"], "bt2020");
    ASSERT_EQ(json["notes"].size(), 1U) << run.results;
    EXPECT_NE(json["notes"][0].get<std::string>().find("smpte2084"), std::string::npos);
    EXPECT_FALSE(says(render({film, path("out.mkv")}), "HDR"));
}

TEST_F(RenderTest, HandsOptionsForTracksAndEncodersOn) {
    const AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    media_test::FilmMaker(file("test:64x48@10,2s", "card.mp4"), path("rich.mkv"))
        .title("A title")
        .sound("flac", mono, "deu")
        .subtitles("Hello")
        .write();
    const Arguments options{"--audio",     "opus:64k",       "--subtitles", "none",
                            "--strict",    "--pixel-format", "yuv422p",     "--tune",
                            "grain",       "--bitrate",      "400k",        "--range",
                            "0-0.5",       "--codec",        "libx265",     "--encoder-option",
                            "forced-idr=1"};
    const std::string film = file(path("rich.mkv"), "out.mkv", options);
    EXPECT_EQ(media_test::contentsOf(film).codecs(), "opus");
    EXPECT_EQ(readFilm(film).info.pixelFormat, "yuv422p");
    EXPECT_EQ(readFilm(film).info.codec, "hevc");

    const Outcome copied =
        render({path("rich.mkv"), path("copy.mp4"), "--audio", "copy", "--strict"});
    EXPECT_EQ(copied.code, 1);
    EXPECT_TRUE(says(copied, "sound (flac, deu) left out")) << copied.talk;
    EXPECT_TRUE(says(copied, "converted to mov_text")) << copied.talk;
    EXPECT_EQ(media_test::contentsOf(path("copy.mp4")).codecs(), "mov_text");
}

} // namespace
