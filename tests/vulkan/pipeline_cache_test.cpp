// The file in which pipelines are kept, and whom it belongs to.
#include "vulkan_support.h"

#include "imaging/vulkan/PipelineCache.h"
#include "imaging/vulkan/Renderer.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <utility>
#include <vector>

namespace {

using namespace vorn::imaging;
using namespace vulkan_test;

TEST(VulkanCache, TakesNothingButWhatItWroteForThisDriver) {
    VkPhysicalDeviceProperties properties{};
    properties.vendorID = 7, properties.deviceID = 8, properties.driverVersion = 9;
    const std::string data = "pipelines of a driver", file = vulkan::wrappedCache(data, properties);
    EXPECT_EQ(vulkan::usableCache(file, properties), data);
    for (size_t i = 0; i < file.size(); ++i) {
        std::string damaged = file;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        EXPECT_EQ(vulkan::usableCache(damaged, properties), "") << "byte " << i;
        EXPECT_EQ(vulkan::usableCache(file.substr(0, i), properties), "") << i << " bytes";
    }
    for (uint32_t* other :
         {&properties.vendorID, &properties.deviceID, &properties.driverVersion}) {
        ++*other;
        EXPECT_EQ(vulkan::usableCache(file, properties), "");
        --*other;
    }
}

TEST(VulkanCache, DoesWithoutWhenItIsDamagedOrCannotBeWritten) {
    SKIP_WITHOUT_VULKAN();
    const std::string folder = temporaryFolder();
    const std::string render = "render test:32x32 '" + folder +
                               "/out.ppm' --device vulkan "
                               "--filter VESolarize --quiet";
    const std::string usual = "XDG_CACHE_HOME='" + folder + "'";
    EXPECT_EQ(runVorn(usual, render), (std::pair<int, std::string>{0, ""}));
    std::vector<std::filesystem::path> files;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder + "/vorneffects"))
        files.push_back(file.path());
    ASSERT_EQ(files.size(), 1u);
    const auto size = std::filesystem::file_size(files[0]);
    std::ofstream(files[0], std::ios::binary) << std::string(size, 'x');
    EXPECT_EQ(runVorn(usual, render), (std::pair<int, std::string>{0, ""}));
    EXPECT_EQ(std::filesystem::file_size(files[0]), size);
    EXPECT_NE(std::ifstream(files[0]).get(), 'x') << "a damaged file is replaced";
    EXPECT_EQ(runVorn("MESA_SHADER_CACHE_DISABLE=1 XDG_CACHE_HOME=/dev/null", render),
              (std::pair<int, std::string>{0, ""}));
    EXPECT_EQ(runVorn("-u XDG_CACHE_HOME MESA_SHADER_CACHE_DISABLE=1 HOME=", render),
              (std::pair<int, std::string>{0, ""}));
    std::filesystem::remove_all(folder);
}

TEST(VulkanCache, IsOnlyTheUsersOwnAndFollowsNoLink) {
    SKIP_WITHOUT_VULKAN();
    namespace fs = std::filesystem;
    const fs::path top = temporaryFolder(), folder = top / "vorneffects", victim = top / "victim";
    const std::string render = "render test:16x16 '" + (top / "out.ppm").string() +
                               "' --device vulkan --filter VESolarize --quiet";
    const std::string usual =
        "VORN_VULKAN_VALIDATION=0 XDG_CACHE_HOME='" + top.string() + "' timeout 60 ";
    ASSERT_EQ(runVorn(usual, render), (std::pair<int, std::string>{0, ""}));
    const fs::path file = fs::directory_iterator(folder)->path();
    struct stat status {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);

    struct {
        const char* what;
        std::function<void()> prepare;
        bool isReplaced; ///< the file is whole afterwards
        std::string by = {};
    } const faults[] = {
        {"a pipe", [&] { mkfifo(file.c_str(), 0600); }, true},
        {"a folder", [&] { fs::create_directory(file); }, false},
        {"a link without end", [&] { fs::create_symlink("/dev/zero", file); }, true},
        {"a link", [&] { fs::create_symlink(victim, file); }, true},
        {"a file without end",
         [&] { std::ofstream(file).close(), fs::resize_file(file, uint64_t{1} << 40); }, true},
        {"a folder for all", [&] { chmod(folder.c_str(), 0755); }, false},
        {"a folder elsewhere",
         [&] {
             fs::remove(folder);
             fs::create_directory(top / "elsewhere");
             chmod((top / "elsewhere").c_str(), 0700);
             fs::create_directory_symlink(top / "elsewhere", folder);
         },
         false},
        {"a link where the new file might be written", [] {}, true,
         "sh -c 'ln -s \"$0\" \"$1.$$\"; shift; exec \"$@\"' '" + victim.string() + "' '" +
             file.string() + "'"},
    };
    for (const auto& fault : faults) {
        fs::remove_all(folder);
        fs::create_directory(folder);
        chmod(folder.c_str(), 0700);
        std::ofstream(victim) << "kept";
        fault.prepare();
        EXPECT_EQ(runVorn(usual + fault.by, render), (std::pair<int, std::string>{0, ""}))
            << fault.what;
        std::string text;
        std::ifstream(victim) >> text;
        EXPECT_EQ(text, "kept") << fault.what;
        EXPECT_EQ(fs::is_regular_file(fs::symlink_status(file)) && fs::file_size(file) < 1 << 24,
                  fault.isReplaced)
            << fault.what;
    }
    fs::remove_all(top);
}

} // namespace
