"""A stroke on a real model: counts, the question about wrapping, pictures, map and object on their way out."""
import os

from support import SPOT, check, play, read_png, require_spot

require_spot()

SCRIPT = f"""
canvas 640 480
answer no
import "{SPOT}"
expect message "out of the {{0..1}} range"
frame object
report objects
report mesh spot
report maps
screenshot before.png
map export spot_texture.png before_map.png
view front
tool ColorBrush
set Size 0.08
set Hardness 0.8
color 1 0 0
stroke 200 240 440 240
color 0 0.6 0
stroke 320 120 320 360
color 0 0 1
stroke 220 140 420 340
screenshot front.png
view left
screenshot left.png
view back
screenshot back.png
view right
screenshot right.png
report maps
map export spot_texture.png painted.png
object export spot spot_out.obj
"""


def statements(path, word):
    with open(path) as file:
        return [line.split()[1:] for line in file if line.startswith(word + " ")]


result = play(SCRIPT)
objects = [r for r in result.reports if "object" in r and "file" in r]
check(len(objects) == 1 and objects[0]["object"] == "spot", "the object bears its file's stem")
check((objects[0]["vertices"], objects[0]["texture_vertices"], objects[0]["polygons"]) == (2930, 3225, 2928), str(objects[0]))
mesh = [r for r in result.reports if "mesh" in r][0]
# Closed, of genus 0, all quads: edges = 2 x polygons, and V - E + F = 2.
check(mesh["edges"] == 2 * 2928 and mesh["open_edges"] == 0 and mesh["open_vertices"] == 0, str(mesh))
maps = [r for r in result.reports if "map" in r and "hash" in r]
check(len(maps) == 2 and maps[0]["map"] == "spot_texture.png" and maps[0]["hash"] != maps[1]["hash"], str(maps))

# The map: most pixels as before, the strokes' pure colours on it.
w, h, before = read_png(os.path.join(result.out, "before_map.png"))
w2, h2, after = read_png(os.path.join(result.out, "painted.png"))
check((w, h) == (w2, h2) == (maps[0]["width"], maps[0]["height"]), "sizes of the exported maps")
changed = sum(a != b for x, y in zip(before, after) for a, b in zip(x, y))
check(0.005 < changed / (w * h) < 0.5, "share of changed pixels: %g" % (changed / (w * h)))
colors = {c for row in after for c in row}
check({(255, 0, 0), (0, 153, 0), (0, 0, 255)} <= colors, "the strokes' colours stand in the map")

# The front shows the strokes, the last over the others; the back shows none of them.
_, _, front = read_png(os.path.join(result.out, "front.png"))
_, _, back = read_png(os.path.join(result.out, "back.png"))


def bluish(picture):
    return sum(b > 100 and r < 60 and g < 60 for row in picture for r, g, b in row)


check(bluish(front) > 500, "blue in front: %d" % bluish(front))
check(bluish(back) < 50, "blue at the back: %d" % bluish(back))

# The exported object: the same counts and, in the same order, the same positions to the digits written.
out = os.path.join(result.out, "spot_out.obj")
mine, theirs = statements(out, "v"), statements(SPOT, "v")
check(len(mine) == len(theirs) == 2930, "vertices written")
for a, b in zip(mine, theirs):
    check(all(abs(float(x) - float(y)) < 1e-7 for x, y in zip(a, b)), f"{a} is not {b}")
check(len(statements(out, "vt")) == 3225 and len(statements(out, "f")) == 2928, "texture vertices and faces written")
faces = [[corner.split("/")[:2] for corner in f] for f in statements(SPOT, "f")]
check([[corner.split("/")[:2] for corner in f] for f in statements(out, "f")] == faces, "faces written")
print("spot: all good")
