#!/usr/bin/env python3
"""Runs the case files through the real command line, once.

    cases_through_cli.py VELMORRA [CASES]

VELMORRA is the program, CASES a case file or a folder of them (default: tests/cases). Of each case
with an expectation about a run, the tables go to files, `VELMORRA apply` runs the elements on them,
and the output tables, the messages and the exit status are compared.
"""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

EXPECTATIONS = {"out", "log", "fails"}
SECONDS = 60

# What the command line puts behind the level to say which box speaks.
BOX = re.compile(r"^(\[\d+\] )box \S+ (?:'.*?' )?\([^)]*\): ")

# Said by the engine where a file is asked for the columns of a table that has none; a case that
# expects no row doesn't ask.
NO_COLUMNS = "the columns of its empty table can't be told"


class Case:
    def __init__(self, path, line, sentence):
        self.where = f"{path}:{line}: {sentence}"
        self.folder = path.parent
        self.sections = []  # (title words, body)
        self.one_of_many = False  # situations under one sentence

    def all(self, kind):
        return [(title, body) for title, body in self.sections if title[0] == kind]

    def body(self, kind):
        found = self.all(kind)
        return found[0][1] if found else ""

    def tells_of_a_run(self):
        return any(title[0] in EXPECTATIONS for title, _ in self.sections)


def brief(expected):
    """The sections of what stands indented below an element."""
    lines = [line[4:] for line in expected.splitlines()]
    rows = next((i for i, line in enumerate(lines) if line.startswith("[")), len(lines))
    nothing = ["nothing"] if lines[:1] == ["nothing"] else []
    table = lines[0].replace(" | ", "\n") if rows == 1 else "\n".join(lines[:rows])
    out = [(["out", "0"] + nothing, "" if nothing else table)]
    log = [(["log"], "\n".join(lines[rows:]))] if lines[rows:] else []
    return (out if rows else [(["fails"], "")] if lines else []) + log


def section(text):
    """A section's words and its body, which may be a table in the line of its title."""
    title, _, body = text.partition("\n")
    if " = " in title and not title.startswith("param"):
        title, _, table = title.partition(" = ")
        body = table.replace(" | ", "\n")
    return title.strip().split(" "), body.rstrip("\n")


def read_cases(path):
    """The cases of a file: each situation with the sections of its block and its group."""
    cases, shared, line = [], [], 1
    for block in re.split(r"^(?====? )", path.read_bytes().decode(), flags=re.M):
        heading, _, rest = block.partition("\n")
        head, *parts = re.split(r"^-- ", rest, flags=re.M)
        own = [section(part) for part in parts]
        situations = re.findall(r"^(\S.*)\n((?:    .*(?:\n|$))*)", head, flags=re.M)
        if heading.startswith("=== "):
            shared = own
        elif heading.startswith("== "):
            titles = [title for title, _ in own]
            given = [each for each in shared if each[0] not in titles] + own
            for element, expected in situations or [(None, "")]:
                case = Case(path, line, heading[3:].strip())
                case.sections = [(["element"], element)] if element else []
                case.sections += given + brief(expected)
                case.one_of_many = len(situations) > 1
                cases.append(case)
        line += block.count("\n")
    return cases


def written(table):
    """A table as the program writes it: without quotes that aren't needed, the other null Key null."""
    return re.sub(r'"([^",\n]+)"', r"\1", table).replace("4294967294", "")


def without_one_line_feed(text):
    return text[:-1] if text.endswith("\n") else text


def place(title, elements, default):
    """`[N.]PIN` of a section's title, with its element named."""
    return title[1] if "." in title[1] else f"{default if default else elements}.{title[1]}"


def run_case(program, case, folder):
    """What is wrong with the case; an empty list when nothing is."""
    elements = [body for _, body in case.all("element")]
    command = [program, "apply", *elements, "--typed", "--progress", "never"]
    for title, body in case.all("in"):
        path = folder / f"in_{title[1]}.csv"
        path.write_bytes((body + "\n").encode() if body else b"")
        command += ["--in", f"{place(title, len(elements), 1)}={path}"]
    for title, _ in case.all("param"):
        command += ["--set", " ".join(title[1:])]
    for title, body in case.all("file"):
        table = folder / "table.csv"
        table.write_bytes((body + "\n").encode() if body else b"")
        subprocess.run([program, "convert", "--typed", table, folder / title[1]], check=True)
    command += ["--set", f"files={folder}"]
    outputs = []
    for title, body in case.all("out"):
        path = folder / f"out_{title[1]}.csv"
        command += ["--out", f"{place(title, len(elements), None)}={path}"]
        outputs.append((title, body, path))
    try:
        ran = subprocess.run(
            command, stdin=subprocess.DEVNULL, capture_output=True, cwd=case.folder, timeout=SECONDS
        )
    except subprocess.TimeoutExpired:
        return [f"doesn't end within {SECONDS} s"]
    problems = compare(case, ran, outputs, folder)
    return problems and problems + ["command: " + " ".join(map(repr, command))]


def compare(case, ran, outputs, folder):
    problems = []
    fails = bool(case.all("fails"))
    if ran.returncode != (1 if fails else 0):
        problems.append(f"exit status {ran.returncode}")
    messages = ran.stderr.decode(errors="replace").replace(str(folder), "${files}")
    log = [BOX.sub(r"\1", line) for line in without_one_line_feed(messages).split("\n")]
    if any(title[-1] == "nothing" for title, _, _ in outputs):
        log = without_question_for_columns(log)
    if "\n".join(log) != case.body("log"):
        problems.append("messages:\n" + "\n".join(log))
    for title, body, path in outputs:
        if fails:
            if path.exists():
                problems.append(f"out {title[1]} was written by a run that failed")
            continue
        got = without_one_line_feed(path.read_bytes().decode()) if path.exists() else ""
        if "\n" in got if title[-1] == "nothing" else written(got) != written(body):
            problems.append(f"out {title[1]}:\n{got}")
    return problems


def without_question_for_columns(log):
    """Drops the engine's warning with the lines that continue it."""
    kept, dropping = [], False
    for line in log:
        if re.match(r"\[\d+\] ", line):
            dropping = NO_COLUMNS in line
        if not dropping:
            kept.append(line)
    return kept


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    program = str(Path(sys.argv[1]).resolve())
    root = Path(sys.argv[2]) if len(sys.argv) == 3 else Path(__file__).parent.parent / "cases"
    files = [root] if root.is_file() else sorted(root.rglob("*.case"))
    cases = [case for path in files for case in read_cases(path.resolve())]
    cases = [case for case in cases if case.tells_of_a_run()]
    failed = 0
    for case in cases:
        with tempfile.TemporaryDirectory() as folder:
            problems = run_case(program, case, Path(folder))
        if problems:
            failed += 1
            print(case.where, *problems, "", sep="\n")
    print(f"{len(cases)} cases through the command line, {failed} failed")
    sys.exit(1 if failed or not cases else 0)


if __name__ == "__main__":
    main()
