#include "bundle_copy.h"
#include "core/FilterSupport.h"
#include "vorneffects/ImageDescription.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <ostream>

using namespace vorn;

namespace {

const char kLibrary[] = "VE_GainClampFilterKernel",
           kFile[] = "VE_GainClampFilterKernel.ci.metallib";
const std::string_view kNames[] = {"VE_GainClamp_gainThreshold", "VE_GainClamp_gainClamp",
                                   "VE_GainClamp_hybridHSVgainClamp"};

Class gainClamp() {
    return classFromString("VE_GainClamp");
}

/// The lines printed while something runs.
Lines printedBy(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return linesOf(testing::internal::GetCapturedStdout());
}

// ---- One kernel -------------------------------------------------------------------------------

TEST(Loaders, LibraryDataAreTheWholeFile) {
    Data data;
    EXPECT_EQ(printedBy([&] { data = VornEffectsLoadMetalLibraryData(gainClamp(), kLibrary); }),
              Lines{});
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::string(data->begin(), data->end()), fileContents(BundleCopy::original(kFile)));
    EXPECT_NE(VornEffectsLoadMetalLibraryData(gainClamp(), kLibrary), data) << "read on every call";
}

TEST(Loaders, KernelsKnowTheirNameLibraryAndKind) {
    const CIKernel general = VornEffectsLoadKernel(gainClamp(), kLibrary, kNames[1]);
    ASSERT_TRUE(general);
    EXPECT_EQ(general.name(), kNames[1]);
    EXPECT_EQ(general.libraryName(), kLibrary);
    EXPECT_EQ(general.type(), KernelType::General);

    // The general loader gives the kind that the function declares.
    const CIKernel color = VornEffectsLoadKernel(classFromString("VESolarize"),
                                                 "VE_SolarizeFilterKernel", "VE_Solarize_solarize");
    ASSERT_TRUE(color);
    EXPECT_EQ(color.type(), KernelType::Color);
}

TEST(Loaders, NoOwnerAndNoNameAreSilent) {
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(VornEffectsLoadMetalLibraryData(nullptr, kLibrary), nullptr);
                  EXPECT_EQ(VornEffectsLoadMetalLibraryData(gainClamp(), ""), nullptr);
                  EXPECT_FALSE(VornEffectsLoadKernel(nullptr, kLibrary, kNames[0]));
                  EXPECT_FALSE(VornEffectsLoadColorKernel(gainClamp(), {}, kNames[0]));
                  EXPECT_FALSE(VornEffectsLoadWarpKernel(nullptr, {}, {}));
              }),
              Lines{});
}

TEST(Loaders, AMissingLibraryIsNamedWithItsClass) {
    for (const char* name : {"VE_NothingFilterKernel", "../VornEffects/nothing", "."}) {
        const std::string line = std::string("ERROR: missing ci.metallib resource '") + name +
                                 "' for class 'VE_GainClamp'";
        EXPECT_EQ(printedBy([&] {
                      EXPECT_EQ(VornEffectsLoadMetalLibraryData(gainClamp(), name), nullptr);
                      EXPECT_FALSE(VornEffectsLoadKernel(gainClamp(), name, kNames[0]));
                      EXPECT_FALSE(VornEffectsLoadColorKernel(gainClamp(), name, kNames[0]));
                      EXPECT_FALSE(VornEffectsLoadWarpKernel(gainClamp(), name, kNames[0]));
                  }),
                  Lines(4, line));
    }
}

/// One line that says which kind, function and library failed, and goes on with a reason.
void expectFailureWithReason(const Lines& printed, const std::string& beginning) {
    ASSERT_EQ(printed.size(), 1u) << testing::PrintToString(printed);
    const std::string start = "ERROR: failed to load " + beginning + " err=";
    EXPECT_EQ(printed[0].substr(0, start.size()), start);
    EXPECT_GT(printed[0].size(), start.size()) << "no reason given";
}

