// The effects as a whole: what each mode describes, on which rules, and what holds for the pictures
// of all of them: the same on every device and in every split of the result, nothing left of an
// effect that is mixed out, transitions that begin and end exactly.
#include "allocation_count.h"
#include "support.h"
#include "vorneffects/ImageDescription.h"

#include <cstdio>
#include <functional>
#include <malloc.h>
#include <numbers>
#include <ostream>
#include <tuple>

namespace {

constexpr CGRect kProbe{100, 101, 50, 51};

CIImage frame(double width, double height, CGPoint origin = {}) {
    return CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6))
        .imageByCroppingToRect({origin.x, origin.y, width, height});
}

// ---- Graphs as text -----------------------------------------------------------------------------

std::string textOf(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", std::fabs(value) < 1e-8 ? 0.0 : value);
    return text;
}
std::string textOf(const CGRect& rect) {
    return "[" + textOf(rect.x) + " " + textOf(rect.y) + " " + textOf(rect.width) + " " +
           textOf(rect.height) + "]";
}
std::string textOf(const CIVector& vector) {
    std::string text = "(";
    for (size_t i = 0; i < vector.count(); ++i)
        text += (i ? " " : "") + textOf(vector.valueAtIndex(i));
    return text + ")";
}

/// A graph as one line: kernels and framework filters with their arguments, "source" and "target"
/// for the images that were set, and behind a general kernel what it reads for the probe.
std::string textOf(const ImageDescription& node, const CIImage& source, const CIImage& target) {
    const auto below = [&](const std::shared_ptr<ImageDescription>& image) {
        return image ? textOf(*image, source, target) : std::string("nothing");
    };
    if (node.object == source) return "source";
    if (target && node.object == target) return "target";
    std::string text;
    switch (node.kind) {
    case ImageDescription::Kind::Kernel:
        text = node.function + "(";
        for (size_t i = 0; i < node.arguments.size(); ++i) {
            if (i) text += ", ";
            if (const auto* number = std::get_if<Number>(&node.arguments[i]))
                text += textOf(number->doubleValue());
            else if (const auto* vector = std::get_if<CIVector>(&node.arguments[i]))
                text += textOf(*vector);
            else if (const auto* sampler = std::get_if<SamplerDescription>(&node.arguments[i]))
                text += below(sampler->image);
        }
        text += ")";
        for (const CGRect& rect : node.regionsOfInterest)
            text += rect == kProbe ? " own" : " " + textOf(rect);
        return text;
    case ImageDescription::Kind::Builtin:
        text = node.name + "(";
        for (const auto& [key, value] : node.inputs) {
            if (text.back() != '(') text += ", ";
            if (const auto* vector = std::get_if<CIVector>(&value))
                text += textOf(*vector);
            else if (const auto* t = std::get_if<CGAffineTransform>(&value))
                text +=
                    textOf(CIVector(t->a, t->b, t->c, t->d)) + "+" + textOf(CIVector(t->tx, t->ty));
            else if (const auto* image = std::get_if<std::shared_ptr<ImageDescription>>(&value))
                text += below(*image);
        }
        return text + ")";
    case ImageDescription::Kind::Composite:
        return "{" + below(node.over) + " over " + below(node.under) + "}";
    case ImageDescription::Kind::ErrorImage:
        return "error " + node.label;
    case ImageDescription::Kind::Surface:
        return "surface " + textOf(node.extent) + " " + std::to_string(node.bytesPerRow) +
               (node.colorSpace == CGColorSpace::SRGB ? " sRGB" : "");
    case ImageDescription::Kind::Bitmap:
        return "bitmap " + textOf(node.extent) + " " + node.format;
    case ImageDescription::Kind::Accumulator:
        return "kept";
    default:
        return "something else";
    }
}

// ---- What each mode describes -------------------------------------------------------------------

struct GraphCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::string graph;
    CIImage source = frame(1920, 1080);
};

std::ostream& operator<<(std::ostream& stream, const GraphCase& test) {
    return stream << test.title;
}

Settings inputs(std::initializer_list<std::pair<const char*, double>> values) {
    Settings settings;
    for (const auto& [key, value] : values)
        settings.emplace_back(std::string("input") + key, Number(value));
    return settings;
}

class Graphs : public testing::TestWithParam<GraphCase> {};

TEST_P(Graphs, AreThoseOfTheTable) {
    const GraphCase& test = GetParam();
    const CIImage target = frame(640, 480);
    Settings settings = test.settings;
    if (std::string_view(test.filter).starts_with("VEXF"))
        settings.insert(settings.begin(), {"inputTargetImage", target});
    testing::internal::CaptureStdout();
    const CIImage output = filtered(test.filter, test.source, settings);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(output || test.graph.empty());
    if (output) {
        EXPECT_EQ(textOf(*describeImage(output, kProbe), test.source, target), test.graph);
    }
}

constexpr double kMiddle = 0.4980392157;

std::string circleXY(const char* kernel, const char* arguments) {
    return std::string("VE_CropCircleXYPosition_cropCircleXY") + kernel + "(source, 1, " +
           arguments + ") own";
}
std::string rectXY(const char* kernel, const char* arguments) {
    return std::string("VE_FalloffXYPosition_cropRectXY") + kernel + "(source, 1, " + arguments +
           ") own";
}
GraphCase circle(const char* title, double isXY, double mode, std::string graph) {
    return {title, "VECropCircleXYPosition",
            inputs({{"IsXY", isXY}, {"Mode", mode}, {"XPosition", 0.25}, {"Aspect", 2}}),
            std::move(graph)};
}
GraphCase rectangle(const char* title, double isXY, double mode, std::string graph) {
    return {title, "VEFalloffXYPosition",
            inputs({{"IsXY", isXY}, {"Mode", mode}, {"XPosition", 0.25}, {"Aspect", 2}}),
            std::move(graph)};
}
GraphCase oval(const char* title, double mode, const char* kernel) {
    return {title, "VECropOvalXYPosition",
            inputs({{"Mode", mode}, {"Size", -1}, {"XPosition", 0.25}}),
            std::string("VE_CropOvalXYPosition_cropOvalXY") + kernel +
                "(source, (0.4445 0.5), 1.778, 1, 0) own"};
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Graphs,
    testing::Values(
        GraphCase{"Circle", "VECropCircle", inputs({{"Size", 0.2}, {"Edge", 0.5}}),
                  "VE_CropCircle_cropCircle(source, 1, (0.888889 0.5), 1.77778, 0.4, 0.1) own"},
        GraphCase{"CircleInAPortrait",
                  "VECropCircle",
                  {},
                  "VE_CropCircle_cropCircle(source, 1, (0.25 0.5), 0.5, 0.5, 0) own",
                  frame(300, 600, {7, -9})},
        circle("CircleWithoutXY", 0, 4, circleXY("Reverse", "(0.888889 0.5), 1.77778, 0.5, 0")),
        circle("CircleXY0", 1, 0, circleXY("", "(0.888889 0.5), 1.77778, 0.5, 0")),
        circle("CircleXY3", 1, 3, circleXY("Reverse", "(0.451416 0.503922), 1.77778, 0.5, 0")),
        circle("CircleXY4", 1, 4, circleXY("", "(0.507843 0.503922), 2, 0.5, 0")),
        circle("CircleXY6", 1, 6, circleXY("", "(1 1), 1.77778, 0.5, 0")),
        circle("CircleXY9", 1, 9, circleXY("Reverse", "(0.507843 0.503922), 2, 0.5, 0")),
        circle("CircleXYNegative", 1, -3, circleXY("", "(1 1), 1.77778, 0.5, 0")),
        GraphCase{"Rectangle", "VEFalloff", inputs({{"Size", 1}, {"Edge", 1}}),
                  "VE_Falloff_cropRect(source, 1, 0, 0.2) own"},
        rectangle("RectangleWithoutXY", 0, 2, rectXY("Reverse", "1, 0.5, 0, (0.5 0.5)")),
        rectangle("RectangleXY2", 1, 2, rectXY("", "1, 0.5, 0, (0.253922 0.503922)")),
        rectangle("RectangleXY5", 1, 5, rectXY("Reverse", "2, 0.5, 0, (0.253922 0.503922)")),
        rectangle("RectangleXY6", 1, 6, rectXY("", "1, 0.5, 0, (0.5 0.5)")), oval("Oval", 0, ""),
        oval("OvalReverse", 1, "Reverse"), oval("OvalMode2", 2, "Reverse"),
        oval("OvalMode7", 7, "Reverse"), oval("OvalNegative", -1, "Reverse")),
    [](const auto& test) { return test.param.title; });

// ---- Pixels against their formulas --------------------------------------------------------------

constexpr int kWidth = 44, kHeight = 26;

double smooth(double t) {
    t = std::clamp(t, 0.0, 1.0);
    return t * t * (3 - 2 * t);
}
Pixel times(Pixel p, double share) {
    for (double& c : p) c *= share;
    return p;
}
/// What a filter makes of the pixel at the column x and row y of a source.
struct PixelCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::function<Pixel(const Bitmap& source, int x, int y)> expected;
};

std::ostream& operator<<(std::ostream& stream, const PixelCase& test) {
    return stream << test.title;
}

class Pixels : public testing::TestWithParam<PixelCase> {};

TEST_P(Pixels, AreThoseOfTheFormula) {
    const PixelCase& test = GetParam();
    Random random(7);
    const Bitmap source = randomBitmap(random, kWidth, kHeight, CIFormat::RGBAf);
    for (const CGPoint origin : {CGPoint{}, CGPoint{-31, 17}}) {
        const CIImage image = filtered(test.filter, source.image(origin), test.settings);
        const auto expected = [&](int x, int y) { return test.expected(source, x, y); };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(
                isClose(render(*context, image, image.extent(), CIFormat::RGBAf), expected, {2e-5}))
                << nameOf(*context);
    }
}

