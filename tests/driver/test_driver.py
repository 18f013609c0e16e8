#!/usr/bin/env python3
"""The driver's exit paths, run as a process: statuses, texts, and which files are left behind.

Usage: test_driver.py BIN-DIRECTORY
"""

import errno
import os
import pathlib
import resource
import signal
import stat
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


FAULTS = {
    signal.SIGILL: "executed an illegal instruction",
    signal.SIGTRAP: "received a TRAP signal",
    signal.SIGABRT: "had an internal inconsistency and aborted",
    signal.SIGBUS: "experienced a bus alignment fault",
    signal.SIGFPE: "received a floating point exception",
    signal.SIGSEGV: "experienced a segmentation fault",
    signal.SIGXCPU: "exceeded the CPU time limit",
    signal.SIGXFSZ: "exceeded the file size limit",
    signal.SIGSYS: "experienced a bad system call",
}


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

    def test_output_through_a_link_keeps_the_link_and_the_permissions(self):
        (self.dir / "there").mkdir()
        (self.dir / "there" / "o.ic").write_text("old")
        (self.dir / "there" / "o.ic").chmod(0o640)
        (self.dir / "link").symlink_to("there/o.ic")
        self.assertEqual(self.opt5("a.ic", "link").returncode, 0)
        self.assertTrue((self.dir / "link").is_symlink())
        self.assertEqual(stat.S_IMODE((self.dir / "there" / "o.ic").stat().st_mode), 0o640)
        self.assertIn('"main"', self.dis("link"))
        self.assertEqual(os.listdir(self.dir / "there"), ["o.ic"])

    def test_standard_output_as_the_target(self):
        # The name is a link to whatever standard output is: a file takes the result, a pipe cannot seek.
        with open(self.dir / "o.ic", "wb") as out:
            run = subprocess.run([BIN / "opt5", "a.ic", "/dev/stdout"], cwd=self.dir, stdout=out, timeout=60)
        self.assertEqual(run.returncode, 0)
        self.assertIn('"main"', self.dis("o.ic"))
        run = self.opt5("a.ic", "/dev/stdout")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertEqual(run.stderr, "\n>> Cannot Open Output icode File, /dev/stdout : %s, Aborting\n"
                         % os.strerror(errno.ESPIPE))
        self.assertTrue(os.path.islink("/dev/stdout"))

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
        whole = (self.dir / "a.odb").read_text()
        self.assertIn(">>>> SWITCHING LOG TO a.main.odb\n", whole)
        self.assertIn("ENTERING step 3 ", whole)
        self.assertTrue(whole.endswith("\n== END OF DEBUG OUTPUT==\n"))
        # The function's log goes on where the barriers interrupted it.
        log = (self.dir / "a.main.odb").read_text()
        for step in (0, 2, 11, 77):
            self.assertEqual(log.count(f"ENTERING step {step} "), 1)

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

    def test_log_of_a_function_stays_in_the_folder(self):
        (self.dir / "sub").mkdir()
        self.assemble("sub/b.ic", PROGRAM.replace("@helper", "#0:0").replace('"helper"', '"../../helper"'))
        self.assertEqual(self.opt5("--debug_dump", "--debug=split_odb", "sub/b.ic").returncode, 0)
        self.assertIn("b..._.._helper.odb", os.listdir(self.dir / "sub"))

    def test_logs_that_cannot_be_opened(self):
        reason = os.strerror(errno.EISDIR)
        (self.dir / "a.odb").mkdir()
        run = self.opt5("--debug_dump", "a.ic")
        self.assertEqual((run.returncode, run.stderr), (1, f"\n>> Cannot Open Debug File, a.odb : {reason}, Aborting\n"))
        (self.dir / "a.nfo").unlink()
        (self.dir / "a.nfo").mkdir()
        run = self.opt5("--opt_info", "-O3", "a.ic")
        self.assertEqual((run.returncode, run.stderr), (1, f"\n>> Cannot Open Info File, a.nfo : {reason}, Aborting\n"))
        self.assertEqual(self.files(), ["a.ic", "a.nfo", "a.odb"])

    # --- Words.

    def test_no_input(self):
        run = self.opt5()
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "\n>> Cannot Open Input icode File,  : No such file or directory, Aborting\n")

    def test_missing_input(self):
        run = self.opt5("nowhere.ic")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "\n>> Cannot Open Input icode File, nowhere.ic : No such file or directory, Aborting\n")

    def test_not_a_file_of_ours(self):
        (self.dir / "text").write_text("hello")
        (self.dir / "empty").write_text("")
        good = self.input.read_bytes()
        at = good.index(b"!<icode>")
        (self.dir / "magic").write_bytes(good.replace(b"!<icode>", b"!<arch>\n"))
        (self.dir / "version").write_bytes(good[:at + 10] + b"\xba\xff" + good[at + 12:])  # -70, a later one
        (self.dir / "cpu").write_bytes(good[:at + 12] + b"\xe9\x03" + good[at + 14:])
        for name in ("text", "empty", "magic", "version", "cpu", "."):
            run = self.opt5(name)
            self.assertEqual(run.returncode, 1, name)
            self.assertTrue(run.stderr.startswith(f"\n>> Error when opening input icode file : {name}: "), run.stderr)
            self.assertTrue(run.stderr.endswith(", Aborting\n"))
            self.assertEqual(run.stdout, "")

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
                             (["--auto_inline=-1"], '"-1"'), (["--auto_inline=4294967296"], '"4294967296"'),
                             (["--program_mode=4"], '"4"'), (["--opt_info=much"], '"much"'), (["-O5"], '"-O5"'),
                             (["-"], '"-"'), (["--"], '"--"'), (["--=1"], '"--=1"'),
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

    def test_words_that_mean_something_only_on_the_command_line(self):
        for word in ("--help", "--version", "--opt_level", "O2", ""):
            self.assemble("w.ic", f'section options\noptions 0 "{word}"\n' + PROGRAM)
            run = self.opt5("w.ic")
            self.assertEqual((run.returncode, run.stdout), (1, ""), word)
            self.assertIn("w.ic", run.stderr)

    def test_option_set_with_a_number_out_of_place(self):
        self.assemble("w.ic", 'section options\noptions 0 "-O1"\noptions 7 "-O1"\n' + PROGRAM)
        run = self.opt5("w.ic")
        self.assertEqual((run.returncode, run.stderr), (1, "opt5: w.ic: option set 7 is out of place\n"))

    def test_optional_value_never_takes_the_next_word(self):
        self.assertEqual(self.opt5("--debug_dump", "a.ic", "o.ic").returncode, 0)
        self.assertIn("o.ic", self.files())

    def test_notices(self):
        size = "\n\t*** Optimizing code size, not speed ***\n\n"
        for goal, text in (("0", size), ("1", size), ("2", size), ("3", size), ("4", ""), ("5", "")):
            self.assertEqual(self.opt5("--debug_dump", "--size_speed_goal", goal, "a.ic").stderr, text)
        self.assertEqual(self.opt5("--size_speed_goal=0", "a.ic").stderr, "")
        warning = "\n>>>> Warning: All non-auto lvalues are considered VOLATILE.\n\n"
        self.assertEqual(self.opt5("--volatile_variables", "--debug_dump", "a.ic").stderr, warning)
        self.assertIn(warning, (self.dir / "a.odb").read_text())

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
        shuffled = self.opt5("--debug=list_passes", "--pass_order=random", "a.ic").stdout.splitlines()
        self.assertEqual(sorted(shuffled), sorted(lines))

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
        for order, named in (("1,78", "78"), ("-1", "-1"), ("5 99999999999999999999", "99")):
            run = self.opt5("--pass_order", order, "a.ic")
            self.assertEqual((run.returncode, len(run.stderr.splitlines())), (1, 1), order)
            self.assertIn(named, run.stderr)
            self.assertEqual(self.files(), ["a.ic"])

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

    def test_bad_body_leaves_the_old_output(self):
        # The file's records are whole; what they say is not, and that shows only behind other functions.
        self.assemble("bad.ic", PROGRAM.replace("expr [1:6:1]", "block\nexpr [1:6:1]"))
        before = (self.dir / "bad.ic").read_bytes()
        (self.dir / "o.ic").write_text("precious")
        for target in ("o.ic", "bad.ic"):
            run = self.opt5("bad.ic", target)
            self.assertEqual((run.returncode, len((run.stderr + run.stdout).splitlines())), (1, 1))
            self.assertTrue(run.stderr.startswith("bad.ic: function main: "), run.stderr)
        self.assertEqual((self.dir / "o.ic").read_text(), "precious")
        self.assertEqual((self.dir / "bad.ic").read_bytes(), before)
        self.assertEqual(self.files(), ["a.ic", "bad.ic", "o.ic"])

    def test_flow_that_cannot_be_built(self):
        cases = "(SWITCH tint 1 (ICON tint 3) %s)"
        case, default = "(CASE tint (ICON tint 1) (LABEL tint 1))", "(DEFAULT tint (LABEL tint 1))"
        for tree, why in (
                ("(BRANCH tint (LABEL tint 9))", "a jump to label 9, which is not there"),
                ("(BRANCH tint (ICON tint 9))", "BRANCH without a label"),
                ("(CBRANCH tint (ICON tint 3) (ICON tint 1))", "CBRANCH without a label"),
                (case, "CASE outside a SWITCH"),
                (default, "DEFAULT outside a SWITCH"),
                (f"(COMMAOP tint (ICON tint 3) {case})", "CASE outside a SWITCH"),
                ("(COMMAOP tint (BRANCH tint (LABEL tint 1)) (ICON tint 1))", "BRANCH inside an expression"),
                (cases % f"(COMMA tint {default} {case})", "DEFAULT that is not the last of its SWITCH"),
                (cases % f"(COMMA tint {default} {default})", "DEFAULT that is not the last of its SWITCH"),
                (cases % "(CASE tint (NAME tfn @main) (LABEL tint 1))", "CASE without a constant"),
                (cases % "(LABEL tint 1)", "SWITCH with something else than CASE and DEFAULT in its list"),
                ("(BRANCH tint (LABEL tint 1))\nlabel 1", "label 1 is defined twice")):
            with self.subTest(tree):
                self.assemble("bad.ic", PROGRAM.replace("expr [1:6:1]", f"label 1\nexpr [1:8:1] {tree}\nexpr [1:9:1]"))
                (self.dir / "o.ic").write_text("precious")
                run = self.opt5("bad.ic", "o.ic")
                self.assertEqual((run.returncode, run.stdout), (1, ""))
                self.assertEqual(run.stderr, f"bad.ic: function main: line 8: {why}\n")
                self.assertEqual((self.dir / "o.ic").read_text(), "precious")

    def abnormal(self, *words):
        # A debug file that cannot be written is an inconsistency that a user can bring about.
        os.symlink("/dev/full", self.dir / "a.odb")
        run = self.opt5("--debug_dump", *words)
        os.unlink(self.dir / "a.odb")
        os.unlink(self.dir / "a.nfo")
        return run

    def test_internal_error_removes_the_output(self):
        (self.dir / "o.ic").write_text("old")
        run = self.abnormal("a.ic", "o.ic")
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stderr.startswith("\n>>>> Optimizer terminated abnormally.\nThis is caused by a defect in the "))
        self.assertTrue(run.stderr.endswith("Include the .pp file created by option --preproc_with_comment\n\n"))
        self.assertEqual(self.files(), ["a.ic"])

    def test_internal_error_spares_the_input(self):
        before = self.input.read_bytes()
        self.assertEqual(self.abnormal("a.ic", "a.ic").returncode, 1)
        self.assertEqual(self.input.read_bytes(), before)
        self.assertEqual(self.abnormal("a.ic", "./a.ic").returncode, 1)
        self.assertEqual(self.files(), ["a.ic"])

    def test_internal_error_can_abort(self):
        run = self.abnormal("--debug=abort", "a.ic")
        self.assertEqual(run.returncode, 2)
        self.assertIn(FAULTS[signal.SIGABRT] + "\n", run.stdout)
        self.assertEqual(self.files(), ["a.ic"])

    def test_out_of_memory(self):
        def limited(*words):
            limit = 30 << 20
            return subprocess.run([BIN / "opt5", *words], cwd=self.dir, text=True, capture_output=True, timeout=60,
                                  preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))

        if limited("a.ic").returncode != 0:
            self.skipTest("the tool alone needs more than the limit, as it does under the sanitizers")
        line = "expr [1:6:1] (UCALL tint (UAND tint (NAME tfn @helper)))\n"
        self.assemble("big.ic", PROGRAM.replace("expr [1:6:1] (RETURN", line * 100000 + "expr [1:6:1] (RETURN"))
        run = limited("big.ic")
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stderr.startswith("\n>>>> Optimizer terminated abnormally.\n>>>>    in function main()\n"
                                              '>>>>    in file "a.c"\n\n>>>> ERROR - OUT OF MEMORY.\n'), run.stderr)
        self.assertNotIn("big.opt", self.files())

    def test_unwritable_output(self):
        run = self.opt5("a.ic", "no/such/folder/o.ic")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stderr, "\n>> Cannot Open Output icode File, no/such/folder/o.ic : "
                                     "No such file or directory, Aborting\n")

    def test_full_device(self):
        run = self.opt5("a.ic", "/dev/full")
        self.assertEqual((run.returncode, run.stderr), (1, "opt5: cannot write /dev/full: No space left on device\n"))
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/full").st_mode))
        self.assertEqual(self.opt5("a.ic", "/dev/null").returncode, 0)
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))

    # --- Signals.

    def start(self, *words):
        return subprocess.Popen([BIN / "opt5", *words], cwd=self.dir, text=True, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)

    def signal_while_waiting(self, child, number):
        """Sends a signal once the run sleeps, which it does only where it opens a pipe without another end."""
        asleep = 0
        while asleep < 2 and child.poll() is None:
            state = pathlib.Path(f"/proc/{child.pid}/stat").read_text().rpartition(")")[2].split()[0]
            asleep = asleep + 1 if state == "S" else 0
            time.sleep(0.01)
        child.send_signal(number)
        out, err = child.communicate(timeout=20)
        return child.returncode, out + err

    def signal_while_opening(self, number):
        os.mkfifo(self.dir / "pipe")
        result = self.signal_while_waiting(self.start("pipe"), number)
        os.unlink(self.dir / "pipe")
        return result

    def signal_in_main(self, number):
        """The log of the function `main` is a pipe."""
        os.mkfifo(self.dir / "a.main.odb")
        result = self.signal_while_waiting(self.start("--debug_dump", "--debug=split_odb", "a.ic", "o.ic"), number)
        os.unlink(self.dir / "a.main.odb")
        return result

    def test_signals_that_end_without_a_report(self):
        for number, words in ((signal.SIGTERM, "received a terminate signal]\n"), (signal.SIGINT, "forced exit]\n"),
                              (signal.SIGHUP, "forced exit]\n")):
            self.assertEqual(self.signal_while_opening(number), (2, f"[{BIN / 'opt5'} {words}"))

    def test_faults_are_told_apart(self):
        for number, words in FAULTS.items():
            status, out = self.signal_while_opening(number)
            self.assertEqual(status, 2, out)
            head = f"\nINTERNAL ERROR: {BIN / 'opt5'} {words}\n"
            self.assertTrue(out.startswith(head + " " * 18 + "while processing function <unknown> file pipe\n\nThis is "), out)
            self.assertIn("We need to see this ENTIRE error message", out)

    def test_fault_in_a_function_closes_the_logs(self):
        (self.dir / "o.ic").write_text("old")
        status, out = self.signal_in_main(signal.SIGSEGV)
        self.assertEqual(status, 2)
        self.assertIn("while processing function main file a.ic\n", out)
        for log in ("a.odb", "a.nfo"):
            self.assertTrue((self.dir / log).read_text().endswith("\n>>>> Optimizer terminated by signal: SIGSEGV.\n"), log)
        self.assertEqual((self.dir / "o.ic").read_text(), "old")
        self.assertEqual(self.files(), ["a.helper.odb", "a.ic", "a.nfo", "a.odb", "o.ic"])

    def test_terminated_run_leaves_no_temporary_file(self):
        status, _ = self.signal_in_main(signal.SIGTERM)
        self.assertEqual(status, 2)
        self.assertEqual(self.files(), ["a.helper.odb", "a.ic", "a.nfo", "a.odb"])


if __name__ == "__main__":
    unittest.main()
