#!/usr/bin/env python3
"""Runs the built program on small files: cli_test.py PROGRAM [unittest arguments]."""

import json
import os
import pty
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

PROGRAM = ""
PEOPLE = "id,name,town\n1,Ann,Gent\n2,Bob,Liège\n3,,Mons\n"


class CommandLineTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.write("people.csv", PEOPLE)

    def write(self, name, text):
        (self.folder / name).write_text(text, encoding="utf-8")

    def read(self, name):
        return (self.folder / name).read_text(encoding="utf-8")

    def velmorra(self, *words, stdin=""):
        return subprocess.run([PROGRAM, *words], cwd=self.folder, input=stdin, text=True,
                              capture_output=True, timeout=60, check=False)

    def answer(self, *words, stdin=""):
        """What a command that must succeed without a message writes to standard output."""
        result = self.velmorra(*words, stdin=stdin)
        self.assertEqual((result.returncode, result.stderr), (0, ""), words)
        return result.stdout

    def assert_refused(self, status, pattern, *words, stdin=""):
        """The command ends with the status, one line that matches, and no data."""
        result = self.velmorra(*words, stdin=stdin)
        self.assertEqual((result.returncode, result.stdout), (status, ""),
                         (words, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertRegex(result.stderr, pattern, words)


class Apply(CommandLineTest):
    def test_standard_streams_are_the_default(self):
        expected = "name,id\nAnn,1\nBob,2\n,3\n"
        self.assertEqual(
            self.answer("apply", "SelectColumns", "columns=name,id", stdin=PEOPLE), expected)
        self.assertEqual(
            self.answer("apply", "SelectColumns columns=name,id", "--in", "-", "--out", "0=-",
                        stdin=PEOPLE), expected)
        self.assertEqual(
            self.answer("apply", "<SelectColumns><s>name</s><s>id</s></SelectColumns>", "--in",
                        "people.csv"), expected)

    def test_a_chain_with_further_pins(self):
        self.write("drop.csv", "what\ntown\n")
        self.write("renames.csv", "before,after\nname,first name\n")
        self.assertEqual(
            self.answer("apply", "SelectColumns", "--in", "people.csv", "keep=0", "--in",
                        "1=drop.csv", "ColumnRename", "before=id", "after=key", "--in",
                        "2.1=renames.csv", "--out", "out.csv", "--out", "1.0=between.csv"), "")
        self.assertEqual(self.read("out.csv"), "key,first name\n1,Ann\n2,Bob\n3,\n")
        self.assertEqual(self.read("between.csv"), "id,name\n1,Ann\n2,Bob\n3,\n")
        self.assertEqual(
            self.answer("apply", "FilterOnKey", "slaveKey=what", "mainKeys=name", "--in",
                        "people.csv", "--in", "1=drop.csv", "--out", "2=-"), PEOPLE)

    def test_parameters_types_and_limits(self):
        self.write("prices.csv", "day:K:01,price:F\n1,1.5\n2,2\n3,4\n")
        self.assertEqual(
            self.answer("apply", "Accumulator colAcc=price startVal=${start}", "--set",
                        "start=10", "--typed", "--limit", "2", "--in", "prices.csv"),
            "day:K:01,price:F,sum:F\n1,1.5,11.5\n2,2,13.5\n")
        self.write("plain=1.csv", "a,b\n2,x\n1,y\n")
        self.assertEqual(
            self.answer("apply", "SelectColumns columns=a", "--types", "a:K", "--in",
                        "0=plain=1.csv"), "a\n2\n1\n")
        result = self.velmorra("apply", "SelectColumns columns=a", "--types", "0=a:K", "--sorted",
                               "0=a:0", "--in", "0=plain=1.csv", "--out", "out.csv")
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertRegex(result.stderr, r"^\[1\] box in 0 \(ReadCsv\): ")
        self.assertFalse((self.folder / "out.csv").exists())

    def test_elements_that_cannot_be_loaded(self):
        self.assert_refused(3, r"^\[1\] unknown Action 'SelectColums'; did you mean "
                            r"'SelectColumns'\?$", "apply", "SelectColums", "columns=id")
        self.assert_refused(3, r"^\[1\] element 1 \(SelectColumns\): unknown attribute 'colums'; "
                            r"did you mean 'columns'\?$", "apply", "SelectColumns", "colums=id")
        self.assert_refused(3, r"'keep'.*'maybe'", "apply", "SelectColumns keep=maybe")
        self.assert_refused(3, r"^\[1\] element 1, line 1", "apply", "<SelectColumns")
        self.assert_refused(3, r"^\[1\] element 1, line 1", "apply", "<a>" * 40000)

    def test_pins_that_do_not_fit(self):
        select = ["apply", "SelectColumns", "columns=id"]
        cases = [
            (["--in", "2=x.csv"], "SelectColumns has the input pins 0 and 1, not 2"),
            (["--out", "1=x.csv"], "SelectColumns has the output pin 0, not 1"),
            (["--in", "3.0=x.csv"], "there is no element 3: elements go from 1 to 1"),
            (["--in", "0=a.csv", "--in", "a.csv"], "--in names pin 0 of SelectColumns twice"),
            (["--in", "a=b.csv"], "for a file name with '=' give '0=a=b.csv'"),
            (["--in", "1="], "names no file"),
            (["--in", "1=-"], "standard input can feed one pin only"),
            (["--in", "x.csv", "--types", "1=id:K"], "no table is read on that pin"),
            (["--in", "x.csv", "--sorted", "id:0", "--sorted", "0=id:0"], "given .* before"),
            (["ColumnRename", "--out", "o.csv", "--out", "1.0=./o.csv"],
             "two output pins go to the file"),
            (["ColumnRename", "--in", "2.0=x.csv"], "rows of the element before it"),
            (["ReadCsv", "file=x.csv"], "no input pin, so it can't follow"),
        ]
        for words, pattern in cases:
            self.assert_refused(2, "^velmorra: .*" + pattern, *select, *words)
        self.assertEqual([p.name for p in self.folder.iterdir()], ["people.csv"])

    def test_boxes_of_the_engine_are_elements_too(self):
        self.answer("apply", "ReadCsv file=people.csv", "SelectColumns columns=id",
                    "WriteCsv file=ids.csv")
        self.assertEqual(self.read("ids.csv"), "id\n1\n2\n3\n")

    def test_a_failed_run_leaves_the_earlier_file(self):
        self.write("out.csv", "precious\n")
        for words in (["--in", "people.csv"], ["--in", "nowhere.csv"]):
            result = self.velmorra("apply", "SelectColumns columns=nothing", *words, "--out",
                                   "out.csv")
            self.assertEqual(result.returncode, 1, result.stderr)
            self.assertRegex(result.stderr, r"\A\[1\] box ")
            self.assertFalse(result.stderr.endswith("\n\n"), "one line feed is dropped")
        self.assertEqual(self.read("out.csv"), "precious\n")
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()), ["out.csv", "people.csv"])

    def test_input_from_a_terminal_is_not_waited_for(self):
        controller, terminal = pty.openpty()
        self.addCleanup(os.close, controller)
        result = subprocess.run([PROGRAM, "apply", "SelectColumns columns=id"], stdin=terminal,
                                capture_output=True, text=True, timeout=60, check=False)
        os.close(terminal)
        self.assertEqual(result.returncode, 2)
        self.assertEqual(result.stderr,
                         "velmorra: no input: give --in FILE or pipe a table in\n")