/// How much of a pixel lies inside of a border at `radius`, seen from `distance`; in pixels.
double inside(double distance, double radius, double softness) {
    const double ramp = std::min(softness, radius) + 1;
    return smooth(std::min((radius + 0.5 - distance) / ramp, 2 * radius));
}
double circleAt(int x, int y, double radius, double softness) {
    return inside(std::hypot(x + 0.5 - kWidth / 2.0, y + 0.5 - kHeight / 2.0), radius * kHeight,
                  softness * kHeight);
}
double rectangleAt(int x, int y, double width, double height, double softness) {
    return inside(std::fabs(x + 0.5 - kWidth / 2.0), width, softness * kHeight) *
           inside(std::fabs(y + 0.5 - kHeight / 2.0), height, softness * kHeight);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Pixels,
    testing::Values(
        PixelCase{"Circle", "VECropCircle", inputs({{"Size", 0.3}, {"Edge", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), circleAt(x, y, 0.35, 0.1));
                  }},
        PixelCase{"CircleReverseHalfMixed", "VECropCircleXYPosition",
                  inputs({{"Mode", 1}, {"Size", 0.4}, {"Mixer", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), 1 - 0.5 * circleAt(x, y, 0.3, 0));
                  }},
        PixelCase{"OvalThatTheFrameHolds", "VECropOvalXYPosition", inputs({{"Aspect", 1}}),
                  [](const Bitmap& s, int x, int y) {
                      // Half a pixel along the slope of the distance.
                      const double u = (x + 0.5) / kWidth - 0.5, v = (y + 0.5) / kHeight - 0.5;
                      const double d = std::hypot(u, v);
                      const double pixel = std::hypot(u / kWidth, v / kHeight) / d;
                      return times(s.pixel(x, y), smooth((0.5 - d) / pixel + 0.5));
                  }},
        PixelCase{"OvalAsSoftAcrossAsUp", "VECropOvalXYPosition",
                  inputs({{"Aspect", 1}, {"Edge", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      const double u = (x + 0.5) / kWidth - 0.5, v = (y + 0.5) / kHeight - 0.5;
                      const double d = std::hypot(u, v);
                      const double pixel = std::hypot(u / kWidth, v / kHeight) / d;
                      const double ramp = std::min(0.1 * kHeight, 0.5 / pixel) + 1;
                      return times(s.pixel(x, y), smooth(((0.5 - d) / pixel + 0.5) / ramp));
                  }},
        PixelCase{"EdgeOfASmallCircle", "VECropCircle", inputs({{"Size", 0.8}, {"Edge", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), circleAt(x, y, 0.1, 0.05));
                  }},
        PixelCase{"EdgeOfASmallRectangle", "VEFalloff", inputs({{"Size", 0.8}, {"Edge", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y),
                                   rectangleAt(x, y, 0.1 * kWidth, 0.1 * kHeight, 0.05));
                  }},
        PixelCase{"NothingIsLeftOfACircleWithoutWidth", "VECropCircle", inputs({{"Size", 1}}),
                  [](const Bitmap&, int, int) { return Pixel{}; }},
        PixelCase{"TheWholeFrameIsARectangle",
                  "VEFalloff",
                  {},
                  [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }},
        PixelCase{"Rectangle", "VEFalloffXYPosition",
                  [] {
                      return inputs({{"IsXY", 1},
                                     {"Mode", 4},
                                     {"Aspect", 2},
                                     {"Size", 0.2},
                                     {"Edge", 0.4},
                                     {"XPosition", 0.5 - 1 / 255.0},
                                     {"YPosition", 0.5 - 1 / 255.0}});
                  }(),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y),
                                   rectangleAt(x, y, 0.2 * kWidth, 0.4 * kHeight, 0.08));
                  }}),
    [](const auto& test) { return test.param.title; });

INSTANTIATE_TEST_SUITE_P(
    Keys, Graphs,
    testing::Values(
        GraphCase{"Chroma2017", "VEChromaKey2017",
                  inputs({{"Sensitivity", 0.1},
                          {"Smoothing", 0.2},
                          {"Red", 0.3},
                          {"Green", 0.4},
                          {"Blue", 0.5},
                          {"Blur", 0.6}}),
                  "VE_ChromaKey2017_chromaKey2017(source, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6) own"},
        GraphCase{
            "ChromaRGB", "VEChromaKeyRGB",
            inputs(
                {{"Tolerance", 0.1}, {"Amount", 0.2}, {"Red", 0.3}, {"Green", 0.4}, {"Blue", 0.5}}),
            "VE_ChromaKey_chromaKeyRGB(source, 0.1, 0.2, 0.3, 0.4, 0.5) own"},
        GraphCase{"ChromaHSV", "VEChromaKeyHSV",
                  inputs({{"Tolerance", 0.1},
                          {"Amount", 0.2},
                          {"Hue", 0.3},
                          {"Saturation", 0.4},
                          {"Value", 0.5}}),
                  "VE_ChromaKeyHSV_chromaKeyHSV(source, 0.1, 0.2, 0.3, 0.4, 0.5) own"},
        GraphCase{"ChromaXY", "VEChromaKeyXY", inputs({{"Xposition", 0.3}, {"Yposition", 0.4}}),
                  "VE_ChromaKeyXY_chromaKey_XYpos(source, 0, 0, 0.3, 0.4) [3 4 4096 5801]",
                  frame(4096, 5801, {3, 4})},
        GraphCase{"ChromaXYTooLarge", "VEChromaKeyXY", {}, "error FX 055", frame(4096, 5802)},
        GraphCase{"Luma", "VELumaKey", inputs({{"1Amount", 0.5}, {"2Amount", 0.5}}),
                  "VE_LumaKey_lumaKey(source, 0.5, -0.001) own"},
        GraphCase{"LumaInverse", "VELumaKey",
                  inputs({{"1Amount", 0.5}, {"2Amount", 0.5}, {"Mode", 2}}),
                  "VE_LumaKey_inverseLumaKey(source, 0.5, -0.001) own"},
        GraphCase{"LumaNegative", "VELumaKey", inputs({{"Mode", -1}}),
                  "VE_LumaKey_lumaKey(source, 0, -1.001) own"},
        GraphCase{"BlackTwoControls", "VEBlackAlpha2ctl",
                  inputs({{"1Amount", 0.5}, {"2Amount", 0.5}}),
                  "VE_BlackAlpha2ctl_blackAlpha(source, 1.5, -0.003) own"},
        GraphCase{"BlackLevel", "VEBlackAlpha2ctl", inputs({{"1Amount", 0.5}, {"Mode", 1}}),
                  "VE_BlackAlpha2ctl_blackLevel(source, 1.5, -1.503) own"},
        GraphCase{"BlackAlpha", "VEBlackAlpha", inputs({{"Amount", 0.5}, {"Mode", -1}}),
                  "VE_BlackAlpha_blackAlpha(source, 0.5, 0) own"},
        GraphCase{"BlueAlpha", "VEBlackAlpha", inputs({{"Threshold", 0.5}, {"Mode", 4}}),
                  "VE_BlackAlpha_blueAlpha(source, 0, 0.5) own"},
        GraphCase{"BlueOnly", "VEBlackAlpha", inputs({{"Mode", 9}}),
                  "VE_BlackAlpha_blueOnly(source, 0, 0) own"}),
    [](const auto& test) { return test.param.title; });

std::array<double, 3> straight(const Pixel& p) {
    const double alpha = p[3] > 0 ? p[3] : 1;
    return {p[0] / alpha, p[1] / alpha, p[2] / alpha};
}

INSTANTIATE_TEST_SUITE_P(
    Keys, Pixels,
    testing::Values(PixelCase{"LumaKey", "VELumaKey", inputs({{"1Amount", 0.6}, {"2Amount", 0.3}}),
                              [](const Bitmap& s, int x, int y) {
                                  const auto v = straight(s.pixel(x, y));
                                  const double y709 = 0.2126 * v[0] + 0.7152 * v[1] + 0.0722 * v[2];
                                  return times(s.pixel(x, y), smooth((y709 - 0.18) / 0.42));
                              }},
                    PixelCase{"BlackLevel", "VEBlackAlpha2ctl",
                              inputs({{"1Amount", 0.6}, {"2Amount", 0.3}, {"Mode", 1}}),
                              [](const Bitmap& s, int x, int y) {
                                  const auto v = straight(s.pixel(x, y));
                                  Pixel p = times(s.pixel(x, y),
                                                  smooth((v[0] + v[1] + v[2] - 0.54) / 1.26));
                                  p[3] = s.pixel(x, y)[3];
                                  return p;
                              }},
                    PixelCase{"WhiteIsTakenOut", "VEBlackAlpha",
                              inputs({{"Amount", 1}, {"Mode", 1}}),
                              [](const Bitmap& s, int x, int y) {
                                  Pixel p = s.pixel(x, y);
                                  const double white = std::min({p[0], p[1], p[2]});
                                  for (double& c : p) c -= white;
                                  return p;
                              }},
                    PixelCase{"KeyOfTolerance0",
                              "VEChromaKeyHSV",
                              {},
                              [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }}),
    [](const auto& test) { return test.param.title; });

std::string repeats(int number, const char* arguments) {
    return "VE_Repeats_repeats" + std::to_string(number) + "(source, 1, 1, " + arguments +
           ") [0 0 1920 1080]";
}
GraphCase repeat(const char* title, double mode, double x, double y, std::string graph) {
    return {title, "VE_Repeats", inputs({{"Mode", mode}, {"OffsetX", x}, {"OffsetY", y}}),
            std::move(graph)};
}
GraphCase mirror(const char* title, double mode, CIImage source, const std::string& mirrored) {
    return {title, "VEMirrors", inputs({{"Mode", mode}}),
            "VE_Mirrors_mixer(source, " + mirrored + ", 1) [99 100 52 53] [99 100 52 53]",
            std::move(source)};
}

