// What filters tell people of themselves, held against what they do.
#include "support.h"
#include "vorneffects/ImageDescription.h"

#include <gtest/gtest.h>

#include <set>

namespace {

constexpr int kWidth = 48, kHeight = 27;
constexpr uint64_t kSecond = 1'000'000'000;

std::vector<std::string> names(bool builtin) {
    VornEffectsRegistrar::registerAllFilters();
    if (!builtin) return CIFilter::filterNames(kVornFilterCategory);
    std::vector<std::string> all;
    for (const std::string& name : CIFilter::filterNames())
        if (name.starts_with("CI")) all.push_back(name);
    return all;
}

/// A ramp of colours, with bars that move from frame to frame.
Bitmap frame(int number) {
    Bitmap bitmap(kWidth, kHeight);
    bitmap.forEach([&](int x, int y) {
        bitmap.set(x, y,
                   {x / (kWidth - 1.0), y / (kHeight - 1.0), (x + 5 * number) % 16 / 15.0, 1});
    });
    return bitmap;
}

const std::vector<Bitmap>& frames() {
    static const std::vector<Bitmap> all{frame(0), frame(1), frame(2)};
    return all;
}

/// The same with holes, for what shows where a picture lets something through.
std::vector<Bitmap> framesWithHoles() {
    std::vector<Bitmap> all = frames();
    for (Bitmap& bitmap : all)
        bitmap.forEach([&](int x, int y) {
            if (x % 16 < 6 || y % 16 < 6) bitmap.set(x, y, {});
        });
    return all;
}

/// A further picture, for masks as well: it fades out downwards.
Bitmap secondFrame() {
    Bitmap bitmap = frame(7);
    bitmap.forEach([&](int x, int y) {
        Pixel p = bitmap.pixel(x, y);
        for (double& c : p) c *= y / (kHeight - 1.0);
        bitmap.set(x, y, p);
    });
    return bitmap;
}

/// A filter with its defaults, and a picture for each input that takes a further one.
CIFilterRef made(const std::string& name, const std::vector<Setting>& settings) {
    static const Bitmap second = secondFrame();
    CIFilterRef filter = CIFilter::filterWithName(name);
    filter->setDefaults();
    for (const InputInfo& input : filter->filterClass().inputs())
        if (input.kind == InputKind::Image) filter->setValueForKey(second.image(), input.key);
    for (const auto& [key, value] : settings)
        EXPECT_TRUE(filter->setValueForKey(value, key)) << key;
    return filter;
}

CIImage outputFor(CIFilter& filter, int frame, uint64_t time,
                  const std::vector<Bitmap>& pictures = frames()) {
    PlatformClock::drive(time);
    filter.setValueForKey(pictures[static_cast<size_t>(frame)].image(),
                          filter.filterClass().guide().frameKey);
    return filter.outputImage();
}

/// What an image is made of: kernels, numbers, and what they stand on.
void addText(const ImageDescription* image, std::string& text) {
    if (!image) return;
    const auto addNumber = [&](double number) { text += ' ' + std::to_string(number); };
    const auto addImage = [&](const auto& below) { addText(below.get(), text); };
    text += '(' + std::to_string(int(image->kind)) + image->function + image->name + image->label;
    for (const ArgumentDescription& argument : image->arguments) {
        if (const auto* number = std::get_if<Number>(&argument)) addNumber(number->doubleValue());
        if (const auto* vector = std::get_if<CIVector>(&argument))
            for (size_t i = 0; i < vector->count(); ++i) addNumber(vector->valueAtIndex(i));
        if (const auto* sampler = std::get_if<SamplerDescription>(&argument))
            addImage(sampler->image);
    }
    for (const auto& [key, input] : image->inputs) {
        text += key;
        if (const auto* below = std::get_if<std::shared_ptr<ImageDescription>>(&input))
            addImage(*below);
        if (const auto* number = std::get_if<Number>(&input)) addNumber(number->doubleValue());
        if (const auto* vector = std::get_if<CIVector>(&input))
            for (size_t i = 0; i < vector->count(); ++i) addNumber(vector->valueAtIndex(i));
        if (const auto* t = std::get_if<CGAffineTransform>(&input))
            for (const double number : {t->a, t->b, t->c, t->d, t->tx, t->ty}) addNumber(number);
    }
    for (const auto& below : {image->over, image->under, image->image}) addImage(below);
    text += ')';
}

std::string textOf(const CIImage& image) {
    std::string text;
    addText(describeImage(image, {0, 0, kWidth, kHeight}).get(), text);
    return text;
}

/// Whether something is true of a filter in one of its modes.
template <class Question>
bool inSomeMode(const FilterGuide& guide, Question isTrue) {
    if (guide.modes.empty()) return isTrue(guide.beginWith);
    return std::any_of(guide.modes.begin(), guide.modes.end(), [&](const ModeGuide& mode) {
        std::vector<Setting> settings = guide.beginWith;
        settings.emplace_back(guide.modeKey, mode.value);
        return isTrue(settings);
    });
}

class Guides : public testing::Test {
protected:
    void TearDown() override { PlatformClock::release(); }
};

TEST_F(Guides, AreWhole) {
    for (const std::string& name : names(false)) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        ASSERT_NE(filter, nullptr) << name;
        for (const std::string& problem : guideProblems(filter->filterClass()))
            ADD_FAILURE() << problem;
        const FilterGuide& guide = filter->filterClass().guide();
        EXPECT_NE(guide.familyTitle, guide.family) << "no title for filters/" << guide.family;
        for (const InputGuide& input : guide.inputs)
            EXPECT_FALSE(input.purpose.ends_with('.')) << name << " " << input.key;
    }
    for (const std::string& name : names(true)) {
        const FilterGuide& guide = CIFilter::filterWithName(name)->filterClass().guide();
        EXPECT_FALSE(guide.title.empty() || guide.tags.empty()) << name;
        EXPECT_TRUE(guide.sentence.ends_with('.')) << name;
        EXPECT_EQ(guide.familyTitle, "The framework's own");
    }
}

