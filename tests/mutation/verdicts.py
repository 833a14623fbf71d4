"""What script/mutate makes of the verdicts: which mutants may survive, how many there have to be, and the summary."""

import collections
import re

from project import HERE
from trial import Outcome

# Those that may survive: they do the same as the original, or are not worth a test.
EQUIVALENT = f"{HERE}/equivalent.txt"
TOLERATED = f"{HERE}/tolerated.txt"
COUNTS = f"{HERE}/counts.txt"


class ListError(Exception):
    pass


def key(mutant):
    """What stays the same when the source changes elsewhere."""
    return mutant.file, mutant.function, mutant.before, mutant.after


def changed_text(function, before, after):
    return f"{function}: {before}  ->  {after}"


def key_text(file, *change):
    return f"{file}: {changed_text(*change)}"


def described(mutant):
    return f"{mutant.file}:{mutant.line}: {changed_text(*key(mutant)[1:])}"


def lines_of(text):
    return [line for line in text.splitlines() if line and not line.startswith("#")]


# ---- How many there are --------------------------------------------------------------------------


def find_miscounted(recorded, mutants):
    """Where the mutants are not as many as they were, a line each: fewer are changes that nobody tries any more."""
    counts = {file: int(count) for file, count in (line.split() for line in lines_of(recorded))}
    found = collections.Counter(mutant.file for mutant in mutants)
    for file in sorted(counts.keys() | found.keys()):
        if found[file] != counts.get(file, 0):
            yield (
                f"{file}: {found[file]} mutants, and not the {counts.get(file, 0)} of {COUNTS}. If a change of the file "
                f"explains that, write there: {file} {found[file]}"
            )


# ---- Which may survive ---------------------------------------------------------------------------


def read_list(text):
    """How often each key is in the list."""
    keys = collections.Counter()
    for block in re.split(r"\n\s*\n", text):
        lines = lines_of(block)
        if not lines:
            continue
        if len(lines) < 4 or ": " not in lines[0] or not lines[1].startswith("  - ") or not lines[2].startswith("  + "):
            raise ListError(f"'file: function', '  - before', '  + after' and a reason are wanted, not:\n{block}")
        keys[(*lines[0].split(": ", 1), lines[1][4:], lines[2][4:])] += 1
    return keys


def list_of(lists, listed, number):
    """The name of the list that allows the survivor of that number with this key, if one does."""
    for name, keys in lists.items():
        if number <= keys[listed]:
            return name
        number -= keys[listed]
    return None


def find_stale(lists, mutants, judged, survivors):
    """What of the lists is no longer so, a line each. Of files that have no mutant here, they may say what they like."""
    files = {mutant.file for mutant in mutants}
    existing = collections.Counter(map(key, mutants))
    tried = collections.Counter(map(key, judged))
    allowed = sum(lists.values(), collections.Counter())
    for name, keys in lists.items():
        for listed in keys:
            if listed[0] in files and allowed[listed] > existing[listed]:
                yield f"{name}: {key_text(*listed)}: there is no such mutant any more"
            elif tried[listed] == existing[listed] and tried[listed] and allowed[listed] > survivors[listed]:
                yield f"{name}: {key_text(*listed)}: no longer survives"


def summary(counts):
    killed = counts[Outcome.FAILED] + counts[Outcome.ENDED]
    survived = {name: counts[name] for name in (Outcome.PASSED, Outcome.UNREACHED, EQUIVALENT, TOLERATED)}
    total = killed + sum(survived.values())
    return (
        f"not counted: {counts['broken']} that do not compile, {counts['same']} with the same object code\n"
        f"{total} mutants: {killed} killed ({counts[Outcome.ENDED]} by timeout or crash), {total - killed} survived "
        f"({survived[EQUIVALENT]} known to be equivalent, {survived[TOLERATED]} not worth a test, "
        f"{survived[Outcome.UNREACHED]} that no test reaches), {rate(killed, total)}% killed, "
        f"{rate(killed, total - survived[EQUIVALENT])}% of those that are not equivalent"
    )


def rate(killed, total):
    return 1000 * killed // total / 10 if total else 100  # none counts: each was the same object code
