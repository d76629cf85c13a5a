#!/usr/bin/env python3
"""Joins whose slave table is larger than the memory, or has keys of a megabyte.

joins_memory_test.py PROGRAM [unittest arguments]"""

import concurrent.futures
import resource
import subprocess
import sys
import unittest
from pathlib import Path

import cli_test

MEBIBYTE = 1 << 20

JOINS = {
    "FilterOnKey": ["slaveKey=k", "mainKeys=k"],
    "InMemoryJoin": ["mainKey=k", "slaveKey=k"],
    "IntervalJoin": ["mainLowKey=x", "slaveLowKey=x", "slaveHighKey=y", "partitionColumnMaster=k",
                     "partitionColumnSlave=k"],
    "MultiJoin": ["<MultiJoin><Join mainKey='k' slaveKey='k'/></MultiJoin>"],
}


def element(name):
    words = JOINS[name]
    return words if words[0].startswith("<") else [name, *words]


class JoinsMemory(cli_test.CommandLineTest):
    def run_join(self, name, slave, mebibytes=None):
        def bound():
            if mebibytes is not None:
                resource.setrlimit(resource.RLIMIT_DATA, (mebibytes * MEBIBYTE,) * 2)
        words = ["apply", *element(name), "--in", "0=main.csv", "--in", f"1={slave}",
                 "--threads", "1"]
        return subprocess.run([cli_test.PROGRAM, *words], cwd=self.folder, text=True,
                              preexec_fn=bound, capture_output=True, timeout=300, check=False)

    def test_a_table_larger_than_the_memory_ends_the_run_with_a_message(self):
        # The sanitizers reserve terabytes for themselves.
        if b"__asan_init" in Path(cli_test.PROGRAM).read_bytes():
            self.skipTest("no memory bound on sanitized programs")
        self.write("main.csv", "k,x\nA,1\n")
        self.write("large.csv", "k,x,y,text\n" + "".join(
            f"{row:060},{row},{row + 1},{row:0200}\n" for row in range(200_000)))
        # Asking again for five seconds is what takes the time.
        with concurrent.futures.ThreadPoolExecutor() as pool:
            runs = list(pool.map(lambda name: self.run_join(name, "large.csv", 48), JOINS))
        for name, result in zip(JOINS, runs):
            with self.subTest(name):
                self.assertEqual((result.returncode, result.stdout),
                                 (99 if name == "MultiJoin" else 1, ""), result.stderr[-500:])
                self.assertIn(f"{name}: Memory Allocation Error", result.stderr)

    def test_keys_of_a_megabyte_are_keys_like_others(self):
        key, other = "k" * MEBIBYTE, "k" * (MEBIBYTE - 1) + "j"
        self.write("main.csv", f"k,x\n{key},1\n{other},1\nk,1\n")
        self.write("slave.csv", f"k,x,y\n{other}j,0,3\n{key},0,2\n")
        for name in JOINS:
            with self.subTest(name):
                result = self.run_join(name, "slave.csv")
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                rows = result.stdout.split("\n")[1:]
                self.assertTrue(rows[0].startswith(f"{key},1"))
                matches = [row for row in rows if row.endswith(",0,2") or name == "FilterOnKey"]
                self.assertEqual(len([row for row in matches if row]), 1)


if __name__ == "__main__":
    cli_test.PROGRAM = str(Path(sys.argv.pop(1)).resolve())
    unittest.main()
