#include "vorneffects/ImageDescription.h"
#include "vorneffects/ImagePromise.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "platform/Messages.h"

#include <unordered_map>

using namespace vorn;
using namespace vorn::imaging;

namespace {

/// A description that is destroyed as nodes are: one after the other.
struct Held : ImageDescription {
    Held* nextToDestroy = nullptr;

    static void destroy(Held* held) noexcept {
        static thread_local Held* first = nullptr;
        static thread_local bool isDestroying = false;
        held->nextToDestroy = first;
        first = held;
        if (isDestroying) return;
        isDestroying = true;
        while (first) {
            Held* const next = first;
            first = next->nextToDestroy;
            delete next;
        }
        isDestroying = false;
    }
};

std::shared_ptr<ImageDescription> makeDescription() {
    return std::shared_ptr<Held>(new Held, &Held::destroy);
}

class Describer {
public:
    explicit Describer(CGRect probe) : probe_(probe) {}

    std::shared_ptr<ImageDescription> describeAll(const CIImage& image) {
        const std::shared_ptr<ImageDescription> top = describe(image);
        // One after the other, not by recursion: a graph may be deep.
        while (!unfilled_.empty()) {
            ImageDescription& next = *unfilled_.back();
            unfilled_.pop_back();
            fill(next, *next.object.node());
        }
        return top;
    }

private:
    using Kind = ImageDescription::Kind;

    /// The description of an image, which is filled later.
    std::shared_ptr<ImageDescription> describe(const CIImage& image) {
        if (!image) return nullptr;
        std::shared_ptr<ImageDescription>& known = known_[image.node()];
        if (known) return known;
        known = makeDescription();
        known->object = image;
        known->extent = image.extent();
        known->colorSpace = image.colorSpace();
        unfilled_.push_back(known.get());
        return known;
    }

    void fill(ImageDescription& out, const Node& node) {
        if (node.annotation && node.annotation->builtinName) {
            out.kind = Kind::Builtin;
            out.name = node.annotation->builtinName;
            for (const auto& [key, value] : node.annotation->builtinInputs)
                out.inputs.emplace_back(
                    key, std::visit([this](const auto& v) { return input(v); }, value));
            return;
        }
        switch (node.kind) {
        case Node::Kind::Pixels:
            pixels(out, node);
            break;
        case Node::Kind::Kernel:
            kernel(out, node);
            break;
        case Node::Kind::Crop:
            out.kind = Kind::Builtin;
            out.name = "CICrop";
            out.inputs = {{"inputImage", describe(node.children[0])},
                          {"inputRectangle",
                           CIVector(node.rect.x, node.rect.y, node.rect.width, node.rect.height)}};
            break;
        case Node::Kind::Transform:
            out.kind = Kind::Builtin;
            out.name = "CIAffineTransform";
            out.inputs = {{"inputImage", describe(node.children[0])},
                          {"inputTransform", node.transform}};
            break;
        case Node::Kind::Composite:
            out.kind = Kind::Composite;
            out.over = describe(node.children[0]);
            out.under = describe(node.children[1]);
            break;
        case Node::Kind::Intermediate:
            out.kind = Kind::Intermediate;
            out.image = describe(node.children[0]);
            break;
        case Node::Kind::Constant:
            out.kind = Kind::Constant;
            out.color = node.color;
            break;
        }
    }

    void pixels(ImageDescription& out, const Node& node) {
        static constexpr Kind kinds[] = {Kind::Bitmap, Kind::Surface, Kind::Surface,
                                         Kind::Accumulator};
        out.kind = kinds[static_cast<size_t>(node.origin)];
        out.width = node.pixels.width;
        out.height = node.pixels.height;
        out.bytesPerRow = node.pixels.bytesPerRow;
        out.format = formatName(node.pixels.format);
        if (node.annotation &&
            !(node.annotation->errorLabel.empty() && node.annotation->errorMessage.empty())) {
            out.kind = Kind::ErrorImage;
            out.label = node.annotation->errorLabel;
            out.message = node.annotation->errorMessage;
        }
    }

    void kernel(ImageDescription& out, const Node& node) {
        out.kind = Kind::Kernel;
        out.library = node.function->libraryName();
        out.function = node.function->declaration().name;
        out.type = static_cast<KernelType>(node.function->declaration().kind);
        for (const KernelArgument& argument : node.arguments)
            out.arguments.push_back(std::visit(
                [this](const auto& v) { return describeArgument(v); }, argument.value()));
        if (out.type == KernelType::Warp) out.image = describe(node.samplers[0].image());
        const kernelc::Function& declaration = node.function->declaration();
        const size_t reduced = declaration.parameters.size() - kernelc::givenCount(declaration);
        if (out.type != KernelType::Color)
            for (size_t i = 0; i + reduced < node.samplers.size(); ++i)
                out.regionsOfInterest.push_back(
                    node.regionOfInterest.rectFor(static_cast<int>(i), probe_));
    }

    template <class T>
    ArgumentDescription describeArgument(const T& value) {
        return value;
    }
    ArgumentDescription describeArgument(const CISampler& sampler) {
        return SamplerDescription{describe(sampler.image()), sampler.options().filter,
                                  sampler.options().colorSpace};
    }
    template <class T>
    BuiltinInput input(const T& value) {
        return value;
    }
    BuiltinInput input(const CIImage& image) { return describe(image); }

    CGRect probe_;
    std::vector<ImageDescription*> unfilled_;
    std::unordered_map<const Node*, std::shared_ptr<ImageDescription>> known_;
};

} // namespace

std::shared_ptr<ImageDescription> vorn::describeImage(const CIImage& image, CGRect probe) try {
    return Describer(probe).describeAll(image);
} catch (...) {
    reportCaught("describeImage");
    return {};
}

bool vorn::isKnownToEqual(const CIImage& image, const CIImage& other) {
    const Node* node = image.node();
    while (node && node != other.node()) {
        const bool isPromised = node->kind == Node::Kind::Kernel && node->children[0];
        node = isPromised && node->extent == other.extent() ? node->children[0].node() : nullptr;
    }
    return node != nullptr;
}
