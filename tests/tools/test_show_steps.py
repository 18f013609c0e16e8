#!/usr/bin/env python3
"""show-steps: what its page says, that input is text there and nothing else, and how the page behaves in a browser.

Usage: test_show_steps.py BIN-DIRECTORY
"""

import html.parser
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

import browser

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()
sys.path.insert(0, str(PROJECT / "tools"))
import steplog  # noqa: E402

SOURCE = """
int puts(const char* s);
int say(int n, const char* s);
int twice(int x) { return x + x; }
int main(void) {
    int n = 3, sum = 0;
    for (int i = 0; i < 10; i++) {
        int k = n;
        if (sum > 100) say(k, "</script><b title='x'>&lt;\\" goto BB1; \\\\ %s");
        sum += twice(k) + i;
    }
    puts("a_word_of_great_length_that_no_line_of_a_phone_has_room_for_and_that_has_no_blank_in_it_either_____________");
    return sum;
}
"""


class Page(html.parser.HTMLParser):
    """The elements of a page: their number by tag, and the texts within them."""

    def __init__(self, text):
        super().__init__()
        self.elements, self.text = {}, ""
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        self.elements.setdefault(tag, []).append(dict(attributes))

    def handle_data(self, data):
        self.text += data


class ShowStepsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.dir = pathlib.Path(cls.folder.name)
        (cls.dir / "t.c").write_text(SOURCE)
        cls.run_of_main = cls.show("t.c", "-o", "t.html")
        cls.page = (cls.dir / "t.html").read_text() if (cls.dir / "t.html").exists() else ""

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def show(cls, *words, bin_dir=BIN):
        return subprocess.run([sys.executable, "-B", PROJECT / "tools" / "show-steps", "--bin", bin_dir, *map(str, words)],
                              cwd=cls.dir, text=True, capture_output=True, timeout=120)

    # --- What it says.

    def test_c_source_and_its_file_give_the_same_way(self):
        self.assertEqual((self.run_of_main.returncode, self.run_of_main.stderr), (0, ""))
        self.assertRegex(self.run_of_main.stdout, r"^t\.html: main, changed by [1-9]\d* of 79 steps\n$")
        subprocess.run([BIN / "icode-cc", "t.c", "-o", "u.ic"], cwd=self.dir, check=True)
        run = self.show("u.ic", "main")
        self.assertEqual(run.stdout.replace("u.main.html", "t.html"), self.run_of_main.stdout)
        again = (self.dir / "u.main.html").read_text()
        self.assertEqual(again.replace("u.ic, t.c line", "t.c line"), self.page)

    def test_a_change_is_shown_with_its_place(self):
        page = Page(self.page)
        self.assertIn("t.c line 5; level 4", page.text)
        # The copy of n into k goes with the first step, at line 8.
        first = page.text[page.text.index("pass 1 fcp/eda"):]
        self.assertTrue("8k = 3" in first and "10sum += twice(3) + i" in first, first[:3000])
        self.assertEqual(len([a for a in page.elements["details"] if a.get("class") == "step"]), page.text.count("flow graph after"))

    def test_text_of_the_input_is_text_of_the_page(self):
        page = Page(self.page)
        self.assertFalse([a for a in page.elements.get("b", ()) if a], "an element of the input")
        self.assertEqual(len(page.elements["script"]), 1)
        string = """"</script><b title='x'>&lt;\\" goto BB1; \\\\ %s"""
        self.assertTrue(f"say(k, {string}" in page.text and f"say(3, {string}" in page.text)
        self.assertNotIn("http", self.page.replace("http-equiv", ""))

    def test_odd_names(self):
        (self.dir / "odd.txt").write_text(f"""
section files
file "o<i>.c"
section types
type tfn function tint
type tfn list params
type tfn endlist params
section symbols
symbol "n<a>m/../e" class=extdef tfn [1:1:1]
section body
func [1:1:1] #0:0
endargs
symbol "&l<t>;" tint
endlocals
expr [1:2:1] (ASG tint (NAME tint #2:0) (PLUS tint (NAME tint #2:0) (ICON tint 7)))
expr [1:3:1] (RETURN tint (NAME tfn #0:0) (NAME tint #2:0))
endfunc
""")
        subprocess.run([BIN / "icode-as", "odd.txt", "-o", "odd.ic"], cwd=self.dir, check=True)
        run = self.show("odd.ic")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        name = run.stdout.partition(":")[0]
        self.assertEqual(name, "odd.n_a_m_.._e.html")
        page = Page((self.dir / name).read_text())
        self.assertTrue("&l<t>; + 7" in page.text, page.text[page.text.index("as it was read"):][:400])
        self.assertIn("o<i>.c line 1", page.text)

    def test_which_function(self):
        (self.dir / "two.c").write_text("int f(int a) { return a; }\nint g(int a) { return a + 1; }\n")
        (self.dir / "one.c").write_text("int only(int a) { return a; }\n")
        (self.dir / "none.c").write_text("int v = 3;\n")
        for words, status, text in ((("two.c",), 2, "show-steps: which function? There are f, g\n"),
                                    (("two.c", "h"), 1, "show-steps: two.c: no function 'h'; there are f, g\n"),
                                    (("none.c",), 1, "show-steps: none.c: the file has no function\n"),
                                    (("missing.c",), 2, "show-steps: missing.c: no such file\n"),
                                    (("one.c", "-o", "no/such/place.html"), 1,
                                     "show-steps: one.c: cannot write no/such/place.html: No such file or directory\n"),
                                    (("one.c",), 0, "")):
            run = self.show(*words)
            self.assertEqual((run.returncode, run.stderr), (status, text), words)
        # A function that nothing calls is dropped at a barrier; the way ends there.
        (self.dir / "one.c").write_text("static int idle(int a) { return a; }\nint only(int a) { return a; }\n")
        self.assertRegex(self.show("one.c", "idle", "-o", "idle.html").stdout, r"of 11 steps\n$")
        self.assertIn('the step "set call-graph order" dropped it', Page((self.dir / "idle.html").read_text()).text)
        self.assertEqual(self.show("two.c", "g").stdout.partition(":")[0], "two.g.html")

    def test_forced_order_and_level(self):
        run = self.show("t.c", "--level", "1", "--order", "11,1,1", "-o", "f.html")
        self.assertRegex(run.stdout, r"of 4 steps\n$")
        self.assertIn("forced order 11, 1, 1", Page((self.dir / "f.html").read_text()).text)

    def test_damaged_file(self):
        subprocess.run([BIN / "icode-cc", "t.c", "-o", "cut.ic"], cwd=self.dir, check=True)
        data = (self.dir / "cut.ic").read_bytes()
        (self.dir / "cut.ic").write_bytes(data[:-30])
        run = self.show("cut.ic")
        self.assertEqual((run.returncode, len(run.stderr.splitlines()), run.stdout), (1, 1, ""))

    def test_a_run_that_stops_half_way_is_shown_up_to_there(self):
        broken = self.dir / "broken-bin"
        broken.mkdir()
        for tool in ("icode-cc", "icode-run"):
            (broken / tool).symlink_to(BIN / tool)
        (broken / "opt5").write_text(f"""#!{sys.executable}
import os, subprocess, sys
subprocess.run([{str(BIN / "opt5")!r}, *sys.argv[1:]], check=True, capture_output=True)
log = sys.argv[-2][:-3] + ".odb"
text = open(log).read()
open(log, "w").write(text[:text.index("ENTERING step 62")])
sys.exit("opt5 came to grief")
""")
        (broken / "opt5").chmod(0o755)
        run = self.show("t.c", "-o", "b.html", bin_dir=broken)
        self.assertEqual((run.returncode, len(run.stderr.splitlines())), (1, 1))
        page = Page((self.dir / "b.html").read_text()).text
        self.assertIn("The run did not reach its end: opt5: exit status 1: opt5 came to grief", page)
        self.assertIn("CPS", page)
        self.assertNotIn("output function", page)

    def test_large_function_has_no_graph_and_takes_no_time(self):
        rows = "".join(f"if (a == {i}) {{ x = y + {i}; y = x; v += z; }} else {{ z = x * {i % 7}; b += z; }} y = b + x; z = y;\n" for i in range(1500))
        (self.dir / "large.c").write_text(f"int v;\nint f(int a, int b) {{ int x = 1, y = 2, z = 3;\n{rows}return x + y + z + b; }}\n")
        start = time.monotonic()
        run = self.show("large.c", "--no-verify", "-o", "l.html")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertLess(time.monotonic() - start, 30)
        page = (self.dir / "l.html").read_text()
        for note in ("would take too long to lay out", "more changed blocks not shown"):
            self.assertTrue(note in page, note)
        self.assertLess(len(page), 3_000_000)

    # --- Comparisons.

    def test_comparison_keeps_every_statement_and_marks_what_differs(self):
        def block(uon, *statements):
            return steplog.Block(uon, (), list(statements), [0] * len(statements))

        long = [f"s{i} = {i}" for i in range(30)]
        before = steplog.State([block(0, *long), block(1, "a = 1"), block(2, "gone"), block(3, "same")], 0)
        after = steplog.State([block(0, *long[:15], "fresh", *long[15:]), block(4, "new"), block(1, "a = 2"),
                               block(3, "same")], 0)
        rows, left_out = steplog.compare_states(before, after, 100)
        self.assertEqual(left_out, 0)
        told = [(row.kind, row.old if row.kind in ("block", "gap") else "".join(t for t, _ in row.old or ()),
                 row.new if row.kind in ("block", "gap") else "".join(t for t, _ in row.new or ())) for row in rows]
        self.assertEqual(told, [
            ("block", "B0", "B0"), ("gap", "13 statements unchanged", None), ("same", "s13 = 13", "s13 = 13"),
            ("same", "s14 = 14", "s14 = 14"), ("new", "", "fresh"), ("same", "s15 = 15", "s15 = 15"),
            ("same", "s16 = 16", "s16 = 16"), ("gap", "13 statements unchanged", None),
            ("block", None, "B4"), ("new", "", "new"), ("block", "B1", "B1"), ("pair", "a = 1", "a = 2"),
            ("block", "B2", None), ("old", "gone", ""), ("gap", "1 block unchanged", None)])
        self.assertEqual(next(row for row in rows if row.kind == "pair").new, [("a = ", False), ("2", True)])
        # Like stands beside like, though it is not the first with the first.
        old, new = ["*(i * 2 + w) = 0", "b = 1"], ["t = n", "*(t + w) = 0", "q(5)", "c = 1"]
        self.assertEqual(list(steplog.pair_statements(old, new)), [(None, 0), (0, 1), (None, 2), (1, 3)])
        rows, left_out = steplog.compare_states(before, after, 1)
        self.assertEqual(left_out, 3)

    # --- In a browser.

    @unittest.skipUnless(browser.is_there(), "no browser here")
    def test_in_a_browser(self):
        page = self.dir / "t.html"
        view = browser.Browser()
        self.addCleanup(view.close)
        for width, dark, script in ((390, False, True), (390, True, False), (1280, False, True), (700, True, True)):
            with self.subTest(width=width, dark=dark, script=script):
                view.open(page, width, dark=dark, script=script)
                self.assertEqual(view.requests, ["file://" + str(page)])
                self.assertEqual(view.complaints, [])
                state = view.value("""(() => {
                    const shown = element => element.checkVisibility() && element.getBoundingClientRect().height > 0;
                    const steps = [...document.querySelectorAll(".step:not(.start)")];
                    const columns = getComputedStyle(document.querySelector(".graphs")).gridTemplateColumns;
                    return {
                        overflow: document.documentElement.scrollWidth - document.documentElement.clientWidth,
                        open: steps.filter(step => step.open).length, steps: steps.length,
                        graphs: [...document.querySelectorAll(".scroll svg")].filter(shown).length,
                        boxes: [...document.querySelectorAll(".scroll")].filter(box => {
                            const [a, b] = [box.getBoundingClientRect(), document.documentElement];
                            return a.right > b.clientWidth }).length,
                        folded: [...document.querySelectorAll(".others")].every(list => !list.open),
                        listed: [...document.querySelectorAll(".others li")].filter(shown).length,
                        columns: columns.split(" ").length,
                        light: getComputedStyle(document.body).backgroundColor.match(/\\d+/g)[0] > 128,
                        buttons: [...document.querySelectorAll("button")].filter(shown).length,
                    } })()""")
                self.assertLessEqual(state["overflow"], 0, "the page scrolls sideways")
                self.assertGreater(state["steps"], 2)
                self.assertEqual(state["open"], state["steps"])
                self.assertEqual((state["graphs"], state["boxes"]), (2 * state["steps"], 0))
                self.assertTrue(state["folded"] and state["listed"] == 0)
                self.assertEqual(state["columns"], 1 if width <= 700 else 2)
                self.assertEqual(state["light"], not dark)
                self.assertEqual(state["buttons"], 2 if script else 0)
        view.open(page, 390)
        view.value("document.querySelectorAll('button')[1].click()")
        self.assertEqual(view.value("document.querySelectorAll('.step:not(.start)[open]').length"), 0)
        view.value("document.querySelector('.jump a').click()")
        self.assertEqual(view.value("document.querySelectorAll('.step:not(.start)[open]').length"), 1)
        self.assertEqual(view.complaints, [])


if __name__ == "__main__":
    unittest.main()
