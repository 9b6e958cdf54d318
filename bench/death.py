"""One recording of all sources whose servers die, or stand still for good, at a random moment."""
import json
import os
import pathlib
import queue
import random
import shutil
import signal
import subprocess
import time

from harness import Host
from kills import require
from recording import session_directory
from session import Studio

FRAME_RATE = 15
# No death keeps a session waiting for more than the 8 seconds after which a source without a word counts as gone, with
# the second between two looks; the rest is for closing, joining and checking on a machine that runs other things too.
LIMIT = 15
# A display that does not answer is given ten seconds by whoever asks, and once more by what asks behind it.
LIMIT_OF_STILL = 30
# Seconds from the program's start to the first picture, on a machine that is not idle.
START_UP = 0.9
MARK = "TESSARIN_BENCH_SESSION"

PROGRAMS = {"display": "Xvfb", "sound": "pipewire", "window manager": "openbox", "session manager": "wireplumber",
            "session bus": "dbus-daemon"}


def comm(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/comm").read_text().strip()
    except OSError:
        return ""


class Hands:
    """Somebody at the desk: moves the pointer, clicks, and presses Control+J, for which a badge is shown."""

    def __init__(self, environment):
        script = ("while :; do for x in 40 120 200; do xdotool mousemove $x 90 click 1 || exit; sleep 0.1; done; "
                  "xdotool key ctrl+j || exit; done")
        self.process = subprocess.Popen(["sh", "-c", script], env=environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def end(self):
        self.process.kill()
        self.process.wait(10)


class Death:
    """One recording, which of its servers died, when, and how it ended."""

    has_all_sources = True

    def __init__(self, build, folder, moment, victims, is_still=False):
        self.build, self.directory, self.moment, self.victims = build, session_directory(folder), moment, victims
        self.is_still = is_still  # the servers do not die, but do nothing any more
        self.limit = LIMIT_OF_STILL if is_still else LIMIT
        self.halted = []
        self.phase = "start-up"  # as the host knows it
        self.struck_in = None  # the phase in which the first server died
        self.recorded = 0.0  # seconds that must have been recorded by then
        self.began = None  # of the running segment, while it counts; seconds on the monotonic clock
        self.asked = self.ended = None  # when something was last done to the session, and its end
        self.last = None  # the last event
        self.recording = self.studio = self.desktop = self.status = None
        self.left_behind = []

    def run(self):
        with Studio(self.build, "--style", "override", "--size", "640x480", "--at", "0,0", "--paint", "counter",
                    "--fps", str(FRAME_RATE)) as studio:
            studio.host = Host(studio.host.program, {**studio.environment, MARK: self.directory.name})
            self.studio = self.desktop = studio
            hands = Hands(studio.environment)
            try:
                self._record(studio.host.run("list")["displays"][0]["id"])
            finally:
                hands.end()
                for pid in self.halted:
                    os.kill(pid, signal.SIGCONT)
        self._require_end()

    def _record(self, display):
        request = {
            "sessionId": self.directory.name, "kind": "region", "displayId": display,
            "rectPoints": {"x": 0, "y": 0, "width": 640, "height": 480}, "outputDirectory": str(self.directory),
            "settings": {"microphone": True, "systemAudio": True, "camera": True, "cameraPosition": "bottomRight",
                         "showsCursor": True, "showMouseClicks": True, "recordKeyboardShortcuts": True,
                         "frameRate": FRAME_RATE, "quality": "standard", "outputScale": "original"}}
        with self.studio.host.record(request) as self.recording:
            self.asked = time.monotonic()
            moments[self.moment](self)
            self._go_on()
            try:
                self.status = self.recording.process.wait(self.limit)
            except subprocess.TimeoutExpired:
                self._look_into()
                self.recording.process.kill()
                return
            self.ended = time.monotonic()
            self.left_behind = self._processes()
            for reader in self.recording.readers:
                reader.join(5)
            while self.next_event(0.1):
                pass

    # What a host sees and does.

    def next_event(self, limit):
        try:
            event = self.recording.next_event(limit)
        except queue.Empty:
            return None
        if event is None:
            return None
        self.last = event
        if event["event"] == "stateChanged":
            self.phase = event["phase"]
            if self.phase == "recording" and not self._is_over():
                self.began = self.began or time.monotonic()
        return event

    def _is_over(self):
        """Whether a server is gone without which nothing is recorded."""
        return self.struck_in is not None and self.victims != ["window manager"]

    def _count(self):
        if self.began:
            self.recorded, self.began = self.recorded + time.monotonic() - self.began, None

    def has_ended(self):
        return self.last is not None and self.last["event"] in ("failed", "completed", "cancelled")

    def follow(self, *phases):
        """Until the session is in one of the phases, or has ended; false when neither happens."""
        end = time.monotonic() + self.limit
        while not self.has_ended() and self.phase not in phases:
            left = end - time.monotonic()
            if left <= 0 or (self.next_event(left) is None and self.recording.process.poll() is not None):
                break
        return self.phase in phases and not self.has_ended()

    def send(self, command):
        self.asked = time.monotonic()
        if command in ("pause", "stop"):
            self._count()
        try:
            self.recording.send(command)
        except (BrokenPipeError, ValueError):
            pass

    def strike(self, *victims):
        while self.recording.events.qsize():
            self.next_event(0)
        self.struck_in = self.struck_in or self.phase
        if self._is_over():
            self._count()
        for victim in victims or self.victims:
            for pid in self._server(PROGRAMS[victim]):
                os.kill(pid, signal.SIGSTOP if self.is_still else signal.SIGKILL)
                self.halted += [pid] if self.is_still else []
        self.asked = time.monotonic()

    def _server(self, program):
        pids = [int(entry.name) for entry in pathlib.Path("/proc").iterdir() if entry.name.isdigit()]
        return [pid for pid in pids if comm(pid) == program and self._parent(pid) == self.studio.process.pid]

    @staticmethod
    def _parent(pid):
        try:
            return int(pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[1])
        except OSError:
            return 0

    def _go_on(self):
        """As a host does that has noticed nothing: half a second more, and the stop. A session that has lost a source
        is given the time to notice it."""
        if self.phase == "start-up" and not self.follow("recording"):
            return
        if self.phase in ("pausing", "paused", "resuming"):
            if not self.follow("paused", "recording"):
                return
            if self.phase == "paused":
                self.send("resume")
            if not self.follow("recording"):
                return
        if self.phase == "recording":
            end = time.monotonic() + 0.8
            while (left := end - time.monotonic()) > 0 and not self.has_ended():
                self.next_event(left)
            self.send("stop")
        self.follow("none")

    # What is to be found afterwards.

    def _processes(self):
        """Processes that the recording has started and that are still there."""
        mark = f"{MARK}={self.directory.name}".encode()
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and mark in (entry / "environ").read_bytes():
                    found.append(f"{entry.name} {comm(entry.name)}")
            except OSError:
                continue
        return found

    def _look_into(self):
        """Where the threads of a program stand that does not end."""
        stacks = subprocess.run(["gdb", "-p", str(self.recording.process.pid), "-batch", "-ex", "thread apply all bt"],
                                capture_output=True, text=True, check=False).stdout if shutil.which("gdb") else ""
        tasks = pathlib.Path(f"/proc/{self.recording.process.pid}/task")
        names = [f"{comm(task.name)} {(task / 'wchan').read_text()}" for task in tasks.iterdir()]
        (self.directory / "stacks").write_text("\n".join([*names, stacks]))

    def what(self):
        return ("still " if self.is_still else "") + " and ".join(self.victims)

    def keep_words(self):
        if self.recording:
            events = [json.dumps(event) for event in self.recording.history]
            (self.directory / "said").write_text("\n".join([*events, *self.recording.diagnostics, ""]))

    def stage(self):
        for line in self.recording.diagnostics:
            if line.startswith("tessarin-native recording-failed stage="):
                return line.split("stage=")[1].split()[0]
        return "-"

    def outcome(self):
        if self.last is None:
            return "nothing said"
        if self.last["event"] == "failed":
            return f"{self.last['error']['code']} at {self.stage()}"
        return self.last["event"]

    def _require_end(self):
        require(self.status is not None, f"no end within {self.limit} s")
        require(self.has_ended(), f"the last event is {self.last}")
        require(self.status == (1 if self.last["event"] == "failed" else 0),
                f"status {self.status} behind {self.last['event']}")
        require(not self.left_behind, f"left behind: {', '.join(self.left_behind)}")
        ends = [event for event in self.recording.history if event["event"] in ("failed", "completed", "cancelled")]
        require(len(ends) == 1, f"{len(ends)} last events")
        if self.last["event"] == "failed":
            require(self.last["error"]["recoverable"], "said to be final")
            require(self.outcome() in told(self.victims, self.is_still), f"told is {self.outcome()}")
        elif not self.is_still:
            require(not {"display", "sound"} & set(self.victims) or self.struck_in in ("stopping", "pausing") or
                    "stop" in self.moment, "completed without its servers")


def told(victims, is_still):
    """What may be told of the end of a server, by code and stage. Window managers and session buses end nothing."""
    running = ("unexpected-stream-stop", "recording-control", "pause-finalize", "resume-start", "stop-finalize",
               "stop-stream", "stop-parallel-merge", "stop-parallel-validate")
    result = set()
    if "display" in victims:
        result |= {f"recordingFailed at {stage}" for stage in running}
        result |= {"permissionDenied at prepare-request", "permissionDenied at shareable-content",
                   "permissionDenied at interaction-recorder",
                   "recordingScreenStalled at start-capture", "recordingScreenStalled at resume-start"}
        result |= {f"contentUnavailable at {stage}" for stage in (
            "shareable-content", "camera-overlay", "exclude-recording-overlays", "interaction-recorder")}
        result |= {f"recordingFailed at {stage}" for stage in (
            "camera-overlay", "exclude-recording-overlays", "interaction-recorder", "prepare-writer", "start-capture")}
    if {"sound", "session manager"} & set(victims):
        result |= {f"{code} at {stage}" for code in ("microphoneUnavailable", "cameraUnavailable")
                   for stage in (*running, "microphone-start", "camera-start", "camera-overlay", "prepare-writer",
                                 "start-capture")}
        result |= {"recordingFailed at start-capture", "recordingFailed at stop-finalize"}
    if is_still and "display" in victims:
        result |= {f"recordingScreenStalled at {stage}" for stage in running}
    return result


def in_start_up(death):
    time.sleep(random.uniform(0, START_UP))
    death.strike()


def while_recording(death):
    death.follow("recording")
    time.sleep(random.uniform(0, 3))
    death.strike()


def during_a_pause(death):
    death.follow("recording")
    time.sleep(random.uniform(0.3, 1.2))
    death.send("pause")
    time.sleep(random.uniform(0, 0.12))
    death.strike()


def while_paused(death):
    paused_once(death)
    time.sleep(random.uniform(0, 1))
    death.strike()


def during_a_resume(death):
    paused_once(death)
    death.send("resume")
    time.sleep(random.uniform(0, 0.15))
    death.strike()


def in_a_second_segment(death):
    paused_once(death)
    death.send("resume")
    death.follow("recording")
    time.sleep(random.uniform(0, 2))
    death.strike()


def during_a_stop(death):
    paused_once(death)
    death.send("resume")
    death.follow("recording")
    time.sleep(random.uniform(0.3, 1))
    death.send("stop")
    time.sleep(random.uniform(0, 0.15))
    death.strike()


def during_a_stop_while_paused(death):
    paused_once(death)
    death.send("stop")
    time.sleep(random.uniform(0, 0.05))
    death.strike()


def paused_once(death):
    death.follow("recording")
    time.sleep(random.uniform(0.3, 1.2))
    death.send("pause")
    death.follow("paused")


def one_behind_the_other(death):
    death.follow("recording")
    time.sleep(random.uniform(0, 1.5))
    for victim in death.victims:
        death.strike(victim)
        time.sleep(random.uniform(0, 0.2))


def a_window_manager_twice(death):
    death.follow("recording")
    death.strike()
    again = subprocess.Popen(["openbox"], env=death.studio.environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(random.uniform(0, 1))
    again.kill()
    again.wait(10)
    time.sleep(random.uniform(0, 0.5))


moments = {function.__name__.replace("_", " "): function for function in (
    in_start_up, while_recording, during_a_pause, while_paused, during_a_resume, in_a_second_segment, during_a_stop,
    during_a_stop_while_paused, one_behind_the_other, a_window_manager_twice)}
plain = [moment for moment in moments if moment not in ("one behind the other", "a window manager twice")]
# The start-up has most of the stages.
order = [(moment, [victim]) for victim in ("display", "sound") for moment in (*plain, "in start up", "in start up")]
order += [(moment, [victim]) for victim in ("window manager", "session manager")
          for moment in ("in start up", "while recording", "during a resume", "during a stop")]
order += [("one behind the other", victims) for victims in (
    ["display", "sound"], ["sound", "display"], ["window manager", "display"], ["session manager", "sound"])]
order += [("a window manager twice", ["window manager"])]
order = [(*each, False) for each in order]
order += [(moment, [victim], True) for victim in ("display", "sound") for moment in plain]
order += [(moment, [victim], True) for victim in ("window manager", "session manager", "session bus")
          for moment in ("in start up", "while recording", "during a stop")]
