"""libvelk by ctypes: archives in memory, single blocks, and what reads files.

The calls with callbacks are for threads of their own: in the main thread a signal that arrives
during a call lets its exception (KeyboardInterrupt) loose as ctypes enters the next callback,
before its first line, where ctypes prints and forgets it and returns a number at random. All
calls release the interpreter's lock.
"""

import collections
import ctypes
import sys
import threading
from ctypes import (
    CFUNCTYPE,
    POINTER,
    byref,
    c_char_p,
    c_int,
    c_int64,
    c_size_t,
    c_uint8,
    c_uint32,
    c_uint64,
    c_void_p,
)

OFF_EOL = 0x01
OFF_FLT32 = 0x02
OFF_DELTA = 0x04
OFF_LZP = 0x08
OFF_BWT = 0x10
OFF_ST = 0x20
OFF_RLE = 0x40
OFF_DCE = 0x80

HEADER_SIZE = 18
ENTRY_SIZE = 12

_BLOCK_SLACK = 613  # bytes by which a decoded block may exceed the block size that is told
_INDEX_SIZE = 29  # bytes beside the entries
_SIZE_UNKNOWN = 2**64 - 1
_LARGE_PIECE = 4096  # bytes, above which a piece is handed over at once
_ERROR_ARGUMENT, _ERROR_MEMORY = 1, 2


class VelkError(OSError):
    """Not an archive, or a damaged one. An OSError, as what bz2 and gzip raise for theirs."""


class _Options(ctypes.Structure):
    _fields_ = [
        ("block_size", c_uint32),
        ("threads", c_uint32),
        ("memory_limit", c_uint64),
        ("stages_off", c_uint8),
        ("fixed_block_size", c_uint8),
        ("no_fallback", c_uint8),
        ("plain", c_uint8),
        ("level", c_uint8),
        ("reserved", c_uint8 * 43),
    ]


class Report(ctypes.Structure):
    """What a call tells of the archive that it reads."""

    _fields_ = [
        ("size", c_uint64),
        ("archive_size", c_uint64),
        ("blocks", c_uint64),
        ("members", c_uint64),
        ("damaged_block", c_uint64),
        ("damaged_offset", c_uint64),
        ("crc", c_uint32),
        ("block_size", c_uint32),
        ("has_crc", c_uint8),
        ("whole", c_uint8),
        ("bytes_follow", c_uint8),
        ("damaged_part", c_uint8),
    ]


_Transfer = CFUNCTYPE(c_int64, c_void_p, c_void_p, c_size_t)
_ReadAt = CFUNCTYPE(c_int64, c_void_p, c_uint64, c_void_p, c_size_t)


class _Stream(ctypes.Structure):
    _fields_ = [
        ("user", c_void_p),
        ("read", _Transfer),
        ("write", _Transfer),
        ("progress", c_void_p),
        ("report", POINTER(Report)),
        ("reserved", c_void_p * 3),
    ]


class _Block(ctypes.Structure):
    _fields_ = [
        ("offset", c_uint64),
        ("start", c_uint64),
        ("header", c_uint64),
        ("record_size", c_uint32),
        ("size", c_uint32),
        ("crc", c_uint32),
        ("indexed", c_uint32),
    ]


Block = collections.namedtuple("Block", [name for name, _ in _Block._fields_])
Block.__doc__ = """A block of an archive, of `size` bytes from `start` of the original on.

Its record is `record_size` bytes from `offset` of the archive on, its member's header is at
`header`. `crc` is what zlib.crc32 gives for the block, where `indexed` is not 0.
"""

_SETTINGS = (
    "block_size",
    "threads",
    "stages_off",
    "fixed_block_size",
    "no_fallback",
    "plain",
    "level",
)


def _load():
    name = "libvelk.0.dylib" if sys.platform == "darwin" else "libvelk.so.0"
    try:
        return ctypes.CDLL(name)
    except OSError as error:
        raise ImportError(str(error)) from None


_lib = _load()


def _check(status, _function, _arguments):
    if status == 0:
        return
    text = _lib.velk_status_text(status).decode()
    if status == _ERROR_ARGUMENT:
        raise ValueError(text)
    if status == _ERROR_MEMORY:
        raise MemoryError(text)
    raise VelkError(text)


def _declare(name, *arguments, result=None):
    function = getattr(_lib, name)
    function.argtypes = arguments
    function.restype = result
    return function


def _declare_status(name, *arguments):
    function = _declare(name, *arguments, result=c_int)
    function.errcheck = _check
    return function


_options_pointer = POINTER(_Options)
_result = (c_void_p, c_size_t, POINTER(c_size_t))
_coding = (c_char_p, c_size_t, *_result)  # see _coded

