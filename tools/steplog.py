"""Reads the debug file of a run with the switch dump_changes: what each step made of a function.

A `State` is the function at one moment, a `Step` has the states before and after. Blocks are known by their permanent
number (UON), and jumps are shown with it: the number by position, which the debug file uses, changes with every block
that comes or goes.
"""

import collections
import difflib
import itertools
import re
from dataclasses import dataclass, field

FUNCTION = re.compile(r"==== FUNCTION (?P<name>.*?)(?:, (?P<file>[^,]*) line (?P<line>\d+))?$")
STEP = re.compile(r"\t+-+ (?P<what>ENTERING|SKIPPING|EXITING) step (?P<number>\d+) '(?P<name>.*)' -+$")
STATE = re.compile(r"<<<< STATE \w[\w ]*: (?P<blocks>\d+) blocks, (?P<operators>\d+) operators$")
NUMBERS = re.compile(r"   uon=(\d+), dfn=(-?\d+)$")
STATEMENT = re.compile(r" *(\d+) +(.*);$")
JUMP = re.compile(r'"(?:\\.|[^"\\])*"|\bgoto BB(\d+)\b')
WORD = re.compile(r"\w+|\s+|.")


class LogError(Exception):
    """The debug file is not what the optimizer writes; the text is for the user."""


@dataclass
class Block:
    uon: int
    successors: tuple = ()
    statements: list = field(default_factory=list)
    lines: list = field(default_factory=list)  # the source line of each statement, 0 when unknown

    @property
    def name(self):
        return f"B{self.uon}"

    def same(self, other):
        return self.statements == other.statements and self.successors == other.successors


@dataclass
class State:
    blocks: list
    operators: int

    def __post_init__(self):
        self.by_uon = {block.uon: block for block in self.blocks}

    @property
    def statements(self):
        return sum(len(block.statements) for block in self.blocks)

    def same(self, other):
        return len(self.blocks) == len(other.blocks) and all(
            a.uon == b.uon and a.same(b) for a, b in zip(self.blocks, other.blocks))


@dataclass
class Step:
    number: int
    name: str
    before: State | None = None
    after: State | None = None
    whole_program: bool = False
    skipped: bool = False

    @property
    def changed(self):
        return self.before is not None and not (self.after is self.before or self.after.same(self.before))


@dataclass
class Way:
    """A function's way through the list: the steps in the order in which they ran."""

    name: str
    file: str | None
    line: int | None
    steps: list


def function_names(log):
    """The functions that the log tells of, in its order."""
    names = {}
    for line in log:
        if line.startswith("==== FUNCTION "):
            names.setdefault(FUNCTION.match(line)["name"])
    return list(names)


def read_way(log, wanted):
    """The way of the function `wanted` through a log, given as a list of lines."""
    way = Way(wanted, None, None, [])
    mine, inside, state, step = False, False, None, None
    at = 0
    while at < len(log):
        line = log[at]
        at += 1
        if line.startswith("====") and (found := FUNCTION.match(line)):
            inside, mine = True, found["name"] == wanted
            if mine and found["line"]:
                way.file, way.line = found["file"], int(found["line"])
        elif line.startswith("==== END OF PHASE"):
            inside = False
        elif line.startswith("\t") and (mine or not inside) and (found := STEP.match(line)):
            if found["what"] == "EXITING":
                continue
            if not inside:
                way.steps.append(Step(int(found["number"]), found["name"], state, state, whole_program=True))
                continue
            step = Step(int(found["number"]), found["name"], state, state, skipped=found["what"] == "SKIPPING")
            way.steps.append(step)
        elif line.startswith("<<<< STATE BEFORE") and mine and inside:
            state, at = read_state(log, at - 1)
            earlier = way.steps[:-1]
            step.before = step.after = state
            # What a barrier changed shows only when the function's turn comes again: it goes to the last of them.
            if earlier and earlier[-1].whole_program and earlier[-1].before is not None:
                earlier[-1].after = state
            for other in earlier:
                if other.before is None:
                    other.before = other.after = state
        elif line.startswith("<<<< STATE") and mine and inside:
            state, at = read_state(log, at - 1)
            step.after = state
    return way


