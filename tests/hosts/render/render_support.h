// `vorn render` as its users meet it: the program is run, and what it wrote is read back.
#pragma once

#include "bundle_copy.h"

#include "media/reader.h"
#include "media/writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <ostream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace render_test {

using namespace vorn::media;
namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

inline const std::string sharedFilm = VORN_SHARED_MEDIA_DIR "/film-854x480.mp4";

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

inline Outcome render(Arguments arguments) {
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
inline Pixels pixelsOf(const std::string& input, Arguments options = {}) {
    options.insert(options.begin(), {input, "-", "--quiet"});
    const Outcome run = render(options);
    EXPECT_EQ(run.code, 0) << run.talk;
    EXPECT_EQ(run.talk, "");
    return Pixels(run.results);
}

/// From frame number `first` on, where all frames are of that size.
inline Pixels framesOf(const Pixels& pixels, std::size_t first, std::size_t count,
                       std::size_t frameBytes) {
    return Pixels(pixels.size() < first * frameBytes
                      ? std::string()
                      : pixels.substr(first * frameBytes, count * frameBytes));
}
inline Pixels frameOf(const Pixels& pixels, std::size_t index, std::size_t frameBytes) {
    return framesOf(pixels, index, 1, frameBytes);
}

inline int largestDifference(const Pixels& a, const Pixels& b) {
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

inline Film readFilm(const std::string& path) {
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

} // namespace render_test
