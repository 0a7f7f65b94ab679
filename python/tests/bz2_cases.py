"""CPython's own tests of bz2, run on this module: Debian's package libpython3.11-testsuite."""

import sys
import types
import unittest
from importlib.util import find_spec

import velk

# What they name is bz2's own: bytes, texts, private members, blocks of less than 128 KiB.
OTHERS = {
    "test_decompress_after_data_error",
    "testDecompressLimited",
    "testDecompressorChunksMaxsize",
    "testReadlinesNoNewline",
}


def settings(compresslevel=9, **others):
    if not 1 <= compresslevel <= 9:
        raise ValueError("compresslevel must be between 1 and 9")
    return {"level": compresslevel, **others}


def load_tests(loader, _tests, _pattern):
    """The cases, with velk in bz2's place."""
    class File(velk.VelkFile):
        def __init__(self, filename, mode="r", *, compresslevel=9):
            checked = settings(compresslevel)
            super().__init__(filename, mode, **({} if "r" in mode else checked))

    shim = types.ModuleType("bz2")
    shim.BZ2File = File
    shim.BZ2Compressor = lambda compresslevel=9: velk.VelkCompressor(**settings(compresslevel))
    shim.BZ2Decompressor = velk.VelkDecompressor
    shim.compress = lambda data, compresslevel=9: velk.compress(data, **settings(compresslevel))
    shim.decompress = velk.decompress
    shim.open = velk.open
    before = sys.modules.get("bz2")
    sys.modules["bz2"] = shim
    try:
        from test import test_bz2
    finally:
        sys.modules["bz2"] = before
    base = test_bz2.BaseTest
    base.DATA = velk.compress(base.TEXT)
    base.EMPTY_DATA = velk.compress(b"")
    test_bz2.has_cmdline_bunzip2 = False
    suite = unittest.TestSuite()
    for case in loader.loadTestsFromModule(test_bz2):
        suite.addTests(test for test in case if test._testMethodName not in OTHERS)
    return suite


if __name__ == "__main__":
    if find_spec("test.test_bz2") is None:
        print("no test.test_bz2 here")
    else:
        unittest.main()
