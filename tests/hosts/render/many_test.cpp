// Many inputs by one command line.
#include "render_support.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <map>
#include <string>

namespace {

using namespace render_test;
using Json = nlohmann::json;

class ManyTest : public RenderTest {
protected:
    ManyTest() {
        for (const char* name : {"in/a.png", "in/b.png", "in/c.png"})
            file("test:32x24@10,0.3s", name, {"--range", name[3] == 'a' ? "0-" : "0.2-"});
    }
    std::string file(const std::string& input, const std::string& name, Arguments options = {}) {
        fs::create_directories(fs::path(path(name)).parent_path());
        return RenderTest::file(input, name, std::move(options));
    }
    Outcome many(Arguments more) const {
        more.insert(more.begin(), {path("in/a.png"), path("in/b.png"), path("in/c.png")});
        more.insert(more.end(), {"--out-dir", path("out")});
        return render(more);
    }
    std::vector<std::string> outputs() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_ / "out"))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    using Names = std::vector<std::string>;
};

TEST_F(ManyTest, RendersEachAsItWouldBeAloneUnderItsName) {
    const Arguments xray{"--filter", "VEXray:intensity=1"};
    for (const char* jobs : {"1", "2"}) {
        const Outcome run =
            render({path("in/[ab].png"), path("in/c.png"), "--out-dir", path("out"), "--names",
                    "{name}-{number:02}.bmp", "--jobs", jobs, "--filter", xray[1]});
        EXPECT_EQ(run.code, 0) << run.talk;
        EXPECT_EQ(std::count(run.talk.begin(), run.talk.end(), '\n'), 3) << run.talk;
        EXPECT_NE(run.talk.find("vorn: [2/3] " + path("in/b.png") + " -> " + path("out/b-02.bmp") +
                                ": 1 frame"),
                  std::string::npos)
            << run.talk;
        EXPECT_EQ(outputs(), (Names{"a-01.bmp", "b-02.bmp", "c-03.bmp"}));
        EXPECT_EQ(pixelsOf(path("out/b-02.bmp")), pixelsOf(path("in/b.png"), xray));
        fs::remove_all(path("out"));
    }
}

TEST_F(ManyTest, GoesOnWhenOneFailsAndTellsWhich) {
    std::ofstream(path("in/b.png")) << "no picture";
    const Outcome run = many({"--json"});
    EXPECT_EQ(run.code, 3) << run.talk;
    EXPECT_EQ(outputs(), (Names{"a.png", "c.png"}));
    EXPECT_NE(run.talk.find("in/b.png -> "), std::string::npos) << run.talk;
    EXPECT_NE(run.talk.find("vorn: 1 of 3 failed"), std::string::npos) << run.talk;
    std::map<std::string, Json> told;
    std::istringstream lines(run.results);
    for (std::string line; std::getline(lines, line);) {
        const Json json = Json::parse(line);
        told[fs::path(json.at("output").get<std::string>()).filename().string()] = json;
    }
    ASSERT_EQ(told.size(), 3U);
    EXPECT_EQ(told["a.png"].at("frames"), 1);
    EXPECT_EQ(told["b.png"].at("exit_code"), 3);
    EXPECT_NE(told["b.png"].at("error"), "");
}

TEST_F(ManyTest, ResumesWithWhatIsNotWhole) {
    ASSERT_EQ(many({"--quiet"}).code, 0);
    fs::remove(path("out/b.png"));
    // Newer than what was made of it.
    fs::last_write_time(path("in/c.png"),
                        fs::last_write_time(path("out/c.png")) + std::chrono::seconds(1));
    const auto first = fs::last_write_time(path("out/a.png")),
               third = fs::last_write_time(path("out/c.png"));
    const Outcome run = many({"--resume"});
    EXPECT_EQ(run.code, 0) << run.talk;
    EXPECT_NE(run.talk.find("a.png: whole already"), std::string::npos) << run.talk;
    EXPECT_EQ(outputs().size(), 3U);
    EXPECT_EQ(fs::last_write_time(path("out/a.png")), first);
    EXPECT_NE(fs::last_write_time(path("out/c.png")), third);
}

TEST_F(ManyTest, KeepsNoPartOfAFilmThatFailsOrIsInterrupted) {
    const Outcome run = render({"test:32x24@10,1s", "--out-dir", path("out"), "--names", "card.mkv",
                                "--filter", "VEGobo:mixer=sqrt(0.25-t)"});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(outputs(), Names{});
    Process endless({"render", "test:32x24@10,100000s", path("in/a.png"), "--out-dir", path("out"),
                     "--names", "{name}.mkv", "--quiet"});
    endless.waitUntilItHandlesSignals();
    endless.signal(SIGINT);
    const Outcome end = endless.wait();
    EXPECT_EQ(end.code, 130) << end.talk;
    EXPECT_EQ(outputs(), Names{});
}

TEST_F(ManyTest, RefusesWhatCannotBeBeforeAnythingIsMade) {
    struct Case {
        Arguments arguments;
        int code;
        const char* talk;
    };
    const std::string a = path("in/a.png"), folder = path("out");
    fs::create_directory(path("in/more"));
    fs::copy_file(a, path("in/more/a.png"));
    for (const Case& each :
         {Case{{a, path("in/b.png"), folder}, 2, "--out-dir"},
          Case{{a, path("in/more/a.png"), "--out-dir", folder}, 2, "would both become"},
          Case{{a, "--out-dir", folder, "--names", "{title}.png"}, 2, "there is {name}"},
          Case{{a, "--out-dir", folder, "--names", "x/{name}.png"}, 2, "a name in the folder"},
          Case{{a, "--out-dir", folder, "--filter", "VESolarise"}, 2, "VESolarize?"},
          Case{{path("in/*.jpg"), "--out-dir", folder}, 3, "no file is called like"},
          Case{{"-", "--out-dir", folder}, 2, "standard input"},
          Case{{a, folder, "--resume"}, 2, "--out-dir"},
          Case{{a, "--out-dir", "/dev/null/x"}, 4, "cannot make the folder"}}) {
        const Outcome run = render(each.arguments);
        EXPECT_EQ(run.code, each.code) << run.talk;
        EXPECT_NE(run.talk.find(each.talk), std::string::npos) << run.talk;
        EXPECT_FALSE(fs::exists(folder)) << run.talk;
    }
    // What is read is not replaced.
    const Outcome run = render({a, "--out-dir", path("in")});
    EXPECT_EQ(run.code, 2);
    EXPECT_NE(run.talk.find("is read"), std::string::npos) << run.talk;
}

} // namespace
