"""Tests of single steps: text form in, the function as the step leaves it out. `--param bin=DIR` tells where the tools are.

    ; RUN: %step 62                       step 62 alone at level 2
    ; RUN: %step 62,75 -O1                these two, at level 1
    ; RUN: %step 62 --check-prefix=ONCE   further words go to FileCheck

Basic types show as `tint`, `tulong` and so on, and the places of the source are left out (readable.sed). The closing
step follows every order, so locals, cases and assignments in vain are gone from what a test sees.
"""

import lit.formats
import os

config.name = "steps"
config.test_format = lit.formats.ShTest(execute_external=False)
config.suffixes = [".test"]
config.test_source_root = os.path.dirname(__file__)

bin_dir = os.path.abspath(lit_config.params["bin"])
config.test_exec_root = os.path.join(os.path.dirname(bin_dir), "tests", "steps")
for tool in ("icode-as", "icode-dis", "icode-run", "icode-cc", "opt5"):
    config.substitutions.append((r"\b" + tool + r"\b", os.path.join(bin_dir, tool)))
config.substitutions.append((r"\bFileCheck\b", "FileCheck-14"))
config.substitutions.append((r"\breadable\.sed\b", os.path.join(config.test_source_root, "readable.sed")))

# \1 is the order, \2 the level.
STEP = " && ".join([
    "icode-as %s -o %t.ic",
    r"env FORCED_OPT_PASSES=\1 opt5 --opt_level=\2 --debug=verify_each %t.ic %t.opt",
    "icode-dis %t.opt | sed -E -f readable.sed > %t.txt",
    "FileCheck %s --input-file %t.txt"])
config.substitutions.insert(0, (r"%step (\S+) -O(\d)", STEP))
config.substitutions.insert(1, (r"%step (\S+)", STEP.replace(r"\2", "2")))
