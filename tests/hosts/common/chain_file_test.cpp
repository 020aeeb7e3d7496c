// Chains as files: what is read, what is refused and where, and the published schema.
#include "schema.h"

#include "bundle_copy.h"
#include "chain/presets.h"
#include "host_error.h"
#include "settings/chain_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace {

using namespace vorn;
using namespace vorn::hosts;
using Json = nlohmann::json;

const Schema& schema() {
    static const Schema published(
        Json::parse(fileContents(VORN_SOURCE_DIR "/docs/chain.schema.json")));
    return published;
}

/// The chain's text as it is written again; what is wrong with it where it is refused.
std::string rewritten(const std::string& text) {
    registerFilters();
    ChainPlan plan;
    const ChainWords words = readChain(text, "chain.json", "folder", plan);
    return chainText(plan, words, "folder");
}

std::string chainWith(const std::string& filters) {
    return R"({"version": 1, "filters": [)" + filters + "]}";
}
std::string settings(const std::string& set) {
    return chainWith(R"({"filter": "VESolarize", "set": {)" + set + "}}");
}

std::string masked(const std::string& mask) {
    return chainWith(R"({"filter": "VEXray", "mask": )" + mask + "}");
}
std::string secondPicture(const std::string& picture) {
    return chainWith(R"({"filter": "VEXFDissolve", "images": {"targetImage": )" + picture + "}}");
}

struct Refusal {
    std::string text;
    const char* problem; ///< a part of what is said
    bool isForm = true;  ///< which a schema can tell
};
void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.problem;
}

class ChainFiles : public testing::TestWithParam<Refusal> {};

