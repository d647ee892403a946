#!/usr/bin/env python3
"""Runs the examples of README and docs/ and compares what they print with what stands below them
there, where "..." stands for any lines: docs_test.py EXTPROP"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def examples(page):
    """Yields the commands of each block of the page that has any, with the lines below them."""
    for language, block in re.findall(r"^```(\w*)\n(.*?)^```$", page.read_text(), re.M | re.S):
        if language:
            continue
        runs = re.findall(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", block, re.M)
        if runs:
            yield runs


def is_as_shown(printed, shown):
    anything = r"(?:.*\n)*"
    pattern = "".join(anything if line == "..." else re.escape(line) + r"\n"
                      for line in shown.splitlines())
    return re.fullmatch(pattern, printed) is not None


def main():
    tool = os.path.abspath(sys.argv[1])
    count, failed = 0, 0
    for page in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        for runs in examples(page):
            with tempfile.TemporaryDirectory() as place:
                os.symlink(ROOT / "samples", f"{place}/samples")
                os.symlink(tool, f"{place}/extprop")
                for command, shown in runs:
                    command = re.sub(r"^(\./run\.sh|extprop)\b", "./extprop", command)
                    run = subprocess.run(["bash", "-c", command], cwd=place, text=True, check=False,
                                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                    count += 1
                    if not is_as_shown(run.stdout, shown):
                        failed += 1
                        print(f"{page.name}: $ {command}\nprints\n{run.stdout}not\n{shown}")
    print(f"{count} commands, {failed} print something else")
    return 1 if failed or not count else 0


sys.exit(main())
