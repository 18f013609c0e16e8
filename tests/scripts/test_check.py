#!/usr/bin/env python3
"""Tests of check-program and find-step against tools whose faults are known.

The stand-ins below treat an intermediate file as a list of lines to print. The optimizer among them misbehaves at one
chosen step, in one chosen way, so the scripts must report exactly that.
"""

import os
import subprocess
import sys
import tempfile
import unittest

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(PROJECT, "tools"))
import checklib  # noqa: E402

# BREAK is "STEP:WAY"; the step acts when the order holds it, it is not skipped, and the level is above 0.
OPTIMIZER = r"""
import os, sys, time
words = sys.argv[1:]
level = next(w[12:] for w in words if w.startswith("--opt_level="))
debug = ",".join(w[8:] for w in words if w.startswith("--debug=")).split(",")
order = os.environ.get("FORCED_OPT_PASSES")
order = list(range(78)) if order is None else [int(w) for w in order.replace(",", " ").split()]
source, result = words[-2:]
if "list_passes" in debug:
    open(source[:-3] + ".odb", "w").write("".join("%2d:  name of %d\n" % (i, i) for i in order))
skipped = [int(d[10:]) for d in debug if d.startswith("skip_pass=")]
text = open(source).read()
for item in filter(None, os.environ.get("BREAK", "").split()):
    step, way = item.split(":")
    step = int(step)
    if step in order and level != "0" and not (step in skipped and step > 0):
        if way == "output": text = text.replace("print two", "print TWO")
        if way == "status": text = text.replace("exit 5", "exit 6")
        if way == "trace": text = text.replace("access b\naccess a", "access a\naccess b")
        if way == "fault": text = "fault in f, line 3\n"
        if way == "slower": text += "idle\n"
        if way == "larger": text += "# (\n"
        if way == "worth": text = text.replace("idle\n", "", 1) + "# (\n"
        if way == "error": sys.exit("step %d \"name of %d\": bad tree in function f()" % (step, step))
        if way == "crash": os.abort()
        if way == "hang": time.sleep(30)
        if way == "pair" and 60 in order[:order.index(step)]: text = ""
open(result, "w").write(text)
"""
RUNNER = r"""
import sys
trace = open(next(w[8:] for w in sys.argv if w.startswith("--trace=")), "w")
status = total = 0
for line in open(sys.argv[-1]):
    word, _, rest = line.strip().partition(" ")
    total += word != "#"
    if word == "print": print(rest)
    if word == "access": trace.write(rest + "\n")
    if word == "exit": status = int(rest)
    if word == "fault":
        print(line.strip(), file=sys.stderr)
        sys.exit(3)
trace.close()
print('{"total": %d, "classes": {"move": %d}, "entered": 1}' % (total, total), file=sys.stderr)
sys.exit(status)
"""
DISASSEMBLER = r"""
import sys
print("func [1:1:1] @same\n  expr t%d\nendfunc\n\nfunc [1:5:1] @changed" % len(open(sys.argv[1]).read()))
print(open(sys.argv[1]).read() + "endfunc [1:9:1]")
"""
PROGRAM = "print one\nprint two\naccess b\naccess a\nexit 5\n# a \"(\" is no node\n" + "idle\n" * 4


class Traces(unittest.TestCase):
    def test_locals_may_move_and_nothing_else(self):
        original = b"W p+0 16 f:l+2\nR f:a+0 16 5\nW p+0 16 g+4\n"
        same = (original, original.replace(b"f:", b"main:"), original.replace(b"f:l+2", b"main:$O$S7+0"))
        other = (original.replace(b"f:l+2", b"f:l+3"), original.replace(b"f:l+2", b"main:m+2"),
                 original.replace(b"g+4", b"main:$O$S7+4"), original.replace(b"16 5", b"16 6"),
                 original.replace(b"R f", b"W f"), original + b"R p+0 16 0\n", b"")
        for trace in same:
            self.assertTrue(checklib.same_accesses(original, trace), trace)
        for trace in other:
            self.assertFalse(checklib.same_accesses(original, trace), trace)


