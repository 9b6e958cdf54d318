"""What every benchmark shares: a private desktop, timed child processes, medians and the report.

Figures are ratios of two things measured in the same run on the same machine, in turns; a lone absolute
time is printed only as a note beside its ratio.
"""
import os
import pathlib
import resource
import signal
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "examples/host"))
from tessarin_host import Host  # noqa: E402


class Desktop:
    """A private X server with a window manager; clients are ours. Ended by process id."""

    def __init__(self, build, width=1920, height=1080):
        self.build = build
        self.children = []
        read, write = os.pipe()
        self._start(["Xvfb", "-displayfd", str(write), "-screen", "0", f"{width}x{height}x24", "-nolisten", "tcp",
                     "-noreset"], pass_fds=[write])
        os.close(write)
        with os.fdopen(read) as numbers:
            self.display = ":" + numbers.readline().strip()
        self.environment = {**os.environ, "DISPLAY": self.display}
        self.host = Host(str(build / "tessarin-native"), self.environment)
        self.window_manager = self._start(["openbox"])
        self.end(self.client("--wait-for", "window-manager"))

    def _start(self, command, **options):
        child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL, env=getattr(self, "environment", None), **options)
        self.children.append(child)
        return child

    def client(self, *arguments):
        """Starts a window of the test client and returns when it is painted."""
        child = subprocess.Popen([self.build / "tests/desktop/tessarin-test-client", *arguments],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=self.environment)
        self.children.append(child)
        if not child.stdout.readline().startswith("ready"):
            raise RuntimeError("the test client did not start: " + " ".join(arguments))
        return child

    def end(self, child):
        child.terminate()
        child.wait(10)
        self.children.remove(child)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for child in reversed(self.children):
            child.send_signal(signal.SIGTERM)
            try:
                child.wait(10)
            except subprocess.TimeoutExpired:
                child.kill()


# A client window over the whole screen, without decoration and above everything.
full_screen = ("--style", "override", "--size", "1920x1080", "--at", "0,0")


class Usage:
    """Wall and processor seconds of one child process with all its children."""

    def __init__(self, wall, processor):
        self.wall, self.processor = wall, processor


def timed(command, environment, stdin=None):
    """Runs a command to its end."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    subprocess.run(command, env=environment, stdin=stdin or subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return Usage(wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)


def in_turns(count, *jobs):
    """Runs the jobs one after another, `count` rounds, and yields the median of each, first round left out."""
    results = [[] for _ in jobs]
    for turn in range(count + 1):
        for job, result in zip(jobs, results):
            value = job()
            if turn > 0:
                result.append(value)
    return [statistics.median(result) for result in results]


def processor_seconds(pid):
    """User and system time so far of one live process, its threads included."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def resident_megabytes(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    return 0


class Report:
    def __init__(self):
        self.missed = 0

    def line(self, name, value, bound, note="", unit=""):
        """One figure with its bound: value <= bound, or >= for a bound given as ">=x"."""
        at_least = isinstance(bound, str)
        limit = float(bound[2:]) if at_least else bound
        good = value >= limit if at_least else value <= limit
        self.missed += not good
        print(f"{name:58} {value:8.3f}{unit} ({'at least' if at_least else 'at most'} {limit:g}) "
              f"{'ok    ' if good else 'MISSED'} {note}", flush=True)

    def note(self, name, text):
        print(f"{name:58} {text}", flush=True)


def scratch():
    return tempfile.TemporaryDirectory(prefix="tessarin-bench-")
