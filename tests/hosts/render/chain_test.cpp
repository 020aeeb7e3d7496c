// Filters in a chain, their settings, animations and further pictures.
#include "render_support.h"

#include <algorithm>
#include <string>

namespace {

using namespace render_test;

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

TEST_F(RenderTest, FlickersTheSameEachTime) {
    constexpr std::size_t frame = 64 * 36 * 4;
    const std::string still = file("test:64x36@10,0.1s", "still.png");
    const Arguments old{"--filter", "VEOldFilm", "--duration", "0.4"};
    const Pixels film = pixelsOf(still, old);
    ASSERT_EQ(film.size(), 10 * frame);
    for (std::size_t i = 2; i < 10; ++i)
        EXPECT_NE(frameOf(film, i, frame), frameOf(film, i - 1, frame)) << i;
    EXPECT_EQ(film, pixelsOf(still, old));
}

TEST_F(RenderTest, WritesTheMediaTimeUnlessAnotherIsSet) {
    const auto burned = [](std::vector<std::string> more) {
        std::vector<std::string> arguments{"--filter", "VE_TimecodeBurnin:input1=255,input2=0",
                                           "--range", "1-1.3"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return pixelsOf("test:160x90@10,2s", arguments);
    };
    const Pixels running = burned({});
    EXPECT_EQ(running, burned({"--animate", "inputTimecode=0:1e9,1:2e9"}));
    EXPECT_NE(running, burned({"--animate", "inputTimecode=0:0,1:1e9"}));
}

TEST_F(RenderTest, BeginsWithTheStartsOfInputsThatAreNotAdvertised) {
    const std::string card = "test:64x36@10,0.1s", filter = "VEColorBrightContrast";
    EXPECT_EQ(pixelsOf(card, {"--filter", filter}), pixelsOf(card)); // brightness at its middle
    EXPECT_NE(pixelsOf(card, {"--filter", filter + ":brightness=none"}), pixelsOf(card));
}

TEST_F(RenderTest, TakesChainsFromFilesAsFromOptions) {
    const std::string card = "test:64x48@10,0.6s",
                      second = file("test:64x48@10,0.1s", "second.png");
    // The mixer moves, the second filter works on two frames only, and the order is as written.
    const Arguments options{"--filter",  "VEGobo:mixer=0.2+t",
                            "--filter",  "VEXFDissolve:fadeStatus=0.5",
                            "--filter",  "VESolarize:intensity=1",
                            "--image",   "targetImage=" + second,
                            "--during",  "2=0.2-0.4",
                            "--animate", "3.intensity=0:0:hold,0.3:1"};
    const Pixels wanted = pixelsOf(card, options);
    constexpr std::size_t frame = 64 * 48 * 4;
    const Arguments first{"--filter", "VEGobo:mixer=0.3"};
    EXPECT_EQ(frameOf(wanted, 1, frame), frameOf(pixelsOf(card, first), 1, frame));

    Arguments chain{"chain", path("chain.json")};
    chain.insert(chain.end(), options.begin() + 2, options.begin() + 10);
    for (std::string& word : chain)
        if (word[0] == '2') word = "1=0.2-0.4";
    ASSERT_EQ(Process(chain).wait().code, 0);
    EXPECT_EQ(pixelsOf(card, {"--filter", "VEGobo:mixer=0.2+t", "--chain", path("chain.json"),
                              "--animate", "3.intensity=0:0:hold,0.3:1"}),
              wanted);
    const Outcome back = Process({"chain", "--chain", path("chain.json"), "--command-line"}).wait();
    EXPECT_EQ(back.results,
              "--filter VEXFDissolve:inputFadeStatus=0.5 --filter VESolarize:inputIntensity=1 "
              "--image 1.inputTargetImage=" +
                  second + " --during 1=0.2-0.4\n");
}

TEST_F(RenderTest, ChangesThePictureByEveryPresetWithNothingToSay) {
    const std::string card = "test:64x36@10,0.3s";
    const Pixels source = pixelsOf(card);
    const std::string names = Process({"list", "--presets", "--names"}).wait().results;
    std::istringstream lines(names);
    for (std::string name; std::getline(lines, name);) {
        const Pixels shown = pixelsOf(card, {"--preset-chain", name});
        EXPECT_EQ(shown.size(), source.size());
        EXPECT_NE(frameOf(shown, 0, 64 * 36 * 4), frameOf(source, 0, 64 * 36 * 4)) << name;
    }
}

TEST_F(RenderTest, SaysInOneLineWhenAFormulaGivesNoNumber) {
    const Outcome run = render(
        {"test:64x48@10,1s", path("out.mkv"), "--quiet", "--filter", "VEGobo:mixer=sqrt(0.25-t)"});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.talk.find("vorn: frame 3 at 0.300 s: --filter VEGobo mixer: \"sqrt(0.25-t)\" is "
                            "no number at t = 0.3\n"),
              std::string::npos)
        << run.talk;
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

} // namespace
