// Colour measures that several kernels share.

// Luma of R'G'B' video (ITU-R BT.709). Works on premultiplied colour too: the luma is then
// premultiplied as well.
float luma(vec3 c) { return dot(c, vec3(0.2126, 0.7152, 0.0722)); }
