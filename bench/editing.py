"""Making edited films of a 1920x1080 recording, against ffmpeg with the same encoder and filters; and decoding
all of a film's sound.
"""
import os
import pathlib
import statistics
import subprocess
import time

from harness import scratch

# Of the exporter, told again to the peer.
video_coding = ["-c:v", "libx264", "-preset", "veryfast", "-crf", "18", "-g", "120", "-pix_fmt", "yuv420p"]
sound_coding = ["-c:a", "aac", "-b:a", "192k", "-ac", "2", "-ar", "48000"]
ffmpeg = ["ffmpeg", "-v", "error", "-nostdin", "-y"]


def make_source(path, seconds, rate):
    """Text that scrolls over a film, as recordings have it, and two tracks of sound."""
    subprocess.run(
        [*ffmpeg, "-f", "lavfi", "-i", f"testsrc2=s=1920x1080:r={rate}:d={seconds}",
         "-f", "lavfi", "-i", f"aevalsrc=0.3*sin(660*t)|0.3*sin(880*t):s=48000:d={seconds}",
         "-f", "lavfi", "-i", f"anoisesrc=a=0.1:r=48000:d={seconds}",
         "-map", "0", "-map", "1", "-map", "2", "-c:v", "libx264", "-preset", "veryfast", "-crf", "20", "-bf", "0",
         "-g", str(rate), "-pix_fmt", "yuv420p", *sound_coding, path], check=True)


class Run:
    """Wall and processor seconds and the greatest resident megabytes of one process."""

    def __init__(self, command):
        begin = time.monotonic()
        child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise RuntimeError(" ".join(map(str, command)))
        self.wall = time.monotonic() - begin
        self.processor = usage.ru_utime + usage.ru_stime
        self.megabytes = usage.ru_maxrss / 1024


def medians(rounds, ours, theirs):
    """Both in turns, each into a new file; the runs in the middle by wall time, and by processor time."""
    pairs = []
    for _ in range(rounds):
        pairs.append([])
        for command in (ours, theirs):
            output = pathlib.Path(command[1])
            output.unlink(missing_ok=True)
            pairs[-1].append(Run(command[0]))
    return [[statistics.median(getattr(pair[i], value) for pair in pairs) for i in (0, 1)]
            for value in ("wall", "processor")] + [max(pair[0].megabytes for pair in pairs)]


def compare(report, name, ours, theirs, frames, rounds=3):
    wall, processor, megabytes = medians(rounds, ours, theirs)
    report.line(f"{name} / ffmpeg", wall[0] / wall[1], 1.0,
                f"{frames / wall[0]:.0f} against {frames / wall[1]:.0f} frames a second, processor "
                f"{processor[0]:.1f} against {processor[1]:.1f} s")
    report.line(f"{name}, resident", megabytes, 350, unit=" MB")


def run(build, report, seconds=20):
    tool = [str(build / "bench/tessarin-bench-editing"), str(build / "modules")]
    with scratch() as folder:
        source, ours, theirs = (f"{folder}/{name}.mp4" for name in ("source", "ours", "theirs"))
        make_source(source, seconds, 60)
        length = str(seconds * 1000)
        filters = ("[0:v]setpts=PTS/{0},fps=60[v];[0:a:0]atempo={0}[a];[0:a:1]atempo={0}[b];"
                   "[a][b]amix=inputs=2:normalize=0[m]")
        for rate in ("1.5", "0.5"):
            compare(report, f"export at rate {rate}, 1080p60",
                    ([*tool, "export", source, ours, length, rate, "60", "2"], ours),
                    ([*ffmpeg, "-i", source, "-filter_complex", filters.format(rate), "-map", "[v]", "-map", "[m]",
                      *video_coding, *sound_coding, "-movflags", "+faststart", theirs], theirs),
                    seconds * 60 / float(rate))
        # Through pictures of red, green and blue, as a compositor takes and paints them.
        compare(report, "export through a compositor that copies, 1080p60",
                ([*tool, "paint", source, ours, length, "60"], ours),
                ([*ffmpeg, "-i", source, "-vf", "format=bgr0,format=yuv420p", "-an", *video_coding, "-movflags",
                  "+faststart", theirs], theirs), seconds * 60)


def run_sound(build, report, seconds=3600):
    with scratch() as folder:
        source = f"{folder}/source.mp4"
        subprocess.run(
            [*ffmpeg, "-f", "lavfi", "-i", f"color=s=64x64:r=1:d={seconds}",
             "-f", "lavfi", "-i", f"aevalsrc=0.3*sin(660*t)|0.3*sin(880*t):s=48000:d={seconds}",
             "-f", "lavfi", "-i", f"anoisesrc=a=0.1:r=48000:d={seconds}", "-map", "0", "-map", "1", "-map", "2",
             *sound_coding, "-aac_coder", "fast", source], check=True)
        command = [str(build / "bench/tessarin-bench-editing"), str(build / "modules"), "sound", source, "2"]
        walls = [Run(command).wall for _ in range(3)]
        wall = statistics.median(walls)
        report.line("sound of two tracks decoded, times real time", seconds / wall, ">=200",
                    f"{wall:.1f} s for {seconds} s")
