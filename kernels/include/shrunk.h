// Pictures that are drawn smaller than they are, by a share that changes from frame to frame.

#include "incoming.h"

// How many reads along an axis make a pixel of a copy `times` smaller, and how far they are apart, in
// pixels of the picture: from nothing near the picture's own size to a pixel and two thirds, of which a
// read blends two.
uniform vec2 readsOf(uniform float times) {
    uniform float count = clamp(ceil(0.6 * times + 0.2), 1.0, 64.0);
    return vec2(count, times * clamp(times - 1.0, 0.0, 1.0) / count);
}

// The mean of those reads about a point of the picture.
vec4 sampleShrunk(sampler picture, vec2 p, uniform vec2 across, uniform vec2 up) {
    if (across.x * up.x <= 1.0) return sampleWithin(picture, p);
    uniform int columns = int(across.x);
    uniform int rows = int(up.x);
    vec2 first = p - vec2(0.5 * (across.x - 1.0) * across.y, 0.5 * (up.x - 1.0) * up.y);
    vec4 sum = vec4(0.0);
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column)
            sum += sampleWithin(picture, first + vec2(float(column) * across.y, float(row) * up.y));
    return sum * (1.0 / (across.x * up.x));
}
