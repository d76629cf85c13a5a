#!/usr/bin/env python3
"""Table shaping through the program: endless rows, many pins, and inputs that ask for too much.

shaping_test.py PROGRAM [unittest arguments]"""

import os
import resource
import subprocess
import sys
import unittest
from pathlib import Path

import cli_test

MEBIBYTE = 1 << 20


class Shaping(cli_test.CommandLineTest):
    def velmorra(self, *words, stdin="", mebibytes=None):
        """Runs the program, with a bound on its memory where one is given."""
        def bound():
            # The sanitizers reserve terabytes for themselves.
            if mebibytes is not None and b"__asan_init" not in Path(cli_test.PROGRAM).read_bytes():
                resource.setrlimit(resource.RLIMIT_DATA, (mebibytes * MEBIBYTE,) * 2)
        return subprocess.run([cli_test.PROGRAM, *words], cwd=self.folder, input=stdin, text=True,
                              preexec_fn=bound, capture_output=True, timeout=120, check=False)

    def answers(self, expected, *words, **options):
        result = self.velmorra(*words, **options)
        self.assertEqual((result.returncode, result.stderr, result.stdout), (0, "", expected))

    def refuses(self, status, text, *words, **options):
        result = self.velmorra(*words, **options)
        self.assertEqual((result.returncode, result.stdout), (status, ""), result.stderr[-500:])
        self.assertIn(text, result.stderr)


class Endless(Shaping):
    def test_a_run_ends_when_its_only_sink_has_enough(self):
        self.answers("Key:U:01\n7\n8\n9\n", "apply", "InsertKey isInfinite=1 keyType=0 startCount=7",
                     "SelectColumns columns=Key", "--typed", "--limit", "3")

    def test_a_graph_ends_when_every_sink_has_enough(self):
        self.write("endless.vgraph", """<VelmorraGraph><Actions>
            <InsertKey id='1' isInfinite='1'><c name='k' value='x'/></InsertKey>
            <WriteCsv id='2' file=':/two.csv' limit='2'/>
            <Append id='3' output='5' nPinIn='3'><s>Key</s></Append>
            <WriteCsv id='4' file=':/five.csv' limit='5'/>
            </Actions><Links><l from='1' to='2'/><l from='1' to='3' in='0'/>
            <l from='1' to='3' in='2'/><l from='3' to='4'/></Links></VelmorraGraph>""")
        self.answers("", "run", "endless.vgraph")
        self.assertEqual(self.read("two.csv"), "Key,k\n0,x\n1,x\n")
        self.assertEqual(self.read("five.csv"), "Key\n0\n0\n1\n1\n2\n")
        for box, rows in (("1", "Key,k\n0,x\n1,x\n2,x\n"), ("3", "Key\n0\n0\n1\n")):
            self.answers(rows, "preview", "endless.vgraph", box, "-n", "3")

    def test_pins_that_list_names_may_not_be_endless(self):
        graph = """<VelmorraGraph><Actions>
            <ReadCsv id='1' file=':/in.csv'/>
            <InsertKey id='2' isInfinite='1' keyType='0'/>
            %s<WriteCsv id='4' file=':/out.csv'/></Actions>
            <Links><l from='1' to='3'/><l from='2' to='3' in='1'/><l from='3' to='4'/></Links>
            </VelmorraGraph>"""
        self.write("in.csv", "c\na\n")
        for box, text in (("<Flatten id='3' category='c'/>", "a table has at most 1048576"),
                          ("<Unflatten id='3'/>", "Table on pin 1 has more than 1048576 rows")):
            self.write("g.vgraph", graph % box)
            self.refuses(1, text, "run", "g.vgraph", mebibytes=1024)


class ManyPins(Shaping):
    def test_as_many_tables_as_there_are_pins(self):
        words = []
        for i in range(12):
            self.write(f"{i}.csv", f"a\n{i}\n")
            words += ["--in", f"{i}={i}.csv"]
        self.answers("a\n" + "".join(f"{i}\n" for i in range(12)), "apply",
                     "Append nPinIn=12 output=0", *words)

    def test_pins_beyond_measure_are_refused(self):
        self.refuses(3, "2000000000 input pins; at most 1048576", "apply",
                            "Append nPinIn=2000000000", stdin="a\n1\n", mebibytes=512)


class TooMuch(Shaping):
    def test_a_cell_of_a_million_separators_in_the_first_row(self):
        self.refuses(1, "1200002 columns would come out; a table has at most 1048576",
                            "apply", "Split sep=; columns=a", stdin="a\n" + ";" * 1200000 + "\n",
                            mebibytes=512)

    def test_a_cell_of_a_million_separators_in_a_later_row(self):
        self.answers('a_S0,a_S1\nx,y\n"",""\n', "apply", "Split sep=; columns=a",
                     "SelectColumns columns=a_S0,a_S1",
                     stdin="a\nx;y\n" + ";" * 1000000 + "\n", mebibytes=512)

    def test_a_group_of_many_rows_holds_one_of_them(self):
        rows = "".join("1,a,%s\n" % ("x" * (i % 1000)) for i in range(100000))
        self.write("rows.csv", "k,c,v\n" + rows)
        self.write("categories.csv", "c\na\n")
        self.answers("k,a_v\n1," + "x" * 999 + "\n", "apply",
                     "Flatten key=k category=c checkSort=0 ToTranspose=v", "--in", "0=rows.csv",
                     "--in", "1=categories.csv", mebibytes=192)


if __name__ == "__main__":
    cli_test.PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
