// Command lines that cannot be carried out.
#include "render_support.h"

#include <ostream>
#include <string>

namespace {

using namespace render_test;

struct Complaint {
    Arguments arguments;
    int code;
    const char* talk; ///< a part of what is said
};

/// What a test's name shows.
void PrintTo(const Complaint& complaint, std::ostream* out) {
    *out << complaint.talk;
}

class RenderComplaints : public testing::TestWithParam<Complaint> {};

TEST_P(RenderComplaints, ComeWithTheirExitCode) {
    const Outcome run = render(GetParam().arguments);
    EXPECT_EQ(run.code, GetParam().code);
    EXPECT_NE(run.talk.find(GetParam().talk), std::string::npos) << run.talk;
    EXPECT_EQ(run.results, "");
}

/// Arguments of a render into a file that must not come to be.
Arguments with(Arguments options) {
    options.insert(options.begin(), {"test:64x48", "/nonexistent/out.mp4"});
    return options;
}

INSTANTIATE_TEST_SUITE_P(
    Usage, RenderComplaints,
    testing::Values(
        Complaint{with({"--filtr", "VEXray"}), 2,
                  "vorn render has no option --filtr; did you mean --filter?"},
        Complaint{with({"more.mp4"}), 2, "several inputs need --out-dir"},
        Complaint{{"test:"}, 2, "OUT is required"},
        Complaint{with({"--filter", "VESolarise"}), 2, "did you mean VESolarize?"},
        Complaint{with({"--filter", "VESolarize:intensty=1"}), 2, "did you mean inputIntensity?"},
        Complaint{with({"--filter", "VESolarize:INTENSITY=1"}), 2, "did you mean inputIntensity?"},
        Complaint{with({"--filter", "VESolarize:zebra=1"}), 2, "there is inputIntensity"},
        Complaint{with({"--filter", "VESolarize:intensity"}), 2, "\"=\" is missing"},
        Complaint{with({"--filter", "VESolarize:intensity=red"}), 2, "no value"},
        Complaint{with({"--filter", "VESolarize:intensity=[1,2]"}), 2, "kind number, not vector"},
        Complaint{with({"--filter", "VESolarize:image=a.png"}), 2, "that the chain hands on"},
        Complaint{with({"--image", "targetImage=a.png"}), 2, "there is no --filter"},
        Complaint{with({"--filter", "VEGobo", "--image", "targetImage=a.png"}), 2,
                  "no image input \"targetImage\""},
        Complaint{with({"--filter", "VEGobo", "--image", "inputImage=a.png"}), 2,
                  "no image input \"inputImage\""},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixr=0:1"}), 2, "mean inputMixer?"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=1"}), 2, "TIME:VALUE"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=1:0,0:1"}), 2, "decrease"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:0,1:[1,2]"}), 2, "one kind"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:none"}), 2, "can move"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:[1,2]"}), 2, "not vector"},
        Complaint{with({"--filter", "VEGobo", "--filter", "VEGobo", "--animate", "mixer=0:1"}), 2,
                  "1.inputMixer or 2.inputMixer"},
        Complaint{with({"--filter", "VEGobo", "--animate", "2.mixer=0:1"}), 2, "not in the chain"},
        Complaint{with({"--filter", "VEGobo:mixer=2*x"}), 2, "\"2*x\" is no formula of t"},
        Complaint{with({"--filter", "VEGobo", "--animate", "mixer=0:0:smoth,1:1"}), 2,
                  "mean smooth?"},
        Complaint{with({"--during", "0-1"}), 2, "there is no --filter"},
        Complaint{with({"--filter", "VEGobo", "--during", "2=0-1"}), 2, "not in the chain"},
        Complaint{with({"--filter", "VEGobo", "--filter", "VEGobo", "--during", "0-1"}), 2,
                  "N=START-END"},
        Complaint{with({"--filter", "VEGobo", "--filter", "VEGobo", "--during", "VEGobo=0-1"}), 2,
                  "several VEGobo"},
        Complaint{with({"--chain", "/nonexistent/chain.json"}), 3, "cannot read /nonexistent"},
        Complaint{with({"--chain", "/tmp"}), 3, "is a folder"},
        Complaint{with({"--preset-chain", "X-ray puls"}), 2, "did you mean X-ray pulse?"},
        Complaint{with({"--size", "64"}), 2, "WIDTHxHEIGHT"},
        Complaint{with({"--range", "2-1"}), 2, "ends before it starts"},
        Complaint{with({"--range", "soon"}), 2, "START-END"},
        Complaint{with({"--range", "1:2:3:4-"}), 2, "HH:MM:SS"},
        Complaint{with({"--range", "0-1", "--duration", "1"}), 2, "exclude each other"},
        Complaint{with({"--duration", "0"}), 2, "above 0"},
        Complaint{with({"--rate", "0"}), 2, "30000/1001"},
        Complaint{with({"--rate", "25/0"}), 2, "30000/1001"},
        Complaint{with({"--frames", "0"}), 2, "--frames"},
        Complaint{with({"--threads", "0"}), 2, "--threads"},
        Complaint{with({"--device", "toaster"}), 2, "reference, vulkan or vulkan:N"},
        Complaint{with({"--device", "vulkan:99"}), 5, "there is no Vulkan device"},
        Complaint{with({"--working-space", "blue"}), 2, "none or linear"},
        Complaint{with({"--audio", "copy:5k"}), 2, "CODEC[:BITRATE]"},
        Complaint{with({"--audio", "aac:loud"}), 2, "such as 192k"},
        Complaint{with({"--subtitles", "srt:5k"}), 2, "copy, none or CODEC"},
        Complaint{with({"--bitrate", "0"}), 2, "such as 192k or 5M"},
        Complaint{with({"--bitrate", "5G"}), 2, "such as 192k or 5M"},
        Complaint{with({"--bitrate", "5M", "--crf", "20"}), 2, "exclude each other"},
        Complaint{with({"--encoder-option", "g"}), 2, "KEY=VALUE"},
        Complaint{with({"--deinterlace=some"}), 2, "tagged or all"},
        Complaint{{"test:64x48", "-", "--json"}, 2, "standard output"},
        Complaint{{"test:64", "/nonexistent/out.mp4"}, 2, "WIDTHxHEIGHT"},
        Complaint{{"test:64x48@x", "/nonexistent/out.mp4"}, 2, "30000/1001"},
        Complaint{{"test:64x48,0s", "/nonexistent/out.mp4"}, 2, "not above 0"},
        Complaint{{"test:99999x48", "/nonexistent/out.mp4"}, 2, "at most 16384"},
        Complaint{{"/nonexistent/in.mp4", "/nonexistent/out.mp4"}, 3, "no such file"},
        Complaint{{VORN_CLI_PATH, "/nonexistent/out.mp4"}, 3, "cannot read"},
        Complaint{{"/no/\x1b[31m\n\x7f\xc2\x9b\xff.mp4", "out.mp4"},
                  3,
                  "cannot read /no/\\x1b[31m\\n\\x7f\\xc2\\x9b\\xff.mp4: no"},
        Complaint{with({"\x1b[31m"}), 2, "\\x1b[31m"},
        Complaint{with({}), 4, "no folder /nonexistent"},
        Complaint{{"test:64x48", "out.unheardof"}, 4, "unknown extension"},
        Complaint{{"test:64x48", "out.mp4", "--codec", "x26"}, 4, "did you mean"}));

} // namespace
