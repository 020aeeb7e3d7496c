// How second pictures lie in the frame.
#include "render_support.h"

#include <array>
#include <fstream>
#include <string>

namespace {

using namespace render_test;

constexpr int kSide = 32;
const std::string kCard = "test:32x32@10,0.1s";

class SecondPictures : public RenderTest {
protected:
    /// A picture of 8x4: red, green and below them blue, white.
    std::string quarters() const {
        std::ofstream file(path("quarters.ppm"), std::ios::binary);
        file << "P6 8 4 255\n";
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 8; ++x) {
                const bool isRight = x >= 4, isLow = y >= 2;
                file.put(char(isRight == isLow ? 255 : 0))
                    .put(char(isRight ? 255 : 0))
                    .put(char(isLow ? 255 : 0));
            }
        return path("quarters.ppm");
    }
    /// The letter of a pixel's colour, counted from the upper left.
    static char colourAt(const Pixels& pixels, int x, int y) {
        const auto* pixel =
            reinterpret_cast<const unsigned char*>(pixels.data()) + std::size_t(y * kSide + x) * 4;
        const auto is = [&](int red, int green, int blue, int alpha) {
            const std::array<int, 4> wanted{red, green, blue, alpha};
            for (std::size_t i = 0; i < 4; ++i)
                if (std::abs(pixel[i] - wanted[i]) > 1) return false;
            return true;
        };
        return is(255, 0, 0, 255)       ? 'r'
               : is(0, 255, 0, 255)     ? 'g'
               : is(0, 0, 255, 255)     ? 'b'
               : is(255, 255, 255, 255) ? 'w'
               : is(0, 0, 0, 0)         ? '.'
                                        : '?';
    }
};

TEST_F(SecondPictures, LieInTheFrameAsTheyAreAsked) {
    struct Case {
        const char* options;
        const char* colours; ///< at the four places below
        std::array<std::array<int, 2>, 4> places;
    };
    const std::array<std::array<int, 2>, 4> corners{{{2, 2}, {29, 2}, {2, 29}, {29, 29}}};
    const std::string picture = quarters();
    for (const Case& each : {
             Case{"", "rgbw", corners},
             Case{":at=left", "rrbb", {{{2, 2}, {24, 2}, {2, 29}, {24, 29}}}},
             Case{":fit=cover,at=right", "ggww", {{{7, 2}, {29, 2}, {7, 29}, {29, 29}}}},
             Case{":fit=stretch,at=left", "rgbw", corners},
             Case{":fit=contain", "....", corners},
             Case{":fit=contain", "rgbw", {{{2, 10}, {29, 10}, {2, 21}, {29, 21}}}},
             Case{":at=top,fit=contain", "rg..", corners},
             Case{":fit=contain,scale=0.5", "rw..", {{{10, 14}, {21, 17}, {6, 14}, {21, 21}}}},
             Case{":scale=4,at=top-left", "rrrr", corners},
             Case{":fit=none", "rgw.", {{{12, 14}, {19, 14}, {19, 17}, {11, 14}}}},
             Case{":fit=none,at=top-right", "rg.w", {{{24, 0}, {31, 0}, {23, 0}, {31, 3}}}},
             Case{":fit=none,scale=2", "rgw.", {{{9, 13}, {22, 13}, {22, 18}, {6, 13}}}},
         }) {
        const Pixels shown = pixelsOf(kCard, {"--filter", "VEXFDissolve:fadeStatus=1", "--image",
                                              "targetImage=" + picture + each.options});
        std::string colours;
        for (const auto& [x, y] : each.places) colours += colourAt(shown, x, y);
        EXPECT_EQ(colours, each.colours) << each.options;
    }
}

TEST_F(SecondPictures, CountTheShapeOfTheirPixels) {
    // Of 16x32 pixels that are twice as wide as high, nothing is cut off of a square frame.
    const std::string card = file("test:32x32@10,0.1s", "square.png"),
                      wide = file(card, "wide.mkv", {"--size", "16x32", "--codec", "ffv1"});
    const auto shown = [&](const std::string& options) {
        return pixelsOf(kCard, {"--filter", "VEXFDissolve:fadeStatus=1", "--image",
                                "targetImage=" + wide + options});
    };
    EXPECT_EQ(shown(""), shown(":fit=stretch"));
    EXPECT_EQ(shown(":fit=contain"), shown(":fit=stretch"));
}

TEST_F(SecondPictures, StayAsTheyAreWhereTheFilterStretchesThem) {
    // A matte of another shape than the frame's, which the wipe stretches over it.
    const std::string matte = file("test:64x16@10,0.1s", "matte.png");
    const auto wiped = [&](const std::string& options) {
        return pixelsOf(kCard,
                        {"--filter", "VEXFCustomWipe:fadeStatus=0.5", "--image",
                         "targetImage=" + quarters(), "--image", "maskImage=" + matte + options});
    };
    EXPECT_EQ(wiped(""), wiped(":fit=none"));
    EXPECT_NE(wiped(""), wiped(":fit=cover"));
}

TEST_F(SecondPictures, LieTheSameByChainFiles) {
    const Arguments options{"--filter", "VEXFDissolve:fadeStatus=0.7", "--image",
                            "targetImage=" + quarters() + ":fit=contain,at=bottom,scale=0.75"};
    Arguments chain{"chain", path("chain.json")};
    chain.insert(chain.end(), options.begin(), options.end());
    ASSERT_EQ(Process(chain).wait().code, 0);
    EXPECT_EQ(pixelsOf(kCard, {"--chain", path("chain.json")}), pixelsOf(kCard, options));
    EXPECT_NE(Process({"chain", "--chain", path("chain.json"), "--command-line"})
                  .wait()
                  .results.find("quarters.ppm:fit=contain,at=bottom,scale=0.75"),
              std::string::npos);
}

TEST_F(SecondPictures, AreRefusedInOneLine) {
    struct Case {
        const char* options;
        const char* problem;
    };
    for (const Case& each : {
             Case{":fit=fill", "--image targetImage fit: there is no fit \"fill\"; there is cover"},
             Case{":at=topleft", "there is no place \"topleft\"; did you mean top-left?"},
             Case{":scale=-1", "--image targetImage scale: a scale is a number from 0.001 to 1000"},
             Case{":size=3", "a picture has no option \"size\"; there is fit, at and scale"},
             Case{":scale=1000", "would be 64000x32000 large in a frame of 32x32; say another"},
         }) {
        const Outcome run = render({kCard, path("out.png"), "--filter", "VEXFDissolve", "--image",
                                    "targetImage=" + quarters() + each.options});
        EXPECT_EQ(run.code, 2) << each.options;
        EXPECT_NE(run.talk.find(each.problem), std::string::npos) << run.talk;
        EXPECT_EQ(std::count(run.talk.begin(), run.talk.end(), '\n'), 1) << run.talk;
    }
}

} // namespace
