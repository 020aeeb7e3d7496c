// Whole reads of the kernel language, and reads that pixels share.
#include "builtin/builtin_support.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace {

using namespace builtin_test;

TEST(WholeReads, AreThePixelsAtEvenDistances) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(41, 37, 29, -5, 3, format);
        const int cases[][4] = {
            {1, 1, 0, 0}, {1, 1, -3, 4}, {1, 2, 5, 0}, {2, 1, -1, -1}, {4, 4, 2, 3}};
        for (const auto& [sx, sy, x, y] : cases)
            expectEverywhere(
                testKernel("WholeReads", "strided")
                    .applyWithExtent({-20, -20, 60, 60}, RegionOfInterest::whole(source.image()),
                                     {source.image(), sx, sy, x, y}),
                {-20, -20, 60, 60},
                [&, sx = sx, sy = sy, x = x, y = y](int px, int py) {
                    return source.at(px * sx + x, py * sy + y);
                },
                1e-6);
        expectEverywhere(
            testKernel("WholeReads", "sumInRow")
                .applyWithExtent({-20, -20, 60, 60}, RegionOfInterest::grownBy(5),
                                 {source.image(), 5}),
            {-20, -20, 60, 60},
            [&](int px, int py) {
                Pixel sum{};
                for (int i = 0; i < 5; ++i)
                    for (size_t c = 0; c < 4; ++c) sum[c] += source.at(px + i, py - i)[c] / 5;
                return sum;
            },
            1e-5);
    }
}

TEST(WholeReads, AddUpBlocks) {
    const int cases[][4] = {
        {1, 1, 0, 0}, {2, 1, -3, 4}, {3, 5, -40, -9}, {20, 17, 1, 2}, {64, 64, -70, -60}};
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(48, 71, 39, -5, 3, format);
        for (const auto& [across, up, x, y] : cases)
            for (const CIFormat target : {CIFormat::RGBAf, format})
                expectEverywhere(
                    testKernel("WholeReads", "summed")
                        .applyWithExtent({-20, -20, 60, 60},
                                         RegionOfInterest::whole(source.image()),
                                         {source.image(), across, up, x, y,
                                          static_cast<float>(1.0 / (across * up))}),
                    {-20, -20, 60, 60},
                    [&, across = across, up = up, x = x, y = y](int px, int py) {
                        Pixel sum{};
                        for (int i = 0; i < across * up; ++i) {
                            const Pixel p =
                                source.at(px * across + x + i % across, py * up + y + i / across);
                            for (size_t c = 0; c < 4; ++c) sum[c] += p[c] / (across * up);
                        }
                        return sum;
                    },
                    target == CIFormat::RGBAf ? 1e-4 : 0.51 / 255, target);
    }
}

// Means of blocks from the lower left corner on; those at the other ends have fewer pixels.
TEST(WholeReads, AddUpLinesByWeights) {
    struct Line {
        int x, y, reach;
    };
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(48, 71, 19, -5, 3, format);
        for (const auto& [x, y, reach] : {Line{1, 0, 3}, Line{0, 1, 16}, Line{1, 0, 16},
                                          Line{0, 1, 0}, Line{-1, 2, 2}, Line{1, 0, 17}}) {
            const double weights[] = {0.25, 0.125, 0.75, 0.5};
            expectEverywhere(
                testKernel("WholeReads", "bell")
                    .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::grownBy(2 * reach),
                                     {source.image(), x, y, reach,
                                      CIVector(weights[0], weights[1], weights[2], weights[3])}),
                {-30, -20, 120, 60},
                [&, x = x, y = y, reach = reach](int px, int py) {
                    Pixel sum{};
                    double weight = weights[0], next = weights[1], fall = weights[2];
                    for (int i = 0; i <= reach; ++i) {
                        const Pixel a = source.at(px + i * x, py + i * y),
                                    b = source.at(px - i * x, py - i * y);
                        for (size_t c = 0; c < 4; ++c)
                            sum[c] += weight * (i == 0 ? a[c] : a[c] + b[c]);
                        weight = next;
                        next *= fall;
                        fall *= weights[3];
                    }
                    return sum;
                },
                2e-5);
        }
    }
}

