// Stripes side by side, counted from 0: bars, strips and lattices.

// What is added to the place in the frame, 0 to 1, times the count. Whole counts fill the frame with whole
// stripes; between them the stripes shrink about the middle of the frame while they slide half a
// stripe, which is where the next whole number has them.
uniform float stripeShift(uniform float count) {
    uniform float part = fract(count);
    return 0.5 * (part * part * (3.0 - 2.0 * part) - part);
}

// How much of a stretch of that width about x lies in stripes that reach from each whole number as far
// as `share` beyond it. `perWidth` is 1 / width.
float inStripes(float x, float share, float width, float perWidth) {
    float low = x - 0.5 * width;
    float start = low - floor(low);
    float end = start + width;
    float whole = floor(end);
    return clamp((whole * share + min(end - whole, share) - min(start, share)) * perWidth, 0.0, 1.0);
}
