// Whether the commands that people copy from the documentation do what they say.
#include "../media/track_support.h"
#include "shell.h"

namespace {

using namespace render_test;

struct Recipe {
    std::string task, command;
};

std::vector<Recipe> recipes() {
    const std::string text = fileContents(VORN_SOURCE_DIR "/docs/command-line.md");
    const std::size_t begin = text.find("<!-- cookbook: begin -->");
    const std::size_t end = text.find("<!-- cookbook: end -->");
    std::vector<Recipe> all;
    if (begin == std::string::npos || end == std::string::npos) return all;
    std::istringstream lines(text.substr(begin, end - begin));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# "))
            all.push_back({line, ""});
        else if (line.starts_with("vorn "))
            all.back().command += line + "\n";
    }
    return all;
}

/// The films and pictures that the commands name.
class CookbookTest : public RenderTest {
protected:
    CookbookTest() {
        file("test:320x180@25,1.6s", "card.mp4", {"--preset", "ultrafast"});
        const AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        media_test::FilmMaker(path("card.mp4"), path("film.mp4")).sound("aac", mono, "eng").write();
        file("test:320x180,1s", "photo.jpg");
    }

    /// An empty folder with what the command reads.
    fs::path kitchen(const std::string& command) const {
        const fs::path place = folder_ / "kitchen";
        fs::remove_all(place);
        fs::create_directories(place);
        fs::copy(path("film.mp4"), place / "film.mp4");
        if (command.find("second.mp4") != std::string::npos)
            fs::copy(path("card.mp4"), place / "second.mp4");
        if (command.find("photo.jpg") != std::string::npos)
            fs::copy(path("photo.jpg"), place / "photo.jpg");
        if (command.find("films/") != std::string::npos) {
            fs::create_directory(place / "films");
            fs::copy(path("card.mp4"), place / "films/one.mp4");
            fs::copy(path("film.mp4"), place / "films/two.mp4");
        }
        return place;
    }
};

std::size_t filesBelow(const fs::path& folder) {
    const auto entries = fs::recursive_directory_iterator(folder);
    return std::size_t(std::count_if(begin(entries), end(entries),
                                     [](const auto& entry) { return entry.is_regular_file(); }));
}

TEST_F(CookbookTest, IsTrueToTheLetter) {
    const std::vector<Recipe> all = recipes();
    EXPECT_EQ(all.size(), 20U);
    for (const Recipe& recipe : all) {
        SCOPED_TRACE(recipe.task + "\n" + recipe.command);
        const fs::path place = kitchen(recipe.command);
        const std::size_t before = filesBelow(place);
        const Outcome run = inShell(place, recipe.command);
        EXPECT_EQ(run.code, 0) << run.talk;
        for (const char* complaint : {"left out", "outside", "changes nothing", "error picture"})
            EXPECT_EQ(run.talk.find(complaint), std::string::npos) << run.talk;
        const bool makesNothing = recipe.command.find("--null") != std::string::npos;
        EXPECT_EQ(filesBelow(place) > before, !makesNothing);
        for (const auto& made : fs::recursive_directory_iterator(place)) {
            const std::string extension = made.path().extension().string();
            if (!made.is_regular_file() || extension == ".json") continue;
            EXPECT_GT(readFilm(made.path().string()).frames.size(), 0U) << made.path();
        }
    }
}

} // namespace
