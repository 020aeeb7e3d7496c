// Colour keys: how far a colour is from the key, what that leaves of it, and the key taken out.

#include "soft_edge.h"

// The share of a pixel that stays, for a colour at `distance` from the key: none within the
// tolerance, all beyond it. The ramp between reaches as far to both sides as the softness says, as
// a share of the tolerance, and never less than 1/128, so that edges stay smooth. A tolerance of 0
// removes nothing.
float keyMatte(float distance, uniform float tolerance, uniform float softness) {
    uniform float reach = max(tolerance * softness, max(min(tolerance, 0.0078125), 1.0e-6));
    uniform float slope = 0.5 / reach;
    uniform float offset = (reach - tolerance) * slope;
    uniform float most = clamp(tolerance * 128.0, 0.0, 1.0);
    return 1.0 - most * (1.0 - smoothShare(distance * slope + offset));
}

// A premultiplied pixel of which the share `matte` is kept. Where it is partly removed it is taken
// as mixed with the key colour k, c = matte f + (1 - matte) k, and f is what remains: edges lose
// the key's tint.
vec4 withoutKey(vec4 source, vec3 key, float matte) {
    float alpha = source.a * matte;
    vec3 c = source.rgb - key * (source.a - alpha);
    return vec4(min(max(c, 0.0), alpha), alpha);
}

// Distance of straight colours in red, green and blue, 0 to 1 between black and white.
float distanceRGB(vec3 c, vec3 key) { return length(c - key) * 0.57735027; }
