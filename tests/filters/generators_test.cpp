// Pictures out of nothing: noise and clouds.
#include "tables.h"

namespace {

INSTANTIATE_TEST_SUITE_P(
    Generators, Advertised,
    testing::Values(
        AdvertisedCase{"VE_NoiseGenerator",
                       "Mode \"mode\" to 5, Scale \"scale\" default 0.5, "
                       "Speed \"speed\" min 0.0001 from 0.0001 to 4 default 1, "
                       "4 \"density/scroll x\" default 0.5, 5 \"scroll y\" default 0.5"},
        AdvertisedCase{"VE_CloudGenerator",
                       "Scale \"scale\" to 255, Speed \"speed\", Cover \"cover\" to 255, "
                       "Alpha \"alpha\" to 255, Brightness \"brightness\" to 255"}),
    kByFilter);

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
    kByTitle);

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

} // namespace
