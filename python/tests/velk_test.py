"""The module velk against the program, io.BytesIO and damaged archives."""

import concurrent.futures
import contextlib
import copy
import io
import itertools
import os
import pickle
import random
import subprocess
import sys
import tempfile
import threading
import unittest
import zlib
from importlib.util import find_spec
from pathlib import Path
from unittest.mock import Mock

import velk

BLOCK = 131072
SETTINGS = {"block_size": BLOCK}
TEXT = b"".join(b"%d lines of text, %d words\n" % (i, i * i) for i in range(20000))  # 5 blocks
ARCHIVE = velk.compress(TEXT, **SETTINGS)
PLAIN = velk.compress(TEXT, plain=True, **SETTINGS)
BLOCKS = velk.open(io.BytesIO(ARCHIVE)).blocks()
INDEX = BLOCKS[-1].offset + BLOCKS[-1].record_size  # the offset of the end mark
CODE = Path(os.environ["VELK_PROGRAM"]).read_bytes()[: 7 * BLOCK // 2]


def written(pieces, **settings):
    archive = io.BytesIO()
    with velk.open(archive, "w", **settings) as file:
        file.writelines(pieces)
    return archive.getvalue()


class Clamped(io.BytesIO):
    """Seeks no farther than the start and the end."""

    def seek(self, offset, whence=io.SEEK_SET):
        offset += {io.SEEK_SET: 0, io.SEEK_CUR: self.tell(), io.SEEK_END: len(TEXT)}[whence]
        return super().seek(min(max(offset, 0), len(TEXT)))


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
            encoder = velk.Encoder(len(data), plain=True, **SETTINGS)
            blocks = [data[at : at + BLOCK] for at in range(0, len(data), BLOCK)]
            with concurrent.futures.ThreadPoolExecutor(4) as pool:
                records = [record for record, _ in pool.map(encoder.encode, blocks)]
            self.assertEqual(b"".join([encoder.header, *records]), expected)
            plain = SETTINGS | {"plain": True}
            self.assertEqual(velk.compress(bytearray(data), threads=3, **plain), expected)
            self.assertEqual(velk.decompress(memoryview(expected)), data)
        settings = {"stages_off": velk.OFF_BWT, "fixed_block_size": True, "no_fallback": True}
        plain = velk.compress(TEXT, plain=True, **settings)
        self.assertEqual(plain, self.by_program(TEXT, "-tao"))
        self.assertEqual(written([TEXT], plain=True, **settings), plain)
        self.assertRaises(ValueError, velk.make_index, plain[:18], b"")

    def test_an_archive_of_single_blocks(self):
        for data in (b"", b"x", TEXT[:BLOCK], TEXT[: BLOCK + 1], CODE):
            encoder = velk.Encoder(len(data), **SETTINGS)
            step = encoder.block_size
            coded = [encoder.encode(data[at : at + step]) for at in range(0, len(data), step)]
            entries = b"".join(entry for _, entry in coded)
            records = b"".join(record for record, _ in coded)
            archive = encoder.header + records + velk.make_index(encoder.header, entries)
            self.assertEqual(archive, velk.compress(data, **SETTINGS))
            self.assertRaises(ValueError, velk.make_index, encoder.header, entries + b"x")
            blocks = velk.open(io.BytesIO(archive)).blocks()
            decoder = velk.Decoder(archive[:18])
            for block in blocks:
                record = archive[block.offset : block.offset + block.record_size]
                original = decoder.decode(record)
                self.assertEqual(original, data[block.start : block.start + block.size])
                self.assertEqual((block.crc, block.indexed), (zlib.crc32(original), 1))
            self.assertEqual(sum(block.size for block in blocks), len(data))

    def test_a_written_file(self):
        pieces = [CODE[at : at + 9999] for at in range(0, len(CODE), 9999)]
        for threads in (1, 2, 5):
            archive = written(pieces, threads=threads, **SETTINGS)
            self.assertEqual(velk.decompress(archive), CODE)
            self.assertEqual(archive, velk.compress(CODE, **SETTINGS))
        for data in (b"", TEXT):  # what fits into a block has its size known in the end
            for more in ({}, {"plain": True}, {"level": 9}):
                self.assertEqual(written([data], **more), velk.compress(data, **more))

    def test_reads_as_any_file(self):
        # Behind other bytes, as the archive's file may stand anywhere.
        archive = io.BytesIO(b"before" + ARCHIVE)
        archive.seek(6)
        file, plain = velk.open(archive), Clamped(TEXT)
        choose = random.Random(1)
        for _ in range(300):
            offset, size = choose.randrange(2 * BLOCK), choose.choice((0, 1, 1000, BLOCK))
            name, *arguments = choose.choice((
                ("read", size), ("seek", offset * 3), ("seek", -offset * 3, io.SEEK_END),
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
        self.assertRaises(io.UnsupportedOperation, file.blocks)

    def test_members_in_a_row(self):
        other = velk.compress(CODE, block_size=2 * BLOCK, stages_off=velk.OFF_BWT)
        archive, data = ARCHIVE + PLAIN + other + velk.compress(b""), TEXT + TEXT + CODE
        self.assertEqual(velk.decompress(archive), data)
        for source in (io.BytesIO(archive), Pipe(archive)):
            self.assertEqual(velk.open(source).read(), data)
        file = velk.open(io.BytesIO(archive))
        for at in (2 * len(TEXT) + BLOCK, len(TEXT) - 5, 3):
            self.assertEqual((file.seek(at), file.read(9)), (at, data[at : at + 9]))
        self.assertEqual(file.seek(0, io.SEEK_END), len(data))

    def test_whole(self):
        full = velk.compress(TEXT[:BLOCK], plain=True, fixed_block_size=True, **SETTINGS)
        cases = {ARCHIVE: True, PLAIN: True, full: None, full + ARCHIVE: None}
        for archive, whole in cases.items():
            self.assertIs(velk.open(io.BytesIO(archive)).whole, whole)
            file = velk.open(Pipe(archive))
            file.read(1)
            self.assertIsNone(file.whole)
            file.read()
            self.assertIs(file.whole, whole)
        self.assertRaises(velk.VelkError, getattr, velk.open(io.BytesIO(ARCHIVE[:-1])), "whole")

    def test_damage(self):
        second = BLOCKS[1].offset
        cuts = (0, 17, 18, second, second + 4, INDEX, INDEX + 5, INDEX + 17, -24, -1)
        damaged = [ARCHIVE[:at] + bytes([ARCHIVE[at] ^ 1]) + ARCHIVE[at + 1 :]
                   for at in (0, 12, second, second + 99, INDEX, INDEX + 5, -24, -13, -9, -1)]
        for archive in [ARCHIVE[:size] for size in cuts] + damaged:
            with self.subTest(archive=len(archive)):
                error = velk.CutError if ARCHIVE.startswith(archive) else velk.VelkError
                if archive:
                    self.assertRaises(error, velk.decompress, archive)
                for source in (io.BytesIO(archive), Pipe(archive)):
                    file = velk.open(source)
                    if archive.startswith(ARCHIVE[:second]):
                        self.assertEqual(file.read(BLOCK), TEXT[:BLOCK])
                    self.assertRaises(error, file.read)
                    self.assertRaises(error, file.read)
        for at in (INDEX, len(ARCHIVE) - 1):
            for place in ((0, io.SEEK_END), (len(TEXT) - 1,)):
                file = velk.open(io.BytesIO(ARCHIVE[:at]))
                with self.assertRaises(velk.VelkError):
                    file.seek(*place)
                    file.read()
            file.seek(0)
            self.assertEqual(file.read(9), TEXT[:9])
            self.assertRaises(velk.VelkError, file.seek, 2 * BLOCK)
        with self.assertRaises(velk.VelkError) as caught:
            velk.decompress(damaged[3])
        self.assertEqual((caught.exception.block, caught.exception.offset), (1, second))
        # By the index the blocks behind a damaged one are found, before anything is read.
        file = velk.open(io.BytesIO(damaged[3]))
        for at, right in ((2 * BLOCK, True), (BLOCK, False), (3 * BLOCK, True), (0, True)):
            file.seek(at)
            if right:
                self.assertEqual(file.read(9), TEXT[at : at + 9])
            else:
                self.assertRaises(velk.VelkError, file.read, 9)
        # No block but the last of a plain archive is short: its place would be unknown.
        odd = velk.compress(TEXT[:9], plain=True, fixed_block_size=True, **SETTINGS) + PLAIN[18:]
        file = velk.open(io.BytesIO(odd))
        self.assertEqual(velk.decompress(odd), file.read())
        file.seek(BLOCK // 2)
        self.assertRaises(velk.VelkError, file.read)

    def test_errors_of_the_archives_file_come_out(self):
        failure = RuntimeError("of this file")
        archive = io.BytesIO(ARCHIVE)
        archive.read = Mock(side_effect=failure)
        self.assertRaisesRegex(RuntimeError, "of this file", velk.open(archive).read)
        # What a call has not got, the next one gets.
        for source in (io.BytesIO(ARCHIVE), Pipe(ARCHIVE)):
            read, calls = source.read, itertools.count()
            source.read = lambda size: 1 // (next(calls) % 2) and read(size)
            file, pieces = velk.open(source), []
            while pieces[-1:] != [b""]:
                with contextlib.suppress(ZeroDivisionError):
                    pieces.append(file.read1())
            self.assertEqual(b"".join(pieces), TEXT)
        # Nothing may be written behind a gap, however well that goes.
        archive = Mock(write=Mock(side_effect=[None, failure, None, None, None, None, None]))
        with self.assertRaises(RuntimeError) as caught:
            with velk.open(archive, "w", threads=1, **SETTINGS) as file:
                file.write(TEXT)
                file.write(TEXT)
        self.assertIs(caught.exception, failure)
        self.assertEqual(archive.write.call_count, 2)

    def test_incremental(self):
        compressor = velk.VelkCompressor(threads=2, **SETTINGS)
        pieces = [compressor.compress(TEXT[at : at + 50000]) for at in range(0, len(TEXT), 50000)]
        self.assertEqual(b"".join(pieces) + compressor.flush(), ARCHIVE)
        self.assertRaises(ValueError, compressor.flush)
        for archive, behind in ((ARCHIVE, b"more"), (PLAIN, b"much more"), (PLAIN, ARCHIVE)):
            data = archive + behind
            for size in (1, 1000, len(data)):
                restorer, out, at = velk.VelkDecompressor(), [], 0
                while not restorer.eof:
                    part = data[at : at + size] if restorer.needs_input else b""
                    at += len(part)
                    out.append(restorer.decompress(part, 9999))
                    self.assertLessEqual(len(out[-1]), 9999)
                self.assertEqual(b"".join(out), TEXT)
                self.assertEqual(restorer.unused_data + data[at:], behind)
        # A plain archive may always go on.
        restorer = velk.VelkDecompressor()
        self.assertEqual((restorer.decompress(PLAIN), restorer.eof), (TEXT, False))
        self.assertEqual((restorer.finish(), restorer.eof), (b"", True))
        compressor, restorer = velk.VelkCompressor(), velk.VelkDecompressor()
        for part in (b"one", b"two"):  # and nothing is held back
            archive = compressor.compress(part) + compressor.end_block()
            self.assertEqual(restorer.decompress(archive), part)

    def test_objects_are_nobody_elses(self):
        reader = velk.open(io.BytesIO(ARCHIVE))
        reader.blocks()
        for thing in (velk.VelkCompressor(), velk.VelkDecompressor(), velk.Encoder(),
                      velk.Decoder(ARCHIVE[:18]), reader._buffer.raw.open()):
            self.assertRaises(TypeError, copy.copy, thing)
            self.assertRaises(TypeError, pickle.dumps, thing)
            self.assertRaises(TypeError, type, "Derived", (type(thing),), {})

        class Lying(bytes):
            def __len__(self):
                return 5000

        self.assertEqual(velk.decompress(velk.compress(Lying(b"abc"))), b"abc")
        with velk.open(io.BytesIO(), "w") as file:
            self.assertEqual(file.write(Lying(b"abc")), 3)
        self.assertEqual(velk.decompress(memoryview(b"")), b"")

    def test_files_that_take_or_give_less(self):
        class Slow(io.RawIOBase):
            def __init__(self, most):
                self.most, self.got = most, []

            def writable(self):
                return True

            def write(self, data):
                if self.most is not None:
                    self.got.append(bytes(data[: self.most]))
                    return len(self.got[-1])

        slow = Slow(1000)
        with velk.open(slow, "w", **SETTINGS) as file:
            file.write(TEXT)
        self.assertEqual(b"".join(slow.got), ARCHIVE)
        file = velk.open(Slow(None), "w", **SETTINGS)
        self.assertRaises(BlockingIOError, file.write, 2 * TEXT)
        file.close()
        pipe = Pipe(ARCHIVE)
        pipe.readinto = Mock(side_effect=[None] + [pipe.file.readinto] * 0)
        self.assertRaises(BlockingIOError, velk.open(pipe).read)

    def test_threads_that_share_a_writer(self):
        archive, parts = io.BytesIO(), [bytes([i]) * 70001 for i in range(8)]
        with velk.open(archive, "w", **SETTINGS) as file:
            with concurrent.futures.ThreadPoolExecutor(4) as pool:
                list(pool.map(file.write, parts * 4))
        data = velk.decompress(archive.getvalue())
        got = [data[at : at + 70001] for at in range(0, len(data), 70001)]
        self.assertEqual(sorted(got), sorted(parts * 4))

    def test_files_that_nobody_closes(self):
        # At the end of the process, in a cycle, and in a child of a process that has written.
        program = """if True:
            import gc, os, sys, velk
            kept = velk.open(sys.argv[1], "w")
            kept.write(b"kept")
            cycle = [velk.open(sys.argv[2], "w")]
            cycle[0].write(b"cycle")
            cycle[0].itself = cycle
            del cycle
            gc.collect()
            child = velk.open(sys.argv[3], "w")
            if os.fork() == 0:
                child.write(b"child")
                child.close()
                os._exit(0)
            os._exit(1) if os.wait()[1] else child.write(b" and parent" * 100000)
            # What has threads already belongs to the process that began it.
            if os.fork() == 0:
                try:
                    child.write(b"child")
                except ValueError:
                    child.close()
                    os._exit(0)
                os._exit(1)
            os._exit(1) if os.wait()[1] else None
        """
        names = [self.folder / name for name in ("kept", "cycle", "child")]
        subprocess.run([sys.executable, "-c", program, *names], check=True, timeout=60)
        self.assertEqual([velk.open(name).read() for name in names],
                         [b"kept", b"cycle", b"child" + b" and parent" * 100000])

    def test_modes_and_closing(self):
        path = self.folder / "text.velk"
        with velk.open(path, "xt", encoding="ascii", newline="\r\n") as file:
            file.write("one\ntwo\n")
        with velk.open(str(path), "rt", encoding="ascii") as file:
            self.assertEqual(list(file), ["one\n", "two\n"])
        self.assertRaises(FileExistsError, velk.open, path, "x")
        for mode in ("ra", "rw", "rbt", "U", "rbb"):
            self.assertRaises(ValueError, velk.open, path, mode)
        for mistake in ({"block_size": 1}, {"block_size": BLOCK + 1}, {"plain": 2},
                        {"block_size": 2**32 + BLOCK}, {"stages_off": 0}, {"level": 10}):
            self.assertRaises(ValueError, velk.open, path, "w", **mistake)
        self.assertRaises(TypeError, velk.open, path, "w", levels=9)
        self.assertRaises(TypeError, velk.open, 3.5)
        self.assertRaises(TypeError, velk.compress, "text")

        with velk.open(path, "a") as file:
            file.write(b"three")
        file = velk.open(path)  # the mistakes have not emptied it
        self.assertEqual(file.read(), b"one\r\ntwo\r\nthree")
        self.assertEqual((file.name, file.mode), (str(path), "rb"))
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

    def test_closed_before_the_end(self):
        def threads():
            return len(os.listdir("/proc/self/task")) if os.path.exists("/proc/self/task") else 0

        before = threads()
        for source in (io.BytesIO(ARCHIVE), Pipe(ARCHIVE)):
            with velk.open(source, threads=3) as file:
                file.read(1)
            self.assertEqual(threads(), before)
        # At the end of the process, too.
        program = "import sys, velk; file = velk.open(sys.stdin.buffer); print(file.read(1))"
        for source in (subprocess.PIPE, None):
            with tempfile.TemporaryFile() as archive:
                archive.write(ARCHIVE)
                archive.seek(0)
                done = subprocess.run(
                    [sys.executable, "-c", program], check=True, capture_output=True, timeout=60,
                    **({"stdin": archive} if source is None else {"input": ARCHIVE}))
            self.assertEqual((done.stdout.strip(), done.stderr), (b"b'0'", b""))

    @unittest.skipUnless(find_spec("distributed"), "needs Dask's distributed")
    def test_many_processes_do_what_one_does(self):
        examples = Path(__file__).parents[2] / "examples"
        original, archive = self.folder / "original", self.folder / "by-dask"
        original.write_bytes(CODE)

        def run(example, *arguments):
            command = [sys.executable, examples / example, *arguments, "--workers", "2"]
            return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout

        run("dask_compress.py", original, archive, "--block-size", str(BLOCK))
        self.assertEqual(archive.read_bytes(), velk.compress(CODE, **SETTINGS))
        with archive.open("ab") as file:
            file.write(ARCHIVE)
        lines = (CODE + TEXT).count(b"\n")
        self.assertEqual(int(run("dask_read.py", archive)), lines)


if __name__ == "__main__":
    unittest.main()
