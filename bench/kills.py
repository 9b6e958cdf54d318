"""Recordings that are killed at random moments, and what is left of them. The directories of those that are not in
order are kept in the build's folder kills/."""
import ctypes
import json
import os
import pathlib
import random
import select
import shutil
import statistics
import struct
import subprocess
import threading
import time

from growing import Growing
from harness import scratch
from recording import session_directory
from session import Studio

FRAME_RATE = 15
# Seconds of what is recorded at which a fragment is written; the next one follows when the last of them is over.
FRAGMENTS = (1, 11, 21)
# For coding, the key frame that ends a fragment, and the sync, on a machine that runs many recordings at once.
SLACK = 1.5

IN_MODIFY, IN_CREATE = 0x2, 0x100


class Watch:
    """Waits for a file of a directory to be made or written to."""

    libc = ctypes.CDLL(None, use_errno=True)

    def __init__(self, directory, mask):
        self.descriptor = self.libc.inotify_init1(os.O_CLOEXEC)
        if self.libc.inotify_add_watch(self.descriptor, os.fsencode(directory), mask) < 0:
            raise OSError(ctypes.get_errno(), "inotify_add_watch")

    def wait(self, name, limit=20):
        end = time.monotonic() + limit
        while (left := end - time.monotonic()) > 0 and select.select([self.descriptor], [], [], left)[0]:
            data, at = os.read(self.descriptor, 65536), 0
            while at < len(data):
                length = struct.unpack_from("iIII", data, at)[3]
                if data[at + 16:at + 16 + length].rstrip(b"\0").decode() == name:
                    return
                at += 16 + length
        raise TimeoutError(f"nothing happened to {name}")

    def close(self):
        os.close(self.descriptor)


class Kill:
    """One recording, what was done to it, and when."""

    def __init__(self, desktop, folder, display, moment, has_all_sources):
        self.directory, self.moment = session_directory(folder), moment
        self.has_all_sources = has_all_sources
        self.started = None  # seconds on the monotonic clock at which the running segment began
        self.desktop = desktop
        request = {
            "sessionId": self.directory.name, "kind": "region", "displayId": display,
            "rectPoints": {"x": 0, "y": 0, "width": 320, "height": 240}, "outputDirectory": str(self.directory),
            "settings": {"microphone": has_all_sources, "systemAudio": has_all_sources, "camera": has_all_sources,
                         "cameraPosition": "bottomRight",
                         "showsCursor": False, "showMouseClicks": False, "frameRate": FRAME_RATE,
                         "quality": "standard", "outputScale": "original"}}
        with desktop.host.record(request) as recording:
            self.recording = recording
            moments[moment](self)
            recording.process.kill()
            self.killed = time.monotonic()
            recording.process.wait(20)

    def begin(self, phase="recording"):
        self.recording.wait_for(phase)
        self.started = time.monotonic() if phase == "recording" else None

    def send(self, command):
        self.recording.send(command)

    def watched(self, directory, mask, name, before):
        """Does something, waits for what it does to a file, and a little longer."""
        watch = Watch(directory, mask)
        try:
            before()
            watch.wait(name)
        finally:
            watch.close()
        time.sleep(random.choice((0, 0, random.uniform(0, 0.004))))


def in_start_up(kill):
    time.sleep(random.uniform(0, 0.4))


def before_the_first_fragment(kill):
    kill.begin()
    time.sleep(random.uniform(0, 1))


def while_recording(kill):
    kill.begin()
    time.sleep(random.uniform(1, 14))


def inside_a_flush(kill):
    kill.begin()
    time.sleep(random.choice((0, 0, 2)))  # the first flush, or the one ten seconds later
    kill.watched(kill.directory / "segments", IN_MODIFY, "segment-0000.mp4", lambda: None)


def during_a_pause(kill):
    kill.begin()
    time.sleep(random.uniform(0.2, 1.5))
    kill.send("pause")
    time.sleep(random.uniform(0, 0.15))


def during_a_manifest_write(kill):
    kill.begin()
    time.sleep(random.uniform(0.2, 1.5))
    kill.watched(kill.directory, IN_CREATE, "native-manifest.json.tmp", lambda: kill.send("pause"))


