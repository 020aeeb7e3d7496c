// The Vulkan device: the same pictures as the CPU device for every filter there is, what it keeps
// from frame to frame, and what it says when something is not there or breaks.
#include "support.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "imaging/vulkan/Renderer.h"

#include <filesystem>
#include <fstream>

namespace {

using namespace vorn::imaging;

/// With VORN_VULKAN_VALIDATION set, whatever the validation layers say fails the tests.
class NothingToSay : public testing::Environment {
    void TearDown() override {
        const std::vector<std::string> messages = vulkan::validationMessages();
        EXPECT_EQ(messages.size(), 0u) << messages.front();
    }
};
const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new NothingToSay);

// ---- Every filter -------------------------------------------------------------------------------

/// How near the devices have to be, in steps of 255, and the share of pixels that may differ more.
struct Nearness {
    double steps = 2, share = 0;
};

/// What deviates from the rule. Each has its reason.
const std::map<std::string, Nearness> kDeviations = {
    // Rounds to steps: a value in the middle between two may fall to either side.
    {"VE_TrafficSign", {1, 0.001}},
};

/// Whether a kernel anywhere below reads something else than its own pixel.
bool readsElsewhere(const CIImage& image) {
    const Node* node = image.node();
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

class OnVulkan : public testing::TestWithParam<std::string> {
protected:
    /// A film picture: smooth ramps, noise, a hard edge and a hole.
    static Bitmap picture(uint32_t seed, int width, int height, CIFormat format) {
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
};

TEST_P(OnVulkan, GivesThePictureOfTheCpu) {
    SKIP_WITHOUT_VULKAN();
    VornEffectsRegistrar::registerAllFilters();
    CIContext cpu({.device = DeviceKind::CPU});
    const std::string& name = GetParam();
    const int width = 173, height = 91;
    const CGRect bounds{-5, -3, 190, 99}; // beyond the picture on all sides
    Random random(std::hash<std::string>()(name) & 0xffff);
    for (const CIFormat format : {CIFormat::RGBA8, CIFormat::RGBAh}) {
        const Bitmap first = picture(1, width, height, format),
                     second = picture(2, width, height, format);
        int modes = 1;
        for (int mode = 0; mode < modes; ++mode)
            // The defaults, and then inputs anywhere between the ends of their sliders.
            for (int attempt = 0; attempt < (modes > 1 ? 2 : 4); ++attempt) {
                PlatformClock::drive(1'234'567'890u * static_cast<uint64_t>(attempt));
                const CIFilterRef filter = CIFilter::filterWithName(name);
                ASSERT_TRUE(filter);
                filter->setDefaults();
                std::string settings;
                for (const InputInfo& input : filter->filterClass().inputs()) {
                    const std::string key = input.key;
                    if (input.kind == InputKind::Image) {
                        filter->setValueForKey((key == "inputImage" ? first : second).image(), key);
                        continue;
                    }
                    for (const InputAttributes& a : filter->filterClass().customAttributes()) {
                        if (a.key != key) continue;
                        const auto number = [&](const char* attribute) -> const double* {
                            const AttributeValue* value = a.find(attribute);
                            return value ? std::get_if<double>(value) : nullptr;
                        };
                        const double *low = number(kCIAttributeSliderMin),
                                     *high = number(kCIAttributeSliderMax);
                        if (!low || !high) continue;
                        if (key == "inputMode" || (name == "VE_GainClamp" && key == "input1")) {
                            modes = std::max(modes, std::min(64, static_cast<int>(*high) + 1));
                            filter->setValueForKey(Number(mode), key);
                        } else if (attempt > 0) {
                            const double value = random.real(*low, *high);
                            filter->setValueForKey(Number(value), key);
                            settings += " " + key + "=" + std::to_string(value);
                        }
                    }
                }
                const CIImage image = filter->outputImage();
                ASSERT_TRUE(image);
                const auto known = kDeviations.find(name);
                const Nearness nearness = known != kDeviations.end()
                                              ? known->second
                                              : Nearness{readsElsewhere(image) ? 2.0 : 1.0, 0};
                const Bitmap wanted = render(cpu, image, bounds, format);
                ASSERT_TRUE(isClose(render(*vulkanContext(), image, bounds, format), wanted,
                                    {nearness.steps / 255, nearness.share}))
                    << formatName(format) << ", mode " << mode << settings;
            }
    }
    PlatformClock::release();
}

std::vector<std::string> everyFilter() {
    VornEffectsRegistrar::registerAllFilters();
    return CIFilter::filterNames();
}

INSTANTIATE_TEST_SUITE_P(, OnVulkan, testing::ValuesIn(everyFilter()),
                         [](const auto& test) { return test.param; });

} // namespace
