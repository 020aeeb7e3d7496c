#include "vorneffects/CIImage.h"

#include "imaging/KernelLibrary.h"
#include "imaging/Node.h"
#include "platform/Guard.h"
#include "platform/Messages.h"

#include <cstring>
#include <mutex>

namespace vorn::imaging {

std::pmr::memory_resource* nodePool() {
    // Never destroyed: images may outlive every other static object.
    static auto* pool = new std::pmr::synchronized_pool_resource;
    return pool;
}

std::shared_ptr<Node> makeNode(Node::Kind kind, CGRect extent) {
    auto node = makeInPool<Node>();
    node->kind = kind;
    node->extent = extent.isEmpty() ? CGRect{} : extent;
    return node;
}

void Node::destroy(Node* node) noexcept {
    static thread_local Node* first = nullptr;
    static thread_local bool isDestroying = false;
    node->nextToDestroy = first;
    first = node;
    if (isDestroying) return; // whoever destroys what held the node comes to it
    isDestroying = true;
    while (first) {
        Node* const next = first;
        first = next->nextToDestroy;
        // The node lies in the memory of its reference counts, which its own weak pointer keeps
        // until here, and this one until the node is gone.
        const std::weak_ptr<const Node> memory = next->weak_from_this();
        next->~Node();
    }
    isDestroying = false;
}

namespace {
std::mutex storedMutex; // of all nodes: only those that an accumulator has stored come here
}

void StoredPixels::set(const std::shared_ptr<const Node>& pixels) const {
    const std::lock_guard lock(storedMutex);
    pixels_ = pixels;
    isSet_.store(true, std::memory_order_release);
}

std::shared_ptr<const Node> StoredPixels::get() const {
    if (!isSet_.load(std::memory_order_acquire)) return nullptr;
    const std::lock_guard lock(storedMutex);
    return pixels_.lock();
}

CIImage withAnnotation(const CIImage& image, std::shared_ptr<const Annotation> annotation) {
    if (!image) return {};
    auto node = makeInPool<Node>(*image.node());
    node->annotation = std::move(annotation);
    return CIImage(std::move(node));
}

CIImage markAsErrorImage(const CIImage& image, std::string label, std::string message) {
    auto annotation = makeInPool<Annotation>();
    annotation->errorLabel = std::move(label);
    annotation->errorMessage = std::move(message);
    return withAnnotation(image, std::move(annotation));
}

namespace {

CIImage pixelsImage(PixelSource source, CGPoint origin, CGColorSpace colorSpace,
                    Node::Origin kind) {
    auto node = makeNode(Node::Kind::Pixels,
                         {origin.x, origin.y, double(source.width), double(source.height)});
    node->origin = kind;
    node->colorSpace = colorSpace;
    node->pixels = std::move(source);
    return CIImage(std::move(node));
}

/// Puts a node on top of an image that it reads. False, with a line on standard output, when it
/// would be too deep.
bool putOnTop(Node& node, const CIImage& image) {
    node.depth = std::max(node.depth, image.node()->depth + 1);
    if (node.depth <= Node::kDeepest) return true;
    vorn::report(vorn::Severity::Warning,
                 "### CIImage: more than %d images lie on top of each other", Node::kDeepest);
    return false;
}

CIImage imageOfMemory(const std::shared_ptr<PixelMemory>& memory, CGColorSpace colorSpace,
                      Node::Origin kind) {
    if (!memory || !isKnown(colorSpace)) return {};
    return pixelsImage({nullptr, memory->width(), memory->height(), memory->bytesPerRow(),
                        memory->format(), nullptr, memory},
                       {}, colorSpace, kind);
}

/// The means of blocks of so many pixels, the one in the lower left corner at (0, 0). The extent is
/// the image's in blocks; in the last column and row a mean is that of the pixels that there are.
CIImage averaged(const CISampler& source, int across, int up, ReducedBits bits) {
    const CGRect extent = source.extent(), pixels = extent.integral();
    if (!extent.isFinite() || extent.isEmpty()) return source.image();
    constexpr int kMost = 64; // that a kernel adds up at once
    const auto limited = [](int wanted, double size) {
        return static_cast<int>(std::clamp<double>(wanted, 1, std::clamp<double>(size, 1, kMost)));
    };
    across = limited(across, extent.width), up = limited(up, extent.height);
    if (across == 1 && up == 1) return source.image();
    const auto function = frameworkKernel("CI_average", "CIResampleKernel");
    if (!function) return source.image();
    const CGRect blocks{(extent.x - pixels.x) / across, (extent.y - pixels.y) / up,
                        extent.width / across, extent.height / up};
    const CGAffineTransform toPixels{double(across), 0, 0, double(up), pixels.x, pixels.y};
    const auto reads = RegionOfInterest::transformedBy(toPixels).exact();
    const auto node = makeKernelNode(
        function, blocks, reads, {},
        {source, across, up, CIVector(pixels.x, pixels.y), CIVector(pixels.width, pixels.height)});
    if (!node) return source.image();
    node->bits = bits == ReducedBits::Floats ? Node::Bits::Floats : Node::Bits::OfSources;
    return CIImage(node);
}

} // namespace
} // namespace vorn::imaging

