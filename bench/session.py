"""Sessions with all four sources: screen, computer's sound, microphone and camera on a private desktop with sound."""
import os
import pathlib
import re
import subprocess
import threading
import time

import recording
from harness import Host, scratch


class Studio:
    """A private desktop with an animated window, a sound server, a microphone that hears a tone and a camera. With
    an interval, the window turns white that often, and a beep is played at the same moment."""

    def __init__(self, build, *client, flash_interval=0):
        command = [build / "tests/desktop/tessarin-private-desktop", "--sound"]
        if flash_interval:
            command += ["--flash-and-beep", str(flash_interval)]
        self.process = subprocess.Popen([*command, "--", *client], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.environment = dict(os.environ)
        for line in self.process.stdout:
            if line.strip() == "ready":
                break
            name, value = line.rstrip("\n").split("=", 1)
            self.environment[name] = value
        else:
            raise RuntimeError("the private desktop did not start")
        self.host = Host(str(build / "tessarin-native"), self.environment)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait(20)


def coding_seconds(path, frame_rate):
    """Processor seconds that coding the pictures of a file takes with the recorder's first preset: a transcode's less
    a decoding's."""
    def cost(*output):
        before = os.times()
        subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), *output, "-f", "null", "-"], check=True,
                       stdin=subprocess.DEVNULL)
        after = os.times()
        return after.children_user + after.children_system - before.children_user - before.children_system
    coded = cost("-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", str(frame_rate), "-b:v", "3M")
    return coded - cost()


def plain_copies(paths, folder):
    """Seconds that it takes to copy the files, all at once, until they are on the disk."""
    def copy(path, number):
        target = pathlib.Path(folder) / f"copy-{number}"
        with open(path, "rb") as source, open(target, "wb") as sink:
            while os.copy_file_range(source.fileno(), sink.fileno(), 1 << 30):
                pass
            os.fsync(sink.fileno())
    os.sync()
    start = time.monotonic()
    threads = [threading.Thread(target=copy, args=(path, number)) for number, path in enumerate(paths)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return time.monotonic() - start


def run(build, report, seconds):
    frame_rate = 30
    with Studio(build, flash_interval=2) as studio, scratch() as folder:
        plain_seconds = min(seconds, 30)
        plain = recording.record(studio, folder, plain_seconds, frame_rate)
        ours = recording.record(studio, folder, seconds, frame_rate,
                                {"microphone": True, "systemAudio": True, "camera": True})
        tracks = {track["id"]: pathlib.Path(track["path"]) for track in ours.completed["tracks"]}
        camera_share = coding_seconds(tracks["camera"], frame_rate) / seconds
        what = f"{seconds} s of 1080p{frame_rate} with all sources"
        report.line(f"{what}, delivery, permille", int(ours.summary["videoDeliveryPermille"]), ">=990")
        report.line("largest audio queue, ms", int(ours.summary["maxAudioQueueMs"]), 100)
        report.line("processor time / (1.0 x screen only + camera's coding)", (ours.share - camera_share) / plain.share,
                    1.3, f"{ours.share * 100:.1f} % of a core; screen only {plain.share * 100:.1f} %, coding the camera's "
                    f"picture {camera_share * 100:.1f} %")
        report.note("drifts", ", ".join(f"{name} {ours.summary[name]}" for name in
                                        ("systemAudioDriftMs", "microphoneDriftMs", "cameraDriftMs")))
        files = [*(path for name, path in tracks.items() if name != "interaction-events"), ours.path]
        size = sum(path.stat().st_size for path in files) / 1e6
        copied = plain_copies(files, folder)
        report.line(f"stop / plain copies of the same {size:.0f} MB", ours.stop_seconds / copied, 1.5,
                    f"{ours.stop_seconds:.2f} s against {copied:.2f} s")
        half = len(ours.memory) // 2
        report.line("memory, end / middle", max(ours.memory[-3:]) / max(ours.memory[half - 3:half]), 1.05,
                    f"{ours.memory[-1]:.0f} MB")
        sync = subprocess.run([pathlib.Path(__file__).resolve().parent.parent / "tools/av-sync", ours.path],
                              capture_output=True, text=True, check=True).stdout
        pairs, worst = re.search(r"pairs (\d+) worst ([\d.]+)", sync).groups()
        report.line("flash and beep apart, worst, ms", float(worst), 40, f"{pairs} pairs")
        report.note("the first and the last of them, ms", ", ".join(
            line.split()[1] for line in (sync.splitlines()[0], sync.splitlines()[-2])))


def run_loaded(build, report, seconds=20, frame_rate=60):
    """An animated full screen at 60 pictures a second with all sources, while two other processes never rest."""
    with Studio(build, "--paint", "counter", "--fps", "60", "--style", "override", "--size", "1920x1080", "--at",
                "0,0") as studio, scratch() as folder:
        load = [subprocess.Popen(["sh", "-c", "while :; do :; done"], stdin=subprocess.DEVNULL) for _ in range(2)]
        try:
            ours = recording.record(studio, folder, seconds, frame_rate,
                                    {"microphone": True, "systemAudio": True, "camera": True})
        finally:
            for process in load:
                process.kill()
                process.wait()
        numbers = recording.frame_numbers(ours.path)
        different = len(set(numbers)) / seconds
        report.line("under load, program duration / wall time",
                    ours.completed["clock"]["programDurationMs"] / ours.completed["clock"]["captureDurationMs"], ">=0.98")
        report.line("largest audio queue, ms", int(ours.summary["maxAudioQueueMs"]), 500,
                    f"{different:.0f} different pictures a second of {frame_rate}, delivery "
                    f"{ours.summary['videoDeliveryPermille']} permille, {ours.share * 100:.0f} % of a core")
