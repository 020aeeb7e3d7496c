// `vorn bench`: how fast filters render, beside the machine's copy speed.
#include "bench_report.h"
#include "catalogue/catalog.h"
#include "commands.h"
#include "measure.h"
#include "settings/device.h"
#include "terminal/output.h"
#include "terminal/talk.h"
#include "values/values.h"

#include <algorithm>
#include <optional>
#include <thread>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

struct BenchOptions {
    std::vector<std::string> names, settings, sizes;
    std::string device = "cpu", threads, format = "RGBA8";
    size_t frames = 0;
    double seconds = 0;
    bool modes = false, json = false;
};

std::vector<Machine> makeMachines(const BenchOptions& options) {
    constexpr int mostThreads = 256;
    const bool isAll = options.device == "all";
    ContextOptions wanted;
    if (!isAll) {
        readDevice(options.device, wanted, "auto, cpu, reference, vulkan, vulkan:N or all");
    }
    std::vector<int> counts{1};
    if (!options.threads.empty()) {
        counts = parseCounts(options.threads, mostThreads, "--threads");
    } else if (const unsigned cores = std::thread::hardware_concurrency(); cores > 1) {
        counts.push_back(static_cast<int>(cores));
    }
    std::vector<Machine> machines;
    const auto add = [&](const char* name, ContextOptions context, int threads) {
        context.threads = threads;
        auto session = makeSession(context);
        auto made = std::make_unique<CIContext>(session, context);
        if (!isAll) requireDevice(*made);
        if (!made->deviceProblem().empty()) return;
        machines.push_back({name, threads, std::move(session), std::move(made)});
    };
    if (isAll || wanted.device == DeviceKind::CPU) {
        for (const int count : counts) add("cpu", {.device = DeviceKind::CPU}, count);
    }
    if (isAll || wanted.device == DeviceKind::Reference) {
        add("reference", {.device = DeviceKind::Reference}, 1);
    }
    if (isAll) wanted.device = DeviceKind::Vulkan;
    if (wanted.device == DeviceKind::Vulkan || wanted.device == DeviceKind::Auto) {
        add(wanted.device == DeviceKind::Auto ? "auto" : "vulkan", wanted, counts.back());
    }
    return machines;
}

using Setting = std::pair<std::string, InputValue>;

/// The filters to measure, and the inputs that `--set` gives to those that have them.
std::vector<FilterEntry> chooseFilters(const BenchOptions& options) {
    if (options.names.empty()) return listFilters(false);
    std::vector<FilterEntry> entries;
    for (const std::string& name : options.names) entries.push_back(findFilter(name));
    return entries;
}

bool hasInput(const FilterEntry& entry, std::string_view key) {
    const std::vector<ListedInput> inputs = listInputs(entry);
    return std::any_of(inputs.begin(), inputs.end(),
                       [&](const ListedInput& input) { return input.key == key; });
}

/// A setting counts for the filters that have the input; one that none of them has is an error.
std::vector<Setting> readSettings(const BenchOptions& options,
                                  const std::vector<FilterEntry>& entries) {
    std::vector<Setting> settings;
    for (const std::string& text : options.settings) {
        const auto [key, valueText] = splitOnce(text, '=', "--set");
        const InputValue value = parseValue(valueText, "--set " + key);
        bool isUsed = false;
        for (const FilterEntry& entry : entries) {
            if (!hasInput(entry, key)) continue;
            checkInput(entry, key, value, "--set");
            isUsed = true;
        }
        if (!isUsed && entries.size() == 1) checkInput(entries.front(), key, value, "--set");
        if (!isUsed) {
            throw HostError(ExitCode::Usage,
                            fmt::format("--set: no chosen filter has an input \"{}\"", key));
        }
        settings.emplace_back(key, value);
    }
    return settings;
}

