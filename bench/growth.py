#!/usr/bin/env -S python3 -B
"""How the commands of quarlo-input grow: processor time and the largest resident set, for more and more records of a mouse
or a keyboard, or lines of a remote, and for time in which nothing comes. By itself it prints that: script/bench
--growth. REQUIRES: the program is built, and the amd64 guest fetched."""

import logging
import os
import pathlib
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
from itertools import islice

import page
from figures import COUNTS, IDLE_DAYS, NODE_COUNTS
from measure import NS_PER_INSTRUCTION, MeasuringError, run_guest

PROGRAM = pathlib.Path("build/package/tools/quarlo-input")
FOLDER = pathlib.Path("build/growth")
RECORD_IN_GUEST = pathlib.Path("bench/record-in-guest")
RUNS = 3  # of which the quickest counts
MOST_FOR_RUNS = 10**5  # records or lines: of more, there is one run

LINES_OF_A_PART = 4_000_000  # in a file of a session, which can have 5 million
LONG_SESSION = "# quarlo-input session 2"  # its files can be longer than a day

EV_SYN, EV_KEY, EV_REL, EV_MSC = 0, 1, 2, 4
KEYS = (30, 48, 46, 32)  # KEY_A and others
BTN_LEFT = 0x110
DAY = 86_400_000_000  # us


# ---- What comes ----------------------------------------------------------------------------------


def motion():
    """Records of a mouse that reports a thousand times a second: time (us), type, code, value."""
    time = 0
    while True:
        time += 1000
        step = 1 if time // 1_000_000 % 2 == 0 else -1
        yield from ((time, EV_REL, 0, step), (time, EV_REL, 1, step), (time, EV_SYN, 0, 0))


def typing():
    """Records of a keyboard: ten keys a second."""
    time = 0
    while True:
        for key in KEYS:
            for value in (1, 0):
                time += 50_000
                yield from ((time, EV_MSC, 4, key), (time, EV_KEY, key, value), (time, EV_SYN, 0, 0))


def presses():
    """Lines of a remote: nine buttons that are tapped, one that is held: time (us), line."""
    period, pause = 108_000, 284_000
    time = 0
    while True:
        for digit in range(10):
            for repeat in range(13 if digit == 9 else 3):
                yield time, f"00000000000000{digit:02x} {repeat:02x} KEY_{digit} sample"
                time += period
            time += pause - period


# ---- Sessions ------------------------------------------------------------------------------------


