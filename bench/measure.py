"""One run of one mode, and what it cost."""
import json
import os
import re
import signal
import statistics
import subprocess
import tempfile
import time

VIDEO = 9
ENVIRONMENT = dict(os.environ, RTMP_TLS_VERIFY="0", LC_ALL="C")
LOOK_PERIOD = 0.1


class Failed(Exception):
    pass


class Server:
    """A server process that prints its address; ended with the block."""

    def __init__(self, command):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().strip()
        if not self.address:
            raise Failed(f"{command[0]} does not start")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait()

    @property
    def port(self):
        return re.search(r":(\d+)/", self.address).group(1)


def peak_memory(pid):
    """VmHWM in kB; 0 when the process is gone or has not become its program yet."""
    try:
        with open(f"/proc/{pid}/status", encoding="ascii") as status:
            found = re.search(r"VmHWM:\s+(\d+)", status.read())
        return int(found.group(1)) if found else 0
    except OSError:
        return 0


def segments(port):
    """(segments with data, bytes) that the publisher's connections have sent so far."""
    said = subprocess.run(["ss", "-tinH", "dport", "=", f":{port}"], capture_output=True, text=True,
                          check=False).stdout
    sums = [0, 0]
    for place, name in enumerate(("data_segs_out", "bytes_sent")):
        sums[place] = sum(int(n) for n in re.findall(name + r":(\d+)", said))
    return tuple(sums)


def run(command, port=None, limit=180):
    """Runs a publisher to its end. CPU in seconds, memory in kB, times of CLOCK_MONOTONIC."""
    with tempfile.TemporaryFile() as said:
        start = time.monotonic()
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=said, stderr=said,
                                   env=ENVIRONMENT)
        memory, sent = 0, (0, 0)
        while True:
            pid, status, usage = os.wait4(process.pid, os.WNOHANG)
            if pid:
                break
            memory = max(memory, peak_memory(process.pid))
            if port:
                sent = max(sent, segments(port), key=lambda pair: pair[1])
            if time.monotonic() - start > limit:
                process.kill()
            time.sleep(LOOK_PERIOD if port else LOOK_PERIOD / 5)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            said.seek(0)
            raise Failed(f"{' '.join(command)}: {process.returncode}: "
                         + said.read().decode(errors='replace')[-300:])
    return {"start": start, "cpu": usage.ru_utime + usage.ru_stime, "memory": memory,
            "segments": sent[0], "bytes": sent[1]}


def last_record(report, lines):
    """The record of the sink's latest publisher, once there are more than `lines` of them."""
    for _ in range(100):
        if os.path.exists(report):
            with open(report, encoding="ascii") as file:
                records = file.read().splitlines()
            if len(records) > lines:
                return [json.loads(line) for line in records[lines:]]
        time.sleep(0.05)
    raise Failed("the sink tells nothing of the publisher")


def count_lines(report):
    if not os.path.exists(report):
        return 0
    with open(report, encoding="ascii") as file:
        return len(file.read().splitlines())


def lateness(messages, rate):
    """How much later than the quickest picture each one arrived, in ms; headers are no pictures."""
    pictures = [at for kind, size, at in messages if kind == VIDEO and size > 200]
    delays = [at - number / rate for number, at in enumerate(pictures)]
    return sorted((delay - min(delays)) * 1000 for delay in delays)


def realtime(mode, clip, sink, seconds, rate):
    before = count_lines(sink.report)
    result = run(mode.command(clip, sink.address + "/s", False), sink.port)
    records = last_record(sink.report, before)
    messages = [message for record in records for message in record["messages"]]
    payload = sum(record["payload"] for record in records)
    wire = sum(record["wire"] for record in records)
    late = lateness(messages, rate)
    frames = len(late)
    if frames < 0.9 * seconds * rate:
        raise Failed(f"{mode.name}: only {frames} pictures arrived")
    return {
        "cpu": result["cpu"] / seconds * 1000,
        "memory": result["memory"] / 1024,
        "segments": result["segments"] / max(result["bytes"], 1) * wire / frames,
        "overhead": (wire / payload - 1) * 100,
        "first": (min(r["first"] for r in records if "first" in r) - result["start"]) * 1000,
        "median": statistics.median(late),
        "p99": late[int(len(late) * 0.99)],
    }


def start_time(mode, clip, sink):
    before = count_lines(sink.report)
    result = run(mode.command(clip, sink.address + "/s", False))
    record = last_record(sink.report, before)[0]
    return {"first720": (record["first"] - result["start"]) * 1000}


def fast(mode, clip, server, size):
    result = run(mode.command(clip, server.address + "/s", True))
    return {"fast": result["cpu"] / (size / 1e9)}


def system_calls(mode, clip, server, folder):
    """Calls of a whole run, by name."""
    counts = os.path.join(folder, "strace.txt")
    run(["strace", "-c", "-f", "-o", counts, *mode.command(clip, server.address + "/s", False)])
    calls = {}
    with open(counts, encoding="ascii") as file:
        for line in file:
            field = line.split()
            if len(field) >= 5 and field[0][0].isdigit() and field[-1] != "total":
                calls[field[-1]] = calls.get(field[-1], 0) + int(field[3])
    return calls
