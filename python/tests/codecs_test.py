"""velk.codecs with the packages that it is for, as far as they are installed."""

import io
import os
import subprocess
import sys
import tempfile
import unittest
from importlib.util import find_spec
from pathlib import Path

import velk
from velk import codecs

BLOCK = 131072
TABLE = b"x,y\n" + b"".join(b"%d,%d\n" % (i, i * i % 9973) for i in range(60000))  # 5 blocks
ARCHIVE = velk.compress(TABLE, block_size=BLOCK)
# Under the sanitizers, which the library needs from a process's start, nbdkit hangs.
NBDKIT = "LD_PRELOAD" not in os.environ and not os.system(
    "(nbdkit python --version && nbdcopy --version) >/dev/null 2>&1")


def needs(*packages):
    missing = [package for package in packages if not find_spec(package)]
    return unittest.skipIf(missing, f"needs {missing}")


class Codecs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        codecs.register()

    def test_the_module_imports_none(self):
        program = "import sys, velk; print({'dask', 'fsspec', 'numcodecs'} & {*sys.modules})"
        done = subprocess.run([sys.executable, "-c", program], check=True, capture_output=True)
        self.assertEqual(done.stdout.strip(), b"set()")

    @needs("fsspec")
    def test_a_store_of_ranges(self):
        from fsspec.core import OpenFile
        from fsspec.spec import AbstractBufferedFile, AbstractFileSystem

        ranges, sent = [], []

        class File(AbstractBufferedFile):
            def _fetch_range(self, start, end):
                ranges.append((start, end))
                return ARCHIVE[start:end]

            def _upload_chunk(self, final):
                sent.append(self.buffer.getvalue())
                raise RuntimeError("full")

        class Store(AbstractFileSystem):
            def _open(self, path, mode, **_):
                return File(self, path, mode, cache_type="none", size=len(ARCHIVE))

        with OpenFile(Store(), "x.csv.velk", compression="infer") as file:
            self.assertEqual(file.seek(-9, io.SEEK_END), len(TABLE) - 9)
            self.assertEqual(len(ranges), 2)
            self.assertEqual(file.read(), TABLE[-9:])
        file = OpenFile(Store(), "x.csv.velk", "wb", compression="infer").open()
        file.write(TABLE)
        self.assertRaisesRegex(RuntimeError, "full", file.close)
        self.assertEqual(velk.decompress(sent[0]), TABLE)

    @needs("fsspec", "pandas")
    def test_tables(self):
        import fsspec
        import pandas

        url, options = "memory://x.csv.velk", {"compression": "infer"}
        store = fsspec.filesystem("memory")
        store.pipe(url, ARCHIVE)
        frame = pandas.read_csv(url, storage_options=options)
        pandas.testing.assert_frame_equal(frame, pandas.read_csv(io.BytesIO(TABLE)))
        frame[1:].to_csv(url, index=False, storage_options=options)
        self.assertEqual(velk.decompress(store.cat(url)), b"x,y\n" + TABLE[8:])

    @needs("zarr")
    def test_arrays(self):
        import numpy
        import zarr

        codec = codecs.Velk(level=1, block_size=BLOCK)
        for kind, order in (("<f8", "C"), (">i2", "F"), ("c16", "C"), ("M8[s]", "F")):
            data = numpy.arange(12000).astype("i4").reshape(120, 100).astype(kind)
            chunks = (50, 100) if order == "C" else (120, 35)  # whole ones are decoded in place
            store = zarr.MemoryStore()
            zarr.array(data, chunks=chunks, order=order, store=store, compressor=codec)
            again = zarr.open(store, "r")
            self.assertEqual(again.compressor, codec)
            numpy.testing.assert_array_equal(again[:], data)
        for settings in ({"level": 1}, {"block_size": 2 * BLOCK}):
            encoded = codecs.Velk(**settings).encode(TABLE)
            self.assertEqual(encoded, velk.compress(TABLE, **settings))
            self.assertEqual(codec.decode(encoded), TABLE)
        self.assertRaises(ValueError, codec.decode, codec.encode(b"x"), numpy.empty(2, "u1"))

    @needs("dask")
    def test_parts_of_lines(self):
        import dask

        # Members that begin with a line and within one, and a line of many blocks.
        lines = TABLE, TABLE + b"x" * 3 * BLOCK + b"\n", b"\n\n" + TABLE[:-1], TABLE
        for members, sizes in ((lines, {1: 20, 2 * BLOCK: 7, 1 << 30: 1}), ([b""], {1: 1})):
            Path(self.folder, "lines.velk").write_bytes(
                b"".join(velk.compress(member, block_size=BLOCK) for member in members))
            for size, least in sizes.items():
                parts = dask.compute(*codecs.from_archive(self.folder + "/lines.velk", size))
                self.assertGreaterEqual(len(parts), least)
                self.assertEqual(b"".join(parts), b"".join(members))
                self.assertLessEqual({part[-1:] for part in parts[:-1]}, {b"", b"\n"})

    @unittest.skipUnless(NBDKIT, "needs nbdkit with its Python plug-in, and nbdcopy")
    def test_a_disk_image(self):
        example = Path(__file__).parents[2] / "examples" / "nbdkit_velk.py"
        run = 'nbdcopy --request-size=4096 "$uri" copy && nbdinfo --is read-only "$uri"'
        command = ["nbdkit", "-U", "-", "python", example, "file=disk.velk", "--run", run]
        Path(self.folder, "disk.velk").write_bytes(ARCHIVE)
        subprocess.run(command, check=True, cwd=self.folder, timeout=60)
        self.assertEqual(Path(self.folder, "copy").read_bytes(), TABLE)


if __name__ == "__main__":
    unittest.main()
