"""Drives tessarin-native as a product does: one child process a job.

A job's request is JSON in base64 on the command line. Every command but `record` answers with one JSON
envelope on standard output; `record` follows control lines on standard input and tells events, one JSON
object a line, on standard output. Diagnostics go to standard error and are for people.

    host = Host("/usr/bin/tessarin-native")
    context = host.run("list")
    with host.record(request) as recording:
        recording.wait_for("recording")
        recording.send("stop")
        completed = recording.finish()

What a person waits for is asked of a worker, which is one child process for many requests:

    with host.worker() as worker:  # started in advance
        context = worker.run("list", "--exclude-parent-application")
"""
import base64
import json
import queue
import subprocess
import threading
import uuid


class JobFailed(Exception):
    """The job answered with an error: its code, its sentence for the user, and the exit status."""

    def __init__(self, error, status):
        super().__init__(error["message"])
        self.code = error["code"]
        self.recoverable = error["recoverable"]
        self.status = status  # 2: the request was refused; 1: the work failed


def request_arguments(request):
    """A request record as the two tokens of the command line."""
    return ["--request-json", base64.b64encode(json.dumps(request).encode()).decode()]


class Host:
    def __init__(self, program, environment=None):
        self.program = program
        self.environment = environment

    def run(self, *arguments, request=None, timeout=60):
        """Runs one job to its end and yields the envelope's data."""
        command = [self.program, *arguments, *(request_arguments(request) if request is not None else [])]
        done = subprocess.run(command, capture_output=True, timeout=timeout, env=self.environment, check=False)
        envelope = json.loads(done.stdout)
        if not envelope["ok"]:
            raise JobFailed(envelope["error"], done.returncode)
        return envelope["data"]

    def record(self, request):
        return Recording(self, request)

    def worker(self):
        return Worker(self)


class Worker:
    """A running `capture-worker`. Use it as a context: leaving it ends the worker."""

    def __init__(self, host):
        self.process = subprocess.Popen([host.program, "capture-worker"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, env=host.environment)
        self.is_ready = False  # told before the first response

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        self.process.wait(20)
        self.process.stdout.close()

    def run(self, *arguments, request=None):
        """Has one command run, as Host.run does: `list --exclude-parent-application` or `prepare-capture`."""
        line = {"schemaVersion": 1, "requestId": str(uuid.uuid4()),
                "arguments": [*arguments, *(request_arguments(request) if request is not None else [])]}
        self.process.stdin.write(json.dumps(line).encode() + b"\n")
        self.process.stdin.flush()
        if not self.is_ready:
            self.is_ready = self._next().get("ready") is True
        envelope = self._next()
        if envelope.get("requestId") != line["requestId"]:
            raise RuntimeError("the worker answers another request")
        if not envelope["ok"]:
            raise JobFailed(envelope["error"], 1)
        return envelope["data"]

    def _next(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError(f"the worker has ended with status {self.process.wait(20)}")
        return json.loads(line)


class Recording:
    """A running `record` job. Use it as a context: leaving it early cancels the recording."""

    def __init__(self, host, request):
        self.session = request["sessionId"]
        self.process = subprocess.Popen([host.program, "record", *request_arguments(request)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        env=host.environment)
        self.events = queue.SimpleQueue()  # parsed events in order, then None at the end
        self.history = []
        self.diagnostics = []
        self.readers = [threading.Thread(target=reader, daemon=True)
                        for reader in (self._read_events, self._read_diagnostics)]
        for reader in self.readers:
            reader.start()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, trace):
        if self.process.poll() is None:
            try:
                self.send("cancel")
            except BrokenPipeError:
                pass
            try:
                self.process.wait(20)
            except subprocess.TimeoutExpired:
                self.process.kill()
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            try:
                stream.close()
            except BrokenPipeError:
                pass

    def send(self, command):
        """Sends "pause", "resume", "stop" or "cancel"."""
        line = json.dumps({"schemaVersion": 2, "command": command, "sessionId": self.session})
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def next_event(self, timeout=60):
        """The next event, or nothing when the program has ended."""
        event = self.events.get(timeout=timeout)
        if event is not None:
            if "event" not in event:  # a request that does not decode is answered by an envelope
                raise JobFailed(event["error"], self.process.wait(timeout))
            self.history.append(event)
        return event

    def wait_for(self, phase, timeout=60):
        """Follows the events until the recording says that it is in this phase."""
        while True:
            event = self.next_event(timeout)
            if event is None:
                raise RuntimeError("the recording ended unexpectedly:\n" + "\n".join(self.diagnostics))
            if event["event"] == "failed":
                raise JobFailed(event["error"], 1)
            if event["event"] == "stateChanged" and event["phase"] == phase:
                return event

    def finish(self, timeout=600):
        """Follows the events to the last one: `completed` or `cancelled`."""
        last = None
        while (event := self.next_event(timeout)) is not None:
            last = event
            if event["event"] == "failed":
                raise JobFailed(event["error"], 1)
        self.process.wait(timeout)
        if last is None or last["event"] not in ("completed", "cancelled"):
            raise RuntimeError("the recording ended unexpectedly:\n" + "\n".join(self.diagnostics))
        return last

    def _read_events(self):
        for line in self.process.stdout:
            self.events.put(json.loads(line))
        self.events.put(None)

    def _read_diagnostics(self):
        for line in self.process.stderr:
            self.diagnostics.append(line.decode(errors="replace").rstrip("\n"))
