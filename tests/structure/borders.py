#!/usr/bin/env python3
"""Asks the compiler, for every two folders of the product, whether a file of the one can
include a header of the other, with the options that the first one's files are compiled
with: it must be found where the design lets the folders see each other, and nowhere else.

    borders.py COMPILE_COMMANDS SOURCE_DIRECTORY
"""
import json
import pathlib
import shlex
import subprocess
import sys
import tempfile

AGENT = ["agent/system", "agent/wire", "agent/transport", "agent/framework", "agent/plan",
         "agent/verify", "agent/programs"]
# What each folder may include beside its own files. The build files say it once more.
MAY_SEE = {
    "expand": [],
    "quota": ["expand", "framework"],
    "hwcalc": ["expand", "quota", "framework"],
    "frame": ["framework"],
    "control": ["frame", "framework"],
    "migrate": ["frame", "quota", "expand", "framework"],
    "host": ["framework"],
    "node": ["host", "framework"],
    "share": ["host", "framework"],
    "agent/journal": ["host", "framework"],
    # A page is made of a journal.
    "agent/page": ["agent/journal", "agent/plan", "agent/wire", "host", "framework"],
    **{room: [*AGENT[:i], "framework", "host"] for i, room in enumerate(AGENT)},
}
# The calculator's entry is an interface for agents.
MAY_SEE["agent/plan"].append("hwcalc")
# A comparison needs no plan. Listing and comparing trees is what the copy engine does, too.
MAY_SEE["agent/verify"].remove("agent/plan")
MAY_SEE["agent/verify"].append("share")
MAY_SEE["agent/programs"] += ["agent/journal", "agent/page"]
FOLDERS = [*MAY_SEE, "framework"]


def options_of(folder, commands, places):
    """The include options of a folder's sources, or of those that the build made of them."""
    for command in commands:
        path = pathlib.Path(command["file"])
        if any(path.is_relative_to(place / folder) for place in places) and \
                not path.name.endswith("_main.cc"):
            words = shlex.split(command["command"])
            includes = []
            for i, word in enumerate(words):
                if word in ("-I", "-isystem"):
                    includes += [word, words[i + 1]]
                elif word.startswith("-I"):
                    includes.append(word)
            return includes
    sys.exit(f"borders.py: no file of {folder} is compiled")


def found_headers(headers, options):
    """Those that an include finds."""
    text = "".join(f'#if __has_include("{header}")\nfound {header}\n#endif\n' for header in headers)
    # In a directory of its own, as quoted includes are looked up beside the file too.
    with tempfile.TemporaryDirectory() as empty:
        run = subprocess.run(["c++", "-std=c++20", *options, "-E", "-P", "-x", "c++", "-"], cwd=empty,
                             input=text, capture_output=True, text=True, check=True)
    return [line.removeprefix("found ") for line in run.stdout.splitlines() if line]


def main():
    commands = json.loads(pathlib.Path(sys.argv[1]).read_text())
    top = pathlib.Path(sys.argv[2]).resolve()
    places = [top, pathlib.Path(sys.argv[1]).resolve().parent]
    bad = looked = 0
    for folder, seen in MAY_SEE.items():
        others = {str(next((top / other).rglob("*.h")).relative_to(top)): other
                  for other in FOLDERS if other != folder}
        found = found_headers(others, options_of(folder, commands, places))
        for header, other in others.items():
            looked += 1
            if (header in found) != (other in seen):
                bad += 1
                print(f"{folder} {'does not see' if other in seen else 'sees'} {other} ({header})")
    print(f"looked at {looked} borders, {bad} are wrong")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
