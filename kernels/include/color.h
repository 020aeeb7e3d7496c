// Colour measures that several kernels share.

// Luma of R'G'B' video (ITU-R BT.709). Works on premultiplied colour too: the luma is then
// premultiplied as well.
float luma(vec3 c) { return dot(c, vec3(0.2126, 0.7152, 0.0722)); }

// The transfer function of sRGB (IEC 61966-2-1) and its inverse, on straight colour, odd about zero so
// that values below it survive.
vec3 linearFromSRGB(vec3 c) {
    vec3 v = abs(c);
    vec3 high = pow((v + 0.055) * (1.0 / 1.055), vec3(2.4));
    vec3 low = v * (1.0 / 12.92);
    return sign(c) * vec3(select(v.r <= 0.04045, low.r, high.r),
                          select(v.g <= 0.04045, low.g, high.g),
                          select(v.b <= 0.04045, low.b, high.b));
}
vec3 sRGBFromLinear(vec3 c) {
    vec3 v = abs(c);
    vec3 high = 1.055 * pow(v, vec3(1.0 / 2.4)) - 0.055;
    vec3 low = v * 12.92;
    return sign(c) * vec3(select(v.r <= 0.0031308, low.r, high.r),
                          select(v.g <= 0.0031308, low.g, high.g),
                          select(v.b <= 0.0031308, low.b, high.b));
}
