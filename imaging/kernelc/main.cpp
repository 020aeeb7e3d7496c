// kernelc: compiles a kernel source to a kernel library.
//
//   kernelc --output LIBRARY --include FOLDER --lanes FOLDER --compiler C++
//           --validator PROGRAM --depfile FILE --temporary FOLDER
//           --level NAME:LANES:FLAG,FLAG,… [--level …] [--prepared FOLDER]  SOURCE
//   kernelc --prepare FOLDER --lanes FOLDER --compiler C++ --level … [--level …]
//
// Runs the C++ compiler once for each level and the SPIR-V validator once for each kernel.
// Most of a small kernel's time would go into the headers of the lanes and the functions that all
// kernels call: the second form compiles them in advance, to a folder that the first one takes.

#include "imaging/kernelc/library_format.h"
#include "imaging/kernelc/source.h"
#include "imaging/kernelc/spirv.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace vorn::kernelc {
namespace {

struct Options {
    std::string source, output, includeFolder, lanesFolder, compiler, validator, depfile, temporary,
        prepare, prepared;
    struct Level {
        std::string name;
        uint32_t lanes;
        std::vector<std::string> flags;
    };
    std::vector<Level> levels;
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text)
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    return parts;
}

Options parseOptions(int count, char** arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name.compare(0, 2, "--") != 0) {
            options.source = name;
            continue;
        }
        if (i + 1 >= count) throw SourceError(name + " needs a value");
        const std::string value = arguments[++i];
        if (name == "--output")
            options.output = value;
        else if (name == "--include")
            options.includeFolder = value;
        else if (name == "--lanes")
            options.lanesFolder = value;
        else if (name == "--compiler")
            options.compiler = value;
        else if (name == "--validator")
            options.validator = value;
        else if (name == "--depfile")
            options.depfile = value;
        else if (name == "--temporary")
            options.temporary = value;
        else if (name == "--prepare")
            options.prepare = value;
        else if (name == "--prepared")
            options.prepared = value;
        else if (name == "--level") {
            const auto parts = split(value, ':');
            if (parts.size() != 3) throw SourceError("--level NAME:LANES:FLAGS");
            options.levels.push_back(
                {parts[0], static_cast<uint32_t>(std::stoul(parts[1])), split(parts[2], ',')});
        } else
            throw SourceError("unknown option " + name);
    }
    const bool isPreparation = !options.prepare.empty();
    if (options.levels.empty() ||
        (!isPreparation && (options.source.empty() || options.output.empty())))
        throw SourceError("usage: kernelc --output LIBRARY --level … SOURCE");
    return options;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw SourceError(path + ": cannot be written");
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SourceError(path + ": cannot be read");
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Process {
    pid_t id;
    std::vector<std::string> command;
    std::string log;
};

/// Starts a program; its output goes to `log` when one is given, and shows only when it fails.
Process start(const std::vector<std::string>& command, const std::string& log = {}) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!log.empty()) {
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    }
    pid_t child = 0;
    const int failure =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw SourceError(command[0] + ": " + std::strerror(failure));
    return {child, command, log};
}

/// Waits for a program's end, which is to be a good one.
void finish(const Process& process) {
    int status = 0;
    waitpid(process.id, &status, 0);
    if (status == 0) return;
    if (!process.log.empty()) std::fputs(readFile(process.log).c_str(), stderr);
    std::string line;
    for (const std::string& word : process.command) line += word + " ";
    throw SourceError("failed: " + line);
}

