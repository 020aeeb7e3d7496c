// The incoming picture of a transition. Where it covers less than the frame, its border goes on, so that
// a transition between pictures of unlike size ends without a hole.

// Whether a picture from `from` on that is `length` long covers a frame, along one axis. One without end
// does.
uniform bool covers(uniform float from, uniform float length, uniform float frameFrom, uniform float frameLength) {
    return length > 1.0e9 || (from <= frameFrom && from + length >= frameFrom + frameLength);
}

// At the own pixel of a frame of that extent.
vec4 incoming(sampler target, uniform vec4 frame) {
    uniform vec4 there = samplerExtent(target);
    if (covers(there.x, there.z, frame.x, frame.z) && covers(there.y, there.w, frame.y, frame.w))
        return sample(target, samplerCoord(target));
    uniform vec2 low = vec2(there.x, there.y) + 0.5;
    uniform vec2 high = max(low + vec2(there.z, there.w) - 1.0, low);
    return sample(target, clamp(samplerCoord(target), low, high));
}
