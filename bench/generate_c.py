#!/usr/bin/env python3
"""Writes a C source of a chosen size, for the benchmarks.

The source uses no header, so that any C compiler takes it, and mixes what firmware is made of: loops,
branches, table look-ups, calls, structures, 32-bit arithmetic. The same arguments give the same text.
"""

import argparse
import sys

STATEMENTS = [
    "a = a + b * {k};",
    "if (a > b) a -= {k}; else b ^= a;",
    "for (i = 0; i < {n}; i++) table[i & 15] += a;",
    "acc += (long)a * table[b & 15];",
    "state.x = (state.x << 1) | (a & 1);",
    "while (b & {m}) b >>= 1;",
    "state.p = &table[a & 7]; *state.p = b + {k};",
    "switch (a & 3) {{ case 0: a++; break; case 1: b--; break; default: a ^= {k}; }}",
    "acc = (acc >> 3) ^ (acc * {k}L);",
    "a = a > {k} ? b - a : a + b;",
]


def source(functions, statements):
    """The text of a program with that many functions of that many statements each."""
    out = ["static int table[16];", "static struct { int x, y; int *p; } state;", "static long acc;", ""]
    for f in range(functions):
        callee = f"f{f - 1}(a, b & 255)" if f else "b"
        out.append(f"int f{f}(int a, int b)")
        out.append("{")
        out.append("    int i;")
        for s in range(statements):
            text = STATEMENTS[(f + s) % len(STATEMENTS)]
            out.append("    " + text.format(k=(7 * s + f) % 120 + 1, n=(s % 30) + 2, m=(1 << (s % 14)) | 1))
        out.append(f"    return a + {callee};")
        out.append("}")
    out.append(f"int main(void) {{ return f{functions - 1}(1, 2) & 1; }}")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--functions", type=int, required=True)
    parser.add_argument("--statements", type=int, required=True)
    arguments = parser.parse_args()
    sys.stdout.write(source(arguments.functions, arguments.statements))


if __name__ == "__main__":
    main()