INSTANTIATE_TEST_SUITE_P(
    Copies, Graphs,
    testing::Values(
        GraphCase{"Tiles",
                  "VETiles",
                  {},
                  "VE_Tiles_tiles1(source, 1, 4) [0 0 5760 4125]",
                  frame(5760, 4125)},
        GraphCase{"TilesTooLarge", "VETiles", {}, "error FX 127", frame(5760, 4126)},
        GraphCase{
            "TilesOfNothing", "VETiles", {}, "VE_Tiles_tiles1(nothing, 1, 4) [0 0 0 0]", CIImage()},
        GraphCase{"Tiles2", "VETiles_2",
                  inputs({{"Xdiv", 2}, {"Ydiv", 3}, {"Xoffset", 4}, {"Yoffset", 5}}),
                  "VE_Tiles_2_tiles2(source, 1, 2, 3, 4, 5) [5 6 70 80]", frame(70, 80, {5, 6})},
        GraphCase{"Tiles2TooLarge", "VETiles_2", {}, "error FX 128", frame(5760, 4126)},
        repeat("Repeats0", 0, 0.5, 1, repeats(1, "0.0156863, 4.01569")),
        repeat("Repeats2", 2, 1, 2, repeats(3, "4, 8")),
        repeat("Repeats6", 6, kMiddle, 2, repeats(7, "0, 8")),
        repeat("Repeats7", 7, 1, 1, repeats(8, "-4, 4")),
        repeat("Repeats8", 8, 1, kMiddle, repeats(9, "4, 0")),
        repeat("Repeats9", 9, 1, kMiddle, repeats(10, "-4, 0")),
        repeat("Repeats10", 10, 1, 1, repeats(11, "4, -4")),
        repeat("Repeats11", 11, kMiddle, 1, repeats(12, "0, -4")),
        repeat("Repeats12", 255, 1, 2, repeats(13, "-4, -8")),
        repeat("RepeatsNegative", -1, 1, 1, "source"),
        GraphCase{"RepeatsAtTheLimit",
                  "VE_Repeats",
                  {},
                  "VE_Repeats_repeats2(source, 1, 1, 4.01569, 4.01569) [0 0 5760 3240]",
                  frame(5760, 3240)},
        GraphCase{"RepeatsTooLarge", "VE_Repeats", {}, "error FX 139", frame(5760, 3241)},
        mirror("MirrorFlip", 0, frame(300, 200, {9, 8}),
               "VE_Mirrors_backwards(source, 1) [9 8 300 200]"),
        mirror("MirrorHalf", 4, frame(5000, 201),
               "VE_Mirrors_mirrorRightToLeft(source, 1) [2500 0 2500 201]"),
        mirror("MirrorQuarter", 12, frame(300, 201),
               "VE_Mirrors_topLeftQuadMirror(source, 1) [0 100.5 150 100.5]"),
        mirror("MirrorLargeFlip", 2, frame(4096, 2160),
               "CIAffineTransform(source, (-1 0 0 -1)+(4096 2160))"),
        mirror("MirrorLargeHalf", 3, frame(8192, 100),
               "{CIAffineTransform(CICrop(source, (0 0 4096 100)), (-1 0 0 1)+(8192 0)) over "
               "CICrop(source, (0 0 4096 100))}"),
        mirror("MirrorLargeQuarter", 8, frame(8192, 100),
               "{CIAffineTransform({CIAffineTransform(CICrop(source, (4096 0 4096 50)), "
               "(1 0 0 -1)+(0 100)) over CICrop(source, (4096 0 4096 50))}, (-1 0 0 1)+(8192 0)) "
               "over {CIAffineTransform(CICrop(source, (4096 0 4096 50)), (1 0 0 -1)+(0 100)) over "
               "CICrop(source, (4096 0 4096 50))}}"),
        GraphCase{"MirrorNegative", "VEMirrors", inputs({{"Mode", -1}}), "source"},
        GraphCase{"MirrorTooLarge", "VEMirrors", {}, "error FX 155", frame(12000, 12000)}),
    [](const auto& test) { return test.param.title; });

/// A pixel of a copy half as large: along each axis it weighs its two pixels by 0.4 and their
/// neighbours by 0.1.
Pixel halved(const std::function<Pixel(int, int)>& at) {
    constexpr double kWeights[] = {0.1, 0.4, 0.4, 0.1};
    Pixel sum{};
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const Pixel p = at(i - 1, j - 1);
            for (size_t c = 0; c < 4; ++c) sum[c] += kWeights[i] * kWeights[j] * p[c];
        }
    return sum;
}

INSTANTIATE_TEST_SUITE_P(
    Copies, Pixels,
    testing::Values(
        PixelCase{"Backwards",
                  "VEMirrors",
                  {},
                  [](const Bitmap& s, int x, int y) { return s.pixel(kWidth - 1 - x, y); }},
        PixelCase{
            "RightHalf", "VEMirrors", inputs({{"Mode", 4}}),
            [](const Bitmap& s, int x, int y) { return s.pixel(std::max(x, kWidth - 1 - x), y); }},
        PixelCase{"TopLeftQuarterHalfMixed", "VEMirrors", inputs({{"Mode", 10}, {"Mixer", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      Pixel p = times(s.pixel(x, y), 0.5);
                      const Pixel q =
                          s.pixel(std::min(x, kWidth - 1 - x), std::max(y, kHeight - 1 - y));
                      for (size_t c = 0; c < 4; ++c) p[c] += 0.5 * q[c];
                      return p;
                  }},
        PixelCase{"Tiles", "VETiles", inputs({{"Divisions", 2}}),
                  [](const Bitmap& s, int x, int y) {
                      return halved([&](int i, int j) {
                          return s.pixel((2 * x + i + kWidth) % kWidth,
                                         (2 * y + j + kHeight) % kHeight);
                      });
                  }},
        // The upper left copy of the two that a scale of 2 has room for.
        PixelCase{"Repeats", "VE_Repeats", inputs({{"Mode", 10}, {"Scale", 2}, {"Repeats", 0}}),
                  [](const Bitmap& s, int x, int y) {
                      if (x >= kWidth / 2 || y < kHeight / 2) return Pixel{};
                      return halved([&](int i, int j) {
                          return s.pixel(std::clamp(2 * x + i, 0, kWidth - 1),
                                         std::clamp(2 * y - kHeight + j, 0, kHeight - 1));
                      });
                  }}),
    [](const auto& test) { return test.param.title; });

TEST(Copies, KeepFinePatternsCalm) {
    // Waves of four thirds of a pixel of the copies: a plain mean lets 30 % of them through.
    Bitmap source(192, 96, CIFormat::RGBAf);
    source.forEach([&](int x, int y) {
        const double level = 0.5 + 0.5 * std::cos(2 * std::numbers::pi * (x + 0.3) / 8);
        source.set(x, y, {level, level, level, 1});
    });
    const std::pair<const char*, Settings> cases[] = {
        {"VETiles", inputs({{"Divisions", 6}})},
        {"VETiles_2", inputs({{"Xdiv", 6}, {"Ydiv", 6}})},
        {"VE_Repeats", inputs({{"Mode", 0}, {"Scale", 6}, {"Repeats", 0}})}};
    for (const auto& [name, settings] : cases) {
        const CIImage image = filtered(name, source.image(), settings);
        for (CIContext* context : everyContext()) {
            // Well inside of one copy in the middle.
            const Bitmap copy = render(*context, image, {84, 44, 8, 8}, CIFormat::RGBAf);
            double least = 1, most = 0;
            copy.forEach([&](int x, int y) {
                least = std::min(least, double(copy.pixel(x, y)[0]));
                most = std::max(most, double(copy.pixel(x, y)[0]));
            });
            EXPECT_LT(most - least, 0.15) << name << ", " << nameOf(*context);
        }
    }
}

TEST(FixedRegions, HoldForImagesThatAreComputedAndLieElsewhere) {
    // What a mirror reads is measured from (0, 0); that must not leave a
    // hole in a picture whose source is not there before.
    Random random(29);
    const Bitmap source = randomBitmap(random, 60, 40, CIFormat::RGBA8);
    for (const CGPoint origin : {CGPoint{}, CGPoint{-200, 90}}) {
        const CIImage copy = filtered("VESolarize", source.image(origin), {});
        for (const double mode : {4.0, 6.0, 9.0}) {
            const CIImage expected =
                filtered("VEMirrors", source.image(origin), inputs({{"Mode", mode}}));
            const CIImage image = filtered("VEMirrors", copy, inputs({{"Mode", mode}}));
            for (const auto& context : cpuContexts())
                EXPECT_TRUE(isClose(render(*context, image, copy.extent()),
                                    render(*context, expected, copy.extent()), {1.01 / 255}))
                    << mode;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, Graphs,
    testing::Values(
        GraphCase{"Dissolve", "VEXFDissolve", inputs({{"FadeStatus", 0.5}, {"Adjust", 2}}),
                  "VEXFDissolve_dissolve(source, target, 0.25) own own"},
        GraphCase{"DissolveWithPixels", "VEXFDissolveWithPixels",
                  inputs({{"FadeStatus", 0.5}, {"Adjust", 2}}),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "0.25) own own, 100) [110 111 30 31]"},
        GraphCase{"DissolveWithPixelsEnd", "VEXFDissolveWithPixels", inputs({{"FadeStatus", 1}}),
                  "VEXFDissolveWithPixels_pixellate(VEXFDissolveWithPixels_dissolve(source, "
                  "target, "
                  "1) own own, 0.0200033) [100.002 101.002 49.996 50.996]"},
        GraphCase{"ColorBlendMiddle",
                  "VEXFColorBlend",
                  {{"inputFadeStatus", Number(0.5)}, {"inputColor", CIColor(0.1, 0.2, 0.3, 0.4)}},
                  "VEXFColorBlend_colorBlend(source, (0.1 0.2 0.3 0.4), 0) own"},
        GraphCase{"ColorBlendLater", "VEXFColorBlend", inputs({{"FadeStatus", 0.75}}),
                  "VEXFColorBlend_colorBlend(target, (1 1 1 1), 0.5) own"},
        GraphCase{"BrightFirst", "VEXFBrightness", inputs({{"FadeStatus", 0.3}, {"Mode", -1}}),
                  "VEXFBrightness_brightFirst(source, target, 0.3) own own"},
        GraphCase{"DarkFirst", "VEXFBrightness", inputs({{"FadeStatus", 0.3}, {"Mode", 2}}),
                  "VEXFBrightness_darkFirst(source, target, 0.3) own own"}),
    [](const auto& test) { return test.param.title; });

TEST(Transitions, BeginWithOneImageAndEndWithTheOther) {
    Random random(5);
    const Bitmap source = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 67, 45, CIFormat::RGBA8);
    for (const char* name :
         {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFColorBlend", "VEXFBrightness"})
        for (const double mode : {0.0, 1.0})
            for (const double time : {0.0, 1.0}) {
                Settings settings{{"inputTargetImage", target.image()},
                                  {"inputFadeStatus", Number(time)}};
                if (name == std::string("VEXFBrightness"))
                    settings.emplace_back("inputMode", Number(mode));
                const CIImage image = filtered(name, source.image(), settings);
                for (CIContext* context : everyContext())
                    EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                        time == 0 ? source : target, {}))
                        << name << " at " << time << ", " << nameOf(*context);
            }
}

TEST(Transitions, OfUnlikeSizesEndWithoutAHole) {
    Random random(6);
    const Bitmap source = randomBitmap(random, 40, 30, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 24, 20, CIFormat::RGBA8);
    for (const char* name : {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFBrightness"}) {
        const CIImage image =
            filtered(name, source.image({-4, 3}),
                     {{"inputTargetImage", target.image({5, 1})}, {"inputFadeStatus", Number(1)}});
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                [&](int x, int y) {
                                    return target.pixel(std::clamp(x - 9, 0, 23),
                                                        std::clamp(y + 2, 0, 19));
                                },
                                {}))
                << name << ", " << nameOf(*context);
    }
}

TEST(Transitions, ThroughBrightnessHoldBlackAndWhite) {
    // Black, a shadow, middle grey, white, half transparent grey; the same on both sides.
    Bitmap source(5, 1, CIFormat::RGBAf);
    const double levels[] = {0, 0.05, 0.5, 1, 0.25};
    for (int x = 0; x < 5; ++x) {
        const double v = levels[x];
        source.set(x, 0, {v, v, v, x == 4 ? 0.5 : 1});
    }
    for (const int mode : {0, 1}) {
        const CIImage image = filtered("VEXFBrightness", source.image(),
                                       {{"inputTargetImage", source.image()},
                                        {"inputFadeStatus", Number(0.5)},
                                        {"inputMode", Number(mode)}});
        for (CIContext* context : everyContext()) {
            const Bitmap result = render(*context, image, {0, 0, 5, 1}, CIFormat::RGBAf);
            const auto at = [&](int x) { return double(result.pixel(x, 0)[0]); };
            EXPECT_NEAR(at(0), 0, 1e-4);
            EXPECT_NEAR(at(3), 1, 1e-4);
            EXPECT_LT(at(1), 0.15);
            EXPECT_NEAR(at(2), mode == 0 ? 0.95 : 0.05, 0.05);
            EXPECT_NEAR(at(4), at(2) / 2, 1e-3);
        }
    }
}

TEST(Transitions, DissolveImagesWithoutEnd) {
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0, 1)),
                  blue = CIImage::imageWithColor(CIColor(0, 0, 1, 1));
    const CGRect rect{-50, 9, 40, 20};
    for (const char* name : {"VEXFDissolve", "VEXFDissolveWithPixels", "VEXFColorBlend"})
        for (const auto& [source, target] :
             {std::pair{red, blue}, std::pair{red.imageByCroppingToRect(rect), blue},
              std::pair{red, blue.imageByCroppingToRect(rect)}}) {
            const CIImage image = filtered(
                name, source, {{"inputTargetImage", target}, {"inputFadeStatus", Number(0.5)}});
            const bool isDip = name == std::string("VEXFColorBlend");
            const Pixel expected = isDip ? Pixel{1, 1, 1, 1} : Pixel{0.5, 0, 0.5, 1};
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, rect, CIFormat::RGBAf),
                                    [&](int, int) { return expected; }, {1e-3}))
                    << name << ", " << nameOf(*context);
        }
}