def read_state(log, at):
    """The state that begins at a line; gives it and the index of the line behind it."""
    head = STATE.match(log[at])
    if not head:
        raise LogError(f"line {at + 1} of the debug file: no state where one should begin")
    blocks, places = [], {}
    at += 1
    for _ in range(int(head["blocks"])):
        while at < len(log) and not NUMBERS.match(log[at]):
            at += 1
        if at + 2 >= len(log):
            raise LogError("the debug file ends within a state")
        uon, dfn = (int(n) for n in NUMBERS.match(log[at]).groups())
        block = Block(uon, tuple(int(word[2:]) for word in log[at + 2].split()[1:]))
        places[dfn] = uon
        at += 3
        while at < len(log) and (found := STATEMENT.match(log[at])):
            block.lines.append(int(found[1]))
            block.statements.append(found[2])
            at += 1
        blocks.append(block)

    def permanent(found):
        return found[0] if found[1] is None else f"goto B{places.get(int(found[1]), '?')}"

    for block in blocks:
        block.successors = tuple(places.get(dfn, -1) for dfn in block.successors)
        # Jumps stand only in the last statement. Another may hold the words "goto BB1" as text.
        if block.statements:
            block.statements[-1] = JUMP.sub(permanent, block.statements[-1])
    return State(blocks, int(head["operators"])), at


# --- Differences.


@dataclass
class Row:
    """One line of a comparison. `kind`: block, same, pair, old, new, gap (text tells what is left out)."""

    kind: str
    old: object = None  # a list of (text, is changed), or the text of a block's heading or of a gap
    new: object = None
    old_line: int = 0
    new_line: int = 0


CONTEXT = 2  # unchanged statements shown around a change
WIDEST = 600  # characters of a statement that are shown
LARGEST = 1_000_000  # product of the lengths up to which two lists of statements are compared in full


def compare_states(before, after, limit):
    """The rows that show how two states differ, at most about `limit`, and how many blocks are not shown then."""
    rows, skipped, left_out = [], 0, 0
    for old, new in pair_blocks(before, after):
        if old is not None and new is not None and old.same(new):
            skipped += 1
            continue
        if len(rows) >= limit:
            left_out += 1
            continue
        if skipped:
            rows.append(Row("gap", f"{skipped} block{'s' if skipped > 1 else ''} unchanged"))
            skipped = 0
        rows += compare_blocks(old, new)[:limit]
    if skipped and not left_out:
        rows.append(Row("gap", f"{skipped} block{'s' if skipped > 1 else ''} unchanged"))
    return rows, left_out


def pair_blocks(before, after):
    """Pairs (old, new) in the later order; a block that is gone follows the one that stood ahead of it."""
    gone, anchor = {}, None
    for block in before.blocks:
        if block.uon in after.by_uon:
            anchor = block.uon
        else:
            gone.setdefault(anchor, []).append(block)
    for block in gone.get(None, []):
        yield block, None
    for block in after.blocks:
        yield before.by_uon.get(block.uon), block
        for old in gone.get(block.uon, []):
            yield old, None


def compare_blocks(old, new):
    def heading(block):
        return None if block is None else block.name

    rows = [Row("block", heading(old), heading(new))]
    a, b = (block.statements if block else [] for block in (old, new))

    def row(kind, i, j):
        one, two = (a[i] if i is not None else None), (b[j] if j is not None else None)
        left, right = mark_words(one, two) if kind == "pair" else (plain(one), plain(two))
        rows.append(Row(kind, left, right, old.lines[i] if i is not None else 0, new.lines[j] if j is not None else 0))

    for tag, i1, i2, j1, j2 in statement_opcodes(a, b):
        if tag == "equal":
            first, last = i1 == 0, i2 == len(a)
            shown = [k for k in range(i2 - i1)
                     if (k < CONTEXT and not first) or (k >= i2 - i1 - CONTEXT and not last)]
            hidden = i2 - i1 - len(shown)
            if hidden < 2:
                shown, hidden = range(i2 - i1), 0
            last_shown = None if first else -1
            for k in shown:
                if hidden and (last_shown is None and k > 0 or last_shown is not None and k > last_shown + 1):
                    rows.append(Row("gap", f"{hidden} statements unchanged"))
                    hidden = 0
                row("same", i1 + k, j1 + k)
                last_shown = k
            if hidden:
                rows.append(Row("gap", f"{hidden} statements unchanged"))
        else:
            for i, j in pair_statements(a[i1:i2], b[j1:j2]):
                kind = "old" if j is None else "new" if i is None else "pair"
                row(kind, None if i is None else i1 + i, None if j is None else j1 + j)
    return rows