TEST_F(Guides, NameEachModeOnce) {
    for (const std::string& name : names(false)) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        const FilterGuide& guide = filter->filterClass().guide();
        const auto graphOf = [&](double mode) {
            PlatformClock::drive(kSecond);
            const CIFilterRef filter = made(name, guide.beginWith);
            filter->setValueForKey(mode, guide.modeKey);
            outputFor(*filter, 0, kSecond); // what is remembered is there in the second frame
            std::string text = textOf(outputFor(*filter, 1, 2 * kSecond));
            // Its kernels are handed the mode as it was set, beside being chosen by it.
            const std::string number = ' ' + std::to_string(mode);
            if (name == "VEDropShadow2") text.erase(text.find(number), number.size());
            return text;
        };
        std::map<std::string, std::string> graphs;
        for (const ModeGuide& mode : guide.modes) {
            const auto [place, isNew] = graphs.emplace(graphOf(mode.value), mode.name);
            EXPECT_TRUE(isNew) << name << ": \"" << mode.name << "\" is \"" << place->second << '"';
        }
        // Whatever lies past the last mode is one of them, or a mode has no name.
        if (!filter->setValueForKey(1000.0, guide.modeKey)) continue;
        EXPECT_TRUE(graphs.contains(graphOf(1000)))
            << name << ": there are other modes by " << guide.modeKey << " than its guide names";
    }
}

TEST_F(Guides, BeginWithWhatShows) {
    CIContext context({.device = DeviceKind::CPU});
    const std::vector<Bitmap> cutOut = framesWithHoles();
    const auto changes = [&](const std::string& name, const std::vector<Setting>& settings) {
        PlatformClock::drive(0);
        const CIFilterRef filter = made(name, settings);
        const auto& pictures = filter->filterClass().guide().needsTransparency ? cutOut : frames();
        CIImage image;
        for (int i = 0; i < 3; ++i)
            image = outputFor(*filter, i, uint64_t(i + 1) * kSecond / 3, pictures);
        Bitmap result(kWidth, kHeight);
        EXPECT_TRUE(context.render(image, result.bytes(), size_t{kWidth} * 4,
                                   {0, 0, kWidth, kHeight}, CIFormat::RGBA8))
            << name << ": " << context.lastError();
        double most = 0;
        result.forEach([&](int x, int y) {
            for (size_t c = 0; c < 4; ++c)
                most =
                    std::max(most, std::fabs(result.pixel(x, y)[c] - pictures[2].pixel(x, y)[c]));
        });
        return most > 3 / 255.0;
    };
    for (const std::string& name : names(false)) {
        const CIFilterRef filter = CIFilter::filterWithName(name);
        const FilterGuide& guide = filter->filterClass().guide();
        if (filter->filterClass().inputs().size() == 1) continue; // there is nothing to set
        if (guide.beginWith.empty())
            EXPECT_TRUE(changes(name, {})) << name << " does nothing at its defaults";
        else
            EXPECT_TRUE(changes(name, guide.beginWith)) << name << " begins with nothing";
    }
}

