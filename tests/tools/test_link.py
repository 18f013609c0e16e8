#!/usr/bin/env python3
"""icode-link: which symbol stands for a name, what it refuses, types and option sets of several files, all records.

Usage: test_link.py BIN-DIRECTORY
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()

HEADER = """
typedef struct { int a; struct tree *t; } pair;
typedef enum { RED, GREEN } colour;
struct tree { struct tree *left, *right; pair p; union { int i; long l; } u; colour (*paint)(struct tree *, const pair *); };
enum { LIMIT = 3 };
extern struct tree *root;
extern pair pairs[];
"""


class LinkTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.folder.name)

    def tearDown(self):
        self.folder.cleanup()

    def call(self, *words):
        return subprocess.run([BIN / words[0], *words[1:]], cwd=self.dir, text=True, capture_output=True, timeout=120)

    def make(self, name, source, *words):
        """Compiles C, or assembles text when the name ends in .txt."""
        (self.dir / name).write_text(source)
        result = pathlib.Path(name).stem + ".ic"
        tool = "icode-as" if name.endswith(".txt") else "icode-cc"
        run = self.call(tool, name, "-o", result, *words)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return result

    def sources(self, *sources):
        return [self.make(f"{chr(ord('a') + i)}.c", source) for i, source in enumerate(sources)]

    def link(self, *files):
        """Links; the result must be one that every other tool takes. Gives its text."""
        run = self.call("icode-link", *files, "-o", "out.ic")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        text = self.call("icode-dis", "out.ic").stdout
        (self.dir / "out.txt").write_text(text)
        self.assertEqual(self.call("icode-as", "out.txt", "-o", "again.ic").returncode, 0)
        self.assertEqual((self.dir / "out.ic").read_bytes(), (self.dir / "again.ic").read_bytes())
        run = self.call("opt5", "--opt_level=3", "out.ic", "out.opt")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return text

    def output(self, *files):
        self.link(*files)
        plain, optimised = self.call("icode-run", "--check", "out.ic"), self.call("icode-run", "out.opt")
        self.assertEqual((plain.returncode, plain.stdout, plain.stderr), (0, optimised.stdout, ""))
        return plain.stdout

    def refused(self, files, *parts):
        """The link must fail with one line that holds these parts, and leave what stands at the output's place."""
        (self.dir / "out.ic").write_text("as before")
        before = sorted(self.dir.iterdir())
        run = self.call("icode-link", *files, "-o", "out.ic")
        message = run.stdout + run.stderr
        self.assertEqual((run.returncode, message.count("\n")), (1, 1), message)
        for part in parts:
            self.assertIn(part, message)
        self.assertEqual((self.dir / "out.ic").read_text(), "as before")
        self.assertEqual(sorted(self.dir.iterdir()), before)

    # --- Names.

    def test_strength_of_definitions(self):
        main = '#include <stdio.h>\nint f(void); extern int v;\nint main(void) { printf("%d %d\\n", f(), v); return 0; }'
        weak = "__attribute__((weak)) int f(void) { static int n = %d; return n; } __attribute__((weak)) int v = %d;"
        files = self.sources(main, weak % (1, 1), weak % (2, 2), "int f(void) { return 3; } int v = 3;")
        self.assertEqual(self.output(*files[:3]), "1 1\n", "of several weak ones the first")
        self.assertEqual(self.output(*files), "3 3\n", "the strong one behind weak ones")
        self.assertEqual(self.output(*reversed(files)), "3 3\n", "and in front of them")
        # Of inline definitions and members of groups the first stands, too, and the body of the other is gone.
        for pragma in ('pragma INLINE', 'pragma 69 "f"'):
            text = self.call("icode-dis", files[3]).stdout
            self.assertEqual(text.count('symbol "f"'), 1)
            lines = text.splitlines()
            at = next(i for i, line in enumerate(lines) if 'symbol "f"' in line)
            grouped = "\n".join(lines[:at + 1] + ["    " + pragma] + lines[at + 1:]) + "\n"
            grouped = grouped.replace('symbol "v"', 'symbol "v%d"').replace('@v', '@v%d')
            replaced = [self.make(f"g{i}.txt", (grouped % (i, i)).replace("ICON t7 3", f"ICON t7 {i + 7}")) for i in range(2)]
            value = self.make("value.c", "int v = 0;")
            self.assertEqual(self.output(files[0], value, *replaced), "7 0\n")
            self.assertEqual((self.dir / "out.txt").read_text().count("] @f"), 1)

    def test_statics_are_of_their_file(self):
        # A static is not what another file's declaration of that name means: here that is the library.
        files = self.sources(
            '#include <stdio.h>\nstatic int abs(int x) { return 1000; } int lib(int); static int n = 1;\n'
            'int main(void) { printf("%d %d %d\\n", abs(-3), lib(-3), n); return 0; }',
            "#include <stdlib.h>\nstatic int n = 20; int lib(int x) { n += abs(x); return n; }")
        self.assertEqual(self.output(*files), "1000 23 1\n")

    def test_declarations_add_what_they_say(self):
        files = self.sources("__attribute__((noreturn, used)) void end(int); int main(void) { end(0); }",
                             "void exit(int); void end(int n) { exit(n); }")
        text = self.link(*files)
        symbol = text[text.index('symbol "end"'):].split("symbol", 2)[1]
        self.assertIn("FUNC_NEVER_RETURNS", symbol)
        self.assertIn("SYM_IS_REFERENCED", symbol)
        self.assertIn("retention=always", symbol)
        self.assertEqual(text.count('symbol "end"'), 1)

    def test_contradictions_name_both_files(self):
        for a, b, what in (("int x;", "int x;", "'x' is defined in a.ic and in b.ic"),
                           ("int f(void) { return 1; }", "int f(void) { return 2; }", "'f' is defined in a.ic and in b.ic"),
                           ("extern int x; int *p = &x;", "long x;", "'x' is 'int' in a.ic and 'long' in b.ic"),
                           ("int x;", "extern const int x; const int *p = &x;", "'x' is 'int' in a.ic and 'const int' in b.ic"),
                           ("extern int a[3]; int *p = a;", "int a[4];", "'a' is 'int [3]' in a.ic"),
                           ("int f(int, int); int (*p)(int, int) = f;", "int f(int x) { return x; }", "'f' is "),
                           ("int f(void) { return 0; }", "extern int f; int *p = &f;", "'f' is "),
                           ("struct s { int a; } x;", "struct s { long a; }; extern struct s x; struct s *p = &x;",
                            "'x' is 'struct s' in a.ic and 'struct s' in b.ic")):
            self.refused(self.sources(a, b), "icode-link: ", what)

    def test_declarations_may_leave_things_open(self):
        files = self.sources(
            '#include <stdio.h>\nextern int a[]; int f(); struct s *make(void); int get(struct s *); enum e { A, B };\n'
            'enum e colour(void); extern int (*table[])(); typedef struct { int x; } T; T value();\n'
            'int main(void) { printf("%d %d %d %d %d %d\\n", a[1], f(5), get(make()), colour() == B, table[0](7), value().x);\n'
            'return 0; }',
            "int a[] = { 1, 2 }; int f(int n) { return n; } struct s { int v; } s = { 9 };\n"
            "struct s *make(void) { return &s; } int get(struct s *p) { return p->v; } enum e { A, B };\n"
            "enum e colour(void) { return B; } int (*table[1])(int) = { f }; typedef struct { int x; } T;\n"
            "T value(void) { T t = { 4 }; return t; }")
        self.assertEqual(self.output(*files), "2 5 9 1 7 4\n")
        self.assertEqual(self.output(*reversed(files)), "2 5 9 1 7 4\n")

    # --- Types.

    def test_types_of_one_header_are_one(self):
        (self.dir / "h.h").write_text(HEADER)
        body = '#include "h.h"\nint f%d(struct tree *t, pair *p) { return t->paint(t, p) == GREEN ? LIMIT : t->u.i + pairs[1].a; }'
        files = self.sources(*(body % i for i in range(8)))
        count = [self.link(*files[:n]).count("\ntype ") for n in (1, 8)]
        self.assertEqual(count[0], count[1])

    def test_structures_of_one_tag_may_differ(self):
        # The file between knows only the tag: it takes neither side.
        files = self.sources('#include <stdio.h>\nstruct s { int v; }; struct s x = { 1 }; long other(void); struct s *get(void);\n'
                             'int main(void) { printf("%d %ld %d\\n", x.v, other(), get()->v); return 0; }',
                             "struct s; struct s *pass(struct s *p) { return p; }",
                             "struct s { long a, b; }; struct s *pass(struct s *); long other(void)\n"
                             "{ struct s y = { 5, 6 }; return pass(&y)->b; }",
                             "struct s { int v; }; extern struct s x; struct s *get(void) { x.v++; return &x; }")
        self.assertEqual(self.output(*files), "1 6 2\n")
        text = (self.dir / "out.txt").read_text()
        self.assertEqual(text.count('struct struct "s"'), 2)

    # --- Option sets and all records.

    def test_option_sets_are_numbered_anew(self):
        plain, slow, fast = ("int a(void) { return 1; }", "int b(void) { return 2; }", "int c(void) { return 3; }")
        files = [self.make("a.c", plain), self.make("b.c", slow, "--opt-word", "--opt_level=0"),
                 self.make("c.c", fast, "--opt-word", "--opt_level=0"), self.make("d.c", "int d(void) { return 4; }")]
        text = self.link(*files)
        self.assertIn('section options\noptions 0\noptions 1 "--opt_level=0"\n\n', text)
        for name, number in (("a", 0), ("b", 1), ("c", 1), ("d", 0)):
            line = next(line for line in text.splitlines() if f'symbol "{name}"' in line)
            self.assertEqual("options=1" in line, number == 1, line)
        # The set of the first file is the one of the whole.
        text = self.link(*files[1:])
        line = next(line for line in text.splitlines() if 'symbol "d"' in line)
        self.assertIn("options=1", line)

    def test_records_of_a_body_come_along(self):
        text = """
section files
file "t.c"
section types
type tfn function tint
type tfn list params
type tfn endlist params
section symbols
symbol "v{0}" class=extdef tint retention=never
  pragma IDENT "x"
symbol "f{0}" class=extdef tfn
section body
comment "of file {0}"
func [1:1:1] @f{0}
endargs
symbol "i" tint
  pragma DATA_ALIGN "2"
endlocals
loop 1 2 3 4 5 6
inloop 1 0 0 2
inloop 1 2 0 2
label 1
asm " nop" [1:2:1]
info 3
pragma UNROLL "2"
block
symbol "j" tint
expr [1:3:1] (ASG tint (NAME tint %j) (NAME tint @v{0}))
endblock
ddvector 1 2 {{ 1 -1 }}
ldspec 1 {{ 1 5 8 1001 0 0 }}
ddedge 1 2 3
bank 1 2 3 4 5
ehtable 2
ehentry 0 1 0 0
expr (NAME tint @v{0})
ehentry 1 2 5 1
catch {{ "int" 1 1 }}
endfunc
"""
        files = [self.make(f"t{i}.txt", text.format(i)) for i in range(2)]
        one = [self.call("icode-dis", file).stdout.split("section body")[1] for file in files]
        run = self.call("icode-link", *files, "-o", "out.ic")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        linked = self.call("icode-dis", "out.ic").stdout
        # A global is known by its new number where it has no name, and int has its usual one.
        for old, new in (("inloop 1 0 0 2", "inloop 1 0 2 2"), ("8 1001 0 0 }", "8 1001 0 2 }")):
            self.assertIn(old, one[1])
            one[1] = one[1].replace(old, new)
        body = (one[0] + one[1]).replace("t1001", "t7").replace(" 1001 ", " 7 ")
        self.assertEqual(linked.split("section body")[1].split(), body.split())
        self.assertEqual(linked.count("retention=never"), 2)

    # --- Input.

    def test_bad_input(self):
        good, = self.sources("int x; int f(void) { return x; }")
        self.refused([good, "nowhere.ic"], "nowhere.ic: No such file")
        self.refused([good, "a.c"], "a.c: not an intermediate file")
        data = (self.dir / good).read_bytes()
        for cut in (len(data) // 3, len(data) - 1):
            (self.dir / "cut.ic").write_bytes(data[:cut])
            self.refused(["cut.ic"], "cut.ic")
        # A fault in a body shows when the output is half written.
        text = self.call("icode-dis", good).stdout.replace("@f", "#0:9", 1)
        self.refused([self.make("body.txt", text)], "function symbol 9 is not in the table")
        # A file may be replaced by the result.
        self.assertEqual(self.call("icode-link", good, "-o", good).returncode, 0)
        self.assertEqual(self.call("icode-dis", good).returncode, 0)


if __name__ == "__main__":
    unittest.main()
