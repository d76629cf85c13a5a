#!/usr/bin/env python3
"""Looking before running: check, columns, preview and the progress of a run, with the built
program: looking_test.py PROGRAM [unittest arguments]."""

import fcntl
import json
import os
import pty
import re
import struct
import subprocess
import sys
import termios
import time
import unittest
from pathlib import Path

import cli_test

EXAMPLES = Path(__file__).resolve().parent.parent.parent / "examples"


def graph(*parts, links=""):
    """The text of a graph of these elements, with links written as '1-2 1.0-3.1'."""
    wires = ""
    for link in links.split():
        start, end = link.split("-")
        start, out = (start + ".0").split(".")[:2]
        end, pin = (end + ".0").split(".")[:2]
        wires += f"<l from='{start}' out='{out}' to='{end}' in='{pin}'/>"
    return (f"<VelmorraGraph version='4.2'><Actions>{''.join(parts)}</Actions>"
            f"<Links>{wires}</Links></VelmorraGraph>")


def on_terminal(words, folder, columns=80, stream="stdout", stdin=subprocess.DEVNULL):
    """Runs the program with one stream on a terminal: what it draws there, and its status."""
    controller, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    streams = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, stream: terminal}
    process = subprocess.Popen([cli_test.PROGRAM, *words], cwd=folder, stdin=stdin,
                               env={**os.environ, "LC_ALL": "C.UTF-8"}, **streams)
    os.close(terminal)
    drawn = b""
    try:
        while chunk := os.read(controller, 4096):
            drawn += chunk
    except OSError:  # the terminal's other end is closed
        pass
    os.close(controller)
    process.communicate(timeout=60)
    return drawn.decode(), process.returncode


class LookingTest(cli_test.CommandLineTest):
    def setUp(self):
        super().setUp()
        self.write("typed.csv", "day:K:01,shop:U:A2,price:F\n1,a,2.5\n1,b,\n2,\"\",7\n")

    def graph(self, *parts, links=""):
        self.write("g.vgraph", graph(*parts, links=links))

    def files(self):
        return sorted(path.name for path in self.folder.iterdir())


READ = "<ReadCsv id='1' file=':/people.csv'/>"


