#include "bundle_copy.h"
#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

using namespace vorn;

namespace {

const char kBanner[] = "VornEffects: registerAllFilters";
const char kNoDictionary[] = "VornEffects Manifest: Could not find/open manifest dict!";
const char kNoArray[] = "VornEffects Manifest: Could not open manifest array!";

std::string manifest(const std::string& rootEntries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
           rootEntries + "</dict></plist>\n";
}

std::string entries(const std::string& content) {
    return "<key>Entries</key><array>" + content + "</array>";
}

std::string entry(const std::string& name, const std::string& className) {
    return "<dict><key>FilterName</key><string>" + name + "</string><key>ClassName</key><string>" +
           className + "</string><key>Remark</key><integer>1</integer></dict>";
}

// Each manifest, and what registering and listing print with it.
struct ManifestCase {
    const char* title;
    std::string manifest;
    Lines problems;
    std::string names; // of the catalogue and of the registered filters alike
};

std::ostream& operator<<(std::ostream& stream, const ManifestCase& test) {
    return stream << test.title;
}

class Manifest : public testing::TestWithParam<ManifestCase> {};

TEST_P(Manifest, GivesTheFiltersItNames) {
    BundleCopy copy;
    copy.write("VornEffectsManifest.plist", GetParam().manifest);
    const Lines& problems = GetParam().problems;
    Lines expected{"problem:", kBanner};
    expected.insert(expected.end(), problems.begin(), problems.end());
    expected.insert(expected.end(), {"catalogue:" + GetParam().names,
                                     "registered:" + GetParam().names, kBanner, "problem:"});
    expected.insert(expected.end(), problems.begin(), problems.end());
    EXPECT_EQ(copy.probe({"problem", "register", "names", "registered", "register", "problem"}),
              expected);
}

INSTANTIATE_TEST_SUITE_P(
    , Manifest,
    testing::Values(
        ManifestCase{"NotAPropertyList", "VEDummy = VEDummy", {kNoDictionary}, ""},
        ManifestCase{"EmptyFile", "", {kNoDictionary}, ""},
        ManifestCase{"RootIsAList", "<plist version=\"1.0\"><array/></plist>", {kNoDictionary}, ""},
        ManifestCase{"NoEntries", manifest("<key>Filters</key><array/>"), {kNoArray}, ""},
        ManifestCase{"EntriesAreAText",
                     manifest("<key>Entries</key><string>VEDummy</string>"),
                     {kNoArray},
                     ""},
        ManifestCase{"EmptyEntries", manifest(entries("")), {}, ""},
        ManifestCase{"UnknownClass",
                     manifest(entries(entry("A", "VEDummy") + entry("B", "VENothing") +
                                      entry("C", "VESolarize"))),
                     {"VornEffects Manifest: class not found for B -> VENothing"},
                     " A C"},
        ManifestCase{"OneClassUnderTwoNames",
                     manifest(entries(entry("Plain", "VEDummy") + entry("VEDummy", "VEDummy"))),
                     {},
                     " Plain VEDummy"},
        ManifestCase{"NamesOutsideASCII",
                     manifest(entries(entry("Größe", "VEÄ"))),
                     {"VornEffects Manifest: class not found for Größe -> VEÄ"},
                     ""},
        ManifestCase{"EntriesOfOtherForms",
                     manifest(entries("<string>VEDummy</string><dict/><dict><key>FilterName</key>"
                                      "<integer>1</integer><key>ClassName</key><string>VEDummy"
                                      "</string></dict>" +
                                      entry("A", "VEDummy"))),
                     {"VornEffects Manifest: class not found for (null) -> (null)",
                      "VornEffects Manifest: class not found for (null) -> (null)",
                      "VornEffects Manifest: class not found for (null) -> VEDummy"},
                     " A"}),
    [](const auto& test) { return test.param.title; });

TEST(Registry, TheLaterOfTwoEntriesOfANameCounts) {
    BundleCopy copy;
    copy.write("VornEffectsManifest.plist",
               manifest(entries(entry("A", "VESolarize") + entry("A", "VEDummy"))));
    EXPECT_EQ(copy.probe({"class:A"}), Lines{"class VEDummy"});
}

TEST(Registry, AMissingManifestLeavesTheCatalogueEmptyForGood) {
    BundleCopy copy;
    const std::string put = "copy:" + BundleCopy::original("VornEffectsManifest.plist").string() +
                            ":" + (copy.folder() / "VornEffectsManifest.plist").string();
    EXPECT_EQ(copy.probe({"register", put, "names", "register", "registered", "class:VEDummy"}),
              (Lines{kBanner, kNoDictionary, "catalogue:", kBanner, "registered:", "class none"}));
}

TEST(Registry, TheCatalogueLoadsWithoutRegistration) {
    for (const char* step : {"class:A", "names", "construct:A"}) {
        BundleCopy copy;
        copy.write("VornEffectsManifest.plist", manifest(entries(entry("A", "VENothing"))));
        const Lines printed = copy.probe({step});
        ASSERT_FALSE(printed.empty()) << step;
        EXPECT_EQ(printed[0], "VornEffects Manifest: class not found for A -> VENothing") << step;
    }
}

TEST(Registry, NamesThatMakeNoFilterAreReported) {
    BundleCopy copy;
    copy.write("VornEffectsManifest.plist",
               manifest(entries(entry("Catalogue", "VornEffectsCatalog"))));
    EXPECT_EQ(copy.probe({"register", "create:Catalogue", "construct:VENothing",
                          "construct:", "create:VENothing"}),
              (Lines{kBanner, "VornEffects: unknown filter request 'Catalogue'", "no filter",
                     "VornEffects: unknown filter request 'VENothing'", "no filter",
                     "VornEffects: unknown filter request ''", "no filter", "no filter"}));
}

TEST(Registry, ASecondRegistrationOnlyPrintsItsLine) {
    VornEffectsRegistrar::registerAllFilters();
    const std::vector<std::string> before = CIFilter::filterNames();
    testing::internal::CaptureStdout();
    VornEffectsRegistrar::registerAllFilters();
    EXPECT_EQ(linesOf(testing::internal::GetCapturedStdout()), Lines{kBanner});
    EXPECT_EQ(CIFilter::filterNames(), before);
}

TEST(Registry, EveryNameOfTheManifestIsRegisteredWithItsNameAndCategory) {
    VornEffectsRegistrar::registerAllFilters();
    std::vector<std::string> names = VornEffectsCatalog::allFilterNames();
    std::sort(names.begin(), names.end());
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(CIFilter::filterNames("Vorn Custom Filters"), names);

    for (const std::string& name : names) {
        const auto registered = CIFilter::registeredFilter(name);
        ASSERT_NE(registered, nullptr) << name;
        EXPECT_EQ(registered->classAttributes,
                  (ClassAttributes{{"kCIAttributeFilterDisplayName", name},
                                   {"kCIAttributeFilterCategories", "Vorn Custom Filters"}}));
    }
}

TEST(Registry, ClassAndManifestNameTheSameFilters) {
    VornEffectsRegistrar::registerAllFilters();
    for (const std::string& name : VornEffectsCatalog::allFilterNames()) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        ASSERT_NE(filter, nullptr) << name;
        EXPECT_EQ(filter->filterClass().classInfo.name, name);
        EXPECT_EQ(&filter->filterClass().classInfo, VornEffectsCatalog::filterClassForName(name));
        EXPECT_NE(CIFilter::filterWithName(name), filter) << name;
    }
}

