// `vorn gallery`: the page and its pictures.
#include "program.h"

#include "media/reader.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace cli_test;

class Gallery : public testing::Test {
protected:
    Gallery() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vorn-gallery-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        folder = pattern;
    }
    ~Gallery() override { std::filesystem::remove_all(folder); }

    Outcome make(const std::string& name) const {
        return runVorn("gallery '" + (folder / name).string() +
                       "' --filter VEWobble VEXFDissolve --filter VEMirrors --quiet");
    }
    std::map<std::string, std::string> filesOf(const std::string& name) const {
        std::map<std::string, std::string> files;
        for (const auto& file : std::filesystem::recursive_directory_iterator(folder / name)) {
            if (file.is_regular_file())
                files[file.path().lexically_relative(folder / name)] = fileContents(file);
        }
        return files;
    }
    /// The pixels of a picture's or film's frames.
    Lines framesOf(const std::string& file) const {
        vorn::media::Reader reader((folder / file).string());
        Lines frames;
        for (vorn::media::Frame frame; reader.read(frame); frame = {}) {
            EXPECT_EQ(frame.size(), (vorn::media::Size{320, 180})) << file;
            std::string& pixels = frames.emplace_back();
            for (int y = 0; y < frame.height(); ++y)
                pixels.append(reinterpret_cast<const char*>(frame.row(y)),
                              static_cast<size_t>(frame.width()) * 4);
        }
        return frames;
    }

    std::filesystem::path folder;
};

TEST_F(Gallery, RefersToItsOwnPicturesOnlyAndToAllOfThem) {
    const Outcome run = make("a b");
    ASSERT_EQ(run.code, 0) << run.talk;
    EXPECT_EQ(run.results + run.talk, "");
    std::map<std::string, std::string> files = filesOf("a b");
    const std::string html = files["index.html"];
    files.erase("index.html");

    std::set<std::string> referred;
    const std::regex reference("(?:src|srcset|href)=\"([^\"]*)\"");
    for (std::sregex_iterator match(html.begin(), html.end(), reference), end; match != end;
         ++match) {
        const std::string target = (*match)[1];
        if (target.starts_with("#"))
            EXPECT_NE(html.find("id=\"" + target.substr(1) + "\""), std::string::npos) << target;
        else
            referred.insert(target);
    }
    std::set<std::string> written;
    for (const auto& [name, bytes] : files) written.insert(name);
    EXPECT_EQ(referred, written);
    for (const std::string& name : written)
        EXPECT_EQ(framesOf("a b/" + name).size(), name.ends_with(".gif") ? 16U : 1U) << name;
    for (const char* foreign : {"://", "<script", "url(", "@import"})
        EXPECT_EQ(html.find(foreign), std::string::npos) << foreign;

    std::set<std::string> names;
    const std::regex title("<h3[^>]*>([^<]*)</h3>");
    for (std::sregex_iterator match(html.begin(), html.end(), title), end; match != end; ++match)
        names.insert((*match)[1]);
    EXPECT_EQ(names, (std::set<std::string>{"Mirrors", "Wobble", "Dissolve"}));
    for (const char* part : {"left half to the right", "Wobble &quot;wobble&quot; with size=0.6",
                             "<summary>Wobble in motion (it flashes)</summary>",
                             "Warning:", "the incoming picture", "<h2>Geometry and motion</h2>"})
        EXPECT_NE(html.find(part), std::string::npos) << part;
    EXPECT_FALSE(std::regex_search(html, std::regex("mode[ =]\\d"))); // a mode has a name
    for (size_t gif = html.find(".gif\""); gif != std::string::npos;
         gif = html.find(".gif\"", gif + 1))
        EXPECT_EQ(html.substr(html.rfind("<img", gif) - 10, 10), "</summary>") << "moves unasked";
    const std::regex pictureWithoutText("<img (?![^>]*alt=\"[^\"]+\")");
    EXPECT_FALSE(std::regex_search(html, pictureWithoutText));
}

