"""Runs the program on scripts and reads what it wrote. Standard library only."""
import json
import os
import struct
import subprocess
import sys
import tempfile
import zlib

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
SHARED = os.path.abspath(os.path.join(ROOT, "..", "shared"))
BINARY = os.path.abspath(sys.argv[1])
DATA = os.path.join(os.path.dirname(BINARY), "Data")
SPOT = os.path.join(SHARED, "data", "spot", "spot.obj")


def skip(reason):
    print("skipped:", reason)
    sys.exit(77)


def require_spot():
    if not os.path.exists(SPOT):
        skip("the model " + SPOT + " is not here")


class Result:
    def __init__(self, process, out):
        self.status = process.returncode
        self.stdout = process.stdout.decode("utf-8", "replace")
        self.stderr = process.stderr.decode("utf-8", "replace")
        self.out = out

    @property
    def reports(self):
        return [json.loads(line) for line in self.stdout.splitlines() if line.startswith("{")]

    def picture(self, name):
        with open(os.path.join(self.out, name), "rb") as file:
            return file.read()

    def last_line(self):
        lines = self.stderr.strip().splitlines()
        return lines[-1] if lines else ""


def play(text, threads=None, binary=BINARY, folder=None, log_level=None, expect=0, timeout=600):
    """Plays a script of the given text; checks the exit status."""
    folder = folder or tempfile.mkdtemp(prefix="quillmere-test-")
    script = os.path.join(folder, "test.qscript")
    with open(script, "w", encoding="utf-8") as file:
        file.write(text)
    out = os.path.join(folder, "out")
    command = [binary, "--headless", "--script", script, "--out", out]
    if threads:
        command += ["--threads", str(threads)]
    if log_level is not None:
        command += ["--log-level", str(log_level)]
    process = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout, cwd=folder)
    result = Result(process, out)
    if expect is not None and result.status != expect:
        sys.stderr.write(result.stdout[-4000:] + result.stderr[-8000:])
        raise AssertionError("exit status %d, expected %d" % (result.status, expect))
    return result


def read_png(path):
    """Width, height and rows (top first) of RGB tuples of an 8-bit PNG of colour type 0, 2 or 6."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path
    position, packed = 8, b""
    while position < len(data):
        length, kind = struct.unpack(">I4s", data[position:position + 8])
        body = data[position + 8:position + 8 + length]
        if kind == b"IHDR":
            width, height, bits, color, _, _, interlace = struct.unpack(">IIBBBBB", body)
            assert bits == 8 and interlace == 0 and color in (0, 2, 6)
        elif kind == b"IDAT":
            packed += body
        position += 12 + length
    channels = {0: 1, 2: 3, 6: 4}[color]
    raw, stride = zlib.decompress(packed), width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = previous[i]
            c = previous[i - channels] if i >= channels else 0
            if kind == 1:
                line[i] = (line[i] + a) & 255
            elif kind == 2:
                line[i] = (line[i] + b) & 255
            elif kind == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append([tuple(line[x * channels:x * channels + 3]) for x in range(width)])
        previous = line
    return width, height, rows


def write_png(path, width, height, rgb):
    """A flat picture of one colour."""
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    rows = b"".join(b"\0" + bytes(rgb) * width for _ in range(height))
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                   chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def check(condition, text):
    if not condition:
        raise AssertionError(text)
