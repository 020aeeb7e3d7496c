// The Vulkan device: what it keeps from frame to frame, and what it says when something is not
// there or breaks. That its pictures are those of the others is seen with those.
#include "support.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "imaging/vulkan/PipelineCache.h"
#include "imaging/vulkan/Renderer.h"
#include "vorneffects/VulkanInterop.h"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace vorn::imaging;

/// The validation layers watch, where they are installed, and whatever they say fails the tests.
class NothingToSay : public testing::Environment {
public:
    NothingToSay() { setenv("VORN_VULKAN_VALIDATION", "2", 0); }
    void TearDown() override {
        const std::vector<std::string> messages = vulkan::validationMessages();
        EXPECT_EQ(messages.size(), 0u) << messages.front();
    }
};
const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new NothingToSay);

// ---- What stays on the device ------------------------------------------------------------------

CIImage blurred(const CIImage& image) {
    return filtered("CIGaussianBlur", image, {{"inputRadius", Number(3)}});
}

TEST(VulkanMemory, StandsStillInTheSteadyState) {
    SKIP_WITHOUT_VULKAN();
    Random random(3);
    const Bitmap source = randomBitmap(random, 200, 100, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Vulkan});
    uint64_t before = 0;
    for (int frame = 0; frame < 12; ++frame) {
        if (frame == 4) before = context.pixelAllocations(); // each of three frames has its own
        render(context, blurred(source.image()), {0, 0, 200, 100});
    }
    EXPECT_EQ(context.pixelAllocations(), before);
}

TEST(VulkanMemory, AnAccumulatorStaysOnTheDevice) {
    SKIP_WITHOUT_VULKAN();
    const CGRect extent{3, -2, 40, 30};
    Random random(8);
    const Bitmap source = randomBitmap(random, 40, 30, CIFormat::RGBA8);
    CIContext cpu({.device = DeviceKind::CPU});
    const auto feedback = [&](CIContext& context, bool isGpu) {
        const auto session =
            vorn::Session::make({.device = isGpu ? DeviceKind::Vulkan : DeviceKind::CPU});
        const vorn::Session::Scope scope(session);
        const auto accumulator =
            CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::BGRA8);
        for (int frame = 0; frame < 5; ++frame) {
            const CIImage image = pictureKernel("blend").applyWithExtent(
                extent, {source.image({3, -2}), accumulator->image(), 0.4});
            render(context, image, extent);
            accumulator->setImage(image);
            EXPECT_EQ(accumulator->image().node()->pixels.device != nullptr, isGpu);
        }
        return accumulator->image();
    };
    const CIImage wanted = feedback(cpu, false), actual = feedback(*vulkanContext(), true);
    EXPECT_TRUE(isClose(render(*vulkanContext(), actual, extent), render(cpu, wanted, extent),
                        {2 / 255.0}));
    // Another device fetches it.
    EXPECT_TRUE(isClose(render(cpu, actual, extent), render(*vulkanContext(), actual, extent), {}));
}

