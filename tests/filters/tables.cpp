#include "tables.h"

#include "vorneffects/ImageDescription.h"

#include <cstdio>
#include <tuple>

// ---- Inputs and pictures ------------------------------------------------------------------------

CIImage frame(double width, double height, CGPoint origin) {
    return CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6))
        .imageByCroppingToRect({origin.x, origin.y, width, height});
}

CIImage secondFrame() {
    static const CIImage image = frame(640, 480);
    return image;
}

Settings inputs(std::initializer_list<std::pair<const char*, double>> values) {
    Settings settings;
    for (const auto& [key, value] : values)
        settings.emplace_back(std::string("input") + key, Number(value));
    return settings;
}

Settings numbered(const std::vector<double>& values) {
    Settings settings;
    for (size_t i = 0; i < values.size(); ++i)
        settings.emplace_back("input" + std::to_string(i + 1), Number(values[i]));
    return settings;
}

Settings byMatte(const CIImage& matte, Settings settings) {
    settings.emplace_back("inputMaskImage", matte);
    return settings;
}

double unit(double v) {
    return std::clamp(v, 0.0, 1.0);
}

double luma(const Straight& color) {
    return 0.2126 * color[0] + 0.7152 * color[1] + 0.0722 * color[2];
}

Settings with(Settings settings, const std::string& key, double value) {
    settings.emplace_back("input" + key, Number(value));
    return settings;
}

Bitmap pictureOf(int width, int height, const std::function<Straight(int, int)>& color) {
    Bitmap picture(width, height, CIFormat::RGBAf);
    picture.forEach([&](int x, int y) {
        const Straight c = color(x, y);
        picture.set(x, y, {c[0], c[1], c[2], 1});
    });
    return picture;
}

Bitmap lookOf(const std::string& filter, const Settings& settings, const Bitmap& source) {
    return render(*cpuContexts().front(), filtered(filter, source.image(), settings),
                  {0, 0, double(source.width()), double(source.height())}, CIFormat::RGBAf);
}

Pixel lookOf(const std::string& filter, const Settings& settings, const Straight& color) {
    const Bitmap plane = pictureOf(9, 9, [&](int, int) { return color; });
    return lookOf(filter, settings, plane).pixel(4, 4);
}

double luma(const Pixel& p) {
    return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}
/// 0 to 6 around the circle; -1 for what is about grey.
double hueOf(double r, double g, double b) {
    const double most = std::max({r, g, b}), range = most - std::min({r, g, b});
    if (range < 0.02) return -1;
    return most == r   ? std::fmod((g - b) / range + 6, 6)
           : most == g ? (b - r) / range + 2
                       : (r - g) / range + 4;
}
void expectHue(const Pixel& actual, const Straight& color, const std::string& what) {
    const double is = hueOf(actual[0], actual[1], actual[2]);
    if (is < 0) return;
    const double apart = std::fabs(is - hueOf(color[0], color[1], color[2]));
    EXPECT_LT(std::min(apart, 6 - apart), 0.02) << what << ": " << textOf(actual);
}

