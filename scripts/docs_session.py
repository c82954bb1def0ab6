"""The commands of one page as one session, and where it is run: a folder with the tree, its build,
and the samples below. `default` is a sound device that swallows all.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

# What is not run, by how it begins, and why. An entry that nothing needs any more is an error.
NOT_RUN = {
    ".ci/run": "runs this",
    "adb ": "needs a device",
    "llvm-": "looks into the device's library, which is built elsewhere",
}
# Run where the sources are, not in the scratch folder.
IN_TREE = ("cmake --preset ", "ctest --preset ")

# Rate, channels, seconds of a tone.
SAMPLES = {
    "music.ogg": (44100, 2, 7),
    "music.flac": (44100, 2, 9),
    "song.flac": (48000, 2, 2),
    "stg00.ogg": (44100, 2, 2),
    "voice.wav": (22050, 1, 2),
    "voice.oga": (22050, 2, 2),
}
ASOUND = "pcm.!default { type null }\n"

TREE = pathlib.Path(__file__).resolve().parent.parent
BUILD, SCRATCH = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
TOOL = BUILD / "bin/streamproxy"
ENVIRONMENT = {
    **os.environ,
    "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}",
    "ALSA_CONFIG_PATH": str(SCRATCH / "asound.conf"),
}
failures = []
excused = set()  # the entries of NOT_RUN that were needed


def fail(where, what):
    failures.append(f"{where}: {what}")


class Session:
    """The commands of one page, and the files that it shows."""

    def __init__(self, name):
        self.name = name
        self.commands = []  # (line, text, lines shown below it)
        self.files = {}
        self.run_count = 0

    def add(self, line, text, shown=()):
        text = text.strip()
        where = f"{self.name}:{line}"
        verb = re.match(r"(?:[A-Z]+=\S+ )*\./dev (\w+)", text)
        if verb:
            # CI runs them.
            if verb[1] != "help" and not (TREE / f"scripts/{verb[1]}.sh").exists():
                fail(where, f"./dev has no {verb[1]}")
            return
        for beginning in NOT_RUN:
            if text.startswith(beginning):
                excused.add(beginning)
                return
        self.commands.append((line, text, list(shown)))

    def add_block(self, first_line, lines):
        """Commands may go over several lines."""
        command, begin = "", first_line
        for number, line in enumerate(lines, first_line):
            begin = begin if command else number
            command += line + "\n"
            if not line.endswith("\\") and is_whole(command):
                if line.strip() and not line.strip().startswith("#"):
                    self.add(begin, command)
                command = ""
        if command:
            fail(f"{self.name}:{begin}", f"is no whole command: {command}")

    def run(self):
        folder = SCRATCH / re.sub(r"\W+", "-", self.name)
        log = SCRATCH / "log" / folder.name
        log.mkdir(parents=True)
        furnish(folder)
        for name, text in self.files.items():
            (folder / name).write_text(text)
        script = ["set -o pipefail"]
        for line, text, _ in self.commands:
            group = f"{{\n{text}\n}}"
            if text.startswith(IN_TREE):
                group = f"( cd '{TREE}' && {group} )"
            script += [f"echo {line} >'{log}/line'",
                       f"{group} >'{log}/{line}' 2>&1 </dev/null || {tolerance(text)}exit"]
        try:
            code = subprocess.run(["bash", "-c", "\n".join(script)], cwd=folder, env=ENVIRONMENT,
                                  stdin=subprocess.DEVNULL, timeout=600).returncode
        except subprocess.TimeoutExpired:
            code = "no end"
        last = int((log / "line").read_text()) if (log / "line").exists() else 0
        for line, text, shown in self.commands:
            output = (log / str(line)).read_text(errors="replace") if line <= last else ""
            if code != 0 and line >= last:
                tail = "\n".join(output.splitlines()[-20:])
                fail(f"{self.name}:{line}", f"fails ({code}): {text}\n{tail}")
                break
            self.run_count += 1
            # What is played in real time decides a little otherwise each time.
            if " replay " not in text:
                compare(f"{self.name}:{line}", shown, output)


def tolerance(text):
    """A replay says by 3 that the machine is busy."""
    return "[ $? -eq 3 ] || " if " replay " in text else ""


def is_whole(command):
    check = subprocess.run(["bash", "-n"], input=command, text=True, capture_output=True)
    return check.returncode == 0


def without_numbers(text):
    return {re.sub(r"[\d.]+", "0", re.sub(r"\s+", " ", line.strip())) for line in text}


def compare(where, shown, output):
    missing = without_numbers(shown) - without_numbers(output.splitlines()) - {""}
    if missing:
        fail(where, "shows what does not come out: " + "; ".join(sorted(missing)))


def furnish(folder):
    """What the pages expect around them: the tree, its build, and files to play."""
    folder.mkdir()
    for entry in TREE.iterdir():
        if entry.name not in ("build", "out", ".git"):
            (folder / entry.name).symlink_to(entry)
    (folder / "build").mkdir()
    (folder / "build/release").symlink_to(BUILD)
    for sample in (SCRATCH / "samples").iterdir():
        shutil.copy(sample, folder)  # commands write over some


def make_samples():
    folder = SCRATCH / "samples"
    folder.mkdir()
    for name, (rate, channels, seconds) in SAMPLES.items():
        kind = ["-t", "vorbis"] if name.endswith(".oga") else []
        subprocess.run(["sox", "-n", "-r", str(rate), "-c", str(channels), *kind, folder / name,
                        "synth", str(seconds), "sine", "440", "vol", "0.3"], check=True)
    subprocess.run([TOOL, "hwsync", "pack", folder / "music.ogg", "-o", folder / "stream.hws",
                    "--quiet"], check=True)
    (SCRATCH / "asound.conf").write_text(ASOUND)
