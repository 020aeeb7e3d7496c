// Pictures drawn in another way.
#include "tables.h"

namespace {

INSTANTIATE_TEST_SUITE_P(
    Stylize, Advertised,
    testing::Values(AdvertisedCase{"VE_ASCII_Art", "Mixer \"mixer\" default 1, "
                                                   "Scale \"Divisions\" min 1 from 1 to 100, "
                                                   "Colour \"Gap Width\""},
                    AdvertisedCase{"VELiteBrite", "Mixer \"mixer\" default 1, "
                                                  "Divisions \"divisions\" min 1 from 1 to 100 "
                                                  "default 80, "
                                                  "Size \"size\" min 20 from 20 to 100 default 90"},
                    AdvertisedCase{"VELumaLines", "Mixer \"mixer\" default 1, Mode \"mode\" to 2, "
                                                  "Divisions \"Divisions\" to 100, "
                                                  "Gap \"Gap Width\" to 5, "
                                                  "Scale \"Scale\" min 1 from 1 to 1024"},
                    AdvertisedCase{"VEPillowBlocks",
                                   "Mixer \"mixer\" default 1, "
                                   "MixerMult \"mixerMultiplier\" min 1 from 1 to 10 default 1, "
                                   "Brightness \"divisions\" min 1 from 1 to 60 default 20, "
                                   "Size \"size\" min 1 from 1 to 300 default 1, "
                                   "Mode \"mode\" to 255"},
                    AdvertisedCase{"VE_Meta_Image", "Mixer \"mixer\" default 1, "
                                                    "Scale \"Scale\" min 1 from 1 to 100, "
                                                    "Desaturate \"Saturation\", "
                                                    "Size \"Steps\" min 1 from 1 to 50, "
                                                    "Width \"Width\" min 1 from 1 to 800, "
                                                    "Height \"Height\" min 1 from 1 to 800"},
                    AdvertisedCase{"VE_Meta_Image2", "Mixer \"mixer\" default 1, "
                                                     "ColorMix \"color mix\" min 1 from 1 to 100, "
                                                     "Divisor \"tile size\" min 1 from 1 to 100"}),
    kByFilter);

Settings lined(double mode) {
    return inputs({{"Mixer", 1}, {"Mode", mode}, {"Divisions", 40}, {"Gap", 2}, {"Scale", 8}});
}
Settings tiled(double mixer, double scale) {
    Settings settings = inputs({{"Mixer", mixer},
                                {"Scale", scale},
                                {"Desaturate", 0.5},
                                {"Width", 16},
                                {"Height", 20},
                                {"Size", 8}});
    settings.emplace_back("inputMetaImage", secondFrame());
    return settings;
}

INSTANTIATE_TEST_SUITE_P(
    Stylize, Graphs,
    testing::Values(
        GraphCase{"Lights", "VELiteBrite",
                  inputs({{"Mixer", 0.5}, {"Divisions", 80}, {"Size", 90}}),
                  "VE_LiteBrite_ledWall(source, 0.5, (24 24), 10.8) [89.2 90.2 71.6 72.6]"},
        GraphCase{"OneLight", "VELiteBrite", inputs({{"Mixer", 1}, {"Divisions", 1}, {"Size", 90}}),
                  "VE_LiteBrite_ledWall(source, 1, (1000 1000), 450) [-350 -349 950 951]",
                  frame(1000, 500)},
        GraphCase{"Lines", "VELumaLines", lined(-1),
                  "VE_LumaLines_lumaLines(source, 1, 40, 2, 8) [92 93 66 67]"},
        GraphCase{"Blocks", "VELumaLines", lined(2),
                  "VE_LumaLines_lumaBlocks(source, 1, 40, 2, 8) [92 93 66 67]"},
        GraphCase{
            "Cushions", "VEPillowBlocks",
            inputs({{"Mixer", 1}, {"MixerMult", 2}, {"Size", 30}, {"Brightness", 10}, {"Mode", 0}}),
            "VE_PillowBlocks_pillowblocks(source, 1, 2, 30, 10) own"},
        GraphCase{
            "CushionsInAlpha", "VEPillowBlocks",
            inputs(
                {{"Mixer", 1}, {"MixerMult", 2}, {"Size", 30}, {"Brightness", 10}, {"Mode", 200}}),
            "VE_PillowBlocks_pillowblocksAlpha(source, 1, 2, 30, 10) own"},
        GraphCase{"TilesOfAnother", "VE_Meta_Image", tiled(0.001, 30),
                  "VE_Meta_Image_metaImageOne(source, target, 0.001, 30, 0.5, 16, 20, 8) "
                  "[0 0 1920 1080] [0 0 640 480]"},
        GraphCase{"TilesMixedOut", "VE_Meta_Image", tiled(0, 30),
                  "VE_Meta_Image_metaImageOne(source, target, 0, 1, 0.5, 16, 20, 8) "
                  "[0 0 1920 1080] [0 0 640 480]"},
        GraphCase{"TilesOfTheLimit", "VE_Meta_Image", tiled(1, 0),
                  "VE_Meta_Image_metaImageOne(source, target, 1, 0, 0.5, 16, 20, 8) "
                  "[0 0 5760 3240] [0 0 640 480]",
                  frame(5760, 3240)},
        GraphCase{"TilesBeyondTheLimit", "VE_Meta_Image", tiled(1, 0), "error FX 176",
                  frame(5761, 3240)},
        GraphCase{"TilesFromTooLargeAPicture",
                  "VE_Meta_Image",
                  {{"inputMetaImage", frame(5761, 3240)}, {"inputMixer", Number(1)}},
                  "error FX 176"},
        GraphCase{"TilesFromNothing", "VE_Meta_Image", inputs({{"Mixer", 1}}), ""},
        GraphCase{"CopiesOfItself", "VE_Meta_Image2",
                  inputs({{"Mixer", 1}, {"Divisor", 16}, {"ColorMix", 60}}),
                  "VE_Meta_Image2_metaImageTwo(source, (16 16), 60, 1) [0 0 1920 1080]"},
        GraphCase{"CopiesBeyondTheLimit", "VE_Meta_Image2",
                  inputs({{"Mixer", 1}, {"Divisor", 16}, {"ColorMix", 60}}), "error FX 193",
                  frame(5761, 3240)}),
    kByTitle);

INSTANTIATE_TEST_SUITE_P(
    BlursAndEdges, Advertised,
    testing::Values(
        AdvertisedCase{
            "VEQuickBlur2",
            "Mode \"mode\" to 3 default 1, Mixer \"mixer\" default 1, Blur \"blur\" to 0.4"},
        AdvertisedCase{"VEEdgeDetect", "Mixer \"mixer\" default 1, Width \"LineWidth\" default "
                                       "0.5, Reduce \"Reduce\" default 0.5"},
        AdvertisedCase{"VE_MetaBalls",
                       "Blur no label to 100 default 10, Threshold no label to 255 default 127"}),
    kByFilter);

INSTANTIATE_TEST_SUITE_P(
    BlursAndEdges, Graphs,
    testing::Values(
        GraphCase{"QuickBlur", "VEQuickBlur2", inputs({{"Blur", 0.4}}),
                  "VE_QuickBlur2_xBlur(source, 1, 38.4, 76.8) own"},
        GraphCase{"QuickBlurOfPortraits", "VEQuickBlur2", inputs({{"Blur", 0.4}, {"Mode", 0}}),
                  "VE_QuickBlur2_xyBlur(source, 1, 21.6, 43.2) own", frame(1080, 1920, {7, -3})},
        GraphCase{"QuickBlurAtRest", "VEQuickBlur2", inputs({{"Mode", 3}}),
                  "VE_QuickBlur2_yBlur(source, 1, 0, 0) own"},
        GraphCase{"QuickBlurNegativeMode", "VEQuickBlur2", inputs({{"Mode", -1}}),
                  "VE_QuickBlur2_xyBlur(source, 1, 0, 0) own"},
        GraphCase{"QuickBlurOfNothing", "VEQuickBlur2", {}, "", CIImage()},
        GraphCase{"EdgeDetect",
                  "VEEdgeDetect",
                  {},
                  "VE_EdgeDetect_edgeDetect(source, 1, 0.005, 0.5) own"},
        GraphCase{"EdgeDetectThick", "VEEdgeDetect", inputs({{"Width", 1}, {"Reduce", 2}}),
                  "VE_EdgeDetect_edgeDetect(source, 1, 0, 2) own"},
        GraphCase{"MetaBalls", "VE_MetaBalls", inputs({{"Red", 255}, {"Green", 51}}),
                  "VE_MetaBalls_lumaKey(CIGaussianBlur(source, 10), 0.445752, 1, 0.2, 0) "
                  "[99 100 52 53] at [-35 -35 1990 1150]"},
        GraphCase{"MetaBallsWithoutBlur", "VE_MetaBalls", inputs({{"Blur", 0}, {"Blue", 255}}),
                  "VE_MetaBalls_lumaKey(source, 0.498039, 0, 0, 1) [99 100 52 53]"}),
    kByTitle);

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
    kByTitle);

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