// ---- Over several frames ------------------------------------------------------------------------

/// A frame of a story: the clock, what is set before it, and the graph that follows.
struct Frame {
    double seconds;
    Settings settings;
    std::string graph;
    uint64_t frameTime = 0;
    CIImage source = {}; ///< another source from here on
};

struct StoryCase {
    const char* title;
    const char* filter;
    Settings settings;
    std::vector<Frame> frames;
    CIImage source = frame(1920, 1080);
};

std::ostream& operator<<(std::ostream& stream, const StoryCase& test) {
    return stream << test.title;
}

/// The filter is made when the clock stands at 1000 seconds; times count from there.
class Stories : public testing::TestWithParam<StoryCase> {
protected:
    static void setClock(double seconds) {
        PlatformClock::drive(1'000'000'000'000 +
                             static_cast<uint64_t>(std::llround(seconds * 1e9)));
    }
    void TearDown() override { PlatformClock::release(); }
};

TEST_P(Stories, GoAsTold) {
    const StoryCase& test = GetParam();
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    setClock(0);
    const CIFilterRef filter = CIFilter::filterWithName(test.filter);
    filter->setDefaults();
    CIImage source = test.source;
    for (const auto& [key, value] : test.settings) ASSERT_TRUE(filter->setValueForKey(value, key));
    for (size_t i = 0; i < test.frames.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        const Frame& told = test.frames[i];
        if (told.source) source = told.source;
        filter->setValueForKey(source, "inputImage");
        for (const auto& [key, value] : told.settings)
            ASSERT_TRUE(filter->setValueForKey(value, key)) << key;
        setClock(told.seconds);
        filter->setVornFrameTime(told.frameTime);
        const CIImage output = filter->outputImage();
        EXPECT_EQ(output ? textOf(*describeImage(output, kProbe), source, {}) : "nothing",
                  told.graph);
    }
}

std::string noise(const char* kernel, const char* arguments) {
    return "VE_NoiseGenerator_" + std::string(kernel) + "NoiseKernel(" + arguments + ")";
}
std::string clouds(const char* arguments) {
    return "VE_CloudGenerator_cloudGen_1(source, " + std::string(arguments) + ") [4 5 3840 2160]";
}

INSTANTIATE_TEST_SUITE_P(
    Generators, Stories,
    testing::Values(
        StoryCase{
            "NoiseRestartsWithTheMode",
            "VE_NoiseGenerator",
            inputs({{"Speed", 2}, {"4", kMiddle + 0.1}, {"5", kMiddle - 0.2}}),
            {{1, {}, noise("perlin", "4, 2.6, 0, -5, 20")},
             {2, {}, noise("perlin", "8, 2.6, 0, -10, 40")},
             {3, inputs({{"Mode", 1}}), noise("flow", "4, 2550, 0, -0.05, 0.2")},
             {4, inputs({{"Mode", 2}, {"Scale", 1}}), noise("caustic", "4, 5500, 0, -0.05, 0.2")},
             {5, inputs({{"Mode", -1}}), noise("perlin", "4, 5.1, 0, -5, 20")}}},
        StoryCase{"NoiseCells",
                  "VE_NoiseGenerator",
                  inputs({{"Mode", 5}, {"Speed", 2}}),
                  {{1, {}, noise("voronoi", "40, 251, 1.53388, 0, 0")},
                   {1, inputs({{"4", 1}}), noise("voronoi", "40, 251, 0.65, 0, 0")},
                   {1, inputs({{"4", 0}}), noise("voronoi", "40, 251, 20.65, 0, 0")}}},
        StoryCase{"NoiseStandsStillForASpeedThatIsNoNumber",
                  "VE_NoiseGenerator",
                  inputs({{"4", kMiddle}, {"5", kMiddle}}),
                  {{1, {}, noise("perlin", "1, 2.6, 0, 0, 0")},
                   {2, inputs({{"Speed", NAN}}), noise("perlin", "1, 2.6, 0, 0, 0")},
                   {3, inputs({{"Speed", 1}}), noise("perlin", "2, 2.6, 0, 0, 0")}}},
        StoryCase{
            "Clouds",
            "VE_CloudGenerator",
            inputs({{"Speed", 1}}),
            {{1.5, {}, clouds("1.5, 0.25, 0.000392157, -5, 0, -0.5")},
             {2, inputs({{"Scale", 255}, {"Cover", 255}, {"Alpha", 255}, {"Brightness", 255}}),
              clouds("2, 10, 0.00230392, 7, 20, 0.5")},
             {3, {}, "error FX 094", 0, frame(3841, 2160)},
             {4, inputs({{"Speed", 0}}), clouds("4, 10, 0, 7, 20, 0.5"), 0,
              frame(3840, 2160, {4, 5})}},
            frame(3840, 2160, {4, 5})}),
    [](const auto& test) { return test.param.title; });

TEST(LongRunningNoise, StillMovesAFrameAtATime) {
    filtered("VEDummy", frame(1, 1), {});
    Random random(3);
    const Bitmap source(160, 90);
    for (int mode = 0; mode < 4; ++mode) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VE_NoiseGenerator");
        filter->setDefaults();
        filter->setValueForKey(source.image(), "inputImage");
        filter->setValueForKey(Number(mode), "inputMode");
        filter->outputImage();
        const auto pictureAt = [&](uint64_t milliseconds) {
            PlatformClock::drive(milliseconds * 1'000'000);
            return render(referenceContext(), filter->outputImage(), {0, 0, 160, 90},
                          CIFormat::RGBAf);
        };
        // From one frame to the next a week of motion on.
        constexpr uint64_t kWeek = 7 * 24 * 3600 * 1000ull;
        double least = HUGE_VAL, most = 0;
        Bitmap before = pictureAt(kWeek);
        for (uint64_t i = 1; i <= 8; ++i) {
            const Bitmap now = pictureAt(kWeek + 40 * i);
            double sum = 0;
            now.forEach(
                [&](int x, int y) { sum += differenceOf(now.pixel(x, y), before.pixel(x, y)); });
            least = std::min(least, sum), most = std::max(most, sum);
            before = now;
        }
        EXPECT_GT(least, 0) << mode;
        EXPECT_LT(most, 3 * least) << mode;
    }
    PlatformClock::release();
}

