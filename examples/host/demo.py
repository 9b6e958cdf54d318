#!/usr/bin/env python3
"""The main job, once through: list, a still, and a recording that is paused, resumed and stopped.

Usage: demo.py BUILD-FOLDER

Uses the desktop that is there; without one it starts a private desktop with an animated window.
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import uuid

from tessarin_host import Host, JobFailed


def start_private_desktop(build):
    """An X server, a window manager and an animated window, alive until our end of its input closes."""
    child = subprocess.Popen([build / "tests/desktop/tessarin-private-desktop"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             text=True)
    display = child.stdout.readline().strip().removeprefix("DISPLAY=")
    if not display:
        sys.exit("The private desktop did not start.")
    return child, display


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    program = str(build / "tessarin-native")
    environment = dict(os.environ)
    desktop = None
    try:
        Host(program, environment).run("list")
        print(f"Recording the desktop on {environment.get('DISPLAY')}.")
    except JobFailed:
        desktop, environment["DISPLAY"] = start_private_desktop(build)
        print(f"No desktop here: recording a private one on {environment['DISPLAY']}.")

    try:
        demonstrate(Host(program, environment))
    finally:
        if desktop is not None:
            desktop.stdin.close()
            desktop.wait(10)


def demonstrate(host):
    context = host.run("list")
    display = next(d for d in context["displays"] if d["isPrimary"])
    print(f"{len(context['displays'])} displays, {len(context['windows'])} windows, "
          f"{len(context['uiElements'])} desktop elements")

    session = str(uuid.uuid4()).upper()
    directory = pathlib.Path(tempfile.mkdtemp(prefix="tessarin-demo-")) / session
    directory.mkdir()

    still = host.run("capture", request={
        "kind": "display", "displayId": display["id"], "rectPoints": display["framePoints"],
        "outputPath": str(directory.parent / "still.png")})
    print(f"Still: {still['path']} ({still['widthPixels']} x {still['heightPixels']})")

    request = {
        "sessionId": session, "kind": "display", "displayId": display["id"],
        "rectPoints": display["framePoints"], "outputDirectory": str(directory),
        "settings": {"microphone": False, "systemAudio": False, "camera": False, "cameraPosition": "bottomRight",
                     "showsCursor": True, "showMouseClicks": False, "frameRate": 30, "quality": "high",
                     "outputScale": "original"}}
    with host.record(request) as recording:
        recording.wait_for("recording")
        print("Recording for three seconds ...")
        time.sleep(3)
        recording.send("pause")
        recording.wait_for("paused")
        print("Paused; this second is not in the result ...")
        time.sleep(1)
        recording.send("resume")
        recording.wait_for("recording")
        print("Recording for two seconds more ...")
        time.sleep(2)
        recording.send("stop")
        completed = recording.finish()
    for track in completed["tracks"]:
        print(f"Track {track['id']}: {track['path']} ({track['durationMs']} ms)")
    for deliverable in completed["deliverables"]:
        print(f"To share: {deliverable['path']} ({deliverable['durationMs']} ms, {deliverable['sizeBytes']} bytes)")


if __name__ == "__main__":
    main()
