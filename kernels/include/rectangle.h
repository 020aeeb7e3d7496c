// Rectangles with soft, anti-aliased borders.

#include "soft_edge.h"

// How deep the pixel at q, in pixels from the middle, lies inside of a rectangle of the half-sizes
// `extent`, across and up: 0 and below outside, 1 and above where it is whole. The border fades over
// `softness` pixels, the same on all four sides, where the smaller half-size is at least `widest`, the
// widest border, and over less in proportion where it is smaller, so that the whole range of the edge does
// something to the smallest shape.
vec2 depthInRectangle(vec2 q, uniform vec2 extent, uniform float softness, uniform float widest) {
    uniform float least = max(min(extent.x, extent.y), 0.0);
    uniform float fits = min(max(softness, 0.0) * min(least / max(widest, 1.0e-6), 1.0), least);
    uniform float slope = 1.0 / (fits + 1.0);
    return min((extent + 0.5 - abs(q)) * slope, 2.0 * extent);
}
bool isInsideRectangle(vec2 depth) { return min(depth.x, depth.y) >= 1.0; }
bool isOutsideRectangle(vec2 depth) { return min(depth.x, depth.y) <= 0.0; }

// How much of the pixel lies inside: the product of both directions, which rounds the corners of a
// soft border.
float insideRectangle(vec2 depth) { return smoothShare(depth.x) * smoothShare(depth.y); }
