"""The real window, driven as a person drives it: pointer, wheel and keys come from outside, and only the picture counts."""
import functools
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from display import Display, wait_until

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts"))
from support import ROOT, read_png

QUILLMERE = os.path.abspath(sys.argv[1])
# The helping programs, by their names, and the tests that are wanted; all of them without one.
HELPERS = {os.path.basename(path): os.path.abspath(path) for path in sys.argv[2:] if os.path.isfile(path)}
WANTED = [name for name in sys.argv[2:] if not os.path.isfile(name)]
DATA = os.path.join(os.path.dirname(QUILLMERE), "Data")
SAMPLE = os.path.join(DATA, "Objects", "Pip.obj")
SPOT = os.path.join(ROOT, "..", "shared", "data", "spot", "spot.obj")
# The menus' places in the bar and their entries, counted from 1.
FILE_MENU, TOOLS_MENU = 16, 62
IMPORT, EXPORT_MAP, EXPORT_OBJECT = 1, 2, 3
MOVE_VIEW, ZOOM_VIEW, ROTATE_VIEW = 2, 3, 4
TITLE = "^Quillmere"
COMPLAINTS = ("Gtk-CRITICAL", "Gtk-WARNING", "GLib", "Gdk-CRITICAL", "assert", "Sanitizer")
REST_SECONDS, REST_SHARE = 10, 0.02
STILL_SECONDS = 0.35  # longer than the program takes a view for moving
PATIENCE_SECONDS = 5  # before a key is pressed again
STROKE_SECONDS = float(os.environ.get("QLM_STROKE_SECONDS", 20)) # of random strokes


def check(condition, text):
    if not condition:
        raise AssertionError(text)


class Program:
    """One start of the program with a home of its own."""

    def __init__(self, display, *arguments, home=None, program=QUILLMERE, environment=()):
        self.display = display
        self.home = home or tempfile.mkdtemp(prefix="quillmere-window-")
        self.environment = {**display.environment, "HOME": self.home, "XDG_CONFIG_HOME": self.home + "/.config",
                            "XDG_RUNTIME_DIR": self.home, "LIBGL_ALWAYS_SOFTWARE": "1", "NO_AT_BRIDGE": "1", **dict(environment)}
        self.environment.pop("XDG_DOCUMENTS_DIR", None)
        self.errors = tempfile.NamedTemporaryFile(prefix="stderr-", dir=self.home, delete=False)
        self.started = time.monotonic()
        self.process = subprocess.Popen([program, *arguments], env=self.environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=self.errors, cwd=self.home)
        self.window = None

    def stderr(self):
        with open(self.errors.name, errors="replace") as file:
            return file.read()

    def alive(self):
        return self.process.poll() is None

    def find(self, pattern, seconds=60):
        def look():
            check(self.alive(), f"the program ended with {self.process.returncode}: {self.stderr()[-2000:]}")
            return self.display.windows(pattern)
        return wait_until(f"a window {pattern!r}", look, seconds)[0]

    def open(self):
        """Waits for the main window and for its first whole picture."""
        self.window = self.find(TITLE)
        self.settle()
        return self

    def is_busy(self):
        """Whether a thread of the program or of the display runs or is ready to."""
        for process in (self.process, self.display.server):
            for task in os.listdir(f"/proc/{process.pid}/task"):
                try:
                    with open(f"/proc/{process.pid}/task/{task}/stat") as file:
                        if file.read().rsplit(")", 1)[1].split()[0] != "S":
                            return True
                except OSError:
                    return True  # it has just ended
        return False

    def settle(self):
        """Waits for the picture to stand still, and until nobody works on another one."""
        picture, since = self.display.picture(), time.monotonic()

        def still():
            nonlocal picture, since
            check(self.alive(), f"the program ended with {self.process.returncode}: {self.stderr()[-2000:]}")
            busy, look = self.is_busy(), self.display.picture()
            if look.data != picture.data:
                picture, since = look, time.monotonic()
            return not busy and time.monotonic() - since > STILL_SECONDS
        wait_until("a picture that stands still", still)
        return picture

    def park(self):
        """Takes the pointer, and with it the brush's outline, off the canvas."""
        x, y, width, height = self.display.geometry(self.window)
        self.display.do("mousemove", x + width + 20, y + height + 20)
        return self.settle()

    def middle(self):
        x, y, width, height = self.display.geometry(self.window)
        return x + width // 2, y + height // 2

    def cpu_seconds(self):
        with open(f"/proc/{self.process.pid}/stat") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def end(self, seconds=60):
        status = self.process.wait(seconds)
        for complaint in COMPLAINTS:
            check(complaint not in self.stderr(), f"{complaint} on standard error: {self.stderr()[-3000:]}")
        return status

    def kill(self):
        if self.alive():
            self.display.last = self.display.picture()
            self.process.kill()
            self.process.wait()


