// Shapes: circles, ovals and rectangles that are kept of the picture.
#include "tables.h"

namespace {

const char* const kPositioned =
    "Mode \"mode\", Mixer \"mixer\" default 1, Size \"size\", Edge \"edge\", "
    "XPosition \"X Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
    "YPosition \"Y Position\" min -0.5 from -0.5 to 1.5 default 0.5, "
    "Aspect \"aspect\" to 10 default 1.778, IsXY \"isXY\"";

const char* const kBand = "Mixer \"mixer\" default 1, Size \"size\", "
                          "Offset \"offset\" min -1 from -1, Edge \"edge\"";
const std::string kShutters = "SizeX1 \"sizeX1\", SizeY1 \"sizeY1\", SizeX2 \"sizeX2\", "
                              "SizeY2 \"sizeY2\"";

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
        AdvertisedCase{"VEFalloff", kCropped}, AdvertisedCase{"VEFalloffXYPosition", kPositioned},
        AdvertisedCase{"VEHorizCrop", kBand}, AdvertisedCase{"VEVertCrop", kBand},
        AdvertisedCase{"VEOrthShutters", "Mixer \"mixer\" default 1, " + kShutters},
        AdvertisedCase{"VEOrthShutters_2", "Edge \"edge\" default 1, " + kShutters},
        AdvertisedCase{"VECenterImage",
                       "TargetSize \"Target Size\" no min no from no to default (800 600) no "
                       "identity type kCIAttributeTypePosition"},
        AdvertisedCase{"VELattice", "Mixer \"mixer\" default 1, Mode \"mode\" to 2, "
                                    "Segments \"segments\" min 1 from 1 to 80 default 1, "
                                    "Thickness \"thickness\" to 3"},
        AdvertisedCase{"VEBars", "Mixer \"mixer\" default 1, Mode \"mode\" to 2, "
                                 "Divisions \"divisions\" min 1 from 1 to 100 default 20, "
                                 "Size \"size\" default 0.5"},
        AdvertisedCase{"VELayerBlend",
                       "Mode \"mode\" to 8, SizeA \"size A\", EdgeA \"edge A\", "
                       "SizeB \"size B\", EdgeB \"edge B\", Angle \"angle\" to 255"},
        AdvertisedCase{"VEDropShadow", "Level \"size\", Blur \"edge\" to 5, "
                                       "XPosition \"X Position\" min -40 from -40 to 40, "
                                       "YPosition \"Y Position\" min -40 from -40 to 40"},
        AdvertisedCase{"VEDropShadow2", "Mode \"Mode\" to 255, Level \"Level\""}),
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
GraphCase blend(const char* title, double mode, double angle, const char* kernel,
                const char* lean) {
    return {title, "VELayerBlend", inputs({{"Mode", mode}, {"SizeA", 0.3}, {"Angle", angle}}),
            std::string("VE_LayerBlend_") + kernel + "(source, 0.3, 0, 0, 0, " + lean + ") own"};
}
GraphCase corner(const char* title, double mode, const std::string& kernel) {
    return {title, "VEDropShadow2", inputs({{"Mode", mode}, {"Level", 0.5}}),
            "VE_DropShadow2_" + kernel + " [99 100 52 53]"};
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
        oval("OvalMode7", 7, "Reverse"), oval("OvalNegative", -1, "Reverse"),
        GraphCase{"HorizontalBand", "VEHorizCrop",
                  inputs({{"Size", 1}, {"Offset", -1}, {"Edge", 3}}),
                  "VE_HorizCrop_cropHoriz(source, 1, 0, 1, 3) own"},
        GraphCase{"VerticalBand", "VEVertCrop", inputs({{"Offset", 1}}),
                  "VE_VertCrop_cropVert(source, 1, 0.5, 0, 0) own"},
        GraphCase{"Shutters", "VEOrthShutters",
                  inputs({{"SizeX1", 0.2}, {"SizeY1", 0.4}, {"SizeX2", 0.6}}),
                  "VE_OrthShutters_orthShtrLTRB(source, 1, 0.4, 0.3, 0.2, 0.5) own"},
        GraphCase{"SoftShutters", "VEOrthShutters_2",
                  inputs({{"Edge", 0.5}, {"SizeY1", 0.5}, {"SizeX2", 1}}),
                  "VE_OrthShutters_2_softOrthShtrLRTB(source, 0.25, 1, 0.25, 0, 1) own"},
        GraphCase{"CentredInASmallerFrame",
                  "VECenterImage",
                  {},
                  "VE_CenterImageFilterKernel:VE_CenterImageFilterKernel_centerImage(source, (-240 "
                  "-60), (1280 720)) [0 0 "
                  "1280 720] at [0 0 800 600]",
                  frame(1280, 720)},
        GraphCase{"CentredInALargerFrame",
                  "VECenterImage",
                  {{"inputTargetSize", CIVector(105, 90)}},
                  "VE_CenterImageFilterKernel:VE_CenterImageFilterKernel_centerImage(source, (27.5 "
                  "15), (50 60)) [-7 9 50 60] "
                  "at [0 0 105 90]",
                  frame(50, 60, {-7, 9})},
        GraphCase{"Lattice", "VELattice", inputs({{"Mode", -1}, {"Thickness", 0.5}}),
                  "VE_Lattice_negLattice(source, 1, 1, 0.5, 1.77778) own"},
        GraphCase{"LatticeKept", "VELattice", inputs({{"Mode", 2}}),
                  "VE_Lattice_posLattice(source, 1, 1, 0, 0.5) own", frame(300, 600, {7, -9})},
        GraphCase{"Bars", "VEBars", {}, "VE_Bars_horizontalBars(source, 1, 20, 0.5) own"},
        GraphCase{"BarsUpright", "VEBars", inputs({{"Mode", 2}, {"Size", 0.25}}),
                  "VE_Bars_verticalBars(source, 1, 20, 0.75) own"},
        GraphCase{"BarsNegative", "VEBars", inputs({{"Mode", -2}}),
                  "VE_Bars_horizontalBars(source, 1, 20, 0.5) own"},
        blend("BlendUpright", 1, 0, "rightAngle", "0"),
        blend("BlendJumps", 0, 1, "leftAngle", "-0.496063"),
        blend("BlendInTheMiddle", 3, 127, "bottomAngle", "0"),
        blend("BlendOfTheTop", 2, 254, "topAngle", "0.736"),
        blend("BlendOfBothSides", 4, 254, "leftRight", "1"),
        blend("BlendPastTheLast", 8, 190.5, "topBottomSeparate", "0.5"),
        blend("BlendNegative", -1, 254, "leftAngle", "0.5"),
        GraphCase{"Shadow", "VEDropShadow",
                  inputs({{"Level", 0.5}, {"Blur", 2}, {"XPosition", -40}, {"YPosition", 7.5}}),
                  "VE_DropShadow_dropShadow(source, (-40 7.5), 0.5, 2) [99 100 52 53]"},
        corner("CornerAtTheEndOfItsRange", 63.9, "bottomRight(source, 63.9, 0.5)"),
        corner("CornerAtTheStartOfItsRange", 64, "bottomLeft(source, 64, 0.5)"),
        corner("ThirdCorner", 128, "topLeft(source, 128, 0.5)"),
        corner("LastCorner", 255, "topRight(source, 255, 0.5)"),
        corner("FirstCornerAgain", 256, "bottomRight(source, 256, 0.5)")),
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