_declare("velk_status_text", c_int, result=c_char_p)
_version = _declare("velk_version", result=c_char_p)
_options_init = _declare("velk_options_init", _options_pointer)
_compress_bound = _declare("velk_compress_bound", c_size_t, _options_pointer, result=c_size_t)
_compress = _declare_status("velk_compress", _options_pointer, *_coding)
_decompress_bound = _declare_status("velk_decompress_bound", c_char_p, c_size_t, POINTER(c_uint64))
_decompress = _declare_status("velk_decompress", _options_pointer, *_coding, c_void_p)
_compress_stream = _declare_status(
    "velk_compress_stream", _options_pointer, POINTER(_Stream), c_uint64
)
_decompress_stream = _declare_status("velk_decompress_stream", _options_pointer, POINTER(_Stream))
_reader_open = _declare_status(
    "velk_reader_open", POINTER(c_void_p), c_void_p, _ReadAt, c_void_p, c_uint64, POINTER(Report)
)
_reader_read = _declare_status("velk_reader_read", c_void_p, c_uint64, *_result)
_reader_block = _declare_status("velk_reader_block", c_void_p, c_uint64, POINTER(_Block))
_reader_close = _declare("velk_reader_close", c_void_p)
_write_header = _declare_status("velk_write_header", _options_pointer, c_uint64, c_void_p)
_read_header = _declare_status("velk_read_header", c_char_p, _options_pointer)
_block_size = _declare("velk_block_size", _options_pointer, c_uint64, result=c_uint32)
_encoder_new = _declare_status("velk_encoder_new", POINTER(c_void_p), _options_pointer, c_uint64)
_encoder_free = _declare("velk_encoder_free", c_void_p)
_encode_block = _declare_status("velk_encode_block", c_void_p, *_coding, c_void_p)
_write_index = _declare_status("velk_write_index", c_char_p, *_coding)
_decoder_new = _declare_status("velk_decoder_new", POINTER(c_void_p), _options_pointer, c_char_p)
_decoder_free = _declare("velk_decoder_free", c_void_p)
_decode_block = _declare_status("velk_decode_block", c_void_p, *_coding)

__version__ = _version().decode()


def make_options(settings):
    """The library's record of settings that are given by name."""
    options = _Options()
    _options_init(byref(options))
    for name, value in settings.items():
        if name not in _SETTINGS:
            raise TypeError(f"no setting has the name {name!r}")
        setattr(options, name, value)
        if getattr(options, name) != value:  # ctypes cuts off what is too large
            raise ValueError(f"{name} is out of its bounds: {value!r}")
    return options


def as_bytes(data):
    """Any buffer as bytes that nobody changes while the interpreter's lock is released."""
    return data if isinstance(data, bytes) else bytes(memoryview(data))


def _coded(function, subject, data, capacity, *more, count=None):
    """What a function makes of the bytes of `data`, at most `capacity` bytes."""
    data = as_bytes(data)
    out = ctypes.create_string_buffer(capacity)
    size = c_size_t()
    count = len(data) if count is None else count
    function(subject, data, count, out, capacity, byref(size), *more)
    return ctypes.string_at(out, size.value)


def compress(data, **settings):
    """Return the archive of a bytes-like object; if `plain`, the bytes that `VELK e` writes."""
    options = make_options(settings)
    data = as_bytes(data)
    return _coded(_compress, options, data, _compress_bound(len(data), options))


def decompress(data, *, threads=0):
    """Return the original of an archive, a bytes-like object."""
    options = make_options({"threads": threads})
    data = as_bytes(data)
    bound = c_uint64()
    _decompress_bound(data, len(data), byref(bound))
    if bound.value > sys.maxsize:
        raise MemoryError
    return _coded(_decompress, options, data, bound.value, None)


def make_index(header, entries):
    """Return what ends the archive with this header, of all entries of its blocks in a row."""
    if len(header) != HEADER_SIZE or len(entries) % ENTRY_SIZE != 0:
        raise ValueError("not a header, or not whole entries")
    count = len(entries) // ENTRY_SIZE
    capacity = len(entries) + _INDEX_SIZE
    return _coded(_write_index, as_bytes(header), entries, capacity, count=count)


def _outcome(function, *arguments):
    """The result, or the exception."""
    try:
        return function(*arguments)
    except Exception as error:
        return error


def _fill(ask, buffer, size, offset):
    data = ask((size, offset))
    if data is None:
        return -1
    ctypes.memmove(buffer, data, min(size, len(data)))
    return len(data)


def checked_options(settings):
    """The record of settings, each within its bounds."""
    options = make_options(settings)
    if _compress_bound(0, options) == 0:
        raise ValueError(_lib.velk_status_text(_ERROR_ARGUMENT).decode())
    return options