TEST(Loaders, AMissingFunctionIsNamedWithItsLibraryAndAReason) {
    const std::string rest = " 'VE_GainClamp_gain' from 'VE_GainClampFilterKernel'";
    const std::string_view missing = "VE_GainClamp_gain"; // the beginning of names that exist
    expectFailureWithReason(
        printedBy([&] { EXPECT_FALSE(VornEffectsLoadKernel(gainClamp(), kLibrary, missing)); }),
        "CIKernel" + rest);
    expectFailureWithReason(
        printedBy(
            [&] { EXPECT_FALSE(VornEffectsLoadColorKernel(gainClamp(), kLibrary, missing)); }),
        "CIColorKernel" + rest);
    expectFailureWithReason(
        printedBy([&] { EXPECT_FALSE(VornEffectsLoadWarpKernel(gainClamp(), kLibrary, missing)); }),
        "CIWarpKernel" + rest);
    expectFailureWithReason(
        printedBy([&] { EXPECT_FALSE(VornEffectsLoadKernel(gainClamp(), kLibrary, "")); }),
        "CIKernel '' from 'VE_GainClampFilterKernel'");
}

TEST(Loaders, AFunctionOfAnotherKindIsRefused) {
    const std::string rest = " 'VE_GainClamp_gainClamp' from 'VE_GainClampFilterKernel'";
    expectFailureWithReason(
        printedBy(
            [&] { EXPECT_FALSE(VornEffectsLoadColorKernel(gainClamp(), kLibrary, kNames[1])); }),
        "CIColorKernel" + rest);
    expectFailureWithReason(
        printedBy(
            [&] { EXPECT_FALSE(VornEffectsLoadWarpKernel(gainClamp(), kLibrary, kNames[1])); }),
        "CIWarpKernel" + rest);
}

// ---- Damaged libraries ------------------------------------------------------------------------

std::string withFlippedBit(std::string bytes, size_t position) {
    bytes.at(position) = static_cast<char>(bytes[position] ^ 0x10);
    return bytes;
}

struct DamageCase {
    const char* title;
    std::function<std::string(const std::string& intact)> damage;
};

std::ostream& operator<<(std::ostream& stream, const DamageCase& test) {
    return stream << test.title;
}

class DamagedLibrary : public testing::TestWithParam<DamageCase> {};

TEST_P(DamagedLibrary, IsRefusedWithAReason) {
    BundleCopy copy;
    const std::string intact = fileContents(BundleCopy::original(kFile));
    copy.write(kFile, GetParam().damage(intact));
    Lines printed = copy.probe({std::string("kernel:") + kLibrary + ":VE_GainClamp_gainClamp"});
    ASSERT_FALSE(printed.empty());
    EXPECT_EQ(printed.back(), "no kernel");
    printed.pop_back();
    expectFailureWithReason(printed,
                            "CIKernel 'VE_GainClamp_gainClamp' from 'VE_GainClampFilterKernel'");
}

INSTANTIATE_TEST_SUITE_P(
    , DamagedLibrary,
    testing::Values(
        DamageCase{"Empty", [](const std::string&) { return std::string(); }},
        DamageCase{"OneByte", [](const std::string& intact) { return intact.substr(0, 1); }},
        DamageCase{"Half",
                   [](const std::string& intact) { return intact.substr(0, intact.size() / 2); }},
        DamageCase{"LastByteMissing",
                   [](const std::string& intact) { return intact.substr(0, intact.size() - 1); }},
        DamageCase{"FirstByteWrong",
                   [](const std::string& intact) { return withFlippedBit(intact, 0); }},
        DamageCase{
            "QuarterWrong",
            [](const std::string& intact) { return withFlippedBit(intact, intact.size() / 4); }},
        DamageCase{
            "MiddleWrong",
            [](const std::string& intact) { return withFlippedBit(intact, intact.size() / 2); }},
        DamageCase{
            "LastByteWrong",
            [](const std::string& intact) { return withFlippedBit(intact, intact.size() - 1); }},
        DamageCase{"Text", [](const std::string&) { return std::string(5000, 'x'); }},
        DamageCase{"Zeros",
                   [](const std::string& intact) { return std::string(intact.size(), '\0'); }},
        DamageCase{"AProgramOfTheSystem",
                   [](const std::string&) { return fileContents("/bin/true"); }}),
    [](const auto& test) { return test.param.title; });

