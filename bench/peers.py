#!/usr/bin/env python3
"""Runs velmorra beside DuckDB and Polars, as many threads each, and says what each of them took.

The compare_*.py next to it use it. Their --peers FOLDER is where

    npm install @duckdb/node-api nodejs-polars nodejs-polars-linux-x64-gnu

was run; the last is the compiled part of Polars for this kind of machine, which npm left out when
it wasn't named. Without --peers only velmorra is timed.

A peer is timed by itself from inside its process, so that its interpreter's start doesn't count;
velmorra as a whole process. All take turns within a round, so that what else the machine does falls
on all alike; told are the medians of the rounds. The processor's time is the fairer one on a
machine that does other things too, and the ratios are made of it.
"""

import argparse
import contextlib
import filecmp
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from itertools import zip_longest
from pathlib import Path

NODE_PROGRAM = """
const { peer, settings, code } = JSON.parse(process.argv[1]);
async function duckdb() {
    const { DuckDBInstance } = require('@duckdb/node-api');
    const connection = await (await DuckDBInstance.create(':memory:', settings)).connect();
    return () => connection.run(code);
}
async function polars() {
    const run = new Function('pl', code);
    return run.bind(null, require('nodejs-polars'));
}
(async () => {
    const run = await (peer === 'duckdb' ? duckdb : polars)();
    const start = process.hrtime.bigint();
    const before = process.cpuUsage();
    await run();
    const used = process.cpuUsage(before);
    const seconds = Number(process.hrtime.bigint() - start) / 1e9;
    console.log(seconds, (used.user + used.system) / 1e6);
})().catch(error => { console.error(error.message); process.exit(1); });
"""


@dataclass
class Run:
    """Seconds by the clock and of the processor, and the process's largest memory in MiB. A run
    that failed has only the reason. The memory is never less than this script's own (16 MiB)."""

    seconds: float = 0.0
    cpu: float = 0.0
    peak: float = 0.0
    failed: str = ""


@dataclass
class Table:
    """A CSV file, and the types of its columns by name: K, F or U."""

    path: Path
    types: dict

    def into(self, pin):
        """The words that give velmorra the table on an input pin."""
        types = ",".join(f"{name}:{kind}" for name, kind in self.types.items() if kind != "U")
        return ["--in", f"{pin}={self.path}"] + (["--types", f"{pin}={types}"] if types else [])

    def duckdb(self):
        kinds = {"K": "UINTEGER", "F": "DOUBLE", "U": "VARCHAR"}
        columns = ", ".join(f"'{name}': '{kinds[kind]}'" for name, kind in self.types.items())
        return f"read_csv('{self.path}', header = true, columns = {{{columns}}})"

    def polars(self):
        kinds = {"K": "pl.UInt32", "F": "pl.Float64", "U": "pl.Utf8"}
        types = ", ".join(f"'{name}': {kinds[kind]}" for name, kind in self.types.items())
        return f"pl.readCSV('{self.path}', {{dtypes: {{{types}}}}})"


@dataclass
class Graph:
    """A graph file that velmorra runs where Actions to apply don't say enough; its parameter `out`
    is the file to write."""

    path: Path


@dataclass
class Case:
    """The same work for all of them. `velmorra` are the words behind `velmorra apply`, all but
    --out, or a Graph; `duckdb` is a query and `polars` an expression with `pl` that gives a table,
    each written as CSV. An empty one isn't run. `settings` are DuckDB's own; `ordered` compares the
    rows of the results in their order."""

    name: str
    velmorra: list | Graph
    duckdb: str = ""
    polars: str = ""
    settings: dict = field(default_factory=dict)
    ordered: bool = False