# --- What can be seen of the model and of paint ----------------------------------------------------------------------

def canvas_of(program):
    """The part of the window that surely is canvas: below the menu, above the message line."""
    x, y, width, height = program.display.geometry(program.window)
    return x + 8, y + 60, width - 16, height - 160


def model_pixels(program, picture):
    """Places, on a grid of 4 pixels, where something else than the checkered background is seen."""
    x, y, width, height = canvas_of(program)
    background = set(picture.pixels(x, y, width, 24)) | set(picture.pixels(x, y, 24, height))
    return [(i, j) for j in range(y, y + height, 4)
            for i, pixel in zip(range(x, x + width, 4), picture.pixels(x, j, width, 1)[::4]) if pixel not in background]


def brush_colored(picture, x, y, radius=6):
    """Share of pixels around a place that are white, the colour that the brush starts with, in whatever light."""
    pixels = [picture.at(i, j) for j in range(y - radius, y + radius) for i in range(x - radius, x + radius)]
    return sum(max(p) - min(p) <= 12 and min(p) > 120 for p in pixels) / len(pixels)


def extent(places):
    xs, ys = [p[0] for p in places], [p[1] for p in places]
    return min(xs), min(ys), max(xs), max(ys)


def press_away(program, title, key):
    """Presses a key until the box of that title is gone: one that has only just come up may not listen yet."""
    display, pressed = program.display, 0

    def gone():
        nonlocal pressed
        boxes = display.windows(title)
        if boxes and time.monotonic() - pressed > PATIENCE_SECONDS:
            display.do("windowfocus", "--sync", boxes[0])
            display.do("key", key)
            pressed = time.monotonic()
        return not boxes
    program.find(title)
    wait_until("the end of the box " + title, gone)


def confirm(program, answer_key):
    """Answers the box that stands over the window by the button's letter."""
    press_away(program, "^Confirm", "alt+" + answer_key)


def close(program):
    program.display.ask_to_close(program.window)
    confirm(program, "y")
    return program.end()


# --- The tests -------------------------------------------------------------------------------------------------------

def a_session(display):
    """Opens on the sample, paints, zooms, is resized, rests, exports what was painted, and closes."""
    program = Program(display, SAMPLE)
    try:
        program.open()
        print(f"window with a picture that stands still: {time.monotonic() - program.started:.2f} s")
        before = program.park()
        seen = model_pixels(program, before)
        x, y = program.middle()
        check(len(seen) > 2000, f"the sample is seen: {len(seen)} places")
        check(any(abs(i - x) < 20 and abs(j - y) < 20 for i, j in seen), "the sample stands in the middle")

        paints(program, before, x, y)
        turns_and_zooms(program, x, y)
        resizes(program)
        loses_the_pointer(program)
        uses_view_tools(program)
        dumps(program)
        rests(program, REST_SECONDS / 2)
        exports(program)
        check(close(program) == 0, f"status {program.process.returncode}: {program.stderr()}")
        log = subprocess.run([sys.executable, os.path.join(ROOT, "tools", "readlog"), os.path.join(program.home, "Quillmere-Log.txt")],
                             capture_output=True, text=True)
        check(log.returncode == 0, f"the log of a session that ended well: {log.stdout[-500:]} {log.stderr}")
        print("a session: good")
    finally:
        program.kill()


def paints(program, before, x, y):
    program.display.drag([(x - 60, y), (x - 20, y), (x + 20, y), (x + 60, y)])
    def shares(picture):
        return [brush_colored(picture, i, y) for i in (x - 40, x, x + 40)]
    check(max(shares(before)) < 0.5, "nothing is white before the stroke")
    wait_until("paint along the stroke", lambda: min(shares(program.park())) > 0.5)
    check(before.at(x, y + 100) == program.park().at(x, y + 100), "only the stroke's place changes")


