// Mattes: how much of a picture stays by a second one.

// Which channel counts, as weights of a premultiplied colour, so that nothing counts as black.
const vec4 matteOfLuma = vec4(0.2126, 0.7152, 0.0722, 0.0);
const vec4 matteOfRed = vec4(1.0, 0.0, 0.0, 0.0);
const vec4 matteOfGreen = vec4(0.0, 1.0, 0.0, 0.0);
const vec4 matteOfBlue = vec4(0.0, 0.0, 1.0, 0.0);
const vec4 matteOfAlpha = vec4(0.0, 0.0, 0.0, 1.0);

// The matte at p, in its own pixels from its lower left corner; its border's pixels go on. A pixel of the
// result covers `scale` pixels of it: where that is more than one, so many reads are averaged as make
// them up, up to four each way, so that a large matte keeps calm.
vec4 matteAt(sampler matte, vec2 p, uniform vec2 scale) {
    uniform vec2 origin = samplerOrigin(matte);
    uniform vec2 last = max(samplerSize(matte) - 0.5, vec2(0.5));
    if (max(scale.x, scale.y) <= 1.0) return sample(matte, clamp(p, vec2(0.5), last) + origin);
    uniform vec2 count = ceil(clamp(scale, 1.0, 4.0));
    uniform vec2 reach = 0.5 * max(scale - 1.0, 0.0);
    uniform vec2 apart = 2.0 * reach / max(count - 1.0, vec2(1.0));
    uniform int across = int(count.x);
    uniform int up = int(count.y);
    vec4 sum = vec4(0.0);
    for (int j = 0; j < up; ++j)
        for (int i = 0; i < across; ++i) {
            uniform vec2 off = vec2(float(i), float(j)) * apart - reach;
            sum += sample(matte, clamp(p + off, vec2(0.5), last) + origin);
        }
    return sum * (1.0 / (count.x * count.y));
}

// A matte that covers the frame pixel by pixel, at the own pixel, or else in the frame's pixel p.
vec4 matteOver(sampler matte, vec2 p, uniform vec2 scale, uniform vec2 frameOrigin) {
    uniform vec2 apart = abs(samplerOrigin(matte) - frameOrigin) + abs(scale - 1.0);
    if (apart.x + apart.y == 0.0) return sample(matte, samplerCoord(matte));
    return matteAt(matte, p * scale, scale);
}

// How much of a rectangle of that half-size a pixel shows, at q from its middle in pixels of the result.
float covered(vec2 q, uniform vec2 halfSize) {
    vec2 inside = clamp(halfSize - abs(q) + 0.5, 0.0, 1.0);
    return inside.x * inside.y;
}

// What stays: the weighted channel, or what it leaves.
float shareOf(vec4 matte, uniform vec4 weights, uniform bool isInverted) {
    float share = clamp(dot(matte, weights), 0.0, 1.0);
    return isInverted ? 1.0 - share : share;
}
