// The program itself: what it loads, how it complains and helps.
#include "program.h"

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace {

using namespace cli_test;

TEST(Program, LoadsNothingFromTheCurrentFolder) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("vorn-loading-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    // Every program of C++ needs these.
    for (const char* name : {"libstdc++.so.6", "libm.so.6", "libc.so.6"})
        std::ofstream(folder / name) << "no library";
    const std::string command = "cd '" + folder.string() + "' && '" VORN_CLI_PATH "' --version >&2";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::filesystem::remove_all(folder);
}

struct ComplaintCase {
    const char* arguments;
    int code;
    const char* talk; // a part of what is said
};

/// What a test's name shows.
void PrintTo(const ComplaintCase& complaint, std::ostream* out) {
    *out << complaint.arguments;
}

class Complaints : public testing::TestWithParam<ComplaintCase> {};

TEST_P(Complaints, GoToStandardErrorWithTheirExitCode) {
    const Outcome run = runVorn(GetParam().arguments);
    EXPECT_EQ(run.code, GetParam().code);
    EXPECT_NE(run.talk.find(GetParam().talk), std::string::npos) << run.talk;
    EXPECT_EQ(run.results, "");
}

INSTANTIATE_TEST_SUITE_P(
    Usage, Complaints,
    testing::Values(
        ComplaintCase{"", 2, "Usage: vorn"}, ComplaintCase{"lisst", 2, "did you mean list?"},
        ComplaintCase{"help explian", 2, "did you mean explain?"},
        ComplaintCase{"list --jsn", 2, "--jsn"}, ComplaintCase{"explain", 2, "NAME is required"},
        ComplaintCase{"describe VESolarise", 2, "did you mean VESolarize?"},
        ComplaintCase{"explain solarize", 2, "did you mean VESolarize?"},
        ComplaintCase{"bench VE_RGBGama", 2, "did you mean VE_RGB_Gamma?"},
        ComplaintCase{"explain VESolarize --set inputIntensty=1", 2, "mean inputIntensity?"},
        ComplaintCase{"explain VESolarize --set inputIntensity", 2, "--set"},
        ComplaintCase{"explain VESolarize --set inputIntensity=", 2, "no value"},
        ComplaintCase{"explain VESolarize --set inputIntensity=half", 2, "half"},
        ComplaintCase{"explain VESolarize --set inputIntensity=1e999", 2, "1e999"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=[1,2]'", 2, "kind number"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=[1]'", 2, "two to four"},
        ComplaintCase{"explain VESolarize --set 'inputIntensity=rgba(1,2,3)'", 2, "four"},
        ComplaintCase{"explain VESolarize --set inputIntensity=hex:0f0", 2, "hexadecimal"},
        ComplaintCase{"explain VESolarize --set inputIntensity=text:1", 2, "not string"},
        ComplaintCase{"explain VESolarize --set inputImage=1", 2, "kind image"},
        ComplaintCase{"explain VESolarize --image inputImage=0x10", 2, "at least 1"},
        ComplaintCase{"explain VESolarize --image inputImage=10x-1", 2, "at least 1"},
        ComplaintCase{"explain VESolarize --image inputImage=10x10+5", 2, "WIDTHxHEIGHT+X+Y"},
        ComplaintCase{"explain VESolarize --image inputIntensity=10x10", 2, "kind number"},
        ComplaintCase{"explain VESolarize --image inputImage=4294967295x4294967295", 2, "memory"},
        ComplaintCase{"explain VESolarize --property inputImage=1", 2, "--property"},
        ComplaintCase{"explain VESolarize --image inputImage=none --property inputImage:a=1", 2,
                      "no image is set"},
        ComplaintCase{"explain VESolarize --clock 1,2,3", 2, "2 times are needed"},
        ComplaintCase{"explain VESolarize --clock 1,-2", 2, "whole nanoseconds"},
        ComplaintCase{"explain VESolarize --frame-time 1,2", 2, "1 times are needed"},
        ComplaintCase{"explain VESolarize --frames 0", 2, "--frames"},
        ComplaintCase{"explain VESolarize --probe 1,2,3", 2, "X,Y,WIDTH,HEIGHT"},
        ComplaintCase{"explain VESolarize --at x:inputIntensity=1", 2, "counted from 0"},
        ComplaintCase{"explain VESolarize --at 0:call:dance", 2, "call:clear"},
        ComplaintCase{"bench VEDummy --size 16x", 2, "WIDTHxHEIGHT"},
        ComplaintCase{"bench VEDummy --format YUV", 2, "RGBA8"},
        ComplaintCase{"bench VEDummy --threads 0", 2, "1 to"},
        ComplaintCase{"bench VEDummy --device toaster", 2, "vulkan, vulkan:N or all"},
        ComplaintCase{"bench VEDummy --device vulkan:99", 5, "there is no Vulkan device"},
        ComplaintCase{"bench VEDummy --frames 1 --seconds 1", 2, "exclude"},
        ComplaintCase{"gallery", 2, "DIR is required"},
        ComplaintCase{"gallery ''", 2, "has no name"},
        ComplaintCase{"gallery /dev/null --filter VEMirors", 2, "did you mean VEMirrors?"},
        ComplaintCase{"gallery /dev/null", 4, "cannot make the folder /dev/null"},
        ComplaintCase{"gallery /proc/gallery", 4, "cannot make the folder /proc/gallery"},
        ComplaintCase{"list >/dev/full", 4, "cannot be written"}));

TEST(Help, ListsTheCommandsAndShowsEachOnesExamples) {
    const Outcome general = runVorn("help");
    EXPECT_EQ(general.code, 0);
    EXPECT_EQ(general.results, runVorn("--help").results);
    for (const std::string command :
         {"list", "describe", "explain", "chain", "gallery", "completion", "bench", "doctor"}) {
        EXPECT_NE(general.results.find("\n  " + command + " "), std::string::npos) << command;
        const Outcome run = runVorn("help " + command);
        EXPECT_EQ(run.code, 0) << command;
        EXPECT_NE(run.results.find("  vorn " + command + " "), std::string::npos) << run.results;
        EXPECT_EQ(run.results, runVorn(command + " --help").results);
    }
    EXPECT_EQ(runVorn("--version").results, "vorn 1.0\n");
}

} // namespace
