// A chain at work on a filter that looks at what it is given.
#include "chain/chain.h"
#include "chain/film_clock.h"
#include "host_error.h"
#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>

using namespace vorn;

namespace {

using namespace vorn::hosts;

struct Seen {
    std::uint64_t frameTime = 0;
    CIImage frame, matte, further;
    std::optional<double> level;
    std::string words;
    CIVector place;
} seen;

/// Takes its frame as some masks do, and has an inputImage that is not the frame.
class ChainProbe : public CIFilter {
public:
    static FilterGuide guide() {
        return {.frameKey = "inputLayerImage",
                .inputs = {{.key = "inputLevel", .start = 0.25},
                           {.key = "inputWords", .start = "as written"},
                           {.key = "inputPlace", .start = CIVector(3, 4)}}};
    }
    CIImage outputImage() override {
        seen = {frameTime, inputLayerImage, inputMatteImage, inputImage,
                {},        inputWords,      inputPlace};
        if (inputLevel.isSet()) seen.level = inputLevel.doubleValue();
        return inputLayerImage;
    }
    void setVornFrameTime(uint64_t nanoseconds) override { frameTime = nanoseconds; }

    CIImage inputImage, inputLayerImage, inputMatteImage;
    Number inputLevel, inputUntold;
    std::string inputWords;
    CIVector inputPlace;
    VORN_FILTER(ChainProbe, inputImage, inputLayerImage, inputMatteImage, inputLevel, inputUntold,
                inputWords, inputPlace)

private:
    uint64_t frameTime = 0;
};
VORN_REGISTER(ChainProbe)

class ProbeConstructor final : public CIFilterConstructor {
public:
    CIFilterRef filterWithName(std::string_view) override {
        return ChainProbe::theClass()->filter->create();
    }
};

ChainPlan planOf(const std::string& filter) {
    CIFilter::registerFilterName("ChainProbe", std::make_shared<ProbeConstructor>(), {});
    ChainPlan plan;
    plan.addFilter(filter);
    return plan;
}

CIImage grey(double level) {
    return CIImage::imageWithColor(CIColor(level, level, level))
        .imageByCroppingToRect({0, 0, 8, 8});
}

TEST(Chains, GiveEachPictureToItsInputAndTheTimeWithIt) {
    ChainPlan plan = planOf("ChainProbe");
    plan.addImage("matteImage=matte.png");
    plan.addImage("image=further.png");
    Chain chain(plan);
    const CIImage frame = grey(0.1), matte = grey(0.2), further = grey(0.3);
    EXPECT_EQ(chain.apply(frame, {matte, further}, 40'000'000, 0), frame);
    EXPECT_EQ(seen.frame, frame);
    EXPECT_EQ(seen.matte, matte);
    EXPECT_EQ(seen.further, further);
    EXPECT_EQ(seen.frameTime, 40'000'000u);
}

TEST(Chains, BeginWithWhatTheGuideTellsAndThenDoAsTheyAreTold) {
    const CIImage frame = grey(0.1);
    Chain(planOf("ChainProbe")).apply(frame, {}, 0, 0);
    EXPECT_EQ(seen.level, 0.25);
    EXPECT_EQ(seen.words, "as written");
    EXPECT_EQ(seen.place.Y(), 4);
    EXPECT_FALSE(seen.further) << "not the frame";
    Chain(planOf("ChainProbe:level=0.5,place=none")).apply(frame, {}, 0, 0);
    EXPECT_EQ(seen.level, 0.5);
    EXPECT_FALSE(seen.place.isSet());
}

/// What a chain has to say of a filter after so many frames at a tenth of a second each.
std::string saidOf(const std::string& filter, int frames = 1) {
    registerFilters();
    ChainPlan plan;
    plan.addFilter(filter);
    Chain chain(plan);
    std::string said;
    for (int i = 0; i < frames; ++i) chain.apply(grey(0.5), {}, 0, 0.1 * i);
    for (const auto& lines : {chain.takeMessages(), chain.remarks()})
        for (const std::string& line : lines) said += line + '\n';
    return said;
}

TEST(Chains, TellOnceOfValuesOutsideOfTheSlider) {
    EXPECT_EQ(saidOf("VESolarize:intensity=1"), "");
    EXPECT_EQ(saidOf("VESolarize:intensity=1.5", 3),
              "VESolarize: inputIntensity of 1.5 is used, though the slider runs from 0 to 1\n");
    EXPECT_EQ(saidOf("VESolarize:intensity=0.5-4*t", 9),
              "VESolarize: inputIntensity of -0.3 is used, though the slider runs from 0 to 1\n");
    // The time of the frame is no slider.
    EXPECT_EQ(saidOf("VE_TimecodeBurnin:input1=255,inputTimecode=1e12"), "");
}

TEST(Chains, FindNothingWrongWithTheSettingsThatFiltersBeginWith) {
    registerFilters();
    for (const FilterEntry& entry : listFilters(false)) {
        const std::string filter = entry.name + ":" + settingsText(entry.guide().beginWith);
        if (entry.guide().beginWith.empty()) continue;
        ChainPlan plan;
        plan.addFilter(filter);
        for (const std::string& line : Chain(plan).takeMessages())
            EXPECT_EQ(line.find("the slider runs"), std::string::npos) << filter << ": " << line;
    }
}

TEST(Chains, TellOfFiltersThatAreKnownToChangeNothing) {
    EXPECT_EQ(saidOf("VEMirrors:mixer=0"),
              "VEMirrors: changes nothing at these settings; to see it, "
              "try VEMirrors:mode=3\n");
    EXPECT_EQ(saidOf("VEMirrors"), "");
    const char* const atEnd =
        "VEMirrors: changed nothing in any frame; to see it, try VEMirrors:mode=3\n";
    EXPECT_EQ(saidOf("VEMirrors:mixer=0*t", 3), atEnd);
    EXPECT_EQ(saidOf("VEMirrors:mixer=t", 3), ""); // only in the first frame
    EXPECT_EQ(saidOf("VEDecay:amount=0.6,skip=0"),
              "VEDecay: changed nothing; it works from frame to frame, and there is one\n");
}

TEST(Chains, RefuseToSetTheFrame) {
    try {
        planOf("ChainProbe:layerImage=none");
        FAIL() << "is taken";
    } catch (const HostError& error) {
        EXPECT_NE(std::string(error.what()).find("inputLayerImage is the picture that the chain"),
                  std::string::npos)
            << error.what();
    }
    ChainPlan plan = planOf("ChainProbe");
    EXPECT_THROW(plan.addImage("layerImage=frame.png"), HostError);
}

TEST(Chains, RunOnAClockThatIsNeverQuiteExactAndAlwaysTheSame) {
    constexpr uint64_t kFrame = 40'000'000;
    const Session::Scope scope(Session::make());
    FilmClock clock, again;
    const auto timeBy = [](FilmClock& which, uint64_t time, uint64_t frame) {
        which.driveTo(time, frame);
        return VornEffectsGetUptimeInNanoseconds();
    };
    std::set<uint64_t> ahead;
    uint64_t last = 0;
    for (uint64_t i = 0; i < 50; ++i) {
        last = timeBy(clock, i * kFrame, i);
        EXPECT_EQ(last, timeBy(again, i * kFrame, i));
        EXPECT_LT(last - i * kFrame, 1000u);
        ahead.insert(last - i * kFrame);
    }
    EXPECT_GT(ahead.size(), 40u);
    // Frames of one time follow each other all the same.
    for (uint64_t i = 50; i < 80; ++i) {
        const uint64_t time = timeBy(clock, 49 * kFrame, i);
        EXPECT_GE(time, last) << i;
        last = time;
    }
}

} // namespace