/// The trail of a decay of 1, at rest: everything but the blend and its frame.
std::string trail(const char* blend, const char* current, const char* offset = "(0 0), 1") {
    return std::string(blend) + "(VE_Decay_offset(VE_Decay_multiply(kept, 1) own, " + offset +
           ") own, " + current + ")";
}
const Settings kDecayAtRest =
    inputs({{"Amount", 1}, {"Scale", kMiddle}, {"Xpos", kMiddle}, {"Ypos", kMiddle}});

INSTANTIATE_TEST_SUITE_P(
    Feedback, Stories,
    testing::Values(
        StoryCase{
            "DecayKeepsATrail",
            "VEDecay",
            kDecayAtRest,
            {{0, {}, "source"},
             {0, {}, trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 0}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 61}}), trail("CIDarkenBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 121}}),
              trail("CIDivideBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 181}}),
              trail("CIHardLightBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 300}}),
              trail("CIPinLightBlendMode", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", 301}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Skip", -70}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
             {0, inputs({{"Xpos", 1}, {"Ypos", 0}, {"Scale", 1}}),
              trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB",
                    "(19.5342 -10.1212), 1.50196")}},
            frame(19, 10)},
        StoryCase{"DecayStartsAnew",
                  "VEDecay",
                  kDecayAtRest,
                  {{0, {}, "source"},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 24 10] 96 sRGB")},
                   // Another size drops the trail, and the first frame of it is not tagged.
                   {0, {}, "source", 0, frame(16, 9)},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB")},
                   // So does an amount of nothing, but the size is still known then.
                   {0, inputs({{"Amount", 0}}), "source"},
                   {0, inputs({{"Amount", 1}}), "source"},
                   {0, {}, trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB")},
                   // Another place of the same size begins with an empty trail a frame later.
                   {0,
                    {},
                    trail("CIMaximumCompositing", "surface [0 0 16 9] 64 sRGB"),
                    0,
                    frame(16, 9, {5, 5})}},
                  frame(19, 10)},
        StoryCase{
            "EdgesOfACapturedFrame",
            "VEEdgeDetect2",
            inputs({{"Width", 0.25}}),
            {{0,
              {},
              "VE_EdgeDetect2_edgeDetect(surface [0 0 1928 7] 7712 sRGB, surface [0 0 1928 7] "
              "7712 sRGB, 1, 0.0075, 0.5, 0.5, 0) own own"},
             {0, inputs({{"Smoothing", 0.5}, {"Width", 1}}),
              "VE_EdgeDetect2_edgeDetect(surface [0 0 8 8] 32 sRGB, surface [0 0 8 8] 32 sRGB, "
              "1, 0, 0.5, 0.5, 0.5) own own",
              0, frame(3, 8)}},
            frame(1921, 7)}),
    [](const auto& test) { return test.param.title; });

TEST(Feedback, LeavesAFadingTrailAndNoBorderInThePadding) {
    filtered("VEDummy", frame(1, 1), {});
    const CIFilterRef decay = CIFilter::filterWithName("VEDecay");
    decay->setDefaults();
    for (const auto& [key, value] : kDecayAtRest) decay->setValueForKey(value, key);
    decay->setValueForKey(Number(std::pow(0.9, 10)), "inputAmount");
    // A white frame, then black ones.
    Bitmap white(13, 5), black(13, 5);
    white.forEach([&](int x, int y) {
        white.set(x, y, {1, 1, 1, 1});
        black.set(x, y, {0, 0, 0, 1});
    });
    const auto next = [&](const Bitmap& source) {
        decay->setValueForKey(source.image(), "inputImage");
        return render(*cpuContexts().front(), decay->outputImage(), {0, 0, 20, 5});
    };
    // The padding shows the last column once frames are captured, and no trail.
    next(white);
    // A step of 8 bits less than nine tenths, rounded up here and down there.
    int least = 255, most = 255;
    for (int i = 0; i < 60; ++i) {
        const Bitmap result = next(black);
        least = std::max(0, static_cast<int>(std::floor(least * 0.9 - 1)));
        most = std::max(0, static_cast<int>(std::floor(most * 0.9)));
        result.forEach([&](int x, int y) {
            const Pixel p = result.pixel(x, y);
            ASSERT_EQ(p[3], x < 16 ? 1 : 0) << i;
            for (int c = 0; c < 3; ++c) {
                const double level = p[static_cast<size_t>(c)] * 255;
                ASSERT_GE(level, x < 13 ? least - 1e-3 : 0) << i;
                ASSERT_LE(level, x < 13 ? most + 1e-3 : 0) << i;
            }
        });
    }
    EXPECT_LE(most, 1);
}

TEST(Feedback, KeepsTheHueOfATrail) {
    filtered("VEDummy", frame(1, 1), {});
    constexpr int kSize = 32;
    Bitmap orange(kSize, kSize), black(kSize, kSize);
    orange.forEach([&](int x, int y) {
        orange.set(x, y, {1, 0.8, 127 / 255.0, 1});
        black.set(x, y, {0, 0, 0, 1});
    });
    // The mean of each channel after so many frames of black.
    const auto after = [&](double amount, int frames) {
        const CIFilterRef decay = CIFilter::filterWithName("VEDecay");
        decay->setDefaults();
        for (const auto& [key, value] : kDecayAtRest) decay->setValueForKey(value, key);
        decay->setValueForKey(Number(amount), "inputAmount");
        Pixel mean{};
        for (int i = 0; i <= frames; ++i) {
            decay->setValueForKey((i == 0 ? orange : black).image(), "inputImage");
            const Bitmap result =
                render(*cpuContexts().front(), decay->outputImage(), {0, 0, kSize, kSize});
            mean = {};
            result.forEach([&](int x, int y) {
                for (size_t c = 0; c < 4; ++c)
                    mean[c] += result.pixel(x, y)[c] * 255 / (kSize * kSize);
            });
        }
        return mean;
    };
    for (const double amount : {0.5, 0.95, 0.99})
        for (const int frames : {10, 50, 120}) {
            const Pixel mean = after(amount, frames);
            EXPECT_NEAR(mean[1], 0.8 * mean[0], 1.5) << amount << " after " << frames;
            EXPECT_NEAR(mean[2], 127 / 255.0 * mean[0], 1.5) << amount << " after " << frames;
        }
    EXPECT_GT(after(0.99, 80)[0], after(0.95, 80)[0] + 20);
    EXPECT_EQ(after(0.99, 256)[0], 0);
}

TEST(Feedback, AllocatesNothingInASteadyChain) {
    if (!countsAllocations()) GTEST_SKIP() << "allocations are not counted under a sanitizer";
    filtered("VEDummy", frame(1, 1), {});
    const Bitmap source(200, 100);
    const CIImage image = source.image();
    for (const char* name : {"VEDecay", "VEEdgeDetect2"}) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        filter->setDefaults();
        for (const auto& [key, value] : kDecayAtRest) filter->setValueForKey(value, key);
        const auto run = [&](int frames) {
            for (int i = 0; i < frames; ++i) {
                filter->setValueForKey(image, "inputImage");
                EXPECT_TRUE(filter->outputImage());
            }
        };
        run(8);
        const uint64_t before = heapAllocations();
        run(8);
        // The threads' library may take some memory of its own; a frame's pixels would be more.
        EXPECT_LE(heapAllocations() - before, 8u) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Characters, Stories,
    testing::Values(
        StoryCase{
            "AsciiKeepsItsStrip",
            "VE_ASCII_Art",
            {{"inputString", std::string("ab")}},
            {{0,
              {},
              "VE_ASCII_Art_ascii_desatToGray(source, bitmap [0 0 48 30] ARGB8, 1, 0, 0, 24, 30, "
              "2) [0 0 1920 1080] [0 0 48 30]"},
             {0,
              {{"inputString", std::string("abc")},
               {"inputColour", Number(0.999)},
               {"inputScale", Number(40)}},
              "VE_ASCII_Art_ascii_desatToGray(source, bitmap [0 0 48 30] ARGB8, 1, 40, 0.999, 24, "
              "30, 2) [0 0 1920 1080] [0 0 48 30]"},
             {0,
              {{"inputColour", Number(1)}},
              "VE_ASCII_Art_ascii_desatToWhite(source, bitmap [0 0 48 30] ARGB8, 1, 40, 1, 24, 30, "
              "2) [0 0 1920 1080] [0 0 48 30]"}}},
        StoryCase{
            "AsciiLimits",
            "VE_ASCII_Art",
            {{"inputString", std::string(5000, 'x')}},
            {{0, {}, "source"},
             {0, {}, "error FX 175", 0, frame(5761, 3240)},
             {0, {{"inputString", std::string()}}, "source", 0, frame(5760, 3240)},
             {0,
              {{"inputString", InputValue()}},
              "VE_ASCII_Art_ascii_desatToGray(source, bitmap [0 0 552 30] ARGB8, 1, 0, 0, 24, 30, "
              "23) [0 0 5760 3240] [0 0 552 30]",
              0,
              frame(5760, 3240)}}}),
    [](const auto& test) { return test.param.title; });

