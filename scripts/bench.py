"""The tables of docs/performance.md out of Google Benchmark's files: ratios to the peers beside what
they are to reach, and the figures of the library by itself.

FOLDER holds bench/ and bench-baseline/, see scripts/bench.sh. `update` writes the tables into
the page; `check` fails where a ratio is far above its reach, or was not measured.
"""

import argparse
import json
import os
import platform
import re
import subprocess
import sys
from datetime import date

import page

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
    ("channels from 1 and 6 to 2", "channels", "channels/.*/960", ["plain"], (1.10, 1.10)),
    *[row for what, name, reach in (
        ("ring, copying {} frames, one thread", "copy", 1.03),
        ("ring, copying {} frames, two threads", "two_threads", 1.05),
        ("ring, {} frames read in place; theirs copied", "in_place", 0.60))
      for frames in (960, 441)
      for row in ((what.format(frames), "rings", f"ring/{name}/{frames}", ["boost", "jack"],
                   (reach, reach)),
                  ("the same", "rings", f"ring/{name}/{frames}", ["plainest"], (None, None)))],
    ("last stage from the ring, 8 streams", "final_stage", "final_stage/8/900", ["textbook"],
     (1.10, 1.90)),
]
JOB_ROWS = [("whole job, wall clock", "wall s", ("sox", "ffmpeg"), (0.35, 0.60)),
            ("whole job, CPU seconds", "cpu s", ("sox", "ffmpeg"), (0.25, 0.42)),
            ("whole job, memory", "KiB", ("sox",), (1.5, 1.5))]


def load(folder, name):
    """What a program wrote; None where it wrote nothing, or was ended while it did. Benchmarks that
    failed have no figures."""
    try:
        with open(os.path.join(folder, name), encoding="utf-8") as file:
            report = json.load(file)
    except (FileNotFoundError, json.JSONDecodeError):
        return None
    if "benchmarks" in report:
        report["benchmarks"] = [run for run in report["benchmarks"] if "error_occurred" not in run]
    return report


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
    return page.table(["what", "against", "AVX2", "baseline"],
                      [[what, against, *[cell(*c) for c in cells]] for what, against, cells in rows])


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        model = re.search(r"model name\s*: (.*)", info.read())
    compiler = subprocess.run(["g++", "--version"], capture_output=True, text=True, check=True)
    return (f"{model[1] if model else platform.machine()}, {os.cpu_count()} processors, "
            f"{compiler.stdout.splitlines()[0]}, {date.today().isoformat()}")


def runs(folder, program, prefix):
    """The benchmarks of a name, as (the rest of the name, the figures)."""
    for run in (load(f"{folder}/bench", program + ".json") or {"benchmarks": []})["benchmarks"]:
        name = run["name"].split("/iterations")[0]
        if name.startswith(prefix):
            yield name.removeprefix(prefix), run


def quality(folder):
    rows = []
    for pair, run in runs(folder, "resampler", "quality/"):
        for who, prefix in (("this library", ""), ("speexdsp 4", "speex ")):
            def figure(name, form, run=run, prefix=prefix):
                value = run[prefix + name]
                return "none" if value <= -300 else f"{value:{form}} dB"
            rows.append([pair.replace("to", "→"), who, figure("snr 997 Hz", ".1f"),
                         figure("snr 0.8", ".1f"), figure("level 0.8", "+.3f"),
                         figure("level 0.9", "+.2f"), figure("images", ".1f"),
                         figure("aliases", ".1f"), f"{run[prefix + 'latency']:.0f}"])
    return page.table(["rates", "", "SNR 997 Hz", "SNR 0.8 Nyquist", "level 0.8", "level 0.9",
                       "highest image", "highest alias", "latency, input frames"], rows)