/// How much of pixel i lies from `low` to `high`.
double within(int i, double low, double high) {
    return std::clamp(std::min(i + 1.0, high) - std::max<double>(i, low), 0.0, 1.0);
}

/// What a fade along a direction leaves at a pixel; its way is `share` of the frame.
double faded(int x, int y, double right, double up, double share, double size, double edge) {
    const double pixel = std::fabs(right) + std::fabs(up);
    const double half = (std::fabs(right) * kWidth + std::fabs(up) * kHeight) / 2;
    const double way = share < 1 ? half + pixel / 2 : 2 * half, width = edge * way;
    const double place = (x + 0.5 - kWidth / 2.0) * right + (y + 0.5 - kHeight / 2.0) * up + half;
    return smooth((place + pixel / 2 + width - size * (way + width)) / (width + pixel));
}
Settings fade(double mode, double sizeA, double edgeA, double sizeB, double edgeB, double angle) {
    return inputs({{"Mode", mode},
                   {"SizeA", sizeA},
                   {"EdgeA", edgeA},
                   {"SizeB", sizeB},
                   {"EdgeB", edgeB},
                   {"Angle", angle}});
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Pixels,
    testing::Values(
        PixelCase{"FadeFromTheLeftLeansClockwise", "VELayerBlend", fade(0, 0.3, 0.4, 0, 0, 190.5),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y),
                                   faded(x, y, std::cos(0.25), -std::sin(0.25), 1, 0.3, 0.4));
                  }},
        PixelCase{"FadeFromTheTop", "VELayerBlend", fade(2, 0.6, 0.2, 1, 1, 0),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), faded(x, y, 0, -1, 1, 0.6, 0.2));
                  }},
        PixelCase{"FadesOfBothSidesShareTheFrame", "VELayerBlend", fade(4, 0.5, 0.5, 1, 1, 127),
                  [](const Bitmap& s, int x, int y) {
                      return times(s.pixel(x, y), faded(x, y, 1, 0, 0.5, 0.5, 0.5) *
                                                      faded(x, y, -1, 0, 0.5, 0.5, 0.5));
                  }},
        PixelCase{"FadesOfBothEndsEachItsOwn", "VELayerBlend", fade(7, 0.4, 0.6, 0.2, 0, 63.5),
                  [](const Bitmap& s, int x, int y) {
                      const double right = std::sin(-0.5), up = std::cos(-0.5);
                      return times(s.pixel(x, y), faded(x, y, -right, -up, 1, 0.4, 0.6) *
                                                      faded(x, y, right, up, 1, 0.2, 0));
                  }},
        PixelCase{"FadesOfSize0LeaveThePicture", "VELayerBlend", fade(6, 0, 1, 0, 0.3, 200),
                  [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }},
        PixelCase{"FadesThatHaveMetLeaveNothing", "VELayerBlend", fade(4, 1, 0.2, 0, 0, 170),
                  [](const Bitmap&, int, int) { return Pixel{}; }},
        PixelCase{
            "BandMovedUp", "VEHorizCrop", inputs({{"Size", 0.5}, {"Offset", 0.25}, {"Edge", 0.5}}),
            [](const Bitmap& s, int x, int y) {
                const double middle = 0.625 * kHeight, half = 0.25 * kHeight;
                return times(s.pixel(x, y), inside(std::fabs(y + 0.5 - middle), half, half / 2));
            }},
        PixelCase{"BandMovedToTheRight", "VEVertCrop",
                  inputs({{"Size", 0.8}, {"Offset", 0.5}, {"Mixer", 0.5}}),
                  [](const Bitmap& s, int x, int y) {
                      const double away = std::fabs(x + 0.5 - 0.75 * kWidth);
                      return times(s.pixel(x, y), 0.5 + 0.5 * inside(away, 0.1 * kWidth, 0));
                  }},
        PixelCase{"ShuttersFromTheirSides", "VEOrthShutters",
                  inputs({{"SizeX1", 0.1}, {"SizeY1", 0.2}, {"SizeX2", 0.3}, {"SizeY2", 0.4}}),
                  [](const Bitmap& s, int x, int y) {
                      const double across = within(x, 0.05 * kWidth, 0.85 * kWidth),
                                   up = within(y, 0.2 * kHeight, 0.9 * kHeight);
                      return times(s.pixel(x, y), across * up);
                  }},
        PixelCase{"SoftShuttersFromTheirSides", "VEOrthShutters_2",
                  inputs({{"Edge", 0.8},
                          {"SizeX1", 0.1},
                          {"SizeY1", 0.2},
                          {"SizeX2", 0.3},
                          {"SizeY2", 0.4}}),
                  [](const Bitmap& s, int x, int y) {
                      const double soft = 0.64 * kHeight / 2;
                      const auto open = [&](double size, double border, double away) {
                          return smooth(((1 - size) * (1 - size) * (border + soft) - away) / soft);
                      };
                      const double u = x + 0.5 - kWidth / 2.0, v = y + 0.5 - kHeight / 2.0;
                      return times(s.pixel(x, y),
                                   open(0.1, kWidth / 2.0, -u) * open(0.2, kHeight / 2.0, v) *
                                       open(0.3, kWidth / 2.0, u) * open(0.4, kHeight / 2.0, -v));
                  }},
        PixelCase{"OpenSoftShuttersLeaveThePicture",
                  "VEOrthShutters_2",
                  {},
                  [](const Bitmap& s, int x, int y) { return s.pixel(x, y); }},
        PixelCase{"ClosedSoftShuttersLeaveNothing", "VEOrthShutters_2",
                  inputs({{"SizeX1", 1}, {"SizeX2", 1}}),
                  [](const Bitmap&, int, int) { return Pixel{}; }},
        PixelCase{"LatticeOfTwoLines", "VELattice", inputs({{"Segments", 2}, {"Thickness", 0.6}}),
                  [](const Bitmap& s, int x, int y) {
                      // Cells of 13 pixels, lines of 2.6 in their middles, one cell on the middle.
                      double gone = 0, level = 0;
                      for (int i = -3; i < 4; ++i)
                          gone += within(x, 22 + 13 * i + 5.2, 22 + 13 * i + 7.8);
                      for (int i = 0; i < 2; ++i) level += within(y, 13 * i + 5.2, 13 * i + 7.8);
                      return times(s.pixel(x, y), (1 - gone) * (1 - level));
                  }},
        PixelCase{"LatticeFinerThanPixels", "VELattice",
                  inputs({{"Mode", 1}, {"Segments", 52}, {"Thickness", 1.5}}),
                  [](const Bitmap& s, int x, int y) { return times(s.pixel(x, y), 0.75); }},
        PixelCase{"UprightBars", "VEBars", inputs({{"Mode", 1}, {"Divisions", 4}, {"Size", 0.35}}),
                  [](const Bitmap& s, int x, int y) {
                      const double start = x / 11 * 11 + 11 * 0.35 / 2;
                      return times(s.pixel(x, y), within(x, start, start + 11 * 0.65));
                  }},
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
        PixelCase{
            "OvalAsSoftAcrossAsUp", "VECropOvalXYPosition", inputs({{"Aspect", 1}, {"Edge", 0.5}}),
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

TEST(CenterImage, MovesWholePixelsOnly) {
    Random random(3);
    const Bitmap source = randomBitmap(random, 20, 14, CIFormat::RGBA8);
    for (const CIVector size : {CIVector(27, 9), CIVector(13, 30), CIVector(20, 14)}) {
        const CIImage image =
            filtered("VECenterImage", source.image({-5, 8}), {{"inputTargetSize", size}});
        const int left = int(std::floor((size.X() - 20) / 2 + 0.5)),
                  below = int(std::floor((size.Y() - 14) / 2 + 0.5));
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, image.extent()),
                                [&](int x, int y) {
                                    const int u = x - left, v = y - below;
                                    return u < 0 || v < 0 || u >= 20 || v >= 14
                                               ? Pixel{}
                                               : source.pixel(u, v);
                                },
                                {}))
                << nameOf(*context);
    }
}

