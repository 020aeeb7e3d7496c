// Every filter, alone and on top of others at random, on every device: the pictures of the
// reference device, whatever lies below, wherever it lies and in whatever parts it is asked for.
#include "starts.h"
#include "support.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"

#include <cstdlib>

namespace {

// ---- A filter with its inputs set
// -----------------------------------------------------------------

struct Trial {
    CIFilterRef filter;
    std::string settings; ///< as text
    int modes = 1;
};

/// Images come from `makeImage(isFirst)`, the mode is `mode`; other numbers stay at their defaults
/// or, with `random`, are anywhere between the ends of their sliders, a share of them at the ends
/// and at rest.
template <class MakeImage>
Trial trialOf(const std::string& name, int mode, Random* random, double shareOfSpecial,
              const MakeImage& makeImage) {
    Trial trial{CIFilter::filterWithName(name), "", 1};
    CIFilter& filter = *trial.filter;
    setStarts(filter);
    for (const InputInfo& input : filter.filterClass().inputs()) {
        const std::string key = input.key;
        if (input.kind == InputKind::Image)
            filter.setValueForKey(makeImage(key == filter.filterClass().guide().frameKey), key);
        if (input.kind != InputKind::Number) continue;
        for (const InputAttributes& attributes : filter.filterClass().customAttributes()) {
            if (attributes.key != key) continue;
            const auto number = [&](const char* attribute, double otherwise) {
                const AttributeValue* value = attributes.find(attribute);
                const double* known = value ? std::get_if<double>(value) : nullptr;
                return known ? *known : otherwise;
            };
            const double low = number(kCIAttributeSliderMin, 0),
                         high = number(kCIAttributeSliderMax, 1);
            double value = number(kCIAttributeDefault, 0);
            if (key == "inputMode" || (name == "VE_GainClamp" && key == "input1")) {
                trial.modes = std::max(trial.modes, std::min(64, static_cast<int>(high) + 1));
                value = mode;
            } else if (random) {
                const double special[] = {low, high, value, number(kCIAttributeIdentity, 0), 0, 1};
                value = random->chance(shareOfSpecial) ? special[random->whole(0, 5)]
                                                       : random->real(low, high);
            }
            filter.setValueForKey(Number(value), key);
            trial.settings += " " + key + "=" + testing::PrintToString(value);
        }
    }
    return trial;
}

std::vector<std::string> everyFilter() {
    VornEffectsRegistrar::registerAllFilters();
    return CIFilter::filterNames();
}

// ---- Each by itself
// -------------------------------------------------------------------------------

/// How near the devices have to be, in steps of 255, and the share of pixels that may differ more.
struct Nearness {
    double steps = 2, share = 0;
};

/// What deviates from the rule. Each has its reason.
const std::map<std::string, Nearness> kDeviations = {
    // Rounds to steps: a value in the middle between two may fall to either side.
    {"VE_TrafficSign", {1, 0.001}},
    // Cells take a tile for a step of brightness: one between two steps may take either.
    {"VE_Meta_Image", {2, 0.01}},
    // Places come out of the map: where map and picture are noise, the last bit of one shows.
    {"VEUVMapFromLayer", {2, 0.02}},
    // A threshold on a gentle slope of half floats: their last bit moves the edge a little.
    {"VE_MetaBalls", {20, 0.002}},
};

/// Whether a kernel anywhere below reads something else than its own pixel.
bool readsElsewhere(const CIImage& image) {
    const vorn::imaging::Node* node = image.node();
    if (!node) return false;
    if (node->function) {
        const auto& declaration = node->function->declaration();
        if (declaration.kind == vorn::kernelc::FunctionKind::Warp) return true;
        for (const auto& parameter : declaration.parameters)
            if (isImage(parameter.type) && !parameter.readsOwnPixelOnly) return true;
    }
    for (const CISampler& sampler : node->samplers)
        if (readsElsewhere(sampler.image())) return true;
    return readsElsewhere(node->children[0]) || readsElsewhere(node->children[1]);
}

/// A film picture: smooth ramps, noise, a hard edge and a hole.
Bitmap filmPicture(uint32_t seed, int width, int height, CIFormat format) {
    Random random(seed);
    Bitmap bitmap(width, height, format);
    bitmap.forEach([&](int x, int y) {
        const double u = double(x) / width, v = double(y) / height;
        const bool inside = x > width / 3 && x < width / 2 && y > height / 3;
        const double alpha = y < 9 ? (x % 4) / 3.0 : 1;
        Pixel p{u, inside ? 1 - v : v, 0.5 + 0.5 * std::sin(9 * u * v), alpha};
        for (size_t c = 0; c < 3; ++c)
            p[c] = alpha * std::clamp(p[c] + random.real(-0.1, 0.1), 0.0, 1.0);
        bitmap.set(x, y, p);
    });
    return bitmap;
}

class EveryFilterOn : public testing::TestWithParam<std::string> {
protected:
    void TearDown() override { PlatformClock::release(); }

