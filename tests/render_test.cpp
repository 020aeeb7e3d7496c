// `vorn render` as its users meet it: the program is run, and what it wrote is read back.
#include "bundle_copy.h"

#include "media/reader.h"
#include "media/writer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace vorn::media;
namespace fs = std::filesystem;
using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

const std::string sharedFilm = VORN_SHARED_MEDIA_DIR "/film-854x480.mp4";

struct Outcome {
    int code = -1;
    std::string results, talk;
};

/// The program at work. Its results can be read, sent to a file, or refused.
class Process {
public:
    enum class Results { Read, Refuse };

    explicit Process(Arguments arguments, Results results = Results::Read,
                     const char* resultsFile = nullptr) {
        std::string talkPath = (fs::temp_directory_path() / "vorn-render-test-XXXXXX").string();
        const int talk = ::mkstemp(talkPath.data());
        talkPath_ = talkPath;
        int ends[2] = {-1, -1};
        if (talk < 0 || ::pipe(ends) != 0) throw std::runtime_error("no pipe");
        arguments.insert(arguments.begin(), VORN_CLI_PATH);
        std::vector<char*> words;
        for (std::string& argument : arguments) words.push_back(argument.data());
        words.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            const int target = resultsFile ? ::open(resultsFile, O_WRONLY) : ends[1];
            ::dup2(target, STDOUT_FILENO);
            ::dup2(talk, STDERR_FILENO);
            ::close(ends[0]);
            ::execv(words[0], words.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        ::close(talk);
        results_ = ends[0];
        if (results == Results::Refuse) closeResults();
    }
    ~Process() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            wait();
        }
    }

    void signal(int number) const { ::kill(pid_, number); }
    int results() const { return results_; }

    /// Waits until it uses no more of the processor, so that it waits itself.
    void waitUntilItIsIdle() const {
        using namespace std::chrono_literals;
        const std::string path = "/proc/" + std::to_string(pid_) + "/stat";
        const auto processorTicks = [&] {
            const std::string text = fileContents(path);
            std::istringstream fields(text.substr(text.rfind(')') + 1));
            std::string skipped;
            for (int i = 3; i < 14; ++i) fields >> skipped;
            long user = 0, system = 0;
            fields >> user >> system;
            return user + system;
        };
        for (long last = -1, now = processorTicks(); now != last; now = processorTicks()) {
            last = now;
            std::this_thread::sleep_for(100ms);
        }
    }

    /// Waits until signals ask for an end instead of ending the program.
    void waitUntilItHandlesSignals() const {
        using namespace std::chrono_literals;
        const std::string status = "/proc/" + std::to_string(pid_) + "/status";
        const auto handlesLast = [&] {
            const std::string text = fileContents(status);
            const std::size_t place = text.find("SigCgt:\t");
            return place != std::string::npos &&
                   std::stoull(text.substr(place + 8, 17), nullptr, 16) >> (SIGURG - 1) & 1;
        };
        while (!handlesLast()) std::this_thread::sleep_for(5ms);
    }

    /// The results stay unread until the program has ended unless `readsResults`.
    Outcome wait(bool readsResults = true) {
        Outcome outcome;
        int status = 0;
        if (!readsResults) ::waitpid(pid_, &status, 0);
        char block[1 << 16];
        while (results_ >= 0) {
            const ssize_t count = ::read(results_, block, sizeof block);
            if (count <= 0)
                closeResults();
            else
                outcome.results.append(block, std::size_t(count));
        }
        if (readsResults) ::waitpid(pid_, &status, 0);
        pid_ = -1;
        if (WIFEXITED(status)) outcome.code = WEXITSTATUS(status);
        outcome.talk = fileContents(talkPath_);
        fs::remove(talkPath_);
        return outcome;
    }

private:
    void closeResults() {
        ::close(results_);
        results_ = -1;
    }

    pid_t pid_ = -1;
    int results_ = -1;
    fs::path talkPath_;
};

Outcome render(Arguments arguments) {
    arguments.insert(arguments.begin(), "render");
    return Process(std::move(arguments)).wait();
}

/// Headerless pixels, of which a failing test prints the number only.
struct Pixels : std::string {
    explicit Pixels(std::string bytes) : std::string(std::move(bytes)) {}
    friend void PrintTo(const Pixels& pixels, std::ostream* out) {
        *out << pixels.size() << " bytes";
    }
};

