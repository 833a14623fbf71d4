"""Instructions in user space, counted by valgrind's callgrind."""

import logging
import os
import pathlib
import re
import shlex
import subprocess
import tempfile

PASSES = {"idle": 20}  # of a workload
MOST_PASSES = 50

# Bytes that the stack is moved by. libc's string functions take a longer way where a buffer lies across the end of a
# page, which is chance: at one of these places none does.
PLACES = (0, 512)


def instructions(function, *command, place=0):
    """The instructions of a function and all that it calls, while a command runs, and what the command prints."""
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder) / "log"
        valgrind = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"--log-file={log}",
                    "--collect-atstart=no", f"--toggle-collect={function}", *map(str, command)]
        logging.info("$ %s", shlex.join(valgrind))
        result = subprocess.run(valgrind, check=True, capture_output=True, text=True,
                                env={**os.environ, "LD_BIND_NOW": "1", "PLACE": " " * place})
        return collected(log.read_text()), result.stdout


def collected(log):
    return int(re.search(r"Collected : (\d+)", log)[1])


def instructions_per_record(bench, contestant, workload):
    """Of a contestant in the program input_bench. Of the workload idle: per wait."""
    command = (bench, "run", contestant, workload, PASSES.get(workload, MOST_PASSES))
    runs = [instructions("drainFrame", *command, place=place) for place in PLACES]
    return min(count / int(records) for count, records in runs)