TEST(WholeReads, ReduceImages) {
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAf})
        for (const auto& [across, up] : {std::pair{1, 1}, {4, 3}, {1, 7}, {500, 2}}) {
            const Placed source = noise(49, 37, 29, -5, 3, format);
            const CISampler sampler(source.image(), {.filter = SamplerFilter::Nearest});
            expectEverywhere(
                testKernel("WholeReads", "blocks")
                    .applyWithExtent(sampler.extent(), RegionOfInterest::identity(), {sampler})
                    .imageWithReduction(across, up),
                sampler.extent(),
                [&, across = std::min(across, 37), up = up](int x, int y) {
                    const int left = (x + 5) / across * across - 5, low = (y - 3) / up * up + 3;
                    const int columns = std::min(across, 32 - left), rows = std::min(up, 32 - low);
                    Pixel mean{};
                    for (int i = 0; i < columns * rows; ++i) {
                        const Pixel p = source.at(left + i % columns, low + i / columns);
                        for (size_t c = 0; c < 4; ++c) mean[c] += p[c] / (columns * rows);
                    }
                    return mean;
                },
                1e-4);
        }
}

TEST(WholeReads, AtTheOwnPlaceAndBesideAreTransparentOutside) {
    const Placed source = noise(43, 37, 29, -5, 3);
    expectEverywhere(
        testKernel("WholeReads", "hereAndBeside")
            .applyWithExtent({-200, -20, 400, 60}, RegionOfInterest::grownBy(5),
                             {source.image(), CIVector(3, -2)}),
        {-200, -20, 400, 60},
        [&](int px, int py) {
            Pixel sum = source.at(px, py);
            for (size_t c = 0; c < 4; ++c)
                sum[c] = 0.75 * sum[c] + 0.25 * source.at(px + 3, py - 2)[c];
            return sum;
        },
        1e-6);
}

TEST(WholeReads, MirrorAboutAnyAxis) {
    // Axes on pixels, between pixels and, last, between both; halves shown twice, with groups of
    // pixels on either side of the axis and across it.
    const CGPoint sums[] = {{63, 10}, {20, 33}, {-7, 0}, {40.5, 9.25}};
    const auto folded = [](double here, double sum, int mirroring) {
        const double there = sum - here;
        return mirroring == 0   ? here
               : mirroring == 1 ? there
               : mirroring == 2 ? std::min(here, there)
                                : std::max(here, there);
    };
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::ARGB8, CIFormat::RGBAh}) {
        const Placed source = noise(44, 71, 19, -5, 3, format);
        for (const CGPoint& sum : sums)
            for (int modes = 0; modes < 32; ++modes) {
                const int across = modes % 4, up = modes / 4 % 4;
                // The same bytes at the other end, or single precision.
                const bool isBlended = sum.x != std::floor(sum.x);
                const CIFormat target = modes < 16 || isBlended ? CIFormat::RGBAf : format;
                expectEverywhere(
                    testKernel("WholeReads", "mirrored")
                        .applyWithExtent({-30, -20, 120, 60},
                                         RegionOfInterest::whole(source.image()),
                                         {source.image(), CIVector(sum.x, sum.y), across, up}),
                    {-30, -20, 120, 60},
                    [&](int x, int y) {
                        return source.bilinear(folded(x + 0.5, sum.x, across),
                                               folded(y + 0.5, sum.y, up));
                    },
                    isBlended ? 1e-4 : 1e-6, target);
            }
    }
}

