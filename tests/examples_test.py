#!/usr/bin/env python3
"""Runs every example graph through the real program, with one thread and with several, and compares
what it writes with examples/expected. With --update the stored tables become what the program
writes."""

import argparse
import difflib
import itertools
import subprocess
import sys
import tempfile
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parent.parent / "examples"
EXPECTED = EXAMPLES / "expected"
THREADS = (1, 4)


def run_graph(program, graph, out, threads):
    """Runs a graph with its outputs in `out`; what it said when it failed, else nothing."""
    run = subprocess.run(
        [program, "run", str(graph), "--set", f"out={out}", "--threads", str(threads)],
        capture_output=True, text=True, timeout=120,
    )
    if run.returncode != 0:
        return [f"exit status {run.returncode}", run.stdout + run.stderr]
    if run.stdout:
        return ["wrote to standard output:", run.stdout]
    return []


def tables_in(program, folder):
    """The written files by name; stored tables as typed CSV."""
    return {path.name + ".csv" if path.suffix == ".gel" else path.name:
            subprocess.run([program, "cat", "--typed", path], capture_output=True, check=True).stdout
            if path.suffix == ".gel" else path.read_bytes()
            for path in Path(folder).iterdir()}


def difference(name, expected, written):
    """The first rows in which two tables differ; nothing where they are the same."""
    if expected == written:
        return []
    if expected is None:
        return [f"expected/{name} is missing (--update makes it)"]
    rows = [table.decode(errors="replace").split("\n") for table in (expected, written)]
    diff = difflib.unified_diff(*rows, f"expected/{name}", "written", lineterm="", n=1)
    return [line for line, _ in zip(diff, range(20))]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, help="the velmorra program")
    parser.add_argument("--update", action="store_true", help="store what the program writes")
    options = parser.parse_args()

    graphs = sorted(EXAMPLES.glob("*.vgraph"))
    failed = []
    outputs = set()
    for graph, threads in itertools.product(graphs, THREADS):
        with tempfile.TemporaryDirectory() as out:
            problems = run_graph(options.program, graph, out, threads)
            written = tables_in(options.program, out)
        outputs |= written.keys()
        if not problems and not any(name.startswith(graph.stem) for name in written):
            problems.append(f"wrote no table of its own name: {sorted(written)}")
        for name, table in sorted(written.items()):
            stored = EXPECTED / name
            if options.update and not problems:
                stored.write_bytes(table)
            expected = stored.read_bytes() if stored.exists() else None
            problems += difference(name, expected, table)
        if problems or threads == THREADS[-1]:
            print(f"{graph.name}: {'FAILED' if problems else 'as expected'}")
        if problems:
            print("\n".join(problems))
            failed.append(graph.name)

    for stored in sorted(EXPECTED.iterdir()):
        if stored.name not in outputs:
            print(f"expected/{stored.name}: no example graph writes it")
            failed.append(stored.name)
    if not graphs:
        print("there are no example graphs")
    return 1 if failed or not graphs else 0


if __name__ == "__main__":
    sys.exit(main())
