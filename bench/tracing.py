"""What the trace and the panels add to a recording, and what asking a trace costs."""
import os
import pathlib
import subprocess
import threading
import time

import recording
from harness import scratch
from session import Studio

full_screen_counter = ("--paint", "counter", "--fps", "60", "--style", "override", "--size", "1920x1080", "--at", "0,0")


def thread_seconds(pid):
    """Processor seconds so far of each thread of a process, summed by its name; the main thread is "main"."""
    seconds = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            name, fields = (task / "stat").read_text().split("(", 1)[1].rsplit(")", 1)
        except FileNotFoundError:
            continue
        if int(task.name) == pid:
            name = "main"
        ticks = fields.split()
        seconds[name] = seconds.get(name, 0) + (int(ticks[11]) + int(ticks[12])) / os.sysconf("SC_CLK_TCK")
    return seconds


class Busy:
    """Somebody at the desk: the pointer goes round sixty times a second, and Control+C is pressed each two seconds."""

    def __init__(self, environment, seconds):
        steps = []
        for i in range(seconds * 60):
            steps += [f"mousemove {300 + 7 * (i % 180)} {200 + 3 * (i % 200)}", "sleep 0.0155"]
            if i % 120 == 60:
                steps.append("key ctrl+c")
        self.process = subprocess.Popen(["xdotool", "-"], stdin=subprocess.PIPE, env=environment, text=True)
        self.feeder = threading.Thread(target=self._feed, args=("\n".join(steps) + "\n",), daemon=True)
        self.feeder.start()

    def _feed(self, text):
        try:
            self.process.communicate(text)
        except BrokenPipeError:
            pass

    def end(self):
        self.process.kill()
        self.process.wait(10)
        self.feeder.join(10)


def shares(studio, folder, seconds, settings):
    """Shares of a core by thread while the pointer moves, and the finished recording."""
    busy = Busy(studio.environment, seconds + 6)
    try:
        at_start, at_end = {}, {}

        def look(pid, is_start):
            (at_start if is_start else at_end).update(thread_seconds(pid), wall=time.monotonic())
        done = recording.record(studio, folder, seconds, 60, settings, look)
    finally:
        busy.end()
    wall = at_end["wall"] - at_start["wall"]
    return {name: (value - at_start.get(name, 0)) / wall for name, value in at_end.items() if name != "wall"}, done


def run(build, report, seconds=20):
    """The threads of trace and panels, and what the stream needs more to leave the panels out."""
    with Studio(build, *full_screen_counter) as studio, scratch() as folder:
        plain, _ = shares(studio, folder, seconds, {"camera": False, "showsCursor": False})
        with_camera = {"camera": True, "showsCursor": False, "showMouseClicks": True, "cursorFollow": True,
                       "recordKeyboardShortcuts": True}
        ours, done = shares(studio, folder, seconds, with_camera)
        events = sum(1 for _ in open(done.directory / "interaction-events.jsonl", encoding="utf-8"))
        added = {name: ours.get(name, 0) - plain.get(name, 0) for name in
                 ("main", "interactions", "input-watch", "password-focus", "screen-stream")}
        report.line("trace and panels in a recording of 1080p60, share of a core", sum(added.values()), 0.04,
                    ", ".join(f"{name} {value * 100:.1f} %" for name, value in added.items()) +
                    f"; {events} events; all of the program {sum(ours.values()) * 100:.0f} %")


def run_index(build, report):
    words = subprocess.run([build / "bench/tessarin-bench-index"], capture_output=True, text=True, check=True).stdout.split()
    scattered, ordered, searches = (float(word) for word in words[1::2])
    report.line("state of a trace of 400,000 events, microseconds", scattered / 1000, 1,
                f"{scattered:.0f} ns at any time, {ordered:.0f} ns in order")
    report.line("that / its three binary searches alone", scattered / searches, 5, f"{searches:.0f} ns")
