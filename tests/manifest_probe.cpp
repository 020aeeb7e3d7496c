// A small host that the tests run on copies of the library. Its arguments are steps, done in
// order: "verb" or "verb:argument:argument". It prints what came of each.
#include "starts.h"

#include "core/FilterSupport.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <latch>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using Arguments = std::vector<std::string>;

Arguments splitAtColons(const std::string& step) {
    Arguments parts(1);
    for (const char c : step)
        if (c == ':')
            parts.emplace_back();
        else
            parts.back() += c;
    return parts;
}

void printAll(const char* title, const std::vector<std::string>& names) {
    std::printf("%s:", title);
    for (const std::string& name : names) std::printf(" %s", name.c_str());
    std::puts("");
}

void printResult(const char* what, bool isThere) {
    std::printf("%s %s\n", isThere ? "a" : "no", what);
}

// ---- A process in which something is missing
// ------------------------------------------------------

bool hasProc() {
    return access("/proc/self/fd", F_OK) == 0;
}

/// An empty folder in the place of /proc, for this process alone.
void withoutProc() {
    static_cast<void>(unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
                      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                      mount("none", "/proc", "tmpfs", 0, nullptr) == 0);
    if (hasProc()) std::puts("still with /proc");
}

/// Makes `memfd_create` fail as on a system that does not have it.
void withoutMemoryFiles() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_memfd_create, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(rules), rules};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        std::puts("still with files in memory");
}

/// No more than there are now, or as many as at the beginning.
void allowDescriptors(bool all) {
    static const rlimit before = [] {
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        return limit;
    }();
    rlimit limit = before;
    if (!all) limit.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// ---- Filters
// -------------------------------------------------------------------------------------

constexpr int kSide = 8;
using Pixels = std::array<uint32_t, kSide * kSide>;

CIFilterRef& made() {
    static CIFilterRef filter;
    return filter;
}

/// What a filter makes of its defaults and of pictures in every image input.
CIImage outputOf(CIFilter& filter) {
    static const Pixels source = [] {
        Pixels pixels;
        for (uint32_t i = 0; i < pixels.size(); ++i) pixels[i] = 0xFF000000 | i * 0x030507;
        return pixels;
    }();
    setStarts(filter);
    for (const InputInfo& input : filter.filterClass().inputs())
        if (input.kind == InputKind::Image)
            filter.setValueForKey(
                CIImage::imageWithBitmap(source.data(), kSide, kSide, 4 * kSide, CIFormat::RGBA8),
                input.key);
    return filter.outputImage();
}

std::optional<Pixels> rendered(CIContext& context, const CIImage& image, std::string& problem) {
    Pixels pixels{};
    if (image &&
        context.render(image, pixels.data(), 4 * kSide, {0, 0, kSide, kSide}, CIFormat::RGBA8))
        return pixels;
    problem = image ? context.lastError() : "no image";
    return std::nullopt;
}

void printRendered(const CIImage& image) {
    static CIContext context({.device = DeviceKind::CPU, .threads = 1});
    std::string problem;
    std::puts(rendered(context, image, problem) ? "rendered" : problem.c_str());
}

/// Every filter's picture, by its name; none for those that make none.
std::map<std::string, std::optional<Pixels>> allPictures() {
    std::map<std::string, std::optional<Pixels>> pictures;
    CIContext context({.device = DeviceKind::CPU, .threads = 1});
    std::string problem;
    for (const std::string& name : VornEffectsCatalog::allFilterNames()) {
        const auto own = sessionForChance(name);
        const Session::Scope scope(own ? own : Session::standard());
        if (const CIFilterRef filter = VornEffectsFilterConstructor().filterWithName(name))
            pictures[name] = rendered(context, outputOf(*filter), problem);
    }
    return pictures;
}

/// Makes and renders every filter on many threads that all start with the first of its class, and
/// then on this one.
void makeOnThreads(int count) {
    PlatformClock::drive(1000000000);
    std::latch start(count);
    std::vector<std::map<std::string, std::optional<Pixels>>> found(static_cast<size_t>(count));
    std::vector<std::thread> threads;
    for (auto& pictures : found)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            pictures = allPictures();
        });
    for (std::thread& thread : threads) thread.join();
    const auto expected = allPictures();
    printResult("catalogue", !expected.empty());
    for (const auto& [name, picture] : expected)
        if (!picture) std::printf("%s makes no picture\n", name.c_str());
    for (const auto& pictures : found)
        for (const auto& [name, picture] : expected)
            if (const auto at = pictures.find(name); at == pictures.end() || at->second != picture)
                std::printf("%s differs\n", name.c_str());
}

