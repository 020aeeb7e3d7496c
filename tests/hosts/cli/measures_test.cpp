// `vorn bench` and `vorn doctor`.
#include "program.h"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace cli_test;

TEST(Bench, ReportsOneMeasurementPerCombination) {
    const Outcome run =
        runVorn("bench VESolarize VEDummy --size 64x48,32x32 --threads 1,2 --frames 2 "
                "--device all --format RGBAh --set inputIntensity=0.5 --json");
    ASSERT_EQ(run.code, 0) << run.talk;
    std::set<std::string> combinations;
    size_t onGpus = 0;
    for (const Json& line : run.objects()) {
        if (line.at("device") == "vulkan") {
            ++onGpus;
            EXPECT_GT(line.at("gpu_kernels_ms").get<double>(), 0);
            EXPECT_GE(line.at("median_ms"), line.at("gpu_kernels_ms"));
        }
        const double pixels = line.at("width").get<double>() * line.at("height").get<double>();
        const double microseconds = line.at("median_ms").get<double>() * 1e3;
        EXPECT_NEAR(line.at("mpixel_per_s").get<double>() * microseconds, pixels, pixels * 1e-9);
        EXPECT_GT(line.at("copy_mpixel_per_s").get<double>(), 0);
        EXPECT_EQ(line.at("format"), "RGBAh");
        const bool isSolarize = line.at("filter") == "VESolarize";
        const Json settings = isSolarize ? Json{{"inputIntensity", 0.5}} : Json::object();
        EXPECT_EQ(line.at("settings"), settings);
        combinations.insert(
            Json{line["filter"], line["device"], line["threads"], line["width"]}.dump());
    }
    // Two filters, two sizes; the CPU with one and two threads, the reference device with one, and
    // a Vulkan device where there is one.
    EXPECT_TRUE(onGpus == 0 || onGpus == 4) << onGpus;
    EXPECT_EQ(combinations.size(), 12U + onGpus);
    EXPECT_EQ(run.lines().size(), 12U + onGpus);
}

TEST(Bench, MeasuresEveryModeByTheInputThatChoosesIt) {
    const Outcome run = runVorn("bench VEDecay --modes --size 32x32 --threads 1 --frames 2 --json");
    std::vector<double> modes;
    for (const Json& line : run.objects()) modes.push_back(line.at("settings").at("inputSkip"));
    EXPECT_EQ(modes, (std::vector<double>{1, 61, 121, 181, 241})) << run.talk;
}

TEST(Doctor, FindsNothingBrokenHere) {
    const Outcome run = runVorn("doctor --json");
    EXPECT_EQ(run.code, 0) << run.results;
    const Json report = run.objects().at(0);
    EXPECT_EQ(report.at("problems"), Json::array());
    EXPECT_EQ(report.at("manifest").at("entries"), runVorn("list --json").lines().size());
    EXPECT_GT(report.at("kernel_libraries").at("checked"), 0);
    EXPECT_EQ(report.at("fonts").size(), 3U);
    EXPECT_EQ(runVorn("doctor").lines().back(), "Nothing is broken.");
}

TEST(Doctor, NamesADamagedLibraryAndAMissingManifest) {
    const std::string damaged = "VE_SolarizeFilterKernel.ci.metallib";
    BundleCopy copy;
    for (const auto& file :
         std::filesystem::directory_iterator(BundleCopy::original("x").parent_path())) {
        const std::string name = file.path().filename();
        if (name != damaged && name != "VornEffectsManifest.plist") copy.take(name);
    }
    const std::string bytes = fileContents(BundleCopy::original(damaged));
    copy.write(damaged, bytes.substr(0, bytes.size() / 2));

    const std::filesystem::path library =
        copy.folder().parent_path() / std::filesystem::path(VORN_LIBRARY_PATH).filename();
    const Outcome run =
        runVorn("doctor --json",
                "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD='" + library.string() + "'");
    EXPECT_EQ(run.code, 1);
    const Json report = run.objects().at(0);
    EXPECT_EQ(report.at("manifest").at("readable"), false);
    const Json libraries = report.at("kernel_libraries").at("damaged");
    ASSERT_EQ(libraries.size(), 1U);
    EXPECT_EQ(libraries[0].at("file"), (copy.folder() / damaged).string());
    EXPECT_NE(libraries[0].at("problem"), "");
    EXPECT_GE(report.at("problems").size(), 2U);
}

TEST(Doctor, NamesAnEntryWithoutAClassAndAKernelThatIsNotThere) {
    BundleCopy copy;
    for (const auto& file :
         std::filesystem::directory_iterator(BundleCopy::original("x").parent_path()))
        copy.take(file.path().filename());
    const std::string manifest = "VornEffectsManifest.plist", entries = "<array>";
    std::string text = fileContents(BundleCopy::original(manifest));
    text.insert(text.find(entries) + entries.size(),
                "<dict><key>FilterName</key><string>VENew</string>"
                "<key>ClassName</key><string>VENwe</string></dict>");
    for (const std::string& name : {manifest, std::string("VE_SolarizeFilterKernel.ci.metallib")})
        std::filesystem::remove(copy.folder() / name);
    copy.write(manifest, text);
    copy.write("VE_SolarizeFilterKernel.ci.metallib",
               fileContents(BundleCopy::original("VE_XrayFilterKernel.ci.metallib")));

    const std::filesystem::path library =
        copy.folder().parent_path() / std::filesystem::path(VORN_LIBRARY_PATH).filename();
    const Outcome run =
        runVorn("doctor --json",
                "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD='" + library.string() + "'");
    EXPECT_EQ(run.code, 1);
    const Json problems = run.objects().at(0).at("problems");
    ASSERT_EQ(problems.size(), 2U) << problems;
    EXPECT_NE(std::string(problems[0]).find("VENew -> VENwe"), std::string::npos) << problems;
    EXPECT_NE(std::string(problems[1]).find("VE_Solarize_solarize"), std::string::npos) << problems;
}

} // namespace
