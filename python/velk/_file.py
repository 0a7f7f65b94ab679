"""Archives as files: VelkFile and open."""

import builtins
import io
import os
import queue
import threading
import types
import weakref

from velk._library import (
    Report,
    checked_options,
    compress_stream,
    read_block,
    read_piece,
    restore_stream,
    serve_reader,
)

_PIECE = 64 * 1024  # bytes that are read at a time, of one block as most sizes of blocks are


class _Worker:
    """The library at work in a thread of its own.

    It asks for bytes of the archive. The thread that waits for a result reads them, so that
    errors and signals come out of the call that they belong to. What is asked stays so until
    it is answered, and a second answer goes unheard: whatever an exception breaks into may be
    repeated.
    """

    def __init__(self, work, *arguments):
        shared = types.SimpleNamespace(asked=(None, None), ended=False)
        news = queue.SimpleQueue()  # a signal can't leave it locked, as it can an event

        def ask(request):
            answers = queue.SimpleQueue()
            shared.asked = request, answers
            news.put(None)
            return None if shared.ended else answers.get()

        def end():
            shared.ended = True
            answers = shared.asked[1]
            if answers is not None:
                answers.put(None)
            if thread is not threading.current_thread():
                thread.join()

        self._shared, self._news = shared, news
        self._asked = self._answered = shared.asked
        self.report = Report()
        arguments = (ask, *arguments, self.report)
        thread = threading.Thread(target=work, args=arguments, daemon=True)
        thread.start()
        self.end = weakref.finalize(self, end)  # as the process ends, too

    def request(self):
        return self._asked[0]

    def answer(self, answer):
        self._asked[1].put(answer)
        self._answered = self._asked

    def result(self, read):
        """Reads for the thread until it hands over a result; that stays its request."""
        while True:
            asked = self._shared.asked
            if asked is self._answered:
                self._news.get()  # perhaps of a question that was answered without
                continue
            self._asked = asked
            if not isinstance(self.request(), tuple):
                return self.request()
            self.answer(read(*self.request()))


def _returned(result):
    if isinstance(result, Exception):
        raise result.with_traceback(None)
    return result


class _Original(io.RawIOBase):
    """The original of an archive, to be read; the piece read last is kept.

    What is read in order from the start is restored as a stream. Anything else is read by the
    library's reader, from then on.
    """

    def __init__(self, archive):
        seekable = getattr(archive, "seekable", None)
        self._archive = archive
        self._seekable = seekable is not None and seekable()
        self._base = archive.tell() if self._seekable else 0  # of the header
        self._lock = threading.RLock()  # of all below, and the archive's place
        self._stream = self._reader = None  # their workers
        # The piece, where it begins, and the end of what the stream has restored (-1: no stream
        # any more): one tuple, as a signal may break in between any two assignments.
        self._kept = b"", 0, 0
        self._position = 0

    def close(self):
        for worker in (self._stream, self._reader):
            if worker is not None:
                worker.end()
        super().close()

    def readable(self):
        return True

    def seekable(self):
        return self._seekable

    def readinto(self, buffer):
        piece, start, _ = self._kept
        if not 0 <= self._position - start < len(piece):
            with self._lock:
                self._fetch()
            piece, start, _ = self._kept
        at = self._position - start
        with memoryview(buffer) as view, view.cast("B") as room:
            part = memoryview(piece)[at : at + len(room)]
            room[: len(part)] = part
        self._position += len(part)
        return len(part)

    def seek(self, offset, whence=io.SEEK_SET):
        if whence == io.SEEK_CUR:
            offset += self._position
        elif whence == io.SEEK_END:
            offset += self.open().size
        elif whence != io.SEEK_SET:
            raise ValueError(f"Invalid value for whence: {whence}")
        if offset < 0:
            raise ValueError(f"negative seek position {offset}")
        self._position = offset
        return offset

    def open(self):
        """What the reader tells of the archive."""
        self._ask_reader(lambda reader: b"")
        return self._reader.report

    def whole(self):
        if self._seekable:
            return True if self.open().whole else None
        return True if self._stream is not None and self._stream.report.whole else None

    def blocks(self):
        count = self.open().blocks
        return self._ask_reader(lambda reader: [read_block(reader, i) for i in range(count)])

    def _fetch(self):
        """Reads the piece in which the position is."""
        if self._position == self._kept[2]:
            if self._stream is None:
                self._stream = _Worker(restore_stream)
            if self._stream.request() is self._kept[0]:  # it has been taken
                self._stream.answer(True)
            piece = _returned(self._stream.result(self._read))
            self._kept = piece, self._position, self._position + len(piece)
            return
        start = self._position - self._position % _PIECE
        piece = self._ask_reader(lambda reader: read_piece(reader, start, _PIECE))
        self._kept = piece, start, -1
        if self._stream is not None:
            self._stream.end()

    def _ask_reader(self, function):
        if not self._seekable:
            raise io.UnsupportedOperation("the archive's file can't seek")
        with self._lock:
            if self._reader is None:
                size = self._archive.seek(0, io.SEEK_END) - self._base
                self._reader = _Worker(serve_reader, size)
            self._reader.result(self._read)  # of a call that an exception ended
            self._reader.answer(function)
            return _returned(self._reader.result(self._read))

    def _read(self, size, offset):
        if self._seekable:
            self._archive.seek(self._base + offset)
        return bytes(self._archive.read(size) or b"")


