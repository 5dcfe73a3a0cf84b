"""Materials, their maps and the options of object files, as a script reaches them."""
import os
import tempfile

from support import check, play, write_png

folder = tempfile.mkdtemp(prefix="quillmere-materials-")
with open(os.path.join(folder, "pair.obj"), "w", encoding="utf-8") as file:
    file.write("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
               "usemtl skin\ng left\nf 1/1 2/2 3/3\nusemtl nail\ng right\nf 1/1 3/3 4/4\n")
write_png(os.path.join(folder, "red.png"), 8, 8, (255, 0, 0))

result = play("""import pair.obj
import red.png
map assign red.png skin Bump
fails map assign red.png skin Bumb
fails map assign red.png nobody Color
fails map assign green.png skin Color
fails map assign red.png skin
report materials
material nail
command CopyMaterial
expect message "Copied the material \\"nail\\""
command DeleteMaterials
expect message "Deleted 1 material(s)"
command CreateNewMaterial
report mesh pair
object import-options ScaleOnImport on
object import-options ScaleFactor 2
fails object import-options ScaleFactor none
fails object import-options NoSuchOption on
import pair.obj
report objects
object import-options ExportGroupsAsSeparateFiles on
object export pair parts.obj
""", folder=folder)

reports = result.reports
maps = {(r["material"], r["channel"]): r["map"] for r in reports if "channel" in r}
check(maps[("skin", "Bump")] == "red.png", maps)
check([key for key, name in maps.items() if name] == [("skin", "Bump")], maps)
check(next(r for r in reports if "mesh" in r)["materials"] == 2, "one deleted, one made")
objects = [r for r in reports if "bounds_max" in r]
check([o["bounds_max"] for o in objects] == [[1, 1, 0], [2, 2, 0]], objects)
parts = sorted(name for name in os.listdir(result.out) if name.startswith("parts"))
check(parts == ["parts.mtl", "parts_left.OBJ", "parts_right.OBJ"], parts)
for word in ("Bumb", "nobody", "green.png", "ScaleFactor", "NoSuchOption"):
    check(word in result.stderr, f"{word} is not in {result.stderr}")
