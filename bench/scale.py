#!/usr/bin/env python3
"""How the cost of a client changes with their number: one host, one source, N servers' streams.

    bench/scale.py --build FOLDER [--seconds N] [--clients N,N,...]

Publishes the reference clip in real time, without copying, to one measuring server and to N - 1
streams of a server that records nothing, and prints what a client costs in play: CPU, memory,
threads, and how late pictures are. Leaves the table in bench/results/scale.txt.
"""
import argparse
import os
import statistics
import subprocess
import tempfile
import time

import measure
import run

TICKS = os.sysconf("SC_CLK_TCK")
COLUMNS = ("clients", "CPU, ms/s", "for each client", "memory, MB", "for each client more",
           "threads", "late (median), ms", "late (99 %), ms")


def state(pid):
    """CPU seconds so far, peak memory in MB and threads of a running process."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        field = file.read().rsplit(")", 1)[1].split()
    cpu = (int(field[11]) + int(field[12])) / TICKS
    return cpu, measure.peak_memory(pid) / 1024, int(field[17])


def publish(host, clip, addresses, seconds, sink):
    """Figures of one run, taken over its middle."""
    before = measure.count_lines(sink.report)
    process = subprocess.Popen(
        [host, "publish", clip + ".h264", *addresses, "--audio", clip + ".aac", "--no-copy"],
        env=measure.ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL)
    time.sleep(seconds * 0.3)
    start, first = time.monotonic(), state(process.pid)
    time.sleep(seconds * 0.5)
    end, last = time.monotonic(), state(process.pid)
    if process.wait(60) != 0:
        raise measure.Failed(f"{len(addresses)} clients: the host ended with {process.returncode}")
    messages = [m for record in measure.last_record(sink.report, before)
                for m in record["messages"]]
    late = measure.lateness(messages, run.RATE)
    return {"cpu": (last[0] - first[0]) / (end - start) * 1000, "memory": last[1],
            "threads": last[2], "median": statistics.median(late),
            "p99": late[int(len(late) * 0.99)]}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--clients", default="1,10,50,100")
    options = parser.parse_args()
    host = os.path.join(options.build, "nimbo-host")
    rows = []
    with tempfile.TemporaryDirectory() as folder:
        clip = run.make_clips(folder, options.seconds)["clip"]
        with measure.Server([str(run.ROOT / "tools/ingest-server"), folder + "/server",
                             "--no-record"]) as server, run.sink(folder, "sink.json") as sink:
            for count in map(int, options.clients.split(",")):
                print(f"{count} clients", flush=True)
                addresses = [sink.address + "/s"]
                addresses += [f"{server.address}/s{i}" for i in range(1, count)]
                rows.append((count, publish(host, clip, addresses, options.seconds, sink)))
    alone = rows[0][1]["memory"]
    lines = [" | ".join(COLUMNS)]
    for count, figures in rows:
        more = f"{(figures['memory'] - alone) / (count - 1):.2f}" if count > 1 else "-"
        lines.append(f"{count} | {figures['cpu']:.0f} | {figures['cpu'] / count:.1f} | "
                     f"{figures['memory']:.1f} | {more} | {figures['threads']} | "
                     f"{figures['median']:.2f} | {figures['p99']:.1f}")
    text = "\n".join(f"| {line} |" for line in lines)
    print(text)
    about = f"{options.seconds} s each; {run.machine()}\n\n"
    with open(run.ROOT / "bench/results/scale.txt", "w", encoding="ascii") as file:
        file.write(about + text + "\n")


if __name__ == "__main__":
    main()
