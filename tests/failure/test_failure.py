"""Every road of a failure, in a process of its own: what the user is told, and that what was saved loads again."""
import concurrent.futures
import json
import os
import signal
import subprocess
import sys
import tempfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
QUILLMERE, FAILING = (os.path.abspath(path) for path in sys.argv[1:3])
SAMPLE = os.path.join(os.path.dirname(QUILLMERE), "Data", "Objects", "Pip.obj")
OFFER = "ASK: An error occurred and the program must terminate."
SURE = "ASK: Are you sure that you want to cancel saving the project? \n"
ERROR = "The following error occured...\n\n%s\n\n"
TERMINATED = 143
PATIENCE = 180  # seconds for a case, under sanitizers too

SETUP = f"""canvas 640 480
import "{SAMPLE}"
frame object
tool ColorBrush
set Size 0.1
color 1 0 0
stroke 280 200 360 280
report maps
report objects
"""


def check(condition, text):
    if not condition:
        raise AssertionError(text)


def reports(text):
    return [json.loads(line) for line in text.splitlines() if line.startswith("{")]


class Case:
    """One run of the failing program with a home of its own."""

    def __init__(self, failure, answer="ok", signals=()):
        self.home = tempfile.mkdtemp(prefix="quillmere-failure-")
        self.failure = failure
        environment = {**os.environ, "HOME": self.home, "XDG_CONFIG_HOME": self.home + "/.config", "XDG_RUNTIME_DIR": self.home}
        environment.pop("XDG_DOCUMENTS_DIR", None)
        # The program's own handlers are what is tested, and they do what a sanitizer warns of.
        environment["ASAN_OPTIONS"] = "handle_segv=0:handle_abort=0:detect_leaks=0"
        environment["TSAN_OPTIONS"] = "handle_segv=0:report_signal_unsafe=0"
        script = self.home + "/setup.qscript"
        with open(script, "w") as file:
            file.write(SETUP)
        self.process = subprocess.Popen([FAILING, script, self.home, failure, answer], env=environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace")
        try:
            self.run(signals)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise AssertionError(f"{failure}: no end; so far: {self.process.communicate()[1][-3000:]}")

    def run(self, signals):
        head = ""
        while not head.endswith("ready\n"):
            line = self.process.stdout.readline()
            check(line, f"{self.failure}: the program did not start: {self.process.stderr.read() if not line else ''}")
            head += line
        error = ""
        for number in signals:
            self.process.send_signal(number)
            if number == signal.SIGUSR1:
                while "SendMeToQuillmere.txt" not in error:
                    line = self.process.stderr.readline()
                    check(line, "the program ended over a dump: " + error)
                    error += line
        out, rest = self.process.communicate(timeout=PATIENCE)
        self.status, self.stdout, self.stderr = self.process.returncode, head + out, error + rest

    def expect(self, status, *texts):
        check(self.status == status, f"{self.failure}: status {self.status}, not {status}: {self.stderr[-3000:]}")
        for text in texts:
            check(text in self.stderr, f"{self.failure}: no {text!r} in {self.stderr[-3000:]}")

    def offers(self, count):
        check(self.stderr.count(OFFER) == count, f"{self.failure}: {self.stderr.count(OFFER)} offers: {self.stderr}")

    def log(self, name="Quillmere-Log.txt", *texts):
        process = subprocess.run([sys.executable, os.path.join(ROOT, "tools", "readlog"), os.path.join(self.home, name)],
                                 capture_output=True, text=True)
        for text in texts:
            check(text in process.stdout, f"{self.failure}: no {text!r} in the log: {process.stdout[-1500:]}")
        check(process.stdout.startswith("---\nT:Main\n"), f"{self.failure}: the log begins with {process.stdout[:40]!r}")
        return process.stdout

    def folders(self):
        return sorted(n for n in os.listdir(self.home) if n.startswith("Quillmere-Recovery"))

    def saved(self, expected=("Pip.mtl", "Pip.obj", "Pip.png")):
        check(self.folders() == ["Quillmere-Recovery.1"], f"{self.failure}: folders {self.folders()}")
        folder = os.path.join(self.home, "Quillmere-Recovery.1")
        models = sorted(n for n in os.listdir(folder) if n.startswith("Pip"))
        check(models == sorted(expected), f"{self.failure}: saved {os.listdir(folder)}")
        return folder

    def loads_again(self):
        """The saved files give the maps and objects that the program had."""
        folder = self.saved()
        script = self.home + "/again.qscript"
        with open(script, "w") as file:
            file.write(f'import "{folder}/Pip.obj"\nreport maps\nreport objects\n')
        again = subprocess.run([QUILLMERE, "--headless", "--script", script, "--out", self.home + "/again"],
                               capture_output=True, text=True, timeout=PATIENCE)
        check(again.returncode == 0, again.stderr)
        before, after = reports(self.stdout), reports(again.stdout)
        check(len(before) == len(after) == 2, f"{self.failure}: {before} {after}")
        check(before[0]["hash"] == after[0]["hash"], f"{self.failure}: the map changed on its way: {before[0]} {after[0]}")
        for key in ("vertices", "texture_vertices", "polygons"):
            check(before[1][key] == after[1][key], f"{self.failure}: {before[1]} {after[1]}")

    def no_folder(self):
        check(not self.folders(), f"{self.failure}: {self.folders()} was made")


def told(case, text):
    """The whole road with an offer: report, files, log."""
    case.expect(1, "Unexpected exception has occurred: " + text, ERROR % text + "The current project has been saved as...\n\n"
                + case.home + "/Quillmere-Recovery.1/\n\nand an error report file has been saved as...\n\n"
                + case.home + "/Quillmere-Log.txt\n\n( Depending on the severity of the error, it may or may not reload properly )")
    case.loads_again()
    case.log("Quillmere-Log.txt", "Exception: " + text)
    case.log("Quillmere-Recovery.1/Quillmere-Log.txt", "Exception: " + text)
    with open(case.home + "/Quillmere-Recovery.1/Quillmere-Report.txt") as file:
        check(file.read().startswith(text + "\nsaved: Pip.png\nsaved: Pip.obj\n"), "the report's page")


def main_thread(failure, text):
    case = Case(failure)
    told(case, text)
    case.offers(1)
    return case


def exception():
    main_thread("throw", "bad luck")


def raised_error():
    main_thread("raise", "bad luck").log("Quillmere-Log.txt", "FATAL: bad luck")


def crash():
    main_thread("segv", "Access violation, signal 11").log("Quillmere-Log.txt", "--- ERROR ---", "- Main Thread -")


def worker_exception():
    main_thread("worker-throw", "bad luck")


def worker_crash():
    main_thread("worker-segv", "Access violation, signal 11").log("Quillmere-Log.txt", "Thread Function Name: Faulty_ThreadFunc")


def nobody_takes_up():
    """The main thread hangs: the worker saves by itself, without a question."""
    for case, text in zip(parallel(lambda: Case("worker-throw-hung"), lambda: Case("worker-segv-hung")), ("bad luck", "Access violation, signal 11")):
        told(case, text)
        case.offers(0)


def nobody_answers():
    case = Case("throw", "never")
    told(case, "bad luck")
    case.offers(1)


def refused():
    case = Case("throw", "cancel")
    case.offers(1)
    case.expect(1, SURE, "BOX: And an error report file has been saved as...\n\n" + case.home + "/Quillmere-Log.txt\n\n")
    case.no_folder()
    case.log("Quillmere-Log.txt", "Exception: bad luck")


def refused_and_thought_better():
    case = Case("throw", "no")
    told(case, "bad luck")
    check(SURE in case.stderr, "the second question")


def failure_of_the_offer():
    """A crash while the question stands is told and offers nothing again."""
    case = Case("throw", "fail")
    case.offers(1)
    case.expect(1, ERROR % "Access violation, signal 11" + "An error report has been saved to the following location...\n\n"
                + case.home + "/Quillmere-Log.txt\n\nPlease send this file")
    case.no_folder()


def held_lock():
    """What can't be had is named, and the rest is saved."""
    case = Case("worker-throw-locked")
    case.offers(1)
    case.expect(1, "not saved: Pip.png (the map is in use)")
    case.saved(("Pip.mtl", "Pip.obj"))


def termination():
    case = Case("wait", "never", [signal.SIGTERM])
    case.offers(0)
    case.expect(TERMINATED)
    case.loads_again()
    text = case.log("Quillmere-Log.txt", "Terminated from outside")
    check(text.endswith("Program ending normally\n"), text[-300:])


def termination_while_busy():
    case = Case("hung", "never", [signal.SIGTERM])
    case.offers(0)
    case.expect(TERMINATED)
    case.loads_again()
    case.log("Quillmere-Log.txt", "Program ending normally")


def state_dump():
    case = Case("wait", "never", [signal.SIGUSR1, signal.SIGTERM])
    case.expect(TERMINATED, "MESSAGE: Please send the following file to Quillmere for inspection\n" + case.home + "/SendMeToQuillmere.txt")
    case.log("SendMeToQuillmere.txt", "Dumping current state", "VmRSS:", "object Pip:", "map Pip.png: ", ", changed")
    with open(case.home + "/SendMeToQuillmere.txt", "rb") as file:
        check(file.read().endswith(b"END_LOG\n"), "the end of a dump")


def state_dump_while_busy():
    case = Case("hung", "never", [signal.SIGUSR1, signal.SIGTERM])
    case.expect(TERMINATED)
    case.log("SendMeToQuillmere.txt", "Dumping current state", "The main thread does not answer")


# Those that wait for the program's patience come first.
CASES = [nobody_takes_up, nobody_answers, state_dump_while_busy, exception, raised_error, crash, worker_exception,
         worker_crash, refused, refused_and_thought_better, failure_of_the_offer, held_lock, termination,
         termination_while_busy, state_dump]


def parallel(*functions):
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        return [future.result() for future in [pool.submit(function) for function in functions]]


def attempt(case):
    try:
        case()
        return None
    except Exception as failure:
        return f"{case.__name__}: {failure}"


wanted = sys.argv[3:]
faults = [fault for fault in parallel(*(lambda c=c: attempt(c) for c in CASES if not wanted or c.__name__ in wanted)) if fault]
print("\n".join(faults) or "failures: all good")
sys.exit(1 if faults else 0)
