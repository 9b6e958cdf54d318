"""Reads a segment that a crash has left, by the file's own boxes alone: how far its whole fragments reach."""
import struct

HEAD = 8


class Growing:
    """The whole fragments of a file: pictures of its first track, their length in seconds, and where they end."""

    def __init__(self, path):
        self.data = path.read_bytes()
        self.samples, self.seconds, self.whole_bytes, self.fragments = 0, 0.0, 0, 0
        self.is_finished = False  # an ordinary file, with one index for all
        timescale, track = None, None
        index = None
        for kind, body, end in boxes(self.data, 0, len(self.data)):
            if kind == b"moov":
                self.is_finished = self.whole_bytes > 0 and find(self.data, body, end, b"mvex") is None
                track, timescale = first_track(self.data, body, end)
                self.whole_bytes = end
            elif kind == b"moof":
                index = (body, end)
            elif kind == b"mdat" and index:
                self._add(*index, track, timescale)
                self.whole_bytes, index = end, None

    def _add(self, start, end, track, timescale):
        self.fragments += 1
        for kind, body, stop in boxes(self.data, start, end):
            if kind != b"traf" or value(self.data, find(self.data, body, stop, b"tfhd"), 4) != track:
                continue
            decode_time = find(self.data, body, stop, b"tfdt")
            version = self.data[decode_time]
            begin = struct.unpack_from(">Q" if version else ">I", self.data, decode_time + 4)[0]
            length = sum(duration for run in every(self.data, body, stop, b"trun")
                         for duration in self._durations(run, find(self.data, body, stop, b"tfhd")))
            self.seconds = (begin + length) / timescale

    def _durations(self, run, header):
        flags, count = value(self.data, run, 0) & 0xFFFFFF, value(self.data, run, 4)
        self.samples += count
        each = 4 * bin(flags & 0xF00).count("1")
        first = run + 8 + 4 * bin(flags & 0x5).count("1")
        if not flags & 0x100:
            return [default_duration(self.data, header)] * count
        return [value(self.data, first + i * each, 0) for i in range(count)]


def default_duration(data, header):
    flags = value(data, header, 0) & 0xFFFFFF
    return value(data, header, 8 + 8 * bool(flags & 1) + 4 * bool(flags & 2)) if flags & 8 else 0


def boxes(data, start, end):
    """Kind, beginning of the contents and end of each box that is there whole."""
    while start + HEAD <= end:
        size, kind = struct.unpack_from(">I4s", data, start)
        head = HEAD
        if size == 1 and start + 16 <= end:
            size, head = struct.unpack_from(">Q", data, start + HEAD)[0], 16
        if size < head or start + size > end:
            return
        yield kind, start + head, start + size
        start += size


def every(data, start, end, wanted):
    return [body for kind, body, _ in boxes(data, start, end) if kind == wanted]


def find(data, start, end, wanted):
    return next(iter(every(data, start, end, wanted)), None)


def value(data, box, offset):
    return struct.unpack_from(">I", data, box + offset)[0]


def inside(data, start, end, *path):
    for name in path:
        start, end = next((body, stop) for kind, body, stop in boxes(data, start, end) if kind == name)
    return start


def first_track(data, start, end):
    """Identifier and timescale of the first track of an index."""
    track, stop = next((body, stop) for kind, body, stop in boxes(data, start, end) if kind == b"trak")
    header = inside(data, track, stop, b"tkhd")
    media = inside(data, track, stop, b"mdia", b"mdhd")
    return value(data, header, 20 if data[header] else 12), value(data, media, 20 if data[media] else 12)
