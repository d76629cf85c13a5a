#!/usr/bin/env python3
"""Times reading and writing CSV against DuckDB and Polars; peers.py says how.

    bench/compare_csv.py --program build/release/bin/velmorra --peers FOLDER [--rows N] [--rounds N]

The same copy of the bytes, which is what reading and writing the file costs at least, is told too.
"""

import random
import statistics
import sys
import tempfile
import time

import peers

COLUMNS = ["id", "customer", "code", "price", "weight", "category", "note", "time", "part"]
PICKED = {"code": "c", "price": "p", "category": "k", "note": "n"}
TYPES = "id:K,customer:K,price:F,weight:F,part:K"
WORDS = "café straße naïve window river señor façade blue über forest".split()


def write_rows(out, rows):
    random.seed(42)
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


def make_cases(folder, rows):
    data = peers.made_once(folder / f"rows_{rows}.csv", write_rows, rows)
    columns = ", ".join(f"{old} AS {new}" for old, new in PICKED.items())
    rename = "<ColumnRename><before>{}</before><after>{}</after></ColumnRename>".format(
        *("".join(f"<s>{name}</s>" for name in names) for names in (PICKED, PICKED.values())))
    return [
        peers.Case(
            "four of nine columns, as text, renamed",
            [f"ReadCsv file={data}", "SelectColumns columns=" + ",".join(PICKED), rename],
            f"SELECT {columns} FROM read_csv('{data}', header=true, all_varchar=true)",
            f"pl.readCSV('{data}', {{columns: {list(PICKED)}, inferSchemaLength: 0}})"
            f".select(...{list(PICKED)}).rename({PICKED})",
            ordered=True),
        peers.Case(
            "all columns, numbers typed",
            [f"ReadCsv file={data} types={TYPES}", "SelectColumns keep=0 abort=0 columns=none"],
            f"SELECT * FROM read_csv('{data}', header=true)",
            f"pl.readCSV('{data}')",
            ordered=True),
    ]


def copy_bytes(data, out):
    used = time.process_time()
    with open(data, "rb") as source, open(out, "wb") as target:
        while block := source.read(256 << 10):
            target.write(block)
    return time.process_time() - used


def main():
    options = peers.argument_parser(__doc__, rows=1_000_000, rounds=5).parse_args()
    with peers.work_folder(options) as folder:
        status = peers.compare(options, folder, make_cases)
        data = folder / f"rows_{options.rows}.csv"
        with tempfile.NamedTemporaryFile(dir=folder) as out:
            seconds = statistics.median(copy_bytes(data, out.name)
                                        for _ in range(options.rounds))
        print(f"\nA copy of the {data.stat().st_size / 1e6:.0f} MB: {seconds:.2f} s")
    return status


if __name__ == "__main__":
    sys.exit(main())
