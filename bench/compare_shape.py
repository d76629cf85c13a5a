#!/usr/bin/env python3
"""Times what shapes tables, from CSV to CSV, beside DuckDB and Polars; peers.py says how.

    bench/compare_shape.py --program build/release/bin/velmorra --peers FOLDER [--rows N]

N rows come in, or out where rows are made of columns.
"""

import json
import sys

import peers

COLUMNS = {"id": "K", "code": "U", "price": "F", "kind": "U", "note": "U", "day": "U"}
OTHER_ORDER = ["note", "day", "id", "price", "code", "kind"]
CATEGORIES = [f"category {number}" for number in range(20)]
WORDS = "window río señor façade bluish forest bridge garden mirror harbour".split()
PIECES = 6


def mixed(number):
    """Another number of 32 bits for each number, in no order."""
    number = number * 0x9E3779B1 & 0xFFFFFFFF
    return (number ^ number >> 15) * 0x85EBCA77 & 0xFFFFFFFF


def price(some):
    return f"{some % 10007}.{some % 10}{some % 9 + 1}"


def write_part(out, rows, names):
    """Notes of 40 characters at most, in 5 or 6 words."""
    out.write(",".join(names) + "\n")
    for row in range(rows):
        some = mixed(row)
        note = " ".join(WORDS[some // 10**place % 10] for place in range(5 + some % 2))
        cells = {"id": row, "code": f"C{some:010}", "price": price(some),
                 "kind": ("red", "green", "blue")[some % 3], "note": note[:40].rstrip(),
                 "day": f"2024-{some % 12 + 1:02}-{some % 28 + 1:02}"}
        out.write(",".join(str(cells[name]) for name in names) + "\n")


def write_names(out):
    out.write("name\n" + "".join(f"{name}\n" for name in CATEGORIES))


def write_long(out, rows, groups):
    """Rows sorted by key; a category in twenty is missing where groups are small."""
    out.write("key,category,value\n")
    in_group = rows // groups
    for row in range(rows):
        if in_group > len(CATEGORIES) or mixed(row) % 20 > 0:
            out.write(f"{row // in_group},{CATEGORIES[row % 20]},{price(mixed(row + 1))}\n")


def write_wide(out, rows):
    out.write("key," + ",".join(CATEGORIES) + "\n")
    for row in range(rows):
        cells = [mixed(row * 20 + place) for place in range(20)]
        out.write(f"{row}," + ",".join(price(some) if some % 20 else "" for some in cells) + "\n")


def append_cases(folder, rows):
    def parts(names):
        types = {name: COLUMNS[name] for name in names}
        path = folder / f"{names[0]}_{rows // 3}.csv"
        return peers.Table(peers.made_once(path, write_part, rows // 3, names), types)

    first, other = parts(list(COLUMNS)), parts(OTHER_ORDER)
    in_order = f".select(...{list(COLUMNS)})"
    into = [word for pin in (0, 1, 2) for word in first.into(pin)]
    into_by_name = first.into(0) + other.into(1) + first.into(2)
    return [
        peers.Case(
            "`Append`, three tables by name",
            ["Append output=0 nPinIn=3", *into_by_name],
            " UNION ALL BY NAME ".join(f"SELECT * FROM {table.duckdb()}"
                                       for table in (first, other, first)),
            f"pl.concat([{first.polars()}, {other.polars()}{in_order}, {first.polars()}])"),
        peers.Case(
            "`Append`, three tables by position",
            ["Append output=4 nPinIn=3", *into],
            " UNION ALL ".join([f"SELECT * FROM {first.duckdb()}"] * 3),
            f"pl.concat([{', '.join([first.polars()] * 3)}])"),
    ]


def split_case(folder, rows):
    table = peers.Table(peers.made_once(folder / f"id_{rows}.csv", write_part, rows,
                                        list(COLUMNS)), COLUMNS)
    pieces = ", ".join(f"pieces[{place + 1}] AS note_S{place}" for place in range(PIECES))
    polars = ", ".join(f"pl.col('pieces').lst.get({place}).as('note_S{place}')"
                       for place in range(PIECES))
    return peers.Case(
        "`Split`, 40 characters on blanks",
        [f"Split fixed=1 number={PIECES} columns=note", *table.into(0)],
        f"SELECT * EXCLUDE pieces, {pieces} FROM "
        f"(SELECT *, string_split(note, ' ') AS pieces FROM {table.duckdb()})",
        f"{table.polars()}.withColumns(pl.col('note').str.split(' ').as('pieces'))"
        f".withColumns({polars}).drop('pieces')")


def flatten_case(name, folder, rows, groups):
    types = {"key": "K", "category": "U", "value": "F"}
    table = peers.Table(peers.made_once(folder / f"long_{rows}_{groups}.csv", write_long, rows,
                                        groups), types)
    names = peers.Table(peers.made_once(folder / "names.csv", write_names), {"name": "U"})
    listed = ", ".join(f"'{name}'" for name in CATEGORIES)
    return peers.Case(
        name,
        ["<Flatten key='key' category='category' alternativeNaming='2'>"
         "<ToTranspose><s>value</s></ToTranspose></Flatten>",
         *table.into(0), "--sorted", "0=key:0", *names.into(1)],
        f"SELECT * FROM (PIVOT {table.duckdb()} ON category IN ({listed}) USING last(value) "
        "GROUP BY key)",
        f"{table.polars()}.pivot('value', {{index: 'key', on: 'category', aggregateFunc: 'last'}})"
        f".select('key', ...{json.dumps(CATEGORIES)})")


def unflatten_case(folder, rows):
    table = peers.Table(peers.made_once(folder / f"wide_{rows // 20}.csv", write_wide, rows // 20),
                        {"key": "K"} | {name: "F" for name in CATEGORIES})
    names = peers.Table(peers.made_once(folder / "names.csv", write_names), {"name": "U"})
    listed = ", ".join(f'"{name}"' for name in CATEGORIES)
    return peers.Case(
        "`Unflatten`, 20 columns",
        ["<Unflatten skipNulls='1' checkSort='0' setColumnName='category' newNames='value'>"
         "<common><s>key</s></common></Unflatten>", *table.into(0), *names.into(1)],
        f"SELECT value, category, key FROM (UNPIVOT {table.duckdb()} ON {listed} "
        "INTO NAME category VALUE value)",
        f"{table.polars()}.unpivot('key', {json.dumps(CATEGORIES)}, "
        "{variableName: 'category', valueName: 'value'}).dropNulls()"
        ".select('value', 'category', 'key')")


def make_cases(folder, rows):
    return [
        *append_cases(folder, rows),
        split_case(folder, rows),
        flatten_case("`Flatten`, 20 categories", folder, rows, rows // 20),
        flatten_case("`Flatten`, 20 categories, one group", folder, rows, 1),
        unflatten_case(folder, rows),
    ]


def main():
    options = peers.argument_parser(__doc__, rows=1_000_000, rounds=3).parse_args()
    with peers.work_folder(options) as folder:
        return peers.compare(options, folder, make_cases)


if __name__ == "__main__":
    sys.exit(main())
