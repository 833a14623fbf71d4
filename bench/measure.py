"""Measures the component and what stands beside it: the figures of figures.py. REQUIRES: the programs are built, and the
guests fetched."""

import concurrent.futures
import datetime
import json
import logging
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

import callgrind
from figures import FOREIGN, IDLE, WORKLOADS

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "tests/promises"))
import check_object

KEYS = 57  # that key_lookup.cc looks up in an iteration

NS_PER_INSTRUCTION = 8  # of the guest's clock: script/guest
GUEST_ROUNDS = 3
HOST_ROUNDS = 21
ROUNDS = {"host_rounds": HOST_ROUNDS, "guest_rounds": GUEST_ROUNDS, "ns_per_instruction": NS_PER_INSTRUCTION}

FOLDER = pathlib.Path("build/bench")
BIN = FOLDER / "bench"
BENCH = BIN / "input_bench"
LOOP_BENCH = BIN / "loop_bench"
IN_GUEST = pathlib.Path("bench/in-guest")
PEERS = pathlib.Path("build/peers")  # of other architectures
KEYBOARDS = pathlib.Path("/usr/share/X11/xkb")
LIBRARIES = ("libevdev", "libinput", "xkbcommon", "lirc")
COMPILERS = {"armhf": "arm-linux-gnueabihf-g++-12", "i386": "i686-linux-gnu-g++-12", "mipsel": "mipsel-linux-gnu-g++-12",
             "arm64": "aarch64-linux-gnu-g++-12", "amd64": "g++-12"}
ALLOCATORS = re.compile(r"malloc|calloc|realloc|strdup|_Zn[aw]")


class MeasuringError(Exception):
    pass


def run(*command, **how):
    """Shows a command, runs it, and returns what it prints."""
    logging.info("$ %s", shlex.join(map(str, command)))
    result = subprocess.run(command, stdout=subprocess.PIPE, text=True, errors="replace", **how)
    if result.returncode != 0:
        raise MeasuringError(f"{command[0]} ended with status {result.returncode}: {result.stdout[-2000:]}")
    return result.stdout


def programs_of(preset, *patterns):
    """The programs of a preset by patterns of their names."""
    return [program for pattern in patterns for program in sorted(pathlib.Path("build", preset, "bench").glob(pattern))]


def contestants():
    peers = ["libevdev", "lines"] if (BIN / "start_libevdev").exists() else []
    return ["bare", "reader", "loop", *peers, "batch"]


# ---- This machine --------------------------------------------------------------------------------


def measured_commit():
    """With a mark if it is not all that is measured. The pages that are written do not count."""
    return run("git", "rev-parse", "--short=12", "HEAD").strip() + (
        "-dirty" if run("git", "status", "--porcelain", "--", ":!docs") else "")


