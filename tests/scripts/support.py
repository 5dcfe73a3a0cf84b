"""Runs the program on scripts and reads what it wrote. Standard library only."""
import itertools
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


def add_bytes(one, other):
    """Sums of the bytes, each modulo 256: the low seven bits add up without a carry into a neighbour."""
    size = len(one)
    low, a, b = int.from_bytes(b"\x7f" * size, "little"), int.from_bytes(one, "little"), int.from_bytes(other, "little")
    return (((a & low) + (b & low)) ^ ((a ^ b) & ~low)).to_bytes(size, "little")


def read_png(path):
    """Width, height and rows (top first) of RGB tuples of an 8-bit PNG of colour type 0, 2 or 6, with the row filters
    that the program uses: none, the pixel before, the row above."""
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
    rows, line = [], bytes(stride)
    for start in range(0, height * (stride + 1), stride + 1):
        kind, coded = raw[start], raw[start + 1:start + 1 + stride]
        assert kind <= 2, f"row filter {kind} in {path}"
        if kind == 1:
            decoded = bytearray(stride)
            for c in range(channels):
                decoded[c::channels] = bytes(itertools.accumulate(coded[c::channels], lambda a, b: (a + b) & 255))
            line = bytes(decoded)
        else:
            line = add_bytes(coded, line) if kind else coded
        rows.append(list(zip(*(line[min(c, channels - 1)::channels] for c in range(3)))))
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
