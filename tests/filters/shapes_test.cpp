// Shapes: circles, ovals and rectangles that are kept of the picture.
#include "tables.h"

namespace {

const char* const kPositioned =
    "Mode \"mode\", Mixer \"mixer\" default 1, Size \"size\", Edge \"edge\", "
    "XPosition \"X Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
    "YPosition \"Y Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
    "Aspect \"aspect\" to 10 default 1.778, IsXY \"isXY\"";

const char* const kCropped = "Mixer \"mixer\" default 1, Size \"size\", Edge \"edge\"";

INSTANTIATE_TEST_SUITE_P(
    Shapes, Advertised,
    testing::Values(
        AdvertisedCase{"VECropCircle", kCropped},
        AdvertisedCase{"VECropCircleXYPosition", kPositioned},
        AdvertisedCase{
            "VECropOvalXYPosition",
            "Size \"size\" min -1 from -1, Edge \"edge\", Aspect \"aspect\" to 10 default 1.778, "
            "XPosition \"X Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
            "YPosition \"Y Position\" min -0.5 from -0.5 to 1.5 default 0.5, Mode \"mode\""},
        AdvertisedCase{"VEFalloff", kCropped}, AdvertisedCase{"VEFalloffXYPosition", kPositioned}),
    kByFilter);

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
    kByTitle);

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
    kByTitle);

} // namespace
