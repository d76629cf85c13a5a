#!/usr/bin/env python3
"""Table shaping through the program: endless rows, many pins, and inputs that ask for too much.

shaping_test.py PROGRAM [unittest arguments]"""

import resource
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM = ""
MEBIBYTE = 1 << 20


class Shaping(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)

    def write(self, name, text):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        return path.name

    def velmorra(self, *words, stdin="", mebibytes=None):
        """Runs the program, with a bound on its memory where one is given."""
        def bound():
            # The sanitizers reserve terabytes for themselves.
            if mebibytes is not None and b"__asan_init" not in Path(PROGRAM).read_bytes():
                resource.setrlimit(resource.RLIMIT_DATA, (mebibytes * MEBIBYTE,) * 2)
        return subprocess.run([PROGRAM, *words], cwd=self.folder, input=stdin, text=True,
                              preexec_fn=bound, capture_output=True, timeout=120, check=False)

    def assert_refused(self, status, text, *words, **options):
        result = self.velmorra(*words, **options)
        self.assertEqual(result.returncode, status, result.stderr[-500:])
        self.assertIn(text, result.stderr)
        self.assertEqual(result.stdout, "")


class Endless(Shaping):
    def test_a_run_ends_when_its_only_sink_has_enough(self):
        result = self.velmorra("apply", "InsertKey isInfinite=1 keyType=0 startCount=7",
                               "SelectColumns columns=Key", "--typed", "--limit", "3")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, "Key:U:01\n7\n8\n9\n")

    def test_a_graph_ends_when_every_sink_has_enough(self):
        graph = self.write("endless.vgraph", """<VelmorraGraph><Actions>
            <InsertKey id='1' isInfinite='1'><c name='k' value='x'/></InsertKey>
            <WriteCsv id='2' file=':/two.csv' limit='2'/>
            <Append id='3' output='5' nPinIn='3'><s>Key</s></Append>
            <WriteCsv id='4' file=':/five.csv' limit='5'/>
            </Actions><Links><l from='1' to='2'/><l from='1' to='3' in='0'/>
            <l from='1' to='3' in='2'/><l from='3' to='4'/></Links></VelmorraGraph>""")
        result = self.velmorra("run", graph)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual((self.folder / "two.csv").read_text(), "Key,k\n0,x\n1,x\n")
        self.assertEqual((self.folder / "five.csv").read_text(), "Key\n0\n0\n1\n1\n2\n")
        for box, rows in (("1", "Key,k\n0,x\n1,x\n2,x\n"), ("3", "Key\n0\n0\n1\n")):
            result = self.velmorra("preview", graph, box, "-n", "3")
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, rows, ""))

    def test_pins_that_list_names_may_not_be_endless(self):
        graph = """<VelmorraGraph><Actions>
            <ReadCsv id='1' file=':/in.csv'/>
            <InsertKey id='2' isInfinite='1' keyType='0'/>
            %s<WriteCsv id='4' file=':/out.csv'/></Actions>
            <Links><l from='1' to='3'/><l from='2' to='3' in='1'/><l from='3' to='4'/></Links>
            </VelmorraGraph>"""
        self.write("in.csv", "c\na\n")
        flatten = self.write("flatten.vgraph", graph % "<Flatten id='3' category='c'/>")
        self.assert_refused(1, "a table has at most 1048576", "run", flatten, mebibytes=1024)
        unflatten = self.write("unflatten.vgraph", graph % "<Unflatten id='3'/>")
        self.assert_refused(1, "Table on pin 1 has more than 1048576 rows", "run", unflatten,
                            mebibytes=1024)


class ManyPins(Shaping):
    def test_as_many_tables_as_there_are_pins(self):
        files = [self.write(f"{i}.csv", f"a\n{i}\n") for i in range(12)]
        words = [word for i, name in enumerate(files) for word in ("--in", f"{i}={name}")]
        result = self.velmorra("apply", "Append nPinIn=12 output=0", *words)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, "a\n" + "".join(f"{i}\n" for i in range(12)))

    def test_pins_beyond_measure_are_refused(self):
        self.assert_refused(3, "2000000000 input pins; at most 1048576", "apply",
                            "Append nPinIn=2000000000", stdin="a\n1\n", mebibytes=512)


class TooMuch(Shaping):
    def test_a_cell_of_a_million_separators_in_the_first_row(self):
        self.assert_refused(1, "1200002 columns would come out; a table has at most 1048576",
                            "apply", "Split sep=; columns=a", stdin="a\n" + ";" * 1200000 + "\n",
                            mebibytes=512)

    def test_a_cell_of_a_million_separators_in_a_later_row(self):
        result = self.velmorra("apply", "Split sep=; columns=a",
                               "SelectColumns columns=a_S0,a_S1",
                               stdin="a\nx;y\n" + ";" * 1000000 + "\n", mebibytes=512)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, 'a_S0,a_S1\nx,y\n"",""\n')

    def test_a_group_of_many_rows_holds_one_of_them(self):
        rows = "".join("1,a,%s\n" % ("x" * (i % 1000)) for i in range(100000))
        words = ["apply", "Flatten key=k category=c checkSort=0 ToTranspose=v",
                 "--in", "0=" + self.write("rows.csv", "k,c,v\n" + rows),
                 "--in", "1=" + self.write("categories.csv", "c\na\n")]
        result = self.velmorra(*words, mebibytes=192)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, "k,a_v\n1," + "x" * 999 + "\n")


if __name__ == "__main__":
    PROGRAM = str(Path(sys.argv.pop(1)).resolve())
    unittest.main()
