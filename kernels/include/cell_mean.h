// The mean of a picture over the cells of a mosaic. The reduced image has means of a quarter of a cell
// each way, or of 64 pixels where that is more; a bilinear read takes two of them together each way, and as
// many reads as it takes to cover the cell make its mean: 2 by 2 as a rule, up to 4 by 4 in cells of
// more than 256 pixels.

// Reads along each axis of a cell of that many pixels. A pixel's hundredth more or less makes no
// further read.
uniform vec2 readsOfCell(uniform vec2 cell, uniform vec2 share) {
    return clamp(ceil(cell * share * 0.5 - 0.01), vec2(1.0), vec2(4.0));
}

// `middle` is that of the cell, in the picture. Where a cell reaches out of the picture, the border's pixels
// go on.
vec4 meanOfCell(sampler image, sampler small, vec2 middle, uniform vec2 cell) {
    uniform vec2 share = samplerSize(small) / samplerSize(image);
    uniform vec2 zero = samplerOrigin(small) - samplerOrigin(image) * share;
    uniform vec2 low = samplerOrigin(small) + 0.5;
    uniform vec2 high = max(low + samplerSize(small) - 1.0, low);
    uniform vec2 reads = readsOfCell(cell, share);
    uniform int columns = int(reads.x);
    uniform int rows = int(reads.y);
    vec4 sum = vec4(0.0);
    for (int j = 0; j < rows; ++j)
        for (int i = 0; i < columns; ++i) {
            uniform vec2 offset = ((vec2(float(i), float(j)) + 0.5) / reads - 0.5) * cell;
            sum += sampleShared(small, clamp((middle + offset) * share + zero, low, high));
        }
    return sum * (1.0 / (reads.x * reads.y));
}