class Check(LookingTest):
    def test_the_examples_have_no_problems(self):
        graphs = sorted(EXAMPLES.glob("*.vgraph"))
        self.assertTrue(graphs)
        for path in graphs:
            self.assertEqual(self.answer("check", str(path), "--set", f"out={self.folder}"),
                             "no problems\n", path)
        self.assertEqual(self.files(), ["people.csv", "typed.csv"], "nothing is written")

    def test_each_problem_is_a_line_with_its_place(self):
        self.graph(READ,
                   "<SelectColumns id='2' colums='x'><s>id</s></SelectColumns>",
                   "<Accumulator id='3' label='sum' colAcc='nme'/>",
                   "<Acumulator id='4'/>", "<SelectColumns id='5'><s>x</s></SelectColumns>",
                   "<ReadCsv id='6' file=':/nowhere.csv'/>",
                   "<SelectColumns id='7'><s>id</s></SelectColumns>",
                   "<WriteCsv id='8' file='out.csv' typed='1' header='0'/>",
                   links="1-2 1-3 4-5 6-7 7-8")
        result = self.velmorra("check", "g.vgraph")
        self.assertEqual((result.returncode, result.stderr), (3, ""))
        lines = result.stdout.splitlines()
        expected = [
            r"\[2\] box 2 \(SelectColumns\): unknown attribute 'colums'.* \(setting colums\)",
            r"\[1\] box 4: unknown Action 'Acumulator'; did you mean 'Accumulator'\?",
            r"\[1\] box 3 'sum' \(Accumulator\): ERROR: column to accumulate 'nme' not found. "
            r"\(setting colAcc, pin 0\): did you mean 'name'\?",
            r"\[1\] box 6 \(ReadCsv\): .*nowhere.csv'.* \(setting file\)",
            # What hangs on the broken boxes is asked about its settings alone.
            r"\[1\] box 8 \(WriteCsv\): .*header='0'.* \(setting header\)",
        ]
        self.assertEqual(len(lines), len(expected), result.stdout)
        for pattern in expected:
            self.assertTrue([line for line in lines if re.fullmatch(pattern, line)],
                            (pattern, result.stdout))
        self.assertEqual(self.files(), ["g.vgraph", "people.csv", "typed.csv"])

        answer = json.loads(self.velmorra("check", "g.vgraph", "--json").stdout)
        self.assertEqual((answer["errors"], answer["warnings"]), (4, 1))
        self.assertIn({"level": 1, "box": "3", "action": "Accumulator", "label": "sum", "pin": 0,
                       "setting": "colAcc", "advice": "did you mean 'name'?",
                       "text": "ERROR: column to accumulate 'nme' not found."},
                      answer["problems"])

    def test_the_first_row_of_data_is_read(self):
        self.write("broken.csv", "id,name\nseven,Ann\n8\n")
        read = "<ReadCsv id='1' file='broken.csv' types='id:K'%s/>"
        self.graph(read % "", "<Accumulator id='2' colAcc='none'/>", links="1-2")
        result = self.velmorra("check", "g.vgraph")
        self.assertRegex(result.stdout,
                         r"\A\[1\] box 1 \(ReadCsv\): 'broken.csv' line 2, column 1 'id': 'seven' is "
                         r"not a Key .*\n\[1\] box 2 \(Accumulator\): .*'none' not found.*\n\Z")
        self.assertEqual(result.returncode, 3)
        self.assertEqual(self.velmorra("columns", "g.vgraph", "1").stdout,
                         "box 1 (ReadCsv), pin 0\n  id    Key\n  name  text\n")
        self.graph(read % " rejects='bad.csv'")
        self.assertEqual(self.answer("check", "g.vgraph"), "no problems\n")

    def test_warnings_alone_are_no_failure(self):
        self.graph(READ.replace("/>", " typd='1'/>"))
        result = self.velmorra("check", "g.vgraph")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"\A\[2\] box 1 .*'typed'.*\n\Z")
        self.assertEqual(self.velmorra("check", "g.vgraph", "--strict").returncode, 3)

    def test_the_order_that_is_missing_is_told(self):
        self.write("towns.csv", "town\nGent\nMons\n")
        boxes = [READ, "<ReadCsv id='2' file='towns.csv'/>",
                 "<Flatten id='3' key='name' category='town' alternativeNaming='2'><ToTranspose>"
                 "<s>id</s></ToTranspose></Flatten>"]
        self.graph(*boxes, links="1-3 2-3.1")
        result = self.velmorra("check", "g.vgraph")
        advice = re.fullmatch(r"\[1\] box 3 \(Flatten\): .* is not sorted on column 'name'\. "
                              r"\(setting key, pin 0\): put a Sort by=(.*) in front of pin 0\n",
                              result.stdout)
        self.assertTrue(advice, result.stdout)
        self.graph(*boxes, f"<Sort id='4' by='{advice.group(1)}'/>", links="1-4 4-3 2-3.1")
        self.assertEqual(self.answer("check", "g.vgraph"), "no problems\n")

    def test_outputs_that_cannot_be_written(self):
        for file, problem in (("nowhere/x.csv", "there is no folder"), (".", "it is a directory"),
                              ("", "no file name given"), ("-", None), ("/dev/null", None),
                              ("x.csv", None), ("people.csv", None)):
            self.graph(READ, f"<WriteCsv id='2' file='{file}'/>", links="1-2")
            result = self.velmorra("check", "g.vgraph")
            self.assertRegex(result.stdout, rf"\A\[1\] box 2 .*{problem}.* \(setting file\)\n\Z"
                             if problem else r"\Ano problems\n\Z", file)
        self.assertEqual(self.files(), ["g.vgraph", "people.csv", "typed.csv"])

    def test_graphs_that_cannot_be_loaded_or_wired(self):
        self.write("g.vgraph", "<VelmorraGraph")
        result = self.velmorra("check", "g.vgraph")
        self.assertEqual(result.returncode, 3)
        self.assertRegex(result.stdout, r"\A\[1\] g.vgraph: line 1.*\n\Z")
        self.graph(READ, "<SelectColumns id='2'/>", links="2-2")
        result = self.velmorra("check", "g.vgraph", "--json")
        self.assertEqual(result.returncode, 3)
        self.assertEqual([(p["box"], "loop" in p["text"]) for p in
                          json.loads(result.stdout)["problems"]], [("2", True)])

    def test_tables_that_decide_on_columns_are_read_whole(self):
        self.write("renames.csv", "before,after\nid,key\nname,first\n")
        self.graph(READ, "<ReadCsv id='2' file='renames.csv'/>", "<ColumnRename id='3'/>",
                   "<Accumulator id='4' colAcc='key'/>", links="1-3 2-3.1 3-4")
        self.assertEqual(self.answer("check", "g.vgraph"), "no problems\n")
        columns = json.loads(self.answer("columns", "g.vgraph", "4", "--json"))
        self.assertEqual([c["name"] for c in columns[0]["columns"]],
                         ["key", "first", "town", "sum"])


