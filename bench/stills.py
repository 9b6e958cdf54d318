"""List, stills and the preparation of captures on a 1920x1080 screen, by cold processes and by a worker that runs,
against the common still tools; and how their parts grow with pixels, windows and displays."""
import base64
import json
import pathlib
import shutil
import subprocess
import time
import uuid

from harness import Desktop, full_screen, in_turns, scratch, timed


def encoded(request):
    return base64.b64encode(json.dumps(request).encode()).decode()


class Worker:
    """A capture worker, asked one request at a time."""

    def __init__(self, program, environment, folder):
        self.folder = pathlib.Path(folder)
        self.process = subprocess.Popen([program, "capture-worker"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        env=environment)
        if json.loads(self.process.stdout.readline()) != {"schemaVersion": 1, "ready": True}:
            raise RuntimeError("the worker does not say that it is ready")

    def ask(self, *arguments):
        """Yields the seconds from the request to its whole answer, and the answer's data."""
        line = json.dumps({"schemaVersion": 1, "requestId": str(uuid.uuid4()), "arguments": arguments}) + "\n"
        start = time.monotonic()
        self.process.stdin.write(line.encode())
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        seconds = time.monotonic() - start
        answer = json.loads(answer)
        if not answer["ok"]:
            raise RuntimeError(f"the worker failed: {answer}")
        return seconds, answer["data"]

    def list(self):
        return self.ask("list", "--exclude-parent-application")[0]

    def prepare(self):
        """Yields the seconds, the answer's data, and the bytes of all files, which are removed again."""
        session = str(uuid.uuid4())
        directory = self.folder / session
        directory.mkdir()
        request = encoded({"schemaVersion": 1, "sessionId": session, "directory": str(directory)})
        seconds, data = self.ask("prepare-capture", "--request-json", request)
        size = sum(pathlib.Path(each["image"]["path"]).stat().st_size for each in data["captures"])
        shutil.rmtree(directory)
        return seconds, data, size

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait(10)


def run(build, report, rounds=30):
    program = str(build / "tessarin-native")
    for content, peer, bound, prepared_bound in (("text", "scrot", 0.6, 0.3), ("photo", "maim", 0.4, 0.25)):
        with Desktop(build) as desktop, scratch() as folder, Worker(program, desktop.environment, folder) as worker:
            desktop.client("--paint", content, *full_screen)
            picture = pathlib.Path(folder) / "still.png"
            display = desktop.host.run("list")["displays"][0]
            peer_picture = pathlib.Path(folder) / "peer.png"

            def capture(path):
                return (program, "capture", "--request-json",
                        encoded({"kind": "display", "displayId": display["id"], "rectPoints": display["framePoints"],
                                 "outputPath": str(path)}))

            # To new names; a file system may take its time to put other bytes into a file.
            def wall(*command):
                def once():
                    for file in (picture, peer_picture):
                        file.unlink(missing_ok=True)
                    return timed(command, desktop.environment).wall
                return once

            peer_command = ["scrot", str(peer_picture)] if peer == "scrot" else ["maim", "-m", "1", str(peer_picture)]
            ours, over, theirs, listing, prepared, listed = in_turns(
                rounds, wall(*capture(picture)), wall(*capture(pathlib.Path(folder) / "again.png")),
                wall(*peer_command), wall(program, "list"), lambda: worker.prepare()[0], worker.list)
            name = " ".join(peer_command[:-1])
            report.line(f"capture, {content} screen, cold / {name}", ours / theirs, bound,
                        f"{ours * 1000:.1f} ms against {theirs * 1000:.1f} ms")
            report.note(f"capture, {content} screen, cold, into the same file again", f"{over * 1000:.1f} ms")
            report.line(f"prepare-capture, {content} screen, by a worker / {name}", prepared / theirs, prepared_bound,
                        f"{prepared * 1000:.1f} ms")
            if peer == "scrot":
                report.line("list, cold / scrot", listing / theirs, 0.2, f"{listing * 1000:.1f} ms")
                report.line("list, by a worker / scrot", listed / theirs, 0.1, f"{listed * 1000:.1f} ms")
    run_growth(build, report)


def run_growth(build, report, rounds=30):
    """Of preparations by a worker: each part's share, with 1 to 16 displays, many windows and many pixels."""
    cases = [(width, height, paint, 1, 0) for width, height in ((1920, 1080), (3840, 2160))
             for paint in ("text", "photo")]
    cases += [(7680, 2160, "photo", 2, 0), (7680, 2160, "text", 2, 0)]
    cases += [(1920, 1080, "text", displays, 0) for displays in (2, 4, 8, 16)]
    cases += [(1920, 1080, "text", 1, windows) for windows in (10, 40, 80)]
    for width, height, paint, displays, windows in cases:
        with Desktop(build, width, height) as desktop, scratch() as folder:
            desktop.client("--paint", paint, "--style", "override", "--size", f"{width}x{height}", "--at", "0,0")
            for number in range(windows):
                desktop.client("--size", "200x150", "--at", f"{number * 20},{number * 10}")
            if displays > 1:
                for number in range(displays):
                    part = width // displays
                    subprocess.run(["xrandr", "--setmonitor", f"m{number}",
                                    f"{part}/300x{height}/200+{number * part}+0",
                                    "screen" if number == 0 else "none"], env=desktop.environment, check=True,
                                   stdout=subprocess.DEVNULL)
            with Worker(str(build / "tessarin-native"), desktop.environment, folder) as worker:
                total, discovery, captures = in_turns(
                    rounds, lambda: worker.prepare()[0], lambda: worker.prepare()[1]["discoveryMs"],
                    lambda: worker.prepare()[1]["captureMs"])
            words = subprocess.run([build / "bench/tessarin-bench-still", str(rounds), folder], capture_output=True,
                                   text=True, check=True, env=desktop.environment).stdout.split()
            part = dict(zip(words[::2], map(float, words[1::2])))
            name = f"{width}x{height} {paint}, {displays} displays, {windows + 1} windows"
            report.note(name, f"{total * 1000:.1f} ms: discovery {discovery:.1f}, captures {captures:.1f}; apart: "
                              + ", ".join(f"{each} {part[each] / 1000:.2f}"
                                          for each in ("discovery", "grab", "encode", "write")))
            least = part["copy"] + part["library1"] + part["write"]
            ours = part["grab"] + part["encode"] + part["write"]
            report.note("", f"grab / copy {part['grab'] / part['copy']:.2f}, encode / library "
                            f"{part['encode'] / part['library1']:.2f} (level 1), "
                            f"{part['encode'] / part['library2']:.2f} (level 2), all / copy, level 1 and write "
                            f"{ours / least:.2f}; bytes {part['size']:.0f}, "
                            f"{part['library1Size']:.0f}, {part['library2Size']:.0f}")
