// Lines where the picture changes, as wide as one wants them whatever the edge is like. The picture is
// measured by v = (2 r + 4 g + b) / 7, which keeps all eight primaries 1/7 apart at least, and seen
// through a Gaussian of about a pixel: of its slope m and its second and third derivative c and t along
// the slope, taken over five by five pixels without the corners, follow, as for a step that is seen so,
//   how soft it is                v = 1 / ((c / m)^2 - t / m), within 0.9 to 8: 0.9 where it is sharp
//   the distance from the edge   d = -v c / m
//   the height of the step       h = 2.86 m exp(d d / (2 v)), that of a sharp one,
// and the line is a band about d = 0, with flanks of a pixel and a half. What is transparent counts as
// being of the colour next to it, so that no line runs along the border of the picture.

float seenAt(sampler image, uniform int x, uniform int y, float own) {
    vec4 c = sampleOffset(image, x, y);
    return dot(c.rgb, vec3(0.28571429, 0.57142857, 0.14285714)) + own * (1.0 - c.a);
}

// The Gaussian's mean, slope, second and third derivative of five values in a row, and of three, where the
// outer ones are taken to be as their neighbours.
vec4 alongFive(float a, float b, float c, float d, float e) {
    float outer = a + e;
    float inner = b + d;
    return vec4(0.4026 * c + 0.2442 * inner + 0.0545 * outer, 0.2643 * (d - b) + 0.118 * (e - a),
                0.2363 * outer + 0.0546 * inner - 0.5818 * c, 0.5 * (e - a) - (d - b));
}

vec4 fiveAt(sampler image, uniform int stride, uniform int y, float own) {
    return alongFive(seenAt(image, -2 * stride, y, own), seenAt(image, -stride, y, own),
                     seenAt(image, 0, y, own), seenAt(image, stride, y, own),
                     seenAt(image, 2 * stride, y, own));
}
vec4 threeAt(sampler image, uniform int stride, uniform int y, float own) {
    float left = seenAt(image, -stride, y, own);
    float right = seenAt(image, stride, y, own);
    return alongFive(left, left, seenAt(image, 0, y, own), right, right);
}

// The line at the pixel that is written, whose straight colour is known: how much of the pixel lies in
// it, and the height of the step. Pixels are `stride` apart; `reach` is half the band's width.
vec2 lineAt(sampler image, vec3 straight, uniform int stride, uniform float reach) {
    uniform float pixel = 1.0 / float(stride);
    float own = dot(straight, vec3(0.28571429, 0.57142857, 0.14285714));
    vec4 bottom = threeAt(image, stride, -2 * stride, own);
    vec4 below = fiveAt(image, stride, -stride, own);
    vec4 middle = fiveAt(image, stride, 0, own);
    vec4 above = fiveAt(image, stride, stride, own);
    vec4 top = threeAt(image, stride, 2 * stride, own);
    vec4 outer = bottom + top;
    vec4 inner = below + above;
    float slopeX = 0.4026 * middle.y + 0.2442 * inner.y + 0.0545 * outer.y;
    float bendXX = 0.4026 * middle.z + 0.2442 * inner.z + 0.0545 * outer.z;
    float slopeY = 0.2643 * (above.x - below.x) + 0.118 * (top.x - bottom.x);
    float bendXY = 0.2643 * (above.y - below.y) + 0.118 * (top.y - bottom.y);
    float bendYY = 0.2363 * outer.x + 0.0546 * inner.x - 0.5818 * middle.x;
    float turnXXX = 0.4026 * middle.w + 0.2442 * inner.w + 0.0545 * outer.w;
    float turnXXY = 0.2643 * (above.z - below.z) + 0.118 * (top.z - bottom.z);
    float turnXYY = 0.2363 * outer.y + 0.0546 * inner.y - 0.5818 * middle.y;
    float turnYYY = 0.5 * (top.x - bottom.x) - (above.x - below.x);
    float square = slopeX * slopeX + slopeY * slopeY;
    float bend = slopeX * (slopeX * bendXX + 2.0 * slopeY * bendXY) + slopeY * slopeY * bendYY;
    float inverse = inversesqrt(max(square, 1.0e-10));
    float turn = slopeX * slopeX * (slopeX * turnXXX + 3.0 * slopeY * turnXXY) +
                 slopeY * slopeY * (slopeY * turnYYY + 3.0 * slopeX * turnXYY);
    float curved = abs(bend) * inverse * inverse * inverse;
    float sharp = curved * curved - turn * (inverse * inverse) * (inverse * inverse);
    // Far out on a sharp edge the third derivative says little.
    float most = max(1.15 * curved, 3.0 - 1.2 * curved);
    float away = min(curved / clamp(sharp, 0.125, 1.1111111), most);
    float height = 2.86 * square * inverse * exp2(min(away * curved * 0.7213475, 2.8));
    float band = clamp((reach - away) / (1.5 * pixel) + 0.5, 0.0, 1.0);
    return vec2(band, height);
}

// How strong a line of that height is: from nothing at the height that `reduce` asks for on, by degrees.
uniform vec2 heightsOf(uniform float reduce, uniform float smoothing) {
    uniform float low = 0.012 + 0.288 * reduce * reduce * reduce;
    return vec2(low, 2.0 * low + 0.08 + 0.5 * max(smoothing, 0.0));
}
