"""The tables in docs/performance.md, each between a comment with its name and one that says end."""

import re

PATH = "docs/performance.md"


def replace(parts):
    """`parts`: the new content by name. A name that the page lacks is a mistake."""
    with open(PATH, encoding="utf-8") as page:
        text = page.read()
    for name, content in parts.items():
        text, count = re.subn(
            rf"(<!-- {name} -->\n).*?(<!-- end -->)",
            lambda mark, content=content: f"{mark[1]}{content}\n{mark[2]}", text, flags=re.S)
        if count != 1:
            raise ValueError(f"{PATH} has no table '{name}'")
    with open(PATH, "w", encoding="utf-8") as page:
        page.write(text)


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + " --- |" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])
