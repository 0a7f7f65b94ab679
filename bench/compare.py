"""Compares VELK with the compressors installed here, over the files of a folder.

Started by scripts/bench. Prints tables and writes them with two charts to REPORT.md
(velk-benchmarks/benchmarks.md). Every file is compressed and restored N times (5) by each
program in turn, on one thread; a time is the median of what the system counts as
processor time, so that other work on the machine disturbs little. Then all files as one
tar, with all processors and by the clock. Restored files are compared.
"""
import argparse
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

from chart import chart

TOP = Path(__file__).resolve().parent.parent
VELK = TOP / "build/release/VELK"
GNU_TIME = "/usr/bin/time"


class Program(NamedTuple):
    """In the commands {i} and {o} are the files, "<" and ">" the standard streams, {l} a
    level and {n} the number of processors."""
    name: str
    package: str
    command: str | Path
    version: str
    compress: str
    restore: str
    levels: str  # a "*" behind one: it stands in the first table and in that of files
    default: str = ""  # the level that needs no switch


ONE_THREAD = [
    Program("VELK", "", VELK, "", "e {i} {o} {l}", "d {i} {o}",
            "-b128, -b512, -b2048*, -b8192, -b16383*", "-b2048"),
    Program("bzip2", "bzip2", "bzip2", "--version", "{l} -c < >", "-d -c < >", "-1, -9*"),
    Program("bzip3", "bzip3", "bzip3", "--version", "-e -c {l} < >", "-d -c < >",
            "-b 1, -b 2, -b 16*"),
    Program("xz", "xz-utils", "xz", "--version", "{l} -T1 -c < >", "-d -T1 -c < >",
            "-1, -6*, -9e*"),
    Program("lzip", "lzip", "lzip", "--version", "{l} -c < >", "-d -c < >", "-6, -9*"),
    Program("zstd", "zstd", "zstd", "--version", "{l} --single-thread -q -c < >", "-d -q -c < >",
            "-3*, -9, -19*"),
    Program("brotli", "brotli", "brotli", "--version", "{l} -c < >", "-d -c < >",
            "-q 5, -q 9, -q 11*"),
    Program("7z", "p7zip-full", "7z", "", "a -m0={l} -mx=9 -mmt=1 -bd {o} {i}", "e -so -mmt=1 {i} >",
            "PPMd*"),
]
ALL_PROCESSORS = [
    Program("VELK", "", VELK, "", "e {i} {o} {l}", "d {i} {o}", "-b2048, -b16383", "-b2048"),
    Program("velkz", "", TOP / "build/release/velkz", "--version", "{l} -T {n} < >",
            "-d -T {n} < >", "-1, -5, -8, -9", "-5"),
    Program("lbzip2", "lbzip2", "lbzip2", "--version", "{l} -n {n} -c < >", "-d -n {n} -c < >",
            "-9"),
    Program("pbzip2", "pbzip2", "pbzip2", "--version", "{l} -p{n} -c < >", "-d -p{n} -c < >",
            "-9"),
    Program("bzip3", "bzip3", "bzip3", "--version", "-e -c {l} -j {n} < >", "-d -c -j {n} < >",
            "-b 2, -b 16"),
    Program("xz", "xz-utils", "xz", "--version", "{l} -T{n} -c < >", "-d -T{n} -c < >",
            "-6, -9e"),
    Program("plzip", "plzip", "plzip", "--version", "{l} -n {n} -c < >", "-d -n {n} -c < >",
            "-6, -9"),
    Program("zstd", "zstd", "zstd", "--version", "{l} -T{n} -q -c < >", "-d -q -c < >",
            "-9, -19"),
]
SWITCHES = [("EOL", "-e"), ("FLT32", "-f"), ("DELTA", "-l"), ("LZP", "-z"), ("RLE", "-r"),
            ("BWT", "-t")]


class Peer(NamedTuple):
    """A program at one level."""
    program: Program
    level: str
    chosen: bool

    def __str__(self):
        level = "" if self.level == self.program.default else self.level
        return f"{self.program.name} {level}".strip()


def peers_of(programs):
    return [Peer(p, level.rstrip("*"), level.endswith("*")) for p in programs
            for level in p.levels.split(", ")]


