// Pictures that go on mirrored beyond their border.

// A place in pixels from the lower left corner, folded back into the picture as often as it takes, and
// half a pixel inside of the border, where a read does not blend with what lies outside.
vec2 mirroredPlace(vec2 place, uniform vec2 size) {
    vec2 folded = size - abs(mod(place, 2.0 * size) - size);
    return clamp(folded, vec2(0.5), size - 0.5);
}

// The picture at its own place plus an offset, which is not folded where that lies inside.
vec4 sampleMirrorExtended(sampler image, vec2 offset) {
    uniform vec2 size = samplerSize(image);
    vec2 place = samplerCoord(image) - samplerOrigin(image) + offset;
    vec2 beyond = abs(place - 0.5 * size) - (0.5 * size - 0.5);
    float over = max(beyond.x, beyond.y);
    vec2 there = samplerCoord(image) + offset;
    if (everywhere(over <= 0.0)) return sample(image, there);
    return sample(image, select(over <= 0.0, there, mirroredPlace(place, size) + samplerOrigin(image)));
}