/// Runs programs two at a time: who waits for one kernel has a second core to spare, and a build
/// of all kernels keeps every core busy as it is.
void runAll(const std::vector<std::vector<std::string>>& commands) {
    std::deque<Process> running;
    std::exception_ptr failure;
    const auto finishOne = [&] {
        try {
            finish(running.front());
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
        running.pop_front();
    };
    for (const auto& command : commands) {
        if (running.size() == 2) finishOne();
        if (failure) break;
        running.push_back(start(command));
    }
    while (!running.empty()) finishOne();
    if (failure) std::rethrow_exception(failure);
}

/// The compiler with what headers and kernels of a level have in common.
std::vector<std::string> compilerOf(const Options& options, const Options::Level& level) {
    std::vector<std::string> command{options.compiler,
                                     "-std=c++20",
                                     "-fPIC",
                                     "-fvisibility=hidden",
                                     "-fno-math-errno",
                                     "-fno-trapping-math",
                                     "-fno-exceptions",
                                     "-fno-rtti",
                                     "-w",
                                     "-DVORN_LANES=" + std::to_string(level.lanes)};
    if (!options.prepared.empty()) command.push_back("-I" + options.prepared);
    command.push_back("-I" + options.lanesFolder);
    command.insert(command.end(), level.flags.begin(), level.flags.end());
    return command;
}

/// The functions that kernels of a level have in common.
std::string commonObject(const std::string& folder, const Options::Level& level) {
    return folder + "/common." + level.name + ".o";
}

/// Of a folder with the name of a header and ".gch", GCC takes the file that fits its options.
void prepare(const Options& options) {
    const std::string folder = options.prepare + "/kernel.h.gch";
    std::filesystem::create_directories(folder);
    std::vector<std::vector<std::string>> commands;
    for (const Options::Level& level : options.levels) {
        std::vector<std::string> header = compilerOf(options, level), common = header;
        header.insert(header.end(), {"-x", "c++-header", options.lanesFolder + "/kernel.h", "-o",
                                     folder + "/" + level.name});
        common.insert(common.end(),
                      {"-ffunction-sections", "-c", options.lanesFolder + "/common.cpp", "-o",
                       commonObject(options.prepare, level)});
        commands.push_back(std::move(header));
        commands.push_back(std::move(common));
    }
    runAll(commands);
}

void compile(const Options& options) {
    const Source source = readSource(options.source, options.includeFolder);
    const std::string base = options.temporary + "/" + source.name;
    Library library;
    library.name = source.name;
    library.processor = thisProcessor();

    const std::string cpp = base + ".cpp";
    writeFile(cpp, emitCpp(source));
    const auto objectOf = [&](const Options::Level& level) {
        return base + "." + level.name + ".so";
    };
    std::vector<std::vector<std::string>> commands;
    for (const Options::Level& level : options.levels) {
        std::vector<std::string> command = compilerOf(options, level);
        command.insert(command.end(),
                       {cpp,
                        options.prepared.empty() ? options.lanesFolder + "/common.cpp"
                                                 : commonObject(options.prepared, level),
                        "-shared", "-o", objectOf(level), "-nostartfiles", "-Wl,-s",
                        "-Wl,--gc-sections", "-Wl,-z,noseparate-code", "-Wl,--as-needed", "-lsleef",
                        "-lm"});
        commands.push_back(std::move(command));
    }
    runAll(commands);
    for (const Options::Level& level : options.levels)
        library.code.push_back({level.name, level.lanes, readFile(objectOf(level))});
    for (const KernelDeclaration& kernel : source.kernels) {
        const std::string shader = base + "." + kernel.function.name;
        const std::string glsl = emitGlsl(source, kernel);
        writeFile(shader + ".comp", glsl);
        Function function = kernel.function;
        function.spirv = spirvOf(glsl, shader + ".comp");
        writeFile(shader + ".spv", {reinterpret_cast<const char*>(function.spirv.data()),
                                    function.spirv.size() * sizeof(uint32_t)});
        finish(start({options.validator, "--target-env", "vulkan1.2", shader + ".spv"},
                     shader + ".log"));
        library.functions.push_back(std::move(function));
    }
    writeFile(options.output + ".new", serialize(library));
    if (std::rename((options.output + ".new").c_str(), options.output.c_str()) != 0)
        throw SourceError(options.output + ": cannot be written");
    if (!options.depfile.empty()) {
        std::string dependencies = options.output + ":";
        for (const std::string& file : source.files) dependencies += " " + file;
        writeFile(options.depfile, dependencies + "\n");
    }
}

} // namespace
} // namespace vorn::kernelc

int main(int count, char** arguments) {
    try {
        const auto options = vorn::kernelc::parseOptions(count, arguments);
        options.prepare.empty() ? vorn::kernelc::compile(options) : vorn::kernelc::prepare(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kernelc: %s\n", error.what());
        return 1;
    }
}