def measure_machine():
    processor = re.search(r"^model name.*: (.*)", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    return {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d"),
        "commit": measured_commit(),
        "processor": processor[1] if processor else os.uname().machine,
        "cores": os.cpu_count(),
        "kernel": os.uname().release,
    }


def find_versions():
    versions = {}
    for library in LIBRARIES:
        result = subprocess.run(["pkg-config", "--modversion", library], capture_output=True, text=True)
        if result.returncode == 0:
            versions[library] = result.stdout.strip()
    versions["GCC"] = run("g++-12", "--version").splitlines()[0].split()[-1]
    return versions


# What `input_bench compare` says of a contestant in a workload, and `input_bench start` of a program.
COMPARED = re.compile(r"([a-z]+)\t([a-z]+)\t([\d.]+)\t([\d.]+)\t([\d.]+)\t([\d.]+)")
STARTED = re.compile(r"start_([a-z_]+)\t(\d+)\t(\d+)")


def compared(log):
    """By workload and contestant: ns, ratio, lower, upper. Other lines of the log are left out."""
    figures = {}
    for match in filter(None, map(COMPARED.fullmatch, log.splitlines())):
        numbers = map(float, match.groups()[2:])
        figures.setdefault(match[1], {})[match[2]] = dict(zip(("ns", "ratio", "lower", "upper"), numbers))
    return figures


def measure_time():
    logging.info("== this machine: nanoseconds, with FIFOs in the place of devices")
    log = run(BENCH, "compare", "fifos", str(HOST_ROUNDS))
    logging.info("%s", log.rstrip())
    return compared(log)


# What `loop_bench` says of a loop in a measurement.
LOOPS = re.compile(r"(\w+)\t(nothing|reader|waking|loop)\t(\w+)\t(-?[\d.]+)")


def of_loops(log):
    """By measurement and loop: figures by name. In a guest, a time is a number of instructions."""
    figures = {}
    for match in filter(None, map(LOOPS.fullmatch, log.splitlines())):
        measurement, loop, name, figure = match.groups()
        row = figures.setdefault(measurement, {}).setdefault(loop, {})
        if name.endswith("_ns"):
            row[name.removesuffix("_ns")] = float(figure) / NS_PER_INSTRUCTION
        else:
            row[name] = float(figure)
    return figures


def measure_loops():
    logging.info("== how the loops wait: on this machine, with FIFOs")
    log = run(LOOP_BENCH, "host")
    logging.info("%s", log.rstrip())
    return of_loops(log)


# ---- User space ----------------------------------------------------------------------------------


def measure_user_space():
    logging.info("== user space: instructions, counted by callgrind")
    return {workload: {whose: callgrind.instructions_per_record(BENCH, whose, workload) for whose in contestants()}
            for workload in (*WORKLOADS, IDLE)}


def looked_up(report):
    """By contestant: ns for a key, from what Google Benchmark says, and the iterations."""
    benchmarks = {benchmark["name"]: benchmark for benchmark in json.loads(report)["benchmarks"]}
    return {name.split("LooksUp")[0]: benchmark["cpu_time"] / KEYS
            for name, benchmark in benchmarks.items() if name.endswith("_median")}


def measure_key_lookup():
    program = BIN / "key_lookup"
    if not program.exists():
        return {}
    logging.info("== one key to what it types")
    report = run(program, f"--benchmark_repetitions={HOST_ROUNDS}", "--benchmark_report_aggregates_only",
                 "--benchmark_format=json", stderr=subprocess.DEVNULL)
    figures = {}
    for whose, ns in looked_up(report).items():
        name = whose[0].upper() + whose[1:]
        count, once = callgrind.instructions(f"lookUpIn{name}", program, f"--benchmark_filter={whose}LooksUp",
                                             "--benchmark_format=json")
        iterations = json.loads(once)["benchmarks"][0]["iterations"]
        figures[whose] = {"instructions": count / (iterations * KEYS), "ns": ns}
    return figures


# ---- System calls --------------------------------------------------------------------------------


def traced(strace):
    """Of strace's lines of two passes: what waits and reads, with arguments, and between them what is sent."""
    lines = strace.splitlines()
    accepted = next(i for i, line in enumerate(lines) if line.startswith("accept4"))
    wanted = re.compile(r"(pselect6|select|poll|ppoll|read|recvfrom|write)\(")
    return [re.sub("0x[0-9a-f]+", "ADDRESS", line) for line in lines[accepted + 1:]
            if wanted.match(line) and not line.startswith("write(1,")]


def calls_per_frame(calls):
    names = [call.split("(")[0] for call in calls]
    frames = names.count("write") or 2  # nothing is sent where there is nothing: a pass is a frame
    reads = names.count("read") + names.count("recvfrom")
    waits = [name for name in names if name not in ("read", "recvfrom", "write")]
    return {"wait": "select" if "select" in waits[-1] else "poll", "waits": len(waits) / frames, "reads": reads / frames}


def measure_calls():
    """By workload and contestant, and the workloads in which the component's are those of bare."""
    logging.info("== system calls, from strace")
    calls = {}
    same = []
    log = FOLDER / "strace.log"
    for workload in (*WORKLOADS, IDLE):
        traces = {}
        for whose in contestants():
            run("strace", "-o", log, BENCH, "run", whose, workload, "2")
            traces[whose] = traced(log.read_text())
        calls[workload] = {whose: calls_per_frame(trace) for whose, trace in traces.items()}
        if traces["bare"] == traces["reader"]:
            same.append(workload)
    return calls, same


# ---- Size ----------------------------------------------------------------------------------------


def measure_sizes():
    """The component and its loop as a device has them: check_object.py says with which options."""
    logging.info("== size and stack")
    return {whose: {target: check_object.measure(compiler, whose)[0] for target, compiler in COMPILERS.items()}
            for whose in check_object.SOURCES}


def count_allocators():
    return len(ALLOCATORS.findall(run("nm", "--undefined-only", FOLDER / "libquarlo_input.a")))


# ---- Guests --------------------------------------------------------------------------------------


def host_libraries():
    """What the host's programs need. The guest has libc and libstdc++ itself."""
    for program in programs_of("bench", "input_bench", "start_*"):
        listed = subprocess.run(["ldd", program], capture_output=True, text=True).stdout  # nothing of a static one
        for name, path in re.findall(r"^\s*(\S+) => (/\S+)", listed, re.MULTILINE):
            if not re.match(r"(libc|libm|libstdc\+\+|libgcc_s)\.so", name):
                yield path


def foreign_libraries(architecture):
    """What script/fetch-peers has fetched."""
    return (PEERS / architecture).glob("root/**/*-linux-*/lib*.so.*")


def gather_for_guest(architecture, libraries):
    """What the peers need, beside their programs: their libraries, and keyboards for libxkbcommon."""
    folder = FOLDER / "guest" / architecture
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "lib").mkdir(parents=True)
    for library in libraries:
        shutil.copy(library, folder / "lib")
    if KEYBOARDS.exists():
        shutil.copytree(KEYBOARDS, folder / "xkb")
    return sorted(folder.iterdir())