TEST(Loaders, ALibraryWithoutTheFunctionIsNotTakenForItself) {
    BundleCopy copy;
    copy.write(kFile, fileContents(BundleCopy::original("VE_DummyFilterKernel.ci.metallib")));
    const Lines printed =
        copy.probe({std::string("kernel:") + kLibrary + ":VE_GainClamp_gainClamp"});
    ASSERT_EQ(printed.size(), 2u);
    expectFailureWithReason({printed[0]},
                            "CIKernel 'VE_GainClamp_gainClamp' from 'VE_GainClampFilterKernel'");
    EXPECT_EQ(printed[1], "no kernel");
}

TEST(Loaders, AFileThatCannotBeReadIsReported) {
    namespace fs = std::filesystem;
    BundleCopy copy;
    copy.take(kFile);
    fs::permissions(copy.folder().parent_path(), fs::perms(0755)); // for the user "nobody"
    fs::permissions(copy.folder() / kFile, fs::perms::none);
    const Lines printed = copy.probe(
        {"without-privileges", std::string("kernel:") + kLibrary + ":VE_GainClamp_gainClamp"});
    if (printed.front() == "still privileged") GTEST_SKIP() << "cannot give up root's rights here";
    EXPECT_EQ(printed, (Lines{"ERROR: failed to load ci.metallib 'VE_GainClampFilterKernel' for "
                              "class 'VEDummy'",
                              "no kernel"}));
}

TEST(Loaders, AFilterWithoutItsLibraryIsMadeAndTriesAgain) {
    BundleCopy copy;
    copy.take("VornEffectsManifest.plist");
    const std::string file = "VE_DummyFilterKernel.ci.metallib";
    const std::string target = (copy.folder() / file).string();
    const Lines printed = copy.probe({"register", "create:VEDummy",
                                      "copy:" + BundleCopy::original(file).string() + ":" + target,
                                      "create:VEDummy", "remove:" + target, "create:VEDummy"});
    // Loaded by the second filter, the kernel stays for the third.
    EXPECT_EQ(printed,
              (Lines{"VornEffects: registerAllFilters",
                     "ERROR: missing ci.metallib resource 'VE_DummyFilterKernel' for class "
                     "'VEDummy'",
                     "a filter", "a filter", "a filter"}));
}

TEST(Loaders, ALibraryLoadedByARelativePathKeepsItsBundle) {
    BundleCopy copy, planted;
    copy.take("VE_DummyFilterKernel.ci.metallib");
    planted.write("VE_DummyFilterKernel.ci.metallib", "native code of somebody else");
    EXPECT_EQ(copy.probe({"change-folder:" + planted.root().string(),
                          "kernel:VE_DummyFilterKernel:VE_Dummy_dummy"},
                         BundleCopy::Loaded::ByRelativePath),
              Lines{"a kernel"});
}

TEST(Loaders, DescriptorsThatRunOutAreNamedAndForgotten) {
    BundleCopy copy;
    for (const char* file : {"VornEffectsManifest.plist", "VE_DummyFilterKernel.ci.metallib",
                             "CIFrameworkKernel.ci.metallib"})
        copy.take(file);
    const Lines printed = copy.probe({"make:VEDummy", "descriptors:none", "render", "render",
                                      "color", "descriptors:all", "render", "color"});
    ASSERT_EQ(printed.size(), 7u) << testing::PrintToString(printed);
    EXPECT_NE(printed[0].find("code of kernel library 'VE_DummyFilterKernel'"), std::string::npos);
    EXPECT_EQ("ERROR: " + printed[1], printed[0]) << "the render's own message";
    EXPECT_EQ(printed[2], printed[1]) << "no second line for the same reason";
    for (const size_t i : {0, 1, 3})
        EXPECT_NE(printed[i].find(std::strerror(EMFILE)), std::string::npos) << printed[i];
    EXPECT_EQ(printed[4], "no image");
    EXPECT_EQ(printed[5], "rendered");
    EXPECT_EQ(printed[6], "rendered");
}

