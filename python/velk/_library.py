"""libvelk by ctypes: archives in memory, and single blocks.

Of include/velk.h, what works without callbacks: a signal that arrives during a call lets
its exception (KeyboardInterrupt) loose as ctypes enters the next callback, before its
first line, where ctypes prints and forgets it and returns a number at random. Files are
read and written by Python instead, around the calls for single blocks. They release the
interpreter's lock.
"""

import ctypes
import sys
import threading
from ctypes import POINTER, byref, c_char_p, c_int, c_size_t, c_uint8, c_uint32, c_uint64, c_void_p

OFF_EOL = 0x01
OFF_FLT32 = 0x02
OFF_DELTA = 0x04
OFF_LZP = 0x08
OFF_BWT = 0x10
OFF_ST = 0x20
OFF_RLE = 0x40
OFF_DCE = 0x80

HEADER_SIZE = 18
RECORD_HEAD_SIZE = 5
MAX_THREADS = 256

_BLOCK_SLACK = 100  # bytes by which a decoded block may exceed the block size
_SIZE_UNKNOWN = 2**64 - 1
_ERROR_ARGUMENT, _ERROR_MEMORY, _ERROR_DAMAGED = 1, 2, 5


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
        ("reserved", c_uint8 * 45),
    ]


_SETTINGS = ("block_size", "threads", "stages_off", "fixed_block_size", "no_fallback")


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
_coding = (c_char_p, c_size_t, c_void_p, c_size_t, POINTER(c_size_t))  # see _coded

_declare("velk_status_text", c_int, result=c_char_p)
_version = _declare("velk_version", result=c_char_p)
_options_init = _declare("velk_options_init", _options_pointer)
_compress_bound = _declare("velk_compress_bound", c_size_t, _options_pointer, result=c_size_t)
_compress = _declare_status("velk_compress", _options_pointer, *_coding)
_decompress_bound = _declare_status("velk_decompress_bound", c_char_p, c_size_t, POINTER(c_uint64))
_decompress = _declare_status("velk_decompress", _options_pointer, *_coding)
_write_header = _declare_status("velk_write_header", _options_pointer, c_uint64, c_void_p)
_read_header = _declare_status("velk_read_header", c_char_p, _options_pointer)
_block_size = _declare("velk_block_size", _options_pointer, c_uint64, result=c_uint32)
_record_size = _declare_status("velk_record_size", c_char_p, POINTER(c_size_t))
_encoder_new = _declare_status("velk_encoder_new", POINTER(c_void_p), _options_pointer, c_uint64)
_encoder_free = _declare("velk_encoder_free", c_void_p)
_encode_block = _declare_status("velk_encode_block", c_void_p, *_coding)
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


def _coded(function, subject, data, capacity):
    """What a function makes of the bytes of `data`, at most `capacity` bytes."""
    data = as_bytes(data)
    out = ctypes.create_string_buffer(capacity)
    size = c_size_t()
    function(subject, data, len(data), out, capacity, byref(size))
    return ctypes.string_at(out, size.value)


def compress(data, **settings):
    """Return the archive of a bytes-like object: the very bytes that `VELK e` writes."""
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
    return _coded(_decompress, options, data, bound.value)


def record_size(head):
    """Return how long the record is that begins with these bytes, RECORD_HEAD_SIZE of them.

    The size is that of the whole record; 0 ends an archive before the end of its file.
    """
    if len(head) < RECORD_HEAD_SIZE:
        _check(_ERROR_DAMAGED, None, None)
    size = c_size_t()
    _record_size(as_bytes(head), byref(size))
    return size.value


class _Coder:
    """Memory of the library's for one block at a time; several threads take turns."""

    _handle = None

    def __init__(self, new, options, about):
        self._lock = threading.Lock()
        self._handle = c_void_p()
        new(byref(self._handle), options, about)

    def __del__(self):
        self._free(self._handle)

    def _code(self, function, data, capacity):
        with self._lock:
            return _coded(function, self._handle, data, capacity)


class Encoder(_Coder):
    """Compresses blocks of one input to the records of its archive, in any order.

    An archive is `header` and the records in the order of their blocks. Each block but
    the last holds `block_size` bytes of the input. `size` is that of the whole input, in
    bytes, or None for one that is not known yet and is more than a block.

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
        """Return the record of a block of 1 to block_size bytes."""
        return self._code(_encode_block, block, self._capacity)


class Decoder(_Coder):
    """Restores blocks from the records of an archive, in any order.

    `header` is the archive's first HEADER_SIZE bytes; from it comes `block_size`, the
    bytes of each block but the last.
    """

    _free = _decoder_free

    def __init__(self, header):
        header = as_bytes(header)
        if len(header) < HEADER_SIZE:  # fails, and says why
            _decompress_bound(header, len(header), byref(c_uint64()))
        options = _Options()
        _read_header(header, options)
        super().__init__(_decoder_new, options, header)
        self.block_size = options.block_size
        self.max_record_size = self.block_size + _BLOCK_SLACK + RECORD_HEAD_SIZE

    def decode(self, record):
        """Return the block of a record, at most block_size bytes of what a compressor made."""
        return self._code(_decode_block, record, self.block_size + _BLOCK_SLACK)
