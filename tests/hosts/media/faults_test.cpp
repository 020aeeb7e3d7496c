// Files that are damaged or cannot be, and what the layer owes its callers besides.
#include "media_support.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace media_test;

TEST_F(MediaTest, SaysWhyAFileCannotBeRead) {
    writeBytes(path("empty.mp4"), "");
    writeBytes(path("notes.txt"), "Nothing to see here.\n");
    writeBytes(path("noise.png"), std::string(1000, '\x5a'));
    writeCounter(path("counter.mp4"), 10);
    writeBytes(path("cut.mp4"), fileBytes(path("counter.mp4")).substr(0, 800));
    struct {
        std::string name, reason;
    } const cases[] = {
        {"missing.mp4", "no such file"},
        {"empty.mp4", ""},
        {"notes.txt", ""},
        {"noise.png", ""},
        {"cut.mp4", "moov"},
        {".", "is a folder"},
        {"none%04d.png", "no file matches"},
    };
    for (const auto& [name, reason] : cases) {
        const std::string target = path(name);
        const std::string message = messageOf<ReadError>([&] { Reader reader(target); });
        EXPECT_NE(message.find(name), std::string::npos) << name << ": " << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
    }
    ReaderOptions backwards;
    backwards.range = {2, 1};
    EXPECT_THROW(Reader(path("counter.mp4"), backwards), ReadError);
    ReaderOptions flat;
    flat.outputSize = Size{0, 10};
    EXPECT_THROW(Reader(path("counter.mp4"), flat), ReadError);
}

TEST_F(MediaTest, ReadsWhatIsLeftOfADamagedFilm) {
    writeCounter(path("counter.mkv"), 50);
    const std::string bytes = fileBytes(path("counter.mkv"));
    writeBytes(path("cut.mkv"), bytes.substr(0, bytes.size() * 6 / 10));
    Reader cut(path("cut.mkv"));
    const std::size_t left = readAll(cut).size();
    EXPECT_GT(left, 5u);
    EXPECT_LT(left, 50u);
    EXPECT_TRUE(anyContains(cut.warnings(), "ends early"));

    // Every offset of the damage must be survived; what is seen does not matter.
    for (std::size_t place = 600; place + 60 < bytes.size(); place += bytes.size() / 12) {
        std::string damaged = bytes;
        damaged.replace(place, 60, std::string(60, '\xa5'));
        writeBytes(path("damaged.mkv"), damaged);
        try {
            Reader reader(path("damaged.mkv"));
            EXPECT_LE(readAll(reader).size(), 50u);
        } catch (const ReadError&) {
        }
    }
}

TEST_F(MediaTest, ChecksEverythingBeforeTheFirstFrame) {
    writeBytes(path("there.mp4"), "keep me");
    struct {
        std::string name, codec, preset, option, reason;
    } const cases[] = {
        {"film.foo", "", "", "", "unknown extension"},
        {"film", "", "", "", "no extension"},
        {"no/film.mp4", "", "", "", "no folder"},
        {"no/film.png", "", "", "", "no folder"},
        {"no/%03d.png", "", "", "", "no folder"},
        {"film.mp4", "libx246", "", "", "did you mean libx264"},
        {"film.webm", "libx264", "", "", "cannot hold libx264; it takes: "},
        {"film.mp4", "", "fats", "", "fats"},
        {"film.mp4", "", "", "flavour", "has no option flavour"},
        {"film.png", "gif", "", "", "not gif"},
        {"film.mp3", "", "", "", "holds no film"},
        {"there.mp4", "", "", "", "exists already"},
        {"pipe:x", "", "", "", "file descriptor"},
    };
    for (const auto& [name, codec, preset, option, reason] : cases) {
        WriterOptions options = optionsFor({64, 48});
        options.codec = codec;
        options.preset = preset;
        if (!option.empty()) options.encoderOptions = {{option, "1"}};
        options.overwrite = false;
        const std::string target = name.starts_with("pipe:") ? name : path(name);
        const std::string message = messageOf<WriteError>([&] { Writer writer(target, options); });
        const std::string start = name.substr(0, name.find('%'));
        EXPECT_NE(message.find(start), std::string::npos) << name << ": " << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
    }
    WriterOptions options = optionsFor({0, 48});
    EXPECT_THROW(Writer(path("film.mp4"), options), WriteError);
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"there.mp4"});
    EXPECT_EQ(fileBytes(path("there.mp4")), "keep me");
}

TEST_F(MediaTest, RefusesFramesThatDoNotFit) {
    Frame frame = makeFrame({64, 48}, gradient);
    Writer film(path("film.mp4"), optionsFor({32, 48}));
    EXPECT_NE(messageOf<WriteError>([&] { film.write(frame); }).find("64x48, not 32x48"),
              std::string::npos);
    Writer picture(path("one.png"), optionsFor({64, 48}));
    picture.write(frame);
    EXPECT_NE(messageOf<WriteError>([&] { picture.write(frame); }).find("pattern"),
              std::string::npos);
}

TEST_F(MediaTest, ReportsAFullDisk) {
    Frame frame = makeFrame({64, 48}, gradient);
    for (const char* name : {"full.rgba", "full.mp4", "full.png"}) {
        fs::create_symlink("/dev/full", path(name));
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), optionsFor({64, 48}));
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("No space left"), std::string::npos) << name << ": " << message;
        EXPECT_TRUE(fs::is_symlink(path(name)));
    }
}

TEST_F(MediaTest, WritesTheSameBytesTwice) {
    for (const char* name :
         {"twice.mp4", "twice.mkv", "twice.webm", "twice.gif", "twice.avi", "twice.mov"}) {
        writeCounter(path(name), 12);
        const std::string first = fileBytes(path(name));
        writeCounter(path(name), 12);
        EXPECT_TRUE(first == fileBytes(path(name))) << name;
    }
}

TEST_F(MediaTest, KeepsQuietOnTheTerminal) {
    writeBytes(path("noise.mp4"), std::string(5000, '\x5a'));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_THROW(Reader(path("noise.mp4")), ReadError);
    for (const char* codec : {"libx264", "libx265", "libsvtav1"}) {
        WriterOptions options = optionsFor({64, 64});
        options.codec = codec;
        Frame frame = makeFrame({64, 64}, gradient);
        writeStill(path("film.mkv"), frame, options);
        readFirst(path("film.mkv"));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(MediaTest, ReusesBuffers) {
    writeCounter(path("counter.mp4"), 20);
    Reader reader(path("counter.mp4"));
    Frame frame;
    ASSERT_TRUE(reader.read(frame));
    const std::uint8_t* pixels = frame.pixels();
    while (reader.read(frame)) EXPECT_EQ(frame.pixels(), pixels);

    Frame survivor;
    FramePool pool;
    for (int round = 0; round < 10; ++round) {
        Frame a = pool.acquire({64, 48}, PixelFormat::Rgba8);
        Frame b = pool.acquire({64, 48}, PixelFormat::Rgba8);
        survivor = std::move(b);
    }
    EXPECT_LE(pool.allocations(), 3u);
    EXPECT_THROW(pool.acquire({0, 1}, PixelFormat::Rgba8), std::invalid_argument);
    EXPECT_THROW(pool.acquire({1 << 20, 1 << 20}, PixelFormat::Rgba16), std::invalid_argument);
}

} // namespace