// ---- Mosaics ------------------------------------------------------------------------------------

/// What is redrawn, with something to see at 240 by 160 pixels.
struct Redrawn {
    const char* filter;
    Settings settings;
    double brightest, tolerance; ///< up to which level the mean is kept, and how well
};
std::vector<Redrawn> redrawn(const Bitmap& tiles) {
    Settings ofTiles = inputs({{"Mixer", 1}, {"Scale", 12}, {"Desaturate", 1}});
    ofTiles.emplace_back("inputMetaImage", tiles.image());
    return {
        {"VELiteBrite", inputs({{"Mixer", 1}, {"Divisions", 10}, {"Size", 90}}), 0.5, 0.05},
        {"VELumaLines", inputs({{"Mixer", 1}, {"Divisions", 10}, {"Scale", 16}}), 1, 0.01},
        {"VELumaLines", inputs({{"Mixer", 1}, {"Mode", 1}, {"Divisions", 10}, {"Scale", 50}}), 1,
         0.01},
        {"VEPillowBlocks", inputs({{"Mixer", 1}, {"MixerMult", 1}, {"Brightness", 6}}), 0.5, 0.05},
        {"VEPillowBlocks", inputs({{"Mixer", 1}, {"MixerMult", 9}, {"Brightness", 6}}), 0.3, 0.05},
        {"VE_Meta_Image", ofTiles, 0.6, 0.03},
        {"VE_Meta_Image2", inputs({{"Mixer", 1}, {"ColorMix", 100}, {"Divisor", 20}}), 1, 0.03}};
}
constexpr int kMosaicWidth = 240, kMosaicHeight = 160;

