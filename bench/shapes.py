"""C functions of any size in a few shapes, for measurements of how the optimizer's time grows."""


def straight_line(statements):
    """Assignments without a branch, each reading some of those before it."""
    lines = []
    for i in range(statements):
        a, b, c = f"v{i % 61}", f"v{(i * 7 + 3) % 61}", f"v{(i * 13 + 5) % 61}"
        lines.append((f"{a} = {b} * {i % 97 + 2} + {c};", f"{a} = {b} + ({c} ^ {i % 89});", f"p[{i % 64}] = {a} - {b};",
                      f"{a} = p[{(i * 5) % 64}] + {c};")[i % 4])
    return lines


def nested_loops(statements):
    """Loops three deep, with branches in the innermost."""
    lines = []
    for i in range(0, statements, 10):
        lines.append(f"for (i = 0; i < n; i++) {{ v{i % 61} += i; for (j = i; j < {i % 50 + 3}; j++) {{"
                     f" if (v{(i + 1) % 61} > j) v{(i + 2) % 61} -= j; else {{ v{(i + 3) % 61} = v{i % 61} + j;"
                     f" p[j & 63] = v{(i + 2) % 61}; }} for (k = j; k != 0; k--) {{ if (p[k & 63] == {i % 31}) break;"
                     f" v{(i + 4) % 61} ^= p[(k + {i % 64}) & 63] << 1; }} }} p[i & 63] += v{(i + 4) % 61}; }}")
    return lines


def huge_switch(statements):
    """One SWITCH in a loop; every case is a few statements."""
    lines = ["for (i = 0; i < n; i++) switch (p[i & 63]) {"]
    for i in range(0, statements, 4):
        lines.append(f"case {i}: v{i % 61} += v{(i + 1) % 61}; p[{i % 64}] = v{i % 61} * {i % 17 + 1};"
                     f" v{(i + 2) % 61} = {i % 7};" + (" break;" if i % 16 else ""))
    lines.append("default: v0++; }")
    return lines


def deep_expressions(statements):
    """Statements whose expressions are fifty operators deep."""
    lines = []
    for i in range(0, statements, 10):
        value = f"v{i % 61}"
        for k in range(50):
            value = f"({value} {'+-^&|'[(i + k) % 5]} " + (f"v{(i + k) % 61})" if k % 3 else f"{(i + k) % 201 + 1})")
        lines.append(f"v{(i * 3) % 61} = {value};")
    return lines


def if_chain(statements):
    """One chain of if and else, each with its own test."""
    lines = []
    for i in range(0, statements, 3):
        lines.append(("else " if i else "") + f"if (v{i % 61} == {i % 211} && n != {i}) {{ v{(i + 1) % 61} = {i % 19};"
                     f" p[{i % 64}] += v{(i + 2) % 61}; }}")
    return lines


def flat_blocks(statements):
    """Short conditional statements one behind the other: two blocks for every one."""
    return [f"if (v{i % 61} > v{(i * 3 + 1) % 61}) v{(i * 5 + 2) % 61} += {i % 23 + 1}, p[{i % 64}] = v{i % 7};"
            for i in range(0, statements, 2)]


SHAPES = {"straight line": straight_line, "nested loops": nested_loops, "huge switch": huge_switch,
          "deep expressions": deep_expressions, "chain of if-else": if_chain}


def source_of(shape, statements):
    """A C file with one function of the shape."""
    variables = ", ".join(f"v{i} = p[{i}]" for i in range(61))
    total = " + ".join(f"v{i}" for i in range(61))
    # Without braces around: the chain nests by its elses, the front end's own depth is not measured here.
    return "\n".join([f"int work(int *p, int n) {{ int i = 0, j = 0, k = 0, {variables};", *shape(statements),
                      f"return i + j + k + {total}; }}", ""])
