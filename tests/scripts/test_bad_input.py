"""Bad input: one clear message and exit 1, or exit 0 with the rest loaded; nothing that was there is lost."""
import os
import random
import struct
import tempfile
import zlib

from support import check, play, write_png

QUAD = "v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
folder = tempfile.mkdtemp(prefix="quillmere-bad-")


def put(name, data):
    path = os.path.join(folder, name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data if isinstance(data, bytes) else data.encode("utf-8"))
    return name


def refused(script, *words):
    """Exit 1, one message that holds the words, and where in the script it happened."""
    result = play(script, folder=folder, expect=1)
    check("test.qscript:" in result.last_line(), result.stderr)
    for word in words:
        check(word in result.stderr, f"{word!r} is not in {result.stderr!r}")
    messages = [line for line in result.stderr.splitlines() if line.startswith("message: ")]
    check(len(messages) <= 1, f"more than one message: {messages}")


def accepted(script):
    return play(script, folder=folder, expect=0)


def loaded(name):
    return accepted(f'import "{name}"\nreport objects').reports[0]


# Files that can't be imported.
refused("import missing.obj", "missing.obj")
os.makedirs(os.path.join(folder, "folder.obj"), exist_ok=True)
refused("import folder.obj", "folder.obj")
refused("import " + put("empty.obj", ""), "empty.obj", "This OBJ file has no vertices!")
refused("import " + put("noise.obj", bytes(random.Random(5).randrange(128, 256) for _ in range(50000))), "noise.obj")
refused("import " + put("bare.obj", "# nothing\nf 1 2 3\nvt 0 0\n"), "bare.obj", "This OBJ file has no vertices!")
refused("import " + put("what.xyz", "no such format"), "what.xyz")
write_png(os.path.join(folder, "good.png"), 300, 200, (10, 20, 30))
with open(os.path.join(folder, "good.png"), "rb") as file:
    good = file.read()
refused("import " + put("cut.png", good[:len(good) // 2]), "cut.png")
header = struct.pack(">IIBBBBB", 100000, 100000, 8, 2, 0, 0, 0)
huge = good[:8] + struct.pack(">I", 13) + b"IHDR" + header + struct.pack(">I", zlib.crc32(b"IHDR" + header)) + good[33:]
refused("import " + put("huge.png", huge), "huge.png")

# Scripts that can't be played.
refused("dance 1 2", "dance")
refused("canvas 100 wide", "canvas")
refused("zoom fast", "fast")
refused("canvas 1", "canvas")
refused('import "open', "quote")
refused("tool Hammer", "Hammer", "ColorBrush")
refused("object nobody", "nobody")
refused("cull PerPixel", "PerPixel")
refused("expect message never-said", "never-said")
refused("fails idle", "idle")
accepted("fails import missing.obj\nfails tool Hammer\nidle 3")
put("wide.obj", QUAD.replace("vt 1 1", "vt 3 1") + "f 1/1 2/2 3/3 4/4\n")
refused("import wide.obj", "out of the {0..1} range")
accepted("answer yes\nimport wide.obj\nanswer no\nimport wide.obj")

# Files of which the rest loads.
put("indices.obj", QUAD + "f 1/1 2/2 3/3 4/4\nf 1 2 99\nf 1000000000/1 2/1000000000 3/3\nf -1 -2 -3\nf 1/1000000000 2/-77 3/3\nf 1 2\n")
check(loaded("indices.obj")["polygons"] == 3, "polygons with bad vertices go, the others stay")
told = accepted("import indices.obj\nimport indices.obj").stderr.count("OBJ file contains polygons with bad UV")
check(told == 1, f"bad texture vertices are told once in a process, not {told} times")
put("long.obj", QUAD + "# " + "x" * 100000 + "\nf 1/1 2/2 3/3 4/4\n")
check(loaded("long.obj")["polygons"] == 1, "a long line is passed")
put("half.obj", QUAD + "f 1/1 2/2 3/3 4/4\nf 1/1 2/")
check(loaded("half.obj")["polygons"] == 1, "a file cut in a line loads what is whole")
put("old.obj", QUAD.encode() + b"usemtl M\xfcller\nf 1/1 2/2 3/3 4/4\n")
named = accepted("import old.obj\nreport materials").reports[0]
check(named["material"] == "Müller", "a report is UTF-8 whatever a file holds: " + str(named))
put("self.obj", "mtllib self.mtl\nusemtl a\n" + QUAD + "f 1/1 2/2 3/3 4/4\n")
put("self.mtl", "mtllib self.mtl\nnewmtl a\nmap_Kd self.mtl\nmap_Bump nowhere.png\nKd 0.5 0.25 0.125\n")
report = accepted("import self.obj\nreport materials").reports
color = [r for r in report if r.get("channel") == "Color"][0]
check(color["color"] == [0.5, 0.25, 0.125] and color["map"] == "", str(color))

# Paths with blanks, quotes and UTF-8; the case of a name is forgiven.
put('odd "böx" 目/my cow.obj', "mtllib my cow.mtl\nusemtl hide\n" + QUAD + "f 1/1 2/2 3/3 4/4\n")
put('odd "böx" 目/my cow.mtl', "newmtl hide\nmap_Kd SKIN ü.PNG\n")
with open(os.path.join(folder, 'odd "böx" 目/skin ü.png'), "wb") as file:
    file.write(good)
result = accepted('import "odd \\"böx\\" 目/my cow.obj"\nreport objects\nreport maps\n'
                  'object export "my cow" "aus gabe/nöch eine.obj"\nmap export "skin ü.png" "bild \'1\'.png"')
check(result.reports[0]["object"] == "my cow" and result.reports[1]["width"] == 300, str(result.reports))
check(os.path.exists(os.path.join(result.out, "aus gabe/nöch eine.obj")), "the object was written")
check(os.path.exists(os.path.join(result.out, "bild '1'.png")), "the map was written")

# A failed export leaves the old file.
os.makedirs(os.path.join(folder, "out/taken.obj"), exist_ok=True)
put("out/there.obj", "old")
refused("import half.obj\nobject export half taken.obj", "taken.obj")
result = accepted("import half.obj\nobject export half there.obj")
with open(os.path.join(folder, "out/there.obj")) as file:
    check(file.read().startswith("# This OBJ file was exported from Quillmere"), "an export replaces its target")
print("bad input: all good")
