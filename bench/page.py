#!/usr/bin/env -S python3 -B
"""docs/performance.md, and the data of its picture, from the figures that script/bench has measured. By itself it prints
the document: bench/page.py build/bench/figures.json"""

import pathlib
import string
import sys

from figures import COUNTS, FOREIGN, IDLE, NODE_COUNTS, WORKLOADS, find, ratio, read

TEMPLATE = pathlib.Path(__file__).with_name("performance.md.in")

MISSING = "–"

# What is aimed at: limits of the ratio of a contestant to another, for each workload.
RATIO_TARGETS = (
    ("kernel and user space, to bare", "amd64", "reader", "bare", ("1.05", "1.05", "1.03", "1.20")),
    ("the same, 32 bits", "i386", "reader", "bare", ("1.05", "1.05", "1.03", "1.20")),
    ("user space, to libevdev", "user", "reader", "libevdev", ("0.35", "0.60", "0.20", "0.50")),
    ("kernel and user space, to libinput", "amd64", "reader", "libinput", ("0.55", "1.00", "1.00", "1.00")),
    ("InputLoop, kernel and user space, to bare", "amd64", "loop", "bare", ("0.35", "0.33", "0.24", "0.66")),
    ("InputLoop, kernel and user space, to libevdev", "amd64", "loop", "libevdev", ("1.00",) * 4),
    ("InputLoop, kernel and user space, to libinput", "amd64", "loop", "libinput", ("1.00",) * 4),
)
SIZE_TARGETS = (
    ("code and read-only data, bytes", "reader", "code", {"armhf": "5120", "i386": "6656"}),
    ("the same, position-independent", "reader", "pie", {"armhf": "5200"}),
    ("stack of a function, bytes", "reader", "function", {"armhf": "384", "i386": "384"}),
    ("stack of the deepest chain, bytes", "reader", "chain", {"armhf": "768", "i386": "768"}),
    ("InputLoop: code and read-only data, bytes", "loop", "code", {"armhf": "2560"}),
    ("InputSources: code and read-only data, bytes", "sources", "code", {"armhf": "1074"}),
)
# Limits of a command that gets so many records or lines, or so many days in which nothing comes: seconds or MB.
GROWTH_TARGETS = (
    ("`replay`, a remote", "busy", 10**5, "seconds", "2"),
    ("`replay`, a remote", "idle", 1, "seconds", "0.1"),
    ("`replay`, a remote", "idle", 7, "seconds", "1"),
    ("`tune`", "busy", 10**6, "seconds", "10"),
)
EACH_AT, EACH_IN = 10**6, {"seconds": "20", "MB": "100"}  # the slowest, and the largest

OBJECTS = {"reader": "the component", "loop": "`InputLoop`", "sources": "`InputSources`"}
# Of the component before its size was cut: code and read-only data, and the same of position-independent code.
UNCUT = {"armhf": (5666, 6126), "i386": (7215, 8219), "mipsel": (9844, 10376), "arm64": (8872, 9120),
         "amd64": (7079, 7486)}
LOOPS = {"reader": "the 10 ms loop", "waking": "waking with `readInput()`", "loop": "`InputLoop`"}
FAST_MICE = {"2000Hz": {"steps": 2000, "clicks": 20}, "4000Hz": {"steps": 4000, "clicks": 40}}
LOOP_ROWS = {
    "nothing to do: sleeps a second": lambda of: shown(of("idle", "sleeps"), ".1f"),
    "the same: instructions a second": lambda of: shown(of("idle", "process"), ",.0f"),
    "a tap of the remote: instructions above that": lambda of: shown(tap_of(of), ",.0f"),
    "a mouse at 1000 Hz: instructions a second": lambda of: shown(of("mouse", "process"), ",.0f"),
    "the same, with those that the kernel executes elsewhere": lambda of: shown(of("mouse", "above"), ",.0f"),
    "a key is late by, median (and the 90th of 100), ms":
        lambda of: f"{shown(of('lateness', 'median'), '.2f')} ({shown(of('lateness', 'p90'), '.2f')})",
    "a mouse at 2000 Hz, 16 ms: steps seen of 2000, clicks of 20": lambda of: seen_by(of, "2000Hz"),
    "at 4000 Hz, 4 ms: of 4000, of 40": lambda of: seen_by(of, "4000Hz"),
    "at 8000 Hz, 16 ms: of 8000, of 80": lambda of: seen_by(of, "8000Hz"),
    "the same: steps that `read()` gave": lambda of: shown(of("8000Hz", "read"), ".0f"),
    "the same: times that the kernel's queue was full, as `SYN_DROPPED` says":
        lambda of: shown(of("8000Hz", "dropped"), ".0f"),
    "frames drawn in 5 s while the daemon floods": lambda of: shown(of("daemon", "frames"), ".0f"),
    "the same, and the mouse floods, too": lambda of: shown(of("both", "frames"), ".0f"),
}
STARTS = {
    "reader": "the component, static",
    "reader_shared": "the component, with shared libc and libstdc++",
    "libevdev": "libevdev, libxkbcommon, LIRC's client",
    "libinput": "libinput, libxkbcommon, LIRC's client",
}
LOOKUPS = {
    "reader": "`translateKey()`",
    "xkbcommon": "`xkb_state_key_get_one_sym()` and `xkb_state_key_get_utf8()`",
}


