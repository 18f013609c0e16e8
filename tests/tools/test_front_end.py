#!/usr/bin/env python3
"""icode-cc: what it refuses, what it computes by its own layout, and the records that it writes.

Usage: test_front_end.py BIN-DIRECTORY
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()


class FrontEndTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.folder.name)

    def tearDown(self):
        self.folder.cleanup()

    def compile(self, source, *words):
        (self.dir / "t.c").write_text(source)
        return subprocess.run([BIN / "icode-cc", "t.c", "-o", "t.ic", *words], cwd=self.dir, text=True, capture_output=True,
                              timeout=120)

    def text(self, source, *words):
        run = self.compile(source, *words)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return subprocess.run([BIN / "icode-dis", "t.ic"], cwd=self.dir, text=True, capture_output=True, check=True).stdout

    def output(self, source):
        run = self.compile(source)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return subprocess.run([BIN / "icode-run", "--check", "t.ic"], cwd=self.dir, text=True, capture_output=True,
                              timeout=60).stdout

    # --- Refusals: place, status, no output.

    def test_refused_constructs_name_their_place(self):
        for source, line, what in (
                ("int f(int n)\n{ int a[n]; return a[0]; }", 2, "variable length"),
                ("_Complex float z;", 1, "_Complex"),
                ("_Atomic int a;", 1, ""),
                ("int f(void) {\n void *p = &&l;\n goto *p; l: return 0; }", 2, "computed goto"),
                ('int f(int a) {\n\n asm("x" : "=r"(a)); return a; }', 3, ""),
                ("typedef int v4 __attribute__((vector_size(8)));\nv4 f(v4 a) { return a; }", 2, ""),
                ("int f(void) {\n int g(void) { return 1; } return g(); }", 2, ""),
                ("_Thread_local int t; int f(void) { return t; }", 1, ""),
                ("int f(void) { return\n ({ 1; }); }", 2, "statement expressions"),
                ("int x = 1 +;", 1, "expected expression"),
                ('#include "nowhere.h"', 1, "not found"),
                ("_Static_assert(sizeof(long) == 4, \"eight bits\");", 1, "static assertion failed"),
                ("struct s { unsigned a : 3; };\n_Static_assert(sizeof(struct s) == 2, \"\");", 2, "static assertion failed"),
                ("int f(int a) { switch (a) {\n case 1: case 1: return 1; } return 0; }", 2, "duplicate case")):
            run = self.compile(source)
            self.assertEqual(run.returncode, 1, source)
            self.assertRegex(run.stderr, rf"(?m)^t\.c:{line}:\d+: error: .*{re.escape(what)}", source)
            self.assertFalse((self.dir / "t.ic").exists(), source)
            self.assertEqual([p.name for p in self.dir.iterdir()], ["t.c"], source)

    def test_words_that_are_wrong(self):
        for words in (["-o"], ["--nonsense"], []):
            run = subprocess.run([BIN / "icode-cc", *words], text=True, capture_output=True)
            self.assertEqual(run.returncode, 1)
            self.assertIn("Usage:", run.stderr)

    # --- The layout is ours, wherever the parser has its own.

    def test_sizes_reach_every_constant(self):
        self.text("""
            #include <stddef.h>
            struct s { char c; long l; short h; long long q; };
            union u { char c[3]; long l; };
            _Static_assert(sizeof(char) == 1 && sizeof(int) == 1 && sizeof(long) == 2 && sizeof(long long) == 4, "");
            _Static_assert(sizeof(double) == 2 && sizeof(void *) == 1 && _Alignof(long long) == 2, "");
            _Static_assert(offsetof(struct s, l) == 2 && offsetof(struct s, q) == 6 && sizeof(struct s) == 10, "");
            _Static_assert(sizeof(union u) == 4 && sizeof("abc") == 4 && sizeof(int[sizeof(long)]) == 2, "");
            enum { E = sizeof(long) * 3 };
            _Static_assert(E == 6 && (char)300 == 300 && '\\xff' == 255 && (unsigned char)70000L == 4464, "");
            int array[sizeof(struct s)];
            _Static_assert(sizeof array == 10, "");
            _Static_assert(32767 + 1u == 32768u && 0x7fff * 2 == -2, "");
            int f(int n) { switch (n) { case sizeof(long): return 1; case sizeof(long long): return 2; } return 0; }
        """)

    def test_bit_fields_keep_to_their_containers(self):
        text = self.text("struct s { unsigned a : 5; unsigned b : 12; unsigned : 0; int c : 3; long d : 20; } v;")
        offsets = dict(re.findall(r'member \d+ "(\w)" t\d+(?: offset=(\d+))? width=\d+', text))
        self.assertEqual(offsets, {"a": "", "b": "16", "c": "32", "d": "35"})

    # --- Records.

    def test_attributes_become_pragmas(self):
        text = self.text("""
            static inline __attribute__((always_inline)) int a(void) { return 1; }
            __attribute__((noinline, section("fast"))) int b(void) { return a(); }
            __attribute__((weak)) int c(void) { return b(); }
            _Noreturn void d(void);
            __attribute__((const)) int e(int x) { return x; }
            __attribute__((aligned(4), used)) int v;
            int main(void) { d(); return e(c()); }
        """)
        def pragmas(symbol):
            return set(re.findall(r"  pragma (.*)", re.search(rf'symbol "{symbol}".*\n((?:  pragma .*\n)*)', text).group(1)))
        self.assertEqual(pragmas("a"), {'SRC_LANGUAGE "C"', "INLINE", "FUNC_ALWAYS_INLINE"})
        self.assertEqual(pragmas("b"), {'SRC_LANGUAGE "C"', "FUNC_CANNOT_INLINE", 'CODE_SECTION "fast"'})
        self.assertEqual(pragmas("c"), {'SRC_LANGUAGE "C"', "NORVANE_WEAK"})
        self.assertEqual(pragmas("d"), {'SRC_LANGUAGE "C"', "FUNC_NEVER_RETURNS"})
        self.assertEqual(pragmas("e"), {'SRC_LANGUAGE "C"', "FUNC_IS_PURE"})
        self.assertEqual(pragmas("v"), {'DATA_ALIGN "4"', "SYM_IS_REFERENCED"})

    def test_loop_pragmas_stand_in_front_of_their_loop(self):
        text = self.text("""
            int f(int *p) {
                int s = 0;
                #pragma UNROLL(2)
                #pragma MUST_ITERATE(4, 16, 4)
                for (int i = 0; i < 8; i++) s += p[i];
                for (int i = 0; i < 8; i++) s ^= p[i];
                return s;
            }
        """)
        self.assertRegex(text, r'pragma UNROLL "2"\n *pragma MUST_ITERATE "4" "16" "4"\n *label')
        self.assertEqual(len(re.findall("pragma UNROLL", text)), 1)

    def test_option_words_are_stored(self):
        self.assertIn('options 0 "--opt_level=3" "--far_externs"',
                      self.text("int x;", "--opt-word", "--opt_level=3", "--opt-word", "--far_externs"))

    def test_static_initialisers_are_flat(self):
        text = self.text("""
            struct s { int a; unsigned b : 4, c : 4; const char *t; long q[3]; };
            struct s v[2] = { [1] = { 7, .c = 5, .b = 3, .t = "ab", .q = { [2] = -1 } } };
        """)
        self.assertRegex(text, r"init @v\n"
                               r" *\(SKIP t\d+ 160\)\n *\(ICON t\d+ 7\)\n *\(ICON t\d+ 83\)\n *\(SCON t\d+ \"ab\\x00\"\)\n"
                               r" *\(SKIP t\d+ 80\)\n *\(ICON t\d+ -1\)\n *\(ENDINIT")

    # --- Size.

    def test_long_sources_cost_no_stack(self):
        chain = "".join(f"else if (a == {i}) return {i} + 1;\n" for i in range(1, 3000))
        terms = " + ".join(["a"] * 4000)
        numbers = ", ".join(str(i % 1000) for i in range(12000))
        self.assertEqual(self.output(f"""
            #include <stdio.h>
            static const int table[] = {{ {numbers} }};
            static int f(int a) {{ if (a == 0) return 1; {chain} return 0; }}
            int main(void) {{ int a = 3; printf("%d %d %d\\n", f(2999), {terms}, table[11999]); return 0; }}
        """), "3000 12000 999\n")


if __name__ == "__main__":
    unittest.main()