const std::map<std::string, std::function<void(const Arguments&)>> kVerbs{
    {"register", [](const Arguments&) { VornEffectsRegistrar::registerAllFilters(); }},
    {"problem",
     [](const Arguments&) {
         std::printf("problem:\n%s", VornEffectsRegistrar::registrationProblem().c_str());
     }},
    {"names",
     [](const Arguments&) { printAll("catalogue", VornEffectsCatalog::allFilterNames()); }},
    {"registered",
     [](const Arguments&) { printAll("registered", CIFilter::filterNames(kVornFilterCategory)); }},
    {"class",
     [](const Arguments& a) {
         const Class found = VornEffectsCatalog::filterClassForName(a.at(1));
         std::printf("class %s\n", found ? found->name : "none");
     }},
    {"create",
     [](const Arguments& a) {
         printResult("filter", CIFilter::filterWithName(a.at(1)) != nullptr);
     }},
    {"construct",
     [](const Arguments& a) {
         printResult("filter", VornEffectsFilterConstructor().filterWithName(a.at(1)) != nullptr);
     }},
    {"copy",
     [](const Arguments& a) {
         std::filesystem::copy_file(a.at(1), a.at(2),
                                    std::filesystem::copy_options::overwrite_existing);
     }},
    {"remove", [](const Arguments& a) { std::filesystem::remove(a.at(1)); }},
    {"kernel",
     [](const Arguments& a) {
         const Class owner = classFromString("VEDummy");
         printResult("kernel", static_cast<bool>(VornEffectsLoadKernel(owner, a.at(1), a.at(2))));
     }},
    {"change-folder", [](const Arguments& a) { std::filesystem::current_path(a.at(1)); }},
    {"without-proc", [](const Arguments&) { withoutProc(); }},
    {"without-memory-files", [](const Arguments&) { withoutMemoryFiles(); }},
    {"descriptors", [](const Arguments& a) { allowDescriptors(a.at(1) == "all"); }},
    {"fonts", [](const Arguments& a) { setenv("FONTCONFIG_FILE", a.at(1).c_str(), 1); }},
    {"text",
     [](const Arguments& a) {
         uint32_t pixel = 0;
         const auto context =
             BitmapContext::create(&pixel, 1, 1, 4, CIFormat::RGBA8, CGColorSpace::SRGB);
         std::puts(context->textWidth(a.at(1), systemFontName(), 20) > 0 ? "a width" : "no width");
     }},
    {"locale",
     [](const Arguments& a) {
         setenv("LOCPATH", a.at(1).c_str(), 1);
         if (!setlocale(LC_ALL, a.at(2).c_str())) std::puts("no such locale");
         std::printf("half is %.1f\n", 0.5);
     }},
    {"list",
     [](const Arguments& a) {
         const auto list = dictionaryWithContentsOfFile(a.at(1));
         for (const auto& [key, value] : list.value())
             std::printf("%s is %d thousandths\n", key.c_str(),
                         static_cast<int>(std::get<double>(value.value) * 1000));
     }},
    {"make",
     [](const Arguments& a) { made() = VornEffectsFilterConstructor().filterWithName(a.at(1)); }},
    {"render", [](const Arguments&) { printRendered(outputOf(*made())); }},
    {"color", [](const Arguments&) { printRendered(CIImage::imageWithColor(CIColor(1, 0, 0))); }},
    {"threads", [](const Arguments& a) { makeOnThreads(std::stoi(a.at(1))); }},
    {"without-privileges",
     [](const Arguments&) {
         constexpr uid_t kNobody = 65534;
         if (geteuid() == 0 && setuid(kNobody) != 0) std::puts("still privileged");
     }},
    {"refuse",
     [](const Arguments& a) {
         ErrorImage errorImage;
         for (int frame = 0; frame < 2; ++frame)
             printResult("picture", static_cast<bool>(errorImage.imageFor(a.at(1))));
     }},
};

} // namespace

int main(int count, char** steps) {
    try {
        for (int index = 1; index < count; ++index) {
            const Arguments arguments = splitAtColons(steps[index]);
            kVerbs.at(arguments.front())(arguments);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "manifest_probe: %s\n", error.what());
        return 1;
    }
    // The leak sanitizer needs /proc.
    std::fflush(stdout);
    if (!hasProc()) _exit(0);
    return 0;
}
