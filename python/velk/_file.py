"""Archives as files: VelkFile and open."""

import builtins
import collections
import concurrent.futures
import io
import os

from velk._library import (
    HEADER_SIZE,
    MAX_THREADS,
    RECORD_HEAD_SIZE,
    Decoder,
    Encoder,
    VelkError,
    make_options,
    record_size,
)

_CUT_SHORT = "the archive is damaged or cut short"


def _processors():
    """How many this process may use."""
    return len(os.sched_getaffinity(0)) if hasattr(os, "sched_getaffinity") else os.cpu_count() or 1


class _Original(io.RawIOBase):
    """The original of an archive, to be read; the block decoded last is kept.

    Block k begins at k times the block size, and its record where the heads of the
    records before it lead, which are read as far as they are needed.
    """

    def __init__(self, archive):
        seekable = getattr(archive, "seekable", None)
        self._archive = archive
        self._seekable = seekable is not None and seekable()
        self._base = archive.tell() if self._seekable else 0  # of the header
        self._decoder = None  # until the first read
        self._records = []  # the offset, the size and the head of each one found
        self._end = HEADER_SIZE  # where the next one is
        self._number = -1  # of the block kept
        self._block = b""
        self._position = 0

    def readable(self):
        return True

    def seekable(self):
        return self._seekable

    def readinto(self, buffer):
        self._begin()
        number, at = divmod(self._position, self._decoder.block_size)
        with memoryview(buffer) as view, view.cast("B") as room:
            if not self._keep(number):
                return 0
            part = memoryview(self._block)[at : at + len(room)]
            room[: len(part)] = part
        self._position += len(part)
        return len(part)

    def seek(self, offset, whence=io.SEEK_SET):
        if whence == io.SEEK_CUR:
            offset += self._position
        elif whence == io.SEEK_END:
            offset += self._size()
        elif whence != io.SEEK_SET:
            raise ValueError(f"Invalid value for whence: {whence}")
        if offset < 0:
            raise ValueError(f"negative seek position {offset}")
        self._position = offset
        return offset

    def _begin(self):
        if self._decoder is None:
            self._decoder = Decoder(self._fetch(0, HEADER_SIZE))

    def _size(self):
        self._begin()
        while self._find():
            pass
        if not self._records:
            return 0
        last = len(self._records) - 1
        self._keep(last)
        return last * self._decoder.block_size + len(self._block)

    def _fetch(self, offset, size):
        """These bytes of the archive; fewer where it ends. In order if it can't seek."""
        if self._seekable:
            self._archive.seek(self._base + offset)
        parts = []
        while size > 0:
            part = self._archive.read(size)
            if not part:
                break
            parts.append(part)
            size -= len(part)
        return b"".join(parts)

    def _find(self):
        """Whether there is one more record; then it is added to those found."""
        head = self._fetch(self._end, RECORD_HEAD_SIZE)
        size = record_size(head) if head else 0
        if size == 0:
            return False
        if size > self._decoder.max_record_size:
            raise VelkError(_CUT_SHORT)
        self._records.append((self._end, size, head))
        self._end += size
        return True

    def _keep(self, number):
        """Keeps this block, decoding it if need be; False behind the last one."""
        if number == self._number:
            return True
        while number >= len(self._records):
            if not self._find():
                return False
        offset, size, head = self._records[number]
        rest = self._fetch(offset + RECORD_HEAD_SIZE, size - RECORD_HEAD_SIZE)
        block = self._decoder.decode(head + rest)
        if len(block) != self._decoder.block_size:
            last = number + 1 == len(self._records) and not self._find()
            if not last or len(block) > self._decoder.block_size:
                raise VelkError("blocks of this archive have other sizes than its header says")
        self._number, self._block = number, block
        return True


