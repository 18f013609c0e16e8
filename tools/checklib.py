"""What check-program, find-step and the drivers of generated programs share.

A `Workbench` knows where the binaries are and holds a scratch directory. It compiles C, optimises intermediate files in
a chosen configuration and runs them. Whatever a tool does wrong (a crash, a timeout, an error where none belongs) comes
back as text in the outcome, never as an exception, so that callers treat it as one more difference.
"""

import hashlib
import json
import os
import random
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
from dataclasses import dataclass, field

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
STEP_COUNT = 78  # the numbered steps 0 to 77; "output function" always follows and has no place in an order
FAULT_STATUS = 3  # icode-run's exit status for a fault of the program it runs
CLASSES = ("arithmetic", "compare", "convert", "load", "store", "address", "move", "branch", "call")


class UsageError(Exception):
    """The command line asks for something that cannot be done; the text is for the user."""


@dataclass(frozen=True)
class Config:
    """One way to optimise: a level, and a forced order of steps or None for the normal one."""

    name: str
    level: int
    order: tuple | None = None
    switches: tuple = ()  # further debug switches, such as "skip_pass=17"

    def command_hint(self):
        """The settings as a user would type them in front of and behind the optimizer's name."""
        words = [f"--opt_level={self.level}"]
        if self.switches:
            words.append("--debug=" + ",".join(self.switches))
        text = "opt5 " + " ".join(words)
        if self.order is not None:
            text = f"FORCED_OPT_PASSES='{order_text(self.order)}' {text}"
        return text


@dataclass
class Outcome:
    """What running one program showed. `failure` is set when a tool failed; the other fields then mean nothing."""

    failure: str | None = None
    status: int = 0
    output: bytes = b""
    trace: bytes = b""
    fault: str | None = None  # the runner's own words for a fault of the program
    counts: dict = field(default_factory=dict)
    total: int = 0
    entered: int = 0  # functions of the program, main included


def order_text(order):
    return ",".join(str(step) for step in order)


def random_orders(count, seed):
    """`count` permutations of the numbered steps; the same seed gives the same orders on every machine."""
    orders = []
    for i in range(count):
        order = list(range(STEP_COUNT))
        random.Random(f"{seed}/{i}").shuffle(order)
        orders.append(tuple(order))
    return orders


def parse_order(text):
    """A list of step numbers separated by commas or blanks; an empty text is the empty order."""
    try:
        order = tuple(int(word) for word in text.replace(",", " ").split())
    except ValueError:
        raise UsageError(f"not a list of step numbers: {text!r}") from None
    if any(step < 0 or step >= STEP_COUNT for step in order):
        raise UsageError(f"step numbers go from 0 to {STEP_COUNT - 1}: {text!r}")
    return order


def parse_levels(text):
    try:
        levels = [int(word) for word in text.split(",") if word]
    except ValueError:
        raise UsageError(f"not a list of levels: {text!r}") from None
    if any(level < 0 or level > 4 for level in levels):
        raise UsageError("levels go from 0 to 4")
    return levels


def describe_end(status):
    """How a process ended, for people."""
    if status < 0:
        try:
            return f"killed by {signal.Signals(-status).name}"
        except ValueError:
            return f"killed by signal {-status}"
    return f"exit status {status}"


def first_lines(data, count=4):
    lines = [line for line in data.decode("utf-8", "replace").splitlines() if line.strip()]
    return " | ".join(lines[:count])


def first_difference(expected, actual):
    """Names the first line in which two texts differ."""
    a, b = expected.splitlines(), actual.splitlines()
    for number, (x, y) in enumerate(zip(a, b), 1):
        if x != y:
            return f"line {number}: expected {shorten(x)}, got {shorten(y)}"
    if len(a) != len(b):
        number = min(len(a), len(b)) + 1
        x = shorten(a[number - 1]) if len(a) >= number else "the end"
        y = shorten(b[number - 1]) if len(b) >= number else "the end"
        return f"line {number}: expected {x}, got {y}"
    return "only the ends of lines differ"


def digest_of(file):
    with open(file, "rb") as f:
        return hashlib.sha256(f.read()).digest()


def shorten(line, limit=80):
    text = line.decode("utf-8", "replace")
    return repr(text if len(text) <= limit else text[:limit] + "...")