using namespace vorn;
using namespace vorn::imaging;

CGRect CIImage::extent() const {
    return node_ ? node_->extent : CGRect{};
}

CGColorSpace CIImage::colorSpace() const {
    return node_ ? node_->colorSpace : CGColorSpace::None;
}

const ImageProperties& CIImage::properties() const {
    static const ImageProperties none;
    return node_ && node_->annotation ? node_->annotation->properties : none;
}

CIImage CIImage::imageBySettingProperties(ImageProperties properties) const try {
    if (!node_) return {};
    auto annotation =
        node_->annotation ? makeInPool<Annotation>(*node_->annotation) : makeInPool<Annotation>();
    annotation->properties = std::move(properties);
    return withAnnotation(*this, std::move(annotation));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageWithBitmap(const void* bytes, uint32_t width, uint32_t height,
                                 size_t bytesPerRow, CIFormat format, CGColorSpace colorSpace,
                                 std::shared_ptr<const void> owner, CGPoint origin) try {
    if (!bytes || width == 0 || height == 0 || width > INT32_MAX / 4 || height > INT32_MAX / 4 ||
        !isKnown(format) || !isKnown(colorSpace) || bytesPerRow < width * bytesPerPixel(format) ||
        !sizeOfRows(bytesPerRow, height) || !std::isfinite(origin.x) || !std::isfinite(origin.y))
        return {};
    return pixelsImage(
        {static_cast<const uint8_t*>(bytes), width, height, bytesPerRow, format, std::move(owner)},
        origin, colorSpace, Node::Origin::Bitmap);
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageWithCVPixelBuffer(CVPixelBufferRef buffer, CGColorSpace colorSpace) try {
    return imageOfMemory(buffer, colorSpace, Node::Origin::PixelBuffer);
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageWithIOSurface(IOSurfaceRef surface, CGColorSpace colorSpace) try {
    return imageOfMemory(surface, colorSpace, Node::Origin::Surface);
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageWithColor(CIColor color) try {
    if (!color.isSet()) return {};
    const auto kernel = frameworkKernel("CI_constant");
    if (!kernel) return {};
    auto node =
        makeKernelNode(kernel, CGRect::infinite(), RegionOfInterest::identity(), {}, {color});
    if (!node) return {};
    node->kind = Node::Kind::Constant;
    node->color = color;
    node->colorSpace = CGColorSpace::SRGB;
    return CIImage(std::move(node));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageByCroppingToRect(CGRect rect) const try {
    if (!node_) return {};
    auto node = makeNode(Node::Kind::Crop, node_->extent.intersection(rect));
    if (!putOnTop(*node, *this)) return {};
    node->rect = rect;
    node->children[0] = *this;
    node->colorSpace = node_->colorSpace;
    return CIImage(std::move(node));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageByClampingToExtent() const try {
    if (!node_ || !node_->extent.isFinite() || node_->extent.isEmpty()) return *this;
    const auto kernel = frameworkKernel("CI_clamp");
    if (!kernel) return {};
    const CISampler sampler(*this, {SamplerFilter::Nearest});
    return CIImage(makeKernelNode(kernel, CGRect::infinite(),
                                  RegionOfInterest::clampedTo(sampler.extent()).exact(), {},
                                  {sampler}));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageByApplyingTransform(CGAffineTransform transform) const try {
    if (!node_ || !transform.isFinite() || transform.determinant() == 0) return {};
    // A chain of transforms is one resampling.
    if (node_->kind == Node::Kind::Transform && !node_->annotation)
        return node_->children[0].imageByApplyingTransform(node_->transform.then(transform));
    if (transform.isIdentity()) return *this;
    const CGAffineTransform inverse = transform.inverted();
    if (!inverse.isFinite()) return {};
    const auto kernel = frameworkKernel("CI_affine");
    if (!kernel) return {};
    auto node = makeKernelNode(
        kernel, transform.boundsOf(node_->extent), RegionOfInterest::transformedBy(inverse).exact(),
        *this,
        {CIVector(inverse.a, inverse.b, inverse.c, inverse.d), CIVector(inverse.tx, inverse.ty)});
    if (!node) return {};
    node->kind = Node::Kind::Transform;
    node->children[0] = *this;
    node->transform = transform;
    return CIImage(std::move(node));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageByCompositingOverImage(const CIImage& under) const try {
    if (!node_) return under;
    if (!under) return *this;
    const auto kernel = frameworkKernel("CI_sourceOver");
    if (!kernel) return {};
    auto node =
        makeKernelNode(kernel, extent().unionWith(under.extent()), RegionOfInterest::identity(), {},
                       {CISampler(*this), CISampler(under)});
    if (!node) return {};
    node->kind = Node::Kind::Composite;
    node->children[0] = *this;
    node->children[1] = under;
    return CIImage(std::move(node));
} catch (...) {
    reportCaught("CIImage");
    return {};
}

CIImage CIImage::imageWithPeriod(int across, int up) const try {
    if (!node_) return {};
    auto node = makeInPool<Node>(*node_);
    node->period[0] = std::max(across, 0), node->period[1] = std::max(up, 0);
    return CIImage(std::move(node));
} catch (...) {
    return *this; // the same picture
}

CIImage CIImage::imageKnownToEqual(const CIImage& other) const try {
    if (!node_ || !other || node_->kind != Node::Kind::Kernel) return *this;
    auto node = makeInPool<Node>(*node_);
    if (!putOnTop(*node, other)) return *this;
    node->children[0] = other;
    return CIImage(std::move(node));
} catch (...) {
    return *this; // the same picture
}

CIImage CIImage::imageWithReduction(int across, int up, ReducedBits bits) const try {
    if (!node_ || node_->kind != Node::Kind::Kernel) return *this;
    const kernelc::Function& declaration = node_->function->declaration();
    if (kernelc::givenCount(declaration) == declaration.parameters.size()) return *this;
    const CISampler& first = node_->samplers.front();
    const CIImage means = averaged(first, across, up, bits);
    if (!means || means.node() == first.image().node()) return *this;
    const CISampler small(means, {first.options().filter});
    auto node = makeInPool<Node>(*node_);
    if (!putOnTop(*node, means)) return *this;
    node->samplers.back() = small;
    return CIImage(std::move(node));
} catch (...) {
    return *this; // the same picture
}

CIImage CIImage::imageInBitsOfSources() const try {
    if (!node_ || node_->kind != Node::Kind::Kernel) return *this;
    auto node = makeInPool<Node>(*node_);
    node->bits = Node::Bits::OfSources;
    return CIImage(std::move(node));
} catch (...) {
    return *this; // the same picture
}

CIImage CIImage::imageByInsertingIntermediate() const try {
    if (!node_) return {};
    auto node = makeNode(Node::Kind::Intermediate, node_->extent);
    if (!putOnTop(*node, *this)) return {};
    node->children[0] = *this;
    node->colorSpace = node_->colorSpace;
    return CIImage(std::move(node));
} catch (...) {
    return *this; // the same picture
}

// ---- Regions of interest ----------------------------------------------------------------------

namespace {

/// What a clamped read reaches of `extent`: at least a pixel of it, that of the nearest border.
CGRect clamped(const CGRect& destination, const CGRect& extent) {
    if (destination.isEmpty() || extent.isEmpty()) return {};
    const double right = extent.maxX(), top = extent.maxY();
    const double x0 = std::clamp(destination.x, extent.x, std::max(extent.x, right - 1));
    const double y0 = std::clamp(destination.y, extent.y, std::max(extent.y, top - 1));
    const double x1 = std::clamp(destination.maxX(), std::min(extent.x + 1, right), right);
    const double y1 = std::clamp(destination.maxY(), std::min(extent.y + 1, top), top);
    return {x0, y0, x1 - x0, y1 - y0};
}

} // namespace

RegionOfInterest RegionOfInterest::whole(CGRect extent) {
    return wholeByIndex(extent, extent);
}
RegionOfInterest RegionOfInterest::wholeByIndex(CGRect first, CGRect others) {
    RegionOfInterest rule;
    rule.kind_ = first == others ? Kind::Whole : Kind::WholeByIndex;
    rule.first_ = first;
    rule.others_ = others;
    return rule;
}
RegionOfInterest RegionOfInterest::grownBy(double margin) {
    RegionOfInterest rule;
    rule.kind_ = Kind::Grown;
    rule.margin_ = margin;
    return rule;
}
RegionOfInterest RegionOfInterest::transformedBy(CGAffineTransform transform) {
    RegionOfInterest rule;
    rule.kind_ = Kind::Transformed;
    rule.transform_ = transform;
    return rule;
}
RegionOfInterest RegionOfInterest::clampedTo(CGRect extent) {
    RegionOfInterest rule;
    rule.kind_ = Kind::Clamped;
    rule.first_ = extent;
    return rule;
}
RegionOfInterest RegionOfInterest::computed(Callback callback) {
    RegionOfInterest rule;
    rule.kind_ = callback ? Kind::Computed : Kind::Identity;
    rule.callback_ = std::move(callback);
    return rule;
}
CGRect RegionOfInterest::rectFor(int index, CGRect destination) const try {
    return ask(index, destination);
} catch (...) {
    reportCaught("RegionOfInterest");
    return {};
}
CGRect RegionOfInterest::ask(int index, CGRect destination) const {
    switch (kind_) {
    case Kind::Whole:
    case Kind::WholeByIndex:
        return index == 0 ? first_ : others_;
    case Kind::Grown:
        return destination.grownBy(margin_);
    case Kind::Transformed:
        return transform_.boundsOf(destination);
    case Kind::Clamped:
        return clamped(destination, first_);
    case Kind::Computed:
        return callback_(index, destination);
    case Kind::Identity:
        break;
    }
    return destination;
}

// ---- Kernels ----------------------------------------------------------------------------------

bool KernelArgument::isMissing() const {
    if (mayBeMissing_) return false;
    return std::visit(
        [](const auto& value) {
            if constexpr (requires { value.isSet(); })
                return !value.isSet();
            else
                return !value;
        },
        value_);
}

namespace vorn::imaging {
namespace {

const char* typeName(kernelc::ParameterType type) {
    static const char* const names[] = {"an image",      "an image",      "a number",
                                        "a vector of 2", "a vector of 3", "a vector of 4",
                                        "a number",      "a number",      "an image"};
    return names[static_cast<size_t>(type)];
}

/// Transparent, of empty extent.
CIImage imageOfNothing() {
    return CIImage::imageWithColor(CIColor(0, 0, 0, 0)).imageByCroppingToRect({});
}

/// Appends an argument to the flattened ones; false when it does not fit the parameter.
bool flatten(const KernelArgument& argument, kernelc::ParameterType type, Node& node) {
    using kernelc::ParameterType;
    const auto& value = argument.value();
    if (kernelc::isImage(type)) {
        const auto* sampler = std::get_if<CISampler>(&value);
        if (sampler && !isKnown(sampler->options().colorSpace)) return false;
        if (sampler) node.samplers.push_back(*sampler ? *sampler : CISampler(imageOfNothing()));
        return sampler != nullptr;
    }
    if (const auto* number = std::get_if<Number>(&value)) {
        float bits = number->floatValue();
        const int32_t whole =
            type == ParameterType::Uint ? number->modeValue() : number->intValue();
        if (type == ParameterType::Int || type == ParameterType::Uint)
            std::memcpy(&bits, &whole, sizeof bits);
        else if (type != ParameterType::Float)
            return false;
        node.flattened.push_back(bits);
        return true;
    }
    const size_t count = static_cast<size_t>(kernelc::flattenedSize(type));
    if (const auto* vector = std::get_if<CIVector>(&value)) {
        if (count < 2 || vector->count() != count) return false;
        for (size_t i = 0; i < count; ++i)
            node.flattened.push_back(Number(vector->valueAtIndex(i)).floatValue());
        return true;
    }
    const auto* color = std::get_if<CIColor>(&value);
    if (!color || count < 3) return false;
    // Kernels get colours premultiplied.
    const double scale = count == 4 ? color->alpha() : 1;
    const double components[] = {color->red() * scale, color->green() * scale,
                                 color->blue() * scale, color->alpha()};
    for (size_t i = 0; i < count; ++i) node.flattened.push_back(Number(components[i]).floatValue());
    return true;
}

} // namespace

std::shared_ptr<Node> makeKernelNode(const LibraryFunction* function, CGRect extent,
                                     const RegionOfInterest& regionOfInterest, const CIImage& image,
                                     KernelArguments arguments) {
    const kernelc::Function& declaration = function->declaration();
    const auto& parameters = declaration.parameters;
    const size_t given = kernelc::givenCount(declaration);
    if (arguments.size() != given) {
        vorn::report(vorn::Severity::Warning, "### CIKernel '%s' takes %zu arguments, not %zu",
                     declaration.name.c_str(), given, arguments.size());
        return nullptr;
    }
    auto node = makeNode(Node::Kind::Kernel, extent);
    if (declaration.kind == kernelc::FunctionKind::Warp) {
        if (!image) {
            vorn::report(vorn::Severity::Warning, "### CIKernel '%s': the image to warp is missing",
                         declaration.name.c_str());
            return nullptr;
        }
        node->samplers.emplace_back(image);
    }
    node->arguments.reserve(arguments.size());
    for (size_t i = 0; i < arguments.size(); ++i) {
        const KernelArgument& argument = arguments.begin()[i];
        const bool missing = argument.isMissing();
        if (missing || !flatten(argument, parameters[i].type, *node)) {
            vorn::report(vorn::Severity::Warning, "### CIKernel '%s': argument %zu (%s) %s %s",
                         declaration.name.c_str(), i + 1, parameters[i].name.c_str(),
                         missing ? "is missing: it should be" : "should be",
                         typeName(parameters[i].type));
            return nullptr;
        }
        node->arguments.push_back(argument);
    }
    for (size_t i = given; i < parameters.size(); ++i) {
        const CISampler& first = node->samplers.front();
        node->samplers.emplace_back(first.image(), first.options());
    }
    for (const CISampler& sampler : node->samplers)
        if (!putOnTop(*node, sampler.image())) return nullptr;
    node->function = function;
    node->regionOfInterest = regionOfInterest;
    return node;
}

} // namespace vorn::imaging

CIImage CIKernel::applyWithExtent(CGRect extent, const RegionOfInterest& regionOfInterest,
                                  KernelArguments arguments) const try {
    const LibraryFunction* const function = this->function();
    if (!function) return {};
    if (function->declaration().kind == kernelc::FunctionKind::Warp) {
        vorn::report(vorn::Severity::Warning,
                     "### CIKernel '%s' is a warp kernel and needs an image to warp",
                     function->declaration().name.c_str());
        return {};
    }
    return CIImage(makeKernelNode(function, extent, regionOfInterest, {}, arguments));
} catch (...) {
    reportCaught("CIKernel");
    return {};
}

CIImage CIKernel::applyWithExtent(CGRect extent, KernelArguments arguments) const {
    const LibraryFunction* const function = this->function();
    if (function && function->declaration().kind != kernelc::FunctionKind::Color &&
        kernelc::sourceCount(function->declaration()) > 0) {
        vorn::report(vorn::Severity::Warning,
                     "### CIKernel '%s' is no colour kernel and needs a region of interest",
                     function->declaration().name.c_str());
        return {};
    }
    return applyWithExtent(extent, RegionOfInterest::identity(), arguments);
}

CIImage CIWarpKernel::applyWithExtent(CGRect extent, const RegionOfInterest& regionOfInterest,
                                      const CIImage& image, KernelArguments arguments) const try {
    const LibraryFunction* const function = this->function();
    if (!function) return {};
    return CIImage(makeKernelNode(function, extent, regionOfInterest, image, arguments));
} catch (...) {
    reportCaught("CIWarpKernel");
    return {};
}