double smooth(double t) {
    t = std::clamp(t, 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

Pixel times(Pixel p, double share) {
    for (double& c : p) c *= share;
    return p;
}

double leaningEdge(int x, int y, double middle) {
    return std::clamp((x + 0.5 - (16 + y / 3.0)) / 6 + middle, 0.0, 1.0);
}

// ---- Graphs as text -----------------------------------------------------------------------------

namespace {

std::string textOf(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", std::fabs(value) < 1e-8 ? 0.0 : value);
    return text;
}
std::string textOf(const CGRect& rect) {
    return "[" + textOf(rect.x) + " " + textOf(rect.y) + " " + textOf(rect.width) + " " +
           textOf(rect.height) + "]";
}
std::string textOf(const CIVector& vector) {
    std::string text = "(";
    for (size_t i = 0; i < vector.count(); ++i)
        text += (i ? " " : "") + textOf(vector.valueAtIndex(i));
    return text + ")";
}

/// The library of a kernel where it is not named after the kernel.
std::string libraryBefore(const ImageDescription& node) {
    const std::string usual = node.library.substr(0, node.library.find("FilterKernel")) + "_";
    return node.function.starts_with(usual) ? "" : node.library + ":";
}

std::string textOf(const ImageDescription& node, const CIImage& source) {
    const auto below = [&](const std::shared_ptr<ImageDescription>& image) {
        return image ? textOf(*image, source) : std::string("nothing");
    };
    if (node.object == source) return "source";
    if (node.object == secondFrame()) return "target";
    std::string text;
    switch (node.kind) {
    case ImageDescription::Kind::Kernel:
        text = libraryBefore(node) + node.function + "(";
        for (size_t i = 0; i < node.arguments.size(); ++i) {
            if (i) text += ", ";
            if (const auto* number = std::get_if<Number>(&node.arguments[i]))
                text += textOf(number->doubleValue());
            else if (const auto* vector = std::get_if<CIVector>(&node.arguments[i]))
                text += textOf(*vector);
            else if (const auto* sampler = std::get_if<SamplerDescription>(&node.arguments[i]))
                text += below(sampler->image);
        }
        text += ")";
        for (const CGRect& rect : node.regionsOfInterest)
            text += rect == kProbe ? " own" : " " + textOf(rect);
        return text;
    case ImageDescription::Kind::Builtin:
        text = node.name + "(";
        for (const auto& [key, value] : node.inputs) {
            if (text.back() != '(') text += ", ";
            if (const auto* vector = std::get_if<CIVector>(&value))
                text += textOf(*vector);
            else if (const auto* number = std::get_if<Number>(&value))
                text += textOf(number->doubleValue());
            else if (const auto* c = std::get_if<CIColor>(&value))
                text += textOf(CIVector(c->red(), c->green(), c->blue(), c->alpha()));
            else if (const auto* t = std::get_if<CGAffineTransform>(&value))
                text +=
                    textOf(CIVector(t->a, t->b, t->c, t->d)) + "+" + textOf(CIVector(t->tx, t->ty));
            else if (const auto* image = std::get_if<std::shared_ptr<ImageDescription>>(&value))
                text += below(*image);
            else if (const auto* number = std::get_if<Number>(&value))
                text += textOf(number->doubleValue());
        }
        return text + ")";
    case ImageDescription::Kind::Composite:
        return "{" + below(node.over) + " over " + below(node.under) + "}";
    case ImageDescription::Kind::Intermediate:
        return "<" + below(node.image) + ">";
    case ImageDescription::Kind::ErrorImage:
        return "error " + node.label;
    case ImageDescription::Kind::Surface:
        return "surface " + textOf(node.extent) + " " + std::to_string(node.bytesPerRow) +
               (node.colorSpace == CGColorSpace::SRGB ? " sRGB" : "");
    case ImageDescription::Kind::Bitmap:
        return "bitmap " + textOf(node.extent) + " " + node.format;
    case ImageDescription::Kind::Accumulator:
        return "kept";
    default:
        return "something else";
    }
}

} // namespace

std::string graphOf(const CIImage& output, const CIImage& source) {
    if (!output) return "nothing";
    const auto node = describeImage(output, kProbe);
    std::string text = textOf(*node, source);
    if (node->kind == ImageDescription::Kind::Kernel && node->extent != source.extent())
        text += " at " + textOf(node->extent);
    return text;
}

TEST_P(Graphs, AreThoseOfTheTable) {
    const GraphCase& test = GetParam();
    testing::internal::CaptureStdout();
    const CIImage output = filtered(test.filter, test.source, test.settings);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(output ? graphOf(output, test.source) : "", test.graph);
}

TEST_P(Stories, GoAsTold) {
    const StoryCase& test = GetParam();
    const auto setClock = [](double seconds) {
        PlatformClock::drive(1'000'000'000'000 +
                             static_cast<uint64_t>(std::llround(seconds * 1e9)));
    };
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    setClock(0);
    const CIFilterRef filter = CIFilter::filterWithName(test.filter);
    ASSERT_NE(filter, nullptr);
    filter->setDefaults();
    CIImage source = test.source;
    for (const auto& [key, value] : test.settings) ASSERT_TRUE(filter->setValueForKey(value, key));
    for (size_t i = 0; i < test.frames.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        const Frame& told = test.frames[i];
        if (told.source) source = told.source;
        filter->setValueForKey(source, filter->filterClass().guide().frameKey);
        for (const auto& [key, value] : told.settings)
            ASSERT_TRUE(filter->setValueForKey(value, key)) << key;
        setClock(told.seconds);
        filter->setVornFrameTime(told.frameTime);
        EXPECT_EQ(graphOf(filter->outputImage(), source), told.graph);
    }
}

void Stories::TearDown() {
    PlatformClock::release();
}

// ---- Pixels -------------------------------------------------------------------------------------

TEST_P(Pixels, AreThoseOfTheFormula) {
    const PixelCase& test = GetParam();
    Random random(7);
    const Bitmap source = randomBitmap(random, kWidth, kHeight, CIFormat::RGBAf);
    for (const CGPoint origin : {CGPoint{}, CGPoint{-31, 17}}) {
        const CIImage image = filtered(test.filter, source.image(origin), test.settings);
        const auto expected = [&](int x, int y) { return test.expected(source, x, y); };
        for (CIContext* context : everyContext())
            EXPECT_TRUE(
                isClose(render(*context, image, image.extent(), CIFormat::RGBAf), expected, {2e-5}))
                << nameOf(*context);
    }
}

// ---- Advertised inputs --------------------------------------------------------------------------

namespace {

std::string advertisedBy(const InputAttributes& input) {
    const AttributeValue* label = input.find(kCIAttributeDisplayName);
    std::string text = input.key.starts_with("input") ? input.key.substr(5) : "'" + input.key + "'";
    text += label ? " \"" + std::get<std::string>(*label) + "\"" : " no label";
    const std::tuple<const char*, const char*, double> numbers[] = {
        {kCIAttributeMin, "min", 0},
        {kCIAttributeSliderMin, "from", 0},
        {kCIAttributeSliderMax, "to", 1},
        {kCIAttributeDefault, "default", 0},
        {kCIAttributeIdentity, "identity", 0}};
    std::vector<std::string> usualOrder;
    for (const auto& [attribute, word, usual] : numbers) {
        const AttributeValue* value = input.find(attribute);
        if (value) usualOrder.push_back(attribute);
        const double* number = value ? std::get_if<double>(value) : nullptr;
        const CIVector* vector = value ? std::get_if<CIVector>(value) : nullptr;
        const CIColor* color = value ? std::get_if<CIColor>(value) : nullptr;
        if (color)
            text += std::string(" ") + word + " " +
                    textOf(CIVector(color->red(), color->green(), color->blue(), color->alpha()));
        else if (vector)
            text += std::string(" ") + word + " " + textOf(*vector);
        else if (!number)
            text += std::string(" no ") + word;
        else if (*number != usual)
            text += std::string(" ") + word + " " + textOf(*number);
    }
    if (label) usualOrder.push_back(kCIAttributeDisplayName);
    const AttributeValue* type = input.find(kCIAttributeType);
    if (type) usualOrder.push_back(kCIAttributeType);
    if (!type)
        text += " no type";
    else if (std::get<std::string>(*type) != kCIAttributeTypeDistance)
        text += " type " + std::get<std::string>(*type);
    std::vector<std::string> order;
    for (const auto& entry : input.entries) order.push_back(entry.first);
    if (order != usualOrder) {
        text += " in the order";
        for (const std::string& name : order) text += " " + name;
    }
    return text;
}

} // namespace

TEST_P(Advertised, AreTheInputsOfTheTable) {
    filtered("VEDummy", frame(1, 1), {}); // registers the filters
    const CIFilterRef filter = CIFilter::filterWithName(GetParam().filter);
    ASSERT_NE(filter, nullptr);
    std::string text;
    for (const InputAttributes& input : filter->filterClass().customAttributes())
        text += (text.empty() ? "" : ", ") + advertisedBy(input);
    EXPECT_EQ(text, GetParam().inputs);
}

// ---- In messages --------------------------------------------------------------------------------

std::ostream& operator<<(std::ostream& stream, const AdvertisedCase& test) {
    return stream << test.filter;
}
std::ostream& operator<<(std::ostream& stream, const GraphCase& test) {
    return stream << test.title;
}
std::ostream& operator<<(std::ostream& stream, const PixelCase& test) {
    return stream << test.title;
}
std::ostream& operator<<(std::ostream& stream, const StoryCase& test) {
    return stream << test.title;
}
