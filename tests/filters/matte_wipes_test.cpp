// From one picture to another in the order of a third.
#include "starts.h"
#include "tables.h"

namespace {

TEST(WipesByAMatte, SayThatThereIsNoneInEachFrame) {
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    for (const std::string name : {"VEXFCustomWipe", "VEXFFromLayer"}) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        setStarts(*filter);
        filter->setValueForKey(frame(8, 6), "inputImage");
        filter->setValueForKey(secondFrame(), "inputTargetImage");
        const std::string line = "### " + name + " - no wipe image!\n";
        testing::internal::CaptureStdout();
        EXPECT_EQ(filter->outputImage().extent(), frame(8, 6).extent());
        filter->outputImage();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
    }
}

CIImage plane(double grey, double width, double height) {
    return CIImage::imageWithColor(CIColor(grey, grey, grey))
        .imageByCroppingToRect({0, 0, width, height});
}

/// What has come in of white over black, along a row of a wipe with a hard edge.
std::vector<double> rowOf(double time, const Bitmap& matte, int row, CIContext& context) {
    const double width = matte.width(), height = matte.height();
    const CIImage image =
        filtered("VEXFCustomWipe", plane(0, width, height),
                 byMatte(matte.image(), {{"inputTargetImage", plane(1, width, height)},
                                         {"inputFadeStatus", Number(time)}}));
    const Bitmap result = render(context, image, {0, double(row), width, 1}, CIFormat::RGBAf);
    std::vector<double> shares;
    for (int x = 0; x < matte.width(); ++x) shares.push_back(result.pixel(x, 0)[1]);
    return shares;
}

/// A gradient in steps of 8 bits, each eight pixels wide, with black and white on its sides.
TEST(WipesByAMatte, MoveEvenlyThroughTheStepsOfEightBits) {
    constexpr int kSteps = 40, kStep = 8, kSide = 20;
    Bitmap matte(kSteps * kStep + 2 * kSide, 40, CIFormat::RGBA8);
    matte.forEach([&](int x, int y) {
        const int step = (x - kSide) / kStep;
        const double v = x < kSide ? 0 : step >= kSteps ? 1 : (100 + step) / 255.0;
        matte.set(x, y, {v, v, v, 1});
    });
    for (CIContext* context : everyContext()) {
        double before = 0;
        for (int i = 0; i <= 40; ++i) {
            const double time = (110 + i * 0.25) / 255;
            const std::vector<double> shares = rowOf(time, matte, 20, *context);
            double in = 0;
            for (const double share : shares) in += share;
            // A quarter of a step at a time, and never more than half of the picture's contrast
            // from one pixel to the next.
            if (i > 0) {
                EXPECT_NEAR(in - before, 2, 0.9) << time << ", " << nameOf(*context);
            }
            before = in;
            for (size_t x = kSide + 1; x < shares.size() - kSide; ++x)
                EXPECT_LT(std::fabs(shares[x] - shares[x - 1]), 0.5)
                    << time << " at " << x << ", " << nameOf(*context);
        }
        // Black has come in as soon as the first step begins, white not before the last has ended.
        for (const double time : {0.01, 0.5, 0.99}) {
            const std::vector<double> shares = rowOf(time, matte, 20, *context);
            EXPECT_EQ(shares.front(), 1) << time;
            EXPECT_EQ(shares.back(), 0) << time;
        }
    }
}

TEST(WipesByAMatte, DrawAnEdgeOfAPixelAndAHalf) {
    const Bitmap matte = pictureOf(60, 30, [](int x, int y) {
        const double v = leaningEdge(x, y, 0);
        return Straight{v, v, v};
    });
    for (CIContext* context : everyContext())
        for (int row = 3; row < 27; ++row) {
            const std::vector<double> shares = rowOf(0.5, matte, row, *context);
            double in = 0, partly = 0;
            for (const double share : shares) {
                in += share;
                partly += share > 0 && share < 1;
            }
            EXPECT_NEAR(in, 16 + row / 3.0 + 3, 0.1) << row << ", " << nameOf(*context);
            EXPECT_GE(partly, 1) << row;
            EXPECT_LE(partly, 3) << row;
        }
}

/// In a context of linear light a matte is still read as stored, a layer is not.
TEST(WipesByAMatte, ReadTheirMatteAsStored) {
    const Bitmap grey = pictureOf(8, 8, [](int, int) { return Straight{0.5, 0.5, 0.5}; });
    const Settings settings =
        byMatte(grey.image({}, CGColorSpace::SRGB),
                {{"inputTargetImage", plane(1, 8, 8)}, {"inputFadeStatus", Number(0.42)}});
    for (const DeviceKind device : {DeviceKind::Reference, DeviceKind::CPU}) {
        CIContext linear({.device = device, .workingSpace = CGColorSpace::LinearSRGB});
        const auto shareOf = [&](const char* name, int mode) {
            const CIImage image = filtered(name, plane(0, 8, 8), with(settings, "Mode", mode));
            return render(linear, image, {4, 4, 1, 1}, CIFormat::RGBAf).pixel(0, 0)[1];
        };
        EXPECT_NEAR(shareOf("VEXFCustomWipe", 1), smooth((0.42 * 1.25 - 0.5) / 0.25), 1e-3);
        EXPECT_NEAR(shareOf("VEXFFromLayer", 0), smooth((0.42 * 1.5 - 0.2140411) / 0.5), 1e-3);
    }
}

} // namespace