GRAPH = """<VelmorraGraph version='4.2'>
  <Parameters><p name='column' value='sum'/></Parameters>
  <Actions>
    <ReadCsv id='1' file=':/people.csv'/>
    <Accumulator id='2' label='ids' colAcc='id' startVal='${start}' %s/>
    <WriteCsv id='3' file='${target}.csv'/>
  </Actions>
  <Links><l from='1' to='2'/><l from='2' to='3'/></Links>
</VelmorraGraph>
"""


class Run(CommandLineTest):
    def graph(self, text):
        self.write("g.vgraph", text)
        return ["run", "g.vgraph", "--set", "start=5", "--set", "target=out"]

    def test_unknown_attributes_warn_or_are_refused(self):
        words = self.graph(GRAPH % "colPartitoin='town'")
        result = self.velmorra(*words)
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stderr, r"\A\[2\] box 2 .*'colPartitoin'.*'colPartition'.*\n\Z")
        self.assert_refused(3, r"^\[1\] box 2 ", *words, "--strict")

    def test_messages_name_the_box(self):
        words = self.graph(GRAPH.replace("'id' startVal", "'age' startVal") % "")
        result = self.velmorra(*words)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "[1] box 2 'ids' (Accumulator): ERROR: column to "
                         "accumulate 'age' not found.\n")
        result = self.velmorra(*words, "--log", "json")
        self.assertEqual(json.loads(result.stderr),
                         {"level": 1, "box": "2", "action": "Accumulator", "label": "ids",
                          "text": "ERROR: column to accumulate 'age' not found."})

    def test_graphs_that_cannot_be_loaded(self):
        loop = GRAPH.replace("<l from='1' to='2'/>", "<l from='2' to='2'/>") % ""
        for text, pattern in [(GRAPH[:200], ""), (loop, "loop|itself"), ("", ""),
                              (GRAPH.replace("'2' to='3'", "'2' to='9'") % "", "9"),
                              (GRAPH.replace("Accumulator", "Acumulator") % "",
                               "Acumulator.*did you mean 'Accumulator'")]:
            result = self.velmorra(*self.graph(text))
            self.assertEqual(result.returncode, 3, result.stderr)
            self.assertRegex(result.stderr, r"(?m)^\[1\] .*(" + pattern + ")")
        self.assert_refused(3, "nowhere.vgraph", "run", "nowhere.vgraph")


