"""Cold processes: list and stills of a 1920x1080 screen, against the common still tools."""
import base64
import json
import pathlib

from harness import Desktop, full_screen, in_turns, scratch, timed


def run(build, report, rounds=15):
    program = str(build / "tessarin-native")
    for content, peer, bound in (("text", "scrot", 0.6), ("photo", "maim", 0.4)):
        with Desktop(build) as desktop, scratch() as folder:
            desktop.client("--paint", content, *full_screen)
            picture = pathlib.Path(folder) / "still.png"
            display = desktop.host.run("list")["displays"][0]
            request = base64.b64encode(json.dumps({
                "kind": "display", "displayId": display["id"], "rectPoints": display["framePoints"],
                "outputPath": str(picture)}).encode()).decode()

            def wall(*command):
                def once():
                    (pathlib.Path(folder) / "peer.png").unlink(missing_ok=True)
                    return timed(command, desktop.environment).wall
                return once

            peer_command = (["scrot", f"{folder}/peer.png"] if peer == "scrot"
                            else ["maim", "-m", "1", f"{folder}/peer.png"])
            ours, theirs, listing = in_turns(
                rounds, wall(program, "capture", "--request-json", request), wall(*peer_command),
                wall(program, "list"))
            report.line(f"capture, {content} screen, cold / {' '.join(peer_command[:-1])}", ours / theirs, bound,
                        f"{ours * 1000:.1f} ms against {theirs * 1000:.1f} ms")
            if peer == "scrot":
                report.line("list, cold / scrot", listing / theirs, 0.2, f"{listing * 1000:.1f} ms")
