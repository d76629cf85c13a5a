#!/usr/bin/env python3
"""Runs the examples of the documents and compares what comes out.

Every fenced block marked `console` in README.md and docs/*.md is run: a line that begins with "$ "
is a command (continued on the next line where it ends with a backslash), the lines under it are
what it prints, standard error included. A line of "..." stands for any lines. The blocks of a
document run in order in a folder of their own with a copy of examples/, with the program on the
path. `$?` is the exit status of the command before; a command that fails must be followed by
"$ echo $?". With --update, what differs is written into the document.
"""

import argparse
import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BLOCK = re.compile(r"^```console\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def commands_of(block):
    """The commands of a block, each with the lines expected under it."""
    commands = []
    continued = False
    for line in block.splitlines():
        if continued:
            commands[-1][0] += "\n" + line
        elif line.startswith("$ "):
            commands.append([line[2:], []])
        elif not commands:
            raise ValueError(f"a console block begins with '{line}', not with a command")
        else:
            commands[-1][1].append(line)
            continue
        continued = line.endswith("\\")
    return commands


def matches(expected, lines):
    """Whether the lines are those expected, with "..." for any number of them."""
    if not expected:
        return not lines
    if expected[0] == "...":
        return any(matches(expected[1:], lines[start:]) for start in range(len(lines) + 1))
    return bool(lines) and lines[0] == expected[0] and matches(expected[1:], lines[1:])


def run(command, status_before, folder, environment):
    """Runs one command; its exit status and the lines it printed."""
    done = subprocess.run(
        ["bash", "-c", f"(exit {status_before})\n{command}"],
        cwd=folder, env=environment, stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120,
    )
    lines = [line.rstrip() for line in done.stdout.decode(errors="replace").splitlines()]
    return done.returncode, lines


def check_block(commands, folder, environment):
    """Runs a block: what differs, and the block as it really came out."""
    problems = []
    really = []
    status = 0
    for index, (command, expected) in enumerate(commands):
        asks_status = command == "echo $?"
        if status != 0 and not asks_status:
            problems.append(f"exit status {status} before: $ {command}")
        status, lines = run(command, status, folder, environment)
        really.append("$ " + command)
        if matches(expected, lines):
            really += expected
        else:
            problems.append(f"$ {command}")
            problems += difflib.unified_diff(expected, lines, "document", "run", lineterm="", n=2)
            really += lines
    if status != 0:
        problems.append(f"exit status {status} of the last command: $ {commands[-1][0]}")
    return problems, "\n".join(really) + "\n"


def check_document(document, environment, update):
    """Runs the blocks of one document; the number of commands and what differs."""
    text = document.read_text(encoding="utf-8")
    count = 0
    problems = []
    changed = text
    with tempfile.TemporaryDirectory() as folder:
        shutil.copytree(ROOT / "examples", Path(folder) / "examples")
        for block in BLOCK.finditer(text):
            line = text.count("\n", 0, block.start()) + 1
            commands = commands_of(block.group(1))
            count += len(commands)
            differing, really = check_block(commands, folder, environment)
            if differing:
                problems += [f"{document.relative_to(ROOT)}:{line}:", *differing]
                changed = changed.replace(block.group(0), f"```console\n{really}```", 1)
    if update and changed != text:
        document.write_text(changed, encoding="utf-8")
    return count, problems


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the velmorra program")
    parser.add_argument("--update", action="store_true", help="write what came out")
    options = parser.parse_args()

    folder = str(Path(options.program).resolve().parent)
    environment = dict(os.environ, PATH=folder + os.pathsep + os.environ["PATH"], LC_ALL="C.UTF-8")
    count = 0
    problems = []
    for document in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        commands, differing = check_document(document, environment, options.update)
        count += commands
        problems += differing
    print("\n".join(problems + [f"{count} commands run"]))
    return 1 if problems or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
