#include "imaging/SharedDrawing.h"

#include "imaging/Node.h"
#include "imaging/SessionState.h"

namespace vorn::imaging {

std::shared_ptr<SharedDrawing> SharedDrawing::ofClass(Class owner) {
    SessionState& session = stateOf(*Session::current());
    const std::lock_guard lock(session.mutex);
    std::shared_ptr<SharedDrawing>& drawing = session.drawings[owner];
    if (!drawing) drawing = std::make_shared<SharedDrawing>();
    return drawing;
}

CIImage SharedDrawing::imageOf(const std::shared_ptr<SharedDrawing>& drawing) {
    const CIImage image = CIImage::imageWithIOSurface(drawing->surface);
    if (!image) return {};
    auto node = makeInPool<Node>(*image.node());
    node->pixels.drawing = {drawing, &drawing->mutex};
    return CIImage(std::move(node));
}

} // namespace vorn::imaging
