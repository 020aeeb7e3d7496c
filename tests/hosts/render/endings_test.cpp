// How a render ends: interrupted, refused, or with something to say.
#include "render_support.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace render_test;

using Json = nlohmann::json;

class Interruption : public RenderTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Signals, Interruption, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_P(Interruption, LeavesAPlayableFile) {
    using namespace std::chrono_literals;
    Process process({"render", "test:320x240", path("long.mp4"), "--frames", "1000000", "--filter",
                     "VEGobo", "--json"});
    for (int i = 0; i < 1000 && filesInFolder().empty(); ++i) std::this_thread::sleep_for(10ms);
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(fs::exists(path("long.mp4"))) << "the name is taken before the film is whole";
    process.signal(GetParam());
    const Outcome run = process.wait();
    EXPECT_EQ(run.code, 130);
    EXPECT_NE(run.talk.find("interrupted; " + path("long.mp4")), std::string::npos) << run.talk;
    const Json json = Json::parse(run.results);
    EXPECT_EQ(json["interrupted"], true);
    const Film film = readFilm(path("long.mp4"));
    EXPECT_GT(film.frames.size(), 0U);
    EXPECT_EQ(film.frames.size(), json["frames"].get<std::size_t>());
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"long.mp4"});
}

TEST_F(RenderTest, EndsAtTheSecondSignalWithoutAnUnfinishedFile) {
    using namespace std::chrono_literals;
    // An encoder that holds back many frames takes its time to end the film.
    Process process({"render", "test:1280x720", path("long.mp4"), "--frames", "1000000", "--preset",
                     "placebo"});
    while (filesInFolder().empty()) std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(1000ms);
    process.signal(SIGINT);
    std::this_thread::sleep_for(300ms);
    process.signal(SIGINT);
    process.wait();
    // Unless the film has been ended in between.
    for (const std::string& name : filesInFolder()) EXPECT_EQ(name, "long.mp4");
}

// Nobody writes to the inputs and nobody reads from the outputs, so that only the signal can end
// these.
TEST_P(Interruption, EndsAWaitForAPipe) {
    using namespace std::chrono_literals;
    for (const char* name : {"in", "unopened", "out.mkv", "out.rgba", "unread.png"})
        ASSERT_EQ(::mkfifo(path(name).c_str(), 0600), 0);
    std::ofstream(path("list.ffconcat")) << "ffconcat version 1.0\nfile in\n";
    const int writer = ::open(path("in").c_str(), O_RDWR), keepsOpen = O_RDONLY | O_NONBLOCK;
    const int film = ::open(path("out.mkv").c_str(), keepsOpen);
    const int raw = ::open(path("out.rgba").c_str(), keepsOpen);
    const std::string card = "test:640x480", dissolve = "VEXFDissolve:fadeStatus=1";
    struct {
        Arguments arguments;
        int full; ///< a pipe that is full when the wait begins; 0: standard output, -1: none
        std::string said;
    } const cases[] = {
        {{path("in"), path("out.mp4")}, -1, "before the first frame"},
        {{path("unopened"), path("out.mp4")}, -1, "before the first frame"},
        {{path("list.ffconcat"), path("out.mp4"), "--allow-playlists"}, -1, "the first frame"},
        {{card, path("out.mp4"), "--filter", dissolve, "--image", "targetImage=" + path("in")},
         -1,
         "before the first frame"},
        {{card, path("unread.png")}, -1, "interrupted before"},
        {{card, path("out.mkv"), "--codec", "ffv1"}, film, "while nobody read"},
        {{card, path("out.rgba")}, raw, "while nobody read"},
        {{card, "-"}, 0, "while nobody read standard output"},
    };
    for (const auto& [arguments, full, said] : cases) {
        Arguments words = arguments;
        words.insert(words.begin(), "render");
        Process process(words);
        process.waitUntilItHandlesSignals();
        constexpr int pipeBytes = 65536;
        const int pipe = full == 0 ? process.results() : full;
        for (int count = 0; pipe >= 0 && count < pipeBytes / 2; ::ioctl(pipe, FIONREAD, &count))
            std::this_thread::sleep_for(5ms);
        process.waitUntilItIsIdle();
        process.signal(GetParam());
        const Outcome run = process.wait(false);
        EXPECT_EQ(run.code, 130) << run.talk;
        EXPECT_NE(run.talk.find(said), std::string::npos) << run.talk;
        EXPECT_FALSE(fs::exists(path("out.mp4")));
    }
    for (const int descriptor : {writer, film, raw}) ::close(descriptor);
}

