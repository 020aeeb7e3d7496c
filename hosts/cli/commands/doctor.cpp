// `vorn doctor`: what this installation has, and what in it is broken.
#include "catalogue/catalog.h"
#include "chain/printed_lines.h"
#include "commands.h"
#include "fonts.h"
#include "terminal/output.h"
#include "terminal/talk.h"
#include "json/json.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <thread>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

struct DoctorOptions {
    bool json = false;
};

/// What was found: JSON for programs, the same facts in lines for people, and what is broken.
class Findings {
public:
    void add(const std::string& key, Json value, const std::string& label,
             const std::string& text) {
        json_[key] = std::move(value);
        rows_.push_back({label, printable(text)});
    }
    void addProblem(const std::string& problem) { problems_.push_back(problem); }

    ExitCode print(bool asJson) {
        if (asJson) {
            json_["problems"] = problems_;
            printResult("{}\n", jsonLine(json_));
        } else {
            printTable(rows_);
            printResult("\n");
            for (const std::string& problem : problems_)
                printResult("broken: {}\n", printable(problem));
            if (problems_.empty()) printResult("Nothing is broken.\n");
        }
        return problems_.empty() ? ExitCode::Done : ExitCode::Failed;
    }

private:
    Json json_ = Json::object();
    std::vector<TableRow> rows_;
    std::vector<std::string> problems_;
};

std::string joined(const std::vector<std::string>& parts) {
    return fmt::format("{}", fmt::join(parts, ", "));
}

void checkVersion(Findings& findings) {
    std::string program = reinterpret_cast<const char*>(VornEffectsVersionString);
    program.erase(program.find_last_not_of("\n ") + 1);
    findings.add("version", numberJson(VornEffectsVersionNumber), "version",
                 fmt::format("{:.1f}", VornEffectsVersionNumber));
    findings.add("program", program, "library", program);
}

void checkProcessor(Findings& findings) {
    const std::vector<std::string> levels = supportedInstructionSets();
    const CIContext context({.device = DeviceKind::CPU});
    const unsigned cores = std::thread::hardware_concurrency();
    findings.add("instruction_sets", levels, "instruction sets", joined(levels));
    findings.add("instruction_set", context.instructionSet(), "in use", context.instructionSet());
    findings.add("cores", cores, "cores", fmt::format("{}", cores));
    findings.add("threads", context.threads(), "threads", fmt::format("{}", context.threads()));
    if (levels.empty()) {
        findings.addProblem("this processor runs none of the kernels' instruction sets");
    }
}

/// Renders a colour; what went wrong, or nothing.
std::string deviceProblem(const ContextOptions& options) {
    constexpr int side = 4;
    constexpr float wanted[] = {0.25F, 0.5F, 0.75F, 1};
    float pixels[side * side * 4] = {};
    CIContext context(options);
    const CIImage image =
        CIImage::imageWithColor(CIColor(wanted[0], wanted[1], wanted[2], wanted[3]));
    if (!context.render(image, pixels, side * 4 * sizeof(float), {0, 0, side, side},
                        CIFormat::RGBAf)) {
        return context.lastError();
    }
    constexpr float tolerance = 1.0F / 255;
    for (size_t i = 0; i < std::size(pixels); ++i) {
        if (!(std::fabs(pixels[i] - wanted[i % 4]) <= tolerance)) return "a wrong colour comes out";
    }
    return {};
}

Json familyJson(const GPUDevice::QueueFamily& family) {
    Json abilities = Json::array();
    if (family.graphics) abilities.push_back("graphics");
    if (family.compute) abilities.push_back("compute");
    if (family.transfer) abilities.push_back("transfer");
    if (family.timestamps) abilities.push_back("timestamps");
    return {{"queues", family.queues}, {"abilities", abilities}};
}

std::string familiesText(const GPUDevice& device) {
    std::vector<std::string> families;
    for (const GPUDevice::QueueFamily& family : device.queueFamilies) {
        std::string letters;
        if (family.graphics) letters += 'g';
        if (family.compute) letters += 'c';
        if (family.transfer) letters += 't';
        families.push_back(fmt::format("{}x{}", family.queues, letters));
    }
    return joined(families);
}

std::string cacheText(const std::string& file) {
    if (file.empty()) return "none, there is no cache folder";
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? fmt::format("{}, not written yet", file)
                 : fmt::format("{}, {} bytes", file, size);
}