def likeness(a, b):
    """How many words two statements share, from 0 to 1."""
    return 2 * (a & b).total() / max(a.total() + b.total(), 1)


def pair_statements(a, b):
    """Pairs (i, j) that set two runs of statements side by side, in order: like beside like, None for no partner."""
    matches = [(len(a), len(b))]
    if len(a) * len(b) <= 2500:
        words = [[collections.Counter(WORD.findall(text[:WIDEST])) for text in texts] for texts in (a, b)]
        # best[i][j]: the greatest sum of likenesses that the rests from i and j on can reach.
        best = [[0.0] * (len(b) + 1) for _ in range(len(a) + 1)]
        alike = [[likeness(x, y) for y in words[1]] for x in words[0]]
        for i in reversed(range(len(a))):
            for j in reversed(range(len(b))):
                taken = alike[i][j] + best[i + 1][j + 1] if alike[i][j] >= 0.5 else 0
                best[i][j] = max(taken, best[i + 1][j], best[i][j + 1])
        matches, i, j = [], 0, 0
        while i < len(a) and j < len(b) and best[i][j] > 0:
            if best[i][j] == best[i + 1][j]:
                i += 1
            elif best[i][j] == best[i][j + 1]:
                j += 1
            else:
                matches.append((i, j))
                i, j = i + 1, j + 1
        matches.append((len(a), len(b)))
    i = j = 0
    for x, y in matches:
        yield from itertools.zip_longest(range(i, x), range(j, y))
        if x < len(a):
            yield x, y
        i, j = x + 1, y + 1


def statement_opcodes(a, b):
    """As difflib's, but linear where the lists are long: then all between their common ends counts as replaced."""
    start = 0
    while start < min(len(a), len(b)) and a[start] == b[start]:
        start += 1
    end = 0
    while end < min(len(a), len(b)) - start and a[-1 - end] == b[-1 - end]:
        end += 1
    i, j = len(a) - end, len(b) - end
    if start:
        yield "equal", 0, start, 0, start
    if (i - start) * (j - start) > LARGEST:
        yield "replace", start, i, start, j
    else:
        matcher = difflib.SequenceMatcher(None, a[start:i], b[start:j], autojunk=False)
        for tag, i1, i2, j1, j2 in matcher.get_opcodes():
            yield tag, i1 + start, i2 + start, j1 + start, j2 + start
    if end:
        yield "equal", i, len(a), j, len(b)


def plain(text):
    return None if text is None else [(clip(text), False)]


def clip(text, limit=WIDEST):
    return text if len(text) <= limit else text[:limit] + " …"


def mark_words(old, new):
    """Both texts in pieces, with the words that differ marked. Of long texts the part around the first difference."""
    if max(len(old), len(new)) > WIDEST:
        same = next((i for i, (x, y) in enumerate(zip(old, new)) if x != y), min(len(old), len(new)))
        start = max(0, same - WIDEST // 4)
        old, new = ("… " * (start > 0) + clip(text[start:]) for text in (old, new))
    a, b = WORD.findall(old), WORD.findall(new)
    matcher = difflib.SequenceMatcher(None, a, b, autojunk=False)
    if matcher.ratio() < 0.35:
        return [(old, False)], [(new, False)]
    left, right = [], []
    for tag, i1, i2, j1, j2 in matcher.get_opcodes():
        if i2 > i1:
            left.append(("".join(a[i1:i2]), tag != "equal"))
        if j2 > j1:
            right.append(("".join(b[j1:j2]), tag != "equal"))
    return left, right
