"""Reads a gcovr JSON report: prints the coverage of lines and branches, and fails below the bounds
or where a line with an uncovered branch is neither in the list of reasons nor taken.

The list has blocks: a reason in lines that begin with '#', then the lines it holds for, each as
    FILE: the source line, without its indentation
"""

import json
import sys

MIN_LINES, MIN_BRANCHES = 95.0, 90.0


def read_reasons(path):
    with open(path, encoding="utf-8") as text:
        return {line.strip() for line in text if line.strip() and not line.startswith("#")}


def uncovered(report):
    """Totals, and the source lines with a branch that is never taken."""
    lines = taken_lines = branches = taken_branches = 0
    open_lines = []
    for file in report["files"]:
        with open(file["file"], encoding="utf-8") as text:
            source = text.read().split("\n")
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            counts = [branch["count"] for branch in line["branches"]]
            lines += 1
            taken_lines += line["count"] > 0
            branches += len(counts)
            taken_branches += sum(count > 0 for count in counts)
            if line["count"] > 0 and 0 in counts:
                open_lines.append(f"{file['file']}: {source[line['line_number'] - 1].strip()}")
    return 100 * taken_lines / lines, 100 * taken_branches / branches, open_lines


def main():
    with open(sys.argv[1], encoding="utf-8") as text:
        line_share, branch_share, open_lines = uncovered(json.load(text))
    reasons = read_reasons(sys.argv[2])
    print(f"lines {line_share:.1f}% (at least {MIN_LINES:.0f}%), "
          f"branches {branch_share:.1f}% (at least {MIN_BRANCHES:.0f}%), "
          f"{len(open_lines)} lines with an untaken branch")
    unnamed = sorted(set(open_lines) - reasons)
    if unnamed:
        print(f"neither covered nor in {sys.argv[2]}:", *unnamed, sep="\n  ", file=sys.stderr)
    # A reason for a line that is gone, or covered by now, is a false one.
    stale = sorted(reasons - set(open_lines))
    if stale:
        print(f"in {sys.argv[2]} for no reason any more:", *stale, sep="\n  ", file=sys.stderr)
    return 1 if unnamed or stale or line_share < MIN_LINES or branch_share < MIN_BRANCHES else 0


if __name__ == "__main__":
    sys.exit(main())
