// Circles in units that need not be as long across as they are high.

#include "soft_edge.h"

// Whether the pixel at q, measured from the middle, lies wholly inside of the radius or of the soft
// border, and whether wholly outside: most pixels do, as far as the wider side of a pixel tells.
// `unit` is what a pixel measures across and up.
bool isInsideEllipse(vec2 q, uniform float radius, uniform float softness, uniform vec2 unit) {
    uniform float border = max(min(softness, radius), 0.0) + 0.5 * max(unit.x, unit.y);
    uniform float limit = max(radius - border - 1.0e-5 * radius, 0.0);
    return dot(q, q) < limit * limit;
}
bool isOutsideEllipse(vec2 q, uniform float radius, uniform vec2 unit) {
    uniform float limit = max(radius + 0.5 * max(unit.x, unit.y) + 1.0e-5 * radius, 0.0);
    return dot(q, q) > limit * limit;
}

// How much of the pixel lies within the radius. Half a pixel in the direction of the slope is
// |q * unit| / (2 |q|), which for a circle of square pixels is half of the unit everywhere.
float insideEllipse(vec2 q, uniform float radius, uniform float softness, uniform vec2 unit) {
    if (everywhere(isInsideEllipse(q, radius, softness, unit))) return 1.0;
    if (everywhere(isOutsideEllipse(q, radius, unit))) return 0.0;
    float distance = length(q);
    if (abs(unit.x - unit.y) <= 0.0001 * unit.y)
        return insideShare(distance, radius, softness, max(0.5 * unit.y, 1.0e-7));
    vec2 slope = q * unit;
    float reach = 0.5 * length(slope) / max(distance, 1.0e-9);
    return insideShare(distance, radius, softness, max(reach, 1.0e-7));
}
