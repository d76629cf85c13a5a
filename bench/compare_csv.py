#!/usr/bin/env python3
"""Times reading and writing CSV against DuckDB and Polars, as many threads each, in one run.

    bench/compare_csv.py --program build/release/bin/velmorra --peers FOLDER [--rows N] [--rounds N]
                         [--threads N]

FOLDER is where `npm install @duckdb/node-api nodejs-polars` was run; without --peers only velmorra
is timed. The data is made once, always the same, beside the results in --work (default: a temporary
folder). A peer is timed by itself from inside its process, so that its interpreter's start doesn't
count; velmorra as a whole process. Printed are the medians of the time and of the processor's time,
which is the fairer one on a machine that does other things too, and its ratio to velmorra's.
"""

import argparse
import os
import random
import resource
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

COLUMNS = ["id", "customer", "code", "price", "weight", "category", "note", "time", "part"]
PICKED = ["code", "price", "category", "note"]
TYPES = "id:K,customer:K,price:F,weight:F,part:K"
WORDS = "café straße naïve window river señor façade blue über forest".split()

PEER = """
const [peer, task, input, output, threads] = process.argv.slice(1);
async function duckdb() {
  const { DuckDBInstance } = require('@duckdb/node-api');
  const db = await (await DuckDBInstance.create(':memory:', { threads })).connect();
  const all = task === 'pick' ? ", all_varchar=true" : "";
  const what = task === 'pick'
    ? "code AS c, price AS p, category AS k, note AS n" : "*";
  const begin = [process.hrtime.bigint(), process.cpuUsage()];
  await db.run(`COPY (SELECT ${what} FROM read_csv('${input}', header=true${all})) ` +
               `TO '${output}' (FORMAT csv, HEADER)`);
  return begin;
}
async function polars() {
  const pl = require('nodejs-polars');
  const begin = [process.hrtime.bigint(), process.cpuUsage()];
  const options = task === 'pick'
    ? { columns: ['code', 'price', 'category', 'note'], inferSchemaLength: 0 } : {};
  let table = pl.readCSV(input, options);
  if (task === 'pick')
    table = table.select('code', 'price', 'category', 'note')
                 .rename({ code: 'c', price: 'p', category: 'k', note: 'n' });
  table.writeCSV(output);
  return begin;
}
(peer === 'duckdb' ? duckdb : polars)().then(begin => {
  const used = process.cpuUsage(begin[1]);
  console.log(Number(process.hrtime.bigint() - begin[0]) / 1e9, (used.user + used.system) / 1e6);
});
"""


def make_data(path, rows):
    random.seed(42)
    with path.open("w", encoding="utf-8") as out:
        out.write(",".join(COLUMNS) + "\n")
        for row in range(rows):
            note = " ".join(random.choices(WORDS, k=8))[:40].strip()
            out.write(
                f"{row},{random.randrange(100000)},C{random.randrange(10**7, 10**8)},"
                f"{random.randrange(10, 100000) / 100},{random.random() * 100:.4f},"
                f"{random.choice(('red', 'green', 'blue', 'none'))},{note},"
                f"2024-{random.randrange(1, 13):02}-{random.randrange(1, 29):02} "
                f"12:{random.randrange(60):02}:00,{row // 50000}\n"
            )


def run_velmorra(program, task, data, out, threads):
    if task == "pick":
        words = [f"ReadCsv file={data}", "SelectColumns columns=" + ",".join(PICKED),
                 "<ColumnRename><before>" + "".join(f"<s>{c}</s>" for c in PICKED) +
                 "</before><after><s>c</s><s>p</s><s>k</s><s>n</s></after></ColumnRename>"]
    else:
        words = [f"ReadCsv file={data} types={TYPES}", "SelectColumns keep=0 abort=0 columns=none"]
    words.append(f"WriteCsv file={out}")
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    begin = time.perf_counter()
    subprocess.run([program, "apply", "--threads", str(threads), *words], check=True,
                   stderr=subprocess.DEVNULL)
    elapsed = time.perf_counter() - begin
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return elapsed, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def run_peer(folder, peer, task, data, out, threads):
    environment = dict(os.environ, POLARS_MAX_THREADS=str(threads))
    words = [peer, task, str(data), str(out), str(threads)]
    done = subprocess.run(["node", "-e", PEER, "--", *words], cwd=folder, env=environment,
                          check=True, capture_output=True, text=True)
    return tuple(map(float, done.stdout.strip().splitlines()[-1].split()))


def floor(data, out):
    """A copy of the bytes: what reading and writing the file costs at least."""
    begin, used = time.perf_counter(), time.process_time()
    with open(data, "rb") as source, open(out, "wb") as target:
        while block := source.read(256 << 10):
            target.write(block)
    return time.perf_counter() - begin, time.process_time() - used


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", default="build/release/bin/velmorra")
    parser.add_argument("--peers", type=Path)
    parser.add_argument("--work", type=Path)
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--threads", type=int, default=1)
    arguments = parser.parse_args()
    threads = arguments.threads
    with tempfile.TemporaryDirectory() as temporary:
        work = arguments.work or Path(temporary)
        data = work / f"rows_{arguments.rows}.csv"
        if not data.exists():
            make_data(data, arguments.rows)
        program = os.path.abspath(arguments.program)
        print(f"{data.stat().st_size / 1e6:.0f} MB, median of {arguments.rounds} rounds")
        for task in ("pick", "all"):
            runs = {"copy": lambda: floor(data, work / "copy.csv"),
                    "velmorra": lambda: run_velmorra(program, task, data, work / "velmorra.csv",
                                                     threads)}
            if threads > 1:
                runs["one thread"] = lambda: run_velmorra(program, task, data, work / "one.csv", 1)
            for peer in ("duckdb", "polars") if arguments.peers else ():
                runs[peer] = lambda peer=peer: run_peer(arguments.peers, peer, task, data,
                                                        work / f"{peer}.csv", threads)
            times = {name: [] for name in runs}
            # In turn, so that what else the machine does falls on all alike.
            for _ in range(arguments.rounds):
                for name, run in runs.items():
                    times[name].append(run())
            medians = {name: [statistics.median(part) for part in zip(*values)]
                       for name, values in times.items()}
            for name, (elapsed, used) in medians.items():
                print(f"{task:5} {name:10} {elapsed:7.3f} s, processor {used:7.3f} s, "
                      f"{used / medians['velmorra'][1]:5.2f} x velmorra's")
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    if not arguments.peers:
        print(f"largest memory of a run: {peak / 1024:.0f} MB")


if __name__ == "__main__":
    main()
