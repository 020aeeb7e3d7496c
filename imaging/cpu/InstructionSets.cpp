#include "imaging/cpu/InstructionSets.h"

#include "platform/Messages.h"
#include "vorneffects/CIContext.h"

namespace vorn::imaging::cpu {

const std::vector<std::string>& supportedLevels() {
    static const auto* levels = [] {
        auto* list = new std::vector<std::string>;
#if defined(__x86_64__)
        __builtin_cpu_init();
        const bool v2 = __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt");
        const bool v3 = v2 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
                        __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
        const bool v4 = v3 && __builtin_cpu_supports("avx512f") &&
                        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512cd") &&
                        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
        if (v4) list->push_back("x86-64-v4");
        if (v3) list->push_back("x86-64-v3");
        if (v2) list->push_back("x86-64-v2");
#elif defined(__aarch64__)
        list->push_back("neon");
#endif
        return list;
    }();
    return *levels;
}

const std::vector<std::string>& referenceLevel() {
    static const auto* level = new std::vector<std::string>{"reference"};
    return *level;
}

} // namespace vorn::imaging::cpu

std::vector<std::string> vorn::supportedInstructionSets() try {
    return imaging::cpu::supportedLevels();
} catch (...) {
    reportCaught("supportedInstructionSets");
    return {};
}