def paused_once(kill):
    kill.begin()
    time.sleep(random.uniform(0.2, 1.2))
    kill.send("pause")
    kill.begin("paused")


def during_a_resume(kill):
    paused_once(kill)
    kill.send("resume")
    time.sleep(random.uniform(0, 0.3))


def in_a_second_segment(kill):
    paused_once(kill)
    kill.send("resume")
    kill.begin()
    time.sleep(random.uniform(0, 2.5))


def during_a_stop(kill):
    paused_once(kill)
    kill.send("resume")
    kill.begin()
    time.sleep(random.uniform(0.2, 1.5))
    kill.send("stop")
    kill.begin("stopping")
    time.sleep(random.uniform(0, 0.12))


def during_a_merge(kill):
    paused_once(kill)
    kill.watched(kill.directory, IN_CREATE, "native-manifest.json.tmp", lambda: resume_and_stop(kill))
    time.sleep(random.uniform(0, 0.02))


def resume_and_stop(kill):
    kill.send("resume")
    kill.recording.wait_for("recording")
    time.sleep(random.uniform(0.2, 1))
    kill.send("stop")


moments = {function.__name__.replace("_", " "): function for function in (
    in_start_up, before_the_first_fragment, while_recording, inside_a_flush, during_a_pause, during_a_manifest_write,
    during_a_resume, in_a_second_segment, during_a_stop, during_a_merge)}
# A long one costs much time, so there are fewer of each of the others' kinds.
order = [*moments, "while recording", "while recording", "inside a flush", "during a merge"]


def probed(path):
    """The pictures of a file and its seconds as an independent reader sees them; it must not complain."""
    done = subprocess.run(["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v:0", "-show_entries",
                           "stream=nb_read_packets,duration", "-of", "json", str(path)], capture_output=True, text=True,
                          timeout=60, check=False)
    if done.returncode or done.stderr:
        raise AssertionError(f"{path.name} cannot be read: {done.stderr.strip()}")
    stream = json.loads(done.stdout)["streams"][0]
    return int(stream["nb_read_packets"]), float(stream.get("duration", 0))


def packets(path):
    return probed(path)[0]


def require(holds, what):
    if not holds:
        raise AssertionError(what)


class Checked:
    """What is left after a kill. Throws AssertionError where it is not what was promised."""

    def __init__(self, kill):
        self.kill = kill
        self.loss = None  # seconds of the running segment
        self.pictures = 0  # of all segments
        self.is_recovered = False  # also where there is nothing to recover
        self.segments = self._manifest()
        listed = {segment["path"] for segment in self.segments}
        for segment in self.segments:
            self._finished(segment)
        usable = sorted(listed)
        for path in sorted((kill.directory / "segments").glob("*.mp4")):
            if str(path) not in listed and self._running(path):
                usable.append(str(path))
        if usable:
            self._recover(usable)

    def _manifest(self):
        path = self.kill.directory / "native-manifest.json"
        if not path.exists():
            return []
        manifest = json.loads(path.read_text())
        require(manifest["schemaVersion"] == 1 and manifest["sessionId"] == self.kill.directory.name,
                "the manifest is another's")
        require(manifest["segments"], "a manifest of nothing")
        return manifest["segments"]

    def _finished(self, segment):
        path = pathlib.Path(segment["path"])
        require(path.stat().st_size == segment["sizeBytes"], f"{path.name} is not as long as the manifest says")
        count, seconds = probed(path)
        self.pictures += count
        require(count > 0 and abs(seconds - segment["durationMs"] / 1000) <= 0.002,
                f"{path.name}: {count} pictures in {seconds} s, where the manifest says {segment['durationMs']} ms")

    def _running(self, path):
        """Whether the segment that was being written holds anything; what it lost by the kill."""
        left = Growing(path)
        if not left.is_finished and left.samples:
            # Up to the last whole fragment; a torn one behind it is what another reader may refuse.
            whole = path.with_name("whole-" + path.name)
            whole.write_bytes(left.data[:left.whole_bytes])
            count = packets(whole)
            whole.unlink()
            require(count == left.samples, f"{path.name}: {count} pictures of {left.samples}")
            self.pictures += count
        elif left.is_finished:
            self.pictures += packets(path)
        if self.kill.started is None or self.kill.moment in ("during a stop", "during a merge"):
            return left.samples > 0 or left.is_finished
        if left.is_finished:
            return True
        recorded = self.kill.killed - self.kill.started
        self.loss = max(recorded - left.seconds, 0)
        flushed = max((at for at in FRAGMENTS if at + SLACK <= recorded), default=0)
        require(left.seconds >= flushed - 0.2,
                f"{left.seconds:.2f} s of {recorded:.2f} s are left, where {flushed} s were written")
        return left.samples > 0

    def _recover(self, paths):
        request = {"sessionId": self.kill.directory.name, "outputDirectory": str(self.kill.directory),
                   "segmentPaths": paths}
        if self.kill.has_all_sources:
            request |= {"recoverCamera": True, "recoverSystemAudio": True, "recoverMicrophone": True}
        answer = self.kill.desktop.host.run("recover-recording", request=request)
        tracks = {track["id"]: track for track in answer["tracks"]}
        for path in (tracks["screen"]["path"], answer["deliverables"][0]["path"]):
            count = packets(pathlib.Path(path))
            require(count == self.pictures, f"{count} pictures of {self.pictures} were recovered")
        wanted = {"screen", "camera", "system-audio", "microphone"} if self.kill.has_all_sources else {"screen"}
        require(set(tracks) == wanted, f"recovered were {', '.join(tracks)}")
        self.is_recovered = True


