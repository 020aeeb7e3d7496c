// Light on pictures.

// A premultiplied colour that is made so many times brighter, with its hue. What gets brighter nears white's
// brightness softly and reaches it with white itself: the largest channel p of the straight colour
// becomes g p / (1 + (g^4 - 1) p^4)^(1/4).
vec4 brightened(vec4 color, float gain) {
    float p = max(max(color.r, color.g), color.b) / max(color.a, 1.0e-6);
    float p2 = p * p;
    float g2 = max(gain, 1.0) * max(gain, 1.0);
    float shoulder = inversesqrt(sqrt(1.0 + (g2 * g2 - 1.0) * (p2 * p2)));
    return vec4(color.rgb * (gain * shoulder), color.a);
}
