"""Holds the options and settings that manual pages and docs/tools.md tell against those of --help, and
the fields of docs/tools.md against a document.
"""

import json
import re
import subprocess

from docs_session import SCRATCH, TOOL, TREE, fail

COMMANDS = ("", "mix", "play", "hwsync", "hwsync pack", "hwsync inspect", "hwsync replay")
# Where docs/tools.md has their options: under these headings.
SECTIONS = {
    "mix": ("mix",),
    "play": ("mix", "play"),
    "hwsync pack": ("pack",),
    "hwsync inspect": ("hwsync", "inspect"),
    "hwsync replay": ("hwsync", "replay"),
}
HELP = {"-h", "--help"}


def help_of(command):
    return subprocess.run([TOOL, *command.split(), "--help"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout


def options_of(text):
    listed = re.search(r"^Options:\n(.*?)(?:\n\n|\Z)", text, re.S | re.M)[1]
    names = re.findall(r"^  (-\S+)", listed, re.M)
    return {option for name in names for option in name.split(",")} - HELP


def settings_of(text):
    return set(re.findall(r"^  ([a-z]+)=", text, re.M))


def check_manual_options():
    for command in COMMANDS:
        words = command.split()
        page = TREE / f"docs/man/{'-'.join(['streamproxy', *words[:1]])}.1"
        if words == ["hwsync"]:
            continue
        text = page.read_text()
        if len(words) == 2:
            text = text.split(f"\n.Ss {words[1]}\n")[1].split("\n.S")[0]
        items = re.findall(r"^\.It .*$", text, re.M)
        options = {f"-{name}" for item in items for name in re.findall(r"Fl (\S+)", item)} - HELP
        settings = {name for item in items for name in re.findall(r"It Cm (\w+) Ns =", item)}
        tell_difference(page.relative_to(TREE), command, options | settings,
                        options_of(help_of(command)) | settings_of(help_of(command)))


def tell_difference(where, command, documented, known):
    for option in sorted(known - documented):
        fail(where, f"lacks {option} of streamproxy {command}")
    for option in sorted(documented - known):
        fail(where, f"has {option}, which streamproxy {command} has not")


def check_tables():
    tables, heading = {}, ""
    for line in (TREE / "docs/tools.md").read_text().splitlines():
        title = re.match(r"##+ (\w+)$", line)
        if title and any(title[1] in headings for headings in SECTIONS.values()):
            heading = title[1]
        elif line.startswith("## "):
            heading = ""
        if line.startswith("|"):
            first = line.split("|")[1]
            tables.setdefault(heading, set()).update(re.findall(r"`(--?[a-z@][a-z-]*)", first))
    users = {}
    for command, headings in SECTIONS.items():
        known = options_of(help_of(command)) - {"-@"}
        documented = set().union(*(tables.get(heading, set()) for heading in headings))
        tell_difference("docs/tools.md", command, documented & known, known)
        for heading in headings:
            users.setdefault(heading, set()).update(known)
    for heading, known in users.items():
        for option in sorted(tables.get(heading, set()) - known):
            fail(f"docs/tools.md, {heading}", f"has {option}, which does not exist there")


def keys_of(value):
    if isinstance(value, dict):
        return set(value).union(*map(keys_of, value.values()))
    return set().union(*map(keys_of, value)) if isinstance(value, list) else set()


def check_json():
    """Every field of every document."""
    samples, output = SCRATCH / "samples", SCRATCH / "mix.wav"
    text = (TREE / "docs/tools.md").read_text()
    for arguments in (
        ["mix", f"{samples}/voice.wav@volume=1:0.5", "-o", output],
        ["hwsync", "inspect", f"{samples}/stream.hws"],
        ["hwsync", "replay", f"{samples}/stream.hws", "--rate", "44100", "--duration", "1s",
         "--event", "0.5s:jump=+400ms"],
    ):
        run = subprocess.run([TOOL, *arguments, "--json"], text=True, stdout=subprocess.PIPE)
        if run.returncode not in (0, 3):  # 3: a busy machine
            run.check_returncode()
        document = run.stdout
        for key in sorted(keys_of(json.loads(document))):
            if f"`{key}`" not in text:
                fail("docs/tools.md", f"does not tell what {key} is in the JSON of {arguments[:2]}")
