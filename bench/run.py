#!/usr/bin/env -S python3 -B
"""Measures, and writes docs/performance.md and its pictures: the part of script/bench behind building."""

import logging
import pathlib
import subprocess
import sys

import figures
import growth
import measure
import page

DOCUMENT = pathlib.Path("docs/performance.md")
PICTURE = pathlib.Path("docs/performance.svg")
GROWTH_PICTURE = pathlib.Path("docs/growth.svg")


def draw(picture, script, lines):
    """What gnuplot makes of the data."""
    data = measure.FOLDER / picture.with_suffix(".tsv").name
    data.write_text("\n".join(lines) + "\n")
    measure.run("gnuplot", "-e", f"data='{data}'; image='{picture}'", script)


def main():
    logging.basicConfig(level=logging.INFO, format="%(message)s", stream=sys.stdout)
    try:
        measured = measure.measure()
        measured["growth"] = growth.measure()
    except (measure.MeasuringError, subprocess.CalledProcessError) as error:
        sys.exit(f"script/bench: {error}")
    figures.write(measure.FOLDER / "figures.json", measured)
    draw(PICTURE, "bench/plot.gp", page.picture(measured))
    draw(GROWTH_PICTURE, "bench/growth.gp", page.growth_picture(measured["growth"]))
    DOCUMENT.write_text(page.page(measured))
    print(f"Written: {DOCUMENT}, {PICTURE}, {GROWTH_PICTURE}")


if __name__ == "__main__":
    main()