/// The pixels of a render that has to succeed.
Pixels pixelsOf(const std::string& input, Arguments options = {}) {
    options.insert(options.begin(), {input, "-", "--quiet"});
    const Outcome run = render(options);
    EXPECT_EQ(run.code, 0) << run.talk;
    EXPECT_EQ(run.talk, "");
    return Pixels(run.results);
}

/// From frame number `first` on, where all frames are of that size.
Pixels framesOf(const Pixels& pixels, std::size_t first, std::size_t count,
                std::size_t frameBytes) {
    return Pixels(pixels.size() < first * frameBytes
                      ? std::string()
                      : pixels.substr(first * frameBytes, count * frameBytes));
}
Pixels frameOf(const Pixels& pixels, std::size_t index, std::size_t frameBytes) {
    return framesOf(pixels, index, 1, frameBytes);
}

int largestDifference(const Pixels& a, const Pixels& b) {
    if (a.size() != b.size()) return 255;
    int largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        largest = std::max(largest, std::abs(std::uint8_t(a[i]) - std::uint8_t(b[i])));
    return largest;
}

struct Film {
    MediaInfo info;
    std::vector<std::int64_t> milliseconds; ///< times of the frames
    std::vector<Frame> frames;
};

Film readFilm(const std::string& path) {
    Reader reader(path);
    Film film{reader.info(), {}, {}};
    for (Frame frame; reader.read(frame); frame = Frame()) {
        film.milliseconds.push_back((frame.timeNanoseconds() + 500'000) / 1'000'000);
        film.frames.push_back(std::move(frame));
    }
    return film;
}

class RenderTest : public testing::Test {
protected:
    RenderTest() {
        std::string name = (fs::temp_directory_path() / "render-test-XXXXXX").string();
        folder_ = ::mkdtemp(name.data());
    }
    ~RenderTest() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<std::string> filesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    /// Renders to a file of the folder; has to succeed.
    std::string file(const std::string& input, const std::string& name, Arguments options = {}) {
        options.insert(options.begin(), {input, path(name), "--quiet"});
        const Outcome run = render(options);
        EXPECT_EQ(run.code, 0) << run.talk;
        return path(name);
    }

    fs::path folder_;
};

// ---- The test card, ranges and rates ----------------------------------------------------------

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

// ---- The same picture -------------------------------------------------------------------------

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

// ---- Filters ----------------------------------------------------------------------------------

TEST_F(RenderTest, AnimatesStraightBetweenKeyframes) {
    const std::string card = "test:64x48@10,0.8s";
    constexpr std::size_t frame = 64 * 48 * 4;
    const auto still = [&](const char* mixer) {
        return pixelsOf(card, {"--filter", std::string("VEGobo:mixer=") + mixer});
    };
    struct Case {
        std::size_t frame;
        const char* mixer;
    };
    // 0.2 stands until 0.1 s and rises to 0.8 at 0.5 s; it jumps to 0 at 0.6 s and stays.
    const Pixels moving = pixelsOf(
        card, {"--filter", "VEGobo", "--animate", "mixer=0.1:0.2,00:00.5:0.8,0.6:0.8,0.6:0"});
    for (const Case& each : {Case{0, "0.2"}, Case{1, "0.2"}, Case{3, "0.5"}, Case{5, "0.8"},
                             Case{6, "0"}, Case{7, "0"}}) {
        EXPECT_EQ(frameOf(moving, each.frame, frame), frameOf(still(each.mixer), each.frame, frame))
            << "frame " << each.frame;
    }
    EXPECT_NE(frameOf(moving, 2, frame), frameOf(still("0.2"), 2, frame));

    // Times count from the start of what is written.
    const Pixels late = pixelsOf(
        card, {"--range", "0.5-", "--filter", "VEGobo", "--animate", "1.inputMixer=0:1,0.1:0"});
    EXPECT_EQ(frameOf(late, 0, frame), frameOf(still("1"), 5, frame));
    EXPECT_EQ(frameOf(late, 1, frame), frameOf(still("0"), 6, frame));
}

TEST_F(RenderTest, AppliesTheFiltersOfAChainInOrder) {
    const std::string card = "test:64x48@10,0.1s";
    // The full fold doubles values, which loses nothing in a file of 8 bits but the rounding of
    // floats that lie halfway.
    const std::string fold = "VESolarize:intensity=1";
    const Pixels both = pixelsOf(card, {"--filter", fold, "--filter", "VEGobo"});
    EXPECT_NE(both, pixelsOf(card, {"--filter", "VEGobo", "--filter", fold}));
    const std::string first = file(card, "first.png", {"--filter", fold});
    EXPECT_LE(largestDifference(pixelsOf(first, {"--filter", "VEGobo"}), both), 1);
}

TEST_F(RenderTest, ShowsSecondImagesInStep) {
    const Outcome list = Process({"describe", "VEXFDissolve"}).wait();
    if (list.code != 0) GTEST_SKIP() << "there is no filter with a second image";
    const Arguments toTarget{"--filter", "VEXFDissolve:fadeStatus=1", "--image",
                             "inputTargetImage=test:64x48"};
    EXPECT_EQ(pixelsOf(file("test:64x48@10,0.1s", "a.png"), toTarget),
              pixelsOf("test:64x48@25,0.04s"));
    const std::string film = file("test:64x48@10,0.4s", "film.mkv", {"--codec", "ffv1"});
    const Pixels target = pixelsOf(film),
                 shown = pixelsOf("test:64x48@10,0.6s", {"--filter", "VEXFDissolve:fadeStatus=1",
                                                         "--image", "targetImage=" + film});
    constexpr std::size_t frame = 64 * 48 * 4;
    ASSERT_EQ(shown.size(), 6 * frame);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_EQ(frameOf(shown, i, frame), frameOf(target, std::min<std::size_t>(i, 3), frame));
}

TEST_F(RenderTest, TellsFiltersTheMediaTimeOfEachFrame) {
    constexpr std::size_t frame = 64 * 36 * 4;
    const auto shaken = [](const char* follows, const char* range) {
        const std::string wobble = "VEWobble:mode=0,size=1,speed=1,syncMode=";
        return pixelsOf("test:64x36@10,2s", {"--filter", wobble + follows, "--range", range});
    };
    // One that goes by the frame time shows each frame as it does wherever the range begins; one
    // that goes by the clock begins its motion with the range.
    for (const char* follows : {"0", "1"}) {
        const Pixels whole = shaken(follows, "0-2"), end = shaken(follows, "1.5-2");
        ASSERT_EQ(end.size(), 5 * frame);
        EXPECT_EQ(framesOf(whole, 15, 5, frame) == end, follows[0] == '1') << follows;
    }
}

TEST_F(RenderTest, BeginsWithTheStartsOfInputsThatAreNotAdvertised) {
    const std::string card = "test:64x36@10,0.1s", filter = "VEColorBrightContrast";
    EXPECT_EQ(pixelsOf(card, {"--filter", filter}), pixelsOf(card)); // brightness at its middle
    EXPECT_NE(pixelsOf(card, {"--filter", filter + ":brightness=none"}), pixelsOf(card));
}

TEST_F(RenderTest, FailsWithWhatTheLibrarySaysWhenAFilterGivesNoImage) {
    for (const std::string& output : {path("none.mp4"), std::string("-")}) {
        const Outcome run = render({"test:64x48", output, "--filter", "VESolarize:intensity=none"});
        EXPECT_EQ(run.code, 1);
        EXPECT_EQ(run.results, "");
        EXPECT_NE(run.talk.find("frame 0 at 0.000 s: VESolarize gives no image: "),
                  std::string::npos)
            << run.talk;
    }
    EXPECT_TRUE(filesInFolder().empty());
}

// ---- Pictures and sequences -------------------------------------------------------------------

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

// ---- Endings ----------------------------------------------------------------------------------

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

// ---- Complaints -------------------------------------------------------------------------------

struct Complaint {
    Arguments arguments;
    int code;
    const char* talk; ///< a part of what is said
};

/// What a test's name shows.
void PrintTo(const Complaint& complaint, std::ostream* out) {
    *out << complaint.talk;
}

class RenderComplaints : public testing::TestWithParam<Complaint> {};

TEST_P(RenderComplaints, ComeWithTheirExitCode) {
    const Outcome run = render(GetParam().arguments);
    EXPECT_EQ(run.code, GetParam().code);
    EXPECT_NE(run.talk.find(GetParam().talk), std::string::npos) << run.talk;
    EXPECT_EQ(run.results, "");
}

/// Arguments of a render into a file that must not come to be.
Arguments with(Arguments options) {
    options.insert(options.begin(), {"test:64x48", "/nonexistent/out.mp4"});
    return options;
}

INSTANTIATE_TEST_SUITE_P(
    Usage, RenderComplaints,
    testing::Values(
        Complaint{{"test:"}, 2, "OUT is required"},
        Complaint{with({"--filter", "VESolarise"}), 2, "did you mean VESolarize?"},
        Complaint{with({"--filter", "VESolarize:intensty=1"}), 2, "did you mean inputIntensity?"},
        Complaint{with({"--filter", "VESolarize:INTENSITY=1"}), 2, "did you mean inputIntensity?"},
        Complaint{with({"--filter", "VESolarize:zebra=1"}), 2, "there is inputIntensity"},
        Complaint{with({"--filter", "VESolarize:intensity"}), 2, "\"=\" is missing"},
        Complaint{with({"--filter", "VESolarize:intensity=red"}), 2, "no value"},
        Complaint{with({"--filter", "VESolarize:intensity=[1,2]"}), 2, "kind number, not vector"},
        Complaint{with({"--filter", "VESolarize:image=a.png"}), 2, "that the chain hands on"},
        Complaint{with({"--image", "targetImage=a.png"}), 2, "there is no --filter"},
        Complaint{with({"--filter", "VEGobo", "--image", "targetImage=a.png"}), 2,
                  "no image input \"targetImage\""},
        Complaint{with({"--filter", "VEGobo", "--image", "inputImage=a.png"}), 2,
                  "no image input \"inputImage\""},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixr=0:1"}), 2, "mean inputMixer?"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=1"}), 2, "TIME:VALUE"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=1:0,0:1"}), 2, "decrease"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:0,1:[1,2]"}), 2, "one kind"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:none"}), 2, "can move"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:[1,2]"}), 2, "not vector"},
        Complaint{with({"--filter", "VEGobo", "--filter", "VEGobo", "--animate", "mixer=0:1"}), 2,
                  "1.inputMixer or 2.inputMixer"},
        Complaint{with({"--filter", "VEGobo", "--animate", "2.mixer=0:1"}), 2, "not in the chain"},
        Complaint{with({"--size", "64"}), 2, "WIDTHxHEIGHT"},
        Complaint{with({"--range", "2-1"}), 2, "ends before it starts"},
        Complaint{with({"--range", "soon"}), 2, "START-END"},
        Complaint{with({"--range", "1:2:3:4-"}), 2, "HH:MM:SS"},
        Complaint{with({"--range", "0-1", "--duration", "1"}), 2, "exclude each other"},
        Complaint{with({"--duration", "0"}), 2, "above 0"},
        Complaint{with({"--rate", "0"}), 2, "30000/1001"},
        Complaint{with({"--rate", "25/0"}), 2, "30000/1001"},
        Complaint{with({"--frames", "0"}), 2, "--frames"},
        Complaint{with({"--threads", "0"}), 2, "--threads"},
        Complaint{with({"--device", "toaster"}), 2, "reference, vulkan or vulkan:N"},
        Complaint{with({"--device", "vulkan:99"}), 5, "there is no Vulkan device"},
        Complaint{with({"--working-space", "blue"}), 2, "none or linear"},
        Complaint{{"test:64x48", "-", "--json"}, 2, "standard output"},
        Complaint{{"test:64", "/nonexistent/out.mp4"}, 2, "WIDTHxHEIGHT"},
        Complaint{{"test:64x48@x", "/nonexistent/out.mp4"}, 2, "30000/1001"},
        Complaint{{"test:64x48,0s", "/nonexistent/out.mp4"}, 2, "not above 0"},
        Complaint{{"test:99999x48", "/nonexistent/out.mp4"}, 2, "at most 16384"},
        Complaint{{"/nonexistent/in.mp4", "/nonexistent/out.mp4"}, 3, "no such file"},
        Complaint{{VORN_CLI_PATH, "/nonexistent/out.mp4"}, 3, "cannot read"},
        Complaint{{"/no/\x1b[31m\n\x7f\xc2\x9b\xff.mp4", "out.mp4"},
                  3,
                  "cannot read /no/\\x1b[31m\\n\\x7f\\xc2\\x9b\\xff.mp4: no"},
        Complaint{with({"\x1b[31m"}), 2, "\\x1b[31m"},
        Complaint{with({}), 4, "no folder /nonexistent"},
        Complaint{{"test:64x48", "out.unheardof"}, 4, "unknown extension"},
        Complaint{{"test:64x48", "out.mp4", "--codec", "x26"}, 4, "did you mean"}));

} // namespace
