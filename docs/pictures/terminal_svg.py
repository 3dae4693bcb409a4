#!/usr/bin/env python3
"""Draws what `tmux capture-pane -e` says of a terminal as an SVG, in a light and a dark
coat, after what the reader's system prefers.

  terminal_svg.py TITLE <CAPTURE >PICTURE.svg

Of ECMA-48's "Select Graphic Rendition" it knows what qxmigrate uses: bold, red, green,
yellow. Anything else ends it.
"""
import html
import re
import sys

COLUMNS = 80
WIDTH, HEIGHT = 8.4, 18  # of a character, at 14 pixels
MARGIN = 16
CLASSES = {1: "bold", 31: "red", 32: "green", 33: "yellow"}

STYLE = """
  .ground { fill: #fbfbf8; stroke: #d5d5cd; }
  text { font: 14px "DejaVu Sans Mono", Menlo, Consolas, monospace; fill: #1f2328; white-space: pre; }
  .bold { font-weight: bold; } .red { fill: #b3261e; } .green { fill: #1a6b2d; } .yellow { fill: #7a5200; }
  @media (prefers-color-scheme: dark) {
    .ground { fill: #16181c; stroke: #3a3d44; }
    text { fill: #e4e4e0; }
    .red { fill: #ff8a80; } .green { fill: #7fd48f; } .yellow { fill: #e6c04d; }
  }
"""


def spans(line, state):
    """The pieces of a line: (classes, text); `state` goes on to the next line."""
    for piece in re.split(r"(\x1b\[[0-9;]*m)", line):
        if not piece.startswith("\x1b"):
            yield sorted(state), piece
            continue
        for code in [int(c or 0) for c in piece[2:-1].split(";")]:
            if code in (0, 39):
                state.clear()
            elif code in CLASSES:
                state.add(CLASSES[code])
            elif code != 49:  # the ground stays as it is
                sys.exit(f"terminal_svg: what is {code}?")


def main():
    title = sys.argv[1]
    lines = sys.stdin.read().rstrip("\n").split("\n")
    width = COLUMNS * WIDTH + 2 * MARGIN
    height = len(lines) * HEIGHT + 2 * MARGIN
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:g} {height:g}" '
          f'width="{width:g}" height="{height:g}" role="img" aria-label="{html.escape(title)}">')
    print(f"<title>{html.escape(title)}</title><style>{STYLE}</style>")
    print(f'<rect class="ground" x="0.5" y="0.5" width="{width - 1:g}" height="{height - 1:g}" rx="6"/>')
    state = set()
    for number, line in enumerate(lines):
        y = MARGIN + (number + 0.75) * HEIGHT
        column = 0
        for classes, text in spans(line, state):
            names = f' class="{" ".join(classes)}"' if classes else ""
            if text.strip():
                print(f'<text x="{MARGIN + column * WIDTH:g}" y="{y:g}"{names} '
                      f'textLength="{len(text) * WIDTH:g}" xml:space="preserve">{html.escape(text)}</text>')
            column += len(text)
    print("</svg>")


main()
