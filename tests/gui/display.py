"""A display of the test's own: Xvfb, its picture, and pointer and keys through xdotool. Standard library only."""
import ctypes
import ctypes.util
import mmap
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib

POLL = 0.05


def skip(reason):
    print("skipped:", reason)
    sys.exit(77)


def wait_until(what, condition, seconds=60):
    """Polls until the condition gives something true and gives it back; fails when the time is over."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {seconds} s")
        time.sleep(POLL)


class Picture:
    """A copy of the display's picture; pixels as (r, g, b), row 0 on top."""

    def __init__(self, width, height, stride, data):
        self.width, self.height, self.stride, self.data = width, height, stride, data

    def at(self, x, y):
        offset = y * self.stride + x * 4
        b, g, r = self.data[offset:offset + 3]
        return r, g, b

    def rows(self, x, y, width, height):
        """The bytes of a rectangle, a row each."""
        return [self.data[row * self.stride + x * 4:row * self.stride + (x + width) * 4] for row in range(y, y + height)]

    def pixels(self, x, y, width, height):
        """The pixels of a rectangle as numbers, row by row; equal numbers are equal colours."""
        words, row = memoryview(self.data).cast("I"), self.stride // 4
        return [word for j in range(y, y + height) for word in words[j * row + x:j * row + x + width]]

    def save(self, path):
        """As a PNG, for a person who looks for the cause of a failure."""
        rgb = bytearray(self.width * self.height * 3)
        whole = b"".join(self.rows(0, 0, self.width, self.height))
        rgb[0::3], rgb[1::3], rgb[2::3] = whole[2::4], whole[1::4], whole[0::4]
        def chunk(kind, body):
            return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
        size = 3 * self.width
        rows = b"".join(b"\0" + rgb[y * size:(y + 1) * size] for y in range(self.height))
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0))
                       + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class Display:
    def __init__(self, width=1400, height=900):
        for tool in ("Xvfb", "xdotool"):
            if not shutil.which(tool):
                skip(tool + " is not installed")
        self.folder = tempfile.mkdtemp(prefix="quillmere-display-")
        reader, writer = os.pipe()
        self.log = open(os.path.join(self.folder, "Xvfb.log"), "wb")
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{width}x{height}x24", "-fbdir", self.folder, "-nolisten", "tcp", "-noreset"],
            pass_fds=[writer], stdout=self.log, stderr=self.log, stdin=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as numbers:
            number = numbers.readline().strip()
        if not number:
            raise AssertionError("Xvfb does not start: " + open(self.log.name).read())
        self.name = ":" + number
        self.environment = {**os.environ, "DISPLAY": self.name}
        self.environment.pop("WAYLAND_DISPLAY", None)
        self.last = None  # the picture when a program was ended by force

    def close(self):
        self.server.terminate()
        self.server.wait()
        self.log.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def picture(self):
        with open(os.path.join(self.folder, "Xvfb_screen0"), "rb") as file:
            with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as data:
                head = struct.unpack(">25I", data[:100])
                size, width, height, order, bits, stride, colors = head[0], head[4], head[5], head[7], head[11], head[12], head[19]
                assert bits == 32 and order == 0, "a picture of 32 bits a pixel, blue first"
                begin = size + colors * 12
                return Picture(width, height, stride, data[begin:begin + stride * height])

    def do(self, *words):
        """One call of xdotool; its output's lines."""
        process = subprocess.run(["xdotool", *map(str, words)], env=self.environment, capture_output=True, text=True)
        if process.returncode != 0 and words[0] != "search":
            raise AssertionError("xdotool " + " ".join(map(str, words)) + ": " + process.stderr)
        return process.stdout.split("\n")[:-1]

    def windows(self, pattern, process_id=None):
        """Windows that are shown, by a part of their title."""
        owner = ["--pid", process_id, "--all"] if process_id else []
        return [int(line) for line in self.do("search", "--onlyvisible", *owner, "--name", pattern)]

    def geometry(self, window):
        """x, y, width, height."""
        values = dict(line.split("=") for line in self.do("getwindowgeometry", "--shell", window))
        return tuple(int(values[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))

    def click(self, x, y, button=1, times=1):
        self.do("mousemove", int(x), int(y), "click", "--repeat", times, "--delay", 20, button)

    def drag(self, points, before_release=lambda: None):
        """Each place is a call of its own, that has reached the display when it ends; so the program sees them all."""
        x, y = points[0]
        self.do("mousemove", int(x), int(y), "mousedown", 1)
        for x, y in points[1:]:
            self.do("mousemove", int(x), int(y))
        before_release()
        self.do("mouseup", 1)

    def ask_to_close(self, window):
        """What a window manager sends when a person closes a window."""
        xlib = ctypes.CDLL(ctypes.util.find_library("X11") or "libX11.so.6")
        xlib.XOpenDisplay.restype = ctypes.c_void_p
        xlib.XInternAtom.restype = ctypes.c_ulong
        connection = ctypes.c_void_p(xlib.XOpenDisplay(self.name.encode()))
        protocols, delete = (xlib.XInternAtom(connection, name, 0) for name in (b"WM_PROTOCOLS", b"WM_DELETE_WINDOW"))

        class ClientMessage(ctypes.Structure):
            _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int), ("display", ctypes.c_void_p),
                        ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong), ("format", ctypes.c_int),
                        ("data", ctypes.c_long * 5), ("pad", ctypes.c_long * 24)]
        message = ClientMessage(33, 0, 1, connection, window, protocols, 32)
        message.data[0] = delete
        xlib.XSendEvent(connection, ctypes.c_ulong(window), 0, 0, ctypes.byref(message))
        xlib.XCloseDisplay(connection)
