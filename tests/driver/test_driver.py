#!/usr/bin/env python3
"""The driver's exit paths, run as a process: statuses, texts, and which files are left behind.

Usage: test_driver.py BIN-DIRECTORY
"""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()

PROGRAM = """
section files
file "a.c"
section types
type tfn function tint
type tfn list params
type tfn endlist params
section symbols
symbol "helper" class=static tfn [1:1:1]
symbol "main" class=extdef tfn [1:5:5]
section body
func [1:1:1] @helper
endargs
endlocals
expr [1:2:1] (RETURN tint (NAME tfn @helper) (ICON tint 7))
endfunc
func [1:5:5] @main
endargs
symbol "unused" tint
endlocals
expr [1:6:1] (RETURN tint (NAME tfn @main) (UCALL tint (UAND tint (NAME tfn @helper))))
endfunc
"""


class DriverTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.folder.name)
        self.input = self.assemble("a.ic", PROGRAM)

    def tearDown(self):
        self.folder.cleanup()

    def assemble(self, name, text):
        source = self.dir / "source.txt"
        source.write_text(text)
        subprocess.run([BIN / "icode-as", source, "-o", self.dir / name], check=True)
        source.unlink()
        return self.dir / name

    def opt5(self, *words, env=None):
        return subprocess.run([BIN / "opt5", *map(str, words)], cwd=self.dir, text=True, capture_output=True, timeout=60,
                              env={**os.environ, **(env or {})})

    def files(self):
        return sorted(p.name for p in self.dir.iterdir())

    def dis(self, name):
        return subprocess.run([BIN / "icode-dis", self.dir / name], text=True, capture_output=True, check=True).stdout

    # --- Names of files.

    def test_default_output_is_the_stem_with_opt(self):
        self.assertEqual(self.opt5("a.ic").returncode, 0)
        self.assertEqual(self.files(), ["a.ic", "a.opt"])

    def test_output_may_be_the_input(self):
        self.opt5("a.ic", "b.opt")
        self.assertEqual(self.opt5("b.opt").returncode, 0)
        self.assertIn('"main"', self.dis("b.opt"))

    def test_debug_and_information_files(self):
        self.assertEqual(self.opt5("--debug_dump", "a.ic").returncode, 0)
        self.assertEqual(self.files(), ["a.ic", "a.nfo", "a.odb", "a.opt"])
        log = (self.dir / "a.odb").read_text()
        self.assertIn("Pass list is normal order.\n", log)
        self.assertIn("\n\n\t\t\t---------- ENTERING step 78 'output function' ----------\n", log)
        self.assertTrue(log.endswith("\n== END OF DEBUG OUTPUT==\n"))
        self.assertTrue((self.dir / "a.nfo").read_text().endswith("\n== END OF INFO OUTPUT==\n"))

    def test_split_odb_gives_each_function_a_log(self):
        self.assertEqual(self.opt5("--debug_dump", "--debug=split_odb", "a.ic").returncode, 0)
        self.assertIn("a.main.odb", self.files())
        self.assertIn("a.helper.odb", self.files())
        self.assertIn(">>>> SWITCHING LOG TO ", (self.dir / "a.odb").read_text())

    def test_information_needs_a_high_level_or_the_dump(self):
        self.opt5("--opt_info=1", "-O2", "a.ic")
        self.assertNotIn("a.nfo", self.files())
        self.opt5("--opt_info=1", "-O3", "--opt_info_file=x.txt", "a.ic")
        self.assertIn("x.txt", self.files())

    def test_long_debug_names_are_cut(self):
        long = self.dir / ("n" * 252)
        long.write_bytes(self.input.read_bytes())
        self.assertEqual(self.opt5("--debug_dump", "--opt_info_file=i", long.name, "o").returncode, 0)
        self.assertIn("n" * 250 + ".odb", self.files())

    # --- Words.

    def test_no_input(self):
        run = self.opt5()
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stderr.startswith("\n>> Cannot Open Input icode File, "))
        self.assertIn(", Aborting\n", run.stderr)

    def test_missing_input(self):
        run = self.opt5("nowhere.ic")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "\n>> Cannot Open Input icode File, nowhere.ic : No such file or directory, Aborting\n")

    def test_not_a_file_of_ours(self):
        (self.dir / "text").write_text("hello")
        run = self.opt5("text")
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stderr.startswith("\n>> Error when opening input icode file : "))

    def test_third_word_is_garbage_and_a_fourth_is_named(self):
        run = self.opt5("a.ic", "b", "c")
        self.assertEqual((run.returncode, run.stderr), (1, "\n>>>> OPTIMIZER ERROR: Garbage on command line\n\n"))
        run = self.opt5("a.ic", "b", "c", "d")
        self.assertEqual(run.stderr, "\n>>>> OPTIMIZER ERROR: Unexpected options: a.ic b d\n"
                                     "\n>>>> OPTIMIZER ERROR: Garbage on command line\n\n")
        self.assertEqual(self.files(), ["a.ic"])

    def test_unknown_options_and_bad_values_are_named(self):
        for words, named in ((["--no_such"], '"--no_such"'), (["-Z"], '"-Z"'), (["--opt_level=9"], '"9"'),
                             (["--size_speed_goal", "x"], '"x"'), (["--auto_inline=ten"], '"ten"'),
                             (["--far_externs=1"], '"--far_externs"')):
            run = self.opt5(*words, "a.ic")
            self.assertEqual(run.returncode, 1, words)
            self.assertIn(named, run.stderr)
            self.assertEqual(len(run.stderr.splitlines()), 1)

    def test_value_may_be_the_next_word(self):
        self.assertEqual(self.opt5("--opt_level", "3", "a.ic").returncode, 0)
        run = self.opt5("a.ic", "--opt_level")
        self.assertEqual(run.returncode, 1)
        self.assertIn("needs a value", run.stderr)

    def test_bad_word_in_the_file_is_named_with_the_file(self):
        self.assemble("w.ic", 'section options\noptions 0 "--bogus"\n' + PROGRAM)
        run = self.opt5("w.ic")
        self.assertEqual(run.returncode, 1)
        self.assertIn('"--bogus"', run.stderr)
        self.assertIn("w.ic", run.stderr)
        self.assertEqual(self.opt5("--ignore_file_options", "w.ic").returncode, 0)

    def test_command_line_wins_over_the_file(self):
        self.assemble("w.ic", 'section options\noptions 0 "--opt_level=0"\n' + PROGRAM)
        run = self.opt5("--dump_options", "--opt_level=3", "w.ic")
        self.assertEqual(run.returncode, 0)
        self.assertIn("--opt_level=3\n", run.stdout)
        self.assertNotIn("--opt_level=0", run.stdout)

    def test_help_and_version(self):
        run = self.opt5("--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("--size_speed_goal", run.stdout)
        self.assertEqual(self.opt5("--version").returncode, 0)

    # --- Step orders.

    def test_list_of_passes_has_the_78_numbered_steps(self):
        run = self.opt5("--debug=list_passes", "a.ic")
        lines = run.stdout.splitlines()
        self.assertEqual(len(lines), 78)
        self.assertEqual(lines[0], " 0:  pass 1 fcp/eda")
        self.assertEqual(lines[77], "77:  late LIR")

    def test_any_order_still_writes_the_functions(self):
        for order in ("", "0,1,2", "77 10,3", "5,5,5", "random"):
            run = self.opt5("a.ic", "o.ic", env={"FORCED_OPT_PASSES": order})
            self.assertEqual(run.returncode, 0, order)
            self.assertIn("@helper", self.dis("o.ic"))
            self.assertIn("(RETURN", self.dis("o.ic"))

    def test_option_outranks_the_environment(self):
        self.opt5("--debug_dump", "--pass_order=1,2", "a.ic", env={"FORCED_OPT_PASSES": "3"})
        self.assertIn("Pass list, from command-line option, is:  1 2\n\n", (self.dir / "a.odb").read_text())

    def test_empty_order_says_so(self):
        self.opt5("--debug_dump", "a.ic", env={"FORCED_OPT_PASSES": ""})
        self.assertIn("Pass list, from environment variable, is: <empty>\n\n", (self.dir / "a.odb").read_text())

    def test_number_beyond_the_list_is_refused(self):
        run = self.opt5("--pass_order=1,99", "a.ic")
        self.assertEqual(run.returncode, 1)
        self.assertIn("99", run.stderr)

    def test_skipped_step(self):
        self.opt5("--debug_dump", "--debug=skip_pass=12", "a.ic")
        log = (self.dir / "a.odb").read_text()
        self.assertIn("---------- SKIPPING step 12 'stack sharing' ----------", log)
        self.assertNotIn("ENTERING step 12 ", log)

    # --- What is written.

    def test_unused_locals_go_and_two_runs_agree(self):
        self.opt5("a.ic", "o.ic")
        first = (self.dir / "o.ic").read_bytes()
        self.opt5("a.ic", "o.ic")
        self.assertEqual(first, (self.dir / "o.ic").read_bytes())
        self.assertNotIn('"unused"', self.dis("o.ic"))

    def test_input_without_functions_keeps_its_globals(self):
        self.assemble("g.ic", 'section symbols\nsymbol "g" class=extdef tint\nsection inits\ninit @g\n(ICON tint 5)\n'
                              '(ENDINIT tint)\nsection body\n')
        self.assertEqual(self.opt5("g.ic").returncode, 0)
        text = self.dis("g.opt")
        self.assertIn('symbol "g"', text)
        self.assertIn(" 5)", text)

    # --- Bad ends.

    def test_bad_input_leaves_the_old_output(self):
        (self.dir / "o.ic").write_text("precious")
        (self.dir / "cut.ic").write_bytes(self.input.read_bytes()[:-20])
        run = self.opt5("cut.ic", "o.ic")
        self.assertEqual(run.returncode, 1)
        self.assertEqual((self.dir / "o.ic").read_text(), "precious")
        self.assertEqual(self.files(), ["a.ic", "cut.ic", "o.ic"])

    def test_unwritable_output(self):
        run = self.opt5("a.ic", "no/such/folder/o.ic")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "\n>> Cannot Open Output icode File, no/such/folder/o.ic : "
                                     "No such file or directory, Aborting\n")

    def test_full_device(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        run = self.opt5("a.ic", "/dev/full")
        self.assertEqual(run.returncode, 1)
        self.assertTrue(os.path.exists("/dev/full"))

    def run_until_reading(self, number):
        # The input is a pipe that nobody fills: the tool waits in its first read.
        os.mkfifo(self.dir / "pipe")
        child = subprocess.Popen([BIN / "opt5", "pipe"], cwd=self.dir, text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
        time.sleep(0.3)
        child.send_signal(number)
        out, _ = child.communicate(timeout=20)
        return child.returncode, out

    def test_terminate_signal(self):
        status, out = self.run_until_reading(signal.SIGTERM)
        self.assertEqual(status, 2)
        self.assertIn("received a terminate signal]\n", out)

    def test_interrupt_signal(self):
        status, out = self.run_until_reading(signal.SIGINT)
        self.assertEqual(status, 2)
        self.assertIn(" forced exit]\n", out)

    def test_fault_signal(self):
        status, out = self.run_until_reading(signal.SIGSEGV)
        self.assertEqual(status, 2)
        self.assertIn("\nINTERNAL ERROR: ", out)
        self.assertIn("experienced a segmentation fault\n", out)
        self.assertIn("while processing function <unknown> file ", out)
        self.assertIn("We need to see this ENTIRE error message", out)


if __name__ == "__main__":
    unittest.main()