TEST(Loaders, CodeIsLoadedWithoutProcAndWithoutFilesInMemory) {
    BundleCopy copy;
    for (const char* file : {"VornEffectsManifest.plist", "VE_DummyFilterKernel.ci.metallib",
                             "CIFrameworkKernel.ci.metallib"})
        copy.take(file);
    const auto temporaryFolders = [] {
        int count = 0;
        for (const auto& file : std::filesystem::directory_iterator("/tmp"))
            count += file.path().filename().string().starts_with("vorneffects-code-");
        return count;
    };
    const int before = temporaryFolders();
    bool isSkipped = true;
    for (const char* lack : {"without-proc", "without-memory-files"}) {
        Lines printed = copy.probe({lack, "make:VEDummy", "render"});
        if (printed.front().starts_with("still with")) continue;
        isSkipped = false;
        EXPECT_EQ(printed, Lines{"rendered"}) << lack;
    }
    EXPECT_EQ(temporaryFolders(), before) << "nothing is left behind";
    if (isSkipped) GTEST_SKIP() << "nothing can be taken away from a process here";
}

TEST(Loaders, EveryFilterCanBeMadeFirstOnManyThreads) {
    EXPECT_EQ(BundleCopy::probeOriginal({"threads:8"}), Lines{"a catalogue"});
}

// ---- Arrays of kernels ------------------------------------------------------------------------

TEST(LoaderOfArrays, FillsOnlyTheEmptySlots) {
    std::array<CIKernel, 3> slots;
    EXPECT_EQ(printedBy([&] {
                  EXPECT_TRUE(
                      VornEffectsLoadKernelArray(gainClamp(), kLibrary, kNames, slots.data(), 3));
              }),
              Lines{});
    for (size_t index = 0; index < slots.size(); ++index)
        EXPECT_EQ(slots[index].name(), kNames[index]);

    const auto kept = slots[2].function();
    slots[1] = {};
    EXPECT_TRUE(VornEffectsLoadKernelArray(gainClamp(), kLibrary, kNames, slots.data(), 3));
    EXPECT_TRUE(slots[1]);
    EXPECT_EQ(slots[2].function(), kept);

    // Nothing is looked up for slots that are full.
    EXPECT_EQ(printedBy([&] {
                  EXPECT_TRUE(VornEffectsLoadKernelArray(gainClamp(), "VE_NothingFilterKernel",
                                                         kNames, slots.data(), 3));
              }),
              Lines{});
}

TEST(LoaderOfArrays, GoesOnAfterAFailure) {
    const std::string_view names[] = {kNames[0], "", "VE_GainClamp_nothing", kNames[2]};
    std::array<CIKernel, 4> slots;
    bool isComplete = true;
    const Lines printed = printedBy([&] {
        isComplete = VornEffectsLoadKernelArray(gainClamp(), kLibrary, names, slots.data(), 4);
    });
    EXPECT_FALSE(isComplete);
    EXPECT_TRUE(slots[0]);
    EXPECT_FALSE(slots[1]);
    EXPECT_FALSE(slots[2]);
    EXPECT_TRUE(slots[3]);
    ASSERT_EQ(printed.size(), 3u) << testing::PrintToString(printed);
    EXPECT_EQ(printed[0], "ERROR: empty kernel name at index 1 for class 'VE_GainClamp'");
    expectFailureWithReason({printed[1]},
                            "CIKernel 'VE_GainClamp_nothing' from 'VE_GainClampFilterKernel'");
    EXPECT_EQ(printed[2],
              "ERROR: failed to load kernel 'VE_GainClamp_nothing' at index 2 for class "
              "'VE_GainClamp'");
}