def turns_and_zooms(program, x, y):
    def height():
        _, top, _, bottom = extent(model_pixels(program, program.park()))
        return bottom - top
    near = height()
    program.display.click(x, y, 5, times=3)
    wait_until("the wheel towards the user makes it smaller", lambda: height() < near * 0.95)
    far = height()
    program.display.click(x, y, 4, times=3)
    wait_until("and away from the user larger", lambda: height() > far * 1.05)


def resizes(program):
    for width, height in ((900, 640), (1180, 760)):
        program.display.do("windowsize", "--sync", program.window, width, height)
        picture = program.park()
        x, y, w, h = canvas_of(program)
        check(abs(w + 16 - width) < 4 and abs(h + 160 - height) < 4, f"the window is {w} x {h}")
        # Every corner shows the light background: nothing is black, nothing was left from before.
        for i, j in ((x, y), (x + w - 1, y), (x, y + h - 1), (x + w - 1, y + h - 1)):
            check(min(picture.at(i, j)) > 90, f"the corner {i}, {j} of {width} x {height} is {picture.at(i, j)}")
        left, top, right, bottom = extent(model_pixels(program, picture))
        check(abs((left + right) / 2 - (x + w / 2)) < w / 8, f"the model stays in the middle: {left} {right} of {w}")


def uses_view_tools(program):
    """Each of the three tools by the menu and a drag: the model moves, is seen from elsewhere, fills the canvas."""
    def use(tool):
        menu(program, TOOLS_MENU, tool)
        program.settle()
        program.display.drag([(x + 10 * i, y + 6 * i) for i in range(7)], program.settle)
        return program.park()
    x, y = program.middle()
    start = extent(model_pixels(program, program.park()))
    moved = extent(model_pixels(program, use(MOVE_VIEW)))
    check(abs(moved[0] - start[0] - 60) <= 8 and abs(moved[2] - start[2] - 60) <= 8, f"moved along with the drag of 60 pixels: {start} {moved}")
    before = use(ROTATE_VIEW)
    turned = extent(model_pixels(program, before))
    check(turned != moved, f"another side: {moved} {turned}")
    after = use(ZOOM_VIEW)
    left, top, width, height = canvas_of(program)
    places = [(i, j) for i in range(left, left + width, 16) for j in range(top, top + height, 16)]
    changed = sum(before.at(i, j) != after.at(i, j) for i, j in places) / len(places)
    check(changed > 0.5, f"the rectangle that was drawn fills the canvas: {changed:.0%} of the picture changed")


def rests(program, seconds):
    program.park()
    begin, start = program.cpu_seconds(), time.monotonic()
    time.sleep(seconds)  # what is measured is this very time
    share = (program.cpu_seconds() - begin) / (time.monotonic() - start)
    print(f"processor share at rest: {share * 100:.2f} %")
    check(share < REST_SHARE, f"{share * 100:.1f} % of a processor at rest")


def menu(program, place, downs):
    """A menu of the bar by its place, the entry by the arrow keys."""
    x, y, _, _ = program.display.geometry(program.window)
    program.display.click(x + place, y + 12)
    program.display.do("key", *["Down"] * downs, "Return")


@functools.cache
def white_share(path):
    width, height, rows = read_png(path)
    return sum(row.count((255, 255, 255)) for row in rows) / (width * height)


def choose(program, downs, title, path):
    """An entry of the File menu whose dialog is answered by a path."""
    display = program.display
    menu(program, FILE_MENU, downs)
    chooser = program.find(title)
    program.settle()
    display.do("windowfocus", "--sync", chooser)
    display.do("key", "ctrl+a")
    display.do("type", "--delay", 5, path)
    press_away(program, title, "Return")


def exports(program):
    """What was painted leaves through the menu: the file holds pure white where the sample had none. So does the
    object."""
    target = os.path.join(program.home, "exported.png")
    choose(program, EXPORT_MAP, "^Export map", target)
    wait_until("the exported map", lambda: os.path.exists(target))
    before, after = white_share(os.path.splitext(SAMPLE)[0] + ".png"), white_share(target)
    check(after > before + 0.001, f"white in the exported map: {after}, before: {before}")

    target = os.path.join(program.home, "exported.obj")
    choose(program, EXPORT_OBJECT, "^Object Files", target)
    wait_until("the exported object", lambda: os.path.exists(target) and os.path.exists(target[:-3] + "mtl"))
    count = [sum(line.startswith("f ") for line in open(path)) for path in (SAMPLE, target)]
    check(count[0] == count[1] > 0, f"faces of the sample and of the exported object: {count}")


