// Colour keys: how far a colour is from the key, what that leaves of it, and the key taken out.

#include "soft_edge.h"

// How the squared distance of a colour from the key decides: (slope, offset) of the ramp over the
// distance itself, the square up to which all is gone, the square from which all stays. The ramp
// reaches 1/128 to both sides of the tolerance at a softness of 0, so that edges stay smooth, and as far
// as the tolerance itself at a softness of 1.
uniform vec4 keyRamp(uniform float tolerance, uniform float softness) {
    uniform float least = max(min(tolerance, 0.0078125), 1.0e-6);
    uniform float reach = least + (max(tolerance, least) - least) * max(softness, 0.0);
    uniform float none = max(tolerance - reach, 0.0) * 0.9999;
    uniform float all = (tolerance + reach) * 1.0001;
    return vec4(0.5 / reach, 0.5 - 0.5 * tolerance / reach, none * none, all * all);
}

// Most groups of pixels are all of the picture, or all of the screen behind it. A tolerance of 0
// removes nothing.
bool isPicture(float square, uniform vec4 ramp) { return square >= ramp.w; }
bool isScreen(float square, uniform vec4 ramp, uniform float tolerance) {
    uniform float limit = select(tolerance >= 0.0078125, ramp.z, 0.0);
    return square < limit;
}

// The share of a pixel that stays: none within the tolerance, all beyond it.
float keyMatte(float square, uniform vec4 ramp, uniform float tolerance) {
    uniform float most = clamp(tolerance * 128.0, 0.0, 1.0);
    return 1.0 - most * (1.0 - smoothShare(sqrt(square) * ramp.x + ramp.y));
}

// A premultiplied pixel of which the share `matte` is kept. Where it is partly removed it is taken
// as mixed with the key colour k, c = matte f + (1 - matte) k, and f is what remains: edges lose
// the key's tint. A pixel that is kept stays as it is.
vec4 withoutKey(vec4 source, vec3 key, float matte) {
    float alpha = source.a * matte;
    vec3 c = source.rgb - key * (source.a - alpha);
    return select(matte >= 1.0, source, vec4(min(max(c, 0.0), alpha), alpha));
}

// The square of the distance of straight colours in red, green and blue, 0 to 1 between black and
// white.
float squareRGB(vec3 c, vec3 key) {
    vec3 difference = c - key;
    return dot(difference, difference) * 0.33333333;
}