    /// Its modes, each with its defaults on a computed picture that has (0, 0) inside, and then
    /// with inputs anywhere on pictures of any kind and place; whole and in parts.
    void compare(CIContext& context, CIContext& with, uint32_t seed) {
        const std::string& name = GetParam();
        const int width = 121, height = 67;
        Random random(seed + (std::hash<std::string>()(name) & 0xffff));
        for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAh}) {
            const Bitmap first = filmPicture(1, width, height, format),
                         second = filmPicture(2, width, height, format);
            int modes = 1;
            for (int mode = 0; mode < modes; ++mode)
                for (int attempt = 0; attempt < (modes > 1 ? 2 : 4); ++attempt) {
                    PlatformClock::drive(1'234'567'890u * static_cast<uint64_t>(attempt));
                    const bool isFirst = attempt == 0;
                    const CGPoint origin = isFirst ? CGPoint{0, -20}
                                                   : CGPoint{double(random.whole(-200, 200)),
                                                             double(random.whole(-3000, 3000))};
                    const Trial trial =
                        trialOf(name, mode, isFirst ? nullptr : &random, 0, [&](bool isInput) {
                            const Bitmap& bitmap = isInput ? first : second;
                            return isFirst ? computedAs(bitmap.image(origin))
                                           : randomImageOf(bitmap, origin, random);
                        });
                    modes = std::max(modes, trial.modes);
                    const CIImage image = trial.filter->outputImage();
                    ASSERT_TRUE(image);
                    SCOPED_TRACE(std::string(formatName(format)) + ", mode " +
                                 std::to_string(mode) + trial.settings + " at " +
                                 testing::PrintToString(image.extent().x) + ", " +
                                 testing::PrintToString(image.extent().y));
                    const auto known = kDeviations.find(name);
                    const Nearness nearness = known != kDeviations.end()
                                                  ? known->second
                                                  : Nearness{readsElsewhere(image) ? 2.0 : 1.0, 0};
                    // Beyond the picture on all sides.
                    const CGRect bounds{origin.x - 5, origin.y - 3, width + 17.0, height + 8.0};
                    const Bitmap actual = render(context, image, bounds, format);
                    ASSERT_TRUE(isClose(actual, render(with, image, bounds, format),
                                        {nearness.steps / 255, nearness.share}));
                    ASSERT_TRUE(isClose(renderInParts(context, image, bounds, 2, random, format),
                                        actual, {}))
                        << "rendered in parts";
                }
        }
    }
};

TEST_P(EveryFilterOn, TheCpu) {
    compare(*cpuContexts().back(), referenceContext(), 1);
}
TEST_P(EveryFilterOn, Vulkan) {
    SKIP_WITHOUT_VULKAN();
    compare(*vulkanContext(), *cpuContexts().back(), 2);
}

INSTANTIATE_TEST_SUITE_P(, EveryFilterOn, testing::ValuesIn(everyFilter()),
                         [](const auto& test) { return test.param; });

// ---- On top of each other
// -------------------------------------------------------------------------

/// Makes graphs of filters, crops, transforms and kernels whose rules do not hold.
class GraphMaker {
public:
    GraphMaker(uint32_t seed, CGRect target) : random_(seed), target_(target) {}

    CIImage image(int depth) {
        CIImage made = depth == 0 ? leaf() : onTop(depth);
        const CGRect extent = made.extent();
        if (!extent.isFinite() || extent.width > 400 || extent.height > 400)
            made = cropped(made, target_.grownBy(random_.whole(0, 20)));
        return made;
    }
    /// What has been made, as text.
    const std::string& story() const { return story_; }

private:
    CGRect somewhere() {
        CGRect rect = rectNear(target_, random_);
        if (random_.chance(0.3)) rect.x += random_.real(0, 1), rect.width += random_.real(0, 1);
        if (random_.chance(0.3)) rect.y += random_.real(0, 1), rect.height += random_.real(0, 1);
        return rect;
    }
    CIImage cropped(const CIImage& image, CGRect rect) {
        tell("crop " + testing::PrintToString(rect.x) + " " + testing::PrintToString(rect.y) + " " +
             testing::PrintToString(rect.width) + " " + testing::PrintToString(rect.height));
        return image.imageByCroppingToRect(rect);
    }
    void tell(const std::string& what) { story_ += (story_.empty() ? "" : "; ") + what; }

    CIImage leaf() {
        if (random_.chance(0.15)) {
            tell("colour");
            return CIImage::imageWithColor(
                CIColor(random_.real(0, 1), 0.4, 0.7, random_.real(0, 1)));
        }
        const CGRect rect = random_.chance(0.5) ? target_ : rectNear(target_, random_);
        bitmaps_.push_back(std::make_unique<Bitmap>(
            filmPicture(static_cast<uint32_t>(random_.whole(1, 9)), static_cast<int>(rect.width),
                        static_cast<int>(rect.height), random_.format())));
        const CIImage image = randomImageOf(*bitmaps_.back(), {rect.x, rect.y}, random_);
        tell("picture " + testing::PrintToString(image.extent().x) + " " +
             testing::PrintToString(image.extent().y) + " " + testing::PrintToString(rect.width) +
             " " + testing::PrintToString(rect.height));
        return image;
    }

