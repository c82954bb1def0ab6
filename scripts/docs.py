"""docs.py BUILD SCRATCH : runs what the documentation tells to run, and holds it against the program.

Commands are the blocks marked sh, or console (lines behind "$ ", their output below), of the pages;
the examples of every --help; the literal displays of the manual pages. Each page is one session.
"""

import concurrent.futures
import re
import subprocess
import sys

from docs_options import COMMANDS, check_json, check_manual_options, check_tables, help_of
from docs_session import NOT_RUN, SCRATCH, TREE, Session, excused, fail, failures, make_samples
from markdown_page import MarkdownPage

# What a code span has to begin with to be a command of that kind.
INLINE = re.compile(r"(?:[A-Z]+=\S+ )*\./dev |\.ci/run|(?:cmake|ctest|mkdir) -|doxygen |man docs/|"
                    r"streamproxy ")


def read_page(path, page):
    session = Session(str(path.relative_to(TREE)))
    for line, words, lines in page.fences:
        where = f"{session.name}:{line - 1}"
        kind = words[0] if words else ""
        if kind == "sh":
            session.add_block(line, lines)
        elif kind == "console":
            read_console(session, line, lines)
        elif kind == "c" and len(words) == 2:
            session.files[words[1]] = "\n".join(lines) + "\n"
        elif kind == "text":
            if re.match(r"(streamproxy|\./dev) [^A-Z]*$", lines[0]):
                fail(where, "looks like a command; mark the block sh")
        elif kind != "bp":
            fail(where, f"a block marked '{' '.join(words)}': sh, console, text, or c with the name "
                        "of a file that commands compile")
    for line in page.indented:
        fail(f"{session.name}:{line}", "an indented block; fence it, and mark it sh or text")
    for line, span in page.spans:
        if INLINE.match(span):
            # Spans name subcommands without what these need.
            session.add(line, f"{span} --help" if span.startswith("streamproxy ") else span)
    session.commands.sort(key=lambda command: command[0])
    return session


def read_console(session, line, lines):
    at = 0
    while at < len(lines):
        begin = at
        if not lines[at].startswith("$ "):
            fail(f"{session.name}:{line + at}", "output without a command")
            return
        command = lines[at][2:]
        while at + 1 < len(lines) and lines[at + 1].startswith("> "):
            at += 1
            command += "\n" + lines[at][2:]
        at += 1
        shown = []
        while at < len(lines) and not lines[at].startswith("$ "):
            shown.append(lines[at])
            at += 1
        session.add(line + begin, command, shown)


def check_links(path, page, pages):
    for target in page.targets:
        if "://" in target:
            continue
        name, _, anchor = target.partition("#")
        file = (path.parent / name).resolve() if name else path
        if not file.exists():
            fail(path.relative_to(TREE), f"links to {target}, which does not exist")
        elif anchor and file not in pages:
            pages[file] = MarkdownPage(file)
        if anchor and file in pages and anchor not in pages[file].anchors:
            fail(path.relative_to(TREE), f"links to {target}: no such heading")


def read_help(command):
    name = " ".join(f"streamproxy {command} --help".split())
    session, text = Session(name), help_of(command)
    if "\nExit codes: 0 " not in text:
        fail(name, "does not tell the exit codes")
    lines = text.splitlines()
    if "Examples:" not in lines:
        fail(name, "has no examples")
        return session
    begin = lines.index("Examples:") + 1
    examples = lines[begin:lines.index("", begin)]
    session.add_block(begin + 1, [line.strip() for line in examples])
    return session


def read_manual(path):
    session = Session(str(path.relative_to(TREE)))
    block, begin = None, 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith(".Bd -literal"):
            block, begin = [], number + 1
        elif line == ".Ed":
            session.add_block(begin, block)
            block = None
        elif block is not None:
            block.append(line.replace(r"\e", "\\").replace(r"\-", "-"))
        for page in re.findall(r"^\.Xr (\S+) 1", line):
            if not (path.parent / f"{page}.1").exists():
                fail(f"{session.name}:{number}", f"refers to {page}(1), which does not exist")
    lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", path], text=True, capture_output=True)
    if lint.stdout.strip():
        fail(session.name, lint.stdout)
    return session


def main():
    SCRATCH.mkdir(exist_ok=True)
    make_samples()
    sessions = []
    paths = [TREE / "README.md", *sorted((TREE / "docs").glob("*.md"))]
    pages = {path: MarkdownPage(path) for path in paths}
    for path in paths:
        check_links(path, pages[path], pages)
        sessions.append(read_page(path, pages[path]))
    sessions += [read_help(command) for command in COMMANDS]
    sessions += [read_manual(path) for path in sorted((TREE / "docs/man").glob("*.1"))]
    check_manual_options()
    check_tables()
    check_json()
    for beginning in sorted(set(NOT_RUN) - excused):
        fail("scripts/docs_session.py", f"excuses '{beginning}', which no page has")
    # Most of them play in real time, and wait.
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        list(pool.map(Session.run, sessions))
    if failures:
        sys.exit("\n".join(failures))
    print(f"{sum(session.run_count for session in sessions)} commands of "
          f"{sum(bool(session.commands) for session in sessions)} pages run")


if __name__ == "__main__":
    main()
