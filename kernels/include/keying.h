// Colour keys. A pixel is taken as a mixture of the picture and of the key colour k, and the share of
// the key follows from its chroma, seen in the key's direction: 1 for the key itself, 0 for greys,
// whatever their brightness, and for colours at an angle.

// The chroma of a colour: the RGB cube along its grey diagonal, as a hexagon with red at (1, 0).
vec2 chromaOf(vec3 c) { return vec2(c.r - 0.5 * (c.g + c.b), 0.8660254 * (c.g - c.b)); }

// What all pixels share of a key: its chroma over the square of its length, how far it is a colour at
// all, from 0 for greys to 1, and its luma (ITU-R BT.709).
uniform vec4 keyLine(uniform vec3 key) {
    uniform float x = key.r - 0.5 * (key.g + key.b);
    uniform float y = 0.8660254 * (key.g - key.b);
    uniform float square = max(x * x + y * y, 1.0e-4);
    uniform float colored = clamp(sqrt(square) * 10.0 - 0.5, 0.0, 1.0);
    return vec4(x / square, y / square, colored, dot(key, vec3(0.2126, 0.7152, 0.0722)));
}

// How a chroma lies to that of the key, as shares of it: along it, and across it, above 0 on red's side.
vec2 towardKey(vec2 chroma, uniform vec4 line) {
    uniform float full = 1.0;
    uniform float side = select(line.y < 0.0, -full, full);
    return vec2(chroma.x * line.x + chroma.y * line.y, (chroma.x * line.y - chroma.y * line.x) * side);
}

// The share of the key: across it counts as soon as the angle is beyond `angle`, and at about 45
// degrees nothing is left.
float keyShare(vec2 toward, uniform float angle) {
    return toward.x - 1.2 * max(abs(toward.y) - angle * toward.x, 0.0);
}

// The greatest share of the key that leaves a picture between black and white, with some room for noise;
// `low` is 1 / key, and `high` 1 / (1 - key).
float possibleShare(vec3 c, uniform vec3 low, uniform vec3 high) {
    vec3 share = min((c + 0.08) * low, (1.08 - c) * high);
    return min(min(share.r, share.g), share.b);
}

// How far a pixel is from the key: 0 at the key, 1 without any of it. A grey key has no chroma; there the
// distance counts, in red, green and blue.
float keyDistance(vec3 c, uniform vec3 key, uniform vec4 line, float share) {
    if (line.z >= 1.0) return 1.0 - share;
    vec3 apart = c - key;
    return mix(1.6 * sqrt(dot(apart, apart)), 1.0 - share, line.z);
}

// (start, slope, spill): what is nearer to the key than `start` is gone, and what stays rises by the
// slope. The start is 0.8 tolerance^2; from there to greys the ramp takes between a third, at a
// softness of 0, and all of the way, and less where the tolerance is below 1/3. The spill is removed by
// degrees up to a tolerance of 1/10, so that 0 leaves everything as it is.
uniform vec3 keyRamp(uniform float tolerance, uniform float softness) {
    uniform float t = clamp(tolerance, 0.0, 1.0);
    uniform float start = 0.8 * t * t;
    uniform float onset = min(3.0 * t, 1.0);
    uniform float width = (1.0 - start) * (0.35 + 0.65 * clamp(softness, 0.0, 1.0)) * onset;
    return vec3(start, 1.0 / max(width, 1.0e-4), min(10.0 * t, 1.0));
}

float keptShare(float distance, uniform vec3 ramp) {
    return clamp((distance - ramp.x) * ramp.y, 0.0, 1.0);
}

// The light of the key on everything, as a share of it: a wider angle than the key's own. Weak colours
// on red's side, hair and skin in the shade, would lie on the far side from the key without it, and
// are led back there. The first fiftieth is noise.
float spillOf(vec2 toward, uniform vec4 line, uniform vec3 ramp) {
    float warm = clamp(toward.y, 0.0, 0.4);
    float share = toward.x + warm * (0.8 - 2.0 * warm) -
                  2.5 * max(abs(toward.y) - 0.5 * toward.x - 0.25, 0.0);
    return clamp(share - 0.02, 0.0, 1.0) * (ramp.z * line.z);
}

// A premultiplied pixel of which the share `kept` stays. As much of the key as it is transparent is
// taken out of it, f = (c - u k) / (1 - u); what the key's light adds beyond that gives way to a grey
// of the same luma.
vec4 withoutKey(vec4 source, vec3 straight, uniform vec3 key, uniform vec4 line, float kept,
                float spill) {
    float mixed = min(spill, 1.0 - kept);
    float rest = spill - mixed;
    vec3 c = straight - key * (mixed + rest) + rest * line.w;
    float alpha = source.a * kept;
    vec3 color = clamp(c / max(1.0 - mixed, 0.01), 0.0, 1.0) * alpha;
    bool isUntouched = kept >= 1.0 && spill <= 0.0;
    return select(isUntouched, source, vec4(color, alpha));
}
