// What holds for all effects: the same on every device and in every split of the result, nothing
// left of an effect that is mixed out, no memory that grows.
#include "allocation_count.h"
#include "starts.h"
#include "tables.h"

#include <malloc.h>

namespace {

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
            setStarts(*filter);
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
        setPictures(filter, source.image(origin), target.image(origin));
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

TEST(EveryEffect, TakesNoMoreMemoryInTenThousandFrames) {
    if (!countsAllocations()) GTEST_SKIP() << "sanitizers keep memory of their own";
    const vorn::Session::Scope scope(cpuSession());
    constexpr int kFrames = 10'000;
    Random random(77);
    std::vector<CIFilterRef> filters;
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    for (const std::string& name : CIFilter::filterNames(kVornFilterCategory)) {
        filters.push_back(CIFilter::filterWithName(name));
        setStarts(*filters.back());
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
            setPictures(filter, pictures[i / 97 % 2].image(), pictures[0].image());
            if (const CIImage image = filter.outputImage())
                context.render(image, result.bytes(), result.bytesPerRow(), {0, 0, 24, 24},
                               CIFormat::RGBA8, CGColorSpace::None);
        }
    }
    EXPECT_LT(used() - before, 256 * 1024);
}

TEST(EveryEffect, LeavesTheSourceWhenItIsMixedOut) {
    Random random(42);
    forEachEffect([&](const std::string& name, CIFilter& filter) {
        if (!filter.setValueForKey(Number(0.0), "inputMixer")) return;
        const Bitmap source = randomBitmap(random, 64, 40, CIFormat::RGBA8);
        const Bitmap target = randomBitmap(random, 30, 50, CIFormat::RGBA8);
        setPictures(filter, source.image(), target.image());
        const CIImage image = filter.outputImage();
        ASSERT_TRUE(image) << name;
        for (CIContext* context : everyContext())
            EXPECT_TRUE(isClose(render(*context, image, source.image().extent()), source, {}))
                << name << ", " << nameOf(*context);
    });
}

} // namespace