class Columns(LookingTest):
    def test_names_types_and_order(self):
        self.graph("<ReadCsv id='1' label='sales' file='typed.csv' typed='1'/>",
                   "<Accumulator id='2' colAcc='price'/>", links="1-2")
        self.assertEqual(self.answer("columns", "g.vgraph"),
                         "box 1 'sales' (ReadCsv), pin 0\n"
                         "  day    Key    order 1: by number, rising\n"
                         "  shop   text   order 2: by text, rising\n"
                         "  price  Float\n"
                         "\n"
                         "box 2 (Accumulator), pin 0\n"
                         "  day    Key    order 1: by number, rising\n"
                         "  shop   text   order 2: by text, rising\n"
                         "  price  Float\n"
                         "  sum    Float\n")
        for word in ("1", "1:0", "sales", "sales:0"):
            pins = json.loads(self.answer("columns", "g.vgraph", word, "--json"))
            self.assertEqual(pins, [{
                "box": "1", "action": "ReadCsv", "label": "sales", "pin": 0,
                "columns": [{"name": "day", "type": "K"}, {"name": "shop", "type": "U"},
                            {"name": "price", "type": "F"}],
                "sort": [{"column": 0, "name": "day", "type": "0"},
                         {"column": 1, "name": "shop", "type": "A"}]}])

    def test_boxes_and_pins_that_are_not_there(self):
        self.graph(READ, "<WriteCsv id='out' file='o.csv'/>", links="1-out")
        for command in ("columns", "preview"):
            self.assert_refused(2, r"there is no box 'ot'; did you mean 'out'\?", command,
                                "g.vgraph", "ot")
            self.assert_refused(2, r"there is no box '9'; the boxes are 1 \(ReadCsv\), "
                                r"out \(WriteCsv\)", command, "g.vgraph", "9:0")
            self.assert_refused(2, r"box 1 \(ReadCsv\) has the output pin 0, not '1'", command,
                                "g.vgraph", "1:1")
        self.assert_refused(2, r"box out \(WriteCsv\) has no output pin; its rows come from 1:0",
                            "preview", "g.vgraph", "out")

    def test_columns_that_cannot_be_told(self):
        self.graph("<ReadCsv id='1' file='nowhere.csv'/>", READ.replace("'1'", "'2'"))
        result = self.velmorra("columns", "g.vgraph")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, r"\A\[1\] box 1 \(ReadCsv\): .*nowhere.csv.*\n\Z")
        self.assertIn("pin 0\n  unknown\n\nbox 2 (ReadCsv), pin 0\n  id ", result.stdout)
        self.assertIn("  id ", self.answer("columns", "g.vgraph", "2"))


