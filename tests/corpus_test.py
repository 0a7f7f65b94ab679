"""Every program on every archive of the folder `corpus`, against its table.

corpus_test.py VELK velkz unvelk [EMULATOR]; the module velk, where there is one, is the library
"""

import os
import subprocess
import sys
import tempfile
import unittest
import zlib
from importlib.util import find_spec
from pathlib import Path

FOLDER = Path(__file__).parent / "corpus"
VELK, VELKZ, UNVELK, *EMULATOR = filter(None, sys.argv[1:])
os.environ.pop("LD_PRELOAD", None)  # what Python needs to load a library with sanitizers
if find_spec("velk"):
    import velk


def run(program, *arguments, **streams):
    return subprocess.run([*EMULATOR, program, *arguments], capture_output=True, **streams)


class Corpus(unittest.TestCase):
    def check(self, name, size, crc, verdict, velk_says):
        path = FOLDER / f"{name}.velk"
        archive = path.read_bytes()
        status = 2 if "behind" in verdict else 0 if name.startswith("good") else 1

        unvelk = run(UNVELK, input=archive)
        original = unvelk.stdout
        self.assertEqual((f"{len(original)}", f"{zlib.crc32(original):08X}"), (size, crc))
        self.assertEqual(unvelk.returncode, status)
        self.assertEqual(b"" == unvelk.stderr, verdict == "whole")
        self.assertEqual(b"does not begin as an archive" in unvelk.stderr, verdict == "no archive")
        self.assertEqual(b"may have been cut" in unvelk.stderr, verdict == "may be cut")

        velkz = run(VELKZ, "-T1", "-dc", input=archive)
        self.assertEqual((velkz.stdout, velkz.returncode), (original, status))
        with tempfile.TemporaryDirectory() as folder:
            out = Path(folder, "out")
            status_of_velk = run(VELK, "d", path, out).returncode
            self.assertEqual(f"{status_of_velk}, {out.stat().st_size}", velk_says)
            if out.stat().st_size <= len(original):
                self.assertTrue(original.startswith(out.read_bytes()))

        if find_spec("velk") and archive:  # of nothing Python takes it that there are no members
            if status == 1:
                self.assertRaises(velk.VelkError, velk.decompress, archive, threads=1)
            else:
                self.assertEqual(velk.decompress(archive, threads=1), original)

    def test_table(self):
        lines = (FOLDER / "README.md").read_text().splitlines()
        rows = [line.strip("| ").split(" | ") for line in lines if line.startswith(("| g", "| b"))]
        names = sorted(path.stem for path in FOLDER.glob("*.velk"))
        self.assertEqual(names, sorted(name for name, *_ in rows))
        for name, *columns, _ in rows:
            with self.subTest(name):
                self.check(name, *columns)


unittest.main(argv=sys.argv[:1])
