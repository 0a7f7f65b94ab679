"""VELK's archives from Python, by libvelk: as the standard modules bz2 and lzma.

    import velk

    archive = velk.compress(data)
    data = velk.decompress(archive)

    with velk.open("log.velk", "w") as file:
        file.write(data)
    with velk.open("log.velk") as file:
        file.seek(1_000_000_000)        # costs one block
        line = file.readline()

Settings of compress, open, VelkFile, VelkCompressor and Encoder, by name:

    level             1 to 9, as velkz -1 to -9; 5 if not given
    block_size        bytes, 131072 to 16776192, a multiple of 1024, in place of the level's
    fixed_block_size  true: that size even for a shorter input
    stages_off        OFF_EOL | ..., of OFF_BWT and OFF_ST at least one; OFF_ST if not given
    no_fallback       true: blocks are sorted and coded even where that does not pay
    plain             true: no index behind the blocks
    threads           how many work at once; as many as there are processors if not given

What is not an archive, or a damaged one, raises VelkError; one whose end is missing CutError,
which is an EOFError and a ValueError, too. Archives in a row are an archive of the originals in a
row. Encoder, make_index, VelkFile.blocks and Decoder are for programs that spread the blocks of an
input over machines themselves.

Objects may be shared by threads; they can't be copied or pickled. Subinterpreters have objects
of their own. A forked process can't go on with what its parent has begun to compress or restore.
"""

from velk._file import Block, VelkFile, open
from velk._velk import (
    ENTRY_SIZE,
    HEADER_SIZE,
    OFF_BWT,
    OFF_DCE,
    OFF_DELTA,
    OFF_EOL,
    OFF_FLT32,
    OFF_LZP,
    OFF_RLE,
    OFF_ST,
    CutError,
    Decoder,
    Encoder,
    VelkCompressor,
    VelkDecompressor,
    VelkError,
    __version__,
    compress,
    make_index,
)


def decompress(data, *, threads=0):
    """Return the original of an archive, or of several in a row, a bytes-like object."""
    with memoryview(data) as view:
        if view.nbytes == 0:
            return b""  # of none in a row
        return VelkDecompressor(members=True, threads=threads).finish(view)


__all__ = [
    "ENTRY_SIZE",
    "HEADER_SIZE",
    "OFF_BWT",
    "OFF_DCE",
    "OFF_DELTA",
    "OFF_EOL",
    "OFF_FLT32",
    "OFF_LZP",
    "OFF_RLE",
    "OFF_ST",
    "Block",
    "CutError",
    "Decoder",
    "Encoder",
    "VelkCompressor",
    "VelkDecompressor",
    "VelkError",
    "VelkFile",
    "compress",
    "decompress",
    "make_index",
    "open",
]
