// Circles in units that need not be as long across as they are high.

#include "soft_edge.h"

// How wide the soft border is, in heights of the frame: as set where the radius is at least the widest
// border, 0.2, and less in proportion where it is smaller, so that the whole range of the edge does
// something to the smallest shape.
uniform float borderOf(uniform float softness, uniform float radius) {
    return max(softness, 0.0) * clamp(radius * 5.0, 0.0, 1.0);
}

// Whether the pixel at q, measured from the middle, lies wholly inside of the radius or of the soft
// border, and whether wholly outside: most pixels do, as far as the wider side of a pixel tells.
// `unit` is what a pixel measures across and up.
bool isInsideEllipse(vec2 q, uniform float radius, uniform float softness, uniform vec2 unit) {
    uniform float widest = max(unit.x, unit.y);
    uniform float soft = borderOf(softness, radius) * max(unit.x / unit.y, 1.0);
    uniform float border = min(soft, radius) + 0.5 * widest;
    uniform float limit = max(radius - border - 1.0e-5 * radius, 0.0);
    return dot(q, q) < limit * limit;
}
bool isOutsideEllipse(vec2 q, uniform float radius, uniform vec2 unit) {
    uniform float limit = max(radius + 0.5 * max(unit.x, unit.y) + 1.0e-5 * radius, 0.0);
    return dot(q, q) > limit * limit;
}

// How much of the pixel lies within the radius. A pixel in the direction of the slope is
// |q * unit| / |q|, which for a circle of square pixels is the unit everywhere; by it the border, which
// is as wide in pixels all round, is brought into the units in which the ellipse is a circle.
float insideEllipse(vec2 q, uniform float radius, uniform float softness, uniform vec2 unit) {
    if (everywhere(isInsideEllipse(q, radius, softness, unit))) return 1.0;
    if (everywhere(isOutsideEllipse(q, radius, unit))) return 0.0;
    uniform float border = borderOf(softness, radius);
    float distance = length(q);
    if (abs(unit.x - unit.y) <= 0.0001 * unit.y)
        return insideShare(distance, radius, border, max(0.5 * unit.y, 1.0e-7));
    float pixel = length(q * unit) / max(distance, 1.0e-9);
    return insideShare(distance, radius, border * (pixel / unit.y), max(0.5 * pixel, 1.0e-7));
}
