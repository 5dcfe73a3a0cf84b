"""Painting on layers of a real model: the stroke lands in the current layer, the picture shows the composite."""
import os

from support import SPOT, check, play, read_png, require_spot

require_spot()

PAINT = f"""
canvas 320 240
answer no
import "{SPOT}"
frame object
map export spot_texture.png before.png
tool ColorBrush
set Size 0.1
color 1 0 0
layer create Paint
stroke 120 120 200 120
map export spot_texture.png painted.png
report layers
"""
result = play(PAINT + """
screenshot shown.png
layer hide Paint
map export spot_texture.png hidden.png
fails stroke 120 100 200 100
expect message "The image map layer 'Paint' is hidden"
screenshot unpainted.png
layer show Paint
layer create Shade
layer blend Shade Multiply
layer opacity Shade 0.5
color 0 0 1
stroke 160 60 160 180
layer move Shade 0
layer move Shade 2
report maps
map export spot_texture.png merged_later.png mask mask.png
map export-layer spot_texture.png layer.png
layer merge
report layers
layer delete "Merged Layers"
report maps
fails layer blend Paint Normal
""", threads=2)


def pixels(name):
    return read_png(os.path.join(result.out, name))[2]


members = [line for line in result.reports if "mask_hash" in line][:2]
check([m["layer"] for m in members] == ["Background", "Paint"], members)
before, painted, shade = pixels("before.png"), pixels("painted.png"), pixels("layer.png")
touched = sum(row.count((255, 0, 0)) for row in painted)
check(touched > 500 and not any(row.count((255, 0, 0)) for row in before), "the stroke is in the composite")
check(pixels("hidden.png") == before, "without the layer the map is as it was, byte for byte")
check(pixels("shown.png") != pixels("unpainted.png"), "the canvas follows the composite")
check(all(set(row) == {(255, 255, 255)} for row in pixels("mask.png")), "an opaque base leaves nothing transparent")

# Multiply by (0, 0, 255) with a weight w, 127 inside the stroke at half opacity: w / 255 of red and green goes.
mixed = pixels("merged_later.png")
checked = 0
fades = {}
for old, new, paint in zip(painted, mixed, shade):
    for a, b, s in zip(old, new, paint):
        if s != (0, 0, 255):
            continue
        if a not in fades:
            fades[a] = [(a[0] - a[0] * w // 255, a[1] - a[1] * w // 255, a[2]) for w in range(128)]
        check(b in fades[a], (a, b))
        checked += a != b and b == fades[a][127]
check(checked > 500, "pixels under the shade: %d" % checked)

merged, last = [line for line in result.reports if "width" in line]
check(merged["layers"] == 3 and last["layers"] == 0 and merged["hash"] == last["hash"], "merging and deleting the last "
      "layer keep the picture")
alone = [line["hash"] for line in play(PAINT, threads=1).reports if "mask_hash" in line]
check(alone == [line["hash"] for line in members], "one thread gives the same bytes")
