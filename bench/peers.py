"""The peer's optimiser on the programs that ours is measured with: what they execute, and the time it takes."""

import glob
import json
import math
import os
import subprocess
import sys

from figures import PROJECT
from shapes import SHAPES, source_of

sys.path.insert(0, os.path.join(PROJECT, "tools"))
from checklib import CLASSES, Config, Expected, Workbench  # noqa: E402

# Without moves, which the peer's form has none of.
COLUMNS = tuple(c for c in CLASSES if c != "move")
LEVELS = (1, 2)


def mean(ratios):
    """The geometric mean."""
    return math.exp(sum(map(math.log, ratios)) / len(ratios))


def bitcode(bench, source, result):
    """What clang makes of a C source; False if it can't."""
    command = ["clang-14", "-w", "-O0", "-Xclang", "-disable-O0-optnone", "-emit-llvm", "-c", source, "-o", result]
    return subprocess.run(command, capture_output=True, check=False).returncode == 0


def peer_counts(bench, source, passes, expected):
    """Executed instructions by class behind the passes; None if the program does something else on this machine."""
    plain, optimised, counting = bench.path("peer.bc"), bench.path("peer-opt.bc"), bench.path("peer-count.bc")
    if not bitcode(bench, source, plain):
        return None
    bench.once(["opt-14", f"-passes={passes}", plain, "-o", optimised])
    bench.once([bench.tool("count_ir"), optimised, counting])
    try:
        run = subprocess.run(["lli-14", counting], input=expected.stdin, capture_output=True, timeout=60, check=False)
    except subprocess.TimeoutExpired:
        return None
    lines = run.stderr.decode("utf-8", "replace").splitlines()
    if run.stdout != expected.output or not lines or not lines[-1].startswith("{"):
        return None
    return json.loads(lines[-1])


def with_total(counts):
    return {**{c: counts.get(c, 0) for c in COLUMNS}, "total": sum(counts.get(c, 0) for c in COLUMNS)}


def executed_by_level(bench):
    """Gives ([(columns,), (name of an optimiser, figures)...], the names of the programs that count)."""
    ratios = {f"{who}{level}": {c: [] for c in (*COLUMNS, "total")}
              for level in LEVELS for who in ("opt5 level ", "opt-14 O")}
    names = []
    with Workbench(bench.bin, verify=False) as workbench:
        for source in sorted(glob.glob(os.path.join(PROJECT, "tests", "programs", "*.c"))):
            expected = Expected.beside(source)
            if expected.output is None:
                continue
            theirs = {level: peer_counts(bench, source, passes, expected)
                      for level, passes in ((0, "mem2reg"), *((level, f"default<O{level}>") for level in LEVELS))}
            program, why = workbench.compile(source)
            if why or None in theirs.values():
                continue
            original = workbench.run(program, expected.stdin)
            ours = {level: workbench.behaviour(program, Config(f"level {level}", level), expected.stdin, original)[0]
                    for level in LEVELS}
            if original.failure or None in ours.values():
                continue
            names.append(os.path.basename(source)[:-2])
            for level in LEVELS:
                for who, before, after in (("opt5 level ", original.counts, ours[level].counts),
                                           ("opt-14 O", theirs[0], theirs[level])):
                    before, after = with_total(before), with_total(after)
                    for c, of_class in ratios[f"{who}{level}"].items():
                        if before[c] > 0:
                            of_class.append(max(after[c], 0.5) / before[c])
    rows = [(COLUMNS,)]
    rows += [(who, [f"{mean(of_class[c]):.3f}" for c in (*COLUMNS, "total")]) for who, of_class in ratios.items()]
    return rows, names


def times_of_optimisers(bench, many_functions):
    """Rows of (source, then for each level our time, the peer's and their ratio)."""
    sources = [("1,000 functions", many_functions(1000))]
    sources += [(f"{name}, 4,000 statements", source_of(shape, 4000)) for name, shape in SHAPES.items()]
    rows = []
    for name, text in sources:
        source, program, plain = bench.path("timed.c"), bench.path("timed.ic"), bench.path("timed.bc")
        with open(source, "w", encoding="ascii") as f:
            f.write(text)
        bench.once([bench.tool("icode-cc"), source, "-o", program])
        bitcode(bench, source, plain)
        row = [name]
        for level in LEVELS:
            ours, _ = bench.optimise(program, level)
            theirs, _ = bench.median(["opt-14", f"-passes=default<O{level}>", plain, "-o", bench.path("timed.out")])
            row += [f"{ours * 1000:.0f}", f"{theirs * 1000:.0f}", f"{ours / theirs:.2f}"]
        rows.append(row)
    return rows
