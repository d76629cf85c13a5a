#!/usr/bin/env python3
"""Times the joins, from CSV to CSV, beside those of DuckDB and Polars; peers.py says how.

    bench/compare_joins.py --program build/release/bin/velmorra --peers FOLDER [--rows N]

The main table has N rows, the others a tenth or a hundredth of that. Rows may come out in any order
from the others; velmorra keeps that of the main table.
"""

import sys

import peers

ORDERS = {"number": "K", "customer": "K", "product": "U", "price": "F", "moment": "F", "note": "U"}


def mixed(number):
    """Another number of 32 bits for each number, in no order."""
    number = number * 0x9E3779B1 & 0xFFFFFFFF
    return (number ^ number >> 15) * 0x85EBCA77 & 0xFFFFFFFF


def product(number):
    return f"P{mixed(number):011}"


def write_orders(out, rows):
    """A tenth of the customers and products are in no other table; the time is between 0 and the
    number of rows."""
    out.write(",".join(ORDERS) + "\n")
    known = rows // 9
    for row in range(rows):
        some = mixed(row + 7)
        out.write(f"{row},{mixed(some % known)},{product(some // 3 % known)},"
                  f"{some % 10007}.{some % 10}{some % 9 + 1},{some % rows}.25,"
                  f"ordered by {('phone', 'letter', 'mail')[some % 3]} {some % 1009}\n")


def write_customers(out, rows):
    out.write("id,name,city,score\n")
    for row in range(rows):
        out.write(f"{mixed(row)},customer {row},city {row % 997},{row % 89}.{row % 9 + 1}\n")


def write_products(out, rows):
    out.write("code,title,shelf\n")
    for row in range(rows):
        out.write(f"{product(row)},title {row},{row % 53}\n")


def write_contacts(out, rows):
    """Three contacts for each customer, far from each other."""
    out.write("id,contact,kind\n")
    for kind in ("home", "work", "mobile"):
        for row in range(rows):
            out.write(f"{mixed(row)},{mixed(row)}-{kind},{kind}\n")


def write_intervals(out, rows, length):
    """Intervals that begin in equal distances, 100 units apart, in no order."""
    out.write("low,high,label\n")
    for row in sorted(range(rows), key=mixed):
        out.write(f"{row * 100}.5,{row * 100 + length}.5,interval {row}\n")


def polars_join(table, left, right, how="left"):
    return f".join({table.polars()}, {{leftOn: '{left}', rightOn: '{right}', how: '{how}'}})"


def make_cases(folder, rows):
    def table(name, types, write, *arguments):
        return peers.Table(peers.made_once(folder / f"{name}_{rows}.csv", write, *arguments), types)

    orders = table("orders", ORDERS, write_orders, rows)
    customers = table("customers", {"id": "K", "name": "U", "city": "U", "score": "F"},
                      write_customers, rows // 10)
    products = table("products", {"code": "U", "title": "U", "shelf": "K"},
                     write_products, rows // 10)
    contacts = table("contacts", {"id": "K", "contact": "U", "kind": "U"},
                     write_contacts, rows // 10)
    interval = {"low": "F", "high": "F", "label": "U"}
    apart = table("apart", interval, write_intervals, rows // 100, 90)
    across = table("across", interval, write_intervals, rows // 100, 290)

    by_customer = "<Join pin='1' mainKey='customer' slaveKey='id'/>"
    by_product = "<Join pin='2' mainKey='product' slaveKey='code'/>"
    with_customers = polars_join(customers, "customer", "id")
    with_products = polars_join(products, "product", "code")
    points = ("IntervalJoin outputRowWhenNoMatch=0 mainLowKey=moment "
              "slaveLowKey=low slaveHighKey=high")
    return [
        peers.Case(
            "`MultiJoin`, integer key",
            [f"<MultiJoin>{by_customer}</MultiJoin>", *orders.into(0), *customers.into(1)],
            f"SELECT o.*, name, city, score FROM {orders.duckdb()} o "
            f"LEFT JOIN {customers.duckdb()} ON customer = id",
            orders.polars() + with_customers),
        peers.Case(
            "`MultiJoin`, integer and text key",
            [f"<MultiJoin nPinIn='3'>{by_customer}{by_product}</MultiJoin>",
             *orders.into(0), *customers.into(1), *products.into(2)],
            f"SELECT o.*, name, city, score, title, shelf FROM {orders.duckdb()} o "
            f"LEFT JOIN {customers.duckdb()} ON customer = id "
            f"LEFT JOIN {products.duckdb()} ON product = code",
            orders.polars() + with_customers + with_products),
        peers.Case(
            "`InMemoryJoin`, three duplicates a key",
            ["InMemoryJoin mainKey=customer slaveKey=id", *orders.into(0), *contacts.into(1)],
            f"SELECT o.*, contact, kind FROM {orders.duckdb()} o "
            f"LEFT JOIN {contacts.duckdb()} ON customer = id",
            orders.polars() + polars_join(contacts, "customer", "id")),
        peers.Case(
            "`FilterOnKey`",
            ["<FilterOnKey slaveKey='id'><s>customer</s></FilterOnKey>",
             *orders.into(0), *customers.into(1)],
            f"SELECT * FROM {orders.duckdb()} "
            f"WHERE customer IN (SELECT id FROM {customers.duckdb()})",
            orders.polars() + polars_join(customers, "customer", "id", "semi")),
        peers.Case(
            "`IntervalJoin`, points in disjoint intervals",
            [points, *orders.into(0), *apart.into(1)],
            f"SELECT * FROM {orders.duckdb()} ASOF JOIN {apart.duckdb()} ON moment >= low "
            "WHERE moment < high",
            f"{orders.polars()}.sort('moment').joinAsof({apart.polars()}.sort('low'), "
            "{leftOn: 'moment', rightOn: 'low', strategy: 'backward', coalesce: false})"
            ".filter(pl.col('moment').lt(pl.col('high')))"),
        peers.Case(
            "`IntervalJoin`, points in overlapping intervals",
            [points, *orders.into(0), *across.into(1)],
            f"SELECT * FROM {orders.duckdb()} JOIN {across.duckdb()} "
            "ON moment >= low AND moment < high"),
    ]


def main():
    options = peers.argument_parser(__doc__, rows=1_000_000, rounds=3).parse_args()
    with peers.work_folder(options) as folder:
        return peers.compare(options, folder, make_cases)


if __name__ == "__main__":
    sys.exit(main())