TEST(VulkanMemory, AFrameThatAFilterKeepsStaysWhereTheHostRenders) {
    SKIP_WITHOUT_VULKAN();
    Random random(10);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    CIContext cpu({.device = DeviceKind::CPU});
    // The session of frames that are captured, and the devices of contexts in it.
    struct Case {
        DeviceKind session;
        std::vector<DeviceKind> contexts;
        bool isOnGpu;
    };
    for (const auto& [kind, contexts, isOnGpu] :
         {Case{DeviceKind::Auto, {}, false}, Case{DeviceKind::Auto, {DeviceKind::CPU}, false},
          Case{DeviceKind::Auto, {DeviceKind::CPU, DeviceKind::Vulkan}, true},
          Case{DeviceKind::CPU, {DeviceKind::Vulkan}, false},
          Case{DeviceKind::Reference, {DeviceKind::Vulkan}, false},
          Case{DeviceKind::Vulkan, {}, true}}) {
        const auto session = vorn::Session::make({.device = kind});
        const vorn::Session::Scope scope(session);
        std::vector<std::unique_ptr<CIContext>> open;
        for (const DeviceKind device : contexts)
            open.push_back(std::make_unique<CIContext>(session, ContextOptions{.device = device}));
        for (const bool isOpen : {true, false}) {
            if (!isOpen) open.clear();                        // the GPU goes with its last context
            render(*vulkanContext(), source.image(), bounds); // of another session
            const IOSurfaceRef surface = Surface::create({.width = 30, .height = 20});
            ASSERT_TRUE(CIContext::capture(source.image(), *surface, bounds, CGColorSpace::None));
            const std::shared_ptr<DevicePixels> kept = surface->onDevice();
            EXPECT_EQ(kept != nullptr, isOnGpu && (isOpen || kind == DeviceKind::Vulkan));
            const CIImage image = CIImage::imageWithIOSurface(surface);
            EXPECT_TRUE(isClose(render(cpu, image, bounds), source, {}));
            const auto onDevice = std::dynamic_pointer_cast<vulkan::DeviceImage>(kept);
            if (!onDevice) continue;
            std::string problem;
            EXPECT_EQ(onDevice->device(), vulkan::Device::open("", true, problem));
            EXPECT_TRUE(isClose(render(*vulkanContext(), image, bounds), source, {}))
                << "a context on another session's device fetches it";
        }
    }
}

TEST(VulkanMemory, PixelBuffersAreReadAnewEachTime) {
    SKIP_WITHOUT_VULKAN();
    const CVPixelBufferRef buffer = PixelBuffer::create(8, 8, CIFormat::RGBA8);
    const CIImage image = CIImage::imageWithCVPixelBuffer(buffer, CGColorSpace::None);
    for (const uint8_t value : {10, 200}) {
        std::memset(buffer->mutableBytes(), value, buffer->bytesPerRow() * 8);
        EXPECT_EQ(*render(*vulkanContext(), image, {0, 0, 8, 8}).at(3, 3), value);
    }
}

TEST(VulkanMemory, ASurfaceStaysOnTheDeviceUntilSomebodyLooksAtIt) {
    SKIP_WITHOUT_VULKAN();
    Random random(9);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    const IOSurfaceRef surface = Surface::create({.width = 30, .height = 20});
    const CIImage captured = CIImage::imageWithIOSurface(surface);
    CIContext cpu({.device = DeviceKind::CPU});
    const auto expectCaptured = [&](CIContext& context) {
        EXPECT_TRUE(isClose(render(context, captured, bounds), source, {}));
    };
    ASSERT_TRUE(
        vulkanContext()->renderToIOSurface(source.image(), *surface, bounds, CGColorSpace::None));
    expectCaptured(*vulkanContext());
    EXPECT_NE(surface->onDevice(), nullptr);
    expectCaptured(cpu);
    EXPECT_NE(surface->onDevice(), nullptr) << "reading does not take it off the device";
    ASSERT_EQ(surface->lock(), kStatusSuccess);
    uint8_t* const first = static_cast<uint8_t*>(surface->baseAddress());
    EXPECT_EQ(first[2], source.at(0, 19)[0]); // BGRA
    std::memset(first, 77, 4);
    surface->unlock();
    for (CIContext* context : {vulkanContext(), &cpu})
        EXPECT_EQ(*render(*context, captured, bounds).at(0, 19), 77);
    // A part leaves the rest as it was.
    ASSERT_TRUE(
        vulkanContext()->renderToIOSurface(source.image(), *surface, bounds, CGColorSpace::None));
    ASSERT_TRUE(vulkanContext()->renderToIOSurface(CIImage::imageWithColor(CIColor(1, 1, 1)),
                                                   *surface, {0, 0, 30, 1}, CGColorSpace::None));
    const Bitmap both = render(*vulkanContext(), captured, bounds);
    EXPECT_EQ(*both.at(5, 0), 255);
    EXPECT_EQ(both.pixel(5, 1), source.pixel(5, 1));
}