class Preview(LookingTest):
    def test_rows_go_out_as_csv(self):
        self.graph("<ReadCsv id='1' file='${table}.csv' typed='1'/>",
                   "<SelectColumns id='2'><s>price</s><s>day</s></SelectColumns>",
                   "<WriteCsv id='3' file='out.csv'/>", "<ReadCsv id='4' file='nowhere.csv'/>",
                   links="1-2 2-3")
        words = ["preview", "g.vgraph", "2", "--set", "table=typed"]
        self.assertEqual(self.answer(*words), "price,day\n2.5,1\n,1\n7,2\n")
        self.assertEqual(self.answer(*words, "-n", "1", "--typed"), "price:F,day:K:01\n2.5,1\n")
        self.assertEqual(self.answer(*words, "-n", "0"), "price,day\n")
        self.assertEqual(self.files(), ["g.vgraph", "people.csv", "typed.csv"])
        self.assert_refused(2, "-n takes a number of rows, not 'x'", *words, "-n", "x")
        self.assert_refused(1, r"^\[1\] box 4 \(ReadCsv\): ", "preview", "g.vgraph", "4")

    def test_a_source_without_end(self):
        self.graph("<ReadCsv id='1' file='-'/>", "<Accumulator id='2' colAcc='b'/>",
                   "<WriteCsv id='3' file='out.csv'/>", links="1-2 2-3")
        for command, end in (("preview g.vgraph 2 -n 2", "a,b,sum\n1,2,2\n1,2,4\n"),
                             ("check g.vgraph", "no problems\n")):
            result = subprocess.run(
                ["sh", "-c", f'(echo a,b; yes 1,2) | "$0" {command}', cli_test.PROGRAM],
                cwd=self.folder, capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual((result.returncode, result.stdout), (0, end), result.stderr)
        self.assertEqual(self.files(), ["g.vgraph", "people.csv", "typed.csv"])

    def test_broken_rows_leave_the_reject_file_alone(self):
        self.write("people.csv", "a,b\n1,2\n3\n4,5\n")
        self.write("rejects.csv", "earlier\n")
        self.graph("<ReadCsv id='1' file='people.csv' rejects='rejects.csv'/>",
                   "<ColumnRename id='2'/>", links="1-2 1-2.1")
        for words in (["preview", "g.vgraph", "1"], ["check", "g.vgraph"],
                      ["columns", "g.vgraph"]):
            result = self.velmorra(*words)
            self.assertEqual(result.returncode, 0, result)
        self.assertEqual(self.answer("preview", "g.vgraph", "1"), "a,b\n1,2\n4,5\n")
        self.assertEqual(self.read("rejects.csv"), "earlier\n")
        self.assertEqual(self.files(), ["g.vgraph", "people.csv", "rejects.csv", "typed.csv"])

    def test_a_terminal_gets_a_table(self):
        self.graph("<ReadCsv id='1' file='typed.csv' typed='1'/>")
        drawn, status = on_terminal(["preview", "g.vgraph", "1"], self.folder)
        self.assertEqual(status, 0)
        self.assertEqual(drawn.replace("\r\n", "\n"),
                         "day  shop  price\n"
                         "---  ----  -----\n"
                         "  1  a       2.5\n"
                         "  1  b\n"
                         "  2  \"\"        7\n")
        drawn, _ = on_terminal(["preview", "g.vgraph", "1", "--typed", "-n", "1"], self.folder, 24)
        self.assertEqual(drawn.replace("\r\n", "\n"),
                         "day:K:01  shop:U:A2\n--------  ---------\n       1  a\n"
                         "and 1 more: price:F\n")

    def test_cells_do_not_reach_the_terminal_raw(self):
        self.write("people.csv", "text\n\"\x1b[31mred\n\"\n日本\n" + "x" * 50 + "\n")
        self.graph(READ)
        drawn, _ = on_terminal(["preview", "g.vgraph", "1"], self.folder)
        lines = drawn.replace("\r\n", "\n").splitlines()
        self.assertEqual(lines[2:], ["\\u{1b}[31mred\\n", "日本", "x" * 39 + "…"])

    def test_a_failure_behind_the_rows_asked_for_does_not_matter(self):
        self.write("people.csv", "a\n1\n2\nx\n")
        self.graph("<ReadCsv id='1' file='people.csv' types='a:K'/>")
        self.assertEqual(self.answer("preview", "g.vgraph", "1", "-n", "2"), "a\n1\n2\n")
        drawn, status = on_terminal(["preview", "g.vgraph", "1"], self.folder)
        self.assertEqual((status, drawn.split()), (1, ["a", "-", "1", "2"]))


class Progress(LookingTest):
    """A run whose sources grow slowly: one is a file that is read at once, the other a pipe."""

    def two_sinks(self):
        rows = "".join(f"{i},{i}\n" for i in range(2000))
        self.write("people.csv", "a,b\n" + rows)
        self.graph(READ, "<WriteCsv id='2' file='one.csv'/>", "<ReadCsv id='3' file='-'/>",
                   "<WriteCsv id='4' label='slow' file='two.csv'/>", links="1-2 3-4")

    def slow(self):
        return subprocess.Popen(["sh", "-c", "echo a; sleep 1; echo 1"], stdout=subprocess.PIPE)

    def test_sinks_have_lines_of_their_own(self):
        self.two_sinks()
        with self.slow() as source:
            begin = time.monotonic()
            drawn, status = on_terminal(["run", "g.vgraph"], self.folder, stream="stderr",
                                        stdin=source.stdout)
            seconds = time.monotonic() - begin
            source.stdout.close()
        self.assertEqual(status, 0)
        pictures = re.findall(r"box 2 \(WriteCsv\): ([\d,]+) rows, [\d,]+ rows/s, (\d+) %"
                              r"[^\r\n]*\r\nbox 4 'slow' \(WriteCsv\): (\d) rows, \d rows/s", drawn)
        self.assertGreaterEqual(len(pictures), 2, drawn)
        self.assertLessEqual(len(pictures), seconds * 5 + 1)
        # Each picture takes the one before it off, and the last one goes too.
        self.assertEqual(drawn.count("\x1b[1A\x1b[J"), len(pictures), drawn)
        self.assertTrue(drawn.endswith("\x1b[J"), drawn)
        self.assertTrue((self.folder / "one.csv").exists())

    def test_nothing_is_drawn_elsewhere_and_json_has_fields(self):
        self.two_sinks()
        with self.slow() as source:
            result = subprocess.run([cli_test.PROGRAM, "run", "g.vgraph"], cwd=self.folder,
                                    stdin=source.stdout, capture_output=True, timeout=60,
                                    check=False)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
            source.stdout.close()
        with self.slow() as source:
            result = subprocess.run(
                [cli_test.PROGRAM, "run", "g.vgraph", "--log", "json", "--progress", "always"],
                cwd=self.folder, stdin=source.stdout, capture_output=True, timeout=60, check=False)
            source.stdout.close()
        last = json.loads(result.stderr.splitlines()[-1])
        self.assertEqual(last["rows"], 2001)
        self.assertEqual([(s["box"], s["action"], s["rows"]) for s in last["sinks"]],
                         [("2", "WriteCsv", 2000), ("4", "WriteCsv", 1)])
        self.assertEqual(last["sinks"][0]["share"], 1)
        self.assertNotIn("share", last["sinks"][1], "a pipe has no known end")

    def test_time_left_is_told_where_the_share_is_known(self):
        self.write("people.csv", "a,b\n" + "1,2\n" * 2000000)
        os.mkfifo(self.folder / "out")
        self.graph(READ, "<WriteCsv id='2' file='out'/>", links="1-2")
        # The reader takes a part and waits, so that the run stands still in the middle.
        with subprocess.Popen(["sh", "-c", "(head -c 800000 >/dev/null; sleep 1.5; cat >/dev/null)"
                               " < out"], cwd=self.folder):
            drawn, status = on_terminal(["run", "g.vgraph"], self.folder, stream="stderr")
        self.assertEqual(status, 0)
        self.assertRegex(drawn, r"[1-9]\d? %, \d+ s left")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    cli_test.PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