# An address of a local, as the runner names it: FUNCTION:VARIABLE+OFFSET.
LOCAL = re.compile(rb"[^ :]+:([^ ]+\+[0-9]+)")
# Frame space that locals share.
SHARED = re.compile(rb"[^ :]+:\$O\$S[0-9]+\+[0-9]+")


def same_address(expected, actual):
    """Whether two words of a trace may be the same place: a local goes by its name and offset, as the code of its function may
    have become part of a caller, and by neither where the optimizer has let it share its room."""
    if expected == actual:
        return True
    x, y = LOCAL.fullmatch(expected), LOCAL.fullmatch(actual)
    return bool(x and y) and (x[1] == y[1] or bool(SHARED.fullmatch(actual)))


def same_accesses(expected, actual):
    """Whether two traces show the same volatile accesses."""
    if expected == actual:
        return True
    a, b = expected.splitlines(), actual.splitlines()
    if len(a) != len(b):
        return False
    for x, y in zip(a, b):
        if x != y:
            x, y = x.split(b" "), y.split(b" ")
            if len(x) != len(y) or not all(map(same_address, x, y)):
                return False
    return True


def compare(expected, actual):
    """None if both outcomes show the same behaviour, else the first thing that differs."""
    if actual.failure:
        return actual.failure
    if actual.fault and not expected.fault:
        return f"the program faults: {actual.fault}"
    if expected.output != actual.output:
        return "output differs, " + first_difference(expected.output, actual.output)
    if expected.status != actual.status:
        return f"exit status differs: expected {expected.status}, got {actual.status}"
    if not same_accesses(expected.trace, actual.trace):
        return "volatile accesses differ, " + first_difference(expected.trace, actual.trace)
    return None


