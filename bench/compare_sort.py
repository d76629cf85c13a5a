#!/usr/bin/env python3
"""Sorts a CSV file of random rows with velmorra and with DuckDB's ORDER BY, by an integer and by a
text column, without a limit of memory and within one; peers.py says how.

    bench/compare_sort.py --program build/release/bin/velmorra --peers FOLDER [--rows 10000000]
"""

import sys

import peers

LETTERS = str.maketrans("0123456789", "ghijklmnop")
QUERY = ("SELECT * FROM read_csv('{}', header = true, columns = {{'id': 'UINTEGER', "
         "'name': 'VARCHAR', 'price': 'DOUBLE'}}) ORDER BY {}")


def shuffled(number, bits):
    """Another number of as many bits for each number."""
    mask = (1 << bits) - 1
    number = number * 0x9E3779B1 & mask
    number ^= number >> bits // 2
    number = number * 0x85EBCA6B & mask
    return number ^ number >> bits // 2


def write_rows(out, rows):
    """A number without repetition, so that both orders are the only ones, a text of six letters and
    that number, and a price whose two places are always printed."""
    bits = (rows - 1).bit_length()
    out.write("id,name,price\n")
    for row in range(1 << bits):
        number = shuffled(row, bits)
        if number < rows:
            mixed = number * 0xC2B2AE35 >> 3
            letters = f"{mixed & 0xFFFFFF:06x}".translate(LETTERS)
            out.write(f"{number},{letters}{number},{mixed % 10007}.{mixed % 9}{mixed % 7 + 1}\n")


def make_cases(folder, rows, memory):
    data = peers.made_once(folder / f"sort_{rows}.csv", write_rows, rows)
    return [
        peers.Case(
            f"by {column}, {f'{limit} MiB' if limit else 'no limit'}",
            [f"Sort by={column}:{kind} memoryLimit={limit} temporaryFolder={folder}",
             "--types", "id:K,price:F", "--in", data],
            QUERY.format(data, column),
            settings={"temp_directory": str(folder / "duckdb")}
            | ({"memory_limit": f"{limit}MiB"} if limit else {}),
            ordered=True)
        for column, kind in (("id", "0"), ("name", "A")) for limit in (0, memory)
    ]


def main():
    parser = peers.argument_parser(__doc__, rows=10_000_000, rounds=3)
    parser.add_argument("--memory", type=int, default=256, help="MiB of the limited runs")
    options = parser.parse_args()
    with peers.work_folder(options) as folder:
        return peers.compare(options, folder,
                             lambda *where: make_cases(*where, options.memory))


if __name__ == "__main__":
    sys.exit(main())
