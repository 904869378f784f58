#!/usr/bin/env python3
"""Draws terminals, captured with `tmux capture-pane -e -p`, side by side as one SVG.

Usage: svg.py TITLE=FILE... > picture.svg
"""
import re
import sys
import unicodedata
from html import escape

COLUMN, ROW, FONT = 8.4, 19, 14  # of one cell, in pixels
MARGIN, BAR = 14, 30
BACKGROUND, FOREGROUND = "#1b1f27", "#d7dae0"
COLOURS = {31: "#e06c75", 32: "#98c379", 33: "#e5c07b", 34: "#61afef", 35: "#c678dd", 36: "#56b6c2"}


def cells(letter):
    if unicodedata.combining(letter):
        return 0
    return 2 if unicodedata.east_asian_width(letter) in "WF" else 1


def restyled(style, codes):
    for code in codes:
        if code == 0:
            style = {}
        elif code == 1:
            style = {**style, "bold": True}
        elif code == 2:
            style = {**style, "dim": True}
        elif code == 39:
            style = {key: value for key, value in style.items() if key != "colour"}
        elif code in COLOURS:
            style = {**style, "colour": COLOURS[code]}
    return style


def runs(lines):
    """Yields (row, column, text, style); the style goes on over the ends of lines, as on a terminal."""
    style = {}
    for row, line in enumerate(lines):
        column = 0
        for part in re.split(r"(\x1b\[[0-9;]*m)", line):
            if part.startswith("\x1b"):
                style = restyled(style, [int(code or 0) for code in part[2:-1].split(";")])
            elif part:
                yield row, column, part, style
                column += sum(map(cells, part))


def attributes(style):
    result = f' fill="{style.get("colour", FOREGROUND)}"'
    result += ' font-weight="bold"' if style.get("bold") else ""
    return result + (' opacity="0.55"' if style.get("dim") else "")


def terminal(title, lines, width, height):
    yield f'<rect width="{width:.0f}" height="{height:.0f}" rx="8" fill="{BACKGROUND}"/>'
    for i, colour in enumerate(("#e06c75", "#e5c07b", "#98c379")):
        yield f'<circle cx="{MARGIN + 4 + 18 * i}" cy="15" r="5" fill="{colour}"/>'
    yield f'<text x="{width / 2:.0f}" y="20" fill="#8b919d" text-anchor="middle">{escape(title)}</text>'
    for row, column, text, style in runs(lines):
        x, y = MARGIN + column * COLUMN, BAR + MARGIN + row * ROW
        length = sum(map(cells, text)) * COLUMN
        yield (f'<text x="{x:.1f}" y="{y}" textLength="{length:.1f}" xml:space="preserve"{attributes(style)}>'
               f"{escape(text)}</text>")


def main():
    screens = []
    for argument in sys.argv[1:]:
        title, _, name = argument.partition("=")
        with open(name, encoding="utf-8") as file:
            screens.append((title, file.read().rstrip("\n").split("\n")))
    columns = max(sum(cells(c) for c in re.sub(r"\x1b\[[0-9;]*m", "", line)) for _, lines in screens for line in lines)
    width = columns * COLUMN + 2 * MARGIN
    height = max(len(lines) for _, lines in screens) * ROW + BAR + MARGIN
    total = len(screens) * (width + MARGIN) - MARGIN
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {total:.0f} {height:.0f}" font-size="{FONT}" '
          'font-family="ui-monospace, SFMono-Regular, Menlo, DejaVu Sans Mono, monospace">')
    for i, (title, lines) in enumerate(screens):
        print(f'<g transform="translate({i * (width + MARGIN):.0f} 0)">')
        print("\n".join(terminal(title, lines, width, height)))
        print("</g>")
    print("</svg>")


main()
