// `vorn explain`: what a filter would do, frame by frame, without rendering it.
#include "catalogue/catalog.h"
#include "chain/printed_lines.h"
#include "commands.h"
#include "terminal/output.h"
#include "testimage.h"
#include "values/values.h"
#include "json/imagejson.h"
#include "json/imagetree.h"

#include <map>
#include <optional>

#include <CLI/CLI.hpp>

namespace vorn::hosts::cli {

namespace {

struct ExplainOptions {
    std::string name;
    std::vector<std::string> images, properties, settings, changes;
    std::string clock, frameTimes, probe = "100,100,50,50";
    uint32_t frames = 1;
    bool noDefaults = false, json = false;
};

/// One thing to do to the filter: set an input, or, without a key, call `clear`.
struct Step {
    std::string key;
    InputValue value;

    void applyTo(CIFilter& filter) const {
        if (key.empty())
            filter.clear();
        else
            filter.setValueForKey(value, key);
    }
};

/// The command line, read and checked: everything that can be wrong with it is found here.
class Plan {
public:
    explicit Plan(const ExplainOptions& options);

    FilterEntry entry;
    std::vector<Step> initial;
    std::map<uint64_t, std::vector<Step>> byFrame;
    std::vector<uint64_t> clock, frameTimes; // init and frames; frames
    CGRect probe;
    std::vector<std::pair<CIImage, std::string>> images; // with their keys

private:
    void readProperties(const ExplainOptions& options);
    void readImages(const ExplainOptions& options);
    void readChange(const std::string& text);
    Step imageStep(std::string_view text, std::string_view option);
    Step valueStep(std::string_view text, std::string_view option) const;