def run_guest(architecture, log, files, *command):
    """Runs a command on a real kernel whose clock counts instructions. Returns what it prints, which the log keeps."""
    try:
        output = run("script/guest", architecture, *files, "--", *command, stderr=subprocess.STDOUT)
    except MeasuringError as error:
        raise MeasuringError(f"the {architecture} guest failed: {error}") from None
    log.write_text(output)
    return output


def in_instructions(log):
    """By workload and contestant: instructions per record."""
    return {workload: {whose: figures["ns"] / NS_PER_INSTRUCTION for whose, figures in row.items()}
            for workload, row in compared(log).items()}


def started(log):
    """By program: instructions to its first event, and its largest resident set in kilobytes."""
    return {match[1]: {"instructions": int(match[2]) / NS_PER_INSTRUCTION, "kilobytes": int(match[3])}
            for match in filter(None, map(STARTED.fullmatch, log.splitlines()))}


def measure_guests():
    """Two boots on the amd64 kernel, to see that they agree, one on each other kernel, and one for the loops."""
    logging.info("== kernel and user space: instructions, counted by QEMU")
    rounds = ("sh", "in-guest", str(GUEST_ROUNDS))
    files = [*programs_of("bench", "input_bench", "start_*"), *gather_for_guest("amd64", host_libraries()), IN_GUEST]
    loops = ("sh", "-c", "echo 0 >/proc/sys/kernel/randomize_va_space; loop_bench guest")
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        logs = {boot: pool.submit(run_guest, "amd64", FOLDER / f"{boot}.log", files, *rounds)
                for boot in ("amd64", "amd64_again")}
        for architecture in FOREIGN:
            files = [*programs_of(f"bench-{architecture}", "input_bench"),
                     *gather_for_guest(architecture, foreign_libraries(architecture)), IN_GUEST]
            logs[architecture] = pool.submit(run_guest, architecture, FOLDER / f"{architecture}.log", files, *rounds)
        loops_log = pool.submit(run_guest, "amd64", FOLDER / "loops.log", [LOOP_BENCH], *loops)
    return {**{boot: in_instructions(log.result()) for boot, log in logs.items()},
            "start": started(logs["amd64"].result()), "loops": of_loops(loops_log.result())}


# ---- All of it -----------------------------------------------------------------------------------


def measure():
    figures = {"machine": measure_machine(), "rounds": ROUNDS, "versions": find_versions(), "time": measure_time(),
               "user": measure_user_space(), "lookup": measure_key_lookup()}
    figures["calls"], figures["same_calls"] = measure_calls()
    figures["size"] = measure_sizes()
    figures["allocators"] = count_allocators()
    loops = measure_loops()
    figures.update(measure_guests())
    figures["loops"].update(loops)
    return figures
