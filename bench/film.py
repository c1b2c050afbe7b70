#!/usr/bin/env python3
"""Compares what passing an MP4 file with B pictures through costs with `ffmpeg -c copy`.

  bench/film.py --build FOLDER [--seconds N] [--rounds N]

Publishes a 1080p30 film (6 Mb/s H.264 with B pictures, 128 kb/s AAC) in real time, its whole (20 s) and
its half in turn with both programs, N rounds (3). What the half costs is taken from what the whole costs,
so that start and end are left out. Prints a table of milliseconds of CPU for a second of film.
"""
import argparse
import os
import pathlib
import statistics
import sys
import tempfile

import measure
import modes
import run

ROOT = pathlib.Path(__file__).resolve().parent.parent


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()
    host = os.path.join(options.build, "nimbo-host")
    commands = {
        "FFmpeg, copying": modes.ffmpeg,
        "tuned FFmpeg, copying": modes.tuned_ffmpeg,
        "live client": lambda clip, url, _fast: [host, "publish", clip + ".mp4", url, "--quiet"],
    }
    costs = {name: [] for name in commands}
    with tempfile.TemporaryDirectory() as folder:
        film, half = (os.path.join(folder, name) for name in ("film", "half"))
        run.ffmpeg("-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=30,noise=alls=12:allf=t",
                   "-f", "lavfi", "-i", "anoisesrc=c=pink:r=44100:a=0.3:seed=1",
                   "-t", options.seconds, "-pix_fmt", "yuv420p", "-c:v", "libx264",
                   "-preset", "ultrafast", "-b:v", "6M", "-maxrate", "6M", "-bufsize", "6M", "-g", 60,
                   "-x264-params", "bframes=3:b-pyramid=normal", "-c:a", "aac", "-b:a", "128k",
                   film + ".mp4")
        run.ffmpeg("-i", film + ".mp4", "-t", options.seconds / 2, "-c", "copy", half + ".mp4")
        with measure.Server([str(ROOT / "tools/ingest-server"), os.path.join(folder, "server"),
                             "--no-record"]) as server:
            for _ in range(options.rounds):
                for name, command in commands.items():
                    whole, start = (measure.run(command(clip, server.address + "/s", False))["cpu"]
                                    for clip in (film, half))
                    costs[name].append((whole - start) * 1000 / (options.seconds / 2))
    yardstick = statistics.median(costs["FFmpeg, copying"])
    print(f"{'ms of CPU for a second':<24} {'median':>7} {'least':>7} {'most':>7} {'ratio':>7}")
    for name, values in costs.items():
        median = statistics.median(values)
        print(f"{name:<24} {median:7.2f} {min(values):7.2f} {max(values):7.2f} {median / yardstick:7.2f}")


if __name__ == "__main__":
    sys.exit(main())
