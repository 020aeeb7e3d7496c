// Straight cuts along the axes of the frame.

#include "soft_edge.h"

// How much of a pixel stays of a band, `distance` from its middle, all in pixels. Its border fades inward
// over the share `edge` of the half-width.
float insideBand(float distance, uniform float halfWidth, uniform float edge) {
    return insideShare(abs(distance), max(halfWidth, 0.0), clamp(edge, 0.0, 1.0) * halfWidth, 0.5);
}

// The part of the source that stays, mixed with all of it. Kernels hand on first, in their own body and so
// unread, what stays whole and what goes.
vec4 kept(sampler image, float share, uniform float mixer) {
    return sample(image, samplerCoord(image)) * (1.0 - mixer * (1.0 - share));
}
