// The manual page and completion, which are made from the options.
#include "program.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace {

using namespace cli_test;

/// The long options of every command, as its help shows them.
std::map<std::string, std::set<std::string>> optionsByCommand() {
    std::map<std::string, std::set<std::string>> options;
    const std::string help = runVorn("help").results;
    const std::regex command("\n  (\\w+) +[A-Z]"), option("\n  (?:-h,)?--([\\w-]+)");
    for (std::sregex_iterator match(help.begin(), help.end(), command), end; match != end;
         ++match) {
        const std::string name = (*match)[1], own = runVorn("help " + name).results;
        for (std::sregex_iterator found(own.begin(), own.end(), option); found != end; ++found)
            options[name].insert((*found)[1]);
    }
    return options;
}

TEST(Manual, TellsOfEveryCommandAndOption) {
    const std::string page = runVorn("help --man").results;
    EXPECT_TRUE(page.starts_with(".TH VORN 1 ")) << page.substr(0, 40);
    const auto commands = optionsByCommand();
    ASSERT_GE(commands.size(), 10U);
    for (const auto& [command, options] : commands) {
        const size_t start = page.find(".SS vorn " + command + "\n");
        ASSERT_NE(start, std::string::npos) << command;
        const std::string section = page.substr(start, page.find(".SS", start + 1) - start);
        for (std::string option : options) {
            option = std::regex_replace(option, std::regex("-"), "\\-");
            EXPECT_NE(section.find("\\-\\-" + option + "\\fR"), std::string::npos) << option;
        }
    }
    // No line of ours is taken for a command of man's.
    const std::regex unknown("\n[.'](?!(TH|SH|SS|TP|PP|nf|fi)\\b)");
    EXPECT_FALSE(std::regex_search(page, unknown));
}

TEST(Completion, KnowsEveryOptionInEveryShell) {
    for (const std::string shell : {"bash", "zsh", "fish"}) {
        const Outcome run = runVorn("completion " + shell);
        EXPECT_EQ(run.code, 0);
        for (const auto& [command, options] : optionsByCommand())
            for (const std::string& option : options)
                EXPECT_NE(run.results.find((shell == "fish" ? "-l " : "--") + option),
                          std::string::npos)
                    << shell << ": " << command << " --" << option;
    }
    EXPECT_EQ(runVorn("completion tcsh").code, 2);
}

TEST(Completion, CompletesInBash) {
    const std::string script =
        (std::filesystem::temp_directory_path() / ("vorn-completion-" + std::to_string(getpid())))
            .string();
    std::ofstream(script) << runVorn("completion bash").results
                          << "vorn() { '" VORN_CLI_PATH "' \"$@\"; }\n"
                          << "COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1)); _vorn; printf '%s\\n' "
                             "\"${COMPREPLY[@]}\"\n";
    const auto completed = [&](const std::string& words) {
        FILE* pipe = popen(("bash '" + script + "' " + words).c_str(), "r");
        std::string text;
        char buffer[4096];
        while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
            text.append(buffer, count);
        pclose(pipe);
        return text;
    };
    EXPECT_EQ(completed("vorn rend"), "render\n");
    EXPECT_EQ(completed("vorn render --out-d"), "--out-dir\n");
    EXPECT_EQ(completed("vorn render a.mp4 b.mp4 --filter VESolar"), "VESolarize\n");
    EXPECT_EQ(completed("vorn render a.mp4 b.mp4 --preset-chain X-r"), "X-ray\\ pulse\n");
    EXPECT_EQ(completed("vorn help expl"), "explain\n");
    EXPECT_EQ(completed("vorn render /etc/hostn"), "/etc/hostname\n");
    std::filesystem::remove(script);
}

TEST(Complaints, AreJsonForWhoAsksForJson) {
    struct Case {
        const char* arguments;
        int code;
        const char* problem;
    };
    for (const Case& each :
         {Case{"describe VESolarise --json", 2, "did you mean VESolarize?"},
          Case{"render --json /nonexistent/a.mp4 b.mp4", 3, "no such file"},
          Case{"list --json --jsn", 2, "vorn list has no option --jsn; did you mean --json?"}}) {
        const Outcome run = runVorn(each.arguments);
        EXPECT_EQ(run.code, each.code);
        const Json json = Json::parse(run.talk);
        EXPECT_EQ(json.at("exit_code"), each.code);
        EXPECT_NE(json.at("error").get<std::string>().find(each.problem), std::string::npos)
            << run.talk;
        EXPECT_EQ(run.results, "");
    }
}

} // namespace
