"""Archives as files: VelkFile and open."""

import builtins
import collections
import io
import operator
import os
import threading
import weakref

from velk._velk import Reader, VelkCompressor, VelkDecompressor

_PIECE = 64 * 1024  # bytes that are read at a time

Block = collections.namedtuple("Block", "offset start header record_size size crc indexed")
Block.__doc__ = """A block of an archive, of `size` bytes from `start` of the original on.

Its record is `record_size` bytes from `offset` of the archive on, its member's header is at
`header`. `crc` is what zlib.crc32 gives for the block, where `indexed` is true.
"""


class _Original(io.RawIOBase):
    """The original of an archive, to be read.

    What is read in order from the start is restored as a stream, ahead by threads where nobody
    waits at the archive's other end. Anything else is read by the library's reader.
    """

    def __init__(self, archive, threads):
        seekable = getattr(archive, "seekable", None)
        self._seekable = seekable is not None and seekable()
        # Of a pipe what there is will do; a block that is complete is not to wait for more.
        name = "read" if self._seekable or not hasattr(archive, "read1") else "read1"
        self._archive, self._read_name = archive, name
        self._threads = threads if self._seekable else 1
        self._base = archive.tell() if self._seekable else 0  # of the header
        self._lock = threading.RLock()  # of all below, and the archive's place
        self._reader = None
        self._position = 0
        self._start_stream()

    def _start_stream(self):
        self._stream = None
        self._restored = self._taken = 0  # bytes by the stream
        self._ended = False

    def close(self):
        self._stream = self._reader = None
        super().close()

    def readable(self):
        return True

    def seekable(self):
        return self._seekable

    def readinto(self, buffer):
        with self._lock, memoryview(buffer) as view, view.cast("B") as room:
            if self._position == 0 and self._restored != 0:
                self._start_stream()
            if not room:
                return 0
            if self._position == self._restored:
                piece = self._restore(len(room))
            else:
                piece = self.open().read(self._position, len(room))
            room[: len(piece)] = piece
            self._position += len(piece)
            return len(piece)

    def readall(self):
        return b"".join(iter(lambda: self.read(16 * _PIECE), b""))

    def seek(self, offset, whence=io.SEEK_SET):
        """As the standard modules' files, to the start or the end at most."""
        if whence == io.SEEK_CUR:
            offset += self._position
        elif whence == io.SEEK_END:
            offset += self.open().size
        elif whence != io.SEEK_SET:
            raise ValueError(f"Invalid value for whence: {whence}")
        if offset > self._position:
            offset = min(offset, self.open().size)
        self._position = max(offset, 0)
        return self._position

    def tell(self):
        return self._position

    def open(self):
        """The library's reader of the archive."""
        if not self._seekable:
            raise io.UnsupportedOperation("the archive's file can't seek")
        with self._lock:
            if self._reader is None:
                size = self._archive.seek(0, io.SEEK_END) - self._base
                self._reader = Reader(self._archive, self._base, size)
            return self._reader

    def whole(self):
        if self._seekable:
            return True if self.open().whole else None
        return True if self._stream is not None and self._stream.whole else None

    def _restore(self, size):
        """The next bytes of the stream, at most so many; none at its end."""
        if self._stream is None:
            self._stream = VelkDecompressor(members=True, threads=self._threads)
        stream, piece = self._stream, b""
        while not piece and not stream.eof:
            data = b""
            if stream.needs_input and not self._ended:
                data = self._read_archive()
            step = stream.finish if self._ended else stream.decompress
            piece = step(data, size)
        self._restored += len(piece)
        return piece

    def _read_archive(self):
        if self._seekable:
            self._archive.seek(self._base + self._taken)
        data = getattr(self._archive, self._read_name)(_PIECE)
        if data is None:
            raise BlockingIOError("the archive's file would block")
        self._taken += len(data)
        self._ended = not data
        return data


class _Writer:
    """Compresses what is written, and writes the archive."""

    def __init__(self, archive, settings):
        self.position = 0
        self._archive = archive
        self._compressor = VelkCompressor(**settings)
        self._lock = threading.Lock()
        self._failed = False  # or a call is under way, which an exception may end
        self._finished = False

    def write(self, data):
        with self._lock, memoryview(data) as view:
            self._put(self._compressor.compress, view)
            self.position += view.nbytes
            return view.nbytes

    def finish(self):
        """Writes what is left; after an error nothing, as something would be missing before."""
        with self._lock:
            finished, self._finished = self._finished, True
            if not finished and not self._failed:
                self._put(self._compressor.flush)

    def _put(self, compress, *data):
        failed, self._failed = self._failed, True
        if failed:
            raise ValueError("an earlier write to the archive failed")
        rest = compress(*data)
        while rest:
            put = self._archive.write(rest)
            if put is None and isinstance(self._archive, io.RawIOBase):
                raise BlockingIOError("the archive's file would block")
            rest = rest[len(rest) if put is None else put :]
        self._failed = False


