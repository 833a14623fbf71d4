"""What script/bench has measured: build/bench/figures.json, from which bench/page.py makes docs/performance.md.

machine    date, commit (-dirty: not all was committed), processor, cores, kernel: what, where and when
rounds     host_rounds, guest_rounds: how often is measured; ns_per_instruction: of the guest's clock
versions   of the peers' libraries that were there, and of the compiler, by name
time       by workload and contestant: ns per record with FIFOs on that machine, the median of the rounds; ratio to bare
           with its lower and upper quartile
user       by workload and contestant: instructions per record in user space (idle: per wait)
amd64      by workload and contestant: instructions per record of kernel and user space, on Debian's amd64 kernel;
           amd64_again: of a second boot; i386, armhf, arm64: of those architectures' programs on their kernels
start      by program: instructions up to its first event, of kernel and user space, and the largest resident set in
           kilobytes, on the amd64 kernel
lookup     by contestant: instructions and ns for one key to what it types
calls      by workload and contestant: the call that waits, and how many waits and reads a frame takes
same_calls the workloads in which the component makes the very calls of bare
loops      by measurement and loop (reader: its 10 ms; waking: its readInput() behind poll(); loop: InputLoop):
           idle, mouse (at 1000 Hz), remote (a tap in 2 s): sleeps and instructions a second of the application
           (process) and of all (machine; nothing: without an application);
           2000Hz, 4000Hz, 8000Hz: the mouse's steps and clicks that the application has seen, the steps that read()
           gave, the records SYN_DROPPED, and the gaps in the reports that no such record explains;
           lateness: median and p90 in ms; daemon, both: frames drawn while the daemon, or the mouse too, floods
size       by object (reader, loop, sources) and target: bytes of code, of position-independent code (pie), of data, of the
           largest frame of a function, and of the deepest chain
growth     busy: by command and how much it got (of COUNTS), idle: by command and days (of IDLE_DAYS): seconds of the
           processor, and the largest resident set in kilobytes; recorder: of a mouse's node on the amd64 kernel, by
           how much it sent (of NODE_COUNTS): instructions, of kernel and user space, and the same in kilobytes
allocators how many allocators the component's object names

What could not be measured is left out: a peer that is not there, what libinput cannot do.
"""

import json

WORKLOADS = ("typing", "motion", "backlog", "remote")
IDLE = "idle"
FOREIGN = ("i386", "armhf", "arm64")  # kernels beside amd64's
COUNTS = tuple(10**exponent for exponent in range(3, 8))  # of records or lines
NODE_COUNTS = COUNTS[:3]  # what evemu-play sends in less than a minute
IDLE_DAYS = (1, 7)


def read(path):
    return json.loads(path.read_text())


def write(path, figures):
    path.write_text(json.dumps(figures, indent=2, ensure_ascii=False) + "\n")


def find(figures, *names):
    """A figure, or None if there is none."""
    for name in names:
        if name not in figures:
            return None
        figures = figures[name]
    return figures


def ratio(a, b):
    return None if a is None or b is None else a / b
