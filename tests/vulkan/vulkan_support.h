// What the tests of the Vulkan device share.
#pragma once

#include "support.h"

#include "vorneffects/VulkanInterop.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <sys/wait.h>
#include <utility>

namespace vulkan_test {

inline CIImage blurred(const CIImage& image) {
    return filtered("CIGaussianBlur", image, {{"inputRadius", Number(3)}});
}

inline std::string temporaryFolder() {
    std::string folder = testing::TempDir() + "vulkan-XXXXXX";
    return mkdtemp(folder.data()) ? folder : std::string();
}

/// Runs the command line with other surroundings; its exit code and what it wrote.
inline std::pair<int, std::string> runVorn(const std::string& surroundings,
                                           const std::string& arguments) {
    const std::string command =
        "env " + surroundings + " '" VORN_CLI_PATH "' " + arguments + " 2>&1 </dev/null";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

/// The system's own loader.
inline VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL plainLoader(VkInstance, const char* name) {
    static void* const loader = dlopen("libvulkan.so.1", RTLD_NOW);
    return reinterpret_cast<PFN_vkVoidFunction>(dlsym(loader, name));
}

} // namespace vulkan_test
