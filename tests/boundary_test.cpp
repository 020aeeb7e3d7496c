// What the library shows of itself, and what it keeps from hosts: its inner names, and exceptions.
#include "bundle_copy.h"
#include "support.h"
#include "vorneffects/ImageDescription.h"

#include <regex>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

/// What a command prints, errors included.
Lines printedByCommand(const std::string& command) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) throw std::runtime_error("cannot run " + command);
    std::string printed;
    char buffer[4096];
    while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
        printed.append(buffer, count);
    pclose(pipe);
    return linesOf(printed);
}

// ---- Exports ------------------------------------------------------------------------------------

Lines exportedNames() {
    Lines names;
    for (const std::string& line :
         printedByCommand(VORN_NM " -D -C --defined-only '" VORN_LIBRARY_PATH "'")) {
        const size_t kind = line.find_first_of("ABDRTVWBu", line.find(' '));
        if (kind != line.npos) names.push_back(line.substr(kind + 2));
    }
    return names;
}

TEST(Exports, AreTheInterfaceAndNothingElse) {
    const Lines names = exportedNames();
    EXPECT_GE(names.size(), 200u);
    EXPECT_LE(names.size(), 700u); // ninety-two filters included
    const std::regex interface("((typeinfo|typeinfo name|vtable) for )?"
                               "(VornEffects\\w+(::.+)?|vorn_\\w+|VE\\w+::classInformation|"
                               "CI(Color|Warp)?Kernel::.+|CI(Context|Image|ImageAccumulator)::.+|"
                               "CIFilter(Constructor)?(::.+)?|vorn::.+)");
    const std::regex inside("(\\w+ )*(\\w+ for )?vorn::(imaging|platform|core|filters|kernel\\w+|"
                            "lanes|cli|media)::.*");
    for (const std::string& name : names) {
        EXPECT_TRUE(std::regex_match(name, interface)) << name;
        EXPECT_FALSE(std::regex_match(name, inside)) << name;
    }
}

TEST(Exports, HoldEveryFunctionAndClassThatIsPromised) {
    const Lines exported = exportedNames();
    Lines promised{"VornEffectsLoadMetalLibraryData",
                   "VornEffectsLoadKernel",
                   "VornEffectsLoadColorKernel",
                   "VornEffectsLoadWarpKernel",
                   "VornEffectsLoadKernelArray",
                   "VornEffectsCreateErrorImage",
                   "VornEffectsCreateBitmapContext",
                   "VornEffectsGetUptimeInNanoseconds",
                   "VornEffectsDeg2rad",
                   "VornEffectsMod2pi",
                   "VornEffectsVersionNumber",
                   "VornEffectsVersionString",
                   "VornEffectsRegistrar::registerAllFilters()"};
    for (const std::string& name : VornEffectsCatalog::allFilterNames())
        promised.push_back(std::string(VornEffectsCatalog::filterClassForName(name)->name) +
                           "::classInformation");
    for (const std::string& name : promised)
        EXPECT_NE(std::find(exported.begin(), exported.end(), name), exported.end()) << name;
}

TEST(Language, CompilersOfOlderOnesGetOneError) {
    for (const auto& header : fs::directory_iterator(VORN_SOURCE_DIR "/include/vorneffects")) {
        const Lines printed =
            printedByCommand("echo | " VORN_COMPILER " -std=c++17 -fsyntax-only -x c++ -include '" +
                             header.path().string() + "' -");
        Lines errors;
        for (const std::string& line : printed)
            if (line.find("error:") != line.npos) errors.push_back(line);
        ASSERT_EQ(errors.size(), 1u) << header.path() << testing::PrintToString(printed);
        EXPECT_NE(errors[0].find("needs C++20"), std::string::npos) << errors[0];
    }
}

// ---- Exceptions of hosts ------------------------------------------------------------------------

TEST(HostExceptions, OfARegionOfInterestLeaveNoFunctionThatAsksForIt) {
    Random random(1);
    const Bitmap source = randomBitmap(random, 8, 8, CIFormat::RGBA8);
    constexpr CGRect frame{0, 0, 8, 8};
    bool isBroken = false;
    const auto rule = RegionOfInterest::computed([&](int, CGRect rect) -> CGRect {
                          if (isBroken) throw std::runtime_error("the host's rule is broken");
                          return rect;
                      }).exact();
    // Computed first, since the kernel reads it elsewhere than at the own place.
    const CIImage computed = pictureKernel("square").applyWithExtent(frame, {source.image()});
    const CIImage image =
        pictureKernel("readAt").applyWithExtent(frame, rule, {computed, CIVector(0, 0)});
    const auto surface = Surface::create({.width = 8, .height = 8});
    const auto kept = CIImageAccumulator::imageAccumulatorWithExtent(frame, CIFormat::RGBA8);
    for (CIContext* const context : everyContext()) {
        SCOPED_TRACE(nameOf(*context));
        isBroken = false;
        const Bitmap expected = render(*context, image, frame);
        isBroken = true;
        Bitmap bitmap(8, 8);
        EXPECT_FALSE(
            context
                ->startRender(image, bitmap.bytes(), bitmap.bytesPerRow(), frame, CIFormat::RGBA8)
                .wait());
        EXPECT_EQ(context->lastError(), "the host's rule is broken");
        EXPECT_FALSE(context->renderToIOSurface(image, *surface, frame));
        EXPECT_EQ(context->lastError(), "the host's rule is broken");
        EXPECT_FALSE(CIContext::capture(image, *surface, frame));
        kept->setImage(image);
        // What cannot be told of a rule is left out.
        const auto description = describeImage(image, frame);
        ASSERT_TRUE(description);
        EXPECT_EQ(description->regionsOfInterest, std::vector<CGRect>(1));
        isBroken = false;
        EXPECT_TRUE(isClose(render(*context, image, frame), expected, {}));
    }
}

} // namespace
