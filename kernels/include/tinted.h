// Small pictures in the place of a colour, as in a mosaic of photographs.

// A picture's colour at a point, brought to the tone of a cell: c + k (p - m), m being the picture's mean and c
// the cell's colour, so that the cell has its own colour from afar. For each channel k is the most that keeps
// all of it between black and white, 1 at most, and 0.3 at least, so that something of the picture is
// left in white and in full colours.
vec3 tinted(vec3 picture, vec3 mean, vec3 cell) {
    vec3 fits = min(cell / max(mean, 0.05), (1.0 - cell) / max(1.0 - mean, 0.05));
    return clamp(cell + clamp(fits, 0.3, 1.0) * (picture - mean), 0.0, 1.0);
}