TEST(VulkanTasks, SeveralAreUnderWayAndEachKeepsItsPicture) {
    SKIP_WITHOUT_VULKAN();
    Random random(4);
    constexpr size_t count = 7; // more than there are frames
    const CGRect bounds{0, 0, 64, 48};
    std::vector<Bitmap> sources, targets(count, Bitmap(64, 48));
    for (size_t i = 0; i < count; ++i)
        sources.push_back(randomBitmap(random, 64, 48, CIFormat::RGBA8));
    std::vector<RenderTask> tasks;
    for (size_t i = 0; i < count; ++i)
        tasks.push_back(vulkanContext()->startRender(sources[i].image(), targets[i].bytes(),
                                                     targets[i].bytesPerRow(), bounds,
                                                     CIFormat::RGBA8, CGColorSpace::None));
    tasks[5] = {}; // given up
    for (size_t i = 0; i < count; ++i) {
        if (i == 5) continue;
        EXPECT_TRUE(tasks[i].wait());
        EXPECT_TRUE(isClose(targets[i], sources[i], {})) << i;
    }
}

// ---- The cache of pipelines ---------------------------------------------------------------------

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

/// Runs the command line with other surroundings; its exit code and what it wrote.
std::pair<int, std::string> runVorn(const std::string& surroundings, const std::string& arguments) {
    const std::string command =
        "env " + surroundings + " '" VORN_CLI_PATH "' " + arguments + " 2>&1 </dev/null";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

std::string temporaryFolder() {
    std::string folder = testing::TempDir() + "vulkan-XXXXXX";
    return mkdtemp(folder.data()) ? folder : std::string();
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

// ---- What is not there, and what breaks --------------------------------------------------------

TEST(VulkanErrors, NoLoaderIsALine) {
    vulkan::Functions functions;
    EXPECT_NE(functions.load("libvulkan-is-not-here.so.1"), "");
    EXPECT_EQ(functions.CreateInstance, nullptr);
}

TEST(VulkanErrors, NoDriverMeansTheCpuOrExitCodeFive) {
    const std::string none = "VK_ICD_FILENAMES=/nowhere VK_DRIVER_FILES=/nowhere";
    const std::string folder = temporaryFolder(), out = "'" + folder + "/out.ppm' --quiet";
    const auto [code, text] = runVorn(none, "render test:8x8 " + out + " --device vulkan");
    EXPECT_EQ(code, 5);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(runVorn(none, "render test:8x8 " + out + " --device auto"),
              (std::pair<int, std::string>{0, ""}));
    std::filesystem::remove_all(folder);
}

VKAPI_ATTR void VKAPI_CALL haveNoFeatures(VkPhysicalDevice, VkPhysicalDeviceFeatures2* features) {
    features->features = {}; // those of version 1.2, which are linked to it, stay zero as well
}
VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL plainLoader(VkInstance, const char* name) {
    static void* const loader = dlopen("libvulkan.so.1", RTLD_NOW);
    return reinterpret_cast<PFN_vkVoidFunction>(dlsym(loader, name));
}
VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL poorLoader(VkInstance instance, const char* name) {
    if (std::string_view(name) == "vkGetPhysicalDeviceFeatures2")
        return reinterpret_cast<PFN_vkVoidFunction>(haveNoFeatures);
    return plainLoader(instance, name);
}

TEST(VulkanErrors, ADriverWithoutANeededFeatureIsALine) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    int anything = 0; // nobody gets as far as the instance and the queue
    const VulkanContext context(VulkanDevice{reinterpret_cast<VkInstance>(&anything),
                                             device->physical(), device->handle(), 0,
                                             reinterpret_cast<VkQueue>(&anything), poorLoader});
    EXPECT_NE(context.problem().find("the driver has no timeline semaphores"), std::string::npos)
        << context.problem();
}

TEST(VulkanErrors, AutoTakesNoSoftwareDevice) {
    const CIContext context;
    for (const GPUDevice& device : gpuDevices()) {
        if (device.isSoftware) {
            EXPECT_NE(context.deviceName(), device.name);
        }
    }
}

TEST(VulkanErrors, AFrameBeyondTheLimitsIsALine) {
    SKIP_WITHOUT_VULKAN();
    const int width = 40000; // more than any device is asked for
    Bitmap target(width, 1);
    const CIImage image = CIImage::imageWithColor(CIColor(1, 0, 0));
    EXPECT_FALSE(vulkanContext()->render(image, target.bytes(), target.bytesPerRow(),
                                         {0, 0, double(width), 1}, CIFormat::RGBA8));
    EXPECT_NE(vulkanContext()->lastError().find("larger than"), std::string::npos)
        << vulkanContext()->lastError();
    render(*vulkanContext(), image, {0, 0, 8, 8}); // and the next one is rendered
}

/// Puts another function in the place of a driver's for a while.
template <class Function>
class Instead {
public:
    Instead(Function& place, Function other) : place_(place), usual_(std::exchange(place, other)) {}
    ~Instead() { place_ = usual_; }
    Instead(const Instead&) = delete;
    Instead& operator=(const Instead&) = delete;

private:
    Function& place_;
    const Function usual_;
};

VkResult loseQueue(VkQueue, uint32_t, const VkSubmitInfo*, VkFence) {
    return VK_ERROR_DEVICE_LOST;
}
PFN_vkWaitSemaphores usualWait;
VkResult waitInVain(VkDevice device, const VkSemaphoreWaitInfo* info, uint64_t timeout) {
    usualWait(device, info, timeout); // the software device is there still
    return VK_ERROR_DEVICE_LOST;
}
/// From now on the device that is open says that it is lost.
void loseDevice() {
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    device->functions.QueueSubmit = loseQueue;
    usualWait = std::exchange(device->functions.WaitSemaphores, waitInVain);
}
/// The same, and somebody has noticed.
void loseDeviceOf(CIContext& context) {
    uint8_t pixel[4];
    loseDevice();
    static_cast<void>(context.render(CIImage::imageWithColor(CIColor(1, 0, 0)), pixel, 4,
                                     {0, 0, 1, 1}, CIFormat::RGBA8));
}
int timesOpened = 0;
VkResult failToOpen(VkPhysicalDevice, const VkDeviceCreateInfo*, const VkAllocationCallbacks*,
                    VkDevice*) {
    ++timesOpened;
    return VK_ERROR_INITIALIZATION_FAILED;
}

VkResult haveNoMemory(VkDevice, const VkMemoryAllocateInfo*, const VkAllocationCallbacks*,
                      VkDeviceMemory*) {
    return VK_ERROR_OUT_OF_DEVICE_MEMORY;
}

TEST(VulkanErrors, MemoryThatRunsOutIsALineAndTheNextFrameTriesAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    CIContext context({.device = DeviceKind::Vulkan});
    Random random(1);
    const Bitmap source = randomBitmap(random, 333, 222, CIFormat::RGBA8);
    Bitmap target(333, 222);
    const auto allocate = std::exchange(device->functions.AllocateMemory, haveNoMemory);
    const bool isGood =
        context.render(blurred(source.image()), target.bytes(), target.bytesPerRow(),
                       {0, 0, 333, 222}, CIFormat::RGBA8, CGColorSpace::None);
    device->functions.AllocateMemory = allocate;
    EXPECT_FALSE(isGood);
    EXPECT_EQ(context.lastError(), "allocating pixel memory: out of device memory");
    EXPECT_TRUE(isClose(render(context, blurred(source.image()), {0, 0, 333, 222}),
                        render(referenceContext(), blurred(source.image()), {0, 0, 333, 222}),
                        {2 / 255.0}));
}

TEST(VulkanErrors, ALostDeviceIsALineAndIsOpenedAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    CIContext context({.device = DeviceKind::Vulkan});
    Random random(1);
    const Bitmap source = randomBitmap(random, 20, 20, CIFormat::RGBA8);
    Bitmap target(20, 20);
    {
        const auto device = vulkan::Device::open("", true, problem);
        const auto submit = std::exchange(device->functions.QueueSubmit, loseQueue);
        EXPECT_FALSE(context.render(source.image(), target.bytes(), target.bytesPerRow(),
                                    {0, 0, 20, 20}, CIFormat::RGBA8, CGColorSpace::None));
        device->functions.QueueSubmit = submit;
    }
    EXPECT_EQ(context.lastError(), "starting work on the device: the device was lost");
    EXPECT_TRUE(isClose(render(context, source.image(), {0, 0, 20, 20}), source, {}));
}

TEST(VulkanErrors, ALossIsToldToEveryRenderUnderWay) {
    SKIP_WITHOUT_VULKAN();
    Random random(2);
    const CGRect bounds{0, 0, 20, 20};
    const Bitmap source = randomBitmap(random, 20, 20, CIFormat::RGBA8);
    for (const DeviceKind kind : {DeviceKind::Vulkan, DeviceKind::Auto}) {
        const bool isAuto = kind == DeviceKind::Auto; // the CPU takes over
        CIContext context({.device = kind, .deviceName = "0"});
        std::vector<Bitmap> targets(4, Bitmap(20, 20));
        std::vector<RenderTask> tasks;
        for (size_t i = 0; i < 4; ++i) {
            if (i == 3) loseDevice();
            tasks.push_back(context.startRender(source.image(), targets[i].bytes(),
                                                targets[i].bytesPerRow(), bounds, CIFormat::RGBA8,
                                                CGColorSpace::None));
        }
        for (size_t i = 0; i < 4; ++i) {
            const bool isGood = tasks[i].wait();
            EXPECT_EQ(isGood, isAuto) << i;
            EXPECT_EQ(context.lastError().find("lost") != std::string::npos, !isAuto) << i;
            if (isGood) {
                EXPECT_TRUE(isClose(targets[i], source, {})) << i;
            }
        }
        EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
    }
}

TEST(VulkanErrors, AutoGoesBackToTheGpuAndTriesLessAndLessOften) {
    SKIP_WITHOUT_VULKAN();
    Random random(3);
    const CGRect bounds{0, 0, 4, 4};
    const Bitmap source = randomBitmap(random, 4, 4, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Auto, .deviceName = "0"});
    ASSERT_EQ(context.device(), DeviceKind::Vulkan);
    const auto renderFrames = [&](int most, DeviceKind until) {
        int frames = 0;
        while (frames < most && context.device() != until) {
            EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
            ++frames;
        }
        return frames;
    };
    loseDevice();
    EXPECT_EQ(renderFrames(9, DeviceKind::CPU), 2); // the second one notices
    EXPECT_LT(renderFrames(100, DeviceKind::Vulkan), 20);
    loseDevice();
    renderFrames(9, DeviceKind::CPU);
    {
        const Instead opening(vulkan::instanceFunctions().CreateDevice, failToOpen);
        timesOpened = 0;
        EXPECT_EQ(renderFrames(300, DeviceKind::Vulkan), 300);
        EXPECT_GE(timesOpened, 2);
        EXPECT_LE(timesOpened, 6);
    }
    EXPECT_LT(renderFrames(1000, DeviceKind::Vulkan), 1000);
}