TEST(LoaderOfArrays, SaysNothingOfArgumentsThatMakeNoSense) {
    std::array<CIKernel, 3> slots;
    EXPECT_EQ(
        printedBy([&] {
            EXPECT_FALSE(VornEffectsLoadKernelArray(nullptr, kLibrary, kNames, slots.data(), 3));
            EXPECT_FALSE(VornEffectsLoadKernelArray(gainClamp(), "", kNames, slots.data(), 3));
            EXPECT_FALSE(
                VornEffectsLoadKernelArray(gainClamp(), kLibrary, kNames, slots.data(), 0));
            EXPECT_FALSE(
                VornEffectsLoadKernelArray(gainClamp(), kLibrary, kNames, slots.data(), -1));
            EXPECT_FALSE(VornEffectsLoadKernelArray(gainClamp(), kLibrary, kNames, nullptr, 3));
            EXPECT_FALSE(
                VornEffectsLoadKernelArray(gainClamp(), kLibrary, nullptr, slots.data(), 3));
        }),
        Lines{});
    for (const CIKernel& slot : slots) EXPECT_FALSE(slot);
}

TEST(LoaderOfArrays, ClassesLookAtTheirFirstSlotOnly) {
    struct Owner {
        static Class theClass() { return gainClamp(); }
    };
    CIKernel slots[3];
    loadKernels<Owner>(slots, kLibrary, kNames);
    slots[2] = {};
    loadKernels<Owner>(slots, kLibrary, kNames);
    EXPECT_FALSE(slots[2]) << "a gap behind a full first slot stays";
    slots[0] = {};
    loadKernels<Owner>(slots, kLibrary, kNames);
    EXPECT_TRUE(slots[2]);
}

// ---- The picture for refused frames -------------------------------------------------------------

TEST(RefusedFrame, PictureIsMadeOncePerFilter) {
    ErrorImage errorImage, ofAnotherFilter;
    const CIImage picture = errorImage.imageFor("FX 127");
    ASSERT_TRUE(picture);
    EXPECT_TRUE(picture == errorImage.imageFor("FX 127"));
    EXPECT_FALSE(picture == ofAnotherFilter.imageFor("FX 127"));

    const auto description = describeImage(picture, {0, 0, 1, 1});
    EXPECT_EQ(description->kind, ImageDescription::Kind::ErrorImage);
    EXPECT_EQ(description->label, "FX 127");
    EXPECT_EQ(description->message, "Image Too Big!");
}

TEST(RefusedFrame, AMissingPictureIsAskedForAgain) {
    const std::string line = "### FX: missing error image resource 'FX_error_image'";
    EXPECT_EQ(BundleCopy().probe({"refuse:FX 127"}),
              (Lines{line, "no picture", line, "no picture"}));
}

TEST(RefusedFrame, AreasNearALimitDifferInSinglePrecision) {
    // 23764001 has no single-precision form and rounds onto the limit.
    const auto imageOf = [](double width, double height) {
        return CIImage::imageWithColor(CIColor(0, 0, 0))
            .imageByCroppingToRect({0, 0, width, height});
    };
    EXPECT_EQ(area(CIImage()), 0);
    EXPECT_EQ(areaInSinglePrecision(CIImage()), 0);
    EXPECT_EQ(area(imageOf(23764001, 1)), 23764001);
    EXPECT_GT(area(imageOf(23764001, 1)), kFixedArea23764000);
    EXPECT_FALSE(areaInSinglePrecision(imageOf(23764001, 1)) > kFixedArea23764000);
    EXPECT_GT(areaInSinglePrecision(imageOf(23764002, 1)), kFixedArea23764000);
    EXPECT_GT(area(CIImage::imageWithColor(CIColor(0, 0, 0))), kArea12000x12000);
}

} // namespace