TEST(Characters, AreAsBrightAsThePicture) {
    // A grey ramp, white characters, which stand out from their ground everywhere.
    Bitmap source(23 * 24, 30);
    source.forEach([&](int x, int y) {
        const double level = (x / 24 + 0.5) / 23;
        source.set(x, y, {level, level, level, 1});
    });
    const CIImage image =
        filtered("VE_ASCII_Art", source.image(), inputs({{"Scale", 23}, {"Colour", 1}}));
    const Bitmap result = render(*cpuContexts().front(), image, {0, 0, 23 * 24, 30});
    std::vector<double> mean(23), most(23), least(23, 1);
    result.forEach([&](int x, int y) {
        const auto cell = static_cast<size_t>(x / 24);
        const double level = result.pixel(x, y)[0];
        mean[cell] += level / (24 * 30);
        most[cell] = std::max(most[cell], level), least[cell] = std::min(least[cell], level);
    });
    EXPECT_EQ(most.front(), least.front()) << "the first character is a blank";
    for (size_t cell = 0; cell < mean.size(); ++cell) {
        const double level = (static_cast<double>(cell) + 0.5) / 23;
        EXPECT_NEAR(mean[cell], std::min(level, 0.65), 0.06) << cell;
        if (cell > 0) {
            EXPECT_GT(most[cell] - least[cell], 0.3) << cell;
        }
    }
}

std::string wobble(const char* kernel, const char* arguments,
                   const char* reads = "[0 0 1920 1080]") {
    return "VE_Wobble_" + std::string(kernel) + "(source, 1, " + arguments + ") " + reads;
}
Settings wobbleInputs(double mode, double size, double speed) {
    return inputs({{"Mode", mode}, {"Size", size}, {"Speed", speed}});
}

