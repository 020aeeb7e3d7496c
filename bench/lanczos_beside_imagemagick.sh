#!/usr/bin/env bash
# How far CILanczosScaleTransform and ImageMagick's Lanczos filter differ on the test card, whose
# contrast is lowered so that nothing overshoots black or white: ImageMagick cuts that off between
# rows and columns. Run by hand after `./dev build`, with ImageMagick installed, which prints the mean
# absolute and the largest difference, each on its scale of 0 to 65535 and (of 0 to 1).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
vorn=build/release/bin/vorn
"$vorn" render test:1200x900 "$folder/card.png" --quiet
convert "$folder/card.png" +level 30%,70% "$folder/source.png"
for scale in 0.25 0.5 2 3; do
    size=$(awk -v s="$scale" 'BEGIN { printf "%dx%d", 1200 * s, 900 * s }')
    # A frame keeps its size: the picture is put on a canvas that the result fits.
    convert "$folder/source.png" -background none -gravity southwest -extent 3600x2700 "$folder/canvas.png"
    "$vorn" render "$folder/canvas.png" "$folder/canvas.scaled.png" --quiet \
        --filter "CICrop:inputRectangle=[0,0,1200,900]" \
        --filter "CILanczosScaleTransform:inputScale=$scale"
    convert "$folder/canvas.scaled.png" -gravity southwest -crop "$size+0+0" +repage "$folder/ours.png"
    convert "$folder/source.png" -filter Lanczos -resize "$size!" "$folder/theirs.png"
    for metric in MAE PAE; do
        printf '%s to %s, %s: ' "$scale" "$size" "$metric"
        compare -metric "$metric" "$folder/ours.png" "$folder/theirs.png" null: 2>&1 || true
        echo
    done
done
