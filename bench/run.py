#!/usr/bin/env python3
"""Measures the program against peers on this machine.

Usage: run.py BUILD-FOLDER [name...]   names: stills, recording, still-screen, stop, session, loaded, trace, index,
worker, voice, export, waveform, cut, pixels; stop-long and session-long, which record for ten minutes; kills, which
kills two hundred recordings; servers, in which the servers of recordings die; worker-long, with ten thousand requests.
Default all but the last five. Prints a line a figure: a ratio or a share, its bound, and whether it holds.
Exits with 1 when a bound is missed.
"""
import pathlib
import sys

import editing
import kills
import pixels
import recording
import servers
import session
import stills
import tracing
import voice
import worker
from harness import Report

benches = {
    "stills": stills.run,
    "recording": recording.run,
    "still-screen": recording.run_still_screen,
    "stop": lambda build, report: recording.run_stop(build, report, seconds=60),
    "session": lambda build, report: session.run(build, report, seconds=60),
    "loaded": session.run_loaded,
    "trace": tracing.run,
    "index": tracing.run_index,
    "worker": worker.run,
    "voice": voice.run,
    "export": editing.run,
    "waveform": editing.run_sound,
    "cut": editing.run_cut,
    "pixels": pixels.run,
    "worker-long": worker.run_endurance,
    "stop-long": lambda build, report: recording.run_stop(build, report, seconds=600),
    "session-long": lambda build, report: session.run(build, report, seconds=600),
    "kills": kills.run,
    "servers": servers.run,
}
by_name_only = ("stop-long", "session-long", "kills", "servers", "worker-long")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    names = sys.argv[2:] or [name for name in benches if name not in by_name_only]
    unknown = [name for name in names if name not in benches]
    if unknown:
        sys.exit(f"no such benchmark: {' '.join(unknown)} (there are {', '.join(benches)})")
    report = Report()
    for name in names:
        benches[name](build, report)
    sys.exit(1 if report.missed else 0)


if __name__ == "__main__":
    main()