// ---- Registration by hosts -------------------------------------------------------------------

class CountingConstructor final : public CIFilterConstructor {
public:
    CIFilterRef filterWithName(std::string_view name) override {
        requests.emplace_back(name);
        return nullptr;
    }
    Lines requests;
};

TEST(Registry, HostsMayRegisterTheirOwnNames) {
    const auto first = std::make_shared<CountingConstructor>();
    const auto second = std::make_shared<CountingConstructor>();
    CIFilter::registerFilterName("HostFilter", first,
                                 {{kCIAttributeFilterCategories, Lines{"Blur", "Video"}}});
    EXPECT_EQ(CIFilter::filterNames("Video"), Lines{"HostFilter"});
    EXPECT_EQ(CIFilter::filterNames("Vide"), Lines{});

    CIFilter::registerFilterName("HostFilter", second, {});
    EXPECT_EQ(CIFilter::filterWithName("HostFilter"), nullptr);
    EXPECT_EQ(CIFilter::filterNames("Video"), Lines{});
    EXPECT_EQ(first->requests, Lines{});
    EXPECT_EQ(second->requests, Lines{"HostFilter"});

    CIFilter::registerFilterName("HostFilter", nullptr, {});
    EXPECT_EQ(CIFilter::filterWithName("HostFilter"), nullptr);
}

TEST(Version, SymbolsCarryTheProgramAndProject) {
    EXPECT_EQ(VornEffectsVersionNumber, 1.0);
    EXPECT_STREQ(reinterpret_cast<const char*>(VornEffectsVersionString),
                 "@(#)PROGRAM:VornEffects  PROJECT:VornV5-1\n");
}

} // namespace
