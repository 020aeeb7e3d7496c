// Pictures that repeat.

#include "small_copy.h"

// The picture at p, from its lower left corner on and within its size. It goes on on the other side
// along axes whose `joined` is 1, where the first and the last pixel are blended as neighbours, so that
// the seam is as smooth as the picture; where it is 0 the border's pixels go on.
vec4 samplePeriodic(sampler image, vec2 p, uniform vec2 joined) {
    uniform vec2 origin = samplerOrigin(image);
    uniform vec2 last = samplerSize(image) - 0.5;
    vec2 inside = clamp(p, vec2(0.5), last);
    vec2 over = abs(p - inside) * joined;
    vec4 color = sample(image, inside + origin);
    if (everywhere(over.x + over.y <= 0.0)) return color;
    vec2 other = last + 0.5 - inside;
    color = color * ((1.0 - over.x) * (1.0 - over.y));
    for (int i = 1; i < 4; ++i) {
        uniform float across = float(i & 1);
        uniform float up = float(i >> 1);
        vec2 at = vec2(mix(inside.x, other.x, across), mix(inside.y, other.y, up));
        color += sample(image, at + origin) *
                 (mix(1.0 - over.x, over.x, across) * mix(1.0 - over.y, over.y, up));
    }
    return color;
}

// The mean of four such reads, `reach` from p each way, which calms a small copy.
vec4 samplePeriodicCopy(sampler image, vec2 p, uniform vec2 joined, uniform vec2 reach) {
    if (reach.x + reach.y <= 0.0) return samplePeriodic(image, p, joined);
    uniform vec2 size = samplerSize(image);
    vec2 low = p - reach;
    vec2 high = p + reach;
    low = low - size * floor(low / size) * joined;
    high = high - size * floor(high / size) * joined;
    return 0.25 * (samplePeriodic(image, low, joined) +
                   samplePeriodic(image, vec2(high.x, low.y), joined) +
                   samplePeriodic(image, vec2(low.x, high.y), joined) +
                   samplePeriodic(image, high, joined));
}