class Workbench:
    """Binaries, time limits and a scratch directory that is removed at the end unless `keep` is set."""

    def __init__(self, bin_dir=None, keep=False, timeout=60, opt_args="", cc_args="", verify=True):
        self.bin_dir = os.path.abspath(bin_dir or os.environ.get("ICODE_BIN") or os.path.join(PROJECT, "build", "bin"))
        self.timeout = timeout
        self.opt_args = shlex.split(opt_args)
        self.cc_args = shlex.split(cc_args)
        self.verify = verify
        self.keep = keep
        for name in ("opt5", "icode-run"):
            if not os.access(self.tool(name), os.X_OK):
                raise UsageError(f"{self.tool(name)} is missing; build the project or give --bin DIR")
        self.scratch = tempfile.mkdtemp(prefix="icode-check-")
        self.serial = 0
        self.seen = {}  # what an optimised file showed, by a digest of its bytes

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.keep:
            print(f"files kept in {self.scratch}")
        else:
            shutil.rmtree(self.scratch, ignore_errors=True)

    def tool(self, name):
        return os.path.join(self.bin_dir, name)

    def path(self, suffix):
        """A fresh file name in the scratch directory."""
        self.serial += 1
        return os.path.join(self.scratch, f"{self.serial:03}-{suffix}")

    def call(self, command, env=None, stdin=b""):
        """Runs a command; gives (status, output, errors), or (None, what happened, b"") after a timeout."""
        environment = {k: v for k, v in os.environ.items() if k != "FORCED_OPT_PASSES"}
        environment.update(env or {})
        try:
            done = subprocess.run(command, env=environment, input=stdin, capture_output=True, timeout=self.timeout)
        except subprocess.TimeoutExpired:
            return None, f"no end after {self.timeout} seconds".encode(), b""
        return done.returncode, done.stdout, done.stderr

    def compile(self, source):
        """Gives (file, None), or (None, why not). An intermediate file is taken as it is; of a folder all C sources are
        compiled and linked, in order of their names."""
        if os.path.isdir(source):
            return self.link(sorted(os.path.join(source, name) for name in os.listdir(source) if name.endswith(".c")))
        if not source.endswith(".c"):
            return source, None
        result = self.path(os.path.basename(source)[:-2] + ".ic")
        status, out, err = self.call([self.tool("icode-cc"), *self.cc_args, source, "-o", result])
        if status is None:
            return None, "icode-cc: " + out.decode()
        if status != 0 or not os.path.exists(result):
            return None, f"icode-cc: {describe_end(status)}: {first_lines(err or out)}"
        return result, None

    def link(self, sources):
        """Compiles the sources and merges the results; gives (file, None), or (None, why not)."""
        parts = []
        for source in sources:
            part, why = self.compile(source)
            if why:
                return None, f"{os.path.basename(source)}: {why}"
            parts.append(part)
        result = self.path("linked.ic")
        status, out, err = self.call([self.tool("icode-link"), *parts, "-o", result])
        if status != 0:
            return None, f"icode-link: {out.decode() if status is None else first_lines(err or out)}"
        return result, None

    def optimise(self, source, config, result=None, extra=()):
        """Optimises into a scratch file; gives (file, None), or (None, what went wrong)."""
        result = result or self.path(re.sub(r"\W+", "-", config.name) + ".ic")
        switches = list(config.switches)
        if self.verify:
            switches.append("verify_each")
        command = [self.tool("opt5"), f"--opt_level={config.level}"]
        if switches:
            command.append("--debug=" + ",".join(switches))
        command += [*self.opt_args, *extra, source, result]
        env = {} if config.order is None else {"FORCED_OPT_PASSES": order_text(config.order)}
        status, out, err = self.call(command, env)
        if status is None:
            return None, "opt5: " + out.decode()
        if status != 0:
            return None, f"opt5: {describe_end(status)}: {first_lines(err or out)}"
        if not os.path.exists(result):
            return None, "opt5: no output file"
        return result, None

    def run(self, program, stdin=b"", max_steps=None, flow_counts=None):
        """Runs an intermediate file and gives its Outcome; a counting program leaves its counts in that file."""
        trace_file = self.path("trace")
        command = [self.tool("icode-run"), "--stats", f"--trace={trace_file}"]
        if max_steps:
            command += ["--max-steps", str(max_steps)]
        if flow_counts:
            command.append(f"--flow-counts={flow_counts}")
        status, out, err = self.call([*command, program], stdin=stdin)
        if status is None:
            return Outcome(failure="icode-run: " + out.decode())
        if status < 0:
            return Outcome(failure=f"icode-run: {describe_end(status)}: {first_lines(err)}")
        outcome = Outcome(status=status, output=out)
        messages = []
        for line in err.decode("utf-8", "replace").splitlines():
            if line.startswith('{"total"'):
                stats = json.loads(line)
                outcome.total, outcome.counts, outcome.entered = stats["total"], stats["classes"], stats["entered"]
            elif line.strip():
                messages.append(line.strip())
        if any("Sanitizer" in line or "runtime error:" in line for line in messages):
            return Outcome(failure="icode-run: " + " | ".join(messages[:3]))
        if status == FAULT_STATUS and messages:
            outcome.fault = " | ".join(messages[:2])
        if not outcome.counts and not outcome.fault:
            return Outcome(failure=f"icode-run: {describe_end(status)}: {' | '.join(messages[:2]) or 'no counts given'}")
        if os.path.exists(trace_file):
            with open(trace_file, "rb") as f:
                outcome.trace = f.read()
            os.remove(trace_file)
        return outcome

    def round_trip(self, program):
        """None if assembling the file's text form gives its bytes again, else what is wrong."""
        text, again = self.path("text.txt"), self.path("again.ic")
        status, out, err = self.call([self.tool("icode-dis"), program])
        if status != 0:
            return f"icode-dis: {first_lines(err or out)}"
        with open(text, "wb") as f:
            f.write(out)
        status, out, err = self.call([self.tool("icode-as"), text, "-o", again])
        if status != 0:
            return f"icode-as: {first_lines(err or out)}"
        with open(program, "rb") as a, open(again, "rb") as b:
            if a.read() != b.read():
                return "assembling the disassembly gives other bytes"
        return None

    def behaviour(self, source, config, stdin, original, round_trip=False, extra=()):
        """Optimises and runs; gives (outcome, what differs from the original or None).

        A file whose bytes were seen before shows what it showed then: most steps leave most programs alone. The output
        carries the command line, so all results get one name.
        """
        program, why = self.optimise(source, config, os.path.join(self.scratch, "optimised.ic"), extra)
        if why:
            return Outcome(failure=why), why
        if self.keep:
            shutil.copy(program, self.path(re.sub(r"\W+", "-", config.name) + ".ic"))
        digest = digest_of(program)
        if digest not in self.seen:
            self.seen[digest] = self.judge(program, stdin, original, round_trip)
        return self.seen[digest]

    def profile(self, source, stdin, original):
        """Has the program count and runs it; gives (name of the profile, None), or (None, why there is none)."""
        counts = self.path("flow.cnt")
        program, why = self.optimise(source, Config("counting", 1), extra=("--count_flow",))
        if why:
            return None, why
        outcome = self.run(program, stdin, original.total * 30 + 1_000_000, counts)
        if why := compare(original, outcome):
            return None, why
        return (counts, None) if os.path.exists(counts) else (None, "the counting program left no counts")

    def judge(self, program, stdin, original, round_trip):
        """Runs an optimised file; gives (outcome, what differs from the original or None)."""
        if round_trip and (why := self.round_trip(program)):
            return Outcome(failure=why), why
        # An optimised program that loops for ever should not hold up the hunt for long.
        outcome = self.run(program, stdin, original.total * 20 + 1_000_000)
        return outcome, compare(original, outcome)

    def twice(self, source, level, stdin, original):
        """Optimises the optimizer's own output; gives (outcome, None or what differs from the original or has grown).

        A program grows when it executes over a fiftieth more operators than before, or executes no fewer and holds over a
        fiftieth more nodes in its bodies. Below that, one form may take the place of another: a loop that of a call.
        """
        outcomes, sizes, program = [], [], source
        for number in ("once", "twice"):
            program, why = self.optimise(program, Config(f"level {level} {number}", level))
            if why:
                return Outcome(failure=why), why
            outcome, why = self.judge(program, stdin, original, False)
            if why:
                return outcome, why
            outcomes.append(outcome)
            sizes.append(self.node_count(program))
        executed = [outcome.total for outcome in outcomes]
        why = None
        if executed[1] > executed[0] + executed[0] // 50:
            why = f"the second time it grows from {executed[0]} to {executed[1]} executed operators"
        elif executed[1] >= executed[0] and sizes[1] > sizes[0] + sizes[0] // 50:
            why = f"the second time it grows from {sizes[0]} to {sizes[1]} nodes"
        return outcomes[1], why

    def node_count(self, program):
        """The nodes of all trees in the function bodies, counted in the text form."""
        _, text, _ = self.call([self.tool("icode-dis"), program])
        bodies = re.findall(rb"(?ms)^func .*?^endfunc", text)
        return sum(re.sub(rb'"(?:[^"\\]|\\.)*"', b"", body).count(b"(") for body in bodies)


