// What the comparisons share: frames of 1920x1080 RGBA, 8 bits in and out, and best times.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

constexpr int kWidth = 1920, kHeight = 1080;
constexpr size_t kRowBytes = kWidth * 4, kBytes = kRowBytes * kHeight;

/// One way to make a frame, and the least time that it has taken.
struct Candidate {
    std::function<void()> run;
    double bestSeconds = 1e9;

    double megapixels() const { return kWidth * kHeight / bestSeconds / 1e6; }
    void measure() {
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        bestSeconds = std::min(bestSeconds, taken.count());
    }
};
