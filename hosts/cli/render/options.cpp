#include "options.h"

#include "commands/commands.h"
#include "media/sequence.h"
#include "settings/device.h"
#include "terminal/interrupt.h"
#include "values/text.h"
#include "values/values.h"

#include <filesystem>
#include <limits>

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

constexpr int mostThreads = 256;
/// What is written there is not even encoded unless a format is named.
constexpr const char* kNowhere = "/dev/null";

constexpr const char helpText[] =
    "IN    a film, a picture, numbered pictures (frames/%04d.png), \"-\" for a film on\n"
    "      standard input, or the built-in moving test card:\n"
    "      test:[WxH][@RATE][,DURATION], by default test:1280x720@25,5s\n"
    "OUT   a film (mp4 m4v mov mkv webm avi gif apng mpg ts y4m nut), a picture (png jpg\n"
    "      tif bmp webp ppm pam tga jp2), numbered pictures, headerless RGBA (a file ending\n"
    "      in .rgba or .raw), \"-\" for standard output, which gets headerless RGBA unless\n"
    "      --format says more, or /dev/null, where nothing is encoded\n\n"
    "Filters work one after the other, in the order given; the defaults that they advertise\n"
    "are set first. Keys may be written without \"input\" (intensity=0.5). Values: a number,\n"
    "[x,y] to [x,y,z,w], rgba(r,g,b,a), transform(a,b,c,d,tx,ty), hex:00ff,\n"
    "text:words (a comma in it as \\,), none.\n"
    "Quote values with brackets, parentheses or blanks for the shell.\n"
    "Values may be formulas of t, the time in seconds: intensity=0.5+0.5*sin(2*pi*t).\n"
    "The filters of --chain and --preset-chain take their places among those of --filter.\n"
    "--image and --animate name one filter of the chain with N.KEY, counted from 1, or\n"
    "NAME.KEY. A second film shows the frame of the main one's time, and its last one when\n"
    "it is over. Second pictures cover the frame, masks and maps stay as they are, unless\n"
    "fit says otherwise. Keyframe times count from the start of OUT; before the first and after "
    "the\n"
    "last keyframe the value stands still. TIME:VALUE:EASING goes on to the next one by that\n"
    "easing: linear, hold, smooth, cubic or bounce.\n\n"
    "Filters run on the time of the film, so that a render gives the same pictures each time.\n"
    "Each frame keeps its time, size, colour tags and rotation; sound and subtitles are copied,\n"
    "or converted where OUT refuses them; title, chapters and attachments stay. What a filter\n"
    "draws outside of the frame is cut off. OUT appears under its name when it is whole, and\n"
    "replaces what was there. Ctrl-C, SIGTERM and SIGHUP end it early as a playable file, a\n"
    "second one at once.\n"
    "A film into one picture gives its first frame (see --range). A filter that gives no\n"
    "image ends the render with 1; the frames before it are kept.\n\n"
    "Examples:\n"
    "  vorn render film.mp4 out.mp4 --filter VESolarize:intensity=0.7\n"
    "  vorn render test:640x360@50,2s card.webm --filter VEGobo --filter VESolarize:intensity=1\n"
    "  vorn render film.mov still.png --range 1:02.5- --filter VEXray:intensity=1\n"
    "  vorn render photo.jpg fade.mp4 --duration 4 --filter VEGobo --animate mixer=0:0,4:1\n"
    "  vorn render film.mp4 out.mp4 --preset-chain \"Old projector\"\n"
    "  vorn render --out-dir small --size 640x360 films/*.mp4\n"
    "  vorn render film.mp4 - --format nut --filter VEGobo | vorn render - out.mp4\n"
    "  vorn render film.mp4 --null --filter VEGobo\n"
    "  vorn render film.mp4 - --filter VEGobo | ffplay -f rawvideo \\\n"
    "      -pixel_format rgba -video_size 854x480 -framerate 24 -\n\n";

CGColorSpace workingSpaceNamed(const std::string& name) {
    if (name == "none") return CGColorSpace::None;
    if (name == "linear") return CGColorSpace::LinearSRGB;
    throw HostError(ExitCode::Usage, fmt::format("--working-space {}: none or linear", name));
}

