// Circles in units that need not be as long across as they are high.

#include "soft_edge.h"

// How much of the pixel at q, measured from the middle, lies within the radius. `unit` is what a
// pixel measures across and up; half a pixel in the direction of the slope is
// |q * unit| / (2 |q|), which for a circle of square pixels is half of the unit everywhere.
float insideEllipse(vec2 q, uniform float radius, uniform float softness, uniform vec2 unit) {
    float distance = length(q);
    if (abs(unit.x - unit.y) <= 0.0001 * unit.y)
        return insideShare(distance, radius, softness, max(0.5 * unit.y, 1.0e-7));
    vec2 slope = q * unit;
    float reach = 0.5 * length(slope) / max(distance, 1.0e-9);
    return insideShare(distance, radius, softness, max(reach, 1.0e-7));
}