TEST(Bars, KeepTheirShareHoweverFineTheyAre) {
    const Bitmap white = pictureOf(90, 60, [](int, int) { return Straight{1, 1, 1}; });
    for (const double divisions : {3.0, 7.5, 29.0, 77.7, 100.0}) {
        const Bitmap result =
            lookOf("VEBars", inputs({{"Divisions", divisions}, {"Size", 0.4}}), white);
        double sum = 0;
        for (int y = 0; y < 60; ++y) sum += result.pixel(45, y)[3] / 60;
        EXPECT_NEAR(sum, 0.6, divisions == std::floor(divisions) ? 1e-4 : 0.04) << divisions;
    }
}

TEST(LayerBlend, LayersOfOppositeSidesAddUp) {
    const Bitmap white = pictureOf(60, 40, [](int, int) { return Straight{1, 1, 1}; });
    for (const double angle : {0.0, 30.0, 254.0})
        for (const double size : {0.1, 0.5, 0.83})
            for (const double mode : {0.0, 2.0}) {
                const Bitmap one =
                    lookOf("VELayerBlend", fade(mode, size, 0.35, 0, 0, angle), white);
                const Bitmap other =
                    lookOf("VELayerBlend", fade(mode + 1, 1 - size, 0.35, 0, 0, angle), white);
                one.forEach([&](int x, int y) {
                    ASSERT_NEAR(one.pixel(x, y)[3] + other.pixel(x, y)[3], 1, 1e-5)
                        << mode << ", " << size << ", " << angle << " at " << x << ", " << y;
                });
            }
}

