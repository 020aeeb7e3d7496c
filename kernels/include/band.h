// Straight cuts along the axes of the frame.

#include "soft_edge.h"

// How deep a pixel, `distance` from the middle of a band, lies inside of it, all in pixels: 0 and below
// outside, 1 and above where it is whole; by smoothShare it fades inward over the share `edge` of the
// half-width and over the pixel itself. `slope` is that of the border.
uniform float slopeOfBand(uniform float halfWidth, uniform float edge) {
    return 1.0 / (clamp(edge, 0.0, 1.0) * max(halfWidth, 0.0) + 1.0);
}
float depthInBand(float distance, uniform float halfWidth, uniform float slope) {
    return min((halfWidth + 0.5 - abs(distance)) * slope, 2.0 * halfWidth);
}

// The part of the source that stays, mixed with all of it. Kernels hand on first, in their own body and so
// unread, what stays whole and what goes.
vec4 kept(sampler image, float share, uniform float mixer) {
    return sample(image, samplerCoord(image)) * (1.0 - mixer * (1.0 - share));
}
