"""Where the figures of the measuring scripts stand: blocks of docs/performance.md, each between two marks.

The mark that opens a block names the command that makes it, so that each command replaces its own and no other.
"""

import os

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
REPORT = os.path.join(PROJECT, "docs", "performance.md")
REPORT_NAME = os.path.relpath(REPORT, PROJECT)
END = "<!-- end of figures -->\n"


def table(header, rows):
    """The lines of a Markdown table with its columns to the right, and an empty one behind it."""
    lines = ["| " + " | ".join(header) + " |", "|" + "---:|" * len(header)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def write_block(command, lines):
    """Replaces the block of that command, or adds one at the end of the report."""
    begin = f"<!-- figures: made by {command} -->\n"
    with open(REPORT, encoding="utf-8") as f:
        head, found, rest = f.read().partition(begin)
    if not found:
        head += "\n"
    with open(REPORT, "w", encoding="utf-8") as f:
        f.write(head + begin + "\n".join(lines) + END + rest.partition(END)[2])