def run(program, arguments, source, target, level="", through=()):
    """Runs it without a target there before, through another program if one is given; returns
    processor seconds and seconds by the clock."""
    target.unlink(missing_ok=True)  # 7z would add to it
    words = []
    stdin = stdout = subprocess.DEVNULL
    for word in arguments.replace("{l}", level).replace("{n}", str(os.cpu_count())).split():
        if word == "<":
            stdin = open(source, "rb")
        elif word == ">":
            stdout = open(target, "wb")
        else:
            words.append(word.format(i=source, o=target))
    start = time.perf_counter()
    process = subprocess.Popen([*through, program, *words], stdin=stdin, stdout=stdout,
                               stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    elapsed = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{program} {' '.join(words)}: status {process.returncode}")
    return usage.ru_utime + usage.ru_stime, elapsed


def largest_memory(*arguments):
    """In bytes, of what `run` runs with these."""
    # GNU time stands between, as a program seems to take at least the memory of the one
    # that starts it, and this one takes more than some compressors. Times are taken without it:
    # its own start is a tenth of what the fastest take.
    with tempfile.NamedTemporaryFile() as memory:
        run(*arguments, through=(GNU_TIME, "-f", "%M", "-o", memory.name))
        return int(memory.read()) * 1024


class Result:
    """Of one peer and one file."""

    def __init__(self):
        self.size = 0
        self.times = [], []  # compression, restoring
        self.memory = [0, 0]


def measure(peers, files, rounds, scratch, by_clock):
    """(peer, file) -> Result."""
    results = {(p, f): Result() for p in peers for f in files}
    for turn in range(rounds):
        print(f"round {turn + 1} of {rounds}", file=sys.stderr)
        for file in files:
            for peer in peers:
                packed, restored = scratch / "packed.7z", scratch / "restored"
                result = results[peer, file]
                for step, command, source, target in ((0, peer.program.compress, file, packed),
                                                      (1, peer.program.restore, packed, restored)):
                    call = peer.program.command, command, source, target, peer.level
                    if turn == 0:
                        result.memory[step] = largest_memory(*call)
                    cpu, clock = run(*call)
                    result.times[step].append(clock if by_clock else cpu)
                result.size = packed.stat().st_size
                if turn == 0 and subprocess.run(["cmp", "-s", file, restored]).returncode != 0:
                    sys.exit(f"{peer}: {file} came back changed")
    return results


class Total(NamedTuple):
    size: int
    compression: float
    restoring: float
    memory: tuple


def totals(peers, files, results):
    """peer -> Total: the sums over the files, of memory the largest."""
    sums = {}
    for peer in peers:
        of_files = [results[peer, f] for f in files]
        seconds = [sum(statistics.median(r.times[step]) for r in of_files) for step in (0, 1)]
        memory = tuple(max(r.memory[step] for r in of_files) for step in (0, 1))
        sums[peer] = Total(sum(r.size for r in of_files), *seconds, memory)
    return sums


HEADS = ["program", "archives", "of the files", "compression", "restoring", "memory",
         "to restore"]


def rows_of(sums, original):
    return [[str(peer), f"{t.size:,}", f"{100 * t.size / original:.2f}%", f"{t.compression:.2f} s",
             f"{t.restoring:.2f} s",
             *(f"{m / 1e6:.{0 if m > 1e7 else 1}f} MB" for m in t.memory)]
            for peer, t in sums.items()]


def markdown(heads, rows):
    def row(cells, bold=False):
        return "| " + " | ".join(f"**{c}**" if bold else str(c) for c in cells) + " |"
    return "\n".join([row(heads), "|---" + "|---:" * (len(heads) - 1) + "|",
                      *(row(r, str(r[0]).lower().startswith("velk")) for r in rows)])


def plain(heads, rows):
    widths = [max(len(str(r[i])) for r in [heads, *rows]) for i in range(len(heads))]
    return "\n".join("  ".join(str(c).rjust(w) if i else str(c).ljust(w)
                               for i, (c, w) in enumerate(zip(r, widths)))
                     for r in [heads, *rows])


def version(program):
    """Its name and version."""
    found = subprocess.run([program.command, *program.version.split()], capture_output=True,
                           text=True, errors="replace", stdin=subprocess.DEVNULL)
    number = re.search(r"\d+\.\d+(\.\d+)?", found.stderr + found.stdout if program.command == VELK
                       else found.stdout + found.stderr)
    return f"{program.name} {number.group() if number else '?'}"


def first(path, pattern):
    found = re.search(pattern, Path(path).read_text(), re.M) if os.path.exists(path) else None
    return found.group(1) if found else "unknown"


def processor():
    return first("/proc/cpuinfo", "^model name.*: (.*)")


def stage_gains(files, scratch):
    """By how much each file's archive grows with a stage off."""
    rows = []
    for file in files:
        sizes = []
        for switch in ["-s"] + [s for _, s in SWITCHES]:
            run(VELK, f"e {{i}} {{o}} {switch}", file, scratch / "stage")
            sizes.append((scratch / "stage").stat().st_size)
        growth = [f"{100 * (s / sizes[0] - 1):+.2f}%" for s in sizes[1:]]
        rows.append([file.name, *("0" if g[1:] == "0.00%" else g for g in growth)])
    return markdown(["file", *(f"{n} off `{s}`" for n, s in SWITCHES)], rows)


def draw(sums, original, files, output):
    subtitle = (f"{len(files)} file{'s' if len(files) > 1 else ''}, {original / 1e6:.1f} MB "
                f"together; {processor()}, one thread; better is lower and further left")
    for kind in ("compression", "restoring"):
        lines, sizes = {}, set()
        for peer, total in sums.items():
            # Block sizes above that of all files make no difference.
            if (peer.program.name, total.size) in sizes:
                continue
            sizes.add((peer.program.name, total.size))
            lines.setdefault(peer.program.name, []).append(
                (peer.level, max(getattr(total, kind), 0.01), 100 * total.size / original))
        output.with_name(f"{output.stem}-{kind}.svg").write_text(
            chart(f"Size against time of {kind}", subtitle, f"processor time of {kind}, seconds",
                  "archives in % of the files", list(lines.items())))


def report(output, files, original, rounds, results, sums, all_sums, gains):
    chosen = [p for p in sums if p.chosen]
    programs = dict.fromkeys(version(p.program) for p in [*sums, *all_sums])
    sizes = [[f.name, f"{f.stat().st_size:,}", *(f"{results[p, f].size:,}" for p in chosen)]
             for f in files]
    output.write_text(f"""# Benchmarks

Made by `scripts/bench` over {len(files)} files, {original:,} bytes together; medians of {rounds}
alternating rounds; memory at its largest. Restored files were compared with the originals.

Machine: {processor()}, {os.cpu_count()} processors, \
{first('/etc/os-release', '^PRETTY_NAME=.(.*).$')}, Linux {platform.release().split('-')[0]}, \
{platform.machine()}.
Versions: {", ".join(programs)}.

## One thread

File by file, in processor time.

{markdown(HEADS, rows_of({p: sums[p] for p in chosen}, original))}

![Size against time of compression]({output.stem}-compression.svg)

![Size against time of restoring]({output.stem}-restoring.svg)

Every level that the charts show:

{markdown(HEADS, rows_of(sums, original))}

## All processors

The files as one tar, by the clock, with as many threads as there are processors; VELK has one.

{markdown(HEADS, rows_of(all_sums, original))}

## File by file

Bytes.

{markdown(["file", "size", *map(str, chosen)], sizes)}

## What each stage gains

How much larger an archive of VELK gets with one stage switched off (smaller, with a
minus: there the stage does harm). With `-t` the ST sorts in place of the BWT.

{gains}
""")


def files_of(folder):
    if not folder.is_dir():
        sys.exit(f"{folder}: not a folder")
    entries = sorted(folder.iterdir())
    files = [e for e in entries if e.is_file() and e.stat().st_size > 0]
    for entry in entries:
        if entry not in files:
            print(f"left out: {entry} is {'a folder' if entry.is_dir() else 'empty'}",
                  file=sys.stderr)
    if not files:
        sys.exit(f"{folder}: no files to measure")
    return files


def installed(programs):
    return [p for p in programs if shutil.which(p.command)]


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("folder", type=Path)
    parser.add_argument("report", type=Path, nargs="?",
                        default=Path("velk-benchmarks/benchmarks.md"))
    options = parser.parse_args()
    files = files_of(options.folder)
    original = sum(f.stat().st_size for f in files)
    options.report.parent.mkdir(parents=True, exist_ok=True)
    missing = dict.fromkeys(p.package for p in ONE_THREAD + ALL_PROCESSORS
                            if not shutil.which(p.command))
    if missing:
        print("left out, as these packages are not installed:", *missing, file=sys.stderr)
    if os.getloadavg()[0] > 0.5:
        print("this machine is busy: the times will be longer than they should", file=sys.stderr)

    with tempfile.TemporaryDirectory() as folder:
        scratch = Path(folder)
        peers = peers_of(installed(ONE_THREAD))
        print(f"{len(files)} files, {original:,} bytes; {len(peers)} programs and levels, "
              "one thread", file=sys.stderr)
        results = measure(peers, files, options.rounds, scratch, by_clock=False)
        sums = totals(peers, files, results)
        tar = scratch / "files.tar"
        subprocess.run(["tar", "-cf", tar, "--", *files], check=True, stderr=subprocess.DEVNULL)
        peers = peers_of(installed(ALL_PROCESSORS))
        print("one tar, all processors", file=sys.stderr)
        all_sums = totals(peers, [tar], measure(peers, [tar], options.rounds, scratch,
                                                by_clock=True))
        gains = stage_gains(files, scratch)
    draw(sums, original, files, options.report)
    report(options.report, files, original, options.rounds, results, sums, all_sums, gains)
    print("One thread, processor time:\n\n" + plain(HEADS, rows_of(sums, original)))
    print("\nAll processors, one tar, by the clock:\n\n" + plain(HEADS, rows_of(all_sums, original)))
    print(f"\nFile by file, with charts: {options.report}")


main()
