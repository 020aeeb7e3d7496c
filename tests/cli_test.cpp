// The command line as its users meet it: the program is run, its results, talk and exit code read.
#include "bundle_copy.h"

#include "media/reader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <ostream>
#include <regex>
#include <set>

#include <unistd.h>

namespace {

using Json = nlohmann::json;

struct Outcome {
    int code = -1;
    std::string results, talk;

    Lines lines() const { return linesOf(results); }
    /// The one JSON object of each line.
    std::vector<Json> objects() const {
        std::vector<Json> all;
        for (const std::string& line : lines()) all.push_back(Json::parse(line));
        return all;
    }
};

/// Runs the program with arguments as a shell reads them.
Outcome runVorn(const std::string& arguments, const std::string& environment = {}) {
    std::string talkPath =
        (std::filesystem::temp_directory_path() / "vorn-cli-test-XXXXXX").string();
    const int descriptor = mkstemp(talkPath.data());
    if (descriptor < 0) throw std::runtime_error("cannot make " + talkPath);
    close(descriptor);
    const std::string command =
        environment + " '" VORN_CLI_PATH "' " + arguments + " 2>'" + talkPath + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error("cannot run " + command);
    Outcome run;
    char buffer[4096];
    while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
        run.results.append(buffer, count);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.code = WEXITSTATUS(status);
    run.talk = fileContents(talkPath);
    std::filesystem::remove(talkPath);
    return run;
}

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

// ---- Loading ----------------------------------------------------------------------------------

TEST(Program, LoadsNothingFromTheCurrentFolder) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("vorn-loading-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    // Every program of C++ needs these.
    for (const char* name : {"libstdc++.so.6", "libm.so.6", "libc.so.6"})
        std::ofstream(folder / name) << "no library";
    const std::string command = "cd '" + folder.string() + "' && '" VORN_CLI_PATH "' --version >&2";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::filesystem::remove_all(folder);
}

// ---- Usage ------------------------------------------------------------------------------------

struct ComplaintCase {
    const char* arguments;
    int code;
    const char* talk; // a part of what is said
};

/// What a test's name shows.
void PrintTo(const ComplaintCase& complaint, std::ostream* out) {
    *out << complaint.arguments;
}

class Complaints : public testing::TestWithParam<ComplaintCase> {};

TEST_P(Complaints, GoToStandardErrorWithTheirExitCode) {
    const Outcome run = runVorn(GetParam().arguments);
    EXPECT_EQ(run.code, GetParam().code);
    EXPECT_NE(run.talk.find(GetParam().talk), std::string::npos) << run.talk;
    EXPECT_EQ(run.results, "");
}

INSTANTIATE_TEST_SUITE_P(
    Usage, Complaints,
    testing::Values(
        ComplaintCase{"", 2, "Usage: vorn"}, ComplaintCase{"lisst", 2, "did you mean list?"},
        ComplaintCase{"help explian", 2, "did you mean explain?"},
        ComplaintCase{"list --jsn", 2, "--jsn"}, ComplaintCase{"explain", 2, "NAME is required"},
        ComplaintCase{"describe VESolarise", 2, "did you mean VESolarize?"},
        ComplaintCase{"explain solarize", 2, "did you mean VESolarize?"},
        ComplaintCase{"bench VE_RGBGama", 2, "did you mean VE_RGB_Gamma?"},
        ComplaintCase{"explain VESolarize --set inputIntensty=1", 2, "mean inputIntensity?"},
        ComplaintCase{"explain VESolarize --set inputIntensity", 2, "--set"},
        ComplaintCase{"explain VESolarize --set inputIntensity=", 2, "no value"},
        ComplaintCase{"explain VESolarize --set inputIntensity=half", 2, "half"},
        ComplaintCase{"explain VESolarize --set inputIntensity=1e999", 2, "1e999"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=[1,2]'", 2, "kind number"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=[1]'", 2, "two to four"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=rgba(1,2,3)'", 2, "four"},
        ComplaintCase{"explain VESolarize --set inputIntensity=hex:0f0", 2, "hexadecimal"},
        ComplaintCase{"explain VESolarize --set inputIntensity=text:1", 2, "not string"},
        ComplaintCase{"explain VESolarize --set inputImage=1", 2, "kind image"},
        ComplaintCase{"explain VESolarize --image inputImage=0x10", 2, "at least 1"},
        ComplaintCase{"explain VESolarize --image inputImage=10x-1", 2, "at least 1"},
        ComplaintCase{"explain VESolarize --image inputImage=10x10+5", 2, "WIDTHxHEIGHT+X+Y"},
        ComplaintCase{"explain VESolarize --image inputIntensity=10x10", 2, "kind number"},
        ComplaintCase{"explain VESolarize --image inputImage=4294967295x4294967295", 2, "memory"},
        ComplaintCase{"explain VESolarize --property inputImage=1", 2, "--property"},
        ComplaintCase{"explain VESolarize --image inputImage=none --property inputImage:a=1", 2,
                      "no image is set"},
        ComplaintCase{"explain VESolarize --clock 1,2,3", 2, "2 times are needed"},
        ComplaintCase{"explain VESolarize --clock 1,-2", 2, "whole nanoseconds"},
        ComplaintCase{"explain VESolarize --frame-time 1,2", 2, "1 times are needed"},
        ComplaintCase{"explain VESolarize --frames 0", 2, "--frames"},
        ComplaintCase{"explain VESolarize --probe 1,2,3", 2, "X,Y,WIDTH,HEIGHT"},
        ComplaintCase{"explain VESolarize --at x:inputIntensity=1", 2, "counted from 0"},
        ComplaintCase{"explain VESolarize --at 0:call:dance", 2, "call:clear"},
        ComplaintCase{"bench VEDummy --size 16x", 2, "WIDTHxHEIGHT"},
        ComplaintCase{"bench VEDummy --format YUV", 2, "RGBA8"},
        ComplaintCase{"bench VEDummy --threads 0", 2, "1 to"},
        ComplaintCase{"bench VEDummy --device toaster", 2, "vulkan, vulkan:N or all"},
        ComplaintCase{"bench VEDummy --device vulkan:99", 5, "there is no Vulkan device"},
        ComplaintCase{"bench VEDummy --frames 1 --seconds 1", 2, "exclude"},
        ComplaintCase{"gallery", 2, "DIR is required"},
        ComplaintCase{"gallery ''", 2, "has no name"},
        ComplaintCase{"gallery /dev/null --filter VEMirors", 2, "did you mean VEMirrors?"},
        ComplaintCase{"gallery /dev/null", 4, "cannot make the folder /dev/null"},
        ComplaintCase{"gallery /proc/gallery", 4, "cannot make the folder /proc/gallery"},
        ComplaintCase{"list >/dev/full", 4, "cannot be written"}));

TEST(Help, ListsTheCommandsAndShowsEachOnesExamples) {
    const Outcome general = runVorn("help");
    EXPECT_EQ(general.code, 0);
    EXPECT_EQ(general.results, runVorn("--help").results);
    for (const std::string command :
         {"list", "describe", "explain", "gallery", "bench", "doctor"}) {
        EXPECT_NE(general.results.find("\n  " + command + " "), std::string::npos) << command;
        const Outcome run = runVorn("help " + command);
        EXPECT_EQ(run.code, 0) << command;
        EXPECT_NE(run.results.find("  vorn " + command + " "), std::string::npos) << run.results;
        EXPECT_EQ(run.results, runVorn(command + " --help").results);
    }
    EXPECT_EQ(runVorn("--version").results, "vorn 1.0\n");
}

// ---- list and describe ------------------------------------------------------------------------

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

// ---- explain ----------------------------------------------------------------------------------

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

// ---- bench and doctor -------------------------------------------------------------------------

TEST(Bench, ReportsOneMeasurementPerCombination) {
    const Outcome run =
        runVorn("bench VESolarize VEDummy --size 64x48,32x32 --threads 1,2 --frames 2 "
                "--device all --format RGBAh --set inputIntensity=0.5 --json");
    ASSERT_EQ(run.code, 0) << run.talk;
    std::set<std::string> combinations;
    size_t onGpus = 0;
    for (const Json& line : run.objects()) {
        if (line.at("device") == "vulkan") {
            ++onGpus;
            EXPECT_GT(line.at("gpu_kernels_ms").get<double>(), 0);
            EXPECT_GE(line.at("median_ms"), line.at("gpu_kernels_ms"));
        }
        const double pixels = line.at("width").get<double>() * line.at("height").get<double>();
        const double microseconds = line.at("median_ms").get<double>() * 1e3;
        EXPECT_NEAR(line.at("mpixel_per_s").get<double>() * microseconds, pixels, pixels * 1e-9);
        EXPECT_GT(line.at("copy_mpixel_per_s").get<double>(), 0);
        EXPECT_EQ(line.at("format"), "RGBAh");
        const bool isSolarize = line.at("filter") == "VESolarize";
        const Json settings = isSolarize ? Json{{"inputIntensity", 0.5}} : Json::object();
        EXPECT_EQ(line.at("settings"), settings);
        combinations.insert(
            Json{line["filter"], line["device"], line["threads"], line["width"]}.dump());
    }
    // Two filters, two sizes; the CPU with one and two threads, the reference device with one, and
    // a Vulkan device where there is one.
    EXPECT_TRUE(onGpus == 0 || onGpus == 4) << onGpus;
    EXPECT_EQ(combinations.size(), 12U + onGpus);
    EXPECT_EQ(run.lines().size(), 12U + onGpus);
}

TEST(Bench, MeasuresEveryModeByTheInputThatChoosesIt) {
    const Outcome run = runVorn("bench VEDecay --modes --size 32x32 --threads 1 --frames 2 --json");
    std::vector<double> modes;
    for (const Json& line : run.objects()) modes.push_back(line.at("settings").at("inputSkip"));
    EXPECT_EQ(modes, (std::vector<double>{1, 61, 121, 181, 241})) << run.talk;
}

TEST(Doctor, FindsNothingBrokenHere) {
    const Outcome run = runVorn("doctor --json");
    EXPECT_EQ(run.code, 0) << run.results;
    const Json report = run.objects().at(0);
    EXPECT_EQ(report.at("problems"), Json::array());
    EXPECT_EQ(report.at("manifest").at("entries"), runVorn("list --json").lines().size());
    EXPECT_GT(report.at("kernel_libraries").at("checked"), 0);
    EXPECT_EQ(report.at("fonts").size(), 3U);
    EXPECT_EQ(runVorn("doctor").lines().back(), "Nothing is broken.");
}

TEST(Doctor, NamesADamagedLibraryAndAMissingManifest) {
    const std::string damaged = "VE_SolarizeFilterKernel.ci.metallib";
    BundleCopy copy;
    for (const auto& file :
         std::filesystem::directory_iterator(BundleCopy::original("x").parent_path())) {
        const std::string name = file.path().filename();
        if (name != damaged && name != "VornEffectsManifest.plist") copy.take(name);
    }
    const std::string bytes = fileContents(BundleCopy::original(damaged));
    copy.write(damaged, bytes.substr(0, bytes.size() / 2));

    const std::filesystem::path library =
        copy.folder().parent_path() / std::filesystem::path(VORN_LIBRARY_PATH).filename();
    const Outcome run =
        runVorn("doctor --json",
                "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD='" + library.string() + "'");
    EXPECT_EQ(run.code, 1);
    const Json report = run.objects().at(0);
    EXPECT_EQ(report.at("manifest").at("readable"), false);
    const Json libraries = report.at("kernel_libraries").at("damaged");
    ASSERT_EQ(libraries.size(), 1U);
    EXPECT_EQ(libraries[0].at("file"), (copy.folder() / damaged).string());
    EXPECT_NE(libraries[0].at("problem"), "");
    EXPECT_GE(report.at("problems").size(), 2U);
}

TEST(Doctor, NamesAnEntryWithoutAClassAndAKernelThatIsNotThere) {
    BundleCopy copy;
    for (const auto& file :
         std::filesystem::directory_iterator(BundleCopy::original("x").parent_path()))
        copy.take(file.path().filename());
    const std::string manifest = "VornEffectsManifest.plist", entries = "<array>";
    std::string text = fileContents(BundleCopy::original(manifest));
    text.insert(text.find(entries) + entries.size(),
                "<dict><key>FilterName</key><string>VENew</string>"
                "<key>ClassName</key><string>VENwe</string></dict>");
    for (const std::string& name : {manifest, std::string("VE_SolarizeFilterKernel.ci.metallib")})
        std::filesystem::remove(copy.folder() / name);
    copy.write(manifest, text);
    copy.write("VE_SolarizeFilterKernel.ci.metallib",
               fileContents(BundleCopy::original("VE_XrayFilterKernel.ci.metallib")));

    const std::filesystem::path library =
        copy.folder().parent_path() / std::filesystem::path(VORN_LIBRARY_PATH).filename();
    const Outcome run =
        runVorn("doctor --json",
                "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD='" + library.string() + "'");
    EXPECT_EQ(run.code, 1);
    const Json problems = run.objects().at(0).at("problems");
    ASSERT_EQ(problems.size(), 2U) << problems;
    EXPECT_NE(std::string(problems[0]).find("VENew -> VENwe"), std::string::npos) << problems;
    EXPECT_NE(std::string(problems[1]).find("VE_Solarize_solarize"), std::string::npos) << problems;
}

// ---- gallery ----------------------------------------------------------------------------------

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