def growth(folder):
    counts = [1, 2, 4, 8, 16, 32, 64]
    frames = [[kind, *[f"{run[f'{count} streams']:.2f}" for count in counts],
               f"{run['highest to 1 stream']:.2f}"]
              for kind, run in runs(folder, "growth", "growth/frame/")]
    changes = [[kind, f"{run['beside 1'] / 1000:.1f}", f"{run['beside 500'] / 1000:.1f}",
                f"{run['500 to 1']:.2f}"] for kind, run in runs(folder, "growth", "growth/change/")]
    memory = [[kind, *[f"{run[name]:.0f}" for name in ("buffer bytes", "bytes beside buffers",
                                                       "resident bytes", "bytes grown")]]
              for kind, run in runs(folder, "growth", "growth/memory/")]
    return "\n\n".join([
        page.table(["ns a frame of a stream, by streams", *map(str, counts),
                    "highest of 2 to 64 to 1"], frames),
        page.table(["making and dropping a stream, µs", "beside 1", "beside 500", "ratio"], changes),
        page.table(["bytes a stream, of 500", "buffers", "beside them", "resident",
                    "grown while playing"], memory)])


def latency(folder):
    rows = []
    for kind, run in runs(folder, "latency", "latency/"):
        for part, text in (("all", "all"), ("asleep", "the worker's idle sleep"),
                           ("rest", "the rest")):
            rows.append([kind, text, *[f"{run[f'{part} {spread}']:.2f}"
                                       for spread in ("p50", "p90", "p99", "max")]])
    return page.table(["stream", "ms", "p50", "p90", "p99", "max"], rows)


def control(folder):
    calls, cycles = [], []
    for kind, run in runs(folder, "control", "control/"):
        names = [name.removesuffix("p50 us") for name in run
                 if name.endswith("p50 us") and "cycle" not in name]
        for name in names:
            calls.append([kind if name == "" else f"{kind}: {name.strip()}",
                          f"{run[name + 'calls']:.0f}",
                          *[f"{run[name + spread]:.1f}" for spread in ("p50 us", "p99 us", "max us")],
                          *[f"{run[name + spread]:.0f}"
                            for spread in ("p90 cycles", "p99 cycles", "max cycles")]])
        cycles.append([kind, f"{run['own us']:.1f}",
                       *[f"{run[f'{which}cycle {spread} us']:.0f}"
                         for which in ("", "called ") for spread in ("p50", "p99", "max")]])
    return "\n\n".join([
        page.table(["call", "calls", "µs p50", "p99", "max", "cycles begun p90", "p99", "max"], calls),
        page.table(["calls", "µs while nothing is mixed", "a cycle's µs without them p50", "p99",
                    "max", "with them p50", "p99", "max"], cycles)])


def update(rows, folder):
    page.replace({"ratios": f"{machine()}\n\n{markdown(rows)}", "quality": quality(folder),
                  "growth": growth(folder), "latency": latency(folder),
                  "control": control(folder)})


def check(rows):
    # Two threads' ring and the whole job are not for a machine that does other things too.
    wanted = [(what, *cells[0]) for what, _, cells in rows
              if "two threads" not in what and "whole job" not in what]
    faults = [f"{what}: {'not measured' if ratio is None else f'{ratio:.2f}'}, wanted {reach}"
              for what, ratio, reach in wanted
              if reach is not None and (ratio is None or ratio > CHECK_FACTOR * reach)]
    if faults:
        sys.exit("bench.py: far from reach:\n" + "\n".join(faults))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("mode", choices=("print", "update", "check"))
    parser.add_argument("folder", help="with the results of the benchmarks")
    arguments = parser.parse_args()
    mode, folder = arguments.mode, arguments.folder
    rows = table(folder)
    print(markdown(rows))
    if mode == "print":
        for part in (quality, growth, latency, control):
            print(f"\n{part(folder)}")
    elif mode == "update":
        update(rows, folder)
    elif mode == "check":
        check(rows)
    return 0


if __name__ == "__main__":
    sys.exit(main())
