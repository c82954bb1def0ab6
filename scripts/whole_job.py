"""Mixes 8 WAV files of 60 s, four of them at other rates, into one of 44100 Hz and 16 bits: with
the tool, with sox and with ffmpeg, by turns.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 9
# rate, channels
FILES = [(44100, 2), (44100, 2), (44100, 1), (44100, 2), (48000, 2), (48000, 1), (32000, 2),
         (96000, 2)]


def make_inputs(folder):
    names = []
    for number, (rate, channels) in enumerate(FILES, 1):
        name = os.path.join(folder, f"in{number}.wav")
        subprocess.run(["sox", "-n", "-r", str(rate), "-c", str(channels), "-b", "16", name,
                        "synth", "60", "pinknoise", "gain", "-20"], check=True)
        names.append(name)
    return names


def commands(tool, names, folder):
    # sox mixes equal rates only: each other file comes through a sox of its own.
    pipes = [name if rate == 44100 and channels == 2 else
             f"|sox {name} -p rate 44100 channels 2"
             for name, (rate, channels) in zip(names, FILES)]
    inputs = [part for name in names for part in ("-i", name)]
    return {
        "streamproxy": [tool, "mix", *names, "--rate", "44100", "--quiet", "-o",
                        os.path.join(folder, "a.wav")],
        "sox": ["sox", "-m", *pipes, "-b", "16", os.path.join(folder, "b.wav")],
        "ffmpeg": ["ffmpeg", "-y", "-loglevel", "error", *inputs, "-filter_complex",
                   "amix=inputs=8:normalize=0", "-ar", "44100", "-c:a", "pcm_s16le",
                   os.path.join(folder, "c.wav")],
    }


def measure(command):
    begin = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"whole_job.py: failed with {process.returncode}: {' '.join(command)}")
    return {"wall s": time.monotonic() - begin, "cpu s": usage.ru_utime + usage.ru_stime,
            "KiB": usage.ru_maxrss}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("tool")
    parser.add_argument("result", help="JSON file to write")
    arguments = parser.parse_args()
    tool, result = arguments.tool, arguments.result
    figures = {}
    with tempfile.TemporaryDirectory() as folder:
        jobs = commands(tool, make_inputs(folder), folder)
        for _ in range(ROUNDS):
            for name, command in jobs.items():
                figures.setdefault(name, []).append(measure(command))
    medians = {name: {what: statistics.median(run[what] for run in runs) for what in runs[0]}
               for name, runs in figures.items()}
    with open(result, "w", encoding="utf-8") as out:
        json.dump(medians, out, indent=2)


if __name__ == "__main__":
    main()