TEST_P(ChainFiles, AreRefusedWithThePlaceOfWhatIsWrong) {
    try {
        rewritten(GetParam().text);
        FAIL() << "is taken: " << GetParam().text;
    } catch (const HostError& error) {
        EXPECT_EQ(error.code(), ExitCode::Usage);
        const std::string what = error.what();
        EXPECT_TRUE(what.starts_with("chain.json")) << what;
        EXPECT_NE(what.find(GetParam().problem), std::string::npos) << what;
        EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    }
    const Json json = Json::parse(GetParam().text, nullptr, false);
    if (!json.is_discarded()) {
        EXPECT_EQ(schema().allows(json), !GetParam().isForm);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Refused, ChainFiles,
    testing::Values(
        Refusal{"{\n  \"version\": 1,\n  \"fil\xc3\xa4ters\" [\n",
                "chain.json, line 3, column 14: "},
        Refusal{"", "line 1, column 1: "}, Refusal{"{\"version\": 1}\n]", "line 2, column 1: "},
        Refusal{"{\"version\": 1e999}", "line 1, column 17: number overflow"},
        Refusal{"\"\xff\"", "line 1, column 2: "},
        Refusal{std::string(200, '['), "nests more than 100 deep"}, Refusal{"[]", "/: an object"},
        Refusal{"{}", "/: \"version\" is missing"},
        Refusal{R"({"version": 2, "filters": []})", "/version: this is for version 1, not 2"},
        Refusal{R"({"version": 1, "filters": []})", "/filters: the list is too short"},
        Refusal{R"({"version": 1, "fliters": []})",
                "/fliters: there is no such thing here; did you mean filters?"},
        Refusal{chainWith(R"({"filter": "VESolarise"})"),
                "/filters/0/filter: there is no filter \"VESolarise\"; did", false},
        Refusal{chainWith(R"({"filter": "VEXray"}, {"filter": 3})"), "/filters/1/filter: a text"},
        Refusal{masked("{}"), "/filters/0/mask: \"file\" is missing"},
        Refusal{masked("\"\""), "/filters/0/mask: a file is wanted"},
        Refusal{masked(R"({"file": "a", "channel": "red"})"), "/mask/channel: there is no channel"},
        Refusal{masked(R"({"file": "a", "invert": 1})"), "/mask/invert: true or false"},
        Refusal{masked(R"({"ellipse": [0, 0, 1]})"), "/mask/ellipse: the list is too short"},
        Refusal{masked(R"({"ellipse": [0, 0, 0, 1]})"), "width and height must be above 0", false},
        Refusal{masked(R"({"ellipse": [0, 0, "1p", 1]})"), "/mask/ellipse/2: \"1p\" is no", false},
        Refusal{masked(R"({"rectangle": [0, 0, 1, 1], "file": "a"})"),
                "/mask/file: this does not go with \"rectangle\""},
        Refusal{chainWith(R"({"filter": "VEXray", "from": 3, "to": 2})"),
                "/filters/0/to: the effect ends before", false},
        Refusal{chainWith(R"({"filter": "VEXray", "from": -1})"), "/filters/0/from: a time"},
        Refusal{chainWith(R"({"filter": "VEXray", "images": {"targetImage": "a.png"}})"),
                "/filters/0/images/targetImage: VEXray has no image", false},
        Refusal{chainWith(R"({"filter": "VEXFDissolve", "images": {"targetImage": ""}})"),
                "/images/targetImage: a file"},
        Refusal{secondPicture(R"({"fit": "cover"})"), "targetImage: \"file\" is missing"},
        Refusal{secondPicture(R"({"file": "a", "fit": "covers"})"),
                "/targetImage/fit: there is no fit \"covers\"; did you mean cover?"},
        Refusal{secondPicture(R"({"file": "a", "at": "middle"})"), "/at: there is no place"},
        Refusal{secondPicture(R"({"file": "a", "scale": 0})"), "/scale: a scale is a number"},
        Refusal{settings(R"("intensty": 1)"),
                "/filters/0/set/intensty: VESolarize has no input \"intensty\"; did", false},
        Refusal{settings(R"("a/b~": 1)"), "/set/a~1b~0: ", false},
        Refusal{chainWith(R"({"filter": "VEXray", "set": {"intensity": 1, "intensity": 0}})"),
                "/filters/0/set/intensity is there twice", false},
        Refusal{settings(R"("intensity": [1, 2])"), "kind number, not vector", false},
        Refusal{settings(R"("intensity": [1])"), "/set/intensity: a list of 2 to 4 numbers"},
        Refusal{settings(R"("intensity": true)"), "/set/intensity: no value"},
        Refusal{settings(R"("intensity": {"color": [1, 2]})"),
                "/set/intensity/color: a list of 4 numbers"},
        Refusal{settings(R"("intensity": {"data": "0"})"), "hexadecimal"},
        Refusal{settings(R"("intensity": {"number": "1"})"), "/number: nan, inf"},
        Refusal{settings(R"("intensity": {"formula": "t+"})"),
                "/set/intensity/formula: \"t+\" is no formula of t: ", false},
        Refusal{settings(R"x("intensity": {"formula": "sinus(t)"})x"), "is no formula", false},
        Refusal{settings(R"("intensity": {"formula": "t=3"})"), "\"==\" compares", false},
        Refusal{settings(R"("intensity": {"formula": "1,2"})"), "a comma parts", false},
        Refusal{settings(R"("intensity": {"formula": ["t", "t"]})"), "kind number, not vector",
                false},
        Refusal{settings(R"("intensity": {"formula": ["t"]})"), "two to four make a vector"},
        Refusal{settings("\"intensity\": {\"formula\": \"" + std::string(1001, '1') + "\"}"),
                "more than 1000 letters"},
        Refusal{settings(R"("intensity": {"keyframes": []})"), "/keyframes: the list is too short"},
        Refusal{settings(R"("intensity": {"keyframes": [{"at": 0}]})"),
                "/keyframes/0: \"value\" is missing"},
        Refusal{
            settings(R"("intensity": {"keyframes": [{"at": 0, "value": 1, "easing": "smoth"}]})"),
            "/keyframes/0/easing: there is no easing \"smoth\"; did you mean smooth?"},
        Refusal{
            settings(
                R"("intensity": {"keyframes": [{"at": 1, "value": 1}, {"at": 0, "value": 1}]})"),
            "the times decrease", false},
        Refusal{settings(R"("intensity": {"keyframes": [{"at": 1, "value": "one"}]})"),
                "can move"}));

/// Everything that a file can say, in the form in which it is written.
const char* const kWhole = R"json({
  "version": 1,
  "name": "Everything",
  "description": "All that there is.",
  "filters": [
    {
      "filter": "VECropCircleXYPosition",
      "set": {
        "inputMixer": 0.25,
        "inputSize": {
          "keyframes": [
            {
              "at": 0,
              "value": 0.5,
              "easing": "bounce"
            },
            {
              "at": 1.5,
              "value": 1
            }
          ]
        }
      }
    },
    {
      "filter": "VEXFDissolve",
      "set": {
        "inputFadeStatus": {
          "formula": "clamp(t,0,1)"
        }
      },
      "images": {
        "inputTargetImage": "pictures/second one.png"
      },
      "from": 1,
      "to": 2.5
    },
    {
      "filter": "VEXFWipes",
      "images": {
        "inputTargetImage": {
          "file": "other.png",
          "fit": "contain",
          "at": "top-left",
          "scale": 0.5
        }
      },
      "mask": {
        "file": "sky.png",
        "fit": "cover",
        "channel": "alpha",
        "invert": true
      }
    },
    {
      "filter": "VEXray",
      "mask": {
        "ellipse": [
          10,
          "12.5%",
          "50%",
          80.5,
          "7%"
        ]
      }
    },
    {
      "filter": "CICrop",
      "set": {
        "inputRectangle": [
          1,
          0,
          0.5,
          100
        ]
      },
      "from": 3
    },
    {
      "filter": "CISmoothLinearGradient",
      "set": {
        "inputColor0": {
          "color": [
            0,
            0.5,
            1,
            1
          ]
        },
        "inputColor1": {
          "formula": [
            "t",
            "0",
            "0",
            "1"
          ]
        },
        "inputPoint0": {
          "formula": [
            "100*t",
            "20"
          ]
        }
      }
    }
  ]
}
)json";

