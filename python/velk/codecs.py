"""VELK's archives in the programs of data: fsspec, numcodecs and zarr, Dask.

    import velk.codecs

    velk.codecs.register()
    pandas.read_csv("s3://store/x.csv.velk", storage_options={"compression": "infer"})
    zarr.array(data, compressor=velk.codecs.Velk(level=9))
    velk.codecs.from_archive("s3://store/log.velk")[0].count(b"\\n").compute()

None of these packages has to be there, and the module velk imports none; Velk is here where
numcodecs is.
"""

import copy
import io
from importlib.util import find_spec

import velk

__all__ = ["from_archive", "register"]


def register():
    """Make "velk" known to fsspec and numcodecs, in this process; again does no harm.

    fsspec infers it for files named *.velk.
    """
    if find_spec("fsspec"):
        from fsspec.compression import register_compression

        register_compression("velk", _File, "velk", force=True)
    if find_spec("numcodecs"):
        register_codec(Velk)


class _File(velk.VelkFile):
    """Closes the archive's file, too: pandas drops that one, and an upload would fail unheard."""

    def __init__(self, archive, mode="rb", **settings):
        self.__archive = archive  # no name that VelkFile has
        super().__init__(archive, mode, **settings)

    def close(self):
        super().close()
        self.__archive.close()


if find_spec("numcodecs"):  # here, as entry points and pickle look for a class in its module
    from numcodecs.abc import Codec
    from numcodecs.compat import ensure_contiguous_ndarray
    from numcodecs.registry import register_codec

    __all__.append("Velk")

    class Velk(Codec):
        """Compresses the chunks of arrays, each to an archive: a numcodecs codec.

        `level` and `block_size` are those of velk.compress. A chunk takes one thread, as
        programs with many run several at a time.
        """

        codec_id = "velk"

        def __init__(self, level=5, block_size=None):
            self.level = level
            self.block_size = block_size

        def encode(self, buf):
            settings = {"level": self.level, "threads": 1}
            if self.block_size is not None:
                settings["block_size"] = self.block_size
            return velk.compress(ensure_contiguous_ndarray(buf), **settings)

        def decode(self, buf, out=None):
            original = velk.decompress(ensure_contiguous_ndarray(buf), threads=1)
            if out is None:
                return original
            # In memoryviews sizes must agree; an array would repeat a single byte.
            memoryview(ensure_contiguous_ndarray(out).view("u1"))[:] = original
            return out


def from_archive(urlpath, partition_size=32 << 20, **storage_options):
    """Return the original of one archive as a list of Dask's delayed bytes, in order.

    `urlpath` is a path or a URL; fsspec.open takes the `storage_options`. A part is
    partition_size bytes of the original, or more up to the end of a block. It reads the
    archive's index, its own blocks and the one behind: its last line is whole, and its first
    begins in it. Where no line begins, it is empty.
    """
    import dask
    import fsspec

    archive = fsspec.open(urlpath, **storage_options)
    with archive as file, velk.open(file) as original:
        blocks = original.blocks()
        size = original.seek(0, io.SEEK_END)
    cuts = [0]
    for block in blocks:
        if block.start - cuts[-1] >= partition_size:
            cuts.append(block.start)
    read = dask.delayed(_read_lines)
    return [read(archive, *part) for part in zip(cuts, [*cuts[1:], size])]


def _read_lines(archive, start, end):
    """The lines that begin in (start, end], and at 0."""
    # Threads may share `archive`, and have each a processor at most.
    with copy.copy(archive) as file, velk.open(file, threads=1) as original:
        original.seek(start)
        if start:
            original.readline()
        size = end - original.tell()
        return b"" if size < 0 else original.read(size) + original.readline()
