"""What frames are composed of, against a copy of the frame, and against the kernels that any processor runs."""
import subprocess

# How many copies of a frame of 1080p each may take: near twice of what was measured.
bounds = {
    "move": 2, "mirror": 5, "turn": 5, "zoom": 10, "zoom-slightly": 12, "shrink": 20, "shrink-to-a-quarter": 40,
    "rotate": 50, "blur-1": 20, "blur-3.9": 50, "blur-4": 25, "blur-27": 15, "blur-100": 12, "blur-12-of-400x200": 2,
    "mosaic-16": 6, "fill": 2, "gradient": 14, "lay-over": 4, "lay-over-masked": 6, "lay-over-faintly": 7,
    "lay-shadow": 4, "make-mask": 2, "make-shadow": 50, "frame": 50,
}


def run(build, report):
    lines = subprocess.run([build / "bench/tessarin-bench-pixels", "25"], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    figures = {name: [float(value) for value in values] for name, *values in map(str.split, lines)}
    if figures.keys() != bounds.keys():
        raise RuntimeError("other figures than expected: " + " ".join(figures.keys() ^ bounds.keys()))
    for name, (ours, plain, copy) in figures.items():
        report.line(f"{name} / a copy of the frame", ours / copy, bounds[name],
                    f"{ours / 1000:.2f} ms; plain kernels take {plain / ours:.1f} times as long")
