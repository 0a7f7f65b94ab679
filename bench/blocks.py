"""Compares how an input is cut into blocks, over the files of folders.

Started by scripts/bench-blocks. For each file: the bytes of the archive whose blocks end where the
content changes, beside those of full blocks with the same index, by block size; and of level 9,
which tries, beside the smallest of the levels below it, with both's processor time. Prints a table
of the files where anything differs, and the totals of all.
"""
import resource
import subprocess
import sys
from pathlib import Path

VELKZ = Path(__file__).resolve().parent.parent / "build/release/velkz"
BLOCK_SIZES = {"1 MiB": 1024, "2 MiB": 2048, "16382 KiB": 16382}


def run(file, *options):
    """The archive's bytes, and the processor seconds."""
    def seconds():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime
    before = seconds()
    with open(file, "rb") as source:
        archive = subprocess.run([VELKZ, "-qT1", *options], stdin=source, check=True,
                                 capture_output=True).stdout
    return len(archive), seconds() - before


def full_blocks(file, kib):
    """The bytes of the archive of full blocks, were an index behind it."""
    bytes_, _ = run(file, "--plain", f"-b{kib}K", "--size", str(file.stat().st_size))
    return bytes_ + 29 + 12 * -(-file.stat().st_size // (kib << 10))


def measure(file):
    sizes = [(full_blocks(file, kib), run(file, f"-b{kib}K")[0]) for kib in BLOCK_SIZES.values()]
    levels = [run(file, f"-{level}") for level in range(1, 10)]
    return sizes, min(size for size, _ in levels[:8]), levels[7], levels[8]


def cells(before, after):
    return f"{before:,}", f"{after:,}", f"{100 * after / before - 100:+.2f} %"


def main(folders):
    files = sorted(f for folder in folders for f in Path(folder).iterdir() if f.is_file())
    heads = ["file", *(f"{name}: full | cut | " for name in BLOCK_SIZES),
             "smallest of -1 to -8 | -9 | ", "time of -9 / -8"]
    print("| " + " | ".join(heads) + " |")
    print("|---" + "|---:" * (3 * len(BLOCK_SIZES) + 4) + "|")
    results = {}
    for file in files:
        results[file] = sizes, smallest, eighth, ninth = measure(file)
        pairs = [*sizes, (smallest, ninth[0])]
        if all(abs(after / before - 1) < 0.00005 for before, after in pairs):
            continue
        row = [cell for pair in pairs for cell in cells(*pair)]
        print("|", " | ".join([file.name, *row, f"{ninth[1] / eighth[1]:.1f}"]), "|", flush=True)
    columns = list(zip(*([*sizes, (smallest, ninth[0]), (eighth[1], ninth[1])]
                         for sizes, smallest, eighth, ninth in results.values())))
    totals = [(sum(b for b, _ in column), sum(a for _, a in column)) for column in columns]
    *sizes, (eighth, ninth) = totals
    row = [cell for pair in sizes for cell in cells(*pair)]
    print("|", " | ".join([f"**all {len(files)}**", *row, f"{ninth / eighth:.1f}"]), "|")


main(sys.argv[1:])
