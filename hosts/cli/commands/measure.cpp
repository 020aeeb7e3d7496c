#include "measure.h"

#include <algorithm>
#include <barrier>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace vorn::hosts::cli {

double medianSeconds(const Effort& effort, const std::function<void(size_t)>& frame) {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;

    size_t number = 0;
    while (number < effort.warmUpFrames) frame(number++);

    std::vector<double> seconds;
    const Clock::time_point start = Clock::now();
    for (;;) {
        const Clock::time_point before = Clock::now();
        frame(number++);
        const Clock::time_point after = Clock::now();
        seconds.push_back(Seconds(after - before).count());
        const bool isEnough = effort.frames > 0
                                  ? seconds.size() >= effort.frames
                                  : seconds.size() >= effort.leastFrames &&
                                        Seconds(after - start).count() >= effort.leastSeconds;
        if (isEnough) break;
    }
    std::sort(seconds.begin(), seconds.end());
    const size_t middle = seconds.size() / 2;
    return seconds.size() % 2 ? seconds[middle] : (seconds[middle - 1] + seconds[middle]) / 2;
}

double copySeconds(size_t bytes, int threads) {
    const std::vector<uint8_t> source(bytes, 1);
    std::vector<uint8_t> target(bytes, 0);
    std::barrier turn(threads);
    bool isDone = false;
    const auto copyPart = [&](int part) {
        const size_t first = bytes * static_cast<size_t>(part) / static_cast<size_t>(threads);
        const size_t last = bytes * static_cast<size_t>(part + 1) / static_cast<size_t>(threads);
        std::memcpy(target.data() + first, source.data() + first, last - first);
    };

    std::vector<std::jthread> helpers;
    for (int part = 1; part < threads; ++part) {
        helpers.emplace_back([&, part] {
            for (;;) {
                turn.arrive_and_wait();
                if (isDone) return;
                copyPart(part);
                turn.arrive_and_wait();
            }
        });
    }
    const double median = medianSeconds({.leastFrames = 15, .leastSeconds = 0.05}, [&](size_t) {
        turn.arrive_and_wait();
        copyPart(0);
        turn.arrive_and_wait();
    });
    isDone = true;
    turn.arrive_and_wait();
    return median;
}

} // namespace vorn::hosts::cli