def shown(figure, form):
    return MISSING if figure is None else format(figure, form)


def row(*cells):
    return f"| {' | '.join(cells)} |"


def rows(lines):
    return "\n".join(lines)


def table(text_of, columns, names):
    """A row for each name, and a cell for each column: the text of both."""
    return rows([
        f"| |{''.join(f' {column} |' for column in columns)}",
        f"|---|{'---|' * len(columns)}",
        *(row(name, *(text_of(name, column) for column in columns)) for name in names),
    ])


def comparison(figures, what, form, columns, *more_workloads):
    """A table of workloads and contestants."""
    def text_of(workload, contestant):
        return shown(find(figures, what, workload, contestant), form)

    return table(text_of, columns, (*WORKLOADS, *more_workloads))


# ---- Targets -------------------------------------------------------------------------------------


def target(title, of, limit, figure, form):
    """A row: what, of which workload or target, the limit, what was measured, and whether that is met."""
    verdict = "not measured" if figure is None else "yes" if figure <= float(limit) else "**no**"
    return row(title, of, limit if limit == "0" else f"≤ {limit}", shown(figure, form), verdict)


def same_calls(figures):
    for workload in (*WORKLOADS, IDLE):
        if workload not in figures["same_calls"]:
            return f"**no** ({workload})"
    return "yes"


def targets(figures):
    yield f"| system calls, with their arguments | all | those of bare | | {same_calls(figures)} |"
    for title, what, whose, other, limits in RATIO_TARGETS:
        for workload, limit in zip(WORKLOADS, limits, strict=True):
            own, others = (find(figures, what, workload, contestant) for contestant in (whose, other))
            yield target(title, workload, limit, ratio(own, others), ".3f")
    yield from loop_targets(figures)
    yield target("one key to what it types", "instructions", "40", find(figures, "lookup", "reader", "instructions"), ".0f")
    times = (find(figures, "lookup", whose, "ns") for whose in ("reader", "xkbcommon"))
    yield target("one key to what it types", "time, to xkbcommon's", "0.025", ratio(*times), ".3f")
    for name in ("armhf", "i386"):
        for title, whose, what, limits in SIZE_TARGETS:
            if name in limits:
                yield target(title, name, limits[name], find(figures, "size", whose, name, what), ".0f")
    yield from growth_targets(figures)
    yield target("allocators that the object names", "all", "0", find(figures, "allocators"), ".0f")
    own = find(figures, "start", "reader", "instructions")
    for peer in ("libevdev", "libinput"):
        others = find(figures, "start", peer, "instructions")
        yield target(f"start to the first event, to {peer}'s", "static", "0.333", ratio(own, others), ".3f")


def of_loop(figures, measurement, name, loop="loop"):
    return find(figures, "loops", measurement, loop, name)


def loop_targets(figures):
    yield target("InputLoop, nothing to do", "sleeps a second", "1", of_loop(figures, "idle", "sleeps"), ".3f")
    for title, measurement, limit, other in (("InputLoop, nothing to do", "idle", "0.01", "reader"),
                                             ("InputLoop, a mouse at 1000 Hz", "mouse", "0.50", "waking")):
        own, others = (of_loop(figures, measurement, "process", loop) for loop in ("loop", other))
        yield target(title, f"instructions, to those of {LOOPS[other]}", limit, ratio(own, others), ".4f")
    yield target("InputLoop, a key is late by, ms", "median", "0.2", of_loop(figures, "lateness", "median"), ".3f")
    for measurement, sent in FAST_MICE.items():
        for name in ("steps", "clicks"):
            seen = of_loop(figures, measurement, name)
            missed = None if seen is None else sent[name] - seen
            yield target(f"InputLoop, a mouse at {sent['steps']} Hz", f"{name} not seen", "0", missed, ".0f")
    steps, read, unexplained = (of_loop(figures, "8000Hz", name) for name in ("steps", "read", "unexplained"))
    lost = None if steps is None else read - steps + unexplained
    yield target("InputLoop, a mouse at 8000 Hz", "lost behind the kernel's queue", "0", lost, ".0f")