TEST(Mosaics, AreAsBrightAsThePicture) {
    Random random(9);
    const Bitmap tiles = randomBitmap(random, 64, 40, CIFormat::RGBA8);
    for (const auto& [filter, settings, brightest, tolerance] : redrawn(tiles))
        for (double level = 0.1; level <= brightest; level += 0.1) {
            const Bitmap result =
                lookOf(filter, settings, pictureOf(kMosaicWidth, kMosaicHeight, [&](int, int) {
                           return Straight{level, level, level};
                       }));
            double sum = 0;
            result.forEach([&](int x, int y) { sum += luma(result.pixel(x, y)); });
            EXPECT_NEAR(sum / (kMosaicWidth * kMosaicHeight), level, tolerance) << filter;
        }
}

TEST(Mosaics, StayCalmWhenTheFinestPatternMoves) {
    // Of the cells nothing but their means shows, which are the same in both frames.
    const auto frameAt = [](int shift) {
        return pictureOf(kMosaicWidth, kMosaicHeight, [&](int x, int y) {
            const double level = ((x + y + shift) & 1) * 0.8 + 0.1;
            return Straight{level, level * 0.5, 0.2};
        });
    };
    for (const auto& [filter, settings, brightest, tolerance] : redrawn(Bitmap(8, 8))) {
        if (filter == std::string("VEPillowBlocks")) continue; // shows the picture itself
        const Bitmap one = lookOf(filter, settings, frameAt(0));
        EXPECT_TRUE(isClose(lookOf(filter, settings, frameAt(1)),
                            [&](int x, int y) { return one.pixel(x, y); }, {0.015}))
            << filter;
    }
}

TEST(Mosaics, LightsKeepToTheNewestRadiusOfTheirFilter) {
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    const CIFilterRef filter = CIFilter::filterWithName("VELiteBrite");
    filter->setDefaults();
    const CIImage source = frame(1920, 1080);
    filter->setValueForKey(source, "inputImage");
    const CIImage first = filter->outputImage();
    filter->setValueForKey(Number(50), "inputSize");
    const CIImage second = filter->outputImage();
    EXPECT_EQ(graphOf(first, source),
              "VE_LiteBrite_ledWall(source, 1, (24 24), 10.8) [94 95 62 63]");
}

TEST(Mosaics, TilesAreChosenByBrightnessAndStandUpright) {
    // Four tiles of four by four pixels, two and two, each bright in another corner.
    const auto isBright = [](int tile, int x, int y) {
        return x / 2 == tile % 2 && y / 2 == tile / 2;
    };
    const Bitmap tiles = pictureOf(8, 8, [&](int x, int y) {
        const int row = 1 - y / 4; // from the top
        const double level = isBright(row * 2 + x / 4, x % 4, y % 4) ? 0.9 : 0.1;
        return Straight{level, level, level};
    });
    Settings settings = inputs(
        {{"Mixer", 1}, {"Scale", 4}, {"Desaturate", 1}, {"Width", 4}, {"Height", 4}, {"Size", 4}});
    settings.emplace_back("inputMetaImage", tiles.image());
    for (int tile = 0; tile < 4; ++tile) {
        const double level = (tile + 0.5) / 4;
        const Bitmap result = lookOf("VE_Meta_Image", settings, pictureOf(16, 4, [&](int, int) {
                                         return Straight{level, level, level};
                                     }));
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 16; ++x)
                EXPECT_EQ(result.pixel(x, y)[0] > level, isBright(tile, x % 4, y))
                    << "tile " << tile << " at " << x << ", " << y;
    }
}

