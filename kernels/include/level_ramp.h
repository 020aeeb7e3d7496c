// Keys by a level of the picture: what lies below it goes.

#include "screen_edge.h"
#include "soft_edge.h"

// The ramp of levels of an amount and a slope, each from 0 to 1: (middle, width), from amount * slope,
// where nothing stays, to the amount, where all does, over 1/64 at least. Filters hand over `high`, the
// amount, and `low`, the amount and the slope less 1.001; `all` is what both count to for white.
uniform vec2 levelRamp(uniform float high, uniform float low, uniform float all) {
    uniform float slope = clamp(1.001 - (high - low) / all, 0.0, 1.0);
    uniform float width = max(high * (1.0 - slope), 0.015625 * all);
    return vec2(high - 0.5 * width, width);
}

// How far a slope is so steep that its edge has to be held to the screen: 0 up to 1/2, 1 at 1.
uniform float steepness(uniform float high, uniform float low, uniform float all) {
    return clamp(1.002 - 2.0 * (high - low) / all, 0.0, 1.0) * step(0.0001, high);
}

// How much of a pixel stays whose measure by `weights` is `own`, and which lies `above` the middle of the
// ramp. No edge is wider than one from black to white: further from the middle the neighbours need not be
// read.
float levelShare(sampler image, float own, float above, uniform vec3 weights, uniform vec2 ramp,
                 uniform float steep) {
    if (steep <= 0.0) return smoothShare(above / ramp.y + 0.5);
    uniform float widest = max(1.0186 * steep * (weights.x + weights.y + weights.z), ramp.y);
    float beyond = abs(above) - 0.5001 * widest;
    if (everywhere(beyond >= 0.0)) return step(0.0, above);
    float left = measureAt(image, -1, 0, weights, own) * steep;
    float right = measureAt(image, 1, 0, weights, own) * steep;
    float below = measureAt(image, 0, -1, weights, own) * steep;
    float top = measureAt(image, 0, 1, weights, own) * steep;
    float share = smoothShare(shareAbove(above, left, right, below, top, ramp.y));
    return select(beyond >= 0.0, step(0.0, above), share);
}
