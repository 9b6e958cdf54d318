"""Recording a 1920x1080 screen: processor time, delivery, memory, and the time from stop to completed."""
import os
import pathlib
import shutil
import subprocess
import threading
import time
import uuid

from harness import Desktop, full_screen, processor_seconds, resident_megabytes, scratch


def request_for(display, directory, frame_rate, settings):
    return {
        "sessionId": directory.name, "kind": "display", "displayId": display["id"],
        "rectPoints": display["framePoints"], "outputDirectory": str(directory),
        "settings": {"microphone": False, "systemAudio": False, "camera": False, "cameraPosition": "bottomRight",
                     "showsCursor": True, "showMouseClicks": False, "frameRate": frame_rate,
                     "quality": "standard", "outputScale": "original", **settings}}


def session_directory(folder):
    directory = pathlib.Path(folder) / str(uuid.uuid4()).upper()
    directory.mkdir()
    return directory


class Measured:
    """What one recording of ours cost and said."""


def record(desktop, folder, seconds, frame_rate, settings=None, look=None):
    """Records the first display of a desktop (or anything with a host); settings go over the plain ones. A look is
    called with the process and whether this is the beginning or the end of what is measured."""
    display = desktop.host.run("list")["displays"][0]
    directory = session_directory(folder)
    result = Measured()
    with desktop.host.record(request_for(display, directory, frame_rate, settings or {})) as recording:
        recording.wait_for("recording")
        pid = recording.process.pid
        if look:
            look(pid, True)
        before, start = processor_seconds(pid), time.monotonic()
        memory = []
        while time.monotonic() - start < seconds:
            time.sleep(min(1, seconds / 10))
            memory.append(resident_megabytes(pid))
        elapsed = time.monotonic() - start
        result.share = (processor_seconds(pid) - before) / elapsed
        if look:
            look(pid, False)
        result.memory = memory
        stopped = time.monotonic()
        recording.send("stop")
        while (event := recording.next_event(600)) is not None and event["event"] != "completed":
            if event["event"] == "failed":
                raise RuntimeError(f"the recording failed: {event}\n" + "\n".join(recording.diagnostics))
        result.stop_seconds = time.monotonic() - stopped
        result.completed = event
        recording.process.wait(60)
        for reader in recording.readers:
            reader.join(10)
        result.summary = dict(item.split("=", 1) for line in recording.diagnostics
                              if " recording-summary " in line for item in line.split()[2:])
    result.path = pathlib.Path(event["deliverables"][0]["path"])
    result.directory = directory
    return result


def frame_numbers(path):
    """The frame counter's value in each picture of a recording: 4 rows of 10 blocks of 16 by 16 pixels, the number's
    32 bits and 8 bits of checksum, from the top left corner."""
    done = subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), "-vf", "crop=160:64:0:0,scale=10:4:flags=area",
                           "-fps_mode", "passthrough", "-pix_fmt", "gray", "-f", "rawvideo", "-"],
                          capture_output=True, check=True)
    numbers = []
    for start in range(0, len(done.stdout), 40):
        bits = int("".join("1" if value > 127 else "0" for value in done.stdout[start:start + 40]), 2)
        number, checksum = bits >> 8, bits & 0xFF
        expected = 0xA5 ^ (number & 0xFF) ^ (number >> 8 & 0xFF) ^ (number >> 16 & 0xFF) ^ (number >> 24 & 0xFF)
        if checksum != expected:
            raise RuntimeError(f"picture {start // 40} of {path} has no readable counter")
        numbers.append(number)
    return numbers