TEST(WholeReads, MoveByAnyOffset) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(47, 71, 19, -5, 3, format);
        for (const CGPoint& by : {CGPoint{0, 0}, CGPoint{7.25, -3.5}, CGPoint{-40.875, 2},
                                  CGPoint{900, 0}, CGPoint{-1e30, 1e30}})
            for (const SamplerFilter filter : {SamplerFilter::Linear, SamplerFilter::Nearest}) {
                const CISampler sampler(source.image(), {.filter = filter});
                expectEverywhere(
                    testKernel("WholeReads", "moved")
                        .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::whole(sampler),
                                         {sampler, CIVector(by.x, by.y)}),
                    {-30, -20, 120, 60},
                    [&](int x, int y) {
                        if (std::fabs(by.x) > 1e9) return Pixel{};
                        const double u = x + 0.5 + by.x, v = y + 0.5 + by.y;
                        return filter == SamplerFilter::Linear
                                   ? source.bilinear(u, v)
                                   : source.at(static_cast<int>(std::floor(u)),
                                               static_cast<int>(std::floor(v)));
                    },
                    1e-4);
            }
    }
}

// Bytes that a kernel hands on, in every order of the channels and with ends of rows that fill no
// group.
TEST(WholeReads, HandOnWhatIsLeftAsItIs) {
    for (const CIFormat format : kAllFormats)
        for (const CIFormat target : kAllFormats)
            for (const char* name : {"disc", "discOverMoved"}) {
                const Placed source = noise(46, 93, 41, -5, 3, format);
                const bool moves = name == std::string("discOverMoved");
                expectEverywhere(
                    testKernel("WholeReads", name)
                        .applyWithExtent({-30, -20, 161, 80}, RegionOfInterest::grownBy(5),
                                         {source.image(), CIVector(48, 30), 33.3f}),
                    {-30, -20, 161, 80},
                    [&](int x, int y) {
                        const double distance = std::hypot(x + 0.5 - 48, y + 0.5 - 30);
                        const Pixel here = source.at(x, y);
                        return distance < 33.3   ? here
                               : distance > 42.3 ? Pixel{}
                               : moves           ? source.at(x + 3, y - 2)
                                                 : Pixel{here[2], here[1], here[0], here[3]};
                    },
                    isEightBit(target) && !isEightBit(format) ? 0.51 / 255
                    : target == CIFormat::RGBAh               ? 1e-3
                                                              : 1e-6,
                    target);
            }
}

TEST(SharedReads, AreThoseOfEachPixel) {
    for (const CIFormat format : kAllFormats) {
        const Placed source = noise(45, 71, 19, -5, 3, format);
        for (const double size : {2.5, 7.0, 33.3})
            expectEverywhere(
                testKernel("WholeReads", "mosaic")
                    .applyWithExtent({-30, -20, 120, 60}, RegionOfInterest::whole(source.image()),
                                     {source.image(), static_cast<float>(size)}),
                {-30, -20, 120, 60},
                [&](int x, int y) {
                    const double u = (std::floor((x + 0.5) / size) + 0.5) * size;
                    const double v = (std::floor((y + 0.5) / size) + 0.5) * size;
                    const Pixel a = source.bilinear(u, v), b = source.bilinear(u + 1.25, v),
                                c = source.bilinear(u, v - 2.5);
                    Pixel sum{};
                    for (size_t i = 0; i < 4; ++i) sum[i] = 0.25 * (a[i] + b[i] + c[i]);
                    return sum;
                },
                2e-4);
        for (const CGPoint& point : {CGPoint{20.3, 9.8}, CGPoint{-5.2, 3.1}, CGPoint{900, 0}})
            expectEverywhere(
                testKernel("WholeReads", "onePoint")
                    .applyWithExtent({0, 0, 20, 3}, RegionOfInterest::whole(source.image()),
                                     {source.image(), CIVector(point.x, point.y)}),
                {0, 0, 20, 3}, [&](int, int) { return source.bilinear(point.x, point.y); }, 2e-4);
    }
}

} // namespace