media::Size mediaSize(PixelSize size, const std::string& text) {
    constexpr uint32_t largest = 65535;
    if (size.width > largest || size.height > largest) {
        throw HostError(ExitCode::Usage,
                        fmt::format("--size {}: each side is at most {}", text, largest));
    }
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

SourceRequest readSource(const RenderArguments& arguments) {
    SourceRequest source;
    source.name = arguments.input;
    source.threads = arguments.threads;
    source.access = {.allowsPlaylists = arguments.allowsPlaylists,
                     .inputs = std::make_shared<media::InputFiles>(),
                     .stop = &InterruptWatch::request()};
    if (!arguments.size.empty()) {
        source.size = mediaSize(parseSize(arguments.size, "--size"), arguments.size);
    }
    if (!arguments.rate.empty()) source.rate = parseRate(arguments.rate, "--rate");
    if (!arguments.range.empty()) source.range = parseRange(arguments.range, "--range");
    if (!arguments.duration.empty()) {
        if (source.range.endSeconds) {
            throw HostError(ExitCode::Usage, "--range with an end and --duration exclude each "
                                             "other");
        }
        const double seconds = parseClockTime(arguments.duration, "--duration");
        if (seconds <= 0) throw HostError(ExitCode::Usage, "--duration must be above 0");
        source.range.endSeconds = source.range.startSeconds + seconds;
    }
    if (arguments.frames > 0) source.frames = arguments.frames;
    return source;
}

/// Makes the files known that an input is made of, as far as its name tells.
void addInput(const std::string& name, media::InputFiles& inputs) {
    std::error_code error;
    const auto pattern = media::parseSequencePattern(name);
    if (name == "-") {
        inputs.add(STDIN_FILENO);
    } else if (pattern && !std::filesystem::exists(name, error)) {
        for (const int number : pattern->existingNumbers()) inputs.add(pattern->path(number));
    } else {
        inputs.add(name);
    }
}

/// The number that the first of numbered pictures gets.
int firstNumberOf(const std::string& input) {
    std::error_code error;
    const auto pattern = media::parseSequencePattern(input);
    if (!pattern || std::filesystem::exists(input, error)) return 1;
    const std::vector<int> numbers = pattern->existingNumbers();
    return numbers.empty() ? 1 : numbers.front();
}

/// The file that is written must not be one of those that are read.
void refuseOverwriting(const RenderOptions& options) {
    namespace fs = std::filesystem;
    if (options.writesToStandardOutput()) return;
    std::vector<std::string> inputs = options.chain.imageNames();
    inputs.push_back(options.source.name);
    media::InputFiles read;
    bool isSame = false;
    for (const std::string& input : inputs) {
        addInput(input, read);
        isSame = isSame ||
                 fs::path(options.output).lexically_normal() == fs::path(input).lexically_normal();
    }
    std::string first = options.output;
    if (const auto pattern = media::parseSequencePattern(first)) {
        first = pattern->path(firstNumberOf(options.source.name));
    }
    struct stat file = {};
    isSame = isSame || (stat(first.c_str(), &file) == 0 && read.contains(file));
    if (!isSame) return;
    throw HostError(ExitCode::Usage,
                    fmt::format("{} is read: choose another name for the output", first));
}

} // namespace

RenderOptions readRenderOptions(const RenderArguments& arguments) {
    RenderOptions options;
    readDevice(arguments.device, options.context);
    options.context.workingSpace = workingSpaceNamed(arguments.workingSpace);
    options.context.threads = arguments.threads;
    options.source = readSource(arguments);
    options.output = arguments.output;
    options.codec = arguments.codec;
    options.preset = arguments.preset;
    options.crf = arguments.crf;
    options.keepsAlpha = arguments.keepsAlpha;
    options.keepsExisting = arguments.keepsExisting;
    options.isQuiet = arguments.isQuiet;
    options.json = arguments.json;
    options.files = readFileOptions(arguments.files);
    options.chain = readChainPlan(arguments.chain);
    options.source.deinterlacing = options.files.deinterlacing;
    options.source.passesTracks = true;
    options.source.raw = options.files.rawInput;
    if (options.source.raw && parseTestCard(options.source.name) && arguments.many.folder.empty()) {
        throw HostError(ExitCode::Usage, "--input-format: the test card knows its own pixels");
    }
    options.source.isLinear = options.context.workingSpace != CGColorSpace::None;
    options.source.isUntouched = options.chain.links().empty();

    if (options.crf && options.files.bitsPerSecond > 0) {
        throw HostError(ExitCode::Usage, "--crf and --bitrate exclude each other");
    }

    if (options.json && options.writesToStandardOutput()) {
        throw HostError(ExitCode::Usage, "--json and the output \"-\" both want standard output");
    }
    refuseOverwriting(options);
    return options;
}

