// `vorn list` and `vorn describe`.
#include "program.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace cli_test;

TEST(List, GivesEveryFilterOnceInOrderAndNoBanner) {
    const Outcome run = runVorn("list --json");
    ASSERT_EQ(run.code, 0);
    EXPECT_EQ(run.talk, "");
    std::vector<std::string> names;
    for (const Json& filter : run.objects()) {
        names.push_back(filter.at("name"));
        EXPECT_EQ(filter.at("class"), names.back());
        EXPECT_EQ(filter.at("category"), "Vorn Custom Filters");
    }
    EXPECT_NE(std::find(names.begin(), names.end(), "VEDummy"), names.end());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());

    const std::string table = runVorn("list").results;
    EXPECT_EQ(table.find("registerAllFilters"), std::string::npos);
    EXPECT_NE(table.find("\n" + std::to_string(names.size()) + " filters\n"), std::string::npos);
}

TEST(List, FindsFiltersByWhatTheyDo) {
    struct Search {
        const char *words, *found, *missed;
    };
    for (const Search& search :
         {Search{"'GREEN screen'", "  VEChromaKeyRGB  ", "VEMirrors"},         // a tag
          Search{"staggered", "Geometry and motion\n  VE_Repeats", "VETiles"}, // a mode
          Search{"transparent dark", "VELumaKey", "VEChromaKeyRGB"},           // both words
          Search{"temporal", "Frames over time\n  VEDecay", "VEGobo"}}) {      // a family
        const std::string results = runVorn(std::string("list ") + search.words).results;
        EXPECT_NE(results.find(search.found), std::string::npos) << search.words << results;
        EXPECT_EQ(results.find(search.missed), std::string::npos) << search.words << results;
    }
    const Outcome none = runVorn("list mirors");
    EXPECT_EQ(none.results, "0 filters\n");
    EXPECT_NE(none.talk.find("did you mean Mirrors?"), std::string::npos) << none.talk;
}

TEST(List, KeepsTheFrameworksOwnFiltersApart) {
    const Outcome run = runVorn("list --builtin --json");
    EXPECT_EQ(run.code, 0);
    for (const Json& filter : run.objects()) {
        EXPECT_NE(filter.at("category"), "Vorn Custom Filters");
    }
}

TEST(Describe, GivesTheAttributesInTheOrderOfTheFilter) {
    const std::string json = runVorn("describe VESolarize --json").results;
    for (const char* part :
         {R"({"name":"VESolarize","class":"VESolarize","category":"Vorn Custom Filters",)"
          R"("displayName":"VESolarize","inputs":[)"
          R"({"key":"inputImage","kind":"image","advertised":false,"attributes":{},)",
          R"({"key":"inputIntensity","kind":"number","advertised":true,"attributes":{)"
          R"("kCIAttributeMin":0,"kCIAttributeSliderMin":0,"kCIAttributeSliderMax":1,)"
          R"("kCIAttributeDefault":0,"kCIAttributeIdentity":0,)"
          R"("kCIAttributeDisplayName":"intensity",)"
          R"("kCIAttributeType":"kCIAttributeTypeDistance"},)"})
        EXPECT_NE(json.find(part), std::string::npos) << json;
}

TEST(Describe, TellsAllOfTheGuideWithAnExampleThatRuns) {
    EXPECT_NE(runVorn("describe VE_Strobe_2").results.find("up to 23.76 megapixels\n"),
              std::string::npos);
    EXPECT_NE(
        runVorn("describe VEWobble").results.find("up to 23.76 megapixels in the modes flicker\n"),
        std::string::npos);
    const std::string text = runVorn("describe VEXFBrightness").results;
    for (const char* part : {"VEXFBrightness: Dissolve", "Transitions", "the incoming picture",
                             "1  through dark pictures", "\n  vorn render "})
        EXPECT_NE(text.find(part), std::string::npos) << part << text;
    EXPECT_EQ(runVorn("help VEXFBrightness").results, text);
    EXPECT_NE(runVorn("describe VEColorBrightContrast").results.find("dead: advertised"),
              std::string::npos);

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("vorn-example-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    for (const char* filter : {"VEFalloff", "VE_GainClamp", "VEXFDissolve"}) {
        const std::string told = runVorn(std::string("describe ") + filter).results;
        std::string example = told.substr(told.find("vorn render ") + 5);
        example.replace(example.find("1280x720@25,2s"), 14, "64x36@25,2s");
        example.replace(example.find(" out."), 5, " '" + folder.string() + "/'out.");
        example.pop_back();
        if (const size_t second = example.find("second.png"); second != std::string::npos)
            example.replace(second, 10, "test:");
        const Outcome run = runVorn(example);
        EXPECT_EQ(run.code, 0) << example << run.talk;
    }
    std::filesystem::remove_all(folder);
}

TEST(Describe, ShowsBothKeysWhereTheAdvertisedOneIsNotRead) {
    const Json filter = runVorn("describe VEColorBrightContrast --json").objects().at(0);
    std::map<std::string, Json> inputs;
    for (const Json& input : filter.at("inputs")) inputs[input.at("key")] = input;
    ASSERT_TRUE(inputs.count("inputBrighness") && inputs.count("inputBrightness"));
    EXPECT_EQ(inputs["inputBrighness"].at("advertised"), true);
    EXPECT_EQ(inputs["inputBrighness"].at("kind"), "number");
    EXPECT_EQ(inputs["inputBrighness"].at("attributes").at("kCIAttributeDefault"), 127);
    EXPECT_EQ(inputs["inputBrightness"].at("advertised"), false);
    EXPECT_EQ(inputs["inputBrightness"].at("attributes"), Json::object());
}

} // namespace
