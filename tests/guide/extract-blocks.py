#!/usr/bin/env python3
"""Writes the fenced code blocks of a Markdown file that are marked
`file=NAME` (as in ```cpp file=ExampleMap.cpp) into OUT_DIR/NAME; blocks
marked with the same name are joined in the order they appear.

Usage: extract-blocks.py MARKDOWN OUT_DIR
"""
import pathlib
import re
import sys

FENCE = re.compile(r"^```\S*\s+file=(\S+)\s*$")


def blocks(lines):
    name, body = None, []
    for line in lines:
        if name is None:
            match = FENCE.match(line)
            if match:
                name, body = match.group(1), []
        elif line.startswith("```"):
            yield name, body
            name = None
        else:
            body.append(line)
    if name is not None:
        sys.exit(f"block for {name} is not closed")


def main():
    markdown, out_dir = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    out_dir.mkdir(parents=True, exist_ok=True)
    files = {}
    for name, body in blocks(markdown.read_text(encoding="utf-8").splitlines(keepends=True)):
        files.setdefault(name, []).extend(body)
    if not files:
        sys.exit(f"no block marked file=... in {markdown}")
    for name, body in files.items():
        (out_dir / name).write_text("".join(body), encoding="utf-8")
        print(f"extracted {name}")


main()
