// What happens to the files that are there already: they are replaced whole, or not at all.
#include "media_support.h"

#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace media_test;

TEST_F(MediaTest, LeavesTheOldFileUntilTheNewOneIsWhole) {
    for (const char* name : {"old.mp4", "old.png", "old.rgba"}) {
        writeBytes(path(name), "keep me");
        Frame frame = makeFrame({64, 48}, gradient);
        {
            Writer abandoned(path(name), optionsFor({64, 48}));
            if (std::string(name) != "old.png") abandoned.write(frame);
            EXPECT_EQ(fileBytes(path(name)), "keep me");
        }
        Writer empty(path(name), optionsFor({64, 48}));
        EXPECT_THROW(empty.finish(), WriteError);
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{name});
        EXPECT_EQ(fileBytes(path(name)), "keep me");

        Writer writer(path(name), optionsFor({64, 48}));
        writer.write(frame);
        writer.finish();
        EXPECT_THROW(writer.write(frame), WriteError);
        EXPECT_THROW(writer.finish(), WriteError);
        EXPECT_NE(fileBytes(path(name)), "keep me");
        fs::remove(path(name));
        EXPECT_TRUE(filesInFolder().empty());
    }
}

mode_t permissionsOf(const std::string& path) {
    struct stat file = {};
    return ::stat(path.c_str(), &file) == 0 ? file.st_mode & 0777 : 0;
}

TEST_F(MediaTest, KeepsThePermissionsOfTheFileThatItReplaces) {
    const mode_t old = ::umask(0);
    for (const char* name : {"old.mp4", "old.png", "old.rgba"}) {
        for (const mode_t mode : {0600, 0640, 0666}) {
            writeBytes(path(name), "keep me private");
            fs::permissions(path(name), fs::perms(mode));
            Writer writer(path(name), optionsFor({64, 48}));
            for (const std::string& each : filesInFolder())
                EXPECT_EQ(permissionsOf(path(each)), mode) << each;
            writer.write(makeFrame({64, 48}, gradient));
            writer.finish();
            EXPECT_EQ(permissionsOf(path(name)), mode) << name;
            fs::remove(path(name));
        }
    }
    ::umask(027);
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("new.png"), frame, optionsFor({64, 48}), 1);
    EXPECT_EQ(permissionsOf(path("new.png")), 0640U);
    ::umask(old);
}

TEST_F(MediaTest, WritesIntoNoFileThatIsPutInItsWay) {
    Frame frame = makeFrame({64, 48}, gradient);
    writeBytes(path("victim"), "keep me");
    for (const char* name : {"out.mp4", "out.png", "out.rgba"}) {
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), optionsFor({64, 48}));
            for (const std::string& each : filesInFolder()) {
                if (!each.ends_with(".part")) continue;
                fs::remove(path(each));
                fs::create_symlink("victim", path(each));
            }
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("took the unfinished file away"), std::string::npos) << message;
        EXPECT_EQ(fileBytes(path("victim")), "keep me") << name;
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{"victim"});
    }
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make links of another user";
    fs::create_symlink("victim", path("out.png"));
    ASSERT_EQ(::lchown(path("out.png").c_str(), 12345, 12345), 0);
    EXPECT_THROW(Writer(path("out.png"), optionsFor({64, 48})), WriteError);
}

TEST_F(MediaTest, ReplacesNothingThatComesToBeMeanwhile) {
    Frame frame = makeFrame({64, 48}, gradient);
    WriterOptions options = optionsFor({64, 48});
    options.overwrite = false;
    for (const char* name : {"late.mp4", "late.png", "late.rgba"}) {
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), options);
            writeBytes(path(name), "keep me");
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("exists already"), std::string::npos) << name << ": " << message;
        EXPECT_EQ(fileBytes(path(name)), "keep me");
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{name});
        fs::remove(path(name));
    }
}

/// Two playlists of the film a.mkv or a.ts under the names of films.
void writePlaylists(const MediaTestFolder& path) {
    writeCounter(path("a.mkv"), 5);
    writeCounter(path("a.ts"), 5);
    writeBytes(path("concat.mp4"), "ffconcat version 1.0\nfile 'a.mkv'\n");
    writeBytes(path("hls.mp4"), "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n"
                                "#EXTINF:0.2,\na.ts\n#EXT-X-ENDLIST\n");
}

TEST_F(MediaTest, ReadsNoFileThatAnotherOneNames) {
    writePlaylists([this](const std::string& name) { return path(name); });
    for (const char* name : {"concat.mp4", "hls.mp4"}) {
        const std::string message = messageOf<ReadError>([&] { Reader reader(path(name)); });
        EXPECT_NE(message.find("--allow-playlists"), std::string::npos) << name << ": " << message;

        ReaderOptions options;
        options.access.allowsPlaylists = true;
        Reader reader(path(name), options);
        EXPECT_EQ(readAll(reader).size(), 5u) << name;
    }
}

TEST_F(MediaTest, ReplacesNoFileThatIsRead) {
    writePlaylists([this](const std::string& name) { return path(name); });
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("shot%02d.png"), frame, optionsFor({64, 48}), 3);
    fs::create_directory(path("sub"));
    fs::create_directory_symlink("..", path("sub/up"));
    fs::create_hard_link(path("a.mkv"), path("other.mkv"));
    struct {
        const char *input, *output;
    } const cases[] = {
        {"a.mkv", "a.mkv"},
        {"a.mkv", "other.mkv"},
        {"a.mkv", "sub/up/a.mkv"},
        {"shot%02d.png", "sub/up/shot02.png"},
        {"concat.mp4", "a.mkv"},
        {"hls.mp4", "sub/up/a.ts"},
        {"shot%02d.png", "shot%02d.png"},
    };
    for (const auto& [input, output] : cases) {
        ReaderOptions readerOptions;
        readerOptions.access = {.allowsPlaylists = true, .inputs = std::make_shared<InputFiles>()};
        Reader reader(path(input), readerOptions);
        WriterOptions options = optionsFor({64, 48});
        options.access = readerOptions.access;
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(output), options);
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("is read"), std::string::npos) << output << ": " << message;
    }

    // What takes the place of the output while it is written is looked at again.
    ReaderOptions readerOptions;
    readerOptions.access.inputs = std::make_shared<InputFiles>();
    Reader reader(path("a.mkv"), readerOptions);
    WriterOptions options = optionsFor({64, 48});
    options.access = readerOptions.access;
    Writer writer(path("late.mkv"), options);
    writer.write(frame);
    fs::rename(path("other.mkv"), path("late.mkv"));
    EXPECT_THROW(writer.finish(), WriteError);
}

} // namespace