TEST(VulkanErrors, ADeviceThatCouldNotBeOpenedIsTriedAgain) {
    SKIP_WITHOUT_VULKAN();
    const CGRect bounds{0, 0, 8, 8};
    Random random(4);
    const Bitmap source = randomBitmap(random, 8, 8, CIFormat::RGBA8);
    Bitmap target(8, 8);
    CIContext early({.device = DeviceKind::Vulkan, .deviceName = "0"});
    VulkanContext host("0");
    const auto share = [&] {
        const auto shared =
            host.renderShared(source.image(), bounds, CIFormat::RGBA8, SharedMemoryKind::OpaqueFd);
        if (shared) close(shared->fd);
        return shared.has_value();
    };
    const bool shares = share();
    std::unique_ptr<CIContext> late;
    loseDeviceOf(early);
    {
        const Instead opening(vulkan::instanceFunctions().CreateDevice, failToOpen);
        late = std::make_unique<CIContext>(early.options());
        for (CIContext* context : {&early, late.get()}) {
            EXPECT_FALSE(context->render(source.image(), target.bytes(), target.bytesPerRow(),
                                         bounds, CIFormat::RGBA8, CGColorSpace::None));
            EXPECT_NE(context->lastError().find("cannot be opened"), std::string::npos);
        }
        EXPECT_FALSE(share());
        EXPECT_EQ(host.lastError(), host.problem());
    }
    for (CIContext* context : {&early, late.get()}) {
        EXPECT_TRUE(isClose(render(*context, source.image(), bounds), source, {}));
        EXPECT_EQ(context->deviceProblem(), "");
    }
    EXPECT_EQ(share(), shares) << host.lastError();
    EXPECT_EQ(host.problem(), "");
}