INSTANTIATE_TEST_SUITE_P(
    Wobbles, Stories,
    testing::Values(
        // sin 35 + sin 13.37 + sin 8.701 and so on for a second of speed 1.
        StoryCase{"Shake",
                  "VEWobble",
                  wobbleInputs(0, 1, 1),
                  {{1, {}, wobble("shake", "0.0953918, 0.0923924")},
                   {2, inputs({{"Size", 0}}), wobble("shake", "0, 0")}}},
        StoryCase{"Wobble",
                  "VEWobble",
                  wobbleInputs(1, 0.5, 1),
                  {{1, {}, wobble("wobble", "0.0476959, 0.0461962, 0.998337, 0.0576533")}}},
        StoryCase{
            "Flicker",
            "VEWobble",
            wobbleInputs(2, 1, 1),
            {{1, {}, wobble("flicker", "0.000953918, 0.000923924, 0.724117", "[99 100 52 53]")}}},
        StoryCase{"RollStopsAndGoes",
                  "VEWobble",
                  wobbleInputs(3, 0.25, 1),
                  {{0.1, {}, wobble("rollDown", "0.5, 0, 1")},
                   {0.5, {}, wobble("rollDown", "0, 0, 1")},
                   {1.125, inputs({{"Mode", 4}}), wobble("rollUp", "0.625, 0, 1")},
                   {1.125, inputs({{"Mode", 5}}), wobble("rollRight", "0.625, 0, 1")},
                   {1.125, inputs({{"Mode", 6}}), wobble("rollLeft", "0.625, 0, 1")}}},
        StoryCase{"Rippling",
                  "VEWobble",
                  wobbleInputs(7, 0.5, 0.5),
                  {{1, {}, wobble("rippling", "64, 0.005, 50")},
                   {2, {}, wobble("rippling", "64, 0.005, 100")}}},
        StoryCase{"RollBothWays",
                  "VEWobble",
                  wobbleInputs(8, kMiddle, kMiddle - 0.1),
                  {{1, {}, wobble("roll_XY", "0, -0.5")}, {3, {}, wobble("roll_XY", "0, -0.5")}}},
        StoryCase{"Wrap",
                  "VEWobble",
                  wobbleInputs(10, 0, 1),
                  {{1, inputs({{"C", 0}, {"D", 1}}),
                    wobble("wrap_XY", "-1.98434, 1.99997, -0.0156882, 0.0158118")}}},
        StoryCase{"SyncedToTheHost",
                  "VEWobble",
                  inputs({{"Mode", 7}, {"Size", 1}, {"Speed", 0.5}, {"SyncMode", 1}}),
                  {{5, {}, wobble("rippling", "64, 0.01, 100"), 2'000'000'000},
                   {9, {}, wobble("rippling", "64, 0.01, 100"), 2'000'000'000},
                   // Without a frame time the clock goes on from there.
                   {10, {}, wobble("rippling", "64, 0.01, 150")},
                   {11, inputs({{"SyncMode", 0}}), wobble("rippling", "64, 0.01, 200"), 7}}},
        StoryCase{"TooLargeByMode",
                  "VEWobble",
                  wobbleInputs(0, 0.5, 1),
                  {{1, {}, "error FX 161", 0, frame(5760, 4000)},
                   {2, inputs({{"Mode", 7}}), wobble("rippling", "128, 0.005, 200"), 0,
                    frame(1920, 1080)},
                   {3, inputs({{"Mode", -1}}), "nothing"}}},
        StoryCase{"TooLargeWithoutALabel",
                  "VEWobble",
                  wobbleInputs(10, 0, 1),
                  {{1, {}, "error ", 0, frame(5760, 4000)}}}),
    [](const auto& test) { return test.param.title; });

TEST(Rolls, MoveTheirWayAndComeInAgain) {
    Random random(11);
    const Bitmap source = randomBitmap(random, 16, 8, CIFormat::RGBA8);
    filtered("VEDummy", frame(1, 1), {});
    struct Roll {
        int mode, dx, dy;
    };
    for (const Roll& roll : {Roll{3, 0, -2}, {4, 0, 2}, {5, 4, 0}, {6, -4, 0}}) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VEWobble");
        filter->setDefaults();
        for (const auto& [key, value] : wobbleInputs(roll.mode, 0.25, 0))
            filter->setValueForKey(value, key);
        filter->setValueForKey(source.image(), "inputImage");
        PlatformClock::drive(250'000'000); // a quarter of the cycle
        const Bitmap result = render(*cpuContexts().front(), filter->outputImage(), {0, 0, 16, 8});
        EXPECT_TRUE(isClose(result,
                            [&](int x, int y) {
                                return source.pixel((x - roll.dx + 16) % 16, (y - roll.dy + 8) % 8);
                            },
                            {1.01 / 255}))
            << roll.mode;
    }
    PlatformClock::release();
}

TEST(Shakes, UncoverNoBorder) {
    filtered("VEDummy", frame(1, 1), {});
    Bitmap white(40, 24);
    white.forEach([&](int x, int y) { white.set(x, y, {1, 1, 1, 1}); });
    for (const int mode : {0, 1}) {
        PlatformClock::drive(0);
        const CIFilterRef filter = CIFilter::filterWithName("VEWobble");
        filter->setDefaults();
        for (const auto& [key, value] : wobbleInputs(mode, 1, 1))
            filter->setValueForKey(value, key);
        filter->setValueForKey(white.image({-6, 3}), "inputImage");
        for (uint64_t i = 1; i <= 5; ++i) {
            PlatformClock::drive(i * 170'000'000);
            const CIImage image = filter->outputImage();
            for (CIContext* context : everyContext())
                EXPECT_TRUE(isClose(render(*context, image, image.extent()), white, {1.01 / 255}))
                    << mode << ", " << nameOf(*context);
        }
    }
    PlatformClock::release();
}

std::string strobe(const char* kernel, const char* arguments) {
    return "VE_Strobe_2_" + std::string(kernel) + "(source, 1, " + arguments + ") [0 0 5000 4000]";
}

INSTANTIATE_TEST_SUITE_P(
    FreezeAndStrobe, Stories,
    testing::Values(StoryCase{"Freeze",
                              "VEFreeze",
                              {},
                              {{0, {}, "source"},
                               {1, {}, "surface [0 0 24 10] 96 sRGB"},
                               {2, {}, "surface [0 0 24 10] 96 sRGB", 0, frame(40, 40)},
                               {3, inputs({{"Freeze", 0.5}}), "source"},
                               {4, inputs({{"Freeze", 0.51}}), "source"},
                               {5, {}, "surface [0 0 40 40] 160 sRGB"}},
                              frame(19, 10)},
                    StoryCase{
                        "Strobe",
                        "VE_Strobe_2",
                        inputs({{"Speed", 20}, {"Frequency", 100}}),
                        {{0.5, {}, strobe("squareEqual", "100, 20, 0, 0.5")},
                         {1, inputs({{"Mode", 1}}), strobe("squareHoldOn", "100, 18.5203, -1, 1")},
                         {1, inputs({{"Mode", 2}, {"Range", 127}}),
                          strobe("squareHoldOff", "100, 18.5203, 0.5, 1")},
                         {1, inputs({{"Mode", 3}, {"Range", 255}}),
                          strobe("sineEqual", "100, 18.5203, 2, 1")},
                         {1, inputs({{"Mode", 4}}), strobe("sineHold", "100, 18.5203, 2, 1")},
                         {1, inputs({{"Mode", 5}}), strobe("sineAbsHumps", "100, 18.5203, 1, 1")},
                         {1, inputs({{"Mode", 6}, {"Range", 127}}),
                          strobe("sineAbsHumpsInvert", "100, 18.5203, 0, 1")},
                         {2, inputs({{"Mode", 7}}), strobe("snapBlackfadeWhite", "15, 10, 0, 2")},
                         {2, inputs({{"Mode", 9}}), strobe("snapWhiteFadeBlack", "15, 10, 0, 2")},
                         {2, inputs({{"Mode", -1}}), strobe("squareEqual", "100, 20, 0, 2")},
                         {3, {}, "error FX 225", 0, frame(6000, 4000)}},
                        frame(5000, 4000)}),
    [](const auto& test) { return test.param.title; });

TEST(Freeze, ShowsTheFrameOnWhichItBegan) {
    filtered("VEDummy", frame(1, 1), {});
    Random random(23);
    const CIFilterRef filter = CIFilter::filterWithName("VEFreeze");
    filter->setDefaults();
    const Bitmap first = randomBitmap(random, 21, 9, CIFormat::RGBA8);
    for (int i = 0; i < 3; ++i) {
        const Bitmap live = i == 0 ? first : randomBitmap(random, 21, 9, CIFormat::RGBA8);
        filter->setValueForKey(live.image({3, 4}), "inputImage");
        const CIImage image = filter->outputImage();
        // The frame's copy lies at the origin. The padding repeats its last column.
        const CGRect bounds = i == 0 ? CGRect{3, 4, 21, 9} : CGRect{0, 0, 24, 9};
        EXPECT_TRUE(isClose(render(*cpuContexts().front(), image, bounds),
                            [&](int x, int y) { return first.pixel(std::min(x, 20), y); }, {}))
            << i;
    }
}

/// How bright the strobe leaves white at a time in seconds, for settings besides the defaults.
class StrobeLight {
public:
    explicit StrobeLight(const Settings& settings) : white_(1, 1, CIFormat::RGBAf) {
        filtered("VEDummy", frame(1, 1), {}); // registers the filters
        PlatformClock::drive(0);
        filter_ = CIFilter::filterWithName("VE_Strobe_2");
        filter_->setDefaults();
        for (const auto& [key, value] : settings) filter_->setValueForKey(value, key);
        white_.set(0, 0, {1, 1, 1, 1});
        filter_->setValueForKey(white_.image(), "inputImage");
    }
    ~StrobeLight() { PlatformClock::release(); }

    double at(double seconds) {
        PlatformClock::drive(static_cast<uint64_t>(std::llround(seconds * 1e9)));
        const CIImage image = filter_->outputImage();
        return render(*cpuContexts().front(), image, {0, 0, 1, 1}, CIFormat::RGBAf).pixel(0, 0)[0];
    }

private:
    Bitmap white_;
    CIFilterRef filter_;
};

TEST(Strobe, FollowsItsWaveforms) {
    const double kPi = std::acos(-1.0);
    // With the range in the middle, one cycle a second.
    struct Wave {
        int mode;
        double speed, size;
        std::function<double(double)> level;
    };
    const auto unit = [](double v) { return std::clamp(v, 0.0, 1.0); };
    const double slow = 1 / 0.35, swing = std::pow(32, 0.35);
    // Half a cycle about the beginning; at the greatest size flanks of half a cycle.
    const auto isOn = [](double x) { return std::fabs(x - std::round(x)) < 0.25 ? 1.0 : 0.0; };
    const auto soft = [&](double x) {
        const double from = x + 0.00390625;
        return unit(1 - 2 * std::fabs(from - std::round(from)));
    };
    const Wave waves[] = {
        {0, 1, 0.5, isOn},
        {0, 1, 1, isOn},
        {0, 1, 100, soft},
        {1, slow, 1, isOn},
        {2, slow, 1, isOn},
        {3, slow, 0.5, [&](double x) { return unit(0.5 + 2 * std::cos(2 * kPi * x)); }},
        {5, slow, 32, [&](double x) { return unit(0.5 + 2 * swing * (std::sin(kPi * x) - 0.5)); }},
        {6, slow, 0.5, [&](double x) { return 1 - unit(2 * std::sin(kPi * x) - 0.5); }},
        {7, 2, 0.5, [&](double x) { return unit(x * 1.075); }},
        {8, 2, 0.5, [&](double x) { return unit(1 - x * 1.075); }},
    };
    for (const Wave& wave : waves) {
        StrobeLight light(inputs({{"Mode", double(wave.mode)},
                                  {"Speed", wave.speed},
                                  {"Frequency", wave.size},
                                  {"Range", 127}}));
        const double depth = wave.mode >= 7 ? 0.5 : std::min(wave.size, 1.0);
        for (const double x : {0.0, 0.02, 0.2, 0.26, 0.4, 0.52, 0.77, 0.95})
            EXPECT_NEAR(light.at(x), 1 + (wave.level(x) - 1) * depth, 2e-5)
                << "mode " << wave.mode << " of size " << wave.size << " at " << x;
    }
}

TEST(Strobe, SquaresAreOnOrOffOnEveryFrame) {
    for (const double frameRate : {23.976, 25.0, 30.0, 50.0, 60.0})
        for (const double share : {0.1, 0.25, 0.4, 0.5, 0.8, 1.0}) {
            const double rate = std::min(share * frameRate, 20.0);
            for (const int mode : {0, 1, 2}) {
                const double speed = mode == 0 ? rate : std::pow(rate, 1 / 1.5) / 0.35;
                StrobeLight light(
                    inputs({{"Mode", double(mode)}, {"Speed", speed}, {"Range", 127}}));
                int on = 0;
                for (int i = 0; i < 120; ++i) {
                    const double level = light.at(i / frameRate);
                    ASSERT_TRUE(level < 1e-6 || level > 1 - 1e-6)
                        << mode << " at " << rate << " Hz, frame " << i << ": " << level;
                    on += level > 0.5;
                }
                // At half the frame rate and below it flickers, evenly but for a third of it.
                if (share <= 0.5) {
                    EXPECT_NEAR(on, 60, 20) << mode << " at " << rate << " Hz of " << frameRate;
                }
            }
        }
}

TEST(Strobe, HoldsForAsLongAsItsRangeSays) {
    // Unset, in the middle, and at the end of the control: how long it is on, of 1000 moments.
    for (const auto& [range, on] : {std::pair{0, 900}, {127, 500}, {255, 100}})
        for (const int mode : {1, 2}) {
            StrobeLight light(
                inputs({{"Mode", double(mode)}, {"Speed", 1 / 0.35}, {"Range", double(range)}}));
            int count = 0;
            for (int i = 0; i < 1000; ++i) count += light.at((i + 0.5) / 1000) > 0.5;
            EXPECT_NEAR(count, mode == 1 ? on : 1000 - on, 2) << mode << ", " << range;
        }
}

// ---- What holds for all of them -----------------------------------------------------------------

double standardOf(const InputAttributes& input, const char* name) {
    const AttributeValue* value = input.find(name);
    const double* number = value ? std::get_if<double>(value) : nullptr;
    return number ? *number : 0;
}

/// Every filter of the category with every mode of its slider, up to thirteen.
void forEachEffect(const std::function<void(const std::string& name, CIFilter& filter)>& visit) {
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    PlatformClock::drive(1'000'000'000);
    for (const std::string& name : CIFilter::filterNames(kVornFilterCategory)) {
        int modes = 1;
        for (const InputAttributes& input :
             CIFilter::filterWithName(name)->filterClass().customAttributes())
            if (input.key == "inputMode")
                modes =
                    1 + static_cast<int>(std::min(standardOf(input, kCIAttributeSliderMax), 12.0));
        for (int mode = 0; mode < modes; ++mode) {
            PlatformClock::drive(1'000'000'000);
            const CIFilterRef filter = CIFilter::filterWithName(name);
            filter->setDefaults();
            if (modes > 1) filter->setValueForKey(Number(mode), "inputMode");
            PlatformClock::drive(1'734'000'000);
            visit(name + ", mode " + std::to_string(mode), *filter);
        }
    }
    PlatformClock::release();
}

TEST(EveryEffect, IsTheSameOnEveryDeviceAndInEverySplit) {
    Random random(41);
    forEachEffect([&](const std::string& name, CIFilter& filter) {
        for (const InputAttributes& input : filter.filterClass().customAttributes())
            if (input.key != "inputMode" && random.chance(0.8))
                filter.setValueForKey(Number(random.real(standardOf(input, kCIAttributeSliderMin),
                                                         standardOf(input, kCIAttributeSliderMax))),
                                      input.key);
        const CGPoint origin{double(random.whole(-40, 40)), double(random.whole(-40, 40))};
        const Bitmap source =
            randomBitmap(random, random.whole(3, 90), random.whole(3, 60), random.format());
        const Bitmap target = randomBitmap(random, 30, 50, CIFormat::RGBA8);
        filter.setValueForKey(source.image(origin), "inputImage");
        filter.setValueForKey(target.image(origin), "inputTargetImage");
        const CIImage image = filter.outputImage();
        ASSERT_TRUE(image) << name;

        const CGRect whole = source.image(origin).extent();
        const Bitmap expected = render(referenceContext(), image, whole);
        // Both are rounded, and what lies between kernels is kept in 16-bit floats. Noise on all
        // sides makes a hard edge of any border between copies or blocks.
        const Tolerance tolerance{2.01 / 255, 0.02};
        for (const auto& context : cpuContexts()) {
            ASSERT_TRUE(isClose(render(*context, image, whole), expected, tolerance))
                << name << ", " << nameOf(*context);
            const double cut = random.whole(1, source.width() - 1);
            const double start = random.whole(0, source.height() - 1);
            const CGRect part{whole.x + cut, whole.y + start, whole.width - cut,
                              whole.height - start};
            ASSERT_TRUE(isClose(
                render(*context, image, part),
                [&](int x, int y) {
                    return expected.pixel(x + static_cast<int>(cut), y + static_cast<int>(start));
                },
                tolerance))
                << name << " in part, " << nameOf(*context);
        }
    });
}

TEST(Tiles, OfWholePixelsAreThoseOfThePlainComputation) {
    // Divisions that leave whole pixels both ways, one way and neither; the last has an incomplete
    // tile. Parts begin and end inside of tiles.
    filtered("VEDummy", frame(1, 1), {});
    Random random(61);
    const Bitmap source = randomBitmap(random, 48, 30, CIFormat::RGBA8);
    const CIImage image = source.image({-7, 5});
    const std::pair<double, double> divisions[] = {{2, 2},  {4, 3}, {4, 4},   {5, 7},
                                                   {16, 2}, {1, 3}, {48, 30}, {3.2, 2.5}};
    for (const auto& [across, up] : divisions)
        for (const double spacing : {1.0, 40.0}) {
            const CIImage tiles = filtered(
                "VETiles_2", image,
                inputs(
                    {{"Xdiv", across}, {"Ydiv", up}, {"Xoffset", spacing}, {"Yoffset", spacing}}));
            for (const CGRect rect :
                 {CGRect{-7, 5, 48, 30}, CGRect{-3, 8, 40, 25}, CGRect{-20, 0, 90, 50}})
                for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAh})
                    for (const auto& context : cpuContexts())
                        ASSERT_TRUE(isClose(render(*context, tiles, rect, format),
                                            render(referenceContext(), tiles, rect, format),
                                            {1.01 / 255}))
                            << across << " by " << up << ", " << nameOf(*context);
        }
}

TEST(EveryEffect, TakesNoMoreMemoryInTenThousandFrames) {
    if (!countsAllocations()) GTEST_SKIP() << "sanitizers keep memory of their own";
    constexpr int kFrames = 10'000;
    Random random(77);
    std::vector<CIFilterRef> filters;
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    for (const std::string& name : CIFilter::filterNames(kVornFilterCategory)) {
        filters.push_back(CIFilter::filterWithName(name));
        filters.back()->setDefaults();
    }
    const Bitmap pictures[] = {randomBitmap(random, 24, 16, CIFormat::RGBA8),
                               randomBitmap(random, 16, 24, CIFormat::BGRA8)};
    Bitmap result(24, 24);
    const auto used = [] {
        const struct mallinfo2 info = mallinfo2();
        return int64_t(info.uordblks) + int64_t(info.hblkhd);
    };
    CIContext context({.device = DeviceKind::CPU, .threads = 2});
    int64_t before = 0;
    for (int i = 0; i < kFrames; ++i) {
        if (i == kFrames / 5) before = used();
        PlatformClock::drive(uint64_t(i) * 40'000'000);
        // A live host's frame, through every filter; some of its controls move.
        for (const CIFilterRef& reference : filters) {
            CIFilter& filter = *reference;
            for (const InputAttributes& input : filter.filterClass().customAttributes())
                if (random.chance(0.2))
                    filter.setValueForKey(
                        Number(random.real(standardOf(input, kCIAttributeSliderMin),
                                           standardOf(input, kCIAttributeSliderMax))),
                        input.key);
            // The size changes now and then.
            filter.setValueForKey(pictures[i / 97 % 2].image(), "inputImage");
            filter.setValueForKey(pictures[0].image(), "inputTargetImage");
            if (const CIImage image = filter.outputImage())
                context.render(image, result.bytes(), result.bytesPerRow(), {0, 0, 24, 24},
                               CIFormat::RGBA8, CGColorSpace::None);
        }
    }
    PlatformClock::release();
    EXPECT_LT(used() - before, 256 * 1024);
}

TEST(EveryEffect, LeavesTheSourceWhenItIsMixedOut) {
    Random random(42);
    forEachEffect([&](const std::string& name, CIFilter& filter) {
        if (!filter.setValueForKey(Number(0.0), "inputMixer")) return;
        const Bitmap source = randomBitmap(random, 64, 40, CIFormat::RGBA8);
        filter.setValueForKey(source.image(), "inputImage");
        const CIImage image = filter.outputImage();
        ASSERT_TRUE(image) << name;
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, source.image().extent()), source, {}))
                << name << ", " << nameOf(*context);
    });
}