class Usage(CommandLineTest):
    def test_wrong_words_are_answered_in_one_line(self):
        apply = ["apply", "SelectColumns", "columns=id"]
        cases = [
            ([], "no command given"),
            (["aply"], r"unknown command 'aply'; did you mean 'apply'\?"),
            (["--verzion"], r"unknown option '--verzion'; did you mean '--version'\?"),
            ([*apply, "--ouput", "x.csv"], r"unknown option '--ouput'; did you mean '--out'\?"),
            ([*apply, "--ouput=x.csv"], r"unknown option '--ouput'; did you mean '--out'\?"),
            ([*apply, "--in"], "option '--in' needs a value"),
            ([*apply, "--limit", "ten"], "--limit takes a number of rows, not 'ten'"),
            ([*apply, "--threads", "0"], "--threads takes a number from 1 to 256, not '0'"),
            ([*apply, "--progress", "often"],
             "--progress takes auto, always or never, not 'often'"),
            ([*apply, "--log", "xml"], "--log takes text or json, not 'xml'"),
            ([*apply, "--set", "=1"], "--set takes NAME=VALUE, not '=1'"),
            (["apply"], "apply needs an ELEMENT"),
            (["apply", "columns=id"], "before any Action's name"),
            (["apply", "people.csv"], "files are given with --in and --out"),
            (["run"], "run needs a GRAPH"),
            (["run", "a.vgraph", "b.vgraph"], "run takes no further word: 'b.vgraph'"),
            (["action"], "action needs the NAME"),
            (["action", "SelectColums"],
             r"unknown Action 'SelectColums'; did you mean 'SelectColumns'\?"),
        ]
        for words, pattern in cases:
            self.assert_refused(2, "^velmorra: .*" + pattern, *words)

    def test_help_and_version(self):
        self.assertRegex(self.answer("--version"), r"\Avelmorra \d+\.\d+\.\d+\n\Z")
        for command in ("run", "apply", "check", "columns", "preview", "actions", "action"):
            self.assertIn(command, self.answer("--help"))
            self.assertIn("velmorra " + command, self.answer(command, "--help"))

    def test_the_examples_of_the_help_work(self):
        self.write("people.csv", "id,name,note\n1,Ann,x\n")
        self.write("renames.csv", "before,after\nname,first\n")
        self.write("prices.csv", "price\n1.5\n")
        self.write("table.csv", "x:F\n2\n")
        text = "<VelmorraGraph><Actions><ReadCsv file='people.csv'/></Actions></VelmorraGraph>"
        self.write("prices.vgraph", text)
        self.write("graph.vgraph", text)
        environment = {**os.environ,
                       "PATH": f"{Path(PROGRAM).parent}:{os.environ.get('PATH', '')}"}
        self.write("sales.csv", "day,price\n1,2.5\n2,\n")
        self.write("typed.csv", "day:K:01,price:F\n1,2.5\n")
        for command in ([], ["run"], ["apply"], ["check"], ["columns"], ["preview"], ["action"],
                        ["convert"], ["cat"]):
            text = self.answer(*command, "--help").partition("Examples:")[2] or \
                self.answer(*command, "--help").partition("Example:")[2]
            examples = re.findall(r"^  (velmorra (?:.*\\\n)*.*)", text, re.M)
            self.assertTrue(examples, command)
            for example in examples:
                result = subprocess.run(example, shell=True, cwd=self.folder, env=environment,
                                        capture_output=True, text=True, timeout=60, check=False)
                self.assertEqual((result.returncode, result.stderr), (0, ""), example)


