// Pictures that repeat.

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
