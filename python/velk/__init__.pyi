import io
from os import PathLike
from typing import IO, Any, NamedTuple, final

__version__: str
ENTRY_SIZE: int
HEADER_SIZE: int
OFF_BWT: int
OFF_DCE: int
OFF_DELTA: int
OFF_EOL: int
OFF_FLT32: int
OFF_LZP: int
OFF_RLE: int
OFF_ST: int

_Buffer = bytes | bytearray | memoryview  # and whatever else has the buffer protocol
_Path = str | bytes | PathLike[str] | PathLike[bytes]

class VelkError(OSError):
    block: int | None
    offset: int | None

class CutError(VelkError, EOFError, ValueError): ...

class Block(NamedTuple):
    offset: int
    start: int
    header: int
    record_size: int
    size: int
    crc: int
    indexed: bool

@final
class VelkCompressor:
    def __new__(cls, *, level: int = ..., block_size: int = ..., fixed_block_size: bool = ...,
                stages_off: int = ..., no_fallback: bool = ..., plain: bool = ...,
                threads: int = ...) -> VelkCompressor: ...
    def compress(self, data: _Buffer, /) -> bytes: ...
    def end_block(self) -> bytes: ...
    def flush(self) -> bytes: ...

@final
class VelkDecompressor:
    def __new__(cls, *, members: bool = ..., threads: int = ...) -> VelkDecompressor: ...
    @property
    def eof(self) -> bool: ...
    @property
    def needs_input(self) -> bool: ...
    @property
    def unused_data(self) -> bytes: ...
    @property
    def whole(self) -> bool: ...
    def decompress(self, data: _Buffer, max_length: int = -1) -> bytes: ...
    def finish(self, data: _Buffer = ..., max_length: int = -1) -> bytes: ...

@final
class Encoder:
    def __new__(cls, size: int | None = ..., *, level: int = ..., block_size: int = ...,
                fixed_block_size: bool = ..., stages_off: int = ..., no_fallback: bool = ...,
                plain: bool = ..., threads: int = ...) -> Encoder: ...
    @property
    def header(self) -> bytes: ...
    @property
    def block_size(self) -> int: ...
    def encode(self, block: _Buffer, /) -> tuple[bytes, bytes]: ...

@final
class Decoder:
    def __new__(cls, header: _Buffer) -> Decoder: ...
    def decode(self, record: _Buffer, /) -> bytes: ...

class VelkFile(io.BufferedIOBase):
    mode: str
    def __init__(self, filename: _Path | IO[bytes], mode: str = "r", *, level: int = ...,
                 block_size: int = ..., fixed_block_size: bool = ..., stages_off: int = ...,
                 no_fallback: bool = ..., plain: bool = ..., threads: int = ...) -> None: ...
    @property
    def name(self) -> Any: ...
    @property
    def whole(self) -> bool | None: ...
    def blocks(self) -> list[Block]: ...
    def peek(self, size: int = 0) -> bytes: ...

def compress(data: _Buffer, /, *, level: int = ..., block_size: int = ...,
             fixed_block_size: bool = ..., stages_off: int = ..., no_fallback: bool = ...,
             plain: bool = ..., threads: int = ...) -> bytes: ...
def decompress(data: _Buffer, *, threads: int = 0) -> bytes: ...
def make_index(header: _Buffer, entries: _Buffer, /) -> bytes: ...
def open(filename: _Path | IO[bytes], mode: str = "rb", *, encoding: str | None = None,
         errors: str | None = None, newline: str | None = None, level: int = ...,
         block_size: int = ..., fixed_block_size: bool = ..., stages_off: int = ...,
         no_fallback: bool = ..., plain: bool = ...,
         threads: int = ...) -> VelkFile | io.TextIOWrapper: ...