class VelkFile(io.BufferedIOBase):
    """The original of an archive as a file, to be read or to be written.

    `filename` is the archive: a path, or a file object, which is not closed with this one.
    `mode` is "r" (default), "w" to write over what is there, "x" to make a new file or "a" to
    add another archive in a row, with a "b" behind it or without. `threads` may be given for
    reading, and all `settings` for writing.

    Reading may seek if the archive's file can: what is read costs the blocks that it lies
    in. What is written is compressed by threads, in memory for 11 blocks each, 13 at level 9, and
    the archive is complete when this file is closed.
    """

    _file = None  # the archive's, while this one is open
    _own_file = False
    _buffer = None  # to read
    _writer = None  # or to write

    def __init__(self, filename, mode="r", **settings):
        kind = mode.replace("b", "", 1) or "r"
        if kind not in ("r", "w", "x", "a"):
            raise ValueError(f"Invalid mode: {mode!r}")
        reads = kind == "r"
        if reads and settings.keys() - {"threads"}:
            raise ValueError("settings are for writing")
        VelkCompressor(**settings)  # a mistake is to empty no file
        if isinstance(filename, (str, bytes, os.PathLike)):
            # Each read asks for as much as it needs.
            self._file = builtins.open(filename, kind + "b", 0 if reads else -1)
            self._own_file = True
        elif hasattr(filename, "read" if reads else "write"):
            self._file = filename
        else:
            raise TypeError("filename must be a str, bytes, file or PathLike object")
        self.mode = "rb" if reads else "wb"
        if reads:
            self._buffer = io.BufferedReader(
                _Original(self._file, settings.get("threads", 0)), _PIECE)
        else:
            self._writer = _Writer(self._file, settings)
            # As the process ends, or a cycle's objects go, before the archive's file does.
            self._finalizer = weakref.finalize(self, self._writer.finish)

    def close(self):
        """Complete an archive that is written. A second call does nothing."""
        if self.closed:
            return
        try:
            if self._buffer is not None:
                self._buffer.close()
            if self._writer is not None:
                self._finalizer.detach()
                self._writer.finish()
        finally:
            file, self._file = self._file, None
            self._buffer = self._writer = None
            if self._own_file:
                file.close()

    @property
    def closed(self):
        return self._file is None

    @property
    def name(self):
        """The name of the archive's file."""
        self._check_open()
        return self._file.name

    def _check_open(self):
        if self.closed:
            raise ValueError("I/O operation on closed file")

    def _to_read(self):
        self._check_open()
        if self._buffer is None:
            raise io.UnsupportedOperation("File not open for reading")
        return self._buffer

    @property
    def whole(self):
        """True if nothing of the archive is missing; None: unknown, as of some plain ones.

        Where the archive's file can't seek, None until all has been read.
        """
        return self._to_read().raw.whole()

    def blocks(self):
        """Return the Blocks of an archive whose file can seek, in order."""
        reader = self._to_read().raw.open()
        return [Block(*reader.block(number)) for number in range(reader.blocks)]

    def fileno(self):
        """The descriptor of the archive's file."""
        self._check_open()
        return self._file.fileno()

    def readable(self):
        self._check_open()
        return self._buffer is not None

    def writable(self):
        self._check_open()
        return self._writer is not None

    def seekable(self):
        return self.readable() and self._buffer.seekable()

    def read(self, size=-1):
        return self._to_read().read(size)

    def read1(self, size=-1):
        return self._to_read().read1(size)

    def readinto(self, buffer):
        return self._to_read().readinto(buffer)

    def readline(self, size=-1):
        return self._to_read().readline(operator.index(size))

    def readlines(self, hint=-1):
        return self._to_read().readlines(operator.index(hint))

    def peek(self, size=0):
        """At least one byte, unless at the end; the position stays."""
        return self._to_read().peek(size)

    def seek(self, offset, whence=io.SEEK_SET):
        return self._to_read().seek(offset, whence)

    def tell(self):
        self._check_open()
        return self._writer.position if self._buffer is None else self._buffer.tell()

    def write(self, data):
        self._check_open()
        if self._writer is None:
            raise io.UnsupportedOperation("File not open for writing")
        return self._writer.write(data)


def open(filename, mode="rb", *, encoding=None, errors=None, newline=None, **settings):
    """Open an archive to read or write its original, as bytes or as text.

    A mode with a "t" is for text: the VelkFile is then wrapped into an io.TextIOWrapper
    with this encoding, error handling and newlines. See VelkFile for the rest.
    """
    if "t" not in mode:
        if (encoding, errors, newline) != (None, None, None):
            raise ValueError("encoding, errors and newline are for text mode")
        return VelkFile(filename, mode, **settings)
    if "b" in mode:
        raise ValueError(f"Invalid mode: {mode!r}")
    file = VelkFile(filename, mode.replace("t", "", 1), **settings)
    return io.TextIOWrapper(file, encoding, errors, newline)
