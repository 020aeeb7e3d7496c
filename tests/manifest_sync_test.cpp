// The three things that a filter is made of are kept in step: classes, manifest and kernels. And
// the sources speak of nothing that their readers do not have.
#include "bundle_copy.h"
#include "vorneffects/VornEffects.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

using namespace vorn;

namespace {

namespace fs = std::filesystem;
const fs::path kSources = VORN_SOURCE_DIR;

std::vector<fs::path> filesUnder(const fs::path& folder, const std::set<std::string>& extensions) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && extensions.contains(entry.path().extension().string()))
            files.push_back(entry.path());
    return files;
}

/// The first group of every match of a pattern.
std::vector<std::string> matches(const std::string& text, const char* pattern) {
    const std::regex regex(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

/// What the sources of a folder write between quotes.
std::set<std::string> wordsQuotedIn(const fs::path& folder) {
    std::set<std::string> words;
    for (const fs::path& file : filesUnder(folder, {".cpp", ".h"}))
        for (const std::string& word : matches(fileContents(file), "\"(\\w+)\""))
            words.insert(word);
    return words;
}

std::multiset<std::string> textsOfManifest(const char* key) {
    const auto manifest =
        dictionaryWithContentsOfFile((kSources / "resources/VornEffectsManifest.plist").string());
    std::multiset<std::string> texts;
    for (const PropertyList& entry : *manifest->at("Entries").array())
        texts.insert(*entry.dictionary()->at(key).string());
    return texts;
}

TEST(InStep, EveryFilterFileHoldsItsClassAndTheManifestNamesItOnce) {
    std::multiset<std::string> classes;
    for (const fs::path& file : filesUnder(kSources / "filters", {".cpp"})) {
        classes.insert(file.stem().string());
        EXPECT_EQ(matches(fileContents(file), "VORN_REGISTER\\((\\w+)\\)"),
                  std::vector<std::string>{file.stem().string()})
            << file;
    }
    EXPECT_EQ(classes.size(), 92u);
    EXPECT_EQ(textsOfManifest("ClassName"), classes);
    const std::multiset<std::string> names = textsOfManifest("FilterName");
    for (const std::string& name : names) EXPECT_EQ(names.count(name), 1u) << name;
}

TEST(InStep, KernelsAreThoseThatFiltersLoad) {
    const std::set<std::string> filterWords = wordsQuotedIn(kSources / "filters");
    std::set<std::string> allWords = wordsQuotedIn(kSources / "imaging");
    allWords.insert(filterWords.begin(), filterWords.end());
    std::set<std::string> libraries;
    for (const fs::path& file : filesUnder(kSources / "kernels", {".kernel"})) {
        libraries.insert(file.stem().string());
        EXPECT_TRUE(allWords.contains(file.stem().string())) << "nobody loads " << file;
        for (const std::string& function :
             matches(fileContents(file), "kernel\\s+vec[24]\\s+(\\w+)\\("))
            EXPECT_TRUE(allWords.contains(function))
                << "nobody loads " << function << " of " << file;
    }
    for (const std::string& word : filterWords) {
        const bool isLibrary = word.ends_with("FilterKernel");
        EXPECT_EQ(isLibrary, libraries.contains(word)) << "kernels/*/" << word << ".kernel";
    }
}

TEST(InStep, HostsInDocumentsAreTheExamples) {
    const std::pair<const char*, const char*> pairs[] = {
        {"README.md", "examples/minimal_host.cpp"},
        {"docs/hosting.md", "examples/two_players.cpp"}};
    for (const auto& [document, source] : pairs) {
        const std::string example = fileContents(kSources / source);
        const std::vector<std::string> blocks =
            matches(fileContents(kSources / document), "```cpp\n([^`]*)```");
        EXPECT_FALSE(blocks.empty()) << document;
        for (const std::string& block : blocks)
            EXPECT_NE(example.find(block), std::string::npos) << block;
    }
}

// DEVELOPERS.md alone may point at papers that lie beside the checkout. Patterns are written so
// that they do not match themselves.
TEST(InStep, NoTextLeansOnWhatReadersDoNotHave) {
    const std::regex foreign("[s]pecification|\\b[s]pecs?\\b|\\b[P]art \\d+\\.\\d|/[w]ork/|"
                             "\\b[T]ODO\\b|\\b[F]IXME\\b",
                             std::regex::icase);
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(kSources)) {
        const std::string name = entry.path().filename().string();
        if (name == "build" || name == "demo" || name == "out" || name == ".git" ||
            name == "DEVELOPERS.md")
            continue;
        if (!entry.is_directory())
            files.push_back(entry.path());
        else
            for (const fs::path& file :
                 filesUnder(entry.path(), {".cpp", ".h", ".kernel", ".md", ".txt", ".cmake", ".in",
                                           ".sh", ".py", ".plist"}))
                files.push_back(file);
    }
    EXPECT_GT(files.size(), 100u);
    for (const fs::path& file : files) {
        const std::string text = fileContents(file);
        std::smatch match;
        EXPECT_FALSE(std::regex_search(text, match, foreign))
            << file << ":" << 1 + std::count(text.cbegin(), match[0].first, '\n') << ": "
            << match[0];
    }
}

} // namespace
