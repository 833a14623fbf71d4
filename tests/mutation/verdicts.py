"""What script/mutate makes of the verdicts: which mutants may survive, how many there have to be, and the summary."""

import collections
import re

from project import HERE
from trial import Outcome

EQUIVALENT = f"{HERE}/equivalent.txt"
COUNTS = f"{HERE}/counts.txt"


class ListError(Exception):
    pass


def key(mutant):
    """What stays the same when the source changes elsewhere."""
    return mutant.function, mutant.before, mutant.after


def key_text(function, before, after):
    return f"{function}: {before}  ->  {after}"


def described(mutant):
    return f"{mutant.file}:{mutant.line}: {key_text(*key(mutant))}"


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


def read_equivalent(text):
    """How often each key is in the list."""
    keys = collections.Counter()
    for block in re.split(r"\n\s*\n", text):
        lines = lines_of(block)
        if not lines:
            continue
        if len(lines) < 4 or not lines[1].startswith("  - ") or not lines[2].startswith("  + "):
            raise ListError(f"{EQUIVALENT}: a function, '  - before', '  + after' and a reason are wanted, not:\n{block}")
        keys[lines[0], lines[1][4:], lines[2][4:]] += 1
    return keys


def find_stale(equivalent, mutants, chosen, survivors):
    """What of the list is no longer so, a line each."""
    existing = collections.Counter(map(key, mutants))
    judged = collections.Counter(map(key, chosen))
    for listed, count in equivalent.items():
        if count > existing[listed]:
            yield f"{EQUIVALENT}: {key_text(*listed)}: there is no such mutant any more"
        elif judged[listed] and count > survivors[listed]:
            yield f"{EQUIVALENT}: {key_text(*listed)}: no longer survives"


def summary(counts):
    killed = counts[Outcome.FAILED] + counts[Outcome.ENDED]
    survived = counts[Outcome.PASSED] + counts["equivalent"]
    total = killed + survived
    rate = 1000 * killed // total / 10 if total else 100  # none counts: each was the same object code
    return (
        f"not counted: {counts['broken']} that do not compile, {counts['same']} with the same object code\n"
        f"{total} mutants: {killed} killed ({counts[Outcome.ENDED]} by timeout or crash), "
        f"{survived} survived ({counts['equivalent']} known to be equivalent), {rate}% killed"
    )
