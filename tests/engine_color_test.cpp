// Working in linear light: what converts, what is left as it is, and that the arithmetic in between
// is that of light. With no working space everything is worked on as stored.
#include "support.h"

namespace {

/// IEC 61966-2-1.
double decoded(double v) {
    return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
double encoded(double v) {
    return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

/// A curve on the straight colour.
Pixel onStraight(Pixel p, double (*curve)(double)) {
    for (size_t c = 0; c < 3; ++c) p[c] = p[3] > 0 ? curve(p[c] / p[3]) * p[3] : 0;
    return p;
}

constexpr CGRect kBounds{0, 0, 64, 24};

class LinearLight : public testing::Test {
protected:
    LinearLight() {
        for (const DeviceKind device : {DeviceKind::Reference, DeviceKind::CPU})
            contexts_.push_back(std::make_unique<CIContext>(ContextOptions{
                .device = device, .threads = 1, .workingSpace = CGColorSpace::LinearSRGB}));
    }

    Bitmap noise(uint32_t seed, CIFormat format = CIFormat::RGBA8) {
        Random random(seed);
        return randomBitmap(random, 64, 24, format);
    }

    template <class Expected>
    void expectAll(const CIImage& image, const Expected& expected, Tolerance tolerance,
                   CIFormat format, CGColorSpace space) {
        for (const auto& context : contexts_)
            EXPECT_TRUE(
                isClose(render(*context, image, kBounds, format, 0, space), expected, tolerance))
                << nameOf(*context);
    }

    std::vector<std::unique_ptr<CIContext>> contexts_;
};

TEST_F(LinearLight, ATaggedImageComesBackAsItWas) {
    const Bitmap source = noise(1);
    const CIImage image = source.image({}, CGColorSpace::SRGB);
    expectAll(image, source, {}, CIFormat::RGBA8, CGColorSpace::SRGB);
    // Through a kernel, and so through linear light and back.
    const CIImage same =
        pictureKernel("blend").applyWithExtent(image.extent(), {image, image, 1.0});
    expectAll(same, source, {1 / 255.0}, CIFormat::RGBA8, CGColorSpace::SRGB);
}

TEST_F(LinearLight, AMixIsOneOfLight) {
    const Bitmap first = noise(2), second = noise(3, CIFormat::RGBAf);
    const CIImage mix = pictureKernel("blend").applyWithExtent(
        kBounds, {first.image({}, CGColorSpace::SRGB), second.image({}, CGColorSpace::SRGB), 0.5});
    const auto linear = [&](int x, int y) {
        const Pixel a = onStraight(first.pixel(x, y), decoded);
        const Pixel b = onStraight(second.pixel(x, y), decoded);
        Pixel mean;
        for (size_t c = 0; c < 4; ++c) mean[c] = (a[c] + b[c]) / 2;
        return mean;
    };
    expectAll(mix, linear, {5e-6}, CIFormat::RGBAf, CGColorSpace::LinearSRGB);
    expectAll(mix, linear, {5e-6}, CIFormat::RGBAf, CGColorSpace::None);
    const auto shown = [&](int x, int y) { return onStraight(linear(x, y), encoded); };
    expectAll(mix, shown, {1e-5}, CIFormat::RGBAf, CGColorSpace::SRGB);
    expectAll(mix, shown, {1 / 255.0}, CIFormat::RGBA8, CGColorSpace::SRGB);
}

TEST_F(LinearLight, LinearReadsBlendLight) {
    const Bitmap source = noise(4);
    const CIImage moved = pictureKernel("readAt").applyWithExtent(
        kBounds, RegionOfInterest::grownBy(1),
        {source.image({}, CGColorSpace::SRGB), CIVector(0.5, 0)});
    const auto expected = [&](int x, int y) {
        const Pixel a = onStraight(source.pixel(x, y), decoded);
        const Pixel b = x + 1 < 64 ? onStraight(source.pixel(x + 1, y), decoded) : Pixel{};
        Pixel mean;
        for (size_t c = 0; c < 4; ++c) mean[c] = (a[c] + b[c]) / 2;
        return mean;
    };
    expectAll(moved, expected, {5e-6}, CIFormat::RGBAf, CGColorSpace::LinearSRGB);
}

TEST_F(LinearLight, UntaggedAndLinearImagesAreLeftAsTheyAre) {
    const Bitmap source = noise(5);
    for (const CGColorSpace space : {CGColorSpace::None, CGColorSpace::LinearSRGB}) {
        expectAll(source.image({}, space), source, {}, CIFormat::RGBA8, CGColorSpace::None);
        expectAll(source.image({}, space), source, {}, CIFormat::RGBA8, CGColorSpace::LinearSRGB);
    }
}

TEST_F(LinearLight, ASamplerMayAskForAnotherSpace) {
    const Bitmap source = noise(6);
    const CISampler asStored(source.image({}, CGColorSpace::SRGB),
                             {.colorSpace = CGColorSpace::SRGB});
    const CIImage copy =
        pictureKernel("rotateChannels")
            .applyWithExtent(kBounds, RegionOfInterest::identity(), {asStored, 1.0});
    const auto rotated = [&](int x, int y) {
        const Pixel p = source.pixel(x, y);
        return Pixel{p[2], p[0], p[1], p[3]};
    };
    expectAll(copy, rotated, {}, CIFormat::RGBA8, CGColorSpace::None);
    // Linear values, encoded because the sampler asks for that.
    const CISampler encodedSampler(source.image(), {.colorSpace = CGColorSpace::SRGB});
    const CIImage made =
        pictureKernel("rotateChannels")
            .applyWithExtent(kBounds, RegionOfInterest::identity(), {encodedSampler, 1.0});
    const auto expected = [&](int x, int y) {
        const Pixel p = onStraight(source.pixel(x, y), encoded);
        return Pixel{p[2], p[0], p[1], p[3]};
    };
    expectAll(made, expected, {1 / 255.0}, CIFormat::RGBA8, CGColorSpace::None);
}

TEST_F(LinearLight, AColourIsOneOfSRGB) {
    const CIImage color = CIImage::imageWithColor(CIColor(0.5, 0.25, 1, 0.5));
    const Pixel stored{0.25, 0.125, 0.5, 0.5};
    expectAll(
        color, [&](int, int) { return stored; }, {}, CIFormat::RGBAf, CGColorSpace::SRGB);
    expectAll(
        color, [&](int, int) { return onStraight(stored, decoded); }, {1e-6}, CIFormat::RGBAf,
        CGColorSpace::LinearSRGB);
}

TEST(WorkingSpaces, NoneLeavesEveryTagAlone) {
    Random random(7);
    const Bitmap source = randomBitmap(random, 64, 24, CIFormat::RGBA8);
    for (CIContext* context : everyContext())
        for (const CGColorSpace tag :
             {CGColorSpace::None, CGColorSpace::SRGB, CGColorSpace::LinearSRGB})
            for (const CGColorSpace output :
                 {CGColorSpace::None, CGColorSpace::SRGB, CGColorSpace::LinearSRGB})
                EXPECT_TRUE(isClose(
                    render(*context, source.image({}, tag), kBounds, CIFormat::RGBA8, 0, output),
                    source, {}))
                    << nameOf(*context);
}

TEST(WorkingSpaces, SRGBWorksOnEncodedValuesAndConvertsOthers) {
    Random random(8);
    const Bitmap source = randomBitmap(random, 64, 24, CIFormat::RGBA8);
    for (const DeviceKind device : {DeviceKind::Reference, DeviceKind::CPU}) {
        CIContext context({.device = device, .threads = 1, .workingSpace = CGColorSpace::SRGB});
        const auto copyOf = [&](CGColorSpace tag, CGColorSpace output) {
            const CIImage image = source.image({}, tag);
            return render(context,
                          pictureKernel("blend").applyWithExtent(kBounds, {image, image, 1.0}),
                          kBounds, CIFormat::RGBA8, 0, output);
        };
        EXPECT_TRUE(isClose(copyOf(CGColorSpace::SRGB, CGColorSpace::SRGB), source, {}));
        EXPECT_TRUE(isClose(copyOf(CGColorSpace::SRGB, CGColorSpace::None), source, {}));
        EXPECT_TRUE(isClose(copyOf(CGColorSpace::None, CGColorSpace::SRGB), source, {}));
        const auto brighter = [&](int x, int y) { return onStraight(source.pixel(x, y), encoded); };
        EXPECT_TRUE(
            isClose(copyOf(CGColorSpace::LinearSRGB, CGColorSpace::None), brighter, {1 / 255.0}));
        const auto darker = [&](int x, int y) { return onStraight(source.pixel(x, y), decoded); };
        EXPECT_TRUE(
            isClose(copyOf(CGColorSpace::SRGB, CGColorSpace::LinearSRGB), darker, {1 / 255.0}));
    }
}

} // namespace
