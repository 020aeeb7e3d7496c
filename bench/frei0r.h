// Plug-ins of frei0r, where they are installed (Debian package frei0r-plugins), behind the C
// interface that its documentation describes. They take one thread and frames of 32-bit pixels.
#pragma once

#include <cstdint>
#include <dlfcn.h>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A call that computes one frame, 8 bits and as many channels as ours; empty without the plug-in.
/// Parameters are given by their number, 0 to 1.
inline std::function<void()> frei0r(const std::string& name, int width, int height,
                                    const uint8_t* from, uint8_t* to,
                                    const std::vector<std::pair<int, double>>& parameters = {}) {
    void* library = dlopen(("/usr/lib/frei0r-1/" + name + ".so").c_str(), RTLD_NOW);
    if (!library) return {};
    const auto initialise = reinterpret_cast<int (*)()>(dlsym(library, "f0r_init"));
    const auto construct =
        reinterpret_cast<void* (*)(unsigned, unsigned)>(dlsym(library, "f0r_construct"));
    const auto destruct = reinterpret_cast<void (*)(void*)>(dlsym(library, "f0r_destruct"));
    const auto set =
        reinterpret_cast<void (*)(void*, void*, int)>(dlsym(library, "f0r_set_param_value"));
    const auto update = reinterpret_cast<void (*)(void*, double, const uint32_t*, uint32_t*)>(
        dlsym(library, "f0r_update"));
    if (!initialise || !construct || !destruct || !update || !initialise()) return {};
    const std::shared_ptr<void> instance(
        construct(static_cast<unsigned>(width), static_cast<unsigned>(height)), destruct);
    if (!instance) return {};
    if (set)
        for (auto [number, value] : parameters) set(instance.get(), &value, number);
    return [=, time = 0.0]() mutable {
        time += 0.04;
        update(instance.get(), time, reinterpret_cast<const uint32_t*>(from),
               reinterpret_cast<uint32_t*>(to));
    };
}