TEST(VulkanErrors, WhatWasLostWithItsDeviceIsTransparentAndFeedbackGoesOn) {
    SKIP_WITHOUT_VULKAN();
    const CGRect extent{0, 0, 6, 5};
    for (const DeviceKind kind : {DeviceKind::Vulkan, DeviceKind::Auto}) {
        CIContext context({.device = kind, .deviceName = "0"});
        const auto accumulator =
            CIImageAccumulator::imageAccumulatorWithExtent(extent, CIFormat::RGBA8);
        const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0)).imageByCroppingToRect(extent);
        accumulator->setImage(red);
        ASSERT_NE(accumulator->image().node()->pixels.device, nullptr);
        loseDeviceOf(context);
        EXPECT_TRUE(isClose(render(context, accumulator->image(), extent), Bitmap(6, 5), {}));
        accumulator->setImage(red);
        EXPECT_EQ(*render(context, accumulator->image(), extent).at(2, 2), 255);
    }
}

template <class Function>
struct Failing;
template <class Result, class... Arguments>
struct Failing<Result (*)(Arguments...)> {
    static Result withResult(Arguments...) { return VK_ERROR_OUT_OF_HOST_MEMORY; }
    static Result withException(Arguments...) { throw std::bad_alloc(); }
};

/// Whatever cannot be had for once: the render says so, throws nothing, and the next one is right.
TEST(VulkanErrors, WhatFailedOnceIsTriedAgain) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    Random random(5);
    const CGRect bounds{0, 0, 33, 22};
    VulkanContext sharing("0");
    // Of each context its first render, so that everything is made. The last kernel has a pipeline
    // of its own for each format.
    const auto expectLine = [&]<class Function>(const char* name,
                                                Function vulkan::Functions::*function,
                                                CIFormat format, Function failing) {
        SCOPED_TRACE(name);
        const Bitmap source = randomBitmap(random, 33, 22, CIFormat::RGBA8);
        const CIImage image = pictureKernel("blend").applyWithExtent(
            bounds, {source.image(), source.image().imageByCroppingToRect({3, 3, 9, 9}), 0.3});
        CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
        Bitmap target(33, 22, format);
        {
            const Instead broken(device->functions.*function, failing);
            EXPECT_FALSE(context.render(image, target.bytes(), target.bytesPerRow(), bounds, format,
                                        CGColorSpace::None));
            EXPECT_NE(context.lastError().find("out of memory"), std::string::npos)
                << context.lastError();
            EXPECT_FALSE(context
                             .startRender(image, target.bytes(), target.bytesPerRow(), bounds,
                                          format, CGColorSpace::None)
                             .wait());
            EXPECT_FALSE(sharing.renderShared(image, bounds, format, SharedMemoryKind::OpaqueFd));
        }
        EXPECT_TRUE(isClose(render(context, image, bounds, format),
                            render(referenceContext(), image, bounds, format), {2 / 255.0}));
    };