TEST(Mosaics, CopiesShowTheWholePicture) {
    const Bitmap source = pictureOf(kMosaicWidth, kMosaicHeight, [](int x, int y) {
        return Straight{x < kMosaicWidth / 2 ? 0.8 : 0.2, y < kMosaicHeight / 2 ? 0.8 : 0.2, 0.5};
    });
    // Eight by eight copies of thirty by twenty pixels, in colours of their own.
    const Bitmap result =
        lookOf("VE_Meta_Image2", inputs({{"Mixer", 1}, {"ColorMix", 1}, {"Divisor", 30}}), source);
    for (const int x : {5, 25, 125, 145})
        for (const int y : {4, 16, 84, 96}) {
            EXPECT_NEAR(result.pixel(x, y)[0], x % 30 < 15 ? 0.8 : 0.2, 0.02) << x << ", " << y;
            EXPECT_NEAR(result.pixel(x, y)[1], y % 20 < 10 ? 0.8 : 0.2, 0.02) << x << ", " << y;
        }
}

TEST(Mosaics, LinesAndBlocksAreAsWideAsTheyAreBright) {
    for (const double level : {0.2, 0.5, 0.9}) {
        const Bitmap source = pictureOf(80, 80, [&](int, int) {
            return Straight{level, level * 0.5, 0};
        });
        // Two rows of forty pixels; the gap leaves 36 of them.
        const Settings settings =
            inputs({{"Mixer", 1}, {"Divisions", 2}, {"Gap", 4}, {"Scale", 16}});
        const Bitmap lines = lookOf("VELumaLines", settings, source);
        const Bitmap blocks = lookOf("VELumaLines", with(settings, "Mode", 1), source);
        double across = 0, up = 0, area = 0;
        for (int i = 0; i < 80; ++i) up += lines.pixel(7, i)[0] / 2;
        blocks.forEach([&](int x, int y) { area += blocks.pixel(x, y)[0] / 4; });
        for (int i = 20; i < 60; ++i) across += blocks.pixel(i, 60)[0];
        EXPECT_NEAR(up, std::min(level * 40, 36.0), 0.01) << level;
        EXPECT_NEAR(across, std::min(std::sqrt(level) * 40, 36.0), 0.01) << level;
        EXPECT_NEAR(area, across * across, 0.1) << level;
        EXPECT_NEAR(lines.pixel(7, 20)[0], 1, 1e-5) << "in full brightness";
        EXPECT_NEAR(lines.pixel(7, 20)[1], 0.5, 1e-5) << "in its own hue";
    }
}

TEST(Mosaics, CushionsAreRoundAndTheirSeamsTransparent) {
    const Bitmap source = pictureOf(120, 120, [](int, int) { return Straight{0.4, 0.3, 0.2}; });
    const Settings settings =
        inputs({{"Mixer", 1}, {"MixerMult", 1}, {"Brightness", 3}, {"Size", 1}});
    const Bitmap shaded = lookOf("VEPillowBlocks", settings, source);
    const Bitmap cut = lookOf("VEPillowBlocks", with(settings, "Mode", 255), source);
    // The block in the middle, from 40 to 80; light comes from the upper left.
    EXPECT_GT(shaded.pixel(50, 70)[0], 1.2 * shaded.pixel(70, 50)[0]);
    EXPECT_GT(shaded.pixel(60, 60)[0], 3 * shaded.pixel(60, 40)[0]);
    EXPECT_GT(cut.pixel(60, 60)[3], 0.99);
    EXPECT_LT(cut.pixel(40, 60)[3], 0.5);
    cut.forEach([&](int x, int y) {
        const Pixel p = cut.pixel(x, y);
        ASSERT_NEAR(p[0], 0.4 * p[3], 1e-5);
        ASSERT_NEAR(p[3], cut.pixel(y, x)[3], 1e-5) << "as wide as high";
    });
    // At size 34 a block is twice as large.
    const Bitmap large =
        lookOf("VEPillowBlocks", with(with(settings, "Mode", 1), "Size", 34.333333), source);
    EXPECT_GT(large.pixel(40, 60)[3], 0.9);
}

} // namespace