TEST_F(RenderTest, WritesNoMessageIntoAFilmThatTookAStandardDescriptor) {
    const auto withoutDescriptors = [](const std::string& arguments) {
        const std::string command =
            "'" VORN_CLI_PATH "' render test:64x48@10,0.5s " + arguments + " <&- >&- 2>&-";
        return WEXITSTATUS(std::system(command.c_str()));
    };
    EXPECT_EQ(withoutDescriptors("'" + path("film.rgba") + "'"), 0);
    EXPECT_EQ(fs::file_size(path("film.rgba")), 5u * 64 * 48 * 4);
    EXPECT_EQ(withoutDescriptors("-"), 4);
    EXPECT_EQ(withoutDescriptors("'" + path("film.unheardof") + "'"), 4);
}

TEST_F(RenderTest, CountsTheFramesThatAreErrorPictures) {
    // From 0.2 s on the picture is too large for the second filter.
    const Outcome run = render({"test:64x48@10,0.5s", path("film.mkv"), "--quiet", "--filter",
                                "CILanczosScaleTransform", "--filter", "VETiles", "--animate",
                                "1.inputScale=0:1,0.15:1,0.15:120"});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.talk.find("3 of 5 frames are the error picture of VETiles FX 127"),
              std::string::npos)
        << run.talk;
}

TEST_F(RenderTest, EndsWith4WhenNobodyTakesTheResult) {
    const Arguments arguments{"render", "test:64x48", "-"};
    const Outcome closed = Process(arguments, Process::Results::Refuse).wait();
    EXPECT_EQ(closed.code, 4);
    EXPECT_NE(closed.talk.find("standard output: Broken pipe"), std::string::npos) << closed.talk;
    EXPECT_EQ(Process(arguments, Process::Results::Read, "/dev/full").wait().code, 4);
}

TEST_F(RenderTest, NeverDestroysWhatItReadsOrMustNotReplace) {
    const std::string film = file("test:64x48@10,0.2s", "film.mp4");
    const std::string before = fileContents(film);
    const std::string link = path("link.mp4");
    fs::create_symlink(film, link);
    EXPECT_EQ(render({film, film}).code, 2);
    EXPECT_EQ(render({film, link}).code, 2);
    EXPECT_EQ(render({film, path("./film.mp4")}).code, 2);
    file("test:64x48@10,0.2s", "shot%d.png");
    const std::string shot = fileContents(path("shot2.png"));
    fs::create_directory_symlink(".", path("here"));
    EXPECT_EQ(render({path("shot%d.png"), path("shot2.png")}).code, 2);
    EXPECT_EQ(render({path("shot%d.png"), path("here/shot%d.png")}).code, 2);
    EXPECT_EQ(render({film, path("shot%d.png"), "--filter", "VEXFDissolve", "--image",
                      "targetImage=" + path("shot2.png")})
                  .code,
              4);
    EXPECT_TRUE(fileContents(path("shot2.png")) == shot);
    for (const char* name : {"here", "shot1.png", "shot2.png"}) fs::remove(path(name));
    const std::string fromItself =
        "'" VORN_CLI_PATH "' render - '" + film + "' <'" + film + "' 2>/dev/null";
    EXPECT_EQ(WEXITSTATUS(std::system(fromItself.c_str())), 2);
    EXPECT_EQ(render({"test:64x48", film, "--no-overwrite"}).code, 4);
    EXPECT_EQ(render({"test:64x48", film, "--filter", "VESolarize:intensity=none"}).code, 1);
    EXPECT_TRUE(fileContents(film) == before);
    EXPECT_EQ(filesInFolder(), (std::vector<std::string>{"film.mp4", "link.mp4"}));
}

TEST_F(RenderTest, TalksOnStandardErrorUnlessQuiet) {
    const Outcome run = render({"test:64x48", path("a.png"), "--filter", "VEDummy"});
    EXPECT_EQ(run.results, "");
    EXPECT_NE(run.talk.find("1 frame of 64x48"), std::string::npos) << run.talk;
    EXPECT_EQ(render({"test:64x48", path("a.png"), "--quiet"}).talk, "");
}

} // namespace
