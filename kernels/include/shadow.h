// Shadows: the alpha of a picture, moved and blurred.

// The weights of four blocks in a row for a place `t` beyond the middle of the second, 0 to 1: the bell
// (1 - (d / r)^2)^2, which is nothing from r blocks on, brought to a sum of 1. As one blends with linear
// reads: where the two reads lie, counted from that middle, and the share of the second.
vec3 bell(float t, uniform float perSquare) {
    float u = 1.0 - t;
    float a = max(1.0 - (1.0 + t) * (1.0 + t) * perSquare, 0.0);
    float b = max(1.0 - t * t * perSquare, 0.0);
    float c = max(1.0 - u * u * perSquare, 0.0);
    float d = max(1.0 - (1.0 + u) * (1.0 + u) * perSquare, 0.0);
    float low = a * a + b * b;
    float high = c * c + d * d;
    return vec3(b * b / low - 1.0, 1.0 + d * d / high, high / (low + high));
}

// What a shadow of that softness, the standard deviation of its blur in pixels, covers of a pixel when the
// picture's alpha is moved by `offset`. A soft one is made of the reduced picture, 4 x 4 blocks by 4 linear
// reads, with bells whose r makes the variances of a block and of the bell, 1 / 12 and r^2 / 7, add up
// to that of the softness. A hard one has the mean of four reads that lie about so far from the middle, and
// side by side evenly along either axis.
float shadowAt(sampler image, sampler small, uniform vec2 offset, uniform float softness) {
    if (!(softness > 0.0)) return sampleMoved(image, -offset).a;
    uniform vec2 share = samplerSize(small) / samplerSize(image);
    if (min(share.x, share.y) < 1.0) {
        uniform vec2 spread = softness * softness * share * share - 0.0833333;
        uniform vec2 perSquare = 1.0 / clamp(7.0 * spread, 1.21, 4.0);
        uniform vec2 zero = samplerOrigin(small) - (samplerOrigin(image) + offset) * share - 0.5;
        vec2 p = samplerCoord(image) * share + zero;
        vec2 first = floor(p);
        vec3 x = bell(p.x - first.x, perSquare.x);
        vec3 y = bell(p.y - first.y, perSquare.y);
        vec2 middle = first + 0.5;
        float below = mix(sample(small, middle + vec2(x.x, y.x)).a,
                          sample(small, middle + vec2(x.y, y.x)).a, x.z);
        float above = mix(sample(small, middle + vec2(x.x, y.y)).a,
                          sample(small, middle + vec2(x.y, y.y)).a, x.z);
        return mix(below, above, y.z);
    }
    uniform float near = softness * 0.4472136;
    uniform float far = softness * 1.3416408;
    return 0.25 * (sampleMoved(image, vec2(near, far) - offset).a +
                   sampleMoved(image, vec2(-near, -far) - offset).a +
                   sampleMoved(image, vec2(far, -near) - offset).a +
                   sampleMoved(image, vec2(-far, near) - offset).a);
}

// The source over a black shadow: only where the source lets something through does it show.
vec4 overShadow(vec4 source, float shadow) {
    return vec4(source.rgb, source.a + shadow * (1.0 - source.a));
}
