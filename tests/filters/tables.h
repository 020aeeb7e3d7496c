// What the tests of all families share: the tables of advertised inputs, of graphs, of pixels and
// of frames that follow each other, and pictures to look at. A family's file has the rows.
#pragma once
#include "support.h"

#include <functional>
#include <ostream>
#include <utility>

// ---- Inputs and pictures ------------------------------------------------------------------------

/// The rectangle that kernels are asked about.
constexpr CGRect kProbe{100, 101, 50, 51};
/// 127 of 255, the middle of controls that count so.
constexpr double kMiddle = 0.4980392157;

CIImage frame(double width, double height, CGPoint origin = {});
/// A second picture of 640 by 480 pixels: "target" in graphs.
CIImage secondFrame();

/// Numbers by their keys without "input".
Settings inputs(std::initializer_list<std::pair<const char*, double>> values);
Settings with(Settings settings, const std::string& key, double value);
/// "input1", "input2" and so on.
Settings numbered(const std::vector<double>& values);
Settings byMatte(const CIImage& matte, Settings settings);

/// Straight colour.
using Straight = std::array<double, 3>;

Bitmap pictureOf(int width, int height, const std::function<Straight(int, int)>& color);
/// What a filter makes of a picture, on the CPU.
Bitmap lookOf(const std::string& filter, const Settings& settings, const Bitmap& source);
/// What a filter makes of a plane of one colour.
Pixel lookOf(const std::string& filter, const Settings& settings, const Straight& color);

double luma(const Pixel& pixel);
void expectHue(const Pixel& actual, const Straight& color, const std::string& what);

double smooth(double t);
double unit(double v);
/// ITU-R BT.709.
double luma(const Straight& color);
Pixel times(Pixel pixel, double share);

/// A soft edge, 6 pixels wide, that leans by a third of a pixel each row; bright on the right.
double leaningEdge(int x, int y, double middle);

// ---- What hosts are told ------------------------------------------------------------------------

/// The advertised inputs in order: key without "input", label, and the numbers that differ from
/// minimum 0, slider 0 to 1, default 0, identity 0. Entries that are not in the usual order, and
/// another type than a distance, are told at the end of an input.
struct AdvertisedCase {
    std::string filter;
    std::string inputs;
};
class Advertised : public testing::TestWithParam<AdvertisedCase> {};

// ---- What each mode describes -------------------------------------------------------------------

/// A graph as one line: kernels and framework filters with their arguments, "source" and "target"
/// for the images that were set, and behind a general kernel what it reads for the probe, "own" for
/// the probe itself. An extent that is not that of the source follows at the end.
std::string graphOf(const CIImage& output, const CIImage& source);

struct GraphCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::string graph; ///< empty: no image
    CIImage source = frame(1920, 1080);
};
class Graphs : public testing::TestWithParam<GraphCase> {};

// ---- Pixels against their formulas --------------------------------------------------------------

constexpr int kWidth = 44, kHeight = 26;

/// What a filter makes of the pixel at the column x and row y of a source.
struct PixelCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::function<Pixel(const Bitmap& source, int x, int y)> expected;
};
class Pixels : public testing::TestWithParam<PixelCase> {};

// ---- Over several frames ------------------------------------------------------------------------

/// A frame of a story: the clock, what is set before it, and the graph that follows.
struct Frame {
    double seconds;
    Settings settings;
    std::string graph; ///< "nothing": no image
    uint64_t frameTime = 0;
    CIImage source = {}; ///< another source from here on
};

/// The filter is made when the clock stands at 1000 seconds; times count from there.
struct StoryCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::vector<Frame> frames;
    CIImage source = frame(1920, 1080);
};
class Stories : public testing::TestWithParam<StoryCase> {
protected:
    void TearDown() override;
};

// ---- In messages --------------------------------------------------------------------------------

std::ostream& operator<<(std::ostream& stream, const AdvertisedCase& test);
std::ostream& operator<<(std::ostream& stream, const GraphCase& test);
std::ostream& operator<<(std::ostream& stream, const PixelCase& test);
std::ostream& operator<<(std::ostream& stream, const StoryCase& test);

/// Names the rows of a table after their titles.
constexpr auto kByTitle = [](const auto& test) { return std::string(test.param.title); };
constexpr auto kByFilter = [](const auto& test) { return std::string(test.param.filter); };
