#include "imaging/cpu/Renderer.h"

#include <cstring>

namespace vorn::imaging::cpu {

using namespace kernelabi;

namespace {
int64_t bytesPerPixelOf(int layout) {
    return layout == kFloat ? 16 : layout == kHalf ? 8 : 4;
}
} // namespace

TargetView targetView(const Target& target) {
    const CIFormat format = target.format;
    return {static_cast<uint8_t*>(target.bytes), static_cast<int64_t>(target.bytesPerRow), 0,
            format == CIFormat::RGBAf   ? kFloat
            : format == CIFormat::RGBAh ? kHalf
                                        : kPacked8,
            format == CIFormat::BGRA8   ? ChannelOrder{2, 1, 0, 3}
            : format == CIFormat::ARGB8 ? ChannelOrder{1, 2, 3, 0}
                                        : ChannelOrder{0, 1, 2, 3}};
}

SourceView viewOf(const Step& step, const Edge& edge) {
    SourceView view = step.memory;
    const IntRect rect = step.memoryRect.intersection(edge.clip);
    if (!rect.isEmpty())
        view.bytes += int64_t(step.memoryRect.y1 - rect.y1) * view.rowBytes +
                      int64_t(rect.x0 - step.memoryRect.x0) * bytesPerPixelOf(view.layout);
    view.x0 = rect.x0, view.y0 = rect.y0;
    view.width = rect.width(), view.height = rect.height();
    view.nearest = edge.nearest;
    view.extent[0] = static_cast<float>(edge.extent.x);
    view.extent[1] = static_cast<float>(edge.extent.y);
    view.extent[2] = static_cast<float>(edge.extent.width);
    view.extent[3] = static_cast<float>(edge.extent.height);
    return view;
}

void clearPixels(const TargetView& target, int width, int height) {
    const size_t bytes = static_cast<size_t>(width * bytesPerPixelOf(target.layout));
    const int planes = target.layout == kPlanar ? 4 : 1;
    for (int plane = 0; plane < planes; ++plane)
        for (int row = 0; row < height; ++row)
            std::memset(target.bytes + plane * target.planeBytes + row * target.rowBytes, 0, bytes);
}

TargetView partOf(TargetView target, const IntRect& whole, const IntRect& part) {
    target.bytes += int64_t(whole.y1 - part.y1) * target.rowBytes +
                    int64_t(part.x0 - whole.x0) * bytesPerPixelOf(target.layout);
    return target;
}

} // namespace vorn::imaging::cpu
