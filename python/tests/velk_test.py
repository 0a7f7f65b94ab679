"""The module velk against the program, io.BytesIO and damaged archives."""

import concurrent.futures
import io
import os
import random
import subprocess
import sys
import tempfile
import unittest
from importlib.util import find_spec
from pathlib import Path
from unittest.mock import Mock

import velk

BLOCK = 131072
SETTINGS = {"block_size": BLOCK}
TEXT = b"".join(b"%d lines of text, %d words\n" % (i, i * i) for i in range(20000))  # 5 blocks
ARCHIVE = velk.compress(TEXT, **SETTINGS)
CODE = Path(os.environ["VELK_PROGRAM"]).read_bytes()[: 7 * BLOCK // 2]


def written(pieces, **settings):
    archive = io.BytesIO()
    with velk.open(archive, "w", **settings) as file:
        file.writelines(pieces)
    return archive.getvalue()


class Pipe(io.RawIOBase):
    """Can't seek, and gives a little at a time."""

    def __init__(self, data):
        self.file = io.BytesIO(data)

    def readable(self):
        return True

    def readinto(self, buffer):
        return self.file.readinto(memoryview(buffer)[:1000])


class Archives(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def by_program(self, data, *switches):
        original, archive = self.folder / "original", self.folder / "archive"
        original.write_bytes(data)
        command = [os.environ["VELK_PROGRAM"], "e", original, archive, *switches]
        # Under the sanitizers the program has its own; what the library needs would meet them.
        alone = os.environ | {"LD_PRELOAD": ""}
        subprocess.run(command, check=True, capture_output=True, env=alone)
        return archive.read_bytes()

    def test_the_same_bytes_as_the_program(self):
        for data in (b"", b"x", TEXT[:BLOCK], TEXT, CODE):
            expected = self.by_program(data, "-b128")
            encoder = velk.Encoder(len(data), **SETTINGS)
            blocks = [data[at : at + BLOCK] for at in range(0, len(data), BLOCK)]
            with concurrent.futures.ThreadPoolExecutor(4) as pool:
                records = pool.map(encoder.encode, blocks)
            self.assertEqual(b"".join([encoder.header, *records]), expected)
            self.assertEqual(velk.compress(bytearray(data), threads=3, **SETTINGS), expected)
            self.assertEqual(velk.decompress(memoryview(expected)), data)
        settings = {"stages_off": velk.OFF_BWT, "fixed_block_size": True, "no_fallback": True}
        self.assertEqual(velk.compress(TEXT, **settings), self.by_program(TEXT, "-tao"))

    def test_a_written_file(self):
        pieces = [CODE[at : at + 9999] for at in range(0, len(CODE), 9999)]
        for threads in (1, 2, 5):
            archive = written(pieces, threads=threads, **SETTINGS)
            self.assertEqual(velk.decompress(archive), CODE)
            self.assertEqual(archive, written([CODE], **SETTINGS))
        for data in (b"", TEXT):  # what fits into a block has its size known in the end
            self.assertEqual(written([data]), velk.compress(data))

    def test_reads_as_any_file(self):
        # Behind other bytes, as the archive's file may stand anywhere.
        archive = io.BytesIO(b"before" + ARCHIVE)
        archive.seek(6)
        file, plain = velk.open(archive), io.BytesIO(TEXT)
        choose = random.Random(1)
        for _ in range(300):
            offset, size = choose.randrange(2 * BLOCK), choose.choice((0, 1, 1000, BLOCK))
            name, *arguments = choose.choice((
                ("read", size), ("seek", offset * 3), ("seek", -offset, io.SEEK_END),
                ("seek", 5, io.SEEK_CUR), ("readline",), ("readlines", size + 1),
                ("__next__",), ("tell",),
            ))
            with self.subTest(call=(name, *arguments)):
                results = [next(f, None) if name == "__next__" else getattr(f, name)(*arguments)
                           for f in (file, plain)]
                self.assertEqual(*results)
        file.seek(BLOCK - 1)
        buffer = bytearray(4)
        self.assertEqual((file.readinto(buffer), buffer), (4, TEXT[BLOCK - 1 : BLOCK + 3]))
        self.assertEqual(file.peek()[:1], TEXT[BLOCK + 3 : BLOCK + 4])
        self.assertEqual(file.read(), TEXT[BLOCK + 3 :])
        self.assertEqual((file.peek(), file.read1(), file.readline()), (b"", b"", b""))

    def test_reads_a_pipe(self):
        file = velk.open(Pipe(ARCHIVE))
        self.assertEqual(b"".join(file), TEXT)
        self.assertRaises(io.UnsupportedOperation, file.seek, 0)

    def test_damage(self):
        second = 18 + velk.record_size(ARCHIVE[18:23])
        self.assertEqual(velk.open(io.BytesIO(ARCHIVE[:second])).read(), TEXT[:BLOCK])
        damaged = [ARCHIVE[:at] + b"x" + ARCHIVE[at + 1 :] for at in (0, 12, second, -10)]
        for archive in [ARCHIVE[:size] for size in (0, 17, second + 4, -1)] + damaged:
            with self.subTest(archive=len(archive)):
                self.assertRaises(velk.VelkError, velk.decompress, archive)
                for source in (io.BytesIO(archive), Pipe(archive)):
                    file = velk.open(source)
                    if archive.startswith(ARCHIVE[:second]):
                        self.assertEqual(file.read(BLOCK), TEXT[:BLOCK])
                    self.assertRaises(velk.VelkError, file.read)
        self.assertRaises(velk.VelkError, velk.open(io.BytesIO(ARCHIVE[:-1])).seek, 0, io.SEEK_END)
        # No block but the last is short: its place would be unknown.
        odd = velk.compress(TEXT[:9], fixed_block_size=True, **SETTINGS) + ARCHIVE[18:]
        self.assertRaises(velk.VelkError, velk.open(io.BytesIO(odd)).read)
        self.assertEqual(velk.decompress(odd), TEXT[:9] + TEXT)

    def test_errors_of_the_archives_file_come_out(self):
        failure = RuntimeError("of this file")
        archive = io.BytesIO(ARCHIVE)
        archive.read = Mock(side_effect=failure)
        self.assertRaisesRegex(RuntimeError, "of this file", velk.open(archive).read)
        # Nothing may be written behind a gap, however well that goes.
        archive = Mock(write=Mock(side_effect=[None, failure, None, None, None, None, None]))
        with self.assertRaises(RuntimeError) as caught:
            with velk.open(archive, "w", threads=1, **SETTINGS) as file:
                file.write(TEXT)
        self.assertIs(caught.exception, failure)
        self.assertEqual(archive.write.call_count, 2)

    def test_modes_and_closing(self):
        path = self.folder / "text.velk"
        with velk.open(path, "xt", encoding="ascii", newline="\r\n") as file:
            file.write("one\ntwo\n")
        with velk.open(str(path), "rt", encoding="ascii") as file:
            self.assertEqual(list(file), ["one\n", "two\n"])
        self.assertRaises(FileExistsError, velk.open, path, "x")
        for mode in ("a", "ab", "at", "rw", "rbt", "U", "rbb"):
            self.assertRaises(ValueError, velk.open, path, mode)
        for mistake in ({"block_size": 1}, {"block_size": 2**32 + BLOCK}, {"stages_off": 0}):
            self.assertRaises(ValueError, velk.open, path, "w", **mistake)
        self.assertRaises(TypeError, velk.open, path, "w", level=9)
        self.assertRaises(TypeError, velk.open, 3.5)
        self.assertRaises(TypeError, velk.compress, "text")

        file = velk.open(path)  # the mistakes have not emptied it
        self.assertEqual(file.read(), b"one\r\ntwo\r\n")
        self.assertTrue(os.fstat(file.fileno()) and file.readable() and not file.writable())
        self.assertRaises(io.UnsupportedOperation, file.write, b"")
        file.close()
        file.close()
        for call in (file.read, file.fileno, file.readable, file.tell, file.__enter__):
            self.assertRaises(ValueError, call)
        archive = io.BytesIO()
        file = velk.open(archive, "w")
        self.assertEqual((file.write(b"abc"), file.tell()), (3, 3))
        self.assertRaises(io.UnsupportedOperation, file.read)
        file.close()
        self.assertFalse(archive.closed)

    @unittest.skipUnless(find_spec("distributed"), "needs Dask's distributed")
    def test_many_processes_write_the_archive_of_one(self):
        example = Path(__file__).parents[2] / "examples" / "dask_compress.py"
        archive = self.folder / "by-dask"
        expected = self.by_program(CODE, "-b128")
        command = [sys.executable, example, self.folder / "original", archive,
                   "--workers", "2", "--block-size", str(BLOCK)]
        subprocess.run(command, check=True)
        self.assertEqual(archive.read_bytes(), expected)


if __name__ == "__main__":
    unittest.main()
