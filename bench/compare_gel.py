#!/usr/bin/env python3
"""Times stored tables beside CSV with the same rows, and their size beside gzip's.

    bench/compare_gel.py --program build/release/bin/velmorra [--rows N] [--rounds N] [--work FOLDER]

The table is that of compare_csv.py, with its numbers typed. `velmorra convert` runs as a whole
process, in turn for each pair of forms, on one thread and on two.
"""

import gzip
import sys

import compare_csv
import peers


def main():
    options = peers.argument_parser(__doc__, rows=1_000_000, rounds=5).parse_args()
    with peers.work_folder(options) as folder:
        data = peers.made_once(folder / f"rows_{options.rows}.csv", compare_csv.write_rows,
                               options.rows)
        stored, types = folder / "rows.gel", ["--types", compare_csv.TYPES]
        pairs = {"CSV to CSV": [data, folder / "out.csv", *types],
                 "CSV to stored": [data, stored, *types],
                 "stored to CSV": [stored, folder / "out.csv"],
                 "stored to stored": [stored, folder / "out.gel"]}
        runs = {f"{name}, {threads} threads": lambda words=words, threads=threads: peers.measured(
                    [options.program, "convert", *map(str, words), "--threads", str(threads)])[0]
                for threads in (1, 2) for name, words in pairs.items()}
        took = peers.in_turn(runs, options.rounds)
        print("| | processor, clock, memory |", "|---|---|", sep="\n")
        for name, run in took.items():
            print(f"| {name} | {peers.told(run)} |")
        sizes = (data.stat().st_size, len(gzip.compress(data.read_bytes(), 6)), stored.stat().st_size)
        print("\nCSV {:.1f} MB, gzip of it {:.1f} MB, stored {:.1f} MB".format(
            *(size / 1e6 for size in sizes)))
        return 1 if any(run.failed for run in took.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
