// Wipes whose order a matte gives: the incoming picture comes in where the matte's luma y (ITU-R BT.709,
// 0 to 1) lies below a level, which rises with the time from half a width below 0 to half a width above 1.

#include "color.h"
#include "incoming.h"
#include "screen_edge.h"
#include "soft_edge.h"

// The screen makes no edge wider than this: that between black and white.
const float widestEdge = 0.8;

// (level, width, low, high) of an edge that is `width` wide in terms of the matte. `high` is the share of
// what comes first, `low` that of what comes last: no other share goes beyond them, so that an edge that
// the screen makes wider begins and ends with the rest.
uniform vec4 wipeFront(uniform float time, uniform float width) {
    uniform float level = clamp(time, 0.0, 1.0) * (1.0 + width);
    uniform float low = clamp((level - 1.0) / width, 0.0, 1.0);
    uniform float high = clamp(level / width, 0.0, 1.0);
    return vec4(level - 0.5 * width, width, low * low * (3.0 - 2.0 * low), high * high * (3.0 - 2.0 * high));
}

// The frame that a matte lies over: stretched ones lie at the origin, wherever the picture is; the picture
// itself, as its own matte, lies where it is. The result is what leads from the picture to the matte.
uniform vec2 wayToMatte(uniform vec4 matte, uniform vec4 picture) {
    uniform vec4 apart = abs(matte - picture);
    uniform bool isInPlace = apart.x + apart.y + apart.z + apart.w <= 0.0;
    return isInPlace ? vec2(0.0) : -vec2(picture.x, picture.y);
}

vec4 matteBeside(sampler matte, uniform vec2 way, uniform int x, uniform int y) {
    if (abs(way.x) + abs(way.y) <= 0.0) return sampleOffset(matte, x, y);
    return sampleMoved(matte, way + vec2(float(x), float(y)));
}

// The matte's luma at a pixel. It counts by its straight colour, since its borders are half transparent
// where it was stretched; below a quarter it fades into black.
float matteLuma(sampler matte, uniform vec2 way) {
    vec4 c = matteBeside(matte, way, 0, 0);
    return clamp(luma(c.rgb) / max(c.a, 0.25), 0.0, 1.0);
}

// The matte's luma beside a pixel; beyond its border, and where it is transparent, that of the pixel.
float lumaBeside(sampler matte, uniform vec2 way, uniform int x, uniform int y, float own) {
    vec4 c = matteBeside(matte, way, x, y);
    return luma(c.rgb) + own * (1.0 - c.a);
}

// What a matte of 8 bits lacks between its steps: the mean of the pixels around, less the own one. They
// lie so that seen from any side no two are in one line, in pairs across the pixel, whose mean is that of
// a slope however steep it is. Where it is more than a step off, it is part of the picture and left out.
float betweenSteps(sampler matte, uniform vec2 way, float own) {
    float sum = 0.0;
    for (int y = 1; y <= 8; ++y) {
        uniform int x = 5 * y - 17 * ((5 * y + 8) / 17);
        vec4 there = matteBeside(matte, way, x, y) + matteBeside(matte, way, -x, -y);
        float off = 0.5 * luma(there.rgb) - own;
        sum += off * clamp(2.0 - abs(off) * 255.0, 0.0, 1.0);
    }
    return sum * (2.0 / 17.0);
}

// The share of the incoming picture.
float shareByMatte(sampler image, sampler matte, uniform vec4 front) {
    uniform vec2 way = wayToMatte(samplerExtent(matte), samplerExtent(image));
    float own = matteLuma(matte, way);
    float above = front.x - own;
    float last = front.z;
    float whole = select(above < 0.0, last, front.w);
    if (everywhere(abs(above) >= widestEdge * 0.50001 + 0.004)) return whole;
    float left = lumaBeside(matte, way, -1, 0, own);
    float right = lumaBeside(matte, way, 1, 0, own);
    float below = lumaBeside(matte, way, 0, -1, own);
    float top = lumaBeside(matte, way, 0, 1, own);
    float edge = clamp(edgeOnScreen(left, right, below, top), front.y, widestEdge);
    if (everywhere(abs(above) >= edge * 0.50001 + 0.004)) return whole;
    float share = (above - betweenSteps(matte, way, own)) / edge + 0.5;
    return clamp(smoothShare(share), front.z, front.w);
}
