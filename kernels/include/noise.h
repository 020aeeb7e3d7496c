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

// The hash of a point of a lattice that repeats after 512 points.
uint hashAt(int x, int y, uniform uint z) { return hashOf(uint(x) & 511u, uint(y) & 511u, z); }

// 6 t^5 - 15 t^4 + 10 t^3: first and second derivative are 0 at both ends (K. Perlin, "Improving
// Noise", 2002).
vec2 fade(vec2 t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }
uniform float fadeOnce(uniform float t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

// The slopes at a point of the lattice, of x, y and the phase, and what the last one adds at a distance
// of dz.
vec3 slopesAt(int x, int y, uniform uint z, uniform float dz) {
    uint h = hashAt(x, y, z);
    return vec3(signedPart(h, 2), signedPart(h, 12), signedPart(h, 22) * dz);
}

// The same between two phases.
vec3 slopesBetween(int x, int y, uniform uint z, uniform float dz, uniform float share) {
    return mix(slopesAt(x, y, z, dz), slopesAt(x, y, (z + 1u) & 65535u, dz - 1.0), share);
}

float rise(vec3 slopes, float x, float y) { return slopes.x * x + slopes.y * y + slopes.z; }

// Gradient noise of a place and a phase, nearly all of it within -0.7 to 0.7: what the slopes at the
// four points around the place give there, blended by fade. The phase is blended first, in the slopes,
// which gives the same as planes of noise that are blended.
float gradientNoise(vec2 p, uniform float phase) {
    uniform float wholePhase = floor(phase);
    uniform float dz = phase - wholePhase;
    uniform uint z = uint(int(wholePhase)) & 65535u;
    uniform float share = fadeOnce(dz);
    vec2 cell = floor(p);
    vec2 d = p - cell;
    vec2 t = fade(d);
    int x = int(cell.x);
    int y = int(cell.y);
    float v00 = rise(lattice(slopesBetween(x, y, z, dz, share)), d.x, d.y);
    float v10 = rise(lattice(slopesBetween(x + 1, y, z, dz, share)), d.x - 1.0, d.y);
    float v01 = rise(lattice(slopesBetween(x, y + 1, z, dz, share)), d.x, d.y - 1.0);
    float v11 = rise(lattice(slopesBetween(x + 1, y + 1, z, dz, share)), d.x - 1.0, d.y - 1.0);
    return mix(mix(v00, v10, t.x), mix(v01, v11, t.x), t.y);
}

vec2 turnedSlopesAt(int x, int y, uniform uint seed, uniform vec2 turn) {
    uint h = hashAt(x, y, seed);
    float gx = signedPart(h, 2);
    float gy = signedPart(h, 12);
    return vec2(gx * turn.x - gy * turn.y, gx * turn.y + gy * turn.x);
}

// Gradient noise of a place alone, whose gradients are turned by the angle with the cosine and sine
// `turn`: as the angle runs on, every place swings about 0 and eddies seem to turn (K. Perlin and
// F. Neyret, "Flow Noise", 2001). Nearly all of it within -0.7 to 0.7. `d` is the place in its cell, the
// rest the slopes at the cell's corners.
float flowBetween(vec2 d, vec2 s00, vec2 s10, vec2 s01, vec2 s11) {
    vec2 t = fade(d);
    float v00 = dot(s00, d);
    float v10 = dot(s10, vec2(d.x - 1.0, d.y));
    float v01 = dot(s01, vec2(d.x, d.y - 1.0));
    float v11 = dot(s11, d - 1.0);
    return mix(mix(v00, v10, t.x), mix(v01, v11, t.x), t.y);
}

// Where neighbouring pixels are at neighbouring places.
float flowNoise(vec2 p, uniform uint seed, uniform vec2 turn) {
    vec2 cell = floor(p);
    int x = int(cell.x);
    int y = int(cell.y);
    return flowBetween(p - cell, lattice(turnedSlopesAt(x, y, seed, turn)),
                       lattice(turnedSlopesAt(x + 1, y, seed, turn)),
                       lattice(turnedSlopesAt(x, y + 1, seed, turn)),
                       lattice(turnedSlopesAt(x + 1, y + 1, seed, turn)));
}

// Where places are bent and lie in cells above each other.
float flowNoiseAnywhere(vec2 p, uniform uint seed, uniform vec2 turn) {
    vec2 cell = floor(p);
    int x = int(cell.x);
    int y = int(cell.y);
    return flowBetween(p - cell, turnedSlopesAt(x, y, seed, turn), turnedSlopesAt(x + 1, y, seed, turn),
                       turnedSlopesAt(x, y + 1, seed, turn),
                       turnedSlopesAt(x + 1, y + 1, seed, turn));
}
