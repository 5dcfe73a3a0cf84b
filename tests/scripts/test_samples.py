"""The shipped script and the sample objects, and the command line."""
import os
import subprocess
import tempfile

from support import BINARY, DATA, check, play, read_png


def run(*arguments):
    environment = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    return subprocess.run([BINARY, *arguments], stdin=subprocess.DEVNULL, capture_output=True, env=environment, timeout=600)


# The command line needs no display.
for argument, text in (("--help", b"--script"), ("--version", b"8.0.0"), ("TEST_TABLET_DRIVERS", b"\n")):
    process = run(argument)
    check(process.returncode == 0 and text in process.stdout, argument)
for arguments in (["--nonsense"], ["--headless"], ["--headless", "--script", "x", "--threads", "0"]):
    check(run(*arguments).returncode == 2, str(arguments))
check(run("--headless", "--script", "/nowhere/x.qscript", "--out", tempfile.mkdtemp()).returncode == 1, "a missing script")

# The shipped script leaves pictures with something on them.
out = tempfile.mkdtemp(prefix="quillmere-samples-")
process = run("--headless", "--script", os.path.join(DATA, "Scripts", "first-light.qscript"), "--out", out)
check(process.returncode == 0, process.stderr.decode())
pictures = [name for name in os.listdir(out) if name.endswith(".png")]
check(len(pictures) >= 4, str(pictures))
for name in pictures:
    width, height, rows = read_png(os.path.join(out, name))
    check(len({c for row in rows[::4] for c in row[::4]}) > 50, name + " is not empty")

# Each sample is a clean model.
for name in sorted(n for n in os.listdir(os.path.join(DATA, "Objects")) if n.endswith(".obj")):
    stem = name[:-4]
    path = os.path.join(DATA, "Objects", name)
    mesh = play(f'import "{path}"\nreport mesh {stem}\nreport maps').reports
    check(mesh[0]["open_edges"] == 0 and mesh[0]["polygons"] > 0 and len(mesh) == 2, str(mesh))
print("samples: all good")