class _Writer:
    """Hands the input to the library, which cuts and compresses it, and writes what it gives."""

    def __init__(self, settings):
        self.archive = None  # the file to write to
        self.position = 0
        self._options = checked_options(settings)
        self._compressor = None  # from the first write on: a process may fork before
        self._failed = False     # or a call is under way, which an exception may end
        self._finished = False

    def write(self, data):
        with memoryview(data) as view, view.cast("B") as rest:
            at = 0
            while at < len(rest):
                part = rest[at : at + self._wanted()]
                self._compressor.answer(bytes(part))
                self._failed = False
                at += len(part)
            self.position += at
            return at

    def finish(self):
        """Writes what is left; after an error, nothing, as records would be missing."""
        finished, self._finished = self._finished, True
        if finished:
            return
        try:
            if not self._failed:
                while self._wanted():
                    self._compressor.answer(b"")
                    self._failed = False
        finally:
            if self._compressor is not None:
                self._compressor.end()

    def _wanted(self):
        """How many bytes of input are wanted, once what there is of the archive is written."""
        failed, self._failed = self._failed, True
        if failed:
            raise ValueError("an earlier write to the archive failed")
        if self._compressor is None:
            self._compressor = _Worker(compress_stream, self._options)
            self._compressor.end.atexit = False  # VelkFile's finalizer needs it then
        return _returned(self._compressor.result(self._put))

    def _put(self, piece):
        self.archive.write(piece)
        return True


class VelkFile(io.BufferedIOBase):
    """The original of an archive as a file, to be read or to be written.

    `filename` is the archive: a path, or a file object, which is not closed with this one.
    `mode` is "r" (default), "w" to write over what is there, or "x" to make a new file,
    with a "b" behind it or without. `settings` go with writing only.

    Reading may seek if the archive's file can: what is read costs the blocks that it lies
    in. What is written is compressed by threads, in memory for 11 blocks each, 13 at level 9, and
    the archive is complete when this file is closed.
    """

    _file = None  # the archive's, while this one is open
    _own_file = False
    _reader = None
    _writer = None

    def __init__(self, filename, mode="r", **settings):
        mode = mode.replace("b", "", 1) or "r"
        if mode == "a":
            raise ValueError("an archive can't be appended to: its index would no longer be at its end")
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
            self._reader = io.BufferedReader(_Original(self._file), _PIECE)
        else:
            self._writer = writer
            writer.archive = self._file
            # Before the process ends, or a cycle's objects go: later there are no threads.
            self._finalizer = weakref.finalize(self, writer.finish)

    def close(self):
        """Completes an archive that is written. A second call does nothing."""
        if self.closed:
            return
        try:
            if self._reader is not None:
                self._reader.close()
            if self._writer is not None:
                self._finalizer.detach()
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

    @property
    def whole(self):
        """True if nothing of the archive is missing; None: unknown, as of some plain ones.

        Where the archive's file can't seek, None until all has been read.
        """
        return self._to_read().raw.whole()

    def blocks(self):
        """Return the Blocks of an archive whose file can seek, in order."""
        return self._to_read().raw.blocks()

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
