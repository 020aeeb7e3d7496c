// Shadows: the alpha of a picture, moved and blurred. How soft one is is the standard deviation of its blur,
// in pixels. Soft ones are made of the reduced picture, in which a pixel is the mean of a block of the
// picture's; hard ones, for which there is none, of the picture.

// Where a place of the picture lies in the reduced one when the picture is moved by `offset`: times xy, plus
// zw; counted from the middle of its first block.
uniform vec4 toBlocks(uniform vec4 picture, uniform vec4 blocks, uniform vec2 offset) {
    uniform vec2 share = blocks.zw / picture.zw;
    uniform vec2 first = blocks.xy - (picture.xy + offset) * share - 0.5;
    return vec4(share.x, share.y, first.x, first.y);
}
uniform bool isReduced(uniform vec4 toBlocks) { return min(toBlocks.x, toBlocks.y) < 1.0; }

// Blocks are blended by bells, (1 - (d / r)^2)^2 at the distance d, in blocks. The variances of a block and
// of a bell, 1 / 12 and r^2 / 7, add up to that of the softness, r within 1.1 and 2, for blocks have to
// blend evenly and four in a row are read. This is 1 / r^2, across and up.
uniform vec2 bellsFor(uniform float softness, uniform vec4 toBlocks) {
    uniform vec2 deviation = softness * toBlocks.xy;
    return 1.0 / clamp(7.0 * (deviation * deviation - 0.0833333), 1.21, 4.0);
}

// The weights of four blocks in a row, brought to a sum of 1, for a place `t` beyond the middle of the
// second, 0 to 1. Linear reads blend two each: where the first lies, counted from the second's lower end,
// where the second, and its share.
vec3 bell(float t, uniform float perSquare) {
    float u = 1.0 - t;
    float a = max(1.0 - (1.0 + t) * (1.0 + t) * perSquare, 0.0);
    float b = 1.0 - t * t * perSquare;
    float c = 1.0 - u * u * perSquare;
    float d = max(1.0 - (1.0 + u) * (1.0 + u) * perSquare, 0.0);
    float low = a * a + b * b;
    float high = c * c + d * d;
    return vec3(b * b / low - 0.5, 1.5 + d * d / high, high / (low + high));
}

// Five reads: one in the middle, which counts a third, and four on a ring about it, which lie evenly side by
// side seen along either axis.
float hardShadow(sampler image, uniform vec2 offset, uniform float softness) {
    float middle = sampleMoved(image, -offset).a;
    if (softness <= 0.0) return middle;
    uniform float near = softness * 0.7745967;
    uniform float far = 2.0 * near;
    return (2.0 * middle + sampleMoved(image, vec2(far, near) - offset).a +
            sampleMoved(image, vec2(-near, far) - offset).a +
            sampleMoved(image, vec2(-far, -near) - offset).a +
            sampleMoved(image, vec2(near, -far) - offset).a) * 0.16666667;
}

// The source over a black shadow: only where the source lets something through does it show.
vec4 overShadow(vec4 source, float shadow) {
    return vec4(source.rgb, source.a + shadow * (1.0 - source.a));
}
