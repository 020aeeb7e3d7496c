// The timecode on the picture.
#include "tables.h"

#include "vorneffects/ImageDescription.h"

#include <set>

namespace {

CIFilterRef timecode(Session& session, const Settings& settings, double nanoseconds) {
    filtered("VEDummy", frame(1, 1), {});
    const CIFilterRef filter = session.filterWithName("VE_TimecodeBurnin");
    filter->setDefaults();
    filter->setValueForKey(Number(nanoseconds), "inputTimecode");
    for (const auto& [key, value] : settings) filter->setValueForKey(value, key);
    return filter;
}
Bitmap rendered(CIFilter& filter, const Bitmap& source) {
    filter.setValueForKey(source.image(), "inputImage");
    return render(*cpuContexts().front(), filter.outputImage(),
                  {0, 0, double(source.width()), double(source.height())});
}

TEST(Timecode, IsTheTextOfItsTimeInABox) {
    constexpr int kW = 801, kH = 203;
    struct Case {
        double time;
        const char* text;
        double size, x, y;
    };
    for (const Case& test : {Case{0, "00:00:00:00", 0, 0, 0},
                             {3723500000000, "01:02:03:15", 255, 255, 255},
                             {999999995, "00:00:00:30", 80, 100, 30},
                             {400000e9, "111:06:40:00", 80, 80, 80},
                             {-1e9, "351909:41:28:21", 0, 0, 255}}) {
        SCOPED_TRACE(test.text);
        const auto session = Session::make();
        const CIFilterRef filter =
            timecode(*session, inputs({{"1", 255}, {"2", test.size}, {"3", test.x}, {"4", test.y}}),
                     test.time);
        // A transparent source shows the buffer.
        const Bitmap shown = rendered(*filter, Bitmap(kW, kH));

        const double k = test.size / 255 * 4 + 1;
        const CGRect box{test.x / 255 * (kW - std::floor(k * 150)),
                         test.y / 255 * (kH - std::floor(k * 26)), std::floor(k * 150),
                         std::floor(k * 26)};
        Bitmap expected(kW, kH, CIFormat::RGBA8);
        const CGContextRef context = BitmapContext::create(
            expected.bytes(), kW, kH, expected.bytesPerRow(), kCIFormatRGBA8, CGColorSpace::SRGB);
        context->setFillColor(0.25, 0.25, 0.25, 0.75);
        context->fillRect(box);
        context->setFillColor(1, 1, 1, 1);
        context->drawText({box.x + k * 9, box.y + k * 5}, test.text, "Menlo", k * 20);
        context->flush();
        // Places that are computed in single precision shift an edge by a step or two.
        EXPECT_TRUE(isClose(shown, expected, {3.01 / 255}));
    }
}

TEST(Timecode, DigitsKeepStill) {
    uint8_t pixel[4];
    const CGContextRef ruler =
        BitmapContext::create(pixel, 1, 1, 4, kCIFormatRGBA8, CGColorSpace::SRGB);
    for (const char* font : {"Menlo", "Helvetica"})
        for (const double size : {20.0, 45.0980392, 100.0})
            for (int digit = 1; digit < 10; ++digit)
                EXPECT_EQ(
                    ruler->textWidth(std::string(5, static_cast<char>('0' + digit)), font, size),
                    ruler->textWidth("00000", font, size))
                    << font << " " << digit;
}

TEST(Timecode, LeavesNothingBehindInTheBufferOfTheFirstSize) {
    const auto session = Session::make(), fresh = Session::make();
    const Bitmap first(400, 300), second(500, 200);
    const Settings lower = inputs({{"1", 255}, {"2", 255}, {"3", 10}, {"4", 20}}),
                   upper = inputs({{"1", 255}, {"2", 0}, {"3", 200}, {"4", 90}});
    rendered(*timecode(*fresh, upper, 0), first);
    const Bitmap expected = rendered(*timecode(*fresh, upper, 7e9), second);
    rendered(*timecode(*session, lower, 0), first);
    EXPECT_TRUE(rendered(*timecode(*session, upper, 7e9), second) == expected);
    // Without any text the source is what it was.
    Random random(5);
    const Bitmap source = randomBitmap(random, 90, 60, CIFormat::RGBA8);
    EXPECT_TRUE(isClose(rendered(*timecode(*session, inputs({{"1", 0}}), 0), source), source, {0}));
}

TEST(Timecode, IsNeverReadWhileItIsDrawn) {
    const auto session = Session::make();
    const Bitmap source(300, 60);
    const Settings settings = inputs({{"1", 255}, {"2", 60}, {"3", 0}, {"4", 0}});
    const CIFilterRef filters[] = {timecode(*session, settings, 0),
                                   timecode(*session, settings, 80'000e9)};
    const Bitmap whole[] = {rendered(*filters[0], source), rendered(*filters[1], source)};
    ASSERT_FALSE(whole[0] == whole[1]);
    // Each may show what the other has drawn last, and never a part of it.
    std::vector<std::thread> threads;
    for (const CIFilterRef& filter : filters)
        threads.emplace_back([&, filter] {
            CIContext context({.device = DeviceKind::CPU, .threads = 1});
            for (int i = 0; i < 60; ++i) {
                Bitmap shown(300, 60);
                ASSERT_TRUE(context.render(filter->outputImage(), shown.bytes(),
                                           shown.bytesPerRow(), {0, 0, 300, 60}, CIFormat::RGBA8));
                ASSERT_TRUE(shown == whole[0] || shown == whole[1]) << i;
            }
        });
    for (std::thread& thread : threads) thread.join();
}

TEST(Timecode, ShowsThatThereIsNoBuffer) {
    const auto session = Session::make();
    const CIFilterRef filter = timecode(*session, inputs({{"1", 255}, {"2", 0}}), 0);
    filter->setValueForKey(frame(140000, 90), "inputImage");
    const Bitmap shown = render(*cpuContexts().front(), filter->outputImage(), {0, 0, 300, 90});
    EXPECT_LT(differenceOf(shown.pixel(60, 60), {0.6, 0.2, 0.8, 1}), 2 / 255.0);
    EXPECT_LT(differenceOf(shown.pixel(40, 60), {0.2, 0.4, 0.6, 1}), 2 / 255.0);
    EXPECT_LT(differenceOf(shown.pixel(60, 80), {0.2, 0.4, 0.6, 1}), 2 / 255.0);
}

} // namespace
