// Pixel buffers, surfaces and their locks.
#include "platform_support.h"

#include <algorithm>
#include <optional>
#include <thread>
#include <vector>

namespace {

using namespace vorn;
using namespace platform_test;

TEST(PixelBuffers, AreZeroAndTheirRowsAligned) {
    int32_t status = -1;
    const CVPixelBufferRef buffer = PixelBuffer::create(33, 3, CIFormat::RGBAh, &status);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(status, kStatusSuccess);
    EXPECT_EQ(buffer->bytesPerRow(), 320u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer->bytes()) % 64, 0u);
    for (size_t i = 0; i < 3 * 320; ++i) EXPECT_EQ(buffer->bytes()[i], 0) << i;
}

TEST(PixelBuffers, OfImpossibleSizesFailWithAStatus) {
    const struct {
        uint32_t width, height;
    } cases[] = {{0, 1}, {1, 0}, {UINT32_MAX, UINT32_MAX}, {1, UINT32_MAX}, {131073, 1}};
    for (const auto& c : cases) {
        int32_t status = 0;
        EXPECT_FALSE(PixelBuffer::create(c.width, c.height, CIFormat::RGBAf, &status));
        EXPECT_EQ(status, kStatusInvalidSize) << c.width << " x " << c.height;
    }
}

TEST(Surfaces, AreMadeFromPropertiesThatMakeSense) {
    constexpr uint32_t bgra = 0x42475241, rgba = 0x52474241, argb = 32, half = 0x52476841,
                       single = 0x52476641;
    const struct {
        SurfaceProperties properties;
        std::optional<CIFormat> format;
        size_t bytesPerRow = 0;
    } cases[] = {
        {{.width = 3, .height = 2}, CIFormat::BGRA8, 64},
        {{.width = 3, .height = 2, .bytesPerRow = 12, .allocSize = 24, .pixelFormat = rgba},
         CIFormat::RGBA8,
         12},
        {{.width = 3, .height = 2, .bytesPerRow = 16, .allocSize = 4096, .pixelFormat = argb},
         CIFormat::ARGB8,
         16},
        {{.width = 9, .height = 2, .bytesPerElement = 8, .pixelFormat = half},
         CIFormat::RGBAh,
         128},
        {{.width = 4, .height = 2, .bytesPerElement = 16, .pixelFormat = single},
         CIFormat::RGBAf,
         64},
        {{.width = 0, .height = 2}, {}},
        {{.width = 3, .height = 0}, {}},
        {{.width = UINT32_MAX, .height = UINT32_MAX}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 8}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 13}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = SIZE_MAX / 4 * 4 - 64}, {}},
        {{.width = 3, .height = 2, .bytesPerRow = 12, .allocSize = 23}, {}},
        {{.width = 3, .height = 2, .allocSize = SIZE_MAX}, {}},
        {{.width = 3, .height = 2, .bytesPerElement = 8, .pixelFormat = bgra}, {}},
        {{.width = 3, .height = 2, .bytesPerElement = 0}, {}},
        {{.width = 3, .height = 2, .pixelFormat = 0}, {}},
    };
    for (const auto& c : cases) {
        const auto& p = c.properties;
        SCOPED_TRACE(testing::Message() << p.width << " x " << p.height << " stride "
                                        << p.bytesPerRow << " size " << p.allocSize);
        const IOSurfaceRef surface = Surface::create(p);
        ASSERT_EQ(surface != nullptr, c.format.has_value());
        if (!surface) continue;
        EXPECT_EQ(surface->format(), c.format);
        EXPECT_EQ(surface->bytesPerRow(), c.bytesPerRow);
        for (size_t i = 0; i < std::max(p.allocSize, c.bytesPerRow * p.height); ++i)
            ASSERT_EQ(surface->bytes()[i], 0) << i;
    }
}

TEST(Locks, CountAndShareOnlyReading) {
    using enum PixelMemory::Access;
    const CVPixelBufferRef buffer = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_EQ(buffer->unlock(), kStatusLocked);

    EXPECT_EQ(buffer->lock(), kStatusSuccess);
    EXPECT_EQ(buffer->lock(), kStatusSuccess);
    EXPECT_EQ(buffer->unlock(ReadOnly), kStatusLocked);
    EXPECT_EQ(buffer->unlock(), kStatusSuccess);
    EXPECT_EQ(buffer->baseAddress(), buffer->bytes());
    EXPECT_EQ(buffer->unlock(), kStatusSuccess);
    EXPECT_FALSE(buffer->isLocked());
    EXPECT_EQ(buffer->baseAddress(), nullptr);

    EXPECT_EQ(buffer->lock(ReadOnly), kStatusSuccess);
    EXPECT_EQ(buffer->lock(ReadWrite), kStatusLocked);
    EXPECT_EQ(buffer->unlock(ReadWrite), kStatusLocked);
    EXPECT_EQ(buffer->unlock(ReadOnly), kStatusSuccess);
    EXPECT_EQ(buffer->lock(ReadWrite), kStatusSuccess);
}

TEST(Locks, CountOnSeveralThreads) {
    const CVPixelBufferRef buffer = PixelBuffer::create(1, 1, CIFormat::RGBA8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                buffer->lock(PixelMemory::Access::ReadOnly);
                EXPECT_EQ(buffer->unlock(PixelMemory::Access::ReadOnly), kStatusSuccess);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(buffer->isLocked());
}

} // namespace
