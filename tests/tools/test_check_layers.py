"""The layer check accepts the tree as it is and refuses each kind of break."""
import os
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
TOOL = os.path.join(ROOT, "tools", "check_layers")


def run(root):
    return subprocess.run([sys.executable, TOOL, root], capture_output=True, text=True)


def tree_with(path, text):
    root = tempfile.mkdtemp(prefix="quillmere-layers-")
    for top in ("Modules", "QLM-Suite-Code", "App"):
        shutil.copytree(os.path.join(ROOT, top), os.path.join(root, top))
    with open(os.path.join(root, path), "a", encoding="utf-8") as file:
        file.write(text)
    return root


clean = run(ROOT)
assert clean.returncode == 0, clean.stderr
for path, text, word in (
        ("Modules/Math/QLM_Matrix.h", '#include "Engine/QLM_Engine.h"\n', "Math may not include"),
        ("Modules/Core/OS/QLM_Clock.h", '  #  include "Images/QLM_ImageLoader.h"\n', "Core may not include"),
        ("Modules/Math/QLM_Matrix.cpp", '#include "Painting/QLM_TouchupBrush.h"\n', "Math may not include"),
        ("QLM-Suite-Code/Engine/QLM_Engine.h", '#include "Rendering/QLM_ViewportManager.h"\n', "Engine may not include"),
        ("QLM-Suite-Code/Headless/QLM_HeadlessShell.h", '#include "Interface/QLM_WX_Application.h"\n', "Headless may not include")):
    root = tree_with(path, text)
    broken = run(root)
    assert broken.returncode == 1 and word in broken.stderr, (path, broken.stderr)
    shutil.rmtree(root)
print("check_layers: all good")