TEST_F(Gallery, ShowsEveryFilterOfTheManifest) {
    const Outcome run = runVorn("gallery '" + folder.string() + "'");
    ASSERT_EQ(run.code, 0) << run.talk;
    const std::string html = fileContents(folder / "index.html");
    const std::vector<Json> filters = runVorn("list --json").objects();
    for (const Json& filter : filters) {
        const std::string name = filter.at("name");
        EXPECT_NE(html.find("<article id=\"" + name + "\""), std::string::npos) << name;
        EXPECT_TRUE(std::filesystem::exists(folder / "pictures" / (name + ".png"))) << name;
    }
    const std::vector<Json> presets = runVorn("list --presets --json").objects();
    EXPECT_GE(presets.size(), 12U);
    for (const Json& preset : presets) {
        const std::string file = preset.at("file"), name = preset.at("name");
        const std::string id = "preset-" + std::filesystem::path(file).stem().string();
        EXPECT_NE(html.find("<article id=\"" + id + "\""), std::string::npos) << id;
        EXPECT_NE(html.find(">" + name + "</h3>"), std::string::npos) << name;
        EXPECT_EQ(framesOf("pictures/" + id + ".gif").size(), 16U);
        EXPECT_NE(framesOf("pictures/" + id + ".png"), framesOf("pictures/source.png")) << id;
    }
    EXPECT_NE(run.talk.find(": " + std::to_string(filters.size()) + " filters"), std::string::npos)
        << run.talk;
}

TEST_F(Gallery, ShowsEveryModeOnceTheSlidersEndsAndMotion) {
    ASSERT_EQ(make("a").code, 0);
    const std::map<std::string, std::string> files = filesOf("a");
    // Its slider goes on to 10, which is the last mode again.
    EXPECT_TRUE(files.contains("pictures/VEWobble-mode-9.png"));
    EXPECT_FALSE(files.contains("pictures/VEWobble-mode-10.png"));
    EXPECT_FALSE(files.contains("pictures/VEMirrors.gif"));

    const auto frames = [&](const char* name) {
        return framesOf("a/pictures/" + std::string(name));
    };
    EXPECT_EQ(frames("VEXFDissolve-slider-0.png"), frames("source.png"));
    EXPECT_EQ(frames("VEXFDissolve-slider-4.png"), frames("target.png"));
    EXPECT_NE(frames("source.png"), frames("target.png"));
    const Lines wobble = frames("VEWobble.gif"), fade = frames("VEXFDissolve.gif");
    ASSERT_EQ(fade.size(), 16U);
    EXPECT_EQ(std::set<std::string>(wobble.begin(), wobble.end()).size(), 16U);
    EXPECT_EQ(fade[3], fade[13]); // there and back
    EXPECT_NE(fade[3], fade[8]);
}

TEST_F(Gallery, IsTheSameEachTimeAndReplacesTheLastOne) {
    ASSERT_EQ(make("a").code, 0);
    const std::map<std::string, std::string> first = filesOf("a");
    ASSERT_EQ(make("b").code, 0);
    EXPECT_EQ(first, filesOf("b"));
    ASSERT_EQ(make("a").code, 0);
    EXPECT_EQ(first, filesOf("a"));

    // Of an earlier page goes what it alone showed, and nothing else.
    ASSERT_EQ(runVorn("gallery '" + (folder / "c").string() + "' --filter VETiles").code, 0);
    ASSERT_TRUE(std::filesystem::exists(folder / "c/pictures/VETiles.png"));
    std::ofstream(folder / "c/pictures/mine.png") << "mine";
    ASSERT_EQ(make("c").code, 0);
    ASSERT_TRUE(std::filesystem::remove(folder / "c/pictures/mine.png"));
    EXPECT_EQ(first, filesOf("c"));
}

TEST_F(Gallery, EndsWith4WhereAFileCannotBeWritten) {
    for (const std::string name : {"index.html", "pictures/VEWobble.gif"}) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder / "a" / name / "in the way");
        const Outcome run = make("a");
        EXPECT_EQ(run.code, 4) << name;
        EXPECT_NE(run.talk.find(name), std::string::npos) << run.talk;
    }
}

} // namespace