TEST(ChainFiles, AreWrittenAsTheyAreReadAndAsTheSchemaHasThem) {
    EXPECT_EQ(rewritten(kWhole), kWhole);
    EXPECT_TRUE(schema().allows(Json::parse(kWhole)));
    for (const char* value : {"null", R"({"number": "inf"})", "-0.1", "1e-300"}) {
        const std::string text = settings("\"inputIntensity\": " + std::string(value));
        EXPECT_TRUE(schema().allows(Json::parse(text))) << value;
        EXPECT_EQ(Json::parse(rewritten(text)), Json::parse(text));
    }
}

TEST(ChainFiles, FindTheirPicturesFromTheirOwnFolder) {
    registerFilters();
    ChainPlan plan;
    readChain(kWhole, "chain.json", "/some/folder", plan);
    EXPECT_EQ(plan.imageNames(), (Lines{"/some/folder/pictures/second one.png",
                                        "/some/folder/other.png", "/some/folder/sky.png"}));
    EXPECT_NE(chainText(plan, {}, "/some").find("\"folder/pictures/second one.png\""),
              std::string::npos);
}

TEST(Presets, FitReaderAndSchemaAndTellOfThemselves) {
    registerFilters();
    size_t count = 0;
    for (const auto& file :
         std::filesystem::directory_iterator(VORN_SOURCE_DIR "/hosts/common/presets")) {
        const std::string path = file.path().string();
        ChainPlan plan;
        const ChainWords words = readChainFile(path, plan);
        EXPECT_TRUE(schema().allows(Json::parse(fileContents(path)))) << path;
        EXPECT_FALSE(words.name.empty() || !words.description.ends_with('.')) << path;
        EXPECT_TRUE(plan.imageNames().empty()) << path << ": a picture that others lack";
        ++count;
    }
    EXPECT_GE(count, 12U);
}

double valueAt(const Animation& animation, double seconds) {
    return std::get<Number>(animation.valueAt(seconds)).doubleValue();
}

TEST(Animations, EaseWithoutLeavingWhatLiesBetween) {
    struct Case {
        const char* easing;
        double quarter, half, threeQuarters;
    };
    for (const Case& each :
         {Case{"linear", 0.25, 0.5, 0.75}, Case{"hold", 0, 0, 0},
          Case{"smooth", 5.0 / 32, 0.5, 27.0 / 32}, Case{"cubic", 1.0 / 16, 0.5, 15.0 / 16},
          Case{"bounce", 121.0 / 256, 49.0 / 64, 249.0 / 256}}) {
        const Animation way = Animation::parse("1:-2:" + std::string(each.easing) + ",3:2", "here");
        EXPECT_DOUBLE_EQ(valueAt(way, 1.5), -2 + 4 * each.quarter) << each.easing;
        EXPECT_DOUBLE_EQ(valueAt(way, 2), -2 + 4 * each.half) << each.easing;
        EXPECT_DOUBLE_EQ(valueAt(way, 2.5), -2 + 4 * each.threeQuarters) << each.easing;
        for (double time = 0; time < 4; time += 1.0 / 128) {
            EXPECT_GE(valueAt(way, time), -2) << each.easing << " at " << time;
            EXPECT_LE(valueAt(way, time), 2) << each.easing << " at " << time;
        }
        EXPECT_EQ(valueAt(way, 0), -2);
        EXPECT_EQ(valueAt(way, 3), 2);
    }
}

TEST(Animations, FollowFormulasOfTheTime) {
    struct Case {
        const char* formula;
        double at2;
    };
    for (const Case& each :
         {Case{"0.5+0.5*sin(2*pi*t/8)", 1}, Case{"t<1 ? 5 : 6", 6}, Case{"-t", -2},
          Case{"clamp(t, 0, 1.5)", 1.5}, Case{"mod(t-3, 2.5)", 1.5}, Case{"floor(t/0.7)", 2}})
        EXPECT_DOUBLE_EQ(valueAt(Animation::parse(each.formula, "here"), 2), each.at2)
            << each.formula;
    const Animation noise = Animation::parse("noise(10*t)", "here");
    double least = 1, most = 0;
    for (double time = 0; time < 20; time += 0.01) {
        least = std::min(least, valueAt(noise, time));
        most = std::max(most, valueAt(noise, time));
        EXPECT_NEAR(valueAt(noise, time), valueAt(noise, time + 0.001), 0.016);
    }
    EXPECT_LT(least, 0.1);
    EXPECT_GT(most, 0.9);
    EXPECT_LE(most, 1);
    EXPECT_GE(least, 0);
    const auto place = std::get<CIVector>(Animation::parse("[100*t,20]", "here").valueAt(0.5));
    EXPECT_EQ(place.X(), 50);
    EXPECT_EQ(place.Y(), 20);
}

} // namespace
