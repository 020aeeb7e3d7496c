// `vorn explain`: graphs as data.
#include "program.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace cli_test;

/// The frames of a run of `vorn explain` that has to succeed.
std::vector<Json> explain(const std::string& arguments) {
    const Outcome run = runVorn("explain " + arguments + " --json");
    EXPECT_EQ(run.code, 0) << arguments << "\n" << run.talk;
    return run.objects();
}

Json valueAt(const Json& json, const std::string& pointer) {
    const Json::json_pointer place(pointer);
    return json.contains(place) ? json.at(place) : Json("absent");
}

struct GraphCase {
    const char* title;
    const char* arguments;
    std::vector<std::pair<const char*, Json>> expected; // in the first frame, by JSON pointer
};

void PrintTo(const GraphCase& graph, std::ostream* out) {
    *out << graph.arguments;
}

class Graph : public testing::TestWithParam<GraphCase> {};

TEST_P(Graph, IsDescribed) {
    const std::vector<Json> frames = explain(GetParam().arguments);
    ASSERT_FALSE(frames.empty());
    for (const auto& [pointer, value] : GetParam().expected) {
        EXPECT_EQ(valueAt(frames[0], pointer), value) << pointer << " in " << frames[0];
    }
}

// Filters that compute in single precision pass single-precision numbers on.
double single(double value) {
    return static_cast<float>(value);
}

INSTANTIATE_TEST_SUITE_P(
    Filters, Graph,
    testing::Values(
        GraphCase{"GeneralKernel",
                  "VEDummy",
                  {{"/frame", 0},
                   {"/clock", 0},
                   {"/printed", Json::array()},
                   {"/output/kind", "kernel"},
                   {"/output/library", "VE_DummyFilterKernel"},
                   {"/output/function", "VE_Dummy_dummy"},
                   {"/output/type", "general"},
                   {"/output/extent", {0, 0, 1920, 1080}},
                   {"/output/roi", Json::array({{100, 100, 50, 50}})},
                   {"/output/arguments/0/sampler/kind", "input"},
                   {"/output/arguments/0/sampler/key", "inputImage"},
                   {"/output/arguments/0/sampler/extent", {0, 0, 1920, 1080}},
                   {"/output/arguments/0/filter", "linear"},
                   {"/output/arguments/0/colorSpace", nullptr},
                   {"/output/arguments/1", "absent"}}},
        GraphCase{
            "ColorKernelHasNoRegion",
            "VESolarize",
            {{"/output/type", "color"}, {"/output/roi", "absent"}, {"/output/arguments/1", 0}}},
        GraphCase{"PlacedImageAndProbe",
                  "VEDummy --image inputImage=64x32+-5+7 --probe -10,-20.5,30,40",
                  {{"/output/extent", {-5, 7, 64, 32}}, {"/output/roi/0", {-10, -20.5, 30, 40}}}},
        GraphCase{"ImageAboveEveryLimit",
                  "VEDummy --image inputImage=60000x60000",
                  {{"/output/extent", {0, 0, 60000, 60000}}}},
        GraphCase{"NumberReadsBackExactly",
                  "VESolarize --set inputIntensity=0.1",
                  {{"/output/arguments/1", 0.1}}},
        GraphCase{"LastSettingCounts",
                  "VESolarize --set inputIntensity=1 --set inputIntensity=-1.5e-300",
                  {{"/output/arguments/1", -1.5e-300}}},
        GraphCase{
            "NotANumber", "VESolarize --set inputIntensity=nan", {{"/output/arguments/1", "nan"}}},
        GraphCase{"Infinities",
                  "VEGobo --set inputRed=inf --set inputGreen=-inf",
                  {{"/output/arguments/3", "inf"}, {"/output/arguments/4", "-inf"}}},
        GraphCase{"Gamma",
                  "VE_RGB_Gamma --set input2=255 --set input3=0",
                  {{"/output/arguments/1", single(79 * 0.01137254902 + 0.1)},
                   {"/output/arguments/2", single(254 * 0.01137254902 + 0.1)},
                   {"/output/arguments/3", single(-0.01137254902 + 0.1)}}},
        GraphCase{"ContrastAtRest", "VE_RGB_Contrast", {{"/output/arguments/4", 1}}},
        GraphCase{
            "ModePastTheLast",
            "VE_GainClamp --set input1=7",
            {{"/output/function", "VE_GainClamp_hybridHSVgainClamp"}, {"/output/arguments/1", 1}}},
        GraphCase{"AdvertisedKeyThatIsNotRead",
                  "VEColorBrightContrast --set inputBrighness=200",
                  {{"/output/arguments/1/vector", {1, 1, 1}},
                   {"/output/arguments/2/vector", {0, 0, 0}},
                   {"/output/arguments/3", -1},
                   {"/output/arguments/4", 1}}},
        GraphCase{"HiddenInput",
                  "VEColorBrightContrast --set inputBrightness=127",
                  {{"/output/arguments/3", 0}}},
        GraphCase{"NoImage", "VESolarize --image inputImage=none", {{"/output", nullptr}}},
        GraphCase{"UnsetBySetting", "VESolarize --set inputImage=none", {{"/output", nullptr}}},
        GraphCase{"WithoutDefaults", "VESolarize --no-defaults", {{"/output", nullptr}}}),
    [](const auto& info) { return info.param.title; });