@dataclass
class Expected:
    """The files beside a program: NAME.in, NAME.out and NAME.status, each one optional."""

    stdin: bytes = b""
    output: bytes | None = None
    status: int | None = None

    @staticmethod
    def beside(source):
        stem = os.path.splitext(os.path.normpath(source))[0]

        def content(suffix):
            try:
                with open(stem + suffix, "rb") as f:
                    return f.read()
            except FileNotFoundError:
                return None

        output, status = content(".out"), content(".status")
        if output is not None and status is None:
            status = b"0"
        return Expected(content(".in") or b"", output, None if status is None else int(status))

    def mismatch(self, outcome):
        """None if the outcome is the expected one, else what is wrong with it."""
        wanted = Outcome(status=outcome.status if self.status is None else self.status,
                         output=outcome.output if self.output is None else self.output, trace=outcome.trace)
        return compare(wanted, outcome)


def add_common_arguments(parser):
    parser.add_argument("file", help="a C source (.c), a folder of C sources that are linked, or an intermediate file (.ic)")
    parser.add_argument("--bin", metavar="DIR", help="where the tools are (default: build/bin, or $ICODE_BIN)")
    parser.add_argument("--keep", action="store_true", help="keep the intermediate files and say where they are")
    parser.add_argument("--opt-args", default="", metavar="WORDS", help="further words for opt5")
    parser.add_argument("--cc-args", default="", metavar="WORDS", help="further words for icode-cc")
    parser.add_argument("--timeout", type=float, default=60, metavar="SECONDS", help="limit for one tool (default 60)")
    parser.add_argument("--no-verify", action="store_true", help="leave debug:verify_each off")


def workbench_of(arguments):
    if not os.path.exists(arguments.file):
        raise UsageError(f"{arguments.file}: no such file")
    return Workbench(arguments.bin, arguments.keep, arguments.timeout, arguments.opt_args, arguments.cc_args,
                     not arguments.no_verify)
