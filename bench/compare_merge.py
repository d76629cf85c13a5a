#!/usr/bin/env python3
"""Times Join on sorted tables, from CSV to CSV, beside the joins of DuckDB and Polars, which need no
order, and beside GNU join; peers.py says how.

    bench/compare_merge.py --program build/release/bin/velmorra --peers FOLDER [--rows 5000000]

Both tables have N rows, sorted on a number of nine digits: 0, 2, 4, ... on one side, 0, 3, 6, ... on
the other, and in a third table each of 0, 6, 12, ... three times. Velmorra checks the order as it
reads. Where it sorts first, it sorts both tables, which then come in no order; the others get those
too.
"""

import os
import sys

import compare_sort
import peers

A = {"id": "K", "name": "U", "price": "F"}
B = {"nr": "K", "city": "U", "score": "F"}
LEFT, INNER, FULL, LEFT_ALL = 0, 1, 2, 6
SQL = {LEFT: "LEFT", INNER: "INNER", FULL: "FULL", LEFT_ALL: "LEFT"}
POLARS = {LEFT: "left", INNER: "inner", LEFT_ALL: "left"}
GNU = {LEFT: ["-a1"], INNER: [], FULL: ["-a1", "-a2"], LEFT_ALL: ["-a1"]}
NAMES = {LEFT: "left join, unique keys", INNER: "inner join, unique keys",
         FULL: "full outer join, unique keys", LEFT_ALL: "left join, three rows a key"}


def write_table(out, columns, keys, what):
    out.write(",".join(columns) + "\n")
    for row, key in enumerate(keys):
        out.write(f"{key:09},{what} {row % 99991},{row % 1009}.{row % 9 + 1}\n")


def shuffled(rows):
    """The numbers below `rows` in no order."""
    bits = (rows - 1).bit_length()
    numbers = (compare_sort.shuffled(number, bits) for number in range(1 << bits))
    return (number for number in numbers if number < rows)


def make_tables(folder, rows):
    def table(name, types, keys, what):
        path = folder / f"{name}_{rows}.csv"
        return peers.Table(peers.made_once(path, write_table, types, keys, what), types)

    a = table("a", A, (2 * row for row in range(rows)), "name")
    b = table("b", B, (3 * row for row in range(rows)), "city")
    many = table("many", B, (row // 3 * 6 for row in range(rows)), "city")
    loose_a = table("loose_a", A, (2 * row for row in shuffled(rows)), "name")
    loose_b = table("loose_b", B, (3 * row for row in shuffled(rows)), "city")
    return a, b, many, loose_a, loose_b


def element(mode):
    return f"Join joinMode={mode} keyA=id SlaveKeys=nr"


def sorted_tables(a, b, order="0"):
    return ["--sorted", f"0=id:{order}", "--sorted", f"1=nr:{order}", *a.into(0), *b.into(1)]


def sorting_graph(folder, mode, a, b):
    """A graph that sorts both tables in front of the Join."""
    def reads(box, table):
        types = ",".join(f"{name}:{kind}" for name, kind in table.types.items())
        return f"<ReadCsv id='{box}' file='{table.path}' types='{types}'/>"

    graph = folder / f"sort_and_join_{mode}_{a.path.stem}.vgraph"
    graph.write_text(
        f"<VelmorraGraph version='4.2'><Actions>{reads(1, a)}{reads(2, b)}"
        "<Sort id='3' by='id:0'/><Sort id='4' by='nr:0'/>"
        f"<Join id='5' joinMode='{mode}' keyA='id'><SlaveKeys><s>nr</s></SlaveKeys>"
        "<Prefixes><s/><s/></Prefixes></Join><WriteCsv id='6' file='${out}'/></Actions><Links>"
        "<l from='1' to='3'/><l from='2' to='4'/><l from='3' to='5'/><l from='4' to='5' in='1'/>"
        "<l from='5' to='6'/></Links></VelmorraGraph>", encoding="utf-8")
    return peers.Graph(graph)


def make_cases(folder, rows):
    a, b, many, loose_a, loose_b = make_tables(folder, rows)

    def case(name, mode, words, a, b):
        key = "coalesce(id, nr) AS id" if mode == FULL else "id"
        polars = (f"{a.polars()}.join({b.polars()}, {{leftOn: 'id', rightOn: 'nr', "
                  f"how: '{POLARS[mode]}'}})") if mode in POLARS else ""
        return peers.Case(
            name, words,
            f"SELECT {key}, name, price, city, score FROM {a.duckdb()} "
            f"{SQL[mode]} JOIN {b.duckdb()} ON id = nr", polars)

    cases = []
    for mode, name in NAMES.items():
        other = many if mode == LEFT_ALL else b
        cases.append(case(name, mode, [element(mode), *sorted_tables(a, other)], a, other))
    for mode in (LEFT, FULL):
        cases.append(case(f"{NAMES[mode]}, sorted first", mode,
                          sorting_graph(folder, mode, loose_a, loose_b), loose_a, loose_b))
    return cases


def run_gnu(mode, a, b, out):
    """GNU join on whole lines, in the order of bytes."""
    with open(out, "wb") as file:
        command = ["join", "-t,", "--header", *GNU[mode], "-e", "", "-o", "auto", a.path, b.path]
        return peers.measured(command, env=dict(os.environ, LC_ALL="C"), stdout=file)[0]


def compare_with_gnu(options, folder):
    """All columns as text, in the order of text: what GNU join does. True when results differ."""
    print("\n| As text | velmorra | GNU join | Ratio |\n|---|---|---|---|", flush=True)
    a, b, many, *_ = make_tables(folder, options.rows)
    texts = [peers.Table(table.path, {}) for table in (a, b, many)]
    differ = False
    for mode, name in NAMES.items():
        other = texts[2 if mode == LEFT_ALL else 1]
        words = [element(mode), *sorted_tables(texts[0], other, "A")]
        outs = [folder / f"out_{program}.csv" for program in ("velmorra", "gnu")]
        took = peers.in_turn({
            "velmorra": lambda: peers.run_velmorra(options, words, outs[0]),
            "gnu": lambda: run_gnu(mode, texts[0], other, outs[1])}, options.rounds)
        ours, theirs = took["velmorra"], took["gnu"]
        difference = peers.different_rows(*outs, ordered=True)
        ratio = "–" if ours.failed or theirs.failed else f"{theirs.cpu / ours.cpu:.2f}"
        print(f"| {name} | {peers.told(ours)} | {peers.told(theirs)} | {ratio} |", difference,
              flush=True)
        differ = differ or bool(difference)
    return differ


def main():
    options = peers.argument_parser(__doc__, rows=5_000_000, rounds=3).parse_args()
    with peers.work_folder(options) as folder:
        status = peers.compare(options, folder, make_cases)
        return 1 if compare_with_gnu(options, folder) else status


if __name__ == "__main__":
    sys.exit(main())
