// Soft edges that are anti-aliased however hard they are.

// 0 to 1 with level ends.
float smoothShare(float t) {
    float x = clamp(t, 0.0, 1.0);
    return x * x * (3.0 - 2.0 * x);
}

// What a value is multiplied by and what is then added, so that its smoothShare rises from `low` to
// `high`.
uniform vec2 rise(uniform float low, uniform float high) { return vec2(1.0, -low) / (high - low); }

// How much of a pixel lies inside of a shape of the half-width `radius`, at `distance` from its
// middle. The border fades over `softness` inside of the radius, which ends at the middle, and over
// the pixel itself, which is 2 `reach` across; all in one unit. Nothing is left of a shape without
// width.
float insideShare(float distance, float radius, float softness, float reach) {
    float most = 2.0 * reach;
    float t = (radius + reach - distance) / (max(min(softness, radius), 0.0) + most);
    return smoothShare(min(t, 2.0 * radius / most));
}
