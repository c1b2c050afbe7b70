#!/usr/bin/env python3
"""Compares what publishing costs once it runs: start and end are left out.

  bench/steady.py --build FOLDER [--seconds N] [--rounds N] [--settled N]

Publishes the same 1080p30 film (6 Mb/s H.264, 128 kb/s AAC) in real time, with every mode in turn, N
rounds (5); from the fifth second (--settled) on it looks for N seconds (20). Prints Markdown: medians
of CPU of all threads (/proc/PID/task/*/schedstat), of context switches, and system calls a picture
with its sound (`strace -c -f`, a whole film's less those of its half). Rows say which of the film's
three forms they read; the floor reads none while it publishes. "Spread" is from the least to the
most CPU of the rounds; a row whose spread is wider than its distance to its aim is undecided.
"""
import argparse
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

import measure
import modes
import run

YARDSTICK = "tuned FFmpeg, MP4"
AIMS = {"client, MP4, zero-copy": 0.9, "client, MP4": 1.1, "client, elementary, zero-copy": 0.75,
        "client, elementary": 1.0}


def threads(pid):
    """CPU in ms and context switches of all threads so far."""
    cpu = switches = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        cpu += int((task / "schedstat").read_text().split()[0])
        switches += sum(int(n) for n in re.findall(r"ctxt_switches:\s+(\d+)",
                                                   (task / "status").read_text()))
    return cpu / 1e6, switches


def look(command, settled, seconds):
    """ms of CPU and context switches in a second."""
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, env=measure.ENVIRONMENT)
    try:
        time.sleep(settled)
        before, start = threads(process.pid), time.monotonic()
        time.sleep(seconds)
        after, took = threads(process.pid), time.monotonic() - start
    except OSError as error:
        raise measure.Failed(f"{' '.join(command)} has ended: {error}")
    finally:
        process.terminate()
        process.wait()
    return tuple((now - then) / took for then, now in zip(before, after))


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--settled", type=int, default=5)
    options = parser.parse_args()
    of = {mode.name: mode.command for mode in modes.make(options.build)}
    commands = {
        YARDSTICK: of["tuned FFmpeg"],
        "floor: a write a message": modes.floor(options.build, "message"),
        "floor: a write a picture": modes.floor(options.build, "picture"),
        "bare librtmp, chunk 128, FLV": of["bare librtmp, chunk 128"],
        "bare librtmp, chunk 1024, FLV": of["bare librtmp, chunk 1024"],
        "client, MP4, zero-copy": modes.film(options.build, "--no-copy"),
        "client, MP4": modes.film(options.build),
        "client, elementary, zero-copy": of["client, zero-copy"],
        "client, elementary": of["client, copying"],
        "pusher, elementary": of["pusher"],
    }
    costs = {name: [] for name in commands}
    calls = {}
    with tempfile.TemporaryDirectory() as folder:
        clip, half = (os.path.join(folder, name) for name in ("clip", "half"))
        length = options.settled + options.seconds + 5
        run.encode(clip, length, "1920x1080", "6M")
        run.ffmpeg("-i", clip + ".mp4", "-t", length / 2, "-c", "copy", half + ".mp4")
        for path in (clip, half):
            run.split(path)
        with measure.Server([str(run.ROOT / "tools/ingest-server"), os.path.join(folder, "server"),
                             "--no-record"]) as server:
            for number in range(options.rounds):
                print(f"round {number + 1} of {options.rounds}", file=sys.stderr)
                for name, command in commands.items():
                    costs[name].append(look(command(clip, server.address + "/s", False),
                                            options.settled, options.seconds))
            for name, command in commands.items():
                print(f"system calls of {name}", file=sys.stderr)
                mode = modes.Mode(name, True, False, False, command, lambda: True)
                whole, start = (sum(measure.system_calls(mode, path, server, folder).values())
                                for path in (clip, half))
                calls[name] = (whole - start) / (run.RATE * length / 2)
    print(run.machine() + "\n")
    print("| | CPU, ms/s | spread | tuned FFmpeg = 1 | aim | context switches/s | system calls/picture |")
    print("|---|---|---|---|---|---|---|")
    yardstick = statistics.median(cpu for cpu, _ in costs[YARDSTICK])
    for name, rounds in costs.items():
        spent = sorted(cpu for cpu, _ in rounds)
        ratio, aim = statistics.median(spent) / yardstick, AIMS.get(name)
        verdict = ""
        if aim:
            wide = (spent[-1] - spent[0]) / yardstick > abs(ratio - aim)
            verdict = f"{aim}: {'undecided' if wide else 'met' if ratio <= aim else 'missed'}"
        print(f"| {name} | {statistics.median(spent):.1f} | {spent[0]:.1f} to {spent[-1]:.1f} "
              f"| {ratio:.2f} | {verdict} | {statistics.median(n for _, n in rounds):.0f} "
              f"| {calls[name]:.1f} |")


if __name__ == "__main__":
    try:
        sys.exit(main())
    except measure.Failed as failure:
        sys.exit(f"steady.py: {failure}")