bool readFiles(RenderArguments& arguments) {
    const ManyArguments& many = arguments.many;
    if (arguments.files.writesNothing && (!many.folder.empty() || arguments.paths.size() > 1)) {
        throw HostError(ExitCode::Usage, "--null takes one input and no output");
    }
    if (arguments.files.writesNothing) arguments.paths.push_back(kNowhere);
    if (!many.folder.empty()) return true;
    if (many.resumes || many.jobs > 0 || many.names != ManyArguments().names) {
        throw HostError(ExitCode::Usage,
                        "--names, --jobs and --resume are for several inputs, with "
                        "--out-dir");
    }
    if (arguments.paths.size() < 2) throw HostError(ExitCode::Usage, "OUT is required");
    if (arguments.paths.size() > 2) {
        throw HostError(ExitCode::Usage,
                        fmt::format("{} is one file more than IN and OUT; several inputs need "
                                    "--out-dir DIR",
                                    arguments.paths[2]));
    }
    arguments.input = arguments.paths[0];
    arguments.output = arguments.paths[1];
    return false;
}

namespace {

void addText(CLI::App& command, const char* name, const char* type, std::string& value,
             const char* text) {
    command.add_option(name, value, text)->type_name(type);
}

void addInputOptions(CLI::App& command, RenderArguments& arguments) {
    command
        .add_option("IN", arguments.paths,
                    "What is read, and behind it OUT, what is\nwritten, see below; several inputs "
                    "with --out-dir")
        ->required()
        ->type_name("OUT");
    addText(command, "--out-dir", "DIR", arguments.many.folder,
            "Render every input into that folder");
    addText(
        command, "--names", "PATTERN", arguments.many.names,
        "What the files there are called, of {name}, {ext} and\n{number} (default: {name}{ext})");
    command
        .add_option("--jobs", arguments.many.jobs,
                    "How many inputs at a time (default: 2 for pictures)")
        ->check(CLI::Range(1, mostThreads).description(""))
        ->type_name("N");
    command.add_flag("--resume", arguments.many.resumes,
                     "Leave out inputs whose file is whole and not older");
    addChainOptions(command, arguments.chain);
    addText(command, "--size", "WxH", arguments.size, "Scale the input to that size first");
    addText(command, "--range", "START-END", arguments.range,
            "The part of the input, in seconds or HH:MM:SS; START-\nand -END leave a side open");
    addText(command, "--duration", "TIME", arguments.duration,
            "That long from the start of the range; makes a film of\na picture");
    command.add_option("--frames", arguments.frames, "At most that many frames")
        ->check(
            CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()).description(""))
        ->type_name("N");
    addText(command, "--rate", "RATE", arguments.rate,
            "Frames per second, such as 25 or 30000/1001: a film\n"
            "gets the nearest frame at each tick (default: its own\n"
            "times), pictures 25");
}

void addOutputOptions(CLI::App& command, RenderArguments& arguments) {
    addText(command, "--codec", "NAME", arguments.codec,
            "The codec or encoder by FFmpeg's name (default: by the\nextension of OUT)");
    command
        .add_option("--crf", arguments.crf,
                    "Quality in the encoder's own scale, lower is better\n"
                    "(default: hard to tell from the source)")
        ->type_name("Q");
    addText(command, "--preset", "NAME", arguments.preset,
            "Speed preset of the encoder, if it has any");
    addFileOptions(command, arguments.files);
    command.add_flag("--alpha", arguments.keepsAlpha,
                     "Keep transparency where the codec can (default: when\n"
                     "the input or the first frame of the result has any)");
    addText(command, "--device", "NAME", arguments.device,
            "auto (the default: a GPU if there is one, else the CPU),\n"
            "cpu, reference, vulkan, or vulkan:N by number or name");
    command
        .add_option("--threads", arguments.threads,
                    "For the effects and decoding (default: one per core)")
        ->check(CLI::Range(1, mostThreads).description(""))
        ->type_name("N");
    addText(command, "--working-space", "NAME", arguments.workingSpace,
            "none: values are worked on as stored (the default);\n"
            "linear: linear light, by the transfer of IN");
    command.add_flag("--no-overwrite", arguments.keepsExisting,
                     "Refuse to replace an existing OUT");
    command.add_flag("--allow-playlists", arguments.allowsPlaylists,
                     "Read the files that a playlist names");
    command.add_flag("--quiet", arguments.isQuiet, "No progress, only warnings and errors");
    command.add_flag("--json", arguments.json, "One JSON object with the outcome");
}

} // namespace

void addRenderOptions(CLI::App& command, RenderArguments& arguments) {
    addInputOptions(command, arguments);
    addOutputOptions(command, arguments);
    command.footer(std::string(helpText) + kExitCodesHelp);
}

} // namespace vorn::hosts::cli
