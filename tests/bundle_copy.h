// A copy of the library with a bundle of its own, in which resources may be missing or broken.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <vector>

using Lines = std::vector<std::string>;

inline Lines linesOf(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

inline std::string fileContents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

class BundleCopy {
public:
    BundleCopy() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vorneffects-bundle-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        root_ = pattern;
        library_ = root_ / std::filesystem::path(VORN_LIBRARY_PATH).filename();
        std::filesystem::copy_file(VORN_LIBRARY_PATH, library_);
        std::filesystem::create_directory(folder());
    }
    ~BundleCopy() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    BundleCopy(const BundleCopy&) = delete;
    BundleCopy& operator=(const BundleCopy&) = delete;

    std::filesystem::path folder() const { return root_ / "VornEffects"; }

    /// A resource of the real bundle.
    static std::filesystem::path original(const std::string& fileName) {
        return std::filesystem::path(VORN_LIBRARY_PATH).parent_path() / "VornEffects" / fileName;
    }
    void take(const std::string& fileName) {
        std::filesystem::copy_file(original(fileName), folder() / fileName);
    }
    void write(const std::string& fileName, const std::string& bytes) {
        std::ofstream(folder() / fileName, std::ios::binary) << bytes;
    }

    enum class Loaded { ByPath, ByRelativePath };

    /// Runs the probe program on this copy; what it printed. A probe that fails gives an exception.
    Lines probe(const Lines& steps, Loaded loaded = Loaded::ByPath) const {
        // Preloading wins over whatever search path the probe was linked with. The address
        // sanitizer wants to come first, and works when it does not.
        const bool isRelative = loaded == Loaded::ByRelativePath;
        return run("cd " + quoted(root_.string()) +
                       " && ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" +
                       quoted(isRelative ? "./" + library_.filename().string() : library_.string()),
                   steps);
    }
    /// The same with the real library and its bundle.
    static Lines probeOriginal(const Lines& steps) { return run("true;", steps); }

    std::filesystem::path root() const { return root_; }

private:
    static Lines run(const std::string& before, const Lines& steps) {
        std::string command = before + " " + quoted(VORN_PROBE_PATH);
        for (const std::string& step : steps) command += " " + quoted(step);
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) throw std::runtime_error("cannot run the probe");
        std::string printed;
        char buffer[4096];
        while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
            printed.append(buffer, count);
        const int status = pclose(pipe);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            throw std::runtime_error("the probe failed after printing:\n" + printed);
        return linesOf(printed);
    }

    static std::string quoted(const std::string& text) {
        std::string result = "'";
        for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return result + "'";
    }

    std::filesystem::path root_, library_;
};