/// Every Vulkan device. That there is none is not broken; one that renders wrongly is.
void checkVulkan(Findings& findings, Json& devices, std::vector<std::string>& words) {
    std::string none;
    const std::vector<GPUDevice> all = gpuDevices(&none);
    if (all.empty()) {
        devices.push_back({{"name", "vulkan"}, {"available", false}, {"note", none}});
        words.push_back(fmt::format("vulkan ({})", none));
    }
    Json list = Json::array();
    for (const GPUDevice& device : all) {
        const std::string name = fmt::format("vulkan:{}", device.number);
        std::string problem = device.problem;
        if (problem.empty()) {
            problem = deviceProblem(
                {.device = DeviceKind::Vulkan, .deviceName = std::to_string(device.number)});
            if (!problem.empty()) findings.addProblem(fmt::format("device {}: {}", name, problem));
        }
        devices.push_back({{"name", name}, {"available", problem.empty()}, {"note", problem}});
        words.push_back(problem.empty() ? name : fmt::format("{} ({})", name, problem));
        Json families = Json::array();
        for (const auto& family : device.queueFamilies) families.push_back(familyJson(family));
        list.push_back({{"number", device.number},
                        {"name", device.name},
                        {"kind", device.kind},
                        {"driver", device.driver},
                        {"api_version", device.apiVersion},
                        {"largest_side", device.largestSide},
                        {"memory_bytes", device.memoryBytes},
                        {"queue_families", families},
                        {"shares_dma_bufs", device.sharesDmaBufs},
                        {"pipeline_cache", device.pipelineCache},
                        {"problem", problem}});
        findings.add("vulkan", list, name, fmt::format("{} ({})", device.name, device.kind));
        findings.add("vulkan", list, "  driver",
                     fmt::format("{}, Vulkan {}", device.driver, device.apiVersion));
        findings.add("vulkan", list, "  limits",
                     fmt::format("{} pixels a side, {} MiB of its own memory", device.largestSide,
                                 device.memoryBytes >> 20));
        findings.add("vulkan", list, "  queues",
                     fmt::format("{} (graphics, compute, transfer)", familiesText(device)));
        findings.add("vulkan", list, "  shares dma-bufs", device.sharesDmaBufs ? "yes" : "no");
        findings.add("vulkan", list, "  pipeline cache", cacheText(device.pipelineCache));
    }
    if (all.empty()) findings.add("vulkan", list, "vulkan", none);
}

void checkDevices(Findings& findings) {
    Json devices = Json::array();
    std::vector<std::string> words;
    for (const auto& [name, kind] :
         {std::pair{"cpu", DeviceKind::CPU}, std::pair{"reference", DeviceKind::Reference}}) {
        const std::string problem = deviceProblem({.device = kind});
        devices.push_back({{"name", name}, {"available", problem.empty()}, {"note", problem}});
        words.push_back(name);
        if (!problem.empty()) findings.addProblem(fmt::format("device {}: {}", name, problem));
    }
    checkVulkan(findings, devices, words);
    findings.add("devices", std::move(devices), "devices", joined(words));
    findings.add("auto", CIContext().deviceName(), "auto takes", CIContext().deviceName());
}

void checkFonts(Findings& findings) {
    struct Wanted {
        std::string name, genericFamily;
    };
    Json fonts = Json::array();
    for (const auto& [name, genericFamily] :
         {Wanted{"Menlo", "Monospace"}, Wanted{"Monaco", "Monospace"},
          Wanted{systemFontName(), "Sans"}}) {
        const std::optional<FoundFont> found = findFont(name, genericFamily);
        Json font{{"name", name}, {"family", nullptr}, {"file", nullptr}};
        if (found) {
            font["family"] = found->family;
            font["file"] = found->file;
        } else {
            findings.addProblem(fmt::format("font {}: no font is installed", name));
        }
        fonts.push_back(font);
        findings.add("fonts", fonts, "font " + name, found ? found->family : "none");
    }
}

void checkManifest(Findings& findings, const Bundle& bundle) {
    const auto path = bundle.pathForResource("VornEffectsManifest", "plist");
    const auto manifest = path ? dictionaryWithContentsOfFile(*path) : std::nullopt;
    const PropertyListArray* entries = nullptr;
    if (manifest) {
        const auto found = manifest->find("Entries");
        if (found != manifest->end()) entries = found->second.array();
    }
    std::string state = "readable";
    if (!path)
        state = "missing";
    else if (!manifest)
        state = "no property list";
    else if (!entries)
        state = "without entries";
    if (!entries) findings.addProblem("manifest: " + state);
    std::istringstream faults(entries ? VornEffectsRegistrar::registrationProblem() : "");
    for (std::string fault; std::getline(faults, fault);) findings.addProblem(fault);
    findings.add("manifest",
                 Json{{"path", path ? Json(*path) : Json(nullptr)},
                      {"readable", entries != nullptr},
                      {"entries", entries ? entries->size() : 0}},
                 "manifest", entries ? fmt::format("{} entries", entries->size()) : state);
}

