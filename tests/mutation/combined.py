"""One text of a source that holds many of its mutants, so that they are compiled and linked together: a function's body
becomes a `switch` over the bodies that its mutants have. Which of them is taken, an environment variable says."""

import collections
import re

VARIABLE = "QUARLO_MUTANT"

# What every program with such a text is linked with. The simulated machine has getenv(), which nothing traces here.
CHOICE = f"""
#define _GNU_SOURCE
#include <stdlib.h>
int quarloMutant = 0;
__attribute__((constructor(101))) static void choose(void) {{
  const char* text = secure_getenv("{VARIABLE}");
  if (text != NULL) quarloMutant = atoi(text);
}}
"""
DECLARATION = 'extern "C" int quarloMutant;'

# Where a compiler says that an error is, if that is in a mutant.
ERROR = re.compile(r"^mutant-(\d+):\d+:\d+: (?:fatal )?error: ", re.MULTILINE)


def combined(text, file, mutants):
    """The source's text with the mutants, by their numbers, in it. REQUIRES: each has a body"""
    bodies = collections.defaultdict(dict)
    for number, mutant in mutants.items():
        bodies[mutant.body][number] = mutant.text
    parts = [f'{DECLARATION}\n#line 1 "{file}"\n']
    done = 0
    for (start, end), texts in sorted(bodies.items()):
        line = text.count("\n", 0, start) + 1
        parts += [text[done:start], "{ switch (::quarloMutant) {\ndefault:\n", f'#line {line} "{file}"\n', text[start:end]]
        for number, other in texts.items():
            body = other[start:end + len(other) - len(text)]
            parts.append(f'\nbreak; case {number}:\n#line {line} "mutant-{number}"\n{body}')
        parts.append(f'\n}} }}\n#line {line + text.count(chr(10), start, end)} "{file}"\n')
        done = end
    return "".join([*parts, text[done:]])


def without_errors(mutants, compile_text, most_tries=8):
    """Those of the mutants, by their numbers, that compile together. `compile_text` takes them, and returns what the
    compiler said, or None if it had nothing to say."""
    for _ in range(most_tries):
        said = compile_text(mutants)
        if said is None:
            return mutants
        wrong = {int(number) for number in ERROR.findall(said)}
        if not wrong:
            break
        mutants = {number: mutant for number, mutant in mutants.items() if number not in wrong}
    return {}