/// A picture that is as opaque as a shape says, and red.
Bitmap layer(int width, int height, const std::function<double(int, int)>& alpha) {
    Bitmap picture(width, height, CIFormat::RGBA8);
    picture.forEach([&](int x, int y) {
        const double a = alpha(x, y);
        picture.set(x, y, {a, 0, 0, a});
    });
    return picture;
}

TEST(DropShadow, FallsWhereItsSlidersPointAndNotOnTheLayer) {
    Random random(5);
    const Bitmap source =
        layer(100, 90, [&](int, int) { return random.chance(0.4) ? random.real(0, 1) : 0; });
    const CIImage image = filtered("VEDropShadow", source.image({-9, 4}),
                                   inputs({{"Level", 0.6}, {"XPosition", 40}, {"YPosition", -31}}));
    const auto expected = [&](int x, int y) {
        Pixel p = source.pixel(x, y);
        const bool isThere = x >= 40 && y + 31 < source.height();
        p[3] += (isThere ? 0.6 * source.pixel(x - 40, y + 31)[3] : 0) * (1 - p[3]);
        return p;
    };
    for (CIContext* context : everyContext())
        EXPECT_TRUE(isClose(render(*context, image, image.extent()), expected, {1.01 / 255}))
            << nameOf(*context);
}

