# SPDX-License-Identifier: Apache-2.0
"""Draws the times that were measured last, with gnuplot: `python3 -m Benchmarks.plot`."""

import subprocess
from dataclasses import dataclass

from Benchmarks import results
from Tests.Support.Python.project import SOURCES

PLOTS = SOURCES / "docs/images"


@dataclass(frozen=True)
class Theme:
    """One of GitHub's two themes. Colour-blind people can tell the lines' colours apart, too (Okabe and Ito)."""

    name: str
    background: str
    text: str
    grid: str
    colours: dict[str, str]

    @property
    def file(self):
        return PLOTS / f"benchmark-{self.name}.svg"


THEMES = (
    Theme(
        *("light", "#ffffff", "#1f2328", "#d1d9e0"),
        {
            "list": "#0072b2",
            "activate": "#009e73",
            "service": "#00665e",
            "script": "#9a6700",
            "certutil": "#d55e00",
            "chrome": "#8b4a75",
        },
    ),
    Theme(
        *("dark", "#0d1117", "#f0f6fc", "#3d444d"),
        {
            "list": "#56b4e9",
            "activate": "#00c08d",
            "service": "#7fd6cc",
            "script": "#d4b106",
            "certutil": "#e69f00",
            "chrome": "#e5a3c8",
        },
    ),
)

# The shape of the points, which tells the lines apart without colours.
POINTS = {"list": 7, "activate": 5, "service": 4, "script": 6, "certutil": 9, "chrome": 13}
# How many lines of text a name is above the end of its line, so that no two names touch.
HEIGHTS = {"list": -0.6, "activate": 0.2, "service": 0.8, "script": 0.2, "certutil": -0.2, "chrome": 0.2}


def script(measured: list[dict], theme: Theme) -> str:
    lines, names, data = [], [], []
    for key, heading, _ in results.TIMES:
        points = [
            (each["identities"], each["milliseconds"][key]["median"])
            for each in measured
            if each["identities"] and key in each["milliseconds"]
        ]
        data.append(f"${key} << END\n" + "".join(f"{x} {y}\n" for x, y in points) + "END\n")
        style = f"linecolor '{theme.colours[key]}' linewidth 2 pointtype {POINTS[key]} pointsize 0.6"
        lines.append(f"${key} with linespoints {style} notitle")
        x, y = points[-1]
        name = heading.replace("`", "").replace("'", "’")  # gnuplot's quotation mark
        place = f"at {x},{y} left offset 1.2,{HEIGHTS[key]}"
        names.append(f"set label '{name}' {place} textcolor '{theme.colours[key]}'\n")
    counts = sorted(each["identities"] for each in measured if each["identities"])
    highest = max(times["median"] for each in measured for times in each["milliseconds"].values())
    tics = ", ".join(f"'{count:,}' {count}" for count in counts)
    return f"""\
set terminal svg size 720,430 font 'sans-serif,14' background '{theme.background}' name 'benchmark'
set encoding utf8
set output '{theme.file}'
set logscale xy
set xrange [0.8:{counts[-1] * 1.15}]
set yrange [1:{highest * 1.5}]
set xtics ({tics}) scale 0
set ytics ('1' 1, '10' 10, '100' 100, '1,000' 1000, '10,000' 10000, '100,000' 100000) scale 0
set border 1 linecolor '{theme.grid}'
set grid ytics linetype 1 linecolor '{theme.grid}' linewidth 0.7
set tics textcolor '{theme.text}'
set xlabel 'identities in the database' textcolor '{theme.text}'
set label 'ms' at graph 0,1 right offset -1,0.9 textcolor '{theme.text}'
set lmargin 9
set rmargin 14
set tmargin 2
{"".join(names)}{"".join(data)}plot {", ".join(lines)}
"""


def draw(measured: dict) -> None:
    for theme in THEMES:
        subprocess.run(["gnuplot"], input=script(measured["measured"], theme), text=True, check=True)


if __name__ == "__main__":
    draw(results.load())
