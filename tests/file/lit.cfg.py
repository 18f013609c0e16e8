"""Tests of the text form and of opt5 on it. `--param bin=DIR` tells where the tools are."""

import lit.formats
import os

config.name = "file"
config.test_format = lit.formats.ShTest(execute_external=False)
config.suffixes = [".test"]
config.test_source_root = os.path.dirname(__file__)

bin_dir = os.path.abspath(lit_config.params["bin"])
config.test_exec_root = os.path.join(os.path.dirname(bin_dir), "tests", "file")
for tool in ("icode-as", "icode-dis", "icode-run", "icode-cc", "opt5"):
    config.substitutions.append((r"\b" + tool + r"\b", os.path.join(bin_dir, tool)))
config.substitutions.append((r"\bFileCheck\b", "FileCheck-14"))
config.substitutions.append((r"\bheaders\b", os.path.join(os.path.dirname(bin_dir), "lib", "icode", "include")))
# Assembles, disassembles, checks the text, and checks that the text leads back to the same bytes.
config.substitutions.insert(0, ("%round-trip", " && ".join([
    "icode-as %s -o %t.ic", "icode-dis %t.ic > %t.txt", "FileCheck %s --input-file %t.txt",
    "icode-as %t.txt -o %t.again", "cmp %t.ic %t.again"])))