// ---- What hosts are told ------------------------------------------------------------------------

/// The advertised inputs in order: key without "input", label, and the numbers that differ from
/// minimum 0, slider 0 to 1, default 0, identity 0.
struct AdvertisedCase {
    const char* filter;
    const char* inputs;
};

std::string advertisedBy(const std::string& name) {
    std::string text;
    for (const InputAttributes& input :
         CIFilter::filterWithName(name)->filterClass().customAttributes()) {
        text += (text.empty() ? "" : ", ") + input.key.substr(5) + " \"" +
                std::get<std::string>(*input.find(kCIAttributeDisplayName)) + "\"";
        const std::tuple<const char*, const char*, double> numbers[] = {
            {kCIAttributeMin, "min", 0},
            {kCIAttributeSliderMin, "from", 0},
            {kCIAttributeSliderMax, "to", 1},
            {kCIAttributeDefault, "default", 0},
            {kCIAttributeIdentity, "identity", 0}};
        for (const auto& [attribute, word, usual] : numbers) {
            const AttributeValue* value = input.find(attribute);
            const double* number = value ? std::get_if<double>(value) : nullptr;
            if (!number)
                text += std::string(" no ") + word;
            else if (*number != usual)
                text += std::string(" ") + word + " " + textOf(*number);
        }
    }
    return text;
}

TEST(EveryEffect, AdvertisesItsInputs) {
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    const char* kPositioned =
        "Mode \"mode\", Mixer \"mixer\" default 1, Size \"size\", Edge \"edge\", "
        "XPosition \"X Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
        "YPosition \"Y Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
        "Aspect \"aspect\" to 10 default 1.778, IsXY \"isXY\"";
    const char* kCropped = "Mixer \"mixer\" default 1, Size \"size\", Edge \"edge\"";
    const char* kRamp = "1Amount \"amount\", 2Amount \"slope\", Mode \"mode\" to 2";
    const char* kDissolve =
        "FadeStatus \"Time\", Adjust \"Adjust\" min 1 from 1 to 4 default 1 identity 1";
    for (const AdvertisedCase& test : {
             AdvertisedCase{"VECropCircle", kCropped},
             {"VECropCircleXYPosition", kPositioned},
             {"VECropOvalXYPosition",
              "Size \"size\" min -1 from -1, Edge \"edge\", Aspect \"aspect\" to 10 default 1.778, "
              "XPosition \"X Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
              "YPosition \"Y Position\" min -0.5 from -0.5 to 1.5 default 0.5, Mode \"mode\""},
             {"VEFalloff", kCropped},
             {"VEFalloffXYPosition", kPositioned},
             {"VEChromaKey2017",
              "Sensitivity \"sensitivity\" min 0.01, Smoothing \"smoothing\", Red \"red\", "
              "Green \"green\" min 0.01, Blue \"blue\", Blur \"blur\""},
             {"VEChromaKeyRGB", "Tolerance \"tolerance\" min 0.01, Amount \"amount\", Red \"red\", "
                                "Green \"green\" min 0.01, Blue \"blue\""},
             {"VEChromaKeyHSV", "Tolerance \"tolerance\" min 0.01, Amount \"amount\", Hue \"hue\", "
                                "Saturation \"saturation\", Value \"value\""},
             {"VEChromaKeyXY", "Tolerance \"tolerance\" min 0.01, Amount \"amount\", "
                               "Xposition \"x position\", Yposition \"y position\""},
             {"VELumaKey", kRamp},
             {"VEBlackAlpha2ctl", kRamp},
             {"VEBlackAlpha", "Amount \"amount\", Threshold \"threshold\", Mode \"mode\" to 9"},
             {"VEMirrors", "Mode \"mode\" to 12, Mixer \"mixer\" default 1"},
             {"VETiles", "Divisions \"divisions\" min 1 from 1 to 16 default 4, "
                         "Mixer \"mixer\" default 1"},
             {"VETiles_2", "Xdiv \"H divisions\" min 1 from 1 to 100 default 1, "
                           "Ydiv \"V divisions\" min 1 from 1 to 100 default 1, "
                           "Xoffset \"H spacing\" min 1 from 1 to 100 default 1, "
                           "Yoffset \"V spacing\" min 1 from 1 to 100 default 1, "
                           "Mixer \"mixer\" default 1"},
             {"VE_Repeats",
              "Mode \"mode\" to 255 default 1, Scale \"scale\" from 1 to 64 default 1, "
              "Repeats \"repeats\" to 255 default 1, "
              "OffsetX \"offsetX\" to 8 default 1, OffsetY \"offsetY\" to 8 default 1"},
             {"VEXFDissolve", kDissolve},
             {"VEXFDissolveWithPixels", kDissolve},
             {"VEXFBrightness", "Mode \"mode\" to 2, FadeStatus \"Time\""},
             {"VEXFColorBlend",
              "FadeStatus \"Time\", Color \"Color\" no min no from no to no default "
              "no identity"},
             {"VE_NoiseGenerator",
              "Mode \"mode\" to 5, Scale \"scale\" default 0.5, "
              "Speed \"speed\" min 0.0001 from 0.0001 to 4 default 1, "
              "4 \"density/scroll x\" default 0.5, 5 \"scroll y\" default 0.5"},
             {"VE_CloudGenerator",
              "Scale \"scale\" to 255, Speed \"speed\", Cover \"cover\" to 255, "
              "Alpha \"alpha\" to 255, Brightness \"brightness\" to 255"},
             {"VEDecay",
              "Amount \"Amount\" min 0.001 from 0.001 to 0.99 default 0.001, "
              "Skip \"Skip Frame\" to 255 default 1, Scale \"Scale\" to 255 default 80, "
              "Xpos \"X Position\" to 255 default 80, Ypos \"Y Position\" to 255 default 80"},
             {"VEEdgeDetect2", "Mixer \"mixer\" default 1, Width \"LineWidth\" default 1, "
                               "Reduce \"Reduce\" default 0.5, "
                               "ReduceBrightness \"reduce bright\" default 0.5"},
             {"VE_ASCII_Art", "Mixer \"mixer\" default 1, "
                              "Scale \"Divisions\" min 1 from 1 to 100, Colour \"Gap Width\""},
             {"VEWobble",
              "Mixer \"mixer\" default 1, Mode \"mode\" to 10, Size \"size\" default 0.2, "
              "Speed \"speed\" default 0.2, C \"c\", D \"d\""},
             {"VEFreeze", "Freeze \"freeze\" default 1"},
             {"VE_Strobe_2",
              "Mixer \"mixer\" default 1, Mode \"mode\" to 9, "
              "Frequency \"size\" to 100 default 1, Speed \"speed\" to 20 default 1"},
         })
        EXPECT_EQ(advertisedBy(test.filter), test.inputs) << test.filter;
}

} // namespace
