#!/usr/bin/env python3
"""The main job, once through: list, a still, a recording that is paused, resumed and stopped, and exports of it.

Usage: demo.py BUILD-FOLDER

Uses the desktop that is there, with what it plays but without its microphone and camera; without a desktop it starts
a private one with an animated window, a sound server, a microphone and a camera, and records them all.
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
    """A desktop with sound and a camera, alive until our end of its input closes, and the variables that name it."""
    child = subprocess.Popen([build / "tests/desktop/tessarin-private-desktop", "--flash-and-beep", "1"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    variables = {}
    for line in child.stdout:
        if line.strip() == "ready":
            return child, variables
        name, value = line.rstrip("\n").split("=", 1)
        variables[name] = value
    sys.exit("The private desktop did not start.")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    program = str(build / "tessarin-native")
    environment = dict(os.environ)
    desktop = None
    try:
        Host(program, environment).run("list")
        print(f"Recording the desktop on {environment.get('DISPLAY')}.")
    except JobFailed:
        desktop, variables = start_private_desktop(build)
        environment.update(variables)
        print(f"No desktop here: recording a private one on {environment['DISPLAY']}.")

    try:
        demonstrate(Host(program, environment), is_private=desktop is not None)
    finally:
        if desktop is not None:
            desktop.stdin.close()
            desktop.wait(10)


def demonstrate(host, is_private):
    context = host.run("list")
    display = next(d for d in context["displays"] if d["isPrimary"])
    print(f"{len(context['displays'])} displays, {len(context['windows'])} windows, "
          f"{len(context['uiElements'])} desktop elements")

    devices = host.run("recording-input-devices")
    for kind in ("microphones", "cameras"):
        print(f"{kind}: " + (", ".join(device["name"] for device in devices[kind]) or "none"))
    can_hear = host.run("microphone-status")["permission"] == "granted"  # there is a sound server that lets us in

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
        "settings": {"microphone": is_private and can_hear, "systemAudio": can_hear,
                     "camera": is_private and can_hear, "cameraPosition": "bottomRight",
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
    demonstrate_editing(host, session, directory, request["settings"])


def demonstrate_editing(host, session, directory, settings):
    """A cut, which codes next to nothing anew, and the same at twice the speed."""
    source = host.run("inspect-edit-source", request={
        "sessionId": session, "sourcePath": str(directory / "recording.mp4"),
        "expectedSystemAudio": settings["systemAudio"], "expectedMicrophone": settings["microphone"]})
    exports = directory / "exports"
    exports.mkdir()
    half = source["durationMs"] // 2
    for name, rate in (("cut", 1), ("fast", 2)):
        clips = [(500, half - 200), (half + 300, source["durationMs"] - 100)]
        exported = host.run("export-edit", request={
            "sessionId": session, "outputPath": str(exports / f"{name}.mp4"),
            "project": {
                "schemaVersion": 2, "revision": 0,
                "source": {**{key: source[key] for key in ("durationMs", "widthPixels", "heightPixels", "audioTracks")},
                           "sessionId": session, "path": source["sourcePath"]},
                "clips": [{"id": str(start), "sourceStartMs": start, "sourceEndMs": end, "rate": rate, "volume": 1,
                           "mutedRoles": []} for start, end in clips],
                "crop": {"x": 0, "y": 0, "width": 1, "height": 1}, "overlays": []}})
        print(f"Edited: {exported['outputPath']} ({exported['durationMs']} ms, {exported['sizeBytes']} bytes)")


if __name__ == "__main__":
    main()
