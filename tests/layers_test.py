#!/usr/bin/env python3
"""Checks what the tree may hold: which folder includes which, and words that don't belong in it."""

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

PLUGIN = {"host", "plugin", "rows", "actions", "input", "forms"}

# Folder of a source -> the folders that it may include from.
LAYERS = {
    "host": {"host"},
    "plugin": PLUGIN,
    "rows": PLUGIN,
    "actions": PLUGIN,
    "input": PLUGIN,
    "forms": PLUGIN,
    "engine": {"engine", "host"},
    "apps": {"apps", "engine", "host"},
    "bench": {"bench", "engine", "host", "rows"},
}

# Folders that use QtCore only, but for the sources and headers named (without ending), and those
# that include one of these headers are of the same kind.
CORE_ONLY = {"host", "engine", "rows"}
WITH_WIDGETS = {"host/update_class_widget", "host/icons"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]', re.MULTILINE)

# In pieces, so that this file doesn't hold what it looks for.
WORDS = re.compile(
    r"\b(spec" r"\.md|spec" r"ification|the" r" spec|Parts?" r" [0-9]+\.[0-9]+|seed" r" document)\b",
    re.IGNORECASE,
)


def tracked_files():
    """Files under version control or about to be; all files where this is no working copy."""
    listed = subprocess.run(
        ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        capture_output=True,
    )
    if listed.returncode == 0:
        paths = [Path(name) for name in listed.stdout.decode().split("\0") if name]
    else:
        paths = [path.relative_to(ROOT) for path in ROOT.rglob("*") if "build" not in path.parts]
    return [path for path in paths if (ROOT / path).is_file()]


def text_of(path):
    """The text of a file; null for one that isn't text."""
    try:
        text = (ROOT / path).read_text(encoding="utf-8")
    except UnicodeDecodeError:
        return None
    return None if "\0" in text else text


def include_problems(path, text):
    """Includes of one source that cross a layer, each as 'line: what is wrong'."""
    folder = path.parts[0]
    core_only = folder in CORE_ONLY and str(path.with_suffix("")) not in WITH_WIDGETS
    for match in INCLUDE.finditer(text):
        quote, name = match.groups()
        line = text.count("\n", 0, match.start()) + 1
        if quote == '"':
            if name.endswith(".moc") or name.startswith(("moc_", "ui_")):
                continue
            if (ROOT / path.parent / name).is_file():
                name = str(path.parent / name)
            if not (ROOT / name).is_file():
                yield line, f"'{name}' is neither in this folder nor a path from the root"
            elif name.split("/")[0] not in LAYERS[folder]:
                yield line, f"{folder}/ may not include '{name}'"
            elif core_only and str(Path(name).with_suffix("")) in WITH_WIDGETS:
                yield line, f"'{name}' needs QtWidgets; {folder}/ uses QtCore only"
        elif re.match(r"Q[A-Z]", name):
            yield line, f"<{name}> lacks its module, as in <QtCore/{name}>"
        elif re.match(r"Qt[A-Z]\w*/", name) and core_only and not name.startswith("QtCore/"):
            yield line, f"<{name}>: {folder}/ uses QtCore only"


def main():
    problems = []
    sources = 0
    for path in tracked_files():
        text = text_of(path)
        if text is None:
            continue
        if path.suffix in (".h", ".cpp") and path.parts[0] in LAYERS:
            sources += 1
            problems += [f"{path}:{line}: {what}" for line, what in include_problems(path, text)]
        if path.suffix != ".svg":
            for number, line in enumerate(text.splitlines(), 1):
                if found := WORDS.search(line):
                    problems.append(f"{path}:{number}: '{found.group()}' doesn't belong here")
    if sources == 0:
        problems.append("found no source to check")
    print("\n".join(problems + [f"{sources} sources checked, {len(problems)} problems"]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
