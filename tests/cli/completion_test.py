#!/usr/bin/env python3
"""Completion in bash and the manual page, with the built program:
completion_test.py PROGRAM [unittest arguments]."""

import json
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import time
import unittest
from pathlib import Path

import cli_test

SCRIPT = Path(__file__).resolve().parent.parent.parent / "apps/velmorra/velmorra.bash"

# Bash fills these variables before it calls the function of a completion.
DRIVER = """source "$1"
COMP_LINE=$2 COMP_POINT=${#2}
_velmorra
printf '%s\\n' "${COMPREPLY[@]}"
"""


class Completion(cli_test.CommandLineTest):
    def setUp(self):
        super().setUp()
        (self.folder / "sub").mkdir()
        self.write("g.vgraph", "<VelmorraGraph><Actions><ReadCsv id='in'/><WriteCsv id='end'/>"
                   "</Actions></VelmorraGraph>")
        self.environment = {**os.environ, "LC_ALL": "C.UTF-8", "PS1": "$ ", "TERM": "dumb",
                            "PATH": f"{Path(cli_test.PROGRAM).parent}:{os.environ['PATH']}"}

    def replies(self, line):
        result = subprocess.run(["bash", "--norc", "-c", DRIVER, "bash", str(SCRIPT), line],
                                cwd=self.folder, env=self.environment, text=True,
                                capture_output=True, timeout=60, check=False)
        self.assertEqual(result.stderr, "", line)
        return result.stdout.split()

    def test_commands_options_and_their_values(self):
        self.assertEqual(self.replies("velmorra a"), ["apply", "actions", "action"])
        self.assertIn("--version", self.replies("velmorra --"))
        self.assertEqual(self.replies("velmorra run g.vgraph --thr"), ["--threads"])
        self.assertEqual(self.replies("velmorra run g.vgraph --log "), ["text", "json"])
        self.assertEqual(self.replies("velmorra run --progress a"), ["auto", "always"])
        self.assertEqual(self.replies("velmorra run --threads "), [])
        self.assertEqual(self.replies("velmorra nonsense "), [])

    def test_actions_and_what_they_take(self):
        self.assertEqual(self.replies("velmorra action Sel"), ["SelectColumns"])
        self.assertEqual(self.replies("velmorra apply Accumulator colA"), ["colAcc="])
        self.assertEqual(self.replies("velmorra apply Accumulator colAcc=x Col"), ["ColumnRename"])
        self.assertEqual(self.replies("velmorra apply --in x.csv SelectColumns k"), ["keep="])
        self.assertEqual(self.replies("velmorra apply Accumulator SelectColumns col"),
                         ["columns="])
        # Bash keeps what stands in front of the last equals sign.
        self.assertEqual(self.replies("velmorra apply SelectColumns keep="), ["0", "1"])

    def test_every_attribute_is_offered(self):
        for action in json.loads(self.answer("actions", "--json")):
            offered = self.replies(f"velmorra apply {action['name']} ")
            for attribute in action["attributes"]:
                if attribute["written"] != "never":
                    self.assertIn(attribute["name"] + "=", offered, action["name"])

    def test_files_and_boxes(self):
        self.assertEqual(self.replies("velmorra run "), ["g.vgraph", "sub"])
        self.assertEqual(self.replies("velmorra apply SelectColumns --in peo"), ["people.csv"])
        self.assertEqual(self.replies("velmorra apply SelectColumns --in 1=peo"), ["people.csv"])
        self.assertEqual(self.replies("velmorra apply ReadCsv file=peo"), ["people.csv"])
        self.assertEqual(self.replies("velmorra preview g.vgraph "), ["in"])

    def test_a_person_presses_tab(self):
        """The whole way, through bash at a terminal."""
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], self.environment)
        self.addCleanup(os.close, terminal)

        seen = bytearray()

        def read_until(text):
            """Waits for a text behind the one waited for before."""
            end = time.monotonic() + 60
            while text not in seen and time.monotonic() < end:
                if select.select([terminal], [], [], 0.5)[0]:
                    seen.extend(os.read(terminal, 4096))
            self.assertIn(text, bytes(seen))
            del seen[:seen.index(text) + len(text)]

        os.write(terminal, f"source {SCRIPT}; echo rea''dy\n".encode())
        read_until(b"ready\r\n")
        os.write(terminal, b"velmorra app\tSelectC\tcolu\tid --i\tpeo\t\n")
        read_until(b"velmorra apply SelectColumns columns=id --in people.csv")
        read_until(b"id\r\n1\r\n2\r\n3\r\n")
        os.write(terminal, b"exit\n")
        os.waitpid(process, 0)


class Manual(cli_test.CommandLineTest):
    def test_it_mentions_every_command_and_option(self):
        page = self.answer("manual").replace("\\-", "-")
        commands = re.findall(r"(?m)^  (\w+) +\S", self.answer("--help").partition("Subcommands:")[2]
                              .partition("Examples:")[0])
        self.assertGreaterEqual(len(commands), 7)
        for command in commands:
            section = re.search(rf"(?ms)^\.SS \\fBvelmorra {command}\\fR.*?(?=^\.S)", page)
            self.assertTrue(section, command)
            options = re.findall(r"(?m)^  (?:-\w,)?(--?[\w-]+)", self.answer(command, "--help"))
            self.assertTrue(options, command)
            for option in options:
                self.assertIn(option, section.group(), command)

    @unittest.skipUnless(shutil.which("groff"), "groff isn't there")
    def test_it_is_a_page_that_man_can_show(self):
        shown = subprocess.run(["groff", "-man", "-Tutf8", "-ww"], input=self.answer("manual"),
                               text=True, capture_output=True, timeout=60, check=False)
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        text = re.sub(r"\x1b\[\d*m|.\x08", "", shown.stdout)  # bold and underlined
        self.assertIn("velmorra preview GRAPH", text)
        self.assertIn("    velmorra preview graph.vgraph 1:0 -n 3 --typed > rows.csv", text)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    cli_test.PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
