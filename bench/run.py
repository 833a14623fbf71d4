#!/usr/bin/env -S python3 -B
"""Measures, and writes docs/performance.md and its picture: the part of script/bench behind building."""

import logging
import pathlib
import subprocess
import sys

import figures
import measure
import page

DOCUMENT = pathlib.Path("docs/performance.md")
PICTURE = pathlib.Path("docs/performance.svg")


def main():
    logging.basicConfig(level=logging.INFO, format="%(message)s", stream=sys.stdout)
    try:
        measured = measure.measure()
    except (measure.MeasuringError, subprocess.CalledProcessError) as error:
        sys.exit(f"script/bench: {error}")
    figures.write(measure.FOLDER / "figures.json", measured)
    data = measure.FOLDER / "picture.tsv"
    data.write_text("\n".join(page.picture(measured)) + "\n")
    measure.run("gnuplot", "-e", f"data='{data}'; image='{PICTURE}'", "bench/plot.gp")
    DOCUMENT.write_text(page.page(measured))
    print(f"Written: {DOCUMENT}, {PICTURE}")


if __name__ == "__main__":
    main()
