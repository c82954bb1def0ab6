"""Reads what `llvm-cov export` wrote: prints the coverage of lines and of branches (each outcome of
each condition), and fails below the bounds or where an outcome that no test takes is not in the list
of reasons.

The list has blocks: a reason in lines that begin with '#', then the outcomes it holds for, each as
    FILE: never true: CONDITION        or        FILE: never false: CONDITION
as often as the file has it. With "seldom" for "never", a run may take it: it depends on how threads meet.
"""

import argparse
import collections
import json
import os
import sys

MIN_LINES, MIN_BRANCHES = 95.0, 90.0


def read_reasons(path):
    """The outcomes that may go untaken, and those of them that no run takes."""
    with open(path, encoding="utf-8") as text:
        listed = [line.strip() for line in text if line.strip() and not line.startswith("#")]
    return (collections.Counter(line.replace(": seldom ", ": never ") for line in listed),
            collections.Counter(line for line in listed if ": never " in line))


def condition(source, begin_line, begin_column, end_line, end_column):
    if begin_line == end_line:
        return source[begin_line - 1][begin_column - 1:end_column - 1]
    lines = [source[begin_line - 1][begin_column - 1:], *source[begin_line:end_line - 1],
             source[end_line - 1][:end_column - 1]]
    return " ".join(line.strip() for line in lines)


def branches(file):
    """Each condition once, with how often it was true and false in all instances of its template."""
    counts = collections.defaultdict(lambda: [0, 0])
    for begin_line, begin_column, end_line, end_column, taken, passed, *_ in file["branches"]:
        counts[begin_line, begin_column, end_line, end_column][0] += taken
        counts[begin_line, begin_column, end_line, end_column][1] += passed
    return counts


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("coverage", help="JSON of llvm-cov export")
    parser.add_argument("reasons", help="outcomes that no test takes, and why")
    parser.add_argument("folders", nargs="+", help="that count")
    arguments = parser.parse_args()
    with open(arguments.coverage, encoding="utf-8") as text:
        report = json.load(text)
    lines = covered_lines = outcomes = covered_outcomes = 0
    untaken = collections.Counter()
    for file in report["data"][0]["files"]:
        name = os.path.relpath(file["filename"])
        if name.split("/")[0] not in arguments.folders:
            continue
        lines += file["summary"]["lines"]["count"]
        covered_lines += file["summary"]["lines"]["covered"]
        with open(name, encoding="utf-8") as text:
            source = text.read().split("\n")
        for place, counts in branches(file).items():
            # Decided by the compiler: no run can take the other way.
            if "if constexpr" in source[place[0] - 1]:
                continue
            for outcome, count in zip(("true", "false"), counts):
                outcomes += 1
                covered_outcomes += count > 0
                if count == 0:
                    untaken[f"{name}: never {outcome}: {condition(source, *place)}"] += 1
    line_share, branch_share = 100 * covered_lines / lines, 100 * covered_outcomes / outcomes
    print(f"lines {line_share:.1f}% (at least {MIN_LINES:.0f}%), "
          f"branches {branch_share:.1f}% (at least {MIN_BRANCHES:.0f}%), "
          f"{outcomes - covered_outcomes} outcomes never taken, each with its reason")
    reasons, fixed = read_reasons(arguments.reasons)
    unnamed = sorted((untaken - reasons).elements())
    if unnamed:
        print(f"neither taken nor in {arguments.reasons}:", *unnamed, sep="\n  ", file=sys.stderr)
    # A reason for what is gone, or taken by now, is a false one.
    stale = sorted((fixed - untaken).elements())
    if stale:
        print(f"in {arguments.reasons} for no reason any more:", *stale, sep="\n  ", file=sys.stderr)
    return 1 if unnamed or stale or line_share < MIN_LINES or branch_share < MIN_BRANCHES else 0


if __name__ == "__main__":
    sys.exit(main())
