"""The same script gives the same bytes: any number of threads, other builds (QLM_PEERS), run after run."""
import hashlib
import os
import tempfile

from support import BINARY, SPOT, check, play

# Two islands that overlap in UV, polygons that share edges, and a seam with a gutter.
OVERLAP = """v -1 -1 0
v 0 -1 0
v 0 1 0
v -1 1 0
v 1 -1 0
v 1 1 0
v 2 -1 0
v 2 1 0
vt 0.1 0.1
vt 0.5 0.1
vt 0.5 0.5
vt 0.1 0.5
vt 0.3 0.3
vt 0.8 0.3
vt 0.8 0.8
vt 0.3 0.8
vt 0.9 0.1
vt 0.9 0.5
mtllib o.mtl
usemtl o
f 1/1 2/2 3/3 4/4
f 2/2 5/9 6/10 3/3
f 5/5 7/6 8/7 6/8
"""

STROKES = """
tool ColorBrush
set Size 0.2
set Spacing 0.4
set Hardness 0.3
set Strength 0.7
set Density 0.6
color 0.9 0.2 0.1
stroke 100 100 300 250 520 120
color 0.1 0.3 0.9
stroke 120 300 320 130 500 320
set Size 0.25
set Strength 0.3
stroke 200 200
report maps
report viewports
screenshot a.png
orbit 30 20
screenshot b.png
"""


def scene(folder):
    from support import write_png
    with open(os.path.join(folder, "o.obj"), "w") as file:
        file.write(OVERLAP)
    with open(os.path.join(folder, "o.mtl"), "w") as file:
        file.write("newmtl o\nmap_Kd o.png\n")
    write_png(os.path.join(folder, "o.png"), 512, 512, (200, 180, 120))
    return "canvas 640 400\ncull None\nimport o.obj\nframe object" + STROKES


def spot_scene(folder):
    return f'canvas 640 400\nanswer no\nimport "{SPOT}"\nframe object' + STROKES


def fingerprint(build, binary, threads):
    folder = tempfile.mkdtemp(prefix="quillmere-determinism-")
    result = play(build(folder), threads=threads, binary=binary, folder=folder)
    pictures = [hashlib.sha256(result.picture(name)).hexdigest() for name in ("a.png", "b.png")]
    hashes = [report["hash"] for report in result.reports if "hash" in report]
    return hashes, [line for line in result.stdout.splitlines() if '"viewport"' in line], pictures


peers = [b for b in os.environ.get("QLM_PEERS", "").split(":") if b]
scenes = [scene] + ([spot_scene] if os.path.exists(SPOT) else [])
if len(scenes) == 1:
    print("without", SPOT)
for build in scenes:
    runs = [(BINARY, threads) for threads in (1, 2, 7) for _ in range(int(os.environ.get("QLM_REPEATS", "1")))]
    runs += [(peer, 2) for peer in peers]
    first = fingerprint(build, *runs[0])
    check(len(first[0]) == 1, "one map was reported")
    for binary, threads in runs[1:]:
        now = fingerprint(build, binary, threads)
        check(now == first, f"{build.__name__} with {threads} threads of {binary}:\n{now}\nis not\n{first}")
print("determinism:", 1 + len(peers), "builds, all the same")
