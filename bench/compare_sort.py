#!/usr/bin/env python3
"""Sorts a CSV file of random rows with velmorra and with DuckDB's ORDER BY, each on one thread, by
an integer and by a text column, without a limit of memory and within one, and compares what both
wrote.

    bench/compare_sort.py --program build/release/bin/velmorra [--rows 10000000] [--folder DIR]

DuckDB comes through npm (`npm install @duckdb/node-api` in DIR). Its time is that of its query
alone, without the interpreter's start; velmorra's is that of the whole process. The time of the
processor is told beside the elapsed one, for machines on which other things run.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

RUN = """
const { DuckDBInstance } = require('@duckdb/node-api');
(async () => {
    const { memory, folder, query } = JSON.parse(process.argv[1]);
    const settings = { threads: '1', temp_directory: folder, preserve_insertion_order: 'false' };
    if (memory) settings.memory_limit = memory + 'MiB';
    const connection = await (await DuckDBInstance.create(':memory:', settings)).connect();
    const start = process.hrtime.bigint();
    const before = process.cpuUsage();
    await connection.run(query);
    const seconds = Number(process.hrtime.bigint() - start) / 1e9;
    const used = process.cpuUsage(before);
    console.log(JSON.stringify([seconds, (used.user + used.system) / 1e6]));
})().catch(error => { console.error(error.message); process.exit(1); });
"""

# A number without repetition, so that both orders are the only ones, a text of six random letters
# and that number, and a price.
TABLE = """
COPY (
    SELECT i AS id,
           translate(substr(md5(i::VARCHAR), 1, 6), '0123456789', 'ghijklmnop') || i AS name,
           (hash(i + 1) % 1000000) / 100 AS price
    FROM range({rows}) rows(i) ORDER BY hash(i)
) TO '{target}' (HEADER)
"""

QUERY = """
COPY (
    SELECT * FROM read_csv('{source}', header = true,
        columns = {{'id': 'UINTEGER', 'name': 'VARCHAR', 'price': 'DOUBLE'}})
    ORDER BY {column}
) TO '{target}' (HEADER)
"""


def run_measured(command):
    """What a process took and what it printed, or what it said when it failed."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    out, errors = process.stdout.read(), process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        return {"failed": errors.strip()[:200]}
    return {"seconds": time.monotonic() - start, "cpu": usage.ru_utime + usage.ru_stime,
            "peak": usage.ru_maxrss / 1024, "out": out}


def run_duckdb(options, query, memory=None):
    task = {"memory": memory, "folder": str(Path(options.folder) / "duckdb"), "query": query}
    os.environ["NODE_PATH"] = str(Path(options.folder) / "node_modules")
    run = run_measured(["node", "-e", RUN, json.dumps(task)])
    if "out" in run:
        run["seconds"], run["cpu"] = json.loads(run["out"])
    return run


def sort_by_velmorra(options, source, target, order, memory):
    sort = f"Sort by={order} memoryLimit={memory or 0} temporaryFolder={options.folder}"
    return run_measured([options.program, "apply", sort, "--types", "id:K,price:F",
                         "--in", str(source), "--out", str(target)])


def sort_by_duckdb(options, source, target, order, memory):
    column = order.split(":")[0]
    return run_duckdb(options, QUERY.format(source=source, target=target, column=column), memory)


def same_first_columns(one, other):
    """Whether both tables have the same ids and names, row by row; prices print differently."""
    with open(one, encoding="utf-8") as a, open(other, encoding="utf-8") as b:
        return all(x.rsplit(",", 1)[0] == y.rsplit(",", 1)[0] for x, y in zip(a, b, strict=True))


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True, help="the velmorra program")
    parser.add_argument("--rows", type=int, default=10_000_000)
    parser.add_argument("--folder", default=tempfile.gettempdir(),
                        help="holds the tables, and node_modules with DuckDB")
    parser.add_argument("--memory", type=int, default=256, help="MiB of the limited runs")
    parser.add_argument("--repeat", type=int, default=3)
    options = parser.parse_args()

    folder = Path(options.folder)
    source = folder / f"compare_sort_{options.rows}.csv"
    if not source.exists():
        made = run_duckdb(options, TABLE.format(rows=options.rows, target=source))
        if "failed" in made:
            sys.exit(f"the table can't be made: {made['failed']}")
    targets = [folder / "compare_sort_velmorra.csv", folder / "compare_sort_duckdb.csv"]
    print(f"{options.rows} rows, {source.stat().st_size / 1e6:.0f} MB; best of {options.repeat}")
    different = False
    for order in ("id:0", "name:A"):
        for memory in (None, options.memory):
            print(f"by {order}, {'no limit' if memory is None else f'{memory} MiB'}")
            best = []
            for sort, target in zip((sort_by_velmorra, sort_by_duckdb), targets):
                runs = [sort(options, source, target, order, memory)
                        for _ in range(options.repeat)]
                done = [run for run in runs if "cpu" in run]
                name = sort.__name__.removeprefix("sort_by_")
                if not done:
                    print(f"  {name}: failed: {runs[0]['failed']}")
                    continue
                best.append(min(done, key=lambda run: run["cpu"]))
                seconds, cpu, peak = (best[-1][key] for key in ("seconds", "cpu", "peak"))
                print(f"  {name:9}{seconds:7.2f} s, {cpu:6.2f} s of the processor, "
                      f"{peak:5.0f} MiB")
            if len(best) == 2:
                ratio = best[1]["cpu"] / best[0]["cpu"]
                same = same_first_columns(*targets)
                print(f"  {ratio:.2f} times as fast{'' if same else '; THE TABLES DIFFER'}")
                different = different or not same
    for target in targets:
        target.unlink(missing_ok=True)
    return 1 if different else 0


if __name__ == "__main__":
    sys.exit(main())
