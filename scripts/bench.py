"""Ratios to the peers out of Google Benchmark's files, beside what they are to reach.

    bench.py print|check|update FOLDER

FOLDER holds bench/ and bench-baseline/, see scripts/bench.sh. `update` writes the table into
docs/performance.md; `check` fails where a ratio is far above its reach.
"""

import json
import os
import platform
import re
import subprocess
import sys
from datetime import date

SETS = ("bench", "bench-baseline")
CHECK_FACTOR = 2.5  # beyond any disturbance seen, below what lost vectors cost

PAIRS = ["48000to44100", "44100to48000", "96000to48000", "32000to48000"]
# what, program, benchmarks, peers (the best counts), reach with AVX2 and on the baseline. The
# figure is the worst of the benchmarks that match.
ROWS = [
    *[(f"resampler, stereo, {pair.replace('to', '→')} Hz", "resampler", f"resampler/{pair}",
       ["speexdsp"], reach)
      for pair, reach in zip(PAIRS, [(0.10, 0.18), (0.09, 0.16), (0.45, 0.90), (0.42, 0.85)])],
    *[(f"resampler, stereo, {pair.replace('to', '→')} Hz", "resampler", f"resampler/{pair}",
       ["soxr"], reach)
      for pair, reach in zip(PAIRS, [(0.65, 1.2), (0.60, 1.1), (1.00, 2.4), (0.65, 1.3)])],
    ("kernel 16→16 adding, no ramp", "kernels", "kernel/16to16/none/900", ["textbook"],
     (0.62, 1.40)),
    ("kernel 16→16 adding, ramp", "kernels", "kernel/16to16/ramp/900", ["plain"], (0.36, 0.70)),
    ("kernels 32→16, ramp and none", "kernels", "kernel/32to16/.*/900", ["plain"], (0.40, 1.00)),
    ("kernels 16→32 and 32→32, ramp and none", "kernels", "kernel/(16|32)to32/.*/900", ["plain"],
     (1.05, 1.05)),
    ("16→16 mixing, no ramp", "kernels", "kernel/16to16/none/900", ["sdl2"], (0.03, 0.07)),
    ("16→16 mixing, ramp", "kernels", "kernel/16to16/ramp/900", ["sdl2"], (0.03, 0.07)),
    ("the same", "kernels", "kernel/16to16/ramp/900", ["floor"], (None, None)),
    *[(f"ring, copying {frames} frames, one thread", "rings", f"ring/copy/{frames}",
       ["boost", "jack"], (1.03, 1.03)) for frames in (960, 441)],
    ("ring, copying, two threads", "rings", "ring/two_threads/(441|960)", ["boost", "jack"],
     (1.05, 1.05)),
    *[(f"ring, {frames} frames read in place", "rings", f"ring/in_place/{frames}",
       ["boost", "jack"], (0.60, 0.60)) for frames in (960, 441)],
    ("last stage from the ring, 8 streams", "final_stage", "final_stage/8/900", ["textbook"],
     (1.10, 1.90)),
]
JOB_ROWS = [("whole job, wall clock", "wall s", ("sox", "ffmpeg"), (0.35, 0.60)),
            ("whole job, CPU seconds", "cpu s", ("sox", "ffmpeg"), (0.25, 0.42)),
            ("whole job, memory", "KiB", ("sox",), (1.5, 1.5))]


def load(folder, name):
    try:
        with open(os.path.join(folder, name), encoding="utf-8") as file:
            return json.load(file)
    except FileNotFoundError:
        return None


def worst_ratio(report, pattern, peers):
    """Of each benchmark the ratio to the best peer, that is the highest; of these the worst."""
    ratios = [max(run[f"ratio {peer}"] for peer in peers)
              for run in (report or {}).get("benchmarks", [])
              if all(f"ratio {peer}" in run for peer in peers) and
              re.fullmatch(pattern, run["name"].split("/iterations")[0])]
    return max(ratios) if ratios else None


def table(folder):
    """Rows of what, against, and per set (ratio or None, reach)."""
    rows = []
    for what, program, pattern, peers, reach in ROWS:
        ratios = [worst_ratio(load(f"{folder}/{name}", program + ".json"), pattern, peers)
                  for name in SETS]
        rows.append((what, " or ".join(peers), list(zip(ratios, reach))))
    for what, figure, peers, reach in JOB_ROWS:
        ratios = []
        for name in SETS:
            job = load(f"{folder}/{name}", "whole_job.json")
            ratios.append(job and job["streamproxy"][figure] / min(job[p][figure] for p in peers))
        rows.append((what, " or ".join(peers), list(zip(ratios, reach))))
    return rows


def cell(ratio, reach):
    if ratio is None:
        return "–"
    if reach is None:
        return f"{ratio:.2f}"
    return f"{ratio:.2f} of {reach:.2f}" + ("" if ratio <= reach else " ✗")


def markdown(rows):
    lines = ["| what | against | AVX2 | baseline |", "| --- | --- | --- | --- |"]
    lines += [f"| {what} | {against} | " + " | ".join(cell(*c) for c in cells) + " |"
              for what, against, cells in rows]
    return "\n".join(lines)


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        model = re.search(r"model name\s*: (.*)", info.read())
    compiler = subprocess.run(["g++", "--version"], capture_output=True, text=True, check=True)
    return (f"{model[1] if model else platform.machine()}, {os.cpu_count()} processors, "
            f"{compiler.stdout.splitlines()[0]}, {date.today().isoformat()}")


def update(rows, folder):
    path = "docs/performance.md"
    with open(path, encoding="utf-8") as page:
        text = page.read()
    parts = {"ratios": f"{machine()}\n\n{markdown(rows)}", "quality": quality(folder)}
    for name, content in parts.items():
        text = re.sub(rf"(<!-- {name} -->\n).*?(<!-- end -->)",
                      lambda mark, content=content: f"{mark[1]}{content}\n{mark[2]}", text,
                      flags=re.S)
    with open(path, "w", encoding="utf-8") as page:
        page.write(text)


def quality(folder):
    report = load(f"{folder}/bench", "resampler.json") or {"benchmarks": []}
    lines = ["| rates | | SNR 997 Hz | SNR 0.8 Nyquist | level 0.8 | level 0.9 | latency, input "
             "frames |", "| --- | --- | --- | --- | --- | --- | --- |"]
    for run in report["benchmarks"]:
        if not run["name"].startswith("quality/"):
            continue
        pair = run["name"].split("/")[1].replace("to", "→")
        for who, prefix in (("this library", ""), ("speexdsp 4", "speex ")):
            lines.append(
                f"| {pair} | {who} | {run[prefix + 'snr 997 Hz']:.1f} dB | "
                f"{run[prefix + 'snr 0.8']:.1f} dB | {run[prefix + 'level 0.8']:+.3f} dB | "
                f"{run[prefix + 'level 0.9']:+.2f} dB | {run[prefix + 'latency']:.0f} |")
    return "\n".join(lines)


def main():
    mode, folder = sys.argv[1:]
    rows = table(folder)
    print(markdown(rows))
    if mode == "update":
        update(rows, folder)
    if mode == "check":
        measured = [(what, *cells[0]) for what, _, cells in rows if cells[0][0] is not None]
        slow = [f"{what}: {ratio:.2f}, wanted {reach}" for what, ratio, reach in measured
                if reach and ratio > CHECK_FACTOR * reach]
        if slow or not measured:
            sys.exit("bench.py: far from reach:\n" + "\n".join(slow or ["nothing measured"]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
