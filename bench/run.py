#!/usr/bin/env python3
"""Compares the publishers; started by run.sh, which says how."""
import argparse
import json
import os
import pathlib
import platform
import subprocess
import sys
import tempfile

import measure
import modes
import report

ROOT = pathlib.Path(__file__).resolve().parent.parent
RATE = 30
FAST_ROUNDS = 10  # how often the clip is in the long one


def ffmpeg(*arguments):
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, arguments)], check=True)


def encode(path, seconds, size, rate):
    """H.264 without B pictures, one slice a picture, a key frame a second; AAC at 128 kb/s."""
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=s={size}:r={RATE},noise=alls=12:allf=t",
           "-f", "lavfi", "-i", "anoisesrc=c=pink:r=44100:a=0.3:seed=1",
           "-t", seconds, "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "ultrafast",
           "-profile:v", "baseline", "-b:v", rate, "-maxrate", rate, "-bufsize", rate, "-g", RATE,
           "-x264-params", "slices=1:sliced-threads=0:scenecut=0:repeat-headers=1:nal-hrd=cbr",
           "-c:a", "aac", "-b:a", "128k", f"{path}.mp4")


def split(path):
    ffmpeg("-i", f"{path}.mp4", "-an", "-c", "copy", "-bsf:v", "h264_mp4toannexb", f"{path}.h264")
    ffmpeg("-i", f"{path}.mp4", "-vn", "-c", "copy", "-f", "adts", f"{path}.aac")
    ffmpeg("-i", f"{path}.mp4", "-c", "copy", "-flvflags", "no_metadata", f"{path}.flv")


def make_clips(folder, seconds):
    """Paths without suffix: the reference clip, its half, many of it, and a small picture."""
    clips = {name: os.path.join(folder, name) for name in ("clip", "half", "long", "small")}
    encode(clips["clip"], seconds, "1920x1080", "6M")
    encode(clips["small"], 1, "1280x720", "3M")
    ffmpeg("-i", clips["clip"] + ".mp4", "-t", seconds / 2, "-c", "copy", clips["half"] + ".mp4")
    ffmpeg("-stream_loop", FAST_ROUNDS - 1, "-i", clips["clip"] + ".mp4", "-c", "copy",
           clips["long"] + ".mp4")
    for path in clips.values():
        split(path)
    return clips


def payload(path):
    return sum(os.path.getsize(path + suffix) for suffix in (".h264", ".aac"))


def make_certificate(folder):
    names = [os.path.join(folder, name) for name in ("certificate.pem", "key.pem")]
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=127.0.0.1", "-out", names[0], "-keyout", names[1]],
                   check=True, stderr=subprocess.DEVNULL)
    return names


def sink(folder, name, *options):
    path = os.path.join(folder, name)
    server = measure.Server([sys.executable, str(ROOT / "bench/sink.py"), path, *options])
    server.report = path
    return server


def forget_recordings(folder):
    for path in pathlib.Path(folder, "recordings").glob("*"):
        path.unlink()


class Comparison:
    def __init__(self, seconds):
        self.seconds = seconds
        self.results = {}

    def note(self, name, figures):
        for figure, value in figures.items():
            self.results.setdefault(name, {}).setdefault(figure, []).append(value)

    def attempt(self, name, work):
        """A run that fails costs its figures, not the others'."""
        print(f"  {name}", flush=True)
        try:
            self.note(name, work())
        except measure.Failed as failure:
            print(f"run.sh: {failure}", file=sys.stderr)

    def compare(self, chosen, clips, folder, rounds):
        server_folder = os.path.join(folder, "server")
        with measure.Server([str(ROOT / "tools/ingest-server"), server_folder]) as server, \
                sink(folder, "plain.json") as plain, \
                sink(folder, "tls.json", "--tls", *make_certificate(folder)) as secure:
            for number in range(1, rounds + 1):
                print(f"Round {number} of {rounds}", flush=True)
                for mode in chosen:
                    self.round(mode, mode.name, clips, plain)
                    if mode.fast:
                        self.attempt(mode.name, lambda: measure.fast(
                            mode, clips["long"], server, payload(clips["long"])))
                        forget_recordings(server_folder)
                    if mode.tls:
                        self.round(mode, mode.name + ", rtmps", clips, secure)
            print("System calls", flush=True)
            for mode in chosen:
                self.attempt(mode.name, lambda: self.calls(mode, clips, server, folder))
                forget_recordings(server_folder)

    def round(self, mode, name, clips, server):
        self.attempt(name, lambda: measure.realtime(mode, clips["clip"], server, self.seconds, RATE))
        self.attempt(name, lambda: measure.start_time(mode, clips["small"], server))

    def calls(self, mode, clips, server, folder):
        """Per frame, start and end left out: a whole clip's less those of its half."""
        whole = measure.system_calls(mode, clips["clip"], server, folder)
        half = measure.system_calls(mode, clips["half"], server, folder)
        frames = self.seconds * RATE / 2
        return {"calls": (sum(whole.values()) - sum(half.values())) / frames}


def machine():
    with open("/proc/cpuinfo", encoding="ascii") as file:
        model = next((line.split(":")[1].strip() for line in file if "model name" in line), "?")
    load = " ".join(f"{value:.1f}" for value in os.getloadavg())
    return (f"{model}, {os.cpu_count()} cores, Linux {platform.release()}, "
            f"load at the start {load}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--results", required=True)
    parser.add_argument("--rounds", type=int, required=True)
    parser.add_argument("--seconds", type=int, required=True)
    parser.add_argument("--only", default="")
    options = parser.parse_args()
    where = machine()
    everything = modes.make(options.build)
    wanted = [mode for mode in everything if options.only in mode.name or mode is everything[0]]
    chosen = [mode for mode in wanted if mode.needs()]
    for mode in wanted:
        if mode not in chosen:
            print(f"run.sh: {mode.name} is not installed, so it is left out", file=sys.stderr)
    comparison = Comparison(options.seconds)
    with tempfile.TemporaryDirectory() as folder:
        print("Making the clips", flush=True)
        clips = make_clips(folder, options.seconds)
        comparison.compare(chosen, clips, folder, options.rounds)
    versions = sorted({text for text in map(modes.version, chosen) if text})
    about = [f"{options.rounds} rounds of {options.seconds} s, medians; {where}", *versions]
    os.makedirs(options.results, exist_ok=True)
    with open(os.path.join(options.results, "runs.json"), "w", encoding="ascii") as file:
        json.dump({"about": about, "results": comparison.results}, file, indent=1)
    report.write(options.results, about, comparison.results)


if __name__ == "__main__":
    main()