class Campaign:
    """Kills in several threads, whose results it gathers."""

    def __init__(self, desktop, folder, kept, count):
        self.desktop, self.folder, self.kept = desktop, folder, kept
        self.display = desktop.host.run("list")["displays"][0]["id"]
        self.left = [order[i % len(order)] for i in range(count)]
        random.shuffle(self.left)
        self.lock = threading.Lock()
        self.checked, self.failures = [], []

    def run(self, parallel):
        threads = [threading.Thread(target=self._work) for _ in range(parallel)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def _work(self):
        while True:
            with self.lock:
                if not self.left:
                    return
                moment = self.left.pop()
                has_all_sources = len(self.left) % 3 == 0
            kill = None
            try:
                kill = Kill(self.desktop, self.folder, self.display, moment, has_all_sources)
                result = Checked(kill)
                with self.lock:
                    self.checked.append(result)
                shutil.rmtree(kill.directory)
            except Exception as failure:  # pylint: disable=broad-except
                if kill:
                    shutil.copytree(kill.directory, self.kept / kill.directory.name)
                where = kill.directory.name if kill else "not killed"
                sources = " of all sources" if has_all_sources else ""
                with self.lock:
                    self.failures.append(f"{where}: {moment}{sources}: {type(failure).__name__}: {failure}")


def run(build, report, count=210, parallel=8):
    seed = random.randrange(1 << 32)
    random.seed(seed)
    with Studio(build, "--style", "override", "--size", "320x240", "--at", "0,0", "--paint", "counter", "--fps",
                str(FRAME_RATE)) as desktop, scratch() as folder:
        campaign = Campaign(desktop, folder, build / "kills", count)
        campaign.run(parallel)
    losses = {False: [], True: []}
    for result in campaign.checked:
        if result.loss is not None:
            recorded = result.kill.killed - result.kill.started
            losses[recorded >= FRAGMENTS[0] + SLACK].append(result.loss)
    report.line("recordings killed", len(campaign.checked) + len(campaign.failures), f">={count}", f"seed {seed}")
    report.line("of them not in order", len(campaign.failures), 0)
    for failure in campaign.failures:
        report.note("", failure)
    for late, bound in ((False, FRAGMENTS[0] + SLACK), (True, FRAGMENTS[1] - FRAGMENTS[0] + SLACK)):
        if losses[late]:
            report.line(f"worst loss {'later' if late else 'in the first seconds'}, s", max(losses[late]), bound,
                        f"median {statistics.median(losses[late]):.2f} s of {len(losses[late])}")
    report.note("recovered", str(sum(result.is_recovered for result in campaign.checked)))
