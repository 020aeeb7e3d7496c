// Circles in units that need not be as long across as they are high.

#include "soft_edge.h"

// How much of the pixel at q, measured from the middle, lies within the radius. `unit` is what a
// pixel measures across and up; half a pixel in the direction of the slope is
// |q * unit| / (2 |q|).
float insideEllipse(vec2 q, float radius, float softness, vec2 unit) {
    float distance = length(q);
    vec2 slope = q * unit;
    float reach = 0.5 * length(slope) / max(distance, 1.0e-9);
    return insideShare(distance, radius, softness, max(reach, 1.0e-7));
}
