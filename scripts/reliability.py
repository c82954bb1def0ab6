"""Fills the table of a page with figures: the last cell of each row whose second cell names a check in
`code`, from the file of that name, or a dash where there is none.
"""

import argparse
import pathlib
import re

ROW = re.compile(r"^(\| .* \| `([a-z0-9-]+)` \| ).* \|$")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("folder", type=pathlib.Path, help="with the checks' figures")
    parser.add_argument("where", help="they ran")
    arguments = parser.parse_args()
    page, folder, where = arguments.page, arguments.folder, arguments.where
    lines, used = [], set()
    for line in page.read_text(encoding="utf-8").split("\n"):
        row = ROW.match(line)
        if row:
            used.add(row[2])
            file = folder / f"{row[2]}.txt"
            figures = file.read_text(encoding="utf-8").strip() if file.exists() else "–"
            line = f"{row[1]}{figures} |"
        elif line.startswith("Measured "):
            line = f"Measured {where}."
        lines.append(line)
    page.write_text("\n".join(lines), encoding="utf-8")
    unused = sorted(file.stem for file in folder.glob("*.txt") if file.stem not in used)
    if unused:
        print(f"{page} has no row for: {', '.join(unused)}")


if __name__ == "__main__":
    main()
