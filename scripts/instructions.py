"""AArch64 instructions a frame, counted by the emulator.

PROGRAM is bench_instructions, built for AArch64. `check` compares with bench/aarch64/instructions.txt
and fails where a frame takes more than a tenth more; `update` rewrites that file and the table in
docs/performance.md. The counts are exact: the same program has the same ones on every machine.
"""

import argparse
import subprocess
import sys

import page

TABLE = "bench/aarch64/instructions.txt"
TOLERANCE = 1.1
MARK = b" instructionsMark\n"
# A plain core, so that the C library chooses the same memcpy() everywhere.
EMULATOR = ["qemu-aarch64", "-cpu", "cortex-a57", "-singlestep", "-d", "exec,nochain"]


def counts_between_marks(log):
    """One line of the log is one instruction. The first count is what comes before all marks."""
    counts, in_mark = [0], False
    for line in log:
        if line.endswith(MARK):
            if not in_mark:
                counts.append(0)
            in_mark = True
        elif line.startswith(b"Trace "):
            in_mark = False
            counts[-1] += 1
    return counts[1:]


def measure(program):
    """Instructions a frame, by the name of the work."""
    with subprocess.Popen([*EMULATOR, program], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as run:
        counts = counts_between_marks(run.stderr)
        works = [line.decode().rstrip("\n").split(" ", 1) for line in run.stdout]
    if run.returncode != 0 or not works or len(counts) != 3 * len(works):
        sys.exit(f"instructions.py: {program} failed, or the log is not whole")
    # Each work runs for its frames, then for twice as many: what both have in common goes out.
    return {name: (counts[3 * i + 1] - counts[3 * i]) / int(frames)
            for i, (frames, name) in enumerate(works)}


def read_table():
    with open(TABLE, encoding="utf-8") as file:
        rows = [line.rstrip("\n").split("\t") for line in file]
    return {name: float(count) for name, count in rows}


def update(measured):
    with open(TABLE, "w", encoding="utf-8") as file:
        file.writelines(f"{name}\t{count:.3f}\n" for name, count in measured.items())
    page.replace({"instructions": page.table(
        ["work", "instructions a frame"],
        [(name, f"{count:.2f}") for name, count in measured.items()])})


def check(measured):
    faults, former = [], read_table()
    for name in sorted(measured.keys() | former.keys()):
        was, now = former.get(name), measured.get(name)
        if was is None or now is None:
            faults.append(f"{name}: was {was}, is {now}")
        elif now > TOLERANCE * was:
            faults.append(f"{name}: was {was:.3f} instructions a frame, is {now:.3f}")
        elif TOLERANCE * now < was:
            print(f"{name}: {now:.3f} instead of {was:.3f}; keep that with --update",
                  file=sys.stderr)
    if faults:
        sys.exit("instructions.py:\n" + "\n".join(faults))
    print(f"{len(measured)} counts, none above the table's by more than a tenth")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("mode", choices=("check", "update"))
    parser.add_argument("program")
    arguments = parser.parse_args()
    {"check": check, "update": update}[arguments.mode](measure(arguments.program))
