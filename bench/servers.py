"""Recordings of all sources whose servers die, or stand still for good, at random moments: that of the display, that of
sound and cameras, the window manager, the session manager and the session bus. Each tells why it ends, or goes on; what
it has recorded is kept, and no process stays behind. What is left of those that are not in order is kept in the build's
folder servers/."""
import collections
import json
import random
import shutil
import threading

from death import LIMIT, LIMIT_OF_STILL, Death, order
from growing import Growing
from harness import scratch
from kills import Checked, packets, require

# Of what was recorded, what may be missing in the end, in seconds: pictures under way when the end was told.
SLACK = 1.0


class Kept(Checked):
    """What is left behind a death. The program has outlived it, so that next to nothing may be lost."""

    def __init__(self, death):
        self.seconds = 0.0
        super().__init__(death)
        self._trace()
        if death.recorded > 0:
            self.loss = max(death.recorded - self.seconds, 0)
            require(self.loss <= SLACK, f"{self.seconds:.2f} s of {death.recorded:.2f} s are left")

    def _finished(self, segment):
        super()._finished(segment)
        self.seconds += segment["durationMs"] / 1000

    def _running(self, path):
        left = Growing(path)
        self.seconds += left.seconds
        if left.samples == 0 and not left.is_finished:
            return False
        whole = path.with_name("whole-" + path.name)
        whole.write_bytes(left.data[:left.whole_bytes])
        self.pictures += packets(whole)
        whole.unlink()
        return True

    def _trace(self):
        trace = self.kill.directory / "interaction-events.jsonl"
        for line in trace.read_text().splitlines() if trace.exists() else ():
            json.loads(line)
        layout = self.kill.directory / "camera-layout.json"
        require(not layout.exists() or json.loads(layout.read_text())["schemaVersion"] == 1, "no layout")
        rest = [path.name for path in self.kill.directory.iterdir() if path.name.endswith(".tmp")]
        require(not rest, f"there are {', '.join(rest)}")


class Campaign:
    """Deaths in several threads, whose results it gathers."""

    def __init__(self, build, folder, count):
        self.build, self.folder, self.kept = build, folder, build / "servers"
        self.left = [order[i % len(order)] for i in range(count)]
        random.shuffle(self.left)
        self.lock = threading.Lock()
        self.checked, self.failures = [], []

    def run(self, parallel):
        threads = [threading.Thread(target=self._work) for _ in range(parallel)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def _work(self):
        while True:
            with self.lock:
                if not self.left:
                    return
                moment, victims, is_still = self.left.pop()
            death = Death(self.build, self.folder, moment, victims, is_still)
            try:
                death.run()
                checked = Kept(death)
                with self.lock:
                    self.checked.append(checked)
            except Exception as failure:  # pylint: disable=broad-except
                death.keep_words()
                shutil.copytree(death.directory, self.kept / death.directory.name)
                with self.lock:
                    self.failures.append(f"{death.directory.name}: {death.what()} {moment}: "
                                         f"{type(failure).__name__}: {failure}")
            shutil.rmtree(death.directory)


def run(build, report, count=len(order), parallel=2):
    seed = random.randrange(1 << 32)
    random.seed(seed)
    with scratch() as folder:
        campaign = Campaign(build, folder, count)
        campaign.run(parallel)
    done = campaign.checked
    report.line("recordings whose servers died", len(done) + len(campaign.failures), f">={count}", f"seed {seed}")
    report.line("of them not in order", len(campaign.failures), 0)
    for failure in campaign.failures:
        report.note("", failure)
    if done:
        for is_still, limit in ((False, LIMIT), (True, LIMIT_OF_STILL)):
            ways = [each.kill.ended - each.kill.asked for each in done if each.kill.is_still == is_still]
            report.line(f"longest way to the end, server {'still' if is_still else 'dead'}, s",
                        max(ways, default=0), limit, f"of {len(ways)}")
        losses = [each.loss for each in done if each.loss is not None]
        report.line("worst loss, s", max(losses, default=0), SLACK, f"of {len(losses)}")
    table = collections.defaultdict(list)
    for each in done:
        table[each.kill.what(), each.kill.moment, each.kill.struck_in, each.kill.outcome()].append(each)
    for (victims, moment, phase, outcome), same in sorted(table.items()):
        report.note(f"{victims}, {moment}", f"{len(same)} in {phase}: {outcome}, loss at most "
                    f"{max(each.loss or 0 for each in same):.2f} s")
