"""The log of a script's run, read back: balanced scopes and a clean end, at the fullest level and with threads."""
import os
import subprocess
import sys
import tempfile

from support import DATA, ROOT, check, play

sample = sorted(n for n in os.listdir(os.path.join(DATA, "Objects")) if n.endswith(".obj"))[0]
for level in (1, 3):
    result = play(f'import "{os.path.join(DATA, "Objects", sample)}"\nframe object\nstroke 600 300 680 420\nscreenshot a.png',
                  threads=4, log_level=level, folder=tempfile.mkdtemp())
    log = os.path.join(result.out, "Quillmere-Log.txt")
    process = subprocess.run([sys.executable, os.path.join(ROOT, "tools", "readlog"), log], capture_output=True)
    check(process.returncode == 0, process.stdout[-2000:].decode() + process.stderr.decode())
    check(b"Program ending normally" in process.stdout[-200:], "the log ends cleanly")
print("log: all good")
