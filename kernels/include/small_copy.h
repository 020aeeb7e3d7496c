// Small copies of a picture that stay calm. Each pixel of a copy is the mean of four bilinear reads of the
// reduced image, 0.35 of a pixel of the copy from its middle each way. Where a pixel of the copy has two
// by two of the reduced image, they count 0.4 each along an axis, and their neighbours 0.1: of a wave of 4/3
// pixels, which a box lets through by 30 %, 9 % are left.

// How far the reads lie from the middle, in pixels of the reduced image: `scale` is how many times
// smaller the copy is than the picture along each axis, `share` the size of the reduced image as a share of
// the picture's. Nothing at the picture's own size.
uniform vec2 reachOfCopy(uniform vec2 scale, uniform vec2 share) {
    return vec2(0.35) * scale * share * clamp(scale - 1.0, 0.0, 1.0);
}