def loses_the_pointer(program):
    """Something takes the window away in the middle of a stroke: the stroke ends there and the next one is its own."""
    display = program.display
    x, y = program.middle()
    display.do("mousemove", x - 50, y, "mousedown", 1)
    display.do("mousemove", x - 40, y)
    display.do("windowunmap", "--sync", program.window)
    display.do("mouseup", 1)
    display.do("windowmap", "--sync", program.window)
    program.settle()
    display.do("mousemove", x, y + 60)
    between = program.park()
    display.drag([(x + 40, y + 30), (x + 60, y + 30)])
    wait_until("paint of a stroke after the lost one", lambda: program.park().data != between.data)


def dumps(program):
    """F9 writes the logger's state for whoever asks for it."""
    path = os.path.join(program.home, "SendMeToQuillmere.txt")
    program.display.do("windowfocus", "--sync", program.window)
    program.display.do("key", "F9")
    wait_until("the state dump", lambda: os.path.exists(path) and os.path.getsize(path) > 0)


def script_as_headless(display):
    """The same strokes give the same bytes with a window and without."""
    with tempfile.TemporaryDirectory(prefix="quillmere-script-") as folder:
        script = os.path.join(folder, "strokes.qscript")
        with open(script, "w") as file:
            file.write(f'canvas 800 600\nimport "{SAMPLE}"\nframe object\ntool ColorBrush\nset Size 0.1\ncolor 1 0 0\n'
                       "stroke 300 250 420 330 480 260\nset Strength 0.5\ncolor 0 0 1\nstroke 380 200 400 400\norbit 30 10\n"
                       "stroke 350 300 450 300\nreport maps\nreport objects\n")
        headless = subprocess.run([QUILLMERE, "--headless", "--script", script, "--out", folder], capture_output=True, text=True)
        check(headless.returncode == 0, headless.stderr)
        program = Program(display, "--script", script, "--out", folder)
        try:
            out, _ = program.process.communicate(timeout=120)
            check(program.end() == 0, program.stderr())
        finally:
            program.kill()
        lines = [[json.loads(line) for line in text.splitlines() if line.startswith("{")] for text in (headless.stdout, out.decode())]
        check(len(lines[0]) == 2 and lines[0] == lines[1], f"headless {lines[0]}, in the window {lines[1]}")
    print("a script in the window: good")


def files_come_in(display):
    """The program starts with nothing; one file is chosen in the dialog, another one falls on the window."""
    program = Program(display)
    source = subprocess.Popen([HELPERS["drag_source"], SAMPLE], env=display.environment)
    try:
        program.open()
        check(not model_pixels(program, program.park()), "an empty scene")
        choose(program, IMPORT, "^Import", os.path.join(DATA, "Objects", "Cube.obj"))
        wait_until("the imported object", lambda: len(model_pixels(program, program.park())) > 1000)
        cube = program.park().data
        window = wait_until("the source", lambda: display.windows("^Drag source"))[0]
        sx, sy, width, height = display.geometry(window)
        x, y = program.middle()
        from_x, from_y = sx + width // 2, sy + height // 2
        display.drag([(from_x, from_y), (from_x - 20, from_y + 10), (x + 30, y), (x + 10, y), (x, y)], lambda: time.sleep(0.3))
        wait_until("the dropped object", lambda: program.park().data != cube)
        check(close(program) == 0, program.stderr())
        print("files come in: good")
    finally:
        source.kill()
        source.wait()
        program.kill()


def fine_display(display):
    """Two physical pixels for each of the toolkit's: paint lands under the pointer, and the picture is sharp."""
    program = Program(display, SAMPLE, environment={"GDK_SCALE": "2"})
    try:
        program.open()
        x, y = program.middle()
        paints(program, program.park(), x, y)
        check(close(program) == 0, program.stderr())
        print("a fine display: good")
    finally:
        program.kill()


def works_at_rest(display):
    """Nobody touches anything: posted events run and deleted items come to their end."""
    program = Program(display, program=HELPERS["resting"])
    try:
        program.find(TITLE)
        lines = [program.process.stdout.readline().decode().strip() for _ in range(3)]
        check(lines == ["at rest", "the event ran", "the deleted item is gone"], f"{lines} {program.stderr()}")
        program.process.send_signal(signal.SIGTERM)
        program.process.wait(60)
        print("work at rest: good")
    finally:
        program.kill()


