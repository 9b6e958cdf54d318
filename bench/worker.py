"""The warm process against cold ones, and its footprint through thousands of requests."""
import pathlib
import shutil
import statistics
import time
import uuid

from harness import Desktop, full_screen, in_turns, scratch, timed
from tessarin_host import request_arguments

listing = ["list", "--exclude-parent-application"]


def request_for(session):
    return {"schemaVersion": 1, "sessionId": session.name, "directory": str(session)}


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


def prepare(worker, session):
    worker.run("prepare-capture", request=request_for(session))


def run(build, report, rounds=15):
    program = str(build / "tessarin-native")
    for content in ("text", "photo"):
        with Desktop(build) as desktop, scratch() as folder, desktop.host.worker() as worker:
            desktop.client("--paint", content, *full_screen)
            started = footprint(worker.process.pid)

            def warm_preparation():
                session = fresh(folder)
                start = time.monotonic()
                prepare(worker, session)
                elapsed = time.monotonic() - start
                shutil.rmtree(session)
                return elapsed

            def cold_preparation():
                session = fresh(folder)
                command = [program, "prepare-capture", *request_arguments(request_for(session))]
                elapsed = timed(command, desktop.environment).wall
                shutil.rmtree(session)
                return elapsed

            # One takes about as long as it takes to get a processor on a machine that is at work.
            def warm_listing(count=50):
                times = []
                for _ in range(count):
                    start = time.monotonic()
                    worker.run(*listing)
                    times.append(time.monotonic() - start)
                return statistics.median(times)

            def cold_listing():
                return timed([program, *listing], desktop.environment).wall

            warm, cold, warm_list, cold_list = in_turns(rounds, warm_preparation, cold_preparation, warm_listing,
                                                        cold_listing)
            report.line(f"prepare-capture, {content} screen, warm / cold", warm / cold, 0.6,
                        f"{warm * 1000:.1f} ms against {cold * 1000:.1f} ms")
            if content == "text":
                report.line("list, warm / cold", warm_list / cold_list, 0.5,
                            f"{warm_list * 1000:.2f} ms against {cold_list * 1000:.1f} ms")
                report.note("worker, ready", told(started))
                report.note("worker, behind some requests", told(footprint(worker.process.pid)))


def run_endurance(build, report, requests=10_000):
    """Of ten requests one is a preparation."""
    with Desktop(build) as desktop, scratch() as folder, desktop.host.worker() as worker:
        desktop.client("--paint", "photo", "--size", "640x480", "--at", "40,40")

        def serve(count):
            for number in range(count):
                if number % 10:
                    worker.run(*listing)
                else:
                    session = fresh(folder)
                    prepare(worker, session)
                    shutil.rmtree(session)

        serve(200)
        before = footprint(worker.process.pid)
        start = time.monotonic()
        serve(requests)
        elapsed = time.monotonic() - start
        after = footprint(worker.process.pid)
        report.line(f"worker, resident memory behind {requests} requests / before", after["rss"] / before["rss"], 1.03,
                    f"{told(before)}; then {told(after)}; {elapsed * 1000 / requests:.2f} ms a request")
        report.line("worker, descriptors more than before", after["descriptors"] - before["descriptors"], 0)