CIFilterRef prepareFilter(const FilterEntry& entry, const std::vector<Setting>& settings,
                          const Pictures& pictures, std::optional<double> mode) {
    PlatformClock::drive(0);
    CIFilterRef filter = makeFilter(entry);
    setStarts(*filter, entry);
    for (const InputInfo& input : entry.info->inputs()) {
        if (input.kind != InputKind::Image) continue;
        const bool isMain = input.key == entry.guide().frameKey;
        filter->setValueForKey(isMain ? pictures.first : pictures.later, input.key);
    }
    for (const auto& [key, value] : settings) {
        if (hasInput(entry, key)) filter->setValueForKey(value, key);
    }
    if (mode) filter->setValueForKey(Number(*mode), entry.guide().modeKey);
    return filter;
}

/// The values of the modes; one without a number when the filter has no modes.
std::vector<std::optional<double>> modesOf(const FilterEntry& entry) {
    std::vector<std::optional<double>> modes;
    for (const ModeGuide& mode : entry.guide().modes) modes.push_back(mode.value);
    if (modes.empty()) modes.push_back(std::nullopt);
    return modes;
}

Effort effortFor(const BenchOptions& options, const Machine& machine) {
    Effort effort;
    // The reference device takes seconds for a frame, and its speed is no promise.
    if (machine.context->options().device == DeviceKind::Reference) {
        effort = {.leastFrames = 3, .leastSeconds = 0, .frames = 0, .warmUpFrames = 1};
    }
    if (options.seconds > 0) effort.leastSeconds = options.seconds;
    effort.frames = options.frames;
    return effort;
}

CIImage imageOf(CIFilter& filter) {
    CIImage image = filter.outputImage();
    if (!image) throw HostError(ExitCode::Failed, "the filter makes no image");
    return image;
}

void renderOrFail(CIContext& context, const CIImage& image, Pictures& pictures) {
    if (!context.render(image, pictures.target.data(), pictures.bytesPerRow(), pictures.bounds(),
                        pictures.format)) {
        failRendering(context);
    }
}

/// Sets clock and frame time to those of a frame, of 60 in a second.
void driveTo(size_t frame, CIFilter& filter) {
    const uint64_t nanoseconds = frame * (1'000'000'000 / 60);
    PlatformClock::drive(nanoseconds);
    filter.setVornFrameTime(nanoseconds);
}

/// Renders one filter's frames over and over; the median of the seconds that one takes, from asking
/// for the output image to its last pixel.
double measure(CIFilter& filter, CIContext& context, Pictures& pictures, const Effort& effort) {
    return medianSeconds(effort, [&](size_t frame) {
        driveTo(frame, filter);
        renderOrFail(context, imageOf(filter), pictures);
    });
}

double medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    if (values.empty()) return 0;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

GpuMeasure measureGpu(CIFilter& filter, CIContext& context, Pictures& pictures,
                      const Effort& effort) {
    GpuMeasure result;
    ContextOptions uploading = context.options();
    uploading.keepsUploads = false;
    CIContext other(uploading);
    std::vector<double> kernels, uploads, downloads, copies;
    const auto frames = [&](CIContext& by, const auto& imageFor, const auto& note) {
        return medianSeconds(effort, [&](size_t frame) {
            driveTo(frame, filter);
            renderOrFail(by, imageFor(), pictures);
            if (frame >= effort.warmUpFrames) note(by.renderTimes());
        });
    };
    result.wall = frames(
        context, [&] { return imageOf(filter); },
        [&](const RenderTimes& times) {
            kernels.push_back(times.kernels);
            downloads.push_back(times.download);
        });
    result.wallWithUpload = frames(
        other, [&] { return imageOf(filter); },
        [&](const RenderTimes& times) { uploads.push_back(times.upload); });
    frames(
        context, [&] { return pictures.first; },
        [&](const RenderTimes& times) { copies.push_back(times.kernels); });
    result.kernels = medianOf(std::move(kernels));
    result.upload = medianOf(std::move(uploads));
    result.download = medianOf(std::move(downloads));
    result.copy = medianOf(std::move(copies));
    return result;
}

ExitCode bench(const BenchOptions& options) {
    if (options.frames > 0 && options.seconds > 0) {
        throw HostError(ExitCode::Usage, "--frames and --seconds exclude each other");
    }
    registerFilters();
    const std::vector<FilterEntry> entries = chooseFilters(options);
    const std::vector<Setting> settings = readSettings(options, entries);
    const std::vector<Machine> machines = makeMachines(options);
    std::vector<Pictures> allPictures = makePictures(options.sizes, options.format);

    BenchReport report(options.json, entries);
    ExitCode code = ExitCode::Done;
    for (const FilterEntry& entry : entries) {
        const auto modes =
            options.modes ? modesOf(entry) : std::vector<std::optional<double>>{std::nullopt};
        for (const std::optional<double> mode : modes) {
            try {
                for (const Machine& machine : machines) {
                    const Session::Scope scope(machine.session);
                    for (Pictures& pictures : allPictures) {
                        const CIFilterRef filter = prepareFilter(entry, settings, pictures, mode);
                        const Effort effort = effortFor(options, machine);
                        if (machine.context->device() == DeviceKind::Vulkan) {
                            report.add(entry, *filter, mode, machine, pictures,
                                       measureGpu(*filter, *machine.context, pictures, effort));
                            continue;
                        }
                        const double copy = copySeconds(pictures.target.size(), machine.threads);
                        const double seconds = measure(*filter, *machine.context, pictures, effort);
                        report.add(entry, *filter, mode, machine, pictures, seconds, copy);
                    }
                }
            } catch (const HostError& error) {
                say("{}: {}", entry.name, error.what());
                code = ExitCode::Failed;
            }
        }
    }
    return code;
}

} // namespace

void addBenchCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<BenchOptions>();
    options->sizes = {"1920x1080"};
    CLI::App* command =
        app.add_subcommand("bench", "Measure how fast filters render on this machine");
    command->add_option("NAME", options->names, "The filters; all of them when left out")
        ->type_name("");
    command->add_option("--size", options->sizes, "Frame sizes (default 1920x1080)")
        ->allow_extra_args(false)
        ->type_name("WxH[,WxH...]");
    command
        ->add_option("--device", options->device,
                     "cpu (the default), reference, vulkan, vulkan:N, auto\nor all")
        ->type_name("NAME");
    command->add_option("--threads", options->threads, "Thread counts (default: 1 and all cores)")
        ->type_name("N[,N...]");
    command->add_option("--frames", options->frames, "Measure exactly that many frames")
        ->check(CLI::Range(size_t{1}, size_t{1'000'000}).description(""))
        ->type_name("N");
    command
        ->add_option("--seconds", options->seconds,
                     "Measure at least that long, and 15 frames (default 0.5)")
        ->check(CLI::Range(0.001, 3600.0).description(""))
        ->type_name("S");
    command
        ->add_option("--format", options->format,
                     "Pixels read and written: RGBA8 (the default), BGRA8,\nRGBAh or RGBAf")
        ->type_name("FORMAT");
    command
        ->add_option("--set", options->settings,
                     "An input of the filters that have it, written as for\n`vorn explain`")
        ->allow_extra_args(false)
        ->type_name("KEY=VALUE");
    command->add_flag("--modes", options->modes, "Measure every mode of filters that have modes");
    command->add_flag("--json", options->json, "One JSON object per measurement and line");
    command->footer(
        "Inputs are at their START; images are the test card. COPY is the speed at which this\n"
        "machine copies a frame of the same bytes with as many threads, measured just before: no\n"
        "filter is faster than that.\n"
        "On a Vulkan device: milliseconds by the device's own clock of the kernels, of a kernel\n"
        "that copies the frame, and of bringing the frame there and back; RATIO is that of the\n"
        "first two. WALL is the whole frame with the source on the device already.\n\n"
        "Examples:\n"
        "  vorn bench VESolarize --set inputIntensity=0.5\n"
        "  vorn bench --size 3840x2160 --threads 1 --json > speeds.jsonl\n"
        "  vorn bench --device vulkan --size 3840x2160\n"
        "  vorn bench VEMirrors --modes");
    command->callback([options, &action] { action = [options] { return bench(*options); }; });
}

} // namespace vorn::hosts::cli