class Scripts(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        for name, text in (("opt5", OPTIMIZER), ("icode-run", RUNNER), ("icode-dis", DISASSEMBLER)):
            path = os.path.join(self.folder.name, name)
            with open(path, "w") as f:
                f.write(f"#!{sys.executable}\n{text}")
            os.chmod(path, 0o755)
        self.write("p.ic", PROGRAM)

    def tearDown(self):
        self.folder.cleanup()

    def write(self, name, text):
        with open(os.path.join(self.folder.name, name), "w") as f:
            f.write(text)

    def script(self, name, *words, fault=""):
        command = [sys.executable, "-B", os.path.join(PROJECT, "tools", name), "--bin", self.folder.name, *words,
                   os.path.join(self.folder.name, "p.ic")]
        done = subprocess.run(command, capture_output=True, text=True, env={**os.environ, "BREAK": fault})
        return done.returncode, done.stdout + done.stderr

    def test_agreement_compares_status_and_prints_counts(self):
        status, text = self.script("check-program", "--orders", "2")
        self.assertEqual(status, 0, text)
        self.assertIn("all 8 configurations agree", text)
        self.assertRegex(text, r"original +9 ")

    def test_every_kind_of_fault_is_told_apart(self):
        for way, words in (("output", "line 2: expected 'two', got 'TWO'"), ("status", "expected 5, got 6"),
                           ("trace", "volatile accesses differ"), ("fault", "the program faults: fault in f"),
                           ("error", "bad tree in function f()"), ("crash", "SIGABRT")):
            status, text = self.script("check-program", "--levels", "0,3", fault=f"7:{way}")
            self.assertEqual(status, 1, text)
            self.assertIn("level 3: ", text)
            self.assertNotIn("level 0: ", text)
            self.assertIn(words, text)

    def test_a_hanging_tool_is_a_difference(self):
        status, text = self.script("check-program", "--levels", "3", "--timeout", "1", fault="7:hang")
        self.assertEqual(status, 1, text)
        self.assertIn("no end after", text)

    def test_a_wrong_or_faulting_original_is_not_blamed_on_the_optimizer(self):
        self.write("p.out", "one\nthree\n")
        status, text = self.script("check-program")
        self.assertEqual(status, 1, text)
        self.assertIn("the original does not do what it should", text)
        self.write("p.ic", "fault of its own\n")
        status, text = self.script("check-program")
        self.assertEqual(status, 3, text)
        self.assertIn("the original itself faults", text)

    def test_each_step_alone(self):
        status, text = self.script("check-program", "--levels", "2", "--each-step", fault="12:pair 60:pair 7:output")
        self.assertEqual(status, 1, text)
        self.assertEqual([line.split(": ")[1] for line in text.splitlines() if "expected" in line],
                         ["level 2", "step 7 alone"])
        self.assertEqual(self.script("check-program", "--levels", "", "--each-step")[0], 0)

    def test_growth_the_second_time(self):
        words = ("check-program", "--levels", "0,2", "--idempotent")
        status, text = self.script(*words)
        self.assertEqual(status, 0, text)
        for way, growth in (("slower", "from 10 to 11 executed operators"), ("larger", "from 1 to 2 nodes")):
            status, text = self.script(*words, fault=f"7:{way}")
            self.assertEqual(status, 1, text)
            self.assertIn(f"level 2 twice: the second time it grows {growth}", text)
            self.assertNotIn("level 0 twice", text)
        self.assertEqual(self.script(*words, fault="7:worth")[0], 0)

    def test_usage(self):
        self.assertEqual(self.script("check-program", "--levels", "9")[0], 2)
        self.assertEqual(self.script("check-program", "--levels", "")[0], 2)
        self.assertEqual(self.script("find-step", "--order", "1,78")[0], 2)

    def test_every_step_can_be_found(self):
        for step in (0, 1, 39, 77):
            status, text = self.script("find-step", fault=f"{step}:output")
            self.assertEqual(status, 0, text)
            self.assertIn(f'step {step} "name of {step}" is the first that breaks it', text)
            self.assertIn("confirmed", text)

    def test_the_first_of_two_wrong_steps_is_named(self):
        status, text = self.script("find-step", fault="50:output 20:status")
        self.assertEqual(status, 0, text)
        self.assertIn("step 20 ", text)
        self.assertIn("a later step is wrong as well", text)

    def test_a_step_that_is_wrong_only_after_another(self):
        # Step 12 goes wrong only where step 60 ran before it, which the normal order never does.
        self.assertEqual(self.script("find-step", fault="12:pair")[0], 1)
        status, text = self.script("find-step", "--order", "3,60,5,12,7", fault="12:pair")
        self.assertEqual(status, 0, text)
        self.assertIn("step 12 ", text)
        self.assertIn("after 3 others", text)

    def test_random_orders_are_those_of_check_program(self):
        _, text = self.script("check-program", "--levels", "", "--orders", "3", "--seed", "x", fault="12:pair 60:pair")
        names = [line.split(": ")[1] for line in text.splitlines() if ": order x/" in line]
        for name in names:
            status, found = self.script("find-step", "--random", name.split()[1], fault="12:pair 60:pair")
            self.assertEqual(status, 0, found)
        self.assertTrue(names)

    def test_the_function_named_by_the_tool_is_told(self):
        _, text = self.script("find-step", fault="33:error")
        self.assertIn("function it changes: f", text)

    def test_the_functions_that_a_step_changes_are_told(self):
        _, text = self.script("find-step", fault="33:output")
        self.assertIn("function it changes: changed\n", text)


if __name__ == "__main__":
    unittest.main()