    std::map<std::string, ImageProperties, std::less<>> properties_;
};

std::vector<uint64_t> timesFor(const std::string& text, size_t count, std::string_view option,
                               std::string_view meaning) {
    if (text.empty()) return std::vector<uint64_t>(count, 0);
    std::vector<uint64_t> times = parseTimes(text, option);
    if (times.size() == count) return times;
    throw HostError(ExitCode::Usage,
                    fmt::format("{} {}: {} times are needed, {}", option, text, count, meaning));
}

Plan::Plan(const ExplainOptions& options)
    : entry(findFilter(options.name)),
      clock(timesFor(options.clock, size_t{options.frames} + 1, "--clock",
                     "one at init and one for each frame")),
      frameTimes(
          timesFor(options.frameTimes, options.frames, "--frame-time", "one for each frame")),
      probe(parseRect(options.probe, "--probe")) {
    readProperties(options);
    readImages(options);
    for (const std::string& text : options.settings) initial.push_back(valueStep(text, "--set"));
    for (const std::string& text : options.changes) readChange(text);
    for (const auto& [imageKey, properties] : properties_) {
        const std::string& key = imageKey;
        const bool isUsed = std::any_of(images.begin(), images.end(),
                                        [&](const auto& image) { return image.second == key; });
        if (isUsed) continue;
        throw HostError(ExitCode::Usage,
                        fmt::format("--property: no image is set for \"{}\"", key));
    }
}

void Plan::readProperties(const ExplainOptions& options) {
    for (const std::string& text : options.properties) {
        const auto [key, entryText] = splitOnce(text, ':', "--property");
        const auto [name, value] = splitOnce(entryText, '=', "--property");
        checkInput(entry, key, CIImage(), "--property");
        properties_[key][name] = parseProperty(value);
    }
}

void Plan::readImages(const ExplainOptions& options) {
    std::vector<Step> named;
    bool isInputImageNamed = false;
    for (const std::string& text : options.images) {
        named.push_back(imageStep(text, "--image"));
        isInputImageNamed |= named.back().key == "inputImage";
    }
    for (const ListedInput& input : listInputs(entry)) {
        if (!isInputImageNamed && input.key == "inputImage" && input.info) {
            initial.push_back(imageStep("inputImage=1920x1080", "--image"));
        }
    }
    initial.insert(initial.end(), named.begin(), named.end());
}

Step Plan::imageStep(std::string_view text, std::string_view option) {
    const auto [key, value] = splitOnce(text, '=', option);
    checkInput(entry, key, CIImage(), option);
    if (value == "none") return {key, std::monostate{}};
    CIImage image = testImage(parsePlacedSize(value, fmt::format("{} {}", option, key)));
    if (const auto properties = properties_.find(key); properties != properties_.end()) {
        image = image.imageBySettingProperties(properties->second);
    }
    images.emplace_back(image, key);
    return {key, image};
}

Step Plan::valueStep(std::string_view text, std::string_view option) const {
    const auto [key, valueText] = splitOnce(text, '=', option);
    InputValue value = parseValue(valueText, fmt::format("{} {}", option, key));
    checkInput(entry, key, value, option);
    return {key, std::move(value)};
}

void Plan::readChange(const std::string& text) {
    constexpr std::string_view imageStart = "image:", callStart = "call:";
    const auto [frameText, what] = splitOnce(text, ':', "--at");
    const std::optional<uint64_t> frame = readUnsigned(frameText);
    if (!frame) {
        throw HostError(ExitCode::Usage, fmt::format("--at {}: frames are counted from 0", text));
    }
    std::vector<Step>& steps = byFrame[*frame];
    if (what.starts_with(imageStart)) {
        steps.push_back(imageStep(std::string_view(what).substr(imageStart.size()), "--at"));
    } else if (!what.starts_with(callStart)) {
        steps.push_back(valueStep(what, "--at"));
    } else if (what == "call:clear") {
        steps.push_back({});
    } else {
        throw HostError(ExitCode::Usage,
                        fmt::format("--at {}: the one call there is, is call:clear", text));
    }
}

void printFrame(const ExplainOptions& options, size_t frame, uint64_t clock,
                const std::vector<std::string>& printed, const Json& output) {
    if (options.json) {
        const Json line{
            {"frame", frame}, {"clock", clock}, {"printed", printed}, {"output", output}};
        printResult("{}\n", jsonLine(line));
        return;
    }
    for (const std::string& line : printed) printResult("{}\n", line);
    printResult("frame {}, clock {}\n{}", frame, clock, ImageTree().text(output, 1));
}

ExitCode explain(const ExplainOptions& options) {
    registerFilters();
    const Plan plan(options);
    ImageJson images(plan.probe);
    for (const auto& [image, key] : plan.images) images.addInput(image, key);

    PrintedLines printed;
    PlatformClock::drive(plan.clock[0]);
    const CIFilterRef filter = makeFilter(plan.entry);
    if (!options.noDefaults) filter->setDefaults();
    for (const Step& step : plan.initial) step.applyTo(*filter);

    for (size_t frame = 0; frame < options.frames; ++frame) {
        if (const auto steps = plan.byFrame.find(frame); steps != plan.byFrame.end()) {
            for (const Step& step : steps->second) step.applyTo(*filter);
        }
        const uint64_t clock = plan.clock[frame + 1];
        PlatformClock::drive(clock);
        if (!options.frameTimes.empty()) filter->setVornFrameTime(plan.frameTimes[frame]);
        const CIImage output = filter->outputImage();
        printFrame(options, frame, clock, printed.take(), images.imageJson(output));
    }
    return ExitCode::Done;
}

} // namespace

void addExplainCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ExplainOptions>();
    CLI::App* command = app.add_subcommand(
        "explain", "Show the image graph that a filter makes, without rendering it");
    command->add_option("NAME", options->name, "The filter, as `vorn list` names it")
        ->required()
        ->type_name("");
    const auto addRepeated = [command](const char* name, const char* type,
                                       std::vector<std::string>& values, const char* text) {
        command->add_option(name, values, text)->allow_extra_args(false)->type_name(type);
    };
    addRepeated("--image", "KEY=WxH[+X+Y]", options->images,
                "An image input of that size and origin; KEY=none\n"
                "leaves it unset (default: inputImage=1920x1080)");
    addRepeated("--property", "KEY:NAME=VALUE", options->properties,
                "An entry of that image's properties: true, false,\n"
                "a number or text");
    addRepeated("--set", "KEY=VALUE", options->settings,
                "An input: a number, nan, inf, -inf, [x,y] or\n"
                "[x,y,z,w], rgba(r,g,b,a), transform(a,b,c,d,tx,ty), hex:00ff, "
                "text:words, none");
    addRepeated("--at", "FRAME:KEY=VALUE", options->changes,
                "The same from that frame on (the first is 0); also\n"
                "FRAME:image:KEY=WxH[+X+Y] and FRAME:call:clear");
    command->add_flag("--no-defaults", options->noDefaults,
                      "Do not set the advertised defaults first");
    command
        ->add_option("--clock", options->clock,
                     "The clock when the filter is made, then at each\n"
                     "frame, in nanoseconds (default: 0 throughout)")
        ->type_name("T0,T1,...");
    command
        ->add_option("--frame-time", options->frameTimes,
                     "The host's frame time, pushed before each frame")
        ->type_name("T0,T1,...");
    command->add_option("--frames", options->frames, "How many frames to ask for (default 1)")
        ->check(CLI::Range(1, 10'000'000).description(""))
        ->type_name("N");
    command
        ->add_option("--probe", options->probe,
                     "The rectangle that kernels are asked what they read\n"
                     "for (default 100,100,50,50)")
        ->type_name("X,Y,W,H");
    command->add_flag("--json", options->json, "One JSON object per frame and line");
    command->footer("Quote values with brackets, parentheses or blanks for the shell.\n\n"
                    "Examples:\n"
                    "  vorn explain VESolarize --set inputIntensity=0.5\n"
                    "  vorn explain VEMirrors --image inputImage=4000x3000 --json\n"
                    "  vorn explain VE_Strobe_2 --frames 3 --clock 0,0,40000000,80000000");
    command->callback([options, &action] { action = [options] { return explain(*options); }; });
}

} // namespace vorn::hosts::cli