def simplescreenrecorder(desktop, folder, seconds, frame_rate, kilobits):
    """The processor share of the peer, recording the same screen with the same coder at the same preset and rate."""
    home = pathlib.Path(folder) / "home"
    home.mkdir(exist_ok=True)
    settings = home / "settings.conf"
    settings.write_text(
        "[welcome]\nskip_page=true\n"
        f"[input]\nvideo_area=screen\nvideo_area_screen=0\nvideo_frame_rate={frame_rate}\nvideo_scale=false\n"
        "video_record_cursor=true\naudio_enabled=false\n"
        f"[output]\nfile={folder}/peer.mkv\nseparate_files=false\nadd_timestamp=false\ncontainer=mkv\n"
        f"video_codec=other\nvideo_codec_av=libx264\nvideo_kbit_rate={kilobits}\n"
        f"video_options=\"preset=veryfast,g={frame_rate},bf=0\"\nvideo_allow_frame_skipping=true\n"
        "[record]\nhotkey_enable=false\n")
    (pathlib.Path(folder) / "peer.mkv").unlink(missing_ok=True)
    runtime = home / "runtime"
    runtime.mkdir(mode=0o700, exist_ok=True)
    environment = {**desktop.environment, "HOME": str(home), "XDG_RUNTIME_DIR": str(runtime)}
    child = subprocess.Popen(["simplescreenrecorder", f"--settingsfile={settings}", f"--logfile={home}/log",
                              "--start-hidden", "--no-systray"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, env=environment, text=True)
    try:
        time.sleep(2)
        child.stdin.write("record-start\n")
        child.stdin.flush()
        time.sleep(1.5)
        before, start = processor_seconds(child.pid), time.monotonic()
        time.sleep(seconds)
        share = (processor_seconds(child.pid) - before) / (time.monotonic() - start)
        child.stdin.write("record-save\n")
        child.stdin.flush()
        time.sleep(2)
        if not (pathlib.Path(folder) / "peer.mkv").stat().st_size:
            raise RuntimeError("simplescreenrecorder recorded nothing")
        return share
    finally:
        child.kill()
        child.wait(10)


def run(build, report, seconds=20, frame_rate=60):
    with Desktop(build) as desktop, scratch() as folder:
        desktop.client("--paint", "counter", "--fps", str(frame_rate), *full_screen)
        peer = simplescreenrecorder(desktop, folder, seconds, frame_rate, 12442)
        ours = record(desktop, folder, seconds, frame_rate)
        again = simplescreenrecorder(desktop, folder, seconds, frame_rate, 12442)
        theirs = (peer + again) / 2
        report.line(f"recording 1080p{frame_rate}, processor share / simplescreenrecorder", ours.share / theirs, 1.0,
                    f"{ours.share * 100:.1f} % of a core against {theirs * 100:.1f} %")
        report.line("delivery, permille", int(ours.summary["videoDeliveryPermille"]), ">=995")
        numbers = frame_numbers(ours.path)
        steps = [b - a for a, b in zip(numbers, numbers[1:])]
        doubles, holes = sum(s == 0 for s in steps), sum(s > 1 for s in steps)
        report.note("frame counter", f"{len(numbers)} pictures, {doubles} doubles, {holes} holes")
        half = len(ours.memory) // 2
        growth = max(ours.memory[half:]) / max(ours.memory[:half][-3:])
        report.line("memory, second half / end of first half", growth, 1.05, f"{ours.memory[-1]:.0f} MB")


def run_still_screen(build, report, seconds=20):
    with Desktop(build) as desktop, scratch() as folder:
        desktop.client("--paint", "text", *full_screen)
        ours = record(desktop, folder, seconds, 60)
        report.line("still screen 1080p60, share of one core", ours.share, 0.03,
                    f"{ours.summary['screenFrames']} pictures")


def run_stop(build, report, seconds):
    """Stop to completed, against plain copies of the same bytes (one for each file that a stop makes)."""
    with Desktop(build) as desktop, scratch() as folder:
        desktop.client("--paint", "counter", "--fps", "60", *full_screen)
        ours = record(desktop, folder, seconds, 60)
        segment = ours.directory / "segments/segment-0000.mp4"
        os.sync()
        start = time.monotonic()
        copies = [threading.Thread(target=shutil.copyfile, args=(segment, pathlib.Path(folder) / f"copy-{i}"))
                  for i in range(2)]
        for copy in copies:
            copy.start()
        for copy in copies:
            copy.join()
        for i in range(2):
            with open(pathlib.Path(folder) / f"copy-{i}", "rb") as file:
                os.fsync(file.fileno())
        plain = time.monotonic() - start
        megabytes = segment.stat().st_size / 1e6
        report.line(f"stop of {seconds} s / two plain copies of its {megabytes:.0f} MB", ours.stop_seconds / plain,
                    1.5, f"{ours.stop_seconds:.2f} s against {plain:.2f} s")
        duration = ours.completed["clock"]["programDurationMs"]
        report.note("its program duration", f"{duration} ms")
        if seconds >= 600:
            memory = ours.memory
            report.line("memory, last minute / second minute", max(memory[-60:]) / max(memory[60:120]), 1.05,
                        f"{memory[-1]:.0f} MB")