std::vector<std::string> kernelLibraryFiles(const Bundle& bundle) {
    constexpr std::string_view ending = ".ci.metallib";
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(bundle.folder(), error)) {
        if (file.path().filename().string().ends_with(ending)) {
            files.push_back(file.path().string());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

void checkKernelLibraries(Findings& findings, const Bundle& bundle) {
    const std::vector<std::string> files = kernelLibraryFiles(bundle);
    Json damaged = Json::array();
    for (const std::string& file : files) {
        const Data data = dataWithContentsOfFile(file);
        const std::optional<std::string> problem =
            data ? kernelLibraryProblem(data) : std::optional<std::string>("unreadable");
        if (!problem) continue;
        damaged.push_back({{"file", file}, {"problem", *problem}});
        findings.addProblem(fmt::format("{}: {}", file, *problem));
    }
    if (files.empty()) findings.addProblem("there is no kernel library in " + bundle.folder());
    const std::string text = damaged.empty()
                                 ? fmt::format("{}, all whole", files.size())
                                 : fmt::format("{}, {} damaged", files.size(), damaged.size());
    findings.add("kernel_libraries", Json{{"checked", files.size()}, {"damaged", damaged}},
                 "kernel libraries", text);
}

void checkErrorPicture(Findings& findings, const Bundle& bundle) {
    const auto path = bundle.pathForResource("FX_error_image", "png");
    const Data data = path ? dataWithContentsOfFile(*path) : nullptr;
    const bool isGood = data && decodePNG(data);
    if (!isGood) findings.addProblem("the error picture FX_error_image.png cannot be read");
    findings.add("error_image", Json{{"readable", isGood}}, "error picture",
                 isGood ? "readable" : "unreadable");
}

/// Whatever a filter says when it is made and gives its picture, in each of its modes, is something
/// that does not fit: a kernel's name, the number or kind of its arguments.
std::vector<std::string> linesOf(const FilterEntry& entry) {
    constexpr CGRect frame{0, 0, 64, 36};
    PrintedLines printed;
    const CIFilterRef filter = CIFilter::filterWithName(entry.name);
    if (!filter) return {"cannot be made"};
    setStarts(*filter, entry);
    const CIImage picture =
        CIImage::imageWithColor(CIColor(0.25, 0.5, 0.75)).imageByCroppingToRect(frame);
    for (const InputInfo& input : entry.info->inputs())
        if (input.kind == InputKind::Image) filter->setValueForKey(picture, input.key);
    const FilterGuide& guide = entry.guide();
    for (const auto& [key, value] : guide.beginWith) filter->setValueForKey(Number(value), key);
    filter->outputImage();
    for (const ModeGuide& mode : guide.modes) {
        filter->setValueForKey(Number(mode.value), guide.modeKey);
        filter->outputImage();
    }
    return printed.take();
}

void checkFilters(Findings& findings) {
    size_t count = 0, broken = 0;
    for (const FilterEntry& entry : listFilters(false)) {
        const std::vector<std::string> lines = linesOf(entry);
        const std::vector<std::string> faults = guideProblems(*entry.info);
        ++count;
        if (lines.empty() && faults.empty()) continue;
        ++broken;
        if (!lines.empty()) findings.addProblem(fmt::format("{}: {}", entry.name, lines.front()));
        for (const std::string& fault : faults) findings.addProblem(fault);
    }
    if (count == 0) findings.addProblem("no filter is registered");
    findings.add("filters", Json{{"registered", count}, {"broken", broken}}, "filters",
                 broken == 0 ? fmt::format("{}", count)
                             : fmt::format("{}, {} broken", count, broken));
}

ExitCode doctor(const DoctorOptions& options) {
    registerFilters();
    Findings findings;
    checkVersion(findings);
    checkProcessor(findings);
    checkDevices(findings);
    checkFonts(findings);
    const Bundle bundle = Bundle::forClass(classFromString("VornEffectsCatalog"));
    findings.add("bundle", bundle.folder(), "bundle", bundle.folder());
    checkManifest(findings, bundle);
    checkKernelLibraries(findings, bundle);
    checkErrorPicture(findings, bundle);
    checkFilters(findings);
    return findings.print(options.json);
}

} // namespace

void addDoctorCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* command =
        app.add_subcommand("doctor", "Check this installation: devices, fonts, resources");
    command->add_flag("--json", options->json, "One JSON object");
    command->footer("Leaves with 1 when something is broken, and says what.\n\n"
                    "Examples:\n"
                    "  vorn doctor\n"
                    "  vorn doctor --json | jq .problems");
    command->callback([options, &action] { action = [options] { return doctor(*options); }; });
}

} // namespace vorn::hosts::cli