#define VORN_EXPECT_LINE(function, first, second)                                                  \
    expectLine(#function, &vulkan::Functions::function, first,                                     \
               &Failing<PFN_vk##function>::withResult);                                            \
    expectLine(#function ", thrown", &vulkan::Functions::function, second,                         \
               &Failing<PFN_vk##function>::withException);
    VORN_EXPECT_LINE(CreateShaderModule, CIFormat::RGBA8, CIFormat::BGRA8)
    expectLine("CreateComputePipelines", &vulkan::Functions::CreateComputePipelines,
               CIFormat::ARGB8, &Failing<PFN_vkCreateComputePipelines>::withResult);
    VORN_EXPECT_LINE(CreateCommandPool, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(AllocateCommandBuffers, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(CreateDescriptorPool, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(CreateBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(MapMemory, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(BeginCommandBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(AllocateDescriptorSets, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(EndCommandBuffer, CIFormat::RGBA8, CIFormat::RGBA8)
    VORN_EXPECT_LINE(QueueSubmit, CIFormat::RGBA8, CIFormat::RGBA8)
#undef VORN_EXPECT_LINE
}

TEST(VulkanErrors, PixelsThatCannotBeFetchedForOnceAreFetchedLater) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    const CGRect bounds{0, 0, 5, 5};
    CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
    CIContext cpu({.device = DeviceKind::CPU});
    const CIImage red = CIImage::imageWithColor(CIColor(1, 0, 0));
    const IOSurfaceRef surface = Surface::create({.width = 5, .height = 5});
    const CIImage captured = CIImage::imageWithIOSurface(surface);
    ASSERT_TRUE(context.renderToIOSurface(red, *surface, bounds, CGColorSpace::None));
    {
        const Instead broken(device->functions.CreateBuffer,
                             &Failing<PFN_vkCreateBuffer>::withResult);
        EXPECT_EQ(surface->lock(), kStatusAllocationFailed);
        EXPECT_EQ(surface->baseAddress(), nullptr);
        uint8_t pixel[4];
        EXPECT_FALSE(cpu.render(captured, pixel, 4, {0, 0, 1, 1}, CIFormat::RGBA8));
        EXPECT_FALSE(cpu.renderToIOSurface(red, *surface, {0, 0, 2, 2}));
    }
    EXPECT_EQ(*render(cpu, captured, bounds).at(3, 3), 255);
    ASSERT_EQ(surface->lock(), kStatusSuccess);
    EXPECT_EQ(static_cast<uint8_t*>(surface->baseAddress())[2], 255); // BGRA
    surface->unlock();
}

int waitsInVain = 0;
VkResult waitWithoutMemory(VkDevice device, const VkSemaphoreWaitInfo* info, uint64_t timeout) {
    if (waitsInVain-- > 0) return VK_ERROR_OUT_OF_HOST_MEMORY;
    return usualWait(device, info, timeout);
}
VkResult haveNoTimes(VkDevice, VkQueryPool, uint32_t, uint32_t, size_t, void*, VkDeviceSize,
                     VkQueryResultFlags) {
    return VK_ERROR_OUT_OF_HOST_MEMORY;
}

TEST(VulkanErrors, AWaitThatFailsForWantOfMemoryGoesOnAndTimesAreZeroWhereThereAreNone) {
    SKIP_WITHOUT_VULKAN();
    std::string problem;
    const auto device = vulkan::Device::open("0", true, problem);
    Random random(6);
    const CGRect bounds{0, 0, 30, 20};
    const Bitmap source = randomBitmap(random, 30, 20, CIFormat::RGBA8);
    CIContext context({.device = DeviceKind::Vulkan, .deviceName = "0"});
    render(context, source.image(), bounds);
    if (device->hasTimeStamps()) {
        EXPECT_GT(context.renderTimes().kernels, 0);
    }
    usualWait = device->functions.WaitSemaphores;
    waitsInVain = 2;
    const Instead waiting(device->functions.WaitSemaphores, waitWithoutMemory);
    const Instead times(device->functions.GetQueryPoolResults, haveNoTimes);
    EXPECT_TRUE(isClose(render(context, source.image(), bounds), source, {}));
    EXPECT_LT(waitsInVain, 0);
    EXPECT_EQ(context.renderTimes().kernels, 0);
}

// ---- Pictures shared with others ----------------------------------------------------------------

TEST(VulkanSharing, MemoryThatIsSharedHoldsThePicture) {
    SKIP_WITHOUT_VULKAN();
    VulkanContext one(""), other("");
    Random random(6);
    bool isAnyShared = false;
    for (const SharedMemoryKind kind : {SharedMemoryKind::DmaBuf, SharedMemoryKind::OpaqueFd})
        for (const CIFormat format : kAllFormats) {
            const Bitmap source = randomBitmap(random, 37, 21, format);
            const auto shared = one.renderShared(source.image({2, 1}), {2, 1, 37, 21}, format, kind,
                                                 CGColorSpace::None);
            EXPECT_EQ(shared.has_value(), one.canShare(kind)) << one.lastError();
            if (!shared) {
                EXPECT_EQ(one.lastError(), "the driver does not share memory in this way");
                continue;
            }
            isAnyShared = true;
            const CIImage image = other.imageOfShared(*shared, CGColorSpace::None);
            ASSERT_TRUE(image) << other.lastError();
            EXPECT_TRUE(
                isClose(render(*vulkanContext(), image, {0, 0, 37, 21}, format), source, {}))
                << formatName(format);
            SharedPicture wrong = *shared;
            wrong.height = 3;
            wrong.bytesPerRow =
                (SIZE_MAX / 3 / 16 + 1) * 16; // three of them come to next to nothing
            EXPECT_FALSE(other.imageOfShared(wrong));
            wrong = *shared;
            wrong.fd = -1;
            EXPECT_FALSE(other.imageOfShared(wrong));
            wrong.memorySize = 1;
            EXPECT_FALSE(other.imageOfShared(wrong));
            close(shared->fd);
        }
    if (!isAnyShared) GTEST_SKIP() << "the driver shares no memory";
}

TEST(VulkanSharing, WrongHandlesAreALine) {
    SKIP_WITHOUT_VULKAN();
    VulkanContext none(VulkanDevice{});
    EXPECT_EQ(none.problem(), "a handle of the host's Vulkan device is missing");
    EXPECT_FALSE(none.image({}));
    EXPECT_EQ(none.lastError(), none.problem());
    std::string problem;
    const auto device = vulkan::Device::open("", true, problem);
    int anything = 0; // nobody gets as far as the instance and the queue
    const VulkanContext wrongQueue(VulkanDevice{reinterpret_cast<VkInstance>(&anything),
                                                device->physical(), device->handle(), 99,
                                                reinterpret_cast<VkQueue>(&anything), plainLoader});
    EXPECT_EQ(wrongQueue.problem(), "the queue of the host's Vulkan device does not compute");
    VulkanContext context("");
    const CIImage color = CIImage::imageWithColor(CIColor(1, 0, 0));
    for (const VulkanPicture& picture :
         {VulkanPicture{}, VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8G8B8A8_UNORM, 8, 8},
          VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8_UNORM, 8, 8},
          VulkanPicture{VK_NULL_HANDLE, VK_FORMAT_R8G8B8A8_UNORM, UINT32_MAX, 8}}) {
        EXPECT_FALSE(context.image(picture));
        EXPECT_NE(context.lastError(), "");
        EXPECT_FALSE(context.render(color, picture, {}));
        EXPECT_NE(context.lastError(), "");
    }
    EXPECT_FALSE(context.renderShared(color, {0, 0, 8, 8}, static_cast<CIFormat>(5),
                                      SharedMemoryKind::OpaqueFd));
    EXPECT_NE(context.lastError().find("format"), std::string::npos);
}

/// The example is a live host: its device, its images, its semaphore.
TEST(VulkanSharing, TheExampleHostGetsItsPictures) {
    SKIP_WITHOUT_VULKAN();
    // At its end the driver is unloaded, and what it has leaked is nobody's then.
    FILE* const pipe = popen("ASAN_OPTIONS=detect_leaks=0 '" VORN_VULKAN_HOST "' 2>&1", "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    EXPECT_EQ(pclose(pipe), 0) << text;
    // 0.25 doubles, 1 folds back to 0.
    EXPECT_NE(text.find("grey 0.25 became 128\ngrey 1.00 became 0\n"), std::string::npos) << text;
}

} // namespace
