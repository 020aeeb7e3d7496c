// The incoming picture of a transition. Where it covers less than the frame, its border goes on, so that
// a transition between pictures of unlike size ends without a hole.

// Whether a picture from `from` on that is `length` long covers a frame, along one axis. One without end
// does.
uniform bool covers(uniform float from, uniform float length, uniform float frameFrom, uniform float frameLength) {
    return length > 1.0e9 || (from <= frameFrom && from + length >= frameFrom + frameLength);
}

uniform bool coversFrame(uniform vec4 there, uniform vec4 frame) {
    return covers(there.x, there.z, frame.x, frame.z) && covers(there.y, there.w, frame.y, frame.w);
}

// At the own pixel of a frame of that extent.
vec4 incoming(sampler target, uniform vec4 frame) {
    uniform vec4 there = samplerExtent(target);
    if (coversFrame(there, frame))
        return sample(target, samplerCoord(target));
    uniform vec2 low = vec2(there.x, there.y) + 0.5;
    uniform vec2 high = max(low + vec2(there.z, there.w) - 1.0, low);
    return sample(target, clamp(samplerCoord(target), low, high));
}

// The picture at any point; beyond its border the border's pixels go on.
vec4 sampleWithin(sampler picture, vec2 p) {
    uniform vec4 there = samplerExtent(picture);
    if (there.z > 1.0e9 || there.w > 1.0e9) return sample(picture, p);
    uniform vec2 low = vec2(there.x, there.y) + 0.5;
    uniform vec2 high = max(low + vec2(there.z, there.w) - 1.0, low);
    return sample(picture, clamp(p, low, high));
}

// The share of the incoming picture by which a wipe goes. In a frame without end, which has no middle and
// no borders, both pictures dissolve.
float shareInFrame(sampler image, float share, uniform float time) {
    if (samplerSize(image).x > 1.0e9 || samplerSize(image).y > 1.0e9) return clamp(time, 0.0, 1.0);
    return share;
}

// Both by the share. Kernels hand on first, in their own body and so as bytes, what is of one picture
// alone.
vec4 wiped(sampler image, sampler target, float share, uniform float time) {
    if (time >= 1.0) return incoming(target, samplerExtent(image));
    return mix(sample(image, samplerCoord(image)), incoming(target, samplerExtent(image)), share);
}
