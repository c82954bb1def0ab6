"""Fills the table of a page with figures: the last cell of each row whose second cell names a check in
`code`, from the file of that name, or a dash where there is none.

    reliability.py PAGE FOLDER WHERE
"""

import pathlib
import re
import sys

ROW = re.compile(r"^(\| .* \| `([a-z0-9-]+)` \| ).* \|$")


def main():
    page, folder, where = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
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
