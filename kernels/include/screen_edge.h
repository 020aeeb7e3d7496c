// Edges that are drawn where a measure of the picture crosses a level, anti-aliased on the screen
// however hard they are.

// A measure by weights at an offset of whole pixels; beyond the border, and where it is transparent,
// that of the pixel in the middle goes on.
float measureAt(sampler image, uniform int x, uniform int y, uniform vec3 weights, float own) {
    vec4 c = sampleOffset(image, x, y);
    return dot(c.rgb, weights) + own * (1.0 - c.a);
}

// How wide an edge of a pixel and a half is in terms of the measure. The measure's slope is that between
// the neighbours, two pixels apart; its length is taken as that of the octagon, within 4 percent.
float edgeOnScreen(float left, float right, float below, float top) {
    float x = abs(right - left);
    float y = abs(top - below);
    return 0.72 * max(x, y) + 0.2985 * min(x, y);
}

// How much of a pixel lies above a level that its measure is `above` of, for an edge that is `width`
// wide in terms of the measure, and at least a pixel and a half on the screen.
float shareAbove(float above, float left, float right, float below, float top, uniform float width) {
    float edge = max(edgeOnScreen(left, right, below, top), width);
    if (everywhere(abs(above) >= edge * 0.50001)) return step(0.0, above);
    return clamp(above / edge + 0.5, 0.0, 1.0);
}
