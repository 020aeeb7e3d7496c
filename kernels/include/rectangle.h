// Rectangles with soft, anti-aliased borders.

#include "soft_edge.h"

// How much of the pixel at q, in pixels from the middle, lies inside of a rectangle of the
// half-sizes `extent`, whose border fades over `softness` pixels and no further than to the middle:
// the product of both directions, which rounds the corners of a soft border.
float insideRectangle(vec2 q, uniform vec2 extent, uniform float softness) {
    uniform vec2 slope = 1.0 / (max(min(vec2(softness), extent), 0.0) + 1.0);
    uniform vec2 most = 2.0 * extent;
    vec2 t = (extent + 0.5 - abs(q)) * slope;
    return smoothShare(min(t.x, most.x)) * smoothShare(min(t.y, most.y));
}