class _Writer:
    """Cuts an input into blocks, has threads compress them, writes the records in order.

    The last block is compressed when the input ends, by the caller's thread: it is then
    that the size of a short input is known, and a short input needs no other thread.
    """

    def __init__(self, settings):
        self.archive = None  # the file to write to
        self.position = 0
        self._settings = settings
        self._threads = min(make_options(settings).threads or _processors(), MAX_THREADS)
        self._size = None
        self._encoders = [Encoder(**settings)]  # those not at work
        self._block_size = self._encoders[0].block_size
        self._block = bytearray()
        self._pool = None
        self._records = collections.deque()  # futures of records to be written
        self._failed = False

    def write(self, data):
        with memoryview(data) as view, view.cast("B") as rest:
            at = 0
            while at < len(rest):
                if len(self._block) == self._block_size:
                    self._submit()
                part = rest[at : at + self._block_size - len(self._block)]
                self._block += part
                at += len(part)
            self.position += at
            return at

    def finish(self):
        """Writes what is left; after an error, nothing, as records would be missing."""
        try:
            if self._failed:
                return
            if self._pool is None:
                self._size = self.position
                self._encoders = [Encoder(self._size, **self._settings)]
                self.archive.write(self._encoders[0].header)
            while len(self._records) >= self._threads:  # none has an encoder to spare
                self._write_oldest()
            last = self._encode(self._block) if self._block else b""
            while self._records:
                self._write_oldest()
            self.archive.write(last)
        finally:
            if self._pool is not None:
                self._pool.shutdown(cancel_futures=True)

    def _submit(self):
        failed, self._failed = self._failed, True
        if failed:
            raise ValueError("an earlier write to the archive failed")
        if self._pool is None:
            self.archive.write(self._encoders[0].header)
            self._pool = concurrent.futures.ThreadPoolExecutor(self._threads, "velk")
        if len(self._records) > self._threads:
            self._write_oldest()
        self._records.append(self._pool.submit(self._encode, self._block))
        self._block = bytearray()
        self._failed = False

    def _write_oldest(self):
        self.archive.write(self._records.popleft().result())

    def _encode(self, block):
        try:
            encoder = self._encoders.pop()
        except IndexError:
            encoder = Encoder(self._size, **self._settings)
        record = encoder.encode(block)
        self._encoders.append(encoder)
        return record


class VelkFile(io.BufferedIOBase):
    """The original of an archive as a file, to be read or to be written.

    `filename` is the archive: a path, or a file object, which is not closed with this one.
    `mode` is "r" (default), "w" to write over what is there, or "x" to make a new file,
    with a "b" behind it or without. `settings` go with writing only.

    Reading may seek if the archive's file can: what is read costs the blocks that it lies
    in. The blocks that are written are compressed by threads, in memory for 11 blocks each,
    and the archive is complete when this file is closed.
    """

    _file = None  # the archive's, while this one is open
    _own_file = False
    _reader = None
    _writer = None

    def __init__(self, filename, mode="r", **settings):
        mode = mode.replace("b", "", 1) or "r"
        if mode == "a":
            raise ValueError("an archive can't be appended to: all its blocks but one are full")
        if mode not in ("r", "w", "x"):
            raise ValueError(f"Invalid mode: {mode!r}")
        if mode == "r" and settings:
            raise ValueError("settings are for writing")
        writer = None if mode == "r" else _Writer(settings)
        if isinstance(filename, (str, bytes, os.PathLike)):
            # Each read asks for as much as it needs.
            self._file = builtins.open(filename, mode + "b", 0 if mode == "r" else -1)
            self._own_file = True
        elif hasattr(filename, "read" if mode == "r" else "write"):
            self._file = filename
        else:
            raise TypeError("filename must be a str, bytes, file or PathLike object")
        if writer is None:
            self._reader = io.BufferedReader(_Original(self._file), 64 * 1024)
        else:
            self._writer = writer
            writer.archive = self._file

    def close(self):
        """Completes an archive that is written. A second call does nothing."""
        if self.closed:
            return
        try:
            if self._reader is not None:
                self._reader.close()
            if self._writer is not None:
                self._writer.finish()
        finally:
            file, self._file = self._file, None
            self._reader = self._writer = None
            if self._own_file:
                file.close()

    @property
    def closed(self):
        return self._file is None

    def _check_open(self):
        if self.closed:
            raise ValueError("I/O operation on closed file")

    def _to_read(self):
        self._check_open()
        if self._reader is None:
            raise io.UnsupportedOperation("File not open for reading")
        return self._reader

    def fileno(self):
        """The descriptor of the archive's file."""
        self._check_open()
        return self._file.fileno()

    def readable(self):
        self._check_open()
        return self._reader is not None

    def writable(self):
        self._check_open()
        return self._writer is not None

    def seekable(self):
        return self.readable() and self._reader.seekable()

    def read(self, size=-1):
        return self._to_read().read(size)

    def read1(self, size=-1):
        return self._to_read().read1(size)

    def readinto(self, buffer):
        return self._to_read().readinto(buffer)

    def readline(self, size=-1):
        return self._to_read().readline(size)

    def readlines(self, hint=-1):
        return self._to_read().readlines(hint)

    def peek(self, size=0):
        """At least one byte, unless at the end; the position stays."""
        return self._to_read().peek(size)

    def seek(self, offset, whence=io.SEEK_SET):
        return self._to_read().seek(offset, whence)

    def tell(self):
        self._check_open()
        return self._writer.position if self._reader is None else self._reader.tell()

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
