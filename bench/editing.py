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


def run(build, report, seconds=10):
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


def make_recording(path, folder, seconds):
    """As the recorder codes it: the same parameter sets, a key each second."""
    part = f"{folder}/part.mp4"
    subprocess.run(
        [*ffmpeg, "-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=60:d=20",
         "-f", "lavfi", "-i", "aevalsrc=0.3*sin(660*t)|0.3*sin(880*t):s=48000:d=20",
         "-f", "lavfi", "-i", "anoisesrc=a=0.1:r=48000:d=20", "-map", "0", "-map", "1", "-map", "2",
         "-c:v", "libx264", "-preset", "veryfast", "-b:v", "12.8M", "-pix_fmt", "yuv420p", "-g", "60",
         "-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace", "bt709", "-color_range", "tv",
         "-chroma_sample_location", "center",
         "-x264-params", "me=hex:subme=2:cabac=1:8x8dct=1:deblock=0,0:trellis=0:ref=1:bframes=0:weightp=0:"
         "scenecut=0:open-gop=0:keyint=60:slices=1:sliced-threads=0", *sound_coding, part], check=True)
    subprocess.run([*ffmpeg, "-stream_loop", str(seconds // 20 - 1), "-i", part, "-map", "0", "-c", "copy", path],
                   check=True)
    os.unlink(part)


def run_cut(build, report, seconds=600):
    """Three stretches of a long film, none of which begins at a key, against a copy by ffmpeg, which is not exact, and
    against coding all of it anew."""
    tool = [str(build / "bench/tessarin-bench-editing"), str(build / "modules")]
    with scratch() as folder:
        source, ours, theirs, stretches = (f"{folder}/{name}" for name in ("source.mp4", "ours.mp4", "theirs.mp4",
                                                                           "stretches.txt"))
        make_recording(source, folder, seconds)
        third = seconds * 1000 // 3
        cuts = [(i * third + 517, (i + 1) * third - 700) for i in range(3)]
        with open(stretches, "w", encoding="ascii") as file:
            for start, end in cuts:
                file.write(f"file '{source}'\ninpoint {start / 1000}\noutpoint {end / 1000}\n")
        bounds = [str(bound) for cut in cuts for bound in cut]
        wall, processor, megabytes = medians(
            3, ([*tool, "cut", source, ours, "2", *bounds], ours),
            ([*ffmpeg, "-f", "concat", "-safe", "0", "-i", stretches, "-map", "0", "-c", "copy", theirs], theirs))
        report.line("cut of ten minutes, 1080p60 / copy by ffmpeg", wall[0] / wall[1], 3.0,
                    f"{wall[0]:.2f} against {wall[1]:.2f} s for {os.path.getsize(source) / 1e6:.0f} MB, processor "
                    f"{processor[0]:.2f} against {processor[1]:.2f} s")
        report.line("cut, resident", megabytes, 350, unit=" MB")
        # Of a twentieth of the film, which takes as long for each second as the whole.
        part = seconds // 20
        os.unlink(ours)
        whole = Run([*tool, "export", source, ours, str(part * 1000), "1", "60", "2"]).wall * 20
        report.line("cut of ten minutes / coding it anew", wall[0] / whole, 0.02, f"{whole:.0f} s to code it anew")