class Catalogue(CommandLineTest):
    def test_actions_are_listed_by_category(self):
        text = self.answer("actions")
        self.assertRegex(text, r"(?m)^Standard\n(  .*\n)*  SelectColumns +Select \(or drop\)")
        columns = {match.start(1) - match.start() for match in re.finditer(r"(?m)^  \w+ +(\S)",
                                                                          text)}
        self.assertEqual(len(columns), 1, "descriptions stand below each other")
        actions = json.loads(self.answer("actions", "--json"))
        self.assertEqual(sorted(re.findall(r"(?m)^  (\w+)", text)),
                         sorted(action["name"] for action in actions))

    def test_a_page_tells_pins_attributes_and_lists(self):
        page = self.answer("action", "selectcolumns")
        self.assertRegex(page, r"(?m)^Input pins +0 to 1$")
        self.assertRegex(page, r"(?m)^  keep +boolean +1 +\S")
        self.assertRegex(page, r"(?m)^  columns +\S")
        rename = json.loads(self.answer("action", "ColumnRename", "--json"))
        children = {child["name"]: child for child in rename["children"]}
        self.assertEqual([a["name"] for a in children["QuickRename"]["attributes"]],
                         ["prefix", "suffix", "search", "replace"])
        self.assertEqual(rename["inputPins"], 2)

    def test_the_example_of_every_action_runs(self):
        for name in ("in", "in0", "in1", "table", "names", "slaves"):
            self.write(name + ".csv", "a,b\n1,2\n")
        self.write("files.csv", "filenames\ntable.gel\n")
        self.answer("convert", "in.csv", "table.gel", "--sorted", "a:A")
        for action in json.loads(self.answer("actions", "--json")):
            words = shlex.split(action["example"])
            self.assertEqual(words[0], "velmorra")
            self.answer(*words[1:], stdin="a,b\n1,2\n")


class Stopping(CommandLineTest):
    def start(self, stdin, *words, **streams):
        return subprocess.Popen([PROGRAM, "apply", "SelectColumns columns=a", "--out", "out.csv",
                                 *words], cwd=self.folder, stdin=stdin, **streams)

    def seconds_to_stop(self, stop, stdin):
        process = self.start(stdin, stderr=subprocess.DEVNULL)
        time.sleep(0.4)
        self.assertIsNone(process.poll(), "it runs until it is told to stop")
        begin = time.monotonic()
        process.send_signal(stop)
        self.assertEqual(process.wait(timeout=20), 130)
        return time.monotonic() - begin

    def test_a_signal_ends_the_run_without_output(self):
        self.write("out.csv", "precious\n")
        for stop in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            # A source that waits for rows that don't come, and one that never ends.
            reader, writer = os.pipe()
            os.write(writer, b"a,b\n1,2\n")
            waiting = self.seconds_to_stop(stop, reader)
            os.close(reader)
            os.close(writer)
            with subprocess.Popen(["sh", "-c", "echo a,b; yes 1,2"],
                                  stdout=subprocess.PIPE) as endless:
                busy = self.seconds_to_stop(stop, endless.stdout)
                endless.stdout.close()
            # 200 ms, and room for a machine that is busy with other things.
            self.assertLess(max(waiting, busy), 0.6)
            self.assertEqual(self.read("out.csv"), "precious\n")
            self.assertEqual(sorted(p.name for p in self.folder.iterdir()),
                             ["out.csv", "people.csv"])

    def test_a_signal_that_was_ignored_stays_ignored(self):
        reader, writer = os.pipe()
        process = subprocess.Popen(
            ["sh", "-c", 'trap "" HUP; exec "$0" apply "SelectColumns columns=a"', PROGRAM],
            stdin=reader, stdout=subprocess.PIPE, text=True)
        os.close(reader)
        os.write(writer, b"a,b\n")
        time.sleep(0.3)
        process.send_signal(signal.SIGHUP)
        time.sleep(0.3)
        os.write(writer, b"1,2\n")
        os.close(writer)
        self.assertEqual(process.communicate(timeout=20)[0], "a\n1\n")
        self.assertEqual(process.returncode, 0)

    def test_progress_is_redrawn_on_a_terminal(self):
        def progress(*words):
            controller, terminal = pty.openpty()
            reader, writer = os.pipe()
            process = self.start(reader, *words, stderr=terminal)
            os.close(terminal)
            os.close(reader)
            os.write(writer, b"a,b\n1,2\n")
            time.sleep(0.9)
            os.close(writer)
            self.assertEqual(process.wait(timeout=20), 0)
            drawn = b""
            try:
                while chunk := os.read(controller, 4096):
                    drawn += chunk
            except OSError:  # the terminal's other end is closed
                pass
            os.close(controller)
            return drawn

        drawn = progress()
        self.assertRegex(drawn, rb"\A(\r\x1b\[K[\d,]+ rows, [\d,]+ rows/s[^\r\n]*){2,}\r\x1b\[K\Z")
        self.assertEqual(progress("--progress", "never"), b"")

    def test_progress_elsewhere_is_lines(self):
        words = ["apply", "SelectColumns columns=id", "--in", "people.csv", "--out", "out.csv"]
        self.assertEqual(self.velmorra(*words).stderr, "")
        result = self.velmorra(*words, "--progress", "always")
        self.assertRegex(result.stderr, r"\A3 rows, [\d,]+ rows/s.*\n\Z")
        result = self.velmorra(*words, "--progress", "always", "--log", "json")
        self.assertEqual(json.loads(result.stderr)["rows"], 3)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
