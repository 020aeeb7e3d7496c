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
                    AdvertisedCase{"VEPillowBlocks",
                                   "Mixer \"mixer\" default 1, "
                                   "MixerMult \"mixerMultiplier\" min 1 from 1 to 10 default 1, "
                                   "Brightness \"divisions\" min 1 from 1 to 60 default 20, "
                                   "Size \"size\" min 1 from 1 to 300 default 1, "
                                   "Mode \"mode\" to 255"},
                    AdvertisedCase{"VE_Meta_Image",
                                   "Mixer \"mixer\" default 1, "
                                   "Scale \"Scale\" min 1 from 1 to 100, "
                                   "Desaturate \"Saturation\", "
                                   "Size \"Steps\" min 1 from 1 to 50, "
                                   "Width \"Width\" min 1 from 1 to 800, "
                                   "Height \"Height\" min 1 from 1 to 800"},
                    AdvertisedCase{"VE_Meta_Image2",
                                   "Mixer \"mixer\" default 1, "
                                   "ColorMix \"color mix\" min 1 from 1 to 100, "
                                   "Divisor \"tile size\" min 1 from 1 to 100"}),
    kByFilter);

const Settings kOfTiles{{"inputMetaImage", secondFrame()},  {"inputDesaturate", Number(0.5)},
                        {"inputWidth", Number(16)},         {"inputHeight", Number(20)},
                        {"inputSize", Number(8)}};

INSTANTIATE_TEST_SUITE_P(
    Stylize, Graphs,
    testing::Values(
        GraphCase{"Lights", "VELiteBrite", inputs({{"Mixer", 0.5}, {"Divisions", 80}, {"Size", 90}}),
                  "VE_LiteBrite_ledWall(source, 0.5, (24 24), 10.8) [89.2 90.2 71.6 72.6]"},
        GraphCase{"OneLight", "VELiteBrite", inputs({{"Mixer", 1}, {"Divisions", 1}, {"Size", 90}}),
                  "VE_LiteBrite_ledWall(source, 1, (1000 1000), 450) [-350 -349 950 951]",
                  frame(1000, 500)},
        GraphCase{"Cushions", "VEPillowBlocks",
                  inputs({{"Mixer", 1},
                          {"MixerMult", 2},
                          {"Size", 30},
                          {"Brightness", 10},
                          {"Mode", 0}}),
                  "VE_PillowBlocks_pillowblocks(source, 1, 2, 30, 10) own"},
        GraphCase{"CushionsInAlpha", "VEPillowBlocks",
                  inputs({{"Mixer", 1},
                          {"MixerMult", 2},
                          {"Size", 30},
                          {"Brightness", 10},
                          {"Mode", 200}}),
                  "VE_PillowBlocks_pillowblocksAlpha(source, 1, 2, 30, 10) own"},
        GraphCase{"TilesOfAnother", "VE_Meta_Image",
                  with(with(kOfTiles, "Mixer", 0.001), "Scale", 30),
                  "VE_Meta_Image_metaImageOne(source, target, 0.001, 30, 0.5, 16, 20, 8) "
                  "[0 0 1920 1080] [0 0 640 480]"},
        GraphCase{"TilesMixedOut", "VE_Meta_Image",
                  with(with(kOfTiles, "Mixer", 0), "Scale", 30),
                  "VE_Meta_Image_metaImageOne(source, target, 0, 1, 0.5, 16, 20, 8) "
                  "[0 0 1920 1080] [0 0 640 480]"},
        GraphCase{"TilesOfTheLimit", "VE_Meta_Image", with(kOfTiles, "Mixer", 1),
                  "VE_Meta_Image_metaImageOne(source, target, 1, 0, 0.5, 16, 20, 8) "
                  "[0 0 5760 3240] [0 0 640 480]",
                  frame(5760, 3240)},
        GraphCase{"TilesBeyondTheLimit", "VE_Meta_Image", with(kOfTiles, "Mixer", 1),
                  "error FX 176", frame(5761, 3240)},
        GraphCase{"TilesFromTooLargeAPicture", "VE_Meta_Image",
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

} // namespace