def compress_stream(ask, options, report):
    """Compresses an input, in a thread of its own.

    ask(size): for the next bytes of the input, at most so many; b"" is its end. ask((piece,)):
    for a piece of the archive to be written. ask(b""): has nothing more, or ask(error). None
    for an answer: nothing is wanted any more.
    """
    pieces = []  # of the archive, small ones

    def read(_user, buffer, size):
        data = ask(size)
        if data is None:
            return -1
        ctypes.memmove(buffer, data, len(data))
        return len(data)

    def write(_user, piece, size):
        pieces.append(ctypes.string_at(piece, size))
        return size if size < _LARGE_PIECE or put() else -1

    def put():
        piece = b"".join(pieces)
        pieces.clear()
        return ask((piece,)) is not None

    stream = _Stream(None, _Transfer(read), _Transfer(write), None, ctypes.pointer(report))
    result = _outcome(_compress_stream, options, byref(stream), _SIZE_UNKNOWN)
    if result is None and not put():
        return
    while ask(result or b"") is not None:
        pass


def restore_stream(ask, report):
    """Restores an archive from its front, in a thread of its own.

    ask((size, offset)): for bytes of the archive, at most so many, in order. ask(piece): hands over
    a piece of the original, b"" at the end, or the exception that ended it. Both wait for an
    answer. None for an answer: nothing is wanted any more.
    """

    offset = 0

    def read(_user, buffer, size):
        nonlocal offset
        got = _fill(ask, buffer, size, offset)
        offset += got
        return got

    def write(_user, piece, size):
        return -1 if ask(ctypes.string_at(piece, size)) is None else size

    stream = _Stream(None, _Transfer(read), _Transfer(write), None, ctypes.pointer(report))
    result = _outcome(_decompress_stream, make_options({"threads": 1}), byref(stream)) or b""
    while ask(result) is not None:
        pass


def serve_reader(ask, archive_size, report):
    """Reads any part of an archive, in a thread of its own.

    ask((size, offset)): for bytes of the archive. ask(result): hands over what the answer
    before has given or raised, at first b"" for the opening. Answers to it are functions of
    the reader, and None as above.
    """
    reader = c_void_p()
    read_at = _ReadAt(lambda _user, offset, buffer, size: _fill(ask, buffer, size, offset))
    opening = (byref(reader), None, read_at, None, archive_size, byref(report))
    result = _outcome(_reader_open, *opening) or b""
    while (function := ask(result)) is not None:
        if reader:
            result = _outcome(function, reader)
    _reader_close(reader)


def read_piece(reader, offset, capacity):
    """Return these bytes of the original; fewer where it ends."""
    out = ctypes.create_string_buffer(capacity)
    size = c_size_t()
    _reader_read(reader, offset, out, capacity, byref(size))
    return ctypes.string_at(out, size.value)


def read_block(reader, number):
    """Return a Block."""
    block = _Block()
    _reader_block(reader, number, byref(block))
    return Block(*(getattr(block, name) for name in Block._fields))


class _Coder:
    """Memory of the library's for one block at a time; several threads take turns."""

    _handle = None

    def __init__(self, new, options, about):
        self._lock = threading.Lock()
        self._handle = c_void_p()
        new(byref(self._handle), options, about)

    def __del__(self):
        self._free(self._handle)

    def _code(self, function, data, capacity, *more):
        with self._lock:
            return _coded(function, self._handle, data, capacity, *more)


class Encoder(_Coder):
    """Compresses blocks of one input to the records of its archive, in any order.

    An archive is `header`, the records in the order of their blocks and, unless it is plain,
    what make_index gives. Each block but the last of a plain archive holds `block_size` bytes
    of the input, others at most. `size` is that of the whole input, in bytes, or None for one
    that is not known yet and is more than a block.

    Encoders of the same size and settings do the same, whatever the process or machine.
    """

    _free = _encoder_free

    def __init__(self, size=None, **settings):
        options = make_options(settings)
        if size is not None and not 0 <= size < _SIZE_UNKNOWN:
            raise ValueError(f"size is out of its bounds: {size!r}")
        about = _SIZE_UNKNOWN if size is None else size
        super().__init__(_encoder_new, options, about)
        self.block_size = _block_size(options, about)
        header = ctypes.create_string_buffer(HEADER_SIZE)
        _write_header(options, about, header)
        self.header = header.raw
        self._capacity = _compress_bound(self.block_size, options) - HEADER_SIZE

    def encode(self, block):
        """Return the record of a block of 1 to block_size bytes, and its entry for the index."""
        entry = ctypes.create_string_buffer(ENTRY_SIZE)
        return self._code(_encode_block, block, self._capacity, entry), entry.raw


class Decoder(_Coder):
    """Restores blocks from the records of an archive, in any order.

    `header` is the HEADER_SIZE bytes that the archive, or the member of it, begins with.
    """

    _free = _decoder_free

    def __init__(self, header):
        header = as_bytes(header)
        if len(header) < HEADER_SIZE:  # fails, and says why
            _decompress_bound(header, len(header), byref(c_uint64()))
        options = _Options()
        _read_header(header, options)
        super().__init__(_decoder_new, options, header)
        self._capacity = options.block_size + _BLOCK_SLACK

    def decode(self, record):
        """Return the block of a record."""
        return self._code(_decode_block, record, self._capacity)
