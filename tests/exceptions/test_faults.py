#!/usr/bin/env python3
"""icode-run: what a program may not do with exceptions, by the message with function and line.

Usage: test_faults.py BIN-DIRECTORY
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from tables import build

BIN = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else "build/bin").resolve()
HERE = pathlib.Path(__file__).resolve().parent
SWITCH = "switch (__eh_switch()) { case 1: return CAUGHT(int); default: break; }\n"
FAULT, UNFIT, ABORT = 3, 1, 134


class FaultTest(unittest.TestCase):
    def expect(self, status, message, body, before=""):
        """Runs `main` with this body, whose first line is line 4, and compares how the program ends."""
        with tempfile.TemporaryDirectory() as folder:
            source = pathlib.Path(folder) / "t.c"
            source.write_text(f'#include "{HERE}/exceptions.h"\n{before}\nint main(void) {{\n{body}return 0; }}\n')
            build(source, pathlib.Path(folder) / "t.ic", BIN)
            done = subprocess.run([BIN / "icode-run", pathlib.Path(folder) / "t.ic"], text=True, capture_output=True,
                                  timeout=60)
        self.assertEqual(done.stderr, f"icode-run: {message}\n")
        self.assertEqual(done.returncode, status)

    def test_runtime_functions_out_of_turn(self):
        for body, message in (
                ("int x; __cxa_throw(&x, &an_int, 0);\n", "throw of what is no exception object"),
                ("__cxa_throw(0, &an_int, 0);\n", "throw of what is no exception object"),
                ("__cxa_throw(__cxa_allocate_exception(2), 0, 0);\n", "throw of an object without a type"),
                ("__cxa_rethrow();\n", "__cxa_rethrow without a caught exception"),
                ("__cxa_begin_catch(0);\n", "__cxa_begin_catch without a caught exception"),
                ("__cxa_end_catch();\n", "__cxa_end_catch without a caught exception")):
            self.expect(FAULT, f"main:4: {message}", body)

    def test_handlers_out_of_turn(self):
        again = ("__catches(2, 1, 0, 1);\nswitch (__eh_switch()) {{ case 1: p = {}\nbreak; default: __region(2); "
                 "THROW_INT(1); }}\n")
        for handler, message in (
                ("__cxa_begin_catch(&an_int);", "__cxa_begin_catch of another object than was caught"),
                ("__cxa_begin_catch(0); __cxa_end_catch(); __cxa_end_catch();",
                 "__cxa_end_catch without a caught exception"),
                ("__cxa_begin_catch(0); __cxa_throw(p, &an_int, 0);", "throw of an object that is thrown already"),
                ("__cxa_begin_catch(0); __cxa_end_catch(); *p = 1;", None)):
            body = "int *p; " + again.format(handler)
            message = message or "store outside any object: address 65534 (in heap#1+0, whose life has ended)"
            self.expect(FAULT, f"main:5: {message}", body)

    def test_tables(self):
        throw = "__region({});\nTHROW_INT(1);\n"
        circle = "__cleanup_end(2, 3);\n__cleanup(3, 4, printf(\"\"));\n__cleanup_end(4, 2);\n"
        for table, region, line, message in (
                ("__catches(2, 1, 0, 1);\n", 2, 6, "an exception is caught in a function without an EH switch"),
                ("__terminates(2);\n", 3, 6, "no region 3 in the exception table"),
                ("", 7, 5, "no region 7 in the exception table"),
                ("__cleanup_end(2, 1000);\n", 2, 6, "no region 1000 in the exception table"),
                ("__cleanup_end(2, 2);\n", 2, 6, "the links of the exception table go in a circle"),
                (circle, 4, 3, "the links of the exception table go in a circle")):
            self.expect(FAULT, f"main:{line}: {message}", table + throw.format(region))

    def test_impossible_shapes(self):
        self.expect(UNFIT, "function main, line 5: UMCALL is the second EH switch", SWITCH * 2)
        self.expect(UNFIT, "function main, line 4: UMCALL is an EH switch inside a larger expression",
                    "int i = 3; if (i + __eh_switch()) return 1;\n")

    def test_no_way_on(self):
        self.expect(ABORT, "t:2: an exception of type 'an_int' leaves the destructor of an exception",
                    "__catches(2, 1, 0, 1);\nswitch (__eh_switch()) { case 1: __cxa_begin_catch(0); __cxa_end_catch(); }\n"
                    "__region(2); THROW(long, a_long, 5, t);\n", "static void t(void *p) { THROW_INT(1); }")
        self.expect(ABORT, "t:2: an exception of type 'an_int' is not caught", "atexit(t);\n",
                    "int atexit(void (*)(void)); static void t(void) { THROW_INT(1); }")

    def test_jump_out_of_a_clean_up(self):
        """The exception is forgotten; the next one finds its way."""
        self.expect(ABORT, "main:5: an exception of type 'a_long' is not caught",
                    "__cleanup(2, 1, longjmp(b, 1)); __region(2); if (setjmp(b) == 0) THROW_INT(1);\n__region(0); "
                    "THROW_LONG(1);\n", "int b[8]; int setjmp(int *); int longjmp(int *, int);")


if __name__ == "__main__":
    unittest.main()
