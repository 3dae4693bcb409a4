#!/usr/bin/env python3
"""Looks at what the product's files include of each other.

    includes.py cycles            says which files or folders include each other in a
                                  circle, directly or through others; a header and the
                                  source of its name count as one file
    includes.py picture           prints which folder sees which, as the build files say
    includes.py picture --check   compares that with the picture in HACKING.md
    includes.py picture --write   puts it there
"""
import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
# The rooms of the agent are folders of their own; what is deeper elsewhere is not.
PARTED = ("agent",)
FOLDERS = ("framework", "expand", "quota", "hwcalc", "frame", "control", "migrate", "host", "agent",
           "node", "share")
BEGIN, END = "<!-- folders: made by cmake/includes.py -->", "<!-- end of folders -->"


def sources():
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "--",
                             *FOLDERS], cwd=TOP, check=True, capture_output=True, text=True)
    return [name for name in listed.stdout.splitlines() if name.endswith((".h", ".cc"))]


def folder_of(path):
    parts = path.split("/")
    return "/".join(parts[:2]) if parts[0] in PARTED and len(parts) > 2 else parts[0]


def graphs():
    """Of files and of folders: what each includes."""
    files, folders = {}, {}
    for name in sources():
        unit = name.rsplit(".", 1)[0]
        text = (TOP / name).read_text()
        for included in re.findall(r'^\s*#\s*include "([^"]+)"', text, re.MULTILINE):
            other = included.rsplit(".", 1)[0]
            if not (TOP / included).exists() or other == unit:
                continue
            files.setdefault(unit, set()).add(other)
            if folder_of(included) != folder_of(name):
                folders.setdefault(folder_of(name), set()).add(folder_of(included))
    return files, folders


def circles(graph):
    """The sets of nodes that reach each other (Tarjan's strongly connected components)."""
    order, low, stack, found = {}, {}, [], []

    def visit(node):
        order[node] = low[node] = len(order)
        stack.append(node)
        for other in sorted(graph.get(node, ())):
            if other not in order:
                visit(other)
                low[node] = min(low[node], low[other])
            elif other in stack:
                low[node] = min(low[node], order[other])
        if low[node] == order[node]:
            members = stack[stack.index(node):]
            del stack[stack.index(node):]
            if len(members) > 1:
                found.append(sorted(members))

    sys.setrecursionlimit(10000)
    for node in sorted(graph):
        if node not in order:
            visit(node)
    return found


def cycles():
    files, folders = graphs()
    if not files or not folders:
        sys.exit("includes.py: there are no includes to look at")
    bad = [("files", circle) for circle in circles(files)]
    bad += [("folders", circle) for circle in circles(folders)]
    for kind, circle in bad:
        print(f"these {kind} include each other: {' '.join(circle)}")
    return 1 if bad else 0


def seen_folders():
    """What each folder may include, by the build files."""
    seen = {"framework": []}
    for path in sorted(TOP.glob("*/CMakeLists.txt")) + sorted(TOP.glob("agent/*/CMakeLists.txt")):
        text = path.read_text()
        for folder, names in re.findall(
                r'qx_(?:objects|library_part)\((\S+)\s+SEES\s+(.*?)\s+SOURCES', text, re.DOTALL):
            seen[folder] = [name for name in names.split() if name != '""']
    # Plain libraries say it by what they link.
    for folder in ("host", "node", "share"):
        text = (TOP / folder / "CMakeLists.txt").read_text()
        linked = set(re.findall(r"\b(\w+)_headers\b", text)) - {"qx", "target_precompile"}
        if re.search(r'PUBLIC[^)]*\bhost\b', text):
            linked |= {"host", "framework"}
        seen[folder] = sorted(name for name in linked if name != folder)
    return seen


def picture():
    seen = seen_folders()
    below = {folder: set(names) for folder, names in seen.items()}

    def height(folder):
        return 1 + max((height(name) for name in below[folder]), default=-1)

    rows = sorted(below, key=lambda folder: (-height(folder), folder))
    width = max(map(len, rows))
    lines = [f"    {folder:{width}}  ->  {' '.join(sorted(below[folder])) or '(nothing)'}"
             for folder in rows]
    return "\n".join([BEGIN, "", *lines, "", END])


def main():
    if sys.argv[1:] == ["cycles"]:
        return cycles()
    if sys.argv[1:2] == ["picture"]:
        page = TOP / "HACKING.md"
        text = page.read_text()
        if sys.argv[2:] == []:
            print(picture())
            return 0
        old = re.search(re.escape(BEGIN) + ".*" + re.escape(END), text, re.DOTALL)
        if not old:
            sys.exit(f"includes.py: HACKING.md has no '{BEGIN}'")
        if sys.argv[2:] == ["--write"]:
            page.write_text(text[:old.start()] + picture() + text[old.end():])
            return 0
        if sys.argv[2:] == ["--check"]:
            if old.group() == picture():
                return 0
            print("the picture of the folders in HACKING.md is not what the build files say:\n"
                  "run cmake/includes.py picture --write")
            return 1
    print(__doc__.strip(), file=sys.stderr)
    return 64


if __name__ == "__main__":
    sys.exit(main())
