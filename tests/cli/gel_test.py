#!/usr/bin/env python3
"""Stored tables through the program: gel_test.py PROGRAM [unittest arguments]."""

import os
import sys
import unittest
from pathlib import Path

import cli_test

TYPED = 'id:K:01,name:U:A2,price:F\n,x,0.1\n1,Ann,2.5\n2,,nan\n2,"",\n3,é,-inf\n'


class StoredTables(cli_test.CommandLineTest):
    def setUp(self):
        super().setUp()
        self.write("typed.csv", TYPED)

    def store(self, name="t.gel"):
        self.assertEqual(self.answer("convert", "typed.csv", name, "--typed"), "")

    def test_types_order_and_nulls_go_over_in_both_directions(self):
        self.store()
        self.assertEqual(self.answer("cat", "t.gel", "--typed"), TYPED)
        self.assertEqual(self.answer("cat", "t.gel", "--limit", "1"), "id,name,price\n,x,0.1\n")
        self.answer("convert", "t.gel", "back.csv", "--typed")
        self.assertEqual(self.read("back.csv"), TYPED)
        for threads in ("1", "2", "5"):
            self.answer("convert", "t.gel", "u.GEL", "--threads", threads)
            self.assertEqual((self.folder / "u.GEL").read_bytes(),
                             (self.folder / "t.gel").read_bytes())
        self.answer("convert", "people.csv", "p.gel", "--types", "id:K", "--sorted", "id:0")
        self.assertEqual(self.answer("cat", "p.gel", "--typed"),
                         "id:K:01,name:U,town:U\n" + cli_test.PEOPLE.partition("\n")[2])
        with open(self.folder / "t.gel", "rb") as file:
            os.dup2(file.fileno(), 9)
            self.assertEqual(self.answer("cat", f"/proc/{os.getpid()}/fd/9", "--typed"), TYPED)
            os.close(9)

    def test_graphs_and_apply_take_them_by_their_ending(self):
        self.store()
        self.answer("apply", "SelectColumns columns=price,id", "--in", "t.gel", "--out", "u.gel",
                    "--limit", "2")
        self.assertEqual(self.answer("apply", "SelectColumns columns=id", "--in", "u.gel",
                                     "--typed"), "id:K:01\n\n1\n")
        self.write("g.vgraph", "<VelmorraGraph><Actions><ReadGel id='1' file=':/t.gel'/>"
                   "<WriteGel id='2' file=':/none.gel' limit='0'/></Actions>"
                   "<Links><l from='1' out='0' to='2' in='0'/></Links></VelmorraGraph>")
        self.assertRegex(self.answer("columns", "g.vgraph", "1"),
                         r"(?m)^  id +Key +.*\n  name +text +.*\n  price +Float")
        self.assertEqual(self.answer("preview", "g.vgraph", "1", "--typed"), TYPED)
        self.answer("run", "g.vgraph")
        self.assertEqual(self.answer("cat", "none.gel", "--typed"), "id:K:01,name:U:A2,price:F\n")
        self.write("empty.csv", "")
        self.answer("convert", "empty.csv", "empty.gel")
        self.assertEqual(self.answer("cat", "empty.gel"), "")

    def test_what_is_wrong_is_said_and_no_file_is_left(self):
        self.store()
        whole = (self.folder / "t.gel").read_bytes()
        (self.folder / "cut.gel").write_bytes(whole[:-1])
        (self.folder / "bad.gel").write_bytes(whole.replace(b"GEL END", b"GEL EDN"))
        (self.folder / "pipe.gel").symlink_to("/dev/stdin")
        (self.folder / "full.gel").symlink_to("/dev/full")
        os.mkdir(self.folder / "folder.gel")
        before = sorted(os.listdir(self.folder))
        self.assert_refused(1, r"^\[1\] box in \(ReadGel\): 'cut.gel' is damaged: it is cut off",
                            "convert", "cut.gel", "t.gel")
        self.assert_refused(1, "'bad.gel' is damaged", "apply", "SelectColumns columns=id",
                            "--in", "bad.gel", "--out", "t.gel")
        self.assert_refused(1, "'people.csv' is not a gel file", "cat", "people.csv")
        self.assert_refused(1, "cannot read 'no.gel': No such file", "cat", "no.gel")
        self.assert_refused(1, "cannot read 'pipe.gel': a gel file has its index at its end",
                            "cat", "pipe.gel", stdin="x")
        self.assert_refused(1, r"cannot (read|write) 'folder.gel': it is a directory",
                            "convert", "folder.gel", "x.gel")
        self.assert_refused(1, "cannot write 'full.gel': No space left on device",
                            "convert", "typed.csv", "full.gel", "--typed")
        self.assert_refused(1, "out of the declared order", "convert", "people.csv", "t.gel",
                            "--types", "id:K", "--sorted", "id:9")
        self.assert_refused(2, "--types is for CSV: 't.gel' is a stored table",
                            "apply", "SelectColumns columns=id", "--in", "t.gel", "--types", "id:K")
        self.assert_refused(2, "--sorted is for CSV", "convert", "t.gel", "x.csv", "--sorted",
                            "id:0")
        self.assert_refused(2, "needs two files", "convert", "t.gel")
        self.assert_refused(2, "--limit takes a number", "cat", "t.gel", "--limit", "-3")
        self.assertEqual(sorted(os.listdir(self.folder)), before)
        self.assertEqual((self.folder / "t.gel").read_bytes(), whole)

    def test_a_join_of_files_ends_with_a_damaged_one_or_passes_over_its_blocks(self):
        self.write("main.csv", "id:K:01\n1\n2\n")
        self.write("big.csv", "id:K:01,v:K\n" + "".join(f"{i},{i * i % 9973}\n" for i in range(5000)))
        self.write("files.csv", "filenames:U\nbig.gel\ntypo.gel\n")
        self.answer("convert", "big.csv", "big.gel", "--typed")
        words = ("--typed", "--in", "main.csv", "--in", "1=files.csv")
        missing = "[2] box 1 (JoinInput): WARNING: cannot open file 'typo.gel'?\n"
        for element, status, output, message in (
                ("JoinInput keyA=id keyBconstant=id", 0, "id:K:01,v:K\n1,1\n2,4\n", ""),
                ("JoinInput keyA=id keyBconstant=id", 1, "", "damaged"),
                ("JoinInput keyA=id keyBconstant=id skipCorruptedBlocks=1", 0,
                 "id:K:01\n1\n2\n", "passed over")):
            result = self.velmorra("apply", element, *words)
            self.assertEqual((result.returncode, result.stdout), (status, output), result.stderr)
            self.assertTrue(result.stderr.startswith(missing), result.stderr)
            self.assertIn(message, result.stderr)
            if status == 0 and not message:
                whole = bytearray((self.folder / "big.gel").read_bytes())
                whole[len(whole) // 2] ^= 255
                (self.folder / "big.gel").write_bytes(whole)



if __name__ == "__main__":
    cli_test.PROGRAM = str(Path(sys.argv.pop(1)).resolve())
    unittest.main()
