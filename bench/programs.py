"""The programs that the measuring scripts run: which they are, how they run unoptimised, and means of ratios."""

import glob
import math
import os

from figures import PROJECT

# The programs of the tests, in order.
TEST_PROGRAMS = sorted(glob.glob(os.path.join(PROJECT, "tests", "programs", "*.c")))


def ratio(after, before):
    """Of two counts; of what has gone completely, half a count remains, as the geometric mean has no place for zero."""
    return max(after, 0.5) / before


def mean(ratios):
    """The geometric mean; None of no ratios."""
    return math.exp(sum(map(math.log, ratios)) / len(ratios)) if ratios else None


def figure(value):
    return "-" if value is None else f"{value:.3f}"


def original_run(bench, source, expected):
    """Compiles and runs the program; gives (file, outcome, None), or (None, None, why it is left out)."""
    program, why = bench.compile(source)
    if why:
        return None, None, why
    first = bench.run(program, expected.stdin)
    why = first.failure or first.fault or expected.mismatch(first)
    if why:
        return None, None, why
    second = bench.run(program, expected.stdin)
    if second.failure or (second.total, second.counts, second.output) != (first.total, first.counts, first.output):
        return None, None, "a second run is another one"
    return program, first, None
