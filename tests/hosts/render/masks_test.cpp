// Filters that work in a part of the picture.
#include "render_support.h"

#include <cmath>
#include <fstream>
#include <string>

namespace {

using namespace render_test;

constexpr int kSide = 32;
const std::string kCard = "test:32x32@10,0.1s", kFilter = "VESolarize:intensity=1";

class Masks : public RenderTest {
protected:
    const Pixels source = pixelsOf(kCard), filtered = pixelsOf(kCard, {"--filter", kFilter});

    Pixels masked(const std::string& mask) const {
        return pixelsOf(kCard, {"--filter", kFilter, "--mask", mask});
    }
    /// Every pixel must be the mean by a weight, which counts from the lower left corner; where
    /// that is 0 or 1, exactly the source or the filter's.
    template <class Weight>
    void expectWeights(const Pixels& shown, Weight weight, int tolerance = 0) const {
        ASSERT_EQ(shown.size(), source.size());
        ASSERT_NE(source, filtered);
        for (int i = 0; i < int(shown.size()); ++i) {
            const int x = i / 4 % kSide, y = kSide - 1 - i / 4 / kSide;
            const double w = weight(x, y), s = std::uint8_t(source[std::size_t(i)]),
                         f = std::uint8_t(filtered[std::size_t(i)]);
            const bool isEnd = w <= 0 || w >= 1;
            ASSERT_LE(std::fabs(std::uint8_t(shown[std::size_t(i)]) - (s + (f - s) * w)),
                      isEnd ? 0 : tolerance)
                << x << " " << y << " weight " << w;
        }
    }
    /// A picture of 8x4, black on the left, white on the right.
    std::string halves() const {
        std::ofstream file(path("halves.ppm"), std::ios::binary);
        file << "P5 8 4 255\n";
        for (int i = 0; i < 32; ++i) file.put(char(i % 8 >= 4 ? 255 : 0));
        return path("halves.ppm");
    }
};

TEST_F(Masks, AreRectangles) {
    const auto box = [](int x, int y) { return x >= 8 && x < 24 && y >= 4 && y < 12 ? 1.0 : 0.0; };
    expectWeights(masked("rectangle(8,4,16,8)"), box);
    expectWeights(masked("1=rectangle(25%,12.5%,50%,25%)"), box);
    expectWeights(masked("rectangle(8,4,16,8):invert=yes"),
                  [&](int x, int y) { return 1 - box(x, y); });
    // A soft edge lies within.
    expectWeights(
        masked("rectangle(-100,0,200,32,8)"),
        [](int, int y) { return std::min(std::min(y + 1, kSide - y) / 9.0, 1.0); }, 1);
}

TEST_F(Masks, AreEllipses) {
    expectWeights(
        masked("VESolarize=ellipse(2,6,24,24,6)"),
        [](int x, int y) {
            const double depth = 12 - std::hypot(x + 0.5 - 14, y + 0.5 - 18);
            return std::clamp((depth + 0.5) / 7, 0.0, 1.0);
        },
        2);
    // Of a flat one nothing lies outside, and all of it well inside.
    const Pixels flat = masked("ellipse(0,12,32,8)");
    for (int i = 0; i < int(flat.size()); ++i) {
        const double across = (i / 4 % kSide + 0.5 - 16) / 16,
                     up = (kSide - 1 - i / 4 / kSide + 0.5 - 16) / 4;
        const double radius = std::hypot(across, up);
        const auto at = std::size_t(i);
        if (radius < 0.85) {
            ASSERT_EQ(flat[at], filtered[at]) << i;
        }
        if (radius > 1.15) {
            ASSERT_EQ(flat[at], source[at]) << i;
        }
    }
}

TEST_F(Masks, ArePicturesStretchedOverTheFrame) {
    const Pixels shown = masked(halves()), other = masked(halves() + ":invert=yes");
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const std::size_t x = i / 4 % kSide;
        if (x < 12) {
            ASSERT_TRUE(shown[i] == source[i] && other[i] == filtered[i]) << i;
        }
        if (x > 20) {
            ASSERT_TRUE(shown[i] == filtered[i] && other[i] == source[i]) << i;
        }
    }
    // In its own size at the top, beyond which it is 0.
    expectWeights(masked(halves() + ":fit=none,at=top-left"),
                  [](int x, int y) { return x >= 4 && x < 8 && y >= 28 ? 1.0 : 0.0; });
    const std::string cut = file(kCard, "cut.png", {"--filter", "CICrop:rectangle=[0,0,16,32]"});
    expectWeights(masked(cut + ":channel=alpha"), [](int x, int) { return x < 16 ? 1.0 : 0.0; });
}

TEST_F(Masks, ComeFromChainFilesAsFromOptions) {
    const Arguments options{"--filter", "VEGobo",
                            "--filter", kFilter,
                            "--mask",   "2=" + halves() + ":fit=cover,invert=yes",
                            "--mask",   "VEGobo=ellipse(10%,0,20,100%,5)"};
    Arguments chain{"chain", path("chain.json")};
    chain.insert(chain.end(), options.begin(), options.end());
    ASSERT_EQ(Process(chain).wait().code, 0);
    const Pixels wanted = pixelsOf(kCard, options);
    EXPECT_EQ(pixelsOf(kCard, {"--chain", path("chain.json")}), wanted);
    EXPECT_NE(wanted, pixelsOf(kCard, {options.begin(), options.begin() + 4}));
    const std::string back =
        Process({"chain", "--chain", path("chain.json"), "--command-line"}).wait().results;
    EXPECT_NE(back.find("halves.ppm:fit=cover,invert=yes"), std::string::npos) << back;
    EXPECT_NE(back.find("--mask '1=ellipse(10%,0,20,100%,5)'"), std::string::npos) << back;
}

TEST_F(Masks, AreRefusedInOneLine) {
    struct Case {
        const char* mask;
        const char* problem;
        int code = 2;
    };
    for (const Case& each : {
             Case{"ellipse(1,2,3)", "--mask: ellipse(x,y,width,height) is wanted"},
             Case{"ellipse(1,2,3,zero)", "\"zero\" is no length"},
             Case{"rectangle(0,0,0,1)", "width and height must be above 0"},
             Case{"rectangle(0,0,1,1):fit=none", "a region has no option \"fit=none\""},
             Case{"a.png:channel=red", "there is no channel \"red\""},
             Case{"VEXray=a.png", "\"VEXray\" is not in the chain"},
             Case{"missing.png", "missing.png", 3},
         }) {
        const Outcome run =
            render({kCard, path("out.png"), "--filter", kFilter, "--mask", each.mask});
        EXPECT_EQ(run.code, each.code) << each.mask;
        EXPECT_NE(run.talk.find(each.problem), std::string::npos) << run.talk;
        EXPECT_EQ(std::count(run.talk.begin(), run.talk.end(), '\n'), 1) << run.talk;
    }
}

} // namespace