TEST(DropShadow, IsAsSoftAsItsSliderSaysWhereverTheEdgeIs) {
    for (const double blur : {0.3, 0.62, 0.63, 0.86, 0.88, 1.2, 2.0, 3.3, 5.0})
        for (const int edge : {60, 63, 67}) {
            const Bitmap source = layer(160, 120, [&](int x, int) { return x < edge ? 1 : 0; });
            const Bitmap result = lookOf(
                "VEDropShadow", inputs({{"Level", 1}, {"Blur", blur}, {"XPosition", 30}}), source);
            for (int x = edge; x < 160; ++x) {
                const double away = (x + 0.5 - edge - 30) / (2 * blur);
                EXPECT_NEAR(result.pixel(x, 60)[3], 0.5 * std::erfc(away / std::sqrt(2)), 0.09)
                    << blur << " at " << x - edge;
                const double before = x > edge ? result.pixel(x - 1, 60)[3] : 1;
                EXPECT_LE(result.pixel(x, 60)[3], before + 1e-4) << blur << " at " << x - edge;
            }
        }
}

TEST(DropShadow2, LiesTowardsItsCornerAlikeOnFramesOfAnySize) {
    const std::pair<double, CGPoint> corners[] = {
        {0, {1, -1}}, {64, {-1, -1}}, {128, {-1, 1}}, {192, {1, 1}}};
    for (const auto& [mode, towards] : corners)
        for (const int side : {64, 256}) {
            const auto inside = [&](int i) { return std::abs(2 * i + 1 - side) < side / 2; };
            const Bitmap source =
                layer(side, side, [&](int x, int y) { return inside(x) && inside(y) ? 0.5 : 0; });
            const Bitmap result =
                lookOf("VEDropShadow2", inputs({{"Mode", mode}, {"Level", 1}}), source);
            double sum = 0, right = 0, up = 0;
            result.forEach([&](int x, int y) {
                const double own = source.pixel(x, y)[3];
                const double shadow = (result.pixel(x, y)[3] - own) / (1 - own);
                sum += shadow, right += shadow * (x + 0.5 - side / 2.0),
                    up += shadow * (y + 0.5 - side / 2.0);
            });
            EXPECT_NEAR(right / sum / side, towards.x / 64, 0.001) << mode << ", " << side;
            EXPECT_NEAR(up / sum / side, towards.y / 64, 0.001) << mode << ", " << side;
        }
}

} // namespace