def spot_rests(display):
    if not os.path.exists(SPOT):
        print("skipped: spot at rest, there is no " + SPOT)
        return
    program = Program(display, SPOT)
    try:
        program.window = program.find(TITLE)
        confirm(program, "y")  # its texture coordinates reach beyond the map: wrap them
        wait_until("the model", lambda: len(model_pixels(program, program.park())) > 2000)
        rests(program, REST_SECONDS)
        check(close(program) == 0, program.stderr())
    finally:
        program.kill()


def random_strokes(display):
    """A start, strokes and wheel turns at random for a while, and an exit. The sanitizers' test; the seed is printed."""
    seed = int(os.environ.get("QLM_STROKE_SEED", time.time()))
    print("seed", seed)
    random = __import__("random").Random(seed)
    program = Program(display, SAMPLE)
    try:
        program.open()
        left, top, width, height = canvas_of(program)
        def place():
            return left + random.randrange(width), top + random.randrange(height)
        end = time.monotonic() + STROKE_SECONDS
        while time.monotonic() < end:
            kind = random.random()
            if kind < 0.02:
                program.settle()  # what came faster than the program works is done before more comes
            elif kind < 0.1:
                menu(program, TOOLS_MENU, random.randrange(1, 5))
            elif kind < 0.25:
                display.click(*place(), random.choice((4, 5)), times=random.randrange(1, 4))
            else:
                display.drag([place() for _ in range(random.randrange(2, 8))])
            check(program.alive(), program.stderr()[-3000:])
        program.settle()
        check(close(program) == 0, f"status {program.process.returncode}: {program.stderr()[-6000:]}")
        print("random strokes: good")
    finally:
        program.kill()


def no_display(display):
    environment = {**display.environment, "HOME": tempfile.mkdtemp(prefix="quillmere-none-")}
    environment.pop("DISPLAY")
    process = subprocess.run([QUILLMERE], env=environment, capture_output=True, text=True, timeout=60)
    check(process.returncode == 1, f"status {process.returncode} without a display")
    lines = process.stderr.strip().splitlines()
    check(len(lines) == 1 and "--headless" in lines[0] and "--script" in lines[0], f"not one line that helps: {process.stderr!r}")
    print("no display: good")


def open_and_paint(program):
    program.open()
    x, y = program.middle()
    program.display.drag([(x - 40, y), (x + 40, y)])
    program.park()


def crash(display):
    """A crash in the middle of the toolkit: the offer stands in a box, and what was painted is saved."""
    program = Program(display, SAMPLE)
    try:
        open_and_paint(program)
        program.process.send_signal(signal.SIGSEGV)
        confirm(program, "o")
        press_away(program, "^Error", "Return")
        check(program.end() == 1, f"status {program.process.returncode}")
        saved_painted_map(program)
        print("a crash: good")
    finally:
        program.kill()


def termination(display):
    """The desktop ends the session: no question, and nothing is lost."""
    program = Program(display, SAMPLE)
    try:
        open_and_paint(program)
        program.process.send_signal(signal.SIGTERM)
        check(program.end() == 143, f"status {program.process.returncode}")
        saved_painted_map(program)
        print("termination: good")
    finally:
        program.kill()


def saved_painted_map(program):
    folder = os.path.join(program.home, "Quillmere-Recovery.1")
    check(sorted(n for n in os.listdir(folder) if n.startswith("Pip")) == ["Pip.mtl", "Pip.obj", "Pip.png"], str(os.listdir(folder)))
    check(white_share(folder + "/Pip.png") > white_share(os.path.splitext(SAMPLE)[0] + ".png") + 0.001, "paint in the saved map")


def second_start(display):
    first = Program(display, SAMPLE)
    second = None
    try:
        first.open()
        second = Program(display, home=first.home)
        press_away(second, "^Message", "Return")
        second.process.wait(60)
        check(first.alive() and first.window in display.windows(TITLE), "the first goes on")
        check(close(first) == 0, first.stderr())
        print("a second start: good")
    finally:
        first.kill()
        if second:
            second.kill()


TESTS = (a_session, files_come_in, fine_display, works_at_rest, spot_rests, script_as_headless, no_display, second_start, crash, termination)


def main():
    display = Display()
    try:
        for test in [globals()[name] for name in WANTED] or TESTS:
            try:
                test(display)
            except Exception:
                if display.last:
                    display.last.save(os.path.join(tempfile.gettempdir(), f"gui-{test.__name__}.png"))
                raise
    finally:
        display.close()
    print("window: all good")


main()