def argument_parser(description, rows, rounds):
    """The options that the compare_*.py share."""
    parser = argparse.ArgumentParser(description=description,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", type=os.path.abspath, default="build/release/bin/velmorra")
    parser.add_argument("--peers", type=Path, help="where DuckDB and Polars were installed")
    parser.add_argument("--work", type=Path, help="keeps the tables, for later runs")
    parser.add_argument("--rows", type=int, default=rows)
    parser.add_argument("--rounds", type=int, default=rounds)
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("--only", default="", help="runs the cases whose names hold this text")
    return parser


@contextlib.contextmanager
def work_folder(options):
    with tempfile.TemporaryDirectory() as temporary:
        yield (options.work or Path(temporary)).absolute()


def made_once(path, write, *arguments):
    """The path of a table that `write(file, *arguments)` makes where it isn't there yet."""
    if not path.exists():
        half = path.with_suffix(".half")
        with half.open("w", encoding="utf-8") as file:
            write(file, *arguments)
        half.rename(path)
    return path


def measured(command, stdout=subprocess.PIPE, **popen):
    """Runs a command to its end; what it took and what it printed, unless `stdout` is a file."""
    start = time.perf_counter()
    with tempfile.TemporaryFile() as errors:
        process = subprocess.Popen(command, stdout=stdout, stderr=errors, **popen)
        printed = process.stdout.read() if process.stdout else b""
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            errors.seek(0)
            return Run(failed=errors.readline().decode(errors="replace").strip()), ""
    return Run(time.perf_counter() - start, usage.ru_utime + usage.ru_stime,
               usage.ru_maxrss / 1024), printed.decode()


def run_velmorra(options, words, out):
    words = ["run", words.path, "--set", f"out={out}"] if isinstance(words, Graph) else [
        "apply", *words, "--out", f"0={out}"]
    return measured([options.program, *map(str, words), "--threads", str(options.threads)])[0]


def run_node(options, peer, code, settings=None):
    task = json.dumps({"peer": peer, "settings": settings or {}, "code": code})
    run, printed = measured(["node", "-e", NODE_PROGRAM, task], cwd=options.peers,
                            env=dict(os.environ, POLARS_MAX_THREADS=str(options.threads)))
    if not run.failed:
        run.seconds, run.cpu = map(float, printed.split()[-2:])
    return run


def run_duckdb(options, query, out, settings=None):
    every = {"threads": str(options.threads), "preserve_insertion_order": "false"}
    return run_node(options, "duckdb", f"COPY ({query}) TO '{out}' (FORMAT csv, HEADER)",
                    every | (settings or {}))


def run_polars(options, expression, out):
    return run_node(options, "polars", f"({expression}).writeCSV({json.dumps(str(out))})")


def in_turn(runs, rounds):
    """Runs each of the named functions once a round; the medians of what they took."""
    done = {name: [] for name in runs}
    for _ in range(rounds):
        for name, run in runs.items():
            done[name].append(run())
    return {name: median(each) for name, each in done.items()}


def median(runs):
    failed = [run for run in runs if run.failed]
    if failed:
        return failed[0]
    return Run(*(statistics.median(getattr(run, part) for run in runs)
                 for part in ("seconds", "cpu", "peak")))


def runs_of(options, case, results):
    """What a case has to run, and the files that are written, by name."""
    outs = {name: results / f"{name}.csv" for name in ("velmorra", "DuckDB", "Polars")}
    runs = {"velmorra": lambda: run_velmorra(options, case.velmorra, outs["velmorra"])}
    if options.peers and case.duckdb:
        runs["DuckDB"] = lambda: run_duckdb(options, case.duckdb, outs["DuckDB"], case.settings)
    if options.peers and case.polars:
        runs["Polars"] = lambda: run_polars(options, case.polars, outs["Polars"])
    return runs, outs


def told(run):
    """A run in the table: the processor's time, the clock's, the memory."""
    if not run:
        return "–"
    if run.failed:
        return "failed"
    return f"{run.cpu:.2f} s ({run.seconds:.2f} s), {run.peak:.0f} MiB"


HEADING = """\
{rows:,} rows, {rounds} rounds, {threads} threads each at most: the medians of the processor's time (of the clock's) and of the
process's largest memory. The ratio is the processor time of the faster peer to velmorra's.

| Case | velmorra | of it with a tenth of the rows | DuckDB | Polars | Ratio |
|---|---|---|---|---|---|"""


def compare(options, folder, make_cases):
    """Runs the cases of `make_cases(folder, rows)` and prints a table in Markdown; the exit status:
    whether all went well and wrote the same rows. Velmorra also runs with a tenth of the rows, for
    its memory."""
    print(HEADING.format(rows=options.rows, rounds=options.rounds, threads=options.threads), flush=True)
    tenths = make_cases(folder, options.rows // 10)
    complaints = []
    with tempfile.TemporaryDirectory(dir=folder) as results:
        for case, tenth in zip(make_cases(folder, options.rows), tenths):
            if options.only in case.name:
                complaints += compare_case(options, Path(results), case, tenth)
    print("", *complaints, sep="\n", end="")
    return 1 if complaints else 0


def compare_case(options, results, case, tenth):
    """Prints a line of the table; what is wrong with the results."""
    small = runs_of(options, tenth, results)[0]["velmorra"]()
    runs, outs = runs_of(options, case, results)
    took = in_turn(runs, options.rounds)
    complaints = [f"{case.name}, {name}: {run.failed}" for name, run in took.items() if run.failed]
    ours = took["velmorra"]
    peers = {name: run for name, run in took.items() if name != "velmorra" and not run.failed}
    ratio = "–"
    if peers and not ours.failed:
        ratio = f"{min(run.cpu for run in peers.values()) / ours.cpu:.2f}"
        for name in peers:
            difference = different_rows(outs["velmorra"], outs[name], case.ordered)
            complaints += [f"{case.name}, {name}: {difference}"] if difference else []
    parts = [ours, small, took.get("DuckDB"), took.get("Polars")]
    print(f"| {case.name} |", *(f"{told(part)} |" for part in parts), f"{ratio} |", flush=True)
    return complaints


def different_rows(one, other, ordered):
    """Where two results differ, else nothing. In a process of its own: what this one takes counts
    as memory of those that it starts."""
    if filecmp.cmp(one, other, shallow=False):
        return ""
    return subprocess.run([sys.executable, __file__, "ordered" if ordered else "any", one, other],
                          capture_output=True, text=True, check=True).stdout.strip()


def rows_of(path):
    """The rows behind the header, written as velmorra writes numbers and nulls."""
    number = re.compile(r"\.0(?=,|$)")
    with open(path, encoding="utf-8") as file:
        next(file, None)
        for line in file:
            yield number.sub("", line.rstrip("\n"))


def tell_difference(order, one, other):
    rows = [rows_of(path) for path in (one, other)]
    if order == "any":
        rows = [iter(sorted(each)) for each in rows]
    for here, there in zip_longest(*rows):
        if here != there:
            print(f"other rows: {str(here)[:200]} against {str(there)[:200]}")
            return


if __name__ == "__main__":
    tell_difference(*sys.argv[1:])
