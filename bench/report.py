#!/usr/bin/env python3
"""Writes what run.py measured as tables and a plot: bench/report.py FOLDER does it once more."""
import json
import os
import statistics
import subprocess
import sys

REFERENCE = "tuned FFmpeg"
# (key, heading, digits, shown as a ratio)
FIGURES = [
    ("cpu", "CPU in real time, ms/s", 1, True),
    ("fast", "CPU as fast as possible, s/GB", 2, True),
    ("calls", "system calls/frame", 1, True),
    ("segments", "TCP segments/frame", 1, True),
    ("overhead", "bytes above payload, %", 2, False),
    ("memory", "peak memory, MB", 1, True),
    ("first720", "first media byte 720p, ms", 1, True),
    ("first", "first media byte 1080p, ms", 1, True),
    ("median", "lateness (median), ms", 2, False),
    ("p99", "lateness (99 %), ms", 2, False),
]


def medians(results):
    return {name: {key: statistics.median(values) for key, values in figures.items()}
            for name, figures in results.items()}


def table(rows, keys, cell):
    headings = ["", *[heading for key, heading, _, _ in FIGURES if key in keys]]
    lines = ["| " + " | ".join(headings) + " |", "|" + "---|" * len(headings)]
    for name, figures in rows.items():
        cells = [cell(figures, key, digits) for key, _, digits, _ in FIGURES if key in keys]
        lines.append("| " + " | ".join([name, *cells]) + " |")
    return "\n".join(lines)


def absolute(figures, key, digits):
    return f"{figures[key]:.{digits}f}" if key in figures else "-"


def ratio_to(reference):
    def cell(figures, key, _):
        known = key in figures and reference.get(key)
        return f"{figures[key] / reference[key]:.2f}" if known else "-"
    return cell


def plot(folder, rows):
    """One group of bars for each figure, tuned FFmpeg at 1."""
    reference = rows.get(REFERENCE, {})
    cell = ratio_to(reference)
    plain = {name: figures for name, figures in rows.items() if "rtmps" not in name}
    ratios = [(key, heading) for key, heading, _, shown in FIGURES if shown and key in reference]
    data = os.path.join(folder, "ratios.dat")
    with open(data, "w", encoding="ascii") as file:
        file.write("figure " + " ".join(f'"{name}"' for name in plain) + "\n")
        for key, heading in ratios:
            cells = [cell(figures, key, 0).replace("-", "NaN") for figures in plain.values()]
            file.write(f'"{heading.split(",")[0]}" ' + " ".join(cells) + "\n")
    script = f"""
        set terminal pngcairo size 1400,700 font 'sans,11'
        set output '{folder}/ratios.png'
        set title 'Whole processes, tuned FFmpeg = 1 (less is better)'
        set style data histograms
        set style histogram clustered gap 2
        set style fill solid 0.9 noborder
        set logscale y 2
        set yrange [0.015625:16]
        set grid ytics
        set xtics rotate by -15
        set key outside right top
        plot for [i=2:{len(plain) + 1}] '{data}' using i:xtic(1) title columnheader(i)
    """
    try:
        subprocess.run(["gnuplot"], input=script, text=True, check=True)
    except (OSError, subprocess.CalledProcessError) as error:
        print(f"run.sh: no plot: {error} (run.sh --install installs gnuplot)", file=sys.stderr)
    os.unlink(data)


def write(folder, about, results):
    rows = medians(results)
    keys = [key for key, *_ in FIGURES]
    ratios = [key for key, _, _, shown in FIGURES if shown]
    text = "\n".join([*about, "", table(rows, keys, absolute), "",
                      f"Ratios, {REFERENCE} = 1", "",
                      table(rows, ratios, ratio_to(rows.get(REFERENCE, {}))), ""])
    with open(os.path.join(folder, "results.txt"), "w", encoding="ascii") as file:
        file.write(text)
    print("\n" + text)
    plot(folder, rows)


if __name__ == "__main__":
    with open(os.path.join(sys.argv[1], "runs.json"), encoding="ascii") as kept:
        stored = json.load(kept)
    write(sys.argv[1], stored["about"], stored["results"])