    CIImage onTop(int depth) {
        const int kind = random_.whole(0, 9);
        if (kind < 5) return throughFilter(depth);
        const CIImage below = image(depth - 1);
        const CGPoint middle{target_.x + target_.width / 2, target_.y + target_.height / 2};
        if (kind == 5) return cropped(below, somewhere());
        if (kind == 6) {
            CGAffineTransform transform{1, 0, 0, 1, -middle.x, -middle.y};
            if (random_.chance(0.5)) {
                const double angle = random_.real(-3, 3), k = random_.real(0.4, 2);
                transform = transform.then({k * std::cos(angle), k * std::sin(angle),
                                            -std::sin(angle), std::cos(angle), 0, 0});
            }
            tell("transform");
            return below.imageByApplyingTransform(
                transform.then({1, 0, 0, 1, middle.x + random_.whole(-9, 9),
                                middle.y + random_.whole(-4, 4) / 4.0}));
        }
        if (kind == 7) {
            tell("clamp");
            return below.imageByClampingToExtent();
        }
        if (kind == 8) {
            const CIImage other = image(depth - 1);
            tell("over");
            const CIImage both = below.imageByCompositingOverImage(other);
            return random_.chance(0.5) ? both : both.imageByInsertingIntermediate();
        }
        const RegionOfInterest rules[] = {RegionOfInterest::identity(),
                                          RegionOfInterest::grownBy(random_.whole(-2, 2)),
                                          RegionOfInterest::whole(somewhere())};
        const RegionOfInterest& rule = rules[random_.whole(0, 2)];
        const bool mirrors = random_.chance(0.5);
        tell(mirrors ? "mirror" : "readAt");
        if (mirrors) return pictureKernel("mirror").applyWithExtent(below.extent(), rule, {below});
        return pictureKernel("readAt").applyWithExtent(
            somewhere(), rule, {below, CIVector(random_.real(-30, 30), random_.whole(-30, 30))});
    }

    CIImage throughFilter(int depth) {
        static const std::vector<std::string> names = everyFilter();
        const std::string& name =
            names[static_cast<size_t>(random_.whole(0, static_cast<int>(names.size()) - 1))];
        CIImage first;
        const Trial trial = trialOf(name, random_.whole(0, 15), &random_, 0.25, [&](bool isFirst) {
            const CIImage made = image(depth - 1);
            if (isFirst) first = made;
            return made;
        });
        tell(name + trial.settings);
        CIImage output;
        uint64_t time = static_cast<uint64_t>(random_.whole(0, 1000)) * 1'000'000;
        for (int frame = random_.whole(1, 3); frame > 0; --frame) {
            PlatformClock::drive(time += 40'000'000);
            output = trial.filter->outputImage();
        }
        return output ? output : first ? first : leaf();
    }

    Random random_;
    CGRect target_;
    std::vector<std::unique_ptr<Bitmap>> bitmaps_;
    std::string story_;
};

/// How many graphs to try: VORN_RANDOM_GRAPHS says, from number VORN_RANDOM_GRAPHS_FROM on.
int numberFrom(const char* variable, int otherwise) {
    const char* const text = std::getenv(variable);
    return text ? std::atoi(text) : otherwise;
}

void tryGraphs(CIContext& context, CIContext& with, int count) {
    everyFilter();
    const int first = numberFrom("VORN_RANDOM_GRAPHS_FROM", 1);
    int differing = 0;
    for (int number = first; number < first + numberFrom("VORN_RANDOM_GRAPHS", count); ++number) {
        Random random(static_cast<uint32_t>(number) * 7919);
        CGRect target;
        do target = randomTarget(random);
        while (target.width > 200);
        const CIFormat format = random.chance(0.5) ? CIFormat::RGBAf : CIFormat::RGBA8;
        GraphMaker maker(static_cast<uint32_t>(number), target);
        testing::internal::CaptureStdout(); // a refusal of a filter is a line
        const CIImage image = maker.image(random.whole(1, 4));
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(image);
        const Bitmap expected = render(with, image, target, format);
        const Bitmap actual = render(context, image, target, format);
        // Keys, dissolves and characters have hard edges, and filters on top of them spread those.
        const Tolerance tolerance{0.05, 0.05 + 2 / (target.width * target.height)};
        const auto near = isClose(actual, expected, tolerance);
        const auto same =
            isClose(renderInParts(context, image, target, 2, random, format), actual, {});
        EXPECT_TRUE(near && same) << (near ? "in parts: " : "")
                                  << (near ? same.message() : near.message()) << "\n  number "
                                  << number << ", " << formatName(format) << " " << target.width
                                  << " by " << target.height << " at " << target.x << ", "
                                  << target.y << ": " << maker.story();
        differing += !(near && same);
        ASSERT_LT(differing, 20);
    }
    PlatformClock::release();
}

TEST(RandomGraphs, OnTheCpu) {
    tryGraphs(*cpuContexts().back(), referenceContext(), 400);
}
TEST(RandomGraphs, OnVulkan) {
    SKIP_WITHOUT_VULKAN();
    tryGraphs(*vulkanContext(), *cpuContexts().back(), 60);
}

} // namespace
