#!/usr/bin/python3 -B
"""A real flood for `monitor` and `record`: a daemon of its own sends both as many lines of a remote as are asked for, and
FIFOs in the place of nodes send `monitor` as many steps of a mouse, and keys.

usage: flood.py PROGRAM SECONDS LINES_A_SECOND

Prints how much memory and how many descriptors both have, at the start, each minute, and at the end. Ends with status 1
if one of the two has failed.
"""

import contextlib
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

BATCHES = 50  # a second
EV_SYN, EV_KEY, EV_REL = 0, 1, 2
REL_X, KEY_UP = 0, 103
RECORD = struct.Struct("@llHHi")


def records(*events):
    """Records as a node has them: type, code, value; with the mark behind them."""
    return b"".join(RECORD.pack(0, 0, *event) for event in (*events, (EV_SYN, 0, 0)))


def print_possessions(processes, seconds, lines):
    """The resident memory of each process, and how many descriptors it has."""
    for name, process in processes.items():
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
        memory = next(line.split()[1] for line in status.splitlines() if line.startswith("VmRSS:"))
        descriptors = len(os.listdir(f"/proc/{process.pid}/fd"))
        print(f"{seconds:6.0f} s, {lines} lines: {name} has {memory} kB and {descriptors} descriptors", flush=True)


class Flood:
    """What is sent. Who does not keep up loses some of it."""

    def __init__(self, folder, rate):
        self.batch = max(1, rate // BATCHES)
        self.sent = 0
        self.clients = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(folder / "lircd"))
        self.listener.listen()
        self.listener.settimeout(60)
        self.fifos = {}
        for name in ("mouse", "keyboard"):
            os.mkfifo(folder / name)
            self.fifos[name] = os.open(folder / name, os.O_RDWR | os.O_NONBLOCK)

    def connect(self, count):
        while len(self.clients) < count:
            client, _ = self.listener.accept()
            client.setblocking(False)
            self.clients.append(client)

    def send(self):
        """A batch to each, and a key that goes down and up."""
        # Each line is the first of its button's, and so a key.
        lines = b"0000000000f40bf0 00 KEY_VOLUMEUP myremote\n" * self.batch
        for client in self.clients:
            with contextlib.suppress(BlockingIOError):
                client.sendall(lines)
        self.sent += self.batch
        steps = b"".join(records((EV_REL, REL_X, 1 - 2 * (i % 2))) for i in range(self.batch))
        key = records((EV_KEY, KEY_UP, 1)) + records((EV_KEY, KEY_UP, 0))
        for name, bytes_ in (("mouse", steps), ("keyboard", key)):
            with contextlib.suppress(BlockingIOError):
                os.write(self.fifos[name], bytes_)


def run(program, seconds, rate, folder):
    flood = Flood(folder, rate)
    remote = ("--lirc", folder / "lircd")
    processes = {
        "monitor": subprocess.Popen([program, "monitor", "--mouse", folder / "mouse", "--keyboard", folder / "keyboard",
                                     *remote], stdout=subprocess.DEVNULL),
        "record": subprocess.Popen([program, "record", "--mouse", "none", "--keyboard", "none", *remote,
                                    "-o", folder / "session"], stdout=subprocess.DEVNULL)}
    flood.connect(len(processes))
    start = time.monotonic()
    due = 0
    while (elapsed := time.monotonic() - start) < seconds:
        flood.send()
        if elapsed >= due:
            print_possessions(processes, elapsed, flood.sent)
            due += 60
        time.sleep(max(0, start + flood.sent / rate - time.monotonic()))
    print_possessions(processes, elapsed, flood.sent)
    for process in processes.values():
        process.send_signal(signal.SIGINT)
    statuses = [process.wait() for process in processes.values()]
    return 1 if any(statuses) else 0


def main():
    program, seconds, rate = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        sys.exit(run(pathlib.Path(program).resolve(), float(seconds), int(rate), pathlib.Path(folder)))


if __name__ == "__main__":
    main()
