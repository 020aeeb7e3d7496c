#include "imagejson.h"

#include <type_traits>

namespace vorn::hosts::cli {

namespace {

Json colorSpaceJson(CGColorSpace space) {
    switch (space) {
    case CGColorSpace::SRGB:
        return "sRGB";
    case CGColorSpace::LinearSRGB:
        return "linearSRGB";
    case CGColorSpace::None:
        break;
    }
    return nullptr;
}

Json numberValueJson(const Number& number) {
    return number.isSet() ? numberJson(number.doubleValue()) : Json(nullptr);
}

const char* kernelTypeName(KernelType type) {
    switch (type) {
    case KernelType::Color:
        return "color";
    case KernelType::Warp:
        return "warp";
    case KernelType::General:
        break;
    }
    return "general";
}

const char* kindName(ImageDescription::Kind kind) {
    switch (kind) {
    case ImageDescription::Kind::Kernel:
        return "kernel";
    case ImageDescription::Kind::Builtin:
        return "builtin";
    case ImageDescription::Kind::Composite:
        return "composite";
    case ImageDescription::Kind::Intermediate:
        return "intermediate";
    case ImageDescription::Kind::ErrorImage:
        return "errorImage";
    case ImageDescription::Kind::Surface:
        return "surface";
    case ImageDescription::Kind::Bitmap:
        return "bitmap";
    case ImageDescription::Kind::Accumulator:
        return "accumulator";
    case ImageDescription::Kind::Constant:
        break;
    }
    return "constant";
}

/// What is known of an image of pixels or of one colour.
void addSource(Json& json, const ImageDescription& image) {
    if (image.width > 0) json["width"] = image.width;
    if (image.height > 0) json["height"] = image.height;
    if (image.bytesPerRow > 0) json["bytesPerRow"] = image.bytesPerRow;
    if (!image.format.empty()) json["format"] = image.format;
    if (image.color.isSet())
        json["color"] = colorComponentsJson(image.color);
    else
        json["colorSpace"] = colorSpaceJson(image.colorSpace);
}

} // namespace

void ImageJson::addInput(const CIImage& image, std::string key) {
    inputs_.emplace_back(image, std::move(key));
}

Json ImageJson::imageJson(const CIImage& image) {
    return nodeJson(describeImage(image, probe_).get());
}

int ImageJson::numberOf(const CIImage& image) {
    const auto [place, isNew] = numbers_.try_emplace(image.node(), 0);
    if (isNew) {
        held_.push_back(image);
        place->second = static_cast<int>(held_.size());
    }
    return place->second;
}

Json ImageJson::nodeJson(const ImageDescription* description) {
    if (!description) return nullptr;
    const ImageDescription& image = *description;
    Json json{{"kind", kindName(image.kind)}, {"id", numberOf(image.object)}};
    for (const auto& [input, key] : inputs_) {
        if (!(input == image.object)) continue;
        json["kind"] = "input";
        json["key"] = key;
        json["extent"] = rectJson(image.extent);
        return json;
    }
    json["extent"] = rectJson(image.extent);
    switch (image.kind) {
    case ImageDescription::Kind::Kernel: {
        json["library"] = image.library;
        json["function"] = image.function;
        json["type"] = kernelTypeName(image.type);
        Json& arguments = json["arguments"] = Json::array();
        for (const ArgumentDescription& a : image.arguments) arguments.push_back(argumentJson(a));
        if (image.type == KernelType::Warp) json["image"] = nodeJson(image.image.get());
        if (image.type != KernelType::Color) {
            Json& rects = json["roi"] = Json::array();
            for (const CGRect& rect : image.regionsOfInterest) rects.push_back(rectJson(rect));
        }
        break;
    }
    case ImageDescription::Kind::Builtin: {
        json["name"] = image.name;
        Json& inputs = json["inputs"] = Json::object();
        for (const auto& [key, value] : image.inputs) inputs[key] = builtinInputJson(value);
        break;
    }
    case ImageDescription::Kind::Composite:
        json["over"] = nodeJson(image.over.get());
        json["under"] = nodeJson(image.under.get());
        break;
    case ImageDescription::Kind::Intermediate:
        json["image"] = nodeJson(image.image.get());
        break;
    case ImageDescription::Kind::ErrorImage:
        json["label"] = image.label;
        json["message"] = image.message;
        break;
    case ImageDescription::Kind::Surface:
    case ImageDescription::Kind::Bitmap:
    case ImageDescription::Kind::Accumulator:
    case ImageDescription::Kind::Constant:
        addSource(json, image);
        break;
    }
    return json;
}

Json ImageJson::argumentJson(const ArgumentDescription& argument) {
    return std::visit(
        [this](const auto& held) -> Json {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Number>)
                return numberValueJson(held);
            else if constexpr (std::is_same_v<Held, CIVector>)
                return vectorJson(held);
            else if constexpr (std::is_same_v<Held, CIColor>)
                return colorJson(held);
            else {
                if (!held.image) return Json{{"sampler", nullptr}};
                const bool isNearest = held.filter == SamplerFilter::Nearest;
                return Json{{"sampler", nodeJson(held.image.get())},
                            {"filter", isNearest ? "nearest" : "linear"},
                            {"colorSpace", colorSpaceJson(held.colorSpace)}};
            }
        },
        argument);
}

Json ImageJson::builtinInputJson(const BuiltinInput& input) {
    return std::visit(
        [this](const auto& held) -> Json {
            using Held = std::remove_cvref_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Number>)
                return numberValueJson(held);
            else if constexpr (std::is_same_v<Held, CIVector>)
                return vectorJson(held);
            else if constexpr (std::is_same_v<Held, CIColor>)
                return colorJson(held);
            else if constexpr (std::is_same_v<Held, CGAffineTransform>)
                return transformJson(held);
            else
                return nodeJson(held.get());
        },
        input);
}

} // namespace vorn::hosts::cli
