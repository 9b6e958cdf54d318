"""How fast a recorded voice is cleaned."""
import subprocess


def run(build, report):
    """Both passes on one thread, in seconds of sound a second of the processor; and the transform beside KissFFT's."""
    words = subprocess.run([build / "bench/tessarin-bench-voice"], capture_output=True, text=True, check=True).stdout.split()
    figures = dict(zip(words[::2], map(float, words[1::2])))
    report.line("cleaning a voice, both passes, times real time", figures["both"], ">=600",
                f"observing alone {figures['observe']:.0f}, processing alone {figures['process']:.0f}")
    report.line("the same for a voice next to zero, times real time", figures["denormal"], ">=300")
    report.line("transform of 1024 numbers / that of KissFFT", figures["transform"] / figures["library"], 0.5,
                f"{figures['transform']:.0f} ns / {figures['library']:.0f} ns")
