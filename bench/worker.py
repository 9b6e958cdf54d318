"""The warm process against cold ones, and its footprint through thousands of requests."""
import base64
import json
import pathlib
import shutil
import subprocess
import time
import uuid

from harness import Desktop, full_screen, in_turns, scratch, timed


class Worker:
    """A `capture-worker`; one request, one response."""

    def __init__(self, build, environment):
        self.process = subprocess.Popen([build / "tessarin-native", "capture-worker"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, env=environment)
        assert json.loads(self.process.stdout.readline())["ready"]

    def ask(self, *arguments):
        request = {"schemaVersion": 1, "requestId": str(uuid.uuid4()), "arguments": arguments}
        self.process.stdin.write(json.dumps(request).encode() + b"\n")
        self.process.stdin.flush()
        response = json.loads(self.process.stdout.readline())
        assert response["ok"] and response["requestId"] == request["requestId"], response
        return response["data"]

    def list(self):
        return self.ask("list", "--exclude-parent-application")

    def prepare(self, session):
        return self.ask(*preparation(session))

    def end(self):
        self.process.stdin.close()
        assert self.process.wait(10) == 0


def preparation(session):
    request = {"schemaVersion": 1, "sessionId": session.name, "directory": str(session)}
    return ["prepare-capture", "--request-json", base64.b64encode(json.dumps(request).encode()).decode()]


def fresh(folder):
    session = pathlib.Path(folder) / str(uuid.uuid4())
    session.mkdir()
    return session


def footprint(pid):
    """Resident, proportional and private memory in kilobytes, and open descriptors."""
    sizes = {}
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]:
        name, value = line.split()[:2]
        sizes[name.rstrip(":")] = int(value)
    return {"rss": sizes["Rss"], "pss": sizes["Pss"], "private": sizes["Private_Dirty"] + sizes["Private_Clean"],
            "descriptors": len(list(pathlib.Path(f"/proc/{pid}/fd").iterdir()))}


def told(sizes):
    return (f"{sizes['rss'] / 1024:.1f} MB resident, {sizes['pss'] / 1024:.1f} MB proportional, "
            f"{sizes['private'] / 1024:.1f} MB private, {sizes['descriptors']} descriptors")


def run(build, report, rounds=15):
    program = str(build / "tessarin-native")
    for content in ("text", "photo"):
        with Desktop(build) as desktop, scratch() as folder:
            desktop.client("--paint", content, *full_screen)
            worker = Worker(build, desktop.environment)
            started = footprint(worker.process.pid)

            def seconds(job):
                def once():
                    start = time.monotonic()
                    job()
                    return time.monotonic() - start
                return once

            def preparing(how):
                def once():
                    session = fresh(folder)
                    result = how(session)
                    shutil.rmtree(session)
                    return result
                return once

            def warm_preparation(session):
                return seconds(lambda: worker.prepare(session))()

            def cold_preparation(session):
                return timed([program, *preparation(session)], desktop.environment).wall

            warm, cold, warm_list, cold_list = in_turns(
                rounds, preparing(warm_preparation), preparing(cold_preparation), seconds(worker.list),
                lambda: timed([program, "list", "--exclude-parent-application"], desktop.environment).wall)
            report.line(f"prepare-capture, {content} screen, warm / cold", warm / cold, 0.6,
                        f"{warm * 1000:.1f} ms against {cold * 1000:.1f} ms")
            if content == "text":
                report.line("list, warm / cold", warm_list / cold_list, 0.8,
                            f"{warm_list * 1000:.2f} ms against {cold_list * 1000:.1f} ms")
                report.note("worker, ready", told(started))
                report.note("worker, behind some requests", told(footprint(worker.process.pid)))
            worker.end()


def run_endurance(build, report, requests=10_000):
    """Of ten requests one is a preparation."""
    with Desktop(build) as desktop, scratch() as folder:
        desktop.client("--paint", "photo", "--size", "640x480", "--at", "40,40")
        worker = Worker(build, desktop.environment)

        def serve(count):
            for number in range(count):
                if number % 10:
                    worker.list()
                else:
                    session = fresh(folder)
                    worker.prepare(session)
                    shutil.rmtree(session)

        serve(200)
        before = footprint(worker.process.pid)
        start = time.monotonic()
        serve(requests)
        elapsed = time.monotonic() - start
        after = footprint(worker.process.pid)
        worker.end()
        report.line(f"worker, resident memory behind {requests} requests / before", after["rss"] / before["rss"], 1.03,
                    f"{told(before)}; then {told(after)}; {elapsed * 1000 / requests:.2f} ms a request")
        report.line("worker, descriptors more than before", after["descriptors"] - before["descriptors"], 0)
