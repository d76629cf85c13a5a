#!/usr/bin/env python3
"""Writes docs/actions/: a reference page for each Action, and their index.

    reference_pages.py --program VELMORRA [--check]

What an Action does and stores comes from the program's own catalogue; the tables come from the
Action's case files, which the tests run. With --check nothing is written: the exit status is 1 when
a page isn't what it would be.
"""

import argparse
import json
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "harness"))
from cases_through_cli import read_cases  # noqa: E402

MOST_CASES = 3
MOST_ROWS = 12
FEWEST_COMPARED = 6


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ")


def table(head, rows):
    lines = [head, ["---"] * len(head)] + rows
    return "\n".join("| " + " | ".join(cell(c) for c in line) + " |" for line in lines)


def default_of(attribute):
    text = attribute["default"]
    return f"`{text}`" if text else "empty"


def settings_of(action, prefix=""):
    """Rows of the table of settings: the attributes, lists and children, as they are written."""
    rows = [
        [f"`{prefix}{a['name']}`", a["kind"], default_of(a), a["meaning"]]
        for a in action["attributes"]
    ]
    if action.get("list"):
        rows.append([f"`{prefix}<s>`", "list of texts", "empty", action["list"]["meaning"]])
    for child in action["children"]:
        rows += settings_of(child, f"{prefix}<{child['name']}> ")
    if action.get("records"):
        records = action["records"]
        rows.append([f"`{prefix}<{records['name']}>`", "elements", "none", records["meaning"]])
        rows += settings_of(records, f"{prefix}<{records['name']}> ")
    return rows


def snake_case(name):
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", name).lower()


def case_folder(name):
    for folder in sorted((ROOT / "tests" / "cases").glob("*/*")):
        if folder.is_dir() and folder.name == snake_case(name):
            return folder
    return None


def case_files(name):
    folder = case_folder(name)
    return sorted(folder.glob("*.case")) if folder else []


def is_comparison(cases):
    """Whether the cases of a file show what different settings make of the same tables."""
    inputs = [case.all("in") for case in cases]
    outputs = [len(case.all("out")) for case in cases]
    return len(cases) >= FEWEST_COMPARED and all(i == inputs[0] for i in inputs) and set(outputs) == {1}


def comparison(path):
    """What the settings of a file's cases make of its tables, beside each other."""
    cases = list(read_cases(path))
    about = re.match(r"(?:# .*\n)+", path.read_text(encoding="utf-8"))
    parts = [re.sub(r"^# ", "", about.group(0), flags=re.M).replace("\n", " ").strip()]
    for title, body in cases[0].all("in"):
        parts.append(f"Input pin {title[1]}:\n\n{fenced(body)}")
    rows = []
    for case in cases:
        (_, body), = case.all("out")
        lines = "<br>".join(f"`{line}`" for line in body.split("\n"))
        rows.append([f"`{case.body('element')}`", case.where.split(": ", 1)[1], lines])
    parts.append(table(["Element", "What it is", "Output pin 0"], rows))
    return "\n\n".join(parts)


def shown_cases(name):
    """The first plain case of each case file: one with tables in and out, and no message."""
    chosen = []
    for path in case_files(name):
        cases = list(read_cases(path))
        if is_comparison(cases):
            continue
        for case in cases:
            kinds = [title[0] for title, _ in case.sections]
            rows = max((body.count("\n") for _, body in case.sections), default=0)
            outs = [title for title, _ in case.all("out")]
            readable = all(body.replace("\n", "").isprintable() for _, body in case.sections)
            plain = readable and not case.one_of_many and kinds.count("element") == 1
            plain = plain and not {"log", "fails", "saved"} & set(kinds)
            if plain and "in" in kinds and outs and ["nothing"] not in [o[2:] for o in outs]:
                if rows <= MOST_ROWS:
                    chosen.append(case)
                    break
    return chosen[:MOST_CASES]


def fenced(text, language=""):
    return f"```{language}\n{text}\n```"


def example_text(case):
    sentence = case.where.split(": ", 1)[1]
    parts = [f"### {sentence[0].upper()}{sentence[1:]}"]
    case.sections.sort(key=lambda section: section[0][1:2])
    for title, body in case.sections:
        if title[0] == "in":
            parts.append(f"Input pin {title[1]}:\n\n{fenced(body)}")
    for title, body in case.all("file"):
        parts.append(f"The stored table `{title[1]}`:\n\n{fenced(body)}")
    for title, body in case.all("param"):
        parts.append(f"With the parameter `{' '.join(title[1:])}`.")
    element = case.body("element")
    parts.append(fenced(element, "xml" if element.startswith("<") else ""))
    for title, body in case.all("out"):
        parts.append(f"Output pin {title[1]}:\n\n{fenced(body)}")
    return "\n\n".join(parts)


def pins(count):
    return {0: "none", 1: "pin 0", 2: "pins 0 and 1"}.get(count, f"pins 0 to {count - 1}")


def page(action):
    name = action["name"]
    parts = [f"# {name}", f"{action['description'].rstrip('.')}."]
    parts.append(f"Input: {pins(action['inputPins'])}. Output: {pins(action['outputPins'])}.")
    rows = settings_of(action)
    if rows:
        parts.append(f"## Settings\n\n{table(['Name', 'Kind', 'Default', 'Meaning'], rows)}")
    for path in case_files(name):
        if is_comparison(list(read_cases(path))):
            parts.append(f"## {path.stem.replace('_', ' ').capitalize()}\n\n{comparison(path)}")
    cases = shown_cases(name)
    if cases:
        parts.append("## Examples\n\nTables are typed CSV: `name:TYPE:SORT` (see "
                     "[csv.md](../csv.md)).")
        parts += [example_text(case) for case in cases]
    parts.append(f"On the command line: `velmorra action {name}`.")
    return "\n\n".join(parts) + "\n"


def pages(program):
    answer = subprocess.run([program, "actions", "--json"], check=True, capture_output=True)
    actions = sorted(json.loads(answer.stdout), key=lambda action: action["name"].lower())
    found = {f"{a['name']}.md": page(a) for a in actions}
    rows = [[f"[{a['name']}]({a['name']}.md)", a["description"].rstrip(".")] for a in actions]
    index = table(["Action", "What it does"], rows)
    found["README.md"] = f"# Actions\n\n{index}\n"
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()
    folder = ROOT / "docs" / "actions"
    wanted = pages(str(Path(arguments.program).resolve()))
    stored = {path.name: path.read_bytes().decode() for path in folder.glob("*.md")}
    different = sorted(n for n in {*wanted, *stored} if wanted.get(n) != stored.get(n))
    if arguments.check:
        for name in different:
            print(f"docs/actions/{name} isn't up to date: run tools/reference_pages.py")
        sys.exit(1 if different or not wanted else 0)
    folder.mkdir(parents=True, exist_ok=True)
    for name in different:
        if name in wanted:
            (folder / name).write_bytes(wanted[name].encode())
        else:
            (folder / name).unlink()
    print(f"{len(different)} of {len(wanted)} pages written")


if __name__ == "__main__":
    main()