TEST_F(Guides, SayWhichInputsAreNeverRead) {
    for (const std::string& name : names(false))
        for (const InputGuide& input :
             CIFilter::filterWithName(name)->filterClass().guide().inputs) {
            if (!input.isDead) continue;
            const auto graphFor = [&](double value) {
                PlatformClock::drive(kSecond);
                const CIFilterRef filter = made(name, {{input.key, value}});
                return textOf(outputFor(*filter, 0, 2 * kSecond));
            };
            EXPECT_EQ(graphFor(0.25), graphFor(77)) << name << " " << input.key;
        }
}

TEST_F(Guides, SayWhatMovesAndWhatStays) {
    for (const std::string& name : names(false)) {
        const FilterGuide& guide = CIFilter::filterWithName(name)->filterClass().guide();
        const auto graphAt = [&](const auto& settings, std::initializer_list<uint64_t> times,
                                 uint64_t birth = kSecond) {
            PlatformClock::drive(birth);
            const CIFilterRef filter = made(name, settings);
            std::string graph;
            for (const uint64_t time : times) {
                filter->setVornFrameTime(time);
                graph = textOf(outputFor(*filter, 0, time));
            }
            return graph;
        };
        const auto moves = [&](const auto& settings) {
            return graphAt(settings, {2 * kSecond}) != graphAt(settings, {3 * kSecond});
        };
        const auto keeps = [&](const auto& settings) {
            const std::string graph = graphAt(settings, {3 * kSecond});
            return graph != graphAt(settings, {3 * kSecond, 3 * kSecond}) ||
                   graph != graphAt(settings, {5 * kSecond / 2, 3 * kSecond}) ||
                   graph != graphAt(settings, {3 * kSecond}, 2 * kSecond);
        };
        EXPECT_EQ(guide.movesByItself, inSomeMode(guide, moves)) << name;
        EXPECT_EQ(guide.keepsState, inSomeMode(guide, keeps)) << name;
        EXPECT_EQ(guide.takesFrameTime, name == "VEWobble" || name == "VE_Ripple") << name;
        EXPECT_TRUE(guide.framesRemembered == 0 || guide.keepsState) << name;
    }
}

// ---- A filter that is declared wrongly ---------------------------------------------------------

class MistypedProbe : public CIFilter {
public:
    static Attributes customAttributes() { return {scalar("inputIntensty", "intensity", {})}; }
    static FilterGuide guide() {
        return {.title = "Probe",
                .sentence = "A sentence without an end",
                .inputs = {{.key = "inputImagination"}, {.key = "input2"}},
                .modes = {"a mode"},
                .beginWith = {{"inputSpede", 1}}};
    }
    CIImage outputImage() override { return inputImage; }

    CIImage inputImage, inputMask;
    Number inputIntensity, input2;
    VORN_FILTER(MistypedProbe, inputImage, inputMask, inputIntensity, input2)
};
VORN_REGISTER(MistypedProbe)

TEST_F(Guides, NameWhatDoesNotFit) {
    const std::vector<std::string> problems = guideProblems(MistypedProbe::classInformation);
    for (const char* expected :
         {"no sentence that ends with a full stop", "gives no tags",
          "no input \"inputMode\" for its modes", "\"inputSpede\", which is no input",
          "\"inputMask\" does not say what it is for", "\"inputIntensity\" has no range",
          "\"inputIntensity\" has nothing to begin with", "\"input2\" has no label",
          "\"inputIntensty\" is advertised, but is no input of it",
          "\"inputImagination\" of its guide is no input"})
        EXPECT_TRUE(std::any_of(problems.begin(), problems.end(), [&](const std::string& problem) {
            return problem.starts_with("MistypedProbe: ") &&
                   problem.find(expected) != std::string::npos;
        })) << expected;
    EXPECT_STREQ(MistypedProbe::classInformation.folder.text, "tests");
}

} // namespace