def growth_targets(figures):
    growth = figures["growth"]
    for name, of, much, what, limit in GROWTH_TARGETS:
        amount = power(much) if of == "busy" else SPANS[much]
        yield target(f"{name}: {what}", amount, limit, taken(growth, of, name, much)[what], ".2f")
    for what, limit in EACH_IN.items():
        most = max(taken(growth, "busy", name, EACH_AT)[what] for name in growth["busy"])
        yield target(f"each command: {what}", power(EACH_AT), limit, most, ".1f")


# ---- Tables --------------------------------------------------------------------------------------


def ratios(figures, what, whose, other):
    """How far a contestant is above or below another, in a line."""
    def of(workload):
        return ratio(*(find(figures, what, workload, contestant) for contestant in (whose, other)))

    return ", ".join(f"{workload} {shown(of(workload), '.2f')}" for workload in WORKLOADS)


def boots_differ_by(figures):
    """The largest difference between the two boots, in percent."""
    first, second = figures["amd64"], figures["amd64_again"]
    return max(abs(second[workload][contestant] / first[workload][contestant] - 1) * 100
               for workload in first for contestant in first[workload])


def calls(figures):
    def text_of(workload, contestant):
        found = find(figures, "calls", workload, contestant)
        return MISSING if found is None else f"{found['wait']} {found['waits']:.3g}, read {found['reads']:.3g}"

    return table(text_of, ("bare", "reader", "loop", "libevdev", "lines", "batch"), (*WORKLOADS, IDLE))


def time_ratios(figures):
    def text_of(workload, contestant):
        found = find(figures, "time", workload, contestant)
        return MISSING if found is None else f"{found['ratio']:.2f} ({found['lower']:.2f} to {found['upper']:.2f})"

    return table(text_of, ("reader", "loop", "libevdev", "lines", "batch"), WORKLOADS)


SECONDS_PER_TAP = 2


def tap_of(of):
    own, idle = of("remote", "process"), of("idle", "process")
    return None if own is None or idle is None else (own - idle) * SECONDS_PER_TAP


def seen_by(of, measurement):
    return ", ".join(shown(of(measurement, name), ".0f") for name in ("steps", "clicks"))


def loops(figures):
    def text_of(title, loop):
        def of(measurement, name):
            if name != "above":
                return of_loop(figures, measurement, name, loop)
            machine, alone = (of_loop(figures, measurement, "machine", whose) for whose in (loop, "nothing"))
            return None if machine is None or alone is None else machine - alone

        return LOOP_ROWS[title](of)

    def cells(title):
        return row(title, *(text_of(title, loop) for loop in LOOPS))

    return rows([row("", *LOOPS.values()), f"|---|{'---|' * len(LOOPS)}", *map(cells, LOOP_ROWS)])


def starts(figures):
    for program, title in STARTS.items():
        instructions, kilobytes = (find(figures, "start", program, what) for what in ("instructions", "kilobytes"))
        yield row(title, shown(ratio(instructions, 1e6), ".1f"), shown(kilobytes, ".0f"))


def lookups(figures):
    for whose, title in LOOKUPS.items():
        instructions, ns = (find(figures, "lookup", whose, what) for what in ("instructions", "ns"))
        yield row(title, shown(instructions, ".0f"), shown(ns, ".1f"))


def sizes(figures):
    for whose, title in OBJECTS.items():
        for name, size in figures["size"][whose].items():
            yield row(f"{title}, {name}", *(shown(find(size, what), ".0f")
                                            for what in ("code", "pie", "data", "function", "chain")))


SUPERSCRIPTS = str.maketrans("0123456789", "⁰¹²³⁴⁵⁶⁷⁸⁹")
SPANS = {1: "a day", 7: "a week"}


def power(count):
    """Of ten."""
    return "10" + str(len(str(count)) - 1).translate(SUPERSCRIPTS)


def taken(growth, of, name, much):
    figures = growth[of][name][str(much)]
    return {"seconds": figures["seconds"], "MB": figures["kilobytes"] / 1000}


