#!/usr/bin/env python3
"""Flow counts and profiles as a user meets them: the counting program, its counts, and the optimizer that reads them.

Usage: test_profiles.py BIN-DIRECTORY
"""

import gzip
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()
PROGRAMS = pathlib.Path(__file__).resolve().parent.parent / "programs"

# Each block of `f` runs another number of times.
SMALL = r"""
int printf(const char*, ...);
int total;
static void f(int n) {
    int i;
    for (i = 0; i < n; i++) {
        if (i == 3) total += 5;
        else total -= 1;
    }
}
int main(void) {
    int i;
    for (i = 0; i < 6; i++) f(i);
    printf("%d\n", total);
    return 0;
}
"""
SELF = r"""
int printf(const char*, ...);
static int down(int n, int sum) { if (n == 0) return sum; return down(n - 1, sum + n); }
int main(void) { printf("%d\n", down(10, 0)); return 0; }
"""
ENDS = r"""
#include <setjmp.h>
void exit(int); void abort(void); void _Exit(int); int atexit(void (*)(void));
static jmp_buf where;
static int left;
static void last(void) { left = 0; }
static void leave(int n) { if (n > 2) longjmp(where, n); }
static void end(void) { END; left++; }
int main(void) {
    volatile int i = 0;
    atexit(last);
    if (setjmp(where) == 0) { for (;;) leave(i++); }
    end();
    return 0;
}
"""


class ProfileTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.folder.name)

    def tearDown(self):
        self.folder.cleanup()

    def call(self, tool, *words, status=0):
        done = subprocess.run([BIN / tool, *map(str, words)], cwd=self.dir, text=True, capture_output=True, timeout=60)
        self.assertEqual(done.returncode, status, done.stderr)
        return done

    def compile(self, source, name="t.c"):
        (self.dir / name).write_text(source)
        self.call("icode-cc", name, "-o", "t.ic")

    def counts(self, source=None, *words, status=0, name="t.c"):
        """{function: counts} of one run of the counting program."""
        if source is not None:
            self.compile(source, name)
        self.call("opt5", "--count_flow", "--debug=verify_each", *words, "t.ic", "c.ic")
        self.call("icode-run", "--flow-counts=t.cnt", "c.ic", status=status)
        return self.parsed()

    def parsed(self):
        functions = {}
        for record in (self.dir / "t.cnt").read_text().split("function ")[1:]:
            heading, numbers = record.split("\n", 1)
            _, size, name = heading.split(" ", 2)
            functions[name] = [int(word) for word in numbers.split()]
            self.assertEqual(len(functions[name]), int(size))
        return functions

    def text(self, file):
        return re.sub(r'comment ".*"', "", self.call("icode-dis", file).stdout)  # the command line

    # --- Counting.

    def test_counts_by_hand(self):
        counts = self.counts(SMALL)
        # f: entry, test, the two edges of the test, the two arms, the step.
        self.assertEqual(sorted(counts["t.c:f"]), sorted([6, 21, 6, 15, 2, 13, 15]))
        self.assertEqual(counts["main"][0], 1)
        self.assertEqual(sorted(set(counts["main"])), [1, 6, 7])

    def test_counts_are_the_same_at_every_level(self):
        for source in (SMALL, SELF, ENDS.replace("END", "exit(7)")):
            status = 7 if "exit(7)" in source else 0
            first = self.counts(source, "--opt_level=0", status=status)
            for level in "1234":
                self.assertEqual(self.counts(None, f"--opt_level={level}", status=status), first)
                if level == "4":
                    self.assertEqual(self.counts(None, "--opt_level=4", "--program_mode=2", status=status), first)

    def test_every_end_but_an_abort_leaves_counts(self):
        for end, status in (("exit(3)", 3), ("(void)0", 0)):
            counts = self.counts(ENDS.replace("END", end), status=status)
            self.assertEqual(counts["t.c:leave"][0], 4)
            self.assertEqual(counts["t.c:end"][0], 1)
            self.assertEqual(counts["t.c:last"][0], 1)
        for end, status in (("abort()", 134), ("_Exit(4)", 4)):
            (self.dir / "t.cnt").unlink(missing_ok=True)
            self.compile(ENDS.replace("END", end))
            self.call("opt5", "--count_flow", "t.ic", "c.ic")
            done = self.call("icode-run", "--flow-counts=t.cnt", "c.ic", status=status)
            self.assertIn("t.cnt is not written: the program left no counts", done.stderr)
            self.assertFalse((self.dir / "t.cnt").exists())

    def test_calls_agree_with_the_host(self):
        for program in ("alg_sorts", "recursion", "switches", "gotos"):
            with self.subTest(program):
                source = PROGRAMS / f"{program}.c"
                subprocess.run(["gcc", "-w", "-O0", "--coverage", "-fno-builtin", source, "-lm", "-o", "host"], cwd=self.dir, check=True)
                subprocess.run(["./host"], cwd=self.dir, capture_output=True, check=True)
                notes = next(self.dir.glob("*.gcda"))
                subprocess.run(["gcov", "-j", notes], cwd=self.dir, capture_output=True, check=True)
                with gzip.open(next(self.dir.glob("*.gcov.json.gz"))) as f:
                    report = json.load(f)
                host = {g["name"]: g["execution_count"] for file in report["files"] for g in file["functions"]}
                self.call("icode-cc", source, "-o", "t.ic")
                ours = {name.split(":")[-1]: counts[0] for name, counts in self.counts().items()}
                self.assertTrue(host)
                self.assertEqual(ours, host)
                for left in self.dir.glob("*.gc*"):
                    left.unlink()

    def test_counts_of_linked_files(self):
        # A static of one name in each file; counters come before linking, or after it.
        for name, other, n in (("a.c", "int second(int);\nint main(void) { return f(3) + second(2) - 17; }", 3),
                               ("b.c", "int second(int n) { return f(n); }", 4)):
            (self.dir / name).write_text(
                f"static int f(int n) {{ int i, s = 0; for (i = 0; i < n; i++) if (i != {n}) s += {n}; return s; }}\n{other}\n")
            self.call("icode-cc", name, "-o", name + ".ic")
            self.call("opt5", "--count_flow", name + ".ic", name + ".c.ic")
        self.call("icode-link", "a.c.c.ic", "b.c.c.ic", "-o", "c.ic")
        self.call("icode-run", "--flow-counts=t.cnt", "c.ic")
        before = self.parsed()
        self.assertEqual((before["a.c:f"][0], before["b.c:f"][0]), (1, 1))
        self.assertEqual((max(before["a.c:f"]), max(before["b.c:f"])), (4, 3))
        self.call("icode-link", "a.c.ic", "b.c.ic", "-o", "t.ic")
        self.assertEqual(self.counts(None, "--opt_level=3"), before)
        self.assertEqual(self.use("--opt_level=3").stderr, "")
        self.call("icode-run", "u.ic")

    def test_noinstrument_leaves_the_program_alone(self):
        self.compile(SMALL)
        self.call("opt5", "--count_flow", "--debug=noinstrument", "t.ic", "c.ic")
        self.call("opt5", "t.ic", "o.ic")
        without = [self.text(name) for name in ("c.ic", "o.ic")]
        self.assertEqual(*without)
        self.assertNotIn("$O$counts", without[0])

    # --- Reading back.

    def use(self, *words, status=0):
        return self.call("opt5", "--flow_profile=t.cnt", "--debug=verify_each", *words, "t.ic", "u.ic", status=status)

    def test_branches_carry_their_counts(self):
        self.counts(SMALL)
        self.assertEqual(self.use("--opt_level=1").stderr, "")
        body = re.search(r"(?ms)^func [^\n]*@f$.*?^endfunc", self.text("u.ic"))[0]
        jumps = dict(re.findall(r"CBRANCH t\d+ \((\w+) .* \(EPVAL t\d+ (\d+) ", body))
        self.assertEqual((jumps["NEQ"], jumps["GE"]), ("2", "15"))  # each jumps where its condition is zero

    def test_a_block_that_never_ran_stands_at_the_end(self):
        source = r"""
            int printf(const char*, ...);
            int seen;
            static void __attribute__((noinline)) odd(int n) { printf("odd %d\n", n); }
            int main(void) {
                volatile int n = 5; int i;
                for (i = 0; i < n; i++) { if (i >= 0 && i < 100) seen += i * 3; else { odd(i); odd(i + 1); } }
                return seen;
            }"""
        self.counts(source, status=30)
        self.use("--opt_level=1")
        main = self.text("u.ic").split("@main\n")[-1].split("endfunc")[0]
        self.assertLess(main.index("@seen"), main.index("@odd"))
        self.assertLess(main.index("RETURN"), main.index("@odd"))

    def test_profiles_that_do_not_fit(self):
        self.counts(SMALL)
        self.compile(SMALL.replace("total -= 1", "if (n) total -= 1"))
        self.assertEqual(self.use().stderr, "opt5: t.cnt: the counts are of another version of the function t.c:f\n")
        self.compile(SMALL + "int more(void) { return 1; }")
        self.assertEqual(self.use().stderr, "opt5: t.cnt: there are no counts of the function more\n")
        self.assertEqual(self.call("icode-run", "u.ic").stdout, "-3\n")
        for content, fault in (("", "line 0: this is no profile"), ("flow-counts 1\nfunction 1 1 f\nx\n", "line 3: expected counts")):
            (self.dir / "t.cnt").write_text(content)
            self.assertEqual(self.use(status=1).stderr, f"opt5: t.cnt: {fault}\n")
        (self.dir / "t.cnt").unlink()
        (self.dir / "u.ic").unlink()
        self.assertEqual(self.use(status=1).stderr, "opt5: cannot read the profile t.cnt: No such file or directory\n")
        self.assertEqual(self.call("opt5", "--count_flow", "--flow_profile=t.cnt", "t.ic", "u.ic", status=1).stderr,
                         "opt5: --count_flow and --flow_profile exclude each other\n")
        self.assertFalse((self.dir / "u.ic").exists())

    def test_joined_profiles_add_up(self):
        first = self.counts(SMALL)
        text = (self.dir / "t.cnt").read_text()
        (self.dir / "t.cnt").write_text(text * 2)
        self.use("--opt_level=1")
        twice = self.text("u.ic")
        (self.dir / "t.cnt").write_text(text)
        self.use("--opt_level=1")
        doubled = re.sub(r"(EPVAL t\d+) (\d+)", lambda m: f"{m[1]} {2 * int(m[2])}", self.text("u.ic"))
        self.assertIn("EPVAL", twice)
        self.assertEqual(twice, doubled)
        self.assertEqual(first["main"][0], 1)


unittest.main()
