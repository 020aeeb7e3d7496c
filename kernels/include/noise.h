// Noise on whole-numbered lattices, the same on every device.

// A 32-bit hash of three lattice coordinates: one sum of odd multiples, mixed as in "lowbias32"
// (C. Wellons, "Prospecting for Hash Functions", 2018).
uint hashOf(uint x, uint y, uint z) {
    uint h = x * 0x8da6b343u + y * 0xd8163841u + z * 0xcb1ab31fu;
    h = (h ^ (h >> 16)) * 0x7feb352du;
    h = (h ^ (h >> 15)) * 0x846ca68bu;
    return h ^ (h >> 16);
}

// Ten bits of a hash as -1 to 1.
float signedPart(uint h, uniform int shift) {
    return float(int((h >> shift) & 1023u)) * 0.0019550342 - 1.0;
}

// A lattice coordinate, which repeats after 512.
uint latticeOf(float x) { return uint(int(x)) & 511u; }

// 6 t^5 - 15 t^4 + 10 t^3: first and second derivative are 0 at both ends (K. Perlin, "Improving
// Noise", 2002).
vec2 fade(vec2 t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

float slopeAt(uint x, uint y, uint z, vec2 d, float dz) {
    uint h = hashOf(x, y, z);
    return signedPart(h, 2) * d.x + signedPart(h, 12) * d.y + signedPart(h, 22) * dz;
}

// Gradient noise of a place and a phase, nearly all of it within -0.7 to 0.7.
float gradientNoise(vec2 p, uniform float phase) {
    uniform float wholePhase = floor(phase);
    uniform float dz = phase - wholePhase;
    uniform uint z = uint(int(wholePhase)) & 65535u;
    uniform uint z1 = (z + 1u) & 65535u;
    uniform float w = dz * dz * dz * (dz * (dz * 6.0 - 15.0) + 10.0);
    vec2 cell = floor(p);
    vec2 d = p - cell;
    vec2 t = fade(d);
    uint x = latticeOf(cell.x);
    uint y = latticeOf(cell.y);
    uint x1 = (x + 1u) & 511u;
    uint y1 = (y + 1u) & 511u;
    vec2 d10 = vec2(d.x - 1.0, d.y);
    vec2 d01 = vec2(d.x, d.y - 1.0);
    vec2 d11 = d - 1.0;
    float near = mix(mix(slopeAt(x, y, z, d, dz), slopeAt(x1, y, z, d10, dz), t.x),
                     mix(slopeAt(x, y1, z, d01, dz), slopeAt(x1, y1, z, d11, dz), t.x), t.y);
    float far = mix(mix(slopeAt(x, y, z1, d, dz - 1.0), slopeAt(x1, y, z1, d10, dz - 1.0), t.x),
                    mix(slopeAt(x, y1, z1, d01, dz - 1.0), slopeAt(x1, y1, z1, d11, dz - 1.0), t.x),
                    t.y);
    return mix(near, far, w);
}

float turnedSlopeAt(uint x, uint y, uint seed, vec2 d, vec2 turn) {
    uint h = hashOf(x, y, seed);
    float gx = signedPart(h, 2);
    float gy = signedPart(h, 12);
    return (gx * turn.x - gy * turn.y) * d.x + (gx * turn.y + gy * turn.x) * d.y;
}

// Gradient noise of a place alone, whose gradients are turned by the angle with the cosine and sine
// `turn`: as the angle runs on, every place swings about 0 and eddies seem to turn (K. Perlin and
// F. Neyret, "Flow Noise", 2001). Nearly all of it within -0.7 to 0.7.
float flowNoise(vec2 p, uniform uint seed, vec2 turn) {
    vec2 cell = floor(p);
    vec2 d = p - cell;
    vec2 t = fade(d);
    uint x = latticeOf(cell.x);
    uint y = latticeOf(cell.y);
    uint x1 = (x + 1u) & 511u;
    uint y1 = (y + 1u) & 511u;
    return mix(mix(turnedSlopeAt(x, y, seed, d, turn),
                   turnedSlopeAt(x1, y, seed, vec2(d.x - 1.0, d.y), turn), t.x),
               mix(turnedSlopeAt(x, y1, seed, vec2(d.x, d.y - 1.0), turn),
                   turnedSlopeAt(x1, y1, seed, d - 1.0, turn), t.x),
               t.y);
}