def rounded(figure, digits):
    """To so many digits behind the point, but those of a large one tell nothing."""
    return f"{figure:.{digits if figure < 10 else 1 if figure < 100 else 0}f}"


def growth_table(growth, of, titles):
    """`titles` are those of the columns, by how much comes."""
    def cell(name, much):
        both = taken(growth, of, name, much)
        return f"{rounded(both['seconds'], 3)} s, {rounded(both['MB'], 1)} MB"

    return rows([row("", *titles.values()), f"|---|{'---|' * len(titles)}",
                 *(row(name, *(cell(name, much) for much in titles)) for name in growth[of])])


def recorder(growth):
    def texts(form):
        return (form(count, growth["recorder"][str(count)]) for count in NODE_COUNTS)

    return rows([row("", *map(power, NODE_COUNTS)), f"|---|{'---|' * len(NODE_COUNTS)}",
                 row("million instructions", *texts(lambda _, figures: f"{figures['instructions'] / 1e6:,.0f}")),
                 row("instructions per record", *texts(lambda count, figures: f"{figures['instructions'] / count:,.0f}")),
                 row("MB", *texts(lambda _, figures: f"{figures['kilobytes'] / 1000:.1f}"))])


def growth_tables(growth):
    """By their names in the template."""
    return {"busy": growth_table(growth, "busy", {count: power(count) for count in COUNTS}),
            "idle": growth_table(growth, "idle", SPANS), "recorder": recorder(growth)}


def cuts(figures):
    """Of the component's size, by target."""
    for name, before in UNCUT.items():
        now = [find(figures, "size", "reader", name, what) for what in ("code", "pie")]
        yield row(name, *(cell for old, new in zip(before, now)
                          for cell in (str(old), shown(new, ".0f"), shown(ratio(new, old), ".2f"))))


# ---- All of it -----------------------------------------------------------------------------------


def page(figures):
    everyone = ("bare", "reader", "loop", "libevdev", "lines", "libinput", "batch")
    with_fifos = ("bare", "reader", "loop", "libevdev", "lines", "batch")
    return string.Template(TEMPLATE.read_text()).substitute(
        figures["machine"],
        **figures["rounds"],
        versions=", ".join(f"{name} {version}" for name, version in figures["versions"].items()),
        targets=rows(targets(figures)),
        floors=ratios(figures, "amd64", "bare", "libinput"),
        boots_differ_by=f"{boots_differ_by(figures):.3f}",
        amd64=comparison(figures, "amd64", ".0f", everyone),
        **{f"loop_{architecture}": ratios(figures, architecture, "loop", "bare") for architecture in FOREIGN},
        loop_user=ratios(figures, "user", "loop", "bare"),
        **{architecture: comparison(figures, architecture, ".0f", everyone) for architecture in FOREIGN},
        user=comparison(figures, "user", ".0f", with_fifos, IDLE),
        calls=calls(figures),
        times=time_table(figures, with_fifos),
        time_ratios=time_ratios(figures),
        loops=loops(figures),
        **growth_tables(figures["growth"]),
        starts=rows(starts(figures)),
        lookups=rows(lookups(figures)),
        sizes=rows(sizes(figures)),
        cuts=rows(cuts(figures)),
    )


def time_table(figures, columns):
    return table(lambda workload, contestant: shown(find(figures, "time", workload, contestant, "ns"), ".0f"),
                 columns, WORKLOADS)


def picture(figures):
    """What bench/plot.gp shows: multiples of the bare loop's instructions, a line for each workload."""
    bars = (*(("amd64", whose) for whose in ("reader", "loop", "libevdev", "libinput")),
            *(("user", whose) for whose in ("reader", "loop", "libevdev")))
    for workload in WORKLOADS:
        bare = {what: find(figures, what, workload, "bare") for what in ("amd64", "user")}
        multiples = [ratio(find(figures, what, workload, contestant), bare[what]) for what, contestant in bars]
        yield "\t".join([workload, *(shown(multiple, ".6g") for multiple in multiples)])


def growth_picture(growth):
    """What bench/growth.gp shows: a block for each command, whose lines are how much came, seconds, and MB."""
    for name in growth["busy"]:
        yield f'"{name.replace("`", "")}"'
        for count in COUNTS:
            both = taken(growth, "busy", name, count)
            yield f"{count}\t{both['seconds']:.6g}\t{both['MB']:.6g}"
        yield "\n"


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/page.py FIGURES")
    print(page(read(pathlib.Path(sys.argv[1]))), end="")