TEST(Explain, ChangesInputsFromAFrameOnAndKeepsTheNumbersOfImages) {
    const auto frames = explain("VESolarize --frames 4 --clock 9,10,20,18446744073709551615,0 "
                                "--at 1:inputIntensity=0.5 --at 2:image:inputImage=8x4 "
                                "--at 3:image:inputImage=none --at 2:call:clear");
    ASSERT_EQ(frames.size(), 4U);
    const Json::json_pointer image("/output/arguments/0/sampler"), value("/output/arguments/1");
    EXPECT_EQ(frames[0].at(value), 0);
    EXPECT_EQ(frames[1].at(value), 0.5);
    EXPECT_EQ(frames[2].at(value), 0.5);
    EXPECT_EQ(frames[0].at(image), frames[1].at(image));
    EXPECT_EQ(frames[2].at(image).at("kind"), "input");
    EXPECT_EQ(frames[2].at(image).at("extent"), (Json{0, 0, 8, 4}));
    EXPECT_EQ(frames[3].at("output"), nullptr);

    const std::vector<int> numbers{frames[0]["output"]["id"], frames[1]["output"]["id"],
                                   frames[2]["output"]["id"], frames[0].at(image)["id"],
                                   frames[2].at(image)["id"]};
    EXPECT_EQ(std::set<int>(numbers.begin(), numbers.end()).size(), numbers.size());
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(frames[i]["frame"], i);
    EXPECT_EQ(frames[1]["clock"], 20);
    EXPECT_EQ(frames[2]["clock"], 18446744073709551615U);
}

TEST(Explain, KeepsWhatTheLibraryPrintsWithItsFrame) {
    const std::string arguments = "VESolarize --frames 2 --at 1:inputImage=none";
    const Outcome run = runVorn("explain " + arguments + " --json");
    const std::vector<Json> frames = run.objects();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].at("printed"), Json::array());
    ASSERT_EQ(frames[1].at("printed").size(), 1U);
    EXPECT_EQ(run.talk, "");

    const std::string line = frames[1]["printed"][0];
    const Lines tree = runVorn("explain " + arguments).lines();
    const auto place = std::find(tree.begin(), tree.end(), line);
    ASSERT_NE(place, tree.end());
    EXPECT_EQ(*(place + 1), "frame 1, clock 0");
}

TEST(Explain, PrintsATreeForPeople) {
    const Outcome run = runVorn("explain VESolarize --set inputIntensity=0.25");
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.lines(),
              (Lines{"frame 0, clock 0",
                     "    color kernel VE_Solarize_solarize of VE_SolarizeFilterKernel  #1, "
                     "1920 x 1080 at 0, 0",
                     "        0: linear sampler",
                     "            input inputImage  #2, 1920 x 1080 at 0, 0", "        1: 0.25"}));
}

} // namespace