def bits(kind, codes, size):
    """The lines of evemu's format for the codes of an event type."""
    data = bytearray(size)
    for code in codes:
        data[code // 8] |= 1 << code % 8
    return [f"B: {kind:02x} " + " ".join(f"{byte:02x}" for byte in data[i:i + 8]) for i in range(0, size, 8)]


def description(name, codes):
    """The head of evemu's format: the codes by event type."""
    return ["# EVEMU 1.3", LONG_SESSION, f"N: {name}", "I: 0003 0001 0001 0001", *bits(EV_SYN, (EV_SYN, *codes), 8),
            *(line for kind, those in codes.items() for line in bits(kind, those, 96 if kind == EV_KEY else 8))]


MOUSE = description("Growing Mouse", {EV_KEY: [BTN_LEFT], EV_REL: [0, 1]})
KEYBOARD = description("Growing Keyboard", {EV_KEY: range(1, 112), EV_MSC: [4]})


def seconds(time):
    return f"{time // 1_000_000}.{time % 1_000_000:06}"


def record_line(record):
    time, kind, code, value = record
    return f"E: {seconds(time)} {kind:04x} {code:04x} {value}"


def remote_line(line):
    time, text = line
    return f"{seconds(time)} {text}"


def write_session(folder, name, head, lines):
    """A session of one source. A file goes on in parts."""
    folder.mkdir(parents=True)
    stem, suffix = name.split(".")
    lines = iter(lines)
    part = 1
    while following := list(islice(lines, LINES_OF_A_PART)):
        path = folder / (name if part == 1 else f"{stem}.{part:04}.{suffix}")
        path.write_text("\n".join([*head, *following]) + "\n")
        part += 1
    return folder


# By source: its file, the lines at the top, what comes, how a line is written, and how much makes a whole.
SOURCES = {
    "mouse": ("mouse.evemu", MOUSE, motion, record_line, 3),
    "keyboard": ("keyboard.evemu", KEYBOARD, typing, record_line, 6),
    "remote": ("remote.lirc", [LONG_SESSION], presses, remote_line, 40),
}


def busy_session(folder, source, count):
    name, head, what, line_of, _ = SOURCES[source]
    return write_session(folder, name, head, map(line_of, islice(what(), count)))


def idle_session(folder, source, days):
    """Something comes at its start and at its end."""
    name, head, what, line_of, whole = SOURCES[source]
    items = list(islice(what(), whole))
    length = items[-1][0]
    late = [(days * DAY - length + time, *rest) for time, *rest in items]
    return write_session(folder, name, head, map(line_of, items + late))


# ---- Commands ------------------------------------------------------------------------------------


def measured(command, expected_status=0, feed=None):
    """Seconds of the processor and kilobytes that a command takes, and the end of what it says. `feed` gives it its input
    meanwhile."""
    with tempfile.TemporaryDirectory() as folder:
        peak = pathlib.Path(folder) / "peak"
        # It measures the command's own memory. That of a child of this process would count from this one's.
        process = subprocess.Popen(["time", "--quiet", "--format=%M", f"--output={peak}", *map(str, command)],
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        last_lines = subprocess.Popen(["tail", "-n", "5"], stdin=process.stdout, stdout=subprocess.PIPE, text=True)
        process.stdout.close()
        if feed is not None:
            threading.Thread(target=feed, daemon=True).start()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        said = last_lines.communicate()[0]
        if process.returncode != expected_status:
            raise MeasuringError(f"{' '.join(map(str, command))} ended with status {process.returncode}: {said}")
        return {"seconds": usage.ru_utime + usage.ru_stime, "kilobytes": int(peak.read_text())}, said


def again_and_again(send, pieces, count):
    """Sends so many of the pieces, which are bytes, as fast as they are taken."""
    whole = b"".join(pieces)
    for _ in range(count // len(pieces)):
        send(whole)
    send(b"".join(pieces[:count % len(pieces)]))


def send_lines(listener, count):
    """To who connects."""
    lines = [f"{text}\n".encode() for _, text in islice(presses(), 4000)]
    connection, _ = listener.accept()
    with connection:
        again_and_again(connection.sendall, lines, count)


def send_records(fifo, source, count):
    """To who opens the FIFO. Nobody looks at their times."""
    records = [struct.pack("llHHi", 0, 0, *record[1:]) for record in islice(source(), 6000)]
    with fifo.open("wb", buffering=0) as file:
        again_and_again(file.write, records, count)


# monitor and record end with status 1 when there is no source left.


def from_daemon(command, folder, count):
    path = folder / "lircd"
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(path))
        listener.listen()
        return measured([PROGRAM, *command, "--mouse", "none", "--keyboard", "none", "--lirc", path], 1,
                        lambda: send_lines(listener, count))


def monitor_node(which, other, source, folder, count):
    fifo = folder / "node"
    os.mkfifo(fifo)
    return measured([PROGRAM, "monitor", which, fifo, other, "none", "--lirc", "none"], 1,
                    lambda: send_records(fifo, source, count))[0]


def record_remote(folder, count):
    figures, said = from_daemon(["record", "--rotate", "-o", folder / "session"], folder, count)
    kept = sum(map(int, re.findall(r"(\d+) lines?\b", said)))
    if kept != count:
        raise MeasuringError(f"record kept {kept} of {count} lines: {said}")
    return figures


def on_session(make, source, *command):
    """A command on a session that is made by `make`, which takes a directory, a source, and how much."""
    return lambda folder, much: measured([PROGRAM, *command, make(folder / "session", source, much)])[0]


# By what the table calls them.
BUSY = {
    "`replay`, a mouse": on_session(busy_session, "mouse", "replay"),
    "`replay`, a keyboard": on_session(busy_session, "keyboard", "replay"),
    "`replay`, a remote": on_session(busy_session, "remote", "replay"),
    "`report`, a mouse": on_session(busy_session, "mouse", "report", "-o", FOLDER / "page.html"),
    "`report`, a keyboard": on_session(busy_session, "keyboard", "report", "-o", FOLDER / "page.html"),
    "`report`, a remote": on_session(busy_session, "remote", "report", "-o", FOLDER / "page.html"),
    "`tune`": on_session(busy_session, "remote", "tune"),
    "`record --rotate`, a remote": record_remote,
    "`monitor`, a mouse": lambda *of: monitor_node("--mouse", "--keyboard", motion, *of),
    "`monitor`, a keyboard": lambda *of: monitor_node("--keyboard", "--mouse", typing, *of),
    "`monitor`, a remote": lambda *of: from_daemon(["monitor"], *of)[0],
}
IDLE = {
    "`replay`, a mouse": on_session(idle_session, "mouse", "replay"),
    "`replay`, a keyboard": on_session(idle_session, "keyboard", "replay"),
    "`replay`, a remote": on_session(idle_session, "remote", "replay"),
    "`replay --loop poll`, a remote": on_session(idle_session, "remote", "replay", "--loop", "poll"),
    "`tune`": on_session(idle_session, "remote", "tune"),
}


# ---- The recorder of a node ----------------------------------------------------------------------


# What record-in-guest says of a session: its records, ns, KB.
RECORDED = re.compile(r"(\d+) (\d+) (\d+)")


def recorded(log):
    """By what was sent: instructions and kilobytes. What is sent last can be a report without its end, which nobody gets."""
    figures = {}
    rows = [tuple(map(int, match.groups())) for match in filter(None, map(RECORDED.fullmatch, log.splitlines()))]
    if [count // 3 for count in NODE_COUNTS] != [records // 3 for records, _, _ in rows]:
        raise MeasuringError(f"record did not keep what was sent: {rows}")
    for count, (_, ns, kilobytes) in zip(NODE_COUNTS, rows):
        figures[str(count)] = {"instructions": ns / NS_PER_INSTRUCTION, "kilobytes": kilobytes}
    return figures


def measure_recorder():
    """Devices of a real kernel send, and none is lost."""
    with tempfile.TemporaryDirectory() as folder:
        sessions = [busy_session(pathlib.Path(folder) / str(count), "mouse", count) for count in NODE_COUNTS]
        return recorded(run_guest("amd64", FOLDER.with_suffix(".log"), [PROGRAM, RECORD_IN_GUEST, *sessions], "sh",
                                  RECORD_IN_GUEST.name, *(session.name for session in sessions)))


# ---- All of it -----------------------------------------------------------------------------------


def run(command, much, runs):
    """The quickest run's figures."""
    figures = []
    for _ in range(runs):
        shutil.rmtree(FOLDER, ignore_errors=True)
        FOLDER.mkdir(parents=True)
        figures.append(command(FOLDER, much))
    shutil.rmtree(FOLDER)
    return min(figures, key=lambda one: one["seconds"])


def measure_all(commands, sizes):
    """By command, and how much comes as text: what it takes."""
    figures = {}
    for name, command in commands.items():
        figures[name] = {}
        for much in sizes:
            figures[name][str(much)] = run(command, much, RUNS if much <= MOST_FOR_RUNS else 1)
            logging.info("%s, %d: %s", name, much, figures[name][str(much)])
    return figures


def measure():
    logging.info("== growth")
    return {"busy": measure_all(BUSY, COUNTS), "idle": measure_all(IDLE, IDLE_DAYS), "recorder": measure_recorder()}


def main():
    logging.basicConfig(level=logging.INFO, format="%(message)s", stream=sys.stdout)
    try:
        figures = measure()
    except (MeasuringError, OSError) as error:
        sys.exit(f"script/bench: {error}")
    print("\n\n".join(page.growth_tables(figures).values()))


if __name__ == "__main__":
    main()
