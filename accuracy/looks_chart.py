#!/usr/bin/env python3
"""Draws docs/images/looks.svg: whom each choice of looks finds, and which falls it tells, against its processor time.

accuracy/looks_chart.py

The numbers are those of the table in docs/performance.md between the marks "looks: begin" and "looks: end".
"""
import html
import math
import pathlib
import re

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 720, 400, 60, 20, 36, 48
TICKS_MS = (5, 10, 20, 50, 100)
CLIPS = 6
STEP = 10  # people
COLOURS = {"fp32": "#1f5fa8", "int8": "#b3541e"}


def rows(page):
    """(looks, numbers, ms, people found of all five trials, clips told) of each row."""
    table = re.search(r"<!-- looks: begin -->(.*)<!-- looks: end -->", page, re.DOTALL)[1]
    for line in table.strip().splitlines()[2:]:
        looks, numbers, ms, *found, clips = [cell.strip() for cell in line.strip("| ").split("|")][:9]
        yield looks, numbers, float(ms), sum(map(int, found)), int(clips)


def picture(choices):
    choices = list(choices)
    most_ms = max(ms for _, _, ms, _, _ in choices) * 1.3
    least_ms = min(ms for _, _, ms, _, _ in choices) / 1.3
    people = [found for _, _, _, found, _ in choices]
    least, most = min(people) // STEP * STEP, (max(people) // STEP + 1) * STEP

    def across(ms):
        return LEFT + (WIDTH - LEFT - RIGHT) * math.log(ms / least_ms) / math.log(most_ms / least_ms)

    def down(found):
        return TOP + (HEIGHT - TOP - BOTTOM) * (most - found) / (most - least)

    def text(x, y, words, anchor="middle", **style):
        attributes = "".join(f' {key.replace("_", "-")}="{value}"' for key, value in style.items())
        return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}"{attributes}>{html.escape(words)}</text>'

    floor = HEIGHT - BOTTOM
    drawn = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
             'font-size="13">', f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
             text(LEFT, 20, "People found in five times fifty pictures; beside a choice: clips of a fall told, of six",
                  "start", font_weight="bold"),
             text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 10, "processor time of one run, ms")]
    for ms in (tick for tick in TICKS_MS if least_ms <= tick <= most_ms):
        drawn += [f'<path d="M{across(ms):.0f} {TOP}V{floor}" stroke="#ddd"/>', text(across(ms), floor + 18, str(ms))]
    for found in range(least, most + 1, STEP):
        drawn += [f'<path d="M{LEFT} {down(found):.0f}H{WIDTH - RIGHT}" stroke="#ddd"/>',
                  text(LEFT - 8, down(found) + 4, str(found), "end")]
    for looks, numbers, ms, found, clips in choices:
        colour = COLOURS[numbers]
        drawn += [f'<circle cx="{across(ms):.0f}" cy="{down(found):.0f}" r="6" stroke="{colour}" stroke-width="2" '
                  f'fill="{colour if clips == CLIPS else "white"}"/>',
                  text(across(ms) + 10, down(found) - 6, f"by {looks}: {clips}", "start", fill=colour)]
    for place, (numbers, colour) in enumerate(COLOURS.items()):
        drawn.append(text(WIDTH - RIGHT - 8, floor - 30 + 18 * place, numbers, "end", fill=colour))
    drawn.append(text(WIDTH - RIGHT - 8, floor - 48, "filled: all six falls", "end"))
    return "\n".join(drawn + ["</svg>", ""])


if __name__ == "__main__":
    PAGE = (DOCS / "performance.md").read_text(encoding="utf-8")
    (DOCS / "images" / "looks.svg").write_text(picture(rows(PAGE)), encoding="utf-8")
