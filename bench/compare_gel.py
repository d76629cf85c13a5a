#!/usr/bin/env python3
"""Times stored tables beside CSV with the same rows, and their size beside gzip's.

    bench/compare_gel.py --program build/release/bin/velmorra [--rows N] [--rounds N] [--work FOLDER]

The table is that of compare_csv.py, with its numbers typed. `velmorra convert` runs as a whole
process, in turn for each pair of forms, on one thread and on two; printed are medians of the time
and of the processor's time. CSV is read and written by one thread in any case.
"""

import argparse
import gzip
import os
import resource
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

import compare_csv


def convert(program, *words):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    begin = time.perf_counter()
    subprocess.run([program, "convert", *map(str, words)], check=True)
    elapsed = time.perf_counter() - begin
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return elapsed, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", default="build/release/bin/velmorra")
    parser.add_argument("--work", type=Path)
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    program = os.path.abspath(arguments.program)
    with tempfile.TemporaryDirectory() as temporary:
        work = arguments.work or Path(temporary)
        data = work / f"rows_{arguments.rows}.csv"
        if not data.exists():
            compare_csv.make_data(data, arguments.rows)
        stored, out = work / "rows.gel", work / "out"
        types = ["--types", compare_csv.TYPES]
        convert(program, data, stored, *types)
        zipped = len(gzip.compress(data.read_bytes(), 6))
        print(f"CSV {data.stat().st_size / 1e6:.1f} MB, gzip {zipped / 1e6:.1f} MB, "
              f"stored {stored.stat().st_size / 1e6:.1f} MB, "
              f"{stored.stat().st_size / zipped:.2f} x gzip")
        runs = {"csv to csv": lambda: convert(program, data, f"{out}.csv", *types)}
        for threads in ("1", "2"):
            pairs = {"csv to gel": [data, f"{out}.gel", *types],
                     "gel to csv": [stored, f"{out}.csv"],
                     "gel to gel": [stored, f"{out}.gel"]}
            for name, words in pairs.items():
                runs[f"{name}, {threads} threads"] = (
                    lambda words=words, threads=threads:
                    convert(program, *words, "--threads", threads))
        times = {name: [] for name in runs}
        for _ in range(arguments.rounds):
            for name, run in runs.items():
                times[name].append(run())
        for name, values in times.items():
            elapsed, used = (statistics.median(part) for part in zip(*values))
            print(f"{name:22} {elapsed:7.3f} s, processor {used:7.3f} s")


if __name__ == "__main__":
    main()
