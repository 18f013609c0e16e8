#!/usr/bin/env python3
"""icode-run: faults with function and line, counts, the trace of volatile accesses, operators that C never makes.

Usage: test_runner.py BIN-DIRECTORY
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()

HEAD = """
section files
file "t.c"
section types
type tfn function tint
type tfn list params
type tfn endlist params
type tpint pointer tint
section symbols
symbol "main" class=extdef tfn
symbol "v" class=extdef tint
symbol "w" class=extdef tlong
section body
func @main
endargs
symbol "i" tint
symbol "j" tint
symbol "u" tuint
symbol "l" tlong
symbol "m" tulong
symbol "f" tfloat
endlocals
"""


class RunnerTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.folder.name)

    def tearDown(self):
        self.folder.cleanup()

    def run_file(self, *words):
        return subprocess.run([BIN / "icode-run", *words, "t.ic"], cwd=self.dir, text=True, capture_output=True, timeout=60)

    def c(self, source, *words):
        (self.dir / "t.c").write_text(source)
        subprocess.run([BIN / "icode-cc", "t.c", "-o", "t.ic"], cwd=self.dir, check=True)
        return self.run_file(*words)

    def trees(self, body, *words):
        (self.dir / "t.txt").write_text(HEAD + body + "\nendfunc\n")
        subprocess.run([BIN / "icode-as", "t.txt", "-o", "t.ic"], cwd=self.dir, check=True)
        return self.run_file(*words)

    def value(self, tree):
        """main's value, as a status from 0 to 255."""
        run = self.trees(f"expr (RETURN tint (NAME tfn @main) {tree})")
        self.assertEqual(run.stderr, "")
        return run.returncode

    # --- Faults.

    def test_faults_name_function_and_line(self):
        for body, line, what in (
                ("int z = 0;\n return 5 / z;", 4, "division by zero"),
                ("unsigned z = 0; return\n 5u % z;", 3, "division by zero"),
                ("int n = 16;\n return 1 << n;", 4, "shift count 16"),
                ("int n = -1; return 1 >> n;", 3, "shift count -1"),
                ("int *p = 0;\n\n return *p;", 5, "outside any object"),
                ("int a[3]; int i = 3; a[i] = 1; return 0;", 3, "outside any object"),
                ("int *p = malloc(2); free(p);\n *p = 1; return 0;", 4, "outside any object"),
                ("free((void *)40); return 0;", 3, "malloc did not give"),
                ("*(char *)\"abc\" = 1; return 0;", 3, "store to constant"),
                ("_nassert(argc == 7); return 0;", 3, "violated assertion"),
                ("extern void _never_executed(void);\n _never_executed(); return 0;", 4, "never reached"),
                ("extern int _ssub();\n return _ssub(1);", 4, "call of _ssub, which is not there"),
                ("int (*f)(void) = (int (*)(void))12345;\n return f();", 4, "call of no function"),
                ("return missing();", 3, "missing"),
                ("return ((int (*)(int, int))two)(1);", 3, "too few arguments"),
                ("return deep(1);", 2, "out of stack"),
                ("for (;;) { void *p = malloc(1000); *(int *)p = 1; }", 3, "outside any object")):
            if "two)(1)" in body:
                body = "int (*f)() = (int (*)())two; return f(1);"
            run = self.c("#include <stdlib.h>\nint missing(void); int two(int a, int b) { return a + b; } "
                         "int deep(int n) { int a[20]; a[0] = n; return deep(n + 1) + a[0]; } void _nassert(int);"
                         f" int main(int argc, char **argv) {{\n{body} }}")
            self.assertEqual(run.returncode, 3, body)
            place = "deep" if "deep" in body else "main"
            self.assertRegex(run.stderr, rf"^icode-run: {place}:{line}: .*{what}", body)
            self.assertEqual(len(run.stderr.splitlines()), 1)

    def test_life_of_a_local_ends_with_its_call(self):
        run = self.c("static int *f(void) { int x = 1; int *p = &x; return p; }\nint main(void) { int *p = f(); return *p; }")
        self.assertEqual(run.returncode, 3)
        self.assertIn("main:2: read outside any object", run.stderr)

    def test_check_finds_reads_ahead_of_stores(self):
        for source in ("int main(void) { int x; return x; }", "int main(void) { int a[2]; a[0] = 1; return a[1]; }"):
            self.assertEqual(self.c(source).returncode in (0, 1, 2), True)
            run = self.c(source, "--check")
            self.assertEqual(run.returncode, 3)
            self.assertIn("before anything was stored", run.stderr)
        self.assertEqual(self.c("int main(void) { int x; int *p = &x; *p = 4; return x; }", "--check").returncode, 4)

    def test_steps_are_bounded(self):
        run = self.c("int main(void) { for (;;) ; }", "--max-steps", "100000")
        self.assertEqual(run.returncode, 3)
        self.assertIn("out of steps", run.stderr)

    def test_output_stands_ahead_of_a_fault(self):
        run = self.c('#include <stdio.h>\nint main(void) { int z = 0; printf("begin "); return 1 / z; }')
        self.assertEqual((run.stdout, run.returncode), ("begin ", 3))

    # --- Counts.

    def counts(self, source):
        run = self.c(source, "--stats")
        stats = json.loads(run.stderr)
        self.assertEqual(stats["total"], sum(stats["classes"].values()))
        return {name: n for name, n in stats["classes"].items() if n}

    def test_registers_cost_nothing_and_plain_stores_one_move(self):
        self.assertEqual(self.counts("int main(void) { int a = 3, b = a; return a + b; }"), {"move": 2, "arithmetic": 1})

    def test_memory_costs_loads_stores_and_addresses(self):
        self.assertEqual(self.counts("int g[8]; int main(void) { int i = 2; g[i] = 5; return g[i + 1]; }"),
                         {"move": 1, "store": 1, "load": 1, "address": 2, "arithmetic": 1})
        self.assertEqual(self.counts("long g[8]; int main(void) { int i = 2; return (int)g[i]; }"),
                         {"move": 1, "load": 1, "address": 2, "convert": 1})

    def test_tests_cost_compares_and_branches(self):
        self.assertEqual(self.counts("int main(void) { int a = 1; if (a < 2 && !(a == 5)) a = 7; return a; }"),
                         {"move": 2, "compare": 2, "branch": 2})

    def test_promises_cost_nothing(self):
        self.assertEqual(self.counts("void _nassert(int); int main(void) { int a = 1; _nassert(a > 0); return a; }"), {"move": 1})

    # --- Volatile accesses.

    def test_trace_names_objects(self):
        (self.dir / "t.c").write_text("""
            volatile int port; volatile long wide; struct { int a; volatile unsigned f : 3; } s;
            int main(void) { volatile int x = 1; port = x; port; wide = -1; s.f = 5; return s.f; }
        """)
        subprocess.run([BIN / "icode-cc", "t.c", "-o", "t.ic"], cwd=self.dir, check=True)
        run = self.run_file("--trace=trace.txt")
        self.assertEqual(run.returncode, 5)
        self.assertEqual((self.dir / "trace.txt").read_text().splitlines(),
                         ["W main:x+0 16 1", "R main:x+0 16 1", "W port+0 16 1", "R port+0 16 1", "W wide+0 32 ffffffff",
                          "W s+1 3 5", "R s+1 3 5"])

    # --- Operators, beyond what the corpus covers through C.

    def test_operators_that_passes_make(self):
        i = "(ICON tint {})".format
        f = '(FCON tfloat "{}")'.format
        self.assertEqual(self.value(f"(ABS tint {i(-7)})"), 7)
        self.assertEqual(self.value(f"(SCONV tint (SQRT tfloat {f('0x1.2p+7')}))"), 12)
        self.assertEqual(self.value(f"(SCONV tint (SQR tfloat {f('0x1.8p+1')}))"), 9)
        self.assertEqual(self.value(f"(SCONV tint (MULT tfloat (RECIP tfloat {f('0x1p-2')}) {f('0x1p+0')}))"), 4)
        self.assertEqual(self.value(f'(ICALL tint "quest$colon" (COMMA tint (COMMA tint {i(0)} {i(4)}) {i(9)}))'), 9)

    def test_floating_comparisons_know_the_unordered(self):
        nan, one = '(FCON tfloat "NaN")', '(FCON tfloat "0x1p+0")'
        plain = {"FEQ": 0, "FNEQ": 0, "FLE": 0, "FLT": 0, "FGE": 0, "FGT": 0, "FORD": 0,
                 "FEQN": 1, "FNEQN": 1, "FLEN": 1, "FLTN": 1, "FGEN": 1, "FGTN": 1, "FUNO": 1}
        for name, unordered in plain.items():
            self.assertEqual(self.value(f"({name} tint {nan} {one})"), unordered, name)
        self.assertEqual(self.value(f"(FNEQ tint {one} {one})"), 0)
        self.assertEqual(self.value(f"(FORD tint {one} {one})"), 1)
        for name in "FMIN", "DMIN", "LDMIN", "FMAX", "DMAX", "LDMAX":  # the second operand, as ?: has it
            self.assertEqual(self.value(f'(FEQ tint (ICALL tfloat "{name}" (COMMA tfloat {nan} {one})) {one})'), 1, name)
            self.assertEqual(self.value(f'(FUNO tint (ICALL tfloat "{name}" (COMMA tfloat {one} {nan})) {one})'), 1, name)

    def test_intrinsics_convert_their_operands_and_result(self):
        wide = "(COMMA tlong (ICON tlong 65539) (ICON tlong 5))"  # 3 and 5 as int
        self.assertEqual(self.value(f'(ICALL tint "MIN" {wide})'), 3)
        self.assertEqual(self.value(f'(SCONV tint (ICALL tlong "LMIN" {wide}))'), 5)
        self.assertEqual(self.value(f'(EQ tint (ICALL tfloat "_mpy" {wide}) (FCON tfloat "0x1.ep+3"))'), 1)

    def test_widths_wrap(self):
        self.assertEqual(self.value("(SCONV tint (SRL tlong (SLL tlong (ICON tlong 1) (ICON tint 31)) (ICON tint 24)))"), 128)
        self.assertEqual(self.value("(ULT tint (ICON tuint 1) (ICON tuint 65535))"), 1)
        self.assertEqual(self.value("(LT tint (ICON tint 1) (ICON tint -1))"), 0)
        self.assertEqual(self.value("(DIV tint (ICON tint -7) (ICON tint 2))"), 253)
        self.assertEqual(self.value("(EQ tint (PLUS tint (ICON tint 32767) (ICON tint 1)) (ICON tint -32768))"), 1)
        self.assertEqual(self.value('(EQ tint (SCONV tllong (ICON tulong 4294967295)) (LCON tllong "4294967295"))'), 1)

    def test_assignment_gives_the_new_value_and_increment_the_old(self):
        run = self.trees("""
            expr (ASG tint (NAME tint @v) (ICON tint 5))
            expr (ASG tint (NAME tint %i) (PLUSPLUS tint (NAME tint @v) (ICON tint 3)))
            expr (ASG tint (NAME tint %j) (MULTASG tint (NAME tint @v) (ICON tint 2)))
            expr (RETURN tint (NAME tfn @main) (PLUS tint (MULT tint (NAME tint %i) (ICON tint 10)) (NAME tint %j)))""")
        self.assertEqual(run.returncode, 66)

    def test_deep_trees_run(self):
        depth = 50000
        tree = "(PLUS tint " * depth + "(ICON tint 1)" + " (ICON tint 1))" * depth
        self.assertEqual(self.value(f"(EQ tint {tree} (ICON tint {(depth + 1 + 32768) % 65536 - 32768}))"), 1)

    def test_what_has_no_meaning_is_told(self):
        run = self.trees("expr (VPACK tint (ICON tint 1))")
        self.assertEqual(run.returncode, 1)
        self.assertIn("VPACK has no meaning", run.stderr)
        run = self.trees("expr (BRANCH tint (LABEL tint 9))")
        self.assertEqual(run.returncode, 1)
        self.assertIn("label 9, which is not there", run.stderr)


if __name__ == "__main__":
    unittest.main()
