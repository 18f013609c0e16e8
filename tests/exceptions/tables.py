"""Turns the marks of exceptions.h, in the text form of a program, into exception tables."""

import os
import re
import subprocess

TOKEN = re.compile(r'\s*("(?:[^"\\]|\\.)*"|[()]|[^\s()"]+)')
MARKS = ("__region", "__cleanup", "__catches", "__cleanup_end", "__terminates")
CALLS = ("CALL", "UCALL")
FIXED = "  ehentry 0 0 0 0\n  ehentry 1 0 0 0\n"


def parse(text, place):
    """The tree that begins there, as nested lists, and the place behind it."""
    stack = [[]]
    while not stack[0]:
        token = TOKEN.match(text, place)
        word, place = token.group(1), token.end()
        if word == "(":
            stack.append([])
        elif word == ")":
            done = stack.pop()
            stack[-1].append(done)
        else:
            stack[-1].append(word)
    return stack[0][0], place


def show(tree):
    """The text of a tree; no recursion, trees may be deep."""
    out, stack = [], [tree]
    while stack:
        item = stack.pop()
        if isinstance(item, str):
            out.append(item)
        else:
            out.append("(")
            stack.append(")")
            stack.extend(reversed(item))
    return " ".join(out)


def nodes(tree):
    stack = [tree]
    while stack:
        node = stack.pop()
        yield node
        stack.extend(child for child in node if isinstance(child, list))


def callee(node):
    """The function that a call names, or None."""
    if node[0] not in CALLS:
        return None
    for child in node[1:]:
        if isinstance(child, list):
            name = next(nodes(child[-1] if child[0] == "UAND" else child))
            return name[-1][1:] if name[0] == "NAME" else None
    return None


def arguments(call):
    rest, found = [child for child in call if isinstance(child, list)][1], []
    while rest[0] == "COMMA":
        found.insert(0, rest[3])
        rest = rest[2]
    return [rest] + found


def plain(tree):
    """The tree without conversions."""
    while tree[0] in ("PCONV", "SCONV", "ACONV", "UAND"):
        tree = tree[-1]
    return tree


def number(tree):
    return int(plain(tree)[-1])


class Function:
    """Regions and entries of the function at hand."""

    def __init__(self):
        self.region, self.entries = 0, {}

    def take(self, name, call):
        given = arguments(call)
        entry = number(given[0])
        if name == "__region":
            self.region = entry
            return
        link = number(given[1]) if len(given) > 1 else 1
        if name == "__cleanup":
            self.finish(given[2], 0)
            text = f"  ehentry {entry} 1 {link} 0\n  expr {show(given[2])}\n"
        elif name == "__catches":
            clauses = []
            for what, value in zip(given[2::2], given[3::2]):
                everything = plain(what)[0] != "SCON"
                named = '""' if everything else plain(what)[-1].replace("\\x00", "").replace("\\0", "")
                clauses.append(f"{named} {number(value)} {int(everything)}")
            text = f"  ehentry {entry} 2 {link} {len(clauses)}\n  catch {{ {' '.join(clauses)} }}\n"
        else:
            text = f"  ehentry {entry} {3 if name == '__cleanup_end' else 5} {link} 0\n"
        self.entries[entry] = text

    def finish(self, tree, region):
        """Gives the calls of a statement their region, and the EH switch its operator."""
        for node in nodes(tree):
            if callee(node) == "__eh_switch":
                node[:] = ["UMCALL", node[1], '"__eh_switch"']
            elif node[0] in CALLS and region != 0:
                node.insert(3 if node[0] == "CALL" else 2, f"eht={region}")

    def table(self):
        if not self.entries:
            return ""
        return f"  ehtable {len(self.entries) + 2}\n{FIXED}" + "".join(self.entries[i] for i in sorted(self.entries))


def with_tables(text):
    """The text form with the marks turned into tables."""
    head, body = re.split(r"(?m)^section body$", text, maxsplit=1)
    unused = "|".join(MARKS + ("__eh_switch",))
    head = re.sub(rf'(?m)^symbol "(?:{unused})" .*\n(?:  pragma.*\n)*', "", head)
    out, function, done = [head, "section body\n"], Function(), 0
    for start in re.finditer(r"(?m)^ *expr (?:\[[^]]*\] )?(?=\()|^func |^endfunc", body):
        out.append(body[done:start.start()])
        done = start.end()
        if start.group().startswith("func"):
            function = Function()
        elif start.group().startswith("endfunc"):
            out.append(function.table())
        else:
            tree, done = parse(body, done)
            if (name := callee(tree)) in MARKS:
                function.take(name, tree)
                continue
            function.finish(tree, function.region)
            out.append(start.group() + show(tree))
            continue
        out.append(start.group())
    out.append(body[done:])
    return "".join(out)


def build(source, target, bin_dir):
    """Compiles a marked C program; the text with its tables stands beside the intermediate file."""
    text = os.path.splitext(target)[0] + ".txt"
    subprocess.run([os.path.join(bin_dir, "icode-cc"), source, "-o", target], check=True)
    plain = subprocess.run([os.path.join(bin_dir, "icode-dis"), target], check=True, capture_output=True, text=True)
    with open(text, "w", encoding="utf-8") as f:
        f.write(with_tables(plain.stdout))
    subprocess.run([os.path.join(bin_dir, "icode-as"), text, "-o", target], check=True)
